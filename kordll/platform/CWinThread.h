// CWinThread: a thread with a message queue, and the message functions of
// the calling thread.
//
// A CWinThread runs InitInstance, then (if that answered 1) its message loop
// until it takes message 18, then ExitInstance. Posted messages arrive in the
// order they were posted and are handed to OnThreadMessage (thread messages)
// or to the target's WindowProc (messages for a CWnd of this thread).
//
// Lifetime: with m_bAutoDelete set (the default) the thread deletes its own
// object once ExitInstance has returned, on its own thread; never while one
// of its handlers runs. A handler that wants its thread gone posts message 18
// (PostQuitMessage, or PostThreadMessage(18, ...) from anywhere) and returns.
// Without m_bAutoDelete the owner deletes the object after WaitForExit.
//
// Typical use:
//   class Worker : public CWinThread {
//     int OnThreadMessage(unsigned message, intptr_t w, intptr_t l) override;
//   };
//   Worker* w = AfxBeginThread<Worker>();
//   w->PostThreadMessage(32978, 0, reinterpret_cast<intptr_t>(payload));
//   ...
//   w->PostThreadMessage(kMsgQuit, 0, 0);   // w deletes itself later

#ifndef KORDLL_PLATFORM_CWINTHREAD_H_
#define KORDLL_PLATFORM_CWINTHREAD_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "kordll/platform/MessageQueue.h"

namespace kordll {

class CWinThread {
 public:
  // A user-interface thread: its queue exists from construction on, so
  // messages may be posted before the thread has started; they wait.
  CWinThread();
  // A worker thread running fn instead of a message loop (see AfxBeginThread).
  // It gets a queue only if fn does something that needs one.
  explicit CWinThread(std::function<unsigned()> fn);
  // REQUIRES: the thread is not running, or this is called on the thread
  // itself after its loop (auto-delete).
  virtual ~CWinThread();
  CWinThread(const CWinThread&) = delete;
  CWinThread& operator=(const CWinThread&) = delete;

  // Starts the thread. 1 on success; 0 if it was started before or the
  // system refused a thread (then nothing runs and the object is not
  // deleted, whatever m_bAutoDelete says).
  int CreateThread();

  // Appends a thread message to this thread's queue. Any thread. 1 when
  // queued; 0 once the thread has ended (or, for a worker, while it has no
  // queue): the message was not delivered and any heap payload in it still
  // belongs to the caller. Message 18 ends the loop when it is taken, in
  // turn with the messages posted before it.
  // REQUIRES: the object is alive; a caller that cannot be sure of that
  // posts by id with the free PostThreadMessage.
  int PostThreadMessage(unsigned message, std::intptr_t wParam, std::intptr_t lParam);

  // The id of this thread, for the free PostThreadMessage; 0 for a worker
  // that has no queue yet.
  unsigned GetThreadId();

  // Waits until the thread has finished (after ExitInstance), for at most
  // timeout_ms (negative: no limit). 1 when finished, 0 on time-out.
  // REQUIRES: m_bAutoDelete is 0, or the caller otherwise knows that the
  // object still exists. Not on the thread itself.
  int WaitForExit(std::int64_t timeout_ms = -1);
  // The exit code: ExitInstance's answer, or the worker function's.
  unsigned GetExitCode() const { return exit_code_; }

  // Runs on the thread before the loop. Answer 1 to run the loop, 0 to go
  // straight to ExitInstance. Default: 1.
  virtual int InitInstance();
  // The message loop: PumpMessage until it reports quit, then ExitInstance.
  // Answers the exit code.
  virtual int Run();
  // Runs on the thread after the loop. Default: the quit message's code.
  virtual int ExitInstance();
  // Waits for one message of this thread's queue and dispatches it. Answers
  // 0 when the message was quit (18), else 1.
  // REQUIRES: called on this thread.
  virtual int PumpMessage();
  // Handles one thread message (hwnd 0) on this thread. Answer 1 when
  // handled. Default: 0 (the message is dropped).
  virtual int OnThreadMessage(unsigned message, std::intptr_t wParam, std::intptr_t lParam);
  // Called on this thread, after the loop, for each message that was posted
  // but never taken (including messages posted between quit and the close of
  // the queue), so that a subclass can free payloads it knows. Default: none.
  virtual void OnDiscardedMessage(const MSG& msg);

  // Deleted by its own thread after ExitInstance when set. Set it before
  // CreateThread.
  int m_bAutoDelete = 1;

 private:
  friend class MessageQueue;
  struct ExitState;

