// Feeds arbitrary text to both date readers, to the zone word reader, to the
// internal shape reader and to the plain local reader, then tells every
// date read in the library's words. Nothing may crash, hang or read out of
// bounds, whatever the length of a word; a valid date must lie in the
// calendar and no rendering may exceed its buffer. The short way of reading
// stored dates must give the full reader's date to the last bit when it
// takes a text, and leave the date alone when it refuses one.
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
#include "kordll/toolkit/KorlanDateTime.h"

namespace {

using kordll::COleDateTime;
using kordll::CString;
using kordll::KorlanDateTime;

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

void CheckDate(const COleDateTime& d) {
  if (d.GetStatus() != COleDateTime::valid) {
    Check(d.GetYear() == -1);
    return;
  }
  Check(d.GetYear() >= 100 && d.GetYear() <= 9999);
  Check(d.GetMonth() >= 1 && d.GetMonth() <= 12);
  Check(d.GetHour() >= 0 && d.GetHour() <= 23);
}

bool Same(const COleDateTime& a, const COleDateTime& b) {
  return a.GetStatus() == b.GetStatus() && a.GetDATE() == b.GetDATE();
}

void Tell(const COleDateTime& d) {
  CheckDate(d);
  Check(KorlanDateTime::DateTimeToFullString(d, 0).GetLength() <= 255);
  KorlanDateTime::DateTimeToSimpleString(d, 0);
  KorlanDateTime::DateTimeToPublicationString(d, 0, 1);
  KorlanDateTime::DateToPublicationString(d, 1);
  KorlanDateTime::GetAgo_COleDateTime(d, 0, 1, 0, 1);
  KorlanDateTime::GetAgoMinute_COleDateTime(d, 0);
  KorlanDateTime::GetDateTimeInHTMLFormat(d);
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

  const COleDateTime full = KorlanDateTime::StringToDateTime(text, 0);
  Tell(full);
  const COleDateTime untouched(1234.5);
  COleDateTime fast = untouched;
  Check(Same(fast, kordll::DateText::ReadStoredShape(text, &fast) ? full : untouched));
  Check(Same(kordll::DateText::StoredTextToDateTime(text), full));
  KorlanDateTime::ReadInfo info;
  Tell(KorlanDateTime::StringToDateTimeExplained(text, 1, &info));
  Check(info.form >= -1 && info.form <= 10);
  Tell(KorlanDateTime::StringToDate(text));
  Tell(KorlanDateTime::GetHTMLFormatedDateTimeInOle(text));
  COleDateTime plain;
  plain.ParseDateTime(text);
  Tell(plain);

  int hours = 0, minutes = 0, west = 1;
  KorlanDateTime::GetTimeZoneInfo(text.c_str(), &hours, &minutes, &west);
  Check(west == 0 || west == 1);
  int month = KorlanDateTime::GetMonth(text);
  Check(month == -1 || (month >= 1 && month <= 12));
  KorlanDateTime::GetAgo_String(text, 0, 0, 0);
  KorlanDateTime::GetAgoMinute(text, 0);
  return 0;
}
