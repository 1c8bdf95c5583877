// `kordll --help` and `kordll COMMAND --help`, run through the built tool:
// asking for help is no usage error, so the usage goes to standard output
// and the exit status is 0, for the tool and for every command it lists.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "kordll/platform/FileSystem.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

struct ToolRun {
  int status = -1;
  std::string out;
  std::string err;
};

ToolRun RunTool(const test::TempRoot& root, const std::string& args) {
  const std::string out = root.Path("out.txt").ToUtf8();
  const std::string err = root.Path("err.txt").ToUtf8();
  ToolRun run;
  const int rc = std::system(("'" + std::string(KORDLL_TOOL_PATH) + "' " + args + " > '" + out +
                              "' 2> '" + err + "' < /dev/null")
                                 .c_str());
  if (WIFEXITED(rc)) run.status = WEXITSTATUS(rc);
  FileSystem::ReadWholeFile(CString::FromUtf8(out), &run.out);
  FileSystem::ReadWholeFile(CString::FromUtf8(err), &run.err);
  return run;
}

TEST(HelpCommandTest, ToolAndEveryCommandPrintUsageOnStandardOutput) {
  test::TempRoot root;
  ASSERT_TRUE(root.ok());
  ToolRun help = RunTool(root, "--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_TRUE(help.err.empty()) << help.err;
  ASSERT_EQ(help.out.rfind("usage: kordll", 0), 0u) << help.out;

  // The commands are the first words of the lines after "Commands:".
  std::vector<std::string> names;
  std::istringstream lines(help.out.substr(help.out.find("Commands:\n") + 10));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string name;
    if (words >> name && name != "--help") names.push_back(name);
  }
  EXPECT_NE(std::find(names.begin(), names.end(), "kdb"), names.end());

  for (const std::string& name : names) {
    for (const std::string& ask : {name + " --help", name + " -h"}) {
      ToolRun run = RunTool(root, ask);
      EXPECT_EQ(run.status, 0) << ask;
      EXPECT_TRUE(run.err.empty()) << ask << ": " << run.err;
      EXPECT_EQ(run.out.rfind("usage: kordll " + name, 0), 0u) << ask << ": " << run.out;
    }
  }
}

}  // namespace
}  // namespace kordll
