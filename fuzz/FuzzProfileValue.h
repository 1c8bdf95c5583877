// A profile value of any type made from a fuzz field, for the targets that
// fill a profile section with hostile values: the kind letter chooses the
// type ('i' a 32-bit number, 'q' a 64-bit number, 'b' the field's bytes,
// anything else its text); numbers are the field's first bytes, little-endian.

#ifndef KORDLL_FUZZ_FUZZPROFILEVALUE_H_
#define KORDLL_FUZZ_FUZZPROFILEVALUE_H_

#include <cstdint>
#include <string>

#include "FuzzFields.h"
#include "kordll/platform/Registry.h"

namespace kordll_fuzz {

inline uint64_t NumberOf(const std::string& bytes) {
  uint64_t v = 0;
  for (size_t i = 0; i < 8 && i < bytes.size(); ++i) {
    v |= static_cast<uint64_t>(static_cast<uint8_t>(bytes[i])) << (8 * i);
  }
  return v;
}

inline kordll::RegValue ProfileValueOf(char16_t kind, const Field& value) {
  switch (kind) {
    case u'i':
      return kordll::RegValue::Dword(static_cast<uint32_t>(NumberOf(value.bytes)));
    case u'q':
      return kordll::RegValue::Qword(NumberOf(value.bytes));
    case u'b':
      return kordll::RegValue::Binary(value.bytes);
    default:
      return kordll::RegValue::String(value.text);
  }
}

}  // namespace kordll_fuzz

#endif  // KORDLL_FUZZ_FUZZPROFILEVALUE_H_
