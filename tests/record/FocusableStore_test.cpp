// The record object over a real record database: lazy loading, on-demand
// reads of status and dates, saves on release, deletion, and bringing a
// record in by its database location.

#include <gtest/gtest.h>

#include "kordll/platform/Clock.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/LibraryLifetime.h"
#include "kordll/record/RGDBTemplate.h"
#include "tests/record/FocusableTestSupport.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

using test::FakeController;
using test::FakeRegistry;
using test::ScopedEntry;

class FocusableStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    KordllProcessAttach();
    layout_.AddField(0, 20, 4, CString(), CString(u"guid"), 0, 0);
    layout_.AddField(1, 6, 0, CString(), CString(u"status"), 0, 0);
    layout_.AddField(2, 16, 2, CString(), CString(u"received"), 0, 0);
    layout_.AddField(3, 16, 2, CString(), CString(u"published"), 0, 0);
    layout_.AddField(4, 40, 4, CString(), CString(u"title"), 0, 0);
    layout_.AddField(5, 8, 0, CString(), CString(u"count"), 0, 0);
    RelationsEntryPoints::SetTemplate(4, &layout_);
    db_ = std::make_unique<AZeusDB>(root_.DataRoot(), CString(u"posts"), 0, 0);
  }
  void TearDown() override {
    db_.reset();
    RelationsEntryPoints::ClearTemplates();
  }

  // The record at slot, loaded whole (a failed load leaves it empty).
  std::unique_ptr<Focusable> Loaded(int slot) {
    auto record = std::make_unique<Focusable>(4, db_.get());
    record->SetDBSlotIndex(slot);
    record->LoadFocusable(nullptr);
    return record;
  }
  // Writes a post and gives its slot index.
  int StorePost(const char16_t* guid, int status, const char16_t* title) {
    Focusable post(4, db_.get());
    post.SetGUID(CString(guid));
    post.SetFocusableStatus(status);
    post.SetReceiveDateTime(COleDateTime(2007, 5, 6, 7, 8, 0));
    post.SetPublicationDateTime(COleDateTime(2007, 5, 5, 1, 2, 0));
    post.SetPostTitle(CString(title));
    post.SetValueInt(5, 12, 1);
    EXPECT_EQ(post.SaveFocusable(), 1) << db_->GetLastDBErrorMsgCode();
    EXPECT_EQ(post.NeedToSave(), 0);
    return post.GetDBSlotIndex();
  }

  test::TempRoot root_;
  RGDBTemplate layout_{4};
  std::unique_ptr<AZeusDB> db_;
};

TEST_F(FocusableStoreTest, AHeaderOnlyRecordLoadsItsBodyAndLosesItAtTheLastRelease) {
  const int slot = StorePost(u"R3_G1", 2, u"First post");
  ASSERT_GE(slot, 0);
  auto* header = new Focusable(4, db_.get());
  header->SetDBSlotIndex(slot);
  header->ReserveHeader(3);
  EXPECT_EQ(header->IsFullyLoaded(1), 0);
  ASSERT_EQ(header->LoadFocusable(nullptr), 1);
  EXPECT_EQ(header->GetReferenceCount(), 1);
  EXPECT_EQ(header->GetPostTitle(), CString(u"First post"));
  EXPECT_EQ(header->GetFieldInt(5), 12);
  // Loaded already: a second load gives 0 and reserves nothing; the reader
  // pattern reserves through IsFullyLoaded instead.
  EXPECT_EQ(header->LoadFocusable(nullptr), 0);
  EXPECT_EQ(header->IsFullyLoaded(1), 1);
  EXPECT_EQ(header->GetReferenceCount(), 2);
  header->Release(nullptr);
  EXPECT_EQ(header->Release(nullptr), 1);
  EXPECT_EQ(header->GetFieldCount(0), 1);  // the body is gone, the header stays
  EXPECT_EQ(header->GetGUID(), CString(u"R3_G1"));
  EXPECT_EQ(header->GetDBSlotIndex(), slot);
  EXPECT_EQ(header->ReleaseHeader(3), 1);
}

