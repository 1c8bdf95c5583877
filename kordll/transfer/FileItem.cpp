#include "kordll/transfer/FileItem.h"

#include <cstdint>

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/IIPanel.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/platform/Host.h"
#include "kordll/platform/Locations.h"
#include "kordll/record/RecordIds.h"
#include "kordll/talk/CSystemTalkDlg.h"
#include "kordll/transfer/FileManagerCtrl.h"

namespace kordll {

namespace {

// Why the desktop could not open a downloaded file, in the user's words; ""
// for an answer that is told to nobody.
CString OpenFailureText(intptr_t answer) {
  switch (answer) {
    case SE_ERR_FNF:
      return "File Not Found";
    case SE_ERR_PNF:
      return "Given Path Not Found";
    case SE_ERR_BAD_FORMAT:
      return "Unknown Format";
    case SE_ERR_ASSOCINCOMPLETE:
      return "The file name association is incomplete or invalid.";
    case SE_ERR_ACCESSDENIED:
      return "The operating system denied access to the specified file.";
    default:
      return CString();
  }
}

}  // namespace

FileItem::FileItem() : Focusable(kFileRelation, nullptr) {}

FileItem::FileItem(const FileItem& other) : Focusable(kFileRelation, nullptr) {
  CopyFocusable(const_cast<FileItem*>(&other), 1);
}

FileItem& FileItem::operator=(const FileItem& other) {
  if (this != &other) CopyFocusable(const_cast<FileItem*>(&other), 1);
  return *this;
}

FileItem::~FileItem() = default;

CString FileItem::GetFileName() { return GetFieldString(kFileFieldSaveName, 0); }

void FileItem::SetFileName(CString name) { SetValueStr(kFileFieldSaveName, name, 1); }

CString FileItem::GetFileWebPath() { return GetGUID(); }

CString FileItem::SafeSavePath(const CString& name) {
  if (name.IsEmpty()) return CString();
  const CString folder = Locations::GetDownloadFolder();
  const CString path = Locations::Join(folder, name);
  return Locations::IsPathInside(folder, path) ? path : CString();
}

CString FileItem::GetFileSavePath() {
  if ((GetFocusableStatus() & kFileDownloaded) == 0) return CString();
  return SafeSavePath(GetFileName());
}

int FileItem::OpenFocusable() {
  const CString path = GetFileSavePath();
  if (!path.IsEmpty() && (GetFocusableStatus() & kFileDownloaded) != 0) {
    const intptr_t answer =
        Host::Current()->ShellExecute("open", path, CString(), CString(), SW_SHOW);
    const CString text = OpenFailureText(answer);
    if (!text.IsEmpty()) CSystemTalkDlg::SystemTalk(text);
    return 1;
  }
  // Not downloaded: the main panel shows what is known of the file instead.
  IIPanel* panel = GlobalResourceCtrl::GetPanel(kMainPanel);
  if (panel != nullptr) {
    PANELVIEWMESSAGE show;
    show.message = kViewCommandFileReport;
    show.focusable = this;
    panel->SendPanelMessage(kPanelMessageShow, 0, reinterpret_cast<intptr_t>(&show));
  }
  return 1;
}

int FileItem::OpenFocusableProperties(CPoint point, IIPanel* panel, int leftAligned) {
  PANELVIEWMESSAGE menu;
  menu.message = kCommandFileMenu;
  menu.focusable = this;
  menu.point = point;
  menu.value = reinterpret_cast<intptr_t>(panel);
  menu.object = leftAligned != 0 ? 0 : 1;
  int result = 0;
  GlobalResourceCtrl::InterpretGUICommand(&menu, &result);
  return 1;
}

int FileItem::GetStatusImage() { return kFileImage; }

int FileItem::GetFocusableImage() { return kFileImage; }

}  // namespace kordll
