// The user platform: users from the profile, the default user and its
// folders, plug-ins by listed name, log-off in its order with a bounded,
// pumping wait, and a second log-in that starts clean.

#include "kordll/control/KorUserResourcesCtrl.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "kordll/control/UserPlatformHooks.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/PluginLoader.h"
#include "kordll/settings/UserPlatformWiring.h"
#include "tests/control/GlobalResourceCtrlTest.h"
#include "tests/support/TestHost.h"

namespace kordll {
namespace {

std::vector<std::string>* g_log = nullptr;
void Log(const std::string& what) { g_log->push_back(what); }
std::atomic<int> g_lateMaintenance{0};  // calls that reached a warned controller

// A controller that notes how it is closed; a reserved one leaves at once.
struct Noted : test::Ctrl {
  Noted(int id, const char* n, int type = -1) : Ctrl(id, type), name(n) {}
  void StartClosingResourceCtrl() override { Log("warn " + name), warned = true; }
  void CloseResourceCtrl() override { Log("close " + name), Ctrl::CloseResourceCtrl(); }
  void PerformMaintenance(int) override { g_lateMaintenance += warned ? 1 : 0; }
  std::string name;
  std::atomic<bool> warned{false};
};

// The scheduler: a worker calling maintenance of controller 20 until closed.
struct Scheduler : Noted {
  explicit Scheduler(ResourceController* job) : Noted(kSchedulerControllerID, "8") {
    worker = std::thread([this, job] {
      while (!stop) job->PerformMaintenance(0);
    });
  }
  void CloseResourceCtrl() override { stop = true, worker.join(), Noted::CloseResourceCtrl(); }
  std::atomic<bool> stop{false};
  std::thread worker;
};

struct MainPanel : test::Panel {
  void ClearPanel(int, int) override { Log("clear panel"); }
};

class UserPlatformTest : public test::TempRootWithProgramTest {
 protected:
  UserPlatformTest() : app_("Tidrel", "Test") {
    g_log = &log_;
    Host::Install(&host_);
    InstallUserPlatformWiring();
    UserPlatformHooks hooks = UserPlatformHooks::Get();
    hooks.startScheduler = [this] { ++schedulerStarts_; };
    saved_ = UserPlatformHooks::Install(hooks);
    platform_ = new KorUserResourcesCtrl(12, "ann", "secret");
    platform_->AddUserFolder("Posts");
    platform_->AddUserFolder("Cache/Images");
  }
  ~UserPlatformTest() override {
    platform_->LogoffActiveUser();
    platform_->CloseResourceCtrl();
    for (test::Ctrl* c : std::set<test::Ctrl*>(test::Ctrl::Live())) delete c;
    UserPlatformHooks::Install(saved_);
    Host::Install(nullptr);
  }
  CString Program(const char* name) { return root_.Path(CString("program/") + name); }
  bool Folder(const char* path) { return FileSystem::IsFolder(root_.Path(path)); }

