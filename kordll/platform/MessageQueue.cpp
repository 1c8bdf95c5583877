#include "kordll/platform/MessageQueue.h"

#include <atomic>
#include <chrono>
#include <unordered_map>
#include <utility>

#include "kordll/platform/CWinThread.h"
#include "kordll/platform/Clock.h"
#include "kordll/platform/TimerTable.h"

namespace kordll {

namespace {

// Queues by thread id. The queues are owned by their threads (and by anyone
// posting to them); the registry only finds them. It is never destroyed, so
// a detached thread that ends during process exit still finds it.
struct QueueRegistry {
  std::mutex mu;
  std::unordered_map<unsigned, MessageQueue*> queues;  // guarded by mu
};

QueueRegistry& Registry() {
  static QueueRegistry* registry = new QueueRegistry();
  return *registry;
}

std::atomic<unsigned> g_next_thread_id{1};

unsigned NewThreadId() {
  unsigned id = g_next_thread_id.fetch_add(1);
  if (id == 0) id = g_next_thread_id.fetch_add(1);  // after wrap-around
  return id;
}

// The calling thread's queue. A plain thread's queue is closed when the
// thread ends, so that posts to it answer 0 from then on; a CWinThread closes
// its own before this runs and uninstalls it.
struct ThreadQueue {
  std::shared_ptr<MessageQueue> queue;
  ~ThreadQueue() {
    if (queue) queue->Close();
  }
};

thread_local ThreadQueue t_queue;

}  // namespace

MessageQueue::MessageQueue() : thread_id_(NewThreadId()) {
  QueueRegistry& registry = Registry();
  std::lock_guard<std::mutex> lock(registry.mu);
  registry.queues[thread_id_] = this;
}

MessageQueue::~MessageQueue() {
  QueueRegistry& registry = Registry();
  std::lock_guard<std::mutex> lock(registry.mu);
  registry.queues.erase(thread_id_);
}

std::shared_ptr<MessageQueue> MessageQueue::Current(bool create) {
  if (t_queue.queue || !create) return t_queue.queue;
  auto queue = std::make_shared<MessageQueue>();
  t_queue.queue = queue;
  // A worker CWinThread gets the queue its thread made, so that it can be
  // posted to from now on.
  if (CWinThread* thread = AfxGetThread()) thread->AdoptQueue(queue);
  return queue;
}

std::shared_ptr<MessageQueue> MessageQueue::FromThreadId(unsigned thread_id) {
  std::shared_ptr<MessageQueue> queue;
  {
    QueueRegistry& registry = Registry();
    std::lock_guard<std::mutex> lock(registry.mu);
    auto it = registry.queues.find(thread_id);
    if (it == registry.queues.end()) return nullptr;
    // A queue whose last owner is in its destructor gives null here; the
    // destructor waits for the registry lock, so the pointer is still valid.
    queue = it->second->weak_from_this().lock();
  }
  if (queue && queue->IsClosed()) return nullptr;
  return queue;
}

void MessageQueue::InstallForCurrentThread(std::shared_ptr<MessageQueue> queue) {
  t_queue.queue = std::move(queue);
}

int MessageQueue::Post(const MSG& msg) {
  {
    std::lock_guard<std::mutex> lock(mu_);
    if (closed_) return 0;
    posted_.push_back(Entry{msg, false});
  }
  cv_.notify_all();
  return 1;
}

int MessageQueue::PostTimer(unsigned timer_id, std::int64_t time_ms) {
  {
    std::lock_guard<std::mutex> lock(mu_);
    if (closed_) return 0;
    if (!timers_queued_.insert(timer_id).second) return 0;
    MSG msg;
    msg.message = kMsgTimer;
    msg.wParam = static_cast<std::intptr_t>(timer_id);
    msg.lParam = static_cast<std::intptr_t>(time_ms);
    posted_.push_back(Entry{msg, true});
  }
  cv_.notify_all();
  return 1;
}

void MessageQueue::PostQuit(int exit_code) {
  {
    std::lock_guard<std::mutex> lock(mu_);
    if (closed_) return;
    quit_pending_ = true;
    quit_code_ = exit_code;
  }
  cv_.notify_all();
}

int MessageQueue::PostSent(const std::shared_ptr<Sent>& sent) {
  {
    std::lock_guard<std::mutex> lock(mu_);
    if (closed_) return 0;
    sent_.push_back(sent);
  }
  cv_.notify_all();
  return 1;
}

void MessageQueue::Complete(const std::shared_ptr<Sent>& sent, std::intptr_t result) {
  MessageQueue* sender = sent->sender.get();
  {
    std::lock_guard<std::mutex> lock(sender->mu_);
    sent->result = result;
    sent->done = true;
  }
  sender->cv_.notify_all();
}

bool MessageQueue::RunSentLocked(std::unique_lock<std::mutex>& lock) {
  bool ran = false;
  while (!sent_.empty()) {
    std::shared_ptr<Sent> sent = std::move(sent_.front());
    sent_.pop_front();
    lock.unlock();
    // The handler runs without the queue's lock: it may post to this queue
    // or send to another thread. DispatchMessage throws only on a
    // CWinThread, whose thread the exception then ends; the sender is still
    // answered (with 0) first.
    std::intptr_t result = 0;
    try {
      result = DispatchMessage(sent->msg);
    } catch (...) {
      Complete(sent, 0);
      throw;
    }
    Complete(sent, result);
    lock.lock();
    ran = true;
  }
  return ran;
}

bool MessageQueue::TakeLocked(MSG* msg, bool remove) {
  if (!posted_.empty()) {
    *msg = posted_.front().msg;
    if (remove) {
      if (posted_.front().from_timer) timers_queued_.erase(static_cast<unsigned>(msg->wParam));
      posted_.pop_front();
    }
    return true;
  }
  if (quit_pending_) {
    *msg = MSG{};
    msg->message = kMsgQuit;
    msg->wParam = quit_code_;
    if (remove) quit_pending_ = false;
    return true;
  }
  return false;
}

int MessageQueue::Peek(MSG* msg, bool remove) {
  TimerTable::Instance().RaiseDue(this);
  std::unique_lock<std::mutex> lock(mu_);
  RunSentLocked(lock);
  return TakeLocked(msg, remove) ? 1 : 0;
}

void MessageQueue::Get(MSG* msg) {
  for (;;) {
    std::int64_t timer_wait = TimerTable::Instance().RaiseDue(this);
    std::unique_lock<std::mutex> lock(mu_);
    RunSentLocked(lock);
    if (TakeLocked(msg, true)) return;
    if (closed_) {
      // Nothing can arrive any more: the thread is ending, so it is told to
      // quit rather than left waiting for ever.
      *msg = MSG{};
      msg->message = kMsgQuit;
      return;
    }
    if (timer_wait < 0) {
      cv_.wait(lock);
    } else {
      Clock::WaitUntil(cv_, lock, Clock::MonotonicMillis() + timer_wait);
    }
  }
}

int MessageQueue::Wait(std::int64_t timeout_ms) {
  // Times are the clock's (Clock.h), so that a test's clock ends the wait.
  const std::int64_t deadline = timeout_ms < 0 ? -1 : Clock::DeadlineAfter(timeout_ms);
  for (;;) {
    std::int64_t timer_wait = TimerTable::Instance().RaiseDue(this);
    std::unique_lock<std::mutex> lock(mu_);
    RunSentLocked(lock);
    if (!posted_.empty() || quit_pending_) return 1;
    if (closed_) return 0;
    const std::int64_t now = Clock::MonotonicMillis();
    std::int64_t until = deadline;
    if (timer_wait >= 0 && (until < 0 || now + timer_wait < until)) until = now + timer_wait;
    if (until < 0) {
      cv_.wait(lock);
    } else {
      if (deadline >= 0 && now >= deadline) return 0;
      Clock::WaitUntil(cv_, lock, until);
    }
  }
}

std::intptr_t MessageQueue::WaitForReply(const std::shared_ptr<Sent>& sent) {
  std::unique_lock<std::mutex> lock(mu_);
  while (!sent->done) {
    if (!sent_.empty()) {
      RunSentLocked(lock);
      continue;
    }
    cv_.wait(lock);
  }
  return sent->result;
}

std::vector<MSG> MessageQueue::RemoveTargetMessages(HWND hwnd) {
  std::vector<MSG> removed;
  std::lock_guard<std::mutex> lock(mu_);
  std::deque<Entry> kept;
  for (Entry& entry : posted_) {
    if (entry.msg.hwnd == hwnd) {
      removed.push_back(entry.msg);
    } else {
      kept.push_back(entry);
    }
  }
  posted_.swap(kept);
  return removed;
}

std::vector<MSG> MessageQueue::Close() {
  std::vector<MSG> left;
  std::deque<std::shared_ptr<Sent>> senders;
  {
    std::lock_guard<std::mutex> lock(mu_);
    if (closed_) return left;
    closed_ = true;
    for (Entry& entry : posted_) left.push_back(entry.msg);
    posted_.clear();
    senders.swap(sent_);
    timers_queued_.clear();
    quit_pending_ = false;
  }
  cv_.notify_all();
  // Senders waiting on this thread learn that it will never answer.
  for (const std::shared_ptr<Sent>& sent : senders) Complete(sent, 0);
  // Taken after the queue's lock is left: the table's lock comes first.
  TimerTable::Instance().RemoveAll(this);
  return left;
}

bool MessageQueue::IsClosed() {
  std::lock_guard<std::mutex> lock(mu_);
  return closed_;
}

void MessageQueue::Wake() {
  { std::lock_guard<std::mutex> lock(mu_); }
  cv_.notify_all();
}

}  // namespace kordll
