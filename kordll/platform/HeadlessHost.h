// HeadlessHost: the host of a program without a screen, and the library's
// default until the application installs its own.
//
// It answers as a user who closes everything: a dialog is closed with its
// third button, a popup menu chooses nothing, the save dialog is cancelled,
// a message box goes to standard error and answers as if closed, documents
// are not opened (answer 0), sounds are silent, and the progress window
// exists only as bookkeeping. Any thread may call it.

#ifndef KORDLL_PLATFORM_HEADLESSHOST_H_
#define KORDLL_PLATFORM_HEADLESSHOST_H_

#include "kordll/platform/Host.h"

namespace kordll {

class HeadlessHost : public Host {
 public:
  HeadlessHost() = default;
  ~HeadlessHost() override = default;

  // Reports button 3 with the dialog's own check value, once, and closes
  // whatever the handler answers.
  int DoModal(const HostDialog& dialog, HostDialogHandler* handler) override;
  int TrackPopupMenu(const std::vector<HostMenuItem>& menu, unsigned flags, int x, int y,
                     intptr_t owner) override;
  // A window that is never drawn but knows whether it is "visible".
  std::unique_ptr<HostProgressWindow> CreateProgressWindow(HostProgressClient* client) override;
  int GetSaveFileName(const HostFileDialog& dialog, CString* path) override;
  // Writes "caption: text" to standard error and answers the button that
  // closing the box gives: IDOK, IDCANCEL where there is a Cancel button,
  // IDNO for yes/no, IDABORT for abort/retry/ignore.
  int MessageBox(const CString& text, const CString& caption, unsigned type) override;
  intptr_t ShellExecute(const CString& operation, const CString& file, const CString& parameters,
                        const CString& directory, int showCommand) override;
  int PlaySound(const CString& path, unsigned flags) override;
  void HideMainWindow() override;

  // The answer a closed message box of this type gives.
  static int ClosedMessageBoxAnswer(unsigned type);
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_HEADLESSHOST_H_
