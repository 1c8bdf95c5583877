// ItemPool: the process-wide pool slot of one pooled class.
//
// Internal to the record core: each pooled class keeps one ItemPool and
// forwards its class-level allocation, start-up and shut-down to it.

#ifndef KORDLL_RECORD_ITEMPOOL_H_
#define KORDLL_RECORD_ITEMPOOL_H_

#include <atomic>
#include <cstddef>
#include <new>

#include "kordll/record/MemoryHeap.h"

namespace kordll {

class ItemPool {
 public:
  constexpr ItemPool() = default;
  ItemPool(const ItemPool&) = delete;
  ItemPool& operator=(const ItemPool&) = delete;

  // Creates the heap with objectSize if there is none yet.
  void Initialize(int objectSize) {
    if (heap_.load(std::memory_order_acquire) != nullptr) return;
    MemoryHeap* fresh = new (std::nothrow) MemoryHeap(objectSize);
    if (fresh == nullptr) return;
    MemoryHeap* expected = nullptr;
    if (!heap_.compare_exchange_strong(expected, fresh, std::memory_order_acq_rel)) delete fresh;
  }
  // Deletes the heap, if any. Blocks still handed out are freed with it.
  void Release() { delete heap_.exchange(nullptr, std::memory_order_acq_rel); }

  MemoryHeap* Get() const { return heap_.load(std::memory_order_acquire); }

  // Null without a heap.
  void* Allocate(size_t size) {
    MemoryHeap* heap = Get();
    return heap != nullptr ? heap->operator_new(size) : nullptr;
  }
  // Nothing without a heap.
  void Free(void* pointer) {
    MemoryHeap* heap = Get();
    if (heap != nullptr) heap->operator_delete(pointer);
  }

 private:
  std::atomic<MemoryHeap*> heap_{nullptr};
};

}  // namespace kordll

#endif  // KORDLL_RECORD_ITEMPOOL_H_
