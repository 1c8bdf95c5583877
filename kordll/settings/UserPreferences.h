// UserPreferences: the older settings record of a user, a record of
// relation 1 ("userpreferences") kept in the user's record store, with most
// options folded into bit fields.
//
// The settings of the running application live in Preferences, in the
// profile; this record is read once to carry its values over
// (Preferences::LoadUserPreferences), and what its fields mean is what that
// carry-over relies on.
//
// Fields and bits:
//   4 login, 5 password
//   7 general state: 0x1 RSS autodiscovery, 0x2 minimise to the tray,
//     0x4 remember the login, 0x8 log in automatically, 0x10 rank mode 1,
//     0x20 rank mode 2, 0x100 synchronisation suspended, 0x200 the user's
//     initial set-up is not complete, 0x400 start-up mode
//   12 maximum running socket threads
//   13 update behaviour: group A 0x1 always, 0x2 never, 0x4 on a condition
//     (setting one clears the other two); 0x10 no update after creation;
//     group B 0x20, 0x40, 0x80 automatic state 0, 1, 2 at start-up; 0x100 no
//     synchronisation after awaking
//   14 update condition priority, 25 the same at start-up
//   15 notification behaviour: 0x1 (group 0x17), 0x20 (group 0x1E0), 0x200
//     (group 0x1E00) do NOT notify channel, author, category updates; 0x8
//     notify virtual channel updates; 0x2000 notifier disabled
//   16, 17, 18 notification priority levels of channels, categories, authors
//   19 count of login days, 20 last login date, 22 total read post count
//   21 skin reference "<number>@<name>", number 1 meaning built-in
//   23 on-the-fly reading page size
//   24 melody and proxy, packed as "melody|server|port|user|password", an
//     empty user or password written "#@#"; a text without "|" is the
//     melody alone
//   26 ranking behaviour: 0x3F when a link is checked, 0xFC0 when an item
//     is read, 0x1F000 automatic deletion
//   27 initialisation state: help and first-use pages already shown
//
// A bit field that reads -1 was never written: the Check... calls store it
// as 0 first. The grouped setters treat a negative value as 0.
//
// The current user is one pointer for the process (SetCurrentUser); the
// ...Current... calls do nothing, or answer 0, "" or the default, while it
// is null. The pointer is not owned.
//
// Thread safety: as for every record; the current-user pointer itself may be
// read from any thread.

#ifndef KORDLL_SETTINGS_USERPREFERENCES_H_
#define KORDLL_SETTINGS_USERPREFERENCES_H_

#include <utility>

#include "kordll/platform/CString.h"
#include "kordll/record/Focusable.h"

namespace kordll {

class AZeusDB;

class UserPreferences : public Focusable {
 public:
  static constexpr int kRelation = 1;
  // Field ids of relation 1. These ids are stored in record files and must
  // not change.
  static constexpr int kLogin = 4;
  static constexpr int kPassword = 5;
  static constexpr int kGeneralState = 7;
  static constexpr int kMaxSocketThreads = 12;
  static constexpr int kUpdateBehaviour = 13;
  static constexpr int kUpdateConditionPriority = 14;
  static constexpr int kNotificationBehaviour = 15;
  static constexpr int kChannelNotifLevel = 16;
  static constexpr int kCategoryNotifLevel = 17;
  static constexpr int kAuthorNotifLevel = 18;
  static constexpr int kLoginDays = 19;
  static constexpr int kLastLoginDate = 20;
  static constexpr int kSkin = 21;
  static constexpr int kReadPostCount = 22;
  static constexpr int kReadingPageSize = 23;
  static constexpr int kMelodyAndProxy = 24;
  static constexpr int kStartupConditionPriority = 25;
  static constexpr int kRankingBehaviour = 26;
  static constexpr int kInitializationState = 27;

  // A new record in db (may be null), set up by InitUserPreferences; proxy
  // port 8080, proxy texts empty. It counts as fully loaded.
  explicit UserPreferences(AZeusDB* db = nullptr);
  // The header of the record stored at slotIndex in db: nothing set up,
  // nothing loaded (LoadFocusable brings the fields in).
  UserPreferences(AZeusDB* db, int slotIndex);
  // A copy of source made by SetUserPreferences, without the set-up.
  explicit UserPreferences(Focusable* source);
  ~UserPreferences() override;

