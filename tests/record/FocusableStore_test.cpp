// The record object over a real record database: lazy loading, on-demand
// reads of status and dates, saves on release, deletion, and bringing a
// record in by its database location.

#include <gtest/gtest.h>

#include <memory>

#include "kordll/platform/Clock.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/FocusableLink.h"
#include "kordll/record/LibraryLifetime.h"
#include "kordll/record/RGDBTemplate.h"
#include "tests/record/FocusableTestSupport.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

using test::CountedRecord;
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
  // Loaded already: a second load gives 0 and reserves nothing; the reader
  // pattern reserves through IsFullyLoaded instead.
  EXPECT_EQ(header->LoadFocusable(nullptr), 0);
  EXPECT_EQ(header->IsFullyLoaded(1), 1);
  EXPECT_EQ(header->GetReferenceCount(), 2);
  header->Release(nullptr);
  EXPECT_EQ(header->Release(nullptr), 1);
  EXPECT_EQ(header->GetFieldCount(0), 1);  // the body is gone, the header stays
  EXPECT_EQ(header->ReleaseHeader(3), 1);
}

TEST_F(FocusableStoreTest, StatusOfAnUnreservedRecordIsReadEachTimeAndLeavesNothing) {
  const int slot = StorePost(u"R3_G2", 2 | 512, u"Ranked");
  Focusable header(4, db_.get());
  header.SetDBSlotIndex(slot);
  EXPECT_EQ(header.GetFocusableStatus(), 514);
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
  controller.generate = [&](int relation) -> Focusable* {
    EXPECT_EQ(relation, 4);
    return new Focusable(relation, nullptr);
  };
  ScopedEntry<RegistryEntryPoints> scope(&registry);
  EXPECT_EQ(Focusable::GetFocusable_wDBLocation(CString(u"R3_G6"), 120, -1), nullptr);
  Focusable* record = Focusable::GetFocusable_wDBLocation(CString(u"R3_G6"), 120, slot);
  ASSERT_NE(record, nullptr);
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

// --- Links -------------------------------------------------------------------------------
// What a link forwards, what it keeps for itself, its lifetime beside its
// target's, reading it from a record database and bringing it to life.

// A catalogue stand-in with the layouts of links and posts.
class LinkRelations : public RelationsEntryPoints {
 public:
  RGDBTemplate* GetRGDBTemplate(int relation) override {
    return relation == 8 ? &linkLayout : relation == 4 ? &postLayout : nullptr;
  }
  RGDBTemplate linkLayout{8};
  RGDBTemplate postLayout{4};
};

class FocusableLinkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    KordllProcessAttach();
    relations_.linkLayout.AddField(0, 100, 4, CString(), CString(), 0, 0);
    relations_.linkLayout.AddField(1, 7, 0, CString(u"-1"), CString(), 0, 0);
    relations_.linkLayout.AddField(2, 7, 0, CString(u"-1"), CString(), 0, 0);
    relations_.linkLayout.AddField(3, 0, 0, CString(u"0"), CString(), 0, 0);
    relations_.postLayout.AddField(0, 20, 4, CString(), CString(), 0, 0);
    relations_.postLayout.AddField(4, 40, 4, CString(), CString(), 0, 0);
  }

  // A post held by controller 3, with a title and status unread.
  CountedRecord* HeldPost(const char16_t* guid) {
    auto* post = new CountedRecord(4, &deaths_);
    post->SetGUID(CString(guid));
    post->SetPostTitle(CString(u"Target title"));
    post->SetFocusableStatus(2);
    post->ReserveHeader(3);
    return post;
  }

  test::TempRoot root_;
  LinkRelations relations_;
  ScopedEntry<RelationsEntryPoints> installRelations_{&relations_};
  int deaths_ = 0;
};

TEST_F(FocusableLinkTest, ALinkForwardsToItsTargetButKeepsItsOwnFields) {
  CountedRecord* post = HeldPost(u"R3_G7");
  post->SetDBSlotIndex(45);
  FocusableLink link(post, 1);
  EXPECT_EQ(link.GetFieldString(0, 1), CString(u"R3_G7"));
  EXPECT_EQ(link.GetFieldString(2, 1), CString(u"45"));
  EXPECT_EQ(link.GetFieldString(1, 1), CString(u"-1"));  // the target has no database
  EXPECT_EQ(link.GetFocusableTitle(), CString(u"Target title"));
  EXPECT_EQ(link.IsBoldFocusable(), 1);
  EXPECT_EQ(link.GetDBSlotIndex(), -1);  // the link's own slot
  EXPECT_EQ(link.SetValueStr(4, CString(u"Changed"), 1), 1);
  EXPECT_EQ(post->NeedToSave(), 1);
  EXPECT_EQ(link.NeedToSave(), 0);
  EXPECT_EQ(link.IsItemChanged(4, 0), 1);  // the target's flag
  EXPECT_EQ(link.IsItemChanged(4, 1), 1);  // the link's: the GUID was set

  EXPECT_EQ(post->ReleaseHeader(3), 1);
}

