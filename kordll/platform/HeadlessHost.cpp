#include "kordll/platform/HeadlessHost.h"

#include <atomic>
#include <cstdio>
#include <string>

namespace kordll {

namespace {

class HeadlessProgressWindow : public HostProgressWindow {
 public:
  void Show() override { visible_ = true; }
  void Hide() override { visible_ = false; }
  bool IsVisible() const override { return visible_; }
  void Invalidate(ProgressPart) override {}

 private:
  std::atomic<bool> visible_{false};
};

}  // namespace

int HeadlessHost::DoModal(const HostDialog& dialog, HostDialogHandler* handler) {
  if (handler == nullptr) return 0;
  // There is nobody to press another button, so the dialog closes after this
  // one answer even if the handler would keep it open.
  handler->OnDialogButton(3, dialog.checkValue, 0, 0);
  return IDOK;
}

int HeadlessHost::TrackPopupMenu(const std::vector<HostMenuItem>&, unsigned, int, int, intptr_t) {
  return 0;
}

std::unique_ptr<HostProgressWindow> HeadlessHost::CreateProgressWindow(HostProgressClient*) {
  return std::make_unique<HeadlessProgressWindow>();
}

int HeadlessHost::GetSaveFileName(const HostFileDialog&, CString*) { return IDCANCEL; }

int HeadlessHost::ClosedMessageBoxAnswer(unsigned type) {
  switch (type & 0xF) {
    case MB_OK:
      return IDOK;
    case MB_ABORTRETRYIGNORE:
      return IDABORT;
    case MB_YESNO:
      return IDNO;
    default:  // MB_OKCANCEL, MB_YESNOCANCEL, MB_RETRYCANCEL and unknown kinds
      return IDCANCEL;
  }
}

int HeadlessHost::MessageBox(const CString& text, const CString& caption, unsigned type) {
  // One write per box, so that boxes from several threads do not interleave.
  std::string line = caption.ToUtf8() + ": " + text.ToUtf8() + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
  return ClosedMessageBoxAnswer(type);
}

intptr_t HeadlessHost::ShellExecute(const CString&, const CString&, const CString&, const CString&,
                                    int) {
  return 0;
}

int HeadlessHost::PlaySound(const CString&, unsigned) { return 0; }

void HeadlessHost::HideMainWindow() {}

}  // namespace kordll
