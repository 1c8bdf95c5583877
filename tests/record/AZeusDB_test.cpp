// Behaviour of the record database engine and of the string database,
// checked on the bytes of the file;
// and the file's exact read against pending writes.

#include "kordll/record/AZeusDB.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "kordll/platform/FileSystem.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/KdbExaminer.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RelationsEntryPoints.h"
#include "kordll/record/SlotFile.h"
#include "kordll/record/StringDB.h"
#include "tests/record/FocusableTestSupport.h"
#include "tests/support/FaultEnv.h"
#include "tests/support/MemEnv.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

// Relation 4 as the shared post layout (title of length 10); relation 7
// with the GUID and status only.
class AZeusDBTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(root_.ok());
    other_.AddField(0, 20, 4, "", "guid", 0, 0);
    other_.AddField(1, 10, 0, "", "status", 0, 0);
    RelationsEntryPoints::SetTemplate(7, &other_);
    db_ = std::make_unique<AZeusDB>(root_.root(), "test", 10, 0);
  }
  void TearDown() override {
    for (Focusable* r : records_) delete r;
    db_.reset();
  }

  Focusable* NewRecord(int relation, const char* guid, int status, const char* title) {
    Focusable* r = new Focusable(relation, nullptr);
    records_.push_back(r);
    r->SetValueStr(0, guid, 1);
    r->SetValueInt(1, status, 1);
    if (title != nullptr) r->SetValueStr(4, title, 1);
    return r;
  }
  Focusable* Blank() {
    Focusable* r = new Focusable(-1, nullptr);
    records_.push_back(r);
    return r;
  }
  // Field `field` of the record at slot as db reads it, or "<error N>".
  std::string Read(int slot, AZeusDB* db = nullptr, int field = 4) {
    return test::ReadField(db != nullptr ? db : db_.get(), slot, field);
  }

  std::string Bytes() {
    std::string out;
    FileSystem::ReadWholeFile(root_.Path("test.kdb"), &out);
    return out;
  }
  // Sub-table 0 of relation 4: f = 5 (fields 0..4, holes 2 and 3 of length
  // 0), S = 20 + 10 + 10 + 5 + 28 = 73, header 42 + 42 + 31 = 115.
  static constexpr int kFirstSlot = 1000 + 115;
  static constexpr int kSlotSize = 73;
  const std::string kFreeSlot = std::string("[-1:-1:-1:-1]") + std::string(59, '\0') + "\n";
  std::string Slot(int place) { return Bytes().substr(kFirstSlot + kSlotSize * place, kSlotSize); }
  char State(int place) { return Bytes()[1000 + 42 + 1 + place]; }
  std::string Area(int place, int offset, int length) {
    return Slot(place).substr(25 + 7 + offset, length);
  }

  test::TempRoot root_;
  test::FaultEnv faults_{Env::Current()};
  ScopedEnv use_faults_{&faults_};
  test::PostLayout layout_;
  RGDBTemplate other_{7};
  std::unique_ptr<AZeusDB> db_;
  std::vector<Focusable*> records_;
};

TEST_F(AZeusDBTest, FirstWriteAppendsSubTableAndTakesSlotZero) {
  Focusable* r = NewRecord(4, "R3_G1", 2, "hello");
  ASSERT_EQ(1, db_->writeFocusableSlot(r, nullptr, nullptr));
  EXPECT_EQ(0, r->GetDBSlotIndex());
  EXPECT_EQ(0, r->NeedToSave());
  const std::string bytes = Bytes();
  ASSERT_EQ(static_cast<size_t>(kFirstSlot + 40 * kSlotSize), bytes.size());
  EXPECT_EQ(std::string("[0:40:73:5:4]") + std::string(29, '\0'), bytes.substr(1000, 42));
  EXPECT_EQ(std::string("[4:-1:0:-1]") + std::string(14, '\0'), Slot(0).substr(0, 25));
  EXPECT_EQ(std::string("  hello") + std::string(3, '\0'), Area(0, 30, 10));
  // A free slot: free header, NUL, newline.
  EXPECT_EQ(kFreeSlot, Slot(1));
}

