#include "kordll/control/ResourceController.h"

#include <gtest/gtest.h>

#include <future>
#include <set>
#include <thread>
#include <vector>

#include "kordll/control/IIPanel.h"
#include "kordll/control/_struct_RESCTRLNOTIFMSG.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RegistryEntryPoints.h"
#include "kordll/record/RelationsEntryPoints.h"
#include "kordll/record/SettingsEntryPoints.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

struct Login : SettingsEntryPoints {
  CString GetCurrentPreferencesSection() override { return section; }
  CString section = "User-ann";
};

// Notes what reaches the panels, and whether the record was alive then.
struct Panels : RegistryEntryPoints {
  int IsGlobalResourceValid() override { return valid; }
  int SendRC2PanelMessage(ResourceController*, int message, int kind, Focusable* r) override {
    sent.push_back({message, kind, r != nullptr ? r->GetFocusableID() : -9});
    return 1;
  }
  int valid = 1;
  std::vector<std::vector<int>> sent;
};

// Tells its test when it is deleted; optionally loads a database on demand.
class Ctrl : public ResourceController {
 public:
  explicit Ctrl(int id, bool* deleted = nullptr) : deleted_(deleted) {
    SetResourceControllerID(id);
  }
  ~Ctrl() override {
    if (deleted_ != nullptr) *deleted_ = true;
  }
  void LateLoadResource(CString) override {
    ++lateLoads;
    DBTaskItem task;
    task.allFields = 1;
    while (db != nullptr) {
      Focusable* r = new Focusable(-1, nullptr);
      if (!db->readFocusableSlot(r, nullptr, &task)) return void(delete r);
      RegisterFocusable(r, 0, 0);
    }
  }
  void OnUpdateResourceCtrl(_struct_RESCTRLNOTIFMSG* m) override { heard = m->originatorID; }
  void DropState() { delete data_, data_ = nullptr; }
  AZeusDB* db = nullptr;
  int lateLoads = 0, heard = -2;

 private:
  bool* deleted_;
};

// A record that tells its test when it is deleted.
struct Rec : Focusable {
  Rec(const char* guid, bool* deleted, int relation = 4)
      : Focusable(relation, nullptr), gone(deleted) {
    SetValueStr(0, guid, 0);
  }
  ~Rec() override { *gone = true; }
  bool* gone;
};

class ResourceControllerTest : public test::TempRootTest {
 protected:
  ResourceControllerTest() {
    SettingsEntryPoints::Install(&login_), RegistryEntryPoints::Install(&panels_);
  }
  ~ResourceControllerTest() override {
    SettingsEntryPoints::Install(nullptr), RegistryEntryPoints::Install(nullptr);
  }
  Login login_;
  Panels panels_;
  CWinApp app_{"Korlan", "Tidrel"};
};

TEST_F(ResourceControllerTest, SerialsAreSpentAtOnceAndContinueAfterARestart) {
  Ctrl first(3);
  EXPECT_EQ(CString("R3_G0"), first.GetAvailableGUID());
  EXPECT_EQ(CString("R3_G1"), first.GetAvailableGUID());
  Registry::CloseCurrent();  // the next read opens the store again
  Ctrl again(3), other(4);
  other.SetFirstValidIDForGUID(40);
  EXPECT_EQ(CString("R3_G2"), again.GetAvailableGUID());
  EXPECT_EQ(CString("R4_G40"), other.GetAvailableGUID());
  EXPECT_EQ(3, app_.GetProfileInt("User-ann\\IDRolls", "LRID-3", -1));
  EXPECT_EQ(1, again.UpdateLastUsedGUID(90));
  EXPECT_EQ(90, app_.GetProfileInt("User-ann\\IDRolls", "LRID-3", 0));
  // Another login has serials of its own; damaged values read as the default.
  login_.section = "User-bob";
  app_.WriteProfileString("User-bob\\IDRolls", "LRID-3", "12");
  app_.WriteProfileInt("User-bob\\IDRolls", "LRID-4", -7);
  Ctrl bob3(3), bob4(4);
  bob4.SetFirstValidIDForGUID(5);
  EXPECT_EQ(CString("R3_G0"), bob3.GetAvailableGUID());
  EXPECT_EQ(CString("R4_G5"), bob4.GetAvailableGUID());
  // Without settings the serials are counted in memory only.
  login_.section = "";
  Ctrl none(3);
  EXPECT_EQ(CString("R3_G0"), none.GetAvailableGUID());
  EXPECT_EQ(CString("R3_G1"), none.GetAvailableGUID());
}

TEST_F(ResourceControllerTest, AProfileThatRefusesTheSerialGivesNoGUIDAndNoRecord) {
  CWinApp broken("Korlan", "Tidrel", Registry::Current());
  Registry::CloseCurrent();  // broken's store now fails every call
  Ctrl ctrl(3);
  bool gone = false;
  Rec r("", &gone);
  EXPECT_EQ(CString(), ctrl.GetAvailableGUID());
  EXPECT_EQ(0, ctrl.RegisterFocusable(&r, 0, 0));
  EXPECT_TRUE(ctrl.GetFocusables().empty());
  EXPECT_EQ(0, ctrl.UpdateLastUsedGUID(4));
  CWinApp::SetCurrent(&app_);  // the working store again: the spent serials stay spent
  EXPECT_EQ(CString("R3_G4"), ctrl.GetAvailableGUID());
}

