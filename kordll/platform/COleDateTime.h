// COleDateTime and COleDateTimeSpan: the library's date and duration values.
//
// A COleDateTime is a day count from 30 December 1899 (day 0) held as a
// double, with the time of day as the fraction, and a status. Days before
// day 0 are negative and keep a positive fraction for the time of day, so
// -1.25 is 29 December 1899 at 06:00. The status is valid (0), invalid (1)
// or null (2). Every date of the system is this type.
//
// Valid dates lie between 1 January 100 00:00:00 and 31 December 9999
// 23:59:59. Setting parts outside the calendar (31 February, month 13,
// hour 24, year 99) and arithmetic that leaves that range give an invalid
// date. Parts are read to the nearest second.
//
// A COleDateTimeSpan is a signed count of days as a double, with a status.
//
// Both are plain values: any thread may use its own copies. Nothing here
// throws or reads the clock; the current time comes from Clock.

#ifndef KORDLL_PLATFORM_COLEDATETIME_H_
#define KORDLL_PLATFORM_COLEDATETIME_H_

#include "kordll/platform/CString.h"

namespace kordll {

// The day count type: days from 30 December 1899, time as the fraction.
using DATE = double;

// The locale argument of ParseDateTime: the user's default locale.
constexpr unsigned long LANG_USER_DEFAULT = 1024;

class COleDateTimeSpan {
 public:
  enum DateTimeSpanStatus { valid = 0, invalid = 1, null = 2 };

  // Zero span, valid.
  COleDateTimeSpan() = default;
  // A span of the given days; valid.
  explicit COleDateTimeSpan(double days) : span_(days) {}
  // days + hours/24 + minutes/1440 + seconds/86400. Any values are allowed,
  // negative or beyond their usual range (25 hours is a day and an hour).
  COleDateTimeSpan(long days, int hours, int minutes, int seconds);

  DateTimeSpanStatus GetStatus() const { return status_; }
  void SetStatus(DateTimeSpanStatus status) { status_ = status; }
  void SetDateTimeSpan(long days, int hours, int minutes, int seconds);

  // The span read to the nearest second and split into whole days, then
  // hours (-23 to 23), minutes and seconds (-59 to 59). Every part carries
  // the sign of the span. A span that is not valid gives 0 for each.
  long GetDays() const;
  long GetHours() const;
  long GetMinutes() const;
  long GetSeconds() const;
  // The whole span in the unit, with its fraction.
  double GetTotalDays() const { return span_; }
  double GetTotalHours() const { return span_ * 24.0; }
  double GetTotalMinutes() const { return span_ * 1440.0; }
  double GetTotalSeconds() const { return span_ * 86400.0; }

  // Null if either side is null, else invalid if either is invalid.
  COleDateTimeSpan operator+(const COleDateTimeSpan& other) const;
  COleDateTimeSpan operator-(const COleDateTimeSpan& other) const;
  COleDateTimeSpan operator-() const;
  COleDateTimeSpan& operator+=(const COleDateTimeSpan& other) { return *this = *this + other; }
  COleDateTimeSpan& operator-=(const COleDateTimeSpan& other) { return *this = *this - other; }

  // Equal when both are null, both invalid, or both valid with the same value.
  bool operator==(const COleDateTimeSpan& other) const;
  // Orders valid spans by value; false whenever either side is not valid.
  bool operator<(const COleDateTimeSpan& other) const;
  bool operator>(const COleDateTimeSpan& other) const { return other < *this; }
  bool operator<=(const COleDateTimeSpan& other) const;
  bool operator>=(const COleDateTimeSpan& other) const { return other <= *this; }

 private:
  friend class COleDateTime;
  double span_ = 0.0;
  DateTimeSpanStatus status_ = valid;
};

class COleDateTime {
 public:
  enum DateTimeStatus { valid = 0, invalid = 1, null = 2 };

  // Value 0 (30 December 1899 00:00:00), status valid.
  COleDateTime() = default;
  // The day count as given; invalid when it lies outside years 100 to 9999
  // or is not a number.
  explicit COleDateTime(DATE value);
  // SetDateTime of the parts.
  COleDateTime(int year, int month, int day, int hour, int minute, int second);
  // A date with status invalid: the fallback of every date read that has
  // nothing to give.
  static COleDateTime Invalid() {
    COleDateTime date;
    date.SetStatus(invalid);
    return date;
  }

  // Local time now, from Clock::Now().
  static COleDateTime GetCurrentTime();

