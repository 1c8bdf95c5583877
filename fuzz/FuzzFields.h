// Splits a fuzz input into text fields, so that one input can carry several
// hostile texts (names, values, formats) and the kept inputs stay readable.
//
// Fields are separated by the byte 0xFF, which never occurs in UTF-8. A
// field is read as UTF-8 (invalid bytes become U+FFFD), unless it starts
// with the byte 0xFE: then the rest is raw little-endian 16-bit units, so
// that U+0000 and lone surrogates reach the code under test.

#ifndef KORDLL_FUZZ_FUZZFIELDS_H_
#define KORDLL_FUZZ_FUZZFIELDS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kordll/platform/CString.h"

namespace kordll_fuzz {

struct Field {
  std::string bytes;     // the field as it stands in the input
  kordll::CString text;  // the field as text
};

inline std::vector<Field> SplitFields(const uint8_t* data, size_t size, size_t max_fields) {
  std::vector<Field> fields;
  size_t start = 0;
  for (size_t i = 0; i <= size && fields.size() < max_fields; ++i) {
    if (i < size && data[i] != 0xFF) continue;
    Field f;
    f.bytes.assign(reinterpret_cast<const char*>(data) + start, i - start);
    if (!f.bytes.empty() && static_cast<uint8_t>(f.bytes[0]) == 0xFE) {
      std::u16string units;
      for (size_t j = 1; j + 1 < f.bytes.size(); j += 2) {
        units.push_back(static_cast<char16_t>(static_cast<uint8_t>(f.bytes[j]) |
                                              (static_cast<uint8_t>(f.bytes[j + 1]) << 8)));
      }
      f.text = kordll::CString(std::move(units));
    } else {
      f.text = kordll::CString::FromUtf8(f.bytes);
    }
    fields.push_back(std::move(f));
    start = i + 1;
  }
  return fields;
}

// The field at index, or an empty one past the end.
inline const Field& FieldAt(const std::vector<Field>& fields, size_t index) {
  static const Field empty;
  return index < fields.size() ? fields[index] : empty;
}

// Ends the run with a trap when a property that must hold for every input
// fails: the fuzzer reports it as a crash with the input that caused it.
inline void Check(bool ok) {
  if (!ok) __builtin_trap();
}

}  // namespace kordll_fuzz

#endif  // KORDLL_FUZZ_FUZZFIELDS_H_
