#include "kordll/record/MemoryHeap.h"

#include <cstdlib>
#include <new>

namespace kordll {

namespace {

// The largest power of two not above bytes (at least 1), as a shift.
int WindowShiftFor(size_t bytes) {
  int shift = 0;
  while (shift < 62 && (size_t{1} << (shift + 1)) <= bytes) ++shift;
  return shift;
}

}  // namespace

MemoryHeap::MemoryHeap(int objectSize)
    : objectSize_(objectSize < 1 ? 1 : objectSize),
      windowShift_(WindowShiftFor(static_cast<size_t>(objectSize_) * kObjectsPerChunk)) {}

MemoryHeap::~MemoryHeap() {
  CSingleLock hold(lock_);
  // Live objects are not destroyed: the memory simply goes back.
  for (char* chunk : chunks_) std::free(chunk);
  chunks_.clear();
  windows_.clear();
  next_.clear();
  inUse_.clear();
}

bool MemoryHeap::AddChunk() {
  // Index arithmetic stays in 64 bits; refuse to grow past what an int
  // index of the original design could count, far beyond any real use.
  if (nextIndex_ > INT32_MAX - kObjectsPerChunk) return false;
  const size_t bytes = static_cast<size_t>(objectSize_) * kObjectsPerChunk;
  char* chunk = static_cast<char*>(std::malloc(bytes));
  if (chunk == nullptr) return false;
  try {
    next_.resize(static_cast<size_t>(nextIndex_) + kObjectsPerChunk, -1);
    inUse_.resize(static_cast<size_t>(nextIndex_) + kObjectsPerChunk, 0);
    const int chunkIndex = static_cast<int>(chunks_.size());
    chunks_.push_back(chunk);
    // Register every address window the chunk touches. A window is no
    // longer than a chunk, so a window meets at most two chunks: one ending
    // in it and one starting in it.
    const uintptr_t first = reinterpret_cast<uintptr_t>(chunk) >> windowShift_;
    const uintptr_t last = (reinterpret_cast<uintptr_t>(chunk) + bytes - 1) >> windowShift_;
    for (uintptr_t w = first; w <= last; ++w) {
      auto [it, inserted] = windows_.try_emplace(w, chunkIndex, -1);
      if (!inserted) it->second.second = chunkIndex;
    }
  } catch (const std::bad_alloc&) {
    // Leave the bookkeeping as it was; the chunk is not used.
    if (!chunks_.empty() && chunks_.back() == chunk) chunks_.pop_back();
    std::free(chunk);
    return false;
  }
  // Queue the new indices in order behind whatever is already free.
  for (int i = 0; i < kObjectsPerChunk; ++i) {
    const int64_t index = nextIndex_ + i;
    if (tail_ >= 0) {
      next_[tail_] = index;
    } else {
      head_ = index;
    }
    tail_ = index;
  }
  freeCount_ += kObjectsPerChunk;
  nextIndex_ += kObjectsPerChunk;
  return true;
}

void* MemoryHeap::operator_new(size_t size) {
  if (size > static_cast<size_t>(objectSize_)) return nullptr;
  CSingleLock hold(lock_);
  if (head_ < 0 && !AddChunk()) return nullptr;
  const int64_t index = head_;
  head_ = next_[index];
  if (head_ < 0) tail_ = -1;
  next_[index] = -1;
  --freeCount_;
  inUse_[index] = 1;
  return chunks_[index / kObjectsPerChunk] +
         static_cast<size_t>(index % kObjectsPerChunk) * objectSize_;
}

int64_t MemoryHeap::IndexOf(const void* pointer) const {
  const uintptr_t address = reinterpret_cast<uintptr_t>(pointer);
  auto it = windows_.find(address >> windowShift_);
  if (it == windows_.end()) return -1;
  const size_t bytes = static_cast<size_t>(objectSize_) * kObjectsPerChunk;
  for (int chunkIndex : {it->second.first, it->second.second}) {
    if (chunkIndex < 0) continue;
    const uintptr_t start = reinterpret_cast<uintptr_t>(chunks_[chunkIndex]);
    if (address < start || address >= start + bytes) continue;
    const uintptr_t offset = address - start;
    if (offset % objectSize_ != 0) return -1;  // inside a block, not its start
    return static_cast<int64_t>(chunkIndex) * kObjectsPerChunk +
           static_cast<int64_t>(offset / objectSize_);
  }
  return -1;
}

void MemoryHeap::operator_delete(void* pointer) {
  if (pointer == nullptr) return;
  CSingleLock hold(lock_);
  const int64_t index = IndexOf(pointer);
  if (index < 0 || !inUse_[index]) return;
  inUse_[index] = 0;
  next_[index] = -1;
  if (tail_ >= 0) {
    next_[tail_] = index;
  } else {
    head_ = index;
  }
  tail_ = index;
  ++freeCount_;
}

int MemoryHeap::GetChunkCount() {
  CSingleLock hold(lock_);
  return static_cast<int>(chunks_.size());
}

int MemoryHeap::GetFreeCount() {
  CSingleLock hold(lock_);
  return static_cast<int>(freeCount_);
}

int MemoryHeap::GetUsedCount() {
  CSingleLock hold(lock_);
  return static_cast<int>(nextIndex_ - freeCount_);
}

}  // namespace kordll
