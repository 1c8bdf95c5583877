// Formats with a format text and arguments taken from the input, through
// CString::FormatList (what Format, AppendFormat and Formatted all use).
//
// Input: fields (see FuzzFields.h). Field 0 is the format; field 1 picks the
// argument types, one byte each (at most six); the fields after it are the
// arguments: a number is the field's bytes read as a little-endian integer
// or as the bits of a double, a text the field as text.
//
// What must hold: the output is bounded (widths and precisions are capped,
// so no format can ask for an unbounded text); "%s" gives the text back; a
// number printed with "%d" or "%.17g" reads back as the same number.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzFields.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/platform/CString.h"

namespace {

using kordll::CString;
using kordll::FormatArg;
using kordll_fuzz::Check;
using kordll_fuzz::Field;

uint64_t Bits(const std::string& bytes) {
  uint64_t v = 0;
  for (size_t i = 0; i < bytes.size() && i < 8; ++i) {
    v |= static_cast<uint64_t>(static_cast<uint8_t>(bytes[i])) << (8 * i);
  }
  return v;
}

double DoubleOf(const std::string& bytes) {
  const uint64_t v = Bits(bytes);
  double d;
  std::memcpy(&d, &v, sizeof d);
  return d;
}

// The argument of the given type made from a field. The text forms view
// their field, which outlives the formatting.
FormatArg Make(uint8_t kind, const Field& f) {
  switch (kind % 9) {
    case 0:
      return FormatArg(static_cast<int>(Bits(f.bytes)));
    case 1:
      return FormatArg(static_cast<long long>(Bits(f.bytes)));
    case 2:
      return FormatArg(static_cast<unsigned long long>(Bits(f.bytes)));
    case 3:
      return FormatArg(DoubleOf(f.bytes));
    case 4:
      return FormatArg(f.text);
    case 5:
      return FormatArg(f.bytes);  // read as UTF-8
    case 6:
      return FormatArg(f.text.IsEmpty() ? u'\0' : f.text[0]);
    case 7:
      return FormatArg(reinterpret_cast<const void*>(static_cast<uintptr_t>(Bits(f.bytes))));
    default:
      return FormatArg(static_cast<char>(f.bytes.empty() ? 0 : f.bytes[0]));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<Field> fields = kordll_fuzz::SplitFields(data, size, 8);
  const CString& format = kordll_fuzz::FieldAt(fields, 0).text;
  const std::string& kinds = kordll_fuzz::FieldAt(fields, 1).bytes;
  auto arg = [&](size_t k) {
    return Make(k < kinds.size() ? static_cast<uint8_t>(kinds[k]) : static_cast<uint8_t>(k),
                kordll_fuzz::FieldAt(fields, 2 + k));
  };
  size_t longest = 0;
  for (size_t k = 2; k < fields.size(); ++k) {
    longest = std::max(
        {longest, static_cast<size_t>(fields[k].text.GetLength()), fields[k].bytes.size()});
  }

  CString out;
  switch (kinds.size()) {
    case 0:
      out = CString::FormatList(format, {});
      break;
    case 1:
      out = CString::FormatList(format, {arg(0)});
      break;
    case 2:
      out = CString::FormatList(format, {arg(0), arg(1)});
      break;
    case 3:
      out = CString::FormatList(format, {arg(0), arg(1), arg(2)});
      break;
    default:
      out = CString::FormatList(format, {arg(0), arg(1), arg(2), arg(3), arg(4), arg(5)});
  }
  // Each unit of the format yields at most one conversion, and a conversion
  // at most its capped width or precision, or a number's or text's length.
  const size_t bound = (static_cast<size_t>(format.GetLength()) + 1) * (2 * 4096 + 400 + longest);
  Check(static_cast<size_t>(out.GetLength()) <= bound);

  // Round trips through the C-runtime readers.
  const Field& first = kordll_fuzz::FieldAt(fields, 2);
  Check(CString::FormatList(CString("%s"), {FormatArg(first.text)}) == first.text);
  Check(CString::FormatList(CString("%s"), {FormatArg(first.bytes)}) ==
        CString::FromUtf8(first.bytes));
  const long long n = static_cast<long long>(Bits(first.bytes));
  Check(kordll::_wtoi64(CString::FormatList(CString("%d"), {FormatArg(n)})) == n);
  const double d = DoubleOf(first.bytes);
  const double back = kordll::_wtof(CString::FormatList(CString("%.17g"), {FormatArg(d)}));
  if (d == d) Check(back == d && std::signbit(back) == std::signbit(d));
  return 0;
}
