// Feeds arbitrary text to the short way of reading stored dates and to the
// full date reader: whenever the short way takes a text, its date must be
// the full reader's to the last bit, a text it refuses must leave the date
// alone, and the stored-date reader must always agree with the full reader.
//
// Input: a first byte of 0 takes the rest as UTF-16LE units (so that lone
// surrogates and U+0000 reach the readers); anything else is UTF-8 text.

#include <cstddef>
#include <cstdint>
#include <string>

#include "kordll/core/DateText.h"
#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/Clock.h"

namespace {

using kordll::COleDateTime;
using kordll::CString;
using kordll::DateText;

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

bool Same(const COleDateTime& a, const COleDateTime& b) {
  return a.GetStatus() == b.GetStatus() && a.GetDATE() == b.GetDATE();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // A fixed "now", so that a failing input fails the same way every time;
  // 2010 makes "10" the current year and "11" a year of the last century.
  static kordll::ManualClock clock(COleDateTime(2010, 6, 15, 15, 5, 0));
  static bool installed = (kordll::Env::SetForTesting(&clock), true);
  (void)installed;

  CString text;
  if (size > 0 && data[0] == 0) {
    std::u16string units;
    for (size_t i = 1; i + 1 < size; i += 2) {
      units.push_back(static_cast<char16_t>(data[i] | (data[i + 1] << 8)));
    }
    text = CString(std::move(units));
  } else {
    text = CString::FromUtf8(std::string_view(reinterpret_cast<const char*>(data), size));
  }

  const COleDateTime full = DateText::StringToDateTime(text, 0);
  const COleDateTime untouched(1234.5);
  COleDateTime fast = untouched;
  if (DateText::ReadStoredShape(text, &fast)) {
    Check(Same(fast, full));
  } else {
    Check(Same(fast, untouched));
  }
  Check(Same(DateText::StoredTextToDateTime(text), full));
  return 0;
}
