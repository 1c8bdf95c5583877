// The activity list: activities added and removed by command come back (or
// stay gone) after the next load, a damaged slot costs its record only, and
// panels hear what happens.

#include "kordll/control/ActivityCtrl.h"

#include <gtest/gtest.h>

#include <string>

#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
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
    settings_.path = root_.Path("ann");
    SettingsEntryPoints::Install(&settings_), GlobalResourceCtrl::GetGlobalResourceCtrl();
    // The panel lets go when its controller goes away.
    panel_.onMessage = [this](unsigned m) {
      if (m == kPanelMessageDetach) GlobalResourceCtrl::DeRegisterPanel(&panel_, -1);
    };
  }
  ~ActivityCtrlTest() override {
    Reopen(false);
    GlobalResourceCtrl::DeleteGlobalResourceCtrl();
    SettingsEntryPoints::Install(nullptr);
  }
  void Reopen(bool open = true) {
    if (ctrl_ != nullptr) ctrl_->CloseResourceCtrl(), ctrl_ = nullptr;
    GlobalResourceCtrl::RegisterPanel(&panel_, kActivityControllerID, 0);
    if (open) ctrl_ = new ActivityCtrl();
  }
  // The registry's answer and the result, as 11 for "handled, 1".
  int Command(int command, Focusable* record) {
    PANELVIEWMESSAGE m;
    m.message = command, m.focusable = record;
    int result = 0;
    return GlobalResourceCtrl::InterpretGUICommand(&m, &result) * 10 + result;
  }
  Focusable* Add(const char* about, const char* title) {
    auto* record = new Focusable(kActivityRelation, nullptr);
    record->SetValueStr(kActivityAssocField, about, 1), record->SetValueStr(4, title, 1);
    EXPECT_EQ(11, Command(kCommandAddActivity, record));
    return record;
  }
  // The titles of the activities of R4_G1 to R4_G4, "-" for none.
  std::string Titles() {
    std::string out;
    for (const char* about : {"R4_G1", "R4_G2", "R4_G3", "R4_G4"}) {
      Focusable* r = ctrl_->GetActivityItem_wAssocFocGUID(about);
      out += (r == nullptr ? std::string("-") : r->GetFieldString(4, 0).ToUtf8()) + " ";
    }
    return out;
  }

  CWinApp app_;
  UserSettings settings_;
  test::Panel panel_;
  ActivityCtrl* ctrl_ = nullptr;
};

TEST_F(ActivityCtrlTest, ActivitiesSurviveReloadsAndADamagedSlotCostsItsRecordOnly) {
  FileSystem::CreateDirectory(settings_.path);
  Reopen();
  Focusable* early = Add("R4_G1", "early");
  // A later activity for the same record stands.
  const std::string first = Add("R4_G1", "first")->GetGUID().ToUtf8();
  Focusable* second = Add("R4_G2", "second");
  Add("R4_G3", "third");
  EXPECT_EQ(11, Command(kCommandAddActivity, second));  // held already: not again
  // Both commands are answered whatever they carry; only activities count.
  Focusable post(4, nullptr);
  for (Focusable* other : {&post, static_cast<Focusable*>(nullptr)}) {
    EXPECT_EQ(11, Command(kCommandAddActivity, other));
    EXPECT_EQ(11, Command(kCommandRemoveActivity, other));
  }
  EXPECT_EQ(4u, ctrl_->GetFocusables().size());
  EXPECT_EQ(11, Command(kCommandRemoveActivity, second));
  EXPECT_EQ(11, Command(kCommandRemoveActivity, early));
  Reopen();
  EXPECT_EQ("first - third - ", Titles());

  // The slot header of the first becomes garbage.
  Reopen(false);
  const CString file = Locations::Join(settings_.path, "Activities.kdb");
  std::string bytes;
  FileSystem::ReadWholeFile(file, &bytes);
  const size_t at = bytes.find(first);
  ASSERT_NE(std::string::npos, at);
  bytes.replace(bytes.rfind('\n', at) + 1, 25, "garbage header here      ");
  FileSystem::DeleteFile(file);
  ASSERT_EQ(1, FileSystem::WriteWholeFile(file, bytes));
  Reopen();
  EXPECT_EQ("- - third - ", Titles());
  Add("R4_G4", "fourth");  // the list goes on working
  Reopen();
  EXPECT_EQ("- - third fourth ", Titles());
  // Without a running path the list keeps activities in memory only.
  settings_.path = "";
  Reopen();
  Add("R4_G1", "in memory");
  EXPECT_EQ("in memory - - - ", Titles());
  EXPECT_TRUE(ctrl_->GetActivityDB() == nullptr && !FileSystem::Exists(CString("Activities.kdb")));
}

}  // namespace
}  // namespace kordll
