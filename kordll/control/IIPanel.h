// IIPanel: what the registry knows of a panel, anything on screen that
// shows the records of one or more controllers.
//
// A panel has an id, is told which controllers it listens to, and receives
// panel messages (the numbers below). The registry of controllers calls
// SendPanelMessage to run the panel's handler on the calling thread, and
// PostPanelMessage to have it run later on the thread that owns the panel's
// window. Every panel message carries a PANELVIEWMESSAGE pointer as the
// third argument, and 0 as the second.
//
// The window (GetPanelWnd) is the panel's only tie to the window system: a
// message target of one thread. A posted message is taken from that
// thread's queue in the order it was posted and reaches the window's
// WindowProc there, which hands it to the panel (a PanelWnd hands it to
// SendPanelMessage, and so to OnSendPanelMessage). A message posted with the heap flag set belongs
// to the receiver from then on: it calls PANELVIEWMESSAGE::DeleteHeapMessage, which releases the
// records the message carries and deletes it. When the window is gone (destroyed, or its thread
// ended) PostPanelMessage answers 0 and the message stays with the sender, who deletes it the same
// way.
//
// Thread safety: the id may be read and set from any thread. LockPanel and
// UnLockPanel guard the panel's own data; the registry never holds a
// panel's lock while it calls the panel. PostPanelMessage may be called
// from any thread while the panel object lives; SendPanelMessage runs the
// handler on the caller's thread, so threads other than the window's post.

#ifndef KORDLL_CONTROL_IIPANEL_H_
#define KORDLL_CONTROL_IIPANEL_H_

#include <atomic>
#include <cstdint>
#include <vector>

#include "kordll/platform/CCriticalSection.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/CWnd.h"
#include "kordll/record/RecordIds.h"

namespace kordll {

struct PANELVIEWMESSAGE;

// Panel ids 0 to 14 belong to panels with a fixed role, set by the
// application with SetIPanelID; the registry gives out ids from 15 on.
// Panel 1 (kMainPanel) shows links and reports: talks send it message 1039.
constexpr int kFirstGeneratedPanelID = 15;

// Panel messages, with the kind the registry puts into the message. These
// numbers are exchanged with the applications' panels and must not change.
constexpr unsigned kPanelMessageLoaded = 1025;           // kind 0: records may be read now
constexpr unsigned kPanelMessageRecordRemoved = 1035;    // kind 2: a record left the controller
constexpr unsigned kPanelMessageRecordAdded = 1037;      // kind 1: a record joined the controller
constexpr unsigned kPanelMessageRecordChanged = 1041;    // kind 3: a record changed
constexpr unsigned kPanelMessageActivityRemoved = 1055;  // kind 2: an activity or file record left
constexpr unsigned kPanelMessageFileChanged = 1056;      // kind 4: a file's state changed
constexpr unsigned kPanelMessageActivityAdded = 1057;    // kind 1: an activity or file record came
constexpr unsigned kPanelMessageDetach = 1058;           // kind 0: the controller goes away
// kPanelMessageShow (1039, RecordIds.h): to the main panel, show the
// enclosure report or link the message describes.

// The kinds that travel with the panel messages above.
constexpr int kPanelKindLoaded = 0;
constexpr int kPanelKindAdded = 1;
constexpr int kPanelKindRemoved = 2;
constexpr int kPanelKindChanged = 3;  // dropped by sends while the application closes
constexpr int kPanelKindFileState = 4;

class IIPanel {
 public:
  // Id -1: none until the registry gives one or SetIPanelID sets it.
  IIPanel();
  // A copy takes the id; its lock is its own and starts unlocked.
  IIPanel(const IIPanel& other);
  // Takes the id; the lock stays this panel's own.
  IIPanel& operator=(const IIPanel& other);

  virtual ~IIPanel();
  virtual void LockPanel();
  virtual void UnLockPanel();
  // Runs OnSendPanelMessage with the same arguments on the calling thread
  // and answers its result (0 if the handler throws).
  virtual long SendPanelMessage(unsigned int message, unsigned int wParam, intptr_t lParam);
  // The panel's handler. Default: 0.
  virtual long OnSendPanelMessage(unsigned int message, unsigned int wParam, intptr_t lParam);
  // Queues the message for the panel's window, to be handled on the
  // window's thread in the order posted. Answers 1 when queued; 0 when the
  // panel has no window, or its window is destroyed or its thread has
  // ended: nothing is queued and any heap message stays with the caller.
  virtual long PostPanelMessage(unsigned int message, unsigned int wParam, intptr_t lParam);
  // The panel's window, or null. The object must stay allocated while the
  // panel can be posted to (destroying the window is allowed at any time on
  // its own thread).
  virtual CWnd* GetPanelWnd() = 0;
  // The ids of the controllers the panel listens to, appended to *ids.
  // Default: nothing.
  virtual void GetRegisteredResources(CArray<int, int>* ids);
  // The registry tells the panel that it now listens to a controller.
  // Default: nothing.
  virtual void AddRegisteredResource(int id);
  // Default: 0.
  virtual int RemoveRegisteredResource(int id);
  // Default: nothing.
  virtual void ClearRegisteredResource();
  // Empties the panel. The user platform calls it with 1, 1 at log-off.
  // Default: nothing.
  virtual void ClearPanel(int clearAll, int clearSelection);
  // Default: nothing.
  virtual void InitializePanel();
  virtual void UpdatePanel();
  // Handles a panel-view message addressed to the panel. Default: nothing.
  virtual void ProcessPVNM(PANELVIEWMESSAGE* message);

  int GetIPanelID() const { return panelID_.load(std::memory_order_acquire); }
  void SetIPanelID(int id) { panelID_.store(id, std::memory_order_release); }

 private:
  std::atomic<int> panelID_;
  CCriticalSection lock_;
};

}  // namespace kordll

#endif  // KORDLL_CONTROL_IIPANEL_H_
