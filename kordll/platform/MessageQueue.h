// MessageQueue: the message queue of one thread.
//
// Every thread that receives messages has one queue: a CWinThread gets its
// queue when it is constructed, any other thread when it first needs one (it
// creates a message target, sets a timer, or sends to another thread). A
// thread that never needed a queue has none; pumping on it does nothing.
//
// A queue holds three kinds of entry, read in this order:
//   1. sent messages (CWnd::SendMessage from another thread), run inline by
//      whatever reads the queue, so that a sender never waits on a thread that
//      is itself waiting for a message;
//   2. posted messages, strictly in the order they were posted (a timer's
//      message 275 is a posted message like any other);
//   3. a quit request left by PostQuitMessage, seen only once nothing else is
//      posted.
//
// A queue is closed when its thread ends. Posting to a closed queue answers
// 0 and leaves the message, and any heap payload, with the sender.
//
// Users normally reach queues through CWinThread, CWnd and the free
// functions of CWinThread.h; this class is the mechanism beneath them.

#ifndef KORDLL_PLATFORM_MESSAGEQUEUE_H_
#define KORDLL_PLATFORM_MESSAGEQUEUE_H_

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <unordered_set>
#include <vector>

namespace kordll {

// A message target's handle. 0 is no target: a message for the thread itself.
// Handles are never reused within a process, so a stale handle stays invalid.
using HWND = std::intptr_t;

// The thread message that ends a message loop (wParam is the exit code).
constexpr unsigned kMsgQuit = 18;
// The timer message: wParam the timer id, lParam the timer clock's time in
// milliseconds when the timer fired.
constexpr unsigned kMsgTimer = 275;

struct MSG {
  HWND hwnd = 0;  // target, or 0 for a thread message
  unsigned message = 0;
  std::intptr_t wParam = 0;
  std::intptr_t lParam = 0;
};

class MessageQueue : public std::enable_shared_from_this<MessageQueue> {
 public:
  // A message sent across threads, waiting for its target thread to run it.
  // The sender keeps a reference and waits for done; see CWnd::SendMessage.
  struct Sent {
    MSG msg;
    std::shared_ptr<MessageQueue> sender;  // whose lock guards done/result
    bool done = false;
    std::intptr_t result = 0;
  };

  // A new, empty, open queue with a new thread id. Always held by a
  // std::shared_ptr (std::make_shared).
  MessageQueue();
  ~MessageQueue();
  MessageQueue(const MessageQueue&) = delete;
  MessageQueue& operator=(const MessageQueue&) = delete;

  // The queue of the calling thread, or null if it has none and create is
  // false. With create true a thread without a queue gets one (and so does
  // the CWinThread object that runs the thread, if it had none yet).
  static std::shared_ptr<MessageQueue> Current(bool create);
  // The open queue of the thread with that id, or null.
  static std::shared_ptr<MessageQueue> FromThreadId(unsigned thread_id);
  // Makes queue the calling thread's queue (used when a CWinThread starts).
  static void InstallForCurrentThread(std::shared_ptr<MessageQueue> queue);

  // The id of the thread this queue belongs to; never 0.
  unsigned thread_id() const { return thread_id_; }

  // Appends a posted message. 1 when queued, 0 when the queue is closed.
  // Any thread.
  int Post(const MSG& msg);
  // Appends message 275 for the timer unless a message of that timer is
  // still in the queue. 1 when queued, 0 when skipped or closed. Any thread.
  int PostTimer(unsigned timer_id, std::int64_t time_ms);
  // Leaves a quit request with the exit code, seen after every posted
  // message. Any thread; does nothing on a closed queue.
  void PostQuit(int exit_code);
  // Appends a sent message. 1 when queued, 0 when closed (then the entry is
  // untouched). Any thread.
  int PostSent(const std::shared_ptr<Sent>& sent);

  // The reading side: the owning thread only. Sent messages run through
  // DispatchMessage, so a handler that throws is answered with 0 and nothing
  // comes out of these calls, except on a CWinThread, whose thread the
  // exception ends.
  //
  // Runs every waiting sent message, raises the thread's due timers, then
  // looks at the first posted message (or the quit request, as message 18).
  // With remove it takes it out. Answers 1 when *msg was filled, else 0.
  int Peek(MSG* msg, bool remove);
  // Like Peek with remove, but waits until there is something to take.
  // Runs sent messages while waiting.
  void Get(MSG* msg);
  // Waits until a posted message or quit request is waiting, running sent
  // messages meanwhile, for at most timeout_ms of clock time (negative: no
  // limit). 1 when something waits, 0 on time-out.
  int Wait(std::int64_t timeout_ms);
  // Waits until sent->done, running sent messages addressed to this queue
  // meanwhile (so two threads that send to each other do not deadlock).
  // Answers sent->result.
  std::intptr_t WaitForReply(const std::shared_ptr<Sent>& sent);
  // Takes out every posted message for hwnd and returns them, in order.
  std::vector<MSG> RemoveTargetMessages(HWND hwnd);

  // Closes the queue: later posts answer 0, waiting senders get 0. Returns
  // the posted messages that were never taken, in order. Idempotent.
  std::vector<MSG> Close();
  bool IsClosed();

  // Wakes the owning thread if it is waiting, so that it looks at its timers
  // again (called when the timer clock moves). Any thread.
  void Wake();

 private:
  struct Entry {
    MSG msg;
    bool from_timer;
  };

  // REQUIRES: mu_ held (lock). Runs sent messages one by one with mu_
  // released around each. Answers whether any ran.
  bool RunSentLocked(std::unique_lock<std::mutex>& lock);
  // REQUIRES: mu_ held. Fills *msg from the head; removes it if remove.
  bool TakeLocked(MSG* msg, bool remove);
  // Completes a sent message with its result and wakes its sender.
  static void Complete(const std::shared_ptr<Sent>& sent, std::intptr_t result);

  const unsigned thread_id_;

  std::mutex mu_;
  std::condition_variable cv_;
  // State below is protected by mu_.
  std::deque<Entry> posted_;
  std::deque<std::shared_ptr<Sent>> sent_;
  std::unordered_set<unsigned> timers_queued_;  // timers with a 275 in posted_
  bool quit_pending_ = false;
  int quit_code_ = 0;
  bool closed_ = false;
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_MESSAGEQUEUE_H_
