// Threads, their message queues and the targets (windows) they own.
#include "kordll/platform/CWinThread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "kordll/platform/CWnd.h"

namespace kordll {
namespace {

// A generous limit for waiting on another thread; reached only when the code
// under test is broken (a lost message would otherwise hang the test).
constexpr auto kPatience = std::chrono::seconds(20);

// What a thread saw, readable from the test thread: entries and handled
// messages in one order, messages as "message w l".
class Journal {
 public:
  void Add(std::string entry) {
    std::lock_guard<std::mutex> lock(mu_);
    entries_.push_back(std::move(entry));
    cv_.notify_all();
  }
  bool WaitForEntry(const std::string& entry) {
    std::unique_lock<std::mutex> lock(mu_);
    return cv_.wait_for(lock, kPatience, [&] {
      for (const std::string& e : entries_)
        if (e == entry) return true;
      return false;
    });
  }
  std::vector<std::string> entries() {
    std::lock_guard<std::mutex> lock(mu_);
    return entries_;
  }

 private:
  std::mutex mu_;
  std::condition_variable cv_;
  std::vector<std::string> entries_;
};

// Records every thread message; message 500 asks it to quit from inside a
// handler, message 501 pumps the waiting messages from inside a handler,
// message 502 throws.
class RecordingThread : public CWinThread {
 public:
  explicit RecordingThread(Journal* journal, int init_answer = 1)
      : journal_(journal), init_answer_(init_answer) {}
  ~RecordingThread() override {
    journal_->Add(AfxGetThread() == nullptr ? "dtor" : "dtor inside thread");
  }

  int InitInstance() override {
    journal_->Add(AfxGetThread() == this ? "init on thread" : "init elsewhere");
    return init_answer_;
  }
  int ExitInstance() override {
    journal_->Add("exit");
    return CWinThread::ExitInstance();
  }
  int OnThreadMessage(unsigned message, intptr_t w, intptr_t l) override {
    if (AfxGetThread() != this) journal_->Add("handler on wrong thread");
    journal_->Add(std::to_string(message) + " " + std::to_string(w) + " " + std::to_string(l));
    if (message == 500) PostQuitMessage(static_cast<int>(w));
    if (message == 501) journal_->Add(PumpWaitingMessages() ? "pumped" : "pump saw quit");
    if (message == 502) throw std::runtime_error("x");
    return 1;
  }
  void OnDiscardedMessage(const MSG& msg) override {
    journal_->Add("discarded " + std::to_string(msg.message));
  }

 private:
  Journal* journal_;
  int init_answer_;
};

// A RecordingThread the test deletes itself.
std::unique_ptr<RecordingThread> Kept(Journal* journal, int init_answer = 1) {
  auto thread = std::make_unique<RecordingThread>(journal, init_answer);
  thread->m_bAutoDelete = 0;
  return thread;
}

// Posts each {message, wParam} in turn (lParam is -wParam); every post must be taken.
void Post(CWinThread* thread, const std::vector<std::pair<unsigned, intptr_t>>& msgs) {
  for (const auto& [message, w] : msgs) ASSERT_EQ(1, thread->PostThreadMessage(message, w, -w));
}

struct Seen {
  unsigned thread_id;
  unsigned message;
  intptr_t wParam;
};

// A target that records what reaches it and on which thread. Message 900
// sends message 901 to the handle in wParam and answers that result + 1;
// message 901 answers lParam * 2; message 666 throws.
class RecordingWnd : public CWnd {
 public:
  intptr_t WindowProc(unsigned message, intptr_t w, intptr_t l) override {
    {
      std::lock_guard<std::mutex> lock(mu_);
      seen_.push_back(Seen{GetCurrentThreadId(), message, w});
    }
    cv_.notify_all();
    if (message == 666) throw std::runtime_error("x");
    if (message == 900) return kordll::SendMessage(static_cast<HWND>(w), 901, 0, l) + 1;
    if (message == 901) return l * 2;
    return w + 1000;
  }
  void OnDiscardedMessage(const MSG& msg) override {
    std::lock_guard<std::mutex> lock(mu_);
    discarded_.push_back(msg.message);
  }
  bool WaitForCount(size_t n) {
    std::unique_lock<std::mutex> lock(mu_);
    return cv_.wait_for(lock, kPatience, [&] { return seen_.size() >= n; });
  }
  std::vector<Seen> seen() {
    std::lock_guard<std::mutex> lock(mu_);
    return seen_;
  }
  std::vector<unsigned> discarded() {
    std::lock_guard<std::mutex> lock(mu_);
    return discarded_;
  }

