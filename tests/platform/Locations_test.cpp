#include "kordll/platform/Locations.h"

#include <gtest/gtest.h>

#include <optional>

#include "kordll/platform/FileSystem.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

// Every test here runs inside a TempRoot, which masks the real environment.
class LocationsTest : public test::TempRootTest {
 protected:
  CString P(const char* name) { return root_.Path(name); }

  // Leaves the root unset, so that the XDG and home rules apply.
  void WithoutRoot() {
    Locations::SetVariableForTesting("KORDLL_ROOT", std::nullopt);
    Locations::SetVariableForTesting("HOME", CString("/home/someone"));
  }
};

// Without a root the XDG variables decide, then the home folder; an explicit
// download folder wins over everything. Empty or relative values count as unset.
TEST_F(LocationsTest, WithoutARootXdgThenHomeDecide) {
  Locations::SetVariableForTesting("KORDLL_DOWNLOAD_DIR", CString("/srv/dl"));
  EXPECT_EQ("/srv/dl", Locations::GetDownloadFolder()) << "over the root too";
  const char* kDl = "/home/someone/Downloads/Tidrel Downloads";
  const char* kData = "/home/someone/.local/share/kordll";
  const char* kProfile = "/home/someone/.config/kordll";
  const struct {
    const char *root, *download_dir, *xdg_download, *xdg_data, *xdg_config;
    const char *dl, *data, *profile;
  } rows[] = {{nullptr, nullptr, nullptr, nullptr, nullptr, kDl, kData, kProfile},
              {"", "relative/dl", "", "data", "", kDl, kData, kProfile},
              {nullptr, nullptr, "/media/dl", "/x/share/", "/x/conf", "/media/dl/Tidrel Downloads",
               "/x/share/kordll", "/x/conf/kordll"}};
  auto set = [](const char* name, const char* value) {
    Locations::SetVariableForTesting(name,
                                     value ? std::optional<CString>(CString(value)) : std::nullopt);
  };
  for (const auto& row : rows) {
    WithoutRoot();
    set("KORDLL_ROOT", row.root);
    set("KORDLL_DOWNLOAD_DIR", row.download_dir);
    set("XDG_DOWNLOAD_DIR", row.xdg_download);
    set("XDG_DATA_HOME", row.xdg_data);
    set("XDG_CONFIG_HOME", row.xdg_config);
    EXPECT_EQ(row.dl, Locations::GetDownloadFolder()) << row.dl;
    EXPECT_EQ(row.data, Locations::GetDataRoot()) << row.data;
    EXPECT_EQ(row.profile, Locations::GetProfileFolder()) << row.profile;
  }
}

TEST(LocationsAfterTest, NothingReachesTheRealHomeOnceATestRootIsGone) {
  { test::TempRoot root; }
  // The environment and the user database no longer decide: every folder
  // lies below /proc/self, where nothing can be made.
  for (const CString& folder :
       {Locations::GetProfileFolder(), Locations::GetDataRoot(), Locations::GetDownloadFolder()}) {
    EXPECT_EQ(folder.Left(31), "/proc/self/kordll-no-test-root/") << folder.ToUtf8();
    EXPECT_FALSE(FileSystem::CreateDirectoryTree(folder));
  }
  EXPECT_EQ(Locations::MapDrivePath("D:\\x").Left(31), "/proc/self/kordll-no-test-root/");
  // An explicit override still speaks.
  Locations::SetVariableForTesting("HOME", CString("/home/someone"));
  EXPECT_EQ("/home/someone/.config/kordll", Locations::GetProfileFolder());
  Locations::ResetForTesting();
}

TEST(LocationsPathTest, JoinParentNameAndNormalizeAreLexical) {
  // "\\" is an ordinary character of a name, never a separator.
  const char* joins[][3] = {
      {"a/", "//b", "a/b"}, {"/", "b", "/b"}, {"", "b", "b"}, {"a\\", "b\\c", "a\\/b\\c"}};
  for (const auto& j : joins) EXPECT_EQ(j[2], Locations::Join(j[0], j[1])) << j[0] << "+" << j[1];
  EXPECT_EQ("/", Locations::GetParent("/a"));
  EXPECT_EQ("", Locations::GetParent("a"));
  EXPECT_EQ("a\\b", Locations::GetFileName("/x/a\\b"));
  // clang-format off
  const char* normal[][2] = {{"/a/./b/../c/", "/a/c"}, {"/../../x", "/x"}, {"a/../../x", "../x"},
                             {"a/..", "."}, {"/a\\..", "/a\\.."}};
  // clang-format on
  for (const auto& n : normal) EXPECT_EQ(n[1], Locations::NormalizePath(n[0])) << n[0];
}

