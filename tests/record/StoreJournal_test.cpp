// The rollback journal of the stores, when the application turns it on (the
// record file here; the crash loop
// test kills both stores), on files in memory: a save that the disk cuts off
// half way is undone (also when undoing it had to wait for the next
// opening), a journal that cannot be written keeps the file as it was,
// one that cannot be removed is emptied and undoes nothing, and the disk is
// waited for only when the application asks.

#include <gtest/gtest.h>

#include <string>

#include "kordll/platform/FileSystem.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/Focusable.h"
#include "tests/record/FocusableTestSupport.h"
#include "tests/support/FaultEnv.h"
#include "tests/support/MemEnv.h"

namespace kordll {
namespace {

using Fault = test::FaultEnv;

const std::string kOld(60, 'o');  // over many slots
const std::string kNew = std::string(25, 'n') + "new";

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
    ASSERT_EQ(1, Save(&db, kOld));
  }
  const std::string before = Bytes("j.kdb");
  {
    // The journal goes out whole; the writes of the save and of its undo
    // stop half way, as if the process had been killed there.
    JournaledDB db("j");
    faults_.Arm(Fault::kShortWrite, 1, Fault::kForever);
    EXPECT_NE(1, Save(&db, kNew));
    EXPECT_EQ(1, need_to_save_);
  }
  faults_.DisarmAll();
  ASSERT_TRUE(FileSystem::Exists(CString("/tmp/j.kdb-journal")));
  // Whatever the cut-off writes left in the slots goes with the undo.
  std::string garbled = Bytes("j.kdb");
  garbled.replace(1100, 900, 900, 'x');
  ASSERT_EQ(1, FileSystem::WriteWholeFile(CString("/tmp/j.kdb"), garbled + "tail"));
  JournaledDB db("j");
  EXPECT_EQ(kOld, Title(&db));
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
  ASSERT_EQ(1, Save(&db, kOld));
  EXPECT_EQ(1, Save(&db, kOld + "!"));
  EXPECT_EQ(0, faults_.Injected(Fault::kOpen));
  faults_.Arm(Fault::kShortWrite, 0, Fault::kForever);
  EXPECT_NE(1, Save(&db, kNew));
  faults_.DisarmAll();
  EXPECT_FALSE(FileSystem::Exists(CString("/tmp/j.kdb-journal")));
  // The front slots reached the file, the old tail behind them did not.
  EXPECT_EQ(kNew, Title(&db));
  EXPECT_NE(std::string::npos, Bytes("j.kdb").find("oooo!"));
  EXPECT_EQ(1, Save(&db, kNew));
  EXPECT_EQ(std::string::npos, Bytes("j.kdb").find("oooo!"));
}

// Renaming undoes what a cut-off save left, so that the journal never
// applies to another file; a journal without its file at the new place is
// dropped.
TEST_F(StoreJournalTest, RenameUndoesALeftoverJournalFirst) {
  {
    JournaledDB db("j");
    ASSERT_EQ(1, Save(&db, kOld));
    faults_.Arm(Fault::kShortWrite, 1, Fault::kForever);
    EXPECT_NE(1, Save(&db, kNew));
  }
  faults_.DisarmAll();
  ASSERT_TRUE(FileSystem::Exists(CString("/tmp/j.kdb-journal")));
  ASSERT_EQ(1, FileSystem::WriteWholeFile(CString("/tmp/k.kdb-journal"), "stale"));
  JournaledDB db("j");
  db.renameDB(CString("k"), CString("/tmp"));
  EXPECT_FALSE(FileSystem::Exists(CString("/tmp/j.kdb-journal")));
  EXPECT_FALSE(FileSystem::Exists(CString("/tmp/k.kdb-journal")));
  AZeusDB moved(CString("/tmp"), "k", 10, 0);
  EXPECT_EQ(kOld, Title(&moved));
}

