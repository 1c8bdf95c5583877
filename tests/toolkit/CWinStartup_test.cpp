#include "kordll/toolkit/CWinStartup.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "kordll/platform/FileFind.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/Registry.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

class CWinStartupTest : public test::TempRootTest {
 protected:
  // The Run value of `name` in a hive, or nullopt.
  std::optional<CString> RunValue(RegHive hive, const CString& name) {
    RegValue v;
    if (Registry::Current()->QueryValue(hive, CWinStartup::kRunKey, name, &v) != ERROR_SUCCESS)
      return std::nullopt;
    return v.text;
  }
  // The Exec line of the autostart entry of `name`, "" without one.
  std::string Exec(const char* name) {
    std::string text;
    FileSystem::ReadWholeFile(
        Locations::Join(Locations::GetAutostartFolder(), CString(name) + ".desktop"), &text);
    size_t at = text.find("\nExec=");
    return at == std::string::npos ? "" : text.substr(at + 6, text.find('\n', at + 1) - at - 6);
  }
};

TEST_F(CWinStartupTest, RegistryValueAndEntryGoTogether) {
  EXPECT_EQ(root_.Path("autostart"), Locations::GetAutostartFolder());
  CString program = root_.Path("data/drive_c/Program Files/Tidrel/tidrel.exe");
  ASSERT_TRUE(FileSystem::CreateDirectoryTree(Locations::GetParent(program)));
  ASSERT_TRUE(FileSystem::WriteWholeFile(program, ""));
  CString command = u"C:\\Program Files\\Tidrel\\tidrel.exe /background 100%";
  EXPECT_EQ(1, CWinStartup::AddApp("Tidrel", command, CWinStartup::kCurrentUser));
  EXPECT_EQ(command, RunValue(RegHive::kCurrentUser, "Tidrel"));
  EXPECT_EQ("\"" + program.ToUtf8() + "\" /background 100%%", Exec("Tidrel"));
  // The same name again replaces both.
  EXPECT_EQ(1,
            CWinStartup::AddApp("Tidrel", "/usr/bin/tidrel /deskbar", CWinStartup::kCurrentUser));
  EXPECT_EQ(CString("/usr/bin/tidrel /deskbar"), RunValue(RegHive::kCurrentUser, "Tidrel"));
  EXPECT_EQ("/usr/bin/tidrel /deskbar", Exec("Tidrel"));
  // The other hive's registration keeps the entry when one goes.
  EXPECT_EQ(1, CWinStartup::AddApp("Tidrel", "/opt/t \"a b\"", CWinStartup::kAllUsers));
  EXPECT_EQ("/opt/t \"a b\"", Exec("Tidrel"));
  EXPECT_EQ(1, CWinStartup::RemoveApp("Tidrel", CWinStartup::kAllUsers));
  EXPECT_EQ("/usr/bin/tidrel /deskbar", Exec("Tidrel"));
  EXPECT_EQ(1, CWinStartup::RemoveApp("Tidrel", CWinStartup::kCurrentUser));
  EXPECT_FALSE(RunValue(RegHive::kCurrentUser, "Tidrel"));
  EXPECT_FALSE(FileSystem::Exists(root_.Path("autostart/Tidrel.desktop")));
  EXPECT_EQ(0, CWinStartup::RemoveApp("Tidrel", CWinStartup::kCurrentUser));
}

// Hostile names write nothing anywhere; an entry the user made, or a link
// leading out, is never written through or removed.
TEST_F(CWinStartupTest, HostileNamesAndForeignEntriesAreLeftAlone) {
  std::vector<CString> names = {CString(std::u16string(u"\0evil", 5)), CString(u'n', 300)};
  for (const char16_t* n :
       {u"", u".", u"..", u"../evil", u"a/b", u"a\\b", u"x\x01y", u"tab\t", u"\xD800"})
    names.push_back(CString(n));
  for (const CString& name : names) {
    EXPECT_EQ(0, CWinStartup::AddApp(name, "/bin/true", CWinStartup::kCurrentUser));
    EXPECT_FALSE(RunValue(RegHive::kCurrentUser, name));
  }
  EXPECT_EQ(0, CWinStartup::AddApp("ok", u"\\\\server\\share\\x.exe", CWinStartup::kCurrentUser));
  EXPECT_EQ(0, CWinStartup::AddApp("ok", u"/bin/true \x1b[2J", CWinStartup::kCurrentUser));
  std::vector<FindEntry> left;
  FileFind::List(root_.root(), "*", &left);
  EXPECT_EQ(4u, left.size()) << "config, data, downloads, home and nothing else";

  CString own = root_.Path("autostart/mine.desktop");
  ASSERT_TRUE(FileSystem::CreateDirectoryTree(root_.Path("autostart")));
  ASSERT_TRUE(FileSystem::WriteWholeFile(own, "[Desktop Entry]\nExec=mine\n"));
  ASSERT_TRUE(FileSystem::CreateSymbolicLink(root_.Path("autostart/out.desktop"),
                                             root_.Path("outside.desktop")));
  EXPECT_EQ(0, CWinStartup::AddApp("mine", "/bin/true", CWinStartup::kCurrentUser));
  EXPECT_EQ(0, CWinStartup::AddApp("out", "/bin/true", CWinStartup::kCurrentUser));
  EXPECT_FALSE(FileSystem::Exists(root_.Path("outside.desktop")));
  EXPECT_FALSE(RunValue(RegHive::kCurrentUser, "out"));
  ASSERT_TRUE(Registry::Current()->SetValue(RegHive::kCurrentUser, CWinStartup::kRunKey, "mine",
                                            RegValue::String("x"), true) == ERROR_SUCCESS);
  EXPECT_EQ(1, CWinStartup::RemoveApp("mine", CWinStartup::kCurrentUser));
  EXPECT_EQ("mine", Exec("mine"));
}

}  // namespace
}  // namespace kordll
