// The scheduler on its own thread, driven by the test's clock: runs formed
// at the heartbeat, calls per interval, batches, removal, items that go away
// while pending, closing during a pass and the longest timer.

#include "kordll/periodic/PeriodicUpdateManager.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <future>
#include <string>
#include <thread>

#include "kordll/platform/TimerTable.h"
#include "kordll/record/FocusableLink.h"
#include "tests/control/GlobalResourceCtrlTest.h"

namespace kordll {
namespace {

using G = GlobalResourceCtrl;
using P = PeriodicUpdateManager;
using Clock = std::chrono::steady_clock;

using Calls = std::vector<std::string>;

std::mutex g_mu;
Calls g_calls;        // "<name><kind>" of every call, in order
int g_offThread = 0;  // calls that came on another thread than the scheduler's

Calls Take() {
  std::lock_guard<std::mutex> hold(g_mu);
  return std::exchange(g_calls, {});
}

struct Hook {
  void Serve(int kind) {
    {
      std::lock_guard<std::mutex> hold(g_mu);
      g_calls.push_back(name + std::to_string(kind));
      g_offThread += AfxGetThread() != P::GetPeriodicUpdateManager() ? 1 : 0;
    }
    if (hook) hook(kind);
  }
  std::string name;
  std::function<void(int)> hook;
};

struct Rec : Focusable, Hook {
  explicit Rec(std::string n, bool held = true) : Focusable(4, nullptr), Hook{std::move(n), {}} {
    if (held) ReserveHeader(99);
  }
  void PerformMaintenance(int kind) override { Serve(kind); }
};

struct Job : test::Ctrl, Hook {
  Job(int id, std::string n) : Ctrl(id), Hook{std::move(n), {}} {}
  void PerformMaintenance(int kind) override { Serve(kind); }
};

template <class F>
bool Until(F done, Clock::time_point end = Clock::now() + std::chrono::seconds(20)) {
  while (!done() && Clock::now() < end) std::this_thread::yield();
  return done();
}

class PeriodicTest : public test::RegistryTest {
 protected:
  PeriodicTest() {
    Take(), g_offThread = 0, P::Start();
    m_ = P::GetPeriodicUpdateManager(), Drain();
  }
  ~PeriodicTest() override { Stop(); }
  // Returns once the scheduler has handled every message queued before:
  // a timer message of a timer it does not know makes it end that timer.
  void Drain() {
    const unsigned probe = SetTimer(m_, INT_MAX);
    m_->PostThreadMessage(kMsgTimer, probe, 0);
    ASSERT_TRUE(Until([&] { return TimerTable::Instance().PeriodOf(probe) == 0; }));
  }
  void Step(int64_t ms) { clock_.Advance(ms), Drain(); }
  // Log-off's order; returns once the thread has ended.
  void Stop() {
    if (m_ == nullptr) return;
    const unsigned thread = m_->GetThreadId();
    G::DeRegisterResourceCtrl(m_), m_->StartClosingResourceCtrl(), m_->CloseResourceCtrl();
    m_ = nullptr;
    EXPECT_TRUE(Until([&] { return MessageQueue::FromThreadId(thread) == nullptr; }));
  }
  P* m_;
  Rec a_{"A"}, b_{"B"};
};

TEST_F(PeriodicTest, EachPairIsServedOnceAtItsIntervalOnTheSchedulerThread) {
  Job* c = new Job(20, "C");
  FocusableLink link(&a_);
  P::AddMaintenanceItem(&a_, 2, 1);
  P::AddMaintenanceItem(&a_, 2, 1);  // the same pair: served once
  P::AddMaintenanceItem(&a_, 2, 2);
  P::AddMaintenanceItem(&link, 2, 9);  // a link serves its target
  P::AddMaintenanceItem(&b_, 5, 1);
  P::AddMaintenanceRCItem(c, 2, 3);
  P::AddMaintenanceRCItem(c, 7, 3);  // the first registration of a pair wins
  Step(100);                         // the heartbeat forms the runs; nothing is called at once
  EXPECT_EQ(Take(), Calls{});
  Step(1999);
  EXPECT_EQ(Take(), Calls{});
  Step(1);
  EXPECT_EQ(Take(), (Calls{"A1", "A2", "A9", "C3"}));
  Step(2000);
  EXPECT_EQ(Take(), (Calls{"A1", "A2", "A9", "C3"}));
  Step(1000);  // 5 s after the heartbeat
  EXPECT_EQ(Take(), (Calls{"B1"}));
  EXPECT_EQ(g_offThread, 0);
  EXPECT_EQ(P::RemoveMaintenanceItem(&link, 9), 1);
}

TEST_F(PeriodicTest, AHundredItemsOfOneIntervalFormFourRunsAHeartbeatApart) {
  std::vector<std::unique_ptr<Rec>> recs;
  const int timers = TimerTable::Instance().Count();
  for (int i = 0; i < 100; ++i) {
    recs.push_back(std::make_unique<Rec>("r")), P::AddMaintenanceItem(recs.back().get(), 1, 0);
  }
  for (int beat = 1; beat <= 5; ++beat) {
    Step(100);
    EXPECT_EQ(TimerTable::Instance().Count() - timers, std::min(beat, 4)) << beat;
  }
  Step(600);  // one second after the first heartbeat
  for (size_t served : {31u, 31u, 31u, 7u}) {
    EXPECT_EQ(Take().size(), served);
    Step(100);
  }
  Stop();  // before the records go
}

TEST_F(PeriodicTest, RemovingFindsOnlyRunsAndTheLastPairEndsTheRunsTimer) {
  Job* c = new Job(21, "C");
  P::AddMaintenanceItem(&a_, 1, 1);
  P::AddMaintenanceItem(&b_, 1, 1);
  P::AddMaintenanceRCItem(c, 1, 1);
  EXPECT_EQ(P::RemoveMaintenanceItem(&a_, 1), 0);  // still pending
  EXPECT_EQ(P::RemoveMaintenanceRCItem(c, 1), 1);  // pending controllers are found
  P::AddMaintenanceRCItem(c, 1, 1);                // and their pair stays known
  const int timers = TimerTable::Instance().Count();
  Step(100);
  EXPECT_EQ(TimerTable::Instance().Count(), timers + 1);
  EXPECT_EQ(P::RemoveMaintenanceItem(&a_, 1), 1);
  EXPECT_EQ(P::RemoveMaintenanceItem(&a_, 1), 0);
  Step(1000);
  EXPECT_EQ(Take(), (Calls{"B1"}));
  EXPECT_EQ(P::RemoveMaintenanceItem(&b_, 1), 1);
  EXPECT_EQ(TimerTable::Instance().Count(), timers);
  EXPECT_EQ(P::RemoveMaintenanceItem(&a_, 1), 0);  // the run is gone from every list
}

TEST_F(PeriodicTest, ARemovalDuringAPassServesTheRecordOnceMoreAndTheControllerNoMore) {
  Job* c = new Job(22, "C");
  a_.hook = [&](int) { P::RemoveMaintenanceItem(&b_, 1); };
  c->hook = [&](int kind) { kind == 0 ? P::RemoveMaintenanceRCItem(c, 1) : 0; };
  P::AddMaintenanceItem(&a_, 1, 1);
  P::AddMaintenanceItem(&b_, 1, 1);
  P::AddMaintenanceRCItem(c, 1, 0);
  P::AddMaintenanceRCItem(c, 1, 1);
  Step(100);
  Step(1000);
  EXPECT_EQ(Take(), (Calls{"A1", "B1", "C0"}));
  Step(1000);
  EXPECT_EQ(Take(), (Calls{"A1", "C0"}));
}

TEST_F(PeriodicTest, ItemsWhoseLastHolderLeftWhilePendingAreTakenOut) {
  Rec* gone = new Rec("G", false);  // held by nobody but the scheduler
  Rec unloaded{"U"};
  unloaded.SetFocusableStatus(2);  // its release unloads the body, the record lives
  Job* c = new Job(23, "C");
  P::AddMaintenanceItem(gone, 1, 1);
  P::AddMaintenanceItem(&unloaded, 1, 1);
  P::AddMaintenanceRCItem(c, 1, 1);
  c->Release();  // the scheduler's reservation is the last
  const int timers = TimerTable::Instance().Count();
  Step(100);
  EXPECT_EQ(test::Ctrl::Live().count(c), 0u);
  EXPECT_EQ(TimerTable::Instance().Count(), timers + 1);
  Job* again = new Job(23, "D");  // the same id and kind are welcome again
  P::AddMaintenanceRCItem(again, 1, 1);
  Step(100);
  Step(1000);
  EXPECT_EQ(Take(), (Calls{"U1", "D1"}));
  Stop();
}

TEST_F(PeriodicTest, ClosingStopsThePassAfterTheCurrentCallAndRefusesRegistration) {
  std::promise<void> inPass, closed;
  a_.hook = [&](int) { inPass.set_value(), closed.get_future().wait(); };
  P::AddMaintenanceItem(&a_, 1, 1);
  P::AddMaintenanceItem(&b_, 1, 1);
  Step(100);
  clock_.Advance(1000);
  inPass.get_future().wait();
  P* m = m_;
  const unsigned thread = m->GetThreadId();
  G::DeRegisterResourceCtrl(m), m->StartClosingResourceCtrl();
  P::AddMaintenanceItem(&b_, 1, 2);
  EXPECT_EQ(P::RemoveMaintenanceItem(&a_, 1), 0);
  EXPECT_EQ(P::GetPeriodicUpdateManager(), nullptr);
  closed.set_value();
  m->CloseResourceCtrl();  // waits for the pass
  EXPECT_EQ(Take(), (Calls{"A1"}));
  m_ = nullptr;
  EXPECT_TRUE(Until([&] { return MessageQueue::FromThreadId(thread) == nullptr; }));
  P::Start();  // a new login starts a new scheduler
  m_ = P::GetPeriodicUpdateManager();
  EXPECT_NE(m_, nullptr);
}

TEST_F(PeriodicTest, ANegativeIntervalOrPeriodGivesTheLongestTimer) {
  P::AddMaintenanceItem(&a_, -1, 1);
  Step(100), Step(1000);
  EXPECT_EQ(Take(), Calls{});
  EXPECT_EQ(TimerTable::Instance().PeriodOf(P::AddTimer(-5, m_)), INT_MAX);
  EXPECT_EQ(m_->RemoveRCIntervalRun(nullptr, 1), 0);  // no controller: nothing known
}

}  // namespace
}  // namespace kordll
