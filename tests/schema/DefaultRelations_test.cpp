// The default catalogue beyond its listing. Every field's id, type, size,
// flags, default and key, every catalogue name and the loader's order are
// compared cell by cell with the tables in SchemaCommand_test (through
// tests/schema/data/default_relations.tsv); what the listing does not show
// is checked here: display titles, edit properties, the templates' own ids
// and holes, and the relations' field accessors.

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>

#include "kordll/record/FieldInfo.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/schema/Relation.h"

namespace kordll {
namespace {

// Edit kind of a field whose edit properties were never set: by type
// (int 0, double 1, date 2, bool 3, string 4).
int EditKindOfType(int type) {
  static const int kKinds[] = {3, 3, 4, 0, 1};
  return type >= 0 && type < 5 ? kKinds[type] : -1;
}

TEST(DefaultRelationsTest, TitlesAndEditPropertiesAreExactlyTheTables) {
  GlobalRelationsCtrl catalogue;
  const std::map<int, std::string> titles = {{16, "Help Section"}, {17, "Help Topic"}};
  // (relation, field) -> (label, kind)
  const std::map<std::pair<int, int>, std::pair<std::string, int>> edits = {
      {{16, 4}, {"Section Title", 1}},
      {{16, 6}, {"Section Desc", 2}},
      {{16, 7}, {"Related Help Topics", 5}},
      {{16, 8}, {"Search Meta Tags", 1}},
      {{17, 4}, {"Title", 1}},
      {{17, 5}, {"Content", 2}},
      {{17, 8}, {"Related Help Topics", 5}},
      {{17, 7}, {"Additional Notes", 2}},
      {{17, 10}, {"Search Meta Tags", 1}},
      {{17, 11}, {"Example", 2}},
      {{17, 13}, {"Short Desc", 2}},
      {{24, 4}, {"Title", 1}},
      {{24, 5}, {"Content", 2}},
      {{24, 6}, {"Pointed Help Section", 5}},
  };
  size_t editsSeen = 0;
  for (int id : GlobalRelationsCtrl::GetDefaultRelationOrder()) {
    SCOPED_TRACE(testing::Message() << "relation " << id);
    const Relation* relation = catalogue.GetRelation(id);
    ASSERT_NE(relation, nullptr);
    const auto title = titles.find(id);
    EXPECT_EQ(relation->GetRelationTitle().ToUtf8(), title == titles.end() ? "" : title->second);
    const RGDBTemplate* layout = relation->GetRGDBTemplate();
    ASSERT_NE(layout, nullptr);
    for (int i = 0; i < layout->GetFieldCount(); ++i) {
      const FieldInfo* field = layout->GetField(i);
      if (field == nullptr) continue;
      const auto edit = edits.find({id, i});
      if (edit == edits.end()) {
        EXPECT_EQ(field->editLabel.ToUtf8(), "") << "field " << i;
        EXPECT_EQ(field->editKind, EditKindOfType(field->type)) << "field " << i;
      } else {
        ++editsSeen;
        EXPECT_EQ(field->editLabel.ToUtf8(), edit->second.first) << "field " << i;
        EXPECT_EQ(field->editKind, edit->second.second) << "field " << i;
      }
    }
  }
  EXPECT_EQ(editsSeen, edits.size());
}

// Each template carries its relation's id; a field sits at the index of its
// id, ids may leave holes, and the array ends at the highest id. The
// relation's accessors answer from the same fields, and empty for holes and
// ids outside the array.
TEST(DefaultRelationsTest, TemplatesHoldEachFieldAtItsIdWithHolesLeftEmpty) {
  GlobalRelationsCtrl catalogue;
  int fields = 0;
  for (int id : catalogue.GetRelationIDs()) {
    SCOPED_TRACE(testing::Message() << "relation " << id);
    const Relation* relation = catalogue.GetRelation(id);
    EXPECT_EQ(relation->GetRelationID(), id);
    const RGDBTemplate* layout = relation->GetRGDBTemplate();
    ASSERT_NE(layout, nullptr);
    EXPECT_EQ(layout->GetRelationID(), id);
    const int count = layout->GetFieldCount();
    ASSERT_GT(count, 0);
    EXPECT_NE(layout->GetField(count - 1), nullptr);
    for (int i = 0; i < count; ++i) {
      const FieldInfo* field = layout->GetField(i);
      if (field == nullptr) {
        EXPECT_EQ(layout->GetFieldType(i), -1) << "hole " << i;
        EXPECT_EQ(layout->GetFieldSize(i), 0) << "hole " << i;
        EXPECT_TRUE(relation->GetFieldDecorationName(i).IsEmpty()) << "hole " << i;
        EXPECT_TRUE(relation->GetFieldDefaultValueName(i).IsEmpty()) << "hole " << i;
        continue;
      }
      ++fields;
      EXPECT_EQ(field->id, i);
      EXPECT_EQ(layout->GetFieldType(i), field->type) << "field " << i;
      EXPECT_EQ(layout->GetFieldSize(i), field->size) << "field " << i;
      EXPECT_EQ(layout->IsFieldIndexable(i), field->indexable) << "field " << i;
      EXPECT_EQ(relation->GetFieldDecorationName(i), field->decoration) << "field " << i;
      EXPECT_EQ(relation->GetFieldDefaultValueName(i), field->defaultValue) << "field " << i;
    }
    for (int outside : {-1, count, count + 100}) {
      EXPECT_EQ(layout->GetField(outside), nullptr);
      EXPECT_TRUE(relation->GetFieldDecorationName(outside).IsEmpty());
      EXPECT_TRUE(relation->GetFieldDefaultValueName(outside).IsEmpty());
    }
  }
  EXPECT_EQ(fields, 573);
  // The holes the tables name: relation 1 has no field 1; the settings
  // relations have no field 0; relation 8 keeps its field 3 of size 0.
  EXPECT_EQ(catalogue.GetRelation(1)->GetRGDBTemplate()->GetField(1), nullptr);
  for (int settings : {12, 28, 31}) {
    EXPECT_EQ(catalogue.GetRelation(settings)->GetRGDBTemplate()->GetField(0), nullptr);
  }
  ASSERT_NE(catalogue.GetRelation(8)->GetRGDBTemplate()->GetField(3), nullptr);
  EXPECT_EQ(catalogue.GetRelation(8)->GetRGDBTemplate()->GetFieldSize(3), 0);
}

}  // namespace
}  // namespace kordll
