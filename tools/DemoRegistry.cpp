// `kordll demo`, the registry step: a controller registers, a panel hears
// that it is loaded, a change of a record reaches the panel, and the
// registry closes as at log-off and starts again as at the next login.
//
// Nothing is written to the data root or the profile (the record's GUID is
// given, not drawn from the profile's serials), and the registry is left
// started, so that every run goes alike.

#include <memory>
#include <ostream>
#include <string>

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/IIPanel.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/control/ResourceController.h"
#include "kordll/record/Focusable.h"
#include "tools/DemoWalk.h"

namespace {

using kordll::CString;
using kordll::Focusable;
using kordll::GlobalResourceCtrl;

// The application controller of the demo's posts.
constexpr int kDemoController = 7;

const char* Meaning(unsigned message) {
  switch (message) {
    case kordll::kPanelMessageLoaded:
      return "loaded: records may be read";
    case kordll::kPanelMessageRecordChanged:
      return "a record changed";
    case kordll::kPanelMessageDetach:
      return "the controller goes away";
    default:
      return "other";
  }
}

// Prints what it hears.
class DemoPanel : public kordll::IIPanel {
 public:
  explicit DemoPanel(std::ostream& out) : out_(out) {}
  kordll::CWnd* GetPanelWnd() override { return nullptr; }
  long OnSendPanelMessage(unsigned message, unsigned, intptr_t l) override {
    auto* m = reinterpret_cast<kordll::PANELVIEWMESSAGE*>(l);
    ++heard_;
    out_ << "  panel " << GetIPanelID() << " heard " << message << " (" << Meaning(message)
         << "), kind " << m->message << " from controller " << m->rcID;
    if (m->focusable != nullptr) {
      out_ << ", record " << m->focusable->GetGUID().ToUtf8() << " \""
           << m->focusable->GetPostTitle().ToUtf8() << "\"";
    }
    out_ << "\n";
    return 1;
  }
  int heard() const { return heard_; }

 private:
  std::ostream& out_;
  int heard_ = 0;
};

// Holds its records as their controller of origin; closing lets them go
// and leaves.
class DemoController : public kordll::ResourceController {
 public:
  DemoController() {
    SetResourceControllerID(kDemoController);
    GlobalResourceCtrl::RegisterResourceCtrl(this);
  }
  void LoadResources(CString) override {
    auto* post = new Focusable(4, nullptr);
    post->SetGUID("R7_G1");
    post->SetPostTitle(CString("A registry of its own"));
    RegisterFocusable(post, 0, 0);  // its controller holds it from now on
    SetLoaded(1);
    GlobalResourceCtrl::SendRC2PanelMessage(this, kordll::kPanelMessageLoaded,
                                            kordll::kPanelKindLoaded, nullptr);
  }
  void CloseResourceCtrl() override {
    ResourceController::CloseResourceCtrl();
    while (!data_->focusables.empty()) DeRegisterFocusable(data_->focusables.back(), nullptr, 0);
    GlobalResourceCtrl::DeRegisterResourceCtrl(this);
    Release();
  }
};

void Registry(kordll_tool::Walk& walk) {
  walk.Step("The registry joins a controller, its records and a panel");
  std::ostream& out = walk.out();
  GlobalResourceCtrl* registry = GlobalResourceCtrl::GetGlobalResourceCtrl();
  auto* controller = new DemoController();
  out << "  controller " << controller->GetResourceControllerID() << " registered, "
      << (controller->IsRCReserved() ? "in its reserved slot" : "in a new slot") << "\n";
  controller->LoadResources(CString());
  DemoPanel panel(out);
  GlobalResourceCtrl::RegisterPanel(&panel, kDemoController, 1);
  walk.Expect(panel.heard() == 1, "the panel did not hear that the controller is loaded");

  // Found by its GUID through the registry, as any part of the program finds
  // a record.
  Focusable* post = Focusable::GetFocusable_wGUID("R7_G1");
  walk.Expect(post != nullptr, "the post is not found by its GUID");
  int told = 0;
  if (post != nullptr) {
    post->SetPostTitle(CString("A registry of its own, retitled"));
    post->BroadCastUpdate(0, kordll::kPanelMessageRecordChanged);
    walk.Expect(panel.heard() == 2, "the change did not reach the panel");
    GlobalResourceCtrl::SetTidrelClosing(1);
    told = post->BroadCastUpdate(0, kordll::kPanelMessageRecordChanged);
  }

  walk.Step("The registry closes as at log-off, and starts again");
  GlobalResourceCtrl::SetTidrelClosing(1);
  out << "  while closing, a sent change is dropped: " << (told == 0 ? "yes" : "no") << "\n";
  walk.Expect(told == 0 && panel.heard() == 2, "a change reached the panel while closing");
  GlobalResourceCtrl::SetGlobalResourceClosed(1);
  registry->StartClosingResources();
  registry->OnClear(nullptr);  // closes the controller: it lets its post go and leaves
  const int closed = GlobalResourceCtrl::IsAllResourcesClosed(nullptr);
  out << "  every controller closed: " << (closed != 0 ? "yes" : "no") << "\n";
  walk.Expect(closed != 0, "a controller is still registered");
  GlobalResourceCtrl::InitializeGlobalResourceCtrl();
  const int valid = GlobalResourceCtrl::IsGlobalResourceValid();
  out << "  started again for the next login: " << (valid != 0 ? "yes" : "no") << "\n";
  walk.Expect(valid != 0, "the registry did not start again");
}

const kordll_tool::DemoStepRegistration kRegistry{60, &Registry};

}  // namespace
