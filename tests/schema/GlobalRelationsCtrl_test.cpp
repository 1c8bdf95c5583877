// GlobalRelationsCtrl: the instance of the process and the record core's
// answers, adding and removing relations, field tasks, and the relation
// distribution file.

#include "kordll/schema/GlobalRelationsCtrl.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kordll/platform/FileSystem.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RelationsEntryPoints.h"
#include "kordll/schema/Relation.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

// The bytes of a whole file, or "<missing>".
std::string ReadFileBytes(const CString& path) {
  std::string bytes;
  return FileSystem::ReadWholeFile(path, &bytes) ? bytes : "<missing>";
}

// The UTF-16LE bytes of the first half of the text (as many bytes as units).
std::string HalfAsUtf16Le(const std::u16string& text) {
  std::string bytes;
  for (char16_t unit : text)
    bytes += {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
  bytes.resize(text.size());
  return bytes;
}

// A relation 24 with the fields 0, 1, 4 and 5 only.
Relation* SmallTipRelation() {
  Relation* tip = new Relation(CString("tip"));
  tip->SetRelationID(24);
  tip->AddFieldString(0, 100, 0, CString(), CString("guid"), 0);
  tip->AddFieldInt(1, 7, 0, CString());
  tip->AddFieldString(4, 50, 1, CString(), CString("tiptitle"), 0);
  tip->AddFieldString(5, 150, 1, CString(), CString("tipcontent"), 0);
  return tip;
}

TEST(GlobalRelationsCtrlTest, FirstCatalogueIsTheInstanceAndAnswersTheRecordCore) {
  ASSERT_EQ(GlobalRelationsCtrl::GetGlobalRelationsCtrl(), nullptr);
  {
    GlobalRelationsCtrl catalogue;
    EXPECT_EQ(GlobalRelationsCtrl::GetGlobalRelationsCtrl(), &catalogue);
    RGDBTemplate* post = catalogue.GetRelation(4)->GetRGDBTemplate();
    ASSERT_NE(post, nullptr);
    EXPECT_EQ(GlobalRelationsCtrl::GetRGDBTemplate(4), post);
    EXPECT_EQ(RelationsEntryPoints::Get()->GetRGDBTemplate(4), post);
    EXPECT_EQ(RelationsEntryPoints::Get()->GetRGDBTemplate(32), nullptr);
    {
      GlobalRelationsCtrl second;  // private: the first stays the instance
      EXPECT_EQ(second.GetRelationCount(), 31);
      EXPECT_EQ(GlobalRelationsCtrl::GetGlobalRelationsCtrl(), &catalogue);
    }
    EXPECT_EQ(RelationsEntryPoints::Get()->GetRGDBTemplate(4), post);
  }
  // Gone: the record core gets its answers without a catalogue again.
  EXPECT_EQ(GlobalRelationsCtrl::GetGlobalRelationsCtrl(), nullptr);
  EXPECT_EQ(GlobalRelationsCtrl::GetRGDBTemplate(4), nullptr);
  EXPECT_EQ(RelationsEntryPoints::Get()->GetRGDBTemplate(4), nullptr);
  // Answers someone else installed meanwhile are left in place at the end.
  RelationsEntryPoints mine;
  {
    GlobalRelationsCtrl catalogue;
    EXPECT_NE(RelationsEntryPoints::Install(&mine), nullptr);
  }
  EXPECT_EQ(RelationsEntryPoints::Get(), &mine);
  RelationsEntryPoints::Install(nullptr);
}

TEST(GlobalRelationsCtrlTest, AddRelationKeepsTheOldOneUnlessReplacing) {
  GlobalRelationsCtrl catalogue;
  Relation* const old = catalogue.GetRelation(24);
  ASSERT_NE(old, nullptr);
  Relation* mine = SmallTipRelation();
  EXPECT_EQ(catalogue.AddRelation(mine, 0), 0);
  EXPECT_EQ(catalogue.GetRelation(24), old);
  delete mine;  // refused: still the caller's
  mine = SmallTipRelation();
  EXPECT_EQ(catalogue.AddRelation(mine, 1), 1);  // old one deleted
  EXPECT_EQ(catalogue.AddRelation(mine, 1), 1);  // the same object again
  EXPECT_EQ(catalogue.GetRelation(24), mine);
  EXPECT_EQ(catalogue.GetRelationCount(), 31);
  Relation* added = new Relation(CString("extra"));
  added->SetRelationID(100);
  EXPECT_EQ(catalogue.AddRelation(added, 0), 1);
  EXPECT_EQ(catalogue.GetRelation(100), added);
  EXPECT_EQ(catalogue.GetRelationCount(), 32);
  // A relation without fields has no template to give.
  EXPECT_EQ(GlobalRelationsCtrl::GetRGDBTemplate(100), nullptr);
  EXPECT_EQ(catalogue.AddRelation(nullptr, 1), 0);
}

// A removed relation belongs to the caller; reloading adds only the missing
// relations and leaves the present ones untouched.
TEST(GlobalRelationsCtrlTest, RemovedRelationBelongsToTheCallerAndReloadingAddsItAgain) {
  GlobalRelationsCtrl catalogue;
  Relation* removed = catalogue.RemoveRelation(18);
  ASSERT_NE(removed, nullptr);
  EXPECT_EQ(GlobalRelationsCtrl::GetRGDBTemplate(18), nullptr);
  EXPECT_EQ(catalogue.RemoveRelation(18), nullptr);
  EXPECT_EQ(catalogue.GetRelationCount(), 30);
  EXPECT_EQ(removed->GetFieldDecorationName(10), CString("filesize"));  // still usable
  delete removed;

  Relation* mine = SmallTipRelation();
  ASSERT_EQ(catalogue.AddRelation(mine, 1), 1);
  catalogue.LoadDefaultRelations();
  EXPECT_EQ(catalogue.GetRelationCount(), 31);
  EXPECT_EQ(catalogue.GetRelation(24), mine);  // none of the table's fields (no field 6)
  EXPECT_EQ(mine->GetRGDBTemplate()->GetFieldCount(), 6);
  ASSERT_NE(catalogue.GetRelation(18), nullptr);
}

TEST(GlobalRelationsCtrlTest, LoadRelationFieldsAsksToLoadEveryFieldOfOneType) {
  GlobalRelationsCtrl catalogue;
  DBTaskItem strings;
  catalogue.LoadRelationFields(4, 4, &strings);
  // Strings of a post: 0, 4-8, 10-13, 15, 16; the others are fillers.
  EXPECT_EQ(strings.tasks, (std::vector<int>{2, 3, 3, 3, 2, 2, 2, 2, 2, 3, 2, 2, 2, 2, 3, 2, 2}));
  DBTaskItem dates;
  catalogue.LoadRelationFields(4, 2, &dates);
  EXPECT_EQ(dates.tasks, (std::vector<int>{3, 3, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 2}));
  EXPECT_EQ(dates.GetFieldTaskType(15), 4);
  // An absent relation, a type no field has, or no task: nothing happens.
  DBTaskItem untouched;
  untouched.DefineFieldTaskType(2, 1);
  catalogue.LoadRelationFields(99, 4, &untouched);
  catalogue.LoadRelationFields(4, 1, &untouched);
  EXPECT_EQ(untouched.tasks, (std::vector<int>{3, 3, 1}));
  catalogue.LoadRelationFields(4, 4, nullptr);
}

TEST(GlobalRelationsCtrlTest, DistributionTextListsEverySlotOfEveryRelation) {
  // One line per relation, in ascending id order, each slot of the layout.
  GlobalRelationsCtrl catalogue;
  for (int id : catalogue.GetRelationIDs()) delete catalogue.RemoveRelation(id);
  ASSERT_EQ(catalogue.AddRelation(SmallTipRelation(), 0), 1);
  EXPECT_EQ(GlobalRelationsCtrl::BuildRelationDistText(),
            CString("1|24:0 100 4:1 7 0:0 0 0:0 0 0:4 50 4:5 150 4\n"));
  Relation* empty = new Relation(CString("empty"));
  empty->SetRelationID(3);
  catalogue.AddRelation(empty, 0);
  GlobalRelationsCtrl::m_iRelationDistID = 7;
  EXPECT_EQ(GlobalRelationsCtrl::BuildRelationDistText(),
            CString("7|3\n|24:0 100 4:1 7 0:0 0 0:0 0 0:4 50 4:5 150 4\n"));
  GlobalRelationsCtrl::m_iRelationDistID = 1;
}

class RelationDistFileTest : public test::TempRootTest {
 protected:
  void TearDown() override { GlobalRelationsCtrl::SetRunningPathSource(nullptr); }
  static CString RunningPath() { return running_; }
  static CString running_;
};
CString RelationDistFileTest::running_;

TEST_F(RelationDistFileTest, UpdateWritesTheFirstHalfOfTheTextAsUtf16) {
  const CString path = root_.Path(CString("dist.korr"));
  EXPECT_EQ(GlobalRelationsCtrl::UpdateRelationDist(path), 0);  // no catalogue
  EXPECT_FALSE(FileSystem::Exists(path));
  GlobalRelationsCtrl catalogue;
  EXPECT_EQ(GlobalRelationsCtrl::UpdateRelationDist(root_.Path(CString("no/such/dist.korr"))), 0);
  for (int id : catalogue.GetRelationIDs()) {
    if (id != 8) delete catalogue.RemoveRelation(id);
  }
  EXPECT_EQ(GlobalRelationsCtrl::UpdateRelationDist(path), 1);
  // "1|8:0 100 4:1 7 0:2 7 0:3 0 0\n" is 30 units; 30 bytes reach the file.
  const std::string bytes = ReadFileBytes(path);
  EXPECT_EQ(bytes, HalfAsUtf16Le(u"1|8:0 100 4:1 7 0:2 7 0:3 0 0\n"));
  EXPECT_EQ(bytes.substr(0, 6), std::string("1\0|\08\0", 6));
  // Written anew each time: an empty catalogue is the text "1", one unit,
  // of which one byte is written.
  delete catalogue.RemoveRelation(8);
  EXPECT_EQ(GlobalRelationsCtrl::UpdateRelationDist(path), 1);
  EXPECT_EQ(ReadFileBytes(path), "1");
}

TEST_F(RelationDistFileTest, CheckWritesOnceIntoTheRunningPathAndNeverRewrites) {
  GlobalRelationsCtrl catalogue;
  EXPECT_EQ(GlobalRelationsCtrl::CheckRelationDist(), 0);  // no source yet
  const CString folder = root_.DataRoot();
  const CString path = folder + CString("/RelationDist.korr");
  EXPECT_EQ(GlobalRelationsCtrl::CheckRelationDist(folder), 1);
  const std::u16string text = GlobalRelationsCtrl::BuildRelationDistText().str();
  EXPECT_EQ(ReadFileBytes(path), HalfAsUtf16Le(text));
  // An existing file records the first run's schema and stays as it is.
  ASSERT_EQ(FileSystem::WriteWholeFile(path, "older schema"), 1);
  EXPECT_EQ(GlobalRelationsCtrl::CheckRelationDist(folder), 1);
  EXPECT_EQ(ReadFileBytes(path), "older schema");
  EXPECT_EQ(GlobalRelationsCtrl::CheckRelationDist(CString()), 0);  // no running path

  running_ = root_.Path(CString("user"));
  ASSERT_EQ(FileSystem::CreateDirectory(running_), 1);
  GlobalRelationsCtrl::SetRunningPathSource(&RunningPath);
  EXPECT_EQ(GlobalRelationsCtrl::CheckRelationDist(), 1);
  EXPECT_TRUE(FileSystem::IsFile(running_ + CString("/RelationDist.korr")));
  running_ = CString();  // a source that knows no path yet
  EXPECT_EQ(GlobalRelationsCtrl::CheckRelationDist(), 0);
}

}  // namespace
}  // namespace kordll
