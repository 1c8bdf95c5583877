#include "kordll/talk/ProgressData.h"

#include <climits>
#include <cstdint>

#include "kordll/control/GlobalResourceCtrl.h"

namespace kordll {

namespace {

int Saturate(int64_t value) {
  if (value > INT_MAX) return INT_MAX;
  if (value < INT_MIN) return INT_MIN;
  return static_cast<int>(value);
}

void TellCaption(ProgressData* progress, const CString& caption) {
  progress->UpdateProgressCaption(caption);
}

void TellPoint(ProgressData* progress, int done, int total, int additive) {
  progress->UpdateProgressPoint(done, total, additive);
}

// Installs the reporters when the library is loaded.
[[maybe_unused]] const bool kReportersInstalled = (InstallProgressReporters(), true);

}  // namespace

void InstallProgressReporters() {
  GlobalResourceCtrl::SetProgressReporters(TellCaption, TellPoint);
}

class ProgressData::Hold {
 public:
  explicit Hold(ProgressData* progress) : progress_(progress) {
    CSingleLock hold(progress->lock_);
    held_ = progress->referenceCount_ > 1;
    if (held_) ++progress->referenceCount_;
  }
  ~Hold() {
    if (held_) progress_->Release();
  }
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

 private:
  ProgressData* progress_;
  bool held_;
};

ProgressData::ProgressData()
    : firstCaption_("Cancel"), secondCaption_("Open"), thirdCaption_("Hide") {}

ProgressData::~ProgressData() = default;

void ProgressData::Reserve() {
  CSingleLock hold(lock_);
  ++referenceCount_;
}

int ProgressData::Release() {
  {
    CSingleLock hold(lock_);
    if (--referenceCount_ > 1) return 0;
  }
  delete this;
  return 1;
}

int ProgressData::GetProgressPercentage() {
  std::lock_guard<std::mutex> hold(mutex_);
  if (total_ == 0) return 0;
  return Saturate(static_cast<int64_t>(point_) * 100 / total_);
}

int ProgressData::GetProgressPoint() {
  std::lock_guard<std::mutex> hold(mutex_);
  return point_;
}

int ProgressData::GetProgressTotal() {
  std::lock_guard<std::mutex> hold(mutex_);
  return total_;
}

CString ProgressData::GetProgressCaption() {
  std::lock_guard<std::mutex> hold(mutex_);
  return caption_;
}

void ProgressData::UpdateProgressPoint(int point, int total, int additive) {
  bool changed;
  {
    std::lock_guard<std::mutex> hold(mutex_);
    int newTotal = total != -1 ? total : total_;
    int newPoint = additive == 0 ? point : Saturate(static_cast<int64_t>(point_) + point);
    if (newPoint > newTotal) newPoint = newTotal;
    changed = newPoint != point_ || newTotal != total_;
    point_ = newPoint;
    total_ = newTotal;
  }
  if (changed) Repaint(ProgressPart::kBar, true);
}

void ProgressData::UpdateProgressCaption(CString caption) {
  SetText(&caption_, caption, ProgressPart::kCaption, true);
}

void ProgressData::EnableCancelButton(int enable) {
  SetInt(&cancelEnabled_, enable, ProgressPart::kButton1);
}

void ProgressData::EnableOpenButton(int enable) {
  SetInt(&openEnabled_, enable, ProgressPart::kButton2);
}

void ProgressData::EnableHideButton(int enable) {
  SetInt(&hideEnabled_, enable, ProgressPart::kButton3);
}

void ProgressData::SetFirstButtonCaption(CString caption) {
  SetText(&firstCaption_, caption, ProgressPart::kButton1, false);
}

void ProgressData::SetSecondButtonCaption(CString caption) {
  SetText(&secondCaption_, caption, ProgressPart::kButton2, false);
}

void ProgressData::SetThirdButtonCaption(CString caption) {
  SetText(&thirdCaption_, caption, ProgressPart::kButton3, false);
}

void ProgressData::SetCommandText(CString text) {
  std::lock_guard<std::mutex> hold(mutex_);
  commandText_ = text;
}

int ProgressData::ShowProgressWnd() {
  if (Window() == nullptr) {
    // Made outside the field lock: the host may ask the report at once.
    std::unique_ptr<HostProgressWindow> made = Host::Current()->CreateProgressWindow(this);
    if (made == nullptr) return 0;
    std::lock_guard<std::mutex> hold(mutex_);
    window_ = std::move(made);
  }
  if (windowVisible_.exchange(1) == 0) Reserve();
  Window()->Show();
  return 1;
}

void ProgressData::HideProgressWnd() {
  HostProgressWindow* window = Window();
  if (window == nullptr || windowVisible_.exchange(0) == 0) return;
  window->Hide();
  Release();  // may delete this report
}

void ProgressData::AbortProgress() {
  Hold hold(this);
  aborted_.store(1);
  UpdateProgressCaption("Cancelling ...");
  int command = abortCommand_.load();
  if (command == -1) return;
  SendCommand(command);
  HideProgressWnd();
}

void ProgressData::SendOpenMessage() {
  Hold hold(this);
  int command = openCommand_.load();
  if (command == -1) return;
  HideProgressWnd();
  SendCommand(command);
}

void ProgressData::SendHideMessage() {
  Hold hold(this);
  HideProgressWnd();
  int command = hideCommand_.load();
  if (command != -1) SendCommand(command);
}

CString ProgressData::GetProgressButtonCaption(int button) {
  std::lock_guard<std::mutex> hold(mutex_);
  switch (button) {
    case 1:
      return firstCaption_;
    case 2:
      return secondCaption_;
    case 3:
      return thirdCaption_;
  }
  return CString();
}

bool ProgressData::IsProgressButtonEnabled(int button) {
  std::lock_guard<std::mutex> hold(mutex_);
  switch (button) {
    case 1:
      return cancelEnabled_ != 0;
    case 2:
      return openEnabled_ != 0;
    case 3:
      return hideEnabled_ != 0;
  }
  return false;
}

void ProgressData::OnProgressButton(int button) {
  if (Window() == nullptr || !IsProgressButtonEnabled(button)) return;
  if (button == 1) {
    AbortProgress();
  } else if (button == 2) {
    SendOpenMessage();
  } else if (button == 3) {
    SendHideMessage();
  }
}

void ProgressData::SendCommand(int command) {
  PANELVIEWMESSAGE message;
  message.message = command;
  {
    std::lock_guard<std::mutex> hold(mutex_);
    message.text = commandText_;
  }
  message.object = reinterpret_cast<intptr_t>(this);
  int result = 0;
  GlobalResourceCtrl::InterpretGUICommand(&message, &result);
}

HostProgressWindow* ProgressData::Window() {
  std::lock_guard<std::mutex> hold(mutex_);
  return window_.get();
}

void ProgressData::Repaint(ProgressPart part, bool visibleOnly) {
  if (visibleOnly && windowVisible_.load() == 0) return;
  // The window, once made, lives as long as the report, which the caller
  // holds: it may be used outside the lock.
  HostProgressWindow* window = Window();
  if (window != nullptr) window->Invalidate(part);
}

void ProgressData::SetInt(int* field, int value, ProgressPart part) {
  {
    std::lock_guard<std::mutex> hold(mutex_);
    if (*field == value) return;
    *field = value;
  }
  Repaint(part, false);
}

void ProgressData::SetText(CString* field, const CString& value, ProgressPart part,
                           bool visibleOnly) {
  {
    std::lock_guard<std::mutex> hold(mutex_);
    if (*field == value) return;
    *field = value;
  }
  Repaint(part, visibleOnly);
}

}  // namespace kordll
