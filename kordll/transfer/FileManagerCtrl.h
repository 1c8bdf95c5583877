// FileManagerCtrl: the download list (controller 14), with a thread of its
// own that hears how transfers end.
//
// It keeps the FileItem records in the database "FileManager" of the user's
// running path, makes an entry (status 34: entry only, not seen) for each
// enclosure of new posts, and records what the application's network side
// reports: finished (32978), aborted (32979), paused (32982) and resumed
// (32983), each a thread message whose lParam is the FileRequest. The list
// never starts a transfer by itself: the user's commands
// (InterpretGUICommand) hand a request to the network side.
//
// The state of an entry is its status word (FileItem.h). At start-up
// (LoadResources) the list is repaired against the download folder: a
// transfer that was running is found paused, and the downloaded size of a
// paused or finished file is taken from the file on disk.
//
// Life: Start makes the one controller of the process and its thread,
// registers it and loads the list. CloseResourceCtrl lets go of every entry
// that is not downloading; when none is left the controller goes at once,
// otherwise the running downloads keep it until the last of them reports:
// that report lets go of the controller, which ends its thread, and the
// thread deletes the object after its loop.
//
// Every record the controller holds it has entered (RegisterFocusable) and
// reserved once; both go together when it lets go of the record.
//
// Threads and locks: the four transfer messages are handled on the
// controller's thread, the commands and news of other controllers on the
// caller's. The controller's lock (LockResource) guards the list in the
// handlers, InsertFiles, UpdateMsg, DeleteMsg and CloseResourceCtrl. Panels,
// talks and the other controllers are only called once it is left: the
// registry holds its own lock while it reserves a controller, so calling
// the registry with the list's lock held could deadlock.

#ifndef KORDLL_TRANSFER_FILEMANAGERCTRL_H_
#define KORDLL_TRANSFER_FILEMANAGERCTRL_H_

#include <atomic>
#include <cstdint>

#include "kordll/control/ResourceController.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/transfer/FileRequest.h"

namespace kordll {

class AZeusDB;
class FileItem;

// Commands of the user (the FileItem menus). The replies of the network
// side (kMsgDownload...) and the codes offered to it (kCommand...Transfer)
// are those of FileRequest.h.
constexpr int kCommandFileMenu = 29300;
constexpr int kCommandDownloadFile = 29301;
constexpr int kCommandResumeDownload = 29302;
constexpr int kCommandCancelDownload = 29303;
constexpr int kCommandPauseDownload = 29304;
constexpr int kCommandDeleteFileEntry = 29305;
constexpr int kCommandMarkFileSeen = 29306;
constexpr int kCommandOpenFile = 29308;
constexpr int kCommandExportFile = 29310;
constexpr int kCommandDeleteFileOnly = 29311;
constexpr int kCommandOpenFileLink = 29312;
constexpr int kCommandFileReportMenu = 29313;
constexpr int kCommandOpenDownloadFolder = 29314;
constexpr int kCommandShowMyFiles = 29315;
constexpr int kCommandShowFileDescription = 29316;
constexpr int kCommandDeleteFileAndEntry = 29317;
constexpr int kCommandNetworkStatusMenu = 29318;
constexpr int kCommandApprovalMenu = 29319;
constexpr int kCommandApprovalContinue = 29320;
constexpr int kCommandKeepAsFileEntry = 29321;

// Operations at the entry points of the list (the kind of the news).
constexpr int kFileOpInsert = 1;
constexpr int kFileOpDelete = 2;
constexpr int kFileOpUpdate = 4;
// Flags of an insertion (the news' focusable member read as bits).
constexpr intptr_t kInsertLookUp = 1;       // look the records up instead of entering them
constexpr intptr_t kInsertRelease = 8;      // with kInsertLookUp: let go of known records
constexpr intptr_t kInsertAllowEmpty = 32;  // a GUID known without a record may be taken

class FileManagerCtrl : public CWinThread, public ResourceController {
 public:
  // The running list, made (with its thread) and loaded when there is none.
  // Null when no thread could be made. Not reserved for the caller.
  static FileManagerCtrl* Start();
  // The running list, or null. Not reserved for the caller.
  static FileManagerCtrl* GetFileManagerCtrl();
  // Waits, for at most timeoutMs of real time, until no list object is left
  // (a closed list goes on its own thread). 1 when none is left.
  static int WaitUntilGone(std::int64_t timeoutMs);

  // Use Start. Registers the controller (id 14) and opens its database.
  FileManagerCtrl();
  // Lets go of the records still held, and de-registers the controller if
  // the registry still knows it.
  ~FileManagerCtrl() override;

