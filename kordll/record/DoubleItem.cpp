#include "kordll/record/DoubleItem.h"

#include "kordll/record/ItemPool.h"

namespace kordll {

namespace {
ItemPool g_doublePool;
}  // namespace

// Nothing is parsed here: the record parses on the first typed read, so a
// load never pays for a double nobody reads.
DoubleItem::DoubleItem(CString text) : Item(kTypeDouble, std::move(text)) {}

DoubleItem::~DoubleItem() = default;

Item* DoubleItem::CreateCopyItem() {
  DoubleItem* copy = new DoubleItem(CString());
  if (copy == nullptr) return nullptr;
  copy->CopyBaseFrom(*this);
  copy->value_ = value_;
  return copy;
}

void DoubleItem::SetItem(Item* other) {
  auto* same = dynamic_cast<DoubleItem*>(other);
  if (same == nullptr || same->value_ == value_) return;
  text_.Empty();
  value_ = same->value_;
  changed_ = 1;
}

int DoubleItem::IsSame(Item* other) {
  auto* same = dynamic_cast<DoubleItem*>(other);
  return same != nullptr && same->value_ == value_ ? 1 : 0;
}

void DoubleItem::InitializeDoubleItemCache() { g_doublePool.Initialize(sizeof(DoubleItem)); }
void DoubleItem::ReleaseDoubleItemCache() { g_doublePool.Release(); }
MemoryHeap* DoubleItem::GetDoubleItemHeap() { return g_doublePool.Get(); }
void* DoubleItem::operator new(size_t size) noexcept { return g_doublePool.Allocate(size); }
void DoubleItem::operator delete(void* pointer) noexcept { g_doublePool.Free(pointer); }

}  // namespace kordll
