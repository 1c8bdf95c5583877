// Dates: reading (the forms in their order, the two year rules, validation,
// the day reader, the internal shape), zones and the move to local time, and
// telling (today and yesterday, publication texts, the age in words, the
// calendar day record).

#include "kordll/toolkit/KorlanDateTime.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "kordll/platform/Clock.h"
#include "kordll/platform/TimeZone.h"

namespace kordll {
namespace {

std::string Show(const COleDateTime& d) {
  if (d.GetStatus() != COleDateTime::valid) return "invalid";
  return d.Format("%Y-%m-%d %H:%M:%S").ToUtf8();
}

COleDateTime Date(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  return COleDateTime(y, mo, d, h, mi, s);
}

COleDateTime Invalid() {
  COleDateTime d;
  d.SetStatus(COleDateTime::invalid);
  return d;
}

// "Now" is Tuesday 15 June 2010 15:05, in a zone without offset.
class KorlanDateTest : public ::testing::Test {
 protected:
  KorlanDateTest() : tz_("UTC0"), clock_(2010, 6, 15, 15, 5, 0) {}

  static std::string Read(const char* text) {
    return Show(KorlanDateTime::StringToDateTime(CString(text), 0));
  }
  static int Form(const char* text) {
    KorlanDateTime::ReadInfo info;
    KorlanDateTime::StringToDateTimeExplained(CString(text), 0, &info);
    return info.form;
  }
  static COleDateTime Ago(long days, int hours, int minutes) {
    return Clock::Now() - COleDateTimeSpan(days, hours, minutes, 0);
  }
  static std::string Pub(const COleDateTime& d, int fullWords = 0) {
    return KorlanDateTime::DateTimeToPublicationString(d, 0, fullWords).ToUtf8();
  }
  static std::string AgoText(const COleDateTime& d, int longWords, int coarse, int appendAgo) {
    return KorlanDateTime::GetAgo_COleDateTime(d, 0, longWords, coarse, appendAgo).ToUtf8();
  }
  static std::string AgoString(const char* text, int longWords, int coarse) {
    return KorlanDateTime::GetAgo_String(CString(text), 0, longWords, coarse).ToUtf8();
  }

