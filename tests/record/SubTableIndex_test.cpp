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
  CString Map() { return root_.Path("posts.kdb-map"); }
  std::string Read(const CString& path) {
    std::string out;
    FileSystem::ReadWholeFile(path, &out);
    return out;
  }
  // The entry of a sub-table in the map says relation 9.
  void Misname(int table) {
    std::string map = Read(Map());
    map[8 + table * 24 + 12] = 9;
    FileSystem::WriteWholeFile(Map(), map);
  }
  // Saves posts of statuses first..first+count-1 in one batch.
  void Save(int first, int count) {
    AZeusDB db(root_.root(), "posts", 10, 0);
    std::vector<std::unique_ptr<Focusable>> owned;
    std::vector<Focusable*> batch;
    for (int i = first; i < first + count; ++i) {
      owned.push_back(std::make_unique<Focusable>(4, nullptr));
      owned.back()->SetValueInt(1, i, 1);
      batch.push_back(owned.back().get());
    }
    ASSERT_EQ(1, db.writeFocusablesSlot(&batch, nullptr, nullptr));
  }
  // Saves one post of status 7777 with a fresh engine; the slot it took.
  int SaveOne() {
    AZeusDB db(root_.root(), "posts", 10, 0);
    Focusable post(4, nullptr);
    post.SetValueInt(1, 7777, 1);
    EXPECT_EQ(1, db.writeFocusableSlot(&post, nullptr, nullptr));
    return post.GetDBSlotIndex();
  }
  void Delete(int slot) {
    AZeusDB db(root_.root(), "posts", 10, 0);
    Focusable gone(4, nullptr);
    gone.SetDBSlotIndex(slot);
    EXPECT_EQ(1, db.deleteFocusableSlot(&gone, nullptr, nullptr));
  }
  // The statuses a fresh engine finds in a scan, in slot order.
  std::vector<int> Scan() {
    AZeusDB db(root_.root(), "posts", 10, 0);
    DBTaskItem task;
    task.allFields = 1;
    std::vector<int> out;
    for (;;) {
      Focusable r(-1, nullptr);
      if (!db.readFocusableSlot(&r, nullptr, &task)) break;
      out.push_back(r.GetFieldInt(1));
    }
    return out;
  }
  static std::vector<int> Expected(int count) {
    std::vector<int> out;
    for (int i = 0; i < count; ++i) out.push_back(i);
    return out;
  }
  // What an engine knows of every sub-table after reading slot.
  std::vector<std::string> Known(int slot) {
    AZeusDB db(root_.root(), "posts", 10, 0);
    Focusable r(-1, nullptr);
    r.SetDBSlotIndex(slot);
    EXPECT_EQ(1, db.readFocusableSlot(&r, nullptr, nullptr));
    EXPECT_EQ(slot, r.GetFieldInt(1));
    std::vector<std::string> out;
    for (const _struct_SubTableInfo& info : db.GetSubTableInfos()) {
      out.push_back(std::to_string(info.id) + "@" + std::to_string(info.firstSlotPosition) + " " +
                    std::to_string(info.lengths[0]) + " " + std::to_string(info.full) + " " +
                    std::string(info.headFlags.begin(), info.headFlags.end()));
    }
    return out;
  }

  test::TempRoot root_;
  std::unique_ptr<RGDBTemplate> tmpl_;
};

TEST_F(SubTableIndexTest, OpenedThroughItsMapAFileReadsScansAndPlacesAsFromItsHeaders) {
  Save(0, kPosts);
  EXPECT_EQ(8u + kTables * 24u, Read(Map()).size());
  Delete(5 * 40 + 3);
  std::vector<int> expected = Expected(kPosts);
  expected.erase(expected.begin() + 5 * 40 + 3);
  EXPECT_EQ(expected, Scan());
  // What the engine knows through the map is what it knows from the headers
  // once the map is gone; mapping from the headers writes the map again, and
  // a new post takes the freed place, the first free one of the file.
  const std::vector<std::string> by_map = Known(kPosts - 1);
  FileSystem::DeleteFile(Map());
  EXPECT_EQ(Known(0), by_map);
  ASSERT_TRUE(FileSystem::Exists(Map()));
  EXPECT_EQ(5 * 40 + 3, SaveOne());
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

  // An entry in the middle that says another relation hides neither its
  // records from a scan or a delete nor its free place from a new post.
  Delete(10 * 40 + 3);
  Misname(10);
  EXPECT_EQ(10 * 40 + 3, SaveOne());
  Misname(11);
  Delete(11 * 40 + 1);
  std::vector<int> expected = Expected(kPosts + 80);
  expected[10 * 40 + 3] = 7777;
  expected.erase(expected.begin() + 11 * 40 + 1);
  Misname(12);
  EXPECT_EQ(expected, Scan());

  // The map of another file of the same count of sub-tables, whose slots
  // have other sizes: new sub-tables still go where the file ends.
  FileSystem::DeleteFile(root_.Path("posts.kdb"));
  FileSystem::DeleteFile(Map());
  Define(30);
  Save(0, kPosts);
  FileSystem::WriteWholeFile(Map(), old_map);
  Save(kPosts, 40);
  EXPECT_EQ(Expected(kPosts + 40), Scan());
  std::ostringstream problems;
  EXPECT_EQ(0, KdbExaminer::CheckKdb(Read(root_.Path("posts.kdb")), problems)) << problems.str();
}

}  // namespace
}  // namespace kordll
