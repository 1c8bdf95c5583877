// The activity list: activities added and removed by command come back (or
// stay gone) after the next load, a damaged slot costs its record only, and
// panels hear what happens.

#include "kordll/control/ActivityCtrl.h"

#include <gtest/gtest.h>

#include <string>

#include "kordll/platform/FileFind.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/Focusable.h"
#include "tests/control/GlobalResourceCtrlTest.h"

namespace kordll {
namespace {

struct UserSettings : test::Settings {
  CString GetCurrentUserRunningPath() override { return path; }
  CString path;
};

class ActivityCtrlTest : public test::TempRootTest {
 protected:
  ActivityCtrlTest() : app_("Tidrel", "Test") {
    settings_.path = root_.Path("data/ann");
    FileSystem::CreateDirectoryTree(settings_.path);
    SettingsEntryPoints::Install(&settings_);
    GlobalResourceCtrl::GetGlobalResourceCtrl();
    GlobalResourceCtrl::RegisterPanel(&panel_, kActivityControllerID, 0);
    // The panel lets go when its controller goes away.
    panel_.onMessage = [this](unsigned m) {
      if (m == kPanelMessageDetach) GlobalResourceCtrl::DeRegisterPanel(&panel_, -1);
    };
  }
  ~ActivityCtrlTest() override {
    Close();
    GlobalResourceCtrl::SetGlobalResourceClosed(1);
    GlobalResourceCtrl::GetGlobalResourceCtrl()->OnClear(nullptr);
    GlobalResourceCtrl::DeleteGlobalResourceCtrl();
    SettingsEntryPoints::Install(nullptr);
  }
  ActivityCtrl* Open() {
    GlobalResourceCtrl::RegisterPanel(&panel_, kActivityControllerID, 0);
    return ctrl_ = new ActivityCtrl();
  }
  void Close() {
    if (ctrl_ != nullptr) ctrl_->CloseResourceCtrl(), ctrl_ = nullptr;
  }
  // Offers an activity for `about` with command to the registry; the
  // registry's answer.
  int Command(int command, Focusable* record) {
    PANELVIEWMESSAGE m;
    m.message = command;
    m.focusable = record;
    int result = 0;
    return GlobalResourceCtrl::InterpretGUICommand(&m, &result) * 10 + result;
  }
  Focusable* Add(const char* about, const char* title = "") {
    auto* record = new Focusable(kActivityRelation, nullptr);
    record->SetValueStr(kActivityAssocField, about, 1);
    record->SetValueStr(4, title, 1);
    EXPECT_EQ(11, Command(kCommandAddActivity, record));
    return record;
  }
  std::string Title(const char* about) {
    Focusable* r = ctrl_->GetActivityItem_wAssocFocGUID(about);
    return r == nullptr ? "<none>" : r->GetFieldString(4, 0).ToUtf8();
  }
  // Messages the panel heard, as {panel message, kind} pairs, then forgets.
  std::vector<std::vector<int>> Heard() {
    std::vector<std::vector<int>> out;
    for (auto& h : panel_.heard) out.push_back({h[0], h[1]});
    panel_.heard.clear();
    return out;
  }
  std::string DBBytes() {
    std::string bytes;
    FileSystem::ReadWholeFile(Locations::Join(settings_.path, "Activities.kdb"), &bytes);
    return bytes;
  }