  // Opens "FileManager" in the running path and registers it, while the
  // registry is valid and there is a running path.
  void LoadDB();
  AZeusDB* GetFileDB();

  // Reads the list and repairs it against the download folder (see the
  // comment at the top). Once.
  void LoadResources(CString runningFile) override;
  void LateLoadResource(CString runningFile) override;
  Focusable* GenerateFocusable(int relation) override;

  // New posts: an entry for each enclosure address not yet known, decoded
  // first; an address met twice in one batch makes one entry. The new
  // entries are entered (InsertFiles) and a talk of new enclosures fired.
  // Returns 0.
  int InsertMsg(_struct_RESCTRLNOTIFMSG* message) override;
  // Operation 1: enters the records of the message (see the flags above),
  // writes the savable ones and tells panels (1057). 1, or 0 when refused.
  int InsertFiles(_struct_RESCTRLNOTIFMSG* message);
  // Sets and clears status bits of the entry of url, saves it and tells
  // panels (1056). Returns 1.
  int UpdateFile(CString url, int set, int clear);
  void UpdateMsg(_struct_RESCTRLNOTIFMSG* message) override;
  // Operation 2: each record leaves the database and the list; panels hear
  // 1055.
  void DeleteMsg(_struct_RESCTRLNOTIFMSG* message) override;

  // The four reports of the network side; each but Resumed ends the request
  // (one Release).
  void OnDownloadDone(FileRequest* request);
  void OnDownloadAborted(FileRequest* request);
  void OnDownloadPaused(FileRequest* request);
  void OnDownloadResumed(FileRequest* request);

  void CloseResourceCtrl() override;
  // Every record, loaded, each reserved for the caller (one Release each).
  void GetFocusables_wFilter(CArray<Focusable*, Focusable*>* out, ContentFilter* filter) override;
  // The entry of url, not reserved for the caller, or null.
  FileItem* GetFileItem(CString url);
  // The download folder.
  CString GetDownloadPath();

  // The commands 29300 to 29321 (see FileManagerCommands.cpp).
  int InterpretGUICommand(PANELVIEWMESSAGE* message, int* result) override;

  // --- The thread ---------------------------------------------------------
  int InitInstance() override;
  int OnThreadMessage(unsigned message, std::intptr_t wParam, std::intptr_t lParam) override;
  // A report that arrived after the thread's end still ends its request.
  void OnDiscardedMessage(const MSG& msg) override;

 private:
  // The item of the request's address, or null. REQUIRES: the lock.
  FileItem* ItemOf(FileRequest* request);
  // Whether the list's database may be written. REQUIRES: the lock.
  bool DBUsable();
  // Saves the record; when the database may not be written, the record
  // forgets it instead. REQUIRES: the lock.
  void Save(Focusable* record);
  // Enters a record (and reserves it). REQUIRES: the lock.
  bool Hold(Focusable* record, int allowEmptySlot);
  // Lets go of a record entered by Hold. REQUIRES: the lock.
  int LetGo(Focusable* record);
  // What a report tells once the lock is left (FileManagerCtrl.cpp).
  struct After;
  // After a transfer ended: once closed, the item goes, and with the last
  // one the controller. Called with the lock held; leaves it, then tells
  // what `after` holds.
  void ClosingTail(FileItem* item, After* after);
  void Flush(After* after);
  // Drops the reference of the constructor, once.
  void ReleaseOwnReference();
  // Panels hear message (kind) about one record.
  void Tell(unsigned message, int kind, Focusable* record);

  // Commands.
  void ShowFileMenu(PANELVIEWMESSAGE* message, FileItem* item);
  void ShowReportMenu(PANELVIEWMESSAGE* message, FileItem* item);
  void ShowMenu(PANELVIEWMESSAGE* message, int which);
  void StartDownload(FileItem* item);
  void Offer(int code, const CString& url, FileRequest* request);
  void CancelDownload(FileItem* item);
  void DeleteEntry(FileItem* item);
  void DeleteFile(FileItem* item, int clear);
  void ExportFile(FileItem* item);
  void KeepAsEntry(FileItem* item);
  void ShowInMainPanel(int message, Focusable* record, int rcID, int param);

  AZeusDB* db_ = nullptr;  // the registry's once registered, else owned
  int dbID_ = -1;
  bool ownsDB_ = false;
  std::atomic<bool> ownReferenceDropped_{false};
};

}  // namespace kordll

#endif  // KORDLL_TRANSFER_FILEMANAGERCTRL_H_
