// Reading dates: the forms in their order, the two year rules, validation,
// the day reader and the internal shape.

#include "kordll/toolkit/KorlanDateTime.h"

#include <gtest/gtest.h>

#include "kordll/platform/Clock.h"
#include "kordll/platform/TimeZone.h"

namespace kordll {
namespace {

std::string Show(const COleDateTime& d) {
  if (d.GetStatus() != COleDateTime::valid) return "invalid";
  return d.Format("%Y-%m-%d %H:%M:%S").ToUtf8();
}

// Every test reads with "now" at 15 June 2010 15:05 in a zone without offset.
class KorlanReadTest : public ::testing::Test {
 protected:
  KorlanReadTest() : tz_("UTC0"), clock_(2010, 6, 15, 15, 5, 0) {}

  static std::string Read(const char* text) {
    return Show(KorlanDateTime::StringToDateTime(CString(text), 0));
  }
  static int Form(const char* text) {
    KorlanDateTime::ReadInfo info;
    KorlanDateTime::StringToDateTimeExplained(CString(text), 0, &info);
    return info.form;
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
TEST_F(KorlanReadTest, EachFormTakesItsShape) {
  const FormCase cases[] = {{"11/7/2005 10:00", 0, "2005-11-07 10:00:00"},
                            {"2005-11-03 09:15:43", 0, "2005-11-03 09:15:43"},
                            {"Tue, 08 Nov 2005 23:59:59 +0100", 1, "2005-11-08 23:59:59"},
                            {"Mon, 07 Nov 2005 10:00 -0500", 2, "2005-11-07 10:00:00"},
                            {"2005-11-03T09:15:43-05:00", 3, "2005-11-03 09:15:43"},
                            {"2005-11-03T09:15:43.123+01:00", 3, "2005-11-03 09:15:43"},
                            {"07 Nov 2005 10:00:00 GMT", 5, "2005-11-07 10:00:00"},
                            {"11/07/05@10:00", 6, "2005-11-07 10:00:00"},
                            {"11/07/2005 @ 10:00", 6, "2005-11-07 10:00:00"},
                            {"11/03/05 10:00 GMT", 7, "2005-11-03 10:00:00"},
                            {"2005-11-03T09:15Z", 8, "2005-11-03 09:15:00"},
                            {"2005-11-03T09:15+01:00", 8, "2005-11-03 09:15:00"},
                            {"Monday November 7, 2005 @ 10:00", 9, "2005-11-07 10:00:00"},
                            {"07 Nov 2005 10:00 GMT", 10, "2005-11-07 10:00:00"},
                            {"Mon, 07 Nov 2005 10:00:30", 2, "2005-11-07 10:00:30"},
                            {"2005-11-03T09:15:43", 8, "2005-11-03 09:15:00"},
                            {"11/03/2005 10:00 GMT", 7, "2005-11-03 10:00:00"},
                            {"Fri, 07 Nov 2005 10:00:00 GMT", 1, "2005-11-07 10:00:00"},
                            {"xyz 07 Nov 2005 10:00:00 GMT", 1, "2005-11-07 10:00:00"}};
  for (const auto& c : cases) {
    EXPECT_EQ(c.form, Form(c.text)) << c.text;
    EXPECT_EQ(c.date, Read(c.text)) << c.text;
  }
  for (const char* text : {"", " ", "hello", "10:00", "2005", "11/7", "Nov 7 2005", "07 Nov 2005",
                           "2005-11-03T", "Monday, November 7, 2005 10:00"}) {
    EXPECT_EQ("invalid", Read(text)) << text;
    EXPECT_EQ(-1, Form(text)) << text;
  }
}

TEST_F(KorlanReadTest, HostileTextEndsInAnAnswer) {
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
TEST_F(KorlanReadTest, ShortYearsWiden) {
  const struct {
    const char* text;
    const char* date;
  } cases[] = {{"Mon, 07 Nov 05 10:00:00 GMT", "2005-11-07 10:00:00"},
               {"Mon, 07 Nov 15 10:00:00 GMT", "1915-11-07 10:00:00"},
               {"Mon, 07 Nov 15 10:00 GMT", "1915-11-07 10:00:00"},
               {"07 Nov 15 10:00 GMT", "1915-11-07 10:00:00"},
               {"11/03/15@10:00", "1915-11-03 10:00:00"},
               {"11/03/10@10:00", "2010-11-03 10:00:00"},
               {"11/03/0@10:00", "2000-11-03 10:00:00"},
               {"11/03/05 10:00 GMT", "2005-11-03 10:00:00"},
               {"11/03/15 10:00 GMT", "1915-11-03 10:00:00"},
               {"11/03/99 10:00 GMT", "1999-11-03 10:00:00"},
               {"9-11-03T09:15:43Z", "2009-11-03 09:15:43"},
               {"10-11-03T09:15:43Z", "1910-11-03 09:15:43"},
               {"-1-11-03T09:15:43Z", "1999-11-03 09:15:43"},
               {"07 Nov 15 10:00:00 GMT", "1915-11-07 10:00:00"},
               {"15-11-03T09:15Z", "1915-11-03 09:15:00"},
               {"Monday November 7, 15 @ 10:00", "1915-11-07 10:00:00"},
               {"Monday November 7, 5 @ 10:00", "2005-11-07 10:00:00"},
               {"Mon, 07 Nov 150 10:00:00 GMT", "invalid"},
               {"Mon, 07 Nov 150 10:00 GMT", "invalid"}};
  for (const auto& c : cases) EXPECT_EQ(c.date, Read(c.text)) << c.text;
}

TEST_F(KorlanReadTest, NearestPastCenturyFollowsTheClock) {
  clock_.SetLocalNow(COleDateTime(2016, 1, 1, 0, 0, 0));
  EXPECT_EQ("2015-11-03 10:00:00", Read("11/03/15@10:00"));
  EXPECT_EQ("2015-11-07 10:00:00", Read("07 Nov 15 10:00 GMT"));
  // The fixed window of form 7 does not look at the clock.
  EXPECT_EQ("1915-11-03 10:00:00", Read("11/03/15 10:00 GMT"));
}

// ---- Validation -----------------------------------------------------------------

TEST_F(KorlanReadTest, DateOutsideTheCalendarIsInvalid) {
  for (const char* text :
       {"2005-13-03T09:15:43Z", "2005-00-03T09:15:43Z", "2005-11-32T09:15:43Z",
        "2005-11-00T09:15:43Z", "1900-12-31T23:59:59Z", "Mon, 07 Foo 2005 10:00:00 GMT",
        "Mon, 07 Mrz 2005 10:00:00 GMT", "Mon, 31 Feb 2005 10:00:00 GMT", "13/03/05@10:00",
        "02/30/05 10:00 GMT"}) {
    EXPECT_EQ("invalid", Read(text)) << text;
  }
  EXPECT_EQ("1901-01-01 00:00:00", Read("1901-01-01T00:00:00Z"));
}

TEST_F(KorlanReadTest, TimeOutOfRangeKeepsTheDay) {
  for (const char* text : {"2005-11-03T24:00:00Z", "2005-11-03T09:60:00Z", "2005-11-03T09:15:60Z",
                           "Mon, 03 Nov 2005 -1:00:00 GMT", "11/03/05@25:00"})
    EXPECT_EQ("2005-11-03 00:00:00", Read(text)) << text;
}

TEST(KorlanMonthTest, FirstThreeLettersCount) {
  const struct {
    const char* word;
    int month;
  } cases[] = {{"Jan", 1},  {"JANUARY", 1}, {"Sept", 9},  {"Marzo", 3}, {"dec.", 12},
               {"Mrz", -1}, {"ja", -1},     {" jan", -1}, {"", -1}};
  for (const auto& c : cases)
    EXPECT_EQ(c.month, KorlanDateTime::GetMonth(CString(c.word))) << c.word;
}

// The day reader keeps the day of the scanned forms without checking their
// time; the plain reader keeps the time; the stored shape always gets 2000
// years and is not widened by the clock; the other shapes of the full reader
// it lacks.
TEST_F(KorlanReadTest, DayReaderTakesFewerShapes) {
  const struct {
    const char* text;
    const char* date;
  } cases[] = {{"Mon, 07 Nov 2005 10:00:00 GMT", "2005-11-07 00:00:00"},
               {"2005-11-03T09:15:43Z", "2005-11-03 00:00:00"},
               {"2005-11-03T09:15:43+01:00", "2005-11-03 00:00:00"},
               {"07 Nov 2005 10:00:00 GMT", "2005-11-07 00:00:00"},
               {"11/03/05 10:00 GMT", "2005-11-03 00:00:00"},
               {"2005-11-03T09:15Z", "2005-11-03 00:00:00"},
               {"2005-11-03T99:99:99Z", "2005-11-03 00:00:00"},
               {"11/7/2005 10:30", "2005-11-07 10:30:00"},
               {"12/25/05 @10:00", "2005-12-25 00:00:00"},
               {"12/25/2005 @10:00", "4005-12-25 00:00:00"},
               {"12/25/15@10:00", "2015-12-25 00:00:00"},
               {"", "invalid"},
               {"Mon, 07 Nov 2005 10:00 GMT", "invalid"},
               {"07 Nov 2005 10:00 GMT", "invalid"},
               {"Monday November 7, 2005 @ 10:00", "invalid"},
               {"2005-13-03T09:15:43Z", "invalid"},
               {"12/25/2147483647 @10:00", "invalid"}};
  for (const auto& c : cases)
    EXPECT_EQ(c.date, Show(KorlanDateTime::StringToDate(CString(c.text)))) << c.text;
}

// ---- The internal shape ------------------------------------------------------

TEST(KorlanHtmlFormatTest, WritesAndReadsBack) {
  COleDateTime d(2005, 11, 7, 9, 5, 0);
  CString text = KorlanDateTime::GetDateTimeInHTMLFormat(d);
  EXPECT_EQ("11:07:2005:09:05", text.ToUtf8());
  EXPECT_EQ("2005-11-07 09:05:00", Show(KorlanDateTime::GetHTMLFormatedDateTimeInOle(text)));
  COleDateTime bad;
  bad.SetStatus(COleDateTime::invalid);
  EXPECT_EQ("::::", KorlanDateTime::GetDateTimeInHTMLFormat(bad).ToUtf8());
  EXPECT_EQ("invalid", Show(KorlanDateTime::GetHTMLFormatedDateTimeInOle(CString("::::"))));
  // Only five fields of a calendar date are read.
  for (const char* text : {"11:07:2005:09", "2:30:2005:1:1", "11:07:2005:24:00"})
    EXPECT_EQ("invalid", Show(KorlanDateTime::GetHTMLFormatedDateTimeInOle(CString(text)))) << text;
  EXPECT_EQ("150-01-02 03:04:00",
            Show(KorlanDateTime::GetHTMLFormatedDateTimeInOle(CString(" 1: 2:150:3:4 tail"))));
}

}  // namespace
}  // namespace kordll
