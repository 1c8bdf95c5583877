#include "kordll/platform/Env.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "kordll/platform/CWinThread.h"
#include "kordll/platform/Clock.h"
#include "kordll/platform/FileFind.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/MessageQueue.h"
#include "kordll/platform/WinFile.h"
#include "tests/platform/LastError.h"
#include "tests/support/FaultEnv.h"
#include "tests/support/MemEnv.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

// The same file behaviour on the machine and in memory: the stores' fault
// tests run on MemEnv and must see what the disk would show them.
class EnvFilesTest : public ::testing::TestWithParam<bool> {
 protected:
  EnvFilesTest() : use_(GetParam() ? static_cast<Env*>(&mem_) : Env::Default()) {
    if (GetParam()) {
      EXPECT_EQ(1, FileSystem::CreateTempFolder("kordll-env-", &dir_));
    } else {
      dir_ = root_.Path("data");
    }
  }
  CString P(const char* name) { return Locations::Join(dir_, name); }
  std::string Contents(const char* name) {
    std::string s;
    EXPECT_EQ(1, FileSystem::ReadWholeFile(P(name), &s)) << name;
    return s;
  }

  test::TempRoot root_;
  test::MemEnv mem_;
  ScopedEnv use_;
  CString dir_;
};

TEST_P(EnvFilesTest, OpeningAnswersAsWin32) {
  WinFile f;
  ASSERT_EQ(1, f.Open(P("a"), GENERIC_READ | GENERIC_WRITE, 0, CREATE_NEW));
  EXPECT_TRUE(test::Answers(0, ERROR_FILE_EXISTS, f.Open(P("a"), GENERIC_WRITE, 0, CREATE_NEW)));
  EXPECT_TRUE(
      test::Answers(0, ERROR_FILE_NOT_FOUND, f.Open(P("b"), GENERIC_READ, 0, OPEN_EXISTING)));
  EXPECT_TRUE(
      test::Answers(0, ERROR_PATH_NOT_FOUND, f.Open(P("no/b"), GENERIC_READ, 0, OPEN_ALWAYS)));
  EXPECT_TRUE(test::Answers(0, ERROR_ACCESS_DENIED, f.Open(dir_, GENERIC_READ, 0, OPEN_EXISTING)));
  ASSERT_EQ(1, f.Open(P("a"), GENERIC_READ | GENERIC_WRITE, 0, OPEN_ALWAYS));
  EXPECT_EQ(ERROR_ALREADY_EXISTS, f.GetLastError());
  // A write past the end leaves a gap of zero bytes; SetEndOfFile cuts.
  uint32_t n = 0;
  ASSERT_EQ(1, f.WriteFileAt(3, "xy", 2, &n));
  EXPECT_EQ(5, f.GetFileSize());
  f.SetFilePointer(4, FILE_BEGIN);
  ASSERT_EQ(1, f.SetEndOfFile());
  f.Close();
  EXPECT_EQ(std::string("\0\0\0x", 4), Contents("a"));
  // CREATE_ALWAYS empties; a file deleted while open stays readable.
  ASSERT_EQ(1, f.Open(P("a"), GENERIC_READ | GENERIC_WRITE, 0, CREATE_ALWAYS));
  ASSERT_EQ(1, f.WriteFile("kept", 4, &n));
  ASSERT_EQ(1, FileSystem::DeleteFile(P("a")));
  char buf[8];
  ASSERT_EQ(1, f.ReadFileAt(0, buf, 8, &n));
  EXPECT_EQ("kept", std::string(buf, n));
}