  ScopedTimeZone tz_;
  ScopedManualClock clock_;
};

struct FormCase {
  const char* text;
  int form;
  const char* date;
};

// ---- The forms, as feeds write dates -------------------------------------------

// Each form takes its shape (-1: none does). Quirks: seconds a failed form
// stored stay for the next one: form 1 stores 30 and fails for want of a
// zone, and form 2 takes ":30" as its zone word and keeps them; forms 6 to
// 10 clear them (forms 3 and 4 find no tail behind "09:15:43", and form 8
// takes ":43" for a zone word, which is no zone). The weekday word is not
// checked.
TEST_F(KorlanDateTest, EachFormTakesItsShape) {
  const FormCase cases[] = {{"11/7/2005 10:00", 0, "2005-11-07 10:00:00"},
                            {"Tue, 08 Nov 2005 23:59:59 +0100", 1, "2005-11-08 23:59:59"},
                            {"Mon, 07 Nov 2005 10:00 -0500", 2, "2005-11-07 10:00:00"},
                            {"2005-11-03T09:15:43-05:00", 3, "2005-11-03 09:15:43"},
                            {"07 Nov 2005 10:00:00 GMT", 5, "2005-11-07 10:00:00"},
                            {"11/07/05@10:00", 6, "2005-11-07 10:00:00"},
                            {"11/03/05 10:00 GMT", 7, "2005-11-03 10:00:00"},
                            {"2005-11-03T09:15Z", 8, "2005-11-03 09:15:00"},
                            {"Monday November 7, 2005 @ 10:00", 9, "2005-11-07 10:00:00"},
                            {"07 Nov 2005 10:00 GMT", 10, "2005-11-07 10:00:00"},
                            {"Mon, 07 Nov 2005 10:00:30", 2, "2005-11-07 10:00:30"},
                            {"2005-11-03T09:15:43", 8, "2005-11-03 09:15:00"},
                            {"Fri, 07 Nov 2005 10:00:00 GMT", 1, "2005-11-07 10:00:00"}};
  for (const auto& c : cases) {
    EXPECT_EQ(c.form, Form(c.text)) << c.text;
    EXPECT_EQ(c.date, Read(c.text)) << c.text;
  }
  for (const char* text : {"", "10:00", "07 Nov 2005", "Monday, November 7, 2005 10:00"}) {
    EXPECT_EQ("invalid", Read(text)) << text;
    EXPECT_EQ(-1, Form(text)) << text;
  }
}

TEST_F(KorlanDateTest, HostileTextEndsInAnAnswer) {
  std::u16string long_word(200000, u'A');
  EXPECT_EQ("invalid", Show(KorlanDateTime::StringToDateTime(CString(long_word), 1)));
  std::u16string long_zone = u"Mon, 07 Nov 2005 10:00:00 " + std::u16string(100000, u'+');
  EXPECT_EQ("2005-11-07 10:00:00", Show(KorlanDateTime::StringToDateTime(CString(long_zone), 1)));
  EXPECT_EQ("invalid", Read("99999999999/99999999999/99999999999 @99999999999:1"));
  EXPECT_EQ("invalid", Read("-2147483648-1-1T0:0:0Z"));
  std::u16string with_nul = u"Mon, 07 Nov 2005 10:00:00 G";
  with_nul.push_back(u'\0');
  with_nul += u"MT";
  EXPECT_EQ("2005-11-07 10:00:00", Show(KorlanDateTime::StringToDateTime(CString(with_nul), 0)));
  // The plain reader, like the forms, stops at U+0000.
  std::u16string plain_nul = u"11/7/2005 10:30";
  plain_nul.push_back(u'\0');
  plain_nul += u"junk";
  EXPECT_EQ("2005-11-07 10:30:00", Show(KorlanDateTime::StringToDateTime(CString(plain_nul), 0)));
  EXPECT_EQ("2005-11-07 10:30:00", Show(KorlanDateTime::StringToDate(CString(plain_nul))));
}

// ---- Widening the year ----------------------------------------------------------

// Forms 1, 2, 10 and 6 widen a short year to the nearest past century (the
// current year is 2010: 05 lies before it, 15 after it); the other forms use
// a fixed window, 2000s below 10 (negative years too) and 1900s above. Form 1
// keeps years from 100 as written and then refuses them below 1901.
TEST_F(KorlanDateTest, ShortYearsWiden) {
  const struct {
    const char* text;
    const char* date;
  } cases[] = {{"Mon, 07 Nov 05 10:00:00 GMT", "2005-11-07 10:00:00"},
               {"07 Nov 15 10:00 GMT", "1915-11-07 10:00:00"},
               {"11/03/15 10:00 GMT", "1915-11-03 10:00:00"},
               {"9-11-03T09:15:43Z", "2009-11-03 09:15:43"},
               {"-1-11-03T09:15:43Z", "1999-11-03 09:15:43"},
               {"Mon, 07 Nov 150 10:00:00 GMT", "invalid"}};
  for (const auto& c : cases) EXPECT_EQ(c.date, Read(c.text)) << c.text;
}

TEST_F(KorlanDateTest, NearestPastCenturyFollowsTheClock) {
  clock_.SetLocalNow(COleDateTime(2016, 1, 1, 0, 0, 0));
  EXPECT_EQ("2015-11-03 10:00:00", Read("11/03/15@10:00"));
  EXPECT_EQ("2015-11-07 10:00:00", Read("07 Nov 15 10:00 GMT"));
  // The fixed window of form 7 does not look at the clock.
  EXPECT_EQ("1915-11-03 10:00:00", Read("11/03/15 10:00 GMT"));
}

// ---- Validation -----------------------------------------------------------------

TEST_F(KorlanDateTest, DateOutsideTheCalendarIsInvalid) {
  for (const char* text : {"2005-13-03T09:15:43Z", "1900-12-31T23:59:59Z",
                           "Mon, 31 Feb 2005 10:00:00 GMT", "02/30/05 10:00 GMT"}) {
    EXPECT_EQ("invalid", Read(text)) << text;
  }
  EXPECT_EQ("1901-01-01 00:00:00", Read("1901-01-01T00:00:00Z"));
}

TEST_F(KorlanDateTest, TimeOutOfRangeKeepsTheDay) {
  for (const char* text : {"2005-11-03T24:00:00Z", "2005-11-03T09:15:60Z", "11/03/05@25:00"})
    EXPECT_EQ("2005-11-03 00:00:00", Read(text)) << text;
}

TEST(KorlanMonthTest, FirstThreeLettersCount) {
  const struct {
    const char* word;
    int month;
  } cases[] = {{"JANUARY", 1}, {"Marzo", 3}, {"Mrz", -1}, {" jan", -1}};
  for (const auto& c : cases)
    EXPECT_EQ(c.month, KorlanDateTime::GetMonth(CString(c.word))) << c.word;
}

// The day reader keeps the day of the scanned forms without checking their
// time; the plain reader keeps the time; the stored shape always gets 2000
// years and is not widened by the clock; the other shapes of the full reader
// it lacks.
TEST_F(KorlanDateTest, DayReaderTakesFewerShapes) {
  const struct {
    const char* text;
    const char* date;
  } cases[] = {
      {"2005-11-03T99:99:99Z", "2005-11-03 00:00:00"}, {"11/7/2005 10:30", "2005-11-07 10:30:00"},
      {"12/25/2005 @10:00", "4005-12-25 00:00:00"},    {"12/25/15@10:00", "2015-12-25 00:00:00"},
      {"Monday November 7, 2005 @ 10:00", "invalid"},  {"12/25/2147483647 @10:00", "invalid"}};
  for (const auto& c : cases)
    EXPECT_EQ(c.date, Show(KorlanDateTime::StringToDate(CString(c.text)))) << c.text;
}

// ---- The internal shape ------------------------------------------------------

TEST(KorlanHtmlFormatTest, WritesAndReadsBack) {
  COleDateTime d(2005, 11, 7, 9, 5, 0);
  CString text = KorlanDateTime::GetDateTimeInHTMLFormat(d);
  EXPECT_EQ("11:07:2005:09:05", text.ToUtf8());
  EXPECT_EQ("2005-11-07 09:05:00", Show(KorlanDateTime::GetHTMLFormatedDateTimeInOle(text)));
  // Only five fields of a calendar date are read.
  EXPECT_EQ("invalid",
            Show(KorlanDateTime::GetHTMLFormatedDateTimeInOle(CString("2:30:2005:1:1"))));
}

// ==== Zones ====

// The triple after GetTimeZoneInfo, starting from a sentinel so that what
// was not written shows as "-".
std::string Zone(const char16_t* text) {
  int hours = -99, minutes = -99, west = -99;
  KorlanDateTime::GetTimeZoneInfo(text, &hours, &minutes, &west);
  auto part = [](int v) { return v == -99 ? std::string("-") : std::to_string(v); };
  return part(hours) + " " + part(minutes) + " " + part(west);
}

// ---- Zone words ---------------------------------------------------------------

// Three-letter words are looked up without regard to case (a few, not the
// whole table: the odd ones and those with minutes); "AT" is the one shorter
// word; unknown and longer words write nothing. Numeric offsets take a sign
// and a colon, "GMT+n" is case-sensitive, and five-character offsets do not
// check their digits.
TEST(KorlanZoneWordTest, WordsAndOffsets) {
  const struct {
    const char16_t* text;
    const char* zone;
  } cases[] = {{u"gmt", "0 - 0"},        {u"IST", "5 30 0"},  {u"AT", "9 - 1"},
               {nullptr, "0 - 0"},       {u"AKST", "- - -"},  {u"-5:30", "5 30 1"},
               {u"GMT+10:30", "10 - 0"}, {u"gmt+3", "- - -"}, {u"-0000", "- - 1"},
               {u"+ABCD", "188 210 0"}};
  for (const auto& c : cases) {
    EXPECT_EQ(c.zone, Zone(c.text)) << (c.text ? CString(c.text).ToUtf8() : "null");
  }
  // Very long words are harmless; a missing output stops the lookup.
  std::u16string word(100000, u'9');
  EXPECT_EQ("- - -", Zone((u"+" + word).c_str()));
  std::u16string colon = u"-" + word + u":" + word;
  int hours = 0, minutes = 0, west = 0;
  KorlanDateTime::GetTimeZoneInfo(colon.c_str(), &hours, &minutes, &west);
  EXPECT_EQ(1, west);  // the numbers saturate in the scanner; nothing breaks
  west = 7;
  KorlanDateTime::GetTimeZoneInfo(u"EST", nullptr, &minutes, &west);
  EXPECT_EQ(7, west);
}

// ---- Moving to local time ---------------------------------------------------------

// The zone of the text moves the date to GMT, and the machine's bias from
// there to local standard time (daylight saving is not considered).
TEST_F(KorlanDateTest, ZoneOfTheTextAndTheMachineBiasMoveTheDate) {
  const struct {
    const char* zone;
    const char* text;
    const char* local;
  } cases[] = {{"UTC0", "Mon, 07 Nov 2005 10:00:00 EST", "2005-11-07 15:00:00"},
               {"UTC0", "Sat, 31 Dec 2005 23:00:00 EST", "2006-01-01 04:00:00"},  // the year's end
               // A zone of zero whole hours is dropped with its minutes.
               {"UTC0", "2005-11-03T09:15:43+00:30", "2005-11-03 09:15:43"},
               // Unknown zones count as GMT.
               {"UTC0", "Mon, 07 Nov 2005 10:00:00 AKST", "2005-11-07 10:00:00"},
               {"IST-5:30", "Mon, 07 Nov 2005 10:00:00 GMT", "2005-11-07 15:30:00"},
               // Text the plain reader takes is GMT.
               {"EST5EDT", "11/7/2005 10:00", "2005-11-07 05:00:00"},
               // Invalid dates stay invalid; an absurd offset leaves the calendar.
               {"EST5EDT", "Mon, 07 Foo 2005 10:00:00 EST", "invalid"},
               {"UTC0", "Mon, 07 Nov 2005 10:00:00 -99999999:00", "invalid"}};
  for (const auto& c : cases) {
    ScopedTimeZone tz(c.zone);
    EXPECT_EQ(c.local, Show(KorlanDateTime::StringToDateTime(CString(c.text), 1)))
        << c.zone << " " << c.text;
  }
}

TEST_F(KorlanDateTest, ConvertToGmtUndoesTheMoveToLocal) {
  for (const char* tz_name : {"UTC0", "EST5EDT", "IST-5:30", "JST-9", "NST3:30NDT"}) {
    ScopedTimeZone tz(tz_name);
    COleDateTime gmt = KorlanDateTime::StringToDateTime(CString("07 Nov 2005 10:00:00 GMT"), 0);
    COleDateTime local = KorlanDateTime::StringToDateTime(CString("07 Nov 2005 10:00:00 GMT"), 1);
    EXPECT_EQ("2005-11-07 10:00:00", Show(KorlanDateTime::ConvertToGMT(local))) << tz_name;
    EXPECT_EQ(-TimeZone::GetBias(), std::lround((local - gmt).GetTotalMinutes())) << tz_name;
  }
  EXPECT_EQ("invalid", Show(KorlanDateTime::ConvertToGMT(Invalid())));
}

// ==== Telling dates ====

// ---- Today and yesterday --------------------------------------------------------

TEST_F(KorlanDateTest, OnTheFirstOfAMonthNothingIsYesterdayButThePublicationSaysSo) {
  clock_.SetLocalNow(Date(2010, 3, 1, 9, 0, 0));
  EXPECT_EQ(0, KorlanDateTime::IsYesterday(Date(2010, 2, 28, 12, 0, 0)));
  EXPECT_EQ("Yesterday, February 28, 2010",
            KorlanDateTime::DateToPublicationString(Date(2010, 2, 28, 12, 0, 0), 1).ToUtf8());
  EXPECT_EQ("12:00 pm ( Yesterday )", Pub(Date(2010, 2, 28, 12, 0, 0)));
}

// ---- Fixed shapes ------------------------------------------------------------------

// The simple string is the stored shape and reads back, without seconds.
TEST_F(KorlanDateTest, FullSimpleAndDateStrings) {
  COleDateTime d = Date(2005, 11, 7, 9, 5, 0);
  EXPECT_EQ("11/07/05@09:05", KorlanDateTime::DateTimeToSimpleString(d, 0).ToUtf8());
  CString stored = KorlanDateTime::DateTimeToSimpleString(Date(2005, 11, 7, 21, 45, 30), 0);
  EXPECT_EQ("2005-11-07 21:45:00", Show(KorlanDateTime::StringToDateTime(stored, 0)));
  EXPECT_EQ("Today, June 15, 2010",
            KorlanDateTime::DateToPublicationString(Date(2010, 6, 15, 1, 0, 0), 1).ToUtf8());
}

// ---- Publication text of a date and time ----------------------------------------

TEST_F(KorlanDateTest, PublicationStringByDistanceFromNow) {
  struct Case {
    COleDateTime date;
    int fullWords;
    const char* text;
  };
  const Case cases[] = {
      // Today: hours and minutes up to nine hours, then hours only.
      {Ago(0, 1, 30), 0, "1:35 pm ( 1 Hour 30 Minutes Ago )"},
      {Ago(0, 9, 5), 0, "6:00 am ( 9 Hours Ago )"},
      // Earlier this year: 4 days 18 hours, and the date's hour plus 18
      // passes 24, so 5 days.
      {Date(2010, 6, 10, 21, 5, 0), 0, "June 10 @ 9:05 pm ( 5 Days Ago )"},
      // A date later this year has a negative day count, told as yesterday.
      {Date(2010, 7, 1, 10, 0, 0), 0, "July 01 @ 10:00 am ( Yesterday )"},
      // Other years give the whole date.
      {Date(2009, 11, 2, 11, 30, 0), 1, "on Mon, November 02, 2009 @ 11:30 am"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.text, Pub(c.date, c.fullWords));
}

// ---- Age in words -------------------------------------------------------------------

TEST_F(KorlanDateTest, AgeInWordsByUnitsAndOptions) {
  struct Case {
    COleDateTime date;
    int longWords, coarse, appendAgo;
    const char* text;
  };
  const Case cases[] = {
      // Years of 325 days and months of 31.
      {Ago(400, 0, 0), 0, 0, 0, "1 Year 2 Months "},
      // A zero minute count reads as one.
      {Ago(30, 0, 0), 0, 0, 1, "30Ds 1Min Ago"},
      // One day with long words is yesterday at the time.
      {Date(2010, 6, 14, 12, 0, 0), 1, 0, 1, "Yesterday @ 12:00"},
      // Coarse stops after the largest unit; more than five hours turns it on.
      {Ago(3, 2, 10), 0, 1, 1, "3Ds Ago"},
      {Ago(0, 6, 10), 1, 0, 1, "6 Hours Ago"},
      // Future dates have no age, except that a whole number of hours ahead
      // has a minute count of 0, which reads as one minute old; so does less
      // than a minute ahead.
      {Ago(0, -2, 0), 0, 0, 1, "1Min Ago"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.text, AgoText(c.date, c.longWords, c.coarse, c.appendAgo))
        << c.longWords << c.coarse << c.appendAgo;
  }
}

// Invalid dates have an invalid age. Of a date text one day old, the word
// "Yesterday" has no space behind it, and the smaller units follow.
TEST_F(KorlanDateTest, AgeOfADateText) {
  COleDateTime null_date;
  null_date.SetStatus(COleDateTime::null);
  EXPECT_EQ("Invalid Date|Invalid Date",
            AgoText(Invalid(), 0, 0, 1) + "|" + AgoText(null_date, 0, 0, 1));
  const struct {
    const char* text;
    int longWords, coarse;
    const char* age;
  } cases[] = {{"06/14/10@12:00", 1, 0, "Yesterday3 Hours 5 Minutes Ago"},
               {"06/14/10@12:00", 1, 1, "Yesterday"}};
  for (const auto& c : cases) EXPECT_EQ(c.age, AgoString(c.text, c.longWords, c.coarse)) << c.text;
}

TEST_F(KorlanDateTest, AgeInMinutes) {
  EXPECT_EQ(-1, KorlanDateTime::GetAgoMinute(CString(""), 0));
  EXPECT_EQ(1625, KorlanDateTime::GetAgoMinute(CString("06/14/10@12:00"), 0));
  EXPECT_EQ(-120, KorlanDateTime::GetAgoMinute_COleDateTime(Ago(0, -2, 0), 0));
  EXPECT_EQ(400L * 1440 + 61, KorlanDateTime::GetAgoMinute_COleDateTime(Ago(400, 1, 1), 0));
  EXPECT_EQ(-1, KorlanDateTime::GetAgoMinute_COleDateTime(Invalid(), 0));
}

// ---- Calendar day record -----------------------------------------------------------

// A positive count adds the ids, a negative one removes their first
// occurrences; zero counts change nothing; a day may update by itself.
TEST(CalDayInfoTest, PositiveDeltaAddsNegativeRemovesFirstOccurrencesZeroDoesNothing) {
  _struct_CALDAYINFO day, delta;
  delta.ids = {7, 9};
  day.UpdateCalDayInfo(nullptr, 0);
  delta.count1 = 2;
  day.UpdateCalDayInfo(&delta, 0);
  day.UpdateCalDayInfo(&delta, 0);
  EXPECT_EQ(4, day.count1);
  EXPECT_EQ((CArray<int>{7, 9, 7, 9}), day.ids);
  day.count2 = 3;
  day.ids.push_back(5);
  delta.count1 = 0;
  delta.count2 = -1;
  delta.ids = {7, 8};
  day.UpdateCalDayInfo(&delta, 0);
  EXPECT_EQ(42, day.count1 * 10 + day.count2);
  EXPECT_EQ((CArray<int>{9, 7, 9, 5}), day.ids);
  day.ids = {3};
  day.UpdateCalDayInfo(&day, 0);
  EXPECT_EQ(8, day.count1);
  EXPECT_EQ((CArray<int>{3, 3}), day.ids);
}

}  // namespace
}  // namespace kordll
