// The `kordll filter` command, run in-process: what a filter text holds,
// the text it writes back, its sentences, and a run over a record file.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "kordll/record/AZeusDB.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/LibraryLifetime.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "tests/support/TempRoot.h"
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
  EXPECT_NE(out.find("\nnotification\tNotify me when word"), std::string::npos);
  EXPECT_EQ(RunFilterCommand({"(1)(x)"}, &out, &err), 1);
  EXPECT_EQ(RunFilterCommand({"(4)(:)(65519)()()()", "--check"}, &out, &err), 2);
}

TEST(FilterCommandTest, ChecksEveryRecordOfARecordFile) {
  test::TempRoot root;
  KordllProcessAttach();
  {
    GlobalRelationsCtrl catalogue;
    AZeusDB db(root.DataRoot(), CString(u"posts"), 0, 0);
    const char16_t* titles[] = {u"Kernel news", u"Gardening", u"More kernel work"};
    int serial = 0;
    for (const char16_t* title : titles) {
      Focusable post(4, &db);
      post.SetGUID(CString::Formatted(CString(u"R3_G%d"), ++serial));
      post.SetFocusableStatus(2);
      post.SetPostTitle(CString(title));
      ASSERT_EQ(post.SaveFocusable(), 1);
    }
  }
  const std::string path = root.DataRoot().ToUtf8() + "/posts.kdb";
  std::string out, err;
  ASSERT_EQ(RunFilterCommand({"(4)(:)(65519)(kernel:)(4:4:4:|)(1,)", "--check", path}, &out, &err),
            0)
      << err;
  EXPECT_NE(out.find("\t4\tR3_G1\tKernel news\n"), std::string::npos) << out;
  EXPECT_NE(out.find("\t4\tR3_G3\tMore kernel work\n"), std::string::npos);
  EXPECT_EQ(out.find("Gardening"), std::string::npos);
  EXPECT_NE(out.find("2 of 3 record(s) accepted\n"), std::string::npos);
}

}  // namespace
}  // namespace kordll
