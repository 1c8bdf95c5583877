// KorUserResourcesCtrl: the user platform, controller 18.
//
// It knows the user accounts of the installation, builds a user's folders,
// starts the global services for the logged-in user, loads the plug-ins, and
// takes the whole system down again at log-off. The application makes
// exactly one, before any other controller, adds the user folders and the
// plug-in names it wants, and calls StartUserPlatform.
//
// Accounts are settings records (Preferences) reached through the hooks of
// UserPlatformHooks; the list of logins is the profile string "Users" of the
// empty section, each login followed by "|". A user's folder is the global
// path (the program folder), "/", and the login. A login that may not name
// a folder (empty, "." or "..", or holding "/", "\", U+0000 or a control
// character) never becomes one: loading users passes over it and creating
// a user refuses it.
//
// Life: constructed; users loaded; a user active (InitiateUserPlaftform);
// logged off (LogoffActiveUser: the registry swept, no current settings);
// then another InitiateUserPlaftform, which starts the registry again with
// an empty talk list, or CloseResourceCtrl and the end. The destructor
// deletes the main panel and the registry.
//
// Plug-ins: at log-in every "*.DLL" of the global path whose name equals a
// listed name exactly is loaded and its "LoadResources" run; one that does
// not load, or lacks the entry, is passed over (and closed again).
//
// Thread safety: everything here runs on the application's main thread.
// LogoffActiveUser pumps that thread's messages while it waits for the
// controllers to close, so that panels and thread completions still run.

#ifndef KORDLL_CONTROL_KORUSERRESOURCESCTRL_H_
#define KORDLL_CONTROL_KORUSERRESOURCESCTRL_H_

#include "kordll/control/ResourceController.h"
#include "kordll/platform/CString.h"

namespace kordll {

class ActivityCtrl;
class GlobalResourceCtrl;
class IIPanel;
class Preferences;
class ProgressData;

class KorUserResourcesCtrl : public ResourceController {
 public:
  // The profile key of the user list (empty section), and the entry whose
  // presence in a user's section says the record was saved once.
  static constexpr const char* kUsersKey = "Users";
  static constexpr const char* kUserLoginKey = "UserLogin";
  // The bounded wait of the log-off: this many passes of this many
  // milliseconds of clock time, pumping messages between them.
  static constexpr int kLogoffWaitPasses = 200;
  static constexpr int kLogoffWaitMillis = 50;

  // relationID: the application's settings relation (12, 28 or 31), given
  // to each account; defaultLogin and defaultPassword: the account made when
  // there is none. Registers the controller under id 18, becomes the
  // instance, and takes (or makes) the registry.
  KorUserResourcesCtrl(int relationID, CString defaultLogin, CString defaultPassword);
  KorUserResourcesCtrl(const KorUserResourcesCtrl&) = delete;
  KorUserResourcesCtrl& operator=(const KorUserResourcesCtrl&) = delete;
  // Deletes the accounts still held (the current settings are cleared
  // first), the main panel and the registry.
  ~KorUserResourcesCtrl() override;

  // The one instance, or null.
  static KorUserResourcesCtrl* GetInstance();

  // --- Operations, in the order derived classes override them -------------

