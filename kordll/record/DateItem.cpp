#include "kordll/record/DateItem.h"

#include "kordll/core/DateText.h"
#include "kordll/record/ItemPool.h"

namespace kordll {

namespace {
ItemPool g_datePool;
}  // namespace

DateItem::DateItem(CString text) : Item(kTypeDate, std::move(text)) {
  if (text_.IsEmpty()) {
    value_.SetStatus(COleDateTime::invalid);  // not parsed yet
  } else {
    value_ = DateText::StoredTextToDateTime(text_);
  }
}

DateItem::~DateItem() = default;

CString DateItem::GetItemString() {
  if (changed_ == 0 && (!text_.IsEmpty() || value_.GetStatus() == COleDateTime::invalid)) {
    return text_;
  }
  text_ = DateText::DateTimeToSimpleString(value_);
  return text_;
}

Item* DateItem::CreateCopyItem() {
  DateItem* copy = new DateItem(CString());
  if (copy == nullptr) return nullptr;
  copy->CopyBaseFrom(*this);
  copy->value_ = value_;
  return copy;
}

void DateItem::SetItem(Item* other) {
  auto* same = dynamic_cast<DateItem*>(other);
  if (same == nullptr || same->value_ == value_) return;
  text_.Empty();
  value_ = same->value_;
  changed_ = 1;
}

int DateItem::IsSame(Item* other) {
  auto* same = dynamic_cast<DateItem*>(other);
  return same != nullptr && same->value_ == value_ ? 1 : 0;
}

COleDateTime DateItem::GetDateTime() {
  if (value_.GetStatus() == COleDateTime::invalid && !text_.IsEmpty()) {
    value_ = DateText::StoredTextToDateTime(text_);
  }
  return value_;
}

void DateItem::InitializeDateItemCache() { g_datePool.Initialize(sizeof(DateItem)); }
void DateItem::ReleaseDateItemCache() { g_datePool.Release(); }
MemoryHeap* DateItem::GetDateItemHeap() { return g_datePool.Get(); }
void* DateItem::operator new(size_t size) noexcept { return g_datePool.Allocate(size); }
void DateItem::operator delete(void* pointer) noexcept { g_datePool.Free(pointer); }

}  // namespace kordll
