// PanelWnd: the window of a panel, as the window layer of an application
// gives one to each panel it shows.
//
// A message target of the thread that creates it (CWnd::Create). What is
// posted to it through IIPanel::PostPanelMessage is taken from that
// thread's queue in order and handed to the panel's SendPanelMessage on
// that thread; the panel then ends a heap message with
// PANELVIEWMESSAGE::DeleteHeapMessage.
//
// A panel message (1025 to 1058) that will never run, because the window
// was destroyed while it waited, is ended here: its heap message is
// deleted and the records it carries are released. Messages left when the
// owning thread's loop ends go to that CWinThread's OnDiscardedMessage
// instead; a thread that owns panel windows passes them on to
// DiscardPanelMessage.
//
//   class ListPanel : public IIPanel {
//     CWnd* GetPanelWnd() override { return &wnd_; }
//     long OnSendPanelMessage(unsigned m, unsigned w, intptr_t l) override;
//     PanelWnd wnd_{this};   // wnd_.Create() on the panel's thread
//   };
//
// REQUIRES, as for every target: created, destroyed and deleted on its own
// thread (or deleted after that thread ended). The panel outlives it.

#ifndef KORDLL_CONTROL_PANELWND_H_
#define KORDLL_CONTROL_PANELWND_H_

#include <cstdint>

#include "kordll/platform/CWnd.h"
#include "kordll/platform/MessageQueue.h"

namespace kordll {

class IIPanel;

class PanelWnd : public CWnd {
 public:
  // The window of panel (not owned; may be null: then nothing is handled).
  explicit PanelWnd(IIPanel* panel);
  // Destroys the window first, so that messages still waiting are ended.
  ~PanelWnd() override;

  IIPanel* GetPanel() const { return panel_; }

  // Hands the message to the panel's SendPanelMessage; 0 without a panel.
  std::intptr_t WindowProc(unsigned message, std::intptr_t wParam, std::intptr_t lParam) override;
  // DiscardPanelMessage.
  void OnDiscardedMessage(const MSG& msg) override;

  // Ends a panel message that will never be handled: for messages 1025 to
  // 1058 with a heap message in lParam, DeleteHeapMessage. Answers 1 when
  // it ended one, else 0 (other messages are left alone).
  static int DiscardPanelMessage(const MSG& msg);

 private:
  IIPanel* const panel_;
};

}  // namespace kordll

#endif  // KORDLL_CONTROL_PANELWND_H_
