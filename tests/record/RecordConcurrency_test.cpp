// Several threads at once: item pools shared by all threads, and one record
// reserved, released and held by controllers from several threads.

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "kordll/record/BoolItem.h"
#include "kordll/record/DateItem.h"
#include "kordll/record/DoubleItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/IntItem.h"
#include "kordll/record/LibraryLifetime.h"
#include "kordll/record/MemoryHeap.h"
#include "tests/record/FocusableTestSupport.h"

namespace kordll {
namespace {

constexpr int kThreads = 4;

// Runs body(t) on kThreads threads at once and waits for them all.
template <class Body>
void OnThreads(Body body) {
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) threads.emplace_back(body, t);
  for (auto& thread : threads) thread.join();
}

class ItemPoolConcurrencyTest : public test::FocusableTest {};

TEST_F(ItemPoolConcurrencyTest, BlocksTakenFromManyThreadsAreNeverSharedOrLost) {
  MemoryHeap heap(32);
  std::vector<std::vector<void*>> kept(kThreads);
  OnThreads([&heap, &kept](int t) {
    std::vector<void*> mine;
    for (int round = 0; round < 3000; ++round) {
      void* p = heap.operator_new(32);
      ASSERT_NE(p, nullptr);
      *static_cast<int*>(p) = t;  // a block shared by two threads would be overwritten
      mine.push_back(p);
      if (round % 3 == 2) {
        void* back = mine[mine.size() / 2];
        ASSERT_EQ(*static_cast<int*>(back), t);
        heap.operator_delete(back);
        mine.erase(mine.begin() + mine.size() / 2);
      }
    }
    kept[t] = mine;
  });
  std::set<void*> distinct;
  for (int t = 0; t < kThreads; ++t) {
    for (void* p : kept[t]) EXPECT_EQ(*static_cast<int*>(p), t);
    distinct.insert(kept[t].begin(), kept[t].end());
  }
  EXPECT_EQ(heap.GetUsedCount(), static_cast<int>(distinct.size()));
  EXPECT_EQ(distinct.size(), kThreads * kept[0].size());
  EXPECT_EQ(heap.GetUsedCount() + heap.GetFreeCount(),
            heap.GetChunkCount() * MemoryHeap::kObjectsPerChunk);
}

TEST_F(ItemPoolConcurrencyTest, TypedItemsAreMadeAndDeletedFromAnyThread) {
  const int intsBefore = IntItem::GetIntItemHeap()->GetUsedCount();
  const int datesBefore = DateItem::GetDateItemHeap()->GetUsedCount();
  std::atomic<int> failures{0};
  OnThreads([&failures](int t) {
    std::vector<Item*> items;
    for (int i = 0; i < 2000; ++i) {
      Item* item = Item::CreateTypedItem((i + t) % 5, CString::Formatted(CString(u"%d"), i));
      failures += item == nullptr;
      if (item != nullptr) items.push_back(item);
      if (items.size() > 50) {
        delete items.front();
        items.erase(items.begin());
      }
    }
    for (Item* item : items) delete item;
  });
  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(IntItem::GetIntItemHeap()->GetUsedCount(), intsBefore);
  EXPECT_EQ(DateItem::GetDateItemHeap()->GetUsedCount(), datesBefore);
}

using RecordConcurrencyTest = ItemPoolConcurrencyTest;

TEST_F(RecordConcurrencyTest, ReservationsFromManyThreadsBalanceOut) {
  int deaths = 0;
  auto* record = new test::CountedRecord(4, &deaths);
  record->ReserveHeader(3);
  record->SetFullyLoaded(1);
  OnThreads([record](int) {
    for (int i = 0; i < 5000; ++i) {
      if (record->IsFullyLoaded(1)) record->Release(nullptr);
      record->Reserve();
      record->Release(nullptr);
    }
  });
  EXPECT_EQ(record->GetReferenceCount(), 0);
  EXPECT_EQ(deaths, 0);
  EXPECT_EQ(record->ReleaseHeader(3), 1);
  EXPECT_EQ(deaths, 1);
}

TEST_F(RecordConcurrencyTest, ControllersTakingAndDroppingHeadersKeepTheRecordAlive) {
  int deaths = 0;
  auto* record = new test::CountedRecord(4, &deaths);
  record->ReserveHeader(99);  // held throughout by one controller
  OnThreads([record](int t) {
    for (int i = 0; i < 3000; ++i) {
      record->ReserveHeader(t);
      record->Reserve();
      record->Release(nullptr);
      EXPECT_EQ(record->ReleaseHeader(t), 0);
    }
  });
  EXPECT_EQ(deaths, 0);
  EXPECT_EQ(*record->GetHeaderPossessors(), std::vector<int>{99});
  EXPECT_EQ(record->ReleaseHeader(99), 1);
  EXPECT_EQ(deaths, 1);
}

TEST_F(RecordConcurrencyTest, TheLastOfManyReleasesDestroysTheRecordExactlyOnce) {
  for (int round = 0; round < 200; ++round) {
    int deaths = 0;
    auto* record = new test::CountedRecord(4, &deaths);
    for (int t = 0; t < kThreads; ++t) record->Reserve();
    std::atomic<int> destroyedCount{0};
    std::atomic<int> ready{0};
    OnThreads([record, &destroyedCount, &ready](int) {
      for (++ready; ready.load() < kThreads;) {
      }
      int destroyed = 0;
      record->Release(&destroyed);
      destroyedCount += destroyed;
    });
    ASSERT_EQ(destroyedCount.load(), 1);
    ASSERT_EQ(deaths, 1);
  }
}

}  // namespace
}  // namespace kordll
