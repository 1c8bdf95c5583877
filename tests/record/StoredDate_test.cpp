// The short way of reading stored dates must give exactly the date of the
// full reader for every text it takes, and hand every other text on.

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "kordll/core/DateText.h"
#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/Clock.h"

namespace kordll {
namespace {

struct Checker {
  int taken = 0;
  // Reads text both ways; true when the short way took it.
  bool Check(std::u16string_view units) {
    const CString text(units);
    const COleDateTime full = DateText::StringToDateTime(text, 0);
    COleDateTime fast(1234.5);
    const bool took = DateText::ReadStoredShape(text, &fast);
    const COleDateTime both = DateText::StoredTextToDateTime(text);
    const std::string shown = text.ToUtf8();
    if (took) {
      ++taken;
      EXPECT_EQ(fast.GetStatus(), full.GetStatus()) << shown;
      EXPECT_EQ(fast.GetDATE(), full.GetDATE()) << shown;
    } else {
      EXPECT_EQ(fast.GetDATE(), 1234.5) << "refused text changed the date: " << shown;
    }
    EXPECT_EQ(both.GetStatus(), full.GetStatus()) << shown;
    EXPECT_EQ(both.GetDATE(), full.GetDATE()) << shown;
    return took;
  }
};

std::u16string Two(int n) { return {char16_t(u'0' + n / 10 % 10), char16_t(u'0' + n % 10)}; }

std::u16string Shape(int month, int day, int year, int hour, int minute) {
  return Two(month) + u"/" + Two(day) + u"/" + Two(year) + u"@" + Two(hour) + u":" + Two(minute);
}

// Under three "now"s, since the short year is widened by the current year:
// "00" is 1900 (refused) before 2000, "49" is 1949 or 2049.
class StoredDateTest : public ::testing::TestWithParam<int> {
 protected:
  ScopedManualClock clock_{GetParam(), 6, 15, 12, 0, 0};
  Checker check_;
};

TEST_P(StoredDateTest, TrickyTextsAgree) {
  // Well-formed shapes (a day past its month's end, which both readers treat
  // alike, and minute 60), shapes of another width or separator, and texts that the
  // full reader reads another way (a four-digit year, full-width digits, a
  // zone or seconds after the time).
  const char16_t* texts[] = {u"11/07/05@10:00",           u"12/31/99@23:59", u"02/29/00@00:00",
                             u"02/29/01@00:00",           u"04/31/05@10:00", u"11/07/05@23:60",
                             u" 11/07/05@10:00",          u"11/7/05@10:00",  u"+1/07/05@10:00",
                             u"11/07/2005@10:00",         u"11/07/05T10:00", u"11/07/05@10:00 GMT",
                             u"\uff11\uff11/07/05@10:00", u"11/07/05 10:00", u"",
                             u"11/07/05@10:00:30"};
  for (const char16_t* t : texts) check_.Check(t);
  check_.Check(std::u16string(u"11/07/05@10:00\0xy", 17));
  check_.Check(std::u16string(u"11/07/05@10:0\0", 14));
  EXPECT_EQ(check_.taken, 5);  // the well-formed texts with each field in its range
}

TEST_P(StoredDateTest, EveryFieldBoundaryAgrees) {
  for (int month = 0; month <= 13; ++month) {
    for (int day = 0; day <= 32; ++day) {
      for (int year = 0; year <= 99; ++year) check_.Check(Shape(month, day, year, 23, 59));
    }
  }
  for (int hour = 0; hour <= 25; ++hour) {
    for (int minute = 0; minute <= 61; ++minute) check_.Check(Shape(2, 29, 4, hour, minute));
  }
  // Every text the store writes for a calendar day takes the short way.
  for (int year = 1950; year <= 2049; ++year) {
    const COleDateTime d(year, year % 12 + 1, year % 28 + 1, year % 24, year % 60, 0);
    EXPECT_TRUE(check_.Check(DateText::DateTimeToSimpleString(d).view()));
  }
}

// (Arbitrary texts get the same check from the stored-date fuzz target.)
INSTANTIATE_TEST_SUITE_P(Now, StoredDateTest, ::testing::Values(1999, 2026, 2049));

}  // namespace
}  // namespace kordll
