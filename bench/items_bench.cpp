// Field items from their pools against plain new/delete of the same
// objects: one round allocates a million items of one typed class and frees
// them all again (in allocation order, so the first-in first-out free list
// is exercised at full length).
//
//   items_bench --benchmark_counter_tabular=true
//
// Each benchmark times the pool round as its own time and runs the same
// round through the global heap alongside; "ratio_vs_new_delete" is pool
// time over heap time (below 1: the pool is faster).

#include <benchmark/benchmark.h>

#include <ctime>
#include <new>
#include <vector>

#include "kordll/record/BoolItem.h"
#include "kordll/record/DateItem.h"
#include "kordll/record/DoubleItem.h"
#include "kordll/record/IntItem.h"
#include "kordll/record/LibraryLifetime.h"

namespace {

using kordll::CString;
// Rounds are timed in processor time of the process (std::clock): on a
// machine shared with other work, wall time would measure that work too.
double Now() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

constexpr int kItems = 1000000;

template <class T>
double PoolRound(std::vector<T*>& items) {
  const double start = Now();
  for (int i = 0; i < kItems; ++i) items[i] = new T(CString());
  for (int i = 0; i < kItems; ++i) delete items[i];
  return Now() - start;
}

// The same objects on the global heap: the class's own operator new is
// bypassed with the global allocation function and placement construction.
template <class T>
double HeapRound(std::vector<T*>& items) {
  const double start = Now();
  for (int i = 0; i < kItems; ++i) {
    void* memory = ::operator new(sizeof(T));
    items[i] = ::new (memory) T(CString());
  }
  for (int i = 0; i < kItems; ++i) {
    items[i]->~T();
    ::operator delete(static_cast<void*>(items[i]));
  }
  return Now() - start;
}

template <class T>
void BM_ItemsPoolVsHeap(benchmark::State& state) {
  kordll::KordllProcessAttach();
  std::vector<T*> items(kItems);
  double pool = 0.0;
  double heap = 0.0;
  for (auto _ : state) {
    const double p = PoolRound(items);
    state.SetIterationTime(p);
    pool += p;
    heap += HeapRound(items);
    benchmark::DoNotOptimize(items.data());
  }
  state.SetItemsProcessed(state.iterations() * kItems);
  const double ratio = heap > 0.0 ? pool / heap : 0.0;
  state.counters["ratio_vs_new_delete"] = ratio;
  state.SetLabel("ratio vs new/delete: " + std::to_string(ratio));
}

BENCHMARK_TEMPLATE(BM_ItemsPoolVsHeap, kordll::IntItem)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_ItemsPoolVsHeap, kordll::DoubleItem)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_ItemsPoolVsHeap, kordll::DateItem)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_ItemsPoolVsHeap, kordll::BoolItem)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// Reuse in a steady state: a window of live items where the oldest is freed
// as a new one is made, so that every allocation comes from the free list.
template <class T>
void BM_ItemsSteadyReuse(benchmark::State& state) {
  kordll::KordllProcessAttach();
  constexpr int kWindow = 10000;
  std::vector<T*> window(kWindow);
  for (int i = 0; i < kWindow; ++i) window[i] = new T(CString());
  int next = 0;
  for (auto _ : state) {
    delete window[next];
    window[next] = new T(CString());
    next = (next + 1) % kWindow;
  }
  for (T* item : window) delete item;
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK_TEMPLATE(BM_ItemsSteadyReuse, kordll::IntItem);
BENCHMARK_TEMPLATE(BM_ItemsSteadyReuse, kordll::DateItem);

}  // namespace

BENCHMARK_MAIN();
