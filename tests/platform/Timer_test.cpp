#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "kordll/platform/CWinThread.h"
#include "kordll/platform/Clock.h"
#include "kordll/platform/TimerTable.h"

namespace kordll {
namespace {

constexpr auto kPatience = std::chrono::seconds(20);
constexpr unsigned kMarker = 0x4000;

// A thread that sets timers of the given periods in InitInstance and records
// every thread message it handles.
class TimerThread : public CWinThread {
 public:
  explicit TimerThread(std::vector<std::int64_t> periods) : periods_(std::move(periods)) {
    m_bAutoDelete = 0;
  }

  int InitInstance() override {
    std::vector<unsigned> ids;
    for (std::int64_t period : periods_) ids.push_back(SetTimer(period));
    ready_.set_value(ids);
    return 1;
  }
  int OnThreadMessage(unsigned message, intptr_t w, intptr_t l) override {
    std::lock_guard<std::mutex> lock(mu_);
    msgs_.push_back(MSG{0, message, w, l});
    cv_.notify_all();
    return 1;
  }

  // Starts the thread; answers the ids of its timers (empty on failure).
  std::vector<unsigned> Start() {
    std::future<std::vector<unsigned>> ids = ready_.get_future();
    if (!CreateThread()) return {};
    if (ids.wait_for(kPatience) != std::future_status::ready) return {};
    return ids.get();
  }
  // Posts a marker and waits until the thread has handled it, so that
  // everything queued before it has been handled too.
  bool Sync() {
    int number;
    {
      std::lock_guard<std::mutex> lock(mu_);
      number = ++markers_;
    }
    if (!PostThreadMessage(kMarker, number, 0)) return false;
    std::unique_lock<std::mutex> lock(mu_);
    return cv_.wait_for(lock, kPatience, [&] {
      for (const MSG& m : msgs_)
        if (m.message == kMarker && m.wParam == number) return true;
      return false;
    });
  }
  // The timer messages handled so far.
  std::vector<MSG> Timers() {
    std::lock_guard<std::mutex> lock(mu_);
    std::vector<MSG> out;
    for (const MSG& m : msgs_)
      if (m.message == kMsgTimer) out.push_back(m);
    return out;
  }
  void Stop() {
    PostThreadMessage(kMsgQuit, 0, 0);
    WaitForExit(20000);
  }

