// KorlanDateTime: reading dates from free text and telling them to the user.
//
// Feeds, web pages and the library's own records carry dates as text in many
// shapes. The reading half turns such text into a COleDateTime: the
// platform's plain local reader first (COleDateTime::ParseDateTime), then ten
// scanned forms in a fixed order, with two different rules for widening short
// years and a small table of zone words. The writing half renders dates in
// fixed English words ("Today @ 3:05 pm ( 1 Hour 30 Minutes Ago )").
//
// The stored shape of a date inside records is "%m/%d/%y@%H:%M", written by
// DateTimeToSimpleString and read back by StringToDateTime(text, 0). The
// reading half and the stored shape are DateText's (kordll/core), which the
// record core uses directly; the operations here forward to it.
//
// Several results are deliberately odd and are kept as they are, since
// stored data and the applications rely on them; each is told at its
// operation. All operations are static, use only their arguments, the
// platform clock (Clock) and the machine's time zone bias (TimeZone), and may
// be called from any thread. Nothing throws: an unreadable date is a
// COleDateTime of status invalid.

#ifndef KORDLL_TOOLKIT_KORLANDATETIME_H_
#define KORDLL_TOOLKIT_KORLANDATETIME_H_

#include "kordll/core/DateText.h"
#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CString.h"

namespace kordll {

// The per-day record of a calendar panel: two counters and the ids of the
// records counted.
struct _struct_CALDAYINFO {
  // Adds delta's counters to this one's, unless both of delta's are 0 (then
  // nothing changes). When neither of delta's counters is negative, delta's
  // ids are appended to ids; when either is negative, the first occurrence
  // of each of delta's ids is removed from ids. A null delta changes
  // nothing. The int is not read.
  void UpdateCalDayInfo(_struct_CALDAYINFO* delta, int unused);

  short count1 = 0;
  short count2 = 0;
  CArray<int> ids;
};

class KorlanDateTime {
 public:
  // What StringToDateTimeExplained found while reading a text: the form
  // that took it (0 the platform's plain reader, 1 to 10 the scanned forms
  // in their order, -1 none), the zone word and the zone triple after
  // reading, and whether toLocal moved the date by the zone.
  using ReadInfo = DateText::ReadInfo;

  KorlanDateTime() = default;
  KorlanDateTime(const KorlanDateTime&) = default;
  KorlanDateTime& operator=(const KorlanDateTime&) = default;
  virtual ~KorlanDateTime() = default;

  // ---- Reading --------------------------------------------------------------

  // Reads a date with its time. The empty text is invalid. A text the
  // platform's plain reader accepts is taken as it reads it; otherwise these
  // forms are scanned in order, with swscanf meaning over the whole text, and
  // the first whose count of fields is complete wins:
  //   1 "%s %d %s %d %d:%d:%d %s"   Mon, 07 Nov 2005 10:00:00 GMT
  //   2 "%s %d %s %d %d:%d %s"      Mon, 07 Nov 2005 10:00 GMT
  //   3 "%d-%d-%dT%d:%d:%d%s"       2005-11-03T09:15:43-05:00
  //   4 "%d-%d-%dT%d:%d:%d-%d:%d"   (always taken by form 3 first)
  //   5 "%d %s %d %d:%d:%d %s"      07 Nov 2005 10:00:00 GMT
  //   6 "%d/%d/%d @%d:%d"           11/07/05@10:00 (the stored shape)
  //   7 "%d/%d/%d %d:%d %s"         11/07/05 10:00 GMT
  //   8 "%d-%d-%dT%d:%d%s"          2005-11-03T09:15Z
  //   9 "%s %s %d, %d @ %d:%d"      Monday November 7, 2005 @ 10:00
  //  10 "%d %s %d %d:%d %s"         07 Nov 2005 10:00 GMT
  // Fields a failed form stored stay in place for later forms. Forms 6 to 10
  // carry no seconds. Short years: forms 1, 2, 10 and 6 take the nearest
  // past century (year + 2000, less 100 when that is beyond this year); all
  // forms but 1 then take a fixed window (10 to 99 are 19xx, below 10 are
  // 20xx). So "11/03/15 10:00 GMT" is 1915 while "11/03/15@10:00" is 2015.
  // Month 1 to 12, day 1 to 31 and year from 1901 are required; a time out
  // of range keeps the date at 00:00:00.
  // With toLocal non-zero, the date is moved to GMT by the zone found (a zone
  // of zero whole hours is dropped, minutes and all), then to local time by
  // the machine's standard-time bias. A text without a zone counts as GMT.
  static COleDateTime StringToDateTime(CString text, int toLocal);
  // The same, and tells in *info (which may be null) what was found.
  static COleDateTime StringToDateTimeExplained(CString text, int toLocal, ReadInfo* info);

