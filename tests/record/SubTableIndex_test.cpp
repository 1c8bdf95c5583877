// The map file beside a large record file: an engine that opens the file
// through it must read, scan and place records exactly as one that maps the
// file from its sub-table headers, and a map that does not fit the file must
// never lead a read or a write astray.

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "kordll/platform/FileSystem.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/KdbExaminer.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RelationsEntryPoints.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

constexpr int kTables = 66;  // enough sub-tables for the file to get a map
constexpr int kPosts = kTables * 40;

class SubTableIndexTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(root_.ok());
    Define(20);
  }
  void TearDown() override { RelationsEntryPoints::ClearTemplates(); }

  void Define(int guidLength) {
    tmpl_ = std::make_unique<RGDBTemplate>(4);
    tmpl_->AddField(0, guidLength, 4, "", "guid", 0, 0);
    tmpl_->AddField(1, 10, 0, "", "status", 0, 0);
    RelationsEntryPoints::SetTemplate(4, tmpl_.get());
  }
  CString Kdb() { return root_.Path("posts.kdb"); }
  CString Map() { return root_.Path("posts.kdb-map"); }
  std::string Read(const CString& path) {
    std::string out;
    FileSystem::ReadWholeFile(path, &out);
    return out;
  }
  // Saves posts of statuses first..first+count-1 in one batch.
  void Save(int first, int count) {
    AZeusDB db(root_.root(), "posts", 10, 0);
    std::vector<std::unique_ptr<Focusable>> owned;
    std::vector<Focusable*> batch;
    for (int i = 0; i < count; ++i) {
      owned.push_back(std::make_unique<Focusable>(4, nullptr));
      owned.back()->SetValueStr(0, CString(("g" + std::to_string(first + i)).c_str()), 1);
      owned.back()->SetValueInt(1, first + i, 1);
      batch.push_back(owned.back().get());
    }
    ASSERT_EQ(1, db.writeFocusablesSlot(&batch, nullptr, nullptr));
  }
  // The statuses a fresh engine finds in a scan, in slot order.
  std::vector<int> Scan() {
    AZeusDB db(root_.root(), "posts", 10, 0);
    DBTaskItem task;
    task.allFields = 1;
    std::vector<int> out;
    for (;;) {
      Focusable r(-1, nullptr);
      r.SetDBSlotIndex(-1);
      if (!db.readFocusableSlot(&r, nullptr, &task)) break;
      out.push_back(r.GetFieldInt(1));
    }
    return out;
  }
  std::vector<int> Expected(int count) {
    std::vector<int> out;
    for (int i = 0; i < count; ++i) out.push_back(i);
    return out;
  }
  void ExpectCheckerAgrees() {
    std::ostringstream out;
    EXPECT_EQ(0, KdbExaminer::CheckKdb(Read(Kdb()), out)) << out.str();
  }

  test::TempRoot root_;
  std::unique_ptr<RGDBTemplate> tmpl_;
};

TEST_F(SubTableIndexTest, OpenedThroughItsMapAFileReadsScansAndPlacesAsFromItsHeaders) {
  Save(0, kPosts);
  EXPECT_EQ(8u + kTables * 24u, Read(Map()).size());
  {
    AZeusDB db(root_.root(), "posts", 10, 0);
    Focusable gone(4, nullptr);
    gone.SetDBSlotIndex(5 * 40 + 3);
    ASSERT_EQ(1, db.deleteFocusableSlot(&gone, nullptr, nullptr));
  }
  std::vector<int> expected = Expected(kPosts);
  expected.erase(expected.begin() + 5 * 40 + 3);
  EXPECT_EQ(expected, Scan());

  // What the engine knows of every sub-table through the map is what it
  // knows from the headers once the map is gone.
  std::vector<_struct_SubTableInfo> by_map, by_headers;
  {
    AZeusDB db(root_.root(), "posts", 10, 0);
    Focusable newest(-1, nullptr);
    newest.SetDBSlotIndex(kPosts - 1);
    ASSERT_EQ(1, db.readFocusableSlot(&newest, nullptr, nullptr));
    EXPECT_EQ(kPosts - 1, newest.GetFieldInt(1));
    by_map = db.GetSubTableInfos();
  }
  FileSystem::DeleteFile(Map());
  {
    AZeusDB db(root_.root(), "posts", 10, 0);
    Focusable first(-1, nullptr);
    first.SetDBSlotIndex(0);
    ASSERT_EQ(1, db.readFocusableSlot(&first, nullptr, nullptr));
    by_headers = db.GetSubTableInfos();
  }
  ASSERT_EQ(by_headers.size(), by_map.size());
  for (size_t i = 0; i < by_map.size(); ++i) {
    EXPECT_EQ(by_headers[i].id, by_map[i].id);
    EXPECT_EQ(by_headers[i].firstSlotPosition, by_map[i].firstSlotPosition);
    EXPECT_EQ(by_headers[i].lengths, by_map[i].lengths);
    EXPECT_EQ(by_headers[i].headFlags, by_map[i].headFlags);
    EXPECT_EQ(by_headers[i].full, by_map[i].full);
  }

  // The mapping from the headers wrote the map again; a new post takes the
  // freed place, the first free one of the file.
  ASSERT_TRUE(FileSystem::Exists(Map()));
  AZeusDB db(root_.root(), "posts", 10, 0);
  Focusable post(4, nullptr);
  post.SetValueInt(1, 7777, 1);
  ASSERT_EQ(1, db.writeFocusableSlot(&post, nullptr, nullptr));
  EXPECT_EQ(5 * 40 + 3, post.GetDBSlotIndex());
}

