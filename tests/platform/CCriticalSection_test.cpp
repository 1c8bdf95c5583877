#include "kordll/platform/CCriticalSection.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace kordll {
namespace {

// Answers TryLock as seen from another thread, releasing at once if entered.
int TryLockFromOtherThread(CCriticalSection& cs) {
  int entered = -1;
  std::thread other([&] {
    entered = cs.TryLock();
    if (entered) cs.Unlock();
  });
  other.join();
  return entered;
}

// The owner enters again (Lock, TryLock, nested CSingleLocks) and must leave
// as often; until then another thread is kept out.
TEST(CCriticalSectionTest, OwnerEntersAgainAndMustLeaveAsOften) {
  CCriticalSection cs;
  EXPECT_EQ(1, TryLockFromOtherThread(cs));
  cs.Lock();
  cs.Lock();
  EXPECT_EQ(1, cs.TryLock());  // a third entry by the owner
  cs.Unlock();
  cs.Unlock();
  EXPECT_EQ(0, TryLockFromOtherThread(cs));  // still held once
  cs.Unlock();
  EXPECT_EQ(1, TryLockFromOtherThread(cs));
  {
    CSingleLock outer(cs);
    CSingleLock inner(cs);
    EXPECT_EQ(0, TryLockFromOtherThread(cs));
  }
  EXPECT_EQ(1, TryLockFromOtherThread(cs));  // the scopes' ends left it
}

// Lock (re-entered under contention) and TryLock never let two threads in.
TEST(CCriticalSectionConcurrencyTest, ExcludesOtherThreads) {
  CCriticalSection cs;
  constexpr int kThreads = 4;
  constexpr int kRounds = 20000;
  long counter = 0;  // guarded by cs, deliberately not atomic
  int inside = 0;    // guarded by cs
  std::atomic<int> overlaps{0};
  std::atomic<long> entries{0};
  auto enter = [&] {
    if (++inside != 1) overlaps.fetch_add(1);
    long seen = counter;
    counter = seen + 1;
    entries.fetch_add(1);
    --inside;
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        if (i % 2 == 0) {
          CSingleLock lock(cs);
          CSingleLock again(cs);
          enter();
        } else if (cs.TryLock()) {
          enter();
          cs.Unlock();
        }
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(0, overlaps.load());
  EXPECT_EQ(entries.load(), counter);
  EXPECT_GT(entries.load(), static_cast<long>(kThreads) * kRounds / 2);
}

}  // namespace
}  // namespace kordll
