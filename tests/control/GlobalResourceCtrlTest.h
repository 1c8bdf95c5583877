// What the registry tests share: a fresh registry per test with an
// application, a login and a clock of its own; controllers that register
// themselves and end as concrete controllers do; panels that note what they
// hear.

#ifndef KORDLL_TESTS_CONTROL_GLOBALRESOURCECTRLTEST_H_
#define KORDLL_TESTS_CONTROL_GLOBALRESOURCECTRLTEST_H_

#include <functional>
#include <mutex>
#include <set>
#include <vector>

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/IIPanel.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/control/PanelWnd.h"
#include "kordll/control/ResourceController.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/Clock.h"
#include "kordll/record/SettingsEntryPoints.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace test {

// Registers itself; closing de-registers and releases it.
struct Ctrl : ResourceController {
  explicit Ctrl(int id, int type = -1) {
    SetResourceControllerID(id), SetResourceControllerType(type), Live().insert(this);
    GlobalResourceCtrl::RegisterResourceCtrl(this);
  }
  ~Ctrl() override { Live().erase(this); }
  static Ctrl* Dynamic(const CString& parent) {
    Ctrl* c = new Ctrl(-1, 1);
    return c->SetParentGUID(parent), c;
  }
  static std::set<Ctrl*>& Live() {
    static std::set<Ctrl*> live;
    return live;
  }
  void CloseResourceCtrl() override { GlobalResourceCtrl::DeRegisterResourceCtrl(this), Release(); }
  int InterpretGUICommand(PANELVIEWMESSAGE* m, int* result) override {
    return ++offered, m->message == handles ? (*result = GetResourceControllerID(), 1) : 0;
  }
  void LateLoadResource(CString) override { ++lateLoads; }
  int offered = 0, handles = -1, lateLoads = 0;
};

// Notes {message, kind, controller} of what it hears, and what it is told.
struct Panel : IIPanel {
  CWnd* GetPanelWnd() override { return &wnd; }
  long OnSendPanelMessage(unsigned message, unsigned, intptr_t l) override {
    auto* m = reinterpret_cast<PANELVIEWMESSAGE*>(l);
    {
      std::lock_guard<std::mutex> hold(mutex);
      heard.push_back({int(message), m != nullptr ? m->message : -1, m != nullptr ? m->rcID : -1});
    }
    if (onMessage) onMessage(message);
    return PANELVIEWMESSAGE::DeleteHeapMessage(m), 1;
  }
  long PostPanelMessage(unsigned message, unsigned w, intptr_t l) override {
    return ++posts, onPost ? onPost() : void(), IIPanel::PostPanelMessage(message, w, l);
  }
  void AddRegisteredResource(int id) override { added.push_back(id); }
  int RemoveRegisteredResource(int id) override { return removed.push_back(id), 1; }
  std::mutex mutex;
  std::vector<std::vector<int>> heard;
  std::vector<int> added, removed;
  std::function<void(unsigned)> onMessage;
  std::function<void()> onPost;
  int posts = 0;
  PanelWnd wnd{this};
};

struct Settings : SettingsEntryPoints {
  int GetCurrentPreferencesIntValue(int field) override {
    return field == kLastDBIDField ? lastDBID : 0;
  }
  int SetCurrentPreferencesIntValue(int field, int value) override {
    return canStore && field == kLastDBIDField ? (lastDBID = value, 1) : 0;
  }
  CString GetCurrentLogin() override { return "ann"; }
  CString GetCurrentPreferencesSection() override { return "User-ann"; }
  int lastDBID = 0, canStore = 1;
};

class RegistryTest : public TempRootTest {
 protected:
  RegistryTest() : app_("Tidrel", "Test") {
    SettingsEntryPoints::Install(&settings_), GlobalResourceCtrl::GetGlobalResourceCtrl();
  }
  ~RegistryTest() override { End(), SettingsEntryPoints::Install(nullptr); }
  // Closes and sweeps the registry as the log-off does, ends every
  // controller left, and deletes the registry.
  void End() {
    GlobalResourceCtrl::SetGlobalResourceClosed(1);
    GlobalResourceCtrl::GetGlobalResourceCtrl()->OnClear(nullptr);
    while (!Ctrl::Live().empty()) {
      Ctrl* c = *Ctrl::Live().begin();
      for (int gone = 0; gone == 0;) {
        if (c->Release(&gone) != 0 && gone == 0) delete c, gone = 1;
      }
    }
    GlobalResourceCtrl::DeleteGlobalResourceCtrl();
  }
  ScopedManualClock clock_;
  CWinApp app_;
  Settings settings_;
  int serial_ = 0;
};

}  // namespace test
}  // namespace kordll

#endif  // KORDLL_TESTS_CONTROL_GLOBALRESOURCECTRLTEST_H_