  ScopedManualClock clock_;
  CWinApp app_;
  TestHost host_;
  std::vector<std::string> log_;
  int schedulerStarts_ = 0;
  UserPlatformHooks saved_;
  KorUserResourcesCtrl* platform_;
};

TEST_F(UserPlatformTest, FirstStartMakesDefaultUserWithFoldersAndServices) {
  EXPECT_EQ(CString(), KorUserResourcesCtrl::GetUserFolder("ann"));  // no global path yet
  ASSERT_EQ(1, platform_->StartUserPlatform(0));
  EXPECT_EQ(CString("ann|"), app_.GetProfileString("", "Users"));
  EXPECT_EQ(CString("ann"), app_.GetProfileString("User-ann", "UserLogin"));
  EXPECT_TRUE(Folder("program/ann/Posts") && Folder("program/ann/Cache/Images"));
  EXPECT_EQ(CString("ann"), SettingsEntryPoints::Get()->GetCurrentLogin());
  EXPECT_TRUE(platform_->IsFreshUser(platform_->GetActiveUser()) && schedulerStarts_ == 1);
  // No login reaches outside the program folder.
  EXPECT_EQ(0, platform_->DeleteUserPlatform(".."));
  EXPECT_EQ(CString("ann|"), app_.GetProfileString("", "Users"));
}

TEST_F(UserPlatformTest, StoredUsersDecideWhoLogsIn) {
  app_.WriteProfileString("", "Users", "bob|");
  ASSERT_EQ(1, platform_->StartUserPlatform(0));
  EXPECT_EQ(CString("bob"), SettingsEntryPoints::Get()->GetCurrentLogin());
  EXPECT_TRUE(Folder("program/bob/Posts"));
  // Loading again adds to the list; the logged-in user stays current.
  app_.WriteProfileString("", "Users", "|bob||../x|carl|");
  EXPECT_EQ(1, platform_->LoadUsers());
  EXPECT_EQ(3u, platform_->GetUsers().size());  // the empty and the bad logins pass
  EXPECT_EQ(CString("bob"), SettingsEntryPoints::Get()->GetCurrentLogin());
  EXPECT_EQ(0, platform_->StartUserPlatform(0));  // several users: the application decides
  EXPECT_FALSE(Folder("program/ann") || Folder("program/carl"));
}

TEST_F(UserPlatformTest, OnlyListedPluginsWithTheEntryStayLoaded) {
  const CString built = CString(KORDLL_TEST_PLUGIN_DIR) + "/";
  // Files that are no plug-in are the loader's own tests; here the list.
  for (const char* n : {"Listed.DLL", "Unlisted.DLL", "CASE.DLL"}) {
    ASSERT_EQ(1, FileSystem::CopyFile(built + "TestPlugin.DLL", Program(n), 1));
  }
  for (const char* n : {"Listed.DLL", "Case.DLL", "Missing.DLL"}) platform_->AddDLLValidFileName(n);
  ASSERT_EQ(1, platform_->StartUserPlatform(0));
  EXPECT_EQ(CStringArray{"Listed.DLL"}, platform_->GetLoadedPlugins());
  EXPECT_EQ(1, host_.CountOf(TestHost::CallKind::kMessageBox));  // its LoadResources ran
  for (const char* n : {"Unlisted.DLL", "CASE.DLL"})
    EXPECT_FALSE(PluginLoader::IsLoaded(Program(n)));
}

TEST_F(UserPlatformTest, LogoffClosesInOrderAndNextLoginStartsClean) {
  ASSERT_EQ(1, platform_->StartUserPlatform(0));
  auto* panel = new MainPanel;
  panel->wnd.Create();  // the window thread is this one
  platform_->SetMainPanel(panel);
  new Noted(3, "3");
  Noted* job = new Noted(20, "20");
  new Scheduler(job);
  new Noted(-1, "stuck", 1);  // never leaves the registry by itself
  const int64_t start = Clock::MonotonicMillis();
  ASSERT_EQ(1, platform_->LogoffActiveUser());
  EXPECT_EQ(10000, Clock::MonotonicMillis() - start);  // 200 waits of 50 ms, then given up
  EXPECT_EQ(std::vector<std::string>({"clear panel", "close 3", "warn 8", "close 8", "warn 20",
                                      "warn stuck", "clear panel", "close 20"}),
            log_);
  EXPECT_EQ(0, g_lateMaintenance.load());
  EXPECT_EQ(1, host_.CountOf(TestHost::CallKind::kHideMainWindow));
  EXPECT_EQ(CString(), SettingsEntryPoints::Get()->GetCurrentLogin());
  EXPECT_EQ(0, GlobalResourceCtrl::IsAllResourcesClosed(nullptr));

  // A message posted to the window thread during the wait still arrives:
  // here it lets the stuck controller go, and the wait ends early.
  log_.clear();
  Preferences* ann = platform_->GetActiveUser();
  ASSERT_EQ(1, platform_->InitiateUserPlaftform(ann, 0, 1));
  EXPECT_FALSE(platform_->IsFreshUser(ann) || GlobalResourceCtrl::IsTidrelClosing());
  EXPECT_EQ(2, schedulerStarts_);
  Noted* stuck = new Noted(-1, "stuck again", 1);
  panel->onMessage = [stuck](unsigned) { GlobalResourceCtrl::DeRegisterResourceCtrl(stuck); };
  ASSERT_EQ(1, panel->PostPanelMessage(kPanelMessageLoaded, 0, 0));
  const int64_t again = Clock::MonotonicMillis();
  ASSERT_EQ(1, platform_->LogoffActiveUser());
  EXPECT_EQ(50, Clock::MonotonicMillis() - again);
  EXPECT_EQ(1, GlobalResourceCtrl::IsAllResourcesClosed(nullptr));
}

}  // namespace
}  // namespace kordll
