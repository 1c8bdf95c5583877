// The short way of reading stored dates must give exactly the date of the
// full reader for every text it takes, and hand every other text on.

#include <gtest/gtest.h>

#include <random>
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
  const char16_t* texts[] = {u"11/07/05@10:00",
                             u"12/31/99@23:59",
                             u"02/29/00@00:00",
                             u"02/29/01@00:00",
                             u"02/30/05@10:00",
                             u"04/31/05@10:00",
                             u"13/01/05@10:00",
                             u"00/10/05@10:00",
                             u"11/00/05@10:00",
                             u"11/32/05@10:00",
                             u"11/07/05@24:00",
                             u"11/07/05@23:60",
                             u"11/07/05@99:99",
                             u"11/07/05 @10:00",
                             u"11/07/05@ 10:00",
                             u" 11/07/05@10:00",
                             u"11/07/05@10:00 ",
                             u"1/07/05@10:00",
                             u"11/7/05@10:00",
                             u"11/07/5@10:00",
                             u"11/07/2005@10:00",
                             u"11/07/05@1:00",
                             u"11/07/05@10:0",
                             u"11/07/05@10:000",
                             u"+1/07/05@10:00",
                             u"-1/07/05@10:00",
                             u"11/-7/05@10:00",
                             u"11-07-05@10:00",
                             u"11/07/05T10:00",
                             u"11/07/05@10.00",
                             u"11/07/05@10:00Z",
                             u"11/07/05@10:00 GMT",
                             u"\uff11\uff11/07/05@10:00",
                             u"11/07/05 10:00",
                             u"",
                             u"11/07/05@10:00:30"};
  for (const char16_t* t : texts) check_.Check(t);
  check_.Check(std::u16string(u"11/07/05@10:00\0xy", 17));
  check_.Check(std::u16string(u"11/07/05@10:0\0", 14));
  EXPECT_EQ(check_.taken, 6);  // the six well-formed texts in range
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

TEST_P(StoredDateTest, RandomTextsAndMutationsAgree) {
  std::mt19937 random(GetParam());
  const std::u16string pieces(u"0123456789/@: \t-+Tx\0\uff10", 21);
  auto pick = [&](const std::u16string& from) { return from[random() % from.size()]; };
  for (int round = 0; round < 20000; ++round) {
    // Fields drawn a little past their ranges, or any digits at all.
    std::u16string text =
        Shape(random() % 14, random() % 33, random() % 100, random() % 26, random() % 62);
    if (round % 2 != 0) {
      for (size_t i = 0; i < text.size(); ++i) {
        if (i % 3 != 2) text[i] = pick(u"0123456789");
      }
    }
    check_.Check(text);
    const int edits = 1 + random() % 3;
    for (int e = 0; e < edits; ++e) {
      const size_t at = random() % (text.size() + 1);
      switch (random() % 3) {
        case 0:
          text.insert(text.begin() + at, pick(pieces));
          break;
        case 1:
          if (at < text.size()) text.erase(at, 1);
          break;
        default:
          if (at < text.size()) text[at] = pick(pieces);
      }
    }
    check_.Check(text);
  }
  EXPECT_GT(check_.taken, 5000);
}

INSTANTIATE_TEST_SUITE_P(Now, StoredDateTest, ::testing::Values(1999, 2026, 2049));

}  // namespace
}  // namespace kordll
