#include "kordll/platform/CWinThread.h"

#include <gtest/gtest.h>

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

// What a thread saw, readable from the test thread.
class Journal {
 public:
  void Add(std::string entry) {
    std::lock_guard<std::mutex> lock(mu_);
    entries_.push_back(std::move(entry));
    cv_.notify_all();
  }
  void AddMsg(unsigned message, intptr_t w, intptr_t l) {
    std::lock_guard<std::mutex> lock(mu_);
    msgs_.push_back(MSG{0, message, w, l});
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
  std::vector<MSG> msgs() {
    std::lock_guard<std::mutex> lock(mu_);
    return msgs_;
  }
  std::vector<std::string> entries() {
    std::lock_guard<std::mutex> lock(mu_);
    return entries_;
  }

 private:
  std::mutex mu_;
  std::condition_variable cv_;
  std::vector<MSG> msgs_;
  std::vector<std::string> entries_;
};

// Records every thread message; message 500 asks it to quit from inside a
// handler, message 501 pumps the waiting messages from inside a handler.
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
    journal_->AddMsg(message, w, l);
    if (message == 500) PostQuitMessage(static_cast<int>(w));
    if (message == 501) journal_->Add(PumpWaitingMessages() ? "pumped" : "pump saw quit");
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

// Posts each {message, wParam} in turn; every post must be taken.
void Post(CWinThread* thread, std::initializer_list<std::pair<unsigned, intptr_t>> msgs) {
  for (const auto& [message, w] : msgs) ASSERT_EQ(1, thread->PostThreadMessage(message, w, 0));
}

TEST(CWinThreadTest, PostedMessagesArriveInOrder) {
  Journal journal;
  auto thread = Kept(&journal);
  // Messages posted before the thread runs wait for it.
  for (int i = 0; i < 50; ++i) ASSERT_EQ(1, thread->PostThreadMessage(1000 + i, i, -i));
  ASSERT_EQ(thread.get(), AfxBeginThread(thread.get()));
  for (int i = 50; i < 500; ++i) ASSERT_EQ(1, thread->PostThreadMessage(1000 + i, i, -i));
  ASSERT_EQ(1, thread->PostThreadMessage(kMsgQuit, 3, 0));
  ASSERT_EQ(1, thread->WaitForExit(20000));
  EXPECT_EQ(3u, thread->GetExitCode());

  std::vector<MSG> msgs = journal.msgs();
  ASSERT_EQ(500u, msgs.size());
  for (int i = 0; i < 500; ++i) {
    EXPECT_EQ(static_cast<unsigned>(1000 + i), msgs[i].message);
    EXPECT_EQ(i, msgs[i].wParam);
    EXPECT_EQ(-i, msgs[i].lParam);
  }
  std::vector<std::string> entries = journal.entries();
  EXPECT_EQ((std::vector<std::string>{"init on thread", "exit"}), entries);
}

TEST(CWinThreadTest, QuitEndsTheLoopAndLaterMessagesAreHandedBack) {
  Journal journal;
  auto thread = Kept(&journal);
  Post(thread.get(), {{1, 0}, {kMsgQuit, 9}, {2, 0}});  // 2 is behind the quit: never handled
  ASSERT_EQ(1, thread->CreateThread());
  ASSERT_EQ(1, thread->WaitForExit(20000));
  EXPECT_EQ(9u, thread->GetExitCode());
  std::vector<MSG> msgs = journal.msgs();
  ASSERT_EQ(1u, msgs.size());
  EXPECT_EQ(1u, msgs[0].message);
  EXPECT_EQ((std::vector<std::string>{"init on thread", "exit", "discarded 2"}), journal.entries());
  EXPECT_EQ(0, thread->CreateThread());  // a thread runs once
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
  EXPECT_EQ((std::vector<std::string>{"init on thread", "exit", "dtor"}), journal.entries());
  EXPECT_EQ(2u, journal.msgs().size());
  EXPECT_EQ(0, PostThreadMessage(id, 1, 0, 0)) << "its id is refused once it deleted itself";
}

TEST(CWinThreadTest, PostToAnEndedThreadAnswersZero) {
  Journal journal;
  auto thread = Kept(&journal);
  ASSERT_EQ(1, thread->CreateThread());
  unsigned id = thread->GetThreadId();
  ASSERT_NE(0u, id);
  EXPECT_EQ(1, PostThreadMessage(id, 12, 0, 0));
  EXPECT_EQ(0, thread->WaitForExit(0)) << "still running";
  ASSERT_EQ(1, thread->PostThreadMessage(kMsgQuit, 0, 0));
  ASSERT_EQ(1, thread->WaitForExit(20000));
  EXPECT_EQ(0, thread->PostThreadMessage(13, 0, 0));
  EXPECT_EQ(0, PostThreadMessage(id, 13, 0, 0));
  ASSERT_EQ(1u, journal.msgs().size());
  thread.reset();
  // By id it stays safe once the object is gone.
  EXPECT_EQ(0, PostThreadMessage(id, 14, 0, 0));
  EXPECT_EQ(0, PostThreadMessage(0, 14, 0, 0));

  // A thread never started takes posts by id until it is deleted.
  Journal unstarted_journal;
  auto unstarted = Kept(&unstarted_journal);
  id = unstarted->GetThreadId();
  EXPECT_EQ(1, PostThreadMessage(id, 1, 0, 0));
  unstarted.reset();
  EXPECT_EQ(0, PostThreadMessage(id, 1, 0, 0));
  EXPECT_TRUE(unstarted_journal.msgs().empty());
}

TEST(CWinThreadTest, InitInstanceRefusingSkipsTheLoop) {
  Journal journal;
  auto thread = Kept(&journal, 0);
  ASSERT_EQ(1, thread->PostThreadMessage(5, 0, 0));
  ASSERT_EQ(1, thread->CreateThread());
  ASSERT_EQ(1, thread->WaitForExit(20000));
  EXPECT_TRUE(journal.msgs().empty());
  EXPECT_EQ((std::vector<std::string>{"init on thread", "exit", "discarded 5"}), journal.entries());
}

TEST(CWinThreadTest, PumpInsideAHandlerRunsWaitingMessagesAndKeepsTheQuit) {
  Journal journal;
  auto thread = Kept(&journal);
  // 501 pumps: it runs 20 and 21 from inside its handler, then meets the
  // quit, puts it back and stops. A put-back quit comes after every posted
  // message, so the loop still runs 22 before it ends.
  Post(thread.get(), {{501, 0}, {20, 0}, {21, 0}, {kMsgQuit, 6}, {22, 0}});
  ASSERT_EQ(1, thread->CreateThread());
  ASSERT_EQ(1, thread->WaitForExit(20000));
  std::vector<unsigned> order;
  for (const MSG& m : journal.msgs()) order.push_back(m.message);
  EXPECT_EQ((std::vector<unsigned>{501, 20, 21, 22}), order);
  EXPECT_EQ((std::vector<std::string>{"init on thread", "pump saw quit", "exit"}),
            journal.entries());
  EXPECT_EQ(6u, thread->GetExitCode());
}

TEST(CWinThreadTest, PlainThreadHasNoQueueAndSimplyWaits) {
  int pumped = -1, peeked = -1, got = -1, waited = -1, pump_one = -1;
  unsigned id = 1, id_after_pumping = 1, id_after_peek = 0;
  CWinThread* current = reinterpret_cast<CWinThread*>(1);
  std::thread plain([&] {
    current = AfxGetThread();
    id = GetCurrentThreadId();
    pumped = PumpWaitingMessages();
    pump_one = PumpMessage();
    MSG msg;
    got = GetMessage(&msg);  // would never return on a queue nobody can post to
    waited = WaitForMessages(1);
    PostQuitMessage(0);  // nothing to post to: ignored
    id_after_pumping = GetCurrentThreadId();
    // Peeking is how a thread asks for a queue.
    peeked = PeekMessage(&msg, kPeekRemove);
    id_after_peek = GetCurrentThreadId();
  });
  plain.join();
  EXPECT_EQ(nullptr, current);
  EXPECT_EQ(0u, id);
  EXPECT_EQ(1, pumped);
  EXPECT_EQ(1, pump_one);
  EXPECT_EQ(0, got);
  EXPECT_EQ(0, waited);
  EXPECT_EQ(0u, id_after_pumping);
  EXPECT_EQ(0, peeked);
  EXPECT_NE(0u, id_after_peek);
}

TEST(CWinThreadTest, PlainThreadQueueClosesWhenTheThreadEnds) {
  unsigned id = 0;
  int posted_while_alive = -1;
  std::thread plain([&] {
    MSG msg;
    PeekMessage(&msg, kPeekNoRemove);
    id = GetCurrentThreadId();
    posted_while_alive = PostThreadMessage(id, 77, 0, 0);
    // The plain thread takes its own message like any loop would.
    posted_while_alive += GetMessage(&msg) == 1 && msg.message == 77 ? 10 : 0;
  });
  plain.join();
  EXPECT_EQ(11, posted_while_alive);
  EXPECT_EQ(0, PostThreadMessage(id, 78, 0, 0));
}

TEST(CWinThreadTest, WorkerThreadRunsItsFunctionAndGetsAQueueOnlyWhenItNeedsOne) {
  std::mutex mu;
  std::condition_variable cv;
  int step = 0;  // guarded by mu
  int posted_before = -1;
  auto* worker = new CWinThread([&]() -> unsigned {
    {
      std::unique_lock<std::mutex> lock(mu);
      step = 1;
      cv.notify_all();
      cv.wait(lock, [&] { return step == 2; });
    }
    // Needing a queue (here: to peek) gives the worker one.
    MSG msg;
    PeekMessage(&msg, kPeekNoRemove);
    {
      std::unique_lock<std::mutex> lock(mu);
      step = 3;
      cv.notify_all();
    }
    MSG got;
    return GetMessage(&got) ? static_cast<unsigned>(got.message) : 0u;
  });
  worker->m_bAutoDelete = 0;
  ASSERT_EQ(worker, AfxBeginThread(worker));
  {
    std::unique_lock<std::mutex> lock(mu);
    ASSERT_TRUE(cv.wait_for(lock, kPatience, [&] { return step == 1; }));
    posted_before = worker->PostThreadMessage(40, 0, 0);
    EXPECT_EQ(0u, worker->GetThreadId());
    step = 2;
    cv.notify_all();
    ASSERT_TRUE(cv.wait_for(lock, kPatience, [&] { return step == 3; }));
  }
  EXPECT_EQ(0, posted_before);
  EXPECT_NE(0u, worker->GetThreadId());
  EXPECT_EQ(1, worker->PostThreadMessage(41, 0, 0));
  ASSERT_EQ(1, worker->WaitForExit(20000));
  EXPECT_EQ(41u, worker->GetExitCode());
  EXPECT_EQ(0, worker->PostThreadMessage(42, 0, 0));
  delete worker;
}

TEST(CWinThreadTest, HandlerExceptionEndsTheThreadQuietly) {
  class Throwing : public CWinThread {
   public:
    int OnThreadMessage(unsigned, intptr_t, intptr_t) override { throw std::runtime_error("x"); }
  };
  auto thread = std::make_unique<Throwing>();
  thread->m_bAutoDelete = 0;
  ASSERT_EQ(1, thread->CreateThread());
  ASSERT_EQ(1, thread->PostThreadMessage(1, 0, 0));
  ASSERT_EQ(1, thread->WaitForExit(20000));
  EXPECT_EQ(0xFFFFFFFFu, thread->GetExitCode());
  EXPECT_EQ(0, thread->PostThreadMessage(2, 0, 0));
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
  // A window on a CWinThread that, asked with 5, sends 2 back to `target`
  // while its sender waits for the reply.
  class Echo : public CWnd {
   public:
    std::atomic<HWND> target{0};
    intptr_t WindowProc(unsigned message, intptr_t, intptr_t) override {
      return message == 5 ? kordll::SendMessage(target.load(), 2, 0, 0) + 7 : 0;
    }
  };
  class EchoOwner : public CWinThread {
   public:
    EchoOwner() { m_bAutoDelete = 0; }
    int InitInstance() override {
      echo.Create();
      ready.set_value(echo.GetSafeHwnd());
      return 1;
    }
    Echo echo;
    std::promise<HWND> ready;
  };
  EchoOwner owner;
  std::future<HWND> echo_hwnd = owner.ready.get_future();
  ASSERT_EQ(1, owner.CreateThread());
  const HWND echo = echo_hwnd.get();

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
    owner.echo.target = wnd.GetSafeHwnd();
    intptr_t echoed = -1;
    EXPECT_NO_THROW(echoed = SendMessage(echo, 5, 0, 0));
    EXPECT_EQ(7, echoed);
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

TEST(CWinThreadConcurrencyTest, EachSendersOrderIsKept) {
  Journal journal;
  auto thread = Kept(&journal);
  ASSERT_EQ(1, thread->CreateThread());
  constexpr int kSenders = 4;
  constexpr int kEach = 2000;
  std::vector<std::thread> senders;
  for (int s = 0; s < kSenders; ++s) {
    senders.emplace_back([&thread, s] {
      for (int i = 0; i < kEach; ++i) thread->PostThreadMessage(2000 + s, i, 0);
    });
  }
  for (std::thread& t : senders) t.join();
  ASSERT_EQ(1, thread->PostThreadMessage(kMsgQuit, 0, 0));
  ASSERT_EQ(1, thread->WaitForExit(60000));
  std::vector<MSG> msgs = journal.msgs();
  ASSERT_EQ(static_cast<size_t>(kSenders * kEach), msgs.size());
  std::vector<intptr_t> next(kSenders, 0);
  for (const MSG& m : msgs) {
    int s = static_cast<int>(m.message) - 2000;
    ASSERT_GE(s, 0);
    ASSERT_LT(s, kSenders);
    EXPECT_EQ(next[s], m.wParam);
    next[s] = m.wParam + 1;
  }
}

TEST(CWinThreadConcurrencyTest, PostsRacingTheEndAreEitherHandledOrRefused) {
  // Every post answered 1 must reach the handler or OnDiscardedMessage; every
  // post answered 0 must reach neither: no message is lost or run twice.
  for (int round = 0; round < 20; ++round) {
    Journal journal;
    auto thread = Kept(&journal);
    ASSERT_EQ(1, thread->CreateThread());
    std::atomic<int> accepted{0};
    std::vector<std::thread> senders;
    for (int s = 0; s < 3; ++s) {
      senders.emplace_back([&, s] {
        for (int i = 0; i < 300; ++i) accepted += thread->PostThreadMessage(3000 + s, i, 0);
      });
    }
    thread->PostThreadMessage(kMsgQuit, 0, 0);
    for (std::thread& t : senders) t.join();
    ASSERT_EQ(1, thread->WaitForExit(60000));
    size_t discarded = 0;
    for (const std::string& e : journal.entries())
      if (e.rfind("discarded", 0) == 0) ++discarded;
    EXPECT_EQ(static_cast<size_t>(accepted.load()), journal.msgs().size() + discarded);
  }
}

}  // namespace
}  // namespace kordll
