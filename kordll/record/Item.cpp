#include "kordll/record/Item.h"

#include "kordll/record/BoolItem.h"
#include "kordll/record/DateItem.h"
#include "kordll/record/DoubleItem.h"
#include "kordll/record/IntItem.h"
#include "kordll/record/ItemPool.h"

namespace kordll {

namespace {

// String items are allocated on the ordinary heap; this pool has no user
// but is made and released with the others all the same.
ItemPool g_itemPool;

}  // namespace

Item::Item(CString text) : Item(kTypeString, std::move(text)) {}

Item::Item(int typeId, CString text) : text_(std::move(text)) {
  switch (typeId) {
    case kTypeInt:
      isInteger_ = 1;
      break;
    case kTypeDouble:
      isDouble_ = 1;
      break;
    case kTypeDate:
      isDate_ = 1;
      break;
    case kTypeBool:
      isBoolean_ = 1;
      break;
    default:
      isString_ = 1;
      break;
  }
}

Item::~Item() = default;

void Item::CopyBaseFrom(const Item& src) {
  isInteger_ = src.isInteger_;
  isDouble_ = src.isDouble_;
  isDate_ = src.isDate_;
  isBoolean_ = src.isBoolean_;
  isString_ = src.isString_;
  changed_ = src.changed_;
  text_ = src.text_;
}

CString Item::GetItemString() { return text_; }

Item* Item::CreateCopyItem() {
  Item* copy = new (std::nothrow) Item(CString());
  if (copy != nullptr) copy->CopyBaseFrom(*this);
  return copy;
}

void Item::SetItem(Item* other) {
  if (other == nullptr || !IsString() || !other->IsString()) return;
  if (text_ == other->text_) return;
  text_ = other->text_;
  changed_ = 1;
}

int Item::IsSame(Item* other) {
  if (other == nullptr || !IsString() || !other->IsString()) return 0;
  return text_ == other->text_ ? 1 : 0;
}

void Item::InitializeItemCache() { g_itemPool.Initialize(sizeof(Item)); }
void Item::ReleaseItemCache() { g_itemPool.Release(); }
MemoryHeap* Item::GetItemHeap() { return g_itemPool.Get(); }

Item* Item::CreateTypedItem(int typeId, CString text) {
  switch (typeId) {
    case kTypeInt:
      return new IntItem(std::move(text));
    case kTypeDouble:
      return new DoubleItem(std::move(text));
    case kTypeDate:
      return new DateItem(std::move(text));
    case kTypeBool:
      return new BoolItem(std::move(text));
    default:
      return new (std::nothrow) Item(std::move(text));
  }
}

int Item::GetItemTypeID() const {
  if (isInteger_) return kTypeInt;
  if (isDouble_) return kTypeDouble;
  if (isDate_) return kTypeDate;
  if (isBoolean_) return kTypeBool;
  return kTypeString;
}

}  // namespace kordll
