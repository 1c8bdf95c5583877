// Damaged record and string files, each made from the valid one in
// tests/record/data by a small edit, go through the engines and through
// `kordll kdb check` / `kordll sdb check`: the engines fail with their error
// codes and keep working, the checker names a problem. And `kordll kdb dump`
// shows records field by field with the keys and types of the relation
// catalogue.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "kordll/platform/FileSystem.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/KdbExaminer.h"
#include "kordll/record/StringDB.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/schema/Relation.h"
#include "tests/record/FocusableTestSupport.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

std::string DataDir() { return std::string(KORDLL_SOURCE_DIR) + "/tests/record/data/"; }

std::string Load(const std::string& name) {
  std::string bytes;
  FileSystem::ReadWholeFile(CString((DataDir() + name).c_str()), &bytes);
  return bytes;
}

// Runs the built tool, its output going to the file out, and gives its exit status.
int Tool(const std::string& args, const std::string& out = "/dev/null") {
  const int status = std::system(
      ("'" + std::string(KORDLL_TOOL_PATH) + "' " + args + " >'" + out + "' 2>/dev/null").c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -2;
}

// One kind of damage: `count` bytes at `at` of the valid file replaced by
// `text` (count npos with no text cuts the file there).
struct Damage {
  const char* what;
  size_t at;
  size_t count;
  std::string text;
};

std::string Damaged(const char* valid, const Damage& d) {
  return Load(valid).replace(d.at, d.count, d.text);
}

class DamagedFilesTest : public ::testing::Test {
 protected:
  // Puts bytes in the test folder as name, in place of what was there.
  void Put(const char* name, const std::string& bytes) {
    FileSystem::DeleteFile(root_.Path(name));
    ASSERT_EQ(1, FileSystem::WriteWholeFile(root_.Path(name), bytes));
  }
  std::string Get(const char* name) {
    std::string bytes;
    FileSystem::ReadWholeFile(root_.Path(name), &bytes);
    return bytes;
  }
  // A new record of relation 4 with a GUID and, if given, a title.
  static std::unique_ptr<Focusable> Fresh(const char* title = nullptr) {
    auto record = std::make_unique<Focusable>(4, nullptr);
    record->SetValueStr(0, "R3_G9", 1);
    if (title != nullptr) record->SetValueStr(4, title, 1);
    return record;
  }
  // Scans every record, passing over bad slots (error 3) as the activity
  // list does; returns the records read and the final error.
  std::pair<int, int> Scan(AZeusDB* db) {
    DBTaskItem task;
    task.allFields = 1;
    int count = 0;
    for (int i = 0; i < 1000; ++i) {
      Focusable record(-1, nullptr);
      if (db->readFocusableSlot(&record, nullptr, &task)) {
        ++count;
      } else if (db->GetLastDBErrorMsgCode() != AZeusDB::kErrRead) {
        break;
      }
    }
    return {count, db->GetLastDBErrorMsgCode()};
  }

  test::TempRoot root_;
  test::PostLayout layout_;
};

TEST_F(DamagedFilesTest, ValidFilesReadWholeAndCheckClean) {
  Put("f.kdb", Load("valid.kdb"));
  AZeusDB db(root_.root(), "f", 10, 0);
  EXPECT_EQ(std::make_pair(3, static_cast<int>(AZeusDB::kErrNoEntry)), Scan(&db));
  std::ostringstream out;
  EXPECT_EQ(0, KdbExaminer::CheckKdb(Load("valid.kdb"), out)) << out.str();
  EXPECT_EQ(0, KdbExaminer::CheckSdb(Load("valid.sdb"), out)) << out.str();
  EXPECT_EQ(0, Tool("kdb check '" + DataDir() + "valid.kdb'"));
  // The tools answer 1 for a damaged file (one damaged by a cut each).
  Put("f.kdb", Load("valid.kdb").substr(0, 1271));
  EXPECT_EQ(1, Tool("kdb check '" + root_.Path("f.kdb").ToUtf8() + "'"));
  Put("s.sdb", Load("valid.sdb").substr(0, 100));
  EXPECT_EQ(1, Tool("sdb check '" + root_.Path("s.sdb").ToUtf8() + "'"));
}

TEST_F(DamagedFilesTest, DamagedRecordFilesFailCleanly) {
  const size_t kCut = std::string::npos;
  struct Case {
    Damage damage;
    int records;   // records a scan still reads
    int refused;   // the error every save answers with, 0 when saves go on
    int open = 0;  // what opening answers (and leaves as the last error)
  } cases[] = {
      {{"truncated header", 500, kCut, ""}, 0, 3, AZeusDB::kErrRead},
      {{"truncated sub-table", 1271, kCut, ""}, 1, 0},
      {{"broken state bracket", 1042, 1, "x"}, 0, 2},
      {{"slot count 41", 1004, 1, "1"}, 0, 2},
      {{"absurd field count", 1009, 11, "99999999:4]"}, 0, 3},
      {{"length too big", 1095, 2, "99999"}, 0, 2},
      {{"version 10", 2, 1, "0"}, 3, 0, AZeusDB::kErrVersion},  // reads go on
      {{"chain to itself", 1191, 1, "1"}, 2, 0},
      {{"chain outside the file", 1191, 9, "999:0:-1]"}, 1, 0},
      {{"chain to a free slot", 1191, 8, "30:0:-1]"}, 2, 0},
      {{"slot header garbage", 1188, 25, "garbage header here      "}, 2, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.damage.what);
    const std::string bytes = Damaged("valid.kdb", c.damage);
    std::ostringstream out;
    EXPECT_GT(KdbExaminer::CheckKdb(bytes, out), 0);
    Put("f.kdb", bytes);
    AZeusDB db(root_.root(), "f", 10, 0);
    EXPECT_EQ(c.open, db.openDB(0));
    EXPECT_EQ(c.open, db.GetLastDBErrorMsgCode());
    db.closeDB();
    EXPECT_EQ(c.records, Scan(&db).first);
    auto fresh = Fresh("after the damage");
    if (c.refused != 0) {
      // A damaged file is never made worse: saves and deletes are refused.
      EXPECT_EQ(0, db.writeFocusableSlot(fresh.get(), nullptr, nullptr));
      EXPECT_EQ(c.refused, db.GetLastDBErrorMsgCode());
      fresh->SetDBSlotIndex(0);
      EXPECT_EQ(0, db.deleteFocusableSlot(fresh.get(), nullptr, nullptr));
      EXPECT_EQ(c.refused, db.GetLastDBErrorMsgCode());
      EXPECT_TRUE(bytes == Get("f.kdb"));
      continue;
    }
    // Otherwise the engine goes on working: a new record is saved and read back.
    ASSERT_NE(0, db.writeFocusableSlot(fresh.get(), nullptr, nullptr));
    EXPECT_EQ("after the damage", test::ReadField(&db, fresh->GetDBSlotIndex()));
  }
}

// A file of one sub-table for relation 4, laid out for fields field lengths.
std::string OneSubTable(const std::string& header, int fields, const std::string& lengths,
                        int slotSize) {
  std::string bytes = header;
  bytes.resize(999, '\0');
  bytes += '\n';
  std::string line = "[0:40:" + std::to_string(slotSize) + ":" + std::to_string(fields) + ":4]";
  line.resize(42, '\0');
  bytes += line + "[" + std::string(40, '0') + "]";
  std::string block = lengths;
  block.resize(6 * fields, '\0');
  bytes += fields == 0 ? std::string("[") : block + "\n";
  std::string slot = "[-1:-1:-1:-1]";
  slot.resize(slotSize - 1, '\0');
  for (int i = 0; i < 40; ++i) bytes += slot + "\n";
  return bytes;
}

TEST_F(DamagedFilesTest, SubTableOfAnotherFieldCountIsNeverWrittenInto) {
  struct Geometry {
    int fields;
    const char* lengths;
    int slotSize;
    int refused;  // 0: the save goes to a new sub-table
  };
  for (const Geometry& g : {Geometry{0, "", 28, 2}, Geometry{2, "[10,10]", 50, 0}}) {
    SCOPED_TRACE(g.fields);
    const std::string bytes = OneSubTable("[11:-1:]", g.fields, g.lengths, g.slotSize);
    Put("f.kdb", bytes);
    AZeusDB db(root_.root(), "f", 10, 0);
    auto fresh = Fresh("a title");
    const int saved = db.writeFocusableSlot(fresh.get(), nullptr, nullptr);
    const std::string after = Get("f.kdb");
    // The odd sub-table is untouched (the header may gain statistics).
    EXPECT_TRUE(after.size() >= bytes.size() &&
                after.compare(1000, bytes.size() - 1000, bytes, 1000) == 0);
    if (g.refused != 0) {
      EXPECT_EQ(0, saved);
      EXPECT_EQ(g.refused, db.GetLastDBErrorMsgCode());
      EXPECT_EQ(bytes.size(), after.size());
      continue;
    }
    ASSERT_EQ(1, saved);
    EXPECT_EQ(40, fresh->GetDBSlotIndex());
    EXPECT_EQ("a title", test::ReadField(&db, 40));
  }
}

// Sub-table ids run as far as global slot indexes (40 x id + place) stay
// ints; a line with a larger id is damage, and the file is not written to.
TEST_F(DamagedFilesTest, SubTableIdsRunToTheSlotIndexLimit) {
  // Relation 4: lengths 20, 10, 0, 0, 10, slot size 73; in place 3 the
  // one-slot record of the valid file's first place.
  const std::string slot = Load("valid.kdb").substr(1000 + 115, 73);
  const int kLimit = (2147483647 - 39) / 40;
  struct IdCase {
    std::string id;
    int64_t slot;  // -1: refused
  };
  for (const IdCase& c :
       {IdCase{"70000", 70000 * 40 + 3}, IdCase{std::to_string(kLimit), kLimit * int64_t{40} + 3},
        IdCase{std::to_string(kLimit + 1), -1}, IdCase{"99999999999", -1}}) {
    SCOPED_TRACE(c.id);
    std::string bytes = OneSubTable("[11:-1:]", 5, "[20,10,0,0,10]", 73);
    std::string line = "[" + c.id + ":40:73:5:4]";
    line.resize(42, '\0');
    bytes.replace(1000, 42, line);
    bytes[1000 + 42 + 1 + 3] = '1';
    bytes.replace(1000 + 115 + 3 * 73, 73, slot);
    Put("f.kdb", bytes);
    std::ostringstream out;
    EXPECT_EQ(c.slot<0, KdbExaminer::CheckKdb(bytes, out)> 0) << out.str();
    AZeusDB db(root_.root(), "f", 10, 0);
    auto fresh = Fresh();
    if (c.slot < 0) {
      EXPECT_EQ(0, db.writeFocusableSlot(fresh.get(), nullptr, nullptr));
      EXPECT_EQ(AZeusDB::kErrCorrupted, db.GetLastDBErrorMsgCode());
      EXPECT_TRUE(bytes == Get("f.kdb"));
      continue;
    }
    EXPECT_EQ("short", test::ReadField(&db, static_cast<int>(c.slot)));
    // A new record takes the first free place of that sub-table.
    ASSERT_EQ(1, db.writeFocusableSlot(fresh.get(), nullptr, nullptr));
    EXPECT_EQ(c.slot - 3, fresh->GetDBSlotIndex());
  }
}

TEST_F(DamagedFilesTest, RecordCountAtTheLimitStaysThere) {
  std::string bytes = "[11:-1:4;2147483647;5;1;0;0;4]";
  bytes.resize(999, '\0');
  Put("f.kdb", bytes + "\n");
  AZeusDB db(root_.root(), "f", 10, 1);
  ASSERT_EQ(1, db.writeFocusableSlot(Fresh().get(), nullptr, nullptr));
  const std::string after = Get("f.kdb");
  EXPECT_EQ(0, after.compare(0, 21, "[11:-1:4;2147483647;5")) << after.substr(0, 40);
}

TEST_F(DamagedFilesTest, NamesThatLeaveTheFolderAreRefused) {
  ASSERT_EQ(1, FileSystem::CreateDirectory(root_.Path("in")));
  for (const char* name : {"../x", "", ".", "..", "a/b", "x\x01y"}) {
    SCOPED_TRACE(name);
    AZeusDB db(root_.Path("in"), CString(name), 10, 0);
    EXPECT_EQ(AZeusDB::kErrRead, db.openDB(0));
    db.closeDB();
    EXPECT_EQ(0, db.writeFocusableSlot(Fresh().get(), nullptr, nullptr));
    EXPECT_EQ(AZeusDB::kErrRead, db.GetLastDBErrorMsgCode());
    db.clearDB();
    db.deleteDB();
  }
  AZeusDB good(root_.Path("in"), "good", 10, 0);
  ASSERT_EQ(0, good.openDB(0));
  good.closeDB();
  good.renameDB("../y", root_.Path("in"));
  EXPECT_EQ(AZeusDB::kErrRead, good.GetLastDBErrorMsgCode());
  EXPECT_EQ(root_.Path("in/good.kdb"), good.GetDBPath());
  std::vector<std::string> made;
  for (const char* path : {"x.kdb", "y.kdb", "in/.kdb", "in/..kdb", "in/...kdb", "in/a"}) {
    if (FileSystem::Exists(root_.Path(path))) made.push_back(path);
  }
  EXPECT_EQ(std::vector<std::string>{}, made);
  EXPECT_TRUE(FileSystem::Exists(root_.Path("in/good.kdb")));
}

TEST_F(DamagedFilesTest, DamagedStringFilesFailCleanly) {
  using namespace std::string_literals;
  struct Case {
    Damage damage;
    bool refused;   // an impossible slot size: no new text is taken
    int readError;  // of the first slot
  } cases[] = {
      {{"truncated", 100, std::string::npos, ""}, false, 3},
      {{"slot size 3", 7, 2, "]\0"s}, true, 2},
      {{"slot size absurd", 6, 11, "2000000000]"}, true, 2},
      {{"chain to itself", 73, 1, "1"}, false, 3},
      {{"chain outside the file", 23, 9, "99999:-1]"}, false, 3},
      {{"chain to a free slot", 23, 1, "3"}, false, 3},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.damage.what);
    const std::string bytes = Damaged("valid.sdb", c.damage);
    std::ostringstream out;
    EXPECT_GT(KdbExaminer::CheckSdb(bytes, out), 0);
    Put("s.sdb", bytes);
    StringDB db(root_.root(), "s", 30, 4);
    CString text;
    EXPECT_EQ(0, db.ReadStringSlot(0, text));
    EXPECT_EQ(c.readError, db.GetLastDBErrorMsgCode());
    int slot = -1;
    const int used = db.WriteStringSlot(&slot, CString("still works"));
    EXPECT_EQ(c.refused ? 0 : 1, used);
    if (c.refused) {
      EXPECT_EQ(2, db.GetLastDBErrorMsgCode());
    }
    CString back;
    EXPECT_EQ(!c.refused, db.ReadStringSlot(slot, back) == 1 && back == CString("still works"));
  }
}

