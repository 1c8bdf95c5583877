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
      if (command.name == "date") {
        std::ostringstream o, e;
        int status = command.run(args, o, e);
        out_ = o.str();
        err_ = e.str();
        return status;
      }
    }
    ADD_FAILURE() << "date command not registered";
    return -1;
  }

  bool Has(const std::string& line) const { return out_.find(line + "\n") != std::string::npos; }

  ScopedTimeZone tz_;
  ScopedManualClock clock_;
  std::string out_, err_;
};

TEST_F(DateCommandTest, TellsDateShapeZoneAndWords) {
  ASSERT_EQ(0, Run({"Mon, 07 Nov 2005 10:00:00 EST"}));
  EXPECT_TRUE(err_.empty());
  EXPECT_TRUE(Has("read:   2005-11-07 10:00:00 (Monday)")) << out_;
  EXPECT_TRUE(
      Has("shape:  form 1 \"%s %d %s %d %d:%d:%d %s\" (weekday, day, month, year, h:m:s, "
          "zone)"))
      << out_;
  EXPECT_TRUE(Has("zone:   \"EST\": 05:00 behind GMT (added to reach GMT)")) << out_;
  EXPECT_TRUE(Has("stored: 11/07/05@10:00")) << out_;
  EXPECT_TRUE(Has("full:   Monday, November 07, 2005 @ 10:00")) << out_;
  EXPECT_TRUE(Has("shown:  on Mon, November 07, 2005 @ 10:00 am")) << out_;
  EXPECT_TRUE(Has("age:    5 Years 1 Month Ago")) << out_;
}

TEST_F(DateCommandTest, LocalMovesByTheZoneAndTheBias) {
  ASSERT_EQ(0, Run({"--local", "2005-11-03T09:15:43+01:00"}));
  // 09:15:43 at +01:00 is 08:15:43 GMT, 03:15:43 in New York standard time.
  EXPECT_NE(std::string::npos, out_.find("read:   2005-11-03 03:15:43 (Thursday)  local time"))
      << out_;
  EXPECT_TRUE(Has("zone:   \"+01:00\": 01:00 ahead of GMT (subtracted to reach GMT)")) << out_;
}

TEST_F(DateCommandTest, ZonesTheReaderDoesNotUnderstand) {
  ASSERT_EQ(0, Run({"2005-11-03T09:15:43.123+01:00", "07 Nov 2005 10:00 +0030",
                    "2005-11-03T09:15:43Z", "11/03/15@10:00"}));
  EXPECT_TRUE(Has("zone:   \".123+01:00\": not understood: no offset, taken as GMT")) << out_;
  EXPECT_TRUE(Has("zone:   \"+0030\": 00:30, dropped since it has no whole hours: taken as GMT"))
      << out_;
  EXPECT_TRUE(Has("zone:   \"Z\": GMT itself")) << out_;
  EXPECT_TRUE(Has("zone:   none in this shape: taken as GMT")) << out_;
  EXPECT_TRUE(Has("read:   1915-11-03 10:00:00 (Wednesday)")) << out_;
  // A zero offset written behind GMT is understood too.
  ASSERT_EQ(0, Run({"Mon, 07 Nov 2005 10:00:00 -0000", "2005-11-03T09:15:43-00:00",
                    "Mon, 07 Nov 2005 10:00:00 UTC"}));
  EXPECT_TRUE(Has("zone:   \"-0000\": GMT itself")) << out_;
  EXPECT_TRUE(Has("zone:   \"-00:00\": GMT itself")) << out_;
  EXPECT_TRUE(Has("zone:   \"UTC\": not understood: no offset, taken as GMT")) << out_;
}

TEST_F(DateCommandTest, UnreadableTextsFail) {
  EXPECT_EQ(1, Run({"07 Nov 2005 10:00 GMT", "yesterday"}));
  EXPECT_TRUE(Has("shape:  form 10 \"%d %s %d %d:%d %s\" (day, month, year, h:m, zone)")) << out_;
  EXPECT_TRUE(Has("read:   invalid")) << out_;
  EXPECT_TRUE(Has("shape:  none: no shape took this text")) << out_;
  EXPECT_EQ(1, Run({"Mon, 31 Feb 2005 10:00:00 GMT"}));
  EXPECT_NE(std::string::npos, out_.find("not in the calendar")) << out_;
}

TEST_F(DateCommandTest, UsageErrors) {
  EXPECT_EQ(2, Run({}));
  EXPECT_NE(std::string::npos, err_.find("usage: kordll date [--local] TEXT..."));
  EXPECT_EQ(2, Run({"--local"}));
  // After "--" an option word is a text.
  EXPECT_EQ(1, Run({"--", "--local"}));
  EXPECT_TRUE(Has("text:   --local")) << out_;
}

}  // namespace
}  // namespace kordll
