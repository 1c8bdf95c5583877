#include "kordll/control/IIPanel.h"

namespace kordll {

IIPanel::IIPanel() : panelID_(-1) {}

IIPanel::IIPanel(const IIPanel& other) : panelID_(other.GetIPanelID()) {}

IIPanel& IIPanel::operator=(const IIPanel& other) {
  SetIPanelID(other.GetIPanelID());
  return *this;
}

IIPanel::~IIPanel() = default;

void IIPanel::LockPanel() { lock_.Lock(); }

void IIPanel::UnLockPanel() { lock_.Unlock(); }

long IIPanel::SendPanelMessage(unsigned int message, unsigned int wParam, intptr_t lParam) {
  try {
    return OnSendPanelMessage(message, wParam, lParam);
  } catch (...) {
    // A panel's handler is the application's code; its failure stays here.
    return 0;
  }
}

long IIPanel::OnSendPanelMessage(unsigned int, unsigned int, intptr_t) { return 0; }

long IIPanel::PostPanelMessage(unsigned int message, unsigned int wParam, intptr_t lParam) {
  CWnd* wnd = GetPanelWnd();
  if (wnd == nullptr) return 0;
  // Only the handle from here on: posting by handle is safe from any thread,
  // and answers 0 if the window is destroyed meanwhile.
  const HWND hwnd = wnd->GetSafeHwnd();
  if (!IsWindow(hwnd)) return 0;
  return PostMessage(hwnd, message, static_cast<intptr_t>(wParam), lParam);
}

void IIPanel::GetRegisteredResources(CArray<int, int>*) {}

void IIPanel::AddRegisteredResource(int) {}

int IIPanel::RemoveRegisteredResource(int) { return 0; }

void IIPanel::ClearRegisteredResource() {}

void IIPanel::ClearPanel(int, int) {}

void IIPanel::InitializePanel() {}

void IIPanel::UpdatePanel() {}

void IIPanel::ProcessPVNM(PANELVIEWMESSAGE*) {}

}  // namespace kordll
