#include "kordll/transfer/FileManagerCtrl.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/IIPanel.h"
#include "kordll/control/_struct_RESCTRLNOTIFMSG.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/FocusableLink.h"
#include "kordll/record/SettingsEntryPoints.h"
#include "kordll/talk/SystemTalkCtrl.h"
#include "kordll/toolkit/KorlanDateTime.h"
#include "kordll/toolkit/KorlanHTMLCtrl.h"
#include "kordll/transfer/FileItem.h"
#include "kordll/transfer/FileRequest.h"

namespace kordll {

namespace {

// The database of the list, in the user's running path.
const char kFileManagerDB[] = "FileManager";
// The enclosure of a post: "URL|length|type".
constexpr int kPostEnclosureField = 15;
constexpr int kPostDescriptionField = 7;
constexpr int kPostChannelField = 8;

// The running list. Written under g_startMu or by the list itself.
std::atomic<FileManagerCtrl*> g_running{nullptr};
std::mutex g_startMu;

// How many list objects exist; the last destructor wakes the waiters.
std::mutex g_liveMu;
std::condition_variable g_liveGone;
int g_live = 0;  // guarded by g_liveMu

int ClampToField(uint64_t size) {
  return size > static_cast<uint64_t>(INT_MAX) ? INT_MAX : static_cast<int>(size);
}

int ClampToField(int64_t size) {
  return size > INT_MAX ? INT_MAX : static_cast<int>(std::max<int64_t>(size, 0));
}

bool Has(int status, int bits) { return (status & bits) != 0; }

}  // namespace

// --- Life --------------------------------------------------------------------

FileManagerCtrl* FileManagerCtrl::Start() {
  FileManagerCtrl* ctrl;
  {
    std::lock_guard<std::mutex> lock(g_startMu);
    ResourceController* found = GlobalResourceCtrl::GetResourceController(kFileManagerControllerID);
    if (auto* running = dynamic_cast<FileManagerCtrl*>(found)) return running;
    ctrl = new FileManagerCtrl();
    // The last Release ends the thread, whose end deletes the object.
    ctrl->SetThreadResource(ctrl);
    if (ctrl->CreateThread() == 0) {
      GlobalResourceCtrl::DeRegisterResourceCtrl(ctrl);
      delete ctrl;
      return nullptr;
    }
    g_running.store(ctrl);
  }
  // Loaded now, on the caller's thread: the registry would otherwise load it
  // on first use while holding its own lock, which a handler of this list
  // may be waiting for.
  ctrl->LoadResources(ctrl->GetRunningFile());
  return ctrl;
}

FileManagerCtrl* FileManagerCtrl::GetFileManagerCtrl() { return g_running.load(); }

int FileManagerCtrl::WaitUntilGone(std::int64_t timeoutMs) {
  std::unique_lock<std::mutex> lock(g_liveMu);
  return g_liveGone.wait_for(lock, std::chrono::milliseconds(timeoutMs), [] { return g_live == 0; })
             ? 1
             : 0;
}

FileManagerCtrl::FileManagerCtrl() {
  {
    std::lock_guard<std::mutex> lock(g_liveMu);
    ++g_live;
  }
  SetResourceControllerID(kFileManagerControllerID);
  SetRunningPath(SettingsEntryPoints::Get()->GetCurrentUserRunningPath());
  SetRunningFile(kFileManagerDB);
  CString parent;
  parent.Format("RC_%d", kFileManagerControllerID);
  SetParentGUID(parent);
  GlobalResourceCtrl::RegisterResourceCtrl(this);
  LoadDB();
}

FileManagerCtrl::~FileManagerCtrl() {
  FileManagerCtrl* self = this;
  g_running.compare_exchange_strong(self, nullptr);
  if (data_ != nullptr) {
    LockResource();
    const CArray<Focusable*, Focusable*> held = data_->focusables;
    for (Focusable* record : held) LetGo(record);
    UnLockResource();
  }
  if (GlobalResourceCtrl::IsGlobalResourceValid() != 0 &&
      GlobalResourceCtrl::GetResourceController(kFileManagerControllerID) == this) {
    GlobalResourceCtrl::DeRegisterResourceCtrl(this);
  }
  if (ownsDB_) delete db_;
  std::lock_guard<std::mutex> lock(g_liveMu);
  if (--g_live == 0) g_liveGone.notify_all();
}

void FileManagerCtrl::LoadDB() {
  if (GlobalResourceCtrl::IsGlobalResourceValid() == 0) return;
  LockResource();
  // Without a user folder nothing is stored: the list would otherwise be
  // written wherever the process runs.
  if (db_ == nullptr && !GetRunningPath().IsEmpty()) {
    auto* db = new AZeusDB(GetRunningPath(), GetRunningFile(), 20, 0);
    if (GlobalResourceCtrl::RegisterDBCtrl(db, this) != 0) {
      db_ = db;
      dbID_ = db->GetDBID();
      // Without an application object the registry does not keep it.
      ownsDB_ = GlobalResourceCtrl::GetDBCtrl(dbID_) != db;
    } else {
      delete db;
    }
  }
  UnLockResource();
}

AZeusDB* FileManagerCtrl::GetFileDB() { return db_; }

Focusable* FileManagerCtrl::GenerateFocusable(int relation) {
  return relation == kFileRelation ? new FileItem() : nullptr;
}

bool FileManagerCtrl::Hold(Focusable* record, int allowEmptySlot) {
  if (RegisterFocusable(record, 0, allowEmptySlot) == 0) return false;
  if (record->GetDBSlotIndex() < 0) record->SetFullyLoaded(1);  // made here, nothing to read
  if (record->GetDB() == nullptr && db_ != nullptr) record->SetDB(db_);
  record->Reserve();
  return true;
}

int FileManagerCtrl::LetGo(Focusable* record) {
  if (record == nullptr || CheckFocusable(record->GetGUID(), 0) != record) return 0;
  record->Release();
  return DeRegisterFocusable(record, nullptr, 0);
}

bool FileManagerCtrl::DBUsable() {
  if (db_ == nullptr) return false;
  if (ownsDB_) return true;
  // The registry deletes the databases at log-off; a list that outlives the
  // log-off (a download still running) must not write to a database that
  // is gone, nor to the one a new log-in opened in its place.
  return GlobalResourceCtrl::AreDBsCleared() == 0 && GlobalResourceCtrl::GetDBCtrl(dbID_) == db_;
}

void FileManagerCtrl::Save(Focusable* record) {
  if (record == nullptr) return;
  if (!DBUsable()) {
    record->SetDB(nullptr);  // nor when it is let go
    return;
  }
  if (record->GetDB() != nullptr) record->SaveFocusable();
}

void FileManagerCtrl::Tell(unsigned message, int kind, Focusable* record) {
  GlobalResourceCtrl::SendRC2PanelMessage(this, message, kind, record);
}

// --- Loading and the start-up repair -------------------------------------------

void FileManagerCtrl::LateLoadResource(CString runningFile) { LoadResources(runningFile); }

void FileManagerCtrl::LoadResources(CString) {
  // The whole load runs under the lock, so that two threads asking for the
  // list at once load it once.
  LockResource();
  if (GetLoadStatus(0) != 0 || GlobalResourceCtrl::IsGlobalResourceValid() == 0) {
    UnLockResource();
    return;
  }
  SetLoaded(1);
  if (db_ == nullptr) LoadDB();
  auto task = std::make_unique<DBTaskItem>();
  task->allFields = 1;
  int lastSlot = -1;
  while (GlobalResourceCtrl::IsGlobalResourceValid() != 0 && db_ != nullptr) {
    auto* record = new FileItem();
    const int read = db_->readFocusableSlot(record, nullptr, task.get());
    // A slot that cannot be read is passed over (it stays in the file); the
    // scan stops at the end, or when it would not move forward.
    const bool broken = !read && db_->GetLastDBErrorMsgCode() == AZeusDB::kErrRead;
    if ((!read && !broken) || task->slotPosition <= lastSlot) {
      delete record;
      break;
    }
    lastSlot = task->slotPosition;
    if (!read || record->GetFocusableRelation() != kFileRelation || !Hold(record, 0)) {
      delete record;
      continue;
    }
    // 1, 2: a transfer that was running is paused; a failed one is an entry.
    if (Has(record->GetFocusableStatus(), kFileDownloading)) {
      record->ReSetFocusableStatus(kFilePaused, kFileDownloading);
    }
    if (Has(record->GetFocusableStatus(), kFileFailed)) {
      record->ReSetFocusableStatus(kFileEntryOnly, kFileFailed);
    }
    const int downloaded = record->GetFieldInt(kFileFieldDownloaded);
    if (downloaded < 1) {
      if (Has(record->GetFocusableStatus(), kFilePausedToo)) {
        record->ReSetFocusableStatus(kFilePaused, kFilePausedToo);
      } else if (!Has(record->GetFocusableStatus(), kFilePaused)) {
        record->ReSetFocusableStatus(kFileEntryOnly,
                                     kFileDownloaded | kFilePaused | kFilePausedToo);
      }
    } else {
      if (Has(record->GetFocusableStatus(), kFileEntryOnly | kFilePausedToo)) {
        record->ReSetFocusableStatus(kFilePaused, kFileEntryOnly | kFileFailed | kFilePausedToo);
      }
      const CString name = record->GetFileName();
      const int status = record->GetFocusableStatus();
      if (name.IsEmpty()) {
        record->SetValueInt(kFileFieldDownloaded, 0, 1);
        record->ReSetFocusableStatus(kFileEntryOnly, kFilePaused);
      } else if (!Has(status, kFileNoCheck) || Has(status, kFileDownloaded)) {
        // A name that leads out of the download folder is not looked at: it
        // counts as a file that is gone.
        const CString path = FileItem::SafeSavePath(name);
        const int64_t size =
            path.IsEmpty() || !FileSystem::IsFile(path) ? -1 : FileSystem::GetFileSize(path);
        if (size < 0) {
          record->SetValueInt(kFileFieldDownloaded, 0, 1);
          record->SetFileName(CString());
          record->ReSetFocusableStatus(
              kFileEntryOnly, kFileDownloading | kFileDownloaded | kFileFailed | kFilePaused);
        } else {
          const int onDisk = ClampToField(size);
          const int expected = record->GetFieldInt(kFileFieldSize);
          if (Has(status, kFileDownloaded) && onDisk < expected) {
            record->SetValueInt(kFileFieldDownloaded, onDisk, 1);
            record->ReSetFocusableStatus(kFilePaused, kFileDownloaded);
          }
          if (onDisk == record->GetFieldInt(kFileFieldDownloaded)) {
            if (onDisk == expected && !Has(record->GetFocusableStatus(), kFileDownloaded)) {
              record->ReSetFocusableStatus(kFileDownloaded,
                                           kFileDownloading | kFileFailed | kFilePaused);
            }
          } else {
            record->SetValueInt(kFileFieldDownloaded, onDisk, 1);
          }
        }
      }
    }
    if (record->NeedToSave()) Save(record);
  }
  UnLockResource();
}

// --- News of other controllers -------------------------------------------------

int FileManagerCtrl::InsertMsg(_struct_RESCTRLNOTIFMSG* message) {
  if (message == nullptr) return 0;
  CArray<Focusable*, Focusable*> made;
  std::set<CString> seen;  // decoded addresses of this batch
  for (Focusable* post : message->focusables) {
    if (post == nullptr) continue;
    // The post's fields are read while it is held; a post nobody holds is
    // the caller's and is read as it stands.
    const bool held = post->IsFullyLoaded(1) != 0 || post->LoadFocusable(nullptr) != 0;
    const CString enclosure = post->GetFieldString(kPostEnclosureField, 0);
    CString url, length, type;
    TokenState walk;
    wcstok(&url, &enclosure, "|", walk);
    wcstok(&length, nullptr, "|", walk);
    wcstok(&type, nullptr, "|", walk);
    // An address is known by its decoded form: the entry's GUID is decoded
    // when it is entered (InsertFiles), so the look-up must be too.
    const CString decoded = KorlanHTMLCtrl::URLDecode(url);
    bool fresh = !decoded.IsEmpty() && seen.insert(decoded).second;
    if (fresh) {
      LockResource();
      fresh = CheckFocusable(decoded, 0) == nullptr;
      UnLockResource();
    }
    if (fresh) {
      auto* item = new FileItem();
      item->SetGUID(url);
      item->SetFocusableStatus(kFileEntryOnly | kFileUnseen);
      item->SetValueDate(kFileFieldFirstSeen, COleDateTime::GetCurrentTime(), 1);
      item->SetValueDate(kFileFieldPublished, post->GetPublicationDateTime(), 1);
      item->SetValueStr(kFileTitleField, post->GetPostTitle(), 1);
      item->SetValueStr(kFileFieldSource, post->GetFieldString(kPostChannelField, 0), 1);
      item->SetValueStr(kFileFieldDescription, post->GetFieldString(kPostDescriptionField, 0), 1);
      if (AZeusDB* db = post->GetDB()) {
        CString place;
        place.Format("%d:%d", post->GetDBSlotIndex(), db->GetDBID());
        item->SetValueStr(kFileFieldSourcePost, place, 1);
      }
      item->SetValueStr(kFileFieldType, type, 1);
      item->SetValueInt(kFileFieldSize, _wtoi(length), 1);
      made.push_back(item);
    }
    if (held) post->Release();
  }
  if (made.empty()) return 0;
  _struct_RESCTRLNOTIFMSG insert;
  insert.kind = kFileOpInsert;
  insert.focusables = made;
  InsertFiles(&insert);
  // An entry the list did not take (another thread entered the address
  // meanwhile, or the registry is gone) belongs to nobody: it goes here.
  LockResource();
  CArray<Focusable*, Focusable*> entered;
  for (Focusable* item : made) {
    if (CheckFocusable(item->GetGUID(), 0) == item) {
      item->Reserve();  // held for the talk below
      entered.push_back(item);
    } else {
      delete item;
    }
  }
  UnLockResource();
  if (entered.empty()) return 0;
  _struct_RESCTRLNOTIFMSG talk;
  talk.kind = kNotifyNewEnclosure;
  talk.text = message->text;
  talk.focusables = entered;
  SystemTalkCtrl::FireNotification(&talk, 0);
  for (Focusable* item : entered) item->Release();
  return 0;
}

int FileManagerCtrl::InsertFiles(_struct_RESCTRLNOTIFMSG* message) {
  if (message == nullptr) return 0;
  if (GetLoadStatus(0) == 0) LoadResources(GetRunningFile());
  if (GlobalResourceCtrl::IsGlobalResourceValid() == 0 || message->kind != kFileOpInsert) return 0;
  if (db_ == nullptr) LoadDB();
  const auto flags = reinterpret_cast<intptr_t>(message->focusable);
  CArray<Focusable*, Focusable*> added;
  CArray<Focusable*, Focusable*> toWrite;
  LockResource();
  CArray<Focusable*, Focusable*>& records = message->focusables;
  for (size_t i = 0; i < records.size(); ++i) {
    Focusable* record = records[i];
    if (record == nullptr) continue;
    record->SetGUID(KorlanHTMLCtrl::URLDecode(record->GetGUID()));
    if (GlobalResourceCtrl::IsGlobalResourceValid() == 0) break;
    if ((flags & kInsertLookUp) == 0) {
      if (Hold(record, (flags & kInsertAllowEmpty) != 0 ? 1 : 0)) {
        added.push_back(record);
        if (record->IsSavable()) toWrite.push_back(record);
      }
    } else if ((flags & kInsertRelease) != 0 && CheckFocusable(record->GetGUID(), 0) != nullptr) {
      int gone = 0;
      record->Release(&gone);
      if (gone != 0) records.erase(records.begin() + static_cast<long>(i--));
    }
  }
  if (!toWrite.empty() && DBUsable()) {
    DBTaskItem task;
    task.allFields = 1;
    db_->writeFocusablesSlot(&toWrite, nullptr, &task);
  }
  UnLockResource();
  GlobalResourceCtrl::SendRC2PanelMessage_Multi(this, kPanelMessageActivityAdded, kPanelKindAdded,
                                                &added);
  return 1;
}

int FileManagerCtrl::UpdateFile(CString url, int set, int clear) {
  LockResource();
  Focusable* record = CheckFocusable(url, 0);
  if (record != nullptr) {
    record->Reserve();  // kept for the panels, below
    record->ReSetFocusableStatus(set, clear);
    if (record->IsSavable() && record->NeedToSave()) Save(record);
  }
  UnLockResource();
  if (record != nullptr) {
    Tell(kPanelMessageFileChanged, kPanelKindFileState, record);
    record->Release();
  }
  return 1;
}

void FileManagerCtrl::UpdateMsg(_struct_RESCTRLNOTIFMSG* message) {
  if (message == nullptr || GlobalResourceCtrl::IsGlobalResourceValid() == 0 ||
      message->kind != kFileOpUpdate) {
    return;
  }
  if (GetLoadStatus(0) == 0) LoadResources(GetRunningFile());
  if (db_ == nullptr) LoadDB();
  CArray<Focusable*, Focusable*> changed;
  LockResource();
  for (Focusable* given : message->focusables) {
    if (given == nullptr) continue;
    Focusable* record = CheckFocusable(given->GetGUID(), 0);
    if (record == nullptr) record = given;
    if (message->setStatus == 0) {
      record->ReSetFocusableStatus(0, message->clearStatus);
    } else {
      int added = 0;
      int removed = 0;
      Focusable::GetRemovedStatus(record->GetFocusableStatus(), message->setStatus, added, removed);
      record->ReSetFocusableStatus(added, removed);
    }
    if (record->IsSavable() && record->NeedToSave() && DBUsable()) {
      db_->writeFocusableSlot(record, nullptr, nullptr);
    }
    record->Reserve();  // kept for the panels, below
    changed.push_back(record);
  }
  UnLockResource();
  GlobalResourceCtrl::SendRC2PanelMessage_Multi(this, kPanelMessageFileChanged, kPanelKindFileState,
                                                &changed);
  for (Focusable* record : changed) record->Release();
}

void FileManagerCtrl::DeleteMsg(_struct_RESCTRLNOTIFMSG* message) {
  if (message == nullptr || GlobalResourceCtrl::IsGlobalResourceValid() == 0) return;
  if (GetLoadStatus(0) == 0) LoadResources(GetRunningFile());
  if (message->kind != kFileOpDelete) return;
  CArray<Focusable*, Focusable*> removed;
  CArray<Focusable*, Focusable*> reserved;
  LockResource();
  for (Focusable* given : message->focusables) {
    if (given == nullptr) continue;
    Focusable* registered = CheckFocusable(given->GetGUID(), 0);
    Focusable* record = registered != nullptr ? registered : given;
    // Held until the panels have heard of it: letting go may end it.
    // A record nobody holds is the caller's, alive for the whole call.
    if (record->IsInUse() != 0) record->Reserve(), reserved.push_back(record);
    if (DBUsable()) record->DeleteFocusable();
    record->ReSetFocusableStatus(kFileDeleted, 0);
    LetGo(record);
    if (dynamic_cast<FocusableLink*>(record) == nullptr && record->IsFocusableDeleted() == 0) {
      record->SetFocusableDeleted(1);
    }
    removed.push_back(record);
    // Transfer reports queued on this list's thread do not wait behind a
    // long delete.
    if (AfxGetThread() == this) PumpWaitingMessages();
  }
  UnLockResource();
  GlobalResourceCtrl::SendRC2PanelMessage_Multi(this, kPanelMessageActivityRemoved,
                                                kPanelKindRemoved, &removed);
  for (Focusable* record : reserved) record->Release();
}

// --- Reports of the network side -------------------------------------------------

FileItem* FileManagerCtrl::ItemOf(FileRequest* request) {
  Focusable* found = CheckFocusable(request->url, 0);
  if (found == nullptr) found = CheckFocusable(KorlanHTMLCtrl::URLDecode(request->url), 0);
  return dynamic_cast<FileItem*>(found);
}

namespace {

// The server's date of the content, when it gave one.
bool ResponseDate(FileRequest* request, COleDateTime* date) {
  if (request->responseDate.IsEmpty()) return false;
  *date = KorlanDateTime::StringToDateTime(request->responseDate, 0);
  return true;
}

// A talk about one downloaded (or missing) file: its title and address in the
// text.
void FireFileTalk(const char* format, FileItem* item) {
  _struct_RESCTRLNOTIFMSG talk;
  talk.kind = kNotifyDownloadFinished;
  talk.text.Format(format, item->GetFieldString(kFileTitleField, 0), item->GetFileWebPath());
  talk.focusables.push_back(item);
  SystemTalkCtrl::FireNotification(&talk, 0);
}

}  // namespace

// What a report tells once the lock is left; each record is held until then.
struct FileManagerCtrl::After {
  void Tell(unsigned message, Focusable* record) {
    record->Reserve();
    tells.emplace_back(message, record);
  }
  void Talk(const char* format, FileItem* item) {
    item->Reserve();
    talks.emplace_back(format, item);
  }
  std::vector<std::pair<unsigned, Focusable*>> tells;
  std::vector<std::pair<const char*, FileItem*>> talks;
};

void FileManagerCtrl::Flush(After* after) {
  for (auto& [format, item] : after->talks) FireFileTalk(format, item);
  for (auto& [message, record] : after->tells) Tell(message, kPanelKindFileState, record);
  for (auto& [format, item] : after->talks) item->Release();
  for (auto& [message, record] : after->tells) record->Release();
}

void FileManagerCtrl::OnDownloadDone(FileRequest* request) {
  if (request == nullptr) return;
  LockResource();
  FileItem* item = ItemOf(request);
  UnLockResource();
  bool isNew = false;
  if (item == nullptr) {
    // A transfer that did not start from an entry gets one now.
    auto* made = new FileItem();
    made->SetGUID(request->url);
    made->SetValueInt(kFileFieldDownloaded, ClampToField(request->receivedSize), 1);
    if (request->httpStatus != 206) {
      made->SetValueInt(kFileFieldSize, ClampToField(request->reportedSize), 1);
    }
    made->SetValueDate(kFileFieldFirstSeen, COleDateTime::GetCurrentTime(), 1);
    made->SetValueStr(kFileTitleField, request->GetRequestTaskName(), 1);
    made->SetValueStr(kFileFieldSource, "Web", 1);
    COleDateTime date;
    if (ResponseDate(request, &date)) made->SetValueDate(kFileFieldPublished, date, 1);
    _struct_RESCTRLNOTIFMSG insert;
    insert.kind = kFileOpInsert;
    insert.focusables.push_back(made);
    InsertFiles(&insert);
    LockResource();
    isNew = CheckFocusable(made->GetGUID(), 0) == made;
    UnLockResource();
    if (!isNew) delete made;  // the list did not take it
  }
  After after;
  LockResource();
  item = ItemOf(request);
  if (item != nullptr) {
    const bool complete = (request->httpStatus == 200 || request->httpStatus == 206) &&
                          request->totalSize == request->receivedSize;
    if (complete) {
      item->ReSetFocusableStatus(kFileDownloaded, kFileEntryOnly | kFileDownloading | kFileFailed |
                                                      kFilePaused | kFilePausedToo | kFileNoCheck);
      COleDateTime date;
      if (item->GetFieldDate(kFileFieldPublished).GetStatus() != COleDateTime::valid &&
          ResponseDate(request, &date)) {
        item->SetValueDate(kFileFieldPublished, date, 1);
      }
      if (request->totalSize != 0) {
        item->SetValueInt(kFileFieldSize, ClampToField(request->totalSize), 1);
      }
      if (request->receivedSize != 0) {
        item->SetValueInt(kFileFieldDownloaded, ClampToField(request->receivedSize), 1);
      }
      item->SetFileName(request->GetFileToSave());
      Save(item);
      if (GlobalResourceCtrl::IsGlobalResourceValid() != 0) {
        after.Talk(" File entitled \"%s\" and located at \"%s\" downloaded.", item);
        if (!isNew) after.Tell(kPanelMessageFileChanged, item);
      }
    } else {
      if (request->receivedSize != 0) {
        item->SetFileName(request->GetFileToSave());
        item->SetValueInt(kFileFieldDownloaded, ClampToField(request->receivedSize), 1);
        if (request->totalSize != 0) {
          item->SetValueInt(kFileFieldSize, ClampToField(request->totalSize), 1);
        }
        item->ReSetFocusableStatus(kFilePaused, kFileDownloading);
      }
      // A cancel ("Request canceled") ends here too, as any other failure.
      if (request->httpStatus == 404) {
        item->ReSetFocusableStatus(kFileNotFound, kFileDownloading);
        if (GlobalResourceCtrl::IsGlobalResourceValid() != 0) {
          after.Talk(" File entitled \"%s\" couldn't be found at  \"%s\".", item);
          if (!isNew) after.Tell(kPanelMessageFileChanged, item);
        }
      } else {
        item->ReSetFocusableStatus(kFileFailed, kFileDownloading);
      }
      Save(item);
      after.Tell(kPanelMessageFileChanged, item);
    }
  }
  request->Release();
  ClosingTail(item, &after);
}

void FileManagerCtrl::OnDownloadPaused(FileRequest* request) {
  if (request == nullptr) return;
  After after;
  LockResource();
  FileItem* item = ItemOf(request);
  if (item != nullptr) {
    item->SetFileName(request->GetFileToSave());
    if (request->totalSize != 0) {
      item->SetValueInt(kFileFieldSize, ClampToField(request->totalSize), 1);
    }
    COleDateTime date;
    if (ResponseDate(request, &date)) item->SetValueDate(kFileFieldPublished, date, 1);
    item->SetValueInt(kFileFieldDownloaded, ClampToField(request->receivedSize), 1);
    item->ReSetFocusableStatus(kFilePaused, kFileDownloading);
    request->receivedSize = 0;
    Save(item);
    if (IsResourceCtrlClosed() == 0) after.Tell(kPanelMessageFileChanged, item);
  }
  request->Release();
  ClosingTail(item, &after);
}

void FileManagerCtrl::OnDownloadResumed(FileRequest* request) {
  if (request == nullptr) return;
  // The request goes on: it is not released here.
  After after;
  LockResource();
  FileItem* item = ItemOf(request);
  if (item != nullptr) {
    item->ReSetFocusableStatus(kFileDownloading, kFileEntryOnly | kFileFailed | kFilePaused);
    Save(item);
    after.Tell(kPanelMessageFileChanged, item);
  }
  UnLockResource();
  Flush(&after);
}

void FileManagerCtrl::OnDownloadAborted(FileRequest* request) {
  if (request == nullptr) return;
  After after;
  LockResource();
  FileItem* item = ItemOf(request);
  if (item != nullptr) {
    const CString path = item->GetFileSavePath();
    if (!path.IsEmpty()) FileSystem::DeleteFile(path);
    item->ReSetFocusableStatus(kFileEntryOnly,
                               kFileDownloading | kFileFailed | kFilePaused | kFilePausedToo);
    item->SetValueInt(kFileFieldDownloaded, 0, 1);
    item->SetFileName(CString());
    Save(item);
  }
  request->Release();
  ClosingTail(item, &after);
}

void FileManagerCtrl::ClosingTail(FileItem* item, After* after) {
  bool last = false;
  if (IsResourceCtrlClosed() != 0) {
    if (item != nullptr) LetGo(item);
    last = data_ != nullptr && data_->focusables.empty();
  }
  UnLockResource();
  Flush(after);
  // The last download after closing lets go of the list: its thread ends and
  // deletes it.
  if (last) ReleaseOwnReference();
}

void FileManagerCtrl::ReleaseOwnReference() {
  if (ownReferenceDropped_.exchange(true)) return;
  FileManagerCtrl* self = this;
  g_running.compare_exchange_strong(self, nullptr);
  ResourceController::Release();
}

// --- Closing and questions ----------------------------------------------------------

void FileManagerCtrl::CloseResourceCtrl() {
  // Held for the call: the last running download may end meanwhile, on the
  // list's thread, and let go of the list.
  ResourceController::Reserve();
  // The closed mark is read by the reports under the lock.
  LockResource();
  ResourceController::CloseResourceCtrl();
  UnLockResource();
  // The panels let go now; a running download keeps the object, not its
  // place in the registry.
  GlobalResourceCtrl::DeRegisterResourceCtrl(this);
  LockResource();
  const CArray<Focusable*, Focusable*> held =
      data_ != nullptr ? data_->focusables : CArray<Focusable*, Focusable*>();
  for (Focusable* record : held) {
    if (record != nullptr && !Has(record->GetFocusableStatus(), kFileDownloading)) LetGo(record);
  }
  const bool empty = data_ == nullptr || data_->focusables.empty();
  UnLockResource();
  if (empty) ReleaseOwnReference();
  ResourceController::Release();
}

void FileManagerCtrl::GetFocusables_wFilter(CArray<Focusable*, Focusable*>* out, ContentFilter*) {
  if (out == nullptr || data_ == nullptr) return;
  if (GetLoadStatus(0) == 0) LoadResources(GetRunningFile());
  LockResource();
  for (Focusable* record : data_->focusables) {
    if (record == nullptr) continue;
    if (record->IsFullyLoaded(1) == 0 && record->LoadFocusable(nullptr) == 0) record->Reserve();
    out->push_back(record);
  }
  UnLockResource();
}

FileItem* FileManagerCtrl::GetFileItem(CString url) {
  LockResource();
  auto* item = dynamic_cast<FileItem*>(CheckFocusable(url, 0));
  UnLockResource();
  return item;
}

CString FileManagerCtrl::GetDownloadPath() { return Locations::GetDownloadFolder(); }

// --- The thread ---------------------------------------------------------------------

int FileManagerCtrl::InitInstance() { return 1; }

int FileManagerCtrl::OnThreadMessage(unsigned message, std::intptr_t, std::intptr_t lParam) {
  auto* request = reinterpret_cast<FileRequest*>(lParam);
  switch (message) {
    case kMsgDownloadFinished:
      OnDownloadDone(request);
      return 1;
    case kMsgDownloadAborted:
      OnDownloadAborted(request);
      return 1;
    case kMsgDownloadPaused:
      OnDownloadPaused(request);
      return 1;
    case kMsgDownloadResumed:
      OnDownloadResumed(request);
      return 1;
    default:
      return 0;
  }
}

void FileManagerCtrl::OnDiscardedMessage(const MSG& msg) {
  if (msg.lParam == 0) return;
  if (msg.message == kMsgDownloadFinished || msg.message == kMsgDownloadAborted ||
      msg.message == kMsgDownloadPaused) {
    reinterpret_cast<FileRequest*>(msg.lParam)->Release();
  }
}

}  // namespace kordll