  ScopedManualClock clock_;
  CWinApp app_;
  UserSettings settings_;
  test::Panel panel_;
  ActivityCtrl* ctrl_ = nullptr;
};

using V = std::vector<std::vector<int>>;

TEST_F(ActivityCtrlTest, ActivitiesAddedAndRemovedSurviveTheNextLoad) {
  Open();
  EXPECT_EQ(V({{1025, 0}}), Heard());
  EXPECT_EQ(ctrl_, GlobalResourceCtrl::GetResourceController(kActivityControllerID));
  Add("R4_G1", "first");
  Focusable* second = Add("R4_G2", "second");
  Add("R4_G3", "third");
  EXPECT_EQ(V({{1057, 1}, {1057, 1}, {1057, 1}}), Heard());
  // The same record again is not entered twice; another record's activity
  // answers nothing from this controller.
  EXPECT_EQ(11, Command(kCommandAddActivity, second));
  EXPECT_EQ(3u, ctrl_->GetFocusables().size());
  Focusable post(4, nullptr);
  EXPECT_EQ(0, Command(kCommandAddActivity, &post));

  const CString guid = second->GetGUID();
  EXPECT_EQ(11, Command(kCommandRemoveActivity, second));  // and the record goes
  EXPECT_EQ(V({{1055, 2}}), Heard());
  EXPECT_EQ("<none>", Title("R4_G2"));
  EXPECT_EQ(nullptr, ctrl_->CheckFocusable(guid, 1));

  Close();
  Open();
  EXPECT_EQ(V({{1058, 0}, {1025, 0}}), Heard());
  EXPECT_EQ("first", Title("R4_G1"));
  EXPECT_EQ("<none>", Title("R4_G2"));
  EXPECT_EQ("third", Title("R4_G3"));
  EXPECT_EQ(kActivityLoadedStatus,
            ctrl_->GetActivityItem_wAssocFocGUID("R4_G1")->GetFocusableStatus());
  EXPECT_EQ(1, ctrl_->GetLoadStatus(0));
}

TEST_F(ActivityCtrlTest, DamagedSlotCostsThatRecordAndNothingMore) {
  Open();
  Add("R4_G1", "first");
  const CString damagedGUID = Add("R4_G2", "second")->GetGUID();
  Add("R4_G3", "third");
  Close();
  // The slot header of the second record becomes garbage.
  std::string bytes = DBBytes();
  const size_t at = bytes.find(damagedGUID.ToUtf8());
  ASSERT_NE(std::string::npos, at);
  const size_t slot = bytes.rfind('\n', at) + 1;
  bytes.replace(slot, 25, "garbage header here      ");
  const CString file = Locations::Join(settings_.path, "Activities.kdb");
  FileSystem::DeleteFile(file);
  ASSERT_EQ(1, FileSystem::WriteWholeFile(file, bytes));

  Open();
  EXPECT_EQ("first", Title("R4_G1"));
  EXPECT_EQ("<none>", Title("R4_G2"));
  EXPECT_EQ("third", Title("R4_G3"));
  EXPECT_EQ(2u, ctrl_->GetFocusables().size());
  // The list keeps working: a new activity is stored and read back.
  Add("R4_G4", "fourth");
  Close();
  Open();
  EXPECT_EQ("first", Title("R4_G1"));
  EXPECT_EQ("fourth", Title("R4_G4"));
}

TEST_F(ActivityCtrlTest, LaterActivityForOneRecordStandsAndClosingRemovalIsSilent) {
  Open();
  Focusable* early = Add("R4_G1", "early");
  Focusable* late = Add("R4_G1", "late");
  EXPECT_EQ("late", Title("R4_G1"));
  EXPECT_EQ(2u, ctrl_->GetFocusables().size());
  // Removing the earlier one leaves the later one found.
  EXPECT_EQ(11, Command(kCommandRemoveActivity, early));
  EXPECT_EQ("late", Title("R4_G1"));
  Heard();
  GlobalResourceCtrl::SetTidrelClosing(1);
  EXPECT_EQ(11, Command(kCommandRemoveActivity, late));
  EXPECT_EQ(V(), Heard());
  EXPECT_EQ("<none>", Title("R4_G1"));
  GlobalResourceCtrl::SetTidrelClosing(0);
}

TEST_F(ActivityCtrlTest, WithoutRunningPathNothingIsWrittenAnywhere) {
  settings_.path = "";
  Open();
  EXPECT_EQ(nullptr, ctrl_->GetActivityDB());
  Add("R4_G1", "kept in memory");
  EXPECT_EQ("kept in memory", Title("R4_G1"));
  std::vector<FindEntry> found;
  FileFind::List(root_.root(), "*.kdb", &found);
  EXPECT_TRUE(found.empty());
  EXPECT_FALSE(FileSystem::IsFile(CString("Activities.kdb")));
}

}  // namespace
}  // namespace kordll
