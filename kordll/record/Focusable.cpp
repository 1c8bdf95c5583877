// Focusable: lifetime (reservations of the body and of the header), load,
// save and delete, identity, place and origin, copies, and the static
// finders. Fields are in FocusableFields.cpp, the accessors of post fields
// in FocusablePost.cpp, status, dates, images and notification in
// FocusableStatus.cpp.

#include "kordll/record/Focusable.h"

#include <algorithm>

#include "kordll/platform/CRuntime.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/platform/Clock.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/FocusableImpl.h"
#include "kordll/record/Item.h"
#include "kordll/record/RecordIds.h"
#include "kordll/record/RegistryEntryPoints.h"

namespace kordll {

namespace {

const CString kGuidFormat(u"R%d_G%d");

// How long GetFocusable_wDBLocation waits for a controller, in clock time.
constexpr int64_t kControllerWaitMillis = 15000;

}  // namespace

Focusable::Focusable(int relation, AZeusDB* db) : impl_(new FocusableImpl()) {
  impl_->relation = relation;
  impl_->database = db;
}

Focusable::~Focusable() { delete impl_; }

// --- Header possessors ------------------------------------------------------

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
  const char16_t* format =
      (relation == kRelationHelpSection || relation == kRelationHelpTopic) ? u"R13_G%d" : u"R7_G%d";
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
    for (int field = kFieldGuid; field <= kFieldPublicationDate; ++field) {
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
