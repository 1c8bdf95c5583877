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
#include "kordll/platform/Locations.h"
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

TEST_F(DemoCommandTest, EveryStepPrintsWhatCameOut) {
  ASSERT_EQ(0, Run()) << err_ << out_;
  EXPECT_EQ("", err_);
  // Dates, read from feed shapes and told in words.
  EXPECT_TRUE(Has("shape 1, zone \"GMT\"; local 2005-11-07 10:00:00")) << out_;
  EXPECT_TRUE(Has("shape 3, zone \"-05:00\"; local 2005-11-03 14:15:43")) << out_;
  EXPECT_TRUE(Has("shown \"on Mon, November 07, 2005 @ 10:00 am\"")) << out_;
  EXPECT_TRUE(Has("\"next Tuesday-ish\" -> not a date")) << out_;
  // HTML.
  EXPECT_TRUE(Has("decoded: <p>Fish & chips")) << out_;
  EXPECT_TRUE(Has("decoded: search?q=feed reader!")) << out_;
  // The record: saved in the data root, read back, filtered, printed.
  EXPECT_TRUE(Has("relation 4 is \"post\" with 17 fields")) << out_;
  EXPECT_TRUE(Has("saved in " + root_.DataRoot().ToUtf8() + "/demo.kdb at slot 0")) << out_;
  EXPECT_TRUE(Has("read back: R3_G1, status 6, \"A record store of its own & no server\"")) << out_;
  EXPECT_TRUE(Has("the post passes")) << out_;
  EXPECT_TRUE(Has("the post does not match")) << out_;
  EXPECT_TRUE(Has("<guid>3:R3_G1</guid>")) << out_;
  EXPECT_TRUE(Has("<size>3.0 MBs</size>")) << out_;
  EXPECT_TRUE(Has("<title>A record store of its own &amp; no server</title>")) << out_;
  EXPECT_TRUE(Has("records in demo.kdb: 0 (as before the step)")) << out_;
  // The profile.
  EXPECT_TRUE(Has("Software\\Tidrel\\Demo\\Walk\\Runs = 1")) << out_;
  // A user's settings, read again after a restart.
  EXPECT_TRUE(
      Has("after the restart: RankMode 2, UserLogin \"demo\", a flagged post gets rank 2048"))
      << out_;
  // The registry: a panel hears "loaded" and a change; closing drops the next.
  EXPECT_TRUE(Has("panel 15 heard 1025 (loaded: records may be read), kind 0 from controller 7"))
      << out_;
  EXPECT_TRUE(Has("kind 3 from controller 7, record R7_G1 \"A registry of its own, retitled\""))
      << out_;
  EXPECT_TRUE(Has("while closing, a sent change is dropped: yes")) << out_;
  EXPECT_TRUE(Has("every controller closed: yes")) << out_;
  // Paths taken apart, and this program registered to start at log-in and removed.
  EXPECT_TRUE(Has("from Marsek's folder: ..\\Tidrel\\tidrel.exe")) << out_;
  EXPECT_TRUE(Has("in the autostart folder, both with /background: yes")) << out_;
  EXPECT_TRUE(Has("removed, value and entry both gone: yes")) << out_;
  // The user platform: one maintenance call through the scheduler; without
  // the plug-in's folder named, no plug-in to load.
  EXPECT_TRUE(
      Has("a maintenance call (kind 1) arrived through the scheduler, on its thread: yes; "
          "taken out again: yes"))
      << out_;
  EXPECT_TRUE(Has("the sample plug-in passed over")) << out_;
  EXPECT_TRUE(Has("logged off again, every controller closed: yes")) << out_;
  // Talks: a download's talk opened through the headless host, one removed by command.
  EXPECT_TRUE(Has("listed: \"Downloaded : episode-12.mp3\"")) << out_;
  EXPECT_TRUE(Has("command 29752 handled: yes")) << out_;
  EXPECT_TRUE(Has("All steps done.")) << out_;
  EXPECT_TRUE(FileSystem::IsFile(root_.Path("data/demo.kdb")));
  EXPECT_TRUE(FileSystem::IsFile(root_.Path("config/registry.sqlite3")));
}

TEST_F(DemoCommandTest, ASecondRunOnTheSameRootGoesAlike) {
  ASSERT_EQ(0, Run()) << err_;
  const std::string first = out_;
  const int64_t size = FileSystem::GetFileSize(root_.Path("data/demo.kdb"));
  ASSERT_EQ(0, Run()) << err_;
  EXPECT_EQ("", err_);
  // Only the run counter differs; the freed slot is taken again.
  EXPECT_TRUE(Has("Software\\Tidrel\\Demo\\Walk\\Runs = 2")) << out_;
  EXPECT_TRUE(Has("at slot 0")) << out_;
  std::string again = out_;
  again.replace(again.find("Runs = 2"), 8, "Runs = 1");
  EXPECT_EQ(first, again);
  EXPECT_EQ(size, FileSystem::GetFileSize(root_.Path("data/demo.kdb")));
}

TEST_F(DemoCommandTest, WritesNothingBesideTheDataRootAndTheProfile) {
  ASSERT_EQ(0, Run()) << err_;
  // Every name the walk left directly in the root, and in the two folders
  // that must stay empty.
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

// With the folder of the built sample plug-in named, the plug-in's
// LoadResources makes the posts controller at log-in; the user's folder made
// there goes again.
TEST_F(DemoCommandTest, TheNamedPluginFolderGivesThePluginsController) {
  const CString folder = Locations::Join(Locations::GetParent(CString(KORDLL_TOOL_PATH)),
                                         CString("examples/SampleReader"));
  if (!FileSystem::IsFile(Locations::Join(folder, CString("SamplePlugin.DLL")))) {
    GTEST_SKIP() << "the sample plug-in is not built";
  }
  Locations::SetVariableForTesting("KORDLL_DEMO_PLUGINS", folder);
  const int status = Run();
  Locations::SetVariableForTesting("KORDLL_DEMO_PLUGINS", std::nullopt);
  ASSERT_EQ(0, status) << err_ << out_;
  EXPECT_TRUE(Has("the sample plug-in's controller created (controller 3): yes")) << out_;
  EXPECT_TRUE(Has("logged off again, every controller closed: yes")) << out_;
  EXPECT_FALSE(FileSystem::Exists(Locations::Join(folder, CString("walker"))));
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

TEST_F(DemoCommandTest, ArgumentsAreAUsageError) {
  EXPECT_EQ(2, Run({"--fast"}));
  EXPECT_EQ("usage: kordll demo\n", err_);
  EXPECT_EQ("", out_);
}

}  // namespace
}  // namespace kordll
