// TestHost: a host for tests, which records every call and answers what the
// test scripted.
//
// Each kind of call has its own queue of scripted answers, used in order;
// when a queue is empty the call gets the headless answer (see HeadlessHost),
// without writing anything to standard error. Every call is recorded, in
// order, with what it was given and what it answered.
//
//   kordll::TestHost host;
//   kordll::Host::Install(&host);
//   host.QueueMenuChoice(29301);
//   ... the code under test shows a popup menu and acts on 29301 ...
//   EXPECT_EQ(host.CountOf(kordll::TestHost::CallKind::kTrackPopupMenu), 1);
//   kordll::Host::Install(nullptr);
//
// Thread-safe. Callbacks into the library (a dialog's handler, a progress
// window's client) run with no lock of the host held, so they may call the
// host again. REQUIRES: the host outlives the progress windows it made and is
// uninstalled before it is destroyed.

#ifndef KORDLL_TESTS_SUPPORT_TESTHOST_H_
#define KORDLL_TESTS_SUPPORT_TESTHOST_H_

#include <deque>
#include <mutex>
#include <optional>
#include <vector>

#include "kordll/platform/Host.h"

namespace kordll {

class TestHost : public Host {
 public:
  enum class CallKind {
    kDoModal,
    kTrackPopupMenu,
    kCreateProgressWindow,
    kProgressShow,
    kProgressHide,
    kProgressInvalidate,
    kProgressDestroy,
    kGetSaveFileName,
    kMessageBox,
    kShellExecute,
    kPlaySound,
    kHideMainWindow,
    kShowNotice,
  };

  // One press in a dialog: a button (1 to 3), or with button 0 a command of
  // the application's range.
  struct DialogPress {
    int button = 3;
    int command = -1;
    int checkValue = -1;  // scripted: -1 keeps the dialog's own
    int x = 0;
    int y = 0;
  };

  struct Call {
    CallKind kind;
    // kMessageBox: text and caption. kShellExecute: file and operation.
    // kPlaySound: the path. kDoModal: the dialog's text and title.
    CString text;
    CString caption;
    CString parameters;  // kShellExecute
    CString directory;   // kShellExecute
    // Message box type, menu flags, sound flags, file dialog flags,
    // ShellExecute show command.
    unsigned flags = 0;
    int x = 0;
    int y = 0;
    intptr_t owner = 0;                      // kTrackPopupMenu
    std::vector<HostMenuItem> menu;          // kTrackPopupMenu
    HostDialog dialog;                       // kDoModal
    std::vector<DialogPress> presses;        // kDoModal: what was reported
    HostFileDialog fileDialog;               // kGetSaveFileName
    HostNotice notice;                       // kShowNotice
    int window = -1;                         // progress calls: the window's index
    ProgressPart part = ProgressPart::kAll;  // kProgressInvalidate
    intptr_t answer = 0;                     // what the call answered
    CString answerText;                      // kGetSaveFileName: the path given
  };

  TestHost() = default;
  ~TestHost() override;

  // ---- Scripting ----------------------------------------------------------
  // The next dialog reports these presses in order until its handler closes
  // it; a dialog left open at the end of its script is closed with button 3.
  // One script is used per DoModal.
  void QueueDialog(std::vector<DialogPress> presses);
  // A dialog press with the dialog's own check value.
  static DialogPress Press(int button);
  static DialogPress PressWithCheck(int button, int check_value);
  static DialogPress ChooseCommand(int command);
  void QueueMenuChoice(int command);
  void QueueSaveFile(int answer, const CString& path);
  void QueueMessageBoxAnswer(int answer);
  void QueueShellExecuteAnswer(intptr_t answer);
  void QueuePlaySoundAnswer(int answer);
  // While set, CreateProgressWindow answers null.
  void SetProgressWindowsFail(bool fail);

  // ---- What happened ------------------------------------------------------
  std::vector<Call> calls() const;
  int CountOf(CallKind kind) const;
  std::optional<Call> LastOf(CallKind kind) const;
  // Forgets the recorded calls (not the scripts).
  void ClearCalls();

  // Progress windows made so far, by index in order of creation.
  int ProgressWindowCount() const;
  bool IsProgressWindowAlive(int window) const;
  bool IsProgressWindowVisible(int window) const;
  // Clicks a button of a live window: the client hears OnProgressButton.
  // Returns false for a destroyed or unknown window.
  bool ClickProgressButton(int window, int button);

  // ---- Host ---------------------------------------------------------------
  int DoModal(const HostDialog& dialog, HostDialogHandler* handler) override;
  int TrackPopupMenu(const std::vector<HostMenuItem>& menu, unsigned flags, int x, int y,
                     intptr_t owner) override;
  std::unique_ptr<HostProgressWindow> CreateProgressWindow(HostProgressClient* client) override;
  int GetSaveFileName(const HostFileDialog& dialog, CString* path) override;
  int MessageBox(const CString& text, const CString& caption, unsigned type) override;
  intptr_t ShellExecute(const CString& operation, const CString& file, const CString& parameters,
                        const CString& directory, int showCommand) override;
  int PlaySound(const CString& path, unsigned flags) override;
  void HideMainWindow() override;
  // Recorded (the notice kept whole, so a test can choose an action
  // through notice.onAction); answers 1.
  int ShowNotice(const HostNotice& notice) override;

 private:
  class Window;
  struct WindowState {
    HostProgressClient* client = nullptr;
    bool alive = true;
    bool visible = false;
  };

  void Record(Call call);
  void OnWindowShow(int window, bool visible);
  void OnWindowInvalidate(int window, ProgressPart part);
  void OnWindowDestroyed(int window);

  mutable std::mutex mutex_;
  // State below is protected by mutex_.
  std::vector<Call> calls_;
  std::deque<std::vector<DialogPress>> dialogs_;
  std::deque<int> menus_;
  std::deque<std::pair<int, CString>> save_files_;
  std::deque<int> message_boxes_;
  std::deque<intptr_t> shell_executes_;
  std::deque<int> sounds_;
  bool progress_fail_ = false;
  std::vector<WindowState> windows_;
};

}  // namespace kordll

#endif  // KORDLL_TESTS_SUPPORT_TESTHOST_H_
