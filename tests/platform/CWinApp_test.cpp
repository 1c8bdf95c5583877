#include "kordll/platform/CWinApp.h"

#include <gtest/gtest.h>

#include "kordll/platform/Registry.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

class CWinAppTest : public ::testing::Test {
 protected:
  CWinAppTest() { Registry::CloseCurrent(); }
  ~CWinAppTest() override {
    CWinApp::SetCurrent(nullptr);
    Registry::CloseCurrent();
  }

  RegValue Raw(const CString& key, const CString& name) {
    RegValue v;
    v.type = 0xFFFF;
    Registry::Current()->QueryValue(RegHive::kCurrentUser, key, name, &v);
    return v;
  }

  test::TempRoot root_;
};

TEST_F(CWinAppTest, ProfileIsTheApplicationKeyWithSectionsAsSubkeys) {
  CWinApp app("Korlan", "Tidrel");
  ASSERT_EQ(app.WriteProfileString("", "Users", "ann|bob|"), 1);
  ASSERT_EQ(app.WriteProfileInt("User-ann\\IDRolls", "LRID-3", 120), 1);

  RegValue users = Raw("Software\\Korlan\\Tidrel", "Users");
  EXPECT_EQ(users.type, REG_SZ);
  EXPECT_EQ(users.text, CString("ann|bob|"));
  RegValue roll = Raw("Software\\Korlan\\Tidrel\\User-ann\\IDRolls", "LRID-3");
  EXPECT_EQ(roll.type, REG_DWORD);
  EXPECT_EQ(roll.integer, 120u);
  EXPECT_TRUE(
      Registry::Current()->KeyExists(RegHive::kCurrentUser, "Software\\Korlan\\Tidrel\\User-ann"));
  // A section written with a leading "\" is the same section.
  EXPECT_EQ(app.GetProfileInt("\\User-ann\\IDRolls", "lrid-3", -1), 120);
  // Defaults when missing or of the other type.
  EXPECT_EQ(app.GetProfileInt("Nowhere", "x", -1), -1);
  EXPECT_EQ(app.GetProfileString("Nowhere", "x", "dflt"), CString("dflt"));
  EXPECT_EQ(app.GetProfileString("User-ann\\IDRolls", "LRID-3", "dflt"), CString("dflt"));
  EXPECT_EQ(app.GetProfileInt("", "Users", -7), -7);
  // A stored empty string is a value, not a missing one.
  ASSERT_EQ(app.WriteProfileString("User-ann", "SkinName", CString()), 1);
  EXPECT_EQ(app.GetProfileString("user-ANN", "skinname", "dflt"), CString());
}

TEST_F(CWinAppTest, DeletingEntriesAndSections) {
  CWinApp app("Korlan", "Tidrel");
  ASSERT_EQ(app.WriteProfileInt("User-ann", "a", 1), 1);
  ASSERT_EQ(app.WriteProfileInt("User-ann\\DBIDMap", "RC_R3_G7", 104), 1);
  ASSERT_EQ(app.WriteProfileInt("User-annie", "a", 2), 1);
  EXPECT_EQ(app.DeleteProfileEntry("User-ann", "A"), 1);
  EXPECT_EQ(app.GetProfileInt("User-ann", "a", -1), -1);
  EXPECT_EQ(app.DeleteProfileEntry("User-ann", "a"), 1) << "already gone counts as done";
  EXPECT_EQ(app.DeleteProfileSection("User-ann"), 1);
  EXPECT_EQ(app.GetProfileInt("User-ann\\DBIDMap", "RC_R3_G7", -1), -1);
  EXPECT_EQ(app.GetProfileInt("User-annie", "a", -1), 2);
  EXPECT_EQ(app.DeleteProfileSection(""), 0) << "the profile itself stays";
  EXPECT_EQ(app.DeleteProfileSection("\\"), 0);
}

}  // namespace
}  // namespace kordll
