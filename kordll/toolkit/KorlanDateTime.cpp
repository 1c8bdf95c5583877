#include "kordll/toolkit/KorlanDateTime.h"

#include <algorithm>

#include "kordll/platform/CRuntime.h"
#include "kordll/platform/Clock.h"

namespace kordll {

namespace {

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
  return DateText::StringToDateTime(text, toLocal);
}

COleDateTime KorlanDateTime::StringToDateTimeExplained(CString text, int toLocal, ReadInfo* info) {
  return DateText::StringToDateTimeExplained(text, toLocal, info);
}

COleDateTime KorlanDateTime::StringToDate(CString text) { return DateText::StringToDate(text); }

COleDateTime KorlanDateTime::ConvertToGMT(COleDateTime local) {
  return DateText::ConvertToGMT(local);
}

int KorlanDateTime::GetMonth(CString name) { return DateText::GetMonth(name); }

void KorlanDateTime::GetTimeZoneInfo(const char16_t* zoneText, int* hours, int* minutes,
                                     int* west) {
  DateText::GetTimeZoneInfo(zoneText, hours, minutes, west);
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
  return DateText::DateTimeToSimpleString(date);
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
