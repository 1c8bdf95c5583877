// GlobalRelationsCtrl: the instance of the process and the record core's
// answers, adding and removing relations, field tasks, and the relation
// distribution file.

#include "kordll/schema/GlobalRelationsCtrl.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kordll/platform/FileSystem.h"
#include "kordll/platform/WinFile.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/FieldInfo.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RelationsEntryPoints.h"
#include "kordll/schema/Relation.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

// The bytes of a whole file, or "<missing>".
std::string ReadFileBytes(const CString& path) {
  WinFile file;
  if (!file.Open(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING)) return "<missing>";
  std::string bytes;
  char buffer[4096];
  uint32_t got = 0;
  while (file.ReadFile(buffer, sizeof buffer, &got) && got > 0) bytes.append(buffer, got);
  return bytes;
}

void WriteFileBytes(const CString& path, const std::string& bytes) {
  WinFile file;
  ASSERT_TRUE(file.Open(path, GENERIC_WRITE, 0, CREATE_ALWAYS));
  uint32_t written = 0;
  ASSERT_TRUE(file.WriteFile(bytes.data(), static_cast<uint32_t>(bytes.size()), &written));
}

// The UTF-16LE bytes of the first `units` bytes' worth of text.
std::string HalfAsUtf16Le(const std::u16string& text) {
  std::string bytes;
  for (char16_t unit : text) {
    bytes.push_back(static_cast<char>(unit & 0xFF));
    bytes.push_back(static_cast<char>(unit >> 8));
  }
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
  EXPECT_EQ(GlobalRelationsCtrl::GetRGDBTemplate(4), nullptr);
  RelationsEntryPoints* const before = RelationsEntryPoints::Get();
  EXPECT_EQ(before->GetRGDBTemplate(4), nullptr);
  {
    GlobalRelationsCtrl catalogue;
    EXPECT_EQ(GlobalRelationsCtrl::GetGlobalRelationsCtrl(), &catalogue);
    RGDBTemplate* post = catalogue.GetRelation(4)->GetRGDBTemplate();
    ASSERT_NE(post, nullptr);
    EXPECT_EQ(GlobalRelationsCtrl::GetRGDBTemplate(4), post);
    EXPECT_EQ(RelationsEntryPoints::Get()->GetRGDBTemplate(4), post);
    EXPECT_EQ(GlobalRelationsCtrl::GetRGDBTemplate(0), nullptr);
    EXPECT_EQ(GlobalRelationsCtrl::GetRGDBTemplate(32), nullptr);
    EXPECT_EQ(GlobalRelationsCtrl::GetRGDBTemplate(-1), nullptr);
    EXPECT_EQ(RelationsEntryPoints::Get()->GetRGDBTemplate(99), nullptr);

    // A second catalogue is private: the first stays the instance.
    {
      GlobalRelationsCtrl second;
      EXPECT_EQ(second.GetRelationCount(), 31);
      EXPECT_EQ(GlobalRelationsCtrl::GetGlobalRelationsCtrl(), &catalogue);
      EXPECT_EQ(RelationsEntryPoints::Get()->GetRGDBTemplate(4), post);
    }
    EXPECT_EQ(GlobalRelationsCtrl::GetGlobalRelationsCtrl(), &catalogue);
    EXPECT_EQ(RelationsEntryPoints::Get()->GetRGDBTemplate(4), post);
  }
  // Gone: the record core gets its answers without a catalogue again.
  EXPECT_EQ(GlobalRelationsCtrl::GetGlobalRelationsCtrl(), nullptr);
  EXPECT_EQ(GlobalRelationsCtrl::GetRGDBTemplate(4), nullptr);
  EXPECT_EQ(RelationsEntryPoints::Get()->GetRGDBTemplate(4), nullptr);
}

