#include "kordll/control/IIPanel.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <vector>

#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/control/PanelWnd.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/record/Focusable.h"

namespace kordll {
namespace {

// A panel whose handler notes (param, thread, the carried record's
// references) and ends heap messages, as a real panel does.
class TestPanel : public IIPanel {
 public:
  TestPanel() { record.ReserveHeader(99); }
  CWnd* GetPanelWnd() override { return &wnd; }
  long OnSendPanelMessage(unsigned message, unsigned w, intptr_t l) override {
    auto* m = reinterpret_cast<PANELVIEWMESSAGE*>(l);
    if (message != kPanelMessageRecordChanged || w != 0) return 0;
    seen.push_back({m->param, int(GetCurrentThreadId()), m->focusable->GetReferenceCount()});
    return 7 + PANELVIEWMESSAGE::DeleteHeapMessage(m);
  }
  Focusable record{4, nullptr};        // what the tests' messages carry
  std::vector<std::vector<int>> seen;  // written on the window's thread only
  PanelWnd wnd{this};
};

// Owns the panel's window on a thread of its own from start to end.
class PanelThread : public CWinThread {
 public:
  explicit PanelThread(TestPanel* panel) : panel_(panel) { m_bAutoDelete = 0; }
  int InitInstance() override { return ready_.set_value(panel_->wnd.Create()), 1; }
  int Start() { return CreateThread() && ready_.get_future().get(); }
  int Finish() { return PostThreadMessage(kMsgQuit, 0, 0) && WaitForExit(); }  // quit comes last

 private:
  TestPanel* panel_;
  std::promise<int> ready_;
};

intptr_t Posted(Focusable* record, int param) {
  auto* m = new PANELVIEWMESSAGE();
  m->heapAllocated = 1, m->focusable = record, m->param = param;
  m->ReserveFocusables();
  return reinterpret_cast<intptr_t>(m);
}

TEST(IIPanelTest, WorkerPostsRunOnTheWindowThreadInOrderAndAreReleasedThere) {
  TestPanel panel;
  PanelThread owner(&panel);
  ASSERT_EQ(owner.Start(), 1);
  std::thread([&] {
    for (int i = 0; i < 200; ++i) {
      intptr_t m = Posted(&panel.record, i);
      if (!panel.PostPanelMessage(kPanelMessageRecordChanged, 0, m))
        PANELVIEWMESSAGE::DeleteHeapMessage(reinterpret_cast<PANELVIEWMESSAGE*>(m));
    }
  }).join();
  const int ownerThread = int(owner.GetThreadId());
  ASSERT_EQ(owner.Finish(), 1);
  ASSERT_EQ(panel.seen.size(), 200u);
  for (int i = 0; i < 200; ++i) {  // in order, there, still reserved for the receiver
    EXPECT_EQ(panel.seen[i], (std::vector<int>{i, ownerThread, panel.seen[i][2]}));
    EXPECT_GE(panel.seen[i][2], 1);
  }
  EXPECT_EQ(panel.record.GetReferenceCount(), 0);
}

TEST(IIPanelTest, PostingWithoutALiveWindowAnswersZeroAndLeavesTheMessageWithTheSender) {
  TestPanel never, orphaned;
  const intptr_t l = Posted(&never.record, 1);
  EXPECT_EQ(never.PostPanelMessage(kPanelMessageRecordChanged, 0, l), 0);
  PanelThread ended(&orphaned);  // the window outlives its thread
  ASSERT_EQ(ended.Start() + ended.Finish(), 2);
  EXPECT_EQ(orphaned.PostPanelMessage(kPanelMessageRecordChanged, 0, l), 0);
  EXPECT_TRUE(orphaned.seen.empty());
  EXPECT_EQ(never.record.GetReferenceCount(), 1);  // the sender still holds it
  EXPECT_EQ(PANELVIEWMESSAGE::DeleteHeapMessage(reinterpret_cast<PANELVIEWMESSAGE*>(l)), 1);
  EXPECT_EQ(never.record.GetReferenceCount(), 0);
}

TEST(IIPanelTest, AWindowDestroyedWithMessagesWaitingEndsThem) {
  TestPanel panel;
  ASSERT_EQ(panel.wnd.Create(), 1);  // this thread's window; it never pumps here
  ASSERT_EQ(panel.PostPanelMessage(kPanelMessageRecordChanged, 0, Posted(&panel.record, 1)), 1);
  ASSERT_EQ(panel.PostPanelMessage(kPanelMessageLoaded, 0, Posted(&panel.record, 2)), 1);
  EXPECT_EQ(panel.record.GetReferenceCount(), 2);
  panel.wnd.DestroyWindow();
  EXPECT_EQ(panel.record.GetReferenceCount(), 0);
  EXPECT_TRUE(panel.seen.empty());
}

TEST(IIPanelTest, AFailingHandlerAnswersZero) {
  struct Plain : IIPanel {
    CWnd* GetPanelWnd() override { return nullptr; }
    long OnSendPanelMessage(unsigned, unsigned, intptr_t) override { throw 1; }
  } failing;
  EXPECT_EQ(failing.SendPanelMessage(kPanelMessageLoaded, 0, 0), 0);
}

TEST(PanelViewMessageTest, OnlyHeapMessagesAreEndedAndTheirRecordsReleasedOnce) {
  Focusable record(4, nullptr);
  record.ReserveHeader(99);
  PANELVIEWMESSAGE onStack;
  onStack.focusable = &record, onStack.focusableList = {&record, nullptr};
  onStack.ReserveFocusables();
  EXPECT_EQ(PANELVIEWMESSAGE::DeleteHeapMessage(&onStack), 0);
  EXPECT_EQ(record.GetReferenceCount(), 2);
  auto* posted = new PANELVIEWMESSAGE(onStack);
  posted->heapAllocated = 1;
  posted->ReserveFocusables();
  EXPECT_EQ(PANELVIEWMESSAGE::DeleteHeapMessage(posted), 1);
  onStack.ReleaseFocusables();
  onStack.ReleaseFocusables();  // it forgot what it released
  EXPECT_EQ(record.GetReferenceCount(), 0);
}

}  // namespace
}  // namespace kordll
