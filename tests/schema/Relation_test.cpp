// Relation: building a layout field by field, its texts, and copies that
// share the layout (the schema command's test checks the default catalogue's
// fields, their holes and accessors).

#include "kordll/schema/Relation.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "kordll/record/FieldInfo.h"
#include "kordll/record/RGDBTemplate.h"

namespace kordll {
namespace {

// "type size indexable cdata editKind default|key" of a field, or "none".
std::string Describe(const Relation& relation, int id) {
  const FieldInfo* f = relation.GetRGDBTemplate()->GetField(id);
  if (f == nullptr) return "none";
  EXPECT_EQ(f->id, id);
  EXPECT_TRUE(f->editLabel.IsEmpty());
  EXPECT_EQ(f->defaultValue, relation.GetFieldDefaultValueName(id));
  return std::to_string(f->type) + " " + std::to_string(f->size) + " " +
         std::to_string(f->indexable) + " " + std::to_string(f->cdata) + " " +
         std::to_string(f->editKind) + " " + f->defaultValue.ToUtf8() + "|" +
         relation.GetFieldDecorationName(id).ToUtf8();
}

// A new relation has no layout, and questions about its fields answer
// empty; the layout takes the id standing at the first field.
TEST(RelationTest, LayoutComesWithTheFirstFieldAndTakesTheIdStandingThen) {
  Relation early(CString("a"));
  EXPECT_EQ(early.GetRelationID(), -1);
  EXPECT_TRUE((early.GetFieldDecorationName(0) + early.GetFieldDefaultValueName(0)).IsEmpty());
  early.SetFieldEditProperties(0, CString("x"), 2);  // ignored, no crash
  EXPECT_EQ(early.GetRGDBTemplate(), nullptr);
  EXPECT_EQ(early.AddFieldInt(1, 7, 0, CString()), 1);
  early.SetRelationID(12);
  ASSERT_NE(early.GetRGDBTemplate(), nullptr);
  EXPECT_EQ(early.GetRGDBTemplate()->GetRelationID(), -1);
  EXPECT_EQ(early.GetRelationID(), 12);
  Relation late(CString("b"));
  late.SetRelationID(12);
  late.AddFieldDate(2, CString());
  EXPECT_EQ(late.GetRGDBTemplate()->GetRelationID(), 12);
}

TEST(RelationTest, EachAddOperationGivesItsTypeSizeAndDefaultTextAndEditPropertiesStayInside) {
  Relation relation(CString("r"));
  relation.SetRelationID(40);
  EXPECT_EQ(relation.AddFieldString(0, 100, 1, CString("dflt"), CString("guid"), 1), 1);
  EXPECT_EQ(relation.AddFieldInt(1, 7, -12, CString("n")), 1);
  EXPECT_EQ(relation.AddFieldBool(2, 7, CString("b1")), 1);
  EXPECT_EQ(relation.AddFieldDate(6, CString("when")), 1);
  EXPECT_EQ(relation.AddFieldDouble(8, 2.5, CString("ratio")), 1);
  // Edit properties outside the array are ignored (and change no field).
  relation.SetFieldEditProperties(9, CString("Beyond"), 5);
  ASSERT_NE(relation.GetRGDBTemplate(), nullptr);
  EXPECT_EQ(relation.GetRGDBTemplate()->GetFieldCount(), 9);
  const char* expected[] = {"4 100 1 1 1 dflt|guid",
                            "0 7 0 0 3 -12|n",
                            "3 1 0 0 0 1|b1",
                            "none",
                            "none",
                            "none",
                            "2 30 0 0 4 |when",
                            "none",
                            "1 10 0 0 3 2.500000|ratio"};
  for (int id = 0; id < 9; ++id) EXPECT_EQ(Describe(relation, id), expected[id]) << id;
  relation.SetFieldEditProperties(8, CString("Ratio"), 2);
  const FieldInfo* ratio = relation.GetRGDBTemplate()->GetField(8);
  EXPECT_EQ(ratio->editLabel.ToUtf8() + std::to_string(ratio->editKind), "Ratio2");
  // Holes and ids outside the array answer empty.
  for (int id : {5, 1000, -1}) {
    EXPECT_TRUE(relation.GetFieldDecorationName(id).IsEmpty()) << id;
    EXPECT_TRUE(relation.GetFieldDefaultValueName(id).IsEmpty()) << id;
  }
}

TEST(RelationTest, CopiesShareTheLayoutAndTheLastOneFreesIt) {
  auto original = std::make_unique<Relation>(CString("note"));
  original->SetRelationID(25);
  original->SetRelationTitle(CString("Note"));
  original->AddFieldString(5, 50, 1, CString(), CString("title"), 1);
  Relation copy(*original);
  EXPECT_EQ(copy.GetRelationName() + copy.GetRelationTitle(), CString("noteNote"));
  EXPECT_EQ(copy.GetRGDBTemplate(), original->GetRGDBTemplate());
  Relation assigned(CString("other"));
  assigned.AddFieldInt(0, 7, 0, CString());
  assigned = copy;
  EXPECT_EQ(assigned.GetRGDBTemplate(), original->GetRGDBTemplate());
  // A field added through one holder is seen by the others.
  copy.AddFieldInt(6, 7, 3, CString("n"));
  EXPECT_EQ(original->GetFieldDefaultValueName(6), CString("3"));
  // Destroying the original leaves the copies' layout alive (the sanitizer
  // would report a use after free otherwise).
  original.reset();
  ASSERT_NE(copy.GetRGDBTemplate(), nullptr);
  EXPECT_EQ(copy.GetFieldDecorationName(5), CString("title"));
  EXPECT_EQ(assigned.GetRGDBTemplate()->GetFieldCount(), 7);
}

}  // namespace
}  // namespace kordll
