#include "kordll/platform/FileSystem.h"

#include <gtest/gtest.h>

#include <string>

#include "kordll/platform/WinError.h"
#include "tests/platform/LastError.h"
#include "tests/support/FaultEnv.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

class FileSystemTest : public test::TempRootTest {
 protected:
  CString P(const char* name) { return root_.Path(name); }

  // Files of every test go through faults_, which fails nothing until armed.
  test::FaultEnv faults_{Env::Current()};
  ScopedEnv use_faults_{&faults_};

  void Put(const CString& path, const std::string& bytes) {
    ASSERT_EQ(1, FileSystem::WriteWholeFile(path, bytes)) << path.ToUtf8();
  }

  std::string Contents(const CString& path) {
    std::string s;
    EXPECT_EQ(1, FileSystem::ReadWholeFile(path, &s)) << path.ToUtf8();
    return s;
  }
};

// Taken names, moves of folders and copies onto a taken name are covered
// for the machine and for memory alike by the Env tests; here what only the
// machine has (links) and what those do not reach.
TEST_F(FileSystemTest, MoveRefusesEveryKindOfTakenTargetAndAMissingSource) {
  Put(P("c"), "C");
  // A folder at the target is taken, and so is a dangling link, and the
  // source itself; even an empty folder is taken.
  ASSERT_EQ(1, FileSystem::CreateDirectory(P("dir")));
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("dangling"), P("nowhere")));
  for (const char* taken : {"dir", "dangling", "c"}) {
    EXPECT_EQ(0, FileSystem::MoveFile(P("c"), P(taken))) << taken;
    EXPECT_EQ(ERROR_ALREADY_EXISTS, GetLastError()) << taken;
  }
  EXPECT_EQ("C", Contents(P("c")));
  EXPECT_FALSE(FileSystem::Exists(P("nowhere")));
  EXPECT_TRUE(test::Answers(0, ERROR_FILE_NOT_FOUND, FileSystem::MoveFile(P("none"), P("x"))));
}

TEST_F(FileSystemTest, CopyOntoItselfOrFromNothingChangesNothing) {
  Put(P("src"), "keep me");
  // The same file reached through a link is still the same file.
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("alias"), P("src")));
  EXPECT_EQ(0, FileSystem::CopyFile(P("src"), P("alias"), 0));
  EXPECT_EQ("keep me", Contents(P("src")));

  EXPECT_TRUE(test::Answers(0, ERROR_FILE_NOT_FOUND, FileSystem::CopyFile(P("none"), P("t"), 0)));
  EXPECT_FALSE(FileSystem::Exists(P("t")));
  EXPECT_EQ(0, FileSystem::CopyFile(root_.DataRoot(), P("t"), 0));  // a folder
  EXPECT_FALSE(FileSystem::Exists(P("t")));
}

TEST_F(FileSystemTest, CopyCopiesManyBuffersOrOnAFullDiskNothing) {
  std::string big(300 * 1024 + 13, '\0');
  for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 7 + i / 251);
  Put(P("src"), big);
  ASSERT_EQ(1, FileSystem::CopyFile(P("src"), P("copy"), 1));
  EXPECT_EQ(big, Contents(P("copy")));
  faults_.Arm(test::FaultEnv::kWrite, 2, 1);
  EXPECT_TRUE(test::Answers(0, ERROR_DISK_FULL, FileSystem::CopyFile(P("src"), P("dst"), 1)));
  EXPECT_FALSE(FileSystem::Exists(P("dst")));
  EXPECT_EQ(1, faults_.Injected(test::FaultEnv::kWrite));
}

TEST_F(FileSystemTest, InjectedMoveAndDeleteFailuresChangeNothing) {
  Put(P("a"), "A");
  faults_.Arm(test::FaultEnv::kMove, 0, 1);
  EXPECT_TRUE(test::Answers(0, ERROR_ACCESS_DENIED, FileSystem::MoveFile(P("a"), P("b"))));
  EXPECT_TRUE(FileSystem::Exists(P("a")));
  EXPECT_FALSE(FileSystem::Exists(P("b")));
  faults_.Arm(test::FaultEnv::kDelete, 0, 1);
  EXPECT_EQ(0, FileSystem::DeleteFile(P("a")));
  EXPECT_TRUE(FileSystem::Exists(P("a")));
  EXPECT_EQ(1, FileSystem::DeleteFile(P("a")));
}

