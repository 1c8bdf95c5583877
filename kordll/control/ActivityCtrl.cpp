#include "kordll/control/ActivityCtrl.h"

#include <memory>

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/IIPanel.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/SettingsEntryPoints.h"

namespace kordll {

namespace {

// The database file of the activity list, in the user's running path.
const char kActivitiesDB[] = "Activities";

bool IsActivity(const Focusable* record) {
  return record != nullptr &&
         const_cast<Focusable*>(record)->GetFocusableRelation() == kActivityRelation;
}

}  // namespace

ActivityCtrl::ActivityCtrl() {
  SetResourceControllerID(kActivityControllerID);
  GlobalResourceCtrl::RegisterResourceCtrl(this);
  LoadResources(SettingsEntryPoints::Get()->GetCurrentUserRunningPath());
}

ActivityCtrl::~ActivityCtrl() {
  if (data_ != nullptr) {
    LockResource();
    if (GetLoadStatus(0) != 0 || !data_->focusables.empty()) {
      // DeRegisterFocusable changes the array: work on a copy.
      const CArray<Focusable*, Focusable*> held = data_->focusables;
      for (Focusable* record : held) {
        if (record == nullptr) continue;
        // Savable records were reserved when entered; the hold on the
        // header goes for every record, so that none outlives its
        // controller unowned.
        if (record->IsSavable()) record->Release();
        DeRegisterFocusable(record, nullptr, 1);
      }
      data_->focusables.clear();
      associations_.clear();
    }
    UnLockResource();
  }
  delete activityDB_;
}

Focusable* ActivityCtrl::GetActivityItem_wAssocFocGUID(CString guid) {
  LockResource();
  auto found = associations_.find(guid);
  Focusable* record = found != associations_.end() ? found->second : nullptr;
  UnLockResource();
  return record;
}

void ActivityCtrl::LoadResources(CString runningPath) {
  if (activityDB_ != nullptr) return;
  SetRunningPath(runningPath);
  if (!runningPath.IsEmpty()) {
    activityDB_ = new AZeusDB(runningPath, kActivitiesDB, 10, 0);
    auto task = std::make_unique<DBTaskItem>();
    task->allFields = 1;
    Focusable* record = new Focusable(-1, nullptr);
    int lastSlot = -1;
    for (;;) {
      int read = activityDB_->readFocusableSlot(record, nullptr, task.get());
      if (read) {
        LockResource();
        if (RegisterFocusable(record, 0, 0)) {
          record->Reserve();
          associations_[record->GetFieldString(kActivityAssocField, 0)] = record;
          record->SetFocusableStatus(kActivityLoadedStatus);
          record = nullptr;  // the controller holds it now
        }
        UnLockResource();
      } else if (activityDB_->GetLastDBErrorMsgCode() == AZeusDB::kErrRead) {
        // A broken chain: that slot is given up and the scan goes on after
        // it. A file that refuses writes keeps the slot; the scan still
        // moves on, since it goes on from the slot just read.
        if (record->GetDBSlotIndex() >= 0) {
          activityDB_->deleteFocusableSlot(record, nullptr, task.get());
        }
        read = 1;
      }
      // The scan must move forward; a slot met twice would mean the file
      // answers the same damaged slot again and again.
      if (!read || task->slotPosition <= lastSlot) break;
      lastSlot = task->slotPosition;
      if (record != nullptr) {
        // A record passed over (refused or damaged) is not kept.
        delete record;
      }
      record = new Focusable(-1, nullptr);
    }
    delete record;
  }
  SetLoaded(1);
  GlobalResourceCtrl::SendRC2PanelMessage(this, kPanelMessageLoaded, kPanelKindLoaded, nullptr);
}

int ActivityCtrl::InterpretGUICommand(PANELVIEWMESSAGE* message, int* result) {
  if (message == nullptr) return 0;
  // Both commands are this controller's whatever they carry: they are
  // answered, and act only on an activity record.
  const bool activity = IsActivity(message->focusable);
  if (message->message == kCommandAddActivity) {
    if (activity) AddActivity(message->focusable);
  } else if (message->message == kCommandRemoveActivity) {
    if (activity) RemoveActivity(message->focusable);
  } else {
    return 0;
  }
  if (result != nullptr) *result = 1;
  return 1;
}

void ActivityCtrl::AddActivity(Focusable* record) {
  LockResource();
  const int entered = RegisterFocusable(record, 0, 0);
  if (entered) {
    associations_[record->GetFieldString(kActivityAssocField, 0)] = record;
    if (record->IsSavable()) {
      record->SetDB(activityDB_);
      record->UpdateNeeded();
      record->SetFullyLoaded(1);
      if (activityDB_ != nullptr) record->SaveFocusable();
      record->Reserve();
    }
  }
  UnLockResource();
  if (entered) {
    GlobalResourceCtrl::SendRC2PanelMessage(this, kPanelMessageActivityAdded, kPanelKindAdded,
                                            record);
  }
}

void ActivityCtrl::RemoveActivity(Focusable* record) {
  LockResource();
  // Only a record this controller holds is taken out: another object with
  // the same GUID is none of this command's business.
  const bool held = CheckFocusable(record->GetGUID(), 0) == record;
  if (held && record->IsSavable()) record->DeleteFocusable();
  auto found = associations_.find(record->GetFieldString(kActivityAssocField, 0));
  if (found != associations_.end() && found->second == record) associations_.erase(found);
  UnLockResource();
  if (!held) return;
  // The caller's reference or the controller's keeps the record alive up to
  // the de-registration below.
  if (!GlobalResourceCtrl::IsTidrelClosing()) {
    GlobalResourceCtrl::SendRC2PanelMessage(this, kPanelMessageActivityRemoved, kPanelKindRemoved,
                                            record);
  }
  LockResource();
  if (record->IsSavable()) record->Release();
  DeRegisterFocusable(record, nullptr, 0);
  UnLockResource();
}

void ActivityCtrl::CloseResourceCtrl() {
  GlobalResourceCtrl::DeRegisterResourceCtrl(this);
  Release();
}

}  // namespace kordll
