// The `kordll date` command, run in-process with a fixed clock and zone.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "kordll/platform/Clock.h"
#include "kordll/platform/TimeZone.h"
#include "tools/ToolCommand.h"

namespace kordll {
namespace {

class DateCommandTest : public ::testing::Test {
 protected:
  DateCommandTest() : tz_("EST5EDT"), clock_(2010, 6, 15, 15, 5, 0) {}

  int Run(const std::vector<std::string>& args) {
    for (const auto& command : kordll_tool::Commands()) {
      if (command.name != "date") continue;
      std::ostringstream o, e;
      int status = command.run(args, o, e);
      out_ = o.str();
      err_ = e.str();
      return status;
    }
    ADD_FAILURE() << "date command not registered";
    return -1;
  }

  // The given lines the output lacks, one a line; empty when all are there.
  std::string Missing(std::initializer_list<std::string> lines) const {
    std::string missing;
    for (const std::string& line : lines) {
      if (out_.find(line + "\n") == std::string::npos) missing += line + "\n";
    }
    return missing.empty() ? missing : missing + "in:\n" + out_;
  }

  ScopedTimeZone tz_;
  ScopedManualClock clock_;
  std::string out_, err_;
};

// Zones the reader does not understand are told as such; a zero offset
// written behind GMT is understood. Unreadable texts fail; usage errors are 2.
TEST_F(DateCommandTest, ZonesTheReaderDoesNotUnderstandAndFailures) {
  ASSERT_EQ(0, Run({"2005-11-03T09:15:43.123+01:00", "07 Nov 2005 10:00 +0030",
                    "Mon, 07 Nov 2005 10:00:00 -0000", "2005-11-03T09:15:43-00:00"}));
  EXPECT_EQ("", Missing({"zone:   \".123+01:00\": not understood: no offset, taken as GMT",
                         "zone:   \"+0030\": 00:30, dropped since it has no whole hours: taken "
                         "as GMT",
                         "zone:   \"-0000\": GMT itself", "zone:   \"-00:00\": GMT itself"}));
  EXPECT_EQ(1, Run({"07 Nov 2005 10:00 GMT", "yesterday"}));
  EXPECT_EQ("", Missing({"read:   invalid", "shape:  none: no shape took this text"}));
  EXPECT_EQ(2, Run({}));
  EXPECT_NE(std::string::npos, err_.find("usage: kordll date [--local] TEXT..."));
  EXPECT_EQ(1, Run({"--", "--local"}));  // after "--" an option word is a text
}

}  // namespace
}  // namespace kordll
