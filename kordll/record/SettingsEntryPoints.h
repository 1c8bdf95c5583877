// SettingsEntryPoints: the questions the record core asks the current user's
// settings, and the answers they get while no settings record stands.
//
// Settings are read by field id of the settings relation; field 11 is
// "RankMode", which the status rules of posts depend on. The default object
// answers as "no settings": 0 for a number, empty text, no record.
//
// The settings owner (Preferences) takes over by deriving from this class
// and calling Install(this); tests install an object of their own to give a
// rank mode. Thread safety and lifetime as for RelationsEntryPoints.

#ifndef KORDLL_RECORD_SETTINGSENTRYPOINTS_H_
#define KORDLL_RECORD_SETTINGSENTRYPOINTS_H_

#include "kordll/platform/CString.h"

namespace kordll {

class Preferences;

class SettingsEntryPoints {
 public:
  // The settings field that holds the rank mode.
  static constexpr int kRankModeField = 11;

  SettingsEntryPoints() = default;
  SettingsEntryPoints(const SettingsEntryPoints&) = delete;
  SettingsEntryPoints& operator=(const SettingsEntryPoints&) = delete;
  virtual ~SettingsEntryPoints();

  // The object that answers now; never null.
  static SettingsEntryPoints* Get();
  // Makes entry answer from now on; null puts back the default answers.
  // Returns the object installed before (null if it was the default).
  static SettingsEntryPoints* Install(SettingsEntryPoints* entry);

  virtual int GetCurrentPreferencesIntValue(int field);
  virtual CString GetCurrentPreferencesStringValue(int field);
  // The current settings record, not reserved for the caller, or null.
  virtual Preferences* GetCurrentPreferences();
  // The profile section of the current settings record ("User-" and the
  // login), or "" while there is none.
  virtual CString GetCurrentPreferencesSection();

  // The login of the current user ("" while there is none); the registry
  // names the per-user profile sections ("User-%s\DBIDMap") with it.
  virtual CString GetCurrentLogin();

  // Stores a number setting of the current settings record (the registry
  // keeps the next free database id this way). 1 when it was stored, 0
  // when there is no settings record or the store failed.
  virtual int SetCurrentPreferencesIntValue(int field, int value);

  // The folder of the current user's own files (databases, the relation
  // distribution file), or "" while there is no user.
  virtual CString GetCurrentUserRunningPath();
};

}  // namespace kordll

#endif  // KORDLL_RECORD_SETTINGSENTRYPOINTS_H_