TEST_F(AZeusDBTest, LongStringChainsAndShrinksInTwoSaves) {
  Focusable* r = NewRecord(4, "R3_G1", 2, "abcdefghijklmnopqrstuvwxy");  // 25 characters
  ASSERT_EQ(1, db_->writeFocusableSlot(r, nullptr, nullptr));
  // 8 + 8 + 8 + 1 characters in four slots, sequence 0 to 3.
  EXPECT_EQ("  abcdefgh", Area(0, 30, 10));
  EXPECT_EQ(std::string("  y") + std::string(7, '\0'), Area(3, 30, 10));
  EXPECT_EQ(std::string("[4:-1:3:2]"), Slot(3).substr(0, 10));
  EXPECT_EQ("abcdefghijklmnopqrstuvwxy", Read(0));

  // Shortening walks the whole chain: the tail is blanked but stays linked.
  r->SetValueStr(4, "short", 1);
  ASSERT_EQ(1, db_->writeFocusableSlot(r, nullptr, nullptr));
  EXPECT_EQ("[11001]", Slot(0).substr(25, 7));
  EXPECT_EQ("[00000]", Slot(1).substr(25, 7));
  EXPECT_EQ(std::string("  ") + std::string(8, '\0'), Area(1, 30, 10));

  // The next save of that field ends at the head and frees the tail.
  r->SetValueStr(4, "tiny", 1);
  ASSERT_EQ(1, db_->writeFocusableSlot(r, nullptr, nullptr));
  EXPECT_EQ(std::string("[4:-1:0:-1]"), Slot(0).substr(0, 11));
  for (int place = 1; place <= 3; ++place) {
    EXPECT_EQ('0', State(place));
    EXPECT_EQ(kFreeSlot, Slot(place));
  }
  // Freed slots are reused by the next record.
  Focusable* next = NewRecord(4, "R3_G2", 2, "x");
  ASSERT_EQ(1, db_->writeFocusableSlot(next, nullptr, nullptr));
  EXPECT_EQ(1, next->GetDBSlotIndex());
}

TEST_F(AZeusDBTest, MultiByteCharactersAndAreaFit) {
  // U+00E9 takes two bytes, U+20AC three; "!:" marks the piece.
  Focusable* r = NewRecord(4, "R3_G1", 2, nullptr);
  r->SetValueStr(4, CString(u"\u00e9\u20ac\u20acz"), 1);
  ASSERT_EQ(1, db_->writeFocusableSlot(r, nullptr, nullptr));
  // 2 + 2 + 3 = 7 bytes used; a second euro needs L > 7 + 3: it goes on.
  EXPECT_EQ(std::string("!:\xC3\xA9\xE2\x82\xAC\0\0\0", 10), Area(0, 30, 10));
  EXPECT_EQ(std::string("!:\xE2\x82\xACz\0\0\0", 10), Area(1, 30, 10));
  EXPECT_EQ(CString(u"\u00e9\u20ac\u20acz").ToUtf8(), Read(0));
}

TEST_F(AZeusDBTest, ReadErrors) {
  ASSERT_EQ(1, db_->writeFocusableSlot(NewRecord(4, "R3_G1", 2, "a"), nullptr, nullptr));
  // A negative slot, a slot of no sub-table, a free slot.
  const std::string noEntry = "<error " + std::to_string(AZeusDB::kErrNoEntry) + ">";
  EXPECT_EQ(noEntry, Read(-2));
  EXPECT_EQ(noEntry, Read(400));
  EXPECT_EQ("<error " + std::to_string(AZeusDB::kErrEmptyRead) + ">", Read(5));
  EXPECT_EQ(CString("Empty Read!"), db_->GetLastDBErrorMsg());
}

