// Both stores under every kind of disk failure, on files in memory: the Nth
// operation of one kind fails, for N = 0, 1, 2, ... until the save under
// test completes, once for that operation alone and once for every one from
// it on. After each, what was saved before still reads back, a save that
// reported success reads back whole, and saving again after a failure puts
// the file right.
//
// The rollback journal of the stores, when the application turns it on (the
// record file here; the crash loop test kills both stores): a save that the
// disk cuts off half way is undone (also when undoing it had to wait for the
// next opening), a journal that cannot be written keeps the file as it was,
// one that cannot be removed is emptied and undoes nothing, and the disk is
// waited for only when the application asks.

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "kordll/platform/FileSystem.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/KdbExaminer.h"
#include "kordll/record/StringDB.h"
#include "tests/record/FocusableTestSupport.h"
#include "tests/support/FaultEnv.h"
#include "tests/support/MemEnv.h"

namespace kordll {
namespace {

using Fault = test::FaultEnv;
using test::PostLayout;
using test::ReadField;

constexpr char kKept[] = "kept before the save, over five slots";
constexpr char kNew[] = "written by the save, chained too";
constexpr int kMaxRounds = 300;

// A post of relation 4 with a GUID, status 1 and a title.
std::unique_ptr<Focusable> Post(const std::string& guid, const char* title) {
  auto post = std::make_unique<Focusable>(4, nullptr);
  post->SetValueStr(0, CString(guid.c_str()), 1);
  post->SetValueInt(1, 1, 1);
  post->SetValueStr(4, CString(title), 1);
  return post;
}

// Makes /tmp/name.kdb anew with one record of kKept, in the first slots.
void WriteKept(const char* name) {
  FileSystem::DeleteFile(CString("/tmp/") + name + ".kdb");
  AZeusDB db(CString("/tmp"), name, 10, 0);
  ASSERT_EQ(1, db.writeFocusableSlot(Post("R3_G1", kKept).get(), nullptr, nullptr));
  db.closeDB();
}

std::string Bytes(const char* name) {
  std::string bytes;
  EXPECT_EQ(1, FileSystem::ReadWholeFile(CString("/tmp/") + name, &bytes));
  return bytes;
}

// What the checker finds in /tmp/name (a record or a string file), one line each.
std::string Problems(const char* name) {
  std::ostringstream out;
  const std::string bytes = Bytes(name);
  const bool sdb = std::string(name).ends_with(".sdb");
  const int count = sdb ? KdbExaminer::CheckSdb(bytes, out) : KdbExaminer::CheckKdb(bytes, out);
  return count == 0 ? std::string() : "problems:\n" + out.str();
}

// What a save that stops half way may leave in a record file: slots whose
// header was written while their state was not, continuations whose head
// was never marked, and a new sub-table cut short. The engine passes over
// the first two and completes the sub-table at the next save.
bool OnlyLeftovers(const std::string& problems) {
  std::istringstream lines(problems);
  for (std::string line; std::getline(lines, line);) {
    if (line.find("is free in the states but its header is taken") == std::string::npos &&
        line.find("belongs to no record") == std::string::npos &&
        line.find("file ends inside the last sub-table") == std::string::npos &&
        line != "problems:") {
      return false;
    }
  }
  return true;
}

class StoreFaultsTest : public ::testing::TestWithParam<std::tuple<Fault::Kind, bool>> {
 protected:
  void Arm(int n) {
    faults_.Arm(std::get<0>(GetParam()), n,
                std::get<1>(GetParam()) ? Fault::kForever : Fault::kOnce);
  }
  // Disarms and says whether the armed fault was met.
  bool Disarm() {
    const bool hit = faults_.Injected(std::get<0>(GetParam())) > 0;
    faults_.DisarmAll();
    return hit;
  }

