// The settings of the running application: what one process writes the
// next reads, the record core's questions answered by the current record
// (rank mode in the status rules), the carry-over from the older record,
// search engines, scrambled accounts, the notification sound and
// hostile profile values.

#include "kordll/settings/Preferences.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "kordll/platform/CWinApp.h"
#include "kordll/platform/Host.h"
#include "kordll/platform/Registry.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/LibraryLifetime.h"
#include "kordll/record/SettingsEntryPoints.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/settings/UserPreferences.h"
#include "tests/support/TempRoot.h"
#include "tests/support/TestHost.h"

namespace kordll {
namespace {

using S = CString;

// A profile in a registry on disk, closed and opened again as the next
// process would.
class PreferencesTest : public test::TempRootWithProgramTest {
 protected:
  PreferencesTest() {
    KordllProcessAttach();
    Restart();
  }
  ~PreferencesTest() override {
    Preferences::SetGlobalPreferences(nullptr);
    CWinApp::SetCurrent(nullptr);
  }
  void Restart() {
    app_.reset();
    registry_.reset();
    registry_ = std::make_unique<Registry>(root_.ProfileFolder().ToUtf8());
    app_ = std::make_unique<CWinApp>(S("Tidrel"), S("Tidrel"), registry_.get());
  }
  void Put(const char* key, const RegValue& value) {
    registry_->SetValue(RegHive::kCurrentUser, app_->GetSectionKey(S("User-ann")), S(key), value,
                        true);
  }
  GlobalRelationsCtrl catalogue_;
  std::unique_ptr<Registry> registry_;
  std::unique_ptr<CWinApp> app_;
};

TEST_F(PreferencesTest, WhatOneProcessWritesTheNextReads) {
  const S odd(std::u16string(u"a\0b\xD800z", 5));
  {
    Preferences prefs(S("ann"), S(), Preferences::kNewsRelation);
    Preferences::SetGlobalPreferences(&prefs);
    EXPECT_EQ(Preferences::SetCurrentPreferencesIntValue(Preferences::kRankMode, 2), 1);
    EXPECT_EQ(Preferences::SetCurrentPreferencesStringValue(46, odd), 1);
    EXPECT_EQ(Preferences::SetCurrentPreferencesBoolValue(84, 0), 1);
    EXPECT_EQ(Preferences::SetCurrentPreferencesDateValue(45, COleDateTime(2006, 3, 4, 5, 6, 0)),
              1);
    EXPECT_EQ(prefs.SetUserPassword(S("secret")), 1);
    Preferences::SetGlobalPreferences(nullptr);
  }
  Restart();
  Preferences prefs(S("ann"), S(), Preferences::kNewsRelation);
  Preferences::SetGlobalPreferences(&prefs);
  EXPECT_EQ(Preferences::GetCurrentPreferencesIntValue(Preferences::kRankMode), 2);
  EXPECT_EQ(Preferences::GetCurrentPreferencesStringValue(46), odd);
  EXPECT_EQ(Preferences::GetCurrentPreferencesBoolValue(84), 0);
  EXPECT_EQ(Preferences::GetCurrentPreferencesDateValue(45), COleDateTime(2006, 3, 4, 5, 6, 0));
  EXPECT_EQ(prefs.GetUserPassword(), S("secret"));
}

TEST_F(PreferencesTest, TheCurrentRecordAnswersTheRecordCore) {
  Preferences prefs(S("ann"), S(), Preferences::kNewsRelation);
  Preferences::SetGlobalPreferences(&prefs);
  SettingsEntryPoints* entry = SettingsEntryPoints::Get();
  for (int mode : {1, 2}) {
    ASSERT_EQ(entry->SetCurrentPreferencesIntValue(SettingsEntryPoints::kRankModeField, mode), 1);
    int added = 0, removed = 0;
    Focusable::GetRemovedStatus(0, Focusable::kStatusFlagged, added, removed);
    EXPECT_EQ(added, Focusable::kStatusFlagged |
                         (mode == 1 ? Focusable::kStatusRank1024 : Focusable::kStatusRank2048));
  }
  EXPECT_EQ(entry->GetCurrentPreferencesSection() + entry->GetCurrentLogin(), S("User-annann"));
  EXPECT_EQ(entry->GetCurrentPreferencesIntValue(Preferences::kLastDBID), 100);
  EXPECT_EQ(entry->SetCurrentPreferencesIntValue(Preferences::kLastDBID, 117), 1);
  EXPECT_EQ(app_->GetProfileInt(S("User-ann"), S("LastDBID"), 0), 117);
}

TEST_F(PreferencesTest, CarryOverReadsEveryBitOfTheOldWordsAndWritesEveryTarget) {
  Put("LastLoginDate", RegValue::String(S("03/04/06@05:06")));
  UserPreferences old;  // never logged in
  old.SetUserLogin(S("ann"));
  old.SetValueInt(UserPreferences::kGeneralState, -2, 1);  // all bits but 0x1
  Preferences prefs(S("ann"), S(), Preferences::kNewsRelation);
  ASSERT_EQ(prefs.LoadUserPreferences(&old), 1);
  EXPECT_EQ(prefs.GetFieldInt(Preferences::kRankMode) * 10 + prefs.GetFieldBool(10), 11);
  EXPECT_EQ(prefs.GetFieldBool(8), 0);
  EXPECT_NE(prefs.GetFieldDate(45).GetStatus(), COleDateTime::valid);
}

TEST_F(PreferencesTest, SearchEnginesSurviveTheirStoredForm) {
  Preferences prefs(S("ann"), S(), Preferences::kNewsRelation);
  CString title, p1, p2, p3;
  int first = 0, isDefault = 0;
  // A stored definition without a term is dropped; a broken text is read
  // as far as it goes.
  prefs.SetValueStr(Preferences::kMySearchEngineDefinitions, S("a!b!c!_NOENTRY_!0!0!T!4|||x!!!k|!"),
                    1);
  prefs.LoadMySearchEngineDefinitions();
  std::vector<CString> terms;
  prefs.GetSearchEngineShortcutTerms(&terms);
  EXPECT_EQ(terms, std::vector<CString>{S("k")});
  EXPECT_EQ(prefs.AddWebSearchEngineDefinition(S("t"), S(), S(), S(), S("n"), 0), 1);
  EXPECT_EQ(prefs.GetWebSearchEngine_wID(1, p1, p2, p3), 1);
  // An empty term is taken for this session and dropped by the next load.
  EXPECT_EQ(prefs.AddWebSearchEngineDefinition(S("e"), S(), S(), S(), S(), 0), 1);
  EXPECT_EQ(prefs.IsShurtcutInUse(S()), 1);
  EXPECT_EQ(prefs.RemoveWebSearchEngineDefinition(S()), 1);
  EXPECT_EQ(prefs.UpdateWebSearchEngineDefinition(S("n"), S("t"), S(), S(), S(), S(), 0, 0), 1);
  prefs.LoadMySearchEngineDefinitions();
  EXPECT_EQ(prefs.IsShurtcutInUse(S()) + prefs.IsShurtcutInUse(S("n")), 0);
  // A term stored twice: the later definition takes its place; each stored
  // default flag is read as stored, the last one is the default.
  prefs.SetValueStr(Preferences::kMySearchEngineDefinitions,
                    S("j!!?!j!0!1!J!1|a!!?!k!0!0!A!2|b!!?!k!0!1!B!3|"), 1);
  prefs.LoadMySearchEngineDefinitions();
  ASSERT_EQ(prefs.GetWebSearchEngineDefinition(S("k"), title, p1, p2, p3, first, isDefault), 1);
  EXPECT_EQ(title, S("B"));
  ASSERT_EQ(prefs.GetWebSearchEngineDefinition(S("j"), title, p1, p2, p3, first, isDefault), 1);
  EXPECT_EQ(isDefault, 1);
  ASSERT_EQ(prefs.GetDefaultWebSearchEngineDefinition(p1, p2, p3, first), 1);
  EXPECT_EQ(p1, S("b"));
}

TEST_F(PreferencesTest, ScrambledAccountsAndTheNotificationSound) {
  TestHost host;
  Host* before = Host::Install(&host);
  Preferences prefs(S("ann"), S(), Preferences::kNewsRelation);
  prefs.SetBloglinesPassword(S("x"));
  EXPECT_EQ(prefs.GetFieldString(Preferences::kBloglinesPassword, 0).Left(3), S("::["));
  EXPECT_EQ(prefs.GetBloglinesPassword(), S("x"));

  Preferences::PlayGeneralNotificationSound();  // no current record: silent
  Preferences::SetGlobalPreferences(&prefs);
  const S sounds = root_.ProgramFolder() + S("/SoundNotification/");
  struct Case {
    S melody, played;
  } cases[] = {{S("Notify.wav"), sounds + S("Notify.wav")},
               {S("/usr/share/bell.wav"), S("/usr/share/bell.wav")}};
  for (const Case& c : cases) {
    prefs.SetValueStr(Preferences::kNotificationMelodyFile, c.melody, 1);
    host.ClearCalls();
    Preferences::PlayGeneralNotificationSound();
    ASSERT_EQ(host.CountOf(TestHost::CallKind::kPlaySound), 1);
    EXPECT_EQ(host.LastOf(TestHost::CallKind::kPlaySound)->text, c.played);
  }
  Host::Install(before);
}

TEST_F(PreferencesTest, ALoginThatCannotNameAFolderLeavesTheSectionAlone) {
  Preferences prefs(S("ann"), S(), Preferences::kNewsRelation);
  for (const char* login : {"../x", "a\\KeyboardShortcuts"}) {
    EXPECT_EQ(prefs.SetUserLogin(S(login)), 0) << login;
  }
  EXPECT_EQ(prefs.GetSection(), S("User-ann"));
  EXPECT_EQ(prefs.SetUserLogin(S("bob")), 1);
  EXPECT_EQ(prefs.GetSection(), S("User-bob"));
  EXPECT_EQ(app_->GetProfileString(S("User-bob"), S("UserLogin")), S("bob"));
}

}  // namespace
}  // namespace kordll