  // Copies source's fields, GUID and place in the store; from another
  // UserPreferences also the running path, proxy and melody held in memory.
  void SetUserPreferences(Focusable* source);
  // The set-up of a new user: 20 socket threads, reading page size 10,
  // notification levels 5, melody "Notify.wav", notification bits 0x2,
  // 0x8000, 0x40, 0x400 and 0x8 (virtual channel updates notified; channel,
  // author and category updates too), always update automatically.
  void InitUserPreferences();
  // Saves the record in its store; 1 on success.
  int SaveUserPreferences();
  // Saves the record if it has changes.
  void PerformMaintenance(int flag) override;

  // --- Identity -------------------------------------------------------------
  // A login that may not serve as a folder name (see GetUserFolder) is
  // refused with 0 and nothing is written.
  int SetUserLogin(CString login);
  CString GetUserLogin();
  void SetUserPassword(CString password);
  CString GetUserPassword();
  // The folder of the user's own files, held in memory only.
  CString GetUserRunningPath() const { return runningPath_; }
  void SetUserRunningPath(CString path) { runningPath_ = std::move(path); }
  // <global path>/<login> (the program folder until the platform sets the
  // global path), or "" for a login that may not name a folder (empty, "."
  // or "..", or holding "/", "\", U+0000 or a control character), so that
  // no login ever leads to a folder outside that folder.
  static CString GetUserFolder(CString login);

  // --- Bit fields -------------------------------------------------------------
  // True if any bit of mask is set (a field never written is stored as 0).
  int CheckGeneralState(int mask);
  int CheckUpdateBehaviour(int mask);
  int CheckNotificationBehaviour(int mask);
  int CheckRankingBehaviour(int mask);
  int CheckInitializationState(int mask);
  // Sets the bits of set and clears those of clear, and writes the field.
  // The grouped fields first clear the group that set falls in (see the
  // file comment; in field 15 a bit of 0x17 set together with 0x8 keeps
  // its group).
  void SetGeneralState(int set, int clear);
  void SetInitializationState(int set, int clear);
  void SetUpdateBehaviour(int set, int clear);
  void SetNotificationBehaviour(int set, int clear);
  void SetRankingBehaviour(int set, int clear);

  // One bit each; a setter writes only when the bit changes.
  int GetEnableRSSAutodiscovery() { return CheckGeneralState(0x1); }
  int GetMinimizeToSystemTray() { return CheckGeneralState(0x2); }
  int GetRememberLoginInfo() { return CheckGeneralState(0x4); }
  int GetAutoLogin() { return CheckGeneralState(0x8); }
  int IsAlwaysAutoUpdate() { return CheckUpdateBehaviour(0x1); }
  int IsNeverAutoUpdate() { return CheckUpdateBehaviour(0x2); }
  int IsConditionalAutoUpdate() { return CheckUpdateBehaviour(0x4); }
  int IsDontUpdateAfterCreation() { return CheckUpdateBehaviour(0x10); }
  int GetVirtualChannelNotif() { return CheckNotificationBehaviour(0x8); }
  void SetEnableRSSAutodiscovery(int on) { SetBit(kGeneralState, 0x1, on, 0); }
  void SetMinimizeToSystemTray(int on) { SetBit(kGeneralState, 0x2, on, 0); }
  void SetRememberLoginInfo(int on) { SetBit(kGeneralState, 0x4, on, 0); }
  void SetAutoLogin(int on) { SetBit(kGeneralState, 0x8, on, 0); }
  // Setting one of these three clears the other two.
  void SetAlwaysAutoUpdate(int on) { SetBit(kUpdateBehaviour, 0x1, on, 0x6); }
  void SetNeverAutoUpdate(int on) { SetBit(kUpdateBehaviour, 0x2, on, 0x5); }
  void SetConditionalAutoUpdate(int on) { SetBit(kUpdateBehaviour, 0x4, on, 0x3); }
  void SetDontUpdateAfterCreation(int on) { SetBit(kUpdateBehaviour, 0x10, on, 0); }
  void SetVirtualChannelNotif(int on) { SetBit(kNotificationBehaviour, 0x8, on, 0); }
  // True while the user's initial set-up is complete (bit 0x200 clear).
  int IsUserInitialized() { return CheckGeneralState(0x200) ? 0 : 1; }

