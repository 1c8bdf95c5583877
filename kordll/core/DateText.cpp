#include "kordll/core/DateText.h"

#include <cstdint>
#include <string_view>

#include "kordll/platform/CRuntime.h"
#include "kordll/platform/Clock.h"
#include "kordll/platform/TimeZone.h"

namespace kordll {

namespace {

// The flags and locale with which the plain reader is asked: the user's
// default locale, no flags.
constexpr unsigned long kParseFlags = 0;
constexpr unsigned long kParseLocale = 1024;

// Where a scanned field goes. The fields are shared by all forms: what a
// failed form stored stays until a later form overwrites it.
enum Slot : unsigned char {
  kNone,
  kWord,       // weekday word, and the zone word of forms 1 and 2
  kMonthName,  // a month name, read by GetMonth
  kZone,       // the zone word of the numeric forms
  kYear,
  kMonth,
  kDay,
  kHour,
  kMinute,
  kSecond,
  kZoneHours,  // the offset given as numbers, always west
  kZoneMinutes,
};

constexpr int kMaxSlots = 8;

// One accepted form of date text.
struct DateForm {
  const char16_t* format;  // swscanf meaning over the whole text
  Slot slots[kMaxSlots];   // the fields in the order of the format
  // The stored shape: right after its scan, whatever the count, seconds are
  // cleared and the nearest past century is applied to the year, so no
  // later form carries seconds.
  bool stored;
  bool nearest_past;  // the form's own year is widened to the nearest past century
  bool fixed_window;  // the year then goes through the fixed window
  Slot zone;          // the zone: kNone, kWord, kZone or kZoneHours
};

// StringToDateTime's forms, in the order they are tried. Form 4 never takes
// a text: whatever it would match has been matched by form 3 already. Form 2
// used to pass its year through the checks both before and after the fixed
// window; a year that passes the checks is left alone by the window and one
// that fails them left the date untouched, so one pass after the window
// gives the same date.
// clang-format off
constexpr DateForm kForms[] = {
    {u"%s %d %s %d %d:%d:%d %s",
     {kWord, kDay, kMonthName, kYear, kHour, kMinute, kSecond, kWord},
     false, true, false, kWord},
    {u"%s %d %s %d %d:%d %s",
     {kWord, kDay, kMonthName, kYear, kHour, kMinute, kWord},
     false, true, true, kWord},
    {u"%d-%d-%dT%d:%d:%d%s",
     {kYear, kMonth, kDay, kHour, kMinute, kSecond, kZone},
     false, false, true, kZone},
    {u"%d-%d-%dT%d:%d:%d-%d:%d",
     {kYear, kMonth, kDay, kHour, kMinute, kSecond, kZoneHours, kZoneMinutes},
     false, false, true, kZoneHours},
    {u"%d %s %d %d:%d:%d %s",
     {kDay, kMonthName, kYear, kHour, kMinute, kSecond, kZone},
     false, false, true, kZone},
    {u"%d/%d/%d @%d:%d", {kMonth, kDay, kYear, kHour, kMinute}, true, false, true, kNone},
    {u"%d/%d/%d %d:%d %s", {kMonth, kDay, kYear, kHour, kMinute, kZone}, false, false, true, kZone},
    {u"%d-%d-%dT%d:%d%s", {kYear, kMonth, kDay, kHour, kMinute, kZone}, false, false, true, kZone},
    {u"%s %s %d, %d @ %d:%d",
     {kWord, kMonthName, kDay, kYear, kHour, kMinute},
     false, false, true, kNone},
    {u"%d %s %d %d:%d %s",
     {kDay, kMonthName, kYear, kHour, kMinute, kZone},
     false, true, true, kZone},
};

// The one form of StringToDate that StringToDateTime does not have.
constexpr DateForm kZuluForm = {u"%d-%d-%dT%d:%d:%dZ",
                                {kYear, kMonth, kDay, kHour, kMinute, kSecond},
                                false, false, false, kNone};

// StringToDate's forms, in the order they are tried; only their fields and
// the stored mark are used, since that reader widens and checks alike for
// all and reads no zone.
const DateForm* const kDayForms[] = {&kForms[0], &kZuluForm, &kForms[3], &kForms[4],
                                     &kForms[5], &kForms[6],  &kForms[7]};
// clang-format on

// The fields of one reading.
struct Fields {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  CString word, month_name, zone;
  int* zone_hours;
  int* zone_minutes;
  int unused = 0;  // the target of the slots a form leaves empty

