// The older settings record: a new user's set-up, the grouped bit setters,
// the ranking values by rank mode, the packed melody and proxy field, skins,
// and logins that may not name a folder.

#include "kordll/settings/UserPreferences.h"

#include <gtest/gtest.h>

#include <memory>

#include "kordll/record/LibraryLifetime.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

using S = CString;

class UserPreferencesTest : public test::TempRootWithProgramTest {
 protected:
  UserPreferencesTest() { KordllProcessAttach(); }
  GlobalRelationsCtrl catalogue_;
};

TEST_F(UserPreferencesTest, ANewUserIsSetUpAsTheApplicationExpects) {
  UserPreferences user;
  // A bit field never written is stored as 0 by the first check.
  EXPECT_EQ(user.GetFieldInt(UserPreferences::kGeneralState), -1);
  EXPECT_EQ(user.IsUserInitialized(), 1);
  EXPECT_EQ(user.GetFieldInt(UserPreferences::kGeneralState), 0);
  // A level holding 0 is written as 5.
  user.SetValueInt(UserPreferences::kChannelNotifLevel, 0, 1);
  EXPECT_EQ(user.GetChannelNotifPriorityLevel(), 5);
  // Read performance: a day count of 0 divides by 1.
  user.IncrementReadPostCount(7);
  EXPECT_EQ(user.GetUserReadPerformance(), 7);
  user.SetValueInt(UserPreferences::kLoginDays, 2, 1);
  EXPECT_EQ(user.GetUserReadPerformance(), 3);
}

TEST_F(UserPreferencesTest, SettingABitOfAGroupClearsTheRestOfTheGroupOnly) {
  UserPreferences user;
  user.SetConditionalAutoUpdate(1);
  EXPECT_EQ(user.IsAlwaysAutoUpdate() * 10 + user.IsConditionalAutoUpdate(), 1);
  user.SetUpdateBehaviour(0x20, 0);
  user.SetUpdateBehaviour(0x40, 0);
  EXPECT_EQ(user.CheckUpdateBehaviour(0x20), 0);
  EXPECT_EQ(user.CheckUpdateBehaviour(0x4 | 0x40), 1);
  user.SetRankingBehaviour(0x1 | 0x40, 0);
  user.SetRankingBehaviour(0x8, 0);
  EXPECT_EQ(user.GetFieldInt(UserPreferences::kRankingBehaviour), 0x8 | 0x40);
  // In the notification field a channel bit set with 0x8 keeps its group.
  user.SetNotificationBehaviour(0x1 | 0x8, 0);
  EXPECT_EQ(user.CheckNotificationBehaviour(0x2), 1);
  user.SetNotificationBehaviour(0x1, 0x8);
  EXPECT_EQ(user.CheckNotificationBehaviour(0x2 | 0x8), 0);
  // A negative word counts as 0.
  user.SetValueInt(UserPreferences::kInitializationState, -5, 1);
  user.SetInitializationState(0x4, 0);
  EXPECT_EQ(user.GetFieldInt(UserPreferences::kInitializationState), 0x4);
}

TEST_F(UserPreferencesTest, RankingValuesFollowTheRankMode) {
  struct Case {
    int mode, ranking, link, reading;
  } cases[] = {
      {2, 0x1 | 0x40, 256, 256},
      {1, 0x1 | 0x40, 0, 256},
      {1, 0x8 | 0x200, 1024, 1024},
  };
  for (const Case& c : cases) {
    UserPreferences user;
    user.SetRankMode(c.mode);
    EXPECT_EQ(user.GetRankMode(), c.mode);
    user.SetValueInt(UserPreferences::kRankingBehaviour, c.ranking, 1);
    EXPECT_EQ(user.GetLinkCheckingAutoRankingValue(), c.link) << c.mode << " " << c.ranking;
    EXPECT_EQ(user.GetReadingItemAutoRankingValue(), c.reading) << c.mode << " " << c.ranking;
  }
  UserPreferences user;
  user.SetRankMode(1);
  user.SetValueInt(UserPreferences::kRankingBehaviour, 0x4000, 1);
  EXPECT_EQ(user.IsAutoDeleteRankingValueValid(0x200), 1);
  EXPECT_EQ(user.IsAutoDeleteRankingValueValid(0x100), 0);
  user.SetRankMode(0);
  EXPECT_EQ(user.IsAutoDeleteRankingValueValid(0x200), 0);
}

TEST_F(UserPreferencesTest, OnlyMinusOneMeansAWordNeverWritten) {
  // -2 holds every bit but 0x1, and is read with them.
  UserPreferences user;
  user.SetValueInt(UserPreferences::kGeneralState, -2, 1);
  user.SetValueInt(UserPreferences::kRankingBehaviour, -2, 1);
  EXPECT_EQ(user.GetRankMode(), 1);
  EXPECT_EQ(user.GetLinkCheckingAutoRankingValue(), 512);
  EXPECT_EQ(user.GetReadingItemAutoRankingValue(), 256);
  EXPECT_EQ(user.IsAutoDeleteRankingValueValid(0x200), 1);
  // A notification level is replaced by 5 only when it holds 0.
  user.SetValueInt(UserPreferences::kChannelNotifLevel, -3, 1);
  EXPECT_EQ(user.GetChannelNotifPriorityLevel(), -3);
}

TEST_F(UserPreferencesTest, MelodyAndProxyShareOnePackedField) {
  UserPreferences user;
  user.SetProxyServer(S("proxy.example"), 3128, S(), S("pw|x"));
  EXPECT_EQ(user.GetFieldString(UserPreferences::kMelodyAndProxy, 0),
            S("Notify.wav|proxy.example|3128|#@#|pw|x"));
  UserPreferences copy(&user);
  copy.SetProxyServer(S(), 0, S(), S());  // the members only are emptied
  copy.SetValueStr(UserPreferences::kMelodyAndProxy, S("Bell.wav|p|81|ann|#@#"), 1);
  copy.LoadProxyInfo();
  EXPECT_EQ(copy.GetNotificationMelodyFileName() + "|" + copy.GetProxyServer() + "|" +
                copy.GetProxyUserName() + "|" + copy.GetProxyPassword(),
            S("Bell.wav|p|ann|"));
  EXPECT_EQ(copy.GetProxyPort(), 81);
}

TEST_F(UserPreferencesTest, ALoginThatCannotNameAFolderIsRefused) {
  // The rules themselves are the platform's; here that both calls apply them.
  const S refused[] = {S(".."), S("a/b"), S(u"a\nb"), S(std::u16string(u"a\0b", 3))};
  UserPreferences user;
  for (const S& login : refused) {
    EXPECT_EQ(UserPreferences::GetUserFolder(login), S()) << login.ToUtf8();
    EXPECT_EQ(user.SetUserLogin(login), 0) << login.ToUtf8();
  }
  EXPECT_EQ(user.GetUserLogin(), S());
  // User folders lie below the program folder, beside the plug-ins.
  EXPECT_EQ(UserPreferences::GetUserFolder(S("Jürgen ..x")),
            root_.ProgramFolder() + S("/Jürgen ..x"));
}

}  // namespace
}  // namespace kordll