  // --- Numbers -----------------------------------------------------------------
  void SetMaxRunningSocketThreads(int count) { SetValueInt(kMaxSocketThreads, count, 1); }
  void SetUpdateConditionPriority(int level) { SetValueInt(kUpdateConditionPriority, level, 1); }
  void SetStartupUpdateConditionPriority(int level) {
    SetValueInt(kStartupConditionPriority, level, 1);
  }
  // The level of the field, 5 (written) when it holds 0.
  int GetChannelNotifPriorityLevel() { return NotifLevel(kChannelNotifLevel); }
  int GetCategoryNotifPriorityLevel() { return NotifLevel(kCategoryNotifLevel); }
  int GetAuthorNotifPriorityLevel() { return NotifLevel(kAuthorNotifLevel); }
  int GetTotalReadPostCount();
  void IncrementReadPostCount(int count);
  // Read posts per login day, rounded towards zero; a day count of 0 or
  // less counts as 1.
  int GetUserReadPerformance();

  // --- Rank mode and ranking values -------------------------------------------
  // 1 if 0x10 is set, else 2 if 0x20 is, else 0.
  int GetRankMode();
  // 0 clears both bits, 1 and 2 set their own and clear the other.
  void SetRankMode(int mode);
  // The rank a checked link gets: 0 in mode 0 or without a bit of 0x3F. In
  // mode 2 bits 0x1, 0x2, 0x8, 0x10 give 256, 512, 1024, 2048 (first found);
  // in mode 1 only 0x2 and 0x8 count (512, 1024).
  int GetLinkCheckingAutoRankingValue();
  // The rank a read item gets: 0 in mode 0 or without a bit of 0xFC0;
  // otherwise 0x40, 0x80, 0x200, 0x400 give 256, 512, 1024, 2048.
  int GetReadingItemAutoRankingValue();
  // Whether a record of rank bits rank is deleted automatically: mode 1,
  // 0x4000 and rank 512; mode 2, 0x1000 and rank 256, or 0x4000 and rank
  // 256 or 512, or 0x8000 and rank 256, 512 or 1024.
  int IsAutoDeleteRankingValueValid(int rank);

  // --- Skin, melody, proxy -------------------------------------------------------
  // Field 21, or "DefaultSkin.tsf" when it is empty.
  CString GetSkin();
  // Writes a non-empty reference and answers 1; "" is refused with 0.
  int SelectSkin(CString skin);
  // The reference split at "@": built-in when the number is 1. A reference
  // without "@" is no built-in skin and its whole text is the name.
  int IsBuildInSkin();
  CString GetSkinName();
  // The melody; field 24 is read first when none is held.
  CString GetNotificationMelodyFileName();
  void SetNotificationMelodyFileName(CString file);
  void SetProxyServer(CString server, int port, CString user, CString password);
  // Reads field 24 into the melody and proxy members.
  void LoadProxyInfo();
  CString GetProxyServer() const { return proxyServer_; }
  int GetProxyPort() const { return proxyPort_; }
  CString GetProxyUserName() const { return proxyUser_; }
  CString GetProxyPassword() const { return proxyPassword_; }

  // --- The current user --------------------------------------------------------
  static void SetCurrentUser(UserPreferences* user);
  static UserPreferences* GetCurrentUser();
  static int GetCurrentRankMode();
  static void SetCurrentRankMode(int mode);
  // "DefaultSkin.tsf" without a current user.
  static CString GetCurrentSkin();
  static int SelectCurrentSkin(CString skin);
  static int IsCurrentUserInitialized();

 private:
  // The field as a bit word; -1 means never written.
  int ReadBits(int field);
  // The bit word, a field never written being stored as 0 first.
  int Word(int field);
  int CheckBits(int field, int mask);
  // Sets or clears bit (clearing alsoClear when setting); writes only if
  // the word changes.
  void SetBit(int field, int bit, int on, int alsoClear);
  void WriteBits(int field, int set, int clear, int groupCleared);
  int NotifLevel(int field);
  void WritePackedField();

  CString runningPath_;
  CString proxyServer_;
  CString proxyUser_;
  CString proxyPassword_;
  int proxyPort_ = 8080;
  CString melody_;
};

}  // namespace kordll

#endif  // KORDLL_SETTINGS_USERPREFERENCES_H_
