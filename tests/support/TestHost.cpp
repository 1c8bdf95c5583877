#include "tests/support/TestHost.h"

#include "kordll/platform/HeadlessHost.h"

namespace kordll {

// A progress window that reports what is done to it to its host.
class TestHost::Window : public HostProgressWindow {
 public:
  Window(TestHost* host, int index) : host_(host), index_(index) {}
  ~Window() override { host_->OnWindowDestroyed(index_); }
  void Show() override { host_->OnWindowShow(index_, true); }
  void Hide() override { host_->OnWindowShow(index_, false); }
  bool IsVisible() const override { return host_->IsProgressWindowVisible(index_); }
  void Invalidate(ProgressPart part) override { host_->OnWindowInvalidate(index_, part); }

 private:
  TestHost* const host_;
  const int index_;
};

TestHost::~TestHost() = default;

// ---- Scripting --------------------------------------------------------------

void TestHost::QueueDialog(std::vector<DialogPress> presses) {
  std::lock_guard<std::mutex> lock(mutex_);
  dialogs_.push_back(std::move(presses));
}

TestHost::DialogPress TestHost::Press(int button) {
  DialogPress press;
  press.button = button;
  return press;
}

TestHost::DialogPress TestHost::PressWithCheck(int button, int check_value) {
  DialogPress press;
  press.button = button;
  press.checkValue = check_value;
  return press;
}

TestHost::DialogPress TestHost::ChooseCommand(int command) {
  DialogPress press;
  press.button = 0;
  press.command = command;
  return press;
}

void TestHost::QueueMenuChoice(int command) {
  std::lock_guard<std::mutex> lock(mutex_);
  menus_.push_back(command);
}

void TestHost::QueueSaveFile(int answer, const CString& path) {
  std::lock_guard<std::mutex> lock(mutex_);
  save_files_.emplace_back(answer, path);
}

void TestHost::QueueMessageBoxAnswer(int answer) {
  std::lock_guard<std::mutex> lock(mutex_);
  message_boxes_.push_back(answer);
}

void TestHost::QueueShellExecuteAnswer(intptr_t answer) {
  std::lock_guard<std::mutex> lock(mutex_);
  shell_executes_.push_back(answer);
}

void TestHost::QueuePlaySoundAnswer(int answer) {
  std::lock_guard<std::mutex> lock(mutex_);
  sounds_.push_back(answer);
}

void TestHost::SetProgressWindowsFail(bool fail) {
  std::lock_guard<std::mutex> lock(mutex_);
  progress_fail_ = fail;
}

// ---- What happened ----------------------------------------------------------

std::vector<TestHost::Call> TestHost::calls() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return calls_;
}

int TestHost::CountOf(CallKind kind) const {
  std::lock_guard<std::mutex> lock(mutex_);
  int count = 0;
  for (const Call& call : calls_) count += call.kind == kind ? 1 : 0;
  return count;
}

std::optional<TestHost::Call> TestHost::LastOf(CallKind kind) const {
  std::lock_guard<std::mutex> lock(mutex_);
  for (auto it = calls_.rbegin(); it != calls_.rend(); ++it) {
    if (it->kind == kind) return *it;
  }
  return std::nullopt;
}

void TestHost::ClearCalls() {
  std::lock_guard<std::mutex> lock(mutex_);
  calls_.clear();
}

int TestHost::ProgressWindowCount() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return static_cast<int>(windows_.size());
}

bool TestHost::IsProgressWindowAlive(int window) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return window >= 0 && window < static_cast<int>(windows_.size()) && windows_[window].alive;
}

bool TestHost::IsProgressWindowVisible(int window) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return window >= 0 && window < static_cast<int>(windows_.size()) && windows_[window].alive &&
         windows_[window].visible;
}

bool TestHost::ClickProgressButton(int window, int button) {
  HostProgressClient* client = nullptr;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (window < 0 || window >= static_cast<int>(windows_.size()) || !windows_[window].alive) {
      return false;
    }
    client = windows_[window].client;
  }
  if (client != nullptr) client->OnProgressButton(button);
  return true;
}

void TestHost::Record(Call call) {
  std::lock_guard<std::mutex> lock(mutex_);
  calls_.push_back(std::move(call));
}

void TestHost::OnWindowShow(int window, bool visible) {
  Call call;
  call.kind = visible ? CallKind::kProgressShow : CallKind::kProgressHide;
  call.window = window;
  std::lock_guard<std::mutex> lock(mutex_);
  if (window >= 0 && window < static_cast<int>(windows_.size())) {
    windows_[window].visible = visible;
  }
  calls_.push_back(std::move(call));
}

void TestHost::OnWindowInvalidate(int window, ProgressPart part) {
  Call call;
  call.kind = CallKind::kProgressInvalidate;
  call.window = window;
  call.part = part;
  Record(std::move(call));
}

void TestHost::OnWindowDestroyed(int window) {
  Call call;
  call.kind = CallKind::kProgressDestroy;
  call.window = window;
  std::lock_guard<std::mutex> lock(mutex_);
  if (window >= 0 && window < static_cast<int>(windows_.size())) {
    windows_[window].alive = false;
    windows_[window].visible = false;
  }
  calls_.push_back(std::move(call));
}

