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

TEST_F(KorlanTellTest, TodayIsTheCalendarDayOfNow) {
  EXPECT_EQ(1, KorlanDateTime::IsToday(Date(2010, 6, 15)));
  EXPECT_EQ(1, KorlanDateTime::IsToday(Date(2010, 6, 15, 23, 59, 59)));
  EXPECT_EQ(0, KorlanDateTime::IsToday(Date(2010, 6, 14, 23, 59, 59)));
  EXPECT_EQ(0, KorlanDateTime::IsToday(Date(2009, 6, 15)));
  EXPECT_EQ(0, KorlanDateTime::IsToday(Invalid()));
}

TEST_F(KorlanTellTest, YesterdayIsTheDayNumberBeforeInTheSameMonth) {
  EXPECT_EQ(1, KorlanDateTime::IsYesterday(Date(2010, 6, 14, 8, 0, 0)));
  EXPECT_EQ(0, KorlanDateTime::IsYesterday(Date(2010, 6, 15)));
  EXPECT_EQ(0, KorlanDateTime::IsYesterday(Date(2010, 5, 14)));
  EXPECT_EQ(0, KorlanDateTime::IsYesterday(Date(2009, 6, 14)));
  EXPECT_EQ(0, KorlanDateTime::IsYesterday(Invalid()));
}

TEST_F(KorlanTellTest, OnTheFirstOfAMonthNothingIsYesterdayButThePublicationSaysSo) {
  clock_.SetLocalNow(Date(2010, 3, 1, 9, 0, 0));
  EXPECT_EQ(0, KorlanDateTime::IsYesterday(Date(2010, 2, 28, 12, 0, 0)));
  EXPECT_EQ("Yesterday, February 28, 2010",
            KorlanDateTime::DateToPublicationString(Date(2010, 2, 28, 12, 0, 0), 1).ToUtf8());
  EXPECT_EQ("12:00 pm ( Yesterday )", Pub(Date(2010, 2, 28, 12, 0, 0)));
}

// ---- Fixed shapes ------------------------------------------------------------------

TEST_F(KorlanTellTest, FullAndSimpleStrings) {
  COleDateTime d = Date(2005, 11, 7, 9, 5, 0);
  EXPECT_EQ("Monday, November 07, 2005 @ 09:05",
            KorlanDateTime::DateTimeToFullString(d, 0).ToUtf8());
  EXPECT_EQ("11/07/05@09:05", KorlanDateTime::DateTimeToSimpleString(d, 0).ToUtf8());
  EXPECT_EQ("", KorlanDateTime::DateTimeToFullString(Invalid(), 0).ToUtf8());
  EXPECT_EQ("", KorlanDateTime::DateTimeToSimpleString(Invalid(), 0).ToUtf8());
  COleDateTime null_date;
  null_date.SetStatus(COleDateTime::null);
  EXPECT_EQ("", KorlanDateTime::DateTimeToSimpleString(null_date, 0).ToUtf8());
}

TEST_F(KorlanTellTest, SimpleStringIsTheStoredShapeAndReadsBack) {
  COleDateTime d = Date(2005, 11, 7, 21, 45, 0);
  CString stored = KorlanDateTime::DateTimeToSimpleString(d, 0);
  COleDateTime back = KorlanDateTime::StringToDateTime(stored, 0);
  EXPECT_TRUE(back == d) << stored.ToUtf8();
  // Seconds are not stored.
  COleDateTime with_seconds = Date(2005, 11, 7, 21, 45, 30);
  EXPECT_TRUE(KorlanDateTime::StringToDateTime(
                  KorlanDateTime::DateTimeToSimpleString(with_seconds, 0), 0) == d);
}

