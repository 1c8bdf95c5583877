// ProgressData: a shared progress report. A worker updates it; any number
// of viewers read it. It can show itself in a small window of its own (made
// by the host) with a caption, a bar with the percentage, and three buttons.
// The buttons never call back into the worker: each sends its numbered GUI
// command through the registry of controllers, with this report in the
// command's object and commandText in its text, so that whichever
// controller owns the job answers it.
//
// References: the count starts at 1, and that 1 is a floor that stands for
// no holder. Every holder, the shown window included, takes its own Reserve.
// The Release that leaves the count at 1 or less deletes the report, so a
// Reserve and a Release on a new report delete it. Never delete one
// directly.
//
// Thread safety: any thread may update the point, the caption, the button
// states and captions, and read any of them; each of those takes the
// report's field lock, and the window is asked to repaint after that lock is
// left. Reserve and Release take the reference lock. Show and Hide come from
// the thread that shows the window; the buttons act on the host's thread. A
// thread that uses a report must hold a reference on it (or be its creator
// and not have let it go).

#ifndef KORDLL_TALK_PROGRESSDATA_H_
#define KORDLL_TALK_PROGRESSDATA_H_

#include <atomic>
#include <memory>
#include <mutex>

#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/platform/CCriticalSection.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/Host.h"

namespace kordll {

class ProgressData : private HostProgressClient {
 public:
  // Empty caption, point and total 0, no window; the first button "Cancel"
  // (enabled, sends nothing), the second "Open" (disabled, sends nothing),
  // the third "Hide" (enabled, sends kCommandRedrawTalk: the talk that holds
  // the report is drawn again).
  ProgressData();
  ProgressData(const ProgressData&) = delete;
  ProgressData& operator=(const ProgressData&) = delete;
  // Destroys the window, if one was made.
  virtual ~ProgressData();

  // Adds a holder.
  void Reserve();
  // Takes a holder away. When the count comes back to 1 or less the report
  // is deleted and the answer is 1; otherwise 0.
  int Release();

  // 0 while the total is 0; otherwise point * 100 / total in integers,
  // computed without overflow and held within the int range.
  int GetProgressPercentage() override;
  int GetProgressPoint();
  int GetProgressTotal();
  CString GetProgressCaption() override;

  // Unless total is -1 it replaces the total. With additive 0 the point is
  // set, otherwise added to (saturating); either way it is then held at the
  // total. A shown window repaints its bar when point or total changed.
  void UpdateProgressPoint(int point, int total, int additive);
  // A shown window repaints its caption when the caption changed.
  void UpdateProgressCaption(CString caption);

  // Each stores its value; when the value changed and a window was made
  // (shown or not), the button is repainted.
  void EnableCancelButton(int enable);
  void EnableOpenButton(int enable);
  void EnableHideButton(int enable);
  void SetFirstButtonCaption(CString caption);
  void SetSecondButtonCaption(CString caption);
  void SetThirdButtonCaption(CString caption);

  // The GUI commands of the three buttons; -1 sends nothing. commandText
  // goes with each of them.
  void SetAbortCommand(int command) { abortCommand_.store(command); }
  void SetOpenCommand(int command) { openCommand_.store(command); }
  void SetHideCommand(int command) { hideCommand_.store(command); }
  void SetCommandText(CString text);
  // Whether opening the finished job's talk opens the job's result rather
  // than this window. Written by the owner, read by the talk.
  void SetOpenAtEnd(int open) { openAtEnd_.store(open); }
  int IsOpenAtEnd() const { return openAtEnd_.load(); }
  // Set once the user cancelled; the worker polls it.
  int IsProgressAborted() const { return aborted_.load(); }

  // Makes the window on first use (through the installed host) and shows it
  // centred; a report whose window is shown holds one reference of its own
  // until it is hidden. 1 on success; 0 when no window could be made, and
  // the report then goes on without one.
  int ShowProgressWnd();
  // Hides a shown window and gives up its reference, which may delete the
  // report. Does nothing when no window is shown.
  void HideProgressWnd();
  int IsProgressReportWndVisible() const { return windowVisible_.load(); }

  // What the three buttons do. AbortProgress marks the job cancelled, sets
  // the caption "Cancelling ...", and if there is an abort command sends it
  // and hides the window. SendOpenMessage hides and sends the open command,
  // if there is one. SendHideMessage hides, then sends the hide command
  // unless it is -1. Each may end with the report deleted, when the command
  // or the hiding let go of the last holder: the caller must not touch the
  // report afterwards unless it holds a reference of its own.
  void AbortProgress();
  void SendOpenMessage();
  void SendHideMessage();

 private:
  // Keeps a held report alive for the length of one operation whose steps
  // may let its other holders go. A report that nobody holds yet (count 1)
  // is not reserved, so that the operation does not delete it at the end.
  class Hold;

  // The window's questions and clicks, from the host.
  CString GetProgressButtonCaption(int button) override;
  bool IsProgressButtonEnabled(int button) override;
  void OnProgressButton(int button) override;

  // Sends `command` with commandText and this report as its object.
  void SendCommand(int command);
  // The window, if made. It is made once and lives until the destructor.
  HostProgressWindow* Window();
  // Asks the window, if made (and, with visibleOnly, shown), to repaint.
  void Repaint(ProgressPart part, bool visibleOnly);
  // Stores value in *field and repaints the part when it changed.
  void SetInt(int* field, int value, ProgressPart part);
  void SetText(CString* field, const CString& value, ProgressPart part, bool visibleOnly);

  CCriticalSection lock_;
  int referenceCount_ GUARDED_BY(lock_) = 1;

  std::mutex mutex_;
  // State below is protected by mutex_.
  CString caption_;
  int point_ = 0;
  int total_ = 0;
  CString commandText_;
  int cancelEnabled_ = 1;
  int openEnabled_ = 0;
  int hideEnabled_ = 1;
  CString firstCaption_;
  CString secondCaption_;
  CString thirdCaption_;
  std::unique_ptr<HostProgressWindow> window_;

  std::atomic<int> abortCommand_{-1};
  std::atomic<int> openCommand_{-1};
  std::atomic<int> hideCommand_{kCommandRedrawTalk};
  std::atomic<int> windowVisible_{0};
  std::atomic<int> openAtEnd_{0};
  std::atomic<int> aborted_{0};
};

// Lets the registry of controllers tell a progress report how the closing
// of the controllers at log-off goes (its caption and its point). Loading
// the library calls it; calling it again changes nothing.
void InstallProgressReporters();

}  // namespace kordll

#endif  // KORDLL_TALK_PROGRESSDATA_H_
