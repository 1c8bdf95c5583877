#include "kordll/record/MemoryHeap.h"

#include <algorithm>
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

// Fibonacci hashing: window numbers of neighbouring chunks are consecutive,
// and the multiply spreads them over the table.
constexpr uint64_t kGolden = 0x9E3779B97F4A7C15ull;

}  // namespace

MemoryHeap::MemoryHeap(int objectSize)
    : objectSize_(objectSize < 1 ? 1 : objectSize),
      chunkBytes_(static_cast<size_t>(objectSize_) * kObjectsPerChunk),
      windowShift_(WindowShiftFor(chunkBytes_)),
      divisorMagic_(chunkBytes_ <= UINT32_MAX && objectSize_ > 1
                        ? UINT64_MAX / static_cast<uint64_t>(objectSize_) + 1
                        : 0) {}

MemoryHeap::~MemoryHeap() {
  std::lock_guard<std::mutex> hold(mutex_);
  // Live objects are not destroyed: the memory simply goes back.
  for (char* chunk : chunks_) std::free(chunk);
  chunks_.clear();
  windows_.clear();
  next_.clear();
}

size_t MemoryHeap::WindowSlot(uintptr_t key) const {
  const size_t mask = windows_.size() - 1;
  size_t slot = static_cast<size_t>((static_cast<uint64_t>(key) * kGolden) >> 32) & mask;
  while (windows_[slot].key != key && windows_[slot].key != kNoWindow) slot = (slot + 1) & mask;
  return slot;
}

void MemoryHeap::AddWindow(uintptr_t key, int chunkIndex) {
  Window& window = windows_[WindowSlot(key)];
  if (window.key == kNoWindow) {
    window = Window{key, chunkIndex, -1};
    ++windowCount_;
  } else {
    window.second = chunkIndex;
  }
}

bool MemoryHeap::AddChunk() {
  // Indices are 32-bit; refuse to grow past what they count, far beyond any
  // real use.
  if (nextIndex_ > INT32_MAX - kObjectsPerChunk) return false;
  char* chunk = static_cast<char*>(std::malloc(chunkBytes_));
  if (chunk == nullptr) return false;
  const uintptr_t first = reinterpret_cast<uintptr_t>(chunk) >> windowShift_;
  const uintptr_t last = (reinterpret_cast<uintptr_t>(chunk) + chunkBytes_ - 1) >> windowShift_;
  try {
    // Room first, so that nothing below can fail half way: the window table
    // stays at most half full, and a chunk touches at most three windows.
    if ((windowCount_ + 3) * 2 > windows_.size()) {
      std::vector<Window> old(std::max<size_t>(16, windows_.size() * 2), Window{kNoWindow, -1, -1});
      old.swap(windows_);
      for (const Window& w : old) {
        if (w.key != kNoWindow) windows_[WindowSlot(w.key)] = w;
      }
    }
    next_.resize(static_cast<size_t>(nextIndex_) + kObjectsPerChunk, kEndOfQueue);
    chunks_.reserve(chunks_.size() + 1);
  } catch (const std::bad_alloc&) {
    std::free(chunk);
    return false;
  }
  const int chunkIndex = static_cast<int>(chunks_.size());
  chunks_.push_back(chunk);
  for (uintptr_t w = first; w <= last; ++w) AddWindow(w, chunkIndex);
  // Queue the new indices in order behind whatever is already free.
  const int32_t base = static_cast<int32_t>(nextIndex_);
  for (int32_t i = 0; i < kObjectsPerChunk - 1; ++i) next_[base + i] = base + i + 1;
  next_[base + kObjectsPerChunk - 1] = kEndOfQueue;
  if (tail_ >= 0) {
    next_[tail_] = base;
  } else {
    head_ = base;
  }
  tail_ = base + kObjectsPerChunk - 1;
  freeCount_ += kObjectsPerChunk;
  nextIndex_ += kObjectsPerChunk;
  return true;
}

void* MemoryHeap::operator_new(size_t size) {
  if (size > static_cast<size_t>(objectSize_)) return nullptr;
  std::lock_guard<std::mutex> hold(mutex_);
  if (head_ < 0 && !AddChunk()) return nullptr;
  const int32_t index = head_;
  head_ = next_[index];
  if (head_ < 0) tail_ = -1;
  next_[index] = kInUse;
  --freeCount_;
  return chunks_[index / kObjectsPerChunk] +
         static_cast<size_t>(index % kObjectsPerChunk) * objectSize_;
}

int64_t MemoryHeap::IndexOf(const void* pointer) const {
  if (windows_.empty()) return -1;
  const uintptr_t address = reinterpret_cast<uintptr_t>(pointer);
  const Window& window = windows_[WindowSlot(address >> windowShift_)];
  if (window.key == kNoWindow) return -1;
  for (int chunkIndex : {window.first, window.second}) {
    if (chunkIndex < 0) continue;
    const uintptr_t start = reinterpret_cast<uintptr_t>(chunks_[chunkIndex]);
    if (address < start || address - start >= chunkBytes_) continue;
    const uint64_t offset = address - start;
    // offset / objectSize_ without a division instruction when both fit in
    // 32 bits: with m = 2^64 / d + 1, (n * m) >> 64 is exactly n / d.
    const uint64_t place =
        divisorMagic_ != 0
            ? static_cast<uint64_t>((static_cast<unsigned __int128>(offset) * divisorMagic_) >> 64)
            : offset / static_cast<uint64_t>(objectSize_);
    if (place * static_cast<uint64_t>(objectSize_) != offset) return -1;  // inside a block
    return static_cast<int64_t>(chunkIndex) * kObjectsPerChunk + static_cast<int64_t>(place);
  }
  return -1;
}

void MemoryHeap::operator_delete(void* pointer) {
  if (pointer == nullptr) return;
  std::lock_guard<std::mutex> hold(mutex_);
  const int64_t found = IndexOf(pointer);
  if (found < 0 || next_[found] != kInUse) return;  // foreign, or already free
  const int32_t index = static_cast<int32_t>(found);
  next_[index] = kEndOfQueue;
  if (tail_ >= 0) {
    next_[tail_] = index;
  } else {
    head_ = index;
  }
  tail_ = index;
  ++freeCount_;
}

int MemoryHeap::GetChunkCount() {
  std::lock_guard<std::mutex> hold(mutex_);
  return static_cast<int>(chunks_.size());
}

int MemoryHeap::GetFreeCount() {
  std::lock_guard<std::mutex> hold(mutex_);
  return static_cast<int>(freeCount_);
}

int MemoryHeap::GetUsedCount() {
  std::lock_guard<std::mutex> hold(mutex_);
  return static_cast<int>(nextIndex_ - freeCount_);
}

}  // namespace kordll
