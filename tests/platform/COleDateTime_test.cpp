#include "kordll/platform/COleDateTime.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <string>
#include <vector>

namespace kordll {
namespace {

std::string Fmt(const COleDateTime& d, const char* format) { return d.Format(format).ToUtf8(); }

std::string Parts(const COleDateTime& d) {
  return CString::Formatted("%04d-%02d-%02d %02d:%02d:%02d", d.GetYear(), d.GetMonth(), d.GetDay(),
                            d.GetHour(), d.GetMinute(), d.GetSecond())
      .ToUtf8();
}

// ---- Construction and the day count ----------------------------------------

// Parts and the day count both ways, the count negative before day 0 with
// the time fraction still counting forward.
TEST(COleDateTimeTest, KnownDatesAcrossTheRange) {
  const struct {
    int y, mo, d, h, mi, s;
    double date;
  } rows[] = {{1899, 12, 30, 0, 0, 0, 0.0},
              {2005, 11, 6, 12, 0, 0, 38662.5},
              {1899, 12, 29, 6, 0, 0, -1.25},
              {100, 1, 1, 0, 0, 0, -657434.0},
              {9999, 12, 31, 23, 59, 59, 2958465.999988426}};
  for (const auto& r : rows) {
    const std::string want =
        CString::Formatted("%04d-%02d-%02d %02d:%02d:%02d", r.y, r.mo, r.d, r.h, r.mi, r.s)
            .ToUtf8();
    SCOPED_TRACE(want);
    COleDateTime d(r.y, r.mo, r.d, r.h, r.mi, r.s);
    ASSERT_EQ(COleDateTime::valid, d.GetStatus());
    EXPECT_NEAR(r.date, d.GetDATE(), 1e-8);
    EXPECT_EQ(want, Parts(d));
    EXPECT_EQ(want, Parts(COleDateTime(r.date)));
  }
  // Parts are read to the nearest second: 10:00 is no exact fraction of a day.
  COleDateTime ten(2005, 11, 7, 10, 0, 0);
  EXPECT_EQ("2005-11-07 10:00:00", Parts(ten));
  EXPECT_EQ("2005-11-07 10:00:00", Parts(COleDateTime(ten.GetDATE() - 0.4 / 86400)));
}

TEST(COleDateTimeTest, SetDateTimeRefusesPartsOutsideTheCalendar) {
  const int bad[][6] = {{2005, 2, 29, 0, 0, 0}, {1900, 2, 29, 0, 0, 0}, {2005, 4, 31, 0, 0, 0},
                        {2005, 13, 1, 0, 0, 0}, {2005, 1, 1, 24, 0, 0}, {99, 1, 1, 0, 0, 0},
                        {10000, 1, 1, 0, 0, 0}};
  for (const auto& p : bad) {
    COleDateTime d;
    EXPECT_EQ(1, d.SetDateTime(p[0], p[1], p[2], p[3], p[4], p[5]))
        << p[0] << "-" << p[1] << "-" << p[2] << " " << p[3] << ":" << p[4] << ":" << p[5];
    EXPECT_EQ(COleDateTime::invalid, d.GetStatus());
    EXPECT_EQ(-1, d.GetYear());
  }
  COleDateTime leap;
  EXPECT_EQ(0, leap.SetDate(2000, 2, 29));
  EXPECT_EQ(COleDateTime::valid, leap.GetStatus());
  EXPECT_EQ(COleDateTime::invalid, COleDateTime(-700000.0).GetStatus());
  EXPECT_EQ(COleDateTime::invalid, COleDateTime(3000000.0).GetStatus());
  EXPECT_EQ(COleDateTime::invalid, COleDateTime(NAN).GetStatus());
  EXPECT_EQ(COleDateTime::invalid, COleDateTime(INFINITY).GetStatus());
  EXPECT_EQ(COleDateTime::valid, COleDateTime(2958465.5).GetStatus());
}

// ---- Arithmetic and comparison ---------------------------------------------

TEST(COleDateTimeTest, SpanArithmeticMovesTheDate) {
  COleDateTime d(2005, 2, 28, 23, 30, 0);
  EXPECT_EQ("2005-03-01 00:30:00", Parts(d + COleDateTimeSpan(0, 1, 0, 0)));
  EXPECT_EQ("2005-02-27 23:30:00", Parts(d - COleDateTimeSpan(1, 0, 0, 0)));
  EXPECT_EQ("2004-02-29 23:30:00", Parts(d - COleDateTimeSpan(365, 0, 0, 0)));
  // Across day zero the linear count is used.
  EXPECT_EQ("1899-12-29 21:00:00",
            Parts(COleDateTime(1899, 12, 30, 3, 0, 0) - COleDateTimeSpan(0, 6, 0, 0)));
  COleDateTime before(1899, 12, 29, 6, 0, 0);
  EXPECT_EQ("1899-12-30 06:00:00", Parts(before + COleDateTimeSpan(1, 0, 0, 0)));
  COleDateTimeSpan span = COleDateTime(1899, 12, 30, 6, 0, 0) - before;
  EXPECT_DOUBLE_EQ(1.0, span.GetTotalDays());
  EXPECT_TRUE(before < COleDateTime(1899, 12, 29, 7, 0, 0));
  // Leaving the range gives an invalid date.
  EXPECT_EQ(COleDateTime::invalid,
            (COleDateTime(9999, 12, 31, 23, 0, 0) + COleDateTimeSpan(0, 1, 0, 0)).GetStatus());
  EXPECT_EQ(COleDateTime::invalid,
            (COleDateTime(100, 1, 1, 0, 0, 0) - COleDateTimeSpan(0, 0, 0, 1)).GetStatus());
  EXPECT_EQ(COleDateTime::invalid,
            (COleDateTime(2005, 1, 1, 0, 0, 0) + COleDateTimeSpan(1e300)).GetStatus());
  // Null and invalid propagate.
  COleDateTime valid_date(2005, 1, 1, 0, 0, 0);
  COleDateTime invalid_date;
  invalid_date.SetStatus(COleDateTime::invalid);
  COleDateTime null_date;
  null_date.SetStatus(COleDateTime::null);
  COleDateTimeSpan one(1, 0, 0, 0);
  COleDateTimeSpan null_span;
  null_span.SetStatus(COleDateTimeSpan::null);

  EXPECT_EQ(COleDateTime::invalid, (invalid_date + one).GetStatus());
  EXPECT_EQ(COleDateTime::null, (null_date + one).GetStatus());
  EXPECT_EQ(COleDateTime::null, (valid_date + null_span).GetStatus());
  EXPECT_EQ(COleDateTimeSpan::invalid, (valid_date - invalid_date).GetStatus());
  EXPECT_EQ(COleDateTimeSpan::null, (null_date - invalid_date).GetStatus());
  // Comparisons order valid dates only.
  EXPECT_FALSE(invalid_date < valid_date || valid_date < invalid_date);
}

// ---- Format ----------------------------------------------------------------

TEST(COleDateTimeFormatTest, ConversionsTheLibraryUses) {
  COleDateTime d(2005, 11, 7, 21, 5, 9);
  EXPECT_EQ("11/07/05@21:05", Fmt(d, "%m/%d/%y@%H:%M"));
  EXPECT_EQ("11:07:2005:21:05", Fmt(d, "%m:%d:%Y:%H:%M"));
  EXPECT_EQ("Monday, November 07, 2005 @ 21:05", Fmt(d, "%A, %B %d, %Y @ %H:%M"));
  EXPECT_EQ("Mon, November 07, 2005 @ 09:05 PM", Fmt(d, "%a, %B %d, %Y @ %I:%M %p"));
  EXPECT_EQ("12:00 AM", Fmt(COleDateTime(2005, 1, 1, 0, 0, 0), "%I:%M %p"));
}

TEST(COleDateTimeFormatTest, NamesAreEnglishWhateverTheProcessLocale) {
  const char* previous = std::setlocale(LC_ALL, nullptr);
  std::string saved = previous ? previous : "C";
  // Any of these that the machine has would rename months for strftime.
  if (!std::setlocale(LC_ALL, "de_DE.UTF-8")) std::setlocale(LC_ALL, "fr_FR.UTF-8");
  COleDateTime d(2005, 3, 1, 0, 0, 0);
  EXPECT_EQ("Tuesday March Tue Mar", Fmt(d, "%A %B %a %b"));
  std::setlocale(LC_ALL, saved.c_str());
}

TEST(COleDateTimeFormatTest, InvalidNullAndOverlongResults) {
  COleDateTime d;
  d.SetStatus(COleDateTime::invalid);
  EXPECT_EQ("Invalid DateTime", Fmt(d, "%Y"));
  d.SetStatus(COleDateTime::null);
  EXPECT_EQ("", Fmt(d, "%Y"));
  COleDateTime ok(2005, 1, 1, 0, 0, 0);
  EXPECT_EQ(255u, ok.Format(CString(std::u16string(255, u'x'))).str().size());
  EXPECT_EQ("", Fmt(ok, std::string(256, 'x').c_str()));
  // 64 weekday names are far beyond 255 characters.
  std::string many;
  for (int i = 0; i < 64; ++i) many += "%A";
  EXPECT_EQ("", Fmt(ok, many.c_str()));
}

// The default shape and its reading back are the XML file's tests; a year
// of three digits reads back too.
TEST(COleDateTimeFormatTest, DefaultShapeOfAnEarlyYearReadsBack) {
  COleDateTime back, early(150, 1, 1, 0, 0, 0);
  ASSERT_TRUE(back.ParseDateTime(early.Format()));
  EXPECT_EQ(150, back.GetYear());
}

// ---- ParseDateTime ---------------------------------------------------------

struct ParseCase {
  const char* text;
  const char* parts;  // nullptr: refused
};

TEST(COleDateTimeParseTest, AcceptsThePlainLocalShapes) {
  const ParseCase cases[] = {{"  11/07/2005  ", "2005-11-07 00:00:00"},
                             {"1/2/29", "2029-01-02 00:00:00"},
                             {"2005-11-03\t9:15:43", "2005-11-03 09:15:43"},
                             {"11/7/2005 10:00:30 pm", "2005-11-07 22:00:30"},
                             {"11/7/2005 12:30PM", "2005-11-07 12:30:00"}};
  for (const auto& c : cases) {
    COleDateTime d;
    d.SetStatus(COleDateTime::invalid);
    EXPECT_TRUE(d.ParseDateTime(c.text, 0, LANG_USER_DEFAULT)) << c.text;
    EXPECT_EQ(COleDateTime::valid, d.GetStatus()) << c.text;
    EXPECT_EQ(c.parts, Parts(d)) << c.text;
  }
}

TEST(COleDateTimeParseTest, RefusesEveryOtherShape) {
  // clang-format off
  const char* refused[] = {
      "", "   ", "Mon, 07 Nov 2005 10:00:00 GMT", "11/03/05@10:00", "2005-11-03T09:15",
      "2005-11-03 09:15:43Z", "11:07:2005:10:00", "11/7", "11/7/205", "2005-1-3",
      "11/7/2005 10", "11/7/2005 10:00 XM", "11/7/2005 13:00 PM", "11/7/2005 0:30 AM",
      "11/7/2005 10:00 AM x", "2/31/2005", "11/7/2005 24:00", "-11/7/2005", "0050-01-01"};
  // clang-format on
  for (const char* text : refused) {
    COleDateTime d(2001, 1, 1, 0, 0, 0);
    EXPECT_FALSE(d.ParseDateTime(text)) << text;
    EXPECT_EQ(COleDateTime::invalid, d.GetStatus()) << text;
  }
}

TEST(COleDateTimeParseTest, SurvivesHostileTextAndReadsUpToTheFirstNul) {
  COleDateTime d;
  EXPECT_FALSE(d.ParseDateTime(CString(std::u16string(100000, u'9'))));
  EXPECT_FALSE(d.ParseDateTime(CString(u"11/7/2005 10:00 A")));
  EXPECT_FALSE(d.ParseDateTime(CString(u"\xD800/7/2005")));
  // The reader takes a C string: what follows a U+0000 is not seen.
  std::u16string with_nul = u"11/7/2005 10:30";
  with_nul.push_back(u'\0');
  with_nul += u"GMT junk";
  EXPECT_TRUE(d.ParseDateTime(CString(with_nul)));
  EXPECT_EQ("2005-11-07 10:30:00", Parts(d));
  std::u16string nul_first(1, u'\0');
  nul_first += u"11/7/2005";
  EXPECT_FALSE(d.ParseDateTime(CString(nul_first)));
  EXPECT_EQ(COleDateTime::invalid, d.GetStatus());
}

}  // namespace
}  // namespace kordll