TEST_F(StoreJournalTest, SameStoreUndoesAFailedSaveBeforeItsNextOne) {
  JournaledDB db("j");
  ASSERT_EQ(1, Save(&db, kOld));
  db.openDB(0);  // the file stays open: no opening can undo it
  const std::string before = Bytes("j.kdb");
  faults_.Arm(Fault::kShortWrite, 1, Fault::kForever);
  EXPECT_NE(1, Save(&db, kNew));
  faults_.DisarmAll();
  EXPECT_EQ(1, Save(&db, kNew + "!"));
  EXPECT_EQ(kNew + "!", Title(&db));
  db.closeDB();
  EXPECT_FALSE(FileSystem::Exists(CString("/tmp/j.kdb-journal")));
}

TEST_F(StoreJournalTest, WriteAfterAnUndoThatFailedTriesAgain) {
  JournaledDB db("j");
  ASSERT_EQ(1, Save(&db, kOld));
  db.openDB(0);
  faults_.Arm(Fault::kShortWrite, 1, Fault::kForever);
  EXPECT_NE(1, Save(&db, kNew));
  db.SetDBID(120, 1);  // the undo still fails: the header is not written
  faults_.DisarmAll();
  db.SetDBID(121, 1);
  db.closeDB();
  JournaledDB again("j");
  EXPECT_EQ(121, again.GetDBID());
  EXPECT_EQ(kOld, Title(&again));
}

TEST_F(StoreJournalTest, JournalThatCannotBeWrittenLeavesTheFileAsItWas) {
  JournaledDB db("j");
  ASSERT_EQ(1, Save(&db, kOld));
  const std::string before = Bytes("j.kdb");
  for (Fault::Kind kind : {Fault::kOpen, Fault::kWrite, Fault::kShortWrite}) {
    SCOPED_TRACE(kind);
    faults_.Arm(kind, 0, Fault::kForever, "-journal");
    EXPECT_NE(1, Save(&db, kNew));
    EXPECT_EQ(1, need_to_save_);
    EXPECT_GT(faults_.Injected(kind), 0);
    faults_.DisarmAll();
    EXPECT_EQ(before, Bytes("j.kdb"));
  }
  EXPECT_EQ(1, Save(&db, kNew));
  EXPECT_EQ(kNew, Title(&db));
}

TEST_F(StoreJournalTest, JournalThatCannotBeRemovedIsEmptied) {
  {
    JournaledDB db("j");
    ASSERT_EQ(1, Save(&db, kOld));
    faults_.Arm(Fault::kDelete, 0, Fault::kForever, "-journal");
    EXPECT_EQ(1, Save(&db, kNew));
    EXPECT_GT(faults_.Injected(Fault::kDelete), 0);
  }
  EXPECT_EQ("", Bytes("j.kdb-journal"));
  faults_.DisarmAll();
  JournaledDB db("j");
  EXPECT_EQ(kNew, Title(&db));
  EXPECT_FALSE(FileSystem::Exists(CString("/tmp/j.kdb-journal")));
}

TEST_F(StoreJournalTest, WaitingForTheDiskIsTheApplicationsChoice) {
  JournaledDB db("j");
  ASSERT_EQ(1, Save(&db, kOld));
  faults_.Arm(Fault::kFlush, 0, Fault::kForever);
  EXPECT_EQ(1, Save(&db, kNew));  // by default nothing waits for the disk
  EXPECT_EQ(0, faults_.Injected(Fault::kFlush));
  db.SetFlushToDisk(1);
  const std::string before = Bytes("j.kdb");
  // The journal must be on the disk before the file changes.
  EXPECT_NE(1, Save(&db, kOld));
  EXPECT_GT(faults_.Injected(Fault::kFlush), 0);
  faults_.DisarmAll();
  EXPECT_EQ(before, Bytes("j.kdb"));
  EXPECT_EQ(kNew, Title(&db));
}

}  // namespace
}  // namespace kordll
