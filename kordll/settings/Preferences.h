// Preferences: the settings of one user of the running application, a
// record whose fields live in the application's profile (INIFocusable) under
// the keys of the application's settings relation: 12 for the news
// application, 28 for the podcast application, 31 for the search-and-
// highlight application. The section is "User-" and the login.
//
// The application makes one for the logged-in user and makes it current
// (SetGlobalPreferences); from then on every part of the library reads the
// settings through the static GetCurrentPreferences...Value(field) calls,
// and the record core (rank mode, login, database ids, running path) gets
// its answers from it. Without a current record the static calls answer 0,
// "", false or an invalid date, and the setters do nothing.
//
// Beside the profile values it holds in memory the user's running path, the
// two slide show orderings (read on first use) and the user's web search
// engine definitions (read on first use, written after every change).
//
// Values come from outside (the profile is shared with other programs): a
// value of the wrong type or a number that does not parse reads as the
// field's default, a scrambled text without its marker reads as "", a
// login that may not name a folder is refused.
//
// Thread safety: any thread may read settings through the static calls;
// writes go to the profile at once. The search engine definitions and the
// orderings are not locked: the user interface thread is their only user.
// The current record must outlive its time as current
// (SetGlobalPreferences(nullptr) before it is deleted).

#ifndef KORDLL_SETTINGS_PREFERENCES_H_
#define KORDLL_SETTINGS_PREFERENCES_H_

#include <map>
#include <memory>
#include <vector>

#include "kordll/control/INIFocusable.h"
#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CString.h"

namespace kordll {

class UserPreferences;

class Preferences : public INIFocusable {
 public:
  // The settings relations of the three applications.
  static constexpr int kNewsRelation = 12;
  static constexpr int kPodcastRelation = 28;
  static constexpr int kSearchRelation = 31;
  // Fields every part of the library reads (relation 12 unless said).
  static constexpr int kUserLogin = 4;  // all three relations
  static constexpr int kUserPassword = 5;
  static constexpr int kRankMode = 11;
  static constexpr int kAutoRankWhenCheckingLink = 29;
  static constexpr int kAutoRankReadingItem = 30;
  static constexpr int kAutoDeletePost = 31;
  static constexpr int kNotificationMelodyFile = 42;  // "NotifFile" in relation 28
  static constexpr int kTotalReadPostCount = 50;
  static constexpr int kSlideShowResourceTypeOrdering = 56;
  static constexpr int kSlideShowChunkOrderingState = 57;
  static constexpr int kSlideShowResourceOrdering = 58;
  static constexpr int kMySearchEngineDefinitions = 81;
  static constexpr int kLastDBID = 85;  // all three relations
  static constexpr int kBloglinesPassword = 103;
  static constexpr int kBloglinesUsername = 108;

  // The settings of login in section "User-<login>" of the application's
  // profile, by the keys of relation; registryRoot as for INIFocusable.
  Preferences(CString login, CString registryRoot, int relation);
  ~Preferences() override;
  Preferences(const Preferences&) = delete;
  Preferences& operator=(const Preferences&) = delete;

  // --- The current record ----------------------------------------------------
  // Makes prefs (not owned; null for none) the current record. The first
  // call also makes the settings answer the record core's questions.
  static void SetGlobalPreferences(Preferences* prefs);
  static Preferences* GetCurrentPreferences();
  static int GetCurrentPreferencesIntValue(int field);
  static CString GetCurrentPreferencesStringValue(int field);
  static COleDateTime GetCurrentPreferencesDateValue(int field);
  static int GetCurrentPreferencesBoolValue(int field);
  static double GetCurrentPreferencesDoubleValue(int field);
  // Write at once; 1 when the profile took the value, 0 otherwise or
  // without a current record.
  static int SetCurrentPreferencesIntValue(int field, int value);
  static int SetCurrentPreferencesStringValue(int field, CString value);
  static int SetCurrentPreferencesDateValue(int field, COleDateTime value);
  static int SetCurrentPreferencesBoolValue(int field, int value);
  static int SetCurrentPreferencesDoubleValue(int field, double value);
  // The running path of the current record, "" without one.
  static CString GetCurrentUserRunningPath();
  // Adds count to "TotalReadPostCount" of the current record.
  static void IncrementCurrentReadPostCount(int count);

  // --- This record --------------------------------------------------------------
  // Takes source's section and held values (see SetINIFocusable), and its
  // running path if that is not empty.
  void SetPreferences(Preferences* source, int clear);
  // Saves held values through to the profile; 1 on success.
  int SavePreferences() { return SaveFocusable(); }

  CString GetUserRunningPath() const { return runningPath_; }
  void SetUserRunningPath(CString path) { runningPath_ = std::move(path); }
  // The login the section was made from.
  CString GetSectionLogin() const { return login_; }

  // Sets the section to "User-<login>" and writes the login field. A login
  // that may not name a folder (empty, "." or "..", or holding "/", "\",
  // U+0000 or a control character) is refused with 0.
  int SetUserLogin(CString login);
  CString GetUserLogin() { return GetFieldString(kUserLogin, 0); }
  int SetUserPassword(CString password) { return SetValueStr(kUserPassword, password, 1); }
  CString GetUserPassword() { return GetFieldString(kUserPassword, 0); }

