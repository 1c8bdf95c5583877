#include "kordll/record/BoolItem.h"

#include "kordll/record/ItemPool.h"

namespace kordll {

namespace {
ItemPool g_boolPool;
}  // namespace

BoolItem::BoolItem(CString text) : Item(kTypeBool, std::move(text)) {
  // Only the exact text "0" is false: "00", "false" and " " are all true.
  if (!text_.IsEmpty()) value_ = text_ == CString(u"0") ? 0 : 1;
}

BoolItem::~BoolItem() = default;

CString BoolItem::GetItemString() {
  if (!text_.IsEmpty() && changed_ == 0) return text_;
  text_ = value_ != 0 ? CString(u"1") : CString(u"0");
  return text_;
}

Item* BoolItem::CreateCopyItem() {
  BoolItem* copy = new BoolItem(CString());
  if (copy == nullptr) return nullptr;
  copy->CopyBaseFrom(*this);
  copy->value_ = value_;
  return copy;
}

void BoolItem::SetItem(Item* other) {
  auto* same = dynamic_cast<BoolItem*>(other);
  if (same == nullptr || same->value_ == value_) return;
  text_.Empty();
  value_ = same->value_;
  changed_ = 1;
}

int BoolItem::IsSame(Item* other) {
  auto* same = dynamic_cast<BoolItem*>(other);
  return same != nullptr && same->value_ == value_ ? 1 : 0;
}

void BoolItem::InitializeBoolItemCache() { g_boolPool.Initialize(sizeof(BoolItem)); }
void BoolItem::ReleaseBoolItemCache() { g_boolPool.Release(); }
MemoryHeap* BoolItem::GetBoolItemHeap() { return g_boolPool.Get(); }
void* BoolItem::operator new(size_t size) noexcept { return g_boolPool.Allocate(size); }
void BoolItem::operator delete(void* pointer) noexcept { g_boolPool.Free(pointer); }

}  // namespace kordll
