#include "kordll/platform/FileFind.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kordll/platform/FileSystem.h"
#include "kordll/platform/WinError.h"
#include "tests/platform/LastError.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

TEST(FileFindMaskTest, StarQuestionMarkAndAsciiCase) {
  // Case folding is ASCII only, as the file system's own comparison here;
  // "*.*" also matches names without an extension.
  // clang-format off
  const struct {
    const char16_t* name;
    const char16_t* mask;
    bool match;
  } cases[] = {
      {u"X.DLL", u"*.dll", true}, {u"x.dlls", u"*.dll", false},
      {u"\u00C9t\u00E9", u"\u00E9t\u00E9", false}, {u"", u"*", true}, {u"", u"?", false},
      {u"ab", u"?", false}, {u"abcbc", u"a*bc", true}, {u"abcb", u"a*bc", false},
      {u"abc", u"", false}, {u"README", u"*.*", true}, {u"abc", u"abc.*", true}};
  // clang-format on
  for (const auto& c : cases) {
    EXPECT_EQ(c.match, FileFind::MatchMask(CString(c.name), CString(c.mask)))
        << CString(c.name).ToUtf8() << " ~ " << CString(c.mask).ToUtf8();
  }
}

TEST(FileFindMaskTest, HostileMasksFinish) {
  std::u16string name(4000, u'a');
  std::u16string mask;
  for (int i = 0; i < 200; ++i) mask += u"*a";
  mask += u"b";
  EXPECT_FALSE(FileFind::MatchMask(CString(name), CString(mask)));
  name.back() = u'b';
  EXPECT_TRUE(FileFind::MatchMask(CString(name), CString(mask)));
}

class FileFindTest : public test::TempRootTest {
 protected:
  CString P(const char* name) { return root_.Path(name); }
  void Touch(const char* name) { ASSERT_EQ(1, FileSystem::WriteWholeFile(P(name), "x")); }

  static std::vector<std::string> Walk(FileFind& finder) {
    std::vector<std::string> names;
    int working = 1;
    while (working) {
      working = finder.FindNextFile();
      if (finder.GetEntry() == nullptr) break;
      names.push_back(finder.GetFileName().ToUtf8());
    }
    return names;
  }
};

TEST_F(FileFindTest, ListsMatchingNamesInAFixedOrder) {
  ASSERT_EQ(1, FileSystem::CreateDirectory(P("p")));
  for (const char* n : {"p/b.DLL", "p/A.dll", "p/c.dll.txt", "p/readme", "p/C.dll"}) Touch(n);
  ASSERT_EQ(1, FileSystem::CreateDirectory(P("p/sub.dll")));

  FileFind finder;
  ASSERT_EQ(1, finder.FindFile(P("p/*.dll")));
  EXPECT_EQ(P("p"), finder.GetRoot());
  EXPECT_EQ(nullptr, finder.GetEntry()) << "nothing is current before the first step";
  std::vector<std::string> want = {"A.dll", "b.DLL", "C.dll", "sub.dll"};
  EXPECT_EQ(want, Walk(finder));
}

TEST_F(FileFindTest, NoMatchAndNoFolderAreToldApart) {
  FileFind finder;
  EXPECT_TRUE(test::Answers(0, ERROR_FILE_NOT_FOUND, finder.FindFile(root_.root(), "*.none")));
  EXPECT_EQ(0, finder.FindNextFile());
  EXPECT_TRUE(test::Answers(0, ERROR_PATH_NOT_FOUND, finder.FindFile(P("missing"), "*.*")));
  Touch("plain");
  EXPECT_TRUE(test::Answers(0, ERROR_PATH_NOT_FOUND, finder.FindFile(P("plain"), "*.*")));
  std::vector<FindEntry> none;
  EXPECT_EQ(1, FileFind::List(root_.root(), "*.none", &none));
  EXPECT_TRUE(none.empty());
}

// Links are reported as links, not folders; "." and ".." are never listed,
// other names starting with a dot are.
TEST_F(FileFindTest, LinksAreReportedAsLinksNotFoldersAndDotEntriesNotAtAll) {
  ASSERT_EQ(1, FileSystem::CreateDirectoryTree(P("outside/deep")));
  ASSERT_EQ(1, FileSystem::CreateDirectory(P("w")));
  ASSERT_EQ(1, FileSystem::CreateDirectory(P("w/real")));
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("w/jump"), P("outside")));
  Touch("w/.hidden");
  Touch("w/...");
  std::vector<FindEntry> entries;
  ASSERT_EQ(1, FileFind::List(P("w"), "*.*", &entries));
  ASSERT_EQ(4u, entries.size());
  EXPECT_TRUE(entries[2].is_symlink && !entries[2].is_folder && !entries[2].is_file);
  EXPECT_EQ("real", entries[3].name);
  EXPECT_TRUE(entries[3].is_folder && !entries[3].is_symlink);
  FileFind finder;
  ASSERT_EQ(1, finder.FindFile(P("w"), "*"));
  EXPECT_EQ((std::vector<std::string>{"...", ".hidden", "jump", "real"}), Walk(finder));
}

}  // namespace
}  // namespace kordll
