#include "examples/reader/RecordsCtrl.h"

#include <algorithm>

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"

namespace sample {

using kordll::CString;
using kordll::Focusable;

RecordsCtrl::RecordsCtrl(const CString& folder, int id, const char16_t* database)
    : database_(database) {
  SetResourceControllerID(id);
  kordll::GlobalResourceCtrl::RegisterResourceCtrl(this);
  LoadResources(folder);
}

RecordsCtrl::~RecordsCtrl() {
  LockResource();
  const kordll::CArray<Focusable*, Focusable*> held = data_->focusables;
  for (Focusable* record : held) record->Release(), DeRegisterFocusable(record, nullptr, 1);
  UnLockResource();
}

void RecordsCtrl::Make(const CString& folder, int id, const char16_t* database) {
  if (kordll::GlobalResourceCtrl::GetResourceController(id) != nullptr) return;
  auto* made = new RecordsCtrl(folder, id, database);
  if (kordll::GlobalResourceCtrl::GetResourceController(id) != made) made->Release();
}

void RecordsCtrl::LoadResources(CString folder) {
  SetRunningPath(folder);
  db_ = std::make_unique<kordll::AZeusDB>(folder, database_, 0, 0);
  kordll::DBTaskItem task;
  task.allFields = 1;
  int last = -1;
  for (;;) {
    auto record = std::make_unique<Focusable>(-1, nullptr);
    if (db_->readFocusableSlot(record.get(), nullptr, &task) != 1) break;
    LockResource();
    if (RegisterFocusable(record.get(), 0, 0)) {
      Focusable* held = record.release();
      held->Reserve();
      // Serials given out later must pass every stored one.
      const CString guid = held->GetGUID();
      last = std::max(last, kordll::_wtoi(guid.Mid(guid.Find(u'G') + 1)));
    }
    UnLockResource();
  }
  // The next serial: the one the profile keeps, unless a stored record
  // (such as one of the sample feed's posts) has it already.
  const CString next = GetAvailableGUID();
  const int serial = kordll::_wtoi(next.Mid(next.Find(u'G') + 1));
  if (!next.IsEmpty()) UpdateLastUsedGUID(std::max(serial, last + 1));
  SetLoaded(1);
}

Focusable* RecordsCtrl::GenerateFocusable(int relation) {
  return db_ ? new Focusable(relation, db_.get()) : nullptr;
}

void RecordsCtrl::CloseResourceCtrl() {
  kordll::GlobalResourceCtrl::DeRegisterResourceCtrl(this);
  Release();
}

}  // namespace sample