  // The Bloglines account, kept scrambled (Utility::EncriptString). A value
  // stored in plain reads back as "".
  CString GetBloglinesUserName();
  CString GetBloglinesPassword();
  int SetBloglinesUserName(CString name);
  int SetBloglinesPassword(CString password);

  // --- Slide show orderings -------------------------------------------------------
  // Numbers stored joined by ":" ("2:0:1:"); read once, then held. An
  // empty resource ordering reads as 0, 1, 2, 3; an empty type ordering
  // as no numbers. A null out is left alone.
  void GetSlideShowResourceTypeOrdering(std::vector<int>* out);
  void GetSlideShowResourceOrdering(std::vector<int>* out);
  int SetSlideShowResourceTypeOrdering(const std::vector<int>& order);
  int SetSlideShowResourceOrdering(const std::vector<int>& order);
  int GetSlideShowChunkOrderState() { return GetFieldInt(kSlideShowChunkOrderingState); }
  int SetSlideShowChunkOrderState(int state) {
    return SetValueInt(kSlideShowChunkOrderingState, state, 1);
  }

  // --- Computed from the current record (0 without one) ---------------------------
  // Rank mode ("RankMode") 0 switches them all off.
  // From "AutoRankWhenCheckingLink": 0x1, 0x2, 0x8, 0x10 give 256, 512,
  // 1024, 2048, the first found; 0 when the setting is 0.
  static int GetLinkCheckingAutoRankingValue();
  // From "AutoRankReadingItem": 0x40, 0x80, 0x200, 0x400 give 256, 512,
  // 1024, 2048.
  static int GetReadingItemAutoRankingValue();
  // From "AutoDeletePost": in mode 1, 0x4000 and rank 512; in mode 2,
  // 0x1000 and rank 256, 0x4000 and rank 256 or 512, or 0x8000 and rank
  // 256, 512 or 1024.
  static int IsAutoDeleteRankingValueValid(int rank);
  // Plays "NotificationMelodyFile" of the current record through the host:
  // a value holding "/" is a path of its own, any other is a file of the
  // shared "SoundNotification" folder of the global path (the program
  // folder until the platform sets it). Nothing without a current record,
  // a valid registry or a value.
  static void PlayGeneralNotificationSound();

  // --- Carry-over ------------------------------------------------------------------
  // Writes the settings an older record of relation 1 held into this one
  // (loading old first if needed; nothing if that fails). Answers 1 when
  // the values were carried over.
  int LoadUserPreferences(UserPreferences* old);

  // --- Web search engines -------------------------------------------------------------
  // Definitions are kept by shortcut term, in term order, and stored in
  // "MySearchEngineDefinitions". Each call below loads them first if that
  // has not been done; each change is saved at once.
  void LoadMySearchEngineDefinitions();
  int SaveMySearchEngineDefinitions();
  void ReleaseSearchEngineDefinitions();
  void GetSearchEngineShortcutTerms(std::vector<CString>* out);
  int IsShurtcutInUse(CString term);
  int GetDefaultWebSearchEngineDefinition(CString& part1, CString& part2, CString& part3,
                                          int& firstFlag);
  // 0 for an unknown term or the default already.
  int SetDefaultWebSearchEngineDefinition(CString term);
  // 0 if term is in use. The new definition gets the next id (1 for the
  // first) and is not the default.
  int AddWebSearchEngineDefinition(CString title, CString part1, CString part2, CString part3,
                                   CString term, int firstFlag);
  // 0 for an unknown oldTerm; a new term moves the definition (0 if the new
  // term belongs to another definition). defaultFlag not 0 makes it the
  // default.
  int UpdateWebSearchEngineDefinition(CString oldTerm, CString title, CString part1, CString part2,
                                      CString part3, CString newTerm, int firstFlag,
                                      int defaultFlag);
  int RemoveWebSearchEngineDefinition(CString term);
  int GetWebSearchEngineDefinition(CString term, CString& title, CString& part1, CString& part2,
                                   CString& part3, int& firstFlag, int& defaultFlag);
  int GetWebSearchEngine_wID(int id, CString& part1, CString& part2, CString& part3);

 private:
  struct SearchEngine {
    CString title, part1, part2, part3, term;
    int firstFlag = 0;
    int defaultFlag = 0;
    int id = -1;
  };

  void EnsureSearchEngines();
  void ReadOrdering(int field, bool defaultOrder, std::vector<int>* held, bool* loaded);
  int WriteOrdering(int field, const std::vector<int>& order, std::vector<int>* held, bool* loaded);

  CString login_;
  CString runningPath_;
  std::vector<int> typeOrdering_;
  std::vector<int> resourceOrdering_;
  bool typeOrderingLoaded_ = false;
  bool resourceOrderingLoaded_ = false;
  std::map<CString, std::unique_ptr<SearchEngine>> engines_;
  SearchEngine* defaultEngine_ = nullptr;  // one of engines_, or null
  bool enginesLoaded_ = false;
};

}  // namespace kordll

#endif  // KORDLL_SETTINGS_PREFERENCES_H_
