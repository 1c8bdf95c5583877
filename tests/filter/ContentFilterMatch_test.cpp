// CheckFocusable stage by stage (activity, status mask, relation, dates,
// words and values, cascade) over posts stored in a record database and held
// by a controller as headers, counting every load, reservation and release
// a record sees: a filter that leaks or doubles a release is a real fault.

#include <gtest/gtest.h>

#include <memory>

#include "kordll/filter/ContentFilter.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/FocusableLink.h"
#include "kordll/record/LibraryLifetime.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

constexpr int kController = 3;

// A post header that counts what a filter does to it.
class CountingRecord : public Focusable {
 public:
  CountingRecord(int relation, AZeusDB* db, int* deaths)
      : Focusable(relation, db), deaths_(deaths) {}
  ~CountingRecord() override { ++*deaths_; }

  int Reserve() override {
    ++reserves;
    return Focusable::Reserve();
  }
  int Release(int* destroyed) override {
    ++releases;
    return Focusable::Release(destroyed);
  }
  int LoadFocusable(DBTaskItem* task) override {
    lastTaskWasNull = task == nullptr;
    if (task != nullptr) lastTask = *task;
    const int result = Focusable::LoadFocusable(task);
    if (result != 0) ++loads;
    return result;
  }

  // Reservations this record holds that nobody gave back.
  int Outstanding() const { return reserves - releases; }

  int reserves = 0;
  int releases = 0;
  int loads = 0;
  bool lastTaskWasNull = false;
  DBTaskItem lastTask;

 private:
  int* deaths_;
};

class ContentFilterMatchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    KordllProcessAttach();
    catalogue_ = std::make_unique<GlobalRelationsCtrl>();
    db_ = std::make_unique<AZeusDB>(root_.DataRoot(), CString(u"posts"), 0, 0);
  }
  void TearDown() override {
    for (CountingRecord* record : headers_) {
      // A record that still holds a reservation is not deleted here: the
      // death count then shows the leak.
      record->ReleaseHeader(kController);
    }
    EXPECT_EQ(deaths_, static_cast<int>(headers_.size())) << "a record kept a reservation";
    db_.reset();
    catalogue_.reset();
  }

  struct Post {
    const char16_t* title = u"";
    const char16_t* body = u"";
    const char16_t* author = u"";
    int status = 2;
    int relation = 4;
    COleDateTime published = COleDateTime(2007, 5, 5, 10, 0, 0);
    COleDateTime received = COleDateTime(2007, 5, 6, 11, 0, 0);
  };

  // Stores a post and gives back a header of it held by a controller, not
  // loaded. The fixture releases the header at the end.
  CountingRecord* Stored(const Post& post) {
    Focusable record(post.relation, db_.get());
    record.SetGUID(CString::Formatted(CString(u"R3_G%d"), ++serial_));
    record.SetFocusableStatus(post.status);
    record.SetPublicationDateTime(post.published);
    record.SetReceiveDateTime(post.received);
    record.SetValueStr(4, CString(post.title), 1);
    record.SetValueStr(7, CString(post.body), 1);
    record.SetValueStr(5, CString(post.author), 1);
    EXPECT_EQ(record.SaveFocusable(), 1) << db_->GetLastDBErrorMsgCode();
    auto* header = new CountingRecord(post.relation, db_.get(), &deaths_);
    header->SetDBSlotIndex(record.GetDBSlotIndex());
    header->ReserveHeader(kController);
    headers_.push_back(header);
    return header;
  }

  test::TempRoot root_;
  std::unique_ptr<GlobalRelationsCtrl> catalogue_;
  std::unique_ptr<AZeusDB> db_;
  std::vector<CountingRecord*> headers_;
  int deaths_ = 0;
  int serial_ = 0;
};

// --- Activity ------------------------------------------------------------------

TEST_F(ContentFilterMatchTest, ADefaultFilterAcceptsWithoutLoadingUnlessAskedTo) {
  ContentFilter filter;
  CountingRecord* post = Stored({.title = u"Anything"});
  EXPECT_EQ(filter.CheckFocusable(post, 0), 1);
  EXPECT_EQ(post->loads, 0);
  EXPECT_EQ(post->reserves, 0);

  EXPECT_EQ(filter.CheckFocusable(post, 1), 1);
  EXPECT_EQ(post->loads, 1);
  EXPECT_TRUE(post->lastTaskWasNull);
  EXPECT_EQ(post->IsFullyLoaded(0), 1);
  EXPECT_EQ(post->Outstanding(), 1);  // the caller's to release
  post->Release(nullptr);
}

