#include "kordll/talk/ProgressData.h"

#include <gtest/gtest.h>

#include <climits>
#include <thread>
#include <tuple>
#include <vector>

#include "tests/control/GlobalResourceCtrlTest.h"
#include "tests/support/TestHost.h"

namespace kordll {
namespace {

TEST(ProgressDataTest, PointIsHeldAtTheTotalAndPercentageNeverOverflows) {
  auto* progress = new ProgressData;
  EXPECT_EQ(progress->GetProgressPercentage(), 0);  // no total yet
  progress->UpdateProgressPoint(50, 10, 0);
  EXPECT_EQ(progress->GetProgressPoint(), 10);
  progress->UpdateProgressPoint(-7, -1, 1);  // keeps the total
  EXPECT_EQ(progress->GetProgressPercentage(), 30);
  progress->UpdateProgressPoint(INT_MAX - 1, INT_MAX, 0);
  EXPECT_EQ(progress->GetProgressPercentage(), 99);
  progress->UpdateProgressPoint(INT_MAX, -1, 1);
  EXPECT_EQ(progress->GetProgressPercentage(), 100);
  progress->Reserve();
  EXPECT_EQ(progress->Release(), 1);  // back at the floor of 1: deleted
}

// Owns the job: notes each command offered to it with its text and object.
struct Owner : test::Ctrl {
  Owner() : Ctrl(7) {}
  int InterpretGUICommand(PANELVIEWMESSAGE* m, int*) override {
    return seen.push_back({m->message, m->object, m->text}), 1;
  }
  std::vector<std::tuple<int, intptr_t, CString>> seen;
};

class ProgressWindowTest : public test::RegistryTest {
 protected:
  ProgressWindowTest() { Host::Install(&host_); }
  ~ProgressWindowTest() override { Host::Install(nullptr); }
  TestHost host_;
};

TEST_F(ProgressWindowTest, ButtonsSendTheirCommandsThroughTheRegistry) {
  auto* owner = new Owner;
  auto* progress = new ProgressData;
  progress->Reserve();  // the job's own hold
  progress->SetCommandText("feed 9");
  progress->SetAbortCommand(29111);
  ASSERT_EQ(progress->ShowProgressWnd(), 1);
  progress->SetOpenCommand(29222);
  host_.ClickProgressButton(0, 2);  // "Open" starts disabled
  host_.ClickProgressButton(0, 3);
  EXPECT_FALSE(host_.IsProgressWindowVisible(0));
  EXPECT_EQ(owner->seen,
            (decltype(owner->seen){{kCommandRedrawTalk, intptr_t(progress), "feed 9"}}));

  host_.ClickProgressButton(0, 1);
  EXPECT_EQ(progress->IsProgressAborted(), 1);
  EXPECT_EQ(std::get<0>(owner->seen.back()), 29111);
  // The log-off's closing of controllers is told to a report: two slots
  // are taken, the owner's and the talk controller's.
  GlobalResourceCtrl::IsAllResourcesClosed(progress);
  EXPECT_EQ(progress->GetProgressPoint(), progress->GetProgressTotal() - 2);
  EXPECT_EQ(progress->Release(), 1);  // the window gave its reference back

  host_.SetProgressWindowsFail(true);
  ProgressData windowless;
  EXPECT_EQ(windowless.ShowProgressWnd(), 0);
}

TEST_F(ProgressWindowTest, WorkersUpdateWhileTheWindowIsShown) {
  auto* progress = new ProgressData;
  progress->Reserve();  // the job's own hold
  progress->UpdateProgressPoint(0, 4000, 0);
  ASSERT_EQ(progress->ShowProgressWnd(), 1);
  std::vector<std::thread> workers;
  for (int t = 0; t < 4; ++t) {
    workers.emplace_back([progress, t] {
      for (int i = 0; i < 1000; ++i) {
        progress->UpdateProgressPoint(1, -1, 1), progress->EnableOpenButton(i % 2);
        progress->UpdateProgressCaption(CString::Formatted("worker %d at %d", t, i));
      }
    });
  }
  for (int i = 0; i < 200; ++i) host_.ClickProgressButton(0, 2), progress->GetProgressPercentage();
  for (std::thread& worker : workers) worker.join();
  EXPECT_EQ(progress->GetProgressPercentage(), 100);
  host_.ClickProgressButton(0, 3);  // hides: the window's reference goes
  EXPECT_EQ(progress->Release(), 1);
}

}  // namespace
}  // namespace kordll
