#include "kordll/control/PanelWnd.h"

#include "kordll/control/IIPanel.h"
#include "kordll/control/PANELVIEWMESSAGE.h"

namespace kordll {

namespace {

// Panel messages are numbered in this range; each carries a panel-view
// message as its third argument.
constexpr unsigned kFirstPanelMessage = 1025;
constexpr unsigned kLastPanelMessage = 1058;

}  // namespace

PanelWnd::PanelWnd(IIPanel* panel) : panel_(panel) {}

PanelWnd::~PanelWnd() { DestroyWindow(); }

std::intptr_t PanelWnd::WindowProc(unsigned message, std::intptr_t wParam, std::intptr_t lParam) {
  if (panel_ == nullptr) return 0;
  return panel_->SendPanelMessage(message, static_cast<unsigned>(wParam), lParam);
}

void PanelWnd::OnDiscardedMessage(const MSG& msg) { DiscardPanelMessage(msg); }

int PanelWnd::DiscardPanelMessage(const MSG& msg) {
  if (msg.message < kFirstPanelMessage || msg.message > kLastPanelMessage) return 0;
  return PANELVIEWMESSAGE::DeleteHeapMessage(reinterpret_cast<PANELVIEWMESSAGE*>(msg.lParam));
}

}  // namespace kordll
