// Record layouts and the task items that say which fields one load or save
// covers.

#include "kordll/record/RGDBTemplate.h"

#include <gtest/gtest.h>

#include "kordll/record/DBTaskItem.h"

namespace kordll {
namespace {

TEST(RGDBTemplateTest, HolesAndIdsOutsideTheLayoutAnswerFallbacks) {
  RGDBTemplate layout(4);
  layout.AddField(0, 20, 4, CString(), CString(u"guid"), 0, 0);
  layout.AddField(2, 14, 2, CString(), CString(u"received"), 0, 1);
  layout.AddField(5, 100, 4, CString(u"none"), CString(u"author"), 1, 0);
  EXPECT_EQ(layout.GetRelationID(), 4);
  EXPECT_EQ(layout.GetFieldCount(), 6);  // holes count
  for (int outside : {3, -1, 6, 1000}) {
    SCOPED_TRACE(outside);
    EXPECT_EQ(layout.GetField(outside), nullptr);
    EXPECT_EQ(layout.GetFieldID(outside), -1);
    EXPECT_EQ(layout.GetFieldType(outside), -1);
    EXPECT_EQ(layout.GetFieldSize(outside), 0);
    EXPECT_EQ(layout.IsFieldIndexable(outside), 0);
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
  // A date edits as a date until the layout says otherwise; ids outside are ignored.
  EXPECT_EQ(layout.GetField(2)->editKind, 4);
  layout.SetFieldEditProperties(2, CString(u"Received"), 9);
  layout.SetFieldEditProperties(99, CString(u"x"), 1);
  layout.SetFieldEditProperties(-3, CString(u"x"), 1);
  EXPECT_EQ(layout.GetField(2)->editKind, 9);
  EXPECT_EQ(layout.GetField(2)->editLabel, CString(u"Received"));
  EXPECT_EQ(layout.GetFieldCount(), 6);
}

TEST(RGDBTemplateTest, AbsurdFieldIdsAreRefusedAndARepeatedIdKeepsTheLaterField) {
  RGDBTemplate layout(1);
  for (int id : {-1, RGDBTemplate::kMaxFieldID + 1, 2000000000}) {
    layout.AddField(id, 10, 0, CString(), CString(), 0, 0);
  }
  EXPECT_EQ(layout.GetFieldCount(), 0);
  layout.AddField(1, 10, 0, CString(), CString(u"first"), 0, 0);
  layout.AddField(1, 30, 4, CString(), CString(u"second"), 0, 0);
  EXPECT_EQ(layout.GetFieldCount(), 2);
  EXPECT_EQ(layout.GetFieldSize(1), 30);
  EXPECT_EQ(layout.GetField(1)->decoration, CString(u"second"));
  EXPECT_EQ(RGDBTemplate().GetRelationID(), -1);
}

// --- Task items -------------------------------------------------------------------

TEST(DBTaskItemTest, DefiningPastTheEndFillsWithFillersAndUndefiningClosesTheGap) {
  DBTaskItem task;
  EXPECT_EQ(task.IsDefinedTasksEmpty(), 1);
  task.DefineFieldTaskType(-5, 2);  // absurd positions are refused
  task.DefineFieldTaskType(2000000000, 2);
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
  EXPECT_EQ(task.UnDefineFieldTask(0), 1);
  EXPECT_EQ(task.UnDefineFieldTask(2), 1);
  EXPECT_EQ(task.tasks, (std::vector<int>{3, 3, 1}));
  EXPECT_EQ(task.UnDefineFieldTask(3), 0);
  EXPECT_EQ(task.UnDefineFieldTask(-1), 0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(task.UnDefineFieldTask(0), 1);
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
  EXPECT_EQ(fromNull.allFields, 0);
  EXPECT_EQ(fromNull.IsDefinedTasksEmpty(), 1);
}

}  // namespace
}  // namespace kordll
