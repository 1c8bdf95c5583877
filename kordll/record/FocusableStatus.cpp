// Focusable: the status word, the dates read on demand, images and kinds,
// change tracking, presentation and printing holds, opening and the
// broadcast of a change.

#include <algorithm>
#include <initializer_list>

#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/DateItem.h"
#include "kordll/record/DoubleItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/FocusableImpl.h"
#include "kordll/record/FocusableInternal.h"
#include "kordll/record/IntItem.h"
#include "kordll/record/Item.h"
#include "kordll/record/PanelViewRequest.h"
#include "kordll/record/RecordIds.h"
#include "kordll/record/RegistryEntryPoints.h"
#include "kordll/record/RelationsEntryPoints.h"
#include "kordll/record/SettingsEntryPoints.h"

namespace kordll {

using focusable_internal::ParsedDouble;

namespace {

bool IsPostRelation(int relation) {
  return relation == kRelationPost || relation == kRelationSecondPost ||
         relation == kRelationSavedPost;
}

int RankMode() {
  return SettingsEntryPoints::Get()->GetCurrentPreferencesIntValue(
      SettingsEntryPoints::kRankModeField);
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
}  // namespace

// --- Presentation and notification ------------------------------------------

PrintTemplate* Focusable::DecorateFocusable(int escape) {
  PrintTemplate* printed = RelationsEntryPoints::Get()->DecorateFocusable(this, escape);
  const int relation = GetFocusableRelation();
  if (printed == nullptr || (relation != kRelationPost && relation != kRelationSecondPost))
    return printed;
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
  if (impl_ == nullptr) return COleDateTime::Invalid();
  if (GetItem(kFieldReceiveDate) != nullptr || impl_->database == nullptr) {
    return GetFieldDate(kFieldReceiveDate);
  }
  CSingleLock hold(impl_->lock);
  const size_t before = impl_->items.size();
  ReadFieldFromDB(kFieldReceiveDate);
  const COleDateTime date = GetFieldDate(kFieldReceiveDate);
  if (impl_->referenceCount == 0) DropOnDemandItem(impl_, kFieldReceiveDate, before);
  return date;
}

COleDateTime Focusable::GetPublicationDateTime() {
  if (impl_ == nullptr) return COleDateTime::Invalid();
  if (GetItem(kFieldPublicationDate) != nullptr || impl_->database == nullptr) {
    return GetFieldDate(kFieldPublicationDate);
  }
  CSingleLock hold(impl_->lock);
  const size_t before = impl_->items.size();
  ReadFieldFromDB(kFieldPublicationDate);
  const COleDateTime date = GetFieldDate(kFieldPublicationDate);
  if (impl_->referenceCount == 0) DropOnDemandItem(impl_, kFieldPublicationDate, before);
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

int Focusable::SetPublicationDateTime(COleDateTime date) {
  return SetValueDate(kFieldPublicationDate, date, 1);
}

int Focusable::SetReceiveDateTime(COleDateTime date) {
  return SetValueDate(kFieldReceiveDate, date, 1);
}

// --- Opening -------------------------------------------------------------------

int Focusable::OpenFocusable() {
  if (!IsPostFocusable()) return 1;
  const CString link = GetPostLink();
  if (link.IsEmpty()) return 1;
  RegistryEntryPoints* registry = RegistryEntryPoints::Get();
  IIPanel* panel = registry->GetPanel(kMainPanel);
  if (panel == nullptr) return 1;
  PanelViewRequest request;
  request.message = kViewCommandShowLink;
  request.text = link;
  registry->SendPanelMessage_wRequest(panel, kPanelMessageShow, request);
  return 1;
}

int Focusable::OpenFocusableProperties(CPoint point, IIPanel* panel, int leftAligned) {
  const int relation = GetFocusableRelation();
  if (!IsPostFocusable() && relation != kRelationNote) return 0;
  PanelViewRequest request;
  request.message = relation == kRelationNote        ? kCommandNoteProperties
                    : relation == kRelationSavedPost ? kCommandSavedPostProperties
                                                     : kCommandPostProperties;
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
  return GetFocusableRelation() == kRelationNote ? 28 : -1;
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
  if ((relation == kRelationPost || relation == kRelationSecondPost) && (set & kRankFlagMask) &&
      (status & kRankFlagMask)) {
    status &= ~kRankFlagMask;
  }
  return SetValueInt(kFieldStatus, status | set, 1);
}

int Focusable::GetFocusableStatus() {
  if (impl_ == nullptr) return 0;
  if (GetItem(kFieldStatus) != nullptr) return GetFieldInt(kFieldStatus);
  if (impl_->database == nullptr) return 0;
  CSingleLock hold(impl_->lock);
  const size_t before = impl_->items.size();
  ReadFieldFromDB(kFieldStatus);
  int status = GetFieldInt(kFieldStatus);
  if (status < 0) status = 0;
  // An unreserved record keeps no item of it: the status of a header-only
  // record is read from disk each time.
  if (impl_->referenceCount == 0) DropOnDemandItem(impl_, kFieldStatus, before);
  return status;
}

int Focusable::SetFocusableStatus(int status) { return SetValueInt(kFieldStatus, status, 1); }

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
}  // namespace kordll
