#include "kordll/platform/Clock.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <string>

#include "kordll/platform/MessageQueue.h"
#include "kordll/platform/TimeZone.h"

namespace kordll {
namespace {

std::string Stamp(const COleDateTime& d) { return d.Format("%Y-%m-%d %H:%M:%S").ToUtf8(); }

long RoundMinutes(const COleDateTimeSpan& s) { return std::lround(s.GetTotalMinutes()); }

// ---- The replaceable clock -------------------------------------------------

// The manual clock gives "now" to the whole library; moving it advances the
// date and the monotonic count alike (never backwards), milliseconds add up
// without drift, Sleep moves it instead of waiting, and setting the date
// leaves the monotonic count alone.
TEST(ClockTest, ManualClockMovesTheDateAndTheMonotonicCountTogether) {
  ScopedManualClock clock(2005, 12, 31, 23, 59, 30);
  EXPECT_EQ("2005-12-31 23:59:30", Stamp(COleDateTime::GetCurrentTime()));
  EXPECT_EQ(0, Clock::MonotonicMillis());
  clock.Advance(45 * 1000);
  EXPECT_EQ("2006-01-01 00:00:15", Stamp(Clock::Now()));
  EXPECT_EQ(45000, Clock::MonotonicMillis());
  clock.clock().AdvanceSeconds(86400);
  clock.Advance(-5000);
  EXPECT_EQ("2006-01-02 00:00:15", Stamp(Clock::Now()));
  EXPECT_EQ(45000 + 86400000, Clock::MonotonicMillis());
  for (int i = 0; i < 3600; ++i) clock.Advance(1000);
  EXPECT_EQ("2006-01-02 01:00:15", Stamp(Clock::Now()));
  for (int i = 0; i < 999; ++i) clock.Advance(1);
  EXPECT_EQ("2006-01-02 01:00:16", Stamp(Clock::Now()));  // 999 ms rounds up
  clock.SetLocalNow(COleDateTime(2005, 1, 1, 0, 0, 0));
  const int64_t start = Clock::MonotonicMillis();
  EXPECT_EQ(45000 + 86400000 + 3600999, start);
  // A wait bounded by fifteen seconds of clock time ends after 300 passes.
  int passes = 0;
  while (Clock::MonotonicMillis() - start < 15000) {
    Clock::SleepMillis(50);
    ++passes;
  }
  EXPECT_EQ(300, passes);
  EXPECT_EQ("2005-01-01 00:00:15", Stamp(Clock::Now()));
}

// ---- Universal time and the zone ---------------------------------------------

TEST(ClockTest, ManualUniversalTimeIsLocalPlusStandardBias) {
  ScopedTimeZone tz("EST5EDT");
  ScopedManualClock clock(2005, 7, 1, 10, 0, 0);  // summer: bias still 300
  EXPECT_EQ("2005-07-01 15:00:00", Stamp(Clock::NowUtc()));
}

// The bias is UTC minus local standard time, and the machine clock follows
// the process zone.
TEST(TimeZoneTest, BiasIsUtcMinusLocalStandardTime) {
  const bool have_zones = access("/usr/share/zoneinfo/America/New_York", R_OK) == 0;
  // clang-format off
  const struct {
    const char* tz;
    int bias;
    bool no_summer_time;  // the machine clock's distance from UTC is -bias all year
  } cases[] = {
      {"", 0, false}, {"EST5EDT", 300, false}, {"NST3:30NDT", 210, false}, {"JST-9", -540, true},
      {"<+1245>-12:45", -765, false}, {"Europe/Paris", -60, false}};
  // clang-format on
  for (const auto& c : cases) {
    if (!have_zones && std::string(c.tz).find('/') != std::string::npos) continue;
    ScopedTimeZone tz(c.tz);
    EXPECT_EQ(c.bias, TimeZone::GetBias()) << c.tz;
    if (c.no_summer_time) {
      EXPECT_EQ(-c.bias, RoundMinutes(Clock::Now() - Clock::NowUtc())) << c.tz;
    }
  }
}

// A wait "for ever and a day" ends like any other: the deadline is held at
// the largest count instead of running past it.
TEST(ClockTest, TheLongestTimeoutDoesNotOverflowItsDeadline) {
  ScopedManualClock clock;
  clock.Advance(5);
  EXPECT_EQ(Clock::DeadlineAfter(INT64_MAX), INT64_MAX);
  EXPECT_EQ(Clock::DeadlineAfter(10), 15);
  auto queue = MessageQueue::Current(true);
  MSG msg;
  msg.message = 1025;
  ASSERT_EQ(queue->Post(msg), 1);
  EXPECT_EQ(queue->Wait(INT64_MAX), 1);
  EXPECT_EQ(queue->Peek(&msg, true), 1);
}

}  // namespace
}  // namespace kordll
