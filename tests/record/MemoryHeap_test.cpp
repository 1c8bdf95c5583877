// Pools of field items: chunking, first-in first-out reuse, foreign
// pointers, and the class-level allocation of the typed items across
// library start-up and shut-down. Several threads at once: item pools shared
// by all threads, and one record reserved, released and held by controllers
// from several threads.

#include "kordll/record/MemoryHeap.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include "kordll/record/BoolItem.h"
#include "kordll/record/DateItem.h"
#include "kordll/record/DoubleItem.h"
#include "kordll/record/IntItem.h"
#include "kordll/record/LibraryLifetime.h"
#include "tests/record/FocusableTestSupport.h"

namespace kordll {
namespace {

constexpr int kChunk = MemoryHeap::kObjectsPerChunk;

// A chunk holds kChunk blocks side by side; freed blocks come back first in,
// first out, so a block freed while the chunk's never used blocks remain waits
// behind them all.
TEST(MemoryHeapTest, BlocksFillAChunkInOrderAndFreedOnesComeBackInTheOrderFreed) {
  MemoryHeap heap(24);
  std::vector<char*> blocks;
  for (int i = 0; i < kChunk; ++i) blocks.push_back(static_cast<char*>(heap.operator_new(24)));
  for (int i = 1; i < kChunk; ++i) ASSERT_EQ(blocks[i] - blocks[i - 1], 24);
  for (int i : {7, 3, 250}) heap.operator_delete(blocks[i]);
  for (int i : {7, 3, 250}) EXPECT_EQ(heap.operator_new(24), blocks[i]);
  EXPECT_EQ(heap.GetFreeCount(), 0);
  ASSERT_NE(heap.operator_new(24), nullptr);
  EXPECT_EQ(heap.GetChunkCount(), 2);
  heap.operator_delete(blocks[0]);
  std::set<void*> taken;
  for (int i = 0; i < kChunk - 1; ++i) {
    void* p = heap.operator_new(24);
    ASSERT_NE(p, blocks[0]) << "hole refilled too early, at take " << i;
    taken.insert(p);
  }
  EXPECT_EQ(taken.size(), static_cast<size_t>(kChunk - 1));
  EXPECT_EQ(heap.operator_new(24), blocks[0]);
  // Every block is taken: a size beyond the object size gets nothing, and
  // makes no chunk; a smaller one does.
  EXPECT_EQ(heap.operator_new(25), nullptr);
  EXPECT_EQ(heap.GetChunkCount(), 2);
  EXPECT_NE(heap.operator_new(1), nullptr);
  EXPECT_EQ(heap.GetChunkCount(), 3);
}

TEST(MemoryHeapTest, ForeignInnerAndTwiceFreedPointersChangeNothing) {
  MemoryHeap heap(32);
  char* a = static_cast<char*>(heap.operator_new(32));
  char* b = static_cast<char*>(heap.operator_new(32));
  int local = 0;
  std::vector<char> elsewhere(64);
  heap.operator_delete(&local);
  heap.operator_delete(elsewhere.data());
  heap.operator_delete(a + 1);  // inside a block, not its start
  heap.operator_delete(nullptr);
  EXPECT_EQ(heap.GetUsedCount(), 2);
  heap.operator_delete(a);
  heap.operator_delete(a);  // already free
  EXPECT_EQ(heap.GetUsedCount(), 1);
  // The block freed once is queued once: it comes back once, at the end.
  std::set<void*> seen;
  for (int i = 0; i < kChunk - 1; ++i) seen.insert(heap.operator_new(32));
  EXPECT_EQ(seen.size(), static_cast<size_t>(kChunk - 1));
  EXPECT_TRUE(seen.count(a));
  EXPECT_FALSE(seen.count(b));
}

TEST(MemoryHeapTest, BlocksOfAnyObjectSizeAreWritableAndFoundAgainAndInnerPointersAreNot) {
  for (int size : {1, 7, 72, 1000}) {
    MemoryHeap heap(size);
    std::vector<char*> blocks;
    for (int i = 0; i < 3 * kChunk; ++i) {
      char* p = static_cast<char*>(heap.operator_new(1));
      ASSERT_NE(p, nullptr);
      std::memset(p, i & 0xff, size);  // blocks that overlapped would overwrite each other
      blocks.push_back(p);
    }
    for (int i = 0; i < 3 * kChunk; ++i) {
      ASSERT_EQ(blocks[i][size - 1], static_cast<char>(i & 0xff)) << "size " << size;
    }
    if (size > 1) {
      for (char* p : blocks) heap.operator_delete(p + size - 1);  // last byte of a block
      ASSERT_EQ(heap.GetUsedCount(), 3 * kChunk) << "size " << size;
    }
  }
}

// --- Class-level allocation of the typed items ------------------------------

class PooledItemTest : public ::testing::Test {
 protected:
  void SetUp() override { KordllProcessAttach(); }
  void TearDown() override { KordllProcessAttach(); }
};

// (That typed items come from their pools and go back to them shows below: after
// shut-down they cannot be made, and the thread test finds the pools' counts as before.)
TEST_F(PooledItemTest, AfterShutDownAllocationsGiveNullAndStartUpMendsThem) {
  KordllProcessDetach();
  EXPECT_EQ(KordllIsAttached(), 0);
  EXPECT_EQ(IntItem::GetIntItemHeap(), nullptr);
  EXPECT_EQ(new IntItem(CString(u"1")), nullptr);
  for (int type : {0, 1, 2, 3}) EXPECT_EQ(Item::CreateTypedItem(type, CString(u"1")), nullptr);
  // A string item needs no pool.
  Item* text = Item::CreateTypedItem(4, CString(u"still"));
  ASSERT_NE(text, nullptr);
  delete text;

  KordllProcessAttach();
  KordllProcessAttach();  // idempotent
  EXPECT_EQ(KordllIsAttached(), 1);
  Item* back = Item::CreateTypedItem(0, CString(u"7"));
  EXPECT_EQ(static_cast<IntItem*>(back)->GetInt(), 7);
  delete back;
}

TEST_F(PooledItemTest, DeletingIntoAReleasedPoolDoesNothing) {
  // A block of the old pool, kept only as an address.
  const volatile uintptr_t address =
      reinterpret_cast<uintptr_t>(BoolItem::GetBoolItemHeap()->operator_new(sizeof(BoolItem)));
  ASSERT_NE(address, 0u);
  BoolItem::ReleaseBoolItemCache();
  BoolItem::operator delete(reinterpret_cast<void*>(address));  // no pool: ignored
  BoolItem::InitializeBoolItemCache();
  // Foreign to the new pool (or, if the new chunk reuses the old address,
  // never handed out by it): ignored either way.
  BoolItem::operator delete(reinterpret_cast<void*>(address));
  EXPECT_EQ(BoolItem::GetBoolItemHeap()->GetUsedCount(), 0);
  EXPECT_EQ(BoolItem::GetBoolItemHeap()->GetFreeCount(), 0);
}

int g_registeredStarts = 0;
int g_registeredReleases = 0;
void CountStart() { ++g_registeredStarts; }
void CountRelease() { ++g_registeredReleases; }

TEST_F(PooledItemTest, RegisteredCachesStartAndStopWithTheLibrary) {
  KordllRegisterCache(&CountStart, &CountRelease);
  EXPECT_EQ(g_registeredStarts, 1);  // already started: runs at once
  KordllRegisterCache(&CountStart, &CountRelease);
  EXPECT_EQ(g_registeredStarts, 1);  // registered once only
  KordllProcessDetach();
  EXPECT_EQ(g_registeredReleases, 1);
  KordllProcessAttach();
  EXPECT_EQ(g_registeredStarts, 2);
}

// --- Several threads at once ----------------------------------------------------

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
