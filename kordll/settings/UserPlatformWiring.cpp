#include "kordll/settings/UserPlatformWiring.h"

#include "kordll/control/UserPlatformHooks.h"
#include "kordll/periodic/PeriodicUpdateManager.h"
#include "kordll/settings/Preferences.h"

namespace kordll {

void InstallUserPlatformWiring() {
  UserPlatformHooks hooks = UserPlatformHooks::Get();
  hooks.newUser = [](const CString& login, int relation) -> Preferences* {
    return new Preferences(login, CString(), relation);
  };
  hooks.deleteUser = [](Preferences* user) { delete user; };
  hooks.userLogin = [](Preferences* user) { return user->GetSectionLogin(); };
  hooks.setUserLogin = [](Preferences* user, const CString& login) {
    return user->SetUserLogin(login);
  };
  hooks.setUserPassword = [](Preferences* user, const CString& password) {
    return user->SetUserPassword(password);
  };
  hooks.saveUser = [](Preferences* user) { return user->SavePreferences(); };
  hooks.setSavable = [](Preferences* user, int savable) { user->SetSavable(savable); };
  hooks.runningPath = [](Preferences* user) { return user->GetUserRunningPath(); };
  hooks.setRunningPath = [](Preferences* user, const CString& path) {
    user->SetUserRunningPath(path);
  };
  hooks.setGlobalPreferences = [](Preferences* user) { Preferences::SetGlobalPreferences(user); };
  hooks.startScheduler = [] { PeriodicUpdateManager::Start(); };
  UserPlatformHooks::Install(hooks);
}

}  // namespace kordll