TEST_F(ResourceControllerTest, RegistriesRefuseDuplicatesAndAnswerByArrayOrMap) {
  Ctrl ctrl(3);
  bool g1 = false, g2 = false, g3 = false;
  Rec* a = new Rec("R3_G7", &g1);
  Rec b("R3_G7", &g2), fresh("", &g3);
  EXPECT_EQ(1, ctrl.RegisterFocusable(a, 0, 0));
  EXPECT_EQ(0, ctrl.RegisterFocusable(&b, 0, 0));
  EXPECT_EQ(1, ctrl.RegisterFocusable(&fresh, 0, 0));
  EXPECT_EQ(CString("R3_G0"), fresh.GetGUID());
  EXPECT_EQ(3, a->GetOriginedResourceControllerID());
  EXPECT_EQ(-1, b.GetOriginedResourceControllerID());
  // Unchecked and external entries make the two lookups differ.
  EXPECT_EQ(1, ctrl.RegisterFocusable(&b, 1, 0));
  EXPECT_EQ(a, ctrl.CheckFocusable("R3_G7", 0));
  EXPECT_EQ(0, ctrl.AddExternalGUID("x", &b));
  bool g4 = false;
  Rec ext("R9_G1", &g4);
  EXPECT_EQ(0, ctrl.AddExternalGUID("", &ext));
  EXPECT_EQ(1, ctrl.AddExternalGUID("anything", &ext));
  EXPECT_EQ(&ext, ctrl.CheckFocusable("R9_G1", 0));
  EXPECT_EQ(nullptr, ctrl.CheckFocusable("R9_G1", 1));
  // Leaving: the controller was a's only holder, so a goes. A record known
  // only by GUID leaves the map (0); one in no registry gives 0 even forced.
  int released = -1;
  EXPECT_EQ(1, ctrl.DeRegisterFocusable(a, &released, 0));
  EXPECT_TRUE(g1);
  EXPECT_EQ(1, released);
  EXPECT_EQ(nullptr, ctrl.CheckFocusable("R3_G7", 0));
  bool g5 = false;
  Rec stranger("R3_G8", &g5);
  EXPECT_EQ(0, ctrl.DeRegisterFocusable(&ext, &released, 0) + released);
  EXPECT_EQ(0, ctrl.DeRegisterFocusable(&stranger, nullptr, 1));
  EXPECT_EQ(nullptr, ctrl.CheckFocusable("R9_G1", 0));
  EXPECT_EQ(2u, ctrl.GetFocusables().size());
  EXPECT_FALSE(g4 || g5);
}

TEST_F(ResourceControllerTest, PanelsHearOfRecordsAddedAndRemovedWhileTheRecordLives) {
  Ctrl ctrl(3), child(60);
  bool gone = false;
  Rec* r = new Rec("R3_G5", &gone);
  EXPECT_EQ(1, ctrl.AddFocusable(r));
  ctrl.DeleteFocusable(r, 1);
  EXPECT_TRUE(gone);
  std::vector<std::vector<int>> expected{{1037, 1, 5}, {1035, 2, 5}};
  EXPECT_EQ(expected, panels_.sent);
  // News goes up to the parent only while the registry is valid.
  _struct_RESCTRLNOTIFMSG m;
  child.UpdateParentResourceCtrl(&m);
  EXPECT_EQ(60, m.originatorID);
  child.SetParentResourceCtrl(&ctrl);
  panels_.valid = 0, m.originatorID = 1;
  child.UpdateParentResourceCtrl(&m);
  EXPECT_EQ(-2, ctrl.heard);
  panels_.valid = 1;
  child.UpdateParentResourceCtrl(&m);
  EXPECT_EQ(60, ctrl.heard);
}

TEST_F(ResourceControllerTest, LastReleaseDeletesAndAControllerWithoutStateIsHarmless) {
  bool deleted = false;
  Ctrl* ctrl = new Ctrl(3, &deleted);
  ctrl->Reserve();
  int destroyed = -1;
  EXPECT_EQ(0, ctrl->Release(&destroyed));
  EXPECT_FALSE(deleted);
  EXPECT_EQ(0, destroyed);
  EXPECT_EQ(1, ctrl->Release(&destroyed));
  EXPECT_TRUE(deleted);
  EXPECT_EQ(1, destroyed);
  Ctrl bare(3);
  bare.DropState();
  bool g = false;
  Rec r("", &g);
  EXPECT_EQ(0, bare.RegisterFocusable(&r, 0, 0) + bare.Release() + bare.GetLoadStatus(0));
  EXPECT_EQ(-1, bare.GetResourceControllerID() + bare.GetLastUsedGUID() + 1);
  EXPECT_EQ(1, bare.IsResourceCtrlClosed());
  EXPECT_EQ(CString(), bare.GetAvailableGUID());
  EXPECT_EQ(nullptr, bare.GetFocusablesPtr());
  EXPECT_TRUE(bare.GetFocusables().empty());
  bare.DeleteFocusable(&r, 1), bare.UpdateParentResourceCtrl(nullptr),
      bare.GetFocusables_wFilter(nullptr, nullptr);
  EXPECT_EQ(0, bare.DeRegisterFocusable(nullptr, nullptr, 1) + bare.AddExternalGUID("x", &r));
}

