#include "kordll/control/KorUserResourcesCtrl.h"

#include <algorithm>
#include <atomic>
#include <vector>

#include "kordll/control/ActivityCtrl.h"
#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/IIPanel.h"
#include "kordll/control/UserPlatformHooks.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/Clock.h"
#include "kordll/platform/FileFind.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Host.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/PluginLoader.h"
#include "kordll/toolkit/Utility.h"

namespace kordll {

namespace {

std::atomic<KorUserResourcesCtrl*> g_instance{nullptr};

// The controller the application closes itself, first of all.
constexpr int kApplicationControllerID = kFirstClosedControllerID;

CString LoginOf(const UserPlatformHooks& hooks, Preferences* user) {
  return user != nullptr && hooks.userLogin ? hooks.userLogin(user) : CString();
}

}  // namespace

KorUserResourcesCtrl::KorUserResourcesCtrl(int relationID, CString defaultLogin,
                                           CString defaultPassword)
    : defaultLogin_(defaultLogin),
      defaultPassword_(defaultPassword),
      relationID_(relationID),
      globalCtrl_(GlobalResourceCtrl::GetGlobalResourceCtrl()) {
  SetResourceControllerID(kUserControllerID);
  GlobalResourceCtrl::RegisterResourceCtrl(this);
  g_instance.store(this);
}

KorUserResourcesCtrl::~KorUserResourcesCtrl() {
  DeleteUsers();
  delete mainPanel_;
  KorUserResourcesCtrl* self = this;
  g_instance.compare_exchange_strong(self, nullptr);
  // The registry is the process's; it goes with the platform that made it
  // live, unless a newer registry has replaced it meanwhile.
  if (globalCtrl_ != nullptr && globalCtrl_ == GlobalResourceCtrl::GetGlobalResourceCtrl()) {
    GlobalResourceCtrl::DeleteGlobalResourceCtrl();
  }
}

KorUserResourcesCtrl* KorUserResourcesCtrl::GetInstance() { return g_instance.load(); }

CString KorUserResourcesCtrl::GetUserFolder(const CString& login) {
  // Without a global path the folder would be taken relative to wherever
  // the process happens to run: there is none then.
  const CString global = GlobalResourceCtrl::GetGlobalKorPath();
  if (global.IsEmpty() || !Locations::IsUsableLoginName(login)) return CString();
  return Locations::Join(global, login);
}

void KorUserResourcesCtrl::AddUserFolder(CString folder) { userFolders_.push_back(folder); }

void KorUserResourcesCtrl::AddDLLValidFileName(CString name) { validDLLNames_.push_back(name); }

void KorUserResourcesCtrl::SetMainPanel(IIPanel* panel) {
  if (panel != mainPanel_) delete mainPanel_;
  mainPanel_ = panel;
}

// --- Users -------------------------------------------------------------------

int KorUserResourcesCtrl::LoadUsers() {
  CWinApp* app = CWinApp::Current();
  if (app == nullptr) return 0;
  const UserPlatformHooks hooks = UserPlatformHooks::Get();
  // The accounts found join those already known (the list is not emptied:
  // the account logged in, and the current settings, stay as they are).
  const CString list = app->GetProfileString("", kUsersKey);
  int start = 0;
  while (start <= list.GetLength()) {
    int end = list.Find(u'|', start);
    if (end < 0) end = list.GetLength();
    const CString login = list.Mid(start, end - start);
    start = end + 1;
    // An empty token is skipped; a login that may not name a folder is
    // passed over, so that it never reaches the file system.
    if (!Locations::IsUsableLoginName(login) || !hooks.newUser) continue;
    if (Preferences* user = hooks.newUser(login, relationID_)) users_.push_back(user);
  }
  return users_.empty() ? 0 : 1;
}

Preferences* KorUserResourcesCtrl::CreateUserPlatform(int create) {
  const UserPlatformHooks hooks = UserPlatformHooks::Get();
  if (create == 0) {
    activeUser_ = users_.size() == 1 ? users_[0] : nullptr;
  } else {
    activeUser_ = nullptr;
    Preferences* user = nullptr;
    if (Locations::IsUsableLoginName(defaultLogin_) && hooks.newUser) {
      user = hooks.newUser(defaultLogin_, relationID_);
    }
    if (user != nullptr) {
      if (hooks.setUserPassword) hooks.setUserPassword(user, defaultPassword_);
      if (hooks.setUserLogin && hooks.setUserLogin(user, defaultLogin_) != 0) {
        if (hooks.saveUser) hooks.saveUser(user);
        users_.push_back(user);
        activeUser_ = user;
      } else if (hooks.deleteUser) {
        hooks.deleteUser(user);  // the login was refused: no account
      }
    }
  }
  if (activeUser_ != nullptr) {
    if (hooks.setSavable) hooks.setSavable(activeUser_, 1);
    if (hooks.setRunningPath) {
      hooks.setRunningPath(activeUser_, GetUserFolder(LoginOf(hooks, activeUser_)));
    }
    freshUser_ = activeUser_;
    if (create != 0) CreateUserAccount(activeUser_);
  }
  UpdateINI(0);
  return activeUser_;
}

int KorUserResourcesCtrl::CreateUserAccount(Preferences* user) {
  const UserPlatformHooks hooks = UserPlatformHooks::Get();
  const CString folder = GetUserFolder(LoginOf(hooks, user));
  if (folder.IsEmpty()) return 0;
  // Folders that cannot be made are left to fail later, where they are used.
  FileSystem::CreateDirectoryTree(folder);
  for (const CString& sub : userFolders_) {
    FileSystem::CreateDirectoryTree(Locations::Join(folder, sub));
  }
  if (hooks.setRunningPath) hooks.setRunningPath(user, folder);
  return 1;
}

int KorUserResourcesCtrl::ReviseUserFileSystem(Preferences* user) {
  const UserPlatformHooks hooks = UserPlatformHooks::Get();
  const CString folder = GetUserFolder(LoginOf(hooks, user));
  if (folder.IsEmpty()) return 0;
  if (!FileSystem::IsFolder(folder)) return CreateUserAccount(user);
  for (const CString& sub : userFolders_) {
    const CString path = Locations::Join(folder, sub);
    if (!FileSystem::IsFolder(path)) FileSystem::CreateDirectoryTree(path);
  }
  return 1;
}

int KorUserResourcesCtrl::DeleteUserPlatform(CString login) {
  const CString folder = GetUserFolder(login);
  if (folder.IsEmpty()) return 0;
  return Utility::DeleteDirectory(folder.c_str());
}

void KorUserResourcesCtrl::UpdateINI(int force) {
  CWinApp* app = CWinApp::Current();
  if (app == nullptr || (users_.empty() && force == 0)) return;
  const UserPlatformHooks hooks = UserPlatformHooks::Get();
  CString list;
  for (Preferences* user : users_) {
    if (hooks.setSavable) hooks.setSavable(user, 1);
    const CString login = LoginOf(hooks, user);
    list += login + "|";
    // A record whose section holds no login yet has never been written.
    const CString section = CString("User-") + login;
    // (The marker is a control character, which no saved login holds.)
    const CString absent("\x01");
    if (app->GetProfileString(section, kUserLoginKey, absent) == absent && hooks.saveUser) {
      hooks.saveUser(user);
    }
  }
  app->WriteProfileString("", kUsersKey, list);
}

void KorUserResourcesCtrl::DeleteUsers() {
  const UserPlatformHooks hooks = UserPlatformHooks::Get();
  // The current settings must never point at a deleted record.
  if (!users_.empty() && hooks.setGlobalPreferences) hooks.setGlobalPreferences(nullptr);
  // Every account but the active one, then the active one.
  for (Preferences* user : users_) {
    if (user != activeUser_ && hooks.deleteUser) hooks.deleteUser(user);
  }
  if (activeUser_ != nullptr && hooks.deleteUser) hooks.deleteUser(activeUser_);
  users_.clear();
  activeUser_ = nullptr;
  freshUser_ = nullptr;
}

// --- Log-in ------------------------------------------------------------------

int KorUserResourcesCtrl::StartUserPlatform(int arg) {
  GlobalResourceCtrl::SetGlobalKorPath(Locations::GetProgramFolder());
  Preferences* user = nullptr;
  int stored = LoadUsers();
  if (stored == 0) {
    user = CreateUserPlatform(1);
    if (user != nullptr) return InitiateUserPlaftform(user, 0, 0);
  } else {
    user = CreateUserPlatform(0);
    if (user != nullptr) return InitiateUserPlaftform(user, arg, 0);
  }
  return 0;
}

int KorUserResourcesCtrl::InitiateUserPlaftform(Preferences* user, int, int clearFresh) {
  if (user == nullptr) return 0;
  const UserPlatformHooks hooks = UserPlatformHooks::Get();
  if (hooks.setGlobalPreferences) hooks.setGlobalPreferences(user);
  // A registry swept by the last log-off starts again, with a new talk
  // controller, so the talk list of this log-in starts empty.
  GlobalResourceCtrl::InitializeGlobalResourceCtrl();
  if (GlobalResourceCtrl::GetResourceController(kUserControllerID) != this) {
    GlobalResourceCtrl::RegisterResourceCtrl(this);
  }
  if (hooks.runningPath && hooks.setRunningPath && hooks.runningPath(user).IsEmpty()) {
    hooks.setRunningPath(user, GetUserFolder(LoginOf(hooks, user)));
  }
  ReviseUserFileSystem(user);
  if (clearFresh != 0 && freshUser_ == user) freshUser_ = nullptr;
  if (noScheduler_ == 0 && hooks.startScheduler) hooks.startScheduler();
  activityCtrl_ = nullptr;
  if (noActivity_ == 0) activityCtrl_ = new ActivityCtrl();
  LoadPlugins();
  return 1;
}

void KorUserResourcesCtrl::LoadPlugins() {
  loadedPlugins_.clear();
  const CString folder = GlobalResourceCtrl::GetGlobalKorPath();
  std::vector<FindEntry> found;
  FileFind::List(folder, "*.DLL", &found);
  for (const FindEntry& entry : found) {
    if (entry.is_folder) continue;
    // The name must equal a listed name exactly; the wildcard alone would
    // take any case.
    if (std::find(validDLLNames_.begin(), validDLLNames_.end(), entry.name) ==
        validDLLNames_.end()) {
      continue;
    }
    // A library that does not load, or has no entry point (closed again),
    // is passed over.
    if (PluginLoader::LoadPlugin(Locations::Join(folder, entry.name)) == PluginLoader::kLoaded) {
      loadedPlugins_.push_back(entry.name);
    }
  }
}

// --- Log-off -----------------------------------------------------------------

int KorUserResourcesCtrl::LogoffActiveUser() {
  GlobalResourceCtrl::SetTidrelClosing(1);
  if (Host* host = Host::Current()) host->HideMainWindow();
  if (mainPanel_ != nullptr) mainPanel_->ClearPanel(1, 1);
  if (ResourceController* application =
          GlobalResourceCtrl::GetResourceController(kApplicationControllerID)) {
    application->CloseResourceCtrl();
  }
  // The scheduler goes apart from the others and before them, so that no
  // periodic job starts while the records it would touch go away.
  if (ResourceController* scheduler =
          GlobalResourceCtrl::GetResourceController(kSchedulerControllerID)) {
    GlobalResourceCtrl::DeRegisterResourceCtrl(scheduler);
    scheduler->StartClosingResourceCtrl();
    scheduler->CloseResourceCtrl();
  }
  // The activity list is closed by the sweep below.
  activityCtrl_ = nullptr;
  DecomposeGlobalResources(nullptr);
  // Controllers with threads finish on those threads; their messages must
  // still be delivered. One that has not finished in time is abandoned: it
  // is not touched again from here.
  for (int pass = 0; pass < kLogoffWaitPasses; ++pass) {
    Clock::SleepMillis(kLogoffWaitMillis);
    Utility::PeekAndPump();
    if (GlobalResourceCtrl::IsAllResourcesClosed(nullptr)) break;
  }
  const UserPlatformHooks hooks = UserPlatformHooks::Get();
  if (hooks.setGlobalPreferences) hooks.setGlobalPreferences(nullptr);
  loadedPlugins_.clear();
  return 1;
}

int KorUserResourcesCtrl::DecomposeGlobalResources(ProgressData* progress) {
  GlobalResourceCtrl::SetGlobalResourceClosed(1);
  globalCtrl_ = GlobalResourceCtrl::GetGlobalResourceCtrl();
  globalCtrl_->StartClosingResources();
  if (mainPanel_ != nullptr) mainPanel_->ClearPanel(1, 1);
  globalCtrl_->OnClear(progress);
  return 1;
}

void KorUserResourcesCtrl::CloseResourceCtrl() {
  // No current settings after this, also when the application logged in a
  // record of its own that is no account here.
  const UserPlatformHooks hooks = UserPlatformHooks::Get();
  if (hooks.setGlobalPreferences) hooks.setGlobalPreferences(nullptr);
  DeleteUsers();
  GlobalResourceCtrl::DeRegisterResourceCtrl(this);
  Release();
}

}  // namespace kordll