TEST_F(LocationsTest, PathsInsideAFolder) {
  CString dl = root_.DownloadFolder();
  // Relative paths are taken from the folder; "..\\x" is one odd name.
  for (const CString& inside :
       {Locations::Join(dl, "file.mp3"), CString("file.mp3"), CString("sub/../file.mp3"),
        CString("not/yet/made.mp3"), CString("..\\x")}) {
    EXPECT_TRUE(Locations::IsPathInside(dl, inside)) << inside.ToUtf8();
  }
  EXPECT_TRUE(Locations::IsPathInside(dl + "/", dl + "//a"));
  CString nul = "a";
  nul += char16_t(0);
  for (const CString& outside :
       {CString("../config/registry"), CString("a/../../x"), CString("/etc/passwd"), dl,
        CString("."), CString(), nul, root_.root() + "/downloads2/x"}) {
    EXPECT_FALSE(Locations::IsPathInside(dl, outside)) << outside.ToUtf8();
  }
  EXPECT_FALSE(Locations::IsPathInside("relative", "relative/x"));
}

TEST_F(LocationsTest, LinksLeadingOutAreRefused) {
  CString dl = root_.DownloadFolder();
  ASSERT_EQ(1, FileSystem::WriteWholeFile(P("config/secret"), "s"));
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(Locations::Join(dl, "out"), root_.ProfileFolder()));
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(Locations::Join(dl, "file"), P("config/secret")));
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(Locations::Join(dl, "dangling"), P("config/new")));
  ASSERT_EQ(1, FileSystem::CreateDirectory(Locations::Join(dl, "real")));
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(Locations::Join(dl, "in"), "real"));

  EXPECT_FALSE(Locations::IsPathInside(dl, "out/secret"));
  EXPECT_FALSE(Locations::IsPathInside(dl, "out/not-yet"));
  EXPECT_FALSE(Locations::IsPathInside(dl, "file"));
  EXPECT_FALSE(Locations::IsPathInside(dl, "dangling"));
  EXPECT_TRUE(Locations::IsPathInside(dl, "in/x"));

  // A folder reached through a link works when the path is built from it;
  // a path must stay inside both as written and as resolved.
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("dl-alias"), dl));
  EXPECT_TRUE(Locations::IsPathInside(P("dl-alias"), P("dl-alias/a")));
  EXPECT_FALSE(Locations::IsPathInside(P("dl-alias"), P("dl-alias/out/secret")));
  EXPECT_FALSE(Locations::IsPathInside(dl, P("dl-alias/a")));
}

TEST_F(LocationsTest, DrivePathsMapBelowTheDataRootAndTheDesignsDownloadFolderIsOurs) {
  const CString data = root_.DataRoot(), dl = root_.DownloadFolder();
  const struct {
    const char* path;
    CString mapped;
  } rows[] = {
      {"d:/Feeds//x.xml", data + "/drive_d/Feeds/x.xml"},
      {"E:", data + "/drive_e"},
      {"E:\\..\\..\\etc\\passwd", data + "/drive_e/etc/passwd"},  // ".." stops at the root
      {"c:\\Tidrel Downloads\\", dl},
      {"C:\\TIDREL DOWNLOADS\\show\\ep1.mp3", dl + "/show/ep1.mp3"},
      {"D:\\Tidrel Downloads", data + "/drive_d/Tidrel Downloads"},
  };
  for (const auto& row : rows) EXPECT_EQ(row.mapped, Locations::MapDrivePath(row.path)) << row.path;
  // Other texts are not drive paths.
  for (const char* text : {"/usr/x", "relative\\x", "CC:\\x", "1:\\x", "C:x", "", "http://x/y"})
    EXPECT_EQ(text, Locations::MapDrivePath(text));
}

TEST(LocationsNamesTest, DownloadFileNamesFromAddresses) {
  const char* names[][2] = {{"a/b\\c:d", "a_b_c_d"}, {"../etc/passwd", ".._etc_passwd"},
                            {"", "download"},        {"..", "download"},
                            {"...", "..."},          {"/", "_"}};
  for (const auto& n : names) EXPECT_EQ(n[1], Locations::SafeDownloadFileName(n[0])) << n[0];
  CString controls = "x";
  for (char16_t c : {char16_t(0), char16_t(0x1F), char16_t(0x7F), char16_t(0x85), char16_t(0xE9)})
    controls += c;
  EXPECT_EQ(CString(u"x____\u00E9"), Locations::SafeDownloadFileName(controls));
}

TEST(LocationsNamesTest, LoginAndSkinEntryNamesUsableAsFileNames) {
  CString nul = "a";
  nul += char16_t(0);
  // clang-format off
  const struct {
    CString name;
    bool login, skin;
  } cases[] = {
      {u"J\u00F6rg Smith", true, true}, {"...", true, true}, {"~temp", true, false},
      {"", false, false}, {"..", false, false}, {"a/b", false, false}, {"a\\b", false, false},
      {"tab\there", false, true}, {nul, false, false}};
  // clang-format on
  for (const auto& c : cases) {
    EXPECT_EQ(c.login, Locations::IsUsableLoginName(c.name)) << c.name.ToUtf8();
    EXPECT_EQ(c.skin, Locations::IsUsableSkinEntryName(c.name)) << c.name.ToUtf8();
  }
}

}  // namespace
}  // namespace kordll
