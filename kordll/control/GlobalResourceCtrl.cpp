// GlobalResourceCtrl: the instance, the record core's questions, the
// controllers, closing, paths. Databases are in
// GlobalResourceCtrlDatabases.cpp, panels and delivery in
// GlobalResourceCtrlPanels.cpp.

#include "kordll/control/GlobalResourceCtrl.h"

#include <algorithm>

#include "kordll/control/IIPanel.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/control/ResourceController.h"
#include "kordll/control/TidrelManager.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/Clock.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/Registry.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/RegistryEntryPoints.h"
#include "kordll/schema/GlobalRelationsCtrl.h"

namespace kordll {

std::atomic<int> g_bGlobalResourceCtrlLoaded{0};

namespace {

std::mutex g_instanceMutex;  // serialises making and deleting the instance
std::atomic<GlobalResourceCtrl*> g_instance{nullptr};
// Set for good when the first registry is made: from then on the registry
// answers the record core, also once it is gone.
std::atomic<bool> g_everMade{false};

std::atomic<GlobalResourceCtrl::TalkControllerFactory> g_talkFactory{nullptr};
std::atomic<GlobalResourceCtrl::ProgressCaptionFn> g_progressCaption{nullptr};
std::atomic<GlobalResourceCtrl::ProgressPointFn> g_progressPoint{nullptr};

void TellCaption(ProgressData* progress, const CString& caption) {
  auto fn = g_progressCaption.load();
  if (progress != nullptr && fn != nullptr) fn(progress, caption);
}

void TellPoint(ProgressData* progress, int done, int total) {
  auto fn = g_progressPoint.load();
  if (progress != nullptr && fn != nullptr) fn(progress, done, total, 0);
}

// The record core's questions, answered by the registry of the moment.
class RegistryAnswers : public RegistryEntryPoints {
 public:
  int IsGlobalResourceValid() override { return GlobalResourceCtrl::IsGlobalResourceValid(); }
  int AreDBsCleared() override { return GlobalResourceCtrl::AreDBsCleared(); }
  ResourceController* GetResourceController(int id) override {
    return GlobalResourceCtrl::GetResourceController(id);
  }
  ResourceController* GetPostCtrl(int dbID) override {
    return GlobalResourceCtrl::GetPostCtrl(dbID);
  }
  AZeusDB* GetDBCtrl(int dbID) override { return GlobalResourceCtrl::GetDBCtrl(dbID); }
  IIPanel* GetPanel(int id) override { return GlobalResourceCtrl::GetPanel(id); }
  int InterpretGUICommand(PANELVIEWMESSAGE* message, int* result) override {
    return GlobalResourceCtrl::InterpretGUICommand(message, result);
  }
  int SendRC2PanelMessage(ResourceController* c, int message, int kind, Focusable* r) override {
    return GlobalResourceCtrl::SendRC2PanelMessage(c, message, kind, r);
  }
  int PostRC2PanelMessage(ResourceController* c, int message, int kind, Focusable* r) override {
    return GlobalResourceCtrl::PostRC2PanelMessage(c, message, kind, r);
  }
  long SendPanelMessage_wRequest(IIPanel* panel, unsigned int panelMessage,
                                 const PanelViewRequest& request) override {
    if (panel == nullptr) return 0;
    PANELVIEWMESSAGE message(request);
    return panel->SendPanelMessage(panelMessage, 0, reinterpret_cast<intptr_t>(&message));
  }
  int InterpretGUICommand_wRequest(const PanelViewRequest& request, int* result) override {
    PANELVIEWMESSAGE message(request);
    return GlobalResourceCtrl::InterpretGUICommand(&message, result);
  }
  Focusable* GenerateFocusable(ResourceController* c, int relation) override {
    return c != nullptr ? c->GenerateFocusable(relation) : nullptr;
  }
  Focusable* GetFocusable_wID(ResourceController* c, int id) override {
    return c != nullptr ? c->GetFocusable_wID(id) : nullptr;
  }
  Focusable* CheckFocusable(ResourceController* c, CString guid, int flag) override {
    return c != nullptr ? c->CheckFocusable(guid, flag) : nullptr;
  }
  int RegisterFocusable(ResourceController* c, Focusable* record, int a, int b) override {
    return c != nullptr ? c->RegisterFocusable(record, a, b) : 0;
  }
  int GetResourceControllerID(ResourceController* c) override {
    return c != nullptr ? c->GetResourceControllerID() : -1;
  }
};

RegistryAnswers* Answers() {
  static RegistryAnswers* answers = new RegistryAnswers();  // never destroyed
  return answers;
}

}  // namespace

// --- The instance --------------------------------------------------------

GlobalResourceCtrl::GlobalResourceCtrl()
    : relations_(std::make_unique<GlobalRelationsCtrl>()),
      tidrel_(std::make_unique<TidrelManager>()) {}

GlobalResourceCtrl::~GlobalResourceCtrl() {
  g_bGlobalResourceCtrlLoaded.store(0);
  GlobalResourceCtrl* self = this;
  g_instance.compare_exchange_strong(self, nullptr);
  tidrel_.reset();
  relations_.reset();  // the catalogue's own destructor gives up its global role
}

GlobalResourceCtrl* GlobalResourceCtrl::GetGlobalResourceCtrl() {
  if (GlobalResourceCtrl* made = g_instance.load(std::memory_order_acquire)) return made;
  std::lock_guard<std::mutex> hold(g_instanceMutex);
  if (GlobalResourceCtrl* made = g_instance.load()) return made;
  GlobalResourceCtrl* made = new GlobalResourceCtrl();
  g_instance.store(made, std::memory_order_release);
  if (!g_everMade.exchange(true)) RegistryEntryPoints::Install(Answers());
  InitializeGlobalResourceCtrl();
  return made;
}

void GlobalResourceCtrl::DeleteGlobalResourceCtrl() {
  std::lock_guard<std::mutex> hold(g_instanceMutex);
  delete g_instance.exchange(nullptr);
}

GlobalResourceCtrl* GlobalResourceCtrl::Instance() {
  return g_instance.load(std::memory_order_acquire);
}

GlobalResourceCtrl* GlobalResourceCtrl::ValidInstance() {
  GlobalResourceCtrl* self = Instance();
  return self != nullptr && self->closed_.load() == 0 ? self : nullptr;
}

void GlobalResourceCtrl::InitializeGlobalResourceCtrl() {
  GlobalResourceCtrl* self = Instance();
  if (self == nullptr || g_bGlobalResourceCtrlLoaded.load() != 0) return;
  self->Initialize();
}

void GlobalResourceCtrl::Initialize() {
  {
    CSingleLock hold(registryLock_);
    // Controllers above the reserved range that survived the last sweep
    // leave the array with its old size; they end themselves.
    controllers_.resize(kReservedControllerSlots, nullptr);
    nextPanelID_ = kFirstGeneratedPanelID;
  }
  allLoadedAtStartUp_.store(0);
  closed_.store(0);
  closing_.store(0);
  dbsCleared_.store(0);
  g_bGlobalResourceCtrlLoaded.store(1);
  // The talk controller registers itself under id 15, so it is always the
  // first controller, and a new one comes with each login.
  if (TalkControllerFactory factory = g_talkFactory.load()) factory();
}

void GlobalResourceCtrl::SetTalkControllerFactory(TalkControllerFactory factory) {
  g_talkFactory.store(factory);
}

void GlobalResourceCtrl::SetProgressReporters(ProgressCaptionFn caption, ProgressPointFn point) {
  g_progressCaption.store(caption);
  g_progressPoint.store(point);
}

GlobalRelationsCtrl* GlobalResourceCtrl::GetGlobalRelationsCtrl() { return relations_.get(); }

TidrelManager* GlobalResourceCtrl::GetTidrelManager() { return tidrel_.get(); }

// --- State -----------------------------------------------------------------

int GlobalResourceCtrl::IsGlobalResourceValid() {
  if (!g_everMade.load()) return 1;  // the record core's "no registry" answer
  return ValidInstance() != nullptr ? 1 : 0;
}

int GlobalResourceCtrl::IsTidrelClosing() {
  GlobalResourceCtrl* self = Instance();
  return self != nullptr && self->closing_.load() != 0 ? 1 : 0;
}

void GlobalResourceCtrl::SetTidrelClosing(int closing) {
  if (GlobalResourceCtrl* self = Instance()) self->closing_.store(closing);
}

void GlobalResourceCtrl::SetGlobalResourceClosed(int closed) {
  if (GlobalResourceCtrl* self = Instance()) self->closed_.store(closed);
}

void GlobalResourceCtrl::SetAllResourcesLoadedAtStartUp() {
  if (GlobalResourceCtrl* self = Instance()) self->allLoadedAtStartUp_.store(1);
}

int GlobalResourceCtrl::AreAllResourcesLoadedAtStartUp() {
  GlobalResourceCtrl* self = Instance();
  return self != nullptr ? self->allLoadedAtStartUp_.load() : 0;
}

int GlobalResourceCtrl::AreDBsCleared() {
  if (!g_everMade.load()) return 0;  // the record core's "no registry" answer
  GlobalResourceCtrl* self = Instance();
  return self == nullptr || self->dbsCleared_.load() != 0 ? 1 : 0;
}

// --- Controllers -----------------------------------------------------------

ResourceController* GlobalResourceCtrl::SlotController(int id) {
  if (id == kUserControllerID) return userCtrl_;
  if (id < 0 || id >= static_cast<int>(controllers_.size())) return nullptr;
  return controllers_[id];
}

ResourceController* GlobalResourceCtrl::GetResourceController(int id) {
  GlobalResourceCtrl* self = Instance();  // looked at before the lock
  if (self == nullptr) return nullptr;
  CSingleLock hold(self->registryLock_);
  if (self->closed_.load() != 0) return nullptr;
  ResourceController* controller = self->SlotController(id);
  if (controller != nullptr && id != kUserControllerID && controller->GetLoadStatus(1) == 0) {
    controller->LateLoadResource(CString());
  }
  return controller;
}

int GlobalResourceCtrl::RegisterResourceCtrl(ResourceController* controller) {
  GlobalResourceCtrl* self = ValidInstance();
  if (self == nullptr || controller == nullptr) return 0;
  CSingleLock hold(self->registryLock_);
  controller->LoadRelatedRelations();
  const int id = controller->GetResourceControllerID();
  if (id == kUserControllerID) {
    self->userCtrl_ = controller;
  } else if (id >= 0 && id < kReservedControllerSlots) {
    controller->SetResourceControllerType(0);
    if (self->controllers_.size() <= static_cast<size_t>(id)) {
      self->controllers_.resize(kReservedControllerSlots, nullptr);
    }
    self->controllers_[id] = controller;
  } else {
    // The id the controller came with is lost: it takes the next slot.
    controller->SetResourceControllerID(static_cast<int>(self->controllers_.size()));
    self->controllers_.push_back(controller);
  }
  return 1;
}

int GlobalResourceCtrl::DeRegisterResourceCtrl(ResourceController* controller) {
  GlobalResourceCtrl* self = Instance();
  if (self == nullptr || controller == nullptr) return 0;
  const int id = controller->GetResourceControllerID();
  bool listened = false;
  {
    CSingleLock hold(self->registryLock_);
    listened = self->panelsByController_.count(id) != 0;
  }
  if (listened && IsGlobalResourceValid() != 0) {
    // The panels' handlers call back into the registry: no lock is held
    // while they run, nor while they are waited for.
    SendRC2PanelMessage(controller, kPanelMessageDetach, kPanelKindLoaded, nullptr);
    // Up to 10 seconds of clock time; each look after a panel detached or
    // after the waiting thread woke for another reason counts, so the wait
    // ends also when the clock does not move.
    constexpr int kLooks = 100;
    const int64_t deadline = Clock::DeadlineAfter(10000);
    for (int look = 0; look < kLooks; ++look) {
      int seen;
      {
        std::lock_guard<std::mutex> generation(self->detachMutex_);
        seen = self->detachGeneration_;
      }
      {
        CSingleLock hold(self->registryLock_);
        auto list = self->panelsByController_.find(id);
        if (list == self->panelsByController_.end() || list->second.empty()) break;
      }
      std::unique_lock<std::mutex> wait(self->detachMutex_);
      if (self->detachGeneration_ == seen && Clock::WaitUntil(self->detached_, wait, deadline)) {
        break;
      }
    }
  }
  CSingleLock hold(self->registryLock_);
  if (id >= 0 && id < static_cast<int>(self->controllers_.size()) &&
      self->controllers_[id] == controller) {
    self->controllers_[id] = nullptr;
  }
  if (id == kUserControllerID && self->userCtrl_ == controller) self->userCtrl_ = nullptr;
  return 0;
}

int GlobalResourceCtrl::InterpretGUICommand(PANELVIEWMESSAGE* message, int* result) {
  // Also once closed: the controllers take commands until the sweep.
  GlobalResourceCtrl* self = Instance();
  if (self == nullptr || message == nullptr) return 0;
  int ignored = 0;
  if (result == nullptr) result = &ignored;
  std::vector<ResourceController*> offered;
  {
    CSingleLock hold(self->registryLock_);
    const size_t count = std::min<size_t>(self->controllers_.size(), kReservedControllerSlots);
    for (size_t slot = 0; slot < count; ++slot) {
      if (ResourceController* controller = self->controllers_[slot]) {
        controller->Reserve();  // alive for its call, even if it leaves meanwhile
        offered.push_back(controller);
      }
    }
  }
  int handled = 0;
  for (ResourceController* controller : offered) {
    if (handled == 0 && controller->InterpretGUICommand(message, result) != 0) handled = 1;
    controller->Release();
  }
  return handled;
}

// --- Closing ---------------------------------------------------------------

void GlobalResourceCtrl::StartClosingResources() {
  CSingleLock hold(registryLock_);
  for (ResourceController* controller : controllers_) {
    if (controller != nullptr) controller->StartClosingResourceCtrl();
  }
}

int GlobalResourceCtrl::OnClear(ProgressData* progress) {
  TellCaption(progress, "Closing Resources ...");
  for (size_t slot = 0;; ++slot) {
    ResourceController* closing = nullptr;
    int size;
    {
      CSingleLock hold(registryLock_);
      size = static_cast<int>(controllers_.size());
      if (slot >= controllers_.size()) break;
      ResourceController* controller = controllers_[slot];
      if (controller != nullptr && controller->GetResourceControllerType() == 0 &&
          controller->GetResourceControllerID() != kFirstClosedControllerID) {
        closing = controller;
      }
    }
    if (closing != nullptr) {
      // Outside the lock: a controller may wait for its thread, which may
      // need the registry. The controller may be gone afterwards.
      closing->CloseResourceCtrl();
      CSingleLock hold(registryLock_);
      if (slot < controllers_.size()) controllers_[slot] = nullptr;
      size = static_cast<int>(controllers_.size());
    }
    // The total is the slot count less 31, however small that is.
    TellPoint(progress, static_cast<int>(slot), size - 31);
  }
  ClearDBRegisteries();
  {
    CSingleLock hold(registryLock_);
    nextPanelID_ = kFirstGeneratedPanelID;
    panelsByController_.clear();
    panels_.clear();
  }
  NotifyDetached();
  g_bGlobalResourceCtrlLoaded.store(0);
  return 0;
}

int GlobalResourceCtrl::IsAllResourcesClosed(ProgressData* progress) {
  GlobalResourceCtrl* self = Instance();
  if (self == nullptr) return 0;
  int empty = 0;
  int size = 0;
  {
    CSingleLock hold(self->registryLock_);
    size = static_cast<int>(self->controllers_.size());
    empty =
        static_cast<int>(std::count(self->controllers_.begin(), self->controllers_.end(), nullptr));
  }
  TellPoint(progress, empty, size);
  return empty == size ? 1 : 0;
}

// --- Paths and settings ------------------------------------------------------

CString GlobalResourceCtrl::GetGlobalKorPath() {
  GlobalResourceCtrl* self = Instance();
  if (self == nullptr) return CString();
  CSingleLock hold(self->registryLock_);
  return self->globalPath_;
}

void GlobalResourceCtrl::SetGlobalKorPath(CString path) {
  GlobalResourceCtrl* self = Instance();
  if (self == nullptr) return;
  CSingleLock hold(self->registryLock_);
  self->globalPath_ = path;
}

namespace {

// The string value `name` of a key of the current user's hive, read into a
// buffer of bufferBytes as the shell does; "" when the key does not open or
// the value is no string or does not fit.
CString ReadUserString(const CString& key, const CString& name, uint32_t bufferBytes) {
  HKEY handle = nullptr;
  if (RegOpenKeyEx(HKEY_CURRENT_USER, key, 0, KEY_READ, &handle) != ERROR_SUCCESS) {
    return CString();
  }
  std::vector<uint8_t> buffer(bufferBytes);
  uint32_t type = REG_NONE;
  uint32_t size = bufferBytes;
  const int rc = RegQueryValueEx(handle, name, nullptr, &type, buffer.data(), &size);
  RegCloseKey(handle);
  if (rc != ERROR_SUCCESS || !RegValue::IsStringType(type)) return CString();
  std::u16string text;
  for (uint32_t i = 0; i + 1 < size; i += 2) {
    const char16_t unit = static_cast<char16_t>(buffer[i] | (buffer[i + 1] << 8));
    if (unit == 0) break;
    text.push_back(unit);
  }
  return CString(text);
}

// Replaces each "%NAME%" of text by the value of the environment variable
// NAME; a name that has no value, and a "%" without its closing one, stay as
// written.
CString ExpandEnvironmentStrings(const CString& text) {
  CString expanded;
  int at = 0;
  while (at < text.GetLength()) {
    const int open = text.Find('%', at);
    const int close = open < 0 ? -1 : text.Find('%', open + 1);
    if (close < 0) break;
    expanded += text.Mid(at, open - at);
    const CString name = text.Mid(open + 1, close - open - 1);
    const CString value =
        name.IsEmpty() ? CString() : Locations::GetVariable(name.ToUtf8().c_str());
    if (value.IsEmpty()) {
      // Not a variable: its "%" stays, and the closing one may open the next.
      expanded += text.Mid(open, close - open);
      at = close;
    } else {
      expanded += value;
      at = close + 1;
    }
  }
  return expanded + text.Mid(at);
}

}  // namespace

CString GlobalResourceCtrl::GetMyDocumentsFolder() {
  // 520 bytes of value; the expanded folder keeps at most 260 characters.
  CString folder = ExpandEnvironmentStrings(
      ReadUserString("Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders",
                     "Personal", 520));
  return folder.GetLength() > 260 ? folder.Left(260) : folder;
}

int GlobalResourceCtrl::UseGecko() {
  return ReadUserString("Software\\Marsek\\Marsek", "UseGecko", 510) == CString("1") ? 1 : 0;
}

int GlobalResourceCtrl::SetUseGecko(int use) {
  CWinApp* app = AfxGetApp();
  if (app == nullptr) return 0;
  return app->WriteProfileString(CString(), "UseGecko", use != 0 ? "1" : "0") != 0 ? 1 : 0;
}

}  // namespace kordll
