#include "kordll/platform/FileSystem.h"

#include <gtest/gtest.h>

#include <string>

#include "kordll/platform/WinError.h"
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

TEST_F(FileSystemTest, MoveRenamesAFileAndRefusesATakenTarget) {
  Put(P("a"), "A");
  ASSERT_EQ(1, FileSystem::MoveFile(P("a"), P("b")));
  EXPECT_FALSE(FileSystem::Exists(P("a")));
  EXPECT_EQ("A", Contents(P("b")));

  Put(P("c"), "C");
  EXPECT_EQ(0, FileSystem::MoveFile(P("c"), P("b")));
  EXPECT_EQ(ERROR_ALREADY_EXISTS, GetLastError());
  EXPECT_EQ("A", Contents(P("b")));
  EXPECT_EQ("C", Contents(P("c")));

  // A folder at the target is taken as well, and so is a dangling link.
  ASSERT_EQ(1, FileSystem::CreateDirectory(P("dir")));
  EXPECT_EQ(0, FileSystem::MoveFile(P("c"), P("dir")));
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("dangling"), P("nowhere")));
  EXPECT_EQ(0, FileSystem::MoveFile(P("c"), P("dangling")));
  EXPECT_EQ("C", Contents(P("c")));
  EXPECT_FALSE(FileSystem::Exists(P("nowhere")));

  // Moving onto itself is a taken target too.
  EXPECT_EQ(0, FileSystem::MoveFile(P("c"), P("c")));
  EXPECT_EQ("C", Contents(P("c")));
}

TEST_F(FileSystemTest, MoveReportsAMissingSourceAndMovesFolders) {
  EXPECT_EQ(0, FileSystem::MoveFile(P("none"), P("x")));
  EXPECT_EQ(ERROR_FILE_NOT_FOUND, GetLastError());
  EXPECT_FALSE(FileSystem::Exists(P("x")));

  ASSERT_EQ(1, FileSystem::CreateDirectory(P("d1")));
  Put(P("d1/f"), "F");
  ASSERT_EQ(1, FileSystem::MoveFile(P("d1"), P("d2")));
  EXPECT_EQ("F", Contents(P("d2/f")));
  ASSERT_EQ(1, FileSystem::CreateDirectory(P("d3")));
  EXPECT_EQ(0, FileSystem::MoveFile(P("d2"), P("d3")));  // even an empty folder is taken
  EXPECT_EQ(ERROR_ALREADY_EXISTS, GetLastError());
  EXPECT_TRUE(FileSystem::IsFile(P("d2/f")));
}

TEST_F(FileSystemTest, CopyFailIfExistsKeepsTheTarget) {
  Put(P("src"), "new bytes");
  Put(P("dst"), "old");
  EXPECT_EQ(0, FileSystem::CopyFile(P("src"), P("dst"), 1));
  EXPECT_EQ(ERROR_FILE_EXISTS, GetLastError());
  EXPECT_EQ("old", Contents(P("dst")));

  ASSERT_EQ(1, FileSystem::CopyFile(P("src"), P("dst"), 0));
  EXPECT_EQ("new bytes", Contents(P("dst")));
  ASSERT_EQ(1, FileSystem::CopyFile(P("src"), P("fresh"), 1));
  EXPECT_EQ("new bytes", Contents(P("fresh")));
  EXPECT_EQ("new bytes", Contents(P("src")));
}

TEST_F(FileSystemTest, CopyOntoItselfOrFromNothingChangesNothing) {
  Put(P("src"), "keep me");
  EXPECT_EQ(0, FileSystem::CopyFile(P("src"), P("src"), 0));
  EXPECT_EQ(ERROR_SHARING_VIOLATION, GetLastError());
  EXPECT_EQ("keep me", Contents(P("src")));
  // The same file reached through a link is still the same file.
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("alias"), P("src")));
  EXPECT_EQ(0, FileSystem::CopyFile(P("src"), P("alias"), 0));
  EXPECT_EQ("keep me", Contents(P("src")));

  EXPECT_EQ(0, FileSystem::CopyFile(P("none"), P("t"), 0));
  EXPECT_EQ(ERROR_FILE_NOT_FOUND, GetLastError());
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
  EXPECT_EQ(0, FileSystem::CopyFile(P("src"), P("dst"), 1));
  EXPECT_EQ(ERROR_DISK_FULL, GetLastError());
  EXPECT_FALSE(FileSystem::Exists(P("dst")));
  EXPECT_EQ(1, faults_.Injected(test::FaultEnv::kWrite));
}

