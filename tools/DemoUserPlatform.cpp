// The user platform step of `kordll demo`: the platform started for the
// demo's user with the data root as its program folder (the user's folders
// made, the scheduler running, the activity list loaded), an activity
// saved, a log-off in order, a second log-in that finds the activity again
// and continues the GUID serials, and the last log-off with every controller
// closed. The user stays in the profile, so a later run finds the same user
// and goes on with its serials; the user's folder is removed at the end, so
// every run prints alike and the data root keeps only what the other steps
// keep there.

#include <memory>
#include <ostream>

#include "kordll/control/ActivityCtrl.h"
#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/KorUserResourcesCtrl.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/SettingsEntryPoints.h"
#include "kordll/settings/Preferences.h"
#include "kordll/settings/UserPlatformWiring.h"
#include "tools/DemoWalk.h"

namespace {

using kordll::CString;
using kordll::GlobalResourceCtrl;
using kordll::KorUserResourcesCtrl;

const char16_t kLogin[] = u"walker";
const char16_t kPostsFolder[] = u"Posts";

const char* YesNo(bool yes) { return yes ? "yes" : "no"; }

// Saves a new activity about the record `about` through the registry, as a
// panel would; its GUID serial, or -1.
int SaveActivity(const char* about) {
  auto* activity = new kordll::Focusable(kordll::kActivityRelation, nullptr);
  activity->SetValueStr(kordll::kActivityAssocField, CString(about), 1);
  kordll::PANELVIEWMESSAGE command;
  command.message = kordll::kCommandAddActivity;
  command.focusable = activity;
  int result = 0;
  if (GlobalResourceCtrl::InterpretGUICommand(&command, &result) == 0) {
    delete activity;  // nobody took it
    return -1;
  }
  return activity->GetFocusableID();
}

// The next serial the profile keeps for the activity list, 0 if none yet.
int KeptSerial(kordll::CWinApp* app) {
  return app->GetProfileInt(CString(u"User-") + kLogin + u"\\IDRolls", u"LRID-19", 0);
}

void UserPlatform(kordll_tool::Walk& walk) {
  walk.Step("The user platform: log-in, activities, log-off, and log-in again");
  std::ostream& out = walk.out();
  kordll::CWinApp* app = kordll::AfxGetApp();
  std::unique_ptr<kordll::CWinApp> own;
  if (app == nullptr) {
    own = std::make_unique<kordll::CWinApp>(u"Tidrel", u"Demo");
    app = own.get();
  }
  const CString dataRoot = kordll::Locations::GetDataRoot();
  if (!walk.Expect(kordll::FileSystem::CreateDirectoryTree(dataRoot) == 1,
                   "cannot make the data root for the user platform")) {
    return;
  }
  // Users live below the program folder; for the demo that is the data root.
  const CString programFolder = kordll::Locations::GetProgramFolder();
  kordll::Locations::SetProgramFolder(dataRoot);
  kordll::InstallUserPlatformWiring();
  const int keptBefore = KeptSerial(app);

  auto* platform = new KorUserResourcesCtrl(kordll::Preferences::kNewsRelation, kLogin, u"");
  platform->AddUserFolder(kPostsFolder);
  const int started = platform->StartUserPlatform(0);
  const CString login = kordll::SettingsEntryPoints::Get()->GetCurrentLogin();
  const CString folder = KorUserResourcesCtrl::GetUserFolder(kLogin);
  const bool folders = kordll::FileSystem::IsFolder(kordll::Locations::Join(folder, kPostsFolder));
  out << "  user \"" << login.ToUtf8() << "\" logged in, folders made: " << YesNo(folders) << "\n";
  walk.Expect(started == 1 && login == CString(kLogin) && folders, "the log-in failed");
  const bool scheduler =
      GlobalResourceCtrl::GetResourceController(kordll::kSchedulerControllerID) != nullptr;
  out << "  scheduler running (controller 8): " << YesNo(scheduler) << "\n";
  out << "  activity list loaded (controller 19): " << YesNo(platform->GetActivityCtrl() != nullptr)
      << "\n";
  walk.Expect(scheduler && platform->GetActivityCtrl() != nullptr, "a service did not start");
  const int first = SaveActivity("R3_G1");
  out << "  an activity saved, continuing the serials of earlier runs: "
      << YesNo(first >= 0 && first >= keptBefore) << "\n";
  walk.Expect(first >= 0 && first >= keptBefore, "the activity was not saved");

  platform->LogoffActiveUser();
  const bool closed = GlobalResourceCtrl::IsAllResourcesClosed(nullptr) != 0 &&
                      kordll::SettingsEntryPoints::Get()->GetCurrentLogin().IsEmpty();
  out << "  logged off, every controller closed and no current user: " << YesNo(closed) << "\n";
  walk.Expect(closed, "the log-off left a controller or the user");

  // The same user again, on the registry swept by the log-off.
  kordll::Preferences* user = platform->GetActiveUser();
  const int again = platform->InitiateUserPlaftform(user, 0, 1);
  kordll::ActivityCtrl* activities = platform->GetActivityCtrl();
  const bool found =
      activities != nullptr && activities->GetActivityItem_wAssocFocGUID(u"R3_G1") != nullptr;
  const int second = SaveActivity("R3_G2");
  out << "  logged in again: the activity found " << YesNo(found)
      << ", the next GUID serial follows: " << YesNo(second == first + 1) << "\n";
  walk.Expect(again == 1 && found && second == first + 1, "the second log-in did not go on");
  platform->LogoffActiveUser();
  const bool closedAgain = GlobalResourceCtrl::IsAllResourcesClosed(nullptr) != 0;
  out << "  logged off again, every controller closed: " << YesNo(closedAgain) << "\n";
  walk.Expect(closedAgain, "the second log-off left a controller");

  // The user stays in the profile; its folder goes, so the data root is left
  // as the step found it.
  platform->DeleteUserPlatform(kLogin);
  platform->CloseResourceCtrl();
  // The platform took the registry with it; the process keeps one standing,
  // as the registry step leaves it, for whatever runs after the walk.
  GlobalResourceCtrl::GetGlobalResourceCtrl();
  kordll::Locations::SetProgramFolder(programFolder);
  out << "  the user's folder removed again; the profile keeps the user: "
      << YesNo(!kordll::FileSystem::Exists(folder) &&
               app->GetProfileString(u"", u"Users").Find(kLogin) >= 0)
      << "\n";
}

const kordll_tool::DemoStepRegistration kUserPlatform{90, &UserPlatform};

}  // namespace
