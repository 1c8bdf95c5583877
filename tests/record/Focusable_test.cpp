// The record object without a database: lifetime, field reads and writes,
// lazy parsing, change tracking, status rules, copies and post fields; and
// through the entry points of the record core: saves, loads and deletes
// without a database, presentation, opening, broadcasting and the finders.

#include "kordll/record/Focusable.h"

#include <gtest/gtest.h>

#include <memory>

#include "kordll/platform/Clock.h"
#include "kordll/record/LibraryLifetime.h"
#include "tests/record/FocusableTestSupport.h"

namespace kordll {
namespace {

using test::CountedRecord;
using test::FakeController;
using test::FakeRegistry;
using test::FakeSettings;
using test::FocusableTest;
using test::ScopedEntry;

// --- Lifetime ------------------------------------------------------------------
// (The last release of a held, loaded record is checked over a database in
// FocusableStore_test.)

TEST_F(FocusableTest, LastReleaseOfAnUnheldRecordDestroysItWithoutSaving) {
  int deaths = 0;
  auto* record = new CountedRecord(4, &deaths);
  int destroyed = 0;
  // At count zero a release answers 1 but keeps the record.
  EXPECT_EQ(record->Release(&destroyed), 1);
  EXPECT_EQ(destroyed + deaths, 0);
  record->SetValueStr(4, CString(u"changed title"), 1);
  record->Reserve();
  record->Reserve();
  EXPECT_EQ(record->Release(&destroyed), 0);  // one reference left: body kept
  EXPECT_EQ(record->GetFieldString(4, 0), CString(u"changed title"));
  EXPECT_EQ(record->Release(&destroyed), 1);
  EXPECT_EQ(destroyed + deaths, 2);
}

TEST_F(FocusableTest, HeaderHoldersMayRepeatAndReleaseHeaderOfAnOriginedRecordForgetsTheOrigin) {
  int deaths = 0;
  auto* record = new CountedRecord(11, &deaths);
  record->ReserveHeader(7);
  record->ReserveHeader(13);
  record->ReserveHeader(7);
  EXPECT_EQ(record->ReleaseHeader(7), 0);
  EXPECT_EQ(*record->GetHeaderPossessors(), (std::vector<int>{13, 7}));
  EXPECT_EQ(record->ReleaseHeader(99), 0);  // not a holder: nothing
  EXPECT_EQ(record->ReleaseHeader(13), 0);
  EXPECT_EQ(record->ReleaseHeader(7), 1);
  EXPECT_EQ(deaths, 1);

  // Still reserved: releasing the origin's header only forgets the origin,
  // and the last Release removes it.
  record = new CountedRecord(4, &deaths);
  record->SetOriginedResourceControllerID(5, 0);
  record->Reserve();
  EXPECT_EQ(record->ReleaseHeader(5), 0);
  EXPECT_EQ(record->GetOriginedResourceControllerID(), -1);
  EXPECT_EQ(record->Release(nullptr), 1);
  EXPECT_EQ(deaths, 2);

  // The last holder was also the origin: the object stays until the next call.
  record = new CountedRecord(4, &deaths);
  record->ReserveHeader(7);
  record->SetOriginedResourceControllerID(7, 0);
  EXPECT_EQ(record->ReleaseHeader(7), 0);
  EXPECT_EQ(record->IsInUse(), 0);
  record->Reserve();
  EXPECT_EQ(record->Release(nullptr), 1);
  EXPECT_EQ(deaths, 3);
}

TEST_F(FocusableTest, ReleaseSkipsTheSaveOnceTheDatabasesAreCleared) {
  FakeRegistry registry;
  registry.cleared = 1;
  ScopedEntry<RegistryEntryPoints> scope(&registry);
  auto* record = new Focusable(4, nullptr);
  record->ReserveHeader(3);
  record->SetValueStr(4, CString(u"x"), 1);
  record->Reserve();
  EXPECT_EQ(record->Release(nullptr), 1);
  EXPECT_EQ(record->NeedToSave(), 1);  // unsaved, body gone
  EXPECT_EQ(record->ReleaseHeader(3), 1);
}

// --- Reading fields ----------------------------------------------------------------

// Ids beyond the bound, absurd or negative store nothing and mark nothing.
TEST_F(FocusableTest, AbsurdFieldIdsStoreNothing) {
  Focusable bounds(4, nullptr);
  EXPECT_EQ(bounds.SetValueInt(Focusable::kMaxFieldID + 1, 1, 1), 0);
  EXPECT_EQ(bounds.SetValue(2000000000, 4, u"x", 0, 0, 1), 0);
  EXPECT_EQ(bounds.SetValueStr(-4, CString(u"x"), 1), 0);
  EXPECT_EQ(bounds.GetFieldCount(0), 1);
  EXPECT_EQ(bounds.NeedToSave(), 0);
}

TEST_F(FocusableTest, IdZeroIsTheGuidOutsideTheItemArrayAndMalformedGuidsHaveNoSerial) {
  Focusable record(4, nullptr);
  EXPECT_EQ(record.SetValueStr(0, CString(u"R3_G9"), 1), 1);
  EXPECT_EQ(record.GetFieldCount(0), 1);
  EXPECT_EQ(record.GetFocusableID(), 9);
  // SetGUID marks only a real change.
  Focusable fresh(4, nullptr);
  fresh.SetGUID(CString());
  EXPECT_EQ(fresh.NeedToSave(), 0);
  for (const char16_t* guid : {u"", u"R4", u"R4_", u"X4_G5", u"R4_Gx"}) {
    record.SetGUID(CString(guid));
    EXPECT_EQ(record.GetFocusableID(), -1) << CString(guid).ToUtf8();
  }
  record.SetGUID(CString(u"R12_G345"));
  EXPECT_EQ(record.GetFocusableID(), 345);
}

TEST_F(FocusableTest, SetValueWithTextAcceptsKnownTypesOnlyAndKeepsANulCharacter) {
  Focusable record(4, nullptr);
  EXPECT_EQ(record.SetValue_wStr(5, 9, CString(u"x")), 0);
  EXPECT_EQ(record.IsFieldActive(5, 0), 0);
  const CString text(std::u16string(u"ab\0cd", 5));
  EXPECT_EQ(record.SetValue_wStr(6, 4, text), 1);
  EXPECT_EQ(record.SetValue_wStr(6, 4, text), 1);  // existing item
  EXPECT_EQ(record.GetFieldString(6, 0), text);
}

// The item that is there keeps its type and takes the value in its own form:
// an int the whole part, a double the number, a date the day count, a string
// item the stored text; each type prints in its stored form.
TEST_F(FocusableTest, TypedSettersWriteIntoAnItemOfAnotherTypeInItsOwnForm) {
  Focusable record(4, nullptr);
  record.SetValueBOOL(5, 1, 0);
  EXPECT_EQ(record.SetValueInt(5, 0, 1), 1);
  int flag = -1;
  EXPECT_EQ(record.GetValueBOOL(5, &flag), 1);  // still a flag
  EXPECT_EQ(flag, 0);
  EXPECT_EQ(record.IsItemChanged(5, 0), 1);
  record.SetValueInt(6, 40, 0);
  EXPECT_EQ(record.SetValueBOOL(6, 1, 0), 1);
  EXPECT_EQ(record.GetFieldInt(6), 1);  // still an int
  EXPECT_EQ(record.SetValueDouble(6, 2.5, 1), 1);
  EXPECT_EQ(record.GetFieldInt(6), 2);
  record.SetValueDouble(7, 1.5, 0);
  EXPECT_EQ(record.SetValueInt(7, 3, 1), 1);
  record.SetValueDate(8, COleDateTime(2001, 1, 1, 0, 0, 0), 0);
  EXPECT_EQ(record.SetValueInt(8, 2, 1), 1);
  record.SetValueStr(9, CString(u"text"), 0);
  EXPECT_EQ(record.SetValueDate(9, COleDateTime(2005, 11, 7, 21, 5, 0), 1), 1);
  EXPECT_EQ(record.GetFieldDate(9).GetStatus(), COleDateTime::invalid);
  record.SetValueBOOL(10, 5, 1);
  const std::pair<int, const char16_t*> shown[] = {
      {5, u"0"}, {6, u"2"}, {7, u"3.000000"}, {8, u"01/01/00@00:00"}, {9, u"11/07/05@21:05"},
      {10, u"1"}};
  for (auto [id, text] : shown) EXPECT_EQ(record.GetFieldString(id, 0), CString(text)) << id;
}

// --- Change tracking ---------------------------------------------------------------

TEST_F(FocusableTest, ChangeMarksOfItemsAndOfTheRecord) {
  Focusable record(4, nullptr);
  record.SetValue(5, 0, u"10", 0, 0, 1);
  record.SetValueInt(5, 11, 0);
  EXPECT_EQ(record.GetFieldString(5, 0), CString(u"10"));
  EXPECT_EQ(record.NeedToSave(), 0);
  record.SetValueInt(5, 12, 1);
  EXPECT_EQ(record.GetFieldString(5, 0), CString(u"12"));
  EXPECT_EQ(record.NeedToSave(), 1);
  // A setter can clear the item's flag, never the record's.
  record.SetValueInt(5, 13, 0);
  EXPECT_EQ(record.IsItemChanged(5, 0), 0);
  EXPECT_EQ(record.NeedToSave(), 1);
  // A saved record still needs saving while an item is marked.
  Focusable saved(4, nullptr);
  saved.SetValueStr(4, CString(u"a"), 1);
  saved.SetValueStr(5, CString(u"b"), 1);
  saved.ChangeItemChangeStatus(4, 0);  // the store wrote field 4 only
  saved.FocusableSaved();
  EXPECT_EQ(saved.NeedToSave(), 1);
  saved.ChangeItemChangeStatus(5, 0);
  saved.FocusableSaved();
  EXPECT_EQ(saved.NeedToSave(), 0);
}

// --- Status rules ----------------------------------------------------------------------

TEST_F(FocusableTest, APostKeepsOneRankOrFlagAtATime) {
  Focusable post(4, nullptr);
  post.SetFocusableStatus(516);
  post.ReSetFocusableStatus(256, 0);
  EXPECT_EQ(post.GetFocusableStatus(), 256);
  Focusable other(7, nullptr);
  other.SetFocusableStatus(516);
  other.ReSetFocusableStatus(256, 0);
  EXPECT_EQ(other.GetFocusableStatus(), 772);
  Focusable read(11, nullptr);
  read.SetFocusableStatus(2 | 4);
  read.ReSetFocusableStatus(1, 2);
  EXPECT_EQ(read.GetFocusableStatus(), 5);
}

TEST_F(FocusableTest, RemovedStatusFollowsTheRankingRules) {
  FakeSettings settings;
  ScopedEntry<SettingsEntryPoints> scope(&settings);
  const struct {
    int rankMode, oldStatus, newBits, added, removed;
  } cases[] = {
      // Touching an unread post marks it read.
      {1, 2, 512, 513, 2},
      {0, 3, 4, 4, 0},  // already read: nothing moves
      // Mode 1: a rank given up, and flagging, which ranks 1024.
      {1, 512, 1024, 1024, 512},
      {1, 1, 4, 1028, 0},
      // Mode 2: outer ranks only in the first rule.
      {2, 256 | 1, 2048, 2048, 256},
      {2, 2048 | 1, 4, 2052, 0},  // flagging: old's rank tested 256, 512, 1024 only
      {2, 256 | 1, 4, 2052, 256},
      // Marking unread clears read, rank and flag.
      {2, 1 | 1024 | 4, 2, 2, 1 | 1024 | 4},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.rankMode << " " << c.oldStatus << " -> " << c.newBits);
    settings.rankMode = c.rankMode;
    int added = 0, removed = 0;
    Focusable::GetRemovedStatus(c.oldStatus, c.newBits, added, removed);
    EXPECT_EQ(added, c.added);
    EXPECT_EQ(removed, c.removed);
  }
  int added = 0, removed = 8;  // only ever added to
  Focusable::GetRemovedStatus(2, 1, added, removed);
  EXPECT_EQ(removed, 10);
}

// --- Copies and moves --------------------------------------------------------------------

TEST_F(FocusableTest, CopyIntoExistingItemsMarksOnlyRealChanges) {
  Focusable source(4, nullptr);
  source.SetValueStr(4, CString(u"same"), 0);
  source.SetValueStr(5, CString(u"new"), 0);
  Focusable target(4, nullptr);
  target.SetValueStr(4, CString(u"same"), 0);
  target.SetValueStr(5, CString(u"old"), 0);
  target.SetValueStr(9, CString(u"extra"), 0);
  target.CopyFocusable(&source, 0);
  // Target had more places than source: its items stay and are compared.
  EXPECT_EQ(target.IsItemChanged(4, 0), 0);
  EXPECT_EQ(target.IsItemChanged(5, 0), 1);
  EXPECT_EQ(target.GetFieldString(5, 0), CString(u"new"));
  EXPECT_EQ(target.GetFieldString(9, 0), CString(u"extra"));
  // A full copy removes what the source lacks.
  Focusable sparse(4, nullptr);
  sparse.SetValueStr(9, CString(u"only"), 0);
  target.CopyFocusable(&sparse, 1);
  EXPECT_EQ(target.IsFieldActive(4, 0), 0);
  EXPECT_EQ(target.IsItemChanged(9, 0), 1);
  target.CopyFocusable(nullptr, 1);  // stops at once
}

// --- Through the entry points ----------------------------------------------------------

TEST_F(FocusableTest, OpeningAPostShowsItsLink) {
  FakeRegistry registry;
  int panelStandIn = 0;
  registry.panelOne = reinterpret_cast<IIPanel*>(&panelStandIn);
  ScopedEntry<RegistryEntryPoints> scope(&registry);
  Focusable post(4, nullptr);
  EXPECT_EQ(post.OpenFocusable(), 1);
  EXPECT_TRUE(registry.panelMessages.empty());  // no link
  post.SetValueStr(10, CString(u"http://a/"), 1);
  EXPECT_EQ(post.OpenFocusable(), 1);
  Focusable tree(7, nullptr);
  tree.SetValueStr(10, CString(u"http://b/"), 1);
  EXPECT_EQ(tree.OpenFocusable(), 1);
  ASSERT_EQ(registry.panelMessages.size(), 1u);
  EXPECT_EQ(registry.panelMessages[0].request.message, 1081);
  EXPECT_EQ(registry.panelMessages[0].request.text, CString(u"http://a/"));
}

TEST_F(FocusableTest, BroadcastGoesToTheOriginatingControllerWhileTheRegistryLives) {
  FakeRegistry registry;
  FakeController controller;
  registry.controllers[3] = &controller;
  ScopedEntry<RegistryEntryPoints> scope(&registry);
  Focusable post(4, nullptr);
  EXPECT_EQ(post.BroadCastUpdate(0, 1041), 0);  // no origin
  post.SetOriginedResourceControllerID(3, 0);
  EXPECT_EQ(post.BroadCastUpdate(0, 1041), 7);
  EXPECT_EQ(post.BroadCastUpdate(1, 1041), 9);
  ASSERT_EQ(registry.sent.size(), 2u);
  EXPECT_TRUE(registry.sent[1].posted);
  EXPECT_EQ(registry.sent[0].kind, 3);
  EXPECT_EQ(registry.sent[0].record, &post);
  registry.valid = 0;
  EXPECT_EQ(post.BroadCastUpdate(0, 1041), 0);
  post.SetOriginedResourceControllerID(4, 0);  // unknown controller
  registry.valid = 1;
  EXPECT_EQ(post.BroadCastUpdate(0, 1041), 0);
  EXPECT_EQ(registry.sent.size(), 2u);
}

// --- Finders ------------------------------------------------------------------------------

TEST_F(FocusableTest, FindByGuidAsksTheControllerByIdThenByGuid) {
  FakeRegistry registry;
  FakeController controller;
  registry.controllers[4] = &controller;
  ScopedEntry<RegistryEntryPoints> scope(&registry);
  Focusable byID(4, nullptr);
  Focusable byGUID(4, nullptr);
  controller.byID[7] = &byID;
  controller.byGUID[CString(u"R4_G8")] = &byGUID;
  EXPECT_EQ(Focusable::GetFocusable_wGUID(CString(u"R4_G7")), &byID);
  EXPECT_EQ(Focusable::GetFocusable_wGUID(CString(u"R4_G8")), &byGUID);
  for (const char16_t* guid : {u"R4_G9", u"R4", u"R4_G-1", u"R5_G7", u""}) {
    EXPECT_EQ(Focusable::GetFocusable_wGUID(CString(guid)), nullptr) << CString(guid).ToUtf8();
  }
}

// The finder by database location waits on the manual clock for a registry
// that tests script.
class DatabaseLocationTest : public FocusableTest {
 protected:
  ScopedManualClock clock_;
  FakeRegistry registry;
  ScopedEntry<RegistryEntryPoints> scope_{&registry};
  FakeController controller;
  Focusable known{4, nullptr};
};

TEST_F(DatabaseLocationTest, GivesUpWithoutControllerAfterItsBoundOrWhenTheRegistryCloses) {
  EXPECT_EQ(Focusable::GetFocusable_wDBLocation(CString(u"R3_G1"), -1, 0), nullptr);
  EXPECT_EQ(registry.postCtrlQuestions, 0);
  const int64_t start = Clock::MonotonicMillis();
  EXPECT_EQ(Focusable::GetFocusable_wDBLocation(CString(u"R3_G1"), 120, 0), nullptr);
  const int64_t end = Clock::MonotonicMillis();
  EXPECT_GE(end - start, 15000);
  EXPECT_LT(end - start, 15100);
  const int asked = registry.validityQuestions;  // closes on the fifth question from here
  registry.onValidityQuestion = [&](int n) {
    if (n == asked + 5) registry.valid = 0;
  };
  EXPECT_EQ(Focusable::GetFocusable_wDBLocation(CString(u"R3_G1"), 120, 0), nullptr);
  EXPECT_LT(Clock::MonotonicMillis() - end, 100);
}

// A controller that appears late gets its own bound to take its id.
TEST_F(DatabaseLocationTest, GivesTheIdOfALateControllerItsOwnBound) {
  // The controller appears after 14 seconds and takes its id (and with it
  // its records) 5 seconds later.
  const int64_t start = Clock::MonotonicMillis();
  registry.onPostCtrlQuestion = [&](int) {
    if (Clock::MonotonicMillis() - start >= 14000) registry.byDatabase[120] = &controller;
  };
  registry.onValidityQuestion = [&](int) {
    if (controller.id == -1 && Clock::MonotonicMillis() - start >= 19000) {
      controller.id = 3;
      controller.byGUID[CString(u"R3_G1")] = &known;
    }
  };
  EXPECT_EQ(Focusable::GetFocusable_wDBLocation(CString(u"R3_G1"), 120, 5), &known);
  EXPECT_LT(Clock::MonotonicMillis() - start, 29100);
  // Known controller, unknown record, no database: null.
  EXPECT_EQ(Focusable::GetFocusable_wDBLocation(CString(u"R3_G2"), 120, 5), nullptr);
}

}  // namespace
}  // namespace kordll