  DateTimeStatus GetStatus() const { return status_; }
  // Changes the status alone; the value stays.
  void SetStatus(DateTimeStatus status) { status_ = status; }
  // The day count; meaningful only for a valid date.
  DATE GetDATE() const { return dt_; }

  // Sets the date from calendar parts: year 100 to 9999, month 1 to 12, a
  // day that the month has, hour 0 to 23, minute and second 0 to 59. Returns
  // the new status: 0 (valid) when the parts are accepted; otherwise the
  // date becomes invalid with value 0 and 1 is returned.
  int SetDateTime(int year, int month, int day, int hour, int minute, int second);
  // SetDateTime(year, month, day, 0, 0, 0).
  int SetDate(int year, int month, int day);
  // Sets the time of day on day 0 (30 December 1899), as the C runtime's
  // date type does; the same range checks as SetDateTime.
  int SetTime(int hour, int minute, int second);

  // The parts, or -1 when the date is not valid. GetDayOfWeek is 1 for
  // Sunday to 7 for Saturday; GetDayOfYear is 1 for 1 January.
  int GetYear() const;
  int GetMonth() const;
  int GetDay() const;
  int GetHour() const;
  int GetMinute() const;
  int GetSecond() const;
  int GetDayOfWeek() const;
  int GetDayOfYear() const;

  // Renders the date with strftime meaning: %a %A %b %B %c %C %d %D %e %F
  // %g %G %h %H %I %j %m %M %n %p %r %R %S %t %T %u %U %V %w %W %x %X %y %Y
  // %z %Z %%, with the English names of the C locale whatever the process
  // locale ("Monday", "Nov", "PM"). The "#" flag (%#d) drops leading zeros
  // and the E and O modifiers are accepted and ignored; an unknown
  // conversion is copied as written. %z and %Z give "" since a date carries
  // no zone. The result holds at most 255 characters (a buffer of 256 with
  // its terminator); a longer result gives "". An invalid date gives
  // "Invalid DateTime" and a null date "".
  CString Format(const CString& format) const;
  // The shape that ParseDateTime reads back: "M/D/YYYY H:MM:SS AM", always
  // with the time (11/7/2005 9:05:00 PM). Invalid and null as above.
  CString Format() const;

  // Reads a date in the plain local shapes, with blanks allowed around:
  //   M/D/YYYY, M/D/YY (a two-digit year falls in 1930 to 2029) or
  //   YYYY-MM-DD, optionally followed (after blanks) by a time H:MM or
  //   H:MM:SS, optionally followed by AM or PM in any case (the hour is then
  //   1 to 12; 12 AM is midnight).
  // Every other text is refused, in particular text with a zone word, a "T"
  // between date and time, or an "@". Only the text before a first U+0000
  // is read, as from a C string. flags and locale are accepted for the
  // callers' sake and not read. On success the date is set and valid and
  // true is returned; on failure it becomes invalid (value 0) and false is
  // returned.
  bool ParseDateTime(const CString& text, unsigned long flags = 0,
                     unsigned long locale = LANG_USER_DEFAULT);

  // Moves the date. Null if either side is null, else invalid if either is
  // invalid or the result leaves years 100 to 9999.
  COleDateTime operator+(const COleDateTimeSpan& span) const;
  COleDateTime operator-(const COleDateTimeSpan& span) const;
  COleDateTime& operator+=(const COleDateTimeSpan& span) { return *this = *this + span; }
  COleDateTime& operator-=(const COleDateTimeSpan& span) { return *this = *this - span; }
  // The span from other to this date (positive when this is later). Null if
  // either side is null, else invalid if either is invalid.
  COleDateTimeSpan operator-(const COleDateTime& other) const;

  // Equal when both are null, both invalid, or both valid with the same value.
  bool operator==(const COleDateTime& other) const;
  // Orders valid dates in time; false whenever either side is not valid.
  bool operator<(const COleDateTime& other) const;
  bool operator>(const COleDateTime& other) const { return other < *this; }
  bool operator<=(const COleDateTime& other) const;
  bool operator>=(const COleDateTime& other) const { return other <= *this; }

 private:
  struct Parts;
  // Breaks a valid date into calendar parts; false when it cannot.
  bool GetParts(Parts* parts) const;
  // Sets the date from a linear day count (negative days counted straight
  // back from day 0), checking the range.
  void SetFromLinear(double linear);

  DATE dt_ = 0.0;
  DateTimeStatus status_ = valid;
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_COLEDATETIME_H_
