#include "kordll/control/INIFocusable.h"

#include <gtest/gtest.h>

#include <memory>

#include "kordll/platform/CWinApp.h"
#include "kordll/platform/Registry.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

using S = CString;
const S kSection(u"User-ann");

// A profile in a registry on disk, reopened as the next process would.
class INIFocusableTest : public test::TempRootTest {
 protected:
  INIFocusableTest() { Reopen(); }
  ~INIFocusableTest() override { CWinApp::SetCurrent(nullptr); }
  void Reopen() {
    app_.reset();
    registry_.reset();
    registry_ = std::make_unique<Registry>(root_.ProfileFolder().ToUtf8());
    app_ = std::make_unique<CWinApp>(S("Korlan"), S("Tidrel"), registry_.get());
  }
  S Stored(const char* key) { return app_->GetProfileString(kSection, S(key), S("<none>")); }
  void Put(const char* key, S value) { app_->WriteProfileString(kSection, S(key), value); }
  GlobalRelationsCtrl catalogue_;
  std::unique_ptr<Registry> registry_;
  std::unique_ptr<CWinApp> app_;
};

TEST_F(INIFocusableTest, RegistryRootReadsAnotherApplicationsSettings) {
  CWinApp other(S("Korlan"), S("Marsek"), registry_.get());
  CWinApp::SetCurrent(app_.get());
  other.WriteProfileString(kSection, S("UserLogin"), S("zed"));
  other.WriteProfileInt(kSection, S("RankMode"), 1);
  INIFocusable shared(kSection, 12, S(u"Software\\Korlan\\Marsek"));
  EXPECT_EQ(shared.GetFieldString(4, 0), S("zed"));
  EXPECT_EQ(shared.GetFieldInt(11) + shared.GetFieldInt(85), 101);  // 85 missing: the default
  INIFocusable missing(S("User-nobody"), 12, S(u"Software\\Korlan\\Marsek"));
  EXPECT_EQ(missing.GetFieldString(4, 0), S());
}

TEST_F(INIFocusableTest, HostileProfileValuesReadAsTheirDefaultOrAsText) {
  const CString odd(std::u16string(u"a\0b\xD800", 4));
  Put("RankMode", S("2"));                                     // text for an int
  app_->WriteProfileInt(kSection, S("NotifyWordUpdates"), 0);  // a number for a text
  Put("LastLoginDate", S("13/45/99@99:99"));
  Put("UserPassword", odd);
  registry_->SetValue(RegHive::kCurrentUser, app_->GetSectionKey(kSection), S("SkinName"),
                      RegValue::Binary(std::string("\xff\x00", 2)), true);
  INIFocusable prefs(kSection, 12, S());
  EXPECT_EQ(prefs.GetFieldInt(11), 0);
  EXPECT_EQ(prefs.GetFieldBool(25), 1);
  EXPECT_NE(prefs.GetFieldDate(45).GetStatus(), COleDateTime::valid);
  EXPECT_EQ(prefs.GetFieldString(5, 0), odd);
  EXPECT_EQ(prefs.GetFieldString(46, 0), S("DelRey"));
}

TEST_F(INIFocusableTest, FailedWriteIsAnsweredAndTheHeldValuesAreForgotten) {
  Registry* gone = Registry::Current();
  Registry::SetCurrentFolder(root_.Path(S("elsewhere")).ToUtf8());  // gone now fails
  CWinApp broken(S("Korlan"), S("Tidrel"), gone);
  INIFocusable prefs(kSection, 12, S());
  EXPECT_EQ(prefs.SetValueInt(11, 1, 1), 0);
  prefs.SetSavable(0);
  prefs.SetValueStr(4, S("ann"), 1);
  prefs.SetSavable(1);
  EXPECT_EQ(prefs.SaveFocusable(), 0);
  EXPECT_EQ(prefs.NeedToSave(), 0);
  CWinApp::SetCurrent(app_.get());
  EXPECT_EQ(prefs.SaveFocusable(), 1);
  EXPECT_EQ(Stored("UserLogin"), S("<none>"));
  Registry::SetCurrentFolder("");
}

}  // namespace
}  // namespace kordll