TEST_F(ContentFilterMatchTest, AnInactiveFilterAcceptsWhatTheMaskWouldRefuse) {
  ContentFilter filter;
  filter.ReSetContentFilterMask(ContentFilter::kMaskRead, 0);
  CountingRecord* unread = Stored({.status = 2});
  EXPECT_EQ(filter.CheckFocusable(unread, 0), 0);
  filter.SetFilterActivity(0);
  EXPECT_EQ(filter.CheckFocusable(unread, 0), 1);
  EXPECT_EQ(unread->reserves, 0);
}

TEST_F(ContentFilterMatchTest, AResetFilterIsInactiveUntilActivatedAndThenWantsStatusZero) {
  ContentFilter filter;
  filter.ResetContentFilter();
  CountingRecord* unread = Stored({.status = 2});
  CountingRecord* plain = Stored({.status = 0});
  EXPECT_EQ(filter.CheckFocusable(unread, 0), 1);
  filter.SetFilterActivity(1);
  EXPECT_EQ(filter.GetFilterMask(), 0);
  EXPECT_EQ(filter.CheckFocusable(unread, 0), 0);
  EXPECT_EQ(filter.CheckFocusable(plain, 0), 1);
}

// --- Status mask ------------------------------------------------------------------

TEST_F(ContentFilterMatchTest, ASingleBitMaskWantsTheBitACombinedMaskTheWholeStatus) {
  CountingRecord* unreadRanked = Stored({.status = 2 | 512});
  CountingRecord* readAndUnread = Stored({.status = 3});
  ContentFilter unread;
  unread.ReSetContentFilterMask(ContentFilter::kMaskUnread, 0);
  EXPECT_EQ(unread.CheckFocusable(unreadRanked, 0), 1);
  EXPECT_EQ(unread.CheckFocusable(readAndUnread, 0), 1);

  ContentFilter both;
  both.ReSetContentFilterMask(3, 0);
  EXPECT_EQ(both.GetFilterMask(), 3);
  EXPECT_EQ(both.CheckFocusable(unreadRanked, 0), 0);
  EXPECT_EQ(both.CheckFocusable(readAndUnread, 1), 1);
  EXPECT_EQ(readAndUnread->Outstanding(), 1);
  readAndUnread->Release(nullptr);
  // The status is read on demand and nothing stays reserved.
  EXPECT_EQ(unreadRanked->reserves, 0);
}

TEST_F(ContentFilterMatchTest, ALinkIsTestedAsItsTargetAlsoForTheMask) {
  CountingRecord* read = Stored({.title = u"Linked post", .status = 1});
  FocusableLink link(read, 1);
  ContentFilter filter;
  filter.ReSetContentFilterMask(ContentFilter::kMaskUnread, 0);
  EXPECT_EQ(filter.CheckFocusable(&link, 0), 0);
  filter.ReSetContentFilterMask(ContentFilter::kMaskRead, 0);
  EXPECT_EQ(filter.CheckFocusable(&link, 0), 1);

  ContentFilter words;
  words.AddFilteredStringItem(CString(u"linked"), 4, 4, 0);
  EXPECT_EQ(words.CheckFocusable(&link, 1), 1);
  // The title was read for the test and released; the accepted target was
  // then loaded whole for the caller, who releases it through the link.
  EXPECT_EQ(read->loads, 2);
  EXPECT_EQ(read->Outstanding(), 1);
  link.Release(nullptr);
  EXPECT_EQ(read->Outstanding(), 0);
}

TEST_F(ContentFilterMatchTest, AnOrphanLinkAnswersItsFallbacks) {
  FocusableLink orphan;
  ContentFilter all;
  EXPECT_EQ(all.CheckFocusable(&orphan, 1), 1);
  ContentFilter unread;
  unread.ReSetContentFilterMask(ContentFilter::kMaskUnread, 0);
  EXPECT_EQ(unread.CheckFocusable(&orphan, 0), 0);
  ContentFilter words;
  words.AddFilteredStringItem(CString(u"x"), -1, -1, 0);
  EXPECT_EQ(words.CheckFocusable(&orphan, 1), 0);
  EXPECT_EQ(words.CheckFocusable(nullptr, 1), 0);
}