TEST_F(ResourceControllerTest, RecordsAreLoadedOnFirstUseUntilTheControllerIsLoaded) {
  RGDBTemplate tmpl(4);
  tmpl.AddField(0, 20, 4, "", "guid", 0, 0);
  tmpl.AddField(1, 10, 0, "", "status", 0, 0);
  RelationsEntryPoints::SetTemplate(4, &tmpl);
  {
    AZeusDB writer(root_.root(), "posts", 10, 0);
    for (const char* guid : {"R3_G1", "R3_G2"}) {
      Focusable r(4, nullptr);
      r.SetValueStr(0, guid, 1), r.SetValueInt(1, 2, 1);
      ASSERT_EQ(1, writer.writeFocusableSlot(&r, nullptr, nullptr));
    }
  }
  AZeusDB db(root_.root(), "posts", 10, 0), empty(root_.root(), "none", 10, 0);
  Ctrl ctrl(3), idle(4);
  ctrl.db = &db, idle.db = &empty;
  ASSERT_EQ(2u, ctrl.GetFocusables().size());
  EXPECT_EQ(2u, ctrl.GetFocusablesPtr()->size());
  EXPECT_EQ(1, ctrl.lateLoads);
  EXPECT_NE(nullptr, ctrl.CheckFocusable("R3_G2", 0));
  EXPECT_EQ(0u, idle.GetFocusablesPtr()->size() + idle.GetFocusables().size());
  idle.SetLoaded(1);
  idle.GetFocusables();
  EXPECT_EQ(2, idle.lateLoads);
  // The filtered getters reserve what they give; only unread posts are new.
  bool g = false;
  Rec tree("R3_G9", &g, 7);
  tree.SetValueInt(1, 0x82, 1);
  ctrl.RegisterFocusable(&tree, 0, 0);
  ctrl.GetFocusables()[1]->SetValueInt(1, 1, 1);
  CArray<Focusable*, Focusable*> all, fresh;
  ctrl.GetFocusables_wFilter(&all, nullptr), ctrl.GetNewFocusables_wFilter(&fresh, nullptr);
  ASSERT_EQ(3u, all.size());
  EXPECT_EQ(ctrl.GetFocusables(), all);
  ASSERT_EQ(1u, fresh.size());
  EXPECT_EQ(CString("R3_G1"), fresh[0]->GetGUID());
  EXPECT_EQ(2, fresh[0]->GetReferenceCount());
  EXPECT_EQ(1, all[1]->GetReferenceCount());
  for (Focusable* r : all) r->Release();
  fresh[0]->Release();
  tree.SetOriginedResourceControllerID(-1, 0);  // not the controller's to delete
  for (Focusable* r : CArray<Focusable*, Focusable*>(ctrl.GetFocusables()))
    ctrl.DeRegisterFocusable(r, nullptr, 0);
  EXPECT_FALSE(g);
  RelationsEntryPoints::ClearTemplates();
}

// A controller's thread, which finishes the controller when its loop ends.
class CtrlThread : public CWinThread {
 public:
  CtrlThread() { m_bAutoDelete = 0; }
  int ExitInstance() override { return delete ctrl, CWinThread::ExitInstance(); }
  Ctrl* ctrl = nullptr;
};

TEST_F(ResourceControllerTest, TheLastReleaseEndsTheControllersThreadWhichFinishesIt) {
  bool deleted = false;
  CtrlThread thread;
  thread.ctrl = new Ctrl(3, &deleted);
  thread.ctrl->SetThreadResource(&thread);
  ASSERT_EQ(1, thread.CreateThread());
  Ctrl* ctrl = thread.ctrl;
  std::vector<std::future<std::set<CString>>> workers;
  for (int w = 0; w < 2; ++w) {
    workers.push_back(std::async(std::launch::async, [ctrl] {
      std::set<CString> guids;
      for (int i = 0; i < 50; ++i)
        ctrl->Reserve(), guids.insert(ctrl->GetAvailableGUID()), ctrl->Release();
      return guids;
    }));
  }
  std::set<CString> a = workers[0].get(), b = workers[1].get();
  a.insert(b.begin(), b.end());
  EXPECT_EQ(100u, a.size());
  EXPECT_EQ(1, ctrl->Release());
  ASSERT_EQ(1, thread.WaitForExit());
  EXPECT_TRUE(deleted);
  EXPECT_EQ(100, app_.GetProfileInt("User-ann\\IDRolls", "LRID-3", -1));
}

}  // namespace
}  // namespace kordll