 private:
  std::mutex mu_;
  std::condition_variable cv_;
  std::vector<Seen> seen_;
  std::vector<unsigned> discarded_;
};

// A thread owning one RecordingWnd from InitInstance to ExitInstance.
class WindowThread : public CWinThread {
 public:
  WindowThread() { m_bAutoDelete = 0; }
  int InitInstance() override {
    wnd.Create();
    ready_.set_value(wnd.GetSafeHwnd());
    return 1;
  }
  int ExitInstance() override {
    wnd.DestroyWindow();
    return CWinThread::ExitInstance();
  }
  // Thread messages, handled or handed back, go to the target's record too.
  int OnThreadMessage(unsigned message, intptr_t w, intptr_t l) override {
    return static_cast<int>(wnd.WindowProc(message, w, l));
  }
  void OnDiscardedMessage(const MSG& msg) override { wnd.OnDiscardedMessage(msg); }
  // Starts the thread and answers its target's handle.
  HWND Start() {
    std::future<HWND> hwnd = ready_.get_future();
    if (!CreateThread()) return 0;
    return hwnd.wait_for(kPatience) == std::future_status::ready ? hwnd.get() : 0;
  }
  void Stop() {
    PostThreadMessage(kMsgQuit, 0, 0);
    WaitForExit(20000);
  }

  RecordingWnd wnd;

