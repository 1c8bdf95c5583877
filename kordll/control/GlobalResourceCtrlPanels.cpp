// GlobalResourceCtrl: panels, and the delivery of panel messages.

#include <algorithm>

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/IIPanel.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/control/ResourceController.h"

namespace kordll {

IIPanel* GlobalResourceCtrl::GetPanel(int panelID) {
  GlobalResourceCtrl* self = ValidInstance();
  if (self == nullptr) return nullptr;
  CSingleLock hold(self->registryLock_);
  auto found = self->panels_.find(panelID);
  return found != self->panels_.end() ? found->second : nullptr;
}

int GlobalResourceCtrl::RegisterPanel(IIPanel* panel, int controllerID, int sendLoaded) {
  GlobalResourceCtrl* self = ValidInstance();
  if (self == nullptr) return 1;
  if (panel == nullptr) return 0;
  bool loaded = false;
  {
    CSingleLock hold(self->registryLock_);
    bool told = false;
    auto known = self->panels_.find(panel->GetIPanelID());
    if (panel->GetIPanelID() == -1 || known == self->panels_.end() || known->second != panel) {
      if (panel->GetIPanelID() == -1) panel->SetIPanelID(self->nextPanelID_++);
      if (controllerID != -1) {
        panel->AddRegisteredResource(controllerID);
        told = true;
      }
      self->panels_[panel->GetIPanelID()] = panel;
    }
    if (controllerID == -1) return 1;
    std::vector<IIPanel*>& listeners = self->panelsByController_[controllerID];
    if (std::find(listeners.begin(), listeners.end(), panel) != listeners.end()) return 0;
    listeners.push_back(panel);
    if (!told) panel->AddRegisteredResource(controllerID);
    if (sendLoaded != 0) {
      if (ResourceController* controller = self->SlotController(controllerID)) {
        // A reserved controller counts as loaded only when marked so; any
        // other also once it holds records.
        const int nonEmpty = controller->GetResourceControllerType() == 0 ? 0 : 1;
        loaded = controller->GetLoadStatus(nonEmpty) != 0;
      }
    }
  }
  if (loaded) {
    // So a panel that comes late still hears that it may read the records.
    PANELVIEWMESSAGE message;
    message.rcID = controllerID;
    message.message = kPanelKindLoaded;
    panel->SendPanelMessage(kPanelMessageLoaded, 0, reinterpret_cast<intptr_t>(&message));
  }
  return 1;
}

bool GlobalResourceCtrl::RemoveListener(int id, IIPanel* panel) {
  auto list = panelsByController_.find(id);
  if (list == panelsByController_.end()) return false;
  auto& panels = list->second;
  const size_t before = panels.size();
  panels.erase(std::remove(panels.begin(), panels.end(), panel), panels.end());
  return panels.size() != before;
}

void GlobalResourceCtrl::NotifyDetached() {
  {
    std::lock_guard<std::mutex> hold(detachMutex_);
    ++detachGeneration_;
  }
  detached_.notify_all();
}

int GlobalResourceCtrl::DeRegisterPanel(IIPanel* panel, int controllerID) {
  GlobalResourceCtrl* self = Instance();
  if (self == nullptr || panel == nullptr) return 0;
  {
    CSingleLock hold(self->registryLock_);
    auto known = self->panels_.find(panel->GetIPanelID());
    if (known != self->panels_.end() && known->second == panel) self->panels_.erase(known);
    if (controllerID == -1) {
      CArray<int, int> ids;
      panel->GetRegisteredResources(&ids);
      for (int id : ids) self->RemoveListener(id, panel);
      // A panel that does not keep its controllers leaves every list too, so
      // that nobody calls it after it left.
      for (auto& entry : self->panelsByController_) self->RemoveListener(entry.first, panel);
      panel->ClearRegisteredResource();
    } else {
      self->RemoveListener(controllerID, panel);
      panel->RemoveRegisteredResource(controllerID);
    }
  }
  self->NotifyDetached();
  return 0;
}

std::vector<IIPanel*> GlobalResourceCtrl::ListenersOf(int id) {
  CSingleLock hold(registryLock_);
  auto list = panelsByController_.find(id);
  return list != panelsByController_.end() ? list->second : std::vector<IIPanel*>();
}

bool GlobalResourceCtrl::IsListening(int id, IIPanel* panel) {
  auto list = panelsByController_.find(id);
  return list != panelsByController_.end() &&
         std::find(list->second.begin(), list->second.end(), panel) != list->second.end();
}

int GlobalResourceCtrl::Send(ResourceController* controller, int message, int kind,
                             Focusable* record, CArray<Focusable*, Focusable*>* records) {
  const int id = controller->GetResourceControllerID();
  const std::vector<IIPanel*> listeners = ListenersOf(id);
  for (IIPanel* panel : listeners) {
    if (closed_.load() != 0) break;
    {
      // A panel that left during an earlier handler is not called.
      CSingleLock hold(registryLock_);
      if (!IsListening(id, panel)) continue;
    }
    if (panel == nullptr) continue;
    PANELVIEWMESSAGE note;
    note.rcID = id;
    note.message = kind;
    note.focusable = record;
    note.focusables = records;
    panel->SendPanelMessage(static_cast<unsigned>(message), 0, reinterpret_cast<intptr_t>(&note));
  }
  return listeners.empty() ? 0 : 1;
}

int GlobalResourceCtrl::SendRC2PanelMessage(ResourceController* controller, int message, int kind,
                                            Focusable* record) {
  if (kind == kPanelKindChanged && IsTidrelClosing() != 0) return 0;
  GlobalResourceCtrl* self = ValidInstance();
  if (self == nullptr || controller == nullptr) return 0;
  return self->Send(controller, message, kind, record, nullptr);
}

int GlobalResourceCtrl::SendRC2PanelMessage_Multi(ResourceController* controller, int message,
                                                  int kind,
                                                  CArray<Focusable*, Focusable*>* records) {
  if (kind == kPanelKindChanged && IsTidrelClosing() != 0) return 0;
  GlobalResourceCtrl* self = ValidInstance();
  if (self == nullptr || controller == nullptr) return 0;
  return self->Send(controller, message, kind, nullptr, records);
}

int GlobalResourceCtrl::Post(ResourceController* controller, int message, int kind,
                             Focusable* record, CArray<Focusable*, Focusable*>* records) {
  const int id = controller->GetResourceControllerID();
  for (IIPanel* panel : ListenersOf(id)) {
    {
      // A panel that left meanwhile (on another thread) is not posted to.
      CSingleLock hold(registryLock_);
      if (!IsListening(id, panel)) continue;
    }
    auto* note = new PANELVIEWMESSAGE();
    note->heapAllocated = 1;
    note->rcID = id;
    note->message = kind;
    note->focusable = record;
    if (records != nullptr) {
      // The sender's array may be gone before the message is read: the
      // records travel in the message itself.
      note->focusableList = *records;
      note->focusables = &note->focusableList;
    }
    note->ReserveFocusables();  // released by the receiver
    if (panel == nullptr || panel->PostPanelMessage(static_cast<unsigned>(message), 0,
                                                    reinterpret_cast<intptr_t>(note)) == 0) {
      PANELVIEWMESSAGE::DeleteHeapMessage(note);
    }
  }
  return ListenersOf(id).empty() ? 0 : 1;
}

int GlobalResourceCtrl::PostRC2PanelMessage(ResourceController* controller, int message, int kind,
                                            Focusable* record) {
  GlobalResourceCtrl* self = Instance();
  if (self == nullptr || controller == nullptr) return 0;
  return self->Post(controller, message, kind, record, nullptr);
}

int GlobalResourceCtrl::PostRC2PanelMessage_Multi(ResourceController* controller, int message,
                                                  int kind,
                                                  CArray<Focusable*, Focusable*>* records) {
  GlobalResourceCtrl* self = Instance();
  if (self == nullptr || controller == nullptr) return 0;
  return self->Post(controller, message, kind, nullptr, records);
}

}  // namespace kordll