TEST_F(FileSystemTest, InjectedMoveAndDeleteFailuresChangeNothing) {
  Put(P("a"), "A");
  faults_.Arm(test::FaultEnv::kMove, 0, 1);
  EXPECT_EQ(0, FileSystem::MoveFile(P("a"), P("b")));
  EXPECT_EQ(ERROR_ACCESS_DENIED, GetLastError());
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

  EXPECT_EQ(0, FileSystem::DeleteFile(root_.DataRoot()));
  EXPECT_EQ(ERROR_ACCESS_DENIED, GetLastError());
  EXPECT_TRUE(FileSystem::IsFolder(root_.DataRoot()));
  EXPECT_EQ(0, FileSystem::DeleteFile(P("none")));
  EXPECT_EQ(ERROR_FILE_NOT_FOUND, GetLastError());
}

TEST_F(FileSystemTest, FolderCreationAndRemovalReportLikeWin32) {
  EXPECT_EQ(0, FileSystem::CreateDirectory(P("x/y")));
  EXPECT_EQ(ERROR_PATH_NOT_FOUND, GetLastError());
  ASSERT_EQ(1, FileSystem::CreateDirectory(P("x")));
  EXPECT_EQ(0, FileSystem::CreateDirectory(P("x")));
  EXPECT_EQ(ERROR_ALREADY_EXISTS, GetLastError());
  Put(P("x/f"), "");
  EXPECT_EQ(0, FileSystem::RemoveDirectory(P("x")));
  EXPECT_EQ(ERROR_DIR_NOT_EMPTY, GetLastError());
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("xl"), P("x")));
  EXPECT_EQ(0, FileSystem::RemoveDirectory(P("xl")));
  EXPECT_EQ(ERROR_DIRECTORY, GetLastError());
  ASSERT_EQ(1, FileSystem::DeleteFile(P("x/f")));
  EXPECT_EQ(1, FileSystem::RemoveDirectory(P("x")));
  EXPECT_FALSE(FileSystem::Exists(P("x")));
}

TEST_F(FileSystemTest, CreateDirectoryTreeMakesMissingParents) {
  ASSERT_EQ(1, FileSystem::CreateDirectoryTree(P("a/b//c/")));
  EXPECT_TRUE(FileSystem::IsFolder(P("a/b/c")));
  EXPECT_EQ(1, FileSystem::CreateDirectoryTree(P("a/b/c")));  // already there
  Put(P("a/file"), "");
  EXPECT_EQ(0, FileSystem::CreateDirectoryTree(P("a/file/d")));
  EXPECT_EQ(0, FileSystem::CreateDirectoryTree(P("a/file")));
}

