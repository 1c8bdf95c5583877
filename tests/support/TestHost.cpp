#include "tests/support/TestHost.h"

#include "kordll/platform/HeadlessHost.h"

namespace kordll {

namespace {

// The first scripted answer, taken from its queue, or `fallback` when none is left.
template <typename T>
T Next(std::deque<T>* queue, T fallback) {
  if (queue->empty()) return fallback;
  T answer = std::move(queue->front());
  queue->pop_front();
  return answer;
}

// Adds a script entry under the host's lock.
template <typename T, typename V>
void Push(std::mutex& mutex, std::deque<T>* queue, V value) {
  std::lock_guard<std::mutex> lock(mutex);
  queue->push_back(std::move(value));
}

TestHost::Call MakeCall(TestHost::CallKind kind, unsigned flags = 0) {
  TestHost::Call call;
  call.kind = kind;
  call.flags = flags;
  return call;
}

}  // namespace

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
  Push(mutex_, &dialogs_, std::move(presses));
}

TestHost::DialogPress TestHost::Press(int button) { return DialogPress{button}; }

TestHost::DialogPress TestHost::PressWithCheck(int button, int check_value) {
  return DialogPress{button, -1, check_value};
}

TestHost::DialogPress TestHost::ChooseCommand(int command) { return DialogPress{0, command}; }

void TestHost::QueueMenuChoice(int command) { Push(mutex_, &menus_, command); }

void TestHost::QueueSaveFile(int answer, const CString& path) {
  Push(mutex_, &save_files_, std::make_pair(answer, path));
}

void TestHost::QueueMessageBoxAnswer(int answer) { Push(mutex_, &message_boxes_, answer); }

void TestHost::QueueShellExecuteAnswer(intptr_t answer) { Push(mutex_, &shell_executes_, answer); }

void TestHost::QueuePlaySoundAnswer(int answer) { Push(mutex_, &sounds_, answer); }

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
  return window >= 0 && window < static_cast<int>(windows_.size()) && windows_[window].visible;
}

bool TestHost::ClickProgressButton(int window, int button) {
  HostProgressClient* client = nullptr;
  if (!IsProgressWindowAlive(window)) return false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
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
  Call call = MakeCall(visible ? CallKind::kProgressShow : CallKind::kProgressHide);
  call.window = window;
  std::lock_guard<std::mutex> lock(mutex_);
  windows_[window].visible = visible;
  calls_.push_back(std::move(call));
}

void TestHost::OnWindowInvalidate(int window, ProgressPart part) {
  Call call = MakeCall(CallKind::kProgressInvalidate);
  call.window = window;
  call.part = part;
  Record(std::move(call));
}

void TestHost::OnWindowDestroyed(int window) {
  Call call = MakeCall(CallKind::kProgressDestroy);
  call.window = window;
  std::lock_guard<std::mutex> lock(mutex_);
  windows_[window].alive = windows_[window].visible = false;
  calls_.push_back(std::move(call));
}

// ---- Host -------------------------------------------------------------------

int TestHost::DoModal(const HostDialog& dialog, HostDialogHandler* handler) {
  Call call = MakeCall(CallKind::kDoModal);
  call.text = dialog.text;
  call.caption = dialog.title;
  call.dialog = dialog;
  std::vector<DialogPress> script;
  size_t index;
  {
    // The dialog is recorded before the handler runs, so that calls the
    // handler makes (a menu from the second button) come after it.
    std::lock_guard<std::mutex> lock(mutex_);
    index = calls_.size();
    calls_.push_back(std::move(call));
    if (handler == nullptr) return 0;
    script = Next(&dialogs_, std::vector<DialogPress>());
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
  for (size_t i = 0; i < script.size() && !closed; ++i) report(script[i]);
  // A dialog still open when its script ends is closed as the headless host
  // closes it, whatever the handler answers, so that no test can hang here.
  if (!closed) report(Press(3));
  return IDOK;
}

int TestHost::TrackPopupMenu(const std::vector<HostMenuItem>& menu, unsigned flags, int x, int y,
                             intptr_t owner) {
  Call call = MakeCall(CallKind::kTrackPopupMenu, flags);
  call.menu = menu;
  call.x = x;
  call.y = y;
  call.owner = owner;
  std::lock_guard<std::mutex> lock(mutex_);
  call.answer = Next(&menus_, 0);
  calls_.push_back(call);
  return static_cast<int>(call.answer);
}

std::unique_ptr<HostProgressWindow> TestHost::CreateProgressWindow(HostProgressClient* client) {
  Call call = MakeCall(CallKind::kCreateProgressWindow);
  std::lock_guard<std::mutex> lock(mutex_);
  const bool made = !progress_fail_ && client != nullptr;
  if (made) {
    call.window = static_cast<int>(windows_.size());
    windows_.push_back(WindowState{client});
  }
  call.answer = made ? 1 : 0;
  calls_.push_back(call);
  return made ? std::make_unique<Window>(this, call.window) : nullptr;
}

int TestHost::GetSaveFileName(const HostFileDialog& dialog, CString* path) {
  Call call = MakeCall(CallKind::kGetSaveFileName, dialog.flags);
  call.fileDialog = dialog;
  std::lock_guard<std::mutex> lock(mutex_);
  auto [answer, text] = Next(&save_files_, std::pair<int, CString>(IDCANCEL, CString()));
  if (answer == IDOK && path != nullptr) *path = text;
  call.answer = answer;
  call.answerText = text;
  calls_.push_back(std::move(call));
  return answer;
}

int TestHost::MessageBox(const CString& text, const CString& caption, unsigned type) {
  Call call = MakeCall(CallKind::kMessageBox, type);
  call.text = text;
  call.caption = caption;
  std::lock_guard<std::mutex> lock(mutex_);
  call.answer = Next(&message_boxes_, HeadlessHost::ClosedMessageBoxAnswer(type));
  calls_.push_back(call);
  return static_cast<int>(call.answer);
}

intptr_t TestHost::ShellExecute(const CString& operation, const CString& file,
                                const CString& parameters, const CString& directory,
                                int showCommand) {
  Call call = MakeCall(CallKind::kShellExecute, static_cast<unsigned>(showCommand));
  call.caption = operation;
  call.text = file;
  call.parameters = parameters;
  call.directory = directory;
  std::lock_guard<std::mutex> lock(mutex_);
  call.answer = Next<intptr_t>(&shell_executes_, 0);
  calls_.push_back(call);
  return call.answer;
}

int TestHost::PlaySound(const CString& path, unsigned flags) {
  Call call = MakeCall(CallKind::kPlaySound, flags);
  call.text = path;
  std::lock_guard<std::mutex> lock(mutex_);
  call.answer = Next(&sounds_, 0);
  calls_.push_back(call);
  return static_cast<int>(call.answer);
}

void TestHost::HideMainWindow() { Record(MakeCall(CallKind::kHideMainWindow)); }

int TestHost::ShowNotice(const HostNotice& notice) {
  Call call = MakeCall(CallKind::kShowNotice);
  call.text = notice.text;
  call.caption = notice.title;
  call.notice = notice;
  call.answer = 1;
  Record(std::move(call));
  return 1;
}

}  // namespace kordll