TEST_F(KorlanTellTest, DateToPublicationString) {
  EXPECT_EQ("June 15, 2010",
            KorlanDateTime::DateToPublicationString(Date(2010, 6, 15), 0).ToUtf8());
  EXPECT_EQ("Today, June 15, 2010",
            KorlanDateTime::DateToPublicationString(Date(2010, 6, 15, 1, 0, 0), 1).ToUtf8());
  EXPECT_EQ("June 14, 2010",
            KorlanDateTime::DateToPublicationString(Date(2010, 6, 14), 0).ToUtf8());
  EXPECT_EQ("Yesterday, June 14, 2010",
            KorlanDateTime::DateToPublicationString(Date(2010, 6, 14), 1).ToUtf8());
  EXPECT_EQ("Monday, June 07, 2010",
            KorlanDateTime::DateToPublicationString(Date(2010, 6, 7), 1).ToUtf8());
  EXPECT_EQ("", KorlanDateTime::DateToPublicationString(Invalid(), 1).ToUtf8());
}

// ---- Publication text of a date and time ----------------------------------------

TEST_F(KorlanTellTest, TodayWithHoursAndMinutes) {
  EXPECT_EQ("1:35 pm ( 1 Hour 30 Minutes Ago )", Pub(Ago(0, 1, 30)));
  EXPECT_EQ("Today @ 1:35 pm ( 1 Hour 30 Minutes Ago )", Pub(Ago(0, 1, 30), 1));
  EXPECT_EQ("2:05 pm ( 1 Hour Ago )", Pub(Ago(0, 1, 0)));
  EXPECT_EQ("1:04 pm ( 2 Hours 1 Minute Ago )", Pub(Ago(0, 2, 1)));
  EXPECT_EQ("3:00 pm ( 5 Minutes Ago )", Pub(Ago(0, 0, 5)));
  EXPECT_EQ("3:04 pm ( 1 Minute Ago )", Pub(Ago(0, 0, 1)));
  EXPECT_EQ("6:06 am ( 8 Hours 59 Minutes Ago )", Pub(Ago(0, 8, 59)));
}

TEST_F(KorlanTellTest, TodayThisMinuteHasNoBracket) {
  EXPECT_EQ("3:05 pm", Pub(Clock::Now()));
  EXPECT_EQ("Today @ 3:05 pm", Pub(Clock::Now(), 1));
  // Later today, as a clock ahead of ours would write it.
  EXPECT_EQ("5:00 pm", Pub(Date(2010, 6, 15, 17, 0, 0)));
}

TEST_F(KorlanTellTest, TodayFromNineHoursOnLeavesMinutesOut) {
  EXPECT_EQ("5:05 am ( 10 Hours Ago )", Pub(Ago(0, 10, 0)));
  EXPECT_EQ("4:45 am ( 10 Hours Ago )", Pub(Ago(0, 10, 20)));
  EXPECT_EQ("6:00 am ( 9 Hours Ago )", Pub(Ago(0, 9, 5)));
}

TEST_F(KorlanTellTest, YesterdayByCalendar) {
  EXPECT_EQ("9:05 pm ( Yesterday )", Pub(Date(2010, 6, 14, 21, 5, 0)));
  EXPECT_EQ("Yesterday @ 9:05 pm", Pub(Date(2010, 6, 14, 21, 5, 0), 1));
  EXPECT_EQ("12:30 am ( Yesterday )", Pub(Date(2010, 6, 14, 0, 30, 0)));
}

TEST_F(KorlanTellTest, EarlierThisYearCountsDaysAndMonths) {
  // 4 days 18 hours; the date's hour plus 18 passes 24, so 5 days.
  EXPECT_EQ("June 10 @ 9:05 pm ( 5 Days Ago )", Pub(Date(2010, 6, 10, 21, 5, 0)));
  EXPECT_EQ("on June 10 @ 9:05 pm ( 5 Days Ago )", Pub(Date(2010, 6, 10, 21, 5, 0), 1));
  EXPECT_EQ("June 13 @ 10:00 am ( 2 Days Ago )", Pub(Date(2010, 6, 13, 10, 0, 0)));
  EXPECT_EQ("May 10 @ 10:00 am ( Last Month )", Pub(Date(2010, 5, 10, 10, 0, 0)));
  EXPECT_EQ("March 01 @ 10:00 am ( 3 Months Ago )", Pub(Date(2010, 3, 1, 10, 0, 0)));
  // A date later this year has a negative day count, told as yesterday.
  EXPECT_EQ("July 01 @ 10:00 am ( Yesterday )", Pub(Date(2010, 7, 1, 10, 0, 0)));
}

