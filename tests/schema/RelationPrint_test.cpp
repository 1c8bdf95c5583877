// Printing records through their relation: the display form
// (DecorateFocusable) and the backup form (PrintFocusableBackup), their
// escaping, the enclosure and file-size treatments, and the load guard with
// the reservations it leaves.

#include <gtest/gtest.h>

#include <memory>

#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/Clock.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/SettingsEntryPoints.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/schema/Relation.h"
#include "kordll/toolkit/KorlanDateTime.h"
#include "kordll/toolkit/PrintTag.h"
#include "kordll/toolkit/PrintTemplate.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

using Printed = std::unique_ptr<PrintTemplate>;

std::string Text(const CString& s) { return s.ToUtf8(); }

// The value of the first tag of that name, or "<none>".
std::string TagValue(PrintTemplate* printed, const char* name) {
  PrintTag* tag = printed->GetTag(CString(name));
  return tag ? Text(tag->GetTagValue()) : "<none>";
}

std::string RootAttribute(PrintTemplate* printed, const char* name) {
  return Text(printed->GetRootTag()->GetAttribute(CString(name)));
}

// The root's "read trashed deleted statusvalue" attributes.
std::string Status(PrintTemplate* printed) {
  std::string out;
  for (const char* name : {"read", "trashed", "deleted", "statusvalue"}) {
    out += (out.empty() ? "" : " ") + RootAttribute(printed, name);
  }
  return out;
}

class RelationPrintTest : public ::testing::Test {
 protected:
  RelationPrintTest() : clock_(2024, 3, 10, 12, 0, 0) {}

  const Relation* Rel(int id) { return catalogue_.GetRelation(id); }

  // Sets one text field of an in-memory record and decorates it.
  PrintTemplate* Loaded(Focusable* record, int relation, const char* guid, int field,
                        const char* value) {
    record->SetGUID(CString(guid));
    record->SetValueStr(field, CString(value), 0);
    record->SetFullyLoaded(1);
    return Rel(relation)->DecorateFocusable(record, 1);
  }

  // A post held in memory only, as a controller makes it.
  void FillPost(Focusable* post) {
    post->SetGUID(CString("R3_G7"));
    post->SetOriginedResourceControllerID(3, 0);
    post->SetValueInt(1, Focusable::kStatusRead | 0x10, 0);
    post->SetValueDate(2, received_, 0);
    post->SetValueStr(4, CString("A & B <i>"), 0);
    post->SetValueStr(7, CString("<![CDATA[old]]> more <![CDATA[x]]>"), 0);
    post->SetValueStr(10, CString("http://x/?a=1&b=<2>"), 0);
    post->SetValueStr(12, CString("<![CDATA[kept]]>"), 0);
    post->SetValueStr(15, CString("http://e/a.mp3|2097152|audio/mpeg"), 0);
    post->SetFullyLoaded(1);
  }

  ScopedManualClock clock_;
  COleDateTime received_{2024, 3, 10, 10, 30, 0};
  GlobalRelationsCtrl catalogue_;
};

TEST_F(RelationPrintTest, DecoratedPostEscapesEachFieldAsItsFlagsSayOrGoesInRawWithoutEscape) {
  Focusable post(4, nullptr);
  FillPost(&post);
  Printed printed(Rel(4)->DecorateFocusable(&post, 1));
  ASSERT_TRUE(printed != nullptr && printed->GetRootTag() != nullptr);
  EXPECT_EQ(Text(printed->GetRootTag()->GetTagName()), "post");

  const std::string ago = Text(KorlanDateTime::GetAgo_COleDateTime(received_, 0, 1, 0, 1));
  ASSERT_FALSE(ago.empty());
  // Fields in id order; unkeyed (1, 5, 6, 9, 14) and empty ones (8, 11, 13,
  // 16) are left out; a date that is not set prints as an invalid date.
  const std::string expected = "<guid>3:R3_G7</guid>\n<recdate>" + ago +
                               "</recdate>\n<pubdate>Invalid Date</pubdate>\n"
                               "<title><![CDATA[A & B <i>]]></title>\n"
                               "<desc><![CDATA[old more x]]></desc>\n"
                               "<link>http://x/?a=1&amp;b=&lt;2&gt;</link>\n"
                               "<commentlink><![CDATA[kept]]></commentlink>\n"
                               "<enclosure><link>http://e/a.mp3</link>\n<size>2.0 MBs</size>\n"
                               "<type>audio/mpeg</type>\n</enclosure>\n";
  EXPECT_EQ(Text(printed->FlushTemplate(1)), expected);

  EXPECT_EQ(Status(printed.get()), "true true false 17");

  post.SetValueInt(1, Focusable::kStatusUnread, 0);
  post.SetFocusableDeleted(1);
  printed.reset(Rel(4)->DecorateFocusable(&post, 0));
  ASSERT_NE(printed, nullptr);
  EXPECT_EQ(TagValue(printed.get(), "title"), "A & B <i>");
  EXPECT_EQ(TagValue(printed.get(), "desc"), "<![CDATA[old]]> more <![CDATA[x]]>");
  EXPECT_EQ(TagValue(printed.get(), "link"), "http://x/?a=1&b=<2>");
  EXPECT_EQ(Status(printed.get()), "false false true 2");
}

