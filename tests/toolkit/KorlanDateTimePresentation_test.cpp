// Telling dates: today and yesterday, the publication texts, the age in
// words, and the calendar day record.

#include <gtest/gtest.h>

#include <string>

#include "kordll/platform/Clock.h"
#include "kordll/platform/TimeZone.h"
#include "kordll/toolkit/KorlanDateTime.h"

namespace kordll {
namespace {

COleDateTime Date(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  return COleDateTime(y, mo, d, h, mi, s);
}

COleDateTime Invalid() {
  COleDateTime d;
  d.SetStatus(COleDateTime::invalid);
  return d;
}

std::string Show(const COleDateTime& d) { return d.Format("%Y-%m-%d %H:%M:%S").ToUtf8(); }

// "Now" is Tuesday 15 June 2010, 15:05:00.
class KorlanTellTest : public ::testing::Test {
 protected:
  KorlanTellTest() : tz_("UTC0"), clock_(2010, 6, 15, 15, 5, 0) {}

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

// ---- Today and yesterday --------------------------------------------------------

// Today is the calendar day of now; yesterday the day number before in the
// same month and year.
TEST_F(KorlanTellTest, TodayAndYesterdayByCalendarDay) {
  const struct {
    COleDateTime date;
    int today, yesterday;
  } cases[] = {{Date(2010, 6, 15), 1, 0},
               {Date(2010, 6, 15, 23, 59, 59), 1, 0},
               {Date(2010, 6, 14, 23, 59, 59), 0, 1},
               {Date(2009, 6, 15), 0, 0},
               {Date(2010, 5, 14), 0, 0},
               {Date(2009, 6, 14), 0, 0},
               {Invalid(), 0, 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(c.today * 10 + c.yesterday,
              KorlanDateTime::IsToday(c.date) * 10 + KorlanDateTime::IsYesterday(c.date))
        << Show(c.date);
  }
}

TEST_F(KorlanTellTest, OnTheFirstOfAMonthNothingIsYesterdayButThePublicationSaysSo) {
  clock_.SetLocalNow(Date(2010, 3, 1, 9, 0, 0));
  EXPECT_EQ(0, KorlanDateTime::IsYesterday(Date(2010, 2, 28, 12, 0, 0)));
  EXPECT_EQ("Yesterday, February 28, 2010",
            KorlanDateTime::DateToPublicationString(Date(2010, 2, 28, 12, 0, 0), 1).ToUtf8());
  EXPECT_EQ("12:00 pm ( Yesterday )", Pub(Date(2010, 2, 28, 12, 0, 0)));
}

// ---- Fixed shapes ------------------------------------------------------------------

// The simple string is the stored shape and reads back, without seconds.
TEST_F(KorlanTellTest, FullSimpleAndDateStrings) {
  COleDateTime d = Date(2005, 11, 7, 9, 5, 0);
  EXPECT_EQ("Monday, November 07, 2005 @ 09:05",
            KorlanDateTime::DateTimeToFullString(d, 0).ToUtf8());
  EXPECT_EQ("11/07/05@09:05", KorlanDateTime::DateTimeToSimpleString(d, 0).ToUtf8());
  COleDateTime null_date;
  null_date.SetStatus(COleDateTime::null);
  EXPECT_EQ("", (KorlanDateTime::DateTimeToFullString(Invalid(), 0) +
                 KorlanDateTime::DateTimeToSimpleString(Invalid(), 0) +
                 KorlanDateTime::DateTimeToSimpleString(null_date, 0))
                    .ToUtf8());
  CString stored = KorlanDateTime::DateTimeToSimpleString(Date(2005, 11, 7, 21, 45, 30), 0);
  EXPECT_EQ("2005-11-07 21:45:00", Show(KorlanDateTime::StringToDateTime(stored, 0)));

  const struct {
    COleDateTime date;
    int withWords;
    const char* text;
  } cases[] = {{Date(2010, 6, 15), 0, "June 15, 2010"},
               {Date(2010, 6, 15, 1, 0, 0), 1, "Today, June 15, 2010"},
               {Date(2010, 6, 14), 0, "June 14, 2010"},
               {Date(2010, 6, 14), 1, "Yesterday, June 14, 2010"},
               {Date(2010, 6, 7), 1, "Monday, June 07, 2010"},
               {Invalid(), 1, ""}};
  for (const auto& c : cases)
    EXPECT_EQ(c.text, KorlanDateTime::DateToPublicationString(c.date, c.withWords).ToUtf8());
}

// ---- Publication text of a date and time ----------------------------------------

TEST_F(KorlanTellTest, PublicationStringByDistanceFromNow) {
  struct Case {
    COleDateTime date;
    int fullWords;
    const char* text;
  };
  const Case cases[] = {
      // Today: hours and minutes up to nine hours, then hours only.
      {Ago(0, 1, 30), 0, "1:35 pm ( 1 Hour 30 Minutes Ago )"},
      {Ago(0, 1, 30), 1, "Today @ 1:35 pm ( 1 Hour 30 Minutes Ago )"},
      {Ago(0, 1, 0), 0, "2:05 pm ( 1 Hour Ago )"},
      {Ago(0, 2, 1), 0, "1:04 pm ( 2 Hours 1 Minute Ago )"},
      {Ago(0, 0, 5), 0, "3:00 pm ( 5 Minutes Ago )"},
      {Ago(0, 8, 59), 0, "6:06 am ( 8 Hours 59 Minutes Ago )"},
      {Ago(0, 9, 5), 0, "6:00 am ( 9 Hours Ago )"},
      // This minute, and later today as a clock ahead of ours would write it.
      {Clock::Now(), 0, "3:05 pm"},
      {Clock::Now(), 1, "Today @ 3:05 pm"},
      {Date(2010, 6, 15, 17, 0, 0), 0, "5:00 pm"},
      // Yesterday by calendar.
      {Date(2010, 6, 14, 21, 5, 0), 0, "9:05 pm ( Yesterday )"},
      {Date(2010, 6, 14, 21, 5, 0), 1, "Yesterday @ 9:05 pm"},
      // Earlier this year: 4 days 18 hours, and the date's hour plus 18
      // passes 24, so 5 days.
      {Date(2010, 6, 10, 21, 5, 0), 0, "June 10 @ 9:05 pm ( 5 Days Ago )"},
      {Date(2010, 6, 10, 21, 5, 0), 1, "on June 10 @ 9:05 pm ( 5 Days Ago )"},
      {Date(2010, 5, 10, 10, 0, 0), 0, "May 10 @ 10:00 am ( Last Month )"},
      {Date(2010, 3, 1, 10, 0, 0), 0, "March 01 @ 10:00 am ( 3 Months Ago )"},
      // A date later this year has a negative day count, told as yesterday.
      {Date(2010, 7, 1, 10, 0, 0), 0, "July 01 @ 10:00 am ( Yesterday )"},
      // Other years give the whole date.
      {Date(2009, 11, 2, 21, 5, 0), 0, "Mon, November 02, 2009 @ 9:05 pm"},
      {Date(2009, 11, 2, 11, 30, 0), 1, "on Mon, November 02, 2009 @ 11:30 am"},
      {Date(2011, 1, 1, 0, 0, 0), 0, "Sat, January 01, 2011 @ 12:00 am"},
      {Invalid(), 0, ""},
  };
  for (const Case& c : cases) EXPECT_EQ(c.text, Pub(c.date, c.fullWords));
}

// ---- Age in words -------------------------------------------------------------------

TEST_F(KorlanTellTest, AgeInWordsByUnitsAndOptions) {
  struct Case {
    COleDateTime date;
    int longWords, coarse, appendAgo;
    const char* text;
  };
  const Case cases[] = {
      // Now reads one minute old.
      {Clock::Now(), 0, 0, 0, "1Min "},
      {Clock::Now(), 1, 0, 1, "1 Minute Ago"},
      // Years of 325 days and months of 31.
      {Ago(400, 0, 0), 0, 0, 0, "1 Year 2 Months "},
      {Ago(325, 0, 0), 0, 0, 0, "1 Year 10 Months "},
      {Ago(700, 0, 0), 0, 0, 1, "2 Years 1 Month Ago"},
      {Ago(310, 0, 0), 0, 0, 1, "10 Months Ago"},
      {Ago(650, 0, 0), 0, 0, 1, "2 Years Ago"},
      // Days, hours and minutes; a zero minute count reads as one.
      {Ago(1, 3, 5), 0, 0, 1, "1D 3Hs 5Mins Ago"},
      {Ago(3, 2, 10), 1, 0, 1, "3 Days 2 Hours 10 Minutes Ago"},
      {Ago(0, 1, 1), 1, 0, 0, "1 Hour 1 Minute "},
      {Ago(0, 1, 0), 0, 0, 0, "1H 1Min "},
      {Ago(30, 0, 0), 0, 0, 1, "30Ds 1Min Ago"},
      // One day with long words is yesterday at the time.
      {Date(2010, 6, 14, 12, 0, 0), 1, 0, 1, "Yesterday @ 12:00"},
      {Date(2010, 6, 14, 12, 0, 0), 0, 0, 0, "1D 3Hs 5Mins "},
      // Coarse stops after the largest unit; more than five hours turns it on.
      {Ago(3, 2, 10), 0, 1, 1, "3Ds Ago"},
      {Ago(0, 2, 10), 0, 1, 1, "2Hs Ago"},
      {Ago(3, 7, 10), 0, 0, 1, "3Ds 7Hs Ago"},
      {Ago(0, 6, 10), 1, 0, 1, "6 Hours Ago"},
      {Ago(0, 5, 10), 1, 0, 1, "5 Hours 10 Minutes Ago"},
      // Future dates have no age, except that a whole number of hours ahead
      // has a minute count of 0, which reads as one minute old; so does less
      // than a minute ahead.
      {Ago(0, -2, -10), 0, 0, 1, ""},
      {Ago(-3, 0, -5), 1, 0, 1, ""},
      {Ago(0, -2, 0), 0, 0, 1, "1Min Ago"},
      {Clock::Now() + COleDateTimeSpan(0, 0, 0, 20), 0, 0, 1, "1Min Ago"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.text, AgoText(c.date, c.longWords, c.coarse, c.appendAgo))
        << c.longWords << c.coarse << c.appendAgo;
  }
}

// Invalid dates have an invalid age. Of a date text one day old, the word
// "Yesterday" has no space behind it, and the smaller units follow.
TEST_F(KorlanTellTest, AgeOfADateText) {
  COleDateTime null_date;
  null_date.SetStatus(COleDateTime::null);
  EXPECT_EQ("Invalid Date|Invalid Date",
            AgoText(Invalid(), 0, 0, 1) + "|" + AgoText(null_date, 0, 0, 1));
  const struct {
    const char* text;
    int longWords, coarse;
    const char* age;
  } cases[] = {{"", 0, 0, "Invalid Date"},
               {"not a date", 0, 0, "Invalid Date"},
               {"06/15/10@15:00", 0, 0, "5Mins Ago"},
               {"Tue, 15 Jun 2010 15:00:00 GMT", 1, 0, "5 Minutes Ago"},
               {"Tue, 10 May 2009 15:00:00 GMT", 1, 0, "1 Year 2 Months Ago"},
               {"06/14/10@12:00", 1, 0, "Yesterday3 Hours 5 Minutes Ago"},
               {"06/14/10@12:00", 1, 1, "Yesterday"},
               {"06/14/10@12:00", 0, 0, "1D 3Hs 5Mins Ago"}};
  for (const auto& c : cases) EXPECT_EQ(c.age, AgoString(c.text, c.longWords, c.coarse)) << c.text;
}

TEST_F(KorlanTellTest, AgeInMinutes) {
  EXPECT_EQ(-1, KorlanDateTime::GetAgoMinute(CString(""), 0));
  EXPECT_EQ(-1, KorlanDateTime::GetAgoMinute(CString("garbage"), 0));
  EXPECT_EQ(1625, KorlanDateTime::GetAgoMinute(CString("06/14/10@12:00"), 0));
  EXPECT_EQ(0, KorlanDateTime::GetAgoMinute_COleDateTime(Clock::Now(), 0));
  EXPECT_EQ(-120, KorlanDateTime::GetAgoMinute_COleDateTime(Ago(0, -2, 0), 0));
  EXPECT_EQ(400L * 1440 + 61, KorlanDateTime::GetAgoMinute_COleDateTime(Ago(400, 1, 1), 0));
  EXPECT_EQ(-1, KorlanDateTime::GetAgoMinute_COleDateTime(Invalid(), 0));
}

// ---- Calendar day record -----------------------------------------------------------

TEST(CalDayInfoTest, PositiveDeltaAddsAndNegativeRemovesFirstOccurrences) {
  _struct_CALDAYINFO day, delta;
  delta.count1 = 2;
  delta.count2 = 0;
  delta.ids = {7, 9};
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
  EXPECT_EQ(4, day.count1);
  EXPECT_EQ(2, day.count2);
  EXPECT_EQ((CArray<int>{9, 7, 9, 5}), day.ids);
}

TEST(CalDayInfoTest, ZeroCountsChangeNothingAndADayMayUpdateByItself) {
  _struct_CALDAYINFO day, delta;
  delta.ids = {1, 2};
  day.UpdateCalDayInfo(&delta, 0);
  day.UpdateCalDayInfo(nullptr, 0);
  EXPECT_TRUE(day.ids.empty());
  EXPECT_EQ(0, day.count1);
  day.count1 = 1;
  day.ids = {3, 4};
  day.UpdateCalDayInfo(&day, 0);
  EXPECT_EQ(2, day.count1);
  EXPECT_EQ((CArray<int>{3, 4, 3, 4}), day.ids);
}

}  // namespace
}  // namespace kordll
