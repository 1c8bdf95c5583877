// DateText: the date text that stored dates are read and written in.
//
// Records keep their dates as text in the shape "%m/%d/%y@%H:%M", and feeds
// and web pages bring dates in many other shapes. This class holds the
// reading of all of them, the zone words and month names the reading needs,
// and the writing of the stored shape, so that the record core can read and
// write its dates without the toolkit. The
// toolkit's KorlanDateTime offers these same operations under its public
// name and adds the telling of dates to the user.
//
// All operations are static, use only their arguments, the platform clock
// (Clock) and the machine's time zone bias (TimeZone), and may be called
// from any thread. Nothing throws: an unreadable date is a COleDateTime of
// status invalid.

#ifndef KORDLL_CORE_DATETEXT_H_
#define KORDLL_CORE_DATETEXT_H_

#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CString.h"

namespace kordll {

class DateText {
 public:
  // What StringToDateTimeExplained found while reading a text.
  struct ReadInfo {
    // Which shape took the text: 0 the platform's plain reader, 1 to 10 the
    // scanned forms in their order, -1 none (empty or unreadable text).
    int form = -1;
    // The zone word as scanned ("" when the shape has none).
    CString zone_word;
    // The zone triple after reading: whole hours, minutes, and 1 when the
    // zone lies behind GMT (the offset is added to reach GMT), 0 ahead.
    int zone_hours = 0;
    int zone_minutes = 0;
    int zone_west = 1;
    // True when toLocal moved the date by the zone (zone hours non-zero).
    bool zone_applied = false;
  };

  DateText() = delete;

  // Reads a date with its time: the platform's plain reader first, then ten
  // scanned forms in a fixed order, the first complete one winning, with two
  // rules for widening short years. The empty text is invalid. With toLocal
  // non-zero the date is moved to GMT by the zone found (a zone of zero whole
  // hours is dropped), then to local time by the machine's standard-time
  // bias. The forms and their quirks are told in KorlanDateTime.h, the
  // public face of this operation.
  static COleDateTime StringToDateTime(CString text, int toLocal);
  // The same, and tells in *info (which may be null) what was found.
  static COleDateTime StringToDateTimeExplained(CString text, int toLocal, ReadInfo* info);
  // Reads a stored date: StringToDateTime(text, 0), with a short way for
  // the exact stored shape. Every text gives the same date as there.
  static COleDateTime StoredTextToDateTime(const CString& text);
  // The short way alone. The text must be exactly "MM/DD/YY@HH:MM", each
  // field two ASCII digits, month 01 to 12, day 01 to 31, hour 00 to 23 and
  // minute 00 to 59; then *date is what StringToDateTime(text, 0) gives and
  // true is returned. For any other text *date is left alone and false is
  // returned, so the caller reads it the long way.
  static bool ReadStoredShape(const CString& text, COleDateTime* date);
  // Reads a date and keeps the day only, except that a text the platform's
  // plain reader accepts is returned as read. The stored shape always gets
  // 2000 added to its year, so a four-digit year comes out 2000 years late.
  static COleDateTime StringToDate(CString text);
  // Moves a local date to GMT by the machine's standard-time bias (the
  // inverse of the last move of StringToDateTime).
  static COleDateTime ConvertToGMT(COleDateTime local);
  // 1 to 12 when the lower-cased text begins with the first three letters of
  // an English month name, else -1.
  static int GetMonth(CString name);
  // Fills the zone triple from a zone word, writing only what it
  // recognises. A null text sets hours and west to 0. REQUIRES: hours,
  // minutes and west are not null (a call with any of them null does
  // nothing).
  static void GetTimeZoneInfo(const char16_t* zoneText, int* hours, int* minutes, int* west);

  // The stored shape "%m/%d/%y@%H:%M" ("11/07/05@10:00"); "" for a date that
  // is not valid. StringToDateTime(text, 0) reads it back.
  static CString DateTimeToSimpleString(COleDateTime date);
};

}  // namespace kordll

#endif  // KORDLL_CORE_DATETEXT_H_