  test::MemEnv mem_;
  Fault faults_{&mem_};
  ScopedEnv use_{&faults_};
  const CString dir_{"/tmp"};
};

using AZeusDBStoreFaultsTest = StoreFaultsTest;

// Twelve records of four slots each after the five of the kept one: the
// first sub-table fills and a second one is made within the save. A failed
// save leaves every record to be saved again under failing writes, and
// answers with its error code. Saving the records once more after a failed
// save, by a new engine, completes the file with nothing left over.
TEST_P(AZeusDBStoreFaultsTest, SaveOfABatchSurvivesEveryFault) {
  PostLayout layout(10, 3000);
  WriteKept("faults");
  const std::string before = Bytes("faults.kdb");
  const bool writes = std::get<0>(GetParam()) == Fault::kWrite;
  int completed_at = -1;
  for (int n = 0; n < kMaxRounds && completed_at < 0; ++n) {
    SCOPED_TRACE("fault at operation " + std::to_string(n));
    ASSERT_EQ(1, FileSystem::WriteWholeFile(CString("/tmp/faults.kdb"), before));
    std::vector<std::unique_ptr<Focusable>> records;
    std::vector<Focusable*> batch;
    for (int i = 0; i < 12; ++i) {
      records.push_back(Post("R3_G" + std::to_string(i + 2), kNew));
      batch.push_back(records.back().get());
    }
    Arm(n);
    int result, error;
    {
      AZeusDB db(dir_, "faults", 10, 0);
      db.openDB(0);
      result = db.writeFocusablesSlot(&batch, nullptr, nullptr);
      error = db.GetLastDBErrorMsgCode();
      db.closeDB();
    }
    EXPECT_TRUE(result == 1 || error != 0);
    if (!Disarm()) {
      completed_at = n;
      EXPECT_EQ(1, result);
      EXPECT_EQ(5 + 4 * 11, batch.back()->GetDBSlotIndex());
    }
    const std::string problems = Problems("faults.kdb");
    EXPECT_TRUE(result == 1 ? problems.empty() : OnlyLeftovers(problems)) << problems;
    AZeusDB db(dir_, "faults", 10, 0);
    EXPECT_EQ(kKept, ReadField(&db, 0));
    if (result != 1) {
      for (Focusable* r : batch) EXPECT_TRUE(!writes || r->NeedToSave() == 1);
      ASSERT_EQ(1, db.writeFocusablesSlot(&batch, nullptr, nullptr))
          << "error " << db.GetLastDBErrorMsgCode();
      EXPECT_EQ(kKept, ReadField(&db, 0));
    }
    for (Focusable* r : batch) EXPECT_EQ(kNew, ReadField(&db, r->GetDBSlotIndex()));
    db.closeDB();
    EXPECT_EQ("", Problems("faults.kdb"));
  }
  // The save goes to the file in many writes, so failures were met at many
  // points before it completed.
  EXPECT_GE(completed_at, writes ? 10 : 0);
}

using StringDBStoreFaultsTest = StoreFaultsTest;

TEST_P(StringDBStoreFaultsTest, WriteOfALongTextSurvivesEveryFault) {
  const CString kept(std::string(35, 'k').c_str());
  const CString fresh(std::string(45, 'n').c_str());
  int kept_slot = -1, kept_slots = 0;
  {
    StringDB db(dir_, "faults", 10, 1);
    kept_slots = db.WriteStringSlot(&kept_slot, kept);
    ASSERT_GT(kept_slots, 3);
  }
  const std::string before = Bytes("faults.sdb");
  bool completed = false;
  for (int n = 0; n < kMaxRounds && !completed; ++n) {
    SCOPED_TRACE("fault at operation " + std::to_string(n));
    ASSERT_EQ(1, FileSystem::WriteWholeFile(CString("/tmp/faults.sdb"), before));
    int slot = -1;
    Arm(n);
    int result;
    {
      StringDB db(dir_, "faults", 10, 1);
      db.openDB(0);
      result = db.WriteStringSlot(&slot, fresh);
      db.closeDB();
    }
    completed = !Disarm();
    EXPECT_TRUE(!completed || result > kept_slots);
    EXPECT_EQ("", result > 0 ? Problems("faults.sdb") : "");
    StringDB db(dir_, "faults", 10, 1);
    CString text;
    EXPECT_EQ(kept_slots, db.ReadStringSlot(kept_slot, text));
    EXPECT_EQ(kept, text);
    // Written again from the slot the failed write was given, so that it
    // takes up the chain that write began.
    if (result == 0) {
      ASSERT_GT(db.WriteStringSlot(&slot, fresh), kept_slots);
    }
    text.Empty();
    EXPECT_GT(db.ReadStringSlot(slot, text), kept_slots);
    EXPECT_EQ(fresh, text);
    db.closeDB();
    EXPECT_EQ("", Problems("faults.sdb"));
  }
  EXPECT_TRUE(completed);
}

// The same store object goes on after a failed save: it answers the
// failure, and saving again mends the file. A read that fails half way
// through a single record's save leaves only leftovers that the next save
// takes up; a new record whose save failed has no slot.
TEST(StoreFaultsSameObjectTest, SaveOfOneRecordAfterAFailedRead) {
  test::MemEnv mem;
  Fault faults{&mem};
  ScopedEnv use{&faults};
  PostLayout layout(10, 3000);
  bool completed = false;
  for (int n = 0; n < kMaxRounds && !completed; ++n) {
    SCOPED_TRACE("fault at read " + std::to_string(n));
    WriteKept("one");
    AZeusDB db(CString("/tmp"), "one", 10, 0);
    ASSERT_EQ(kKept, ReadField(&db, 0));  // opened and mapped before the fault
    std::unique_ptr<Focusable> record = Post("R3_G9", kNew);
    faults.Arm(Fault::kRead, n, Fault::kForever);
    const int result = db.writeFocusableSlot(record.get(), nullptr, nullptr);
    completed = faults.Injected(Fault::kRead) == 0;
    faults.DisarmAll();
    EXPECT_TRUE(OnlyLeftovers(Problems("one.kdb"))) << Problems("one.kdb");
    if (result != 1) {
      EXPECT_EQ(-1, record->GetDBSlotIndex());
      ASSERT_EQ(1, db.writeFocusableSlot(record.get(), nullptr, nullptr));
    }
    EXPECT_EQ(kNew, ReadField(&db, record->GetDBSlotIndex()));
    EXPECT_EQ("", Problems("one.kdb"));
    // Nothing of the failed save is left as a record of its own.
    std::ostringstream dump;
    KdbExaminer::DumpKdb(Bytes("one.kdb"), dump);
    int records = 0;
    for (size_t at = 0; (at = dump.str().find("record at slot", at)) != std::string::npos; ++at) {
      ++records;
    }
    EXPECT_EQ(2, records) << dump.str();
  }
  EXPECT_TRUE(completed);
}

// A batch whose first record fails answers with that record's error, also
// when the records after it are saved.
TEST(StoreFaultsSameObjectTest, BatchKeepsTheErrorOfAFailedRecord) {
  test::MemEnv mem;
  ScopedEnv use{&mem};
  PostLayout layout(10, 3000);
  WriteKept("mixed");
  AZeusDB db(CString("/tmp"), "mixed", 10, 0);
  Focusable unknown(99, nullptr);  // a relation with no template
  std::unique_ptr<Focusable> post = Post("R3_G2", kNew);
  std::vector<Focusable*> batch = {&unknown, post.get()};
  EXPECT_EQ(0, db.writeFocusablesSlot(&batch, nullptr, nullptr));
  EXPECT_EQ(AZeusDB::kErrNoTemplate, db.GetLastDBErrorMsgCode());
  EXPECT_EQ(kNew, ReadField(&db, post->GetDBSlotIndex()));
}

TEST(StoreFaultsSameObjectTest, WriteOfATextAfterAFailedWrite) {
  test::MemEnv mem;
  Fault faults{&mem};
  ScopedEnv use{&faults};
  const CString fresh(std::string(45, 'n').c_str());
  bool completed = false;
  int failures = 0;
  for (int n = 0; n < kMaxRounds && !completed; ++n) {
    SCOPED_TRACE("fault at write " + std::to_string(n));
    FileSystem::DeleteFile(CString("/tmp/one.sdb"));
    StringDB db(CString("/tmp"), "one", 10, 1);
    ASSERT_EQ(0, db.openDB(0));  // the file is made before the fault
    db.closeDB();
    int slot = -1;
    faults.Arm(Fault::kWrite, n, Fault::kOnce);
    const int result = db.WriteStringSlot(&slot, fresh);
    completed = faults.Injected(Fault::kWrite) == 0;
    faults.DisarmAll();
    if (!completed) {
      ++failures;
      EXPECT_EQ(0, result);
      EXPECT_EQ(8, db.GetLastDBErrorMsgCode());
      if (slot == -1) continue;  // nothing was begun
      ASSERT_GT(db.WriteStringSlot(&slot, fresh), 0);
    }
    CString text;
    EXPECT_GT(db.ReadStringSlot(slot, text), 0);
    EXPECT_EQ(fresh, text);
    EXPECT_EQ("", Problems("one.sdb"));
  }
  EXPECT_TRUE(completed);
  EXPECT_GT(failures, 3);
}

// A record saved again after a failed save with a text that now fits its
// head: the continuations that the failed save had marked behind the head
// are freed, whatever point the failure stopped at. A header that the failed
// save wrote into a slot that the head's own header never came to link may
// stay: the slot is free in the states and the next record to take it
// writes over it.
TEST(StoreFaultsSameObjectTest, ShorterResaveFreesWhatTheFailedSaveLinked) {
  test::MemEnv mem;
  Fault faults{&mem};
  ScopedEnv use{&faults};
  PostLayout layout(10, 3000);
  for (int times : {Fault::kOnce, Fault::kForever}) {
    int failed = 0;
    for (int n = 0; n < kMaxRounds; ++n) {
      SCOPED_TRACE("failing write " + std::to_string(n) + " of " + std::to_string(times));
      WriteKept("short");
      AZeusDB db(CString("/tmp"), "short", 10, 0);
      db.openDB(0);
      std::unique_ptr<Focusable> fresh = Post("R3_G2", kNew);
      std::vector<Focusable*> batch = {fresh.get()};
      faults.Arm(Fault::kWrite, n, times);
      const int result = db.writeFocusablesSlot(&batch, nullptr, nullptr);
      const bool completed = faults.Injected(Fault::kWrite) == 0;
      faults.DisarmAll();
      db.closeDB();
      EXPECT_EQ(completed ? 1 : 0, result);
      if (completed) break;
      ++failed;
      // A new record whose save failed has no slot; saved again, it is
      // given the same one, the first free slot.
      EXPECT_EQ(-1, fresh->GetDBSlotIndex());
      fresh->SetValueStr(4, CString("short"), 1);
      ASSERT_EQ(1, db.writeFocusablesSlot(&batch, nullptr, nullptr));
      EXPECT_EQ(5, fresh->GetDBSlotIndex());
      EXPECT_EQ("short", ReadField(&db, 5));
      EXPECT_EQ(kKept, ReadField(&db, 0));
      const std::string problems = Problems("short.kdb");
      EXPECT_EQ(std::string::npos, problems.find("belongs to no record")) << problems;
      EXPECT_TRUE(OnlyLeftovers(problems)) << problems;
      // Only the two records' slots are taken: the next record gets the slot
      // right behind the short one.
      std::unique_ptr<Focusable> next = Post("R3_G3", "x");
      ASSERT_EQ(1, db.writeFocusableSlot(next.get(), nullptr, nullptr));
      EXPECT_EQ(6, next->GetDBSlotIndex());
    }
    EXPECT_GE(failed, 3);
    EXPECT_LT(failed, kMaxRounds);  // the save completed at last
  }
}

const auto kEveryFault = ::testing::Combine(
    ::testing::Values(Fault::kOpen, Fault::kRead, Fault::kWrite, Fault::kShortWrite, Fault::kFlush,
                      Fault::kFullDisk, Fault::kMove, Fault::kDelete),
    ::testing::Bool());

std::string FaultName(const ::testing::TestParamInfo<StoreFaultsTest::ParamType>& info) {
  static const char* const kNames[] = {"Open",  "Read",     "Write", "ShortWrite",
                                       "Flush", "FullDisk", "Move",  "Delete"};
  return std::string(kNames[std::get<0>(info.param)]) +
         (std::get<1>(info.param) ? "Forever" : "Once");
}

INSTANTIATE_TEST_SUITE_P(EveryFault, AZeusDBStoreFaultsTest, kEveryFault, FaultName);
INSTANTIATE_TEST_SUITE_P(EveryFault, StringDBStoreFaultsTest, kEveryFault, FaultName);

// --- The rollback journal ---------------------------------------------------------------

const std::string kOldTitle(60, 'o');  // over many slots
const std::string kNewTitle = std::string(25, 'n') + "new";

// A record file with its journal on.
struct JournaledDB : AZeusDB {
  explicit JournaledDB(const char* name) : AZeusDB(CString("/tmp"), name, 10, 0) { SetJournal(1); }
};

class StoreJournalTest : public ::testing::Test {
 protected:
  std::string Bytes(const char* name) {
    std::string bytes;
    EXPECT_EQ(1, FileSystem::ReadWholeFile(CString("/tmp/") + name, &bytes));
    return bytes;
  }
  // Saves text as record 0 (made on the first call) and answers the result.
  int Save(AZeusDB* db, const std::string& text) {
    Focusable record(4, nullptr);
    record.SetDBSlotIndex(slot_);
    record.SetValueStr(4, CString(text.c_str()), 1);
    const int result = db->writeFocusableSlot(&record, nullptr, nullptr);
    slot_ = record.GetDBSlotIndex();
    need_to_save_ = record.NeedToSave();
    return result;
  }
  std::string Title(AZeusDB* db) { return test::ReadField(db, slot_); }

