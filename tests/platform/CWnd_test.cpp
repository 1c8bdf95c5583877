#include "kordll/platform/CWnd.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "kordll/platform/CWinThread.h"

namespace kordll {
namespace {

constexpr auto kPatience = std::chrono::seconds(20);

struct Seen {
  unsigned thread_id;
  unsigned message;
  intptr_t wParam;
};

// A target that records what reaches it and on which thread. Message 900
// sends message 901 to the handle in wParam and answers that result + 1;
// message 901 answers lParam * 2.
class RecordingWnd : public CWnd {
 public:
  intptr_t WindowProc(unsigned message, intptr_t w, intptr_t l) override {
    {
      std::lock_guard<std::mutex> lock(mu_);
      seen_.push_back(Seen{GetCurrentThreadId(), message, w});
    }
    cv_.notify_all();
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

TEST(CWndTest, PostedMessagesRunOnTheOwningThreadInOrder) {
  WindowThread owner;
  HWND hwnd = owner.Start();
  ASSERT_NE(0, hwnd);
  EXPECT_EQ(1, IsWindow(hwnd));
  EXPECT_EQ(owner.GetThreadId(), owner.wnd.GetOwnerThreadId());
  for (int i = 0; i < 200; ++i) ASSERT_EQ(1, PostMessage(hwnd, 100 + i, i, 0));
  ASSERT_TRUE(owner.wnd.WaitForCount(200));
  std::vector<Seen> seen = owner.wnd.seen();
  for (int i = 0; i < 200; ++i) {
    EXPECT_EQ(owner.GetThreadId(), seen[i].thread_id);
    EXPECT_EQ(static_cast<unsigned>(100 + i), seen[i].message);
  }
  owner.Stop();
  // Its thread has ended: no longer a window, posts and sends refused.
  EXPECT_EQ(0, IsWindow(hwnd));
  EXPECT_EQ(0, PostMessage(hwnd, 1, 0, 0));
  EXPECT_EQ(0, SendMessage(hwnd, 1, 0, 0));
}

TEST(CWndTest, DestroyedTargetRefusesMessagesAndHandsBackWhatWasQueued) {
  RecordingWnd wnd;
  EXPECT_EQ(0, wnd.IsWindow());
  EXPECT_EQ(0, wnd.PostMessage(1, 0, 0));  // not created yet
  ASSERT_EQ(1, wnd.Create());
  EXPECT_EQ(0, wnd.Create());
  HWND hwnd = wnd.GetSafeHwnd();
  EXPECT_EQ(1, wnd.IsWindow());
  EXPECT_EQ(&wnd, FromHandle(hwnd));
  ASSERT_EQ(1, wnd.PostMessage(11, 0, 0));
  ASSERT_EQ(1, wnd.PostMessage(12, 0, 0));
  ASSERT_EQ(1, wnd.PostMessage(13, 0, 0));

  EXPECT_EQ(1, wnd.DestroyWindow());
  EXPECT_EQ(0, wnd.DestroyWindow());
  EXPECT_EQ((std::vector<unsigned>{11, 12, 13}), wnd.discarded());
  EXPECT_EQ(0, wnd.IsWindow());
  EXPECT_EQ(0, IsWindow(hwnd));
  EXPECT_EQ(nullptr, FromHandle(hwnd));
  EXPECT_EQ(0, wnd.PostMessage(14, 0, 0));
  EXPECT_EQ(0, wnd.SendMessage(15, 0, 0));
  EXPECT_EQ(0, wnd.Create());  // a target is made once
  EXPECT_EQ(hwnd, wnd.GetSafeHwnd());
  PumpWaitingMessages();
  EXPECT_TRUE(wnd.seen().empty());
}

TEST(CWndTest, DeletedTargetsHandleStaysDeadAndIsNotReused) {
  HWND old_hwnd;
  {
    RecordingWnd wnd;
    ASSERT_EQ(1, wnd.Create());
    old_hwnd = wnd.GetSafeHwnd();
    ASSERT_EQ(1, wnd.PostMessage(1, 0, 0));
  }  // deleted while still a window, with a message queued
  EXPECT_EQ(0, IsWindow(old_hwnd));
  EXPECT_EQ(0, PostMessage(old_hwnd, 2, 0, 0));
  EXPECT_EQ(1, PumpWaitingMessages());  // the queued message went with it
  RecordingWnd next;
  ASSERT_EQ(1, next.Create());
  EXPECT_NE(old_hwnd, next.GetSafeHwnd());
  EXPECT_EQ(0, IsWindow(0));
  EXPECT_EQ(0, PostMessage(0, 1, 0, 0));
}

TEST(CWndTest, SendOnTheOwningThreadIsADirectCall) {
  RecordingWnd wnd;
  ASSERT_EQ(1, wnd.Create());
  ASSERT_EQ(1, wnd.PostMessage(20, 0, 0));
  EXPECT_EQ(1007, wnd.SendMessage(21, 7, 0));
  // The send did not wait behind the posted message.
  std::vector<Seen> seen = wnd.seen();
  ASSERT_EQ(1u, seen.size());
  EXPECT_EQ(21u, seen[0].message);
  PumpWaitingMessages();
  ASSERT_EQ(2u, wnd.seen().size());
  EXPECT_EQ(20u, wnd.seen()[1].message);
}

TEST(CWndTest, SendFromAnotherThreadRunsOnTheOwnerAndWaitsForTheAnswer) {
  WindowThread owner;
  HWND hwnd = owner.Start();
  ASSERT_NE(0, hwnd);
  intptr_t result = 0;
  std::thread sender([&] { result = SendMessage(hwnd, 30, 5, 0); });
  sender.join();
  EXPECT_EQ(1005, result);
  std::vector<Seen> seen = owner.wnd.seen();
  ASSERT_EQ(1u, seen.size());
  EXPECT_EQ(owner.GetThreadId(), seen[0].thread_id);
  owner.Stop();
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
  class ThrowingWnd : public CWnd {
   public:
    intptr_t WindowProc(unsigned, intptr_t, intptr_t) override { throw std::runtime_error("x"); }
  };
  class ThrowingOwner : public CWinThread {
   public:
    ThrowingOwner() { m_bAutoDelete = 0; }
    int InitInstance() override {
      wnd.Create();
      ready.set_value(wnd.GetSafeHwnd());
      return 1;
    }
    ThrowingWnd wnd;
    std::promise<HWND> ready;
  };
  ThrowingOwner owner;
  std::future<HWND> hwnd = owner.ready.get_future();
  ASSERT_EQ(1, owner.CreateThread());
  intptr_t result = -1;
  std::thread sender([&] { result = SendMessage(hwnd.get(), 1, 0, 0); });
  sender.join();
  EXPECT_EQ(0, result);
  // The exception ended the owner's thread, and with it the target.
  ASSERT_EQ(1, owner.WaitForExit(20000));
  EXPECT_EQ(0, owner.wnd.IsWindow());
}

TEST(CWndConcurrencyTest, ManySendersPostingAndSendingKeepTheirOrder) {
  WindowThread owner;
  HWND hwnd = owner.Start();
  ASSERT_NE(0, hwnd);
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
}

TEST(CWndConcurrencyTest, PostsRacingDestructionAreHandledOrHandedBackOnce) {
  for (int round = 0; round < 20; ++round) {
    WindowThread owner;
    HWND hwnd = owner.Start();
    ASSERT_NE(0, hwnd);
    std::atomic<int> accepted{0};
    std::vector<std::thread> senders;
    for (int s = 0; s < 3; ++s) {
      senders.emplace_back([&] {
        for (int i = 0; i < 300; ++i) accepted += PostMessage(hwnd, 600, i, 0);
      });
    }
    owner.Stop();  // destroys the target on its thread while posts go on
    for (std::thread& t : senders) t.join();
    EXPECT_EQ(static_cast<size_t>(accepted.load()),
              owner.wnd.seen().size() + owner.wnd.discarded().size());
  }
}

}  // namespace
}  // namespace kordll
