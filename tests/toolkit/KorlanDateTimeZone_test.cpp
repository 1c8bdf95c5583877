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

// Three-letter words are looked up without regard to case (a few, not the
// whole table: the odd ones and those with minutes); "AT" is the one shorter
// word; unknown and longer words write nothing. Numeric offsets take a sign
// and a colon, "GMT+n" is case-sensitive, and five-character offsets do not
// check their digits.
TEST(KorlanZoneWordTest, WordsAndOffsets) {
  const struct {
    const char16_t* text;
    const char* zone;
  } cases[] = {{u"GMT", "0 - 0"},       {u"gmt", "0 - 0"},        {u"EST", "5 - 1"},
               {u"pst", "8 - 1"},       {u"IST", "5 30 0"},       {u"NST", "3 30 1"},
               {u"GST", "10 - 0"},      {u"WAT", "1 - 1"},        {u"CAT", "10 - 1"},
               {u"AT", "9 - 1"},        {u"at", "9 - 1"},         {nullptr, "0 - 0"},
               {u"XYZ", "- - -"},       {u"UTC", "- - -"},        {u"+05", "- - -"},
               {u":43", "- - -"},       {u"AKST", "- - -"},       {u"AEST", "- - -"},
               {u"", "- - -"},          {u".123+01:00", "- - -"}, {u"Z", "- - -"},
               {u"z", "- - -"},         {u"-05:00", "5 0 1"},     {u"-5:30", "5 30 1"},
               {u"+01:00", "1 0 0"},    {u"+05:45", "5 45 0"},    {u"05:30", "5 30 0"},
               {u"GMT+3", "3 - 0"},     {u"GMT-4", "4 - 1"},      {u"GMT+10:30", "10 - 0"},
               {u"gmt+3", "- - -"},     {u"+0000", "- - 0"},      {u"-0000", "- - 1"},
               {u"-0530", "5 30 1"},    {u"+0100", "1 0 0"},      {u"+0030", "0 30 0"},
               {u"+ABCD", "188 210 0"}, {u"x0100", "- - -"}};
  for (const auto& c : cases) {
    EXPECT_EQ(c.zone, Zone(c.text)) << (c.text ? CString(c.text).ToUtf8() : "null");
  }
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
