#include "kordll/control/ResourceController.h"

#include <gtest/gtest.h>

#include <future>
#include <set>
#include <vector>

#include "kordll/platform/CWinApp.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/RegistryEntryPoints.h"
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

// Tells its test when it is deleted.
struct Ctrl : ResourceController {
  explicit Ctrl(int id, bool* deleted = nullptr) : gone(deleted) { SetResourceControllerID(id); }
  ~Ctrl() override { gone != nullptr && (*gone = true); }
  void DropState() { delete data_, data_ = nullptr; }
  bool* gone;
};

// A record that tells its test when it is deleted.
struct Rec : Focusable {
  Rec(const char* guid, bool* deleted = nullptr, int relation = 4)
      : Focusable(relation, nullptr), gone(deleted) {
    SetValueStr(0, guid, 0);
  }
  ~Rec() override { gone != nullptr && (*gone = true); }
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

TEST_F(ResourceControllerTest, SerialsAreSpentAtOnceKeptPerLoginAndSurviveARestart) {
  Ctrl first(3);
  EXPECT_EQ(CString("R3_G0"), first.GetAvailableGUID());
  EXPECT_EQ(CString("R3_G1"), first.GetAvailableGUID());
  Registry::CloseCurrent();  // the next read opens the store again
  Ctrl again(3);
  EXPECT_EQ(CString("R3_G2"), again.GetAvailableGUID());
  EXPECT_EQ(3, app_.GetProfileInt("User-ann\\IDRolls", "LRID-3", -1));
  // Another login has its own serials; damaged values read as the default.
  login_.section = "User-bob";
  app_.WriteProfileString("User-bob\\IDRolls", "LRID-3", "12");
  app_.WriteProfileInt("User-bob\\IDRolls", "LRID-4", -7);
  Ctrl bob3(3), bob4(4);
  bob4.SetFirstValidIDForGUID(5);
  EXPECT_EQ(CString("R3_G0") + "R4_G5", bob3.GetAvailableGUID() + bob4.GetAvailableGUID());
  // A store that refuses the write gives no GUID, so no record; the serial
  // is spent all the same.
  CWinApp broken("Korlan", "Tidrel", Registry::Current());
  Registry::CloseCurrent();  // broken's store now fails every call
  Rec r("");
  EXPECT_EQ(CString(), bob3.GetAvailableGUID());
  EXPECT_EQ(0, bob3.RegisterFocusable(&r, 0, 0) + bob3.UpdateLastUsedGUID(7));
  CWinApp::SetCurrent(&app_);
  EXPECT_EQ(CString("R3_G7"), bob3.GetAvailableGUID());
}

TEST_F(ResourceControllerTest, RegistriesRefuseDuplicatesAndAnswerByArrayOrMap) {
  Ctrl ctrl(3);
  bool gone = false;
  Rec* a = new Rec("R3_G7", &gone);
  Rec b("R3_G7"), fresh(""), ext("R9_G1"), stranger("R3_G8");
  EXPECT_EQ(1, ctrl.RegisterFocusable(a, 0, 0));
  EXPECT_EQ(0, ctrl.RegisterFocusable(&b, 0, 0));
  EXPECT_EQ(1, ctrl.RegisterFocusable(&fresh, 0, 0));
  EXPECT_EQ(CString("R3_G0"), fresh.GetGUID());
  EXPECT_EQ(0, ctrl.AddExternalGUID("", &ext));
  EXPECT_EQ(1, ctrl.AddExternalGUID("anything", &ext));
  EXPECT_EQ(&ext, ctrl.CheckFocusable("R9_G1", 0));
  EXPECT_EQ(nullptr, ctrl.CheckFocusable("R9_G1", 1));
  // The controller was a's only holder, so a goes. A record known only by
  // GUID leaves the map (0); one in no registry gives 0 even forced.
  int released = -1;
  EXPECT_EQ(1, ctrl.DeRegisterFocusable(a, &released, 0));
  EXPECT_TRUE(gone && released == 1);
  EXPECT_EQ(0, ctrl.DeRegisterFocusable(&ext, &released, 0) + released);
  EXPECT_EQ(0, ctrl.DeRegisterFocusable(&stranger, nullptr, 1));
  EXPECT_EQ(nullptr, ctrl.CheckFocusable("R9_G1", 0));
}

TEST_F(ResourceControllerTest, PanelsHearOfRecordsAddedAndRemovedWhileTheRecordLives) {
  Ctrl ctrl(3);
  bool gone = false;
  Rec* r = new Rec("R3_G5", &gone);
  EXPECT_EQ(1, ctrl.AddFocusable(r));
  ctrl.DeleteFocusable(r, 1);  // the controller was its only holder
  EXPECT_TRUE(gone);
  EXPECT_EQ((std::vector<std::vector<int>>{{1037, 1, 5}, {1035, 2, 5}}), panels_.sent);
}

TEST_F(ResourceControllerTest, AControllerWithoutStateIsHarmless) {
  Ctrl bare(3);
  bare.DropState();
  Rec r("");
  EXPECT_EQ(0, bare.RegisterFocusable(&r, 0, 0) + bare.Release() + bare.GetLoadStatus(0));
  EXPECT_EQ(1, bare.IsResourceCtrlClosed());
  EXPECT_TRUE(bare.GetAvailableGUID().IsEmpty() && bare.GetFocusablesPtr() == nullptr);
  bare.DeleteFocusable(&r, 1), bare.GetFocusables_wFilter(nullptr, nullptr);
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
  auto spend = [ctrl] {
    std::set<CString> guids;
    for (int i = 0; i < 50; ++i)
      ctrl->Reserve(), guids.insert(ctrl->GetAvailableGUID()), ctrl->Release();
    return guids;
  };
  auto other = std::async(std::launch::async, spend);
  std::set<CString> a = spend(), b = other.get();
  a.insert(b.begin(), b.end());
  EXPECT_EQ(100u, a.size());  // no serial handed out twice
  EXPECT_EQ(1, ctrl->Release());
  ASSERT_EQ(1, thread.WaitForExit());
  EXPECT_TRUE(deleted);
  EXPECT_EQ(100, app_.GetProfileInt("User-ann\\IDRolls", "LRID-3", -1));
}

}  // namespace
}  // namespace kordll
