// The `kordll demo` walk, run in-process on a temporary root with a fixed
// clock and zone: what it prints, that a second run on the same data goes
// as well as the first, and that a broken data root makes it fail without
// crashing.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "kordll/platform/CString.h"
#include "kordll/platform/Clock.h"
#include "kordll/platform/FileFind.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/TimeZone.h"
#include "tests/support/TempRoot.h"
#include "tools/ToolCommand.h"

namespace kordll {
namespace {

class DemoCommandTest : public ::testing::Test {
 protected:
  DemoCommandTest() : tz_("UTC"), clock_(2010, 6, 15, 15, 5, 0) {}

  int Run(const std::vector<std::string>& args = {}) {
    for (const auto& command : kordll_tool::Commands()) {
      if (command.name == "demo") {
        std::ostringstream o, e;
        int status = command.run(args, o, e);
        out_ = o.str();
        err_ = e.str();
        return status;
      }
    }
    ADD_FAILURE() << "demo command not registered";
    return -1;
  }

  bool Has(const std::string& text) const { return out_.find(text) != std::string::npos; }

  ScopedTimeZone tz_;
  ScopedManualClock clock_;
  test::TempRoot root_;
  std::string out_, err_;
};

TEST_F(DemoCommandTest, EveryStepPrintsWhatCameOutAndASecondRunGoesAlike) {
  EXPECT_EQ(2, Run({"--fast"}));  // arguments are a usage error
  EXPECT_EQ("usage: kordll demo\n", err_);
  ASSERT_EQ(0, Run()) << err_ << out_;
  EXPECT_EQ("", err_);
  // One line of each step's outcome: dates, HTML, the record saved and read
  // back, the profile, the registry, the autostart entry, the scheduler, talks.
  for (const char* line :
       {"shape 3, zone \"-05:00\"; local 2005-11-03 14:15:43",
        "read back: R3_G1, status 6, \"A record store of its own & no server\"",
        "records in demo.kdb: 0 (as before the step)", "Software\\Tidrel\\Demo\\Walk\\Runs = 1",
        "after the restart: RankMode 2, UserLogin \"demo\", a flagged post gets rank 2048",
        "while closing, a sent change is dropped: yes",
        "a maintenance call (kind 1) arrived through the scheduler, on its thread: yes",
        "logged off again, every controller closed: yes", "command 29752 handled: yes"}) {
    EXPECT_TRUE(Has(line)) << line << "\n" << out_;
  }
  EXPECT_TRUE(Has("saved in " + root_.DataRoot().ToUtf8() + "/demo.kdb at slot 0")) << out_;
  EXPECT_TRUE(Has("All steps done.")) << out_;

  // A second run on the same root goes alike.
  const std::string first = out_;
  const int64_t size = FileSystem::GetFileSize(root_.Path("data/demo.kdb"));
  ASSERT_EQ(0, Run()) << err_;
  // Only the run counter differs; the freed slot is taken again.
  ASSERT_TRUE(Has("Software\\Tidrel\\Demo\\Walk\\Runs = 2")) << out_;
  std::string again = out_;
  again.replace(again.find("Runs = 2"), 8, "Runs = 1");
  EXPECT_EQ(first, again);
  EXPECT_EQ(size, FileSystem::GetFileSize(root_.Path("data/demo.kdb")));
  // Nothing is written beside the data root and the profile: every name the walk left directly in
  // the root, and in the two folders that must stay empty.
  auto list = [](const CString& folder) {
    std::vector<std::string> names;
    FileFind finder;
    int more = finder.FindFile(folder, CString("*"));
    while (more != 0) {
      more = finder.FindNextFile();
      names.push_back(finder.GetFileName().ToUtf8());
    }
    return names;
  };
  EXPECT_EQ((std::vector<std::string>{"config", "data", "downloads", "home"}), list(root_.root()));
  EXPECT_EQ((std::vector<std::string>{"demo.kdb"}), list(root_.DataRoot()));
  EXPECT_TRUE(list(root_.DownloadFolder()).empty());
  EXPECT_TRUE(list(root_.Path("home")).empty());
}

TEST_F(DemoCommandTest, ADataRootThatIsAFileFailsTheRecordSteps) {
  ASSERT_EQ(1, FileSystem::RemoveDirectory(root_.DataRoot()));
  ASSERT_EQ(1, FileSystem::WriteWholeFile(root_.DataRoot(), "not a folder"));
  EXPECT_EQ(1, Run());
  EXPECT_NE(std::string::npos, err_.find("cannot make the data root")) << err_;
  EXPECT_TRUE(Has("Some steps failed.")) << out_;
  // The steps that need no data root still ran.
  EXPECT_TRUE(Has("Runs = 1")) << out_;
}

TEST_F(DemoCommandTest, AForeignFileInPlaceOfTheDatabaseFailsWithoutHarm) {
  ASSERT_EQ(1, FileSystem::CreateDirectoryTree(root_.DataRoot()));
  const std::string junk(3000, 'x');
  ASSERT_EQ(1, FileSystem::WriteWholeFile(root_.Path("data/demo.kdb"), junk));
  EXPECT_EQ(1, Run());
  EXPECT_NE(std::string::npos, err_.find("step 6: " + root_.DataRoot().ToUtf8() +
                                         "/demo.kdb is not a record database (error 13)"))
      << err_;
  EXPECT_TRUE(Has("Some steps failed.")) << out_;
  // The foreign file is left as it was.
  std::string bytes;
  ASSERT_EQ(1, FileSystem::ReadWholeFile(root_.Path("data/demo.kdb"), &bytes));
  EXPECT_EQ(junk, bytes);
}

}  // namespace
}  // namespace kordll