  test::PostLayout layout_;
  test::MemEnv mem_;
  Fault faults_{&mem_};
  ScopedEnv use_{&faults_};
  int slot_ = -1;
  int need_to_save_ = 0;
};

TEST_F(StoreJournalTest, SaveCutOffHalfWayIsUndoneAtTheNextOpening) {
  {
    JournaledDB db("j");
    ASSERT_EQ(1, Save(&db, kOldTitle));
  }
  const std::string before = Bytes("j.kdb");
  {
    // The journal goes out whole; the writes of the save and of its undo
    // stop half way, as if the process had been killed there.
    JournaledDB db("j");
    faults_.Arm(Fault::kShortWrite, 1, Fault::kForever);
    EXPECT_NE(1, Save(&db, kNewTitle));
    EXPECT_EQ(1, need_to_save_);
  }
  faults_.DisarmAll();
  ASSERT_TRUE(FileSystem::Exists(CString("/tmp/j.kdb-journal")));
  // Whatever the cut-off writes left in the slots goes with the undo.
  std::string garbled = Bytes("j.kdb");
  garbled.replace(1100, 900, 900, 'x');
  ASSERT_EQ(1, FileSystem::WriteWholeFile(CString("/tmp/j.kdb"), garbled + "tail"));
  JournaledDB db("j");
  EXPECT_EQ(kOldTitle, Title(&db));
  EXPECT_EQ(before, Bytes("j.kdb"));
  EXPECT_FALSE(FileSystem::Exists(CString("/tmp/j.kdb-journal")));
}

// Without the journal (the default) nothing is kept beside the file, and a
// save that stops half way leaves the chain as far as it got: the front
// slots hold the new text, the slots behind still the old. Saving again
// completes it.
TEST_F(StoreJournalTest, ByDefaultAFailedSaveStopsWhereItGot) {
  AZeusDB db(CString("/tmp"), "j", 10, 0);
  faults_.Arm(Fault::kOpen, 0, Fault::kForever, "-journal");
  ASSERT_EQ(1, Save(&db, kOldTitle));
  EXPECT_EQ(1, Save(&db, kOldTitle + "!"));
  EXPECT_EQ(0, faults_.Injected(Fault::kOpen));
  faults_.Arm(Fault::kShortWrite, 0, Fault::kForever);
  EXPECT_NE(1, Save(&db, kNewTitle));
  faults_.DisarmAll();
  EXPECT_FALSE(FileSystem::Exists(CString("/tmp/j.kdb-journal")));
  // The front slots reached the file, the old tail behind them did not.
  EXPECT_EQ(kNewTitle, Title(&db));
  EXPECT_NE(std::string::npos, Bytes("j.kdb").find("oooo!"));
  EXPECT_EQ(1, Save(&db, kNewTitle));
  EXPECT_EQ(std::string::npos, Bytes("j.kdb").find("oooo!"));
}

// Renaming undoes what a cut-off save left, so that the journal never
// applies to another file; a journal without its file at the new place is
// dropped.
TEST_F(StoreJournalTest, RenameUndoesALeftoverJournalFirst) {
  {
    JournaledDB db("j");
    ASSERT_EQ(1, Save(&db, kOldTitle));
    faults_.Arm(Fault::kShortWrite, 1, Fault::kForever);
    EXPECT_NE(1, Save(&db, kNewTitle));
  }
  faults_.DisarmAll();
  ASSERT_TRUE(FileSystem::Exists(CString("/tmp/j.kdb-journal")));
  ASSERT_EQ(1, FileSystem::WriteWholeFile(CString("/tmp/k.kdb-journal"), "stale"));
  JournaledDB db("j");
  db.renameDB(CString("k"), CString("/tmp"));
  EXPECT_FALSE(FileSystem::Exists(CString("/tmp/j.kdb-journal")));
  EXPECT_FALSE(FileSystem::Exists(CString("/tmp/k.kdb-journal")));
  AZeusDB moved(CString("/tmp"), "k", 10, 0);
  EXPECT_EQ(kOldTitle, Title(&moved));
}

TEST_F(StoreJournalTest, SameStoreUndoesAFailedSaveBeforeItsNextOne) {
  JournaledDB db("j");
  ASSERT_EQ(1, Save(&db, kOldTitle));
  db.openDB(0);  // the file stays open: no opening can undo it
  const std::string before = Bytes("j.kdb");
  faults_.Arm(Fault::kShortWrite, 1, Fault::kForever);
  EXPECT_NE(1, Save(&db, kNewTitle));
  faults_.DisarmAll();
  EXPECT_EQ(1, Save(&db, kNewTitle + "!"));
  EXPECT_EQ(kNewTitle + "!", Title(&db));
  db.closeDB();
  EXPECT_FALSE(FileSystem::Exists(CString("/tmp/j.kdb-journal")));
}

TEST_F(StoreJournalTest, WriteAfterAnUndoThatFailedTriesAgain) {
  JournaledDB db("j");
  ASSERT_EQ(1, Save(&db, kOldTitle));
  db.openDB(0);
  faults_.Arm(Fault::kShortWrite, 1, Fault::kForever);
  EXPECT_NE(1, Save(&db, kNewTitle));
  db.SetDBID(120, 1);  // the undo still fails: the header is not written
  faults_.DisarmAll();
  db.SetDBID(121, 1);
  db.closeDB();
  JournaledDB again("j");
  EXPECT_EQ(121, again.GetDBID());
  EXPECT_EQ(kOldTitle, Title(&again));
}

TEST_F(StoreJournalTest, JournalThatCannotBeWrittenLeavesTheFileAsItWas) {
  JournaledDB db("j");
  ASSERT_EQ(1, Save(&db, kOldTitle));
  const std::string before = Bytes("j.kdb");
  for (Fault::Kind kind : {Fault::kOpen, Fault::kWrite, Fault::kShortWrite}) {
    SCOPED_TRACE(kind);
    faults_.Arm(kind, 0, Fault::kForever, "-journal");
    EXPECT_NE(1, Save(&db, kNewTitle));
    EXPECT_EQ(1, need_to_save_);
    EXPECT_GT(faults_.Injected(kind), 0);
    faults_.DisarmAll();
    EXPECT_EQ(before, Bytes("j.kdb"));
  }
  EXPECT_EQ(1, Save(&db, kNewTitle));
  EXPECT_EQ(kNewTitle, Title(&db));
}

TEST_F(StoreJournalTest, JournalThatCannotBeRemovedIsEmptied) {
  {
    JournaledDB db("j");
    ASSERT_EQ(1, Save(&db, kOldTitle));
    faults_.Arm(Fault::kDelete, 0, Fault::kForever, "-journal");
    EXPECT_EQ(1, Save(&db, kNewTitle));
    EXPECT_GT(faults_.Injected(Fault::kDelete), 0);
  }
  EXPECT_EQ("", Bytes("j.kdb-journal"));
  faults_.DisarmAll();
  JournaledDB db("j");
  EXPECT_EQ(kNewTitle, Title(&db));
  EXPECT_FALSE(FileSystem::Exists(CString("/tmp/j.kdb-journal")));
}

TEST_F(StoreJournalTest, WaitingForTheDiskIsTheApplicationsChoice) {
  JournaledDB db("j");
  ASSERT_EQ(1, Save(&db, kOldTitle));
  faults_.Arm(Fault::kFlush, 0, Fault::kForever);
  EXPECT_EQ(1, Save(&db, kNewTitle));  // by default nothing waits for the disk
  EXPECT_EQ(0, faults_.Injected(Fault::kFlush));
  db.SetFlushToDisk(1);
  const std::string before = Bytes("j.kdb");
  // The journal must be on the disk before the file changes.
  EXPECT_NE(1, Save(&db, kOldTitle));
  EXPECT_GT(faults_.Injected(Fault::kFlush), 0);
  faults_.DisarmAll();
  EXPECT_EQ(before, Bytes("j.kdb"));
  EXPECT_EQ(kNewTitle, Title(&db));
}

}  // namespace
}  // namespace kordll
