// Record files whose sub-table ids pass 16 bits, and the last id whose slot
// indexes are still ints. The file is made small: one sub-table is written
// and its line renumbered, so that the next ones the engine adds carry the
// large ids.

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "kordll/platform/FileSystem.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/KdbExaminer.h"
#include "kordll/record/KdbFormat.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RelationsEntryPoints.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

class WideSubTableIdsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(root_.ok());
    tmpl_.AddField(0, 20, 4, "", "guid", 0, 0);
    tmpl_.AddField(1, 10, 0, "", "status", 0, 0);
    RelationsEntryPoints::SetTemplate(4, &tmpl_);
  }
  void TearDown() override { RelationsEntryPoints::ClearTemplates(); }

  std::unique_ptr<Focusable> Post(int i) {
    auto r = std::make_unique<Focusable>(4, nullptr);
    r->SetValueStr(0, CString(("guid " + std::to_string(i)).c_str()), 1);
    r->SetValueInt(1, i, 1);
    return r;
  }
  std::string Bytes() {
    std::string out;
    FileSystem::ReadWholeFile(root_.Path("wide.kdb"), &out);
    return out;
  }
  // Writes one post, then gives its sub-table (the only one) the id `id`.
  void StartFileAt(int id) {
    {
      AZeusDB db(root_.root(), "wide", 10, 0);
      std::unique_ptr<Focusable> first = Post(-1);
      ASSERT_EQ(1, db.writeFocusableSlot(first.get(), nullptr, nullptr));
    }
    std::string bytes = Bytes();
    ASSERT_EQ(0, bytes.compare(1000, 6, "[0:40:"));
    std::string line = "[" + std::to_string(id) + bytes.substr(1002, 40);
    line.resize(42);
    bytes.replace(1000, 42, line);
    ASSERT_EQ(1, FileSystem::WriteWholeFile(root_.Path("wide.kdb"), bytes));
  }
  // Saves posts 0..count-1 in one batch; their slots, -1 for those not saved.
  std::vector<int> SaveBatch(AZeusDB* db, int count, int* result) {
    std::vector<std::unique_ptr<Focusable>> owned;
    std::vector<Focusable*> batch;
    for (int i = 0; i < count; ++i) {
      owned.push_back(Post(i));
      batch.push_back(owned.back().get());
    }
    *result = db->writeFocusablesSlot(&batch, nullptr, nullptr);
    std::vector<int> slots;
    for (Focusable* r : batch) {
      slots.push_back(r->GetDBSlotIndex());
      // A post that was not saved still has its changes to save.
      if (r->GetDBSlotIndex() == -1) {
        EXPECT_TRUE(r->IsItemChanged(1, 1));
      }
    }
    return slots;
  }
  // Post i's status as a fresh engine reads it at slot, or -1000 - error.
  int ReadStatus(int slot) {
    AZeusDB db(root_.root(), "wide", 10, 0);
    Focusable back(-1, nullptr);
    back.SetDBSlotIndex(slot);
    if (!db.readFocusableSlot(&back, nullptr, nullptr)) return -1000 - db.GetLastDBErrorMsgCode();
    return back.GetFieldInt(1);
  }

  test::TempRoot root_;
  RGDBTemplate tmpl_{4};
};

TEST_F(WideSubTableIdsTest, IdsPastSixteenBitsAreWrittenReopenedAndRead) {
  StartFileAt(65534);
  std::vector<int> slots;
  {
    AZeusDB db(root_.root(), "wide", 10, 0);
    int result = 0;
    // 39 places left in sub-table 65534, then 65535, 65536 and 65537.
    slots = SaveBatch(&db, 150, &result);
    EXPECT_EQ(1, result);
  }
  ASSERT_EQ(150u, slots.size());
  EXPECT_EQ(40 * 65534 + 1, slots[0]);
  EXPECT_EQ(40 * 65537 + 30, slots[149]);
  // The ids are stored whole in the sub-table lines.
  const std::string bytes = Bytes();
  EXPECT_NE(std::string::npos, bytes.find("[65536:40:"));
  EXPECT_NE(std::string::npos, bytes.find("[65537:40:"));
  std::ostringstream report;
  EXPECT_EQ(0, KdbExaminer::CheckKdb(bytes, report)) << report.str();
  for (int i = 0; i < 150; ++i) EXPECT_EQ(i, ReadStatus(slots[i])) << i;
  // A reopened file goes on after its highest id.
  AZeusDB db(root_.root(), "wide", 10, 0);
  int result = 0;
  const std::vector<int> more = SaveBatch(&db, 20, &result);
  EXPECT_EQ(1, result);
  EXPECT_EQ(40 * 65537 + 31, more[0]);
  EXPECT_EQ(40 * 65538 + 10, more[19]);
}

TEST_F(WideSubTableIdsTest, BatchPastTheLastIdSavesWhatFitsAndSaysSo) {
  StartFileAt(KdbFormat::kMaxSubTableID - 1);
  std::vector<int> slots;
  {
    AZeusDB db(root_.root(), "wide", 10, 0);
    int result = 1;
    // 39 + 40 places remain; the posts after them find no slot.
    slots = SaveBatch(&db, 100, &result);
    EXPECT_EQ(0, result);
    EXPECT_EQ(AZeusDB::kErrWrite, db.GetLastDBErrorMsgCode());
  }
  ASSERT_EQ(100u, slots.size());
  EXPECT_EQ(40 * KdbFormat::kMaxSubTableID + 39, slots[78]);
  for (int i = 0; i < 100; ++i) {
    if (i < 79) {
      EXPECT_EQ(i, ReadStatus(slots[i])) << i;
    } else {
      EXPECT_EQ(-1, slots[i]) << i;
    }
  }
  std::ostringstream report;
  EXPECT_EQ(0, KdbExaminer::CheckKdb(Bytes(), report)) << report.str();
}

}  // namespace
}  // namespace kordll
