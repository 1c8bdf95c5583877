// FocusableLink: what it forwards, what it keeps for itself, its lifetime
// beside its target's, reading it from a record database and bringing it to
// life.

#include "kordll/record/FocusableLink.h"

#include <gtest/gtest.h>

#include <memory>

#include "kordll/platform/Clock.h"
#include "kordll/record/AZeusDB.h"
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

// Records printed through this catalogue stand-in collect attributes in a
// list instead of a template.
class AttributeRecorder : public RelationsEntryPoints {
 public:
  PrintTemplate* DecorateFocusable(Focusable*, int) override {
    return reinterpret_cast<PrintTemplate*>(&printed);
  }
  int AddPrintTemplateAttribute(PrintTemplate*, CString name, CString value) override {
    attributes.push_back(name + u"=" + value);
    return 1;
  }
  RGDBTemplate* GetRGDBTemplate(int relation) override {
    return relation == 8 ? &linkLayout : relation == 4 ? &postLayout : nullptr;
  }
  int printed = 0;
  CStringArray attributes;
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
    relations_.postLayout.AddField(1, 6, 0, CString(), CString(), 0, 0);
    relations_.postLayout.AddField(2, 16, 2, CString(), CString(), 0, 0);
    relations_.postLayout.AddField(3, 16, 2, CString(), CString(), 0, 0);
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
  AttributeRecorder relations_;
  ScopedEntry<RelationsEntryPoints> installRelations_{&relations_};
  int deaths_ = 0;
};

// Without a target (and without a database to delete from).
TEST_F(FocusableLinkTest, AFreshLinkAnswersItsFallbacks) {
  FocusableLink link;
  EXPECT_EQ(link.GetFieldString(1, 1), CString(u"-1"));
  EXPECT_EQ(link.CreateCopyFocusable(1), nullptr);
  EXPECT_EQ(link.SetValueStr(4, CString(u"x"), 1), 0);
  const std::pair<int, int> answers[] = {{link.GetFocusableRelation(), 8},
                                         {link.GetFieldCount(1), 4},
                                         {link.GetFieldCount(0), 0},
                                         {link.GetStatusImage(), 4},
                                         {link.GetFlagImage(), -1},
                                         {link.LoadFocusable(nullptr), 0},
                                         {link.Reserve(), 0},
                                         {link.Release(nullptr), 0},
                                         {link.DeleteFocusable(), 0}};
  test::ExpectAnswers(answers);
}

TEST_F(FocusableLinkTest, ALinkForwardsToItsTargetButKeepsItsOwnFields) {
  CountedRecord* post = HeldPost(u"R3_G7");
  post->SetDBSlotIndex(45);
  FocusableLink link(post, 1);
  EXPECT_EQ(link.GetFieldString(0, 1), CString(u"R3_G7"));
  EXPECT_EQ(link.GetFieldString(2, 1), CString(u"45"));
  EXPECT_EQ(link.GetFieldString(1, 1), CString(u"-1"));  // the target has no database
  EXPECT_EQ(link.GetFocusableTitle(), CString(u"Target title"));
  EXPECT_EQ(link.GetFocusableID(), 7);
  EXPECT_EQ(link.IsBoldFocusable(), 1);
  EXPECT_EQ(link.GetDBSlotIndex(), -1);  // the link's own slot

  post->SetValueBOOL(6, 1, 0);
  EXPECT_EQ(link.GetFieldBool(6), 0);  // the base record's empty items

  EXPECT_EQ(link.SetValueStr(4, CString(u"Changed"), 1), 1);
  EXPECT_EQ(post->NeedToSave(), 1);
  EXPECT_EQ(link.NeedToSave(), 0);
  EXPECT_EQ(link.IsItemChanged(4, 0), 1);  // the target's flag
  EXPECT_EQ(link.IsItemChanged(4, 1), 1);  // the link's: the GUID was set
  link.FocusableSaved();
  EXPECT_EQ(link.IsItemChanged(0, 1), 0);
  EXPECT_EQ(link.IsFieldActive(3, 1), 1);
  EXPECT_EQ(link.IsFieldActive(4, 1), 0);

  Focusable* copy = link.CreateCopyFocusable(1);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(dynamic_cast<FocusableLink*>(copy), nullptr);
  EXPECT_EQ(copy->GetPostTitle(), CString(u"Changed"));
  delete copy;

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

  link.DecorateFocusable(0);
  EXPECT_EQ(relations_.attributes,
            (CStringArray{CString(u"linked=true"), CString(u"deleted=true")}));
  link.ReSetFocusableStatus(0, 64);
  EXPECT_EQ(link.GetFocusableLinkStatus(), 4);
  EXPECT_EQ(post->ReleaseHeader(3), 1);
}