  ScanArg Target(Slot slot) {
    switch (slot) {
      case kWord:
        return &word;
      case kMonthName:
        return &month_name;
      case kZone:
        return &zone;
      case kYear:
        return &year;
      case kMonth:
        return &month;
      case kDay:
        return &day;
      case kHour:
        return &hour;
      case kMinute:
        return &minute;
      case kSecond:
        return &second;
      case kZoneHours:
        return zone_hours;
      case kZoneMinutes:
        return zone_minutes;
      case kNone:
        break;
    }
    return &unused;
  }
  const CString& Text(Slot slot) const { return slot == kWord ? word : zone; }
};

int SlotCount(const DateForm& form) {
  int count = 0;
  while (count < kMaxSlots && form.slots[count] != kNone) ++count;
  return count;
}

bool HasSlot(const DateForm& form, Slot slot) {
  for (Slot s : form.slots) {
    if (s == slot) return true;
  }
  return false;
}

// Scans text by form into the fields; the count of assigned fields.
int Scan(const CString& text, const DateForm& form, Fields* f) {
  ScanArg a[kMaxSlots];
  for (int i = 0; i < kMaxSlots; ++i) a[i] = f->Target(form.slots[i]);
  return swscanf(text, CString(form.format), {a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7]});
}

// Nearest past century: a short year is taken in the hundred years that end
// with this one.
void WidenNearestPast(int* year) {
  if (*year < 100) {
    *year += 2000;
    if (*year > Clock::Now().GetYear()) *year -= 100;
  }
}

// Fixed window: 10 to 99 are 1910 to 1999, anything below 10 (negative
// years included) gets 2000 added.
void WidenFixedWindow(int* year) {
  if (*year >= 10 && *year <= 99) {
    *year += 1900;
  } else if (*year < 10) {
    *year += 2000;
  }
}

bool DayInRange(int year, int month, int day) {
  return month >= 1 && month <= 12 && day >= 1 && day <= 31 && year >= 1901;
}

// The checks every form goes through. A date that fails them is left
// invalid. A time out of range does not refuse the date: the day alone is
// kept.
void Validate(COleDateTime* result, const Fields& f) {
  if (!DayInRange(f.year, f.month, f.day)) return;
  result->SetStatus(COleDateTime::valid);
  if (f.hour >= 0 && f.hour <= 23 && f.minute >= 0 && f.minute <= 59 && f.second >= 0 &&
      f.second <= 59) {
    result->SetDateTime(f.year, f.month, f.day, f.hour, f.minute, f.second);
  } else {
    result->SetDate(f.year, f.month, f.day);
  }
}

// The machine's standard-time bias as a span of its magnitude, and whether
// it was negative.
COleDateTimeSpan BiasSpan(bool* negative) {
  int bias = TimeZone::GetBias();
  *negative = bias < 0;
  if (*negative) bias = -bias;
  return COleDateTimeSpan(0, bias / 60, bias % 60, 0);
}

}  // namespace

COleDateTime DateText::StringToDateTime(CString text, int toLocal) {
  return StringToDateTimeExplained(text, toLocal, nullptr);
}

