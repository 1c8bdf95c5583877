// The default catalogue beyond its listing (SchemaCommand_test checks the
// fields, their holes and accessors): display titles and edit properties.

#include <gtest/gtest.h>

#include "kordll/record/FieldInfo.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/schema/Relation.h"

namespace kordll {
namespace {

// Only the two help relations have titles and only the help and tip
// relations set edit properties; every other field keeps the edit kind of
// its type (int 3, double 3, date 4, bool 0, string 1) and no label.
TEST(DefaultRelationsTest, TitlesAndEditPropertiesOnlyWhereTheTablesSetThem) {
  GlobalRelationsCtrl catalogue;
  const int kKindOfType[] = {3, 3, 4, 0, 1};
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
      if (!field->editLabel.IsEmpty()) {
        ++edited;
        EXPECT_TRUE(id == 16 || id == 17 || id == 24) << "field " << i;
      } else if (field->type >= 0 && field->type < 5) {
        EXPECT_EQ(field->editKind, kKindOfType[field->type]) << "field " << i;
      } else {
        ADD_FAILURE() << "field " << i << " of type " << field->type;
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
    EXPECT_EQ(field->editLabel.ToUtf8() + " " + std::to_string(field->editKind),
              s.label + (" " + std::to_string(s.kind)));
  }
}

}  // namespace
}  // namespace kordll