TEST_F(AZeusDBTest, DeleteFreesChainAndScanSkipsIt) {
  Focusable* a = NewRecord(4, "R3_G1", 2, "abcdefghijklmnop");
  Focusable* b = NewRecord(4, "R3_G2", 2, "b");
  ASSERT_EQ(1, db_->writeFocusableSlot(a, nullptr, nullptr));
  ASSERT_EQ(1, db_->writeFocusableSlot(b, nullptr, nullptr));
  EXPECT_EQ(2, b->GetDBSlotIndex());
  ASSERT_EQ(1, db_->deleteFocusableSlot(a, nullptr, nullptr));
  EXPECT_EQ('0', State(0));
  EXPECT_EQ('0', State(1));
  EXPECT_EQ("<error " + std::to_string(AZeusDB::kErrEmptyRead) + ">", Read(0));
  // A scan of a new engine passes over the freed slots and ends with "no entry".
  AZeusDB again(root_.root(), "test", 10, 0);
  DBTaskItem task;
  task.allFields = 1;
  Focusable* s = Blank();
  ASSERT_EQ(1, again.readFocusableSlot(s, nullptr, &task));
  EXPECT_EQ(2, s->GetDBSlotIndex());
  EXPECT_EQ(1, s->IsFullyLoaded(0));
  EXPECT_EQ(CString("b"), s->GetFieldString(4, 0));
  EXPECT_EQ(0, again.readFocusableSlot(Blank(), nullptr, &task));
  EXPECT_EQ(CString("No Valid Entry!"), again.GetLastDBErrorMsg());
}

TEST_F(AZeusDBTest, SubTablesFillAndRelationsStayApart) {
  for (int i = 0; i < 40; ++i) {
    ASSERT_EQ(1, db_->writeFocusableSlot(NewRecord(4, "R3_G1", 2, "t"), nullptr, nullptr));
  }
  Focusable* r41 = NewRecord(4, "R3_G41", 2, "t");
  ASSERT_EQ(1, db_->writeFocusableSlot(r41, nullptr, nullptr));
  EXPECT_EQ(40, r41->GetDBSlotIndex());
  Focusable* other = NewRecord(7, "R5_G1", 1, nullptr);
  ASSERT_EQ(1, db_->writeFocusableSlot(other, nullptr, nullptr));
  EXPECT_EQ(80, other->GetDBSlotIndex());  // a sub-table of its own
  std::vector<_struct_SubTableInfo> infos = db_->GetSubTableInfos();
  ASSERT_EQ(3u, infos.size());
  EXPECT_EQ(7, infos[2].relation);
}

TEST_F(AZeusDBTest, KnownSlotIndexExpandsUpToItsSubTable) {
  Focusable* far = NewRecord(4, "R3_G1", 2, "x");
  far->SetDBSlotIndex(40 * 25);
  EXPECT_EQ(0, db_->writeFocusableSlot(far, nullptr, nullptr));
  EXPECT_EQ(AZeusDB::kErrNoEntry, db_->GetLastDBErrorMsgCode());
  Focusable* near = NewRecord(4, "R3_G2", 2, "x");
  near->SetDBSlotIndex(40 * 19 + 3);
  EXPECT_EQ(1, db_->writeFocusableSlot(near, nullptr, nullptr));
  EXPECT_EQ(20u, db_->GetSubTableInfos().size());
}