// ---- Host -------------------------------------------------------------------

int TestHost::DoModal(const HostDialog& dialog, HostDialogHandler* handler) {
  Call call;
  call.kind = CallKind::kDoModal;
  call.text = dialog.text;
  call.caption = dialog.title;
  call.dialog = dialog;
  if (handler == nullptr) {
    Record(std::move(call));
    return 0;
  }
  std::vector<DialogPress> script;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!dialogs_.empty()) {
      script = std::move(dialogs_.front());
      dialogs_.pop_front();
    }
  }
  // The dialog is recorded before the handler runs, so that calls the
  // handler makes (a menu from the second button) come after it.
  size_t index;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    index = calls_.size();
    calls_.push_back(call);
  }
  bool closed = false;
  int check = dialog.checkValue;
  auto report = [&](DialogPress press) {
    if (press.checkValue == -1) press.checkValue = check;
    check = press.checkValue;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (index < calls_.size()) calls_[index].presses.push_back(press);
    }
    closed = press.button == 0
                 ? handler->OnDialogCommand(press.command, press.checkValue)
                 : handler->OnDialogButton(press.button, press.checkValue, press.x, press.y);
  };
  for (const DialogPress& press : script) {
    if (closed) break;
    report(press);
  }
  // A dialog still open when its script ends is closed as the headless host
  // closes it, whatever the handler answers, so that no test can hang here.
  if (!closed) report(Press(3));
  return IDOK;
}

int TestHost::TrackPopupMenu(const std::vector<HostMenuItem>& menu, unsigned flags, int x, int y,
                             intptr_t owner) {
  Call call;
  call.kind = CallKind::kTrackPopupMenu;
  call.menu = menu;
  call.flags = flags;
  call.x = x;
  call.y = y;
  call.owner = owner;
  std::lock_guard<std::mutex> lock(mutex_);
  int answer = 0;
  if (!menus_.empty()) {
    answer = menus_.front();
    menus_.pop_front();
  }
  call.answer = answer;
  calls_.push_back(std::move(call));
  return answer;
}

std::unique_ptr<HostProgressWindow> TestHost::CreateProgressWindow(HostProgressClient* client) {
  Call call;
  call.kind = CallKind::kCreateProgressWindow;
  std::lock_guard<std::mutex> lock(mutex_);
  if (progress_fail_ || client == nullptr) {
    call.answer = 0;
    calls_.push_back(std::move(call));
    return nullptr;
  }
  int index = static_cast<int>(windows_.size());
  WindowState state;
  state.client = client;
  windows_.push_back(state);
  call.window = index;
  call.answer = 1;
  calls_.push_back(std::move(call));
  return std::make_unique<Window>(this, index);
}

int TestHost::GetSaveFileName(const HostFileDialog& dialog, CString* path) {
  Call call;
  call.kind = CallKind::kGetSaveFileName;
  call.fileDialog = dialog;
  call.flags = dialog.flags;
  std::lock_guard<std::mutex> lock(mutex_);
  int answer = IDCANCEL;
  if (!save_files_.empty()) {
    answer = save_files_.front().first;
    call.answerText = save_files_.front().second;
    save_files_.pop_front();
    if (answer == IDOK && path != nullptr) *path = call.answerText;
  }
  call.answer = answer;
  calls_.push_back(std::move(call));
  return answer;
}

int TestHost::MessageBox(const CString& text, const CString& caption, unsigned type) {
  Call call;
  call.kind = CallKind::kMessageBox;
  call.text = text;
  call.caption = caption;
  call.flags = type;
  std::lock_guard<std::mutex> lock(mutex_);
  int answer = HeadlessHost::ClosedMessageBoxAnswer(type);
  if (!message_boxes_.empty()) {
    answer = message_boxes_.front();
    message_boxes_.pop_front();
  }
  call.answer = answer;
  calls_.push_back(std::move(call));
  return answer;
}

intptr_t TestHost::ShellExecute(const CString& operation, const CString& file,
                                const CString& parameters, const CString& directory,
                                int showCommand) {
  Call call;
  call.kind = CallKind::kShellExecute;
  call.caption = operation;
  call.text = file;
  call.parameters = parameters;
  call.directory = directory;
  call.flags = static_cast<unsigned>(showCommand);
  std::lock_guard<std::mutex> lock(mutex_);
  intptr_t answer = 0;
  if (!shell_executes_.empty()) {
    answer = shell_executes_.front();
    shell_executes_.pop_front();
  }
  call.answer = answer;
  calls_.push_back(std::move(call));
  return answer;
}

int TestHost::PlaySound(const CString& path, unsigned flags) {
  Call call;
  call.kind = CallKind::kPlaySound;
  call.text = path;
  call.flags = flags;
  std::lock_guard<std::mutex> lock(mutex_);
  int answer = 0;
  if (!sounds_.empty()) {
    answer = sounds_.front();
    sounds_.pop_front();
  }
  call.answer = answer;
  calls_.push_back(std::move(call));
  return answer;
}

void TestHost::HideMainWindow() {
  Call call;
  call.kind = CallKind::kHideMainWindow;
  Record(std::move(call));
}

}  // namespace kordll
