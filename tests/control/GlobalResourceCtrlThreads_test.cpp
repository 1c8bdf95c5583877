// The registry with real threads: panels owned by other threads, panels
// that come and go while a worker sends, a controller that leaves while its
// panels still listen, and closing while updates arrive.

#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <thread>
#include <vector>

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/record/Focusable.h"
#include "tests/control/GlobalResourceCtrlTest.h"

namespace kordll {
namespace {

using test::Ctrl;
using test::Panel;

// Owns a panel's window on a thread of its own.
class PanelThread : public CWinThread {
 public:
  explicit PanelThread(Panel* panel) : panel_(panel) { m_bAutoDelete = 0; }
  int InitInstance() override { return ready_.set_value(panel_->wnd.Create()), 1; }
  int Start() { return CreateThread() && ready_.get_future().get(); }
  int Finish() { return PostThreadMessage(kMsgQuit, 0, 0) && WaitForExit(); }

 private:
  Panel* panel_;
  std::promise<int> ready_;
};

class GlobalResourceCtrlThreadsTest : public test::RegistryTest {};

TEST_F(GlobalResourceCtrlThreadsTest, ClosingDropsSentUpdatesWhilePostsReachTheOwnerInOrder) {
  Ctrl* c = new Ctrl(7);
  Focusable record(4, nullptr);
  record.ReserveHeader(99);
  Panel panel;
  PanelThread owner(&panel);
  ASSERT_EQ(owner.Start(), 1);
  GlobalResourceCtrl::RegisterPanel(&panel, 7, 0);
  std::promise<void> halfway, closed;
  std::vector<int> sent;
  std::thread worker([&] {
    for (int i = 0; i < 100; ++i) {
      if (i == 50) halfway.set_value(), closed.get_future().wait();
      sent.push_back(GlobalResourceCtrl::SendRC2PanelMessage(c, 1041, 3, &record));
      GlobalResourceCtrl::PostRC2PanelMessage(c, 2000 + i, 3, &record);
    }
  });
  halfway.get_future().wait();
  GlobalResourceCtrl::SetTidrelClosing(1);
  closed.set_value();
  worker.join();
  ASSERT_EQ(owner.Finish(), 1);
  std::vector<int> posted;
  int updates = 0;
  for (const auto& m : panel.heard) m[0] == 1041 ? ++updates : (posted.push_back(m[0]), 0);
  EXPECT_EQ(updates, 50);
  EXPECT_EQ(std::count(sent.begin(), sent.end(), 0), 50);
  ASSERT_EQ(posted.size(), 100u);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(posted[i], 2000 + i);
  EXPECT_EQ(record.GetReferenceCount(), 0);  // every receiver released its hold
}

TEST_F(GlobalResourceCtrlThreadsTest, PanelsComeAndGoWhileAWorkerSends) {
  Ctrl* c = new Ctrl(7);
  Panel steady, coming, leaving;
  leaving.onMessage = [&](unsigned) { GlobalResourceCtrl::DeRegisterPanel(&leaving, 7); };
  for (Panel* p : {&leaving, &steady}) GlobalResourceCtrl::RegisterPanel(p, 7, 0);
  std::thread worker([&] {
    for (int i = 0; i < 200; ++i) GlobalResourceCtrl::SendRC2PanelMessage(c, 1041, 3, nullptr);
  });
  for (int i = 0; i < 200; ++i) {
    GlobalResourceCtrl::RegisterPanel(&coming, 7, 0);
    GlobalResourceCtrl::DeRegisterPanel(&coming, -1);
  }
  worker.join();
  EXPECT_EQ(steady.heard.size(), 200u);
  EXPECT_EQ(leaving.heard.size(), 1u);
}

TEST_F(GlobalResourceCtrlThreadsTest, ALeavingControllerWaitsForItsPanelsButNotForever) {
  Ctrl* c = new Ctrl(7);
  Ctrl* stuck = new Ctrl(8);
  Panel detaching, stubborn;
  PanelThread owner(&detaching);
  ASSERT_EQ(owner.Start(), 1);
  // Told on the leaving controller's thread, the panel detaches later on its
  // own thread, which needs the registry meanwhile.
  detaching.onMessage = [&](unsigned message) {
    if (message == 1058) detaching.PostPanelMessage(3000, 0, 0);
    if (message == 3000) GlobalResourceCtrl::DeRegisterPanel(&detaching, 7);
  };
  GlobalResourceCtrl::RegisterPanel(&detaching, 7, 0);
  GlobalResourceCtrl::RegisterPanel(&stubborn, 8, 0);
  EXPECT_EQ(GlobalResourceCtrl::DeRegisterResourceCtrl(c), 0);
  EXPECT_EQ(detaching.removed, (std::vector<int>{7}));
  EXPECT_EQ(GlobalResourceCtrl::GetResourceController(7), nullptr);
  GlobalResourceCtrl::DeRegisterResourceCtrl(stuck);  // returns with the panel still there
  EXPECT_EQ(stubborn.heard, (std::vector<std::vector<int>>{{1058, 0, 8}}));
  EXPECT_EQ(GlobalResourceCtrl::GetResourceController(8), nullptr);
  ASSERT_EQ(owner.Finish(), 1);
}

}  // namespace
}  // namespace kordll
