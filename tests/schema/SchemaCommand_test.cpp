// The `kordll schema` command, run in-process: one line of nine
// tab-separated columns per field, relations in the loader's order.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "kordll/schema/GlobalRelationsCtrl.h"
// The command and its registry are compiled into this test so that it can
// run the command the way the tool does.
#include "tools/SchemaCommand.cpp"
#include "tools/ToolCommand.cpp"

namespace kordll {
namespace {

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t end; (end = text.find(separator, start)) != std::string::npos; start = end + 1) {
    parts.push_back(text.substr(start, end - start));
  }
  parts.push_back(text.substr(start));
  return parts;
}

int RunSchemaCommand(const std::vector<std::string>& args, std::string* out, std::string* err) {
  for (const auto& command : kordll_tool::Commands()) {
    if (command.name == "schema") {
      std::ostringstream o, e;
      const int status = command.run(args, o, e);
      *out = o.str();
      *err = e.str();
      return status;
    }
  }
  ADD_FAILURE() << "schema command not registered";
  return -1;
}

TEST(SchemaCommandTest, PrintsEveryFieldInLoaderOrder) {
  std::string out, err;
  ASSERT_EQ(RunSchemaCommand({}, &out, &err), 0);
  EXPECT_TRUE(err.empty());
  ASSERT_FALSE(out.empty());
  ASSERT_EQ(out.back(), '\n');
  std::vector<std::string> lines = Split(out.substr(0, out.size() - 1), '\n');
  // The defined fields of the 31 relations of the tables.
  EXPECT_EQ(lines.size(), 573u);

  std::vector<int> order;
  for (const std::string& line : lines) {
    const std::vector<std::string> columns = Split(line, '\t');
    ASSERT_EQ(columns.size(), 9u) << line;
    const int relation = std::stoi(columns[0]);
    if (order.empty() || order.back() != relation) order.push_back(relation);
  }
  EXPECT_EQ(order, GlobalRelationsCtrl::GetDefaultRelationOrder());
  EXPECT_EQ(order.size(), 31u);

  EXPECT_EQ(lines.front(), "1\t\t0\tstring\t20\t0\t0\t\t");
  EXPECT_EQ(lines.back(), "24\ttip\t6\tstring\t10\t0\t0\t\tpointedhelpguid");
  auto has = [&](const std::string& line) {
    for (const std::string& l : lines) {
      if (l == line) return true;
    }
    return false;
  };
  EXPECT_TRUE(
      has("12\t\t93\tstring\t50\t0\t0\t.exe;.zip;.rar;.mp3;.mpg;.mov;.avi;.mpeg;.wmv\t"
          "AutoDownloadFileExts"));
  EXPECT_TRUE(has("31\tpreferences\t514\tdouble\t10\t0\t0\t33.000000\tHistoryHeightRatio"));
  EXPECT_TRUE(has("28\t\t239\tdate\t30\t0\t0\t\tLastCorvaneSearch"));
  EXPECT_TRUE(has("3\tchannel\t23\tstring\t10\t0\t0\t|\t"));
  EXPECT_TRUE(has("4\tpost\t7\tstring\t500\t1\t1\t\tdesc"));
  EXPECT_TRUE(has("11\tpost\t19\tstring\t10\t0\t0\t\ttags"));
  EXPECT_TRUE(has("8\t\t3\tint\t0\t0\t0\t0\t"));
  EXPECT_TRUE(has("12\t\t6\tbool\t1\t0\t0\t0\tAutoLogin"));
}

TEST(SchemaCommandTest, RefusesArguments) {
  std::string out, err;
  EXPECT_EQ(RunSchemaCommand({"extra"}, &out, &err), 2);
  EXPECT_TRUE(out.empty());
  EXPECT_NE(err.find("usage"), std::string::npos);
}

TEST(SchemaCommandTest, ListsTheSameCatalogueWhileTheProcessHasOne) {
  GlobalRelationsCtrl process;
  std::string out, err;
  ASSERT_EQ(RunSchemaCommand({}, &out, &err), 0);
  EXPECT_EQ(Split(out, '\n').size(), 574u);
  // The command's private catalogue leaves the process's one in place.
  EXPECT_EQ(GlobalRelationsCtrl::GetGlobalRelationsCtrl(), &process);
}

}  // namespace
}  // namespace kordll
