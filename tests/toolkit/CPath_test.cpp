#include "kordll/toolkit/CPath.h"

#include <gtest/gtest.h>

#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

// What a path is taken apart into, with Windows meaning: both separators,
// drives, quotes, arguments, folders, and text that ends at U+0000.
TEST(CPathTest, SplitsAsWindowsDoes) {
  const struct {
    const char16_t* text;
    int folder, args;
    const char *drive, *dir, *title, *ext, *arguments;
    bool relative, local;
  } rows[] = {
      {u"C:\\Docs\\Report.final.txt", 0, 0, "C:", "\\Docs\\", "Report.final", "txt", "", 0, 1},
      {u"docs\\a.txt", 0, 0, "", "docs\\", "a", "txt", "", 1, 0},
      {u"\"C:\\Program Files\\x.exe\" /background", 0, 1, "C:", "\\Program Files\\", "x", "exe",
       "/background", 0, 1},
      {u"C:\\Skins\\Blue.theme", 1, 0, "C:", "\\Skins\\Blue.theme\\", "", "", "", 0, 1},
      {u"/home/ann/.profile", 0, 0, "", "\\home\\ann\\", "", "", "", 0, 0},
      // Only a space outside quotes starts the arguments, a tab does not.
      {u"C:\\a\tb.exe /x", 0, 1, "C:", "\\", "a\tb", "exe", "/x", 0, 1},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(CString(r.text).ToUtf8());
    CPath p(CString(r.text), r.folder, r.args);
    EXPECT_EQ(CString(r.drive), p.GetDrive());
    EXPECT_EQ(CString(r.dir), p.GetDir());
    EXPECT_EQ(CString(r.title), p.GetFileTitle());
    EXPECT_EQ(CString(r.ext), p.GetExtName());
    EXPECT_EQ(CString(r.arguments), p.GetPath(1, 0).Mid(p.GetPath(0, 0).GetLength()).Trim());
    EXPECT_EQ(r.relative, p.IsRelativePath());
    EXPECT_EQ(r.local, p.IsLocalPath());
    EXPECT_EQ(!CString(r.title).IsEmpty(), p.IsFilePath());
  }
  // Text ends at U+0000, as a wide C string does.
  CPath p(CString(std::u16string_view(u"C:\\Docs\\Work\\Report.txt\0\\..\\evil", 32)));
  EXPECT_EQ(2, p.GetDirCount());
  EXPECT_EQ(CString("Work"), p.GetDir(1));
  EXPECT_EQ(CString(""), p.GetDir(2));
  EXPECT_EQ(CString(u"C:\\Docs\\Work\\"), p.GetLocation());
  EXPECT_EQ(CString("Report.txt"), p.GetFileName());
  EXPECT_EQ(CString(u"C:\\Docs\\Work\\Report.txt"), CString(static_cast<LPCWSTR>(p)));
  CPath share(CString(u"\\\\server\\music\\a.mp3"));
  EXPECT_EQ(CString(u"\\\\server\\music\\"), share.GetDrive());
  EXPECT_EQ(CString(""), share.GetSystemPath()) << "no share is reachable";
}

TEST(CPathTest, AbsoluteAndRelativeWays) {
  const struct {
    const char16_t *path, *base, *absolute, *relative;
  } rows[] = {
      {u"..\\b\\c.txt", u"C:\\a\\x", u"C:\\a\\b\\c.txt", u""},
      {u"..\\..\\..\\f.txt", u"C:\\a", u"C:\\f.txt", u""},  // ".." stops at the root
      {u"C:\\a\\b\\f.txt", u"c:\\A\\c\\d", u"", u"..\\..\\b\\f.txt"},
      {u"C:\\a\\b\\f.txt", u"D:\\a", u"", u""},
      {u"/srv/x/f.txt", u"/srv/y", u"", u"..\\x\\f.txt"},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(CString(r.path).ToUtf8());
    CPath p{CString(r.path)};
    EXPECT_EQ(CString(r.absolute), p.GetAbsolutePath(r.base));
    EXPECT_EQ(CString(r.relative), p.GetRelativePath(r.base));
  }
  // A result of MAX_PATH units or more is refused.
  CPath deep(CString(u"d\\") + CString(u'a', 300) + ".txt");
  EXPECT_EQ(CString(""), deep.GetAbsolutePath(u"C:\\"));
}

TEST(CPathTest, ArgumentsAreSwitchesAndValues) {
  CPath p(CString(u"app.exe /size:10 -mode=fast \"two words\""), 0, 1);
  ASSERT_EQ(3, p.GetArgCount());
  EXPECT_EQ(CString("10"), p.GetArgument(0, 0));
  EXPECT_EQ(CString("two words"), p.GetArgument(2, 0));
  EXPECT_EQ(1, p.FindArgument("/MODE"));
  EXPECT_EQ(-1, p.FindArgument("two"));
  p.AddSetArgument("size", "big one");
  p.AddSetArgument("-deskbar", "");
  EXPECT_EQ(CString("app.exe /size:\"big one\" -mode=fast \"two words\" -deskbar"),
            p.GetPath(1, 0));
  EXPECT_EQ(1, p.RemoveArgument(2));
  EXPECT_EQ(CString("/size:\"big one\" -mode=fast -deskbar"), p.GetPath(1, 0).Mid(8));
}

// Drive paths reach the data root's drive folders (and never leave them);
// questions about the disk are asked afresh.
TEST(CPathTest, DrivePathsReachTheDataRoot) {
  test::TempRoot root;
  CPath p(CString(u"C:\\Data\\f.bin"));
  CString file = root.Path("data/drive_c/Data/f.bin");
  EXPECT_EQ(file, p.GetSystemPath());
  int64_t size = -1;
  EXPECT_FALSE(p.ExistFile());
  EXPECT_EQ(0, p.GetFileSize(size));
  ASSERT_TRUE(FileSystem::CreateDirectoryTree(Locations::GetParent(file)));
  ASSERT_TRUE(FileSystem::WriteWholeFile(file, "12345"));
  EXPECT_TRUE(p.ExistFile());
  EXPECT_TRUE(p.ExistLocation());
  EXPECT_EQ(1, p.GetFileSize(size));
  EXPECT_EQ(5, size);
  EXPECT_EQ(root.Path("data/drive_c/etc/passwd"), CPath::ToSystemPath(u"c:..\\..\\etc\\passwd"));
  EXPECT_EQ(root.DownloadFolder() + "/a.mp3", CPath::ToSystemPath(u"C:\\Tidrel Downloads\\a.mp3"));
  CPath data;
  EXPECT_EQ(1, data.SetPath(CPath::kDataRoot));
  EXPECT_EQ(root.DataRoot(), data.GetSystemPath());
}

}  // namespace
}  // namespace kordll
