#include "kordll/platform/Clock.h"

#include <time.h>

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <thread>

#include "kordll/platform/TimeZone.h"

namespace kordll {

namespace {

constexpr int64_t kMillisPerDay = 86400000;

// Day 0 of the day count, from which ManualClock counts milliseconds.
COleDateTime DayZero() { return COleDateTime(1899, 12, 30, 0, 0, 0); }

COleDateTime FromMillis(int64_t ms) {
  return DayZero() + COleDateTimeSpan(static_cast<double>(ms) / kMillisPerDay);
}

int64_t ToMillis(const COleDateTime& date) {
  COleDateTimeSpan span = date - DayZero();
  double ms = span.GetTotalDays() * kMillisPerDay;
  return static_cast<int64_t>(ms < 0 ? ms - 0.5 : ms + 0.5);
}

COleDateTime FromTm(const struct tm& t, long ms) {
  // A leap second reads as the last second of its minute.
  int second = t.tm_sec > 59 ? 59 : t.tm_sec;
  COleDateTime date(t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, second);
  return date + COleDateTimeSpan(static_cast<double>(ms) / kMillisPerDay);
}

// The machine's clock.
class SystemClock : public ClockSource {
 public:
  COleDateTime LocalNow() override {
    // localtime_r need not read TZ by itself; make sure the zone was read
    // once. ScopedTimeZone reads it again whenever it changes TZ.
    static std::once_flag once;
    std::call_once(once, [] { tzset(); });
    time_t seconds;
    long ms;
    ReadSystemTime(&seconds, &ms);
    struct tm t;
    if (localtime_r(&seconds, &t) == nullptr) return UtcNow();
    return FromTm(t, ms);
  }

  COleDateTime UtcNow() override {
    time_t seconds;
    long ms;
    ReadSystemTime(&seconds, &ms);
    struct tm t;
    if (gmtime_r(&seconds, &t) == nullptr) {
      COleDateTime bad;
      bad.SetStatus(COleDateTime::invalid);
      return bad;
    }
    return FromTm(t, ms);
  }

  int64_t MonotonicMillis() override {
    auto since = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(since).count();
  }

  void SleepMillis(int64_t ms) override {
    if (ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(ms));
  }

 private:
  static void ReadSystemTime(time_t* seconds, long* ms) {
    auto now = std::chrono::system_clock::now();
    auto whole = std::chrono::floor<std::chrono::seconds>(now);
    *seconds = std::chrono::system_clock::to_time_t(whole);
    *ms = static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now - whole).count());
  }
};

SystemClock& TheSystemClock() {
  static SystemClock* clock = new SystemClock();  // never destroyed: used at exit
  return *clock;
}

std::atomic<ClockSource*> g_source{nullptr};

ClockSource& Source() {
  ClockSource* source = g_source.load(std::memory_order_acquire);
  return source != nullptr ? *source : TheSystemClock();
}

// Listeners run while listener_mutex is held, so that RemoveListener can
// promise that a removed listener is no longer running.
struct Listeners {
  std::mutex mutex;
  std::map<int, std::function<void()>> fns;  // guarded by mutex
  int next_id = 1;                           // guarded by mutex
};

Listeners& TheListeners() {
  static Listeners* listeners = new Listeners();  // never destroyed: used at exit
  return *listeners;
}

}  // namespace

COleDateTime Clock::Now() { return Source().LocalNow(); }

COleDateTime Clock::NowUtc() { return Source().UtcNow(); }

int64_t Clock::MonotonicMillis() { return Source().MonotonicMillis(); }

void Clock::SleepMillis(int64_t ms) {
  if (ms > 0) Source().SleepMillis(ms);
}

ClockSource* Clock::SetForTesting(ClockSource* source) {
  ClockSource* previous = g_source.exchange(source, std::memory_order_acq_rel);
  NotifyListeners();
  return previous;
}

int Clock::AddListener(std::function<void()> fn) {
  Listeners& l = TheListeners();
  std::lock_guard<std::mutex> lock(l.mutex);
  int id = l.next_id++;
  if (l.next_id <= 0) l.next_id = 1;
  l.fns[id] = std::move(fn);
  return id;
}

void Clock::RemoveListener(int id) {
  Listeners& l = TheListeners();
  std::lock_guard<std::mutex> lock(l.mutex);
  l.fns.erase(id);
}

void Clock::NotifyListeners() {
  Listeners& l = TheListeners();
  std::lock_guard<std::mutex> lock(l.mutex);
  for (auto& entry : l.fns) {
    if (entry.second) entry.second();
  }
}

// ---- ManualClock ---------------------------------------------------------------

ManualClock::ManualClock() : ManualClock(COleDateTime(2000, 1, 1, 0, 0, 0)) {}

ManualClock::ManualClock(const COleDateTime& local_now)
    : local_ms_(ToMillis(local_now.GetStatus() == COleDateTime::valid
                             ? local_now
                             : COleDateTime(2000, 1, 1, 0, 0, 0))) {}

COleDateTime ManualClock::LocalNow() {
  std::lock_guard<std::mutex> lock(mutex_);
  return FromMillis(local_ms_);
}

COleDateTime ManualClock::UtcNow() {
  return LocalNow() + COleDateTimeSpan(0, 0, TimeZone::GetBias(), 0);
}

int64_t ManualClock::MonotonicMillis() {
  std::lock_guard<std::mutex> lock(mutex_);
  return monotonic_ms_;
}

void ManualClock::SleepMillis(int64_t ms) { Advance(ms); }

void ManualClock::SetLocalNow(const COleDateTime& local_now) {
  if (local_now.GetStatus() != COleDateTime::valid) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    local_ms_ = ToMillis(local_now);
  }
  Clock::NotifyListeners();
}

void ManualClock::Advance(int64_t ms) {
  if (ms <= 0) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    local_ms_ += ms;
    monotonic_ms_ += ms;
  }
  Clock::NotifyListeners();
}

// ---- ScopedManualClock -----------------------------------------------------------

ScopedManualClock::ScopedManualClock() : previous_(Clock::SetForTesting(&clock_)) {}

ScopedManualClock::ScopedManualClock(const COleDateTime& local_now)
    : clock_(local_now), previous_(Clock::SetForTesting(&clock_)) {}

ScopedManualClock::ScopedManualClock(int year, int month, int day, int hour, int minute, int second)
    : ScopedManualClock(COleDateTime(year, month, day, hour, minute, second)) {}

ScopedManualClock::~ScopedManualClock() { Clock::SetForTesting(previous_); }

}  // namespace kordll
