// A scan for a word gives every record that may hold it, and of the records
// stored whole in one slot only those that do.

#include "kordll/record/StoredWordTest.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RelationsEntryPoints.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

class StoredWordTestTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(root_.ok());
    tmpl_.AddField(0, 20, 4, "", "guid", 0, 0);
    tmpl_.AddField(4, 30, 4, "", "title", 0, 0);
    tmpl_.AddField(5, 30, 4, "", "author", 0, 0);
    RelationsEntryPoints::SetTemplate(4, &tmpl_);
    AZeusDB db(root_.root(), "words", 10, 0);
    for (size_t i = 0; i < kTitles.size(); ++i) {
      Focusable r(4, nullptr);
      r.SetValueStr(0, CString(std::to_string(i).c_str()), 1);
      r.SetValueStr(4, CString(kTitles[i]), 1);
      r.SetValueStr(5, CString(i == 1 ? "by the Harbour" : "anon"), 1);
      ASSERT_EQ(1, db.writeFocusableSlot(&r, nullptr, nullptr));
    }
  }
  void TearDown() override { RelationsEntryPoints::ClearTemplates(); }

  // The titles the scan gives, by index, each checked whole.
  std::set<int> Scan(StoredWordTest* test) {
    AZeusDB db(root_.root(), "words", 10, 0);
    DBTaskItem task;
    task.allFields = 1;
    task.wordTest = test;
    std::set<int> out;
    for (;;) {
      Focusable r(-1, nullptr);
      if (!db.readFocusableSlot(&r, nullptr, &task)) break;
      const int i = std::stoi(r.GetFieldString(0, 0).ToUtf8());
      EXPECT_EQ(CString(kTitles[i]), r.GetFieldString(4, 0)) << i;
      out.insert(i);
    }
    EXPECT_EQ(AZeusDB::kErrNoEntry, db.GetLastDBErrorMsgCode());
    return out;
  }

  // Titles of 30 bytes at most fit one slot; 5 and 6 go on into a second.
  const std::vector<const char*> kTitles = {
      "Harbour lights",
      "the HARBOUR at night",
      "nothing to see, harbor",
      "caf\u00e9 by the harbour",
      "\u0130stanbul \u212Aelvin",
      "a title long enough to go on into a second slot, harbour",
      "a title long enough to go on into a second slot, nothing",
      "m\u00fcnchen \x7f harbou r"};
  test::TempRoot root_;
  RGDBTemplate tmpl_{4};
};

TEST_F(StoredWordTestTest, ScanGivesWhatMayHoldTheWordAndPassesOverTheRest) {
  StoredWordTest harbour(CString("HarBour"), 0, {4});
  EXPECT_EQ((std::set<int>{0, 1, 3, 5, 6}), Scan(&harbour));
  StoredWordTest exact(CString("Harbour"), 1, {4});
  EXPECT_EQ((std::set<int>{0, 5, 6}), Scan(&exact));
  // Lowering maps the capital dotted I and the Kelvin sign into ASCII.
  StoredWordTest kelvin(CString("ISTANBUL kelvin"), 0, {4});
  EXPECT_EQ((std::set<int>{4, 5, 6}), Scan(&kelvin));
  // The author of record 1 is searched too.
  StoredWordTest author(CString("by the"), 0, {4, 5});
  EXPECT_EQ((std::set<int>{1, 3, 5, 6}), Scan(&author));
  // A word the bytes cannot tell passes everything; a read by slot is given.
  StoredWordTest beyond(CString("m\xc3\xbcnchen"), 0, {4});
  EXPECT_EQ(kTitles.size(), Scan(&beyond).size());
  AZeusDB db(root_.root(), "words", 10, 0);
  DBTaskItem task;
  task.allFields = 1;
  task.wordTest = &harbour;
  Focusable r(-1, nullptr);
  r.SetDBSlotIndex(2);
  EXPECT_EQ(1, db.readFocusableSlot(&r, nullptr, &task));
}

TEST(StoredWordTestAreas, MarkedAreasAreSearchedAsTheyDecode) {
  StoredWordTest test(CString("ab"), 0, {4});
  auto holds = [&](const std::string& a) {
    return test.MayHold(reinterpret_cast<const unsigned char*>(a.data()), a.size());
  };
  // Up to the first NUL; no text when the area begins with one; the 8-bit
  // reading leaves out only the blanks of the first two bytes; a two-byte
  // (overlong) A is a letter of the multi-byte reading.
  EXPECT_TRUE(holds(std::string("  xAB\0\0", 7)));
  EXPECT_FALSE(holds(std::string("  x\0ab", 6)));
  EXPECT_FALSE(holds(std::string("\0 ab", 4)));
  EXPECT_TRUE(holds(std::string("a b\0", 4)));
  EXPECT_TRUE(holds(std::string("!:\xc1\x81\x62", 5)));
  EXPECT_FALSE(holds(std::string("!:a\u00e9\x62", 6)));
}

}  // namespace
}  // namespace kordll
