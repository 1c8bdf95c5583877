#include "kordll/toolkit/KorlanDateTime.h"

#include <algorithm>
#include <cstdint>

#include "kordll/platform/CRuntime.h"
#include "kordll/platform/Clock.h"
#include "kordll/platform/TimeZone.h"

namespace kordll {

namespace {

// The flags and locale with which the plain reader is asked: the user's
// default locale, no flags.
constexpr unsigned long kParseFlags = 0;
constexpr unsigned long kParseLocale = 1024;

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

// The checks every form goes through. A date that fails them is left as it
// is (invalid on the first pass). A time out of range does not refuse the
// date: the day alone is kept.
void Validate(COleDateTime* result, int year, int month, int day, int hour, int minute,
              int second) {
  if (month < 1 || month > 12 || day < 1 || day > 31 || year < 1901) return;
  result->SetStatus(COleDateTime::valid);
  if (hour >= 0 && hour <= 23 && minute >= 0 && minute <= 59 && second >= 0 && second <= 59) {
    result->SetDateTime(year, month, day, hour, minute, second);
  } else {
    result->SetDate(year, month, day);
  }
}

// Reads the zone word into the triple. The word of the weekday forms was
// also scanned as "%d:%d" into values nothing reads; that scan is left out
// since it changes nothing.
void ReadZone(const CString& word, int* hours, int* minutes, int* west) {
  KorlanDateTime::GetTimeZoneInfo(word.c_str(), hours, minutes, west);
}

// The machine's standard-time bias as a span of its magnitude, and whether
// it was negative.
COleDateTimeSpan BiasSpan(bool* negative) {
  int bias = TimeZone::GetBias();
  *negative = bias < 0;
  if (*negative) bias = -bias;
  return COleDateTimeSpan(0, bias / 60, bias % 60, 0);
}

bool SameDay(const COleDateTime& a, const COleDateTime& b) {
  return a.GetYear() == b.GetYear() && a.GetMonth() == b.GetMonth() && a.GetDay() == b.GetDay();
}

// "%I:%M %p" without the leading zero of the hour: "9:05 PM".
CString TimeText(const COleDateTime& date) {
  CString text = date.Format("%I:%M %p");
  if (text.GetLength() > 0 && text[0] == u'0') text = text.Mid(1);
  return text;
}

CString Number(long value) { return CString::Formatted("%ld", value); }

// The age walk shared by GetAgo_COleDateTime and GetAgo_String. from_text
// selects the text reader's way with a single day.
CString AgoWords(const COleDateTime& date, int longWords, int coarse, int appendAgo,
                 bool from_text) {
  COleDateTimeSpan span = Clock::Now() - date;
  long days = span.GetDays();
  long hours = span.GetHours();
  long minutes = span.GetMinutes();
  CString text;

  if (days > 0) {
    // A year of 325 days and a month of 31 are what the applications have
    // always shown; they are kept.
    long years = days / 325;
    long rest = days > 325 ? days % 325 : days;
    long months = rest / 31;
    if (years > 0 || months > 0) {
      coarse = 1;
      if (years > 1) {
        text += Number(years) + " Years ";
      } else if (years == 1) {
        text += "1 Year ";
      }
      if (months > 1) {
        text += Number(months) + " Months ";
      } else if (months == 1) {
        text += "1 Month ";
      }
    } else if (days == 1) {
      if (longWords) {
        if (!from_text) return CString("Yesterday @ ") + date.Format("%H:%M");
        text += "Yesterday";
      } else {
        text += Number(days) + "D ";
      }
    } else {
      text += Number(days) + (longWords ? " Days " : "Ds ");
    }
  }

  if (!(coarse && !text.IsEmpty())) {
    if (hours > 0) {
      if (hours == 1) {
        text += Number(hours) + (longWords ? " Hour " : "H ");
      } else {
        if (hours > 5) coarse = 1;
        text += Number(hours) + (longWords ? " Hours " : "Hs ");
      }
    }
    if (!(coarse && !text.IsEmpty())) {
      // "Now" reads one minute old; a date in the future adds nothing.
      if (minutes == 0) minutes = 1;
      if (minutes == 1) {
        text += Number(minutes) + (longWords ? " Minute " : "Min ");
      } else if (minutes > 1) {
        text += Number(minutes) + (longWords ? " Minutes " : "Mins ");
      }
    }
  }

  if (!text.IsEmpty() && text != "Yesterday" && appendAgo) text += "Ago";
  return text;
}

}  // namespace

// ---- Reading ----------------------------------------------------------------

COleDateTime KorlanDateTime::StringToDateTime(CString text, int toLocal) {
  return StringToDateTimeExplained(text, toLocal, nullptr);
}

COleDateTime KorlanDateTime::StringToDateTimeExplained(CString text, int toLocal, ReadInfo* info) {
  ReadInfo local_info;
  ReadInfo& out = info != nullptr ? *info : local_info;
  out = ReadInfo();

  COleDateTime result;
  result.SetStatus(COleDateTime::invalid);
  int& zone_hours = out.zone_hours;
  int& zone_minutes = out.zone_minutes;
  int& zone_west = out.zone_west;
  zone_hours = 0;
  zone_minutes = 0;
  zone_west = 1;

  if (text.IsEmpty()) return result;

  if (result.ParseDateTime(text, kParseFlags, kParseLocale)) {
    out.form = 0;
  } else {
    // The fields are shared by all forms: what a failed form stored stays
    // until a later form overwrites it.
    int year = 0, month = 0, day = 0, hour = 0;
    int minute = 0, second = 0;
    CString word;        // weekday word, and zone word of forms 1 and 2
    CString month_name;  // month name of forms 1, 2, 5, 9 and 10
    CString zone;        // zone word of forms 3, 5, 7, 8 and 10
    int n;

    if ((n = swscanf(text, u"%s %d %s %d %d:%d:%d %s",
                     {&word, &day, &month_name, &year, &hour, &minute, &second, &word})) == 8) {
      // Form 1 keeps its year from the nearest past century alone.
      out.form = 1;
      WidenNearestPast(&year);
      month = GetMonth(month_name);
      Validate(&result, year, month, day, hour, minute, second);
      out.zone_word = word;
      ReadZone(word, &zone_hours, &zone_minutes, &zone_west);
    } else if ((n = swscanf(text, u"%s %d %s %d %d:%d %s",
                            {&word, &day, &month_name, &year, &hour, &minute, &word})) == 7) {
      out.form = 2;
      WidenNearestPast(&year);
      month = GetMonth(month_name);
      Validate(&result, year, month, day, hour, minute, second);
      out.zone_word = word;
      ReadZone(word, &zone_hours, &zone_minutes, &zone_west);
      // The fixed window and the checks pass once more over a year that the
      // first rule has already widened; this changes nothing.
      WidenFixedWindow(&year);
      Validate(&result, year, month, day, hour, minute, second);
    } else if ((n = swscanf(text, u"%d-%d-%dT%d:%d:%d%s",
                            {&year, &month, &day, &hour, &minute, &second, &zone})) == 7) {
      out.form = 3;
      WidenFixedWindow(&year);
      Validate(&result, year, month, day, hour, minute, second);
      out.zone_word = zone;
      ReadZone(zone, &zone_hours, &zone_minutes, &zone_west);
    } else if ((n = swscanf(text, u"%d-%d-%dT%d:%d:%d-%d:%d",
                            {&year, &month, &day, &hour, &minute, &second, &zone_hours,
                             &zone_minutes})) == 8) {
      // Anything this form takes has been taken by form 3 already.
      out.form = 4;
      zone_west = 1;
      WidenFixedWindow(&year);
      Validate(&result, year, month, day, hour, minute, second);
    } else if ((n = swscanf(text, u"%d %s %d %d:%d:%d %s",
                            {&day, &month_name, &year, &hour, &minute, &second, &zone})) == 7) {
      out.form = 5;
      month = GetMonth(month_name);
      WidenFixedWindow(&year);
      Validate(&result, year, month, day, hour, minute, second);
      out.zone_word = zone;
      ReadZone(zone, &zone_hours, &zone_minutes, &zone_west);
    } else {
      // The stored shape. Seconds are cleared and the nearest past century
      // applied whatever the count, so no later form carries seconds, and a
      // year left by a failed form is widened here too.
      n = swscanf(text, u"%d/%d/%d @%d:%d", {&month, &day, &year, &hour, &minute});
      second = 0;
      WidenNearestPast(&year);
      if (n == 5) {
        out.form = 6;
        WidenFixedWindow(&year);
        Validate(&result, year, month, day, hour, minute, second);
      } else if ((n = swscanf(text, u"%d/%d/%d %d:%d %s",
                              {&month, &day, &year, &hour, &minute, &zone})) == 6) {
        out.form = 7;
        WidenFixedWindow(&year);
        Validate(&result, year, month, day, hour, minute, second);
        out.zone_word = zone;
        ReadZone(zone, &zone_hours, &zone_minutes, &zone_west);
      } else if ((n = swscanf(text, u"%d-%d-%dT%d:%d%s",
                              {&year, &month, &day, &hour, &minute, &zone})) == 6) {
        out.form = 8;
        WidenFixedWindow(&year);
        Validate(&result, year, month, day, hour, minute, second);
        out.zone_word = zone;
        ReadZone(zone, &zone_hours, &zone_minutes, &zone_west);
      } else if ((n = swscanf(text, u"%s %s %d, %d @ %d:%d",
                              {&word, &month_name, &day, &year, &hour, &minute})) == 6) {
        out.form = 9;
        month = GetMonth(month_name);
        WidenFixedWindow(&year);
        Validate(&result, year, month, day, hour, minute, second);
      } else if ((n = swscanf(text, u"%d %s %d %d:%d %s",
                              {&day, &month_name, &year, &hour, &minute, &zone})) == 6) {
        out.form = 10;
        WidenNearestPast(&year);
        month = GetMonth(month_name);
        WidenFixedWindow(&year);
        Validate(&result, year, month, day, hour, minute, second);
        out.zone_word = zone;
        ReadZone(zone, &zone_hours, &zone_minutes, &zone_west);
      } else {
        return result;
      }
    }
  }

  if (!toLocal) return result;

  // To GMT by the zone of the text. An offset of zero whole hours is
  // dropped with its minutes: "+00:30" does not move the date.
  if (zone_hours != 0) {
    COleDateTimeSpan zone_span(0, zone_hours, zone_minutes, 0);
    if (zone_west == 1) {
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

COleDateTime KorlanDateTime::StringToDate(CString text) {
  COleDateTime result;
  result.SetStatus(COleDateTime::invalid);
  if (result.ParseDateTime(text, kParseFlags, kParseLocale)) return result;

  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  int zone_hours = 0, zone_minutes = 0;
  CString word, month_name;
  bool matched = false;
  if (swscanf(text, u"%s %d %s %d %d:%d:%d %s",
              {&word, &day, &month_name, &year, &hour, &minute, &second, &word}) == 8) {
    month = GetMonth(month_name);
    matched = true;
  } else if (swscanf(text, u"%d-%d-%dT%d:%d:%dZ", {&year, &month, &day, &hour, &minute, &second}) ==
             6) {
    matched = true;
  } else if (swscanf(text, u"%d-%d-%dT%d:%d:%d-%d:%d",
                     {&year, &month, &day, &hour, &minute, &second, &zone_hours, &zone_minutes}) ==
             8) {
    matched = true;
  } else if (swscanf(text, u"%d %s %d %d:%d:%d %s",
                     {&day, &month_name, &year, &hour, &minute, &second, &word}) == 7) {
    month = GetMonth(month_name);
    matched = true;
  } else {
    int n = swscanf(text, u"%d/%d/%d @%d:%d", {&month, &day, &year, &hour, &minute});
    // The stored shape always gets 2000 added, whatever the count and
    // however many digits the year has: "12/25/2005 @10:00" is the year
    // 4005. Applications know this shape by that result. The sum wraps as
    // the original arithmetic did rather than overflow.
    second = 0;
    year = static_cast<int>(static_cast<uint32_t>(year) + 2000u);
    if (n == 5) {
      matched = true;
    } else if (swscanf(text, u"%d/%d/%d %d:%d %s", {&month, &day, &year, &hour, &minute, &word}) ==
               6) {
      matched = true;
    } else if (swscanf(text, u"%d-%d-%dT%d:%d%s", {&year, &month, &day, &hour, &minute, &word}) ==
               6) {
      matched = true;
    }
  }
  if (!matched) return result;

  WidenFixedWindow(&year);
  if (month < 1 || month > 12 || day < 1 || day > 31 || year < 1901) return result;
  // The time of day is neither checked nor kept.
  result.SetStatus(COleDateTime::valid);
  result.SetDateTime(year, month, day, 0, 0, 0);
  return result;
}

COleDateTime KorlanDateTime::ConvertToGMT(COleDateTime local) {
  // The mirror image of the last move of StringToDateTime.
  bool negative;
  COleDateTimeSpan bias = BiasSpan(&negative);
  return negative ? local - bias : local + bias;
}

int KorlanDateTime::GetMonth(CString name) {
  static const char16_t* const kMonths[] = {u"jan", u"feb", u"mar", u"apr", u"may", u"jun",
                                            u"jul", u"aug", u"sep", u"oct", u"nov", u"dec"};
  name.MakeLower();
  for (int i = 0; i < 12; ++i) {
    if (name.Find(CString(kMonths[i])) == 0) return i + 1;
  }
  return -1;
}

void KorlanDateTime::GetTimeZoneInfo(const char16_t* zoneText, int* hours, int* minutes,
                                     int* west) {
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

  int h = 0, m = 0;
  if (text.CompareNoCase(CString(u"Z")) == 0) return;
  if (text.CompareNoCase(CString(u"AT")) == 0) {
    *hours = 9;
    *west = 1;
    return;
  }
  if (swscanf(text, u"-%d:%d", {&h, &m}) == 2) {
    *hours = h;
    *minutes = m;
    *west = 1;
    return;
  }
  if (swscanf(text, u"GMT+%d", {&h}) == 1) {
    *hours = h;
    *west = 0;
    return;
  }
  if (swscanf(text, u"GMT-%d", {&h}) == 1) {
    *hours = h;
    *west = 1;
    return;
  }
  if (swscanf(text, u"+%d:%d", {&h, &m}) == 2) {
    *hours = h;
    *minutes = m;
    *west = 0;
    return;
  }
  if (swscanf(text, u"%d:%d", {&h, &m}) == 2) {
    *hours = h;
    *minutes = m;
    *west = 0;
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

CString KorlanDateTime::GetDateTimeInHTMLFormat(COleDateTime date) {
  if (date.GetStatus() == COleDateTime::invalid) return CString("::::");
  return date.Format("%m:%d:%Y:%H:%M");
}

COleDateTime KorlanDateTime::GetHTMLFormatedDateTimeInOle(CString text) {
  COleDateTime result;
  int month = 0, day = 0, year = 0, hour = 0, minute = 0;
  if (swscanf(text, u"%d:%d:%d:%d:%d", {&month, &day, &year, &hour, &minute}) == 5) {
    result.SetDateTime(year, month, day, hour, minute, 0);
  } else {
    result.SetStatus(COleDateTime::invalid);
  }
  return result;
}

// ---- Telling ----------------------------------------------------------------

int KorlanDateTime::IsToday(COleDateTime date) {
  if (date.GetStatus() != COleDateTime::valid) return 0;
  return SameDay(date, Clock::Now()) ? 1 : 0;
}

int KorlanDateTime::IsYesterday(COleDateTime date) {
  if (date.GetStatus() != COleDateTime::valid) return 0;
  COleDateTime now = Clock::Now();
  // By day number within the month: on the first of a month nothing is
  // yesterday. Kept as the applications show it.
  return (date.GetYear() == now.GetYear() && date.GetMonth() == now.GetMonth() &&
          now.GetDay() == date.GetDay() + 1)
             ? 1
             : 0;
}

CString KorlanDateTime::DateTimeToFullString(COleDateTime date, int) {
  if (date.GetStatus() != COleDateTime::valid) return CString();
  return date.Format("%A, %B %d, %Y @ %H:%M");
}

CString KorlanDateTime::DateTimeToSimpleString(COleDateTime date, int) {
  if (date.GetStatus() != COleDateTime::valid) return CString();
  return date.Format("%m/%d/%y@%H:%M");
}

CString KorlanDateTime::DateToPublicationString(COleDateTime date, int prefixed) {
  if (date.GetStatus() != COleDateTime::valid) return CString();
  COleDateTime now = Clock::Now();
  if (SameDay(date, now)) {
    return (prefixed ? CString("Today, ") : CString()) + date.Format("%B %d, %Y");
  }
  // Unlike IsYesterday, this compares with the day before by calendar, so
  // the last day of the previous month counts.
  if (SameDay(date, now - COleDateTimeSpan(1, 0, 0, 0))) {
    return (prefixed ? CString("Yesterday, ") : CString()) + date.Format("%B %d, %Y");
  }
  return date.Format("%A, %B %d, %Y");
}

CString KorlanDateTime::DateTimeToPublicationString(COleDateTime date, int, int fullWords) {
  if (date.GetStatus() != COleDateTime::valid) return CString();
  COleDateTime now = Clock::Now();
  COleDateTime yesterday = now - COleDateTimeSpan(1, 0, 0, 0);
  COleDateTimeSpan span = now - date;
  long days = span.GetDays();
  long hours = span.GetHours();
  long minutes = span.GetMinutes();
  if (date.GetHour() + hours > 24) ++days;

  if (SameDay(date, now)) {
    CString text = TimeText(date);
    text.MakeLower();
    if (fullWords) text = CString("Today @ ") + text;
    if (hours > 0) {
      text += hours < 2 ? CString(" ( 1 Hour") : CString(" ( ") + Number(hours) + " Hours";
    }
    // From 9 hours on the minutes are left out.
    if (minutes >= 1 && hours < 9) {
      if (hours == 0) text += " (";
      text += minutes > 1 ? CString(" ") + Number(minutes) + " Minutes" : CString(" 1 Minute");
    }
    if (hours > 0 || minutes >= 1) text += " Ago )";
    return text;
  }

  if (SameDay(date, yesterday)) {
    CString text = TimeText(date);
    text.MakeLower();
    return fullWords ? CString("Yesterday @ ") + text : text + " ( Yesterday )";
  }

  if (date.GetYear() == now.GetYear()) {
    CString text = date.Format("%B %d") + " @ " + TimeText(date);
    text.Replace(CString("PM"), CString("pm"));
    text.Replace(CString("AM"), CString("am"));
    if (fullWords) text = CString("on ") + text;
    if (days < 31) {
      text += days < 2 ? CString(" ( Yesterday )") : CString(" ( ") + Number(days) + " Days Ago )";
    } else {
      long months = days / 30;
      text += months < 2 ? CString(" ( Last Month )")
                         : CString(" ( ") + Number(months) + " Months Ago )";
    }
    return text;
  }

  CString text = date.Format("%a, %B %d, %Y @ %I:%M %p");
  if (text.GetLength() > 0 && text[0] == u'0') text = text.Mid(1);
  text.Replace(CString("@ 0"), CString("@ "));
  text.Replace(CString("PM"), CString("pm"));
  text.Replace(CString("AM"), CString("am"));
  if (fullWords) text = CString("on ") + text;
  return text;
}

CString KorlanDateTime::GetAgo_COleDateTime(COleDateTime date, int, int longWords, int coarse,
                                            int appendAgo) {
  // A null date has no age either.
  if (date.GetStatus() != COleDateTime::valid) return CString("Invalid Date");
  return AgoWords(date, longWords, coarse, appendAgo, false);
}

CString KorlanDateTime::GetAgo_String(CString date, int, int longWords, int coarse) {
  if (date.IsEmpty()) return CString("Invalid Date");
  COleDateTime read = StringToDateTime(date, 0);
  if (read.GetStatus() != COleDateTime::valid) return CString("Invalid Date");
  return AgoWords(read, longWords, coarse, 1, true);
}

long KorlanDateTime::GetAgoMinute(CString date, int unused) {
  if (date.IsEmpty()) return -1;
  return GetAgoMinute_COleDateTime(StringToDateTime(date, 0), unused);
}

long KorlanDateTime::GetAgoMinute_COleDateTime(COleDateTime date, int) {
  if (date.GetStatus() != COleDateTime::valid) return -1;
  COleDateTimeSpan span = Clock::Now() - date;
  return span.GetDays() * 1440 + span.GetHours() * 60 + span.GetMinutes();
}

// ---- _struct_CALDAYINFO -----------------------------------------------------------

void _struct_CALDAYINFO::UpdateCalDayInfo(_struct_CALDAYINFO* delta, int) {
  if (delta == nullptr) return;
  if (delta->count1 == 0 && delta->count2 == 0) return;
  // Copied first, so that a record may be updated by itself.
  const short add1 = delta->count1;
  const short add2 = delta->count2;
  const CArray<int> delta_ids = delta->ids;
  count1 = static_cast<short>(count1 + add1);
  count2 = static_cast<short>(count2 + add2);
  if (add1 >= 0 && add2 >= 0) {
    ids.insert(ids.end(), delta_ids.begin(), delta_ids.end());
  } else {
    for (int id : delta_ids) {
      auto it = std::find(ids.begin(), ids.end(), id);
      if (it != ids.end()) ids.erase(it);
    }
  }
}

}  // namespace kordll
