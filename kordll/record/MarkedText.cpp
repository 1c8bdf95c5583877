#include "kordll/record/MarkedText.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

#if !defined(__SSE2__)
// Masks of the word-at-a-time test for a NUL or a byte with its high bit.
constexpr uint64_t kOnes = 0x0101010101010101ull;
constexpr uint64_t kHighs = 0x8080808080808080ull;
#endif

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

size_t MarkedText::AppendMultiByte(const unsigned char* bytes, int length, std::u16string* out) {
  if (length <= 0) return std::u16string::npos;
  // Every byte gives at most one unit: the text is written in place and cut
  // to what was decoded.
  const size_t old = out->size();
  out->resize(old + static_cast<size_t>(length));
  size_t first_nul;
  const size_t n = DecodeMultiByte(bytes, length, out->data() + old, &first_nul);
  out->resize(old + n);
  return first_nul != std::u16string::npos ? old + first_nul : first_nul;
}

size_t MarkedText::DecodeMultiByte(const unsigned char* bytes, int length, char16_t* to,
                                   size_t* firstNul) {
  size_t first_nul = std::u16string::npos;
  // Since n never passes i, a block of units written at n for the bytes at
  // i stays inside the room of length units.
  size_t n = 0;
  int i = 0;
  while (i < length) {
    // Runs of one-byte characters are widened a block at a time; the block
    // is written whole and n advances only over the characters before the
    // first NUL or multi-byte byte in it.
#if defined(__SSE2__)
    if (i + 16 <= length) {
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + i));
      const __m128i zero = _mm_setzero_si128();
      _mm_storeu_si128(reinterpret_cast<__m128i*>(to + n), _mm_unpacklo_epi8(v, zero));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(to + n + 8), _mm_unpackhi_epi8(v, zero));
      const unsigned stop = static_cast<unsigned>(_mm_movemask_epi8(v)) |
                            static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(v, zero)));
      if (stop == 0) {
        n += 16;
        i += 16;
        continue;
      }
      const int plain = __builtin_ctz(stop);
      n += plain;
      i += plain;
    }
#else
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
#endif
    const unsigned char b = bytes[i];
    if (b < 0x80) {
      if (b == 0) break;
      to[n++] = b;
      ++i;
    } else if ((b & 0xE0) == 0xC0) {
      if (i + 1 >= length) break;
      const char16_t unit = static_cast<char16_t>(((b & 0x1F) << 6) | (bytes[i + 1] & 0x3F));
      if (unit == 0 && first_nul == std::u16string::npos) first_nul = n;
      to[n++] = unit;
      i += 2;
    } else if ((b & 0xF0) == 0xE0) {
      if (i + 2 >= length) break;
      const char16_t unit = static_cast<char16_t>(
          ((b & 0x0F) << 12) | ((bytes[i + 1] & 0x3F) << 6) | (bytes[i + 2] & 0x3F));
      if (unit == 0 && first_nul == std::u16string::npos) first_nul = n;
      to[n++] = unit;
      i += 3;
    } else {
      ++i;  // not a lead byte: skipped
    }
  }
  *firstNul = first_nul;
  return n;
}

void MarkedText::AppendNarrow(const unsigned char* bytes, int length, bool skipBlanks,
                              std::u16string* out) {
  if (length <= 0) return;
  const size_t old = out->size();
  out->resize(old + static_cast<size_t>(length));
  out->resize(old + DecodeNarrow(bytes, length, skipBlanks, out->data() + old));
}

size_t MarkedText::DecodeNarrow(const unsigned char* bytes, int length, bool skipBlanks,
                                char16_t* to) {
  size_t n = 0;
  int i = 0;
  for (; i < length && i < 2 && bytes[i] != 0; ++i) {
    if (skipBlanks && bytes[i] == ' ') continue;
    to[n++] = bytes[i];
  }
  if (i < 2) return n;
  const unsigned char* end =
      static_cast<const unsigned char*>(std::memchr(bytes + i, 0, length - i));
  const int j = end != nullptr ? static_cast<int>(end - bytes) : length;
  for (int k = i; k < j; ++k) to[n++] = bytes[k];
  return n;
}

void MarkedText::AppendPiece(const unsigned char* bytes, int length, std::u16string* out) {
  if (length >= 2 && bytes[0] == '!' && bytes[1] == ':') {
    AppendMultiByte(bytes + 2, length - 2, out);
  } else {
    AppendNarrow(bytes, length, true, out);
  }
}

}  // namespace kordll