// --- Relation ------------------------------------------------------------------------

TEST_F(ContentFilterMatchTest, AFilterOnRelationFourRefusesRelationElevenBeforeLoading) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"news"), 4, -1, 0);
  CountingRecord* other = Stored({.title = u"news", .relation = 11});
  EXPECT_EQ(filter.CheckFocusable(other, 1), 0);
  EXPECT_EQ(other->reserves, 0);
  EXPECT_EQ(other->loads, 0);
}

TEST_F(ContentFilterMatchTest, KeywordsWithoutFieldsDecideNothing) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"absent"), -1, -1, 0);
  filter.RemoveAllFilteredFields();
  CStringArray keywords;
  filter.GetFilterKeywords(&keywords);
  ASSERT_EQ(keywords.size(), 1u);
  CountingRecord* post = Stored({.title = u"Something else"});
  EXPECT_EQ(filter.CheckFocusable(post, 0), 1);
  EXPECT_EQ(post->reserves, 0);
}

// --- Dates -----------------------------------------------------------------------------

TEST_F(ContentFilterMatchTest, AnEndDateRefusesLaterRecordsAndTheDayItselfPasses) {
  ContentFilter filter;
  COleDateTime start;
  start.SetStatus(COleDateTime::invalid);
  filter.SetDateInterval(start, COleDateTime(2007, 5, 5, 8, 0, 0));
  EXPECT_EQ(filter.GetEndDate().GetHour(), 23);
  CountingRecord* sameDay = Stored({.published = COleDateTime(2007, 5, 5, 22, 0, 0)});
  CountingRecord* later = Stored({.published = COleDateTime(2007, 5, 6, 0, 30, 0)});
  EXPECT_EQ(filter.CheckFocusable(sameDay, 0), 1);
  EXPECT_EQ(filter.CheckFocusable(later, 0), 0);
  // The dates were read on demand: no reservation, nothing loaded.
  EXPECT_EQ(sameDay->reserves + later->reserves, 0);
}

TEST_F(ContentFilterMatchTest, TheReceivedDateBitChoosesTheDateAndAnUndatedRecordIsRefused) {
  ContentFilter filter;
  filter.SetDateInterval(COleDateTime(2007, 5, 6, 0, 0, 0), COleDateTime(2007, 5, 6, 0, 0, 0));
  CountingRecord* post = Stored({.published = COleDateTime(2007, 5, 5, 10, 0, 0),
                                 .received = COleDateTime(2007, 5, 6, 11, 0, 0)});
  EXPECT_EQ(filter.CheckFocusable(post, 0), 0);
  filter.ReSetFilterStatus(ContentFilter::kReceivedDate, 0);
  EXPECT_EQ(filter.CheckFocusable(post, 0), 1);

  COleDateTime none;
  none.SetStatus(COleDateTime::invalid);
  CountingRecord* undated = Stored({.received = none});
  EXPECT_EQ(filter.CheckFocusable(undated, 0), 0);
}

// --- Words and values -------------------------------------------------------------------

TEST_F(ContentFilterMatchTest, AnAllFieldsSearchReadsTheStringFieldsOnceAndReleasesThem) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"kernel"), -1, -1, 0);
  CountingRecord* hit = Stored({.title = u"News", .body = u"A new Kernel release"});
  CountingRecord* miss = Stored({.title = u"News", .body = u"Nothing here"});
  // Refused: one partial load, one release.
  EXPECT_EQ(filter.CheckFocusable(miss, 1), 0);
  EXPECT_EQ(miss->loads, 1);
  EXPECT_EQ(miss->Outstanding(), 0);
  EXPECT_EQ(miss->IsFullyLoaded(0), 0);
  // The task of the relation names its string fields and not the others.
  ASSERT_FALSE(miss->lastTaskWasNull);
  EXPECT_EQ(miss->lastTask.GetFieldTaskType(7), DBTaskItem::kTaskLoad);
  EXPECT_EQ(miss->lastTask.GetFieldTaskType(4), DBTaskItem::kTaskLoad);
  EXPECT_NE(miss->lastTask.GetFieldTaskType(9), DBTaskItem::kTaskLoad);
  const DBTaskItem* kept = filter.GetTaskItem(4);
  ASSERT_NE(kept, nullptr);
  EXPECT_EQ(kept->GetFieldTaskType(7), DBTaskItem::kTaskLoad);

  // Accepted, not word dependent, no cascade, loadOnAccept 1: the record is
  // not loaded on the way out (the kept inversion).
  EXPECT_EQ(filter.CheckFocusable(hit, 1), 1);
  EXPECT_EQ(hit->loads, 1);
  EXPECT_EQ(hit->Outstanding(), 0);
  EXPECT_EQ(filter.GetTaskRelations(), std::vector<int>{4});
}

