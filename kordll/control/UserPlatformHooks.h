// UserPlatformHooks: what the user platform (KorUserResourcesCtrl) needs from
// the layers above it, the user's settings records and the scheduler.
//
// The platform keeps its accounts as Preferences records, but the settings
// layer sits above this one: every operation on an account goes through the
// hooks below, which the settings layer fills (InstallUserPlatformWiring in
// kordll/settings/UserPlatformWiring.h). Tests install hooks of their own.
// A hook left empty does nothing and answers 0, "" or null: without account
// hooks no user can be made, and without the scheduler hook log-in starts no
// scheduler.
//
// The Preferences pointers are opaque here: made by newUser, given back to
// deleteUser, never dereferenced by the platform.
//
// Thread safety: Install and Get may run on any thread; Get hands out a
// copy, so a hook installed meanwhile takes effect at the next Get.

#ifndef KORDLL_CONTROL_USERPLATFORMHOOKS_H_
#define KORDLL_CONTROL_USERPLATFORMHOOKS_H_

#include <functional>

#include "kordll/platform/CString.h"

namespace kordll {

class Preferences;

struct UserPlatformHooks {
  // --- Accounts -----------------------------------------------------------
  // A new settings record for login (section "User-<login>") of the
  // application's settings relation, owned by the caller; null on failure.
  std::function<Preferences*(const CString& login, int relation)> newUser;
  // Deletes a record made by newUser.
  std::function<void(Preferences* user)> deleteUser;
  // The login the record's section was made from.
  std::function<CString(Preferences* user)> userLogin;
  // Store the login and the password fields; 1 when taken. setUserLogin
  // refuses (0) a login that may not name a folder.
  std::function<int(Preferences* user, const CString& login)> setUserLogin;
  std::function<int(Preferences* user, const CString& password)> setUserPassword;
  // Writes the record's held values to the profile; 1 on success.
  std::function<int(Preferences* user)> saveUser;
  std::function<void(Preferences* user, int savable)> setSavable;
  // The folder of the user's own files, kept with the record.
  std::function<CString(Preferences* user)> runningPath;
  std::function<void(Preferences* user, const CString& path)> setRunningPath;
  // Makes user the current settings record (null: none).
  std::function<void(Preferences* user)> setGlobalPreferences;

  // --- Services -----------------------------------------------------------
  // Starts the scheduler (controller 8) for the logged-in user.
  std::function<void()> startScheduler;

  // A copy of the hooks installed now (all empty before any Install).
  static UserPlatformHooks Get();
  // Replaces every hook; returns the hooks installed before.
  static UserPlatformHooks Install(UserPlatformHooks hooks);
};

}  // namespace kordll

#endif  // KORDLL_CONTROL_USERPLATFORMHOOKS_H_
