// The registry with real threads: posts to a panel of another thread,
// closing while updates arrive, panels that come and go while a worker
// sends, and a controller that leaves while its panels still listen.

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "kordll/platform/CWinThread.h"
#include "kordll/record/Focusable.h"
#include "tests/control/GlobalResourceCtrlTest.h"

namespace kordll {
namespace {

using G = GlobalResourceCtrl;
using test::Ctrl;
using test::Panel;

// Owns a panel's window on a thread of its own.
struct PanelThread : CWinThread {
  explicit PanelThread(Panel* p) : panel(p) {
    m_bAutoDelete = 0, CreateThread(), ready.get_future().wait();
  }
  int InitInstance() override { return ready.set_value(panel->wnd.Create()), 1; }
  int Finish() { return PostThreadMessage(kMsgQuit, 0, 0) && WaitForExit(); }
  Panel* panel;
  std::promise<int> ready;
};

class GlobalResourceCtrlThreadsTest : public test::RegistryTest {};

TEST_F(GlobalResourceCtrlThreadsTest, ClosingDropsSentUpdatesWhilePostsReachTheOwnerInOrder) {
  Ctrl* c = new Ctrl(7);
  Focusable record(4, nullptr);
  record.ReserveHeader(99);
  record.SetOriginedResourceControllerID(7, 0);  // changes travel from the record
  Panel panel;
  PanelThread owner(&panel);
  G::RegisterPanel(&panel, 7, 0);
  std::promise<void> halfway, closed;
  int sent = 0;
  std::thread worker([&] {
    for (int i = 0; i < 100; ++i) {
      if (i == 50) halfway.set_value(), closed.get_future().wait();
      sent += record.BroadCastUpdate(0, 1041);
      record.BroadCastUpdate(1, 2000 + i);
    }
  });
  halfway.get_future().wait();
  G::SetTidrelClosing(1);
  closed.set_value();
  worker.join();
  ASSERT_EQ(owner.Finish(), 1);
  std::vector<int> posted;
  for (const auto& m : panel.heard) posted.push_back(m[0]);
  posted.erase(std::remove(posted.begin(), posted.end(), 1041), posted.end());
  EXPECT_EQ(panel.heard.size() - posted.size(), 50u);
  EXPECT_EQ(sent, 50);
  ASSERT_EQ(posted.size(), 100u);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(posted[i], 2000 + i);
  EXPECT_EQ(record.GetReferenceCount(), 0);                   // every receiver released its hold
  EXPECT_EQ(G::SendRC2PanelMessage(c, 1035, 2, &record), 1);  // only updates are dropped
  EXPECT_EQ(panel.heard.back(), std::vector<int>({1035, 2, 7}));
}

TEST_F(GlobalResourceCtrlThreadsTest, PanelsComeAndGoWhileAWorkerSends) {
  Ctrl* c = new Ctrl(7);
  Panel steady, coming, leaving;
  leaving.onMessage = [&](unsigned) { G::DeRegisterPanel(&leaving, 7); };
  for (Panel* p : {&leaving, &steady}) G::RegisterPanel(p, 7, 0);
  std::thread worker([&] {
    for (int i = 0; i < 200; ++i) G::SendRC2PanelMessage(c, 1041, 3, nullptr);
  });
  for (int i = 0; i < 200; ++i) G::RegisterPanel(&coming, 7, 0), G::DeRegisterPanel(&coming, -1);
  worker.join();
  EXPECT_EQ(steady.heard.size(), 200u);
  EXPECT_EQ(leaving.heard.size(), 1u);
}

TEST_F(GlobalResourceCtrlThreadsTest, ALeavingControllerWaitsForItsPanelsButNotForever) {
  Ctrl* c = new Ctrl(7);
  Ctrl* stuck = new Ctrl(8);
  Panel detaching, stubborn;
  PanelThread owner(&detaching);
  // Told on the leaving controller's thread, the panel detaches later on its
  // own thread, which needs the registry meanwhile.
  detaching.onMessage = [&](unsigned message) {
    if (message == 1058) detaching.PostPanelMessage(3000, 0, 0);
    if (message == 3000) G::DeRegisterPanel(&detaching, 7);
  };
  G::RegisterPanel(&detaching, 7, 0), G::RegisterPanel(&stubborn, 8, 0);
  EXPECT_EQ(G::DeRegisterResourceCtrl(c), 0);
  EXPECT_EQ(detaching.removed, std::vector<int>({7}));
  G::DeRegisterResourceCtrl(stuck);  // returns with the panel still there
  EXPECT_EQ(stubborn.heard, std::vector<std::vector<int>>({{1058, 0, 8}}));
  EXPECT_EQ(G::GetResourceController(7), G::GetResourceController(8));  // both gone
  ASSERT_EQ(owner.Finish(), 1);
}

}  // namespace
}  // namespace kordll