TEST_F(FileSystemTest, DeleteFileRemovesFilesAndLinksButNotFolders) {
  Put(P("target"), "T");
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("link"), P("target")));
  ASSERT_EQ(1, FileSystem::DeleteFile(P("link")));
  EXPECT_FALSE(FileSystem::Exists(P("link")));
  EXPECT_EQ("T", Contents(P("target")));

  EXPECT_TRUE(test::Answers(0, ERROR_FILE_NOT_FOUND, FileSystem::DeleteFile(P("none"))));
}

TEST_F(FileSystemTest, FoldersAreMadeWithTheirParentsAndRemovedButNotThroughLinks) {
  ASSERT_EQ(1, FileSystem::CreateDirectoryTree(P("a/b//c/")));
  EXPECT_TRUE(FileSystem::IsFolder(P("a/b/c")));
  EXPECT_EQ(1, FileSystem::CreateDirectoryTree(P("a/b/c")));  // already there
  Put(P("a/file"), "");
  EXPECT_EQ(0, FileSystem::CreateDirectoryTree(P("a/file/d")));
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("cl"), P("a/b/c")));
  EXPECT_TRUE(test::Answers(0, ERROR_DIRECTORY, FileSystem::RemoveDirectory(P("cl"))));
  EXPECT_EQ(1, FileSystem::RemoveDirectory(P("a/b/c")));
  EXPECT_FALSE(FileSystem::Exists(P("a/b/c")));
}

TEST_F(FileSystemTest, DeleteFolderTreeRemovesEverythingBelowButNeverFollowsLinks) {
  ASSERT_EQ(1, FileSystem::CreateDirectoryTree(P("outside/inner")));
  Put(P("outside/keep"), "K");
  Put(P("outside/inner/keep2"), "K2");
  ASSERT_EQ(1, FileSystem::CreateDirectoryTree(P("t/sub/b/c")));
  for (const char* name : {"t/f1", "t/sub/b/c/f3", "t/.hidden"}) Put(P(name), "x");
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("t/to_folder"), P("outside")));
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("t/sub/to_file"), P("outside/keep")));
  ASSERT_EQ(1, FileSystem::DeleteFolderTree(P("t")));
  EXPECT_FALSE(FileSystem::Exists(P("t")));
  EXPECT_EQ("K", Contents(P("outside/keep")));
  EXPECT_EQ("K2", Contents(P("outside/inner/keep2")));

  // A link given as the tree itself is refused, and its target stays.
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("tl"), P("outside")));
  EXPECT_TRUE(test::Answers(0, ERROR_DIRECTORY, FileSystem::DeleteFolderTree(P("tl"))));
  EXPECT_TRUE(FileSystem::IsSymlink(P("tl")));
  EXPECT_TRUE(test::Answers(0, ERROR_PATH_NOT_FOUND, FileSystem::DeleteFolderTree(P("none"))));
}

TEST_F(FileSystemTest, QuestionsAboutNames) {
  EXPECT_TRUE(FileSystem::IsNameFree(P("n")));
  Put(P("file"), "12345");
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("link"), P("file")));
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("dangling"), P("nowhere")));
  // A name is free only if nothing has it and it could be made.
  for (const CString& taken : {P("file"), root_.DataRoot(), P("dangling"), CString(), P("file/x")})
    EXPECT_FALSE(FileSystem::IsNameFree(taken)) << taken.ToUtf8();
  // A dangling link exists but is nothing.
  EXPECT_TRUE(FileSystem::Exists(P("dangling")) && !FileSystem::IsFile(P("dangling")));
  EXPECT_EQ(5, FileSystem::GetFileSize(P("link")));
  EXPECT_EQ(-1, FileSystem::GetFileSize(P("none")));
  EXPECT_EQ(-1, FileSystem::GetFileSize(root_.root()));
}

TEST_F(FileSystemTest, WholeFileReadHonoursItsLimit) {
  Put(P("f"), std::string(1000, 'q'));
  std::string s = "junk";
  EXPECT_TRUE(
      test::Answers(0, ERROR_NOT_ENOUGH_MEMORY, FileSystem::ReadWholeFile(P("f"), &s, 999)));
  EXPECT_TRUE(s.empty());
  EXPECT_EQ(1, FileSystem::ReadWholeFile(P("f"), &s, 1000));
  EXPECT_EQ(1000u, s.size());
  EXPECT_EQ(0, FileSystem::ReadWholeFile(P("none"), &s));
}

// Every test root is a fresh temporary folder; a prefix that would lead out
// is refused.
TEST_F(FileSystemTest, TempFoldersRefuseSlashes) {
  CString c;
  EXPECT_EQ(0, FileSystem::CreateTempFolder("../x", &c));
  EXPECT_TRUE(c.IsEmpty());
}

}  // namespace
}  // namespace kordll
