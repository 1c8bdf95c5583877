// The record object without a database: lifetime, field reads and writes,
// lazy parsing, change tracking, status rules, copies and post fields.

#include "kordll/record/Focusable.h"

#include <gtest/gtest.h>

#include "kordll/platform/Clock.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/IntItem.h"
#include "kordll/record/Item.h"
#include "kordll/record/LibraryLifetime.h"
#include "kordll/record/RGDBTemplate.h"
#include "tests/record/FocusableTestSupport.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

using test::CountedRecord;
using test::ExpectAnswers;
using test::FakeRegistry;
using test::FakeSettings;
using test::FocusableTest;
using test::ScopedEntry;

// --- Lifetime ------------------------------------------------------------------

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
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(record->GetFieldString(4, 0), CString(u"changed title"));
  EXPECT_EQ(record->Release(&destroyed), 1);
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(deaths, 1);
}

TEST_F(FocusableTest, LastReleaseOfAHeldRecordUnloadsTheBodyAndKeepsTheHeader) {
  int deaths = 0;
  auto* record = new CountedRecord(4, &deaths);
  record->SetGUID(CString(u"R3_G17"));
  record->SetDBSlotIndex(81);
  record->SetOriginedResourceControllerID(3, 0);
  record->SetValueStr(4, CString(u"title"), 0);
  record->SetFullyLoaded(1);
  EXPECT_EQ(record->IsFullyLoaded(1), 1);  // reserves
  EXPECT_EQ(record->GetReferenceCount(), 1);
  int destroyed = 0;
  EXPECT_EQ(record->Release(&destroyed), 1);
  EXPECT_EQ(destroyed, 0);
  EXPECT_EQ(deaths, 0);
  EXPECT_EQ(record->GetFieldCount(0), 1);  // no items left
  EXPECT_EQ(record->IsFullyLoaded(0), 0);
  EXPECT_EQ(record->GetGUID(), CString(u"R3_G17"));
  EXPECT_EQ(record->GetDBSlotIndex(), 81);
  EXPECT_EQ(record->GetFocusableRelation(), 4);
  // The controller drops the header: nobody else holds it, so it goes.
  EXPECT_EQ(record->ReleaseHeader(3), 1);
  EXPECT_EQ(deaths, 1);
}

TEST_F(FocusableTest, ReleaseHeaderOfARecordStillReservedOrOriginedOnlyForgetsTheOrigin) {
  int deaths = 0;
  auto* record = new CountedRecord(4, &deaths);
  record->SetOriginedResourceControllerID(5, 0);
  record->Reserve();
  EXPECT_EQ(record->ReleaseHeader(5), 0);
  EXPECT_EQ(deaths, 0);
  EXPECT_EQ(record->GetOriginedResourceControllerID(), -1);
  // Now held by nobody but one reference: the last Release removes it.
  int destroyed = 0;
  EXPECT_EQ(record->Release(&destroyed), 1);
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(deaths, 1);

  // A header left without holders stays until the next call.
  record = new CountedRecord(4, &deaths);
  record->ReserveHeader(7);
  record->SetOriginedResourceControllerID(7, 0);
  // One entry, but the origin is still set: the object stays.
  EXPECT_EQ(record->ReleaseHeader(7), 0);
  EXPECT_EQ(deaths, 1);
  EXPECT_EQ(record->GetHeaderPossessors(), nullptr);
  EXPECT_EQ(record->GetOriginedResourceControllerID(), -1);
  EXPECT_EQ(record->IsInUse(), 0);
  record->Reserve();
  EXPECT_EQ(record->Release(nullptr), 1);
  EXPECT_EQ(deaths, 2);
}

