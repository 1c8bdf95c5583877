#include "kordll/record/FocusableLink.h"

#include <algorithm>

#include "kordll/platform/CRuntime.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/FocusableLinkImpl.h"
#include "kordll/record/RecordIds.h"
#include "kordll/record/RelationsEntryPoints.h"

namespace kordll {

namespace {

// The size the link state has always reported; callers use it as a fixed
// number, whatever the state weighs in this build.
constexpr int kFocusableLinkImplSize = 72;
// Ids of the link's stored fields are below this.
constexpr int kOwnFieldCount = 4;

bool IsLink(Focusable* record) { return dynamic_cast<FocusableLink*>(record) != nullptr; }

}  // namespace

FocusableLink::FocusableLink(Focusable* target, int keepPointer)
    : Focusable(-1, nullptr), link_(std::make_shared<FocusableLinkImpl>()) {
  if (target == nullptr || IsLink(target)) return;
  if (keepPointer != 0) link_->target = target;
  TakeTargetPlace(target);
}

FocusableLink::FocusableLink(const FocusableLink& other)
    : Focusable(-1, nullptr), link_(other.link_) {
  // The base part is a copy (its relation and the two numbers that
  // SetLinkedFocusable leaves there); the link state is shared.
  Focusable::CopyFocusable(const_cast<FocusableLink*>(&other), 1);
}

FocusableLink& FocusableLink::operator=(const FocusableLink& other) {
  if (this == &other) return *this;
  Focusable::CopyFocusable(const_cast<FocusableLink*>(&other), 1);
  link_ = other.link_;
  return *this;
}

FocusableLink::~FocusableLink() = default;

int FocusableLink::GetFocusableLinkImplSize() { return kFocusableLinkImplSize; }

void FocusableLink::TakeTargetPlace(Focusable* target) {
  SetGUID(target->GetGUID());
  if (AZeusDB* db = target->GetDB()) link_->targetDBID = db->GetDBID();
  link_->targetSlotIndex = target->GetDBSlotIndex();
}

// --- Own operations -----------------------------------------------------------

int FocusableLink::SetLinkedFocusable(Focusable* target) {
  // A link standing for a link would forward every call twice and could
  // form a loop: refused.
  if (target == nullptr || IsLink(target)) return 0;
  TakeTargetPlace(target);
  link_->target = target;
  target->Reserve();
  // The base record keeps the same numbers. Nothing reads them; they are
  // kept so that the base part of a link says the same as the link.
  AZeusDB* db = target->GetDB();
  if (db != nullptr) Focusable::SetValueInt(1, link_->targetDBID, 1);
  Focusable::SetValueInt(2, link_->targetSlotIndex, 1);
  return 1;
}

void FocusableLink::SetFocusableLink(Focusable* record) {
  if (record == nullptr) return;
  link_->targetSlotIndex = record->GetFieldInt(2);
  link_->targetDBID = record->GetFieldInt(1);
  link_->guid = record->GetGUID();
  link_->ownSlotIndex = record->GetDBSlotIndex();
  link_->relation = record->GetFocusableRelation();
}

Focusable* FocusableLink::GetLinkedFocusable() { return link_->target; }

int FocusableLink::GetFocusableLinkStatus() { return link_->linkStatus; }

int FocusableLink::PreLoading() {
  Focusable* found =
      Focusable::GetFocusable_wDBLocation(link_->guid, link_->targetDBID, link_->targetSlotIndex);
  if (found == nullptr || IsLink(found)) {
    link_->target = nullptr;
    return 0;
  }
  link_->target = found;
  return 1;
}

// --- On the link's own data ----------------------------------------------------

PrintTemplate* FocusableLink::DecorateFocusable(int escape) {
  Focusable* target = link_->target;
  if (target == nullptr) return nullptr;
  PrintTemplate* printed = target->DecorateFocusable(escape);
  if (printed == nullptr) return nullptr;
  RelationsEntryPoints* relations = RelationsEntryPoints::Get();
  relations->AddPrintTemplateAttribute(printed, CString(u"linked"), CString(u"true"));
  if (link_->linkStatus & kLinkDeleted) {
    relations->AddPrintTemplateAttribute(printed, CString(u"deleted"), CString(u"true"));
  }
  return printed;
}

std::vector<int>* FocusableLink::GetHeaderPossessors() { return link_->headerPossessors; }

int FocusableLink::DeleteFocusable() {
  if (!link_->savable) return 1;
  if (link_->database == nullptr) return 0;
  if (link_->database->deleteFocusableSlot(this, nullptr, nullptr) != 1) return 0;
  link_->database = nullptr;
  link_->ownSlotIndex = -1;
  return 1;
}

void FocusableLink::SetDB(AZeusDB* db) { link_->database = db; }

void FocusableLink::PreSaving() {}

CString FocusableLink::GetGUID() { return link_->guid; }

void FocusableLink::SetGUID(CString guid) {
  if (link_->guid == guid) return;
  link_->guid = std::move(guid);
  link_->changed = 1;
}

int FocusableLink::GetDBSlotIndex() { return link_->ownSlotIndex; }

void FocusableLink::SetDBSlotIndex(int slotIndex) { link_->ownSlotIndex = slotIndex; }

void FocusableLink::SetOriginedResourceControllerID(int id, int) {
  link_->originedController = id;
  if (link_->target != nullptr) link_->target->ReserveHeader(id);
}

int FocusableLink::GetOriginedResourceControllerID() { return link_->originedController; }

int FocusableLink::GetFocusableRelation() { return kLinkRelation; }

int FocusableLink::IsPostFocusable() {
  if (link_->target == nullptr) return 0;
  // Relation 26 is not a post when seen through a link.
  const int relation = link_->target->GetFocusableRelation();
  return relation == kRelationPost || relation == kRelationSecondPost ? 1 : 0;
}

int FocusableLink::IsTreeItemFocusable() {
  return link_->target != nullptr ? link_->target->IsTreeItemFocusable() : 0;
}

int FocusableLink::IsInUse() {
  return link_->referenceCount > 0 || link_->headerPossessors != nullptr ? 1 : 0;
}

int FocusableLink::IsFocusableDeleted() {
  Focusable* target = link_->target;
  if (target == nullptr) return 0;
  // The status asked here is the target's: the link's own deleted mark
  // shows only in print.
  if (target->IsFocusableDeleted()) return 1;
  return (GetFocusableStatus() & kLinkDeleted) ? 1 : 0;
}

int FocusableLink::ReSetFocusableStatus(int set, int clear) {
  if (set & kLinkDeleted) {
    link_->linkStatus |= set;
    set &= ~kLinkDeleted;
  }
  if (clear & kLinkDeleted) {
    link_->linkStatus &= ~kLinkDeleted;
    clear &= ~kLinkDeleted;
  }
  // The target is called even with nothing left to set or clear.
  return link_->target != nullptr ? link_->target->ReSetFocusableStatus(set, clear) : 0;
}

void FocusableLink::FocusableSaved() { link_->changed = 0; }

void FocusableLink::ChangeItemChangeStatus(int id, int value) {
  if (id < kOwnFieldCount) link_->changed = value;
}

int FocusableLink::NeedToSave() {
  if (link_->target != nullptr) link_->target->NeedToSave();
  return 0;
}

// --- Own or target -------------------------------------------------------------------

int FocusableLink::GetFieldCount(int own) {
  if (own != 0) return kOwnFieldCount;
  return link_->target != nullptr ? link_->target->GetFieldCount(0) : 0;
}

CString FocusableLink::GetFieldString(int id, int own) {
  if (own == 0) {
    return link_->target != nullptr ? link_->target->GetFieldString(id, 0) : CString();
  }
  switch (id) {
    case 0:
      return link_->guid;
    case 1:
      return CString::Formatted(CString(u"%d"), link_->targetDBID);
    case 2:
      return CString::Formatted(CString(u"%d"), link_->targetSlotIndex);
    default:
      return CString();
  }
}

int FocusableLink::IsItemChanged(int id, int own) {
  if (own == 0) return link_->target != nullptr ? link_->target->IsItemChanged(id, 1) : 0;
  return link_->changed;
}

int FocusableLink::IsFieldActive(int id, int own) {
  if (own == 0) return link_->target != nullptr ? link_->target->IsFieldActive(id, 1) : 0;
  return id < kOwnFieldCount ? 1 : 0;
}

int FocusableLink::SetValuePiece(int id, int, std::u16string_view text, int partial, int,
                                 int last) {
  if (id < 0 || id >= kOwnFieldCount) return 0;
  const CString piece(text);
  if (id == 0) {
    // The first piece is not looked at: a partial GUID joins what was there.
    if (partial != 0) {
      link_->guid += piece;
    } else {
      link_->guid = piece;
    }
    return 1;
  }
  if (id == 3) return 1;  // stores nothing
  int& number = id == 1 ? link_->targetDBID : link_->targetSlotIndex;
  if (partial == 0) {
    number = _wtoi(piece);
    return 1;
  }
  if (link_->pieces == nullptr) link_->pieces = new std::pair<CString, CString>();
  CString& gathered = id == 1 ? link_->pieces->first : link_->pieces->second;
  const CString& other = id == 1 ? link_->pieces->second : link_->pieces->first;
  gathered += piece;
  if (last != 0) {
    number = _wtoi(gathered);
    gathered.Empty();
    if (other.IsEmpty()) {
      delete link_->pieces;
      link_->pieces = nullptr;
    }
  }
  return 1;
}

int FocusableLink::SetValue_wStr(int id, int, CString text) {
  switch (id) {
    case 0:
      link_->guid = std::move(text);
      return 1;
    case 1:
      link_->targetDBID = _wtoi(text);
      return 1;
    case 2:
      link_->targetSlotIndex = _wtoi(text);
      return 1;
    default:
      return 0;
  }
}

// --- Forwarded ---------------------------------------------------------------------------

int FocusableLink::LoadFocusable(DBTaskItem* task) {
  return link_->target != nullptr && link_->target->LoadFocusable(task) != 0 ? 1 : 0;
}

COleDateTime FocusableLink::GetReceiveDate() {
  return link_->target != nullptr ? link_->target->GetReceiveDate() : COleDateTime::Invalid();
}

COleDateTime FocusableLink::GetPublicationDate() {
  return link_->target != nullptr ? link_->target->GetPublicationDate() : COleDateTime::Invalid();
}

int FocusableLink::SaveFocusable() {
  return link_->target != nullptr && link_->target->SaveFocusable() != 0 ? 1 : 0;
}

int FocusableLink::GetFlagImage() {
  return link_->target != nullptr ? link_->target->GetFlagImage() : -1;
}

int FocusableLink::GetStatusImage() {
  return link_->target != nullptr ? link_->target->GetStatusImage() : 4;
}

int FocusableLink::GetFocusableStatus() {
  return link_->target != nullptr ? link_->target->GetFocusableStatus() : 0;
}

int FocusableLink::SetFocusableStatus(int status) {
  return link_->target != nullptr ? link_->target->SetFocusableStatus(status) : 0;
}

int FocusableLink::IsFullyLoaded(int reserve) {
  return link_->target != nullptr ? link_->target->IsFullyLoaded(reserve) : 0;
}

void FocusableLink::PerformMaintenance(int flag) {
  if (link_->target != nullptr) link_->target->PerformMaintenance(flag);
}

Focusable* FocusableLink::CreateCopyFocusable(int full) {
  return link_->target != nullptr ? link_->target->CreateCopyFocusable(full) : nullptr;
}

void FocusableLink::CopyFocusable(Focusable* src, int full) {
  if (link_->target != nullptr) link_->target->CopyFocusable(src, full);
}

int FocusableLink::GetSourceResourceControllerID() {
  return link_->target != nullptr ? link_->target->GetSourceResourceControllerID() : -1;
}

int FocusableLink::GetFieldInt(int id) {
  return link_->target != nullptr ? link_->target->GetFieldInt(id) : -1;
}

COleDateTime FocusableLink::GetFieldDate(int id) {
  return link_->target != nullptr ? link_->target->GetFieldDate(id) : COleDateTime::Invalid();
}

int FocusableLink::GetValueStr(int id, CString* out) {
  return link_->target != nullptr ? link_->target->GetValueStr(id, out) : 0;
}

int FocusableLink::GetValueInt(int id, int* out) {
  return link_->target != nullptr ? link_->target->GetValueInt(id, out) : 0;
}

int FocusableLink::GetValueDouble(int id, double* out) {
  return link_->target != nullptr ? link_->target->GetValueDouble(id, out) : 0;
}

int FocusableLink::GetValueDate(int id, COleDateTime* out) {
  return link_->target != nullptr ? link_->target->GetValueDate(id, out) : 0;
}

int FocusableLink::GetValueBOOL(int id, int* out) {
  return link_->target != nullptr ? link_->target->GetValueBOOL(id, out) : 0;
}

int FocusableLink::SetValueStr(int id, CString text, int markChanged) {
  return link_->target != nullptr ? link_->target->SetValueStr(id, std::move(text), markChanged)
                                  : 0;
}

int FocusableLink::SetValueInt(int id, int value, int markChanged) {
  return link_->target != nullptr ? link_->target->SetValueInt(id, value, markChanged) : 0;
}

int FocusableLink::SetValueDouble(int id, double value, int markChanged) {
  return link_->target != nullptr ? link_->target->SetValueDouble(id, value, markChanged) : 0;
}

int FocusableLink::SetValueDate(int id, COleDateTime value, int markChanged) {
  return link_->target != nullptr ? link_->target->SetValueDate(id, value, markChanged) : 0;
}

int FocusableLink::SetValueBOOL(int id, int value, int markChanged) {
  return link_->target != nullptr ? link_->target->SetValueBOOL(id, value, markChanged) : 0;
}

COleDateTime FocusableLink::GetPublicationDateTime() {
  return link_->target != nullptr ? link_->target->GetPublicationDateTime()
                                  : COleDateTime::Invalid();
}

COleDateTime FocusableLink::GetReceiveDateTime() {
  return link_->target != nullptr ? link_->target->GetReceiveDateTime() : COleDateTime::Invalid();
}

int FocusableLink::SetPublicationDateTime(COleDateTime date) {
  return link_->target != nullptr ? link_->target->SetPublicationDateTime(date) : 0;
}

int FocusableLink::SetReceiveDateTime(COleDateTime date) {
  return link_->target != nullptr ? link_->target->SetReceiveDateTime(date) : 0;
}

int FocusableLink::Release(int*) {
  Focusable* target = link_->target;
  if (target == nullptr) return 0;
  // The answer is always 0, so the caller never learns from it that the
  // target went; the link itself must not keep a pointer to a deleted
  // record.
  int destroyed = 0;
  target->Release(&destroyed);
  if (destroyed != 0 && link_->target == target) link_->target = nullptr;
  return 0;
}

int FocusableLink::Reserve() { return link_->target != nullptr ? link_->target->Reserve() : 0; }

int FocusableLink::ReserveHeader(int controller) {
  CSingleLock hold(link_->lock);
  if (link_->target != nullptr) link_->target->ReserveHeader(controller);
  if (link_->headerPossessors == nullptr) link_->headerPossessors = new std::vector<int>();
  link_->headerPossessors->push_back(controller);
  return 1;
}

int FocusableLink::ReleaseHeader(int controller) {
  FocusableLinkImpl* link = link_.get();
  link->lock.Lock();
  if (link->target != nullptr && link->target->ReleaseHeader(controller) == 1) {
    link->target = nullptr;  // the target is gone
  }
  std::vector<int>* list = link->headerPossessors;
  if (link->referenceCount == 0 && ((list == nullptr && link->originedController == controller) ||
                                    (list != nullptr && list->size() == 1 &&
                                     (*list)[0] == controller && link->originedController == -1))) {
    link->lock.Unlock();
    delete this;
    return 1;
  }
  if (list != nullptr) {
    auto it = std::find(list->begin(), list->end(), controller);
    if (it != list->end()) list->erase(it);
    if (list->empty()) {
      delete list;
      link->headerPossessors = nullptr;
    }
  }
  if (link->originedController == controller) link->originedController = -1;
  // Unlike a plain record, a link that nobody holds any more goes at once.
  if (link->headerPossessors == nullptr && link->referenceCount == 0 &&
      link->originedController == -1) {
    link->lock.Unlock();
    delete this;
    return 1;
  }
  link->lock.Unlock();
  return 0;
}

int FocusableLink::IsFieldItemSame(int id, Item* item) {
  return link_->target != nullptr ? link_->target->IsFieldItemSame(id, item) : 0;
}

int FocusableLink::GetFieldType(int id) {
  return link_->target != nullptr ? link_->target->GetFieldType(id) : 0;
}

}  // namespace kordll