TEST_F(AZeusDBTest, OptimumLengthsAfterReopeningNeverCutAText) {
  db_ = std::make_unique<AZeusDB>(root_.root(), "test", 10, 1);
  ASSERT_EQ(1, db_->writeFocusableSlot(NewRecord(4, "R3_G1", 2, "abc"), nullptr, nullptr));
  std::vector<Focusable*> full;  // relation 7 fills its sub-table
  for (int i = 0; i < 40; ++i) full.push_back(NewRecord(7, "R5_G1", 1, nullptr));
  ASSERT_EQ(1, db_->writeFocusablesSlot(&full, nullptr, nullptr));
  // Reopened, only the statistics of relation 4 come back; the longer text
  // needs a new sub-table of relation 7.
  db_ = std::make_unique<AZeusDB>(root_.root(), "test", 10, 1);
  const std::string longer(35, 'g');
  Focusable* r = NewRecord(7, longer.c_str(), 1, nullptr);
  r->SetDBSlotIndex(full[0]->GetDBSlotIndex());
  ASSERT_EQ(1, db_->writeFocusableSlot(r, nullptr, nullptr));
  AZeusDB again(root_.root(), "test", 10, 1);
  EXPECT_EQ(longer, Read(r->GetDBSlotIndex(), &again, 0));
}

TEST_F(AZeusDBTest, ClearEmptiesTheFileAndARecordSavedAfterItIsFoundAfterReopening) {
  ASSERT_EQ(1, db_->writeFocusableSlot(NewRecord(4, "R3_G1", 2, "before"), nullptr, nullptr));
  db_->clearDB();
  EXPECT_EQ(std::string("[11:-1:]") + std::string(991, '\0') + "\n", Bytes());
  Focusable* r = NewRecord(4, "R3_G2", 2, "after");
  ASSERT_EQ(1, db_->writeFocusableSlot(r, nullptr, nullptr));
  EXPECT_EQ(0, r->GetDBSlotIndex());
  AZeusDB again(root_.root(), "test", 10, 0);
  EXPECT_EQ("after", Read(r->GetDBSlotIndex(), &again));
}

TEST_F(AZeusDBTest, HeaderWritesThatFailAreReportedAndAFailedDeleteCountsAsDone) {
  faults_.Arm(test::FaultEnv::kWrite, 0, test::FaultEnv::kForever, "test.kdb");
  EXPECT_EQ(AZeusDB::kErrWrite, db_->openDB(0));  // the new file's header
  db_->closeDB();
  faults_.DisarmAll();
  ASSERT_EQ(1, FileSystem::DeleteFile(root_.Path("test.kdb")));
  Focusable* kept = NewRecord(4, "R3_G1", 2, "kept");
  ASSERT_EQ(1, db_->writeFocusableSlot(kept, nullptr, nullptr));
  // A new sub-table reaches the file, the header written with it does not.
  faults_.Arm(test::FaultEnv::kWrite, 1, 1, "test.kdb");
  EXPECT_EQ(0, db_->writeFocusableSlot(NewRecord(7, "R5_G1", 1, nullptr), nullptr, nullptr));
  EXPECT_EQ(AZeusDB::kErrWrite, db_->GetLastDBErrorMsgCode());
  faults_.DisarmAll();
  // A delete answers done whatever its writes report. None of them reached
  // the file, so the record is still there, for this engine as for a new one.
  faults_.Arm(test::FaultEnv::kWrite, 0, test::FaultEnv::kForever, "test.kdb");
  EXPECT_EQ(1, db_->deleteFocusableSlot(kept, nullptr, nullptr));
  EXPECT_EQ(0, db_->GetLastDBErrorMsgCode());
  faults_.DisarmAll();
  std::ostringstream check;
  EXPECT_EQ(0, KdbExaminer::CheckKdb(Bytes(), check)) << check.str();
  AZeusDB reopened(root_.root(), "test", 10, 0);
  for (AZeusDB* db : {db_.get(), &reopened}) {
    EXPECT_EQ("kept", Read(0, db));
  }
  const std::vector<std::pair<const char*, std::function<void()>>> steps = {
      {"set id", [&] { db_->SetDBID(5, 1); }},
      {"update header", [&] { EXPECT_EQ(0, db_->updateDBHeader()); }},
      {"clear", [&] { db_->clearDB(); }},
  };
  for (const auto& [what, step] : steps) {
    SCOPED_TRACE(what);
    Read(0);  // leaves the last error at 0
    ASSERT_EQ(0, db_->GetLastDBErrorMsgCode());
    faults_.Arm(test::FaultEnv::kWrite, 0, test::FaultEnv::kForever, "test.kdb");
    step();
    faults_.DisarmAll();
    EXPECT_EQ(AZeusDB::kErrWrite, db_->GetLastDBErrorMsgCode());
  }
}

