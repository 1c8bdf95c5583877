#include "kordll/record/MarkedText.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace kordll {

namespace {

// Bytes that the unit takes in the encoding.
int EncodedSize(char16_t ch) {
  if (ch < 127) return 1;
  if (ch < 2048) return 2;
  return 3;
}

bool Fits(int size, int used, int length, MarkedText::Fit fit) {
  if (fit == MarkedText::kRecordArea) {
    switch (size) {
      case 1:
        return length > used;
      case 2:
        return length > used + 2;
      default:
        return length > used + 3;
    }
  }
  switch (size) {
    case 1:
      return used + 1 < length;
    case 2:
      return used + 3 < length;
    default:
      return used + 4 < length;
  }
}

int Put(char16_t ch, unsigned char* out) {
  if (ch < 127) {
    out[0] = static_cast<unsigned char>(ch);
    return 1;
  }
  if (ch < 2048) {
    out[0] = static_cast<unsigned char>(0xC0 | (ch >> 6));
    out[1] = static_cast<unsigned char>(0x80 | (ch & 0x3F));
    return 2;
  }
  out[0] = static_cast<unsigned char>(0xE0 | (ch >> 12));
  out[1] = static_cast<unsigned char>(0x80 | ((ch >> 6) & 0x3F));
  out[2] = static_cast<unsigned char>(0x80 | (ch & 0x3F));
  return 3;
}

// Appends count bytes as the units of the same values.
void AppendBytes(const unsigned char* bytes, int count, std::u16string* out) {
  const size_t old = out->size();
  out->resize(old + static_cast<size_t>(count));
  char16_t* to = out->data() + old;
  for (int k = 0; k < count; ++k) to[k] = bytes[k];
}

constexpr uint64_t kOnes = 0x0101010101010101ull;
constexpr uint64_t kHighs = 0x8080808080808080ull;

}  // namespace

int MarkedText::Encode(std::u16string_view text, int* position, unsigned char* area, int length,
                       Fit fit) {
  const int size = static_cast<int>(text.size());
  if (*position < 0) *position = 0;
  if (length < 2) {
    *position = size;
    return length < 0 ? 0 : length;
  }
  area[0] = ' ';
  area[1] = ' ';
  int used = 2;
  bool multi = false;
  // A one-byte character fits while used stays below this bound.
  const int ascii_bound = fit == kRecordArea ? length : length - 1;
  const char16_t* units = text.data();
  while (*position < size) {
    // Runs of characters below 127 are the common case: they are copied
    // without the general fitting test, as far as they fit.
    int pos = *position;
    const int end = pos + std::min(ascii_bound - used, size - pos);
    while (pos < end && units[pos] < 127) area[used++] = static_cast<unsigned char>(units[pos++]);
    *position = pos;
    if (pos >= size) break;
    const char16_t ch = text[*position];
    const int need = EncodedSize(ch);
    if (!Fits(need, used, length, fit)) {
      if (used > 2) break;  // the rest goes on in the next piece
      // An empty piece that cannot take this character would never advance:
      // a "?" stands in for it.
      if (!Fits(1, used, length, fit)) {
        *position = size;
        break;
      }
      area[used++] = '?';
      ++*position;
      continue;
    }
    used += Put(ch, area + used);
    if (need > 1) multi = true;
    ++*position;
  }
  if (multi) {
    area[0] = '!';
    area[1] = ':';
  }
  return used;
}

void MarkedText::AppendMultiByte(const unsigned char* bytes, int length, std::u16string* out) {
  if (length <= 0) return;
  // Every byte gives at most one unit: the text is written in place and cut
  // to what was decoded.
  const size_t old = out->size();
  out->resize(old + static_cast<size_t>(length));
  char16_t* to = out->data() + old;
  size_t n = 0;
  int i = 0;
  while (i < length) {
    // Eight one-byte characters at a time while there are no NUL and no
    // multi-byte groups among them.
    if (i + 8 <= length) {
      uint64_t w;
      std::memcpy(&w, bytes + i, 8);
      if (((w & kHighs) | ((w - kOnes) & ~w & kHighs)) == 0) {
        for (int k = 0; k < 8; ++k) to[n + k] = bytes[i + k];
        n += 8;
        i += 8;
        continue;
      }
    }
    const unsigned char b = bytes[i];
    if (b < 0x80) {
      if (b == 0) break;
      to[n++] = b;
      ++i;
    } else if ((b & 0xE0) == 0xC0) {
      if (i + 1 >= length) break;
      to[n++] = static_cast<char16_t>(((b & 0x1F) << 6) | (bytes[i + 1] & 0x3F));
      i += 2;
    } else if ((b & 0xF0) == 0xE0) {
      if (i + 2 >= length) break;
      to[n++] = static_cast<char16_t>(((b & 0x0F) << 12) | ((bytes[i + 1] & 0x3F) << 6) |
                                      (bytes[i + 2] & 0x3F));
      i += 3;
    } else {
      ++i;  // not a lead byte: skipped
    }
  }
  out->resize(old + n);
}

void MarkedText::AppendNarrow(const unsigned char* bytes, int length, bool skipBlanks,
                              std::u16string* out) {
  int i = 0;
  for (; i < length && i < 2 && bytes[i] != 0; ++i) {
    if (skipBlanks && bytes[i] == ' ') continue;
    out->push_back(bytes[i]);
  }
  if (i < 2) return;
  const unsigned char* end =
      static_cast<const unsigned char*>(std::memchr(bytes + i, 0, length - i));
  const int j = end != nullptr ? static_cast<int>(end - bytes) : length;
  AppendBytes(bytes + i, j - i, out);
}

void MarkedText::AppendPiece(const unsigned char* bytes, int length, std::u16string* out) {
  if (length >= 2 && bytes[0] == '!' && bytes[1] == ':') {
    AppendMultiByte(bytes + 2, length - 2, out);
  } else {
    AppendNarrow(bytes, length, true, out);
  }
}

}  // namespace kordll