  void ThreadMain();
  std::shared_ptr<MessageQueue> queue();
  // The queue made for a worker when it first needs one.
  void AdoptQueue(const std::shared_ptr<MessageQueue>& queue);

  std::function<unsigned()> worker_fn_;
  std::shared_ptr<ExitState> exit_;
  unsigned exit_code_ = 0;
  int quit_code_ = 0;
  bool started_ = false;

  std::mutex queue_mu_;
  std::shared_ptr<MessageQueue> queue_;  // guarded by queue_mu_
};

// Constructs a T (a CWinThread subclass) from args and starts it. Answers
// the running thread, or null when no thread could be made (the object is
// then deleted). The object is deleted by its own thread after its loop;
// a caller that wants to keep it uses AfxBeginThread(CWinThread*).
template <class T, class... Args>
T* AfxBeginThread(Args&&... args) {
  T* thread = new T(std::forward<Args>(args)...);
  if (!thread->CreateThread()) {
    delete thread;
    return nullptr;
  }
  return thread;
}
// Starts an object made by the caller (who may set m_bAutoDelete first).
// Answers it, or null when no thread could be made (then the caller still
// owns the object).
CWinThread* AfxBeginThread(CWinThread* thread);
// Starts a worker thread running fn. The object is deleted when fn returns
// unless the caller clears m_bAutoDelete on the object passed in the other
// form. Answers null when no thread could be made.
CWinThread* AfxBeginThread(std::function<unsigned()> fn);

// The CWinThread running the calling thread, or null for a thread that no
// CWinThread made (the application's own threads).
CWinThread* AfxGetThread();

// The id of the calling thread's queue; 0 when it has none.
unsigned GetCurrentThreadId();

// Posts a thread message by thread id: safe even when that thread has ended
// and its object is gone. 1 when queued, 0 when there is no such open queue
// (the message stays with the caller).
int PostThreadMessage(unsigned thread_id, unsigned message, std::intptr_t wParam,
                      std::intptr_t lParam);

// Leaves a quit request (message 18 with the code) on the calling thread's
// queue, taken after every message already posted. Nothing on a thread with
// no queue.
void PostQuitMessage(int exit_code);

// PM_NOREMOVE / PM_REMOVE for PeekMessage.
constexpr int kPeekNoRemove = 0;
constexpr int kPeekRemove = 1;

// Looks at the calling thread's queue without waiting (running any waiting
// sent messages and raising due timers first). 1 when *msg was filled,
// 0 when nothing waits. As with Win32, this is how a thread asks for a
// queue: a thread that had none gets one (and answers 0).
int PeekMessage(MSG* msg, int remove);
// Takes the next message of the calling thread, waiting for one. Answers 0
// for message 18, else 1. On a thread with no queue answers 0 at once
// (it could never receive anything).
int GetMessage(MSG* msg);
// Hands a message to its handler on the calling thread: a target's
// WindowProc (dropped if the target is gone), or the current CWinThread's
// OnThreadMessage (dropped on a thread without one). Answers the handler's
// result, or 0. A handler that throws ends a CWinThread quietly; on any other
// thread it answers 0 and nothing is thrown (so neither PeekMessage,
// GetMessage nor a SendMessage waiting for its reply ever throws there).
std::intptr_t DispatchMessage(const MSG& msg);
// Takes and dispatches one message of the calling thread (waiting for one if
// the queue is empty). 0 when the message was quit (18), else 1. On a thread
// with no queue answers 1 at once.
int PumpMessage();
// Dispatches every message now waiting on the calling thread, without
// waiting. When it meets message 18 it puts the quit request back
// (PostQuitMessage with its code, so the thread's own loop still ends) and
// answers 0; otherwise 1. A thread with no queue answers 1 at once.
int PumpWaitingMessages();
// Waits until a message is waiting on the calling thread, for at most
// timeout_ms of clock time (Clock.h: real time unless a test moves a
// ManualClock), running sent messages and timers meanwhile.
// 1 when a message waits, 0 on time-out. A thread with no queue simply
// sleeps timeout_ms (a negative timeout on such a thread answers 0 at once).
int WaitForMessages(std::int64_t timeout_ms);

// Lets ms milliseconds of clock time pass, as Clock::SleepMillis does: the
// thread sleeps on the machine's clock, and a test's ManualClock moves
// forward at once (0 or less: gives up the processor once). Does not pump
// messages.
void Sleep(std::int64_t ms);

}  // namespace kordll

#endif  // KORDLL_PLATFORM_CWINTHREAD_H_
