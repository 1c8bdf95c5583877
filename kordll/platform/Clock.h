// Clock: the one source of "now" in the library.
//
// Every reading of the current time goes through Clock: the local date of
// COleDateTime::GetCurrentTime, the universal time, and a monotonic count of
// milliseconds for timers and bounded waits. By default Clock reads the
// machine. A test installs a ManualClock (most simply through
// ScopedManualClock) and moves it by hand, so that "tomorrow" or "fifteen
// seconds later" costs no waiting.
//
// Thread safety: every static function may be called from any thread. The
// installed source is swapped atomically; a ClockSource must stay alive
// while it is installed.

#ifndef KORDLL_PLATFORM_CLOCK_H_
#define KORDLL_PLATFORM_CLOCK_H_

#include <cstdint>
#include <functional>
#include <mutex>

#include "kordll/platform/COleDateTime.h"

namespace kordll {

// Where the time comes from. Implementations must be thread-safe.
class ClockSource {
 public:
  virtual ~ClockSource() = default;
  // The local wall-clock date and time now (daylight saving as the machine
  // applies it).
  virtual COleDateTime LocalNow() = 0;
  // Coordinated universal time now.
  virtual COleDateTime UtcNow() = 0;
  // Milliseconds from an arbitrary fixed start; never goes backwards.
  virtual int64_t MonotonicMillis() = 0;
  // Lets the calling thread pass the given milliseconds of this clock's time.
  virtual void SleepMillis(int64_t ms) = 0;
};

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
  // Lets ms milliseconds of clock time pass (nothing for ms <= 0). On the
  // machine's clock the thread sleeps; on a ManualClock the clock moves
  // forward by ms at once, so loops bounded by clock time end without delay.
  static void SleepMillis(int64_t ms);

  // Installs source as the clock of the whole process and returns the one
  // it replaces (nullptr when the machine's clock was in use). nullptr
  // restores the machine's clock. The caller keeps ownership of both.
  static ClockSource* SetForTesting(ClockSource* source);

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

// A clock that moves only when told to. Local time starts at the date given
// (or 1 January 2000 00:00:00) and the monotonic count at 0. Universal time is
// local time moved by the machine's standard-time bias (TimeZone::GetBias).
// Thread-safe.
class ManualClock : public ClockSource {
 public:
  ManualClock();
  explicit ManualClock(const COleDateTime& local_now);

  COleDateTime LocalNow() override;
  COleDateTime UtcNow() override;
  int64_t MonotonicMillis() override;
  // Advances the clock by ms, as Advance does.
  void SleepMillis(int64_t ms) override;

  // Sets the local date and time (to the millisecond); the monotonic count
  // does not change. An invalid or null date is ignored.
  void SetLocalNow(const COleDateTime& local_now);
  // Moves both local time and the monotonic count forward by ms (nothing for
  // ms <= 0), then notifies the clock's listeners.
  void Advance(int64_t ms);
  void AdvanceSeconds(int64_t seconds) { Advance(seconds * 1000); }

 private:
  std::mutex mutex_;
  // State below is protected by mutex_.
  int64_t local_ms_;  // milliseconds since 30 December 1899 00:00, linear
  int64_t monotonic_ms_ = 0;
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
  ClockSource* previous_;
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_CLOCK_H_