  // Sets the global path to the program folder, loads the users, and logs
  // in: with no stored user a new one is made from the defaults (folders
  // built) and InitiateUserPlaftform(user, 0, 0) runs; with one user,
  // InitiateUserPlaftform(user, arg, 0). Answers what that answered, or 0
  // when no user came back (with several users and no decision the
  // application logs in by itself).
  virtual int StartUserPlatform(int arg);
  // Logs user in: current settings, a fresh registry (new talk list), the
  // user's folders, the scheduler (unless noScheduler), the activity list
  // (unless noActivity), then the plug-ins. clearFresh non-zero clears the
  // user's freshly-chosen mark. 1; 0 for a null user.
  virtual int InitiateUserPlaftform(Preferences* user, int arg, int clearFresh);
  // Deletes the folder of login with everything in it; the profile and the
  // list of users stay. 1 when the folder is gone, 0 otherwise (and for a
  // login that may not name a folder).
  virtual int DeleteUserPlatform(CString login);
  // Rebuilds the user's folder tree: the missing sub-folders, or the whole
  // account when the folder is gone. 1, 0 for a null user.
  virtual int ReviseUserFileSystem(Preferences* user);
  // The shut-down, in this order: the application is marked closing; the
  // main window hides; the main panel is cleared; controller 3 closes; the
  // scheduler (8) is taken out and closed apart from the others, so that no
  // periodic job starts while its records go; DecomposeGlobalResources; a
  // bounded wait (kLogoffWaitPasses of kLogoffWaitMillis, pumping messages)
  // until every slot of the registry is empty, after which a controller that
  // has not finished is abandoned; no current settings. Answers 1.
  virtual int LogoffActiveUser();
  // Reads "Users" and adds an account for each usable login to those
  // already known (loading twice lists a login twice). 1 when there is any
  // account; 0 without an application object.
  virtual int LoadUsers();
  // Chooses the active user: with create 0 the only user (none when there
  // are several or none); with create non-zero a new account from the
  // defaults, saved, added and given its folders. The chosen user is made
  // savable, gets its running path, and is marked freshly chosen; then
  // UpdateINI(0). Answers the active user, or null.
  virtual Preferences* CreateUserPlatform(int create);
  // Makes the user's folder and each user folder under it (failures are
  // ignored) and sets its running path. 1; 0 for a null user or one whose
  // login may not name a folder.
  virtual int CreateUserAccount(Preferences* user);
  // The end: clears the current settings, deletes every account,
  // de-registers the controller and drops its reference.
  void CloseResourceCtrl() override;

  // --- Set-up by the application, before StartUserPlatform ---------------

  void AddUserFolder(CString folder);
  void AddDLLValidFileName(CString name);
  void SetRegistryPath(CString path) { registryPath_ = path; }
  CString GetRegistryPath() const { return registryPath_; }
  // Takes ownership of the main window's panel (deleted by the destructor).
  void SetMainPanel(IIPanel* panel);
  IIPanel* GetMainPanel() const { return mainPanel_; }
  void SetNoActivity(int no) { noActivity_ = no; }
  void SetNoScheduler(int no) { noScheduler_ = no; }

  // --- Closing ---------------------------------------------------------------

  // The registry's part of the log-off: closed flag, every controller
  // warned, the main panel cleared, then OnClear(progress). Answers 1.
  int DecomposeGlobalResources(ProgressData* progress);
  // Writes "Users" from the accounts (each made savable; an account whose
  // section has no "UserLogin" yet is saved first). Nothing without an
  // application object, or with no accounts unless force is non-zero.
  void UpdateINI(int force);

  // --- State -------------------------------------------------------------------

  const CArray<Preferences*, Preferences*>& GetUsers() const { return users_; }
  Preferences* GetActiveUser() const { return activeUser_; }
  // The activity list of this log-in, or null (none made, or logged off).
  ActivityCtrl* GetActivityCtrl() const { return activityCtrl_; }
  // Whether user is the freshly chosen user of CreateUserPlatform, not yet
  // cleared by InitiateUserPlaftform.
  bool IsFreshUser(Preferences* user) const { return user != nullptr && user == freshUser_; }
  // The file names of the plug-ins whose LoadResources ran at the last
  // log-in, in the order they were loaded.
  const CStringArray& GetLoadedPlugins() const { return loadedPlugins_; }
  // The folder of login: the global path, "/", login ("" for a login that
  // may not name a folder, and while no global path is set).
  static CString GetUserFolder(const CString& login);

 private:
  void LoadPlugins();
  // Deletes every account, the current settings cleared first.
  void DeleteUsers();

  CArray<Preferences*, Preferences*> users_;  // owned
  Preferences* activeUser_ = nullptr;         // one of users_, or null
  Preferences* freshUser_ = nullptr;          // one of users_, or null
  CString defaultLogin_;
  CString defaultPassword_;
  int relationID_;
  CStringArray userFolders_;
  CStringArray validDLLNames_;
  CString registryPath_;
  ActivityCtrl* activityCtrl_ = nullptr;  // registered; the registry ends it
  IIPanel* mainPanel_ = nullptr;          // owned
  GlobalResourceCtrl* globalCtrl_;        // the process registry
  int noActivity_ = 0;
  int noScheduler_ = 0;
  CStringArray loadedPlugins_;
};

}  // namespace kordll

#endif  // KORDLL_CONTROL_KORUSERRESOURCESCTRL_H_