TEST_F(ContentFilterMatchTest, AWordMatchWithoutLoadOnAcceptLeavesTheRecordLoadedForTheCaller) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"kernel"), -1, -1, 0);
  CountingRecord* hit = Stored({.body = u"kernel"});
  EXPECT_EQ(filter.CheckFocusable(hit, 0), 1);
  EXPECT_EQ(hit->loads, 2);  // the partial read, then the whole record
  EXPECT_EQ(hit->IsFullyLoaded(0), 1);
  EXPECT_EQ(hit->Outstanding(), 1);
  hit->Release(nullptr);
}

TEST_F(ContentFilterMatchTest, AGivenFieldIsReadThroughTheFiltersTaskItem) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"release"), 4, 4, 0);
  CountingRecord* titled = Stored({.title = u"Release notes", .body = u""});
  CountingRecord* bodied = Stored({.title = u"Notes", .body = u"release"});
  EXPECT_EQ(filter.CheckFocusable(bodied, 1), 0);
  ASSERT_FALSE(bodied->lastTaskWasNull);
  EXPECT_EQ(bodied->lastTask.GetFieldTaskType(4), DBTaskItem::kTaskLoad);
  EXPECT_NE(bodied->lastTask.GetFieldTaskType(7), DBTaskItem::kTaskLoad);
  EXPECT_EQ(bodied->Outstanding(), 0);
  EXPECT_EQ(filter.CheckFocusable(titled, 1), 1);
  // Accepted through the end of the fields: loaded on the way out.
  EXPECT_EQ(titled->IsFullyLoaded(0), 1);
  EXPECT_EQ(titled->Outstanding(), 1);
  titled->Release(nullptr);
}

TEST_F(ContentFilterMatchTest, AFullyLoadedRecordIsReservedForTheTestAndGivenBack) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"absent"), -1, -1, 0);
  CountingRecord* post = Stored({.body = u"present"});
  ASSERT_EQ(post->LoadFocusable(nullptr), 1);
  const int before = post->Outstanding();
  EXPECT_EQ(filter.CheckFocusable(post, 0), 0);
  EXPECT_EQ(post->loads, 1);  // nothing read again
  EXPECT_EQ(post->Outstanding(), before);
  EXPECT_EQ(post->IsFullyLoaded(0), 1);
  post->Release(nullptr);
}

TEST_F(ContentFilterMatchTest, InAWordDependentFilterTheFirstWordDecides) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"alpha"), -1, -1, 0);
  filter.AddFilteredStringItem(CString(u"beta"), -1, -1, 0);
  filter.ReSetFilterStatus(ContentFilter::kWordDependent, 0);
  CountingRecord* first = Stored({.body = u"alpha only"});
  CountingRecord* second = Stored({.body = u"beta only"});
  EXPECT_EQ(filter.CheckFocusable(first, 1), 1);
  EXPECT_EQ(first->Outstanding(), 1);  // loaded on acceptance
  first->Release(nullptr);
  EXPECT_EQ(filter.CheckFocusable(second, 1), 0);
  EXPECT_EQ(second->Outstanding(), 0);
}

TEST_F(ContentFilterMatchTest, AWordDependentFilterAcceptsAtAFieldWithoutItems) {
  ContentFilter filter;
  ASSERT_EQ(filter.SetFilter(CString(u"(5)(:)(65519)()(4:7:4:|)(9,)")), 1);
  ASSERT_NE(filter.GetFilteredFieldItems(4, 7), nullptr);
  EXPECT_TRUE(filter.GetFilteredFieldItems(4, 7)->empty());
  CountingRecord* post = Stored({.body = u"anything"});
  EXPECT_EQ(filter.CheckFocusable(post, 0), 1);
  // No task item exists after reading a text: the whole record was read for
  // the test and released again.
  EXPECT_TRUE(post->lastTaskWasNull);
  EXPECT_EQ(post->Outstanding(), 0);
}

