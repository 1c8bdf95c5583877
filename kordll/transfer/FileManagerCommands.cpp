// FileManagerCtrl: the user's commands on files (29300 to 29321).

#include <cstdint>
#include <vector>

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/IIPanel.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/control/_struct_RESCTRLNOTIFMSG.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Host.h"
#include "kordll/record/RecordIds.h"
#include "kordll/toolkit/KorlanHTMLCtrl.h"
#include "kordll/transfer/FileItem.h"
#include "kordll/transfer/FileManagerCtrl.h"
#include "kordll/transfer/FileRequest.h"

namespace kordll {

namespace {

// What the main panel is asked to show: the list of files.
constexpr int kViewCommandMyFiles = 1078;
constexpr int kMyFilesParam = 16384;

using Menu = std::vector<HostMenuItem>;

void Add(Menu* menu, int command, const char* text) {
  menu->push_back(HostMenuItem::Command(command, text));
}

// Commands that act on the record in the message.
bool IsRecordCommand(int command) {
  switch (command) {
    case kCommandFileMenu:
    case kCommandDownloadFile:
    case kCommandResumeDownload:
    case kCommandCancelDownload:
    case kCommandPauseDownload:
    case kCommandDeleteFileEntry:
    case kCommandOpenFile:
    case kCommandExportFile:
    case kCommandDeleteFileOnly:
    case kCommandFileReportMenu:
    case kCommandShowFileDescription:
    case kCommandDeleteFileAndEntry:
    case kCommandKeepAsFileEntry:
      return true;
    default:
      return false;
  }
}

bool IsOwnCommand(int command) {
  switch (command) {
    case kCommandOpenFileLink:
    case kCommandOpenDownloadFolder:
    case kCommandShowMyFiles:
    case kCommandNetworkStatusMenu:
    case kCommandApprovalMenu:
      return true;
    default:
      return IsRecordCommand(command);
  }
}

}  // namespace

int FileManagerCtrl::InterpretGUICommand(PANELVIEWMESSAGE* message, int* result) {
  if (message == nullptr || !IsOwnCommand(message->message)) return 0;
  if (result != nullptr) *result = 1;
  const int command = message->message;
  if (!IsRecordCommand(command)) {
    switch (command) {
      case kCommandOpenFileLink:
      case kCommandOpenDownloadFolder:
        if (!message->text.IsEmpty()) {
          Host::Current()->ShellExecute("open", message->text, CString(), CString(), SW_SHOW);
        }
        break;
      case kCommandShowMyFiles:
        ShowInMainPanel(kViewCommandMyFiles, nullptr, kFileManagerControllerID, kMyFilesParam);
        break;
      default:
        ShowMenu(message, command);
        break;
    }
    return 1;
  }
  Focusable* record = message->focusable;
  if (record == nullptr || record->GetFocusableRelation() != kFileRelation) return 1;
  auto* item = dynamic_cast<FileItem*>(record);
  FileItem* copy = nullptr;
  if (item == nullptr) {
    // A file record of another class: the list's entry of that address, or
    // else a file entry made from it, which the command may enter.
    LockResource();
    item = dynamic_cast<FileItem*>(CheckFocusable(record->GetGUID(), 0));
    if (item == nullptr) {
      item =
          dynamic_cast<FileItem*>(CheckFocusable(KorlanHTMLCtrl::URLDecode(record->GetGUID()), 0));
    }
    UnLockResource();
    if (item == nullptr) {
      copy = item = new FileItem();
      copy->CopyFocusable(record, 1);
      copy->SetFullyLoaded(1);
    }
  }
  // Held for the length of the command, which may let go of it; a record
  // nobody holds is the caller's and lives through the call anyway.
  const bool held = item->IsInUse() != 0;
  if (held) item->Reserve();
  switch (command) {
    case kCommandFileMenu:
      ShowFileMenu(message, item);
      break;
    case kCommandFileReportMenu:
      ShowReportMenu(message, item);
      break;
    case kCommandDownloadFile:
      StartDownload(item);
      break;
    case kCommandResumeDownload:
      Offer(kCommandResumeTransfer, item->GetFileWebPath(), nullptr);
      break;
    case kCommandPauseDownload:
      Offer(kCommandPauseTransfer, item->GetFileWebPath(), nullptr);
      break;
    case kCommandCancelDownload:
      CancelDownload(item);
      break;
    case kCommandDeleteFileEntry:
      DeleteEntry(item);
      break;
    case kCommandOpenFile:
      if ((item->GetFocusableStatus() & kFileDownloaded) != 0) item->OpenFocusable();
      break;
    case kCommandExportFile:
      ExportFile(item);
      break;
    case kCommandDeleteFileOnly:
      DeleteFile(item, kFileDownloading | kFileDownloaded | kFileFailed | kFilePaused |
                           kFilePausedToo | kFileNotFound);
      break;
    case kCommandDeleteFileAndEntry:
      DeleteEntry(item);
      DeleteFile(item,
                 kFileDownloading | kFileFailed | kFilePaused | kFilePausedToo | kFileNotFound);
      break;
    case kCommandShowFileDescription:
      ShowInMainPanel(kViewCommandFileReport, item, -1, 0);
      break;
    case kCommandKeepAsFileEntry:
      KeepAsEntry(item);
      break;
    default:
      break;
  }
  if (held) item->Release();
  if (copy != nullptr) {
    LockResource();
    const bool entered = CheckFocusable(copy->GetGUID(), 0) == copy;
    UnLockResource();
    if (!entered) delete copy;  // the command did not enter it
  }
  return 1;
}

// --- Menus ----------------------------------------------------------------------

void FileManagerCtrl::ShowFileMenu(PANELVIEWMESSAGE* message, FileItem* item) {
  auto* panel = reinterpret_cast<IIPanel*>(message->value);
  CWnd* wnd = panel != nullptr ? panel->GetPanelWnd() : nullptr;
  if (wnd == nullptr) return;
  const int status = item->GetFocusableStatus();
  Menu menu;
  if ((status & kFileDownloading) != 0) {
    Add(&menu, kCommandCancelDownload, "Cancel Download");
    Add(&menu, kCommandPauseDownload, "Pause Download");
  } else if ((status & (kFilePaused | kFilePausedToo)) != 0) {
    Add(&menu, kCommandCancelDownload, "Cancel Download");
    Add(&menu, kCommandResumeDownload, "Resume Download");
  } else if ((status & kFileNotFound) != 0) {
    Add(&menu, kCommandDownloadFile, "Retry to Download");
    Add(&menu, kCommandOpenFileLink, "Open File Link (ext)");
  } else if ((status & kFileEntryOnly) != 0) {
    Add(&menu, kCommandDownloadFile, "Download File");
    Add(&menu, kCommandOpenFileLink, "Open File Link (ext)");
  } else if ((status & kFileDownloaded) != 0) {
    Add(&menu, kCommandOpenFile, "Open File");
    Add(&menu, kCommandExportFile, "Export File");
  }
  menu.push_back(HostMenuItem::Separator());
  if ((status & kFileUnseen) != 0) {
    Add(&menu, kCommandMarkFileSeen, "Mark File as Seen");
  } else {
    Add(&menu, kCommandMarkFileSeen, "Mark File as Not Seen");
  }
  menu.push_back(HostMenuItem::Separator());
  if ((status & kFileDownloaded) != 0) {
    Add(&menu, kCommandDeleteFileEntry, "Delete Entry Only");
    Add(&menu, kCommandDeleteFileOnly, "Delete File Only");
    Add(&menu, kCommandDeleteFileAndEntry, "Delete File && Entry");
  } else {
    Add(&menu, kCommandDeleteFileEntry, "Delete Entry");
  }
  const int chosen =
      Host::Current()->TrackPopupMenu(menu, message->object != 0 ? TPM_RIGHTALIGN : 0,
                                      message->point.x, message->point.y, wnd->GetSafeHwnd());
  if (chosen == 0) return;
  // The choice goes round the controllers like any command, so that the
  // application answers the ones it keeps (seen, not seen).
  PANELVIEWMESSAGE choice;
  choice.message = chosen;
  choice.focusable = item;
  choice.value = message->value;
  choice.point = message->point;
  if (chosen == kCommandOpenFileLink) choice.text = item->GetFileWebPath();
  int result = 0;
  GlobalResourceCtrl::InterpretGUICommand(&choice, &result);
}

void FileManagerCtrl::ShowReportMenu(PANELVIEWMESSAGE* message, FileItem* item) {
  auto* wnd = reinterpret_cast<CWnd*>(message->value);
  const int status = item->GetFocusableStatus();
  Menu menu;
  Add(&menu, kCommandShowFileDescription, "Open File Description");
  Add(&menu, kCommandShowMyFiles, "Open My Files");
  Add(&menu, kCommandOpenDownloadFolder, "Open Download Directory");
  if ((status & kFileDownloaded) == 0) Add(&menu, kCommandDownloadFile, "Retry Download");
  menu.push_back(HostMenuItem::Separator());
  Add(&menu, kCommandDeleteFileEntry, "Delete Entry Only");
  if ((status & kFileDownloaded) != 0) {
    Add(&menu, kCommandDeleteFileOnly, "Delete File Only");
    Add(&menu, kCommandDeleteFileAndEntry, "Delete File && Entry");
  }
  const int chosen = Host::Current()->TrackPopupMenu(menu, 0, message->point.x, message->point.y,
                                                     wnd != nullptr ? wnd->GetSafeHwnd() : 0);
  if (chosen == 0) return;
  PANELVIEWMESSAGE choice;
  choice.message = chosen;
  choice.focusable = item;
  choice.value = message->value;
  if (chosen == kCommandOpenDownloadFolder) choice.text = GetDownloadPath();
  int result = 0;
  GlobalResourceCtrl::InterpretGUICommand(&choice, &result);
}

void FileManagerCtrl::ShowMenu(PANELVIEWMESSAGE* message, int which) {
  Menu menu;
  if (which == kCommandNetworkStatusMenu) {
    Add(&menu, kCommandShowNetworkSettings, "Show Network Settings");
    Add(&menu, kCommandOpenDownloadFolder, "Open Tidrel Downloads Folder");
  } else {
    Add(&menu, kCommandApprovalContinue, "Continue");
    Add(&menu, kCommandKeepAsFileEntry, "Keep as File Entry");
  }
  auto* wnd = reinterpret_cast<CWnd*>(message->value);
  const int chosen = Host::Current()->TrackPopupMenu(menu, 0, message->point.x, message->point.y,
                                                     wnd != nullptr ? wnd->GetSafeHwnd() : 0);
  if (chosen == 0) return;
  PANELVIEWMESSAGE choice;
  choice.message = chosen;
  choice.focusable = message->focusable;
  choice.value = message->value;
  if (chosen == kCommandOpenDownloadFolder) choice.text = GetDownloadPath();
  int result = 0;
  GlobalResourceCtrl::InterpretGUICommand(&choice, &result);
}

// --- Transfers ----------------------------------------------------------------

void FileManagerCtrl::Offer(int code, const CString& url, FileRequest* request) {
  PANELVIEWMESSAGE offer;
  offer.message = code;
  offer.text = url;
  offer.object = reinterpret_cast<intptr_t>(request);
  GlobalResourceCtrl::InterpretGUICommand(&offer, nullptr);
}

void FileManagerCtrl::StartDownload(FileItem* item) {
  // An entry of the list keeps its GUID; a record from elsewhere is entered
  // first, by its decoded address (entering decodes it).
  LockResource();
  FileItem* entry = dynamic_cast<FileItem*>(CheckFocusable(item->GetGUID(), 0));
  if (entry == nullptr) {
    entry = dynamic_cast<FileItem*>(CheckFocusable(KorlanHTMLCtrl::URLDecode(item->GetGUID()), 0));
  }
  UnLockResource();
  if (entry == nullptr) {
    _struct_RESCTRLNOTIFMSG insert;
    insert.kind = kFileOpInsert;
    insert.focusables.push_back(item);
    InsertFiles(&insert);
    entry = item;
  }
  auto* request = new FileRequest(nullptr, 0);
  request->taskName = entry->GetFieldString(kFileTitleField, 0);
  request->requestFlags = kRequestFlagsFileDownload;
  request->url = entry->GetFileWebPath();
  request->SetReplyThread(this);
  request->folder = GetDownloadPath();
  request->isFileTransfer = 1;
  request->Reserve();
  entry->ReSetFocusableStatus(kFileDownloading, kFileEntryOnly | kFileFailed | kFilePaused);
  LockResource();
  Save(entry);
  UnLockResource();
  PANELVIEWMESSAGE offer;
  offer.message = kCommandStartTransfer;
  offer.object = reinterpret_cast<intptr_t>(request);
  int result = 0;
  // Without a network side to take it the request has no one to end it.
  if (GlobalResourceCtrl::InterpretGUICommand(&offer, &result) == 0) request->Release();
}

void FileManagerCtrl::CancelDownload(FileItem* item) {
  Offer(kCommandCancelTransfer, item->GetFileWebPath(), nullptr);
  const CString path = FileItem::SafeSavePath(item->GetFileName());
  if (!path.IsEmpty()) FileSystem::DeleteFile(path);
  item->SetFileName(CString());
  item->SetValueInt(kFileFieldDownloaded, 0, 1);
  UpdateFile(item->GetGUID(), kFileEntryOnly,
             kFileDownloading | kFileDownloaded | kFileFailed | kFilePaused | kFilePausedToo |
                 kFileNotFound);
}

// --- Files and entries ------------------------------------------------------------

void FileManagerCtrl::DeleteEntry(FileItem* item) {
  _struct_RESCTRLNOTIFMSG remove;
  remove.kind = kFileOpDelete;
  remove.focusables.push_back(item);
  DeleteMsg(&remove);
}

void FileManagerCtrl::DeleteFile(FileItem* item, int clear) {
  const CString path = item->GetFileSavePath();
  if (path.IsEmpty()) return;
  FileSystem::DeleteFile(path);
  item->SetFileName(CString());
  item->SetValueInt(kFileFieldDownloaded, 0, 1);
  UpdateFile(item->GetGUID(), kFileEntryOnly, clear);
}

void FileManagerCtrl::ExportFile(FileItem* item) {
  HostFileDialog dialog;
  dialog.fileName = item->GetFileName();
  dialog.flags = OFN_HIDEREADONLY | OFN_OVERWRITEPROMPT;
  dialog.filter = "*.*";
  CString path;
  if (Host::Current()->GetSaveFileName(dialog, &path) != IDOK || path.IsEmpty()) return;
  const CString source = item->GetFileSavePath();
  if (!source.IsEmpty()) FileSystem::CopyFile(source, path, 1);
}

void FileManagerCtrl::KeepAsEntry(FileItem* item) {
  LockResource();
  const bool known = CheckFocusable(KorlanHTMLCtrl::URLDecode(item->GetGUID()), 0) != nullptr ||
                     CheckFocusable(item->GetGUID(), 0) != nullptr;
  UnLockResource();
  if (known) return;
  _struct_RESCTRLNOTIFMSG insert;
  insert.kind = kFileOpInsert;
  insert.focusables.push_back(item);
  InsertFiles(&insert);
}

void FileManagerCtrl::ShowInMainPanel(int message, Focusable* record, int rcID, int param) {
  IIPanel* panel = GlobalResourceCtrl::GetPanel(kMainPanel);
  if (panel == nullptr) return;
  PANELVIEWMESSAGE show;
  show.message = message;
  show.focusable = record;
  show.rcID = rcID;
  show.param = param;
  panel->SendPanelMessage(kPanelMessageShow, 0, reinterpret_cast<intptr_t>(&show));
}

}  // namespace kordll
