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

class KorlanLocalTest : public ::testing::Test {
 protected:
  KorlanLocalTest() : clock_(2010, 6, 15, 15, 5, 0) {}
  ScopedManualClock clock_;
};

// The zone of the text moves the date to GMT, and the machine's bias from
// there to local standard time (daylight saving is not considered).
TEST_F(KorlanLocalTest, ZoneOfTheTextAndTheMachineBiasMoveTheDate) {
  const struct {
    const char* zone;
    const char* text;
    const char* local;
  } cases[] = {{"UTC0", "Mon, 07 Nov 2005 10:00:00 EST", "2005-11-07 15:00:00"},
               {"UTC0", "Mon, 07 Nov 2005 10:00 IST", "2005-11-07 04:30:00"},
               {"UTC0", "07 Nov 2005 10:00:00 NST", "2005-11-07 13:30:00"},
               {"UTC0", "2005-11-03T09:15:43-05:00", "2005-11-03 14:15:43"},
               {"UTC0", "2005-11-03T09:15:43+01:00", "2005-11-03 08:15:43"},
               {"UTC0", "2005-11-03T09:15:43Z", "2005-11-03 09:15:43"},
               {"UTC0", "2005-11-03T09:15:43-0530", "2005-11-03 14:45:43"},
               {"UTC0", "11/03/2005 10:15 PDT", "2005-11-03 17:15:00"},
               {"UTC0", "2005-11-03T09:15+01:00", "2005-11-03 08:15:00"},
               {"UTC0", "Mon, 07 Nov 2005 10:00:00 +0200", "2005-11-07 08:00:00"},
               {"UTC0", "Mon, 07 Nov 2005 10:00:00 GMT-5", "2005-11-07 15:00:00"},
               {"UTC0", "Sat, 31 Dec 2005 23:00:00 EST", "2006-01-01 04:00:00"},  // the year's end
               // A zone of zero whole hours is dropped with its minutes.
               {"UTC0", "2005-11-03T09:15:43+00:30", "2005-11-03 09:15:43"},
               {"UTC0", "Mon, 07 Nov 2005 10:00:00 +0030", "2005-11-07 10:00:00"},
               // Unknown zones count as GMT.
               {"UTC0", "Mon, 07 Nov 2005 10:00:00 AKST", "2005-11-07 10:00:00"},
               {"UTC0", "2005-11-03T09:15:43.123+01:00", "2005-11-03 09:15:43"},
               {"UTC0", "Monday November 7, 2005 @ 10:00", "2005-11-07 10:00:00"},
               {"UTC0", "Mon, 07 Nov 2005 10:00:00 AT", "2005-11-07 19:00:00"},
               {"EST5EDT", "Mon, 07 Nov 2005 10:00:00 EST", "2005-11-07 10:00:00"},
               {"EST5EDT", "Mon, 07 Nov 2005 10:00:00 GMT", "2005-11-07 05:00:00"},
               {"EST5EDT", "Fri, 01 Jul 2005 10:00:00 GMT", "2005-07-01 05:00:00"},
               {"IST-5:30", "Mon, 07 Nov 2005 10:00:00 GMT", "2005-11-07 15:30:00"},
               {"NST3:30NDT", "Mon, 07 Nov 2005 10:00:00 GMT", "2005-11-07 06:30:00"},
               // Text the plain reader takes is GMT.
               {"EST5EDT", "11/7/2005 10:00", "2005-11-07 05:00:00"},
               // Invalid dates stay invalid; an absurd offset leaves the calendar.
               {"EST5EDT", "Mon, 07 Foo 2005 10:00:00 EST", "invalid"},
               {"EST5EDT", "", "invalid"},
               {"UTC0", "Mon, 07 Nov 2005 10:00:00 -99999999:00", "invalid"},
               {"UTC0", "Mon, 07 Nov 2005 10:00:00 GMT+2147483647", "invalid"}};
  for (const auto& c : cases) {
    ScopedTimeZone tz(c.zone);
    EXPECT_EQ(c.local, Show(KorlanDateTime::StringToDateTime(CString(c.text), 1)))
        << c.zone << " " << c.text;
  }
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

// The explained reading tells "form word hours minutes west applied"; without
// the move to local time the offset is read and dropped.
TEST_F(KorlanLocalTest, ExplainedReadingTellsTheZone) {
  ScopedTimeZone tz("EST5EDT");
  const struct {
    const char* text;
    int toLocal;
    const char* read;
    const char* explained;
  } cases[] = {{"2005-11-03T09:15:43-05:00", 0, "2005-11-03 09:15:43", "3 -05:00 5 0 1 0"},
               {"2005-11-03T09:15:43-05:00", 1, "2005-11-03 09:15:43", "3 -05:00 5 0 1 1"},
               {"Mon, 07 Nov 2005 10:00 IST", 1, "2005-11-06 23:30:00", "2 IST 5 30 0 1"},
               {"11/7/2005 10:00", 1, "2005-11-07 05:00:00", "0  0 0 1 0"}};
  for (const auto& c : cases) {
    KorlanDateTime::ReadInfo info;
    COleDateTime d = KorlanDateTime::StringToDateTimeExplained(CString(c.text), c.toLocal, &info);
    EXPECT_EQ(c.read, Show(d)) << c.text;
    EXPECT_EQ(c.explained,
              std::to_string(info.form) + " " + info.zone_word.ToUtf8() + " " +
                  std::to_string(info.zone_hours) + " " + std::to_string(info.zone_minutes) + " " +
                  std::to_string(info.zone_west) + " " + std::to_string(info.zone_applied))
        << c.text;
  }
}

}  // namespace
}  // namespace kordll
