// A scan that searches for a word passes over records on their stored
// bytes: it must give every record that holds the word, and of the records
// stored whole in one slot only those.

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
    tmpl_.AddField(1, 10, 0, "", "status", 0, 0);
    tmpl_.AddField(4, 30, 4, "", "title", 0, 0);
    tmpl_.AddField(5, 30, 4, "", "author", 0, 0);
    RelationsEntryPoints::SetTemplate(4, &tmpl_);
    AZeusDB db(root_.root(), "words", 10, 0);
    std::vector<Focusable*> batch;
    for (size_t i = 0; i < kTitles.size(); ++i) {
      auto* r = new Focusable(4, nullptr);
      r->SetValueStr(0, CString(std::to_string(i).c_str()), 1);
      r->SetValueStr(4, CString(kTitles[i]), 1);
      r->SetValueStr(5, CString(i == 1 ? "by the Harbour" : "anon"), 1);
      batch.push_back(r);
    }
    ASSERT_EQ(1, db.writeFocusablesSlot(&batch, nullptr, nullptr));
    for (Focusable* r : batch) delete r;
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
      EXPECT_EQ(4, r.GetFocusableRelation());
      out.insert(i);
    }
    EXPECT_EQ(AZeusDB::kErrNoEntry, db.GetLastDBErrorMsgCode());
    return out;
  }

  const std::vector<const char*> kTitles = {
      "Harbour lights",              // 0
      "the HARBOUR at night",        // 1
      "nothing to see",              // 2
      "caf\xc3\xa9 by the harbour",  // 3: beyond ASCII
      "\xc4\xb0stanbul",             // 4: capital I with dot
      "\xe2\x84\xaa"
      "elvin scale",                                               // 5: Kelvin sign
      "harbor",                                                    // 6
      "a title long enough to go on into a second slot, harbour",  // 7
      "a title long enough to go on into a second slot, nothing",  // 8
      "",                                                          // 9
      "m\xc3\xbcnchen \x7f harbou r",                              // 10
  };
  test::TempRoot root_;
  RGDBTemplate tmpl_{4};
};

TEST_F(StoredWordTestTest, ScanGivesWhatMayHoldTheWordAndPassesOverTheRest) {
  // Chained titles (7, 8) may hold any word: the scan gives them.
  StoredWordTest harbour(CString("HarBour"), 0, {4});
  EXPECT_EQ((std::set<int>{0, 1, 3, 7, 8}), Scan(&harbour));
  StoredWordTest exact(CString("Harbour"), 1, {4});
  EXPECT_EQ((std::set<int>{0, 7, 8}), Scan(&exact));
  // Lowering maps the capital dotted I and the Kelvin sign into ASCII.
  StoredWordTest istanbul(CString("ISTANBUL"), 0, {4});
  EXPECT_EQ((std::set<int>{4, 7, 8}), Scan(&istanbul));
  StoredWordTest kelvin(CString("kelvin"), 0, {4});
  EXPECT_EQ((std::set<int>{5, 7, 8}), Scan(&kelvin));
  // Several fields: the author of record 1 also names it.
  StoredWordTest two(CString("harbour"), 0, {4, 5});
  EXPECT_EQ((std::set<int>{0, 1, 3, 7, 8}), Scan(&two));
  StoredWordTest author(CString("by the"), 0, {5});
  EXPECT_EQ((std::set<int>{1}), Scan(&author));
  StoredWordTest nowhere(CString("zebra"), 0, {4});
  EXPECT_EQ((std::set<int>{7, 8}), Scan(&nowhere));
}

TEST_F(StoredWordTestTest, WordsTheBytesCannotTellPassEverything) {
  std::set<int> all;
  for (size_t i = 0; i < kTitles.size(); ++i) all.insert(static_cast<int>(i));
  StoredWordTest empty(CString(""), 0, {4});
  EXPECT_FALSE(empty.Usable());
  EXPECT_EQ(all, Scan(&empty));
  StoredWordTest beyond(CString("m\xc3\xbcnchen"), 0, {4});
  EXPECT_FALSE(beyond.Usable());
  EXPECT_EQ(all, Scan(&beyond));
  // A direct read of a slot is never passed over.
  StoredWordTest nowhere(CString("zebra"), 0, {4});
  AZeusDB db(root_.root(), "words", 10, 0);
  DBTaskItem task;
  task.allFields = 1;
  task.wordTest = &nowhere;
  Focusable r(-1, nullptr);
  r.SetDBSlotIndex(2);
  EXPECT_EQ(1, db.readFocusableSlot(&r, nullptr, &task));
  EXPECT_EQ(CString(kTitles[2]), r.GetFieldString(4, 0));
}

TEST(StoredWordTestAreas, MarkedAreasAreSearchedAsTheyDecode) {
  StoredWordTest test(CString("ab"), 0, {4});
  auto holds = [&](const std::string& area) {
    return test.MayHold(reinterpret_cast<const unsigned char*>(area.data()),
                        static_cast<int>(area.size()));
  };
  EXPECT_TRUE(holds(std::string("  xAB\0\0", 7)));
  // Past the first NUL nothing counts.
  EXPECT_FALSE(holds(std::string("  x\0ab", 6)));
  // An area that begins with NUL gives no text.
  EXPECT_FALSE(holds(std::string("\0 ab", 4)));
  // The 8-bit decoder leaves out only blanks in the first two bytes.
  EXPECT_TRUE(holds(std::string("a b\0", 4)));
  // Multi-byte: a two-byte A (overlong) decodes to a letter as well.
  EXPECT_TRUE(
      holds(std::string("!:\xc1\x81"
                        "b",
                        5)));
  EXPECT_FALSE(
      holds(std::string("!:a\xc3\xa9"
                        "b",
                        6)));
}

}  // namespace
}  // namespace kordll