TEST_F(FocusableLinkTest, BroadcastOfALinkLooksAtTheBaseRecordAndSendsNothing) {
  FakeRegistry registry;
  FakeController controller;
  registry.controllers[3] = &controller;
  ScopedEntry<RegistryEntryPoints> scope(&registry);
  CountedRecord* post = HeldPost(u"R3_G10");
  {
    FocusableLink link(post, 1);
    link.SetOriginedResourceControllerID(3, 0);
    // The link's origin is its own; the broadcast asks the base record,
    // which comes from no controller.
    EXPECT_EQ(link.BroadCastUpdate(0, 1041), 0);
    EXPECT_EQ(link.BroadCastUpdate(1, 1041), 0);
    EXPECT_TRUE(registry.sent.empty());
  }
  EXPECT_EQ(post->ReleaseHeader(3), 0);
  EXPECT_EQ(post->ReleaseHeader(3), 1);
}

TEST_F(FocusableLinkTest, ReleasingTheOnlyHolderOfALinkDeletesTheLinkNotTheTarget) {
  CountedRecord* post = HeldPost(u"R3_G9");
  auto* link = new FocusableLink(post, 1);
  link->ReserveHeader(5);
  EXPECT_EQ(post->GetHeaderPossessors()->size(), 2u);
  EXPECT_EQ(link->ReleaseHeader(5), 1);  // the link is gone
  EXPECT_EQ(deaths_, 0);
  EXPECT_EQ(post->GetHeaderPossessors()->size(), 1u);
  EXPECT_EQ(post->ReleaseHeader(3), 1);
  EXPECT_EQ(deaths_, 1);
}

TEST_F(FocusableLinkTest, ATargetDestroyedThroughTheLinkIsForgotten) {
  auto* post = new CountedRecord(4, &deaths_);
  auto* link = new FocusableLink(post, 1);
  link->ReserveHeader(5);
  link->SetOriginedResourceControllerID(9, 0);
  ASSERT_EQ(post->GetHeaderPossessors()->size(), 2u);
  EXPECT_EQ(post->ReleaseHeader(5), 0);  // 9 still holds the target
  // The target's last holder goes through the link; the link stays, held
  // by 5, as an orphan that answers its fallbacks.
  EXPECT_EQ(link->ReleaseHeader(9), 0);
  EXPECT_EQ(deaths_, 1);
  EXPECT_EQ(link->GetLinkedFocusable(), nullptr);
  EXPECT_EQ(link->GetOriginedResourceControllerID(), -1);
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

TEST_F(FocusableLinkTest, CopiesShareTheLinkStateAndALinkNeverTakesALinkAsItsTarget) {
  CountedRecord* post = HeldPost(u"R3_G12");
  FocusableLink link(post, 1);
  FocusableLink copy(link);
  copy.SetDBSlotIndex(81);
  EXPECT_EQ(link.GetDBSlotIndex(), 81);
  FocusableLink second(&link, 1);
  EXPECT_EQ(second.GetLinkedFocusable(), nullptr);
  EXPECT_EQ(second.SetLinkedFocusable(&link), 0);
  EXPECT_EQ(second.GetLinkedFocusable(), nullptr);
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
  ASSERT_GE(linkSlot, 0);

  Focusable plain(-1, &links);
  plain.SetDBSlotIndex(linkSlot);
  ASSERT_EQ(links.readFocusableSlot(&plain, nullptr, nullptr), 1);
  FocusableLink read;
  read.SetFocusableLink(&plain);
  EXPECT_EQ(read.GetFieldString(1, 1), CString(u"120"));
  EXPECT_EQ(read.GetFieldString(2, 1), CString::Formatted(CString(u"%d"), stored.GetDBSlotIndex()));
  EXPECT_EQ(read.GetDBSlotIndex(), linkSlot);

  // No controller for the database: the link stays an orphan.
  ScopedManualClock clock;
  EXPECT_EQ(read.PreLoading(), 0);

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
  Focusable again(-1, &posts);
  again.SetDBSlotIndex(stored.GetDBSlotIndex());
  EXPECT_EQ(posts.readFocusableSlot(&again, nullptr, nullptr), 1);
}

}  // namespace
}  // namespace kordll
