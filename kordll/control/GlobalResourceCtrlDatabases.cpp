// GlobalResourceCtrl: record databases and their ids.

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/ResourceController.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/SettingsEntryPoints.h"

namespace kordll {

namespace {

// Controllers whose database belongs to a dynamic object even though their
// id is reserved: the trash (11) and the download list (14).
constexpr int kTrashControllerID = 11;

bool IsMappedByParent(ResourceController* controller) {
  if (controller == nullptr) return false;
  const int id = controller->GetResourceControllerID();
  return controller->GetResourceControllerType() == 1 || id == kFileManagerControllerID ||
         id == kTrashControllerID;
}

CString MapEntry(ResourceController* controller) { return "RC_" + controller->GetParentGUID(); }

}  // namespace

CString GlobalResourceCtrl::DBIDMapSection() {
  const CString login = SettingsEntryPoints::Get()->GetCurrentLogin();
  if (login.IsEmpty()) return CString();
  return "User-" + login + "\\DBIDMap";
}

ResourceController* GlobalResourceCtrl::GetPostCtrl(int dbID) {
  GlobalResourceCtrl* self = ValidInstance();
  if (self == nullptr) return nullptr;
  CSingleLock hold(self->dbLock_);
  auto found = self->postCtrls_.find(dbID);
  return found != self->postCtrls_.end() ? found->second : nullptr;
}

AZeusDB* GlobalResourceCtrl::GetDBCtrl(int dbID) {
  GlobalResourceCtrl* self = ValidInstance();
  if (self == nullptr) return nullptr;
  CSingleLock hold(self->dbLock_);
  auto found = self->dbCtrls_.find(dbID);
  return found != self->dbCtrls_.end() ? found->second : nullptr;
}

int GlobalResourceCtrl::RegisterDBCtrl(AZeusDB* db, ResourceController* controller) {
  GlobalResourceCtrl* self = ValidInstance();
  if (self == nullptr || db == nullptr) return 0;
  CSingleLock hold(self->dbLock_);
  CWinApp* app = AfxGetApp();
  if (app == nullptr) return 1;
  int dbID;
  if (IsMappedByParent(controller)) {
    const CString section = DBIDMapSection();
    int stored = -1;
    if (!section.IsEmpty()) stored = app->GetProfileInt(section, MapEntry(controller), -1);
    // An entry that is no number, or negative, was never written here: it
    // is read as no entry.
    if (stored >= 0) {
      db->SetDBID(stored, 0);
    } else if (db->GetDBID() == -1) {
      if (controller->IsRCReserved() != 0) {
        db->SetDBID(controller->GetResourceControllerID(), 1);
      } else {
        self->RegisterNewDB(db, controller, 0);
      }
      db->updateDBHeader();
    }
    dbID = db->GetDBID();
  } else {
    dbID = db->GetDBID();
  }
  self->postCtrls_[dbID] = controller;
  self->dbCtrls_[dbID] = db;
  self->ownedDBs_.insert(db);  // also when it displaced another under the same id
  return 1;
}

int GlobalResourceCtrl::RegisterNewDB(AZeusDB* db, ResourceController* controller, int) {
  if (db == nullptr || controller == nullptr) return 0;
  SettingsEntryPoints* settings = SettingsEntryPoints::Get();
  int next = settings->GetCurrentPreferencesIntValue(kLastDBIDField);
  if (next > kLastNewDBID) return 0;  // the id space is spent for good
  if (next < kFirstNewDBID) next = kFirstNewDBID;
  // The next free id is kept before this one is used: an id that could not
  // be counted is not given, so that no two databases ever share one.
  if (settings->SetCurrentPreferencesIntValue(kLastDBIDField, next + 1) == 0) return 0;
  db->SetDBID(next, 1);
  CWinApp* app = AfxGetApp();
  const CString section = DBIDMapSection();
  if (app == nullptr || section.IsEmpty()) return 1;
  // Without the mapping the database still finds its id in its own header.
  app->WriteProfileInt(section, MapEntry(controller), next);
  return 1;
}

int GlobalResourceCtrl::DeRegisterDBCtrl(AZeusDB* db) {
  GlobalResourceCtrl* self = Instance();
  if (self == nullptr || db == nullptr) return 0;
  const int dbID = db->GetDBID();
  CSingleLock hold(self->dbLock_);
  self->postCtrls_.erase(dbID);
  return 1;
}

int GlobalResourceCtrl::DeleteDBCache(AZeusDB* db) {
  GlobalResourceCtrl* self = Instance();
  if (self == nullptr || db == nullptr) return 0;
  const int dbID = db->GetDBID();
  ResourceController* controller = nullptr;
  {
    CSingleLock hold(self->dbLock_);
    auto found = self->postCtrls_.find(dbID);
    if (found != self->postCtrls_.end()) controller = found->second;
  }
  if (controller == nullptr || controller->IsRCReserved() != 0) return 0;
  CWinApp* app = AfxGetApp();
  const CString section = DBIDMapSection();
  if (app == nullptr || section.IsEmpty()) return 0;
  return app->DeleteProfileEntry(section, MapEntry(controller));
}

void GlobalResourceCtrl::ClearDBRegisteries() {
  std::set<AZeusDB*> owned;
  {
    CSingleLock hold(dbLock_);
    dbsCleared_.store(1);
    owned.swap(ownedDBs_);
    dbCtrls_.clear();
    postCtrls_.clear();
  }
  // Each database once, however often it was entered. Deleting writes the
  // header, so it happens with no lock held.
  for (AZeusDB* db : owned) delete db;
}

}  // namespace kordll