TEST_F(FocusableStoreTest, StatusOfAnUnreservedRecordIsReadEachTimeAndLeavesNothing) {
  const int slot = StorePost(u"R3_G2", 2 | 512, u"Ranked");
  Focusable header(4, db_.get());
  header.SetDBSlotIndex(slot);
  EXPECT_EQ(header.GetFocusableStatus(), 514);
  EXPECT_EQ(header.GetFlagImage(), 14);
  EXPECT_EQ(header.GetReceiveDateTime().GetHour(), 7);
  EXPECT_EQ(header.GetPublicationDate().GetDay(), 5);
  EXPECT_EQ(header.GetFieldCount(0), 1);
  // Under a reservation the item stays.
  header.Reserve();
  EXPECT_EQ(header.GetFocusableStatus(), 514);
  EXPECT_EQ(header.IsFieldActive(1, 0), 1);
}

TEST_F(FocusableStoreTest, ATaskLoadsOnlyItsFieldsAndLeavesTheRecordNotFullyLoaded) {
  const int slot = StorePost(u"R3_G3", 1, u"Partial");
  auto* header = new Focusable(4, db_.get());
  header->SetDBSlotIndex(slot);
  header->ReserveHeader(3);
  DBTaskItem task;
  task.DefineFieldTaskType(4, DBTaskItem::kTaskLoad);
  ASSERT_EQ(header->LoadFocusable(&task), 1);
  EXPECT_EQ(header->IsFullyLoaded(0), 0);
  EXPECT_EQ(header->GetPostTitle(), CString(u"Partial"));
  EXPECT_EQ(header->IsFieldActive(5, 0), 0);
  EXPECT_EQ(header->Release(nullptr), 1);
  EXPECT_EQ(header->ReleaseHeader(3), 1);
}

TEST_F(FocusableStoreTest, TheLastReleaseWritesPendingChanges) {
  const int slot = StorePost(u"R3_G4", 2, u"Before");
  auto* reader = new Focusable(4, db_.get());
  reader->SetDBSlotIndex(slot);
  reader->ReserveHeader(3);
  ASSERT_EQ(reader->LoadFocusable(nullptr), 1);
  reader->SetPostTitle(CString(u"After"));
  reader->ReSetFocusableStatus(1, 2);
  EXPECT_EQ(reader->Release(nullptr), 1);
  EXPECT_EQ(reader->ReleaseHeader(3), 1);

  EXPECT_EQ(Loaded(slot)->GetPostTitle(), CString(u"After"));
  EXPECT_EQ(Loaded(slot)->GetFocusableStatus(), 1);
}

TEST_F(FocusableStoreTest, DeletedRecordsAreNeitherReadNorWritten) {
  const int slot = StorePost(u"R3_G5", 2, u"Doomed");
  Focusable record(4, db_.get());
  record.SetDBSlotIndex(slot);
  record.SetFocusableDeleted(1);
  EXPECT_EQ(record.LoadFocusable(nullptr), 0);
  record.SetValueStr(4, CString(u"x"), 1);
  EXPECT_EQ(record.SaveFocusable(), 1);  // succeeds without writing
  record.SetFocusableDeleted(0);
  EXPECT_EQ(record.DeleteFocusable(), 1);
  EXPECT_EQ(record.GetDBSlotIndex(), -1);
  EXPECT_EQ(Loaded(slot)->GetPostTitle(), CString());  // nothing to load
}