COleDateTime DateText::StringToDateTimeExplained(CString text, int toLocal, ReadInfo* info) {
  ReadInfo local_info;
  ReadInfo& out = info != nullptr ? *info : local_info;
  out = ReadInfo();

  COleDateTime result;
  result.SetStatus(COleDateTime::invalid);
  if (text.IsEmpty()) return result;

  if (result.ParseDateTime(text, kParseFlags, kParseLocale)) {
    out.form = 0;
  } else {
    Fields f;
    f.zone_hours = &out.zone_hours;
    f.zone_minutes = &out.zone_minutes;
    const DateForm* form = nullptr;
    for (const DateForm& candidate : kForms) {
      const int n = Scan(text, candidate, &f);
      if (candidate.stored) {
        f.second = 0;
        WidenNearestPast(&f.year);
      }
      if (n == SlotCount(candidate)) {
        form = &candidate;
        break;
      }
    }
    if (form == nullptr) return result;
    out.form = static_cast<int>(form - kForms) + 1;
    if (form->nearest_past) WidenNearestPast(&f.year);
    if (HasSlot(*form, kMonthName)) f.month = GetMonth(f.month_name);
    if (form->fixed_window) WidenFixedWindow(&f.year);
    Validate(&result, f);
    // The zone word is read also when the date proved invalid. The word of
    // the weekday forms was also scanned as "%d:%d" into values nothing
    // reads; that scan is left out since it changes nothing.
    if (form->zone == kZoneHours) {
      out.zone_west = 1;
    } else if (form->zone != kNone) {
      out.zone_word = f.Text(form->zone);
      GetTimeZoneInfo(out.zone_word.c_str(), &out.zone_hours, &out.zone_minutes, &out.zone_west);
    }
  }

  if (!toLocal) return result;

  // To GMT by the zone of the text. An offset of zero whole hours is
  // dropped with its minutes: "+00:30" does not move the date.
  if (out.zone_hours != 0) {
    COleDateTimeSpan zone_span(0, out.zone_hours, out.zone_minutes, 0);
    if (out.zone_west == 1) {
      result += zone_span;
    } else {
      result -= zone_span;
    }
    out.zone_applied = true;
  }
  // Then to local time by the standard-time bias; daylight saving is not
  // considered.
  bool negative;
  COleDateTimeSpan bias = BiasSpan(&negative);
  if (negative) {
    result += bias;
  } else {
    result -= bias;
  }
  return result;
}

COleDateTime DateText::StoredTextToDateTime(const CString& text) {
  COleDateTime date;
  if (ReadStoredShape(text, &date)) return date;
  return StringToDateTime(text, 0);
}

bool DateText::ReadStoredShape(const CString& text, COleDateTime* date) {
  // "MM/DD/YY@HH:MM" is refused by the plain reader (no blank before the
  // time) and by every form before the stored one, and the stored form then
  // overwrites every field an earlier form left behind. So the date is the
  // stored form's own: the year widened as there, the same checks.
  const std::u16string_view s = text.view();
  if (s.size() != 14 || s[2] != u'/' || s[5] != u'/' || s[8] != u'@' || s[11] != u':') {
    return false;
  }
  int field[5];
  for (int i = 0; i < 5; ++i) {
    const char16_t high = s[3 * i], low = s[3 * i + 1];
    if (high < u'0' || high > u'9' || low < u'0' || low > u'9') return false;
    field[i] = (high - u'0') * 10 + (low - u'0');
  }
  Fields f;
  f.month = field[0];
  f.day = field[1];
  f.year = field[2];
  f.hour = field[3];
  f.minute = field[4];
  if (f.month < 1 || f.month > 12 || f.day < 1 || f.day > 31 || f.hour > 23 || f.minute > 59) {
    return false;
  }
  WidenNearestPast(&f.year);
  WidenFixedWindow(&f.year);
  COleDateTime result;
  result.SetStatus(COleDateTime::invalid);
  Validate(&result, f);
  *date = result;
  return true;
}

COleDateTime DateText::StringToDate(CString text) {
  COleDateTime result;
  result.SetStatus(COleDateTime::invalid);
  if (result.ParseDateTime(text, kParseFlags, kParseLocale)) return result;

  int zone_hours = 0, zone_minutes = 0;
  Fields f;
  f.zone_hours = &zone_hours;
  f.zone_minutes = &zone_minutes;
  bool matched = false;
  for (const DateForm* form : kDayForms) {
    const int n = Scan(text, *form, &f);
    if (form->stored) {
      // The stored shape always gets 2000 added, whatever the count and
      // however many digits the year has: "12/25/2005 @10:00" is the year
      // 4005. Applications know this shape by that result. The sum wraps as
      // the original arithmetic did rather than overflow.
      f.second = 0;
      f.year = static_cast<int>(static_cast<uint32_t>(f.year) + 2000u);
    }
    if (n == SlotCount(*form)) {
      if (HasSlot(*form, kMonthName)) f.month = GetMonth(f.month_name);
      matched = true;
      break;
    }
  }
  if (!matched) return result;

  WidenFixedWindow(&f.year);
  if (!DayInRange(f.year, f.month, f.day)) return result;
  // The time of day is neither checked nor kept.
  result.SetStatus(COleDateTime::valid);
  result.SetDateTime(f.year, f.month, f.day, 0, 0, 0);
  return result;
}

