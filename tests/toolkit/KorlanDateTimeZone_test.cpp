// Zones: the zone words and numeric offsets, and the move to local time.

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "kordll/platform/Clock.h"
#include "kordll/platform/TimeZone.h"
#include "kordll/toolkit/KorlanDateTime.h"

namespace kordll {
namespace {

std::string Show(const COleDateTime& d) {
  if (d.GetStatus() != COleDateTime::valid) return "invalid";
  return d.Format("%Y-%m-%d %H:%M:%S").ToUtf8();
}

// The triple after GetTimeZoneInfo, starting from a sentinel so that what
// was not written shows as "-".
std::string Zone(const char16_t* text) {
  int hours = -99, minutes = -99, west = -99;
  KorlanDateTime::GetTimeZoneInfo(text, &hours, &minutes, &west);
  auto part = [](int v) { return v == -99 ? std::string("-") : std::to_string(v); };
  return part(hours) + " " + part(minutes) + " " + part(west);
}

// ---- Zone words ---------------------------------------------------------------

TEST(KorlanZoneWordTest, ThreeLetterWordsFromTheTable) {
  EXPECT_EQ("0 - 0", Zone(u"GMT"));
  EXPECT_EQ("0 - 0", Zone(u"gmt"));
  EXPECT_EQ("1 - 0", Zone(u"CET"));
  EXPECT_EQ("5 - 1", Zone(u"EST"));
  EXPECT_EQ("4 - 1", Zone(u"EDT"));
  EXPECT_EQ("8 - 1", Zone(u"pst"));
  EXPECT_EQ("3 - 0", Zone(u"MSK"));
  EXPECT_EQ("5 30 0", Zone(u"IST"));
  EXPECT_EQ("3 30 1", Zone(u"NST"));
  EXPECT_EQ("9 - 0", Zone(u"JST"));
  EXPECT_EQ("10 - 0", Zone(u"GST"));
  EXPECT_EQ("1 - 1", Zone(u"WAT"));
  EXPECT_EQ("10 - 1", Zone(u"HST"));
  EXPECT_EQ("10 - 1", Zone(u"CAT"));
}

TEST(KorlanZoneWordTest, UnknownAndLongerWordsWriteNothing) {
  EXPECT_EQ("- - -", Zone(u"XYZ"));
  EXPECT_EQ("- - -", Zone(u"UTC"));
  EXPECT_EQ("- - -", Zone(u"+05"));
  EXPECT_EQ("- - -", Zone(u":43"));
  for (const char16_t* word : {u"AKST", u"AKDT", u"AWST", u"ACST", u"AEST"}) {
    EXPECT_EQ("- - -", Zone(word));
  }
  EXPECT_EQ("- - -", Zone(u""));
  EXPECT_EQ("- - -", Zone(u".123+01:00"));
  EXPECT_EQ("- - -", Zone(u"Z"));
  EXPECT_EQ("- - -", Zone(u"z"));
}

TEST(KorlanZoneWordTest, NullTextClearsHoursAndWest) { EXPECT_EQ("0 - 0", Zone(nullptr)); }

TEST(KorlanZoneWordTest, AtIsNineHoursWest) {
  EXPECT_EQ("9 - 1", Zone(u"AT"));
  EXPECT_EQ("9 - 1", Zone(u"at"));
}

TEST(KorlanZoneWordTest, NumericOffsetsWithColon) {
  EXPECT_EQ("5 0 1", Zone(u"-05:00"));
  EXPECT_EQ("5 30 1", Zone(u"-5:30"));
  EXPECT_EQ("1 0 0", Zone(u"+01:00"));
  EXPECT_EQ("5 45 0", Zone(u"+05:45"));
  EXPECT_EQ("5 30 0", Zone(u"05:30"));
}

TEST(KorlanZoneWordTest, GmtPlusAndMinusAreCaseSensitive) {
  EXPECT_EQ("3 - 0", Zone(u"GMT+3"));
  EXPECT_EQ("4 - 1", Zone(u"GMT-4"));
  EXPECT_EQ("10 - 0", Zone(u"GMT+10:30"));
  EXPECT_EQ("- - -", Zone(u"gmt+3"));
}

TEST(KorlanZoneWordTest, FiveCharacterOffsets) {
  EXPECT_EQ("- - 0", Zone(u"+0000"));
  EXPECT_EQ("- - 1", Zone(u"-0000"));
  EXPECT_EQ("5 30 1", Zone(u"-0530"));
  EXPECT_EQ("1 0 0", Zone(u"+0100"));
  EXPECT_EQ("0 30 0", Zone(u"+0030"));
  // The digits are not checked.
  EXPECT_EQ("188 210 0", Zone(u"+ABCD"));
  EXPECT_EQ("- - -", Zone(u"x0100"));
}

TEST(KorlanZoneWordTest, VeryLongWordsAreHarmless) {
  std::u16string word(100000, u'9');
  EXPECT_EQ("- - -", Zone((u"+" + word).c_str()));
  std::u16string colon = u"-" + word + u":" + word;
  // The numbers saturate in the scanner; whatever they read, nothing breaks.
  int hours = 0, minutes = 0, west = 0;
  KorlanDateTime::GetTimeZoneInfo(colon.c_str(), &hours, &minutes, &west);
  EXPECT_EQ(1, west);
  west = 7;
  KorlanDateTime::GetTimeZoneInfo(u"EST", nullptr, &minutes, &west);  // ignored
  EXPECT_EQ(7, west);
}

// ---- Moving to local time ---------------------------------------------------------

class KorlanLocalTest : public ::testing::Test {
 protected:
  KorlanLocalTest() : clock_(2010, 6, 15, 15, 5, 0) {}

