#include "kordll/platform/WinFile.h"

#include <gtest/gtest.h>

#include <string>

#include "kordll/platform/FileSystem.h"
#include "tests/platform/LastError.h"
#include "tests/support/FaultEnv.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

class WinFileTest : public test::TempRootTest {
 protected:
  CString P(const char* name) { return root_.Path(name); }

  // Files of every test go through faults_, which fails nothing until armed.
  test::FaultEnv faults_{Env::Current()};
  ScopedEnv use_faults_{&faults_};

  std::string Contents(const CString& path) {
    std::string s;
    EXPECT_EQ(1, FileSystem::ReadWholeFile(path, &s));
    return s;
  }

  void Put(const CString& path, const std::string& bytes) {
    ASSERT_EQ(1, FileSystem::WriteWholeFile(path, bytes));
  }

  static int Write(WinFile& f, const std::string& bytes, uint32_t* written = nullptr) {
    return f.WriteFile(bytes.data(), static_cast<uint32_t>(bytes.size()), written);
  }

  static std::string Read(WinFile& f, uint32_t count) {
    std::string buf(count, '\0');
    uint32_t got = 0;
    EXPECT_EQ(1, f.ReadFile(buf.data(), count, &got));
    buf.resize(got);
    return buf;
  }

  // An answer of f with the last error it left, in f and in the thread.
  ::testing::AssertionResult Gives(int64_t want, int code, int64_t got) {
    if (f.GetLastError() != code)
      return ::testing::AssertionFailure() << "f's last error " << f.GetLastError();
    return test::Answers(want, code, got);
  }

  WinFile f;  // the file a test works on, closed before faults_ goes
};

// The answers of each way of opening (taken names, missing files and
// folders) are covered for the machine and for memory by the Env tests.
TEST_F(WinFileTest, EachWayOfOpeningKeepsOrEmptiesTheFile) {
  const struct {
    int disposition;
    int code;  // the last error after opening "hello"
    int64_t size;
  } rows[] = {{CREATE_ALWAYS, ERROR_ALREADY_EXISTS, 0},
              {TRUNCATE_EXISTING, ERROR_SUCCESS, 0},
              {OPEN_EXISTING, ERROR_SUCCESS, 5},
              {OPEN_ALWAYS, ERROR_ALREADY_EXISTS, 5}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.disposition);
    Put(P("a"), "hello");
    ASSERT_EQ(1, f.Open(P("a"), GENERIC_READ | GENERIC_WRITE, 0, row.disposition));
    EXPECT_EQ(row.code, f.GetLastError());
    EXPECT_EQ(row.size, f.GetFileSize());
    EXPECT_EQ(0, f.GetFilePointer());
    EXPECT_EQ(std::string("hello").substr(0, row.size), Read(f, 100));
    f.Close();
  }
  // A failed open leaves no file open (the answers themselves are the Env tests').
  ASSERT_EQ(1, f.Open(P("b"), GENERIC_READ | GENERIC_WRITE, 0, CREATE_NEW));
  EXPECT_EQ(0, f.Open(P("b"), GENERIC_WRITE, 0, CREATE_NEW));
  EXPECT_FALSE(f.IsOpen());
  // Emptying needs write access, and a file to empty.
  EXPECT_TRUE(
      Gives(0, ERROR_INVALID_PARAMETER, f.Open(P("a"), GENERIC_READ, 0, TRUNCATE_EXISTING)));
  EXPECT_EQ("hello", Contents(P("a")));
  EXPECT_TRUE(
      Gives(0, ERROR_FILE_NOT_FOUND, f.Open(P("none"), GENERIC_WRITE, 0, TRUNCATE_EXISTING)));
  EXPECT_FALSE(FileSystem::Exists(P("none")));
}

TEST_F(WinFileTest, RefusesNamesAndObjectsThatAreNotFiles) {
  // U+0000 would cut a name short on the way to the system; a lone surrogate
  // has no spelling on disk.
  CString with_nul = P("ab");
  with_nul.Insert(with_nul.GetLength() - 1, char16_t(0));
  const struct {
    CString name;
    uint32_t access;
    int disposition, code;
  } rows[] = {{root_.DataRoot(), GENERIC_READ, OPEN_EXISTING, ERROR_ACCESS_DENIED},
              {root_.DataRoot(), GENERIC_READ | GENERIC_WRITE, OPEN_ALWAYS, ERROR_ACCESS_DENIED},
              {"/dev/null", GENERIC_READ, OPEN_EXISTING, ERROR_ACCESS_DENIED},
              {CString(), GENERIC_READ, OPEN_ALWAYS, ERROR_INVALID_NAME},
              {with_nul, GENERIC_WRITE, CREATE_ALWAYS, ERROR_INVALID_NAME},
              {P("x") + char16_t(0xD800), GENERIC_WRITE, CREATE_ALWAYS, ERROR_INVALID_NAME},
              {P("a"), 0, OPEN_ALWAYS, ERROR_INVALID_PARAMETER},
              {P("a"), GENERIC_WRITE, 9, ERROR_INVALID_PARAMETER}};
  for (const auto& row : rows)
    EXPECT_TRUE(Gives(0, row.code, f.Open(row.name, row.access, 0, row.disposition)))
        << row.name.ToUtf8() << " " << row.disposition;
  EXPECT_FALSE(FileSystem::Exists(P("a")));
}