TEST_P(EnvFilesTest, FoldersAndNamesAnswerAsWin32) {
  ASSERT_EQ(1, FileSystem::CreateDirectoryTree(P("x/y")));
  ASSERT_EQ(1, FileSystem::WriteWholeFile(P("x/y/f"), "f"));
  ASSERT_EQ(1, FileSystem::WriteWholeFile(P("x.txt"), "t"));  // sorts among x's children
  EXPECT_TRUE(test::Answers(0, ERROR_ALREADY_EXISTS, FileSystem::CreateDirectory(P("x"))));
  EXPECT_TRUE(test::Answers(0, ERROR_PATH_NOT_FOUND, FileSystem::CreateDirectory(P("q/r"))));
  EXPECT_TRUE(test::Answers(0, ERROR_DIR_NOT_EMPTY, FileSystem::RemoveDirectory(P("x"))));
  EXPECT_TRUE(test::Answers(0, ERROR_ACCESS_DENIED, FileSystem::DeleteFile(P("x"))));
  EXPECT_FALSE(FileSystem::IsNameFree(P("x.txt/sub")));  // a file on the way
  EXPECT_TRUE(FileSystem::IsNameFree(P("q/r")));
  EXPECT_EQ(1, FileSystem::GetFileSize(P("x.txt")));
  // Moves refuse a taken name and carry a folder's contents along.
  EXPECT_TRUE(test::Answers(0, ERROR_ALREADY_EXISTS, FileSystem::MoveFile(P("x.txt"), P("x"))));
  ASSERT_EQ(1, FileSystem::MoveFile(P("x"), P("z")));
  EXPECT_EQ("f", Contents("z/y/f"));
  EXPECT_TRUE(FileSystem::IsFile(P("x.txt")));
  std::vector<FindEntry> found;
  ASSERT_EQ(1, FileFind::List(dir_, "*", &found));
  ASSERT_EQ(2u, found.size());
  EXPECT_EQ(CString("x.txt"), found[0].name);
  EXPECT_TRUE(found[1].is_folder);
  // Copies refuse a taken name when told to, and a copy onto itself.
  EXPECT_TRUE(test::Answers(0, ERROR_FILE_EXISTS, FileSystem::CopyFile(P("x.txt"), P("z/y/f"), 1)));
  EXPECT_TRUE(
      test::Answers(0, ERROR_SHARING_VIOLATION, FileSystem::CopyFile(P("x.txt"), P("x.txt"), 0)));
  ASSERT_EQ(1, FileSystem::CopyFile(P("x.txt"), P("z/y/f"), 0));
  EXPECT_EQ("t", Contents("z/y/f"));
  EXPECT_TRUE(test::Answers(0, ERROR_DIRECTORY, FileSystem::DeleteFolderTree(P("x.txt"))));
  ASSERT_EQ(1, FileSystem::DeleteFolderTree(P("z")));
  EXPECT_FALSE(FileSystem::Exists(P("z")));
}

INSTANTIATE_TEST_SUITE_P(MachineAndMemory, EnvFilesTest, ::testing::Bool());

// A thread waiting for a point in clock time wakes when a test moves the
// clock there, not when the machine's time gets there; the waits of the
// message queue and of a thread's end are measured on the same clock.
TEST(EnvClockTest, MovingAManualClockEndsTimedMessageAndThreadWaits) {
  ScopedManualClock clock;
  std::mutex mu;
  std::condition_variable cv;
  std::atomic<bool> woke{false};
  const int64_t deadline = Clock::MonotonicMillis() + 60000;
  std::thread waiter([&] {
    std::unique_lock<std::mutex> lock(mu);
    while (!Clock::WaitUntil(cv, lock, deadline)) {
    }
    woke = true;
  });
  Clock::SleepMillis(59999);
  EXPECT_FALSE(woke);
  clock.Advance(1);
  waiter.join();
  EXPECT_TRUE(woke);

  std::atomic<int> waited{-1};
  std::thread queue_waiter([&] { waited = MessageQueue::Current(true)->Wait(60000); });
  while (waited == -1) clock.Advance(1000);
  queue_waiter.join();
  EXPECT_EQ(0, waited);

  CWinThread* thread = new CWinThread();  // runs its loop until told
  thread->m_bAutoDelete = 0;
  ASSERT_EQ(thread, AfxBeginThread(thread));
  std::atomic<int> ended{-1};
  std::thread watcher([&] { ended = thread->WaitForExit(60000); });
  while (ended == -1) clock.Advance(1000);
  watcher.join();
  EXPECT_EQ(0, ended);
  thread->PostThreadMessage(18, 0, 0);
  EXPECT_EQ(1, thread->WaitForExit());
  delete thread;
}

}  // namespace
}  // namespace kordll
