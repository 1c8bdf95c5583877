// Record layouts and the task items that say which fields one load or save
// covers.

#include "kordll/record/RGDBTemplate.h"

#include <gtest/gtest.h>

#include "kordll/record/DBTaskItem.h"

namespace kordll {
namespace {

TEST(RGDBTemplateTest, HolesCountInTheFieldCountAndAnswerFallbacks) {
  RGDBTemplate layout(4);
  layout.AddField(0, 20, 4, CString(), CString(u"guid"), 0, 0);
  layout.AddField(2, 14, 2, CString(), CString(u"received"), 0, 1);
  layout.AddField(5, 100, 4, CString(u"none"), CString(u"author"), 1, 0);
  EXPECT_EQ(layout.GetRelationID(), 4);
  EXPECT_EQ(layout.GetFieldCount(), 6);
  EXPECT_EQ(layout.GetFieldID(3), -1);
  EXPECT_EQ(layout.GetFieldType(3), -1);
  EXPECT_EQ(layout.GetFieldSize(3), 0);
  EXPECT_EQ(layout.IsFieldIndexable(3), 0);
  EXPECT_EQ(layout.GetField(3), nullptr);
  for (int outside : {-1, 6, 1000}) {
    EXPECT_EQ(layout.GetField(outside), nullptr);
    EXPECT_EQ(layout.GetFieldID(outside), -1);
    EXPECT_EQ(layout.GetFieldType(outside), -1);
    EXPECT_EQ(layout.GetFieldSize(outside), 0);
  }
  EXPECT_EQ(layout.GetFieldID(5), 5);
  EXPECT_EQ(layout.GetFieldSize(5), 100);
  EXPECT_EQ(layout.GetFieldType(2), 2);
  EXPECT_EQ(layout.IsFieldIndexable(2), 1);
  const FieldInfo* author = layout.GetField(5);
  ASSERT_NE(author, nullptr);
  EXPECT_EQ(author->defaultValue, CString(u"none"));
  EXPECT_EQ(author->decoration, CString(u"author"));
  EXPECT_EQ(author->cdata, 1);
}

TEST(RGDBTemplateTest, EditKindFollowsTheTypeUntilSetExplicitly) {
  RGDBTemplate layout;
  EXPECT_EQ(layout.GetRelationID(), -1);
  const int expected[] = {3, 3, 4, 0, 1};  // int, double, date, bool, string
  for (int type = 0; type <= 4; ++type) {
    layout.AddField(type, 10, type, CString(), CString(), 0, 0);
    EXPECT_EQ(layout.GetField(type)->editKind, expected[type]) << type;
    EXPECT_TRUE(layout.GetField(type)->editLabel.IsEmpty());
  }
  layout.SetFieldEditProperties(2, CString(u"Received"), 9);
  EXPECT_EQ(layout.GetField(2)->editKind, 9);
  EXPECT_EQ(layout.GetField(2)->editLabel, CString(u"Received"));
  layout.SetFieldEditProperties(99, CString(u"x"), 1);  // outside: ignored
  layout.SetFieldEditProperties(-3, CString(u"x"), 1);
  EXPECT_EQ(layout.GetFieldCount(), 5);
}

TEST(RGDBTemplateTest, AbsurdFieldIdsAreRefusedAndARepeatedIdKeepsTheLaterField) {
  RGDBTemplate layout(1);
  layout.AddField(-1, 10, 0, CString(), CString(), 0, 0);
  layout.AddField(RGDBTemplate::kMaxFieldID + 1, 10, 0, CString(), CString(), 0, 0);
  layout.AddField(2000000000, 10, 0, CString(), CString(), 0, 0);
  EXPECT_EQ(layout.GetFieldCount(), 0);
  // A field defined twice keeps the later definition.
  layout.AddField(1, 10, 0, CString(), CString(u"first"), 0, 0);
  layout.AddField(1, 30, 4, CString(), CString(u"second"), 0, 0);
  EXPECT_EQ(layout.GetFieldCount(), 2);
  EXPECT_EQ(layout.GetFieldSize(1), 30);
  EXPECT_EQ(layout.GetField(1)->decoration, CString(u"second"));
}

// --- Task items -------------------------------------------------------------------

TEST(DBTaskItemTest, DefiningPastTheEndFillsWithFillers) {
  DBTaskItem task;
  EXPECT_EQ(task.slotPosition, -1);
  EXPECT_EQ(task.allFields, 0);
  EXPECT_EQ(task.IsDefinedTasksEmpty(), 1);
  task.DefineFieldTaskType(3, DBTaskItem::kTaskLoad);
  EXPECT_EQ(task.tasks, (std::vector<int>{3, 3, 3, 2}));
  EXPECT_EQ(task.GetFieldTaskType(1), 3);
  EXPECT_EQ(task.GetFieldTaskType(3), 2);
  EXPECT_EQ(task.GetFieldTaskType(4), 4);
  EXPECT_EQ(task.GetFieldTaskType(-1), 4);
  task.DefineFieldTaskType(4, DBTaskItem::kTaskSave);  // at the end: appended
  task.DefineFieldTaskType(0, DBTaskItem::kTaskLoad);  // inside: overwritten
  EXPECT_EQ(task.tasks, (std::vector<int>{2, 3, 3, 2, 1}));
  EXPECT_EQ(task.IsDefinedTasksEmpty(), 0);
}

TEST(DBTaskItemTest, UndefiningClosesTheGap) {
  DBTaskItem task;
  task.DefineFieldTaskType(2, DBTaskItem::kTaskLoad);
  EXPECT_EQ(task.UnDefineFieldTask(0), 1);
  EXPECT_EQ(task.tasks, (std::vector<int>{3, 2}));
  EXPECT_EQ(task.UnDefineFieldTask(2), 0);
  EXPECT_EQ(task.UnDefineFieldTask(-1), 0);
  EXPECT_EQ(task.UnDefineFieldTask(1), 1);
  EXPECT_EQ(task.UnDefineFieldTask(0), 1);
  EXPECT_EQ(task.IsDefinedTasksEmpty(), 1);
}

TEST(DBTaskItemTest, CopyFromASourceTakesPositionFlagAndList) {
  DBTaskItem source;
  source.allFields = 1;
  source.slotPosition = 81;
  source.DefineFieldTaskType(1, DBTaskItem::kTaskSave);
  DBTaskItem copy(&source);
  EXPECT_EQ(copy.allFields, 1);
  EXPECT_EQ(copy.slotPosition, 81);
  EXPECT_EQ(copy.tasks, source.tasks);
  DBTaskItem fromNull(nullptr);
  EXPECT_EQ(fromNull.slotPosition, -1);
  EXPECT_EQ(fromNull.IsDefinedTasksEmpty(), 1);
}

TEST(DBTaskItemTest, AbsurdPositionsAreRefused) {
  DBTaskItem task;
  task.DefineFieldTaskType(-5, 2);
  task.DefineFieldTaskType(2000000000, 2);
  EXPECT_EQ(task.IsDefinedTasksEmpty(), 1);
}

}  // namespace
}  // namespace kordll
