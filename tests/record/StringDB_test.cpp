// Behaviour of the string database, checked on the bytes of the file.

#include "kordll/record/StringDB.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kordll/platform/FileSystem.h"
#include "tests/support/FaultEnv.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

class StringDBTest : public ::testing::Test {
 protected:
  std::string Bytes() {
    std::string out;
    FileSystem::ReadWholeFile(root_.Path("texts.sdb"), &out);
    return out;
  }
  // D = 31: slot i starts at 20 + 50 i.
  std::string SlotHeader(int i) { return Bytes().substr(20 + 50 * i, 19); }
  std::string SlotData(int i) { return Bytes().substr(20 + 50 * i + 19, 31); }

  test::TempRoot root_;
};

TEST_F(StringDBTest, LongTextChainsAndShrinks) {
  StringDB db(root_.root(), "texts", 30, 8);
  int slot = -1;
  const std::string hundred(100, 'a');
  EXPECT_EQ(4, db.WriteStringSlot(&slot, CString(hundred.c_str())));
  EXPECT_EQ(0, slot);
  EXPECT_EQ(std::string("[11:0:31]") + std::string(10, '\0') + "\n", Bytes().substr(0, 20));
  EXPECT_EQ(8, db.GetTotalSlotCount());
  EXPECT_EQ(std::string("[2:1:-1]") + std::string(11, '\0'), SlotHeader(0));
  EXPECT_EQ(std::string("[1:-1:2]") + std::string(11, '\0'), SlotHeader(3));
  // 28, 28, 28 and 16 characters: n + 1 < 31 leaves the last byte a newline.
  EXPECT_EQ("  " + std::string(28, 'a') + "\n", SlotData(0));
  EXPECT_EQ("  " + std::string(16, 'a') + std::string(12, '\0') + "\n", SlotData(3));
  CString back(u">");
  EXPECT_EQ(4, db.ReadStringSlot(0, back));  // appends
  EXPECT_EQ(CString((">" + hundred).c_str()), back);

  EXPECT_EQ(1, db.WriteStringSlot(&slot, CString("ten chars!")));
  EXPECT_EQ(std::string("[1:-1:-1]") + std::string(10, '\0'), SlotHeader(0));
  EXPECT_EQ(std::string(30, '\0') + "\n", SlotData(2));
  // The freed slots come back after the older free ones.
  std::vector<int> order;
  for (int i = 0; i < 7; ++i) order.push_back(db.GetNextAvailableSlotIndex());
  EXPECT_EQ((std::vector<int>{4, 5, 6, 7, 1, 2, 3}), order);
}

TEST_F(StringDBTest, MultiByteTextRoundTrips) {
  StringDB db(root_.root(), "texts", 30, 4);
  int slot = -1;
  const CString text(u"caf\u00e9 \u20ac \u007f and more text beyond one slot \U0001F600");
  ASSERT_GT(db.WriteStringSlot(&slot, text), 1);
  EXPECT_EQ("!:", SlotData(0).substr(0, 2));
  CString back;
  ASSERT_GT(db.ReadStringSlot(slot, back), 1);
  EXPECT_EQ(text, back);
}

TEST_F(StringDBTest, ReadErrors) {
  StringDB db(root_.root(), "texts", 30, 4);
  int slot = -1;
  ASSERT_EQ(2, db.WriteStringSlot(&slot, CString(std::string(40, 'x').c_str())));
  CString text;
  const int reserved = db.GetNextAvailableSlotIndex();
  EXPECT_EQ(3, db.GetSlotState(reserved));
  for (int middleOrReserved : {1, reserved}) {
    EXPECT_EQ(0, db.ReadStringSlot(middleOrReserved, text));
    EXPECT_EQ(10, db.GetLastDBErrorMsgCode());
  }
  EXPECT_TRUE(text.IsEmpty());
}

TEST_F(StringDBTest, DeleteRules) {
  StringDB db(root_.root(), "texts", 30, 8);
  int slot = -1;
  ASSERT_EQ(3, db.WriteStringSlot(&slot, CString(std::string(60, 'x').c_str())));
  EXPECT_EQ(0, db.DeleteStringSlot(2, 0));  // the last slot alone is kept
  EXPECT_EQ(1, db.GetSlotState(2));
  EXPECT_EQ(3, db.DeleteStringSlot(0, 1));
  EXPECT_EQ(0, db.GetSlotState(0));
  EXPECT_EQ(0, db.DeleteStringSlot(0, 1));
}

TEST_F(StringDBTest, FarIndexGrowsTableButFails) {
  StringDB db(root_.root(), "texts", 30, 8);
  int slot = 100;
  EXPECT_EQ(0, db.WriteStringSlot(&slot, CString("far")));
  EXPECT_EQ(10, db.GetLastDBErrorMsgCode());
  EXPECT_EQ(100, db.GetTotalSlotCount());
  EXPECT_EQ(static_cast<size_t>(20 + 50 * 100), Bytes().size());
  slot = 105;  // within one growth
  EXPECT_EQ(1, db.WriteStringSlot(&slot, CString("near")));
}

