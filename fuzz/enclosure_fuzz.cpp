// Fuzzes the enclosure field of new posts ("URL|length|type") through the
// download list: the input, read as UTF-8, is the field of one post, then
// the same again in a second post of the batch. Invariants: a batch makes at
// most one entry, whose GUID is the decoded first piece; whatever name the
// entry is given, its save path is empty or inside the download folder, and
// starting, cancelling and deleting it touch nothing outside.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/FuzzScratch.h"
#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/control/_struct_RESCTRLNOTIFMSG.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/Host.h"
#include "kordll/platform/Locations.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/SettingsEntryPoints.h"
#include "kordll/talk/SystemTalkCtrl.h"
#include "kordll/toolkit/KorlanHTMLCtrl.h"
#include "kordll/transfer/FileItem.h"
#include "kordll/transfer/FileManagerCtrl.h"

namespace {

using namespace kordll;

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

struct UserSettings : SettingsEntryPoints {
  CString GetCurrentUserRunningPath() override { return path; }
  CString GetCurrentLogin() override { return "fuzz"; }
  CString path;
};

FileManagerCtrl* List() {
  static FileManagerCtrl* list = [] {
    const CString& root = kordll_fuzz::ScratchFolder("enclosure_fuzz");
    Locations::SetRootForTesting(root);
    static kordll_fuzz::QuietHost host;
    Host::Install(&host);
    static CWinApp app("Tidrel", "Fuzz");
    static UserSettings settings;
    settings.path = Locations::Join(root, "user");
    FileSystem::CreateDirectory(settings.path);
    FileSystem::CreateDirectory(Locations::GetDownloadFolder());
    FileSystem::WriteWholeFile(Locations::Join(root, "keep"), "x");
    SettingsEntryPoints::Install(&settings);
    GlobalResourceCtrl::GetGlobalResourceCtrl();
    // The notifications of removed talks hold their entries until the
    // controllers close: close them as a log-off does before the run ends.
    std::atexit([] {
      GlobalResourceCtrl::SetGlobalResourceClosed(1);
      GlobalResourceCtrl::GetGlobalResourceCtrl()->OnClear(nullptr);
    });
    return FileManagerCtrl::Start();
  }();
  return list;
}

int Command(int command, Focusable* record) {
  PANELVIEWMESSAGE m;
  m.message = command, m.focusable = record;
  return GlobalResourceCtrl::InterpretGUICommand(&m, nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FileManagerCtrl* list = List();
  if (list == nullptr || size > 20000) return 0;
  const CString enclosure(std::string(reinterpret_cast<const char*>(data), size).c_str());
  _struct_RESCTRLNOTIFMSG news;
  for (int i = 0; i < 2; ++i) {
    auto* post = new Focusable(4, nullptr);
    post->SetValueStr(15, enclosure, 1), post->SetFullyLoaded(1), post->Reserve();
    news.focusables.push_back(post);
  }
  list->InsertMsg(&news);
  CArray<Focusable*, Focusable*>& entries = list->GetFocusables();
  Check(entries.size() <= 1);
  CString url;
  const bool some = wcstok(&url, &enclosure, "|") != 0;
  if (!entries.empty()) {
    auto* item = dynamic_cast<FileItem*>(entries[0]);
    Check(item != nullptr && some && item->GetGUID() == KorlanHTMLCtrl::URLDecode(url));
    // The address's tail, as a saved name, never leads out of the folder.
    item->SetFileName(Locations::GetFileName(url));
    item->ReSetFocusableStatus(kFileDownloaded, 0);
    const CString path = item->GetFileSavePath();
    Check(path.IsEmpty() || Locations::IsPathInside(Locations::GetDownloadFolder(), path));
    item->SetFileName(url);
    const CString stored = item->GetFileSavePath();
    Check(stored.IsEmpty() || Locations::IsPathInside(Locations::GetDownloadFolder(), stored));
    Command(kCommandDeleteFileOnly, item);
    Command(kCommandCancelDownload, item);
    Command(kCommandDeleteFileAndEntry, item);
  }
  Check(list->GetFocusables().empty());
  Check(FileSystem::IsFile(Locations::Join(kordll_fuzz::ScratchFolder("enclosure_fuzz"), "keep")));
  for (Focusable* post : news.focusables) post->Release();
  // The talks of new enclosures hold their entries: they go too.
  if (SystemTalkCtrl* talks = SystemTalkCtrl::Get()) {
    CArray<Focusable*, Focusable*> all;
    talks->GetFocusables_wFilter(&all, nullptr);
    for (Focusable* record : all) {
      Command(kCommandRemoveTalkRecord, record);  // a notification is left alone
      record->Release();
    }
  }
  return 0;
}