TEST_F(KorlanTellTest, OtherYearsGiveTheWholeDate) {
  EXPECT_EQ("Mon, November 02, 2009 @ 9:05 pm", Pub(Date(2009, 11, 2, 21, 5, 0)));
  EXPECT_EQ("on Mon, November 02, 2009 @ 11:30 am", Pub(Date(2009, 11, 2, 11, 30, 0), 1));
  EXPECT_EQ("Sat, January 01, 2011 @ 12:00 am", Pub(Date(2011, 1, 1, 0, 0, 0)));
  EXPECT_EQ("", Pub(Invalid()));
}

// ---- Age in words -------------------------------------------------------------------

TEST_F(KorlanTellTest, NowReadsOneMinuteOld) {
  EXPECT_EQ("1Min ", AgoText(Clock::Now(), 0, 0, 0));
  EXPECT_EQ("1Min Ago", AgoText(Clock::Now(), 0, 0, 1));
  EXPECT_EQ("1 Minute Ago", AgoText(Clock::Now(), 1, 0, 1));
}

TEST_F(KorlanTellTest, YearsOf325DaysAndMonthsOf31) {
  EXPECT_EQ("1 Year 2 Months ", AgoText(Ago(400, 0, 0), 0, 0, 0));
  EXPECT_EQ("1 Year 2 Months Ago", AgoText(Ago(400, 3, 10), 1, 0, 1));
  EXPECT_EQ("1 Year 10 Months ", AgoText(Ago(325, 0, 0), 0, 0, 0));
  EXPECT_EQ("1 Month ", AgoText(Ago(40, 5, 0), 0, 0, 0));
  EXPECT_EQ("2 Years 1 Month Ago", AgoText(Ago(700, 0, 0), 0, 0, 1));
  EXPECT_EQ("10 Months Ago", AgoText(Ago(310, 0, 0), 0, 0, 1));
  EXPECT_EQ("2 Years Ago", AgoText(Ago(650, 0, 0), 0, 0, 1));
}

TEST_F(KorlanTellTest, DaysHoursAndMinutes) {
  EXPECT_EQ("1D 3Hs 5Mins Ago", AgoText(Ago(1, 3, 5), 0, 0, 1));
  EXPECT_EQ("3 Days 2 Hours 10 Minutes Ago", AgoText(Ago(3, 2, 10), 1, 0, 1));
  EXPECT_EQ("1H 1Min ", AgoText(Ago(0, 1, 1), 0, 0, 0));
  EXPECT_EQ("1 Hour 1 Minute ", AgoText(Ago(0, 1, 1), 1, 0, 0));
  EXPECT_EQ("1H 1Min ", AgoText(Ago(0, 1, 0), 0, 0, 0));
  EXPECT_EQ("30Ds 1Min Ago", AgoText(Ago(30, 0, 0), 0, 0, 1));
}

TEST_F(KorlanTellTest, OneDayWithLongWordsIsYesterdayAtTheTime) {
  EXPECT_EQ("Yesterday @ 12:00", AgoText(Date(2010, 6, 14, 12, 0, 0), 1, 0, 1));
  EXPECT_EQ("1D 3Hs 5Mins ", AgoText(Date(2010, 6, 14, 12, 0, 0), 0, 0, 0));
}

TEST_F(KorlanTellTest, CoarseStopsAfterTheLargestUnit) {
  EXPECT_EQ("3Ds Ago", AgoText(Ago(3, 2, 10), 0, 1, 1));
  EXPECT_EQ("2Hs Ago", AgoText(Ago(0, 2, 10), 0, 1, 1));
  EXPECT_EQ("5Mins Ago", AgoText(Ago(0, 0, 5), 0, 1, 1));
  // More than five hours turns coarse on by itself.
  EXPECT_EQ("3Ds 7Hs Ago", AgoText(Ago(3, 7, 10), 0, 0, 1));
  EXPECT_EQ("6 Hours Ago", AgoText(Ago(0, 6, 10), 1, 0, 1));
  EXPECT_EQ("5 Hours 10 Minutes Ago", AgoText(Ago(0, 5, 10), 1, 0, 1));
}

