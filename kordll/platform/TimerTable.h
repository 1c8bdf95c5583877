// TimerTable: the process's timers, and SetTimer / KillTimer.
//
// A timer belongs to one thread's queue and delivers message 275 (kMsgTimer)
// to it, with wParam the timer id and lParam the monotonic time of the clock
// (Clock::MonotonicMillis) when it fired. It fires each period of clock time;
// its period is clamped to between 10 ms and INT_MAX ms. While a message of a
// timer is still in the queue the timer queues no second one: a busy thread
// sees one 275 for several missed periods, and the next period counts from
// the firing that found the queue free (no catch-up).
//
// Timers run off the library's clock, not the machine's: a thread waiting for
// messages wakes when its next timer is due, and when a test moves its
// ManualClock every due timer of every thread is raised at once, on the
// thread that moved the clock, before Advance returns. So a test that moves
// the clock and then posts a message of its own finds the 275 ahead of it.
//
// The table is locked; every function may be called from any thread. Lock
// order: the table's lock, then a queue's lock.

#ifndef KORDLL_PLATFORM_TIMERTABLE_H_
#define KORDLL_PLATFORM_TIMERTABLE_H_

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include "kordll/platform/MessageQueue.h"

namespace kordll {

class CWinThread;

class TimerTable {
 public:
  static constexpr std::int64_t kMinPeriodMs = 10;
  static constexpr std::int64_t kMaxPeriodMs = 2147483647;  // INT_MAX

  // The one table of the process.
  static TimerTable& Instance();

  // A new timer for queue, first due one period from now. Answers its id
  // (never 0), or 0 when queue is null or closed.
  unsigned Add(const std::shared_ptr<MessageQueue>& queue, std::int64_t period_ms);
  // Removes the timer. 1 if it existed. A 275 of it already queued stays
  // queued (its receiver finds the id unknown).
  int Remove(unsigned timer_id);
  // Removes every timer of the queue (its thread is ending).
  void RemoveAll(const MessageQueue* queue);

  // Queues 275 for every due timer of queue (all queues when null) and
  // schedules its next firing. Answers the milliseconds until the next timer
  // of queue is due, or -1 when it has none (for all queues: -1).
  std::int64_t RaiseDue(const MessageQueue* queue);

  // The number of live timers (all threads); for tests and diagnostics.
  int Count();
  // The clamped period of a live timer, or 0.
  std::int64_t PeriodOf(unsigned timer_id);

  // The period as the table will use it.
  static std::int64_t ClampPeriod(std::int64_t period_ms);

 private:
  struct Timer {
    std::weak_ptr<MessageQueue> queue;
    const MessageQueue* queue_key;
    std::int64_t period_ms;
    std::int64_t next_due_ms;
  };

  TimerTable() = default;
  // REQUIRES: mu_ held. The clock's monotonic count now; when it went back
  // (another clock was installed) every timer is moved onto the new count.
  std::int64_t NowLocked();

  std::mutex mu_;
  // State below is protected by mu_.
  std::map<unsigned, Timer> timers_;
  unsigned next_id_ = 1;
  std::int64_t last_now_ = 0;
  bool have_last_now_ = false;
};

// SetTimer with no window and id 0: a new timer for the calling thread
// (which gets a queue if it had none). Answers the id, or 0 on failure.
unsigned SetTimer(std::int64_t period_ms);
// A timer whose 275 goes to target's queue (for a scheduler that keeps
// timers for other threads). 0 when target is null, has ended, or is a
// worker with no queue.
unsigned SetTimer(CWinThread* target, std::int64_t period_ms);
// Ends the timer, from any thread. 1 if it existed, else 0.
int KillTimer(unsigned timer_id);

}  // namespace kordll

#endif  // KORDLL_PLATFORM_TIMERTABLE_H_
