// The `kordll schema` command, run in-process: one line of nine
// tab-separated columns per field, relations in the loader's order.

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "kordll/record/FieldInfo.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/schema/Relation.h"
#include "tools/ToolCommand.h"

namespace kordll {
namespace {

int RunSchemaCommand(const std::vector<std::string>& args, std::string* out, std::string* err) {
  for (const auto& command : kordll_tool::Commands()) {
    if (command.name != "schema") continue;
    std::ostringstream o, e;
    const int status = command.run(args, o, e);
    *out = o.str();
    *err = e.str();
    return status;
  }
  ADD_FAILURE() << "schema command not registered";
  return -1;
}

// The listing is the catalogue as its relations and their accessors tell
// it: relations in the loader's order, fields by ascending id, each line
// nine columns, holes left out. Holes and ids outside a template answer as
// no field. The sums catch a slip in the tables without copying them; the
// spot lines are fields other parts of the system read by number.
TEST(SchemaCommandTest, ListingTellsEveryFieldOfTheCatalogueInTheLoadersOrder) {
  std::string out, err;
  ASSERT_EQ(RunSchemaCommand({}, &out, &err), 0);
  EXPECT_TRUE(err.empty());
  ASSERT_EQ(out.back(), '\n');  // the last line ends too
  std::vector<std::string> lines;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  ASSERT_EQ(lines.size(), 573u);

  GlobalRelationsCtrl catalogue;
  const char* types[] = {"int", "double", "date", "bool", "string"};
  size_t next = 0;
  int indexable = 0, cdata = 0, keyed = 0, defaulted = 0, sizes = 0;
  for (int id : GlobalRelationsCtrl::GetDefaultRelationOrder()) {
    SCOPED_TRACE(testing::Message() << "relation " << id);
    const Relation* relation = catalogue.GetRelation(id);
    ASSERT_NE(relation, nullptr);
    const RGDBTemplate* layout = relation->GetRGDBTemplate();
    ASSERT_NE(layout, nullptr);
    const int count = layout->GetFieldCount();
    for (int i = -1; i <= count + 1; ++i) {
      const FieldInfo* field = layout->GetField(i);
      const std::string key = relation->GetFieldDecorationName(i).ToUtf8();
      const std::string value = relation->GetFieldDefaultValueName(i).ToUtf8();
      const int type = layout->GetFieldType(i), size = layout->GetFieldSize(i);
      if (field == nullptr) {
        EXPECT_EQ(std::to_string(type) + " " + std::to_string(size) + key + value, "-1 0") << i;
        continue;
      }
      EXPECT_EQ(field->id, i);
      ASSERT_TRUE(type >= 0 && type < 5) << i;
      ASSERT_LT(next, lines.size());
      EXPECT_EQ(lines[next++], std::to_string(id) + "\t" + relation->GetRelationName().ToUtf8() +
                                   "\t" + std::to_string(i) + "\t" + types[type] + "\t" +
                                   std::to_string(size) + "\t" +
                                   std::to_string(layout->IsFieldIndexable(i)) + "\t" +
                                   std::to_string(field->cdata) + "\t" + value + "\t" + key);
      indexable += field->indexable;
      cdata += field->cdata;
      keyed += !key.empty();
      defaulted += !value.empty();
      sizes += size;
    }
  }
  EXPECT_EQ(next, lines.size());
  // The loader's order: each relation once, the first and last as the tables have them.
  std::vector<int> order = GlobalRelationsCtrl::GetDefaultRelationOrder();
  ASSERT_EQ(order.size(), 31u);
  EXPECT_EQ(std::set<int>(order.begin(), order.end()).size(), 31u);
  EXPECT_EQ(std::vector<int>({order[0], order[1], order[2], order[29], order[30]}),
            std::vector<int>({1, 30, 29, 21, 24}));
  EXPECT_EQ(std::vector<int>({indexable, cdata, keyed, defaulted, sizes}),
            std::vector<int>({43, 26, 356, 302, 24683}));
  for (const char* spot :
       {"4\tpost\t7\tstring\t500\t1\t1\t\tdesc", "18\tfile\t10\tint\t7\t0\t0\t0\tfilesize"}) {
    EXPECT_NE(std::find(lines.begin(), lines.end(), spot), lines.end()) << spot;
  }
}

// Arguments are refused; a catalogue of the process is left in place.
TEST(SchemaCommandTest, RefusesArgumentsAndLeavesTheProcessCatalogueInPlace) {
  std::string out, err;
  EXPECT_EQ(RunSchemaCommand({"extra"}, &out, &err), 2);
  EXPECT_TRUE(out.empty());
  EXPECT_NE(err.find("usage"), std::string::npos);
  GlobalRelationsCtrl process;
  ASSERT_EQ(RunSchemaCommand({}, &out, &err), 0);
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 573);
  EXPECT_EQ(GlobalRelationsCtrl::GetGlobalRelationsCtrl(), &process);
}

}  // namespace
}  // namespace kordll
