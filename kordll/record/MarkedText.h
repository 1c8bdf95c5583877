// MarkedText: the "UTF-8 by pattern" text of record and string files.
//
// A marked piece is an area of fixed length that starts with a two-byte
// marker, two blanks when the piece has only characters below 127 or "!:"
// when it has at least one multi-byte character, followed by the 16-bit
// units of the text encoded one by one: below 127 as one byte, 127 up to
// 2047 as two bytes (110xxxxx 10xxxxxx), from 2048 as three bytes (1110xxxx
// 10xxxxxx 10xxxxxx). A surrogate pair therefore goes out as two three-byte
// groups and the unit 127 as 0xC1 0xBF. A multi-byte character is never
// split between two pieces. A NUL follows the last character when the area
// has room, and the rest of the area is NUL.
//
// Two fitting rules exist, with n bytes used so far (the marker counted)
// and L the area length:
//   record areas:  one byte if L > n,     two if L > n + 2, three if L > n + 3
//   string slots:  one byte if n + 1 < L, two if n + 3 < L, three if n + 4 < L
//                  (the last byte of a string slot is kept for a newline)
// When a character does not fit while the piece is still empty, "?" is
// stored in its place (if even that does not fit, the rest of the text is
// given up), so that every piece advances the text and no chain of pieces
// grows without end. After a "?" the piece goes on as long as characters fit.
//
// These rules are written to disk and must not change.

#ifndef KORDLL_RECORD_MARKEDTEXT_H_
#define KORDLL_RECORD_MARKEDTEXT_H_

#include <string>
#include <string_view>

namespace kordll {

class MarkedText {
 public:
  enum Fit { kRecordArea, kStringSlot };

  // Encodes text from *position into area[0, length), which the caller has
  // cleared, and advances *position past what went in. Returns the count of
  // bytes used, marker included (2 for an empty piece). A length below 2
  // stores nothing and gives up the rest of the text.
  static int Encode(std::u16string_view text, int* position, unsigned char* area, int length,
                    Fit fit);

  // The multi-byte decoder: reads bytes[0, length), stopping at the first
  // NUL in a lead position. A byte with no leading 1 bit is a character; 110
  // takes 5 bits and 6 bits of the next byte, 1110 takes 4 bits and 6 bits
  // of each of the next two; a byte with another count of leading 1 bits is
  // skipped, and a group cut off by the end of the area is dropped. Returns
  // the index in *out of the first U+0000 a group decoded to (a group of
  // zero bits), or npos when there is none.
  static size_t AppendMultiByte(const unsigned char* bytes, int length, std::u16string* out);

  // The 8-bit decoder: each byte up to the first NUL (or length) is the unit
  // of the same value. With skipBlanks, a blank at position 0 or 1 is left
  // out (the marker of a piece without multi-byte characters).
  static void AppendNarrow(const unsigned char* bytes, int length, bool skipBlanks,
                           std::u16string* out);

  // The two decoders writing into to, which has room for length units (it
  // is not cleared first). They return the count of units written;
  // DecodeMultiByte sets *firstNul to the index of the first U+0000 a group
  // decoded to, or npos.
  static size_t DecodeMultiByte(const unsigned char* bytes, int length, char16_t* to,
                                size_t* firstNul);
  static size_t DecodeNarrow(const unsigned char* bytes, int length, bool skipBlanks, char16_t* to);

  // Decodes one marked piece: "!:" in bytes 0 and 1 selects the multi-byte
  // decoder from byte 2; otherwise the 8-bit decoder with skipBlanks.
  static void AppendPiece(const unsigned char* bytes, int length, std::u16string* out);
};

}  // namespace kordll

#endif  // KORDLL_RECORD_MARKEDTEXT_H_