TEST_F(SubTableIndexTest, AMapThatDoesNotFitTheFileLeadsNothingAstray) {
  Save(0, kPosts);
  const std::string old_map = Read(Map());

  // The file grew while its map did not: what lies behind is mapped from its
  // headers, and the map catches up.
  Save(kPosts, 80);
  FileSystem::WriteWholeFile(Map(), old_map);
  EXPECT_EQ(Expected(kPosts + 80), Scan());
  EXPECT_EQ(8u + (kTables + 2) * 24u, Read(Map()).size());

  // An entry in the middle that says another relation: the scan still finds
  // every post, by mapping the file again from its headers.
  std::string bad = Read(Map());
  bad[8 + 10 * 24 + 12] = 9;
  FileSystem::WriteWholeFile(Map(), bad);
  EXPECT_EQ(Expected(kPosts + 80), Scan());

  // The map of another file of the same count of sub-tables, whose slots
  // have other sizes: new sub-tables still go where the file ends.
  FileSystem::DeleteFile(Kdb());
  FileSystem::DeleteFile(Map());
  Define(30);
  Save(0, kPosts);
  FileSystem::WriteWholeFile(Map(), old_map);
  Save(kPosts, 40);
  EXPECT_EQ(Expected(kPosts + 40), Scan());
  ExpectCheckerAgrees();
}

// A map whose entry in the middle says another relation must not hide that
// sub-table's free place from a new record, nor its records from a delete.
TEST_F(SubTableIndexTest, AnEntryOfAnotherRelationNeitherHidesAFreePlaceNorARecord) {
  Save(0, kPosts);
  {
    AZeusDB db(root_.root(), "posts", 10, 0);
    Focusable gone(4, nullptr);
    gone.SetDBSlotIndex(10 * 40 + 3);
    ASSERT_EQ(1, db.deleteFocusableSlot(&gone, nullptr, nullptr));
  }
  std::string bad = Read(Map());
  bad[8 + 10 * 24 + 12] = 9;
  FileSystem::WriteWholeFile(Map(), bad);
  AZeusDB db(root_.root(), "posts", 10, 0);
  Focusable post(4, nullptr);
  post.SetValueInt(1, 7777, 1);
  ASSERT_EQ(1, db.writeFocusableSlot(&post, nullptr, nullptr));
  EXPECT_EQ(10 * 40 + 3, post.GetDBSlotIndex());

  bad = Read(Map());
  bad[8 + 11 * 24 + 12] = 9;
  FileSystem::WriteWholeFile(Map(), bad);
  AZeusDB other(root_.root(), "posts", 10, 0);
  Focusable gone(4, nullptr);
  gone.SetDBSlotIndex(11 * 40 + 1);
  EXPECT_EQ(1, other.deleteFocusableSlot(&gone, nullptr, nullptr));
  std::vector<int> expected = Expected(kPosts);
  expected[10 * 40 + 3] = 7777;
  expected.erase(expected.begin() + 11 * 40 + 1);
  EXPECT_EQ(expected, Scan());
}

}  // namespace
}  // namespace kordll
