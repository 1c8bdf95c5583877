#include "kordll/platform/TimerTable.h"

#include <algorithm>
#include <vector>

#include "kordll/platform/CWinThread.h"
#include "kordll/platform/Clock.h"

namespace kordll {

TimerTable& TimerTable::Instance() {
  // Never destroyed: detached threads may still read their timers while the
  // process exits. The clock listener is registered once, outside the
  // table's lock.
  static TimerTable* table = [] {
    auto* t = new TimerTable();
    Clock::AddListener([t] { t->RaiseDue(nullptr); });
    return t;
  }();
  return *table;
}

std::int64_t TimerTable::ClampPeriod(std::int64_t period_ms) {
  return std::clamp(period_ms, kMinPeriodMs, kMaxPeriodMs);
}

std::int64_t TimerTable::NowLocked() {
  std::int64_t now = Clock::MonotonicMillis();
  // The monotonic count only goes back when another clock is installed (a
  // test's clock starts at 0). Timers keep what was left of their period
  // rather than waiting for the old clock's count to come round again.
  if (have_last_now_ && now < last_now_) {
    for (auto& [id, timer] : timers_) {
      std::int64_t left = timer.next_due_ms - last_now_;
      timer.next_due_ms = now + std::clamp<std::int64_t>(left, 0, timer.period_ms);
    }
  }
  last_now_ = now;
  have_last_now_ = true;
  return now;
}

unsigned TimerTable::Add(const std::shared_ptr<MessageQueue>& queue, std::int64_t period_ms) {
  if (!queue || queue->IsClosed()) return 0;
  const std::int64_t period = ClampPeriod(period_ms);
  unsigned id;
  {
    std::lock_guard<std::mutex> lock(mu_);
    const std::int64_t now = NowLocked();
    do {
      id = next_id_++;
    } while (id == 0 || timers_.count(id) > 0);
    timers_[id] = Timer{queue, queue.get(), period, now + period};
  }
  // A thread already waiting must learn of its new deadline.
  queue->Wake();
  return id;
}

int TimerTable::Remove(unsigned timer_id) {
  std::lock_guard<std::mutex> lock(mu_);
  return timers_.erase(timer_id) > 0 ? 1 : 0;
}

void TimerTable::RemoveAll(const MessageQueue* queue) {
  std::lock_guard<std::mutex> lock(mu_);
  for (auto it = timers_.begin(); it != timers_.end();) {
    if (it->second.queue_key == queue) {
      it = timers_.erase(it);
    } else {
      ++it;
    }
  }
}

std::int64_t TimerTable::RaiseDue(const MessageQueue* queue) {
  std::int64_t next = -1;
  std::lock_guard<std::mutex> lock(mu_);
  const std::int64_t now = NowLocked();
  for (auto it = timers_.begin(); it != timers_.end();) {
    Timer& timer = it->second;
    if (queue != nullptr && timer.queue_key != queue) {
      ++it;
      continue;
    }
    if (now >= timer.next_due_ms) {
      std::shared_ptr<MessageQueue> target = timer.queue.lock();
      if (!target || target->IsClosed()) {
        it = timers_.erase(it);
        continue;
      }
      // Skipped when the previous message is still queued; either way the
      // next period counts from here, with no catch-up.
      target->PostTimer(it->first, now);
      std::int64_t following = timer.next_due_ms + timer.period_ms;
      timer.next_due_ms = following > now ? following : now + timer.period_ms;
    }
    if (queue != nullptr) {
      std::int64_t wait = timer.next_due_ms - now;
      next = next < 0 ? wait : std::min(next, wait);
    }
    ++it;
  }
  return next;
}

int TimerTable::Count() {
  std::lock_guard<std::mutex> lock(mu_);
  return static_cast<int>(timers_.size());
}

std::int64_t TimerTable::PeriodOf(unsigned timer_id) {
  std::lock_guard<std::mutex> lock(mu_);
  auto it = timers_.find(timer_id);
  return it == timers_.end() ? 0 : it->second.period_ms;
}

unsigned SetTimer(std::int64_t period_ms) {
  return TimerTable::Instance().Add(MessageQueue::Current(true), period_ms);
}

unsigned SetTimer(CWinThread* target, std::int64_t period_ms) {
  if (!target) return 0;
  unsigned thread_id = target->GetThreadId();
  if (thread_id == 0) return 0;
  return TimerTable::Instance().Add(MessageQueue::FromThreadId(thread_id), period_ms);
}

int KillTimer(unsigned timer_id) { return TimerTable::Instance().Remove(timer_id); }

}  // namespace kordll
