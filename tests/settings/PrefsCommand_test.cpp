// `kordll prefs`, run in-process on a temporary root: what a later run
// shows of what an earlier one set, the type rules of --set (a bad value
// writes nothing at all), values of the wrong type shown as defaults, and
// logins that cannot be one.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "kordll/platform/CWinApp.h"
#include "kordll/platform/Registry.h"
#include "tests/support/TempRoot.h"
#include "tools/ToolCommand.h"

namespace kordll {
namespace {

class PrefsCommandTest : public test::TempRootTest {
 protected:
  int Run(const std::vector<std::string>& args) {
    for (const auto& command : kordll_tool::Commands()) {
      if (command.name != "prefs") continue;
      std::ostringstream o, e;
      const int status = command.run(args, o, e);
      out_ = o.str();
      err_ = e.str();
      return status;
    }
    ADD_FAILURE() << "prefs command not registered";
    return -1;
  }
  bool Has(const std::string& line) const { return out_.find(line + "\n") != std::string::npos; }
  std::string out_, err_;
};

TEST_F(PrefsCommandTest, ASettingSetByOneRunIsShownByTheNext) {
  ASSERT_EQ(0, Run({"--set", "rankmode=2", "--set", "SkinName=Sea\tside", "--set",
                    "LastLoginDate=11/07/05@10:00", "ann"}))
      << err_;
  Registry::CloseCurrent();
  ASSERT_EQ(0, Run({"ann"})) << err_;
  EXPECT_EQ(0u, out_.find("# Software\\Tidrel\\Tidrel\\User-ann (relation 12)\n")) << out_;
  EXPECT_TRUE(Has("RankMode\tint\t2\tstored")) << out_;
  EXPECT_TRUE(Has("SkinName\tstring\tSea\\tside\tstored")) << out_;
  EXPECT_TRUE(Has("LastLoginDate\tdate\t11/07/05@10:00\tstored")) << out_;
}

TEST_F(PrefsCommandTest, ABadValueWritesNothing) {
  const std::vector<std::vector<std::string>> refused = {
      {"--set", "RankMode=2", "--set", "TotalLoginDate=12x", "ann"},
      {"--set", "RankMode=99999999999", "ann"},
      {"--set", "NoSuchKey=1", "ann"},
      {"../etc"},
  };
  for (const auto& args : refused) {
    EXPECT_EQ(2, Run(args)) << args.back();
    EXPECT_FALSE(err_.empty());
    EXPECT_EQ("", out_);
  }
  ASSERT_EQ(0, Run({"ann"}));
  EXPECT_TRUE(Has("RankMode\tint\t0\tdefault")) << out_;
}

}  // namespace
}  // namespace kordll