TEST_F(FocusableStoreTest, ASaveCutShortInAFieldWriteAnswersOneAndTheNextSaveRetries) {
  const int slot = StorePost(u"R3_G1", 2, u"first");
  Focusable post(4, db_.get());
  post.SetDBSlotIndex(slot);
  post.SetPostTitle(CString(u"second"));
  // While a reader holds the file open for reading only, the save's field
  // write fails. The store answers that with its error code, which a save
  // takes as done; the marks stay, so nothing is lost.
  db_->openDB(1);
  const int saved = post.SaveFocusable();
  const int error = db_->GetLastDBErrorMsgCode();
  db_->closeDB();
  EXPECT_EQ(saved, 1);
  EXPECT_EQ(error, 8);
  EXPECT_EQ(post.NeedToSave(), 1);
  EXPECT_EQ(post.IsItemChanged(4, 0), 1);
  ASSERT_EQ(post.SaveFocusable(), 1);
  EXPECT_EQ(post.NeedToSave(), 0);
  EXPECT_EQ(Loaded(slot)->GetPostTitle(), CString(u"second"));
  // A record never stored reads its status and dates from itself only: the
  // file is not scanned and no stored record's slot is taken over.
  Focusable fresh(4, db_.get());
  EXPECT_EQ(fresh.GetFocusableStatus(), 0);
  EXPECT_EQ(fresh.GetReceiveDateTime().GetStatus(), COleDateTime::invalid);
  EXPECT_EQ(fresh.GetDBSlotIndex(), -1);
}

TEST_F(FocusableStoreTest, WithoutATemplateLoadsAndSavesFailPlainly) {
  Focusable orphan(19, db_.get());
  orphan.SetValueStr(4, CString(u"nowhere"), 1);
  EXPECT_EQ(orphan.SaveFocusable(), 0);
  EXPECT_EQ(orphan.NeedToSave(), 1);
  EXPECT_EQ(orphan.GetFieldString(4, 0), CString(u"nowhere"));
}

TEST_F(FocusableStoreTest, DatabaseLocationBringsTheRecordInAsTheControllerType) {
  ScopedManualClock clock;
  const int slot = StorePost(u"R3_G6", 2, u"Linked");
  FakeRegistry registry;
  FakeController controller;
  controller.id = 3;
  registry.byDatabase[120] = &controller;
  registry.databases[120] = db_.get();
  int typedMade = 0;
  controller.generate = [&](int relation) -> Focusable* {
    ++typedMade;
    EXPECT_EQ(relation, 4);
    return new Focusable(relation, nullptr);
  };
  ScopedEntry<RegistryEntryPoints> scope(&registry);
  EXPECT_EQ(Focusable::GetFocusable_wDBLocation(CString(u"R3_G6"), 120, -1), nullptr);
  Focusable* record = Focusable::GetFocusable_wDBLocation(CString(u"R3_G6"), 120, slot);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(typedMade, 1);
  EXPECT_EQ(controller.registered, std::vector<Focusable*>{record});
  EXPECT_EQ(record->IsFullyLoaded(0), 1);
  EXPECT_EQ(record->GetPostTitle(), CString(u"Linked"));
  EXPECT_EQ(record->GetDBSlotIndex(), slot);
  // Known now: the same object comes back without a read.
  EXPECT_EQ(Focusable::GetFocusable_wDBLocation(CString(u"R3_G6"), 120, slot), record);
  delete record;
}

TEST_F(FocusableStoreTest, DatabaseLocationUsesTheWinnerWhenAnotherThreadRegisteredFirst) {
  const int slot = StorePost(u"R3_G7", 2, u"Raced");
  FakeRegistry registry;
  FakeController controller;
  controller.id = 3;
  controller.refuseRegistration = 1;
  Focusable winner(4, nullptr);
  registry.byDatabase[120] = &controller;
  registry.databases[120] = db_.get();
  // The winner becomes known only after the check before the read.
  int checks = 0;
  ScopedEntry<RegistryEntryPoints> scope(&registry);
  controller.generate = [&](int) -> Focusable* {
    ++checks;
    controller.byGUID[CString(u"R3_G7")] = &winner;
    return nullptr;
  };
  EXPECT_EQ(Focusable::GetFocusable_wDBLocation(CString(u"R3_G7"), 120, slot), &winner);
  EXPECT_EQ(checks, 1);
}

}  // namespace
}  // namespace kordll
