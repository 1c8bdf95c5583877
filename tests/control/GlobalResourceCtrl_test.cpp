#include "kordll/control/GlobalResourceCtrl.h"

#include <gtest/gtest.h>

#include "kordll/record/AZeusDB.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/RegistryEntryPoints.h"
#include "tests/control/GlobalResourceCtrlTest.h"

namespace kordll {
namespace {

using G = GlobalResourceCtrl;
using test::Ctrl;
using test::Panel;
using Heard = std::vector<std::vector<int>>;

class GlobalResourceCtrlTest : public test::RegistryTest {
 protected:
  AZeusDB* Db(const char* name) { return new AZeusDB(root_.DataRoot(), name, 0, 0); }
};

TEST_F(GlobalResourceCtrlTest, RecordsAndDatabasesKeepTheirIdentityAcrossARestart) {
  Ctrl* posts = new Ctrl(7);
  Focusable record(4, nullptr);
  record.ReserveHeader(99);
  ASSERT_EQ(posts->RegisterFocusable(&record, 0, 0), 1);
  EXPECT_EQ(Focusable::GetFocusable_wGUID("R7_G0"), &record);  // found through the registry
  ASSERT_EQ(G::RegisterDBCtrl(Db("ch"), Ctrl::Dynamic("R7_G40")), 1);
  End();  // once gone, the registry still answers the record core: invalid
  EXPECT_EQ(RegistryEntryPoints::Get()->IsGlobalResourceValid() + G::AreDBsCleared(), 1);
  EXPECT_EQ(G::RegisterResourceCtrl(posts) + G::IsAllResourcesClosed(nullptr), 0);
  G::GetGlobalResourceCtrl();
  EXPECT_EQ((new Ctrl(7))->GetAvailableGUID(), CString("R7_G1"));
  Ctrl* channel = Ctrl::Dynamic("R7_G40");
  ASSERT_EQ(G::RegisterDBCtrl(Db("ch"), channel), 1);
  EXPECT_EQ(G::GetPostCtrl(100), channel);
  EXPECT_EQ(settings_.lastDBID, 101);
}

TEST_F(GlobalResourceCtrlTest, ReservedIdsKeepTheirSlotOthersTakeTheNextOne) {
  // {id, type, id after, type after}
  const int rows[][4] = {
      {7, 1, 7, 0}, {49, -1, 49, 0}, {60, 1, 50, 1}, {-1, 2, 51, 2}, {18, 1, 18, 1}};
  for (const auto& row : rows) {
    Ctrl* c = new Ctrl(row[0], row[1]);
    EXPECT_EQ(c->GetResourceControllerID(), row[2]);
    EXPECT_EQ(c->GetResourceControllerType(), row[3]);
    EXPECT_EQ(G::GetResourceController(row[2]), c);
    EXPECT_EQ(c->lateLoads, row[0] == 18 ? 0 : 1) << row[0];  // loaded on first use
  }
  ResourceController* first = G::GetResourceController(7);
  Ctrl* replacing = new Ctrl(7);
  G::DeRegisterResourceCtrl(first);  // the slot stays with the one that holds it
  EXPECT_EQ(G::GetResourceController(7), replacing);
  G::DeRegisterResourceCtrl(replacing);
  EXPECT_EQ(G::GetResourceController(7), nullptr);
}

TEST_F(GlobalResourceCtrlTest, DatabaseIdsComeFromTheMapTheHeaderOrTheNextFreeId) {
  struct Row {
    int lastDBID, mapped, controller, id, next;
  };
  const Row rows[] = {
      {100000, 0, 60, 100000, 100001},  // the last id is still given
      {100001, 0, 60, -1, 100001},      // and then none
      {300, -2, 60, 300, 301},          // a damaged entry (a text) reads as none
      {300, 250, 60, 250, 300},         // a stored entry wins
      {300, 0, 14, 14, 300},            // a reserved controller gives its own id
  };
  for (const Row& row : rows) {
    settings_.lastDBID = row.lastDBID;
    const CString parent = CString::Formatted("R7_G%d", ++serial_);
    if (row.mapped > 0) app_.WriteProfileInt("User-ann\\DBIDMap", "RC_" + parent, row.mapped);
    if (row.mapped < 0) app_.WriteProfileString("User-ann\\DBIDMap", "RC_" + parent, "x");
    Ctrl* c = row.controller == 60 ? Ctrl::Dynamic(parent) : new Ctrl(row.controller);
    c->SetParentGUID(parent);
    AZeusDB* db = Db(parent.ToUtf8().c_str());
    EXPECT_EQ(G::RegisterDBCtrl(db, c), 1);
    EXPECT_EQ(db->GetDBID(), row.id) << row.lastDBID;
    EXPECT_EQ(settings_.lastDBID, row.next) << row.lastDBID;
    EXPECT_EQ(G::DeleteDBCache(db), row.controller == 60 ? 1 : 0);  // not for reserved ones
    EXPECT_EQ(app_.GetProfileInt("User-ann\\DBIDMap", "RC_" + parent, -1), -1);
    EXPECT_EQ(G::DeRegisterDBCtrl(db), 1);
    EXPECT_EQ(G::GetPostCtrl(row.id), nullptr);
    EXPECT_EQ(G::GetDBCtrl(row.id), db);  // still the registry's
  }
}

TEST_F(GlobalResourceCtrlTest, PanelsGetIdsListenOnceHearLoadedAndMayLeaveWhileTold) {
  Ctrl* c = new Ctrl(7);
  c->SetLoaded(1);
  Panel loose, a, b, fixed;
  fixed.SetIPanelID(1);
  EXPECT_EQ(G::RegisterPanel(&loose, -1, 1), 1);  // an id, no list
  EXPECT_EQ(G::SendRC2PanelMessage(c, 1041, 3, nullptr), 0);
  for (Panel* p : {&a, &b, &fixed}) EXPECT_EQ(G::RegisterPanel(p, 7, p == &a), 1);
  EXPECT_EQ(G::RegisterPanel(&a, 7, 1), 0);
  EXPECT_EQ(std::vector<int>({loose.GetIPanelID(), a.GetIPanelID(), b.GetIPanelID()}),
            std::vector<int>({15, 16, 17}));
  EXPECT_EQ(G::GetPanel(1), &fixed);
  EXPECT_EQ(a.heard, Heard({{1025, 0, 7}}));
  EXPECT_EQ(a.added, std::vector<int>({7}));
  a.onMessage = [&](unsigned) { G::DeRegisterPanel(&a, 7); };       // leaves itself
  b.onMessage = [&](unsigned) { G::DeRegisterPanel(&fixed, -1); };  // and a later one
  EXPECT_EQ(G::SendRC2PanelMessage_Multi(c, 1056, 4, nullptr), 1);
  EXPECT_EQ(b.heard, Heard({{1056, 4, 7}}));
  EXPECT_TRUE(fixed.heard.empty());
  EXPECT_EQ(a.removed, std::vector<int>({7}));
  EXPECT_EQ(G::GetPanel(1), nullptr);
  Focusable record(4, nullptr);
  record.ReserveHeader(99);
  CArray<Focusable*, Focusable*> records{&record};
  EXPECT_EQ(G::PostRC2PanelMessage_Multi(c, 1056, 4, &records), 1);  // b has no window:
  EXPECT_EQ(record.GetReferenceCount(), 0);  // the message is ended here, its hold released
  G::RegisterPanel(&a, 7, 0);
  b.onPost = [&] { G::DeRegisterPanel(&a, 7); };  // a panel that left meanwhile gets no post
  EXPECT_EQ(G::PostRC2PanelMessage(c, 1041, 3, nullptr) + a.posts * 10, 1);
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
    EXPECT_EQ(G::InterpretGUICommand(&command, &result), number == 2 ? 1 : 0);
  }
  EXPECT_EQ(result, 9);
  EXPECT_EQ(low->offered * 100 + high->offered * 10 + dynamic->offered, 220);
  G::SetGlobalResourceClosed(1);  // closed, the controllers take commands until they are swept
  command.message = 1;
  EXPECT_EQ(G::InterpretGUICommand(&command, &result), 1);
}

TEST_F(GlobalResourceCtrlTest, ClearingClosesReservedControllersButThreeAndStartsAgain) {
  static int talks = 0;
  G::SetTalkControllerFactory(
      [] { return ++talks, static_cast<ResourceController*>(new Ctrl(15)); });
  Ctrl* three = new Ctrl(3);
  Ctrl* spare = new Ctrl(8);
  Ctrl* dynamic = new Ctrl(-1, 1);
  G::RegisterDBCtrl(Db("x"), spare);
  G* registry = G::GetGlobalResourceCtrl();
  registry->StartClosingResources();
  EXPECT_EQ(three->IsResourceCtrlClosed() + dynamic->IsResourceCtrlClosed(), 2);
  G::SetGlobalResourceClosed(1);
  EXPECT_EQ(registry->OnClear(nullptr), 0);
  EXPECT_EQ(Ctrl::Live().count(spare), 0u);  // closed and gone
  EXPECT_EQ(G::AreDBsCleared() - g_bGlobalResourceCtrlLoaded.load(), 1);
  EXPECT_EQ(G::IsAllResourcesClosed(nullptr), 0);  // 3 and the dynamic one stay
  G::InitializeGlobalResourceCtrl();
  EXPECT_EQ(talks, 1);
  EXPECT_EQ(G::IsGlobalResourceValid() + G::AreDBsCleared(), 1);
  EXPECT_EQ(G::GetResourceController(3), three);
  G::SetTalkControllerFactory(nullptr);
}

}  // namespace
}  // namespace kordll