 private:
  std::promise<HWND> ready_;
};

// Messages posted before the thread runs wait for it and arrive in order with
// their parameters; a quit ends the loop with its code and whatever is behind
// it is handed back; a handler that throws ends the thread quietly, without
// ExitInstance; an InitInstance that refuses skips the loop; a pump
// inside a handler runs the waiting messages and puts a quit it meets back
// behind every posted message.
TEST(CWinThreadTest, ScriptedPostsRunInOrderUntilTheQuit) {
  struct Row {
    int init_answer;
    std::vector<std::pair<unsigned, intptr_t>> posts;
    std::vector<std::string> seen;
    unsigned exit_code;
  } rows[] = {
      {1,
       {{1, 5}, {2, 0}, {3, -7}, {kMsgQuit, 9}, {4, 0}},
       {"init on thread", "1 5 -5", "2 0 0", "3 -7 7", "exit", "discarded 4"},
       9},
      {0, {{5, 0}}, {"init on thread", "exit", "discarded 5"}, 0},
      {1, {{502, 1}, {6, 0}}, {"init on thread", "502 1 -1", "discarded 6"}, 0xFFFFFFFFu},
      {1,
       {{501, 0}, {20, 0}, {21, 0}, {kMsgQuit, 6}, {22, 0}},
       {"init on thread", "501 0 0", "20 0 0", "21 0 0", "pump saw quit", "22 0 0", "exit"},
       6},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.seen.back());
    Journal journal;
    auto thread = Kept(&journal, row.init_answer);
    Post(thread.get(), row.posts);
    ASSERT_EQ(1, thread->CreateThread());
    ASSERT_EQ(1, thread->WaitForExit(20000));
    EXPECT_EQ(row.seen, journal.entries());
    EXPECT_EQ(row.exit_code, thread->GetExitCode());
    EXPECT_EQ(0, thread->CreateThread());  // a thread runs once
  }
}

TEST(CWinThreadTest, AutoDeleteHappensOnItsOwnThreadAfterTheLoop) {
  Journal journal;
  RecordingThread* thread = AfxBeginThread<RecordingThread>(&journal);
  ASSERT_NE(nullptr, thread);
  const unsigned id = thread->GetThreadId();
  Post(thread, {{7, 0}, {500, 4}});  // the handler of 500 asks to quit
  ASSERT_TRUE(journal.WaitForEntry("dtor"));
  // The object was deleted after its last handler and after ExitInstance,
  // by the thread itself once it no longer counted as a CWinThread.
  EXPECT_EQ((std::vector<std::string>{"init on thread", "7 0 0", "500 4 -4", "exit", "dtor"}),
            journal.entries());
  EXPECT_EQ(0, PostThreadMessage(id, 1, 0, 0)) << "its id is refused once it deleted itself";
}

// On a thread of the application's own (no CWinThread), a handler that
// throws is answered with 0 and the thread goes on: the exception never comes
// out of PeekMessage, GetMessage, SendMessage's wait or DispatchMessage.
TEST(CWinThreadTest, HandlerExceptionsStayInsideOnAPlainThread) {
  class Throwing : public CWnd {
   public:
    intptr_t WindowProc(unsigned message, intptr_t, intptr_t) override {
      if (message == 3) return 33;
      throw std::runtime_error("x");
    }
  };
  WindowThread owner;  // its 900 sends 901 back while its sender waits
  const HWND echo = owner.Start();
  ASSERT_NE(0, echo);

  std::promise<HWND> made;
  std::future<HWND> made_hwnd = made.get_future();
  std::atomic<bool> answered{false};
  intptr_t sent_result = -1;
  std::thread sender;
  std::thread plain([&] {
    Throwing wnd;
    ASSERT_EQ(1, wnd.Create());
    made.set_value(wnd.GetSafeHwnd());
    MSG msg;
    // A sent message run by PeekMessage.
    while (!answered.load()) {
      EXPECT_NO_THROW(PeekMessage(&msg, kPeekNoRemove));
      Sleep(1);
    }
    // A sent message run while GetMessage waits for the posted 3.
    int got = -1;
    EXPECT_NO_THROW(got = GetMessage(&msg));
    EXPECT_EQ(1, got);
    EXPECT_EQ(3u, msg.message);
    // A posted message dispatched by the thread itself, and its own send.
    ASSERT_EQ(1, PostMessage(wnd.GetSafeHwnd(), 4, 0, 0));
    ASSERT_EQ(1, PeekMessage(&msg, kPeekRemove));
    EXPECT_NO_THROW(EXPECT_EQ(0, DispatchMessage(msg)));
    EXPECT_NO_THROW(EXPECT_EQ(0, wnd.SendMessage(4, 0, 0)));
    // A message sent to this thread while it waits for its own reply.
    intptr_t echoed = -1;
    EXPECT_NO_THROW(echoed = SendMessage(echo, 900, wnd.GetSafeHwnd(), 0));
    EXPECT_EQ(1, echoed);  // 901 answered 0, plus 1
  });
  const HWND hwnd = made_hwnd.get();
  sender = std::thread([&] {
    sent_result = SendMessage(hwnd, 1, 0, 0);
    answered = true;
    EXPECT_EQ(0, SendMessage(hwnd, 2, 0, 0));
    EXPECT_EQ(1, PostMessage(hwnd, 3, 0, 0));
  });
  plain.join();
  sender.join();
  EXPECT_EQ(0, sent_result);
  ASSERT_EQ(1, owner.PostThreadMessage(kMsgQuit, 0, 0));
  ASSERT_EQ(1, owner.WaitForExit(20000));
}

// On its own thread a target takes a send as a direct call, ahead of what was
// posted; destroyed, it refuses messages and hands back what was queued;
// deleted, its handle stays dead and is not reused.
TEST(CWndTest, TargetOnItsOwnThreadFromCreationToDeletion) {
  RecordingWnd wnd;
  EXPECT_EQ(0, wnd.IsWindow() + wnd.PostMessage(1, 0, 0));  // not created yet
  ASSERT_EQ(1, wnd.Create());
  EXPECT_EQ(0, wnd.Create());
  HWND hwnd = wnd.GetSafeHwnd();
  ASSERT_EQ(1, wnd.PostMessage(20, 0, 0));
  EXPECT_EQ(1007, wnd.SendMessage(21, 7, 0));
  ASSERT_EQ(1u, wnd.seen().size());
  EXPECT_EQ(21u, wnd.seen()[0].message);
  PumpWaitingMessages();
  ASSERT_EQ(2u, wnd.seen().size());
  EXPECT_EQ(20u, wnd.seen()[1].message);

  for (unsigned message : {11u, 12u, 13u}) ASSERT_EQ(1, wnd.PostMessage(message, 0, 0));
  EXPECT_EQ(1, wnd.DestroyWindow());
  EXPECT_EQ(0, wnd.DestroyWindow());
  EXPECT_EQ((std::vector<unsigned>{11, 12, 13}), wnd.discarded());
  EXPECT_EQ(
      0, wnd.IsWindow() + IsWindow(hwnd) + wnd.PostMessage(14, 0, 0) + wnd.SendMessage(15, 0, 0));
  EXPECT_EQ(nullptr, FromHandle(hwnd));

  HWND old_hwnd;
  {
    RecordingWnd gone;
    ASSERT_EQ(1, gone.Create());
    old_hwnd = gone.GetSafeHwnd();
    ASSERT_EQ(1, gone.PostMessage(1, 0, 0));
  }  // deleted while still a window, with a message queued
  EXPECT_EQ(0, IsWindow(old_hwnd) + PostMessage(old_hwnd, 2, 0, 0));
  EXPECT_EQ(1, PumpWaitingMessages());  // the queued message went with it
  RecordingWnd next;
  ASSERT_EQ(1, next.Create());
  EXPECT_NE(old_hwnd, next.GetSafeHwnd());
  EXPECT_NE(hwnd, next.GetSafeHwnd());
}

TEST(CWndTest, ThreadsSendingToEachOtherDoNotDeadlock) {
  // A sender thread sends 900 to a target of thread A; A's handler sends 901
  // back to a target of the sender, which must run on the sender's thread
  // while that thread is still waiting for A's answer.
  WindowThread a;
  HWND hwnd_a = a.Start();
  ASSERT_NE(0, hwnd_a);

  intptr_t result = 0;
  std::vector<Seen> seen_here;
  unsigned sender_id = 0;
  std::thread sender([&] {
    RecordingWnd here;  // a target of the sending thread
    here.Create();
    sender_id = GetCurrentThreadId();
    // A's handler of 900 sends 901 to `here`, on the thread now waiting.
    result = SendMessage(hwnd_a, 900, here.GetSafeHwnd(), 21);
    seen_here = here.seen();
  });
  sender.join();
  EXPECT_EQ(43, result);  // 21 * 2 + 1
  ASSERT_EQ(1u, seen_here.size());
  EXPECT_EQ(901u, seen_here[0].message);
  EXPECT_EQ(sender_id, seen_here[0].thread_id);
  a.Stop();
}

TEST(CWndTest, SendToATargetWhoseThreadEndsUnansweredGivesZero) {
  // The owner never pumps and then ends; the send, whether it arrives before
  // or after the end, must return 0 rather than wait for ever.
  std::promise<HWND> made;
  std::promise<void> gate;
  std::shared_future<void> open = gate.get_future().share();
  auto* worker = new CWinThread([&]() -> unsigned {
    RecordingWnd wnd;
    wnd.Create();
    made.set_value(wnd.GetSafeHwnd());
    open.wait();
    // Leaves without pumping; the target goes with the thread.
    return static_cast<unsigned>(wnd.seen().size());
  });
  worker->m_bAutoDelete = 0;
  std::future<HWND> hwnd_future = made.get_future();
  ASSERT_EQ(worker, AfxBeginThread(worker));
  HWND hwnd = hwnd_future.get();
  intptr_t result = -1;
  std::thread sender([&] { result = SendMessage(hwnd, 40, 1, 0); });
  gate.set_value();
  sender.join();
  EXPECT_EQ(0, result);
  ASSERT_EQ(1, worker->WaitForExit(20000));
  EXPECT_EQ(0u, worker->GetExitCode());
  delete worker;
}

TEST(CWndTest, SenderIsAnsweredWhenTheHandlerThrows) {
  WindowThread owner;
  HWND hwnd = owner.Start();
  ASSERT_NE(0, hwnd);
  intptr_t result = -1;
  std::thread sender([&] { result = SendMessage(hwnd, 666, 0, 0); });
  sender.join();
  EXPECT_EQ(0, result);
  // The exception ended the owner's thread (without ExitInstance), and with
  // it the target.
  ASSERT_EQ(1, owner.WaitForExit(20000));
  EXPECT_EQ(0xFFFFFFFFu, owner.GetExitCode());
  EXPECT_EQ(0, owner.wnd.IsWindow());
}

// Posts and sends from other threads run on the owning thread, each send
// waits for its answer, and once that thread has ended the handle is dead.
TEST(CWndConcurrencyTest, ManySendersPostingAndSendingKeepTheirOrder) {
  WindowThread owner;
  HWND hwnd = owner.Start();
  ASSERT_NE(0, hwnd);
  EXPECT_EQ(1, IsWindow(hwnd));
  EXPECT_EQ(owner.GetThreadId(), owner.wnd.GetOwnerThreadId());
  constexpr int kSenders = 4;
  constexpr int kEach = 1000;
  std::atomic<int> wrong_answers{0};
  std::vector<std::thread> senders;
  for (int s = 0; s < kSenders; ++s) {
    senders.emplace_back([&, s] {
      for (int i = 0; i < kEach; ++i) {
        if (i % 10 == 0) {
          if (SendMessage(hwnd, 500 + s, i, 0) != i + 1000) ++wrong_answers;
        } else {
          PostMessage(hwnd, 500 + s, i, 0);
        }
      }
    });
  }
  for (std::thread& t : senders) t.join();
  ASSERT_TRUE(owner.wnd.WaitForCount(kSenders * kEach));
  EXPECT_EQ(0, wrong_answers.load());
  // Posted messages keep each sender's order. A sent message runs ahead of
  // posted ones, so it may overtake its sender's earlier posts, but nothing
  // its sender did after the send can come before it.
  std::vector<intptr_t> last_posted(kSenders, -1);
  std::vector<intptr_t> highest(kSenders, -1);
  size_t count = 0;
  for (const Seen& seen : owner.wnd.seen()) {
    int s = static_cast<int>(seen.message) - 500;
    ASSERT_GE(s, 0);
    ASSERT_LT(s, kSenders);
    EXPECT_EQ(owner.GetThreadId(), seen.thread_id);
    if (seen.wParam % 10 == 0) {
      EXPECT_LT(highest[s], seen.wParam);
    } else {
      EXPECT_LT(last_posted[s], seen.wParam);
      last_posted[s] = seen.wParam;
    }
    highest[s] = std::max(highest[s], seen.wParam);
    ++count;
  }
  EXPECT_EQ(static_cast<size_t>(kSenders * kEach), count);
  owner.Stop();
  EXPECT_EQ(0, IsWindow(hwnd) + PostMessage(hwnd, 1, 0, 0) + SendMessage(hwnd, 1, 0, 0));
}

// Every post answered 1, to the thread or to its target, must reach a handler
// or be handed back; every post answered 0 must do neither: no message is lost
// or run twice while the thread ends and destroys its target.
TEST(CWinThreadConcurrencyTest, PostsRacingTheEndAreHandledOrHandedBackOnce) {
  for (int round = 0; round < 20; ++round) {
    WindowThread owner;
    HWND hwnd = owner.Start();
    ASSERT_NE(0, hwnd);
    std::atomic<int> accepted{0};
    std::vector<std::thread> senders;
    for (int s = 0; s < 4; ++s) {
      senders.emplace_back([&, s] {
        for (int i = 0; i < 300; ++i)
          accepted += s % 2 ? PostMessage(hwnd, 600, i, 0) : owner.PostThreadMessage(601, i, 0);
      });
    }
    owner.Stop();
    for (std::thread& t : senders) t.join();
    EXPECT_EQ(static_cast<size_t>(accepted.load()),
              owner.wnd.seen().size() + owner.wnd.discarded().size());
  }
}

}  // namespace
}  // namespace kordll
