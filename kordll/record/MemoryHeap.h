// MemoryHeap: a pool of fixed-size blocks for one class of field item.
//
// Blocks come from chunks of 500 objects, so that 500 items cost one malloc
// and reuse costs none. Freed blocks are handed out again in first-in
// first-out order: a hole made by a delete is refilled only after every block
// that was freed before it (and every block never used yet) has gone out,
// which spreads reuse over the chunks. Allocation and release take constant
// time: the free list is a queue linked through the block indices, and a
// pointer finds its chunk through a small open-addressed table of address
// windows (one multiply and, as a rule, one probe).
//
// Memory goes back to the system only when the heap is destroyed; the
// destructor frees every chunk whatever is still in use and runs no
// destructor of a live object.
//
// Thread safety: every operation takes the heap's own lock, so blocks may be
// taken and given back from any thread. The lock is a leaf: nothing else is
// locked while it is held, and the heap never enters it twice, so it is a
// plain (not re-entrant) mutex, which is cheaper on this hot path.

#ifndef KORDLL_RECORD_MEMORYHEAP_H_
#define KORDLL_RECORD_MEMORYHEAP_H_

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

namespace kordll {

class MemoryHeap {
 public:
  // Objects per chunk.
  static constexpr int kObjectsPerChunk = 500;

  // objectSize is the size of one block in bytes; values below 1 count as 1.
  explicit MemoryHeap(int objectSize);
  ~MemoryHeap();

  MemoryHeap(const MemoryHeap&) = delete;
  MemoryHeap& operator=(const MemoryHeap&) = delete;

  // Hands out one block of the heap's object size. size is the size the
  // class asks for; a size larger than the object size cannot be served and
  // gives null, as does a failed chunk allocation. Never throws.
  void* operator_new(size_t size);

  // Gives a block back: it joins the end of the free list. A pointer that
  // this heap did not hand out, or that is already free, is ignored.
  void operator_delete(void* pointer);

  // Counts, for tests and statistics.
  int GetObjectSize() const { return objectSize_; }
  int GetChunkCount();
  int GetFreeCount();  // blocks ready in the free list
  int GetUsedCount();  // blocks handed out and not given back

 private:
  // One address window (address >> windowShift_) and the chunks that touch
  // it. A window is no longer than a chunk, so at most two chunks share one.
  struct Window {
    uintptr_t key;  // kNoWindow for an empty place of the table
    int first;      // chunk index, or -1
    int second;     // chunk index, or -1
  };
  static constexpr uintptr_t kNoWindow = ~uintptr_t{0};
  // Marks in next_ besides a queued index: the block is handed out, or it
  // is free and last in the queue.
  static constexpr int32_t kInUse = -2;
  static constexpr int32_t kEndOfQueue = -1;

  // Adds one chunk and queues its indices. REQUIRES: mutex_ held.
  bool AddChunk();
  // Registers chunkIndex under window key. REQUIRES: mutex_ held and room
  // in windows_ (at most half full).
  void AddWindow(uintptr_t key, int chunkIndex);
  // The place of key in windows_, or of the empty place where it would go.
  size_t WindowSlot(uintptr_t key) const;
  // The index of the block at pointer, or -1. REQUIRES: mutex_ held.
  int64_t IndexOf(const void* pointer) const;

  const int objectSize_;
  const size_t chunkBytes_;
  // Address window size as a shift: the largest power of two not above one
  // chunk.
  const int windowShift_;
  // 2^64 / objectSize_ + 1, for dividing offsets inside a chunk by a
  // multiply; 0 when a chunk is too large for it (or the size is 1).
  const uint64_t divisorMagic_;

  std::mutex mutex_;
  // State below is protected by mutex_.
  std::vector<char*> chunks_;
  // Free list as a queue linked through block indices: next_[i] is the index
  // queued after i, kEndOfQueue for the last free block, kInUse for a block
  // handed out. head_ is taken from, tail_ appended to (-1: queue empty).
  std::vector<int32_t> next_;
  int32_t head_ = -1;
  int32_t tail_ = -1;
  int64_t freeCount_ = 0;
  int64_t nextIndex_ = 0;  // first index not yet queued
  // Open-addressed table (linear probing, power-of-two size, never more
  // than half full) of the windows that chunks touch.
  std::vector<Window> windows_;
  size_t windowCount_ = 0;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_MEMORYHEAP_H_