TEST(GlobalRelationsCtrlTest, AnswersInstalledByOthersAreLeftInPlace) {
  RelationsEntryPoints mine;
  RelationsEntryPoints* previous = nullptr;
  {
    GlobalRelationsCtrl catalogue;
    previous = RelationsEntryPoints::Install(&mine);
    // Someone else answers now; the catalogue's end must not undo that.
  }
  EXPECT_EQ(RelationsEntryPoints::Get(), &mine);
  EXPECT_NE(previous, nullptr);
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
  EXPECT_EQ(catalogue.GetRelation(24), mine);
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

TEST(GlobalRelationsCtrlTest, RemovedRelationBelongsToTheCaller) {
  GlobalRelationsCtrl catalogue;
  Relation* removed = catalogue.RemoveRelation(18);
  ASSERT_NE(removed, nullptr);
  EXPECT_EQ(removed->GetRelationName(), CString("file"));
  EXPECT_EQ(catalogue.GetRelation(18), nullptr);
  EXPECT_EQ(GlobalRelationsCtrl::GetRGDBTemplate(18), nullptr);
  EXPECT_EQ(catalogue.RemoveRelation(18), nullptr);
  EXPECT_EQ(catalogue.RemoveRelation(77), nullptr);
  EXPECT_EQ(catalogue.GetRelationCount(), 30);
  // Still usable after leaving the catalogue.
  EXPECT_EQ(removed->GetFieldDecorationName(10), CString("filesize"));
  delete removed;
}

TEST(GlobalRelationsCtrlTest, ReloadingAddsOnlyMissingRelationsAndLeavesOthersUntouched) {
  GlobalRelationsCtrl catalogue;
  delete catalogue.RemoveRelation(18);
  Relation* mine = SmallTipRelation();
  ASSERT_EQ(catalogue.AddRelation(mine, 1), 1);

  catalogue.LoadDefaultRelations();
  EXPECT_EQ(catalogue.GetRelationCount(), 31);
  // The present relation 24 got none of the table's fields (no field 6).
  EXPECT_EQ(catalogue.GetRelation(24), mine);
  EXPECT_EQ(mine->GetRGDBTemplate()->GetFieldCount(), 6);
  EXPECT_EQ(mine->GetRGDBTemplate()->GetField(6), nullptr);
  EXPECT_TRUE(mine->GetRGDBTemplate()->GetField(4)->editLabel.IsEmpty());
  // The missing relation 18 came back whole.
  ASSERT_NE(catalogue.GetRelation(18), nullptr);
  EXPECT_EQ(catalogue.GetRelation(18)->GetRGDBTemplate()->GetFieldCount(), 15);
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

  // Tasks already there are kept or overwritten, never dropped.
  DBTaskItem mixed;
  mixed.DefineFieldTaskType(1, 1);
  mixed.DefineFieldTaskType(20, 1);
  catalogue.LoadRelationFields(20, 4, &mixed);
  EXPECT_EQ(mixed.GetFieldTaskType(0), 2);
  EXPECT_EQ(mixed.GetFieldTaskType(1), 1);
  EXPECT_EQ(mixed.GetFieldTaskType(4), 2);
  EXPECT_EQ(mixed.GetFieldTaskType(5), 2);
  EXPECT_EQ(mixed.GetFieldTaskType(20), 1);

  // An absent relation, a type no field has, or no task: nothing happens.
  DBTaskItem untouched;
  untouched.DefineFieldTaskType(2, 1);
  catalogue.LoadRelationFields(99, 4, &untouched);
  catalogue.LoadRelationFields(4, 1, &untouched);
  EXPECT_EQ(untouched.tasks, (std::vector<int>{3, 3, 1}));
  catalogue.LoadRelationFields(4, 4, nullptr);
}

TEST(GlobalRelationsCtrlTest, DistributionTextListsEverySlotOfEveryRelation) {
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

TEST(GlobalRelationsCtrlTest, DistributionTextOfTheDefaultCatalogue) {
  GlobalRelationsCtrl catalogue;
  const std::string text = GlobalRelationsCtrl::BuildRelationDistText().ToUtf8();
  // One line per relation, in ascending id order.
  std::vector<std::string> lines;
  size_t start = 0;
  for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
    lines.push_back(text.substr(start, end - start));
  }
  EXPECT_EQ(start, text.size());
  ASSERT_EQ(lines.size(), 31u);
  EXPECT_EQ(lines[0].rfind("1|1:0 20 4:0 0 0:0 0 0:0 0 0:4 10 4:5 10 4:6 7 0:", 0), 0u);
  EXPECT_EQ(lines[7], "|8:0 100 4:1 7 0:2 7 0:3 0 0");
  EXPECT_EQ(lines[19], "|20:0 100 4:1 7 0:2 30 2:0 0 0:4 50 4:5 100 4");
  EXPECT_EQ(lines[23], "|24:0 100 4:1 7 0:0 0 0:0 0 0:4 50 4:5 150 4:6 10 4");
}

class RelationDistFileTest : public test::TempRootTest {
 protected:
  void TearDown() override { GlobalRelationsCtrl::SetRunningPathSource(nullptr); }
  static CString RunningPath() { return running_; }
  static CString running_;
};
CString RelationDistFileTest::running_;

TEST_F(RelationDistFileTest, WritesTheFirstHalfOfTheTextAsUtf16) {
  GlobalRelationsCtrl catalogue;
  for (int id : catalogue.GetRelationIDs()) {
    if (id != 8) delete catalogue.RemoveRelation(id);
  }
  const CString path = root_.Path(CString("dist.korr"));
  EXPECT_EQ(GlobalRelationsCtrl::UpdateRelationDist(path), 1);
  // "1|8:0 100 4:1 7 0:2 7 0:3 0 0\n" is 30 units; 30 bytes reach the file.
  const std::u16string text = u"1|8:0 100 4:1 7 0:2 7 0:3 0 0\n";
  const std::string bytes = ReadFileBytes(path);
  EXPECT_EQ(bytes.size(), 30u);
  EXPECT_EQ(bytes, HalfAsUtf16Le(text));
  EXPECT_EQ(bytes.substr(0, 6), std::string("1\0|\08\0", 6));

  // Written anew each time: an empty catalogue is the text "1", one unit,
  // of which one byte is written.
  delete catalogue.RemoveRelation(8);
  EXPECT_EQ(GlobalRelationsCtrl::UpdateRelationDist(path), 1);
  EXPECT_EQ(ReadFileBytes(path), "1");
}

TEST_F(RelationDistFileTest, UpdateFailsWithoutCatalogueOrFolder) {
  const CString path = root_.Path(CString("dist.korr"));
  EXPECT_EQ(GlobalRelationsCtrl::UpdateRelationDist(path), 0);
  EXPECT_FALSE(FileSystem::Exists(path));
  GlobalRelationsCtrl catalogue;
  EXPECT_EQ(GlobalRelationsCtrl::UpdateRelationDist(root_.Path(CString("no/such/dist.korr"))), 0);
}

TEST_F(RelationDistFileTest, CheckWritesOnceAndNeverRewrites) {
  GlobalRelationsCtrl catalogue;
  const CString folder = root_.DataRoot();
  const CString path = folder + CString("/RelationDist.korr");
  ASSERT_FALSE(FileSystem::Exists(path));

  EXPECT_EQ(GlobalRelationsCtrl::CheckRelationDist(folder), 1);
  const std::u16string text = GlobalRelationsCtrl::BuildRelationDistText().str();
  EXPECT_EQ(ReadFileBytes(path), HalfAsUtf16Le(text));

  // An existing file records the first run's schema and stays as it is.
  WriteFileBytes(path, "older schema");
  EXPECT_EQ(GlobalRelationsCtrl::CheckRelationDist(folder), 1);
  EXPECT_EQ(ReadFileBytes(path), "older schema");

  // No running path: nothing is written anywhere.
  EXPECT_EQ(GlobalRelationsCtrl::CheckRelationDist(CString()), 0);
}

TEST_F(RelationDistFileTest, CheckTakesTheRunningPathFromItsSource) {
  GlobalRelationsCtrl catalogue;
  EXPECT_EQ(GlobalRelationsCtrl::CheckRelationDist(), 0);  // no source yet

  running_ = root_.Path(CString("user"));
  ASSERT_EQ(FileSystem::CreateDirectory(running_), 1);
  GlobalRelationsCtrl::SetRunningPathSource(&RunningPath);
  EXPECT_EQ(GlobalRelationsCtrl::CheckRelationDist(), 1);
  EXPECT_TRUE(FileSystem::IsFile(running_ + CString("/RelationDist.korr")));

  // A source that knows no path yet.
  running_ = CString();
  EXPECT_EQ(GlobalRelationsCtrl::CheckRelationDist(), 0);
}

}  // namespace
}  // namespace kordll
