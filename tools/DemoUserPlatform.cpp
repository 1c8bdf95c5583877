// The user platform step of `kordll demo`: the platform started for the
// demo's user (the user's folders made, the scheduler running, the activity
// list loaded, the sample plug-in's controller made when the plug-in is at
// hand), one maintenance call arriving through the scheduler, an activity
// saved, a log-off in order, a second log-in that finds the activity again
// and continues the GUID serials, and the last log-off with every controller
// closed. The user stays in the profile, so a later run finds the same user
// and goes on with its serials; the user's folder is removed at the end, so
// every run prints alike and the data root keeps only what the other steps
// keep there.
//
// The program folder, where the users' folders lie and the plug-ins are
// looked for, is the folder that KORDLL_DEMO_PLUGINS names (`make demo`
// names the build's folder of the sample plug-in, SamplePlugin.DLL), and
// the data root when that is not set: then there is no plug-in to load and
// the step says it was passed over.

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <ostream>

#include "kordll/control/ActivityCtrl.h"
#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/KorUserResourcesCtrl.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/periodic/PeriodicUpdateManager.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/platform/Clock.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/TimerTable.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/SettingsEntryPoints.h"
#include "kordll/settings/Preferences.h"
#include "kordll/settings/UserPlatformWiring.h"
#include "tools/DemoWalk.h"

namespace {

using kordll::CString;
using kordll::GlobalResourceCtrl;
using kordll::KorUserResourcesCtrl;
using kordll::PeriodicUpdateManager;

const char16_t kLogin[] = u"walker";
const char16_t kPostsFolder[] = u"Posts";
// The sample plug-in, and the variable naming the folder it was built in.
const char16_t kPlugin[] = u"SamplePlugin.DLL";
const char kPluginFolderVariable[] = "KORDLL_DEMO_PLUGINS";
// The controller the sample plug-in makes: the application's posts.
constexpr int kPostsController = 3;
// The record kept fresh by the scheduler: every second, maintenance kind 1.
constexpr long kFreshSeconds = 1;
constexpr int kFreshKind = 1;
constexpr int kFreshHolder = 90;

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

// A record that the scheduler keeps fresh: each call of its maintenance is
// counted, with the kind and whether it came on the scheduler's thread.
class FreshRecord : public kordll::Focusable {
 public:
  FreshRecord() : Focusable(kordll::kActivityRelation, nullptr) { ReserveHeader(kFreshHolder); }
  void PerformMaintenance(int kind) override {
    if (kind == kFreshKind &&
        kordll::AfxGetThread() == PeriodicUpdateManager::GetPeriodicUpdateManager()) {
      onSchedulerThread_.fetch_add(1);
    }
    calls_.fetch_add(1);
  }
  int calls() const { return calls_.load(); }
  int onSchedulerThread() const { return onSchedulerThread_.load(); }

 private:
  std::atomic<int> calls_{0};
  std::atomic<int> onSchedulerThread_{0};
};

// Returns once the scheduler has handled every message queued before this
// call, the timer messages that the clock raised among them: it ends a timer
// it does not know, so a message of such a timer, queued behind them, tells
// when it got there. False when that took more than about ten seconds.
bool SchedulerCaughtUp(PeriodicUpdateManager* scheduler) {
  const unsigned probe = kordll::SetTimer(scheduler, kordll::TimerTable::kMaxPeriodMs);
  if (probe == 0) return false;
  if (scheduler->PostThreadMessage(kordll::kMsgTimer, probe, 0) == 0) {
    kordll::KillTimer(probe);
    return false;
  }
  std::mutex mutex;
  std::condition_variable nobody;
  std::unique_lock<std::mutex> lock(mutex);
  for (int pass = 0; pass < 2000; ++pass) {
    if (kordll::TimerTable::Instance().PeriodOf(probe) == 0) return true;
    // A few milliseconds of the machine's time on any clock.
    kordll::Clock::WaitUntil(nobody, lock, kordll::Clock::MonotonicMillis() + 5);
  }
  kordll::KillTimer(probe);
  return false;
}

// Registers a record for maintenance every second and lets clock time pass
// in heartbeats until the scheduler has called it (at most a few seconds of
// clock time). On a clock that a test moves this costs no waiting. The
// record is taken out of the scheduler again; it must outlive the scheduler
// all the same, since a record still waiting for its run cannot be taken
// out.
bool OneMaintenanceCall(FreshRecord* record, std::ostream& out) {
  PeriodicUpdateManager* scheduler = PeriodicUpdateManager::GetPeriodicUpdateManager();
  if (scheduler == nullptr) return false;
  PeriodicUpdateManager::AddMaintenanceItem(record, kFreshSeconds, kFreshKind);
  for (int beat = 0; beat < 30 && record->calls() == 0; ++beat) {
    kordll::Clock::SleepMillis(PeriodicUpdateManager::kHeartbeatMs);
    if (!SchedulerCaughtUp(scheduler)) break;
  }
  const bool arrived = record->calls() > 0 && record->onSchedulerThread() == record->calls();
  const bool removed = PeriodicUpdateManager::RemoveMaintenanceItem(record, kFreshKind) == 1;
  // A pass that was under way when the record left ends before it goes.
  SchedulerCaughtUp(scheduler);
  out << "  a record kept fresh every second: a maintenance call (kind " << kFreshKind
      << ") arrived through the scheduler, on its thread: " << YesNo(arrived)
      << "; taken out again: " << YesNo(removed) << "\n";
  return arrived && removed;
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
  // Users live below the program folder: the sample plug-in's folder when
  // it is named, the data root otherwise.
  const CString programFolder = kordll::Locations::GetProgramFolder();
  const CString pluginFolder = kordll::Locations::GetVariable(kPluginFolderVariable);
  kordll::Locations::SetProgramFolder(pluginFolder.IsEmpty() ? dataRoot : pluginFolder);
  kordll::InstallUserPlatformWiring();
  const int keptBefore = KeptSerial(app);
  // Kept fresh by the scheduler during the first log-in; it outlives the
  // scheduler of both log-ins.
  FreshRecord fresh;

  auto* platform = new KorUserResourcesCtrl(kordll::Preferences::kNewsRelation, kLogin, u"");
  platform->AddUserFolder(kPostsFolder);
  platform->AddDLLValidFileName(kPlugin);
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
  if (platform->GetLoadedPlugins().empty()) {
    out << "  the sample plug-in passed over: " << CString(kPlugin).ToUtf8()
        << " not loaded from the program folder (" << kPluginFolderVariable
        << " names its folder)\n";
  } else {
    const bool posts = GlobalResourceCtrl::GetResourceController(kPostsController) != nullptr;
    out << "  the sample plug-in's controller created (controller " << kPostsController
        << "): " << YesNo(posts) << "\n";
    walk.Expect(posts, "the sample plug-in made no controller");
  }
  walk.Expect(OneMaintenanceCall(&fresh, out), "no maintenance call came through the scheduler");
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