TEST_F(RelationPrintTest,
       EnclosurePartsDecideTheNestedElementOfRelation4OnlyAndGuidsTheController) {
  const struct Case {
    const char* value;
    const char* expected;  // the flushed enclosure, or "" for nothing
  } cases[] = {
      {"http://e/a", "<enclosure><link>http://e/a</link>\n</enclosure>\n"},
      {"|2048|audio/mpeg", ""},
      {"u|1048576|a|b",
       "<enclosure><link>u</link>\n<size>1024 KBs</size>\n"
       "<type>a|b</type>\n</enclosure>\n"},
      {"u|junk|t", "<enclosure><link>u</link>\n<type>t</type>\n</enclosure>\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value);
    Focusable post(4, nullptr);
    Printed printed(Loaded(&post, 4, "R3_G1", 15, c.value));
    ASSERT_NE(printed, nullptr);
    PrintTag* tag = printed->GetTag(CString("enclosure"));
    EXPECT_EQ(tag ? Text(tag->FlushTag()) + "\n" : "", c.expected);
    if (tag != nullptr) {
      EXPECT_EQ(printed->GetTags(CString("enclosure"))->size(), 1u);
    }
  }
  // Other relations keep the value as it is; the guid carries the controller
  // for posts and notes only.
  for (int relation : {11, 26, 25, 5}) {
    Focusable record(relation, nullptr);
    record.SetOriginedResourceControllerID(11, 0);
    Printed printed(Loaded(&record, relation, "R11_G2", relation % 5 == 0 ? 30 : 15, "u|4096|t"));
    ASSERT_NE(printed, nullptr);
    if (relation == 11 || relation == 26) {
      EXPECT_EQ(TagValue(printed.get(), "enclosure"), "u|4096|t") << relation;
      EXPECT_EQ(printed->GetTag(CString("enclosure"))->GetChildTemplate(), nullptr);
    }
    EXPECT_EQ(TagValue(printed.get(), "guid"), relation == 5 ? "R11_G2" : "11:R11_G2") << relation;
  }
  // Relations without keys print no field at all, only the status.
  Focusable tree(7, nullptr);
  Printed printed(Loaded(&tree, 7, "R7_G1", 6, "caption"));
  ASSERT_NE(printed, nullptr);
  EXPECT_EQ(printed->GetRootTag(), nullptr);  // no catalogue name: no root
  EXPECT_EQ(Text(printed->FlushTemplate(0)), "");
}

TEST_F(RelationPrintTest, FileSizesPrintAsKilobytesOrMegabytesOrNothing) {
  Focusable file(18, nullptr);
  file.SetGUID(CString("R14_G3"));
  file.SetValueInt(1, 34, 0);
  file.SetValueInt(10, 1000, 0);
  file.SetValueInt(11, 5 * 1024 + 100, 0);
  file.SetValueInt(14, 0, 0);
  file.SetValueStr(5, CString("a&b.mp3"), 0);
  file.SetFullyLoaded(1);
  Printed printed(Rel(18)->DecorateFocusable(&file, 1));
  ASSERT_NE(printed, nullptr);
  std::string tags;
  for (const char* tag :
       {"filesize", "filedownloadedsize", "filestatus", "folderid", "filesavename"})
    tags += TagValue(printed.get(), tag) + "|";
  EXPECT_EQ(tags, "<none>|5 KBs|34|0|a&amp;b.mp3|");
  EXPECT_EQ(RootAttribute(printed.get(), "statusvalue"), "34");

  // A size stored beyond the int range keeps its value.
  file.SetValue_wStr(10, 0, CString("3000000000"));
  Printed big(Rel(18)->DecorateFocusable(&file, 1));
  ASSERT_NE(big, nullptr);
  EXPECT_EQ(TagValue(big.get(), "filesize"), "2861.0 MBs");
}

TEST_F(RelationPrintTest, BackupPrintsEveryFieldByTypeAndIdAndALinksIntsAsStoredText) {
  Focusable post(4, nullptr);
  FillPost(&post);
  post.SetValueInt(9, 42, 0);
  Printed printed(Rel(4)->PrintFocusableBackup(&post));
  ASSERT_TRUE(printed != nullptr && printed->GetRootTag() != nullptr);
  EXPECT_EQ(Text(printed->GetRootTag()->GetTagName()), "R4");
  // Dates as stored text, ints as numbers; only "<" and ">" are escaped.
  const std::string expected =
      "<4:0>R3_G7</4:0>\n"
      "<0:1>17</0:1>\n"
      "<2:2>03/10/24@10:30</2:2>\n"
      "<4:4>A & B &lt;i&gt;</4:4>\n"
      "<4:7>&lt;![CDATA[old]]&gt; more &lt;![CDATA[x]]&gt;</4:7>\n"
      "<0:9>42</0:9>\n"
      "<4:10>http://x/?a=1&b=&lt;2&gt;</4:10>\n"
      "<4:12>&lt;![CDATA[kept]]&gt;</4:12>\n"
      "<4:15>http://e/a.mp3|2097152|audio/mpeg</4:15>\n";
  EXPECT_EQ(Text(printed->FlushTemplate(1)), expected);
  EXPECT_EQ(printed->GetTag(CString("SysGUID")), nullptr);  // no database

  Focusable link(8, nullptr);
  link.SetGUID(CString("R3_G5"));
  link.SetValueInt(2, 120, 0);
  link.SetFullyLoaded(1);
  printed.reset(Rel(8)->PrintFocusableBackup(&link));
  ASSERT_NE(printed, nullptr);
  // Field 1 and 3 have no value: as text they are empty and are left out
  // (as numbers they would have printed -1).
  EXPECT_EQ(Text(printed->FlushTemplate(1)), "<4:0>R3_G5</4:0>\n<0:2>120</0:2>\n");
}

class FakeRankMode : public SettingsEntryPoints {
 public:
  int GetCurrentPreferencesIntValue(int field) override { return field == kRankModeField ? 2 : 0; }
};

TEST_F(RelationPrintTest, RecordsPrintThroughTheCatalogueOfTheProcessOrNotAtAll) {
  ASSERT_EQ(GlobalRelationsCtrl::GetGlobalRelationsCtrl(), &catalogue_);
  FakeRankMode settings;
  SettingsEntryPoints* previous = SettingsEntryPoints::Install(&settings);
  Focusable post(4, nullptr);
  FillPost(&post);
  post.SetValueInt(1, Focusable::kStatusRank1024, 0);
  Printed printed(post.DecorateFocusable(1));
  SettingsEntryPoints::Install(previous);
  ASSERT_NE(printed, nullptr);
  EXPECT_EQ(Text(printed->GetRootTag()->GetTagName()), "post");
  // The record adds its rank level through the catalogue.
  EXPECT_EQ(RootAttribute(printed.get(), "postranklevel"), "7");

  Printed backup(post.PrintFocusableBackup());
  ASSERT_NE(backup, nullptr);
  EXPECT_EQ(Text(backup->GetRootTag()->GetTagName()), "R4");

  // A record that cannot be loaded, or none, prints nothing.
  Focusable notLoaded(4, nullptr);  // not loaded, no database to load from
  notLoaded.SetGUID(CString("R3_G1"));
  EXPECT_TRUE(Rel(4)->DecorateFocusable(&notLoaded, 1) == nullptr &&
              Rel(4)->PrintFocusableBackup(&notLoaded) == nullptr &&
              Rel(4)->DecorateFocusable(nullptr, 1) == nullptr &&
              Rel(4)->PrintFocusableBackup(nullptr) == nullptr);
  EXPECT_EQ(notLoaded.GetReferenceCount(), 0);
  // A relation the catalogue does not hold prints nothing.
  Focusable stranger(77, nullptr);
  stranger.SetFullyLoaded(1);
  EXPECT_TRUE(stranger.DecorateFocusable(1) == nullptr &&
              stranger.PrintFocusableBackup() == nullptr);
}

// Records stored in a database and not loaded: the print loads them.
class RelationPrintStoredTest : public RelationPrintTest {
 protected:
  void SetUp() override {
    db_ = std::make_unique<AZeusDB>(root_.DataRoot(), CString("posts"), 0, 0);
    db_->SetDBID(120, 1);
    Focusable written(4, db_.get());
    FillPost(&written);
    written.SetFullyLoaded(0);
    written.UpdateNeeded();
    ASSERT_EQ(db_->writeFocusableSlot(&written, nullptr, nullptr), 1);
    slot_ = written.GetDBSlotIndex();
    ASSERT_GE(slot_, 0);
  }

  // A header-only record of the stored post, as a controller keeps it.
  Focusable* HeaderOnly() {
    Focusable* record = new Focusable(4, db_.get());
    record->SetGUID(CString("R3_G7"));
    record->SetDBSlotIndex(slot_);
    return record;
  }

  // "<references> refs, body <fully loaded>" of a record.
  static std::string Held(Focusable* record) {
    return std::to_string(record->GetReferenceCount()) + " refs, body " +
           std::to_string(record->IsFullyLoaded(0));
  }

  test::TempRoot root_;
  std::unique_ptr<AZeusDB> db_;
  int slot_ = -1;
};

TEST_F(RelationPrintStoredTest, HeldRecordIsLoadedPrintedAndReleasedAgain) {
  Focusable* record = HeaderOnly();
  record->ReserveHeader(3);
  ASSERT_EQ(record->IsFullyLoaded(0), 0);

  Printed backup(Rel(4)->PrintFocusableBackup(record));
  ASSERT_NE(backup, nullptr);
  EXPECT_EQ(TagValue(backup.get(), "4:4"), "A & B &lt;i&gt;");
  EXPECT_EQ(TagValue(backup.get(), "SysGUID"), "120:" + std::to_string(slot_));
  // The print gave back what it took: no reference left, body unloaded.
  EXPECT_EQ(Held(record), "0 refs, body 0");

  Printed decorated(Rel(4)->DecorateFocusable(record, 1));
  ASSERT_NE(decorated, nullptr);
  EXPECT_EQ(TagValue(decorated.get(), "title"), "<![CDATA[A & B <i>]]>");
  EXPECT_EQ(RootAttribute(decorated.get(), "statusvalue"), "17");
  EXPECT_EQ(record->GetReferenceCount(), 0);

  // A reader that holds the body keeps it, and its one reference.
  record->Reserve();
  ASSERT_EQ(record->LoadFocusable(nullptr), 1);  // now two references
  record->Release();
  Printed again(Rel(4)->DecorateFocusable(record, 1));
  ASSERT_NE(again, nullptr);
  EXPECT_EQ(Held(record), "1 refs, body 1");
  record->Release();
  EXPECT_EQ(record->ReleaseHeader(3), 1);  // the last holder deletes it
}

TEST_F(RelationPrintStoredTest, RecordNobodyHoldsIsPrintedAndLeftAsFoundButNotFromAGoneSlot) {
  Focusable* record = HeaderOnly();
  Printed printed(Rel(4)->DecorateFocusable(record, 1));
  ASSERT_NE(printed, nullptr);
  EXPECT_EQ(TagValue(printed.get(), "guid"), "-1:R3_G7");
  // Still there for its creator, with no reference and no body.
  EXPECT_EQ(Held(record), "0 refs, body 0");
  // A held record whose slot is gone prints nothing and keeps no reference.
  record->SetDBSlotIndex(slot_ + 5);
  record->ReserveHeader(3);
  EXPECT_EQ(Rel(4)->DecorateFocusable(record, 1), nullptr);
  EXPECT_EQ(Rel(4)->PrintFocusableBackup(record), nullptr);
  EXPECT_EQ(record->GetReferenceCount(), 0);
  EXPECT_EQ(record->ReleaseHeader(3), 1);
}

TEST_F(RelationPrintStoredTest, PrintingShowsPendingChangesAndSavesNothing) {
  Focusable* record = HeaderOnly();
  record->ReserveHeader(3);
  record->SetFocusableStatus(2);  // changed in memory, not saved yet
  Printed decorated(Rel(4)->DecorateFocusable(record, 1));
  ASSERT_NE(decorated, nullptr);
  EXPECT_EQ(RootAttribute(decorated.get(), "statusvalue"), "2");
  EXPECT_EQ(TagValue(decorated.get(), "title"), "<![CDATA[A & B <i>]]>");
  Printed backup(Rel(4)->PrintFocusableBackup(record));
  ASSERT_NE(backup, nullptr);
  EXPECT_EQ(Held(record), "0 refs, body 0");
  EXPECT_EQ(record->GetFieldInt(1), 2);
  EXPECT_EQ(record->NeedToSave(), 1);
  Focusable stored(4, db_.get());
  stored.SetDBSlotIndex(slot_);
  ASSERT_EQ(stored.LoadFocusable(nullptr), 1);
  EXPECT_EQ(stored.GetFieldInt(1), 17);
  EXPECT_EQ(record->ReleaseHeader(3), 1);
}

}  // namespace
}  // namespace kordll