TEST_F(AZeusDBTest, ThreadsSaveDifferentRecords) {
  constexpr int kThreads = 4;
  constexpr int kPerThread = 60;
  std::vector<std::vector<Focusable*>> mine(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kPerThread; ++i) {
      mine[t].push_back(
          NewRecord(4, "R3_G1", t, ("thread " + std::to_string(t * 100 + i)).c_str()));
    }
  }
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (Focusable* r : mine[t]) ASSERT_EQ(1, db_->writeFocusableSlot(r, nullptr, nullptr));
      for (Focusable* r : mine[t]) {
        r->SetValueInt(1, 100 + t, 1);
        ASSERT_EQ(1, db_->writeFocusableSlot(r, nullptr, nullptr));
      }
    });
  }
  for (std::thread& th : threads) th.join();
  // Every record reads back, by a new engine, from its own slot.
  AZeusDB again(root_.root(), "test", 10, 0);
  for (int t = 0; t < kThreads; ++t) {
    for (Focusable* r : mine[t]) {
      EXPECT_EQ(r->GetFieldString(4, 0).ToUtf8(), Read(r->GetDBSlotIndex(), &again));
      EXPECT_EQ(std::to_string(100 + t), Read(r->GetDBSlotIndex(), &again, 1));
    }
  }
}

// --- Exact reads ----------------------------------------------------------------------

TEST(SlotFileExactReadTest, SeesPendingWrites) {
  test::MemEnv mem;
  ScopedEnv use(&mem);
  SlotFile file;
  ASSERT_EQ(1, file.Open(CString("/tmp/f.kdb"), SlotFile::kCreate, nullptr));
  // Three pages on disk, then writes that wait in the cache: one across a
  // page boundary and one past the end that leaves a gap.
  std::string model(3 * SlotFile::kPageSize, 'a');
  ASSERT_EQ(1, file.WriteAt(0, model.data(), static_cast<uint32_t>(model.size())));
  ASSERT_EQ(1, file.Flush());
  file.Close();
  ASSERT_EQ(1, file.Open(CString("/tmp/f.kdb"), SlotFile::kOpenReadWrite, nullptr));
  const std::string cross(100, 'b');
  ASSERT_EQ(1, file.WriteAt(SlotFile::kPageSize - 50, cross.data(), 100));
  model.replace(SlotFile::kPageSize - 50, 100, cross);
  const uint64_t far = 5 * SlotFile::kPageSize + 10;
  ASSERT_EQ(1, file.WriteAt(far, "zz", 2));
  model.resize(far, '\0');
  model += "zz";

  const uint64_t page = SlotFile::kPageSize;
  const std::pair<uint64_t, uint32_t> ranges[] = {
      {0, 30}, {page - 60, 200}, {2 * page + 7, 151}, {3 * page - 5, 100}, {0, 6 * page}};
  for (auto [offset, count] : ranges) {
    std::string got(count, '?');
    uint32_t n = 0;
    ASSERT_EQ(1, file.ReadExact(offset, got.data(), count, &n)) << offset;
    got.resize(n);
    EXPECT_EQ(model.substr(offset, count), got) << offset;
  }
}

// --- The string database -------------------------------------------------------------

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
    }
    CString text;
    EXPECT_EQ(0, db.ReadStringSlot(0, text));
    EXPECT_EQ(3, db.GetLastDBErrorMsgCode());
    EXPECT_EQ(20u, Bytes().size());
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
