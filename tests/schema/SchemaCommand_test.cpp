// The `kordll schema` command, run in-process: one line of nine
// tab-separated columns per field, relations in the loader's order.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "kordll/schema/GlobalRelationsCtrl.h"
#include "tools/ToolCommand.h"

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

// The listing of the default catalogue: one line of nine columns per field,
// relations in the loader's order, fields by ascending id, each (relation,
// field) once. Counts per relation, type and flag, and the sum of the sizes,
// catch a slip in the tables without copying them; the spot lines are fields
// other parts of the system read by number.
TEST(SchemaCommandTest, ListingHoldsEveryFieldOnceInTheLoadersOrder) {
  std::string out, err;
  ASSERT_EQ(RunSchemaCommand({}, &out, &err), 0);
  EXPECT_TRUE(err.empty());
  ASSERT_FALSE(out.empty());
  EXPECT_EQ(out.back(), '\n');
  std::vector<std::string> lines = Split(out, '\n');
  lines.pop_back();
  ASSERT_EQ(lines.size(), 573u);

  std::vector<int> order;
  std::map<int, int> perRelation;
  std::map<std::string, int> perType;
  std::set<std::pair<int, int>> seen;
  int indexable = 0, cdata = 0, keyed = 0, defaulted = 0, sizes = 0, lastField = -1;
  for (const std::string& line : lines) {
    SCOPED_TRACE(line);
    const std::vector<std::string> cols = Split(line, '\t');
    ASSERT_EQ(cols.size(), 9u);
    const int relation = std::stoi(cols[0]);
    const int field = std::stoi(cols[2]);
    if (order.empty() || order.back() != relation) {
      order.push_back(relation);
      lastField = -1;
    }
    EXPECT_GT(field, lastField);
    lastField = field;
    EXPECT_TRUE(seen.insert({relation, field}).second);
    ++perRelation[relation];
    ++perType[cols[3]];
    ASSERT_TRUE(cols[5] == "0" || cols[5] == "1");
    ASSERT_TRUE(cols[6] == "0" || cols[6] == "1");
    indexable += cols[5] == "1";
    cdata += cols[6] == "1";
    keyed += !cols[8].empty();
    defaulted += !cols[7].empty();
    sizes += std::stoi(cols[4]);
  }
  EXPECT_EQ(order, (std::vector<int>{1,  30, 29, 31, 28, 12, 2, 27, 22, 23, 3,  4,  25, 26, 11, 5,
                                     13, 6,  14, 7,  15, 8,  9, 10, 16, 17, 18, 20, 19, 21, 24}));
  EXPECT_EQ(perRelation,
            (std::map<int, int>{
                {1, 25},  {2, 21},  {3, 24},  {4, 17},   {5, 16},  {6, 16}, {7, 18},  {8, 4},
                {9, 12},  {10, 13}, {11, 20}, {12, 105}, {13, 10}, {14, 7}, {15, 6},  {16, 8},
                {17, 13}, {18, 15}, {19, 5},  {20, 5},   {21, 6},  {22, 8}, {23, 13}, {24, 5},
                {25, 10}, {26, 20}, {27, 22}, {28, 61},  {29, 16}, {30, 3}, {31, 49}}));
  EXPECT_EQ(perType,
            (std::map<std::string, int>{
                {"bool", 101}, {"date", 69}, {"double", 4}, {"int", 187}, {"string", 212}}));
  EXPECT_EQ(indexable, 43);
  EXPECT_EQ(cdata, 26);
  EXPECT_EQ(keyed, 356);
  EXPECT_EQ(defaulted, 302);
  EXPECT_EQ(sizes, 24683);
  for (const char* spot :
       {"4\tpost\t0\tstring\t100\t0\t0\t\tguid", "4\tpost\t1\tint\t7\t0\t0\t0\t",
        "4\tpost\t2\tdate\t30\t0\t0\t\trecdate", "4\tpost\t7\tstring\t500\t1\t1\t\tdesc",
        "4\tpost\t15\tstring\t50\t0\t0\t\tenclosure", "11\tpost\t4\tstring\t50\t1\t1\t\ttitle",
        "18\tfile\t10\tint\t7\t0\t0\t0\tfilesize", "24\ttip\t5\tstring\t150\t1\t0\t\ttipcontent",
        "8\t\t3\tint\t0\t0\t0\t0\t", "1\t\t21\tstring\t50\t0\t0\t1@DelRey\t"}) {
    EXPECT_NE(std::find(lines.begin(), lines.end(), spot), lines.end()) << spot;
  }
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