TEST_F(WinFileTest, ReadsAndWritesShareOnePosition) {
  ASSERT_EQ(1, f.Open(P("a"), GENERIC_READ | GENERIC_WRITE, 0, CREATE_NEW));
  ASSERT_EQ(1, Write(f, "abcdef"));
  EXPECT_EQ(6, f.GetFilePointer());
  f.SetFilePointer(0, FILE_BEGIN);
  EXPECT_EQ("ab", Read(f, 2));
  ASSERT_EQ(1, Write(f, "XY"));  // goes where the read stopped
  EXPECT_EQ(4, f.GetFilePointer());
  EXPECT_EQ("ef", Read(f, 5));
  EXPECT_EQ(3, f.SetFilePointer(-3, FILE_CURRENT));
  EXPECT_EQ(5, f.SetFilePointer(-1, FILE_END));
  // A read is short at the end and empty past it.
  EXPECT_EQ("f", Read(f, 10));
  EXPECT_EQ(100, f.SetFilePointer(100, FILE_BEGIN));
  EXPECT_EQ("", Read(f, 10));
  // A seek before the start or from no known origin is refused and keeps the position.
  EXPECT_TRUE(Gives(-1, ERROR_NEGATIVE_SEEK, f.SetFilePointer(-107, FILE_END)));
  EXPECT_TRUE(Gives(-1, ERROR_INVALID_PARAMETER, f.SetFilePointer(1, 7)));
  EXPECT_EQ(-1, f.SetFilePointer(INT64_MAX, FILE_END));
  EXPECT_EQ(100, f.GetFilePointer());
  f.Close();
  EXPECT_EQ("abXYef", Contents(P("a")));
}

TEST_F(WinFileTest, TransfersAtAnOffsetLeaveThePositionAlone) {
  ASSERT_EQ(1, f.Open(P("a"), GENERIC_READ | GENERIC_WRITE, 0, CREATE_NEW));
  ASSERT_EQ(1, Write(f, "abcdef"));
  f.SetFilePointer(1, FILE_BEGIN);
  uint32_t n = 0;
  ASSERT_EQ(1, f.WriteFileAt(8, "XY", 2, &n));
  EXPECT_EQ(2u, n);
  char buf[8] = {};
  ASSERT_EQ(1, f.ReadFileAt(4, buf, 8, &n));
  EXPECT_EQ(6u, n);
  EXPECT_EQ(std::string("ef\0\0XY", 6), std::string(buf, n));
  EXPECT_EQ(1, f.GetFilePointer());
  EXPECT_TRUE(Gives(0, ERROR_NEGATIVE_SEEK, f.ReadFileAt(-1, buf, 1, &n)));
  EXPECT_EQ("bcdef", Read(f, 5));
}

TEST_F(WinFileTest, PositionsAndSizesAreSixtyFourBit) {
  ASSERT_EQ(1, f.Open(P("big"), GENERIC_READ | GENERIC_WRITE, 0, CREATE_NEW));
  const int64_t far = (int64_t{5} << 30) + 7;  // beyond any 32-bit offset
  ASSERT_EQ(far, f.SetFilePointer(far, FILE_BEGIN));
  if (!Write(f, "x")) GTEST_SKIP() << "the file system keeps no sparse files this large";
  EXPECT_EQ(far + 1, f.GetFileSize());
  EXPECT_EQ(far + 1, FileSystem::GetFileSize(P("big")));
  EXPECT_EQ(far, f.SetFilePointer(-1, FILE_END));
  EXPECT_EQ("x", Read(f, 4));
}

TEST_F(WinFileTest, AccessIsEnforced) {
  Put(P("a"), "abc");
  WinFile r;
  ASSERT_EQ(1, r.Open(P("a"), GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING));
  uint32_t written = 99;
  EXPECT_EQ(0, Write(r, "zz", &written));
  EXPECT_TRUE(test::Answers(0u, ERROR_ACCESS_DENIED, written));
  EXPECT_EQ(0, r.SetEndOfFile());

  WinFile w;
  ASSERT_EQ(1, w.Open(P("a"), GENERIC_WRITE, FILE_SHARE_WRITE, OPEN_EXISTING));
  char c;
  uint32_t got = 99;
  EXPECT_EQ(0, w.ReadFile(&c, 1, &got));
  EXPECT_TRUE(test::Answers(0u, ERROR_ACCESS_DENIED, got));
  EXPECT_EQ("abc", Contents(P("a")));
}

