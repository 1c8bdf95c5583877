// The default catalogue beyond its listing (SchemaCommand_test checks the
// fields' columns): display titles, edit properties, the templates' own ids
// and holes, and the relations' field accessors.

#include <gtest/gtest.h>

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

// Only the two help relations have titles and only the help and tip
// relations set edit properties; every other field keeps the edit kind of
// its type and no label.
TEST(DefaultRelationsTest, TitlesAndEditPropertiesOnlyWhereTheTablesSetThem) {
  GlobalRelationsCtrl catalogue;
  int titled = 0, edited = 0;
  for (int id : GlobalRelationsCtrl::GetDefaultRelationOrder()) {
    SCOPED_TRACE(testing::Message() << "relation " << id);
    const Relation* relation = catalogue.GetRelation(id);
    ASSERT_NE(relation, nullptr);
    titled += !relation->GetRelationTitle().IsEmpty();
    const RGDBTemplate* layout = relation->GetRGDBTemplate();
    ASSERT_NE(layout, nullptr);
    for (int i = 0; i < layout->GetFieldCount(); ++i) {
      const FieldInfo* field = layout->GetField(i);
      if (field == nullptr) continue;
      if (field->editLabel.IsEmpty()) {
        EXPECT_EQ(field->editKind, EditKindOfType(field->type)) << "field " << i;
      } else {
        ++edited;
        EXPECT_TRUE(id == 16 || id == 17 || id == 24) << "field " << i;
      }
    }
  }
  EXPECT_EQ(titled, 2);
  EXPECT_EQ(edited, 14);
  EXPECT_EQ(catalogue.GetRelation(16)->GetRelationTitle().ToUtf8(), "Help Section");
  EXPECT_EQ(catalogue.GetRelation(17)->GetRelationTitle().ToUtf8(), "Help Topic");
  const struct {
    int relation, field, kind;
    const char* label;
  } spots[] = {{16, 7, 5, "Related Help Topics"}, {17, 5, 2, "Content"}, {24, 4, 1, "Title"}};
  for (const auto& s : spots) {
    const FieldInfo* field =
        catalogue.GetRelation(s.relation)->GetRGDBTemplate()->GetField(s.field);
    ASSERT_NE(field, nullptr);
    EXPECT_EQ(field->editLabel.ToUtf8(), s.label);
    EXPECT_EQ(field->editKind, s.kind);
  }
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
