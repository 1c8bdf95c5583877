#include "kordll/record/StoredWordTest.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "kordll/record/MarkedText.h"

namespace kordll {

namespace {

// ASCII units as the search sees them: A to Z lowered when folding.
struct FoldTables {
  std::array<unsigned char, 128> lower;
  std::array<unsigned char, 128> same;
  FoldTables() {
    for (int c = 0; c < 128; ++c) {
      same[c] = static_cast<unsigned char>(c);
      lower[c] = static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    }
  }
};
const FoldTables kTables;

}  // namespace

StoredWordTest::StoredWordTest(const CString& word, int caseSensitive, std::vector<int> fieldIds)
    : fold_(caseSensitive == 0), field_ids_(std::move(fieldIds)) {
  usable_ = !word.IsEmpty();
  for (char16_t unit : word.view()) {
    if (fold_) unit = unit < 128 ? kTables.lower[unit] : ToLowerUnit(unit);
    if (unit == 0 || unit >= 128) usable_ = false;
    word_ += static_cast<char>(unit);
  }
}

bool StoredWordTest::Searches(int fieldId) const {
  return std::find(field_ids_.begin(), field_ids_.end(), fieldId) != field_ids_.end();
}

bool StoredWordTest::MayHold(const unsigned char* area, int length) {
  if (!usable_) return true;
  // An area that begins with NUL gives the record no text at all.
  if (length <= 0 || area[0] == 0) return false;
  const auto& table = fold_ ? kTables.lower : kTables.same;
  folded_.resize(length);
  char* out = folded_.data();
  size_t n = 0;
  if (length >= 2 && area[0] == ' ' && area[1] == ' ') {
    // Characters below 127 only, one byte each, up to the first NUL.
    for (int i = 2; i < length && area[i] != 0; ++i) {
      const unsigned char b = area[i];
      out[n++] = static_cast<char>(Fold(b, table));
    }
  } else if (length >= 2 && area[0] == '!' && area[1] == ':') {
    n = FoldMultiByte(area + 2, length - 2, table);
  } else {
    // The 8-bit reading of any other area: rare, decoded as the engine does.
    if (decoded_.size() < static_cast<size_t>(length)) decoded_.resize(length);
    const size_t count = MarkedText::DecodeNarrow(area, length, true, decoded_.data());
    for (size_t i = 0; i < count; ++i) out[n++] = static_cast<char>(Fold(decoded_[i], table));
  }
  return memmem(out, n, word_.data(), word_.size()) != nullptr;
}

unsigned char StoredWordTest::Fold(char16_t unit, const std::array<unsigned char, 128>& table) {
  if (unit < 128) return table[unit];
  if (!fold_) return kOther;
  // Lowering takes a few characters beyond ASCII into it (the capital
  // dotted I, the Kelvin sign): which ones is asked of the lowering once.
  static const std::vector<unsigned char> beyond = [] {
    std::vector<unsigned char> out(65536, kOther);
    for (int u = 128; u < 65536; ++u) {
      const char16_t lower = ToLowerUnit(static_cast<char16_t>(u));
      if (lower < 128) out[u] = static_cast<unsigned char>(lower);
    }
    return out;
  }();
  return beyond[unit];
}

size_t StoredWordTest::FoldMultiByte(const unsigned char* bytes, int length,
                                     const std::array<unsigned char, 128>& table) {
  // The groups of the multi-byte reading (a lead byte takes the bytes after
  // it whatever they are; a byte that leads nothing is skipped; the text
  // ends at a NUL byte or at a group that gives U+0000), one byte out for
  // each character.
  char* out = folded_.data();
  size_t n = 0;
  int i = 0;
  while (i < length) {
    const unsigned char b = bytes[i];
    char16_t unit;
    if (b < 0x80) {
      if (b == 0) break;
      out[n++] = static_cast<char>(table[b]);
      ++i;
      continue;
    }
    if ((b & 0xE0) == 0xC0) {
      if (i + 1 >= length) break;
      unit = static_cast<char16_t>(((b & 0x1F) << 6) | (bytes[i + 1] & 0x3F));
      i += 2;
    } else if ((b & 0xF0) == 0xE0) {
      if (i + 2 >= length) break;
      unit = static_cast<char16_t>(((b & 0x0F) << 12) | ((bytes[i + 1] & 0x3F) << 6) |
                                   (bytes[i + 2] & 0x3F));
      i += 3;
    } else {
      ++i;
      continue;
    }
    if (unit == 0) break;
    out[n++] = static_cast<char>(Fold(unit, table));
  }
  return n;
}

}  // namespace kordll
