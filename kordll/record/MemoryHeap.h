// MemoryHeap: a pool of fixed-size blocks for one class of field item.
//
// Blocks come from chunks of 500 objects, so that 500 items cost one malloc
// and reuse costs none. Freed blocks are handed out again in first-in
// first-out order: a hole made by a delete is refilled only after every block
// that was freed before it (and every block never used yet) has gone out,
// which spreads reuse over the chunks. Allocation and release take constant
// time: the free list is a queue linked through the block indices, and a
// pointer finds its chunk through a small hash of address windows.
//
// Memory goes back to the system only when the heap is destroyed; the
// destructor frees every chunk whatever is still in use and runs no
// destructor of a live object.
//
// Thread safety: every operation takes the heap's own lock, so blocks may be
// taken and given back from any thread. The lock is a leaf: nothing else is
// locked while it is held.

#ifndef KORDLL_RECORD_MEMORYHEAP_H_
#define KORDLL_RECORD_MEMORYHEAP_H_

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kordll/platform/CCriticalSection.h"

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
  // Adds one chunk and queues its indices. REQUIRES: lock_ held.
  bool AddChunk();
  // The index of the block at pointer, or -1. REQUIRES: lock_ held.
  int64_t IndexOf(const void* pointer) const;

  const int objectSize_;

  CCriticalSection lock_;
  // State below is protected by lock_.
  std::vector<char*> chunks_;
  // Free list as a queue linked through block indices: next_[i] is the index
  // queued after i, or -1. head_ is taken from, tail_ appended to.
  std::vector<int64_t> next_;
  std::vector<uint8_t> inUse_;
  int64_t head_ = -1;
  int64_t tail_ = -1;
  int64_t freeCount_ = 0;
  int64_t nextIndex_ = 0;  // first index not yet queued
  // Address window (address >> windowShift_) to the chunks that touch it; a
  // window is no longer than a chunk, so at most two chunks share one.
  int windowShift_ = 0;
  std::unordered_map<uintptr_t, std::pair<int, int>> windows_;
};

}  // namespace kordll

#endif  // KORDLL_RECORD_MEMORYHEAP_H_