TEST_F(FocusableTest, HeaderPossessorsMayRepeatAndTheLastOneDeletes) {
  int deaths = 0;
  auto* record = new CountedRecord(11, &deaths);
  EXPECT_EQ(record->GetHeaderPossessors(), nullptr);
  EXPECT_EQ(record->IsInUse(), 0);
  record->ReserveHeader(7);
  record->ReserveHeader(13);
  record->ReserveHeader(7);
  EXPECT_EQ(record->IsInUse(), 1);
  ASSERT_NE(record->GetHeaderPossessors(), nullptr);
  EXPECT_EQ(*record->GetHeaderPossessors(), (std::vector<int>{7, 13, 7}));
  EXPECT_EQ(record->ReleaseHeader(7), 0);
  EXPECT_EQ(*record->GetHeaderPossessors(), (std::vector<int>{13, 7}));
  EXPECT_EQ(record->ReleaseHeader(99), 0);  // not a holder: nothing
  EXPECT_EQ(record->ReleaseHeader(13), 0);
  EXPECT_EQ(deaths, 0);
  EXPECT_EQ(record->ReleaseHeader(7), 1);
  EXPECT_EQ(deaths, 1);
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

// Below their lowest id (ints 0, doubles and flags 3, dates 1), for absent
// fields (9) and fields of another type (5) the getters answer fallbacks.
TEST_F(FocusableTest, GettersAnswerFallbacksBelowTheirLowestIdAndForAbsentOrOtherFields) {
  Focusable record(4, nullptr);
  record.SetValueStr(5, CString(u"12"), 0);
  int x = 5;
  double d = 5.0;
  COleDateTime date;
  CString text;
  const std::pair<double, double> answers[] = {
      {record.GetFieldInt(0), -1},        {record.GetFieldDouble(0), -1},
      {record.GetFieldBool(0), -1},       {record.GetValueInt(0, &x), 0},
      {record.GetValueDouble(3, &d), 0},  {record.GetValueBOOL(3, &x), 0},
      {record.GetValueDate(1, &date), 0}, {record.GetValueStr(-1, &text), 0},
      {record.GetFieldInt(9), -1},        {record.GetFieldBool(9), 0},
      {record.GetFieldDouble(9), 0},      {record.GetValueStr(9, &text), 0},
      {record.GetValueInt(9, &x), 0},     {record.GetFieldInt(5), -1},
      {record.GetFieldBool(5), 0},        {record.GetValueInt(5, &x), 0}};
  ExpectAnswers(answers);
  EXPECT_EQ(x, 5);
  EXPECT_EQ(record.GetFieldDate(1).GetStatus(), COleDateTime::invalid);
  EXPECT_EQ(record.GetFieldString(9, 0), CString());
  EXPECT_EQ(record.GetValueStr(5, &text), 1);
  EXPECT_EQ(text, CString(u"12"));
  // Ids beyond the bound, absurd or negative store nothing; doubles and flags
  // start at field 4 and the status takes no text (but the record is marked).
  Focusable bounds(4, nullptr);
  EXPECT_EQ(bounds.SetValueInt(Focusable::kMaxFieldID + 1, 1, 1), 0);
  EXPECT_EQ(bounds.SetValue(2000000000, 4, u"x", 0, 0, 1), 0);
  EXPECT_EQ(bounds.SetValueStr(-4, CString(u"x"), 1), 0);
  EXPECT_EQ(bounds.SetValueDouble(3, 1.5, 1), 0);
  EXPECT_EQ(bounds.SetValueBOOL(3, 1, 1), 0);
  EXPECT_EQ(bounds.IsFieldActive(3, 0), 0);
  EXPECT_EQ(bounds.GetFieldCount(0), 1);
  EXPECT_EQ(bounds.NeedToSave(), 0);
  EXPECT_EQ(bounds.SetValueStr(1, CString(u"7"), 1), 0);
  EXPECT_EQ(bounds.IsFieldActive(1, 0), 0);
  EXPECT_EQ(bounds.NeedToSave(), 1);
  EXPECT_EQ(bounds.SetValueDouble(4, 1.5, 1), 1);
  EXPECT_EQ(bounds.GetFieldDouble(4), 1.5);
}

TEST_F(FocusableTest, IdZeroIsTheGuidOutsideTheItemArrayAndMalformedGuidsHaveNoSerial) {
  Focusable record(4, nullptr);
  EXPECT_EQ(record.SetValueStr(0, CString(u"R3_G9"), 1), 1);
  EXPECT_EQ(record.GetFieldString(0, 0), CString(u"R3_G9"));
  CString guid;
  EXPECT_EQ(record.GetValueStr(0, &guid), 1);
  EXPECT_EQ(guid, CString(u"R3_G9"));
  EXPECT_EQ(record.GetFieldCount(0), 1);
  EXPECT_EQ(record.GetFocusableID(), 9);
  Item same(CString(u"R3_G9"));
  Item other(CString(u"r3_g9"));
  EXPECT_EQ(record.IsFieldItemSame(0, &same), 1);
  EXPECT_EQ(record.IsFieldItemSame(0, &other), 0);
  // SetGUID marks only a real change.
  Focusable fresh(4, nullptr);
  fresh.SetGUID(CString());
  EXPECT_EQ(fresh.NeedToSave(), 0);
  fresh.SetGUID(CString(u"R1_G2"));
  EXPECT_EQ(fresh.NeedToSave(), 1);
  for (const char16_t* guid : {u"", u"R4", u"R4_", u"X4_G5", u"R4_Gx"}) {
    record.SetGUID(CString(guid));
    EXPECT_EQ(record.GetFocusableID(), -1) << CString(guid).ToUtf8();
  }
  record.SetGUID(CString(u"R12_G345"));
  EXPECT_EQ(record.GetFocusableID(), 345);
  EXPECT_EQ(record.GetParentGUID(), CString(u"R7_G-1"));
  EXPECT_EQ(Focusable(16, nullptr).GetParentGUID(), CString(u"R13_G-1"));
}

TEST_F(FocusableTest, FieldStringGivesTheStoredFormOfEachType) {
  Focusable record(4, nullptr);
  record.SetValueInt(5, 42, 1);
  record.SetValueDate(6, COleDateTime(2005, 11, 7, 21, 5, 0), 1);
  record.SetValueBOOL(7, 5, 1);
  record.SetValueDouble(8, 2.5, 1);
  record.SetValueStr(9, CString(u"plain"), 1);
  EXPECT_EQ(record.GetFieldString(5, 0), CString(u"42"));
  EXPECT_EQ(record.GetFieldString(6, 0), CString(u"11/07/05@21:05"));
  EXPECT_EQ(record.GetFieldString(7, 0), CString(u"1"));
  EXPECT_EQ(record.GetFieldString(8, 0), CString(u"2.500000"));
  EXPECT_EQ(record.GetFieldString(9, 0), CString(u"plain"));
  EXPECT_EQ(record.GetFieldCount(0), 10);
}

// --- Lazy parsing of stored pieces ------------------------------------------------

TEST_F(FocusableTest, PiecesOfALongFieldJoinAndAWholeValueReplacesThem) {
  Focusable record(4, nullptr);
  record.SetValue(4, 4, u"Hello, ", 1, 1, 0);
  record.SetValue(4, 4, u"world", 1, 0, 1);
  EXPECT_EQ(record.GetFieldString(4, 0), CString(u"Hello, world"));
  record.SetValue(4, 4, u"again", 0, 0, 1);
  EXPECT_EQ(record.GetFieldString(4, 0), CString(u"again"));
  // The GUID is pieced the same way.
  record.SetValue(0, 4, u"R3_", 1, 1, 0);
  record.SetValue(0, 4, u"G5", 1, 0, 1);
  EXPECT_EQ(record.GetGUID(), CString(u"R3_G5"));
  EXPECT_EQ(record.NeedToSave(), 0);  // what comes from disk is no change
  EXPECT_EQ(record.IsItemChanged(4, 0), 0);
  // A stored flag keeps its value, not its text.
  record.SetValue(12, 3, u"0", 0, 0, 1);
  EXPECT_EQ(record.GetFieldBool(12), 0);
  CString raw(u"unset");
  record.GetValueStr(12, &raw);
  EXPECT_TRUE(raw.IsEmpty());
  record.SetValue(13, 3, u"no", 0, 0, 1);
  EXPECT_EQ(record.GetFieldBool(13), 1);
  // A long flag field takes only its last piece.
  record.SetValue(13, 3, u"1", 1, 1, 0);
  record.SetValue(13, 3, u"0", 1, 0, 1);
  EXPECT_EQ(record.GetFieldBool(13), 0);
}

TEST_F(FocusableTest, StoredNumbersAreParsedOnFirstTypedRead) {
  Focusable record(4, nullptr);
  record.SetValue(5, 0, u"12abc", 0, 0, 1);
  record.SetValue(6, 1, u"3.5", 0, 0, 1);
  record.SetValue(7, 2, u"01/02/10@03:04", 0, 0, 1);
  double raw = 1.0;
  EXPECT_EQ(record.GetValueDouble(6, &raw), 1);
  EXPECT_EQ(raw, 0.0);  // not parsed yet: the native value as it stands
  EXPECT_EQ(record.GetFieldString(6, 0), CString(u"3.500000"));  // written as its value
  EXPECT_EQ(record.GetValueDouble(6, &raw), 1);
  EXPECT_EQ(raw, 0.0);  // printing it put nothing into the item
  EXPECT_EQ(record.GetFieldDouble(6), 3.5);
  EXPECT_EQ(record.GetValueDouble(6, &raw), 1);
  EXPECT_EQ(raw, 3.5);  // a typed read does
  EXPECT_EQ(record.GetFieldInt(5), 12);
  EXPECT_EQ(record.GetFieldString(5, 0), CString(u"12abc"));  // unchanged text stands
  COleDateTime date = record.GetFieldDate(7);
  ASSERT_EQ(date.GetStatus(), COleDateTime::valid);
  EXPECT_EQ(date.GetYear(), 2010);
  // A later piece of an existing field is parsed again from the joined text.
  record.SetValue(5, 0, u"4", 1, 1, 0);
  record.SetValue(5, 0, u"2", 1, 0, 1);
  EXPECT_EQ(record.GetFieldInt(5), 42);
}

TEST_F(FocusableTest, SetValueWithTextAcceptsKnownTypesOnlyAndKeepsANulCharacter) {
  Focusable record(4, nullptr);
  EXPECT_EQ(record.SetValue_wStr(5, 9, CString(u"x")), 0);
  EXPECT_EQ(record.IsFieldActive(5, 0), 0);
  EXPECT_EQ(record.SetValue_wStr(5, 0, CString(u"31")), 1);
  EXPECT_EQ(record.GetFieldInt(5), 31);
  EXPECT_EQ(record.SetValue_wStr(5, 0, CString(u"32")), 1);  // existing: parsed at once
  int value = 0;
  EXPECT_EQ(record.GetValueInt(5, &value), 1);
  EXPECT_EQ(value, 32);
  EXPECT_EQ(record.SetValue_wStr(0, 77, CString(u"R1_G1")), 1);
  EXPECT_EQ(record.GetGUID(), CString(u"R1_G1"));
  const CString text(std::u16string(u"ab\0cd", 5));
  EXPECT_EQ(record.SetValue_wStr(6, 4, text), 1);
  EXPECT_EQ(record.GetFieldString(6, 0), text);
  EXPECT_EQ(record.SetValue_wStr(6, 4, text), 1);  // existing item
  EXPECT_EQ(record.GetFieldString(6, 0).GetLength(), 5);
}

TEST_F(FocusableTest, TypedSettersWriteIntoAnItemOfAnotherTypeInItsOwnForm) {
  Focusable record(4, nullptr);
  record.SetValueBOOL(5, 1, 0);
  EXPECT_EQ(record.SetValueInt(5, 0, 1), 1);
  int flag = -1;
  EXPECT_EQ(record.GetValueBOOL(5, &flag), 1);  // still a flag
  EXPECT_EQ(flag, 0);
  EXPECT_EQ(record.GetFieldString(5, 0), CString(u"0"));
  EXPECT_EQ(record.IsItemChanged(5, 0), 1);
  record.SetValueInt(6, 40, 0);
  EXPECT_EQ(record.SetValueBOOL(6, 1, 0), 1);
  EXPECT_EQ(record.GetFieldInt(6), 1);  // still an int
  // The item that is there keeps its type and takes the value in its own
  // form: an int the whole part, a double the number, a date the day count,
  // a string item the stored text.
  EXPECT_EQ(record.SetValueDouble(6, 2.5, 1), 1);
  EXPECT_EQ(record.GetFieldInt(6), 2);
  EXPECT_EQ(record.GetFieldDouble(6), 0.0);
  record.SetValueDouble(7, 1.5, 0);
  EXPECT_EQ(record.SetValueInt(7, 3, 1), 1);
  EXPECT_EQ(record.GetFieldDouble(7), 3.0);
  EXPECT_EQ(record.GetFieldString(7, 0), CString(u"3.000000"));
  record.SetValueDate(8, COleDateTime(2001, 1, 1, 0, 0, 0), 0);
  EXPECT_EQ(record.SetValueInt(8, 2, 1), 1);
  EXPECT_EQ(record.GetFieldString(8, 0), CString(u"01/01/00@00:00"));
  record.SetValueStr(9, CString(u"text"), 0);
  EXPECT_EQ(record.SetValueDate(9, COleDateTime(2005, 11, 7, 21, 5, 0), 1), 1);
  EXPECT_EQ(record.GetFieldString(9, 0), CString(u"11/07/05@21:05"));
  EXPECT_EQ(record.GetFieldDate(9).GetStatus(), COleDateTime::invalid);
  EXPECT_EQ(record.IsItemChanged(9, 0), 1);
}

// --- Change tracking ---------------------------------------------------------------

TEST_F(FocusableTest, ChangeMarksOfItemsAndOfTheRecord) {
  Focusable record(4, nullptr);
  record.SetValue(5, 0, u"10", 0, 0, 1);
  record.SetValueInt(5, 11, 0);
  EXPECT_EQ(record.GetFieldInt(5), 11);
  EXPECT_EQ(record.GetFieldString(5, 0), CString(u"10"));
  EXPECT_EQ(record.NeedToSave(), 0);
  record.SetValueInt(5, 12, 1);
  EXPECT_EQ(record.GetFieldString(5, 0), CString(u"12"));
  EXPECT_EQ(record.IsItemChanged(5, 0), 1);
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
  EXPECT_EQ(saved.IsItemChanged(1, 0), 0);  // below 2: the record's flag
  saved.ChangeItemChangeStatus(0, 1);
  EXPECT_EQ(saved.IsItemChanged(0, 0), 1);

  // UpdateNeeded parses and marks every item.
  Focusable update(4, nullptr);
  update.SetValue(5, 0, u"77", 0, 0, 1);
  update.SetValue(6, 1, u"1.5", 0, 0, 1);
  update.UpdateNeeded();
  EXPECT_EQ(update.NeedToSave(), 1);
  EXPECT_EQ(update.IsItemChanged(5, 0), 1);
  EXPECT_EQ(update.IsItemChanged(6, 0), 1);
  double raw = 0.0;
  update.GetValueDouble(6, &raw);
  EXPECT_EQ(raw, 1.5);
  EXPECT_EQ(update.GetFieldString(5, 0), CString(u"77"));
}

// --- Status rules ----------------------------------------------------------------------

TEST_F(FocusableTest, APostKeepsOneRankOrFlagAtATimeAndDatesCanBeAskedAsDays) {
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
  EXPECT_EQ(read.NeedToSave(), 1);
  // Dates keep only the day when asked for the date.
  Focusable record(4, nullptr);
  // Without database or item: status zero, dates invalid.
  EXPECT_EQ(record.GetFocusableStatus(), 0);
  EXPECT_EQ(record.GetReceiveDateTime().GetStatus(), COleDateTime::invalid);
  EXPECT_EQ(record.GetPublicationDate().GetStatus(), COleDateTime::invalid);
  record.SetReceiveDateTime(COleDateTime(2006, 3, 4, 15, 30, 0));
  record.SetPublicationDateTime(COleDateTime(2006, 3, 5, 1, 2, 0));
  COleDateTime day = record.GetReceiveDate();
  EXPECT_EQ(day.GetDay(), 4);
  EXPECT_EQ(day.GetHour(), 0);
  EXPECT_EQ(day.GetMinute(), 0);
  EXPECT_EQ(record.GetPublicationDate().GetDay(), 5);
  EXPECT_EQ(record.GetPostReceivedDate().GetHour(), 15);
}

TEST_F(FocusableTest, RemovedStatusFollowsTheRankingRules) {
  FakeSettings settings;
  ScopedEntry<SettingsEntryPoints> scope(&settings);
  const struct {
    int rankMode, oldStatus, newBits, added, removed;
  } cases[] = {
      // Touching an unread post marks it read.
      {1, 2, 512, 513, 2},
      {0, 2, 4, 5, 2},
      {0, 3, 4, 4, 0},  // already read: nothing moves
      // Mode 1: a rank given up, and flagging, which ranks 1024.
      {1, 512, 1024, 1024, 512},
      {1, 512 | 1, 4, 1028, 512},
      {1, 1, 4, 1028, 0},
      // Mode 2: outer ranks only in the first rule.
      {2, 256 | 1, 2048, 2048, 256},
      {2, 256 | 1, 512, 512, 0},    // the new bits miss 2306: nothing from this rule
      {2, 512 | 1, 1024, 1024, 0},  // 2304 misses 512: left alone
      {2, 512 | 1, 4, 2052, 0},
      {2, 2048 | 1, 4, 2052, 0},  // flagging: old's rank tested 256, 512, 1024 only
      {2, 256 | 1, 4, 2052, 256},
      // Marking unread clears read, rank and flag.
      {2, 1 | 1024 | 4, 2, 2, 1 | 1024 | 4},
      {1, 1 | 256 | 512, 2, 2, 1 | 256 | 512},
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

TEST_F(FocusableTest, FlagImageTakesTheFirstRankOrFlagBitAndKindsFollowTheRelation) {
  Focusable post(4, nullptr);
  const std::pair<int, int> cases[] = {{0, -1},    {4, 8},         {256 | 4, 13}, {512, 14},
                                       {1024, 16}, {2048 | 4, 17}, {2, -1}};
  for (auto [status, image] : cases) {
    post.SetFocusableStatus(status);
    EXPECT_EQ(post.GetFlagImage(), image) << status;
  }
  post.SetFocusableStatus(2);
  EXPECT_EQ(post.IsBoldFocusable(), 1);
  EXPECT_EQ(post.GetFocusableImage(), 21);
  EXPECT_EQ(Focusable(25, nullptr).GetFocusableImage(), 28);
  EXPECT_EQ(Focusable(7, nullptr).GetFocusableImage(), -1);
  // Posts, mail and notes are posts; a link or folder is not; trees are no posts.
  for (int relation : {4, 11, 26}) EXPECT_EQ(Focusable(relation, nullptr).IsPostFocusable(), 1);
  for (int relation : {8, 16, 25}) EXPECT_EQ(Focusable(relation, nullptr).IsPostFocusable(), 0);
  EXPECT_EQ(Focusable(7, nullptr).IsTreeItemFocusable(), 1);
  EXPECT_EQ(Focusable(4, nullptr).IsTreeItemFocusable(), 0);
}

// --- Post fields and tags -------------------------------------------------------------

TEST_F(FocusableTest, PostFieldsAreReadByRelation) {
  Focusable post(11, nullptr);
  post.SetPostTitle(CString(u"Title"));
  post.SetValueStr(10, CString(u"http://example.com/"), 1);
  post.SetValueStr(7, CString(u"desc"), 1);
  post.SetValueStr(11, CString(u"<p>content</p>"), 1);
  EXPECT_EQ(post.GetFocusableTitle(), CString(u"Title"));
  EXPECT_EQ(post.GetPostLink(), CString(u"http://example.com/"));
  EXPECT_EQ(post.GetPostDescription(), CString(u"desc"));
  EXPECT_EQ(post.GetPostEncodedContent(), CString(u"<p>content</p>"));

  Focusable talk(25, nullptr);
  talk.SetPostTitle(CString(u"Talk"));
  EXPECT_EQ(talk.GetFieldString(5, 0), CString(u"Talk"));
  EXPECT_EQ(talk.GetPostLink(), CString());

  Focusable folder(16, nullptr);
  folder.SetValueStr(4, CString(u"Folder"), 1);
  EXPECT_EQ(folder.GetFocusableTitle(), CString(u"Folder"));
  folder.SetPostTitle(CString(u"ignored"));
  EXPECT_EQ(folder.GetFieldString(4, 0), CString(u"Folder"));

  Focusable other(3, nullptr);
  other.SetValueStr(4, CString(u"x"), 1);
  EXPECT_EQ(other.GetPostTitle(), CString());
  EXPECT_EQ(other.GetPostPublicationDate().GetStatus(), COleDateTime::invalid);
}

TEST_F(FocusableTest, TagsLiveInAFieldOfTheirRelation) {
  for (int relation : {2, 4, 7, 11, 18, 23, 25, 26, 27, 30}) {
    SCOPED_TRACE(relation);
    Focusable record(relation, nullptr);
    record.SetFocusableTags_InStr(CString(u"a,b"));
    EXPECT_EQ(record.GetFocusableTags_InStr(), CString(u"a,b"));
    EXPECT_EQ(record.NeedToSave(), 1);
  }
  Focusable post(4, nullptr);
  post.SetFocusableTags_InStr(CString(u"a,b"));
  EXPECT_EQ(post.GetFieldString(16, 0), CString(u"a,b"));

  Focusable none(3, nullptr);
  none.SetFocusableTags_InStr(CString(u"x"));
  EXPECT_EQ(none.GetFieldCount(0), 1);
  EXPECT_EQ(none.GetFocusableTags_InStr(), CString());
}

TEST_F(FocusableTest, AuthorNamesAndCategoriesSplitIntoLists) {
  Focusable post(4, nullptr);
  post.SetValueStr(5, CString(u"Ann|Bob&898989;Jr||Cy"), 1);
  CStringArray names;
  post.GetPostAuthorNames(&names, CString(u"ignored"));
  EXPECT_EQ(names, (CStringArray{CString(u"Ann"), CString(u"Bob|Jr"), CString(u"Cy")}));

  Focusable mail(11, nullptr);
  mail.SetValueStr(5, CString(u"Ann:ann@x|Bob&898989;Jr:bob@y|:nobody"), 1);
  names.clear();
  mail.GetPostAuthorNames(&names, CString());
  EXPECT_EQ(names, (CStringArray{CString(u"Ann"), CString(u"Bob|Jr")}));

  Focusable other(26, nullptr);
  other.SetValueStr(5, CString(u"Ann"), 1);
  CStringArray none;
  other.GetPostAuthorNames(&none, CString());
  EXPECT_TRUE(none.empty());
  // Categories split at the separator given.
  post.SetValueStr(6, CString(u"news|tech||x"), 1);
  CStringArray plain;
  post.GetPostCategories(&plain, CString(u"|"));
  EXPECT_EQ(plain, (CStringArray{CString(u"news"), CString(u"tech"), CString(u"x")}));

  post.SetValueStr(6, CString(u"a, b|c,,d"), 1);
  CStringArray commas;
  post.GetPostCategories(&commas, CString(u", "));
  // Bars are dropped first, then the text splits at comma or blank.
  EXPECT_EQ(commas, (CStringArray{CString(u"a"), CString(u"bc"), CString(u"d")}));

  Focusable tree(7, nullptr);
  tree.SetValueStr(6, CString(u"a|b"), 1);
  tree.GetPostCategories(&none, CString());
  EXPECT_TRUE(none.empty());
}

// --- Copies and moves --------------------------------------------------------------------

TEST_F(FocusableTest, CopyTakesIdentityAndValuesAndFullCopyTakesTheHeader) {
  Focusable source(4, nullptr);
  source.SetGUID(CString(u"R3_G8"));
  source.SetDBSlotIndex(44);
  source.SetOriginedResourceControllerID(3, 0);
  source.ReserveHeader(3);
  source.SetValueStr(4, CString(u"title"), 1);
  source.SetValueInt(6, 9, 0);
  Focusable* light = source.CreateCopyFocusable(0);
  EXPECT_EQ(light->GetGUID(), CString(u"R3_G8"));
  EXPECT_EQ(light->GetFieldString(4, 0), CString(u"title"));
  EXPECT_EQ(light->GetFocusableRelation(), 4);
  EXPECT_EQ(light->GetDBSlotIndex(), -1);
  EXPECT_EQ(light->GetOriginedResourceControllerID(), -1);
  EXPECT_EQ(light->GetFieldInt(6), 9);
  EXPECT_EQ(light->GetHeaderPossessors(), nullptr);
  EXPECT_EQ(light->GetDB(), nullptr);
  delete light;

  Focusable* full = source.CreateCopyFocusable(1);
  EXPECT_EQ(full->GetDBSlotIndex(), 44);
  EXPECT_EQ(full->GetOriginedResourceControllerID(), 3);
  ASSERT_NE(full->GetHeaderPossessors(), nullptr);
  EXPECT_EQ(*full->GetHeaderPossessors(), std::vector<int>{3});
  EXPECT_EQ(full->NeedToSave(), 1);
  full->ReleaseHeader(3);  // header only, origin 3: stays
  delete full;
  source.ReleaseHeader(3);
}

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
  sparse.SetValueStr(6, CString(u"only"), 0);
  Focusable dense(4, nullptr);
  for (int id = 2; id <= 6; ++id) dense.SetValueStr(id, CString(u"v"), 0);
  dense.CopyFocusable(&sparse, 1);
  EXPECT_EQ(dense.IsFieldActive(4, 0), 0);
  EXPECT_EQ(dense.GetFieldString(6, 0), CString(u"only"));
  EXPECT_EQ(dense.IsItemChanged(6, 0), 1);
  dense.CopyFocusable(nullptr, 1);  // stops at once
}

TEST_F(FocusableTest, AMovedAwayRecordAnswersFallbacks) {
  Focusable plain(4, nullptr);
  plain.SetGUID(CString(u"R3_G1"));
  plain.SetValueStr(4, CString(u"title"), 0);
  plain.SetDBSlotIndex(12);
  Focusable typed(-1, nullptr);
  typed.MoveFocusableImpl(&plain);
  EXPECT_EQ(typed.GetGUID(), CString(u"R3_G1"));
  EXPECT_EQ(typed.GetFieldString(4, 0), CString(u"title"));
  EXPECT_EQ(typed.GetFocusableRelation(), 4);
  EXPECT_EQ(typed.GetDBSlotIndex(), 12);

  EXPECT_EQ(plain.GetGUID(), CString());
  EXPECT_EQ(plain.GetDBSlotIndex(), -1);
  EXPECT_EQ(plain.GetFocusableRelation(), 0);
  EXPECT_EQ(plain.GetFieldCount(0), 0);
  EXPECT_EQ(plain.GetFieldInt(5), -1);
  EXPECT_EQ(plain.SetValueStr(4, CString(u"x"), 1), 0);
  EXPECT_EQ(plain.GetFocusableStatus(), 0);
  EXPECT_EQ(plain.Reserve(), 0);
  EXPECT_EQ(plain.Release(nullptr), 1);
  EXPECT_EQ(plain.ReleaseHeader(3), 0);
  EXPECT_EQ(plain.SaveFocusable(), 0);
  EXPECT_EQ(plain.LoadFocusable(nullptr), 0);
  EXPECT_EQ(plain.GetSourceResourceControllerID(), -1);
  EXPECT_EQ(plain.IsInUse(), 0);
  // Copying into it gives it state again.
  plain.CopyFocusable(&typed, 0);
  EXPECT_EQ(plain.GetGUID(), CString(u"R3_G1"));
}

}  // namespace
}  // namespace kordll
