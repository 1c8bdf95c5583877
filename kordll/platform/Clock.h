// Clock: the one source of "now" in the library.
//
// Every reading of the current time goes through Clock: the local date of
// COleDateTime::GetCurrentTime, the universal time, and a monotonic count of
// milliseconds for timers and bounded waits. Clock asks the installed Env
// (Env.h), which by default reads the machine. A test installs a ManualClock
// (most simply through ScopedManualClock) and moves it by hand, so that
// "tomorrow" or "fifteen seconds later" costs no waiting.
//
// Thread safety: every static function may be called from any thread.

#ifndef KORDLL_PLATFORM_CLOCK_H_
#define KORDLL_PLATFORM_CLOCK_H_

#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/Env.h"

namespace kordll {

class Clock {
 public:
  Clock() = delete;

  // Local date and time now, valid, to the millisecond.
  static COleDateTime Now();
  // Universal time now.
  static COleDateTime NowUtc();
  // Milliseconds of monotonic time, for timers and bounded waits: compare
  // two readings, never a reading with a date.
  static int64_t MonotonicMillis();
  // The monotonic count ms milliseconds from now, held at the largest count
  // instead of running past it (ms >= 0).
  static int64_t DeadlineAfter(int64_t ms);
  // Lets ms milliseconds of clock time pass (nothing for ms <= 0). On the
  // machine's clock the thread sleeps; on a ManualClock the clock moves
  // forward by ms at once, so loops bounded by clock time end without delay.
  static void SleepMillis(int64_t ms);
  // Waits on cv (lock held) until notified or until MonotonicMillis reaches
  // deadline_ms (never, when negative); see Env::WaitUntil. Moving a
  // ManualClock wakes the waiter. Answers true once the deadline has passed.
  static bool WaitUntil(std::condition_variable& cv, std::unique_lock<std::mutex>& lock,
                        int64_t deadline_ms);

  // Registers fn to be called after the installed clock is replaced or a
  // ManualClock moves, so that a thread waiting for a point in clock time can
  // look again. fn runs on the thread that moved the clock, with no clock
  // lock held; it must not add or remove listeners. Returns an id for
  // RemoveListener (never 0).
  static int AddListener(std::function<void()> fn);
  // Removes a listener; when this returns, fn is not running and will not
  // run again. Unknown ids are ignored.
  static void RemoveListener(int id);
  // Calls every listener. For clock sources of tests; see AddListener.
  static void NotifyListeners();
};

// An Env whose clock moves only when told to; everything else goes to the
// Env that was installed when it was made. Local time starts at the date
// given (or 1 January 2000 00:00:00) and the monotonic count at 0. Universal
// time is local time moved by the standard-time bias (TimeZone::GetBias).
// Thread-safe.
class ManualClock : public EnvWrapper {
 public:
  ManualClock();
  explicit ManualClock(const COleDateTime& local_now);
  // Waits until no thread is inside WaitUntil.
  ~ManualClock() override;

  COleDateTime LocalNow() override;
  COleDateTime UtcNow() override;
  int64_t MonotonicMillis() override;
  // Advances the clock by ms, as Advance does.
  void SleepMillis(int64_t ms) override;
  // Waits for a notification of cv or for Advance; see Env::WaitUntil. A
  // wait also ends after a few milliseconds of machine time, since a move of
  // the clock just before the wait began cannot be seen otherwise; callers
  // look again in any case.
  bool WaitUntil(std::condition_variable& cv, std::unique_lock<std::mutex>& lock,
                 int64_t deadline_ms) override;

  // Sets the local date and time (to the millisecond); the monotonic count
  // does not change. An invalid or null date is ignored.
  void SetLocalNow(const COleDateTime& local_now);
  // Moves both local time and the monotonic count forward by ms (nothing for
  // ms <= 0), then notifies the clock's listeners.
  void Advance(int64_t ms);
  void AdvanceSeconds(int64_t seconds) { Advance(seconds * 1000); }

 private:
  void WakeWaiters();  // REQUIRES: mutex_ held

  std::mutex mutex_;
  // State below is protected by mutex_.
  int64_t local_ms_;  // milliseconds since 30 December 1899 00:00, linear
  int64_t monotonic_ms_ = 0;
  // The condition variables of threads in WaitUntil; an entry is removed
  // before its wait returns, so it is alive while listed.
  std::vector<std::condition_variable*> waiters_;
  std::condition_variable waiter_left_;
};

// Installs a ManualClock for the life of this object and puts back the clock
// that was installed before. Scopes must end in the reverse order of their
// start.
class ScopedManualClock {
 public:
  ScopedManualClock();
  explicit ScopedManualClock(const COleDateTime& local_now);
  // Shorthand for the parts of the local date.
  ScopedManualClock(int year, int month, int day, int hour, int minute, int second);
  ~ScopedManualClock();
  ScopedManualClock(const ScopedManualClock&) = delete;
  ScopedManualClock& operator=(const ScopedManualClock&) = delete;

  ManualClock& clock() { return clock_; }
  void SetLocalNow(const COleDateTime& local_now) { clock_.SetLocalNow(local_now); }
  void Advance(int64_t ms) { clock_.Advance(ms); }

 private:
  ManualClock clock_;
  ScopedEnv installed_;
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_CLOCK_H_
