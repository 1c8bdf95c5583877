// Sub-table ids past 16 bits and up to the last one whose slot indexes are
// ints, in a small file: its one sub-table is renumbered before the saves.

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

  std::string Bytes() {
    std::string out;
    FileSystem::ReadWholeFile(root_.Path("wide.kdb"), &out);
    return out;
  }
  // Saves posts of statuses 0..count-1 in one batch (first into a file of
  // one sub-table of the given id); their slots, -1 for those not saved.
  std::vector<int> Save(int count, int* result, int id = -1) {
    if (id != -1) {
      Save(1, result);
      std::string bytes = Bytes();
      std::string line = "[" + std::to_string(id) + bytes.substr(1002, 40);
      line.resize(42);
      bytes.replace(1000, 42, line);
      FileSystem::WriteWholeFile(root_.Path("wide.kdb"), bytes);
    }
    AZeusDB db(root_.root(), "wide", 10, 0);
    std::vector<std::unique_ptr<Focusable>> owned;
    std::vector<Focusable*> batch;
    for (int i = 0; i < count; ++i) {
      owned.push_back(std::make_unique<Focusable>(4, nullptr));
      owned.back()->SetValueInt(1, i, 1);
      batch.push_back(owned.back().get());
    }
    *result = db.writeFocusablesSlot(&batch, nullptr, nullptr);
    error_ = db.GetLastDBErrorMsgCode();
    std::vector<int> slots;
    for (Focusable* r : batch) {
      slots.push_back(r->GetDBSlotIndex());
      EXPECT_TRUE(slots.back() != -1 || r->IsItemChanged(1, 1));  // kept to save
    }
    return slots;
  }
  // The status that a fresh engine reads at slot, or -1000 - error.
  int ReadStatus(int slot) {
    AZeusDB db(root_.root(), "wide", 10, 0);
    Focusable back(-1, nullptr);
    back.SetDBSlotIndex(slot);
    if (!db.readFocusableSlot(&back, nullptr, nullptr)) return -1000 - db.GetLastDBErrorMsgCode();
    return back.GetFieldInt(1);
  }
  void ExpectCheckerAgrees() {
    std::ostringstream out;
    EXPECT_EQ(0, KdbExaminer::CheckKdb(Bytes(), out)) << out.str();
  }

  test::TempRoot root_;
  RGDBTemplate tmpl_{4};
  int error_ = 0;
};

TEST_F(WideSubTableIdsTest, IdsPastSixteenBitsAreWrittenReopenedAndRead) {
  int result = 0;
  // 39 places left in sub-table 65534, then 65535, 65536 and 65537.
  const std::vector<int> slots = Save(150, &result, 65534);
  EXPECT_EQ(1, result);
  EXPECT_EQ(40 * 65534 + 1, slots[0]);
  EXPECT_EQ(40 * 65537 + 30, slots[149]);
  EXPECT_NE(std::string::npos, Bytes().find("[65537:40:"));
  ExpectCheckerAgrees();
  for (int i = 0; i < 150; ++i) EXPECT_EQ(i, ReadStatus(slots[i])) << i;
  EXPECT_EQ(40 * 65538 + 10, Save(20, &result)[19]);  // reopened, it goes on
}

TEST_F(WideSubTableIdsTest, BatchPastTheLastIdSavesWhatFitsAndSaysSo) {
  int result = 1;
  // 39 + 40 places remain; the posts after them find no slot.
  const std::vector<int> slots = Save(100, &result, KdbFormat::kMaxSubTableID - 1);
  EXPECT_EQ(0, result);
  EXPECT_EQ(AZeusDB::kErrWrite, error_);
  EXPECT_EQ(40 * KdbFormat::kMaxSubTableID + 39, slots[78]);
  for (int i = 0; i < 79; ++i) EXPECT_EQ(i, ReadStatus(slots[i])) << i;
  for (int i = 79; i < 100; ++i) EXPECT_EQ(-1, slots[i]) << i;
  ExpectCheckerAgrees();
}

}  // namespace
}  // namespace kordll
