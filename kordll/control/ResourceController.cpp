#include "kordll/control/ResourceController.h"

#include <algorithm>
#include <climits>

#include "kordll/control/IIPanel.h"
#include "kordll/control/_struct_RESCTRLNOTIFMSG.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/RegistryEntryPoints.h"
#include "kordll/record/SettingsEntryPoints.h"

namespace kordll {

namespace {

// The profile entry of a controller's next free serial.
CString SerialEntry(int id) {
  CString entry;
  entry.Format("LRID-%d", id);
  return entry;
}

}  // namespace

ResourceController::ResourceController() : data_(new ResourceControllerData()) { Reserve(); }

ResourceController::~ResourceController() {
  if (data_ == nullptr) return;
  // Whoever is still inside a locked operation finishes it first.
  data_->lock.Lock();
  data_->lock.Unlock();
  delete data_;
}

int ResourceController::GetLoadStatus(int nonEmpty) {
  if (data_ == nullptr) return 0;
  if (nonEmpty != 0 && !data_->focusables.empty()) return 1;
  return data_->loaded != 0 ? 1 : 0;
}

void ResourceController::SetLoaded(int loaded) {
  if (data_ != nullptr) data_->loaded = loaded;
}

Focusable* ResourceController::GenerateFocusable(int) { return nullptr; }

int ResourceController::LoadRelatedRelations() { return 1; }

int ResourceController::InterpretGUICommand(PANELVIEWMESSAGE*, int*) { return 0; }

void ResourceController::Enter(Focusable* record) {
  record->SetOriginedResourceControllerID(data_->id, 0);
  data_->focusables.push_back(record);
}

int ResourceController::RegisterFocusable(Focusable* record, int unchecked, int allowEmptySlot) {
  if (data_ == nullptr || record == nullptr) return 0;
  if (unchecked != 0) {
    Enter(record);  // the GUID map is left as it is
    return 1;
  }
  CString guid = record->GetGUID();
  if (guid.IsEmpty()) {
    // The serial is spent even if the record is refused below.
    guid = GetAvailableGUID();
    if (guid.IsEmpty()) return 0;  // a record without identity stays out
    record->SetGUID(guid);
  }
  auto found = data_->guidMap.find(guid);
  if (found == data_->guidMap.end()) {
    Enter(record);
    data_->guidMap.emplace(guid, record);
    return 1;
  }
  if (allowEmptySlot != 0 && found->second == nullptr) {
    Enter(record);
    found->second = record;
    return 1;
  }
  return 0;  // another record has this GUID
}

int ResourceController::DeRegisterFocusable(Focusable* record, int* released, int force) {
  if (released != nullptr) *released = 0;
  if (data_ == nullptr || record == nullptr) return 0;
  const CString guid = record->GetGUID();
  auto found = data_->guidMap.find(guid);
  if (found == data_->guidMap.end() && force == 0) return 0;
  Focusable* mapped = found != data_->guidMap.end() ? found->second : nullptr;
  int result = 0;
  CArray<Focusable*, Focusable*>& all = data_->focusables;
  auto place = std::find(all.begin(), all.end(), record);
  Focusable* holder = nullptr;
  if (place != all.end()) {
    all.erase(place);
    holder = record;
    result = 1;
  } else {
    holder = mapped;  // a record known only by its GUID
  }
  // The GUID goes first: dropping the hold may delete the record.
  data_->guidMap.erase(guid);
  if (holder != nullptr) {
    const int gone = holder->ReleaseHeader(data_->id);
    if (released != nullptr) *released = gone != 0 ? 1 : 0;
  }
  return result;
}

int ResourceController::Release(int* destroyed) {
  if (destroyed != nullptr) *destroyed = 0;
  if (data_ == nullptr) return 0;
  CWinThread* thread = nullptr;
  {
    CSingleLock hold(data_->lock);
    if (data_->referenceCount == 0) return 1;
    if (--data_->referenceCount > 0) return 0;
    thread = data_->thread;
  }
  // Outside the lock: the thread's end finishes the object. A thread that
  // has already ended can no longer do that, so the controller goes here.
  if (destroyed != nullptr) *destroyed = 1;
  if (thread == nullptr || thread->PostThreadMessage(kMsgQuit, 0, 0) == 0) delete this;
  return 1;
}

void ResourceController::Reserve() {
  if (data_ == nullptr) return;
  CSingleLock hold(data_->lock);
  ++data_->referenceCount;
}

void ResourceController::UpdateMsg(_struct_RESCTRLNOTIFMSG*) {}

void ResourceController::DeleteMsg(_struct_RESCTRLNOTIFMSG*) {}

int ResourceController::InsertMsg(_struct_RESCTRLNOTIFMSG*) { return 0; }

void ResourceController::UpdateFocusable(Focusable*, int) {}

void ResourceController::DeleteFocusable(Focusable* record, int notify) {
  if (data_ == nullptr || record == nullptr) return;
  if (notify == 0) {
    DeRegisterFocusable(record, nullptr, 0);
    return;
  }
  // The panels are told about the record after it left, so it is kept alive
  // until they have been told. If this controller was its last holder, it
  // goes once they know.
  const int id = data_->id;
  const bool lastHolder = record->IsInUse() == 0 && record->GetOriginedResourceControllerID() == id;
  record->Reserve();
  DeRegisterFocusable(record, nullptr, 0);
  RegistryEntryPoints::Get()->SendRC2PanelMessage(this, kPanelMessageRecordRemoved,
                                                  kPanelKindRemoved, record);
  int gone = 0;
  record->Release(&gone);
  if (gone == 0 && lastHolder && record->IsInUse() == 0) record->ReleaseHeader(id);
}

int ResourceController::AddFocusable(Focusable* record) {
  RegisterFocusable(record, 0, 0);
  RegistryEntryPoints::Get()->SendRC2PanelMessage(this, kPanelMessageRecordAdded, kPanelKindAdded,
                                                  record);
  return 1;
}

void ResourceController::RefreshFocusables(Focusable*, CArray<Focusable*, Focusable*>*) {}

void ResourceController::AwakeFocusable(Focusable*) {}

void ResourceController::SuspendFocusable(Focusable*) {}

Focusable* ResourceController::CheckFocusable(CString guid, int walk) {
  if (data_ == nullptr) return nullptr;
  if (walk != 0) {
    for (Focusable* record : data_->focusables) {
      if (record != nullptr && record->GetGUID() == guid) return record;
    }
    return nullptr;
  }
  auto found = data_->guidMap.find(guid);
  return found != data_->guidMap.end() ? found->second : nullptr;
}

Focusable* ResourceController::GetFocusable_wID(int) { return nullptr; }

int ResourceController::AddExternalGUID(CString guid, Focusable* record) {
  if (data_ == nullptr || record == nullptr || guid.IsEmpty()) return 0;
  // The record is entered under its own GUID; the argument only has to be
  // there.
  return data_->guidMap.emplace(record->GetGUID(), record).second ? 1 : 0;
}

void ResourceController::OnUpdateResourceCtrl(_struct_RESCTRLNOTIFMSG*) {}

void ResourceController::UpdateParentResourceCtrl(_struct_RESCTRLNOTIFMSG* message) {
  if (data_ == nullptr || message == nullptr) return;
  if (RegistryEntryPoints::Get()->IsGlobalResourceValid() == 0) return;
  message->originatorID = data_->id;
  if (data_->parent != nullptr) data_->parent->OnUpdateResourceCtrl(message);
}

void ResourceController::LoadResources(CString) {}

void ResourceController::LateLoadResource(CString) {}

void ResourceController::CloseResourceCtrl() {
  if (data_ != nullptr) data_->closed = 1;
}

void ResourceController::StartClosingResourceCtrl() {
  if (data_ != nullptr) data_->closed = 1;
}

int ResourceController::IsResourceCtrlClosed() {
  return data_ != nullptr ? (data_->closed != 0 ? 1 : 0) : 1;
}

void ResourceController::PerformMaintenance(int) {}

int ResourceController::GetIntStatistic(int) { return 0; }

void ResourceController::LockResource() NO_THREAD_SAFETY_ANALYSIS {
  if (data_ != nullptr) data_->lock.Lock();
}

void ResourceController::UnLockResource() NO_THREAD_SAFETY_ANALYSIS {
  if (data_ != nullptr) data_->lock.Unlock();
}

void ResourceController::CollectFocusables(CArray<Focusable*, Focusable*>* out, bool newOnly) {
  if (data_ == nullptr || out == nullptr) return;
  CSingleLock hold(data_->lock);
  for (Focusable* record : data_->focusables) {
    if (record == nullptr) continue;
    if (newOnly) {
      const int status = record->GetFocusableStatus();
      // The tree test can never pass (IsTreeItemFocusable answers 1, which
      // has no bit 0x80): only unread posts count as new.
      const bool newPost = record->IsPostFocusable() != 0 && (status & 0x02) != 0;
      const bool newTreeItem = ((record->IsTreeItemFocusable() & status) & 0x80) != 0;
      if (!newPost && !newTreeItem) continue;
    }
    record->Reserve();
    out->push_back(record);
  }
}

void ResourceController::GetFocusables_wFilter(CArray<Focusable*, Focusable*>* out,
                                               ContentFilter*) {
  CollectFocusables(out, false);
}

void ResourceController::GetNewFocusables_wFilter(CArray<Focusable*, Focusable*>* out,
                                                  ContentFilter*) {
  CollectFocusables(out, true);
}

int ResourceController::GetResourceControllerID() { return data_ != nullptr ? data_->id : -1; }

void ResourceController::SetResourceControllerID(int id) {
  if (data_ != nullptr) data_->id = id;
}

CString ResourceController::IDRollsSection() {
  const CString section = SettingsEntryPoints::Get()->GetCurrentPreferencesSection();
  if (section.IsEmpty()) return CString();
  return section + "\\IDRolls";
}

int ResourceController::WriteNextSerial(int serial) {
  data_->lastUsedGUID = serial;
  CWinApp* app = AfxGetApp();
  const CString section = IDRollsSection();
  if (app == nullptr || section.IsEmpty()) return 1;  // counted in memory only
  return app->WriteProfileInt(section, SerialEntry(data_->id), serial) != 0 ? 1 : 0;
}

CString ResourceController::GetAvailableGUID() {
  if (data_ == nullptr) return CString();
  CSingleLock hold(data_->lock);
  if (data_->lastUsedGUID == -1) {
    int serial = data_->firstValidIDForGUID;
    CWinApp* app = AfxGetApp();
    const CString section = IDRollsSection();
    if (app != nullptr && !section.IsEmpty()) {
      serial = app->GetProfileInt(section, SerialEntry(data_->id), serial);
      // A negative serial was never written by this code: the entry is
      // damaged, and the controller starts where an empty profile would.
      if (serial < 0) serial = data_->firstValidIDForGUID;
    }
    data_->lastUsedGUID = serial;
  }
  const int serial = data_->lastUsedGUID;
  if (serial == INT_MAX) return CString();  // no serial is left to spend
  CString guid;
  guid.Format("R%d_G%d", data_->id, serial);
  if (WriteNextSerial(serial + 1) == 0) return CString();
  return guid;
}

int ResourceController::GetResourceControllerType() { return data_ != nullptr ? data_->type : -1; }

void ResourceController::SetResourceControllerType(int type) {
  if (data_ != nullptr) data_->type = type;
}

int ResourceController::IsRCReserved() { return data_ != nullptr && data_->type == 0 ? 1 : 0; }

CString ResourceController::GetParentGUID() {
  return data_ != nullptr ? data_->parentGUID : CString();
}

void ResourceController::SetParentGUID(CString guid) {
  if (data_ != nullptr) data_->parentGUID = guid;
}

ResourceController* ResourceController::GetParentResourceCtrl() {
  return data_ != nullptr ? data_->parent : nullptr;
}

void ResourceController::SetParentResourceCtrl(ResourceController* parent) {
  if (data_ != nullptr) data_->parent = parent;
}

CString ResourceController::GetRunningPath() {
  return data_ != nullptr ? data_->runningPath : CString();
}

void ResourceController::SetRunningPath(CString path) {
  if (data_ != nullptr) data_->runningPath = path;
}

CString ResourceController::GetRunningFile() {
  return data_ != nullptr ? data_->runningFile : CString();
}

void ResourceController::SetRunningFile(CString file) {
  if (data_ != nullptr) data_->runningFile = file;
}

CWinThread* ResourceController::GetResourceThread() {
  return data_ != nullptr ? data_->thread : nullptr;
}

void ResourceController::SetThreadResource(CWinThread* thread) {
  if (data_ == nullptr) return;
  CSingleLock hold(data_->lock);  // Release reads it under the lock
  data_->thread = thread;
}

int ResourceController::GetLastUsedGUID() { return data_ != nullptr ? data_->lastUsedGUID : -1; }

int ResourceController::GetFirstValidIDForGUID() {
  return data_ != nullptr ? data_->firstValidIDForGUID : -1;
}

void ResourceController::SetFirstValidIDForGUID(int id) {
  if (data_ != nullptr) data_->firstValidIDForGUID = id;
}

int ResourceController::UpdateLastUsedGUID(int serial) {
  if (data_ == nullptr) return 0;
  CSingleLock hold(data_->lock);
  return WriteNextSerial(serial);
}

CString ResourceController::GetDBName() { return CString(); }

CArray<Focusable*, Focusable*>& ResourceController::GetFocusables() {
  if (data_ == nullptr) {
    thread_local CArray<Focusable*, Focusable*> none;
    none.clear();
    return none;
  }
  if (GetLoadStatus(1) == 0) LateLoadResource(CString());
  return data_->focusables;
}

CArray<Focusable*, Focusable*>* ResourceController::GetFocusablesPtr() {
  if (data_ == nullptr) return nullptr;
  LockResource();
  const int status = GetLoadStatus(1);
  UnLockResource();  // the load may take the lock itself, or wait for others
  if (status == 0) LateLoadResource(CString());
  return &data_->focusables;
}

}  // namespace kordll