TEST_F(FileSystemTest, DeleteFolderTreeRemovesEverythingBelowButNeverFollowsLinks) {
  ASSERT_EQ(1, FileSystem::CreateDirectoryTree(P("outside/inner")));
  Put(P("outside/keep"), "K");
  Put(P("outside/inner/keep2"), "K2");
  ASSERT_EQ(1, FileSystem::CreateDirectoryTree(P("t/sub/b/c")));
  for (const char* name : {"t/f1", "t/sub/b/c/f3", "t/.hidden", "t/..x"}) Put(P(name), "x");
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("t/to_folder"), P("outside")));
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("t/sub/to_file"), P("outside/keep")));
  ASSERT_EQ(1, FileSystem::DeleteFolderTree(P("t")));
  EXPECT_FALSE(FileSystem::Exists(P("t")));
  EXPECT_TRUE(FileSystem::IsFolder(root_.DataRoot()));
  EXPECT_EQ("K", Contents(P("outside/keep")));
  EXPECT_EQ("K2", Contents(P("outside/inner/keep2")));

  // A link given as the tree itself is refused, and its target stays.
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("tl"), P("outside")));
  EXPECT_EQ(0, FileSystem::DeleteFolderTree(P("tl")));
  EXPECT_EQ(ERROR_DIRECTORY, GetLastError());
  EXPECT_TRUE(FileSystem::IsSymlink(P("tl")));
  EXPECT_EQ("K", Contents(P("outside/keep")));
  EXPECT_EQ(0, FileSystem::DeleteFolderTree(P("outside/keep")));
  EXPECT_EQ(0, FileSystem::DeleteFolderTree(P("none")));
  EXPECT_EQ(ERROR_PATH_NOT_FOUND, GetLastError());
}

TEST_F(FileSystemTest, QuestionsAboutNames) {
  EXPECT_TRUE(FileSystem::IsNameFree(P("n")));
  Put(P("file"), "12345");
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("link"), P("file")));
  ASSERT_EQ(1, FileSystem::CreateSymbolicLink(P("dangling"), P("nowhere")));
  // A name is free only if nothing has it and it could be made.
  for (const CString& taken : {P("file"), root_.DataRoot(), P("dangling"), CString(), P("file/x")})
    EXPECT_FALSE(FileSystem::IsNameFree(taken)) << taken.ToUtf8();
  EXPECT_TRUE(FileSystem::IsFile(P("file")));
  EXPECT_TRUE(FileSystem::IsFile(P("link")));
  EXPECT_FALSE(FileSystem::IsSymlink(P("file")));
  EXPECT_TRUE(FileSystem::IsSymlink(P("link")));
  EXPECT_TRUE(FileSystem::Exists(P("dangling")));
  EXPECT_FALSE(FileSystem::IsFile(P("dangling")));
  EXPECT_FALSE(FileSystem::IsFolder(P("file")));
  EXPECT_TRUE(FileSystem::IsFolder(root_.root()));
  EXPECT_EQ(5, FileSystem::GetFileSize(P("file")));
  EXPECT_EQ(5, FileSystem::GetFileSize(P("link")));
  EXPECT_EQ(-1, FileSystem::GetFileSize(P("none")));
  EXPECT_EQ(-1, FileSystem::GetFileSize(root_.root()));
}

TEST_F(FileSystemTest, WholeFileReadHonoursItsLimit) {
  Put(P("f"), std::string(1000, 'q'));
  std::string s = "junk";
  EXPECT_EQ(0, FileSystem::ReadWholeFile(P("f"), &s, 999));
  EXPECT_EQ(ERROR_NOT_ENOUGH_MEMORY, GetLastError());
  EXPECT_TRUE(s.empty());
  EXPECT_EQ(1, FileSystem::ReadWholeFile(P("f"), &s, 1000));
  EXPECT_EQ(1000u, s.size());
  EXPECT_EQ(0, FileSystem::ReadWholeFile(P("none"), &s));
}

TEST_F(FileSystemTest, TempFoldersAreFreshAndRefuseSlashes) {
  CString a, b;
  ASSERT_EQ(1, FileSystem::CreateTempFolder("kordll-fs-", &a));
  ASSERT_EQ(1, FileSystem::CreateTempFolder("kordll-fs-", &b));
  EXPECT_NE(a, b);
  EXPECT_TRUE(FileSystem::IsFolder(a));
  EXPECT_EQ(1, FileSystem::DeleteFolderTree(a));
  EXPECT_EQ(1, FileSystem::DeleteFolderTree(b));
  CString c;
  EXPECT_EQ(0, FileSystem::CreateTempFolder("../x", &c));
  EXPECT_TRUE(c.IsEmpty());
}

}  // namespace
}  // namespace kordll
