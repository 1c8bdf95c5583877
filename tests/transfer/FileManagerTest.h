// What the download list tests share: a registry with an application, a
// user folder and a download folder of their own, a scripted host, a panel
// of the list that can be waited on, and a network side that keeps what it
// is offered.

#ifndef KORDLL_TESTS_TRANSFER_FILEMANAGERTEST_H_
#define KORDLL_TESTS_TRANSFER_FILEMANAGERTEST_H_

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "kordll/control/_struct_RESCTRLNOTIFMSG.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Host.h"
#include "kordll/talk/SystemTalkCtrl.h"
#include "kordll/talk/TalkItem.h"
#include "kordll/transfer/FileItem.h"
#include "kordll/transfer/FileManagerCtrl.h"
#include "kordll/transfer/FileRequest.h"
#include "tests/control/GlobalResourceCtrlTest.h"
#include "tests/support/TestHost.h"

namespace kordll {
namespace test {

// Takes the transfer codes; keeps the requests it is given (one reference
// each) and the address of the others.
struct Net : ResourceController {
  Net() { SetResourceControllerID(40), GlobalResourceCtrl::RegisterResourceCtrl(this); }
  int InterpretGUICommand(PANELVIEWMESSAGE* m, int*) override {
    if (m->message < kCommandStartTransfer || m->message > kCommandShowNetworkSettings) return 0;
    if (m->message == kCommandStartTransfer)
      requests.push_back(reinterpret_cast<FileRequest*>(m->object));
    codes.push_back(std::to_string(m->message) + " " + m->text.ToUtf8());
    return 1;
  }
  std::vector<FileRequest*> requests;
  std::vector<std::string> codes;
};

class FileManagerTest : public TempRootTest {
 protected:
  // With fakeNetwork set a Net stands for the network side.
  explicit FileManagerTest(bool fakeNetwork = true) : app_("Tidrel", "Test") {
    settings_.path = root_.Path("ann");
    FileSystem::CreateDirectory(settings_.path);
    FileSystem::CreateDirectory(root_.DownloadFolder());
    SettingsEntryPoints::Install(&settings_), GlobalResourceCtrl::GetGlobalResourceCtrl();
    Host::Install(&host_);
    panel_.onMessage = [this](unsigned m) {
      if (m == kPanelMessageDetach) GlobalResourceCtrl::DeRegisterPanel(&panel_, -1);
      std::lock_guard<std::mutex> hold(mu_);
      heard_.push_back(m), cv_.notify_all();
    };
    if (fakeNetwork) net_ = new Net();
    Open();
  }
  ~FileManagerTest() override {
    Close();
    // The log-off's sweep: talks (which hold their records) and databases go.
    GlobalResourceCtrl::SetGlobalResourceClosed(1);
    GlobalResourceCtrl::GetGlobalResourceCtrl()->OnClear(nullptr);
    if (net_ != nullptr) net_->Release();
    Host::Install(nullptr);
    GlobalResourceCtrl::DeleteGlobalResourceCtrl();
    SettingsEntryPoints::Install(nullptr);
  }
  void Open() {
    GlobalResourceCtrl::RegisterPanel(&panel_, kFileManagerControllerID, 0);
    ctrl_ = FileManagerCtrl::Start();
  }
  // Closes the list and waits for it to go (a download still running keeps
  // it: then the wait is not made).
  void Close(bool wait = true) {
    if (ctrl_ != nullptr) ctrl_->CloseResourceCtrl(), ctrl_ = nullptr;
    EXPECT_TRUE(!wait || FileManagerCtrl::WaitUntilGone(10000) == 1);
  }
  // Waits until the panel has heard `message` count times in all.
  bool WaitHeard(unsigned message, size_t count) {
    std::unique_lock<std::mutex> hold(mu_);
    return cv_.wait_for(hold, std::chrono::seconds(10), [&] {
      return size_t(std::count(heard_.begin(), heard_.end(), message)) >= count;
    });
  }
  int Command(int command, Focusable* record, const CString& text = CString()) {
    PANELVIEWMESSAGE m;
    m.message = command, m.focusable = record, m.text = text;
    // The file menu names its panel, the other menus a window.
    m.value = command == kCommandFileMenu ? reinterpret_cast<intptr_t>(&panel_)
                                          : reinterpret_cast<intptr_t>(&panel_.wnd);
    return GlobalResourceCtrl::InterpretGUICommand(&m, nullptr);
  }
  // A post whose enclosure field holds `enclosure`.
  static Focusable* Post(const CString& enclosure, const CString& title) {
    auto* post = new Focusable(4, nullptr);
    post->SetValueStr(15, enclosure, 1), post->SetValueStr(4, title, 1);
    post->SetFullyLoaded(1);
    return post->Reserve(), post;
  }
  FileItem* Item(const CString& url) {
    return ctrl_ != nullptr ? ctrl_->GetFileItem(url) : nullptr;
  }
  int Status(const CString& url) {
    FileItem* item = Item(url);
    return item != nullptr ? item->GetFocusableStatus() : -1;
  }
  CString Download(const char* name) { return root_.DownloadFolder() + "/" + name; }
  // The titles of the talks standing, "|" after each.
  static std::string Talks() {
    std::string out;
    CArray<Focusable*, Focusable*> all;
    if (SystemTalkCtrl* talks = SystemTalkCtrl::Get()) talks->GetFocusables_wFilter(&all, nullptr);
    for (Focusable* record : all) {
      if (auto* talk = dynamic_cast<TalkItem*>(record)) out += talk->GetTalkTitle().ToUtf8() + "|";
      record->Release();
    }
    return out;
  }

  ScopedManualClock clock_;
  CWinApp app_;
  struct : Settings {
    CString GetCurrentUserRunningPath() override { return path; }
    CString path;
  } settings_;
  TestHost host_;
  Panel panel_;
  Net* net_ = nullptr;
  FileManagerCtrl* ctrl_ = nullptr;
  std::mutex mu_;
  std::condition_variable cv_;
  std::vector<unsigned> heard_;
};

}  // namespace test
}  // namespace kordll

#endif  // KORDLL_TESTS_TRANSFER_FILEMANAGERTEST_H_