 private:
  std::vector<std::int64_t> periods_;
  std::promise<std::vector<unsigned>> ready_;
  std::mutex mu_;
  std::condition_variable cv_;
  std::vector<MSG> msgs_;
  int markers_ = 0;
};

// Takes every message now waiting on the calling thread and answers the
// timer messages among them.
std::vector<MSG> DrainTimers() {
  std::vector<MSG> out;
  MSG msg;
  while (PeekMessage(&msg, kPeekRemove))
    if (msg.message == kMsgTimer) out.push_back(msg);
  return out;
}

// A timer's message reaches its thread once a period, carrying its id and the
// clock's time when it fired; periods missed at once give one message and
// the next period counts from that firing.
TEST(TimerTest, MessageReachesTheOwningThreadOnlyEachPeriodWithoutCatchUp) {
  ScopedManualClock clock;
  TimerThread owner({100});
  std::vector<unsigned> ids = owner.Start();
  ASSERT_EQ(1u, ids.size());
  ASSERT_NE(0u, ids[0]);
  const struct {
    int64_t advance;
    size_t messages;
    intptr_t fired_at;  // of the last message
  } steps[] = {{99, 0, 0}, {1, 1, 100}, {100, 2, 200}, {250, 3, 450}, {99, 3, 450}, {1, 4, 550}};
  for (const auto& step : steps) {
    clock.Advance(step.advance);
    ASSERT_TRUE(owner.Sync());
    std::vector<MSG> seen = owner.Timers();
    ASSERT_EQ(step.messages, seen.size()) << "at " << step.fired_at;
    if (seen.empty()) continue;
    EXPECT_EQ(static_cast<intptr_t>(ids[0]), seen.back().wParam);
    EXPECT_EQ(step.fired_at, seen.back().lParam);
  }
  owner.Stop();
}

// The period is clamped between 10 ms and INT_MAX.
TEST(TimerTest, PeriodsQueuedMessagesAndKillingOnOneThread) {
  std::thread plain([] {
    ScopedManualClock clock;
    struct Case {
      std::int64_t asked;
      std::int64_t used;
    } cases[] = {{-5, 10}, {9, 10}, {250, 250}, {INT_MAX, INT_MAX}, {1LL << 40, INT_MAX}};
    for (const Case& c : cases) {
      unsigned id = SetTimer(c.asked);
      ASSERT_NE(0u, id);
      EXPECT_EQ(c.used, TimerTable::Instance().PeriodOf(id)) << "asked " << c.asked;
      KillTimer(id);
    }
    // A timer queues no second message while one is still waiting; killing
    // it stops it but leaves the queued message.
    int before = TimerTable::Instance().Count();
    unsigned id = SetTimer(100);
    unsigned other = SetTimer(10);
    EXPECT_EQ(before + 2, TimerTable::Instance().Count());
    for (int i = 0; i < 10; ++i) clock.Advance(10);  // one message each queued
    ASSERT_EQ(1, KillTimer(other));
    std::vector<MSG> both = DrainTimers();
    ASSERT_EQ(2u, both.size());
    EXPECT_EQ(static_cast<intptr_t>(other), both[0].wParam);
    EXPECT_EQ(static_cast<intptr_t>(id), both[1].wParam);
    clock.Advance(100);  // once taken, the next period queues again
    EXPECT_EQ(1, KillTimer(id));
    EXPECT_EQ(0, KillTimer(id) + KillTimer(0));
    EXPECT_EQ(before, TimerTable::Instance().Count());
    clock.Advance(1000);
    std::vector<MSG> seen = DrainTimers();
    ASSERT_EQ(1u, seen.size());
    EXPECT_EQ(static_cast<intptr_t>(id), seen[0].wParam);
    clock.Advance(1000);
    EXPECT_TRUE(DrainTimers().empty());
  });
  plain.join();
}

// A timer set for another thread goes to that thread; the timers of a thread
// that ends are removed.
TEST(TimerTest, TimerSetForAnotherThreadGoesToThatThread) {
  ScopedManualClock clock;
  const int before = TimerTable::Instance().Count();
  TimerThread target({100, 200});
  ASSERT_EQ(2u, target.Start().size());
  std::vector<MSG> on_caller;
  std::thread caller([&] {
    unsigned id = SetTimer(&target, 50);
    ASSERT_NE(0u, id);
    MSG msg;
    PeekMessage(&msg, kPeekNoRemove);  // the caller has a queue too
    clock.Advance(50);
    on_caller = DrainTimers();
    ASSERT_TRUE(target.Sync());
    std::vector<MSG> seen = target.Timers();
    ASSERT_EQ(1u, seen.size());
    EXPECT_EQ(static_cast<intptr_t>(id), seen[0].wParam);
    KillTimer(id);
  });
  caller.join();
  EXPECT_TRUE(on_caller.empty());
  EXPECT_EQ(0u, SetTimer(nullptr, 50));
  EXPECT_EQ(before + 2, TimerTable::Instance().Count());
  target.Stop();
  EXPECT_EQ(before, TimerTable::Instance().Count());
  EXPECT_EQ(0u, SetTimer(&target, 50));  // it has ended
  clock.Advance(1000);                   // nothing to deliver to, nothing breaks
}

TEST(TimerTest, MachineClockTimerWakesAWaitingThread) {
  // No manual clock: the thread waits for messages and is woken by its own
  // 10 ms timer (bounded by a generous limit in case it never comes).
  int woke = 0;
  std::vector<MSG> seen;
  std::thread plain([&] {
    unsigned id = SetTimer(10);
    woke = WaitForMessages(20000);
    seen = DrainTimers();
    KillTimer(id);
  });
  plain.join();
  EXPECT_EQ(1, woke);
  EXPECT_EQ(1u, seen.size());
}

TEST(TimerConcurrencyTest, ManyThreadsGetOnlyTheirOwnTimers) {
  ScopedManualClock clock;
  constexpr int kThreads = 4;
  constexpr int kSteps = 25;
  std::vector<std::unique_ptr<TimerThread>> threads;
  std::vector<std::vector<unsigned>> ids;
  for (int t = 0; t < kThreads; ++t) {
    threads.push_back(std::make_unique<TimerThread>(std::vector<std::int64_t>{10, 20}));
    ids.push_back(threads.back()->Start());
    ASSERT_EQ(2u, ids.back().size());
  }
  // Other threads set and kill timers meanwhile; they must not disturb.
  std::atomic<bool> stop{false};
  std::thread churn([&] {
    while (!stop) {
      unsigned id = SetTimer(10);
      KillTimer(id);
      DrainTimers();
    }
  });
  for (int step = 0; step < kSteps; ++step) {
    clock.Advance(10);
    for (auto& thread : threads) ASSERT_TRUE(thread->Sync());
  }
  stop = true;
  churn.join();
  for (int t = 0; t < kThreads; ++t) {
    int fast = 0, slow = 0;
    for (const MSG& m : threads[t]->Timers()) {
      if (m.wParam == static_cast<intptr_t>(ids[t][0])) {
        ++fast;
      } else if (m.wParam == static_cast<intptr_t>(ids[t][1])) {
        ++slow;
      } else {
        ADD_FAILURE() << "thread " << t << " got timer " << m.wParam;
      }
    }
    EXPECT_EQ(kSteps, fast);
    EXPECT_EQ(kSteps / 2, slow);
    threads[t]->Stop();
  }
}

}  // namespace
}  // namespace kordll