// A read of a missing or deleted database makes its file anew (header
// only), so the read finds no slot.
TEST_F(StringDBTest, MissingOrDeletedFileIsMadeAnewHeaderOnly) {
  StringDB db(root_.root(), "texts", 30, 8);
  for (int deleted : {0, 1}) {
    SCOPED_TRACE(deleted);
    if (deleted) {
      int slot = -1;
      ASSERT_EQ(1, db.WriteStringSlot(&slot, CString("x")));
      db.deleteDB();
      EXPECT_FALSE(FileSystem::Exists(root_.Path("texts.sdb")));
    }
    CString text;
    EXPECT_EQ(0, db.ReadStringSlot(0, text));
    EXPECT_EQ(3, db.GetLastDBErrorMsgCode());
    EXPECT_EQ(20u, Bytes().size());
    EXPECT_EQ(1, db.IsDBExist());
  }
}

TEST_F(StringDBTest, FreshObjectAsksForAFreeSlotFirst) {
  {
    StringDB db(root_.root(), "texts", 30, 3);
    for (const char* text : {"one", "two", "three"}) {
      int slot = -1;
      ASSERT_EQ(1, db.WriteStringSlot(&slot, CString(text)));
    }
  }
  StringDB db(root_.root(), "texts", 30, 3);
  int slot = db.GetNextAvailableSlotIndex();
  EXPECT_EQ(3, slot);  // the three slots in use are never offered
  EXPECT_EQ(2, db.WriteStringSlot(&slot, CString(std::string(40, 'x').c_str())));
  CString back;
  EXPECT_EQ(1, db.ReadStringSlot(2, back));
  EXPECT_EQ(CString("three"), back);
}

TEST_F(StringDBTest, NamesThatLeaveTheFolderAreRefused) {
  ASSERT_EQ(1, FileSystem::CreateDirectory(root_.Path("in")));
  for (const char* name : {"../x", "", ".", "..", "a/b", "x\x01y"}) {
    SCOPED_TRACE(name);
    StringDB db(root_.Path("in"), CString(name), 30, 3);
    int slot = -1;
    EXPECT_EQ(0, db.WriteStringSlot(&slot, CString("text")));
    EXPECT_EQ(3, db.GetLastDBErrorMsgCode());
    EXPECT_EQ(3, db.openDB(0));
    db.closeDB();
    db.clearDB();
  }
  for (const char* made : {"x.sdb", "in.sdb", "in/.sdb", "in/a/b.sdb"}) {
    EXPECT_FALSE(FileSystem::Exists(root_.Path(made))) << made;
  }
}

// A header write that fails is reported, at opening and clearing. A file
// whose header never reached the disk is no file: the failed write says so,
// and the next write makes the file anew instead of writing texts behind a
// header of zeros that no later opening accepts.
TEST_F(StringDBTest, HeaderWritesThatFailAreReportedAndTheNextWriteMakesTheFileAnew) {
  test::FaultEnv faults(Env::Current());
  ScopedEnv use(&faults);
  StringDB db(root_.root(), "texts", 30, 3);
  faults.Arm(test::FaultEnv::kWrite, 0, test::FaultEnv::kForever, "texts.sdb");
  EXPECT_EQ(8, db.openDB(0));  // the new file's header
  db.closeDB();
  db.clearDB();
  EXPECT_EQ(8, db.GetLastDBErrorMsgCode());
  faults.DisarmAll();
  StringDB other(root_.root(), "other", 30, 3);
  faults.Arm(test::FaultEnv::kWrite, 0, 1, "other.sdb");
  int slot = -1;
  EXPECT_EQ(0, other.WriteStringSlot(&slot, CString("lost")));
  EXPECT_EQ(8, other.GetLastDBErrorMsgCode());
  faults.DisarmAll();
  slot = -1;
  ASSERT_EQ(1, other.WriteStringSlot(&slot, CString("kept")));
  StringDB reopened(root_.root(), "other", 30, 3);
  CString text;
  EXPECT_EQ(1, reopened.ReadStringSlot(slot, text));
  EXPECT_EQ(CString("kept"), text);
}

TEST(StringDBConcurrencyTest, ReservationsFromManyThreadsAreDistinct) {
  test::TempRoot root;
  StringDB db(root.root(), "texts", 30, 3);
  std::vector<std::vector<int>> got(4);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 50; ++i) {
        int slot = db.GetNextAvailableSlotIndex();
        got[t].push_back(slot);
        db.WriteStringSlot(&slot, CString("text"));
      }
    });
  }
  for (std::thread& th : threads) th.join();
  std::set<int> all;
  for (auto& v : got) all.insert(v.begin(), v.end());
  EXPECT_EQ(200u, all.size());
  EXPECT_GE(db.GetTotalSlotCount(), 200);
}

}  // namespace
}  // namespace kordll
