// Message passing: posted messages per second through a thread's queue to a
// target's handler, on one thread and across threads, and the round trip of
// a message sent across threads. Each queue workload runs after its peer, a
// bare mutex-and-deque queue doing the same hand-over, and reports
// "ratio_vs_deque" (time per message of the queue over the peer's).
//
//   MessageQueue_bench --benchmark_min_time=0.5

#include <benchmark/benchmark.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <future>
#include <mutex>
#include <thread>

#include "kordll/platform/CWinThread.h"
#include "kordll/platform/CWnd.h"

namespace {

using kordll::CWinThread;
using kordll::CWnd;
using kordll::HWND;

constexpr int kBatch = 1000;

// Seconds per message of the last peer run, per workload.
double g_peer_same_thread = 0;
double g_peer_cross_thread = 0;

void ReportRatio(benchmark::State& state, double start_s, double peer) {
  double per_message = start_s / (static_cast<double>(state.iterations()) * kBatch);
  state.SetItemsProcessed(state.iterations() * kBatch);
  if (peer > 0) state.counters["ratio_vs_deque"] = per_message / peer;
}

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

class CountingWnd : public CWnd {
 public:
  intptr_t WindowProc(unsigned message, intptr_t w, intptr_t) override {
    std::lock_guard<std::mutex> lock(mu);
    sum += w;
    if (message == 2) cv.notify_all();
    ++count;
    return count;
  }
  std::mutex mu;
  std::condition_variable cv;
  int64_t sum = 0;
  int64_t count = 0;
};

// The peer: what a hand-written queue costs for the same work.
struct PeerQueue {
  std::mutex mu;
  std::condition_variable cv;
  std::deque<intptr_t> items;
};

void BM_PeerDequeSameThread(benchmark::State& state) {
  PeerQueue queue;
  int64_t sum = 0;
  double start = Now();
  for (auto _ : state) {
    for (int i = 0; i < kBatch; ++i) {
      std::lock_guard<std::mutex> lock(queue.mu);
      queue.items.push_back(i);
    }
    for (;;) {
      std::lock_guard<std::mutex> lock(queue.mu);
      if (queue.items.empty()) break;
      sum += queue.items.front();
      queue.items.pop_front();
    }
  }
  benchmark::DoNotOptimize(sum);
  double elapsed = Now() - start;
  g_peer_same_thread = elapsed / (static_cast<double>(state.iterations()) * kBatch);
  ReportRatio(state, elapsed, 0);
}
BENCHMARK(BM_PeerDequeSameThread);

void BM_PostAndPumpSameThread(benchmark::State& state) {
  CountingWnd wnd;
  wnd.Create();
  double start = Now();
  for (auto _ : state) {
    for (int i = 0; i < kBatch; ++i) wnd.PostMessage(1, i, 0);
    kordll::PumpWaitingMessages();
  }
  ReportRatio(state, Now() - start, g_peer_same_thread);
  wnd.DestroyWindow();
}
BENCHMARK(BM_PostAndPumpSameThread);

void BM_PeerDequeCrossThread(benchmark::State& state) {
  PeerQueue queue;
  int64_t handled = 0;  // guarded by done_mu
  std::mutex done_mu;
  std::condition_variable done_cv;
  bool stop = false;
  std::thread consumer([&] {
    for (;;) {
      std::unique_lock<std::mutex> lock(queue.mu);
      queue.cv.wait(lock, [&] { return !queue.items.empty(); });
      intptr_t item = queue.items.front();
      queue.items.pop_front();
      lock.unlock();
      if (item < 0) break;
      std::lock_guard<std::mutex> done(done_mu);
      ++handled;
      done_cv.notify_all();
    }
  });
  double start = Now();
  int64_t target = 0;
  for (auto _ : state) {
    for (int i = 0; i < kBatch; ++i) {
      {
        std::lock_guard<std::mutex> lock(queue.mu);
        queue.items.push_back(i);
      }
      queue.cv.notify_one();
    }
    target += kBatch;
    std::unique_lock<std::mutex> done(done_mu);
    done_cv.wait(done, [&] { return handled >= target; });
  }
  double elapsed = Now() - start;
  {
    std::lock_guard<std::mutex> lock(queue.mu);
    queue.items.push_back(-1);
    stop = true;
  }
  queue.cv.notify_one();
  consumer.join();
  benchmark::DoNotOptimize(stop);
  g_peer_cross_thread = elapsed / (static_cast<double>(state.iterations()) * kBatch);
  ReportRatio(state, elapsed, 0);
}
BENCHMARK(BM_PeerDequeCrossThread)->UseRealTime();

// A thread owning a CountingWnd for the cross-thread workloads.
class OwnerThread : public CWinThread {
 public:
  OwnerThread() { m_bAutoDelete = 0; }
  int InitInstance() override {
    wnd.Create();
    ready.set_value(wnd.GetSafeHwnd());
    return 1;
  }
  int ExitInstance() override {
    wnd.DestroyWindow();
    return 0;
  }
  CountingWnd wnd;
  std::promise<HWND> ready;
};

void BM_PostCrossThread(benchmark::State& state) {
  OwnerThread owner;
  std::future<HWND> ready = owner.ready.get_future();
  owner.CreateThread();
  HWND hwnd = ready.get();
  double start = Now();
  int64_t target = 0;
  for (auto _ : state) {
    for (int i = 0; i < kBatch; ++i) kordll::PostMessage(hwnd, i + 1 == kBatch ? 2 : 1, i, 0);
    target += kBatch;
    std::unique_lock<std::mutex> lock(owner.wnd.mu);
    owner.wnd.cv.wait(lock, [&] { return owner.wnd.count >= target; });
  }
  ReportRatio(state, Now() - start, g_peer_cross_thread);
  owner.PostThreadMessage(kordll::kMsgQuit, 0, 0);
  owner.WaitForExit();
}
BENCHMARK(BM_PostCrossThread)->UseRealTime();

void BM_SendCrossThreadRoundTrip(benchmark::State& state) {
  OwnerThread owner;
  std::future<HWND> ready = owner.ready.get_future();
  owner.CreateThread();
  HWND hwnd = ready.get();
  for (auto _ : state) benchmark::DoNotOptimize(kordll::SendMessage(hwnd, 1, 1, 0));
  state.SetItemsProcessed(state.iterations());
  owner.PostThreadMessage(kordll::kMsgQuit, 0, 0);
  owner.WaitForExit();
}
BENCHMARK(BM_SendCrossThreadRoundTrip)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
