#include "kordll/platform/CWnd.h"

#include <mutex>
#include <unordered_map>

#include "kordll/platform/CWinThread.h"

namespace kordll {

namespace {

struct Target {
  CWnd* wnd;
  std::shared_ptr<MessageQueue> queue;
};

// Live targets by handle. Posting holds this lock while it appends to the
// target's queue, and destroying holds it while it takes the target's
// messages out of the queue, so that nothing is appended for a target after
// its leftovers were handed back. Lock order: this lock, then a queue's lock.
// Never destroyed (threads may still post during process exit).
struct TargetRegistry {
  std::mutex mu;
  std::unordered_map<HWND, Target> targets;  // guarded by mu
  HWND next_hwnd = 1;                        // guarded by mu; never reused
};

TargetRegistry& Registry() {
  static TargetRegistry* registry = new TargetRegistry();
  return *registry;
}

}  // namespace

CWnd::CWnd() = default;

CWnd::~CWnd() {
  if (hwnd_ == 0) return;
  TargetRegistry& registry = Registry();
  std::lock_guard<std::mutex> lock(registry.mu);
  if (registry.targets.erase(hwnd_) > 0) queue_->RemoveTargetMessages(hwnd_);
}

int CWnd::Create() {
  if (hwnd_ != 0) return 0;
  std::shared_ptr<MessageQueue> queue = MessageQueue::Current(true);
  if (!queue || queue->IsClosed()) return 0;
  TargetRegistry& registry = Registry();
  std::lock_guard<std::mutex> lock(registry.mu);
  hwnd_ = registry.next_hwnd++;
  queue_ = queue;
  registry.targets[hwnd_] = Target{this, queue};
  return 1;
}

int CWnd::DestroyWindow() {
  if (hwnd_ == 0) return 0;
  std::vector<MSG> left;
  {
    TargetRegistry& registry = Registry();
    std::lock_guard<std::mutex> lock(registry.mu);
    if (registry.targets.erase(hwnd_) == 0) return 0;
    left = queue_->RemoveTargetMessages(hwnd_);
  }
  for (const MSG& msg : left) OnDiscardedMessage(msg);
  return 1;
}

int CWnd::IsWindow() const { return kordll::IsWindow(hwnd_); }

unsigned CWnd::GetOwnerThreadId() const { return queue_ ? queue_->thread_id() : 0; }

int CWnd::PostMessage(unsigned message, std::intptr_t wParam, std::intptr_t lParam) {
  return kordll::PostMessage(hwnd_, message, wParam, lParam);
}

std::intptr_t CWnd::SendMessage(unsigned message, std::intptr_t wParam, std::intptr_t lParam) {
  return kordll::SendMessage(hwnd_, message, wParam, lParam);
}

std::intptr_t CWnd::WindowProc(unsigned, std::intptr_t, std::intptr_t) { return 0; }

void CWnd::OnDiscardedMessage(const MSG&) {}

int IsWindow(HWND hwnd) {
  if (hwnd == 0) return 0;
  std::shared_ptr<MessageQueue> queue;
  {
    TargetRegistry& registry = Registry();
    std::lock_guard<std::mutex> lock(registry.mu);
    auto it = registry.targets.find(hwnd);
    if (it == registry.targets.end()) return 0;
    queue = it->second.queue;
  }
  return queue->IsClosed() ? 0 : 1;
}

int PostMessage(HWND hwnd, unsigned message, std::intptr_t wParam, std::intptr_t lParam) {
  if (hwnd == 0) return 0;
  TargetRegistry& registry = Registry();
  std::lock_guard<std::mutex> lock(registry.mu);
  auto it = registry.targets.find(hwnd);
  if (it == registry.targets.end()) return 0;
  MSG msg;
  msg.hwnd = hwnd;
  msg.message = message;
  msg.wParam = wParam;
  msg.lParam = lParam;
  return it->second.queue->Post(msg);
}

std::intptr_t SendMessage(HWND hwnd, unsigned message, std::intptr_t wParam, std::intptr_t lParam) {
  if (hwnd == 0) return 0;
  TargetRegistry& registry = Registry();
  std::shared_ptr<MessageQueue> target;
  {
    std::lock_guard<std::mutex> lock(registry.mu);
    auto it = registry.targets.find(hwnd);
    if (it == registry.targets.end()) return 0;
    target = it->second.queue;
  }
  if (target == MessageQueue::Current(false)) {
    // The owning thread: the handler runs at once, as a direct call.
    MSG msg;
    msg.hwnd = hwnd;
    msg.message = message;
    msg.wParam = wParam;
    msg.lParam = lParam;
    return DispatchMessage(msg);
  }
  // Another thread: queue it ahead of posted messages and wait for the
  // owner to run it. The sender needs a queue of its own to be answered on
  // (and to run what is sent to it meanwhile).
  std::shared_ptr<MessageQueue> self = MessageQueue::Current(true);
  if (!self || self->IsClosed()) return 0;
  auto sent = std::make_shared<MessageQueue::Sent>();
  sent->msg.hwnd = hwnd;
  sent->msg.message = message;
  sent->msg.wParam = wParam;
  sent->msg.lParam = lParam;
  sent->sender = self;
  {
    std::lock_guard<std::mutex> lock(registry.mu);
    if (registry.targets.find(hwnd) == registry.targets.end()) return 0;
    if (!target->PostSent(sent)) return 0;
  }
  return self->WaitForReply(sent);
}

CWnd* FromHandle(HWND hwnd) {
  if (hwnd == 0) return nullptr;
  TargetRegistry& registry = Registry();
  std::lock_guard<std::mutex> lock(registry.mu);
  auto it = registry.targets.find(hwnd);
  return it == registry.targets.end() ? nullptr : it->second.wnd;
}

}  // namespace kordll
