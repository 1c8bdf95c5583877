#include "kordll/control/IIPanel.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <vector>

#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/control/PanelWnd.h"
#include "kordll/control/_struct_RESCTRLNOTIFMSG.h"
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
  TestPanel never, destroyed, orphaned;
  const intptr_t l = Posted(&never.record, 1);
  EXPECT_EQ(never.PostPanelMessage(kPanelMessageRecordChanged, 0, l), 0);
  ASSERT_EQ(destroyed.wnd.Create() + destroyed.wnd.DestroyWindow(), 2);
  EXPECT_EQ(destroyed.PostPanelMessage(kPanelMessageRecordChanged, 0, l), 0);
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

TEST(IIPanelTest, SendRunsOnTheCallerACopyTakesTheIdWithALockOfItsOwn) {
  TestPanel panel;
  PANELVIEWMESSAGE m;  // on the stack: the handler leaves it alone
  m.focusable = &panel.record;
  EXPECT_EQ(panel.SendPanelMessage(kPanelMessageRecordChanged, 0, intptr_t(&m)), 7);
  EXPECT_EQ(panel.seen.at(0)[1], int(GetCurrentThreadId()));
  panel.SetIPanelID(kMainPanel);
  panel.LockPanel();
  struct Plain : IIPanel {  // a copy; its handler fails
    explicit Plain(const IIPanel& other) : IIPanel(other) {}
    CWnd* GetPanelWnd() override { return nullptr; }
    long OnSendPanelMessage(unsigned, unsigned, intptr_t) override { throw 1; }
  } copy(panel);
  EXPECT_EQ(copy.GetIPanelID(), kMainPanel);
  EXPECT_EQ(copy.SendPanelMessage(kPanelMessageLoaded, 0, 0), 0);
  std::thread([&] { copy.LockPanel(), copy.UnLockPanel(); }).join();  // not the held lock
  panel.UnLockPanel();
}

TEST(PanelViewMessageTest, CopyTakesEveryFieldButAnInactiveFilter) {
  Focusable a(4, nullptr), b(4, nullptr);
  PANELVIEWMESSAGE source;
  source.rcID = 14, source.focusableList = {&a, &b};
  source.filter.AddResourceToFilter(5);
  source.filter.SetFilterActivity(0);
  PANELVIEWMESSAGE kept(source);
  EXPECT_EQ(kept.rcID + kept.command, 13);
  EXPECT_EQ(kept.focusableList, source.focusableList);
  EXPECT_TRUE(kept.filter.GetResources().empty());  // inactive: not taken
  kept.filter.AddResourceToFilter(8);
  kept = source;  // an inactive filter leaves the kept one as it was
  EXPECT_EQ(kept.filter.GetResources(), std::vector<int>{8});
  source.filter.SetFilterActivity(1);
  kept = source;
  EXPECT_EQ(kept.filter.GetResources(), std::vector<int>{5});
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

TEST(ResCtrlNotifMsgTest, DestructorFreesTheDatesOfTheFirstTwoMapsOnly) {
  COleDateTime notOwned;
  {
    _struct_RESCTRLNOTIFMSG news;
    news.dateMaps[0][CString("R7_G1")] = new COleDateTime();
    news.dateMaps[1][CString("R7_G2")] = new COleDateTime();
    news.dateMaps[2][CString("R7_G3")] = &notOwned;
  }  // a leak or a bad free here fails the sanitizer build
  EXPECT_EQ(_struct_RESCTRLNOTIFMSG().originatorID, -1);
}

}  // namespace
}  // namespace kordll
