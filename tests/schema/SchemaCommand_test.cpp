// The `kordll schema` command, run in-process: one line of nine
// tab-separated columns per field, relations in the loader's order.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "kordll/platform/FileSystem.h"
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

// The folder of this test's data files, found from the test's own source.
std::string DataFolder() {
  std::string folder = __FILE__;
  folder.erase(folder.find_last_of('/') + 1);
  return folder + "data/";
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

// The listing of the default catalogue is the tables of the record schema,
// transcribed apart from the loader in data/default_relations.tsv (one line per
// field: relation id, catalogue name, field id, type, size, indexable,
// CDATA, default, key; relations in the loader's order, fields by id).
// Every cell is compared, so a slip in any id, type, size, flag, default,
// key, name or in the loader's order fails here.
TEST(SchemaCommandTest, ListingIsTheSchemaTablesCellByCell) {
  std::string expected;
  ASSERT_EQ(FileSystem::ReadWholeFile(CString((DataFolder() + "default_relations.tsv").c_str()),
                                      &expected),
            1);
  ASSERT_FALSE(expected.empty());
  std::string out, err;
  ASSERT_EQ(RunSchemaCommand({}, &out, &err), 0);
  EXPECT_TRUE(err.empty());

  const std::vector<std::string> want = Split(expected, '\n');
  const std::vector<std::string> got = Split(out, '\n');
  EXPECT_EQ(got.size(), want.size());
  for (size_t i = 0; i < want.size() && i < got.size(); ++i) {
    EXPECT_EQ(got[i], want[i]) << "line " << i + 1;
  }
  // The data file itself: 573 fields, the last line ended by a line feed.
  EXPECT_EQ(want.size(), 574u);
  EXPECT_EQ(want.back(), "");
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
