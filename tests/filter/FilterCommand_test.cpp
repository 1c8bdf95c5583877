// The `kordll filter` command, run in-process: what a filter text holds,
// the text it writes back, its sentences.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "kordll/record/LibraryLifetime.h"
#include "tools/ToolCommand.h"

namespace kordll {
namespace {

int RunFilterCommand(const std::vector<std::string>& args, std::string* out, std::string* err) {
  for (const auto& command : kordll_tool::Commands()) {
    if (command.name == "filter") {
      std::ostringstream o, e;
      const int status = command.run(args, o, e);
      *out = o.str();
      *err = e.str();
      return status;
    }
  }
  ADD_FAILURE() << "filter command not registered";
  return -1;
}

// The output's shape: one line per relation and field, the text written
// back and the sentences (their wording is the filter's own, tested there).
TEST(FilterCommandTest, PrintsWhatTheFilterHoldsAndRefusesMalformedTextAndBadUsage) {
  KordllProcessAttach();
  std::string out, err;
  ASSERT_EQ(RunFilterCommand({"[4][:][65519][4][4:4:news|][]"}, &out, &err), 0) << err;
  EXPECT_NE(out.find("relation\t11\tfield\t4\tstring\tnews\n"), std::string::npos) << out;
  EXPECT_NE(out.find("text\t(4)(:)(65519)(news:)(4:4:4:|11:4:4:|)()\n"), std::string::npos);
  EXPECT_NE(out.find("\nsentence\tAccept retrieved post only when word"), std::string::npos);
  EXPECT_EQ(RunFilterCommand({"(1)(x)"}, &out, &err), 1);
  EXPECT_EQ(RunFilterCommand({"(4)(:)(65519)()()()", "--check"}, &out, &err), 2);
}

}  // namespace
}  // namespace kordll