  static std::string Local(const char* text) {
    return Show(KorlanDateTime::StringToDateTime(CString(text), 1));
  }

  ScopedManualClock clock_;
};

TEST_F(KorlanLocalTest, ZoneOfTheTextMovesTheDateToGmt) {
  ScopedTimeZone tz("UTC0");
  EXPECT_EQ("2005-11-07 15:00:00", Local("Mon, 07 Nov 2005 10:00:00 EST"));
  EXPECT_EQ("2005-11-07 09:00:00", Local("Mon, 07 Nov 2005 10:00:00 CET"));
  EXPECT_EQ("2005-11-07 04:30:00", Local("Mon, 07 Nov 2005 10:00 IST"));
  EXPECT_EQ("2005-11-07 13:30:00", Local("07 Nov 2005 10:00:00 NST"));
  EXPECT_EQ("2005-11-07 10:00:00", Local("07 Nov 2005 10:00 GMT"));
  EXPECT_EQ("2005-11-03 14:15:43", Local("2005-11-03T09:15:43-05:00"));
  EXPECT_EQ("2005-11-03 08:15:43", Local("2005-11-03T09:15:43+01:00"));
  EXPECT_EQ("2005-11-03 09:15:43", Local("2005-11-03T09:15:43Z"));
  EXPECT_EQ("2005-11-03 14:45:43", Local("2005-11-03T09:15:43-0530"));
  EXPECT_EQ("2005-11-03 17:15:00", Local("11/03/2005 10:15 PDT"));
  EXPECT_EQ("2005-11-03 08:15:00", Local("2005-11-03T09:15+01:00"));
  EXPECT_EQ("2005-11-07 08:00:00", Local("Mon, 07 Nov 2005 10:00:00 +0200"));
  EXPECT_EQ("2005-11-07 15:00:00", Local("Mon, 07 Nov 2005 10:00:00 GMT-5"));
  // Crossing midnight and the year's end.
  EXPECT_EQ("2006-01-01 04:00:00", Local("Sat, 31 Dec 2005 23:00:00 EST"));
}

TEST_F(KorlanLocalTest, WithoutToLocalTheOffsetIsReadAndDropped) {
  ScopedTimeZone tz("EST5EDT");
  KorlanDateTime::ReadInfo info;
  COleDateTime d =
      KorlanDateTime::StringToDateTimeExplained(CString("2005-11-03T09:15:43-05:00"), 0, &info);
  EXPECT_EQ("2005-11-03 09:15:43", Show(d));
  EXPECT_EQ(5, info.zone_hours);
  EXPECT_EQ(1, info.zone_west);
  EXPECT_FALSE(info.zone_applied);
}

TEST_F(KorlanLocalTest, ZoneOfZeroWholeHoursIsDroppedWithItsMinutes) {
  ScopedTimeZone tz("UTC0");
  EXPECT_EQ("2005-11-03 09:15:43", Local("2005-11-03T09:15:43+00:30"));
  EXPECT_EQ("2005-11-03 09:15:43", Local("2005-11-03T09:15:43-00:45"));
  EXPECT_EQ("2005-11-07 10:00:00", Local("Mon, 07 Nov 2005 10:00:00 +0030"));
}

TEST_F(KorlanLocalTest, UnknownZonesCountAsGmt) {
  ScopedTimeZone tz("UTC0");
  EXPECT_EQ("2005-11-07 10:00:00", Local("Mon, 07 Nov 2005 10:00:00 AKST"));
  EXPECT_EQ("2005-11-03 09:15:43", Local("2005-11-03T09:15:43.123+01:00"));
  EXPECT_EQ("2005-11-07 10:00:00", Local("Monday November 7, 2005 @ 10:00"));
  EXPECT_EQ("2005-11-07 19:00:00", Local("Mon, 07 Nov 2005 10:00:00 AT"));
}

TEST_F(KorlanLocalTest, MachineBiasMovesToLocalStandardTime) {
  {
    ScopedTimeZone tz("EST5EDT");
    EXPECT_EQ("2005-11-07 10:00:00", Local("Mon, 07 Nov 2005 10:00:00 EST"));
    EXPECT_EQ("2005-11-07 05:00:00", Local("Mon, 07 Nov 2005 10:00:00 GMT"));
    // Daylight saving is not considered: summer dates move by 5 hours too.
    EXPECT_EQ("2005-07-01 05:00:00", Local("Fri, 01 Jul 2005 10:00:00 GMT"));
  }
  {
    ScopedTimeZone tz("IST-5:30");
    EXPECT_EQ("2005-11-07 15:30:00", Local("Mon, 07 Nov 2005 10:00:00 GMT"));
  }
  {
    ScopedTimeZone tz("NST3:30NDT");
    EXPECT_EQ("2005-11-07 06:30:00", Local("Mon, 07 Nov 2005 10:00:00 GMT"));
  }
}

TEST_F(KorlanLocalTest, PlainReaderTextIsTakenAsGmt) {
  ScopedTimeZone tz("EST5EDT");
  EXPECT_EQ("2005-11-07 05:00:00", Local("11/7/2005 10:00"));
  EXPECT_EQ("2005-07-01 05:00:00", Local("7/1/2005 10:00"));
}

TEST_F(KorlanLocalTest, InvalidDatesStayInvalid) {
  ScopedTimeZone tz("EST5EDT");
  EXPECT_EQ("invalid", Local("Mon, 07 Foo 2005 10:00:00 EST"));
  EXPECT_EQ("invalid", Local(""));
  EXPECT_EQ("invalid", Local("hello"));
  // An absurd offset pushes the date out of the calendar.
  EXPECT_EQ("invalid", Local("Mon, 07 Nov 2005 10:00:00 -99999999:00"));
  EXPECT_EQ("invalid", Local("Mon, 07 Nov 2005 10:00:00 GMT+2147483647"));
}

TEST_F(KorlanLocalTest, ConvertToGmtUndoesTheMoveToLocal) {
  for (const char* tz_name : {"UTC0", "EST5EDT", "IST-5:30", "JST-9", "NST3:30NDT"}) {
    ScopedTimeZone tz(tz_name);
    COleDateTime gmt = KorlanDateTime::StringToDateTime(CString("07 Nov 2005 10:00:00 GMT"), 0);
    COleDateTime local = KorlanDateTime::StringToDateTime(CString("07 Nov 2005 10:00:00 GMT"), 1);
    EXPECT_EQ("2005-11-07 10:00:00", Show(KorlanDateTime::ConvertToGMT(local))) << tz_name;
    EXPECT_EQ(-TimeZone::GetBias(), std::lround((local - gmt).GetTotalMinutes())) << tz_name;
  }
  COleDateTime bad;
  bad.SetStatus(COleDateTime::invalid);
  EXPECT_EQ("invalid", Show(KorlanDateTime::ConvertToGMT(bad)));
}

TEST_F(KorlanLocalTest, ExplainedReadingTellsTheZone) {
  ScopedTimeZone tz("UTC0");
  KorlanDateTime::ReadInfo info;
  KorlanDateTime::StringToDateTimeExplained(CString("Mon, 07 Nov 2005 10:00 IST"), 1, &info);
  EXPECT_EQ(2, info.form);
  EXPECT_EQ(CString("IST"), info.zone_word);
  EXPECT_EQ(5, info.zone_hours);
  EXPECT_EQ(30, info.zone_minutes);
  EXPECT_EQ(0, info.zone_west);
  EXPECT_TRUE(info.zone_applied);

  KorlanDateTime::StringToDateTimeExplained(CString("11/7/2005 10:00"), 1, &info);
  EXPECT_EQ(0, info.form);
  EXPECT_EQ(CString(""), info.zone_word);
  EXPECT_EQ(0, info.zone_hours);
  EXPECT_EQ(1, info.zone_west);
  EXPECT_FALSE(info.zone_applied);

  KorlanDateTime::StringToDateTimeExplained(CString("2005-11-03T09:15:43-05:00"), 1, &info);
  EXPECT_EQ(3, info.form);
  EXPECT_EQ(CString("-05:00"), info.zone_word);
}

}  // namespace
}  // namespace kordll