COleDateTime DateText::ConvertToGMT(COleDateTime local) {
  // The mirror image of the last move of StringToDateTime.
  bool negative;
  COleDateTimeSpan bias = BiasSpan(&negative);
  return negative ? local - bias : local + bias;
}

int DateText::GetMonth(CString name) {
  static const char16_t* const kMonths[] = {u"jan", u"feb", u"mar", u"apr", u"may", u"jun",
                                            u"jul", u"aug", u"sep", u"oct", u"nov", u"dec"};
  name.MakeLower();
  for (int i = 0; i < 12; ++i) {
    if (name.Find(CString(kMonths[i])) == 0) return i + 1;
  }
  return -1;
}

void DateText::GetTimeZoneInfo(const char16_t* zoneText, int* hours, int* minutes, int* west) {
  if (hours == nullptr || minutes == nullptr || west == nullptr) return;
  if (zoneText == nullptr) {
    *hours = 0;
    *west = 0;
    return;
  }
  struct ZoneWord {
    const char16_t* word;
    int hours;
    int minutes;  // 0: not written
    int west;
  };
  // Four-letter words (AKDT, AEST, ...) never reach this table and give no
  // offset; they are not to be added.
  static const ZoneWord kZones[] = {
      {u"GMT", 0, 0, 0},  {u"CET", 1, 0, 0},  {u"AST", 4, 0, 1}, {u"EDT", 4, 0, 1},
      {u"EST", 5, 0, 1},  {u"CDT", 5, 0, 1},  {u"CST", 6, 0, 1}, {u"MDT", 6, 0, 1},
      {u"MST", 7, 0, 1},  {u"PDT", 7, 0, 1},  {u"PST", 8, 0, 1}, {u"EET", 2, 0, 0},
      {u"MSK", 3, 0, 0},  {u"IST", 5, 30, 0}, {u"JST", 9, 0, 0}, {u"GST", 10, 0, 0},
      {u"WAT", 1, 0, 1},  {u"YST", 8, 0, 1},  {u"ADT", 3, 0, 1}, {u"NST", 3, 30, 1},
      {u"HST", 10, 0, 1}, {u"CAT", 10, 0, 1},
  };

  CString text(zoneText);  // up to the first NUL
  const int length = text.GetLength();
  if (length == 3) {
    for (const ZoneWord& z : kZones) {
      if (text.CompareNoCase(CString(z.word)) == 0) {
        *hours = z.hours;
        if (z.minutes != 0) *minutes = z.minutes;
        *west = z.west;
        return;
      }
    }
    return;
  }

  if (text.CompareNoCase(CString(u"Z")) == 0) return;
  if (text.CompareNoCase(CString(u"AT")) == 0) {
    *hours = 9;
    *west = 1;
    return;
  }
  // The numeric words, tried in order: the format, whether it carries
  // minutes, and the west flag it writes.
  struct ZoneForm {
    const char16_t* format;
    bool with_minutes;
    int west;
  };
  static const ZoneForm kZoneForms[] = {
      {u"-%d:%d", true, 1}, {u"GMT+%d", false, 0}, {u"GMT-%d", false, 1},
      {u"+%d:%d", true, 0}, {u"%d:%d", true, 0},
  };
  for (const ZoneForm& z : kZoneForms) {
    int h = 0, m = 0;
    if (swscanf(text, CString(z.format), {&h, &m}) != (z.with_minutes ? 2 : 1)) continue;
    *hours = h;
    if (z.with_minutes) *minutes = m;
    *west = z.west;
    return;
  }
  if (length == 5) {
    if (text[0] != u'+' && text[0] != u'-') return;
    *west = text[0] == u'-' ? 1 : 0;
    // The four units are taken as digits without a check, as they always
    // were: "+ABCD" gives a large offset.
    int d[4];
    for (int i = 0; i < 4; ++i) d[i] = static_cast<int>(text[i + 1]) - u'0';
    if (d[0] + d[1] < 1 && d[2] + d[3] < 1) return;
    *hours = d[0] * 10 + d[1];
    *minutes = d[2] * 10 + d[3];
  }
}

CString DateText::DateTimeToSimpleString(COleDateTime date) {
  if (date.GetStatus() != COleDateTime::valid) return CString();
  return date.Format("%m/%d/%y@%H:%M");
}

}  // namespace kordll