TEST_F(KorlanTellTest, FutureDatesHaveNoAge) {
  EXPECT_EQ("", AgoText(Ago(0, -2, -10), 0, 0, 1));
  EXPECT_EQ("", AgoText(Ago(-3, 0, -5), 1, 0, 1));
  // A whole number of hours ahead has a minute count of 0, which reads as
  // one minute old; so does less than a minute ahead.
  EXPECT_EQ("1Min Ago", AgoText(Ago(0, -2, 0), 0, 0, 1));
  EXPECT_EQ("1Min Ago", AgoText(Clock::Now() + COleDateTimeSpan(0, 0, 0, 20), 0, 0, 1));
}

TEST_F(KorlanTellTest, InvalidDatesHaveInvalidAge) {
  EXPECT_EQ("Invalid Date", AgoText(Invalid(), 0, 0, 1));
  COleDateTime null_date;
  null_date.SetStatus(COleDateTime::null);
  EXPECT_EQ("Invalid Date", AgoText(null_date, 0, 0, 1));
}

TEST_F(KorlanTellTest, AgeOfADateText) {
  EXPECT_EQ("Invalid Date", AgoString("", 0, 0));
  EXPECT_EQ("Invalid Date", AgoString("not a date", 0, 0));
  EXPECT_EQ("5Mins Ago", AgoString("06/15/10@15:00", 0, 0));
  EXPECT_EQ("5 Minutes Ago", AgoString("Tue, 15 Jun 2010 15:00:00 GMT", 1, 0));
  EXPECT_EQ("1 Year 2 Months Ago", AgoString("Tue, 10 May 2009 15:00:00 GMT", 1, 0));
}

TEST_F(KorlanTellTest, AgeOfADateTextOneDayAgoGoesOnBehindYesterday) {
  // The word has no space behind it, and the smaller units follow.
  EXPECT_EQ("Yesterday3 Hours 5 Minutes Ago", AgoString("06/14/10@12:00", 1, 0));
  EXPECT_EQ("Yesterday", AgoString("06/14/10@12:00", 1, 1));
  EXPECT_EQ("1D 3Hs 5Mins Ago", AgoString("06/14/10@12:00", 0, 0));
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

TEST(CalDayInfoTest, PositiveDeltaAddsCountsAndIds) {
  _struct_CALDAYINFO day, delta;
  delta.count1 = 2;
  delta.count2 = 0;
  delta.ids = {7, 9};
  day.UpdateCalDayInfo(&delta, 0);
  day.UpdateCalDayInfo(&delta, 0);
  EXPECT_EQ(4, day.count1);
  EXPECT_EQ(0, day.count2);
  EXPECT_EQ((CArray<int>{7, 9, 7, 9}), day.ids);
}

TEST(CalDayInfoTest, NegativeDeltaRemovesFirstOccurrences) {
  _struct_CALDAYINFO day, delta;
  day.count1 = 4;
  day.count2 = 3;
  day.ids = {7, 9, 7, 5};
  delta.count1 = 0;
  delta.count2 = -1;
  delta.ids = {7, 8};
  day.UpdateCalDayInfo(&delta, 0);
  EXPECT_EQ(4, day.count1);
  EXPECT_EQ(2, day.count2);
  EXPECT_EQ((CArray<int>{9, 7, 5}), day.ids);
}

TEST(CalDayInfoTest, ZeroCountsChangeNothing) {
  _struct_CALDAYINFO day, delta;
  delta.ids = {1, 2};
  day.UpdateCalDayInfo(&delta, 0);
  day.UpdateCalDayInfo(nullptr, 0);
  EXPECT_TRUE(day.ids.empty());
  EXPECT_EQ(0, day.count1);
}

TEST(CalDayInfoTest, UpdateByItself) {
  _struct_CALDAYINFO day;
  day.count1 = 1;
  day.ids = {3, 4};
  day.UpdateCalDayInfo(&day, 0);
  EXPECT_EQ(2, day.count1);
  EXPECT_EQ((CArray<int>{3, 4, 3, 4}), day.ids);
}

}  // namespace
}  // namespace kordll