TEST_F(ContentFilterMatchTest, ExactMatchTrimsAndComparesWholeTexts) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"news"), 4, 4, 0);
  filter.ReSetFilterStatus(ContentFilter::kExactMatch, 0);
  CountingRecord* one = Stored({.title = u"  NEWS "});
  CountingRecord* two = Stored({.title = u"news today"});
  EXPECT_EQ(filter.CheckFocusable(one, 1), 1);
  one->Release(nullptr);
  EXPECT_EQ(filter.CheckFocusable(two, 1), 0);
  filter.SetCaseSensivity(1);
  EXPECT_EQ(filter.CheckFocusable(one, 1), 0);
}

TEST_F(ContentFilterMatchTest, TypedValuesAreComparedAsItemsInMemoryRecords) {
  ContentFilter filter;
  filter.AddFilteredIntItem(42, 4, 9, 0);
  Focusable match(4, nullptr);
  match.SetValueInt(9, 42, 0);
  Focusable other(4, nullptr);
  other.SetValueInt(9, 7, 0);
  EXPECT_EQ(filter.CheckFocusable(&match, 0), 1);
  EXPECT_EQ(filter.CheckFocusable(&other, 0), 0);

  ContentFilter anyField;
  anyField.AddFilteredIntItem(7, -1, -1, 0);
  EXPECT_EQ(anyField.CheckFocusable(&other, 0), 1);
  EXPECT_EQ(anyField.CheckFocusable(&match, 0), 0);
  // An in-memory record is never loaded and keeps its values.
  EXPECT_EQ(match.GetReferenceCount(), 0);
  EXPECT_EQ(match.GetFieldInt(9), 42);
}

// --- Cascade ------------------------------------------------------------------------------

TEST_F(ContentFilterMatchTest, ARefusingCascadeLeavesNoReservationAndNoSecondRelease) {
  ContentFilter first;
  first.AddFilteredStringItem(CString(u"kernel"), -1, -1, 0);
  ContentFilter second;
  second.AddFilteredStringItem(CString(u"absent"), -1, -1, 0);
  first.SetCascadeFilter(&second);
  CountingRecord* post = Stored({.body = u"kernel"});
  EXPECT_EQ(first.CheckFocusable(post, 0), 0);
  EXPECT_EQ(post->loads, 2);  // one partial read per filter
  EXPECT_EQ(post->reserves, 2);
  EXPECT_EQ(post->releases, 2);
}

TEST_F(ContentFilterMatchTest, AnAcceptingCascadeLoadsTheRecordForTheCaller) {
  ContentFilter first;
  first.AddFilteredStringItem(CString(u"kernel"), -1, -1, 0);
  ContentFilter second;
  second.ReSetContentFilterMask(ContentFilter::kMaskUnread, 0);
  first.SetCascadeFilter(&second);
  CountingRecord* post = Stored({.body = u"kernel", .status = 2});
  EXPECT_EQ(first.CheckFocusable(post, 0), 1);
  EXPECT_EQ(post->IsFullyLoaded(0), 1);
  EXPECT_EQ(post->Outstanding(), 1);
  post->Release(nullptr);

  // Without a field test the cascade is asked after the release of step 8.
  ContentFilter plain;
  plain.SetCascadeFilter(&second);
  CountingRecord* read = Stored({.status = 1});
  EXPECT_EQ(plain.CheckFocusable(read, 0), 0);
  EXPECT_EQ(read->Outstanding(), 0);
}

TEST_F(ContentFilterMatchTest, AFilterNeverCascadesToItselfAndLoopsEnd) {
  ContentFilter self;
  self.AddFilteredStringItem(CString(u"kernel"), -1, -1, 0);
  self.SetCascadeFilter(&self);
  ASSERT_EQ(self.GetCascadeFilter(), &self);
  CountingRecord* post = Stored({.body = u"kernel"});
  EXPECT_EQ(self.CheckFocusable(post, 0), 0);
  EXPECT_EQ(post->Outstanding(), 0);

  ContentFilter a;
  ContentFilter b;
  a.SetCascadeFilter(&b);
  b.SetCascadeFilter(&a);
  EXPECT_EQ(a.CheckFocusable(post, 0), 0);
  EXPECT_EQ(post->Outstanding(), 0);
}

}  // namespace
}  // namespace kordll
