#include "kordll/control/GlobalResourceCtrl.h"

#include <gtest/gtest.h>

#include <vector>

#include "kordll/control/IIPanel.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/control/PanelWnd.h"
#include "kordll/control/ResourceController.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/platform/Clock.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/RegistryEntryPoints.h"
#include "tests/control/GlobalResourceCtrlTest.h"

namespace kordll {
namespace {

using test::Ctrl;
using test::Panel;

class GlobalResourceCtrlTest : public test::RegistryTest {};

TEST_F(GlobalResourceCtrlTest, RecordsAreFoundByGuidAndDatabasesKeepTheirIdsAcrossARestart) {
  Ctrl* posts = new Ctrl(7);
  Ctrl* channel = Ctrl::Dynamic("R7_G40");
  Focusable record(4, nullptr);
  record.ReserveHeader(99);
  ASSERT_EQ(posts->RegisterFocusable(&record, 0, 0), 1);
  EXPECT_EQ(record.GetGUID(), CString("R7_G0"));
  EXPECT_EQ(Focusable::GetFocusable_wGUID("R7_G0"), &record);
  ASSERT_EQ(GlobalResourceCtrl::RegisterDBCtrl(new AZeusDB(root_.DataRoot(), "ch", 0, 0), channel),
            1);
  EXPECT_EQ(GlobalResourceCtrl::GetPostCtrl(100), channel);
  Restart();
  // A new run: same serials and ids continue, the channel finds its id again.
  Ctrl* again = new Ctrl(7);
  channel = Ctrl::Dynamic("R7_G40");
  EXPECT_EQ(again->GetAvailableGUID(), CString("R7_G1"));
  ASSERT_EQ(GlobalResourceCtrl::RegisterDBCtrl(new AZeusDB(root_.DataRoot(), "ch", 0, 0), channel),
            1);
  EXPECT_EQ(GlobalResourceCtrl::GetDBCtrl(100)->GetDBFile(), CString("ch"));
  EXPECT_EQ(settings_.lastDBID, 101);
}

TEST_F(GlobalResourceCtrlTest, ReservedIdsKeepTheirSlotOthersTakeTheNextOne) {
  struct Row {
    int id, type, expectId, expectType;
  };
  const Row rows[] = {
      {7, 1, 7, 0}, {49, -1, 49, 0}, {60, 1, 50, 1}, {-1, 2, 51, 2}, {18, 1, 18, 1}};
  for (const Row& row : rows) {
    Ctrl* c = new Ctrl(row.id, row.type);
    SCOPED_TRACE(row.id);
    EXPECT_EQ(c->GetResourceControllerID(), row.expectId);
    EXPECT_EQ(c->GetResourceControllerType(), row.expectType);
    EXPECT_EQ(GlobalResourceCtrl::GetResourceController(row.expectId), c);
    EXPECT_EQ(c->lateLoads, row.id == 18 ? 0 : 1);  // the user platform is never loaded here
  }
  Ctrl* replacing = new Ctrl(7);
  EXPECT_EQ(GlobalResourceCtrl::GetResourceController(7), replacing);
  EXPECT_EQ(GlobalResourceCtrl::RegisterResourceCtrl(nullptr), 0);
  EXPECT_EQ(GlobalResourceCtrl::GetResourceController(-1), nullptr);
  GlobalResourceCtrl::SetGlobalResourceClosed(1);
  Ctrl* late = new Ctrl(9);  // refused once closed, and nothing is found any more
  EXPECT_EQ(GlobalResourceCtrl::GetResourceController(9), nullptr);
  EXPECT_EQ(GlobalResourceCtrl::GetResourceController(7), nullptr);
  EXPECT_EQ(RegistryEntryPoints::Get()->IsGlobalResourceValid(), 0);
  GlobalResourceCtrl::SetGlobalResourceClosed(0);
  EXPECT_EQ(GlobalResourceCtrl::GetResourceController(9), nullptr);
  EXPECT_EQ(late->GetResourceControllerType(), -1);
}

TEST_F(GlobalResourceCtrlTest, LeavingEmptiesOnlyTheSlotStillHeldAndAGoneRegistryIsInvalid) {
  Ctrl* first = new Ctrl(5);
  Ctrl* second = new Ctrl(5);  // takes the slot over
  EXPECT_EQ(GlobalResourceCtrl::DeRegisterResourceCtrl(first), 0);
  EXPECT_EQ(GlobalResourceCtrl::GetResourceController(5), second);
  GlobalResourceCtrl::DeRegisterResourceCtrl(second);
  EXPECT_EQ(GlobalResourceCtrl::GetResourceController(5), nullptr);
  GlobalResourceCtrl::DeleteGlobalResourceCtrl();
  EXPECT_EQ(RegistryEntryPoints::Get()->IsGlobalResourceValid(), 0);
  EXPECT_EQ(RegistryEntryPoints::Get()->AreDBsCleared(), 1);
  EXPECT_EQ(GlobalResourceCtrl::RegisterResourceCtrl(first), 0);  // not even looked at
  EXPECT_EQ(GlobalResourceCtrl::RegisterPanel(nullptr, 1, 1), 1);
  EXPECT_EQ(GlobalResourceCtrl::IsAllResourcesClosed(nullptr), 0);
  GlobalResourceCtrl::GetGlobalResourceCtrl();
}

TEST_F(GlobalResourceCtrlTest, DatabaseIdsComeFromTheMapTheHeaderOrTheNextFreeId) {
  struct Row {
    int lastDBID;
    bool canStore;
    const char* mapped;
    int controllerID;
    int expectId, expectNext;
  };
  const Row rows[] = {
      {100000, true, nullptr, 60, 100000, 100001},  // the last id is still given
      {100001, true, nullptr, 60, -1, 100001},      // and then none
      {0, true, nullptr, 60, 100, 101},             // never below 100
      {0, false, nullptr, 60, -1, 0},               // an id that cannot be counted is not given
      {300, true, "damaged", 60, 300, 301},         // a damaged entry reads as none
      {300, true, "", 60, 250, 300},                // a stored entry wins
      {300, true, nullptr, 14, 14, 300},            // a reserved controller gives its own id
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.lastDBID);
    settings_.lastDBID = row.lastDBID, settings_.canStore = row.canStore;
    CString parent = CString::Formatted("R7_G%d", ++serial_);
    if (row.mapped != nullptr && *row.mapped != 0) {
      app_.WriteProfileString("User-ann\\DBIDMap", "RC_" + parent, row.mapped);
    } else if (row.mapped != nullptr) {
      app_.WriteProfileInt("User-ann\\DBIDMap", "RC_" + parent, 250);
    }
    Ctrl* c = row.controllerID == 60 ? Ctrl::Dynamic(parent) : new Ctrl(row.controllerID);
    c->SetParentGUID(parent);
    AZeusDB* db = new AZeusDB(root_.DataRoot(), parent, 0, 0);
    EXPECT_EQ(GlobalResourceCtrl::RegisterDBCtrl(db, c), 1);
    EXPECT_EQ(db->GetDBID(), row.expectId);
    EXPECT_EQ(settings_.lastDBID, row.expectNext);
    EXPECT_EQ(GlobalResourceCtrl::GetDBCtrl(row.expectId), db);
    EXPECT_EQ(GlobalResourceCtrl::DeRegisterDBCtrl(db), 1);
    EXPECT_EQ(GlobalResourceCtrl::GetPostCtrl(row.expectId), nullptr);
    EXPECT_EQ(GlobalResourceCtrl::GetDBCtrl(row.expectId), db);  // still owned here
  }
}

TEST_F(GlobalResourceCtrlTest, AForgottenMappingGivesTheChannelANewId) {
  Ctrl* channel = Ctrl::Dynamic("R7_G1");
  settings_.lastDBID = 120;
  AZeusDB* db = new AZeusDB(root_.DataRoot(), "a", 0, 0);
  GlobalResourceCtrl::RegisterDBCtrl(db, channel);
  EXPECT_EQ(app_.GetProfileInt("User-ann\\DBIDMap", "RC_R7_G1", -1), 120);
  EXPECT_EQ(GlobalResourceCtrl::DeleteDBCache(db), 1);
  EXPECT_EQ(app_.GetProfileInt("User-ann\\DBIDMap", "RC_R7_G1", -1), -1);
  Ctrl* reserved = new Ctrl(14);
  GlobalResourceCtrl::RegisterDBCtrl(new AZeusDB(root_.DataRoot(), "b", 0, 0), reserved);
  EXPECT_EQ(GlobalResourceCtrl::DeleteDBCache(GlobalResourceCtrl::GetDBCtrl(14)), 0);
  EXPECT_EQ(GlobalResourceCtrl::DeleteDBCache(nullptr), 0);
  CWinApp::SetCurrent(nullptr);  // without an application nothing is entered
  AZeusDB lone(root_.DataRoot(), "c", 0, 0);
  EXPECT_EQ(GlobalResourceCtrl::RegisterDBCtrl(&lone, channel), 1);
  EXPECT_EQ(GlobalResourceCtrl::GetPostCtrl(-1), nullptr);
  CWinApp::SetCurrent(&app_);
}

TEST_F(GlobalResourceCtrlTest, PanelsGetIdsListenOnceAndHearLoaded) {
  Ctrl* c = new Ctrl(7);
  c->SetLoaded(1);
  Panel a, b, fixed;
  fixed.SetIPanelID(1);
  EXPECT_EQ(GlobalResourceCtrl::RegisterPanel(&a, -1, 1), 1);  // an id, no list
  EXPECT_EQ(a.GetIPanelID(), 15);
  EXPECT_EQ(GlobalResourceCtrl::SendRC2PanelMessage(c, 1041, 3, nullptr), 0);
  EXPECT_EQ(GlobalResourceCtrl::RegisterPanel(&b, 7, 1), 1);
  EXPECT_EQ(GlobalResourceCtrl::RegisterPanel(&b, 7, 1), 0);
  EXPECT_EQ(GlobalResourceCtrl::RegisterPanel(&fixed, 7, 0), 1);
  EXPECT_EQ(b.GetIPanelID(), 16);
  EXPECT_EQ(GlobalResourceCtrl::GetPanel(1), &fixed);
  EXPECT_EQ(b.heard, (std::vector<std::vector<int>>{{1025, 0, 7}}));
  EXPECT_EQ(b.added, (std::vector<int>{7}));
  EXPECT_EQ(GlobalResourceCtrl::SendRC2PanelMessage(c, 1041, 3, nullptr), 1);
  EXPECT_EQ(b.heard.size(), 2u);  // once, though registered twice
  EXPECT_EQ(fixed.heard, (std::vector<std::vector<int>>{{1041, 3, 7}}));
  GlobalResourceCtrl::DeRegisterPanel(&fixed, -1);
  EXPECT_EQ(GlobalResourceCtrl::GetPanel(1), nullptr);
  EXPECT_EQ(GlobalResourceCtrl::SendRC2PanelMessage_Multi(c, 1056, 4, nullptr), 1);
  EXPECT_EQ(fixed.heard.size(), 1u);
}

TEST_F(GlobalResourceCtrlTest, AHandlerThatLeavesDoesNotMakeTheNextPanelMissTheMessage) {
  Ctrl* c = new Ctrl(7);
  Panel first, second, third;
  for (Panel* p : {&first, &second, &third}) GlobalResourceCtrl::RegisterPanel(p, 7, 0);
  first.onMessage = [&](unsigned) { GlobalResourceCtrl::DeRegisterPanel(&first, 7); };
  second.onMessage = [&](unsigned) { GlobalResourceCtrl::DeRegisterPanel(&third, 7); };
  EXPECT_EQ(GlobalResourceCtrl::SendRC2PanelMessage(c, 1041, 3, nullptr), 1);
  EXPECT_EQ(first.heard.size() + second.heard.size() + third.heard.size(), 2u);
  EXPECT_EQ(second.heard.size(), 1u);  // the panel that left later is not called
  EXPECT_EQ(first.removed, (std::vector<int>{7}));
}

TEST_F(GlobalResourceCtrlTest, CommandsGoToTheControllersInSlotOrderUntilOneHandlesIt) {
  Ctrl* low = new Ctrl(4);
  Ctrl* high = new Ctrl(9);
  Ctrl* dynamic = new Ctrl(-1);  // beyond the first 50 slots: never offered
  low->handles = 1, high->handles = 2, dynamic->handles = 3;
  PANELVIEWMESSAGE command;
  int result = -1;
  for (int number : {2, 3}) {
    command.message = number;
    EXPECT_EQ(GlobalResourceCtrl::InterpretGUICommand(&command, &result), number == 2 ? 1 : 0);
  }
  EXPECT_EQ(result, 9);
  EXPECT_EQ(low->offered + high->offered + dynamic->offered, 4);
  EXPECT_EQ(GlobalResourceCtrl::InterpretGUICommand(nullptr, &result), 0);
}

TEST_F(GlobalResourceCtrlTest, ClosingDropsSentUpdatesButNotPostedOnes) {
  Ctrl* c = new Ctrl(7);
  Focusable record(4, nullptr);
  record.ReserveHeader(99);
  Panel p;
  ASSERT_EQ(p.wnd.Create(), 1);
  GlobalResourceCtrl::RegisterPanel(&p, 7, 0);
  GlobalResourceCtrl::SetTidrelClosing(1);
  EXPECT_EQ(GlobalResourceCtrl::SendRC2PanelMessage(c, 1041, 3, &record), 0);
  EXPECT_EQ(GlobalResourceCtrl::SendRC2PanelMessage(c, 1035, 2, &record), 1);
  EXPECT_EQ(record.BroadCastUpdate(1, 1041), 0);  // a record of no controller tells nobody
  record.SetOriginedResourceControllerID(7, 0);
  EXPECT_EQ(record.BroadCastUpdate(1, 1041), 1);
  EXPECT_EQ(record.GetReferenceCount(), 1);  // the posted message holds it
  PumpWaitingMessages();
  EXPECT_EQ(record.GetReferenceCount(), 0);
  EXPECT_EQ(p.heard, (std::vector<std::vector<int>>{{1035, 2, 7}, {1041, 3, 7}}));
}

TEST_F(GlobalResourceCtrlTest, ClearingClosesReservedControllersButThreeAndStartsAgain) {
  int talks = 0;
  test::g_talks = &talks;
  GlobalResourceCtrl::SetTalkControllerFactory(
      [] { return ++*test::g_talks, (ResourceController*)new Ctrl(15); });
  GlobalResourceCtrl::SetProgressReporters(
      [](ProgressData*, const CString& text) { test::g_progress.push_back({text.GetLength()}); },
      [](ProgressData*, int done, int total, int) {
        test::g_progress.push_back({done, total});
      });
  Ctrl* three = new Ctrl(3);
  Ctrl* spare = new Ctrl(8);
  Ctrl* dynamic = new Ctrl(-1, 1);
  GlobalResourceCtrl::RegisterDBCtrl(new AZeusDB(root_.DataRoot(), "x", 0, 0), spare);
  Panel p;
  GlobalResourceCtrl::RegisterPanel(&p, 8, 0);
  GlobalResourceCtrl* registry = GlobalResourceCtrl::GetGlobalResourceCtrl();
  registry->StartClosingResources();
  EXPECT_EQ(three->IsResourceCtrlClosed(), 1);
  GlobalResourceCtrl::SetGlobalResourceClosed(1);
  test::g_progress.clear();
  auto* progress = reinterpret_cast<ProgressData*>(&talks);
  EXPECT_EQ(registry->OnClear(progress), 0);
  EXPECT_EQ(Ctrl::Live().count(spare), 0u);  // closed and gone; closed registry: no 1058
  EXPECT_TRUE(p.heard.empty());
  ASSERT_EQ(test::g_progress.size(), 52u);
  EXPECT_EQ(test::g_progress[0], (std::vector<int>{21}));
  EXPECT_EQ(test::g_progress[51], (std::vector<int>{50, 20}));
  EXPECT_EQ(GlobalResourceCtrl::AreDBsCleared(), 1);
  EXPECT_EQ(g_bGlobalResourceCtrlLoaded.load(), 0);
  EXPECT_EQ(GlobalResourceCtrl::IsAllResourcesClosed(progress), 0);  // 3 and 50 survive
  EXPECT_EQ(test::g_progress.back(), (std::vector<int>{49, 51}));
  GlobalResourceCtrl::InitializeGlobalResourceCtrl();
  EXPECT_EQ(talks, 1);
  EXPECT_EQ(GlobalResourceCtrl::IsGlobalResourceValid(), 1);
  EXPECT_EQ(GlobalResourceCtrl::GetPanel(15), nullptr);
  EXPECT_EQ(GlobalResourceCtrl::GetResourceController(3), three);
  EXPECT_EQ(dynamic->closes, 0);
  GlobalResourceCtrl::SetTalkControllerFactory(nullptr);
  GlobalResourceCtrl::SetProgressReporters(nullptr, nullptr);
}

TEST_F(GlobalResourceCtrlTest, TheBrowserChoiceIsReadAtOneKeyAndWrittenAtAnother) {
  EXPECT_EQ(GlobalResourceCtrl::UseGecko(), 0);
  EXPECT_EQ(GlobalResourceCtrl::SetUseGecko(1), 1);
  EXPECT_EQ(app_.GetProfileString("", "UseGecko"), CString("1"));
  EXPECT_EQ(GlobalResourceCtrl::UseGecko(), 0);
  CWinApp marsek("Marsek", "Marsek");
  CWinApp::SetCurrent(&app_);
  marsek.WriteProfileString("", "UseGecko", "1");
  EXPECT_EQ(GlobalResourceCtrl::UseGecko(), 1);
  marsek.WriteProfileString("", "UseGecko", "1 ");
  EXPECT_EQ(GlobalResourceCtrl::UseGecko(), 0);
  EXPECT_EQ(GlobalResourceCtrl::GetMyDocumentsFolder(), CString());
  CWinApp shell("Microsoft\\Windows\\CurrentVersion\\Explorer", "User Shell Folders");
  CWinApp::SetCurrent(&app_);
  shell.WriteProfileString("", "Personal", "/home/ann/Documents");
  EXPECT_EQ(GlobalResourceCtrl::GetMyDocumentsFolder(), CString("/home/ann/Documents"));
  GlobalResourceCtrl::SetGlobalKorPath("/opt/tidrel");
  EXPECT_EQ(GlobalResourceCtrl::GetGlobalKorPath(), CString("/opt/tidrel"));
}

}  // namespace
}  // namespace kordll
