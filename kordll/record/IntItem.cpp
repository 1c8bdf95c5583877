#include "kordll/record/IntItem.h"

#include "kordll/platform/CRuntime.h"
#include "kordll/record/ItemPool.h"

namespace kordll {

namespace {
ItemPool g_intPool;
}  // namespace

IntItem::IntItem(CString text) : Item(kTypeInt, std::move(text)) {
  if (!text_.IsEmpty()) value_ = _wtoi(text_);
}

IntItem::~IntItem() = default;

CString IntItem::GetItemString() {
  if (!text_.IsEmpty() && changed_ == 0) return text_;
  text_ = _itow(value_, 10);
  return text_;
}

Item* IntItem::CreateCopyItem() {
  IntItem* copy = new IntItem(CString());
  if (copy == nullptr) return nullptr;
  copy->CopyBaseFrom(*this);
  copy->value_ = value_;
  return copy;
}

void IntItem::SetItem(Item* other) {
  auto* same = dynamic_cast<IntItem*>(other);
  if (same == nullptr || same->value_ == value_) return;
  text_.Empty();
  value_ = same->value_;
  changed_ = 1;
}

int IntItem::IsSame(Item* other) {
  auto* same = dynamic_cast<IntItem*>(other);
  return same != nullptr && same->value_ == value_ ? 1 : 0;
}

int IntItem::GetInt() {
  // -1 is also a real value; parsing such an item again does no harm.
  if (value_ == -1 && !text_.IsEmpty()) value_ = _wtoi(text_);
  return value_;
}

void IntItem::InitializeIntItemCache() { g_intPool.Initialize(sizeof(IntItem)); }
void IntItem::ReleaseIntItemCache() { g_intPool.Release(); }
MemoryHeap* IntItem::GetIntItemHeap() { return g_intPool.Get(); }
void* IntItem::operator new(size_t size) noexcept { return g_intPool.Allocate(size); }
void IntItem::operator delete(void* pointer) noexcept { g_intPool.Free(pointer); }

}  // namespace kordll
