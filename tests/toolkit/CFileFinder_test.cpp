#include "kordll/toolkit/CFileFinder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

// A tree in the data root's drive C: tree/{a.txt, B.TXT, sub/{c.txt, e.log,
// deep/d.txt}} and a link "out" that leads to the root of the system.
class CFileFinderTest : public test::TempRootTest {
 protected:
  void SetUp() override {
    base_ = root_.Path("data/drive_c/tree");
    for (const char* dir : {"", "/sub", "/sub/deep"}) {
      ASSERT_TRUE(FileSystem::CreateDirectoryTree(base_ + dir));
    }
    std::string big(70000, 'x');  // the text lies across two reads
    big.replace(65530, 6, "needle");
    const std::pair<const char*, std::string> files[] = {{"/a.txt", "no"},
                                                         {"/B.TXT", big},
                                                         {"/sub/c.txt", "a needle"},
                                                         {"/sub/e.log", ""},
                                                         {"/sub/deep/d.txt", ""}};
    for (const auto& f : files) ASSERT_TRUE(FileSystem::WriteWholeFile(base_ + f.first, f.second));
    ASSERT_TRUE(FileSystem::CreateSymbolicLink(base_ + "/out", "/"));
  }

  std::vector<CString> Found(const CFileFinder& f) {
    std::vector<CString> out;
    for (int i = 0; i < f.GetFileCount(); ++i) out.push_back(f.GetFilePath(i));
    return out;
  }

  CString base_;
};

// Folders below come first, each wholly, then the folder's own entries;
// the base is answered in the spelling it was given.
TEST_F(CFileFinderTest, SubfoldersFirstInEitherSpelling) {
  CFileFinder f;
  EXPECT_EQ(4, f.FindFiles(base_, "*.txt", 1));
  EXPECT_EQ((std::vector<CString>{base_ + "/sub/deep/d.txt", base_ + "/sub/c.txt", base_ + "/a.txt",
                                  base_ + "/B.TXT"}),
            Found(f));
  CFileFinder w;
  EXPECT_EQ(4, w.FindFiles(u"C:\\tree", "*.*", 0));
  EXPECT_EQ((std::vector<CString>{u"C:\\tree\\a.txt", u"C:\\tree\\B.TXT", u"C:\\tree\\out",
                                  u"C:\\tree\\sub\\"}),
            Found(w));
  EXPECT_EQ(u"C:\\tree\\", w.GetSearchingFolder());
  EXPECT_EQ(3, w.FindPathItem(u"C:\\tree\\sub\\"));
  w.RemoveAt(3);
  EXPECT_EQ(-1, w.FindPathItem(u"C:\\tree\\sub\\"));
}

TEST_F(CFileFinderTest, FiltersDropEntries) {
  CFileFinder f;
  CFileFinder::CFindOpts opts;
  opts.base_folder = base_;
  opts.recurse = 1;
  opts.flags = CFileFinder::kFindText;
  opts.text = "needle";
  EXPECT_EQ(2, f.Find(opts));
  EXPECT_EQ(base_ + "/", opts.base_folder) << "the search's own base gets its separator";
  EXPECT_EQ((std::vector<CString>{base_ + "/sub/c.txt", base_ + "/B.TXT"}), Found(f));
  f.RemoveAll();
  opts.flags = CFileFinder::kFindAttributes;
  opts.attributes = CFileFinder::kAttributeFolder;
  EXPECT_EQ(2, f.Find(opts));
  EXPECT_EQ((std::vector<CString>{base_ + "/sub/deep/", base_ + "/sub/"}), Found(f));
  f.RemoveAll();
  opts.flags = CFileFinder::kFindLastWriteTime;
  opts.last_write_to = 1;  // nothing was written in the first second of 1970
  EXPECT_EQ(0, f.Find(opts));
  opts.last_write_to = int64_t{1} << 40;
  EXPECT_EQ(8, f.Find(opts));
}

// The link leads out of the tree and is never followed; a stop asked in the
// callback ends every level.
TEST_F(CFileFinderTest, NeverLeavesTheTreeAndStopsEverywhere) {
  CFileFinder f;
  std::vector<unsigned long> codes;
  f.SetCallback([](CFileFinder*, unsigned long code,
                   void* data) { static_cast<std::vector<unsigned long>*>(data)->push_back(code); },
                &codes);
  EXPECT_EQ(8, f.FindFiles(base_, "*", 1));
  EXPECT_EQ(-1, f.FindPathItem(base_ + "/out/"));
  EXPECT_EQ(3u, std::count(codes.begin(), codes.end(), CFileFinder::kCallbackFolder));
  f.RemoveAll();
  f.SetCallback(
      [](CFileFinder* finder, unsigned long code, void*) {
        if (code == CFileFinder::kCallbackFound) finder->StopSearch();
      },
      nullptr);
  EXPECT_EQ(1, f.FindFiles(base_, "*", 1));
  EXPECT_EQ(base_ + "/sub/deep/d.txt", f.GetFilePath(0));
  // The folders above still take their turn, without looking at an entry.
  EXPECT_EQ(base_ + "/", f.GetSearchingFolder());
}

}  // namespace
}  // namespace kordll
