#include "kordll/platform/Clock.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>

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

COleDateTime Clock::Now() { return Env::Current()->LocalNow(); }

COleDateTime Clock::NowUtc() { return Env::Current()->UtcNow(); }

int64_t Clock::MonotonicMillis() { return Env::Current()->MonotonicMillis(); }

int64_t Clock::DeadlineAfter(int64_t ms) {
  const int64_t now = MonotonicMillis();
  if (ms <= 0) return now;
  return ms > INT64_MAX - now ? INT64_MAX : now + ms;
}

void Clock::SleepMillis(int64_t ms) {
  if (ms > 0) Env::Current()->SleepMillis(ms);
}

bool Clock::WaitUntil(std::condition_variable& cv, std::unique_lock<std::mutex>& lock,
                      int64_t deadline_ms) {
  return Env::Current()->WaitUntil(cv, lock, deadline_ms);
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
    : EnvWrapper(Env::Current()),
      local_ms_(ToMillis(local_now.GetStatus() == COleDateTime::valid
                             ? local_now
                             : COleDateTime(2000, 1, 1, 0, 0, 0))) {}

ManualClock::~ManualClock() {
  std::unique_lock<std::mutex> lock(mutex_);
  waiter_left_.wait(lock, [this] { return waiters_.empty(); });
}

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

bool ManualClock::WaitUntil(std::condition_variable& cv, std::unique_lock<std::mutex>& lock,
                            int64_t deadline_ms) {
  // Long enough not to spin, short enough that a missed wake costs little.
  constexpr auto kSlice = std::chrono::milliseconds(5);
  {
    std::lock_guard<std::mutex> l(mutex_);
    if (deadline_ms >= 0 && monotonic_ms_ >= deadline_ms) return true;
    waiters_.push_back(&cv);
  }
  cv.wait_for(lock, kSlice);
  std::lock_guard<std::mutex> l(mutex_);
  waiters_.erase(std::find(waiters_.begin(), waiters_.end(), &cv));
  waiter_left_.notify_all();
  return deadline_ms >= 0 && monotonic_ms_ >= deadline_ms;
}

void ManualClock::WakeWaiters() {
  for (std::condition_variable* cv : waiters_) cv->notify_all();
}

void ManualClock::SetLocalNow(const COleDateTime& local_now) {
  if (local_now.GetStatus() != COleDateTime::valid) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    local_ms_ = ToMillis(local_now);
    WakeWaiters();
  }
  Clock::NotifyListeners();
}

void ManualClock::Advance(int64_t ms) {
  if (ms <= 0) return;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    local_ms_ += ms;
    monotonic_ms_ += ms;
    WakeWaiters();
  }
  Clock::NotifyListeners();
}

// ---- ScopedManualClock -----------------------------------------------------------

ScopedManualClock::ScopedManualClock() : installed_(&clock_) {}

ScopedManualClock::ScopedManualClock(const COleDateTime& local_now)
    : clock_(local_now), installed_(&clock_) {}

ScopedManualClock::ScopedManualClock(int year, int month, int day, int hour, int minute, int second)
    : ScopedManualClock(COleDateTime(year, month, day, hour, minute, second)) {}

ScopedManualClock::~ScopedManualClock() = default;

}  // namespace kordll