// --- kdb dump ---------------------------------------------------------------------

// The tool takes the layout from the relation catalogue.
TEST(KdbDumpTest, ToolUsesTheRelationCatalogue) {
  test::TempRoot root;
  ASSERT_TRUE(root.ok());
  GlobalRelationsCtrl catalogue;
  Relation* post = catalogue.GetRelation(4);
  ASSERT_NE(nullptr, post);
  const std::string title_key = post->GetFieldDecorationName(4).ToUtf8();
  ASSERT_FALSE(title_key.empty());
  // A field without a key shows that it has none.
  std::string status_key = post->GetFieldDecorationName(1).ToUtf8();
  if (status_key.empty()) status_key = "(no key)";
  {
    AZeusDB db(root.root(), "posts", 10, 0);
    Focusable record(4, nullptr);
    record.SetValueStr(0, CString("R3_G7"), 1);
    record.SetValueInt(1, 5, 1);
    record.SetValueStr(4,
                       CString("Gr\xc3\xbc\xc3\x9f"
                               "e aus M\xc3\xbcnchen"),
                       1);
    ASSERT_NE(0, db.writeFocusableSlot(&record, nullptr, nullptr));
  }
  const std::string file = root.Path("posts.kdb").ToUtf8();
  const std::string dump = root.Path("dump.txt").ToUtf8();
  EXPECT_EQ(0, Tool("kdb dump '" + file + "'", dump));
  std::string out;
  ASSERT_TRUE(FileSystem::ReadWholeFile(CString(dump.c_str()), &out));
  EXPECT_NE(std::string::npos, out.find("  field 4 " + title_key +
                                        " (string): Gr\xc3\xbc\xc3\x9f"
                                        "e aus M\xc3\xbcnchen\n"))
      << out;
  EXPECT_NE(std::string::npos, out.find("  field 1 " + status_key + " (int): 5\n")) << out;
}

}  // namespace
}  // namespace kordll
