#include "kordll/record/Focusable.h"

#include <algorithm>

#include "kordll/core/DateText.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/platform/Clock.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/BoolItem.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/DateItem.h"
#include "kordll/record/DoubleItem.h"
#include "kordll/record/FocusableImpl.h"
#include "kordll/record/IntItem.h"
#include "kordll/record/Item.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RegistryEntryPoints.h"
#include "kordll/record/RelationsEntryPoints.h"
#include "kordll/record/SettingsEntryPoints.h"

namespace kordll {

namespace {

// The stored shape of dates; records write dates in this form.
const CString kStoredDateFormat(u"%m/%d/%y@%H:%M");
// A "|" inside an author name or category is written as this text.
const CString kEscapedBar(u"&898989;");
const CString kGuidFormat(u"R%d_G%d");

// Places the item array gets at its first growth: a post has a dozen
// fields.
constexpr size_t kInitialItemCapacity = 16;

// How long GetFocusable_wDBLocation waits for a controller, in clock time.
constexpr int64_t kControllerWaitMillis = 15000;

COleDateTime InvalidDate() {
  COleDateTime date;
  date.SetStatus(COleDateTime::invalid);
  return date;
}

bool IsPostFieldRelation(int relation) {
  return relation == 4 || relation == 8 || relation == 11 || relation == 26;
}

bool IsPostRelation(int relation) { return relation == 4 || relation == 11 || relation == 26; }

int RankMode() {
  return SettingsEntryPoints::Get()->GetCurrentPreferencesIntValue(
      SettingsEntryPoints::kRankModeField);
}

// The tag field of a relation, or -1.
int TagField(int relation) {
  switch (relation) {
    case 2:
      return 20;
    case 4:
      return 16;
    case 7:
      return 17;
    case 11:
      return 19;
    case 18:
      return 13;
    case 23:
      return 11;
    case 25:
      return 9;
    case 26:
      return 19;
    case 27:
      return 20;
    case 30:
      return 5;
    default:
      return -1;
  }
}

// Splits text at every "|", keeping empty pieces.
CStringArray SplitAtBar(const CString& text) {
  CStringArray pieces;
  int start = 0;
  for (;;) {
    const int bar = text.Find(u'|', start);
    if (bar < 0) {
      pieces.push_back(text.Mid(start));
      return pieces;
    }
    pieces.push_back(text.Mid(start, bar - start));
    start = bar + 1;
  }
}

// The first of bits (in the order given) that status has, or 0.
int FirstBitOf(int status, std::initializer_list<int> bits) {
  for (int bit : bits) {
    if (status & bit) return bit;
  }
  return 0;
}

// The first of bits that from has and to has not, or 0.
int FirstBitLost(int from, int to, std::initializer_list<int> bits) {
  for (int bit : bits) {
    if ((from & bit) && !(to & bit)) return bit;
  }
  return 0;
}

// Gives the value of a double item, reading its text first when the value
// is still unparsed (0.0).
double ParsedDouble(DoubleItem* item) {
  if (item->GetValue() == 0.0 && !item->GetText().IsEmpty()) {
    item->SetValue(_wtof(item->GetText()));
  }
  return item->GetValue();
}

// Reads a piece of stored text into an existing item at once, by the
// item's own type.
void ParseInto(Item* item, const CString& text) {
  if (auto* i = dynamic_cast<IntItem*>(item)) {
    i->SetValue(_wtoi(text));
  } else if (auto* d = dynamic_cast<DoubleItem*>(item)) {
    d->SetValue(_wtof(text));
  } else if (auto* t = dynamic_cast<DateItem*>(item)) {
    t->SetValue(DateText::StringToDateTime(text, 0));
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

Focusable::Focusable(int relation, AZeusDB* db) : impl_(new FocusableImpl()) {
  impl_->relation = relation;
  impl_->database = db;
}

Focusable::~Focusable() { delete impl_; }

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

// --- Presentation and notification ------------------------------------------

PrintTemplate* Focusable::DecorateFocusable(int escape) {
  PrintTemplate* printed = RelationsEntryPoints::Get()->DecorateFocusable(this, escape);
  const int relation = GetFocusableRelation();
  if (printed == nullptr || (relation != 4 && relation != 11)) return printed;
  const int status = GetFocusableStatus();
  CString level;
  switch (RankMode()) {
    case 1:
      level = (status & kStatusRank512) ? u"2" : (status & kStatusRank1024) ? u"3" : u"1";
      break;
    case 2:
      if (status & kStatusRank256) {
        level = u"5";
      } else if (status & kStatusRank512) {
        level = u"6";
      } else if (status & kStatusRank1024) {
        level = u"7";
      } else if (status & kStatusRank2048) {
        level = u"8";
      } else {
        level = u"4";
      }
      break;
    default:
      return printed;  // other rank modes add nothing
  }
  RelationsEntryPoints::Get()->AddPrintTemplateAttribute(printed, CString(u"postranklevel"), level);
  return printed;
}

PrintTemplate* Focusable::PrintFocusableBackup() {
  return RelationsEntryPoints::Get()->PrintFocusableBackup(this);
}

int Focusable::BeginPrint(PrintHold* hold) {
  hold->loaded = false;
  hold->found.clear();
  if (impl_ == nullptr) return 0;
  if (IsFullyLoaded(0)) return 1;
  CSingleLock lock(impl_->lock);
  if (impl_->fullyLoaded) return 1;
  if (impl_->database == nullptr || impl_->deleted) return 0;
  // The read goes into an empty array, so that what the record holds is not
  // overwritten by what is on disk.
  hold->found.swap(impl_->items);
  if (impl_->database->readFocusableSlot(this, nullptr, nullptr) != 1) {
    impl_->DeleteItems();
    impl_->items.swap(hold->found);
    hold->found.clear();
    impl_->fullyLoaded = 0;
    return 0;
  }
  std::vector<Item*>& items = impl_->items;
  if (items.size() < hold->found.size()) items.resize(hold->found.size(), nullptr);
  for (size_t i = 0; i < hold->found.size(); ++i) {
    if (hold->found[i] == nullptr) continue;
    delete items[i];
    items[i] = hold->found[i];
  }
  ++impl_->referenceCount;
  hold->loaded = true;
  return 1;
}

void Focusable::EndPrint(PrintHold* hold) {
  if (impl_ == nullptr || !hold->loaded) return;
  hold->loaded = false;
  CSingleLock lock(impl_->lock);
  if (impl_->referenceCount > 0) --impl_->referenceCount;
  if (impl_->referenceCount == 0) {
    // Only the items read for the print go.
    std::vector<Item*>& items = impl_->items;
    for (size_t i = 0; i < items.size(); ++i) {
      const bool found = i < hold->found.size() && hold->found[i] != nullptr;
      if (!found) {
        delete items[i];
        items[i] = nullptr;
      }
    }
    if (items.size() > hold->found.size()) items.resize(hold->found.size());
    impl_->fullyLoaded = 0;
  }
  hold->found.clear();
}

std::vector<int>* Focusable::GetHeaderPossessors() {
  return impl_ != nullptr ? impl_->headerPossessors : nullptr;
}

// --- Load, save, delete -----------------------------------------------------

int Focusable::LoadFocusable(DBTaskItem* task) {
  if (impl_ == nullptr) return 0;
  CSingleLock hold(impl_->lock);
  if (impl_->database == nullptr || impl_->fullyLoaded || impl_->deleted) return 0;
  const int result = impl_->database->readFocusableSlot(this, nullptr, task);
  if (result != 1) return 0;
  Reserve();
  return 1;
}

int Focusable::DeleteFocusable() {
  if (impl_ == nullptr) return 0;
  if (!impl_->savable) return 1;
  if (impl_->database == nullptr) return 0;
  CSingleLock hold(impl_->lock);
  // A record that was never stored has no slot to free: the store must not
  // be asked to delete slot -1.
  if (impl_->slotIndex >= 0 && impl_->database->deleteFocusableSlot(this, nullptr, nullptr) != 1) {
    return 0;
  }
  impl_->database = nullptr;
  impl_->slotIndex = -1;
  return 1;
}

int Focusable::SaveFocusable() {
  if (impl_ == nullptr) return 0;
  if (!impl_->savable) return 1;
  if (impl_->database == nullptr) return 0;
  CSingleLock hold(impl_->lock);
  if (impl_->deleted) return 1;
  // A field write that fails half way answers its error code (8), not 0.
  // That counts as done here: the changed flags stay set, so the next save
  // writes the record again. Only a plain 0 is a failed save.
  return impl_->database->writeFocusableSlot(this, nullptr, nullptr) != 0 ? 1 : 0;
}

void Focusable::SetDB(AZeusDB* db) {
  if (impl_ != nullptr) impl_->database = db;
}

AZeusDB* Focusable::GetDB() { return impl_ != nullptr ? impl_->database : nullptr; }

// --- Dates read on demand ---------------------------------------------------

void Focusable::ReadFieldFromDB(int id) {
  // REQUIRES: impl_->lock held, impl_->database not null. A task naming
  // only this field reads only the front of the slot. A record never stored
  // is not read: a task on slot index -1 would make the store scan for the
  // next record instead.
  if (impl_->slotIndex < 0 && impl_->slotIndex != -2) return;
  DBTaskItem task;
  task.DefineFieldTaskType(id, DBTaskItem::kTaskLoad);
  impl_->database->readFocusableSlot(this, nullptr, &task);
}

namespace {

// After an on-demand read on an unreserved record: removes the item of
// field id again and gives the array back the length it had, so that the
// read leaves nothing behind.
void DropOnDemandItem(FocusableImpl* impl, int id, size_t lengthBefore) {
  if (impl->items.size() >= static_cast<size_t>(id)) {
    delete impl->items[id - 1];
    impl->items[id - 1] = nullptr;
  }
  if (impl->items.size() > lengthBefore &&
      std::all_of(impl->items.begin() + lengthBefore, impl->items.end(),
                  [](Item* item) { return item == nullptr; })) {
    impl->items.resize(lengthBefore);
  }
  // A header-only record keeps no array memory behind it.
  if (impl->items.empty()) impl->items.shrink_to_fit();
}

}  // namespace

COleDateTime Focusable::GetReceiveDateTime() {
  if (impl_ == nullptr) return InvalidDate();
  if (GetItem(2) != nullptr || impl_->database == nullptr) return GetFieldDate(2);
  CSingleLock hold(impl_->lock);
  const size_t before = impl_->items.size();
  ReadFieldFromDB(2);
  const COleDateTime date = GetFieldDate(2);
  if (impl_->referenceCount == 0) DropOnDemandItem(impl_, 2, before);
  return date;
}

COleDateTime Focusable::GetPublicationDateTime() {
  if (impl_ == nullptr) return InvalidDate();
  if (GetItem(3) != nullptr || impl_->database == nullptr) return GetFieldDate(3);
  CSingleLock hold(impl_->lock);
  const size_t before = impl_->items.size();
  ReadFieldFromDB(3);
  const COleDateTime date = GetFieldDate(3);
  if (impl_->referenceCount == 0) DropOnDemandItem(impl_, 3, before);
  return date;
}

COleDateTime Focusable::GetReceiveDate() {
  COleDateTime date = GetReceiveDateTime();
  if (date.GetStatus() == COleDateTime::valid) {
    date.SetDate(date.GetYear(), date.GetMonth(), date.GetDay());
  }
  return date;
}

COleDateTime Focusable::GetPublicationDate() {
  COleDateTime date = GetPublicationDateTime();
  if (date.GetStatus() == COleDateTime::valid) {
    date.SetDate(date.GetYear(), date.GetMonth(), date.GetDay());
  }
  return date;
}

int Focusable::SetPublicationDateTime(COleDateTime date) { return SetValueDate(3, date, 1); }

int Focusable::SetReceiveDateTime(COleDateTime date) { return SetValueDate(2, date, 1); }

// --- Opening -------------------------------------------------------------------

int Focusable::OpenFocusable() {
  if (!IsPostFocusable()) return 1;
  const CString link = GetPostLink();
  if (link.IsEmpty()) return 1;
  RegistryEntryPoints* registry = RegistryEntryPoints::Get();
  IIPanel* panel = registry->GetPanel(1);
  if (panel == nullptr) return 1;
  PanelViewRequest request;
  request.message = 1081;  // show this link
  request.text = link;
  registry->SendPanelMessage_wRequest(panel, 1039, request);
  return 1;
}

int Focusable::OpenFocusableProperties(CPoint point, IIPanel* panel, int leftAligned) {
  const int relation = GetFocusableRelation();
  if (!IsPostFocusable() && relation != 25) return 0;
  PanelViewRequest request;
  request.message = relation == 25 ? 29169 : relation == 26 ? 29170 : 29120;
  request.focusable = this;
  request.point = point;
  request.panel = panel;
  request.object = leftAligned == 0 ? 1 : 0;
  int result = 0;
  RegistryEntryPoints::Get()->InterpretGUICommand_wRequest(request, &result);
  return 1;
}

int Focusable::BroadCastUpdate(int post, int message) {
  // The record's own origin, not what a derived record answers: a link
  // keeps an origin of its own, and its base record comes from nowhere.
  const int origin = Focusable::GetOriginedResourceControllerID();
  RegistryEntryPoints* registry = RegistryEntryPoints::Get();
  if (origin == -1 || !registry->IsGlobalResourceValid()) return 0;
  ResourceController* controller = registry->GetResourceController(origin);
  if (controller == nullptr) return 0;
  if (post != 0) return registry->PostRC2PanelMessage(controller, message, 3, this);
  return registry->SendRC2PanelMessage(controller, message, 3, this);
}

// --- Images and kinds ---------------------------------------------------------

int Focusable::GetFlagImage() {
  switch (FirstBitOf(GetFocusableStatus(), {kStatusRank256, kStatusRank512, kStatusRank1024,
                                            kStatusRank2048, kStatusFlagged})) {
    case kStatusRank256:
      return 13;
    case kStatusRank512:
      return 14;
    case kStatusRank1024:
      return 16;
    case kStatusRank2048:
      return 17;
    case kStatusFlagged:
      return 8;
    default:
      return -1;
  }
}

int Focusable::GetStatusImage() { return 21; }

int Focusable::GetFocusableImage() {
  if (IsPostFocusable()) return GetStatusImage();
  return GetFocusableRelation() == 25 ? 28 : -1;
}

int Focusable::IsPostFocusable() { return IsPostRelation(GetFocusableRelation()) ? 1 : 0; }

int Focusable::IsTreeItemFocusable() {
  switch (GetFocusableRelation()) {
    case 2:
    case 5:
    case 6:
    case 7:
    case 9:
    case 10:
    case 22:
    case 23:
    case 27:
      return 1;
    default:
      return 0;
  }
}

int Focusable::IsBoldFocusable() { return (GetFocusableStatus() & kStatusUnread) ? 1 : 0; }

int Focusable::IsInUse() {
  if (impl_ == nullptr) return 0;
  return impl_->referenceCount > 0 || impl_->headerPossessors != nullptr ? 1 : 0;
}

int Focusable::IsFocusableDeleted() { return impl_ != nullptr ? impl_->deleted : 0; }

void Focusable::SetFocusableDeleted(int deleted) {
  if (impl_ != nullptr) impl_->deleted = deleted;
}

// --- Status ---------------------------------------------------------------------

int Focusable::ReSetFocusableStatus(int set, int clear) {
  int status = GetFocusableStatus();
  if (clear != 0 && (clear & status)) status &= ~clear;
  const int relation = GetFocusableRelation();
  // A post has one rank or flag at a time; other relations keep them all.
  if ((relation == 4 || relation == 11) && (set & kRankFlagMask) && (status & kRankFlagMask)) {
    status &= ~kRankFlagMask;
  }
  return SetValueInt(1, status | set, 1);
}

int Focusable::GetFocusableStatus() {
  if (impl_ == nullptr) return 0;
  if (GetItem(1) != nullptr) return GetFieldInt(1);
  if (impl_->database == nullptr) return 0;
  CSingleLock hold(impl_->lock);
  const size_t before = impl_->items.size();
  ReadFieldFromDB(1);
  int status = GetFieldInt(1);
  if (status < 0) status = 0;
  // An unreserved record keeps no item of it: the status of a header-only
  // record is read from disk each time.
  if (impl_->referenceCount == 0) DropOnDemandItem(impl_, 1, before);
  return status;
}

int Focusable::SetFocusableStatus(int status) { return SetValueInt(1, status, 1); }

void Focusable::GetRemovedStatus(int oldStatus, int newBits, int& added, int& removed) {
  added = newBits;
  const int rankMode = RankMode();
  if (rankMode == 1) {
    if ((oldStatus & 1536) && (newBits & 1538)) {
      removed |= FirstBitLost(oldStatus, newBits, {kStatusRank512, kStatusRank1024});
    }
    if (!(oldStatus & kStatusFlagged) && (newBits & kStatusFlagged)) {
      added |= kStatusRank1024;
      if (oldStatus & 1536) removed |= FirstBitOf(oldStatus, {kStatusRank512, kStatusRank1024});
    }
  } else if (rankMode == 2) {
    // 2304 is the two outer ranks only (256 and 2048): a change away from
    // 512 or 1024 without either of them is left to the unread rule below.
    if ((oldStatus & 2304) && (newBits & 2306)) {
      removed |= FirstBitLost(oldStatus, newBits,
                              {kStatusRank256, kStatusRank512, kStatusRank1024, kStatusRank2048});
    }
    if (!(oldStatus & kStatusFlagged) && (newBits & kStatusFlagged)) {
      added |= kStatusRank2048;
      if (oldStatus & 2304) {
        removed |= FirstBitOf(oldStatus, {kStatusRank256, kStatusRank512, kStatusRank1024});
      }
    }
  }
  // Touching a post marks it read.
  if ((newBits & kRankFlagReadMask) && !(oldStatus & kStatusRead) && (oldStatus & kStatusUnread)) {
    removed |= kStatusUnread;
    added |= kStatusRead;
  }
  // Marking unread clears read, rank and flag.
  if (added & kStatusUnread) {
    if (oldStatus & kStatusRead) removed |= kStatusRead;
    removed |=
        FirstBitOf(oldStatus, {kStatusRank256, kStatusRank512, kStatusRank1024, kStatusRank2048});
    if (oldStatus & kStatusFlagged) removed |= kStatusFlagged;
  }
}

// --- Lifetime ---------------------------------------------------------------------

int Focusable::IsFullyLoaded(int reserve) {
  if (impl_ == nullptr) return 0;
  CSingleLock hold(impl_->lock);
  if (reserve != 0 && impl_->fullyLoaded) Reserve();
  return impl_->fullyLoaded;
}

int Focusable::Reserve() {
  if (impl_ == nullptr) return 0;
  CSingleLock hold(impl_->lock);
  return ++impl_->referenceCount;
}

int Focusable::Release(int* destroyed) {
  if (impl_ == nullptr) return 1;
  CCriticalSection& lock = impl_->lock;
  lock.Lock();
  if (impl_->referenceCount == 0) {
    lock.Unlock();
    return 1;
  }
  --impl_->referenceCount;
  if (impl_->headerPossessors == nullptr && impl_->referenceCount == 0 &&
      impl_->originedController == -1) {
    // Nobody holds the object any more.
    if (destroyed != nullptr) *destroyed = 1;
    lock.Unlock();
    delete this;
    return 1;
  }
  int result = 0;
  if (!impl_->items.empty()) {
    if (NeedToSave() && !RegistryEntryPoints::Get()->AreDBsCleared()) SaveFocusable();
    if (impl_->referenceCount == 0) {
      // The body goes; the header (GUID, slot, relation, origin) stays.
      impl_->DeleteItems();
      impl_->fullyLoaded = 0;
      result = 1;
    }
  }
  lock.Unlock();
  return result;
}

int Focusable::ReserveHeader(int controller) {
  if (impl_ == nullptr) return 0;
  CSingleLock hold(impl_->lock);
  if (impl_->headerPossessors == nullptr) impl_->headerPossessors = new std::vector<int>();
  impl_->headerPossessors->push_back(controller);
  return 1;
}

int Focusable::ReleaseHeader(int controller) {
  if (impl_ == nullptr) return 0;
  CCriticalSection& lock = impl_->lock;
  lock.Lock();
  std::vector<int>* list = impl_->headerPossessors;
  if (impl_->referenceCount == 0 &&
      ((list == nullptr && impl_->originedController == controller) ||
       (list != nullptr && list->size() == 1 && (*list)[0] == controller &&
        impl_->originedController == -1))) {
    lock.Unlock();
    delete this;
    return 1;
  }
  if (list != nullptr) {
    auto it = std::find(list->begin(), list->end(), controller);
    if (it != list->end()) list->erase(it);
    if (list->empty()) {
      delete list;
      impl_->headerPossessors = nullptr;
    }
  }
  if (impl_->originedController == controller) impl_->originedController = -1;
  // The object stays even when nobody holds it now: only a later Release or
  // ReleaseHeader removes it.
  lock.Unlock();
  return 0;
}

int Focusable::GetReferenceCount() {
  if (impl_ == nullptr) return 0;
  CSingleLock hold(impl_->lock);
  return impl_->referenceCount;
}

int Focusable::GetFocusableImplSize() { return static_cast<int>(sizeof(FocusableImpl)); }

// --- Hooks --------------------------------------------------------------------------

void Focusable::PreSaving() {}
int Focusable::PreLoading() { return 1; }
void Focusable::PerformMaintenance(int) {}

// --- Identity -------------------------------------------------------------------------

CString Focusable::GetGUID() { return impl_ != nullptr ? impl_->guid : CString(); }

void Focusable::SetGUID(CString guid) {
  if (impl_ == nullptr || impl_->guid == guid) return;
  impl_->guid = std::move(guid);
  impl_->changed = 1;
}

CString Focusable::GetParentGUID() {
  const int relation = GetFocusableRelation();
  const char16_t* format = (relation == 16 || relation == 17) ? u"R13_G%d" : u"R7_G%d";
  return CString::Formatted(CString(format), GetParentFocusableID());
}

int Focusable::GetFocusableID() {
  int controller = 0;
  int serial = 0;
  if (swscanf(GetGUID(), kGuidFormat, {&controller, &serial}) != 2) return -1;
  return serial;
}

void Focusable::SetFocusableID(int) {}
int Focusable::GetParentFocusableID() { return -1; }
void Focusable::SetParentFocusableID(int) {}

CString Focusable::GetFocusableTitle() { return GetPostTitle(); }

CString Focusable::GetFocusableTags_InStr() {
  const int field = TagField(GetFocusableRelation());
  return field < 0 ? CString() : GetFieldString(field, 0);
}

void Focusable::SetFocusableTags_InStr(CString tags) {
  const int field = TagField(GetFocusableRelation());
  if (field >= 0) SetValueStr(field, std::move(tags), 1);
}

// --- Change tracking -----------------------------------------------------------------

void Focusable::FocusableSaved() {
  if (impl_ == nullptr) return;
  impl_->changed = 0;
  for (Item* item : impl_->items) {
    if (item != nullptr && item->IsChanged()) {
      impl_->changed = 1;
      return;
    }
  }
}

void Focusable::ChangeItemChangeStatus(int id, int value) {
  if (impl_ == nullptr) return;
  if (id < 1) {
    impl_->changed = value;
  } else if (Item* item = GetItem(id)) {
    item->SetChanged(value);
  }
}

int Focusable::NeedToSave() { return impl_ != nullptr ? impl_->changed : 0; }

void Focusable::UpdateNeeded() {
  if (impl_ == nullptr) return;
  impl_->changed = 1;
  for (Item* item : impl_->items) {
    if (item == nullptr) continue;
    // Parse what is still text only, so that the full write gives the
    // stored value back and not an unparsed placeholder.
    if (auto* i = dynamic_cast<IntItem*>(item)) {
      i->GetInt();
    } else if (auto* d = dynamic_cast<DoubleItem*>(item)) {
      ParsedDouble(d);
    } else if (auto* t = dynamic_cast<DateItem*>(item)) {
      t->GetDateTime();
    }
    item->SetChanged(1);
  }
}

int Focusable::IsItemChanged(int id, int) {
  if (impl_ == nullptr) return 0;
  if (id < 2) return impl_->changed;
  Item* item = GetItem(id);
  return item != nullptr ? item->IsChanged() : 0;
}

// --- Copies -------------------------------------------------------------------------------

Focusable* Focusable::CreateCopyFocusable(int full) {
  auto* copy = new Focusable(GetFocusableRelation(), nullptr);
  copy->CopyFocusable(this, full);
  return copy;
}

void Focusable::CopyFocusable(Focusable* src, int full) {
  if (impl_ == nullptr) impl_ = new FocusableImpl();
  if (src == nullptr || src == this || src->impl_ == nullptr) return;
  FocusableImpl* from = src->impl_;
  if (full != 0) {
    if (from->slotIndex != -1) impl_->slotIndex = from->slotIndex;
    impl_->originedController = from->originedController;
    if (from->headerPossessors != nullptr && !from->headerPossessors->empty()) {
      if (impl_->headerPossessors == nullptr) impl_->headerPossessors = new std::vector<int>();
      impl_->headerPossessors->insert(impl_->headerPossessors->end(),
                                      from->headerPossessors->begin(),
                                      from->headerPossessors->end());
    }
    if (from->referenceCount != -1) impl_->referenceCount = from->referenceCount;
    impl_->changed = from->changed;
  }
  impl_->guid = from->guid;
  if (from->relation != -1) impl_->relation = from->relation;
  if (!from->items.empty() && impl_->items.size() < from->items.size()) {
    impl_->DeleteItems();
    impl_->items.assign(from->items.size(), nullptr);
  }
  for (size_t i = 0; i < from->items.size(); ++i) {
    Item* source = from->items[i];
    Item*& target = impl_->items[i];
    if (source == nullptr) {
      if (full != 0) {
        delete target;
        target = nullptr;
      }
    } else if (target == nullptr) {
      target = source->CreateCopyItem();
    } else {
      // Marks the item changed when the value differs.
      target->SetItem(source);
    }
  }
}

void Focusable::MoveFocusableImpl(Focusable* other) {
  if (other == nullptr || other == this) return;
  // This record takes over the other's state; its own goes, and the other
  // is left without state (every accessor then gives its fallback), ready
  // to be deleted.
  delete impl_;
  impl_ = other->impl_;
  other->impl_ = nullptr;
}

// --- Place and origin ------------------------------------------------------------------------

int Focusable::GetDBSlotIndex() { return impl_ != nullptr ? impl_->slotIndex : -1; }

void Focusable::SetDBSlotIndex(int slotIndex) {
  if (impl_ != nullptr) impl_->slotIndex = slotIndex;
}

void Focusable::SetOriginedResourceControllerID(int id, int) {
  if (impl_ != nullptr) impl_->originedController = id;
}

int Focusable::GetOriginedResourceControllerID() {
  return impl_ != nullptr ? impl_->originedController : -1;
}

int Focusable::GetSourceResourceControllerID() { return GetOriginedResourceControllerID(); }

void Focusable::SetSavable(int savable) {
  if (impl_ != nullptr) impl_->savable = savable;
}

int Focusable::IsSavable() { return impl_ != nullptr ? impl_->savable : 0; }

int Focusable::GetFocusableRelation() { return impl_ != nullptr ? impl_->relation : 0; }

void Focusable::SetFocusableRelation(int relation) {
  if (impl_ != nullptr) impl_->relation = relation;
}

void Focusable::SetFullyLoaded(int fullyLoaded) {
  if (impl_ != nullptr) impl_->fullyLoaded = fullyLoaded;
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
  if (id < 2) return InvalidDate();
  auto* item = dynamic_cast<DateItem*>(GetItem(id));
  return item != nullptr ? item->GetDateTime() : InvalidDate();
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
    case 0:
      return Item::kTypeString;
    case 1:
      return Item::kTypeInt;
    case 2:
      return Item::kTypeDate;
    case 3:
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

// --- Post fields
// ----------------------------------------------------------------------------------

CString Focusable::GetPostTitle() {
  const int relation = GetFocusableRelation();
  if (IsPostFieldRelation(relation) || relation == 16 || relation == 17) {
    return GetFieldString(4, 0);
  }
  return relation == 25 ? GetFieldString(5, 0) : CString();
}

void Focusable::SetPostTitle(CString title) {
  const int relation = GetFocusableRelation();
  if (IsPostFieldRelation(relation)) {
    SetValueStr(4, std::move(title), 1);
  } else if (relation == 25) {
    SetValueStr(5, std::move(title), 1);
  }
}

CString Focusable::GetPostLink() {
  return IsPostFieldRelation(GetFocusableRelation()) ? GetFieldString(10, 0) : CString();
}

CString Focusable::GetPostDescription() {
  return IsPostFieldRelation(GetFocusableRelation()) ? GetFieldString(7, 0) : CString();
}

CString Focusable::GetPostEncodedContent() {
  return IsPostFieldRelation(GetFocusableRelation()) ? GetFieldString(11, 0) : CString();
}

CString Focusable::GetPostAuthorName() {
  return IsPostFieldRelation(GetFocusableRelation()) ? GetFieldString(5, 0) : CString();
}

CString Focusable::GetPostCategory() {
  return IsPostFieldRelation(GetFocusableRelation()) ? GetFieldString(6, 0) : CString();
}

CString Focusable::GetPostPublishedChannel() {
  return IsPostFieldRelation(GetFocusableRelation()) ? GetFieldString(8, 0) : CString();
}

void Focusable::SetPostPublishedChannel(CString channel) {
  if (IsPostFieldRelation(GetFocusableRelation())) SetValueStr(8, std::move(channel), 1);
}

COleDateTime Focusable::GetPostPublicationDate() {
  return IsPostFieldRelation(GetFocusableRelation()) ? GetFieldDate(3) : InvalidDate();
}

COleDateTime Focusable::GetPostReceivedDate() {
  return IsPostFieldRelation(GetFocusableRelation()) ? GetFieldDate(2) : InvalidDate();
}

void Focusable::GetPostAuthorNames(CStringArray* out, CString) {
  if (out == nullptr) return;
  const int relation = GetFocusableRelation();
  if (relation != 4 && relation != 11) return;
  for (CString name : SplitAtBar(GetFieldString(5, 0))) {
    // Relation 11 writes "name:more" entries; the name is what precedes the
    // first ":".
    if (relation == 11) {
      const int colon = name.Find(u':');
      if (colon >= 0) name = name.Left(colon);
    }
    name.Replace(kEscapedBar, CString(u"|"));
    if (!name.IsEmpty()) out->push_back(name);
  }
}

void Focusable::GetPostCategories(CStringArray* out, CString separator) {
  if (out == nullptr) return;
  const int relation = GetFocusableRelation();
  CString text = (relation == 4 || relation == 11) ? GetFieldString(6, 0) : CString();
  if (!separator.IsEmpty() && separator != CString(u"|")) {
    // Another separator: bring the text to the "|" form first.
    text.Remove(u'|');
    CString joined;
    int start = 0;
    for (;;) {
      CString piece = text.Tokenize(separator, start);
      if (start < 0) break;
      joined += piece;
      joined += u'|';
    }
    text = joined;
  }
  for (const CString& piece : SplitAtBar(text)) {
    if (!piece.IsEmpty()) out->push_back(piece);
  }
}

// --- Finders
// --------------------------------------------------------------------------------------

Focusable* Focusable::GetFocusable_wGUID(CString guid) {
  int controllerID = 0;
  int serial = 0;
  if (swscanf(guid, kGuidFormat, {&controllerID, &serial}) != 2 || serial == -1) return nullptr;
  RegistryEntryPoints* registry = RegistryEntryPoints::Get();
  ResourceController* controller = registry->GetResourceController(controllerID);
  if (controller == nullptr) return nullptr;
  Focusable* record = registry->GetFocusable_wID(controller, serial);
  if (record == nullptr) record = registry->CheckFocusable(controller, guid, 0);
  return record;
}

namespace {

// One pass of the wait of GetFocusable_wDBLocation: gives the calling
// thread's queue a turn (the controller may be created by a message) and
// lets a millisecond of clock time pass. False when the registry has gone.
bool WaitPass(RegistryEntryPoints* registry, bool* pumping) {
  if (!registry->IsGlobalResourceValid()) return false;
  if (*pumping) {
    // A quit request met here is put back on the queue for the thread's own
    // loop; this wait stops pumping from then on.
    if (PumpWaitingMessages() == 0) *pumping = false;
    if (!registry->IsGlobalResourceValid()) return false;
  }
  Clock::SleepMillis(1);
  return true;
}

}  // namespace

Focusable* Focusable::GetFocusable_wDBLocation(CString guid, int dbID, int slotIndex) {
  if (dbID == -1) return nullptr;
  RegistryEntryPoints* registry = RegistryEntryPoints::Get();
  // The controller may be being created by another part of the start-up,
  // possibly through messages of this very thread: wait for it, bounded by
  // clock time, keeping this thread's queue alive.
  int64_t deadline = Clock::MonotonicMillis() + kControllerWaitMillis;
  bool pumping = true;
  ResourceController* controller = nullptr;
  for (;;) {
    controller = registry->GetPostCtrl(dbID);
    if (controller != nullptr || Clock::MonotonicMillis() >= deadline) break;
    if (!WaitPass(registry, &pumping)) return nullptr;
  }
  if (controller == nullptr) return nullptr;
  // The wait for the controller's id has a bound of its own: a controller
  // that came late still gets the whole time to take its id.
  deadline = Clock::MonotonicMillis() + kControllerWaitMillis;
  while (registry->GetResourceControllerID(controller) == -1 &&
         Clock::MonotonicMillis() < deadline) {
    if (!WaitPass(registry, &pumping)) return nullptr;
  }

  if (Focusable* known = registry->CheckFocusable(controller, guid, 0)) return known;
  AZeusDB* db = registry->GetDBCtrl(dbID);
  if (db == nullptr || slotIndex < 0) return nullptr;

  Focusable* record = nullptr;
  if (registry->GetResourceControllerID(controller) == 11) record = registry->CreateTrashItem();
  if (record == nullptr) record = new Focusable(-1, nullptr);
  record->SetDBSlotIndex(slotIndex);
  {
    // The task names fields 0 to 3 but is deliberately not passed on: the
    // read takes every field, so the record comes back fully loaded.
    DBTaskItem task;
    for (int field = 0; field <= 3; ++field) {
      task.DefineFieldTaskType(field, DBTaskItem::kTaskLoad);
    }
    if (db->readFocusableSlot(record, nullptr, nullptr) != 1) {
      delete record;
      return nullptr;
    }
  }
  if (Focusable* typed = registry->GenerateFocusable(controller, record->GetFocusableRelation())) {
    typed->MoveFocusableImpl(record);
    delete record;
    record = typed;
  }
  if (registry->RegisterFocusable(controller, record, 0, 0) == 0) {
    // Another thread registered the same record first: use that one.
    const CString known = record->GetGUID();
    delete record;
    return registry->CheckFocusable(controller, known, 0);
  }
  return record;
}

}  // namespace kordll