TEST_F(FocusableLinkTest, TheDeletedBitStaysWithTheLinkAndTheRestGoesToTheTarget) {
  CountedRecord* post = HeldPost(u"R3_G8");
  FocusableLink link(post, 1);
  link.ReSetFocusableStatus(64 | 4, 0);
  // The link status takes all of set when set holds 64.
  EXPECT_EQ(link.GetFocusableLinkStatus(), 68);
  EXPECT_EQ(post->GetFocusableStatus() & 64, 0);
  EXPECT_NE(post->GetFocusableStatus() & 4, 0);
  // The link's own mark is not "deleted" to the record questions.
  EXPECT_EQ(link.IsFocusableDeleted(), 0);
  link.ReSetFocusableStatus(0, 64);
  EXPECT_EQ(link.GetFocusableLinkStatus(), 4);
  EXPECT_EQ(post->ReleaseHeader(3), 1);
}

TEST_F(FocusableLinkTest, ReleasingTheOnlyHolderOfALinkDeletesTheLinkNotTheTarget) {
  CountedRecord* post = HeldPost(u"R3_G9");
  auto* link = new FocusableLink(post, 1);
  link->ReserveHeader(5);
  EXPECT_EQ(link->ReleaseHeader(5), 1);  // the link is gone
  EXPECT_EQ(deaths_, 0);
  EXPECT_EQ(post->ReleaseHeader(3), 1);
  EXPECT_EQ(deaths_, 1);
}

TEST_F(FocusableLinkTest, ATargetDestroyedThroughTheLinkIsForgotten) {
  auto* post = new CountedRecord(4, &deaths_);
  auto* link = new FocusableLink(post, 1);
  link->ReserveHeader(5);
  link->SetOriginedResourceControllerID(9, 0);
  EXPECT_EQ(post->ReleaseHeader(5), 0);  // 9 still holds the target
  // The target's last holder goes through the link; the link stays, held
  // by 5, as an orphan that answers its fallbacks.
  EXPECT_EQ(link->ReleaseHeader(9), 0);
  EXPECT_EQ(deaths_, 1);
  EXPECT_EQ(link->GetLinkedFocusable(), nullptr);
  EXPECT_EQ(link->GetPostTitle(), CString());
  EXPECT_EQ(link->ReleaseHeader(5), 1);  // nobody holds the link: it goes
}

TEST_F(FocusableLinkTest, ReleaseThroughTheLinkNeverTellsAndForgetsADestroyedTarget) {
  auto* post = new CountedRecord(4, &deaths_);
  FocusableLink link;
  ASSERT_EQ(link.SetLinkedFocusable(post), 1);  // reserves the target
  EXPECT_EQ(post->GetReferenceCount(), 1);
  int destroyed = 0;
  EXPECT_EQ(link.Release(&destroyed), 0);
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(deaths_, 1);  // nobody held the target any more
  EXPECT_EQ(link.GetLinkedFocusable(), nullptr);
}

TEST_F(FocusableLinkTest, ALinkNeverTakesALinkAsItsTarget) {
  CountedRecord* post = HeldPost(u"R3_G12");
  FocusableLink link(post, 1);
  FocusableLink second(&link, 1);
  EXPECT_EQ(second.GetLinkedFocusable(), nullptr);
  EXPECT_EQ(second.SetLinkedFocusable(&link), 0);
  EXPECT_EQ(post->ReleaseHeader(3), 1);
}

TEST_F(FocusableLinkTest, ALinkIsStoredReadBackAndBroughtToLife) {
  FakeRegistry registry;
  ScopedEntry<RegistryEntryPoints> installRegistry(&registry);
  AZeusDB posts(root_.DataRoot(), CString(u"posts"), 0, 0);
  posts.SetDBID(120, 1);
  AZeusDB links(root_.DataRoot(), CString(u"links"), 0, 0);

  Focusable stored(4, &posts);
  stored.SetGUID(CString(u"R3_G20"));
  stored.SetPostTitle(CString(u"Stored target"));
  ASSERT_EQ(stored.SaveFocusable(), 1);

  FocusableLink link(&stored, 0);
  EXPECT_EQ(link.GetLinkedFocusable(), nullptr);  // the pointer was not kept
  ASSERT_EQ(links.writeFocusableSlot(&link, nullptr, nullptr), 1) << links.GetLastDBErrorMsgCode();
  const int linkSlot = link.GetDBSlotIndex();

  Focusable plain(-1, &links);
  plain.SetDBSlotIndex(linkSlot);
  ASSERT_EQ(links.readFocusableSlot(&plain, nullptr, nullptr), 1);
  FocusableLink read;
  read.SetFocusableLink(&plain);
  EXPECT_EQ(read.GetFieldString(1, 1), CString(u"120"));
  EXPECT_EQ(read.GetFieldString(2, 1), CString::Formatted(CString(u"%d"), stored.GetDBSlotIndex()));
  EXPECT_EQ(read.GetDBSlotIndex(), linkSlot);

  FakeController controller;
  controller.id = 3;
  controller.byGUID[CString(u"R3_G20")] = &stored;
  registry.byDatabase[120] = &controller;
  EXPECT_EQ(read.PreLoading(), 1);
  EXPECT_EQ(read.GetPostTitle(), CString(u"Stored target"));

  // Deleting the link frees its slot and leaves the target's alone.
  read.SetDB(&links);
  EXPECT_EQ(read.DeleteFocusable(), 1);
  EXPECT_EQ(read.GetDBSlotIndex(), -1);
  EXPECT_EQ(test::ReadField(&posts, stored.GetDBSlotIndex()), "Stored target");
}

}  // namespace
}  // namespace kordll
