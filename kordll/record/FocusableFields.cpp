// Focusable: the item array, field reads and writes, and field tests. The
// accessors of post fields and tags are in FocusablePost.cpp.

#include <algorithm>

#include "kordll/core/DateText.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/record/BoolItem.h"
#include "kordll/record/DateItem.h"
#include "kordll/record/DoubleItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/FocusableImpl.h"
#include "kordll/record/FocusableInternal.h"
#include "kordll/record/IntItem.h"
#include "kordll/record/Item.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RecordIds.h"
#include "kordll/record/RelationsEntryPoints.h"

namespace kordll {

using focusable_internal::ParsedDouble;

namespace {

// The stored shape of dates; records write dates in this form.
const CString kStoredDateFormat(u"%m/%d/%y@%H:%M");

// Places the item array gets at its first growth: a post has a dozen
// fields.
constexpr size_t kInitialItemCapacity = 16;

// Reads a piece of stored text into an existing item at once, by the
// item's own type.
void ParseInto(Item* item, const CString& text) {
  if (auto* i = dynamic_cast<IntItem*>(item)) {
    i->SetValue(_wtoi(text));
  } else if (auto* d = dynamic_cast<DoubleItem*>(item)) {
    d->SetValue(_wtof(text));
  } else if (auto* t = dynamic_cast<DateItem*>(item)) {
    t->SetValue(DateText::StoredTextToDateTime(text));
  } else if (auto* b = dynamic_cast<BoolItem*>(item)) {
    b->SetValue(text == CString(u"0") ? 0 : 1);
  }
}

// The whole part of number, held to the int range; not a number gives 0.
int WholePart(double number) {
  if (!(number == number)) return 0;
  if (number >= 2147483647.0) return 2147483647;
  if (number <= -2147483648.0) return -2147483647 - 1;
  return static_cast<int>(number);
}

// Writes a number into an existing typed item in that item's own native
// form: an int or a flag takes the whole part, a double the number, a date
// the number as its day count. Returns false for a string item, which has no
// native form and takes the value's stored text instead.
bool StoreNumber(Item* item, double number) {
  if (auto* i = dynamic_cast<IntItem*>(item)) {
    i->SetValue(WholePart(number));
  } else if (auto* b = dynamic_cast<BoolItem*>(item)) {
    b->SetValue(WholePart(number));
  } else if (auto* d = dynamic_cast<DoubleItem*>(item)) {
    d->SetValue(number);
  } else if (auto* t = dynamic_cast<DateItem*>(item)) {
    t->SetValue(COleDateTime(number));
  } else {
    return false;
  }
  return true;
}

// Marks the native value of an item as not parsed yet.
void MarkUnparsed(Item* item) {
  if (auto* i = dynamic_cast<IntItem*>(item)) {
    i->SetValue(-1);
  } else if (auto* d = dynamic_cast<DoubleItem*>(item)) {
    d->SetValue(0.0);
  } else if (auto* t = dynamic_cast<DateItem*>(item)) {
    COleDateTime unparsed = t->GetValue();
    unparsed.SetStatus(COleDateTime::invalid);
    t->SetValue(unparsed);
  }
}
}  // namespace

// --- Items ----------------------------------------------------------------

Item* Focusable::GetItem(int id) const {
  if (impl_ == nullptr || id < 1) return nullptr;
  if (static_cast<size_t>(id) > impl_->items.size()) return nullptr;
  return impl_->items[id - 1];
}

bool Focusable::EnsureItemPlace(int id) {
  if (impl_ == nullptr || id < 1 || id > kMaxFieldID) return false;
  std::vector<Item*>& items = impl_->items;
  if (items.size() < static_cast<size_t>(id)) {
    // A body is filled field by field in rising order; room for a dozen
    // fields at the first growth spares the array a reallocation per
    // doubling.
    if (items.capacity() < static_cast<size_t>(id)) {
      items.reserve(
          std::max<size_t>({static_cast<size_t>(id), 2 * items.capacity(), kInitialItemCapacity}));
    }
    items.resize(static_cast<size_t>(id), nullptr);
  }
  return true;
}

Item* Focusable::PrepareItemForSet(int id, int type) {
  if (!EnsureItemPlace(id)) return nullptr;
  Item*& slot = impl_->items[id - 1];
  // An item that is there takes the value as it stands, whatever its type
  // (the setter converts the value to the item's own form). Only a missing
  // item is made, of the setter's type; null when its pool is gone.
  if (slot == nullptr) slot = Item::CreateTypedItem(type, CString());
  return slot;
}
// --- Field reads ---------------------------------------------------------------------------------
//
//   operation         lowest id   fallback
//   GetFieldString    0           ""
//   GetFieldInt       1           -1
//   GetFieldBool      1           below: -1, absent or other type: 0
//   GetFieldDouble    1           below: -1.0, absent or other type: 0.0
//   GetFieldDate      2           invalid date
//   GetValueStr       0           returns 0
//   GetValueInt       1           returns 0
//   GetValueDouble    4           returns 0
//   GetValueDate      2           returns 0
//   GetValueBOOL      4           returns 0

CString Focusable::GetFieldString(int id, int) {
  if (impl_ == nullptr || id < 0) return CString();
  if (id == 0) return impl_->guid;
  Item* item = GetItem(id);
  if (item == nullptr) return CString();
  if (item->IsString()) return item->GetText();
  if (auto* i = dynamic_cast<IntItem*>(item)) {
    if (i->GetText().IsEmpty() || i->IsChanged()) {
      i->SetText(CString::Formatted(CString(u"%d"), i->GetValue()));
    }
    return i->GetText();
  }
  if (auto* t = dynamic_cast<DateItem*>(item)) {
    if (t->GetText().IsEmpty() || t->IsChanged()) {
      t->SetText(t->GetValue().Format(kStoredDateFormat));
    }
    return t->GetText();
  }
  if (auto* b = dynamic_cast<BoolItem*>(item)) {
    return b->GetValue() != 0 ? CString(u"1") : CString(u"0");
  }
  if (auto* d = dynamic_cast<DoubleItem*>(item)) {
    // Printed, never stored, and the item is left as it is: a value still in
    // text form stays unparsed until a typed read. What is printed is the
    // value that text stands for, so that a re-save writes the stored value
    // and not the unparsed placeholder.
    double value = d->GetValue();
    if (value == 0.0 && !d->GetText().IsEmpty()) value = _wtof(d->GetText());
    return CString::Formatted(CString(u"%f"), value);
  }
  return item->GetText();
}

int Focusable::GetFieldCount(int) {
  if (impl_ == nullptr) return 0;
  if (impl_->items.empty()) return 1;
  return static_cast<int>(impl_->items.size()) + 1;
}

int Focusable::GetFieldInt(int id) {
  if (id < 1) return -1;
  auto* item = dynamic_cast<IntItem*>(GetItem(id));
  return item != nullptr ? item->GetInt() : -1;
}

int Focusable::GetFieldBool(int id) {
  if (id < 1) return -1;
  auto* item = dynamic_cast<BoolItem*>(GetItem(id));
  return item != nullptr ? item->GetValue() : 0;
}

double Focusable::GetFieldDouble(int id) {
  if (id < 1) return -1.0;
  auto* item = dynamic_cast<DoubleItem*>(GetItem(id));
  return item != nullptr ? ParsedDouble(item) : 0.0;
}

COleDateTime Focusable::GetFieldDate(int id) {
  if (id < 2) return COleDateTime::Invalid();
  auto* item = dynamic_cast<DateItem*>(GetItem(id));
  return item != nullptr ? item->GetDateTime() : COleDateTime::Invalid();
}

int Focusable::GetValueStr(int id, CString* out) {
  if (impl_ == nullptr || out == nullptr || id < 0) return 0;
  if (id == 0) {
    *out = impl_->guid;
    return 1;
  }
  Item* item = GetItem(id);
  if (item == nullptr) return 0;
  *out = item->GetText();  // the raw text, whatever the type
  return 1;
}

int Focusable::GetValueInt(int id, int* out) {
  if (out == nullptr || id < 1) return 0;
  auto* item = dynamic_cast<IntItem*>(GetItem(id));
  if (item == nullptr) return 0;
  *out = item->GetInt();
  return 1;
}

int Focusable::GetValueDouble(int id, double* out) {
  if (out == nullptr || id < 4) return 0;
  auto* item = dynamic_cast<DoubleItem*>(GetItem(id));
  if (item == nullptr) return 0;
  *out = item->GetValue();  // the native value as it stands
  return 1;
}

int Focusable::GetValueDate(int id, COleDateTime* out) {
  if (out == nullptr || id < 2) return 0;
  auto* item = dynamic_cast<DateItem*>(GetItem(id));
  if (item == nullptr) return 0;
  *out = item->GetDateTime();
  return 1;
}

int Focusable::GetValueBOOL(int id, int* out) {
  if (out == nullptr || id < 4) return 0;
  auto* item = dynamic_cast<BoolItem*>(GetItem(id));
  if (item == nullptr) return 0;
  *out = item->GetValue();
  return 1;
}

// --- Field writes
// ---------------------------------------------------------------------------------

int Focusable::SetValue(int id, int type, const char16_t* text, int partial, int first, int last) {
  // null reads as ""
  const std::u16string_view piece =
      text != nullptr ? std::u16string_view(text) : std::u16string_view();
  return SetValuePiece(id, type, piece, partial, first, last);
}

int Focusable::SetValuePiece(int id, int type, std::u16string_view piece, int partial, int first,
                             int last) {
  return SetStoredPiece(id, type, CString(piece), partial, first, last);
}

int Focusable::SetStoredPiece(int id, int type, CString&& piece, int partial, int first, int) {
  if (impl_ == nullptr || id < 0) return 0;
  if (id == 0) {
    if (partial != 0) {
      if (first != 0) impl_->guid.Empty();
      impl_->guid += piece;
    } else {
      impl_->guid = std::move(piece);
    }
    return 1;
  }
  if (!EnsureItemPlace(id)) return 0;
  Item*& slot = impl_->items[id - 1];
  if (slot == nullptr) {
    Item* fresh = Item::CreateTypedItem(type, CString());
    if (fresh == nullptr) return 0;
    if (auto* b = dynamic_cast<BoolItem*>(fresh)) {
      // A flag keeps its value, not its text.
      b->SetValue(piece.view() == u"0" ? 0 : 1);
    } else {
      fresh->SetText(std::move(piece));  // other native values stay unparsed
    }
    slot = fresh;
    return 1;
  }
  if (partial == 0 || first != 0 || dynamic_cast<BoolItem*>(slot) != nullptr) {
    // A whole value or the first piece: take it and read it at once. A flag
    // takes only the last piece of a long field.
    slot->SetText(std::move(piece));
    ParseInto(slot, slot->GetText());
    return 1;
  }
  slot->AppendText(piece);
  MarkUnparsed(slot);
  return 1;
}

int Focusable::SetValue_wStr(int id, int type, CString text) {
  if (impl_ == nullptr || id < 0) return 0;
  if (id == 0) {
    impl_->guid = std::move(text);
    return 1;
  }
  if (type < Item::kTypeInt || type > Item::kTypeString) return 0;  // unknown type
  // The whole text, U+0000 included: it is not cut at a terminator.
  return SetStoredPiece(id, type, std::move(text), 0, 0, 1);
}

int Focusable::SetValueStr(int id, CString text, int markChanged) {
  if (impl_ == nullptr || id < 0) return 0;
  int stored = 0;
  if (id == 0) {
    if (impl_->guid != text) impl_->guid = std::move(text);
    stored = 1;
  } else if (id >= 2 && EnsureItemPlace(id)) {
    // The text goes into whatever item is there, of any type.
    Item*& slot = impl_->items[id - 1];
    if (slot == nullptr) slot = Item::CreateTypedItem(Item::kTypeString, CString());
    if (slot != nullptr) {
      slot->SetText(text);
      slot->SetChanged(markChanged);
      stored = 1;
    }
  }
  // Id 1 (the status word) takes no text, but the record is marked all the
  // same.
  if (markChanged != 0) impl_->changed = 1;
  return stored;
}

int Focusable::SetValueInt(int id, int value, int markChanged) {
  if (impl_ == nullptr || id < 1) return 0;
  Item* item = PrepareItemForSet(id, Item::kTypeInt);
  if (item == nullptr) return 0;
  if (!StoreNumber(item, value)) item->SetText(CString::Formatted(CString(u"%d"), value));
  item->SetChanged(markChanged);
  if (markChanged != 0) impl_->changed = 1;
  return 1;
}

int Focusable::SetValueDouble(int id, double value, int markChanged) {
  if (impl_ == nullptr || id < 4) return 0;
  Item* item = PrepareItemForSet(id, Item::kTypeDouble);
  if (item == nullptr) return 0;
  if (!StoreNumber(item, value)) item->SetText(CString::Formatted(CString(u"%f"), value));
  item->SetChanged(markChanged);
  if (markChanged != 0) impl_->changed = 1;
  return 1;
}

int Focusable::SetValueDate(int id, COleDateTime value, int markChanged) {
  if (impl_ == nullptr || id < 2) return 0;
  Item* item = PrepareItemForSet(id, Item::kTypeDate);
  if (item == nullptr) return 0;
  if (auto* date = dynamic_cast<DateItem*>(item)) {
    date->SetValue(value);
  } else if (!StoreNumber(item, value.GetDATE())) {
    item->SetText(value.Format(kStoredDateFormat));
  }
  item->SetChanged(markChanged);
  if (markChanged != 0) impl_->changed = 1;
  return 1;
}

int Focusable::SetValueBOOL(int id, int value, int markChanged) {
  if (impl_ == nullptr || id < 4) return 0;
  Item* item = PrepareItemForSet(id, Item::kTypeBool);
  if (item == nullptr) return 0;
  if (!StoreNumber(item, value)) item->SetText(CString(value != 0 ? u"1" : u"0"));
  item->SetChanged(markChanged);
  if (markChanged != 0) impl_->changed = 1;
  return 1;
}

// --- Field tests ------------------------------------------------------------------------------

int Focusable::IsFieldItemSame(int id, Item* item) {
  if (impl_ == nullptr || item == nullptr || id < 0) return 0;
  if (id == 0) return item->IsString() && item->GetText() == impl_->guid ? 1 : 0;
  Item* own = GetItem(id);
  return own != nullptr ? own->IsSame(item) : 0;
}

int Focusable::GetFieldType(int id) {
  switch (id) {
    case kFieldGuid:
      return Item::kTypeString;
    case kFieldStatus:
      return Item::kTypeInt;
    case kFieldReceiveDate:
      return Item::kTypeDate;
    case kFieldPublicationDate:
      return Item::kTypeDate;
    default:
      break;
  }
  RGDBTemplate* layout = RelationsEntryPoints::Get()->GetRGDBTemplate(GetFocusableRelation());
  return layout != nullptr ? layout->GetFieldType(id) : -1;
}

int Focusable::IsFieldActive(int id, int) {
  if (id < 1) return 1;
  return GetItem(id) != nullptr ? 1 : 0;
}
}  // namespace kordll
