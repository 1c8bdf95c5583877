#include "kordll/record/RegistryEntryPoints.h"

#include <atomic>

namespace kordll {

namespace {

std::atomic<RegistryEntryPoints*> g_installed{nullptr};

RegistryEntryPoints& Default() {
  static RegistryEntryPoints* fallback = new RegistryEntryPoints();  // never destroyed
  return *fallback;
}

}  // namespace

RegistryEntryPoints::~RegistryEntryPoints() = default;

RegistryEntryPoints* RegistryEntryPoints::Get() {
  RegistryEntryPoints* entry = g_installed.load(std::memory_order_acquire);
  return entry != nullptr ? entry : &Default();
}

RegistryEntryPoints* RegistryEntryPoints::Install(RegistryEntryPoints* entry) {
  return g_installed.exchange(entry, std::memory_order_acq_rel);
}

// The answers while no registry stands: alive, databases in place, nothing
// to find, nobody to tell.
int RegistryEntryPoints::IsGlobalResourceValid() { return 1; }
int RegistryEntryPoints::AreDBsCleared() { return 0; }
ResourceController* RegistryEntryPoints::GetResourceController(int) { return nullptr; }
ResourceController* RegistryEntryPoints::GetPostCtrl(int) { return nullptr; }
AZeusDB* RegistryEntryPoints::GetDBCtrl(int) { return nullptr; }
IIPanel* RegistryEntryPoints::GetPanel(int) { return nullptr; }
int RegistryEntryPoints::InterpretGUICommand(PANELVIEWMESSAGE*, int*) { return 0; }

int RegistryEntryPoints::SendRC2PanelMessage(ResourceController*, int, int, Focusable*) {
  return 0;
}

int RegistryEntryPoints::PostRC2PanelMessage(ResourceController*, int, int, Focusable*) {
  return 0;
}

long RegistryEntryPoints::SendPanelMessage_wRequest(IIPanel*, unsigned int,
                                                    const PanelViewRequest&) {
  return 0;
}

int RegistryEntryPoints::InterpretGUICommand_wRequest(const PanelViewRequest&, int*) { return 0; }

Focusable* RegistryEntryPoints::GenerateFocusable(ResourceController*, int) { return nullptr; }
Focusable* RegistryEntryPoints::GetFocusable_wID(ResourceController*, int) { return nullptr; }
Focusable* RegistryEntryPoints::CheckFocusable(ResourceController*, CString, int) {
  return nullptr;
}
int RegistryEntryPoints::RegisterFocusable(ResourceController*, Focusable*, int, int) { return 0; }
int RegistryEntryPoints::GetResourceControllerID(ResourceController*) { return -1; }
Focusable* RegistryEntryPoints::CreateTrashItem() { return nullptr; }

}  // namespace kordll