  // Reads a date and keeps the day only (00:00:00), except that a text the
  // platform's plain reader accepts is returned as read, time included.
  // Forms: 1 above, "%d-%d-%dT%d:%d:%dZ", 4, 5, 6, 7 and 8 above. No zone is
  // read. The stored shape "%d/%d/%d @%d:%d" always gets 2000 added to its
  // year, so a four-digit year comes out 2000 years late ("12/25/2005
  // @10:00" is the year 4005): kept as the applications know it.
  static COleDateTime StringToDate(CString text);

  // Moves a local date to GMT by the machine's standard-time bias (the
  // inverse of the last move of StringToDateTime).
  static COleDateTime ConvertToGMT(COleDateTime local);

  // 1 to 12 when the lower-cased text begins with the first three letters of
  // an English month name ("Sept" is 9, "Marzo" is 3), else -1.
  static int GetMonth(CString name);

  // Fills the zone triple from a zone word; writes only what it recognises,
  // so the caller's starting values stand otherwise. A null text sets hours
  // and west to 0. Three-letter words come from a fixed table without regard
  // to case (GMT, CET, AST, EDT, EST, CDT, CST, MDT, MST, PDT, PST, EET, MSK,
  // IST, JST, GST, WAT, YST, ADT, NST, HST, CAT); other texts are "Z",
  // "AT", "-H:M", "GMT+H", "GMT-H", "+H:M", "H:M" and five-character
  // "+HHMM"/"-HHMM" (whose digits are not checked). zoneText is a
  // NUL-terminated text or null. REQUIRES: hours, minutes and west are not
  // null (a call with any of them null does nothing).
  static void GetTimeZoneInfo(const char16_t* zoneText, int* hours, int* minutes, int* west);

  // "%m:%d:%Y:%H:%M"; "::::" for an invalid date.
  static CString GetDateTimeInHTMLFormat(COleDateTime date);
  // Reads "%d:%d:%d:%d:%d" as month, day, year, hour, minute; exactly five
  // fields give SetDateTime(year, month, day, hour, minute, 0), anything else
  // an invalid date.
  static COleDateTime GetHTMLFormatedDateTimeInOle(CString text);

  // ---- Telling --------------------------------------------------------------
  // "Now" is Clock::Now(). Unused int arguments are kept for the callers.

  // Same year, month and day as now.
  static int IsToday(COleDateTime date);
  // Same year and month as now, and the day one before today's. So on the
  // first of a month nothing is yesterday; callers rely on that.
  static int IsYesterday(COleDateTime date);
  // "%A, %B %d, %Y @ %H:%M" ("Monday, November 07, 2005 @ 10:00"); "" for a
  // date that is not valid.
  static CString DateTimeToFullString(COleDateTime date, int unused);
  // The stored shape "%m/%d/%y@%H:%M" ("11/07/05@10:00"); "" for a date that
  // is not valid.
  static CString DateTimeToSimpleString(COleDateTime date, int unused);
  // "%A, %B %d, %Y", or for today and yesterday (by calendar) "%B %d, %Y"
  // with "Today, " or "Yesterday, " before it when prefixed is non-zero.
  // "" for an invalid date.
  static CString DateToPublicationString(COleDateTime date, int prefixed);
  // The date as a reader of posts sees it: "3:05 pm ( 1 Hour 30 Minutes Ago
  // )" today, "9:05 pm ( Yesterday )", "November 02 @ 9:05 pm ( 5 Days Ago
  // )" this year, "Tue, November 02, 2004 @ 9:05 pm" in another year;
  // fullWords adds "Today @ ", "Yesterday @ " or "on ". A later date of this
  // year reads "( Yesterday )", as the applications have always shown it.
  // "" for an invalid date.
  static CString DateTimeToPublicationString(COleDateTime date, int unused, int fullWords);
  // The age of a date in words: "1 Year 2 Months Ago", "3Ds 7Hs Ago", "1Min
  // Ago". Years are counted as 325 days and months as 31, as the
  // applications have always shown them. longWords spells units out,
  // coarse stops after the largest unit, appendAgo adds "Ago". "Invalid
  // Date" for a date that is not valid.
  static CString GetAgo_COleDateTime(COleDateTime date, int unused, int longWords, int coarse,
                                     int appendAgo);
  // The same over a date text read by StringToDateTime(text, 0), always
  // adding "Ago"; a single day with longWords is the word "Yesterday" and
  // the smaller units follow it. "Invalid Date" for an empty or unreadable
  // text.
  static CString GetAgo_String(CString date, int unused, int longWords, int coarse);
  // Minutes from the date to now (days * 1440 + hours * 60 + minutes); -1 for
  // the empty text and for text that does not read as a date.
  static long GetAgoMinute(CString date, int unused);
  // The same for a date; -1 when it is not valid.
  static long GetAgoMinute_COleDateTime(COleDateTime date, int unused);

 private:
  COleDateTime date_;
};

}  // namespace kordll

#endif  // KORDLL_TOOLKIT_KORLANDATETIME_H_
