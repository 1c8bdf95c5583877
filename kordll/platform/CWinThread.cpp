#include "kordll/platform/CWinThread.h"

#include <chrono>
#include <condition_variable>
#include <system_error>
#include <thread>
#include <utility>

#include "kordll/platform/CWnd.h"
#include "kordll/platform/Clock.h"

namespace kordll {

namespace {

thread_local CWinThread* t_thread = nullptr;

// The exit code given when a handler lets an exception out: the thread ends,
// but the exception does not leave the library.
constexpr unsigned kExceptionExitCode = 0xFFFFFFFFu;

}  // namespace

// Signalled by the thread as its very last act, after which it touches
// nothing of the object; shared so that it outlives an auto-deleted object.
struct CWinThread::ExitState {
  std::mutex mu;
  std::condition_variable cv;
  bool done = false;  // guarded by mu
};

CWinThread::CWinThread()
    : exit_(std::make_shared<ExitState>()), queue_(std::make_shared<MessageQueue>()) {}

CWinThread::CWinThread(std::function<unsigned()> fn)
    : worker_fn_(std::move(fn)), exit_(std::make_shared<ExitState>()) {}

CWinThread::~CWinThread() {
  // A thread object deleted without ever running still refuses posts from
  // now on; its messages are lost.
  std::shared_ptr<MessageQueue> q = queue();
  if (q) q->Close();
}

std::shared_ptr<MessageQueue> CWinThread::queue() {
  std::lock_guard<std::mutex> lock(queue_mu_);
  return queue_;
}

void CWinThread::AdoptQueue(const std::shared_ptr<MessageQueue>& queue) {
  std::lock_guard<std::mutex> lock(queue_mu_);
  if (!queue_) queue_ = queue;
}

int CWinThread::CreateThread() {
  if (started_) return 0;
  started_ = true;
  try {
    std::thread thread([this] { ThreadMain(); });
    thread.detach();
  } catch (const std::system_error&) {
    started_ = false;
    return 0;
  }
  return 1;
}

void CWinThread::ThreadMain() {
  std::shared_ptr<ExitState> exit = exit_;
  t_thread = this;
  std::shared_ptr<MessageQueue> q = queue();
  if (q) MessageQueue::InstallForCurrentThread(q);

  unsigned code = 0;
  try {
    if (worker_fn_) {
      code = worker_fn_();
    } else if (InitInstance()) {
      code = static_cast<unsigned>(Run());
    } else {
      code = static_cast<unsigned>(ExitInstance());
    }
  } catch (...) {
    code = kExceptionExitCode;
  }
  exit_code_ = code;

  // Close the queue so that later posts answer 0, then hand what was never
  // taken to whoever can free it: the target if it still exists, else the
  // thread object.
  q = queue();
  if (q) {
    std::vector<MSG> left = q->Close();
    for (const MSG& msg : left) {
      try {
        if (msg.hwnd != 0) {
          if (CWnd* wnd = FromHandle(msg.hwnd)) wnd->OnDiscardedMessage(msg);
        } else {
          OnDiscardedMessage(msg);
        }
      } catch (...) {
      }
    }
  }
  MessageQueue::InstallForCurrentThread(nullptr);
  t_thread = nullptr;

  if (m_bAutoDelete) delete this;
  {
    std::lock_guard<std::mutex> lock(exit->mu);
    exit->done = true;
  }
  exit->cv.notify_all();
}

int CWinThread::PostThreadMessage(unsigned message, std::intptr_t wParam, std::intptr_t lParam) {
  std::shared_ptr<MessageQueue> q = queue();
  if (!q) return 0;
  MSG msg;
  msg.message = message;
  msg.wParam = wParam;
  msg.lParam = lParam;
  return q->Post(msg);
}

unsigned CWinThread::GetThreadId() {
  std::shared_ptr<MessageQueue> q = queue();
  return q ? q->thread_id() : 0;
}

int CWinThread::WaitForExit(std::int64_t timeout_ms) {
  std::shared_ptr<ExitState> exit = exit_;
  std::unique_lock<std::mutex> lock(exit->mu);
  if (timeout_ms < 0) {
    exit->cv.wait(lock, [&] { return exit->done; });
    return 1;
  }
  // Bounded by clock time, so that a test's clock ends the wait.
  const std::int64_t deadline = Clock::DeadlineAfter(timeout_ms);
  while (!exit->done) {
    if (Clock::WaitUntil(exit->cv, lock, deadline) && !exit->done) return 0;
  }
  return 1;
}

int CWinThread::InitInstance() { return 1; }

int CWinThread::Run() {
  while (PumpMessage()) {
  }
  return ExitInstance();
}

int CWinThread::ExitInstance() { return quit_code_; }

int CWinThread::PumpMessage() {
  std::shared_ptr<MessageQueue> q = queue();
  if (!q) return 1;  // a worker with no queue has nothing to pump
  MSG msg;
  q->Get(&msg);
  if (msg.hwnd == 0 && msg.message == kMsgQuit) {
    quit_code_ = static_cast<int>(msg.wParam);
    return 0;
  }
  DispatchMessage(msg);
  return 1;
}

int CWinThread::OnThreadMessage(unsigned, std::intptr_t, std::intptr_t) { return 0; }

void CWinThread::OnDiscardedMessage(const MSG&) {}

CWinThread* AfxBeginThread(CWinThread* thread) {
  if (!thread || !thread->CreateThread()) return nullptr;
  return thread;
}

CWinThread* AfxBeginThread(std::function<unsigned()> fn) {
  auto* thread = new CWinThread(std::move(fn));
  if (!thread->CreateThread()) {
    delete thread;
    return nullptr;
  }
  return thread;
}

CWinThread* AfxGetThread() { return t_thread; }

unsigned GetCurrentThreadId() {
  std::shared_ptr<MessageQueue> q = MessageQueue::Current(false);
  return q ? q->thread_id() : 0;
}

int PostThreadMessage(unsigned thread_id, unsigned message, std::intptr_t wParam,
                      std::intptr_t lParam) {
  std::shared_ptr<MessageQueue> q = MessageQueue::FromThreadId(thread_id);
  if (!q) return 0;
  MSG msg;
  msg.message = message;
  msg.wParam = wParam;
  msg.lParam = lParam;
  return q->Post(msg);
}

void PostQuitMessage(int exit_code) {
  std::shared_ptr<MessageQueue> q = MessageQueue::Current(false);
  if (q) q->PostQuit(exit_code);
}

int PeekMessage(MSG* msg, int remove) {
  std::shared_ptr<MessageQueue> q = MessageQueue::Current(true);
  if (!q || !msg) return 0;
  return q->Peek(msg, remove != kPeekNoRemove);
}

int GetMessage(MSG* msg) {
  std::shared_ptr<MessageQueue> q = MessageQueue::Current(false);
  if (!q || !msg) return 0;
  q->Get(msg);
  return (msg->hwnd == 0 && msg->message == kMsgQuit) ? 0 : 1;
}

std::intptr_t DispatchMessage(const MSG& msg) {
  CWinThread* thread = AfxGetThread();
  try {
    if (msg.hwnd != 0) {
      CWnd* wnd = FromHandle(msg.hwnd);
      // Only the owning thread runs a target's handler.
      if (!wnd || wnd->GetOwnerThreadId() != GetCurrentThreadId()) return 0;
      return wnd->WindowProc(msg.message, msg.wParam, msg.lParam);
    }
    if (!thread) return 0;
    return thread->OnThreadMessage(msg.message, msg.wParam, msg.lParam);
  } catch (...) {
    // A handler that throws on a CWinThread ends that thread quietly (its
    // thread function catches the exception). On any other thread the
    // exception would come out into the application's own code through
    // whatever call is pumping (PeekMessage, GetMessage, a SendMessage
    // waiting for its reply): there the handler's answer is 0 and the
    // thread goes on.
    if (thread != nullptr) throw;
    return 0;
  }
}

int PumpMessage() {
  if (CWinThread* thread = AfxGetThread()) return thread->PumpMessage();
  std::shared_ptr<MessageQueue> q = MessageQueue::Current(false);
  if (!q) return 1;
  MSG msg;
  q->Get(&msg);
  if (msg.hwnd == 0 && msg.message == kMsgQuit) return 0;
  DispatchMessage(msg);
  return 1;
}

int PumpWaitingMessages() {
  std::shared_ptr<MessageQueue> q = MessageQueue::Current(false);
  if (!q) return 1;
  MSG msg;
  while (q->Peek(&msg, true)) {
    if (msg.hwnd == 0 && msg.message == kMsgQuit) {
      // Put it back so that the thread's own loop still ends.
      q->PostQuit(static_cast<int>(msg.wParam));
      return 0;
    }
    DispatchMessage(msg);
  }
  return 1;
}

int WaitForMessages(std::int64_t timeout_ms) {
  std::shared_ptr<MessageQueue> q = MessageQueue::Current(false);
  if (!q) {
    if (timeout_ms > 0) Sleep(timeout_ms);
    return 0;
  }
  return q->Wait(timeout_ms);
}

void Sleep(std::int64_t ms) {
  if (ms <= 0) {
    std::this_thread::yield();
    return;
  }
  Clock::SleepMillis(ms);
}

}  // namespace kordll