TEST_F(WinFileTest, AClosedFileAnswersFailureNotACrash) {
  char c = 0;
  uint32_t n = 7;
  EXPECT_EQ(0, f.ReadFile(&c, 1, &n));
  EXPECT_TRUE(Gives(0u, ERROR_INVALID_HANDLE, n));
  EXPECT_EQ(0, f.WriteFile(&c, 1, nullptr) + f.SetEndOfFile() + f.FlushFileBuffers() + f.Close());
  EXPECT_EQ(-3, f.SetFilePointer(0, FILE_BEGIN) + f.GetFileSize() + f.GetFilePointer());

  ASSERT_EQ(1, f.Open(P("a"), GENERIC_READ | GENERIC_WRITE, 0, CREATE_NEW));
  EXPECT_TRUE(Gives(0, ERROR_INVALID_PARAMETER, f.ReadFile(nullptr, 4, &n)));  // no buffer
  EXPECT_EQ(1, f.Close());
  EXPECT_EQ(0, f.WriteFile(&c, 1, nullptr));
}

// --- injected faults --------------------------------------------------------

TEST_F(WinFileTest, InjectedFullDiskFailsTheNthWriteOnly) {
  ASSERT_EQ(1, f.Open(P("a"), GENERIC_READ | GENERIC_WRITE, 0, CREATE_NEW));
  faults_.Arm(test::FaultEnv::kWrite, 1, 1);
  uint32_t written = 99;
  EXPECT_EQ(1, Write(f, "one", &written));
  EXPECT_EQ(3u, written);
  EXPECT_EQ(0, Write(f, "two", &written));
  EXPECT_TRUE(Gives(0u, ERROR_DISK_FULL, written));
  EXPECT_EQ(3, f.GetFilePointer());
  EXPECT_EQ(1, Write(f, "six", &written));  // transient: the next one passes
  f.Close();
  EXPECT_EQ("onesix", Contents(P("a")));
}

TEST_F(WinFileTest, AFailedCloseIsAFailedWriteAndStillCloses) {
  ASSERT_EQ(1, f.Open(P("a"), GENERIC_WRITE, 0, CREATE_NEW));
  ASSERT_EQ(1, Write(f, "data"));
  faults_.Arm(test::FaultEnv::kClose, 0, 1);
  EXPECT_TRUE(Gives(0, ERROR_WRITE_FAULT, f.Close()));
  EXPECT_FALSE(f.IsOpen());
  EXPECT_TRUE(Gives(0, ERROR_INVALID_HANDLE, f.Close()));
  EXPECT_EQ("data", Contents(P("a")));
}

TEST_F(WinFileTest, InjectedShortWriteLeavesHalfAndAdvancesByIt) {
  ASSERT_EQ(1, f.Open(P("a"), GENERIC_READ | GENERIC_WRITE, 0, CREATE_NEW));
  faults_.Arm(test::FaultEnv::kShortWrite, 0, 1);
  uint32_t written = 0;
  EXPECT_EQ(0, Write(f, "abcdefgh", &written));
  EXPECT_TRUE(Gives(4u, ERROR_DISK_FULL, written));
  EXPECT_EQ(4, f.GetFilePointer());
  faults_.DisarmAll();
  f.Close();
  EXPECT_EQ("abcd", Contents(P("a")));
}

TEST_F(WinFileTest, InjectedReadAndOpenFailures) {
  Put(P("a"), "abc");
  faults_.Arm(test::FaultEnv::kOpen, 0, 1);
  EXPECT_TRUE(Gives(0, ERROR_ACCESS_DENIED, f.Open(P("new2"), GENERIC_WRITE, 0, CREATE_NEW)));
  EXPECT_FALSE(FileSystem::Exists(P("new2")));
  EXPECT_EQ(1, f.Open(P("new"), GENERIC_WRITE, 0, CREATE_NEW)) << "one failure only";
  ASSERT_EQ(1, f.Open(P("a"), GENERIC_READ, 0, OPEN_EXISTING));

  faults_.Arm(test::FaultEnv::kRead, 0, 1);
  char buf[4];
  uint32_t got = 9;
  EXPECT_EQ(0, f.ReadFile(buf, 3, &got));
  EXPECT_TRUE(Gives(0u, ERROR_READ_FAULT, got));
  EXPECT_EQ(0, f.GetFilePointer());
  EXPECT_EQ("abc", Read(f, 3));
}

TEST_F(WinFileTest, FlushFaultFailsFlushAndSetEndOfFile) {
  ASSERT_EQ(1, f.Open(P("a"), GENERIC_WRITE, 0, CREATE_NEW));
  ASSERT_EQ(1, Write(f, "abc"));
  faults_.Arm(test::FaultEnv::kFlush, 0, test::FaultEnv::kForever);
  EXPECT_TRUE(Gives(0, ERROR_WRITE_FAULT, f.FlushFileBuffers()));
  f.SetFilePointer(1, FILE_BEGIN);
  EXPECT_EQ(0, f.SetEndOfFile());
  EXPECT_EQ(3, f.GetFileSize());
}

}  // namespace
}  // namespace kordll
