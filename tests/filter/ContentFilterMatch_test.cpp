// CheckFocusable stage by stage (activity, status mask, relation, dates,
// words and values, cascade) over posts stored in a record database and held
// by a controller as headers, counting every load, reservation and release
// a record sees: a filter that leaks or doubles a release is a real fault.

#include <gtest/gtest.h>

#include <memory>
#include <string>

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
    EXPECT_EQ(record.SaveFocusable(), 1) << db_->GetLastDBErrorMsgCode();
    auto* header = new CountingRecord(post.relation, db_.get(), &deaths_);
    header->SetDBSlotIndex(record.GetDBSlotIndex());
    header->ReserveHeader(kController);
    headers_.push_back(header);
    return header;
  }

  // "<answer> L<loads> R<reservations> O<outstanding> F<fully loaded>"
  // after one check.
  static std::string Check(ContentFilter& filter, Focusable* checked, CountingRecord* record,
                           int loadOnAccept) {
    const int answer = filter.CheckFocusable(checked, loadOnAccept);
    return std::to_string(answer) + " L" + std::to_string(record->loads) + " R" +
           std::to_string(record->reserves) + " O" + std::to_string(record->Outstanding()) + " F" +
           std::to_string(record->IsFullyLoaded(0));
  }
  static std::string Check(ContentFilter& filter, CountingRecord* record, int loadOnAccept) {
    return Check(filter, record, record, loadOnAccept);
  }

  test::TempRoot root_;
  std::unique_ptr<GlobalRelationsCtrl> catalogue_;
  std::unique_ptr<AZeusDB> db_;
  std::vector<CountingRecord*> headers_;
  int deaths_ = 0;
  int serial_ = 0;
};

// --- Activity, status mask, links ---------------------------------------------------

// A default filter accepts without loading unless asked to; then the record
// is loaded whole and reserved for the caller. A single-bit mask wants the
// bit, a combined mask the whole status.
TEST_F(ContentFilterMatchTest, ActivityAndTheStatusMaskAreTestedWithoutLoading) {
  ContentFilter filter;
  CountingRecord* post = Stored({.title = u"Anything"});
  EXPECT_EQ(Check(filter, post, 0), "1 L0 R0 O0 F0");
  EXPECT_EQ(Check(filter, post, 1), "1 L1 R1 O1 F1");
  EXPECT_TRUE(post->lastTaskWasNull);
  post->Release(nullptr);

  // An inactive filter accepts what the mask would refuse.
  filter.ReSetContentFilterMask(ContentFilter::kMaskRead, 0);
  CountingRecord* unread = Stored({.status = 2 | 512});
  EXPECT_EQ(filter.CheckFocusable(unread, 0), 0);
  filter.SetFilterActivity(0);
  EXPECT_EQ(Check(filter, unread, 0), "1 L0 R0 O0 F0");

  CountingRecord* readAndUnread = Stored({.status = 3});
  ContentFilter single, both;
  single.ReSetContentFilterMask(ContentFilter::kMaskUnread, 0);
  EXPECT_EQ(single.CheckFocusable(unread, 0) + single.CheckFocusable(readAndUnread, 0), 2);
  both.ReSetContentFilterMask(3, 0);
  EXPECT_EQ(Check(both, unread, 0), "0 L0 R0 O0 F0");
  EXPECT_EQ(Check(both, readAndUnread, 1), "1 L1 R1 O1 F1");
  readAndUnread->Release(nullptr);
}

TEST_F(ContentFilterMatchTest, ALinkIsTestedAsItsTargetAndAnOrphanLinkAnswersItsFallbacks) {
  CountingRecord* read = Stored({.title = u"Linked post", .status = 1});
  FocusableLink link(read, 1);
  ContentFilter filter;
  filter.ReSetContentFilterMask(ContentFilter::kMaskUnread, 0);
  EXPECT_EQ(filter.CheckFocusable(&link, 0), 0);
  // The title was read for the test and released; the accepted target was
  // then loaded whole for the caller, who releases it through the link.
  ContentFilter words;
  words.AddFilteredStringItem(CString(u"linked"), 4, 4, 0);
  EXPECT_EQ(Check(words, &link, read, 1), "1 L2 R2 O1 F1");
  link.Release(nullptr);
  EXPECT_EQ(read->Outstanding(), 0);

  FocusableLink orphan;
  ContentFilter all, anyWord;
  anyWord.AddFilteredStringItem(CString(u"x"), -1, -1, 0);
  EXPECT_EQ(all.CheckFocusable(&orphan, 1), 1);
  EXPECT_EQ(filter.CheckFocusable(&orphan, 0) + anyWord.CheckFocusable(&orphan, 1) +
                anyWord.CheckFocusable(nullptr, 1),
            0);
}

// --- Relation and dates ----------------------------------------------------------------

// A relation the filter lacks is refused before loading; the published date
// is tested unless the received date bit chooses that one; an undated record
// is refused. The dates are read on demand: no reservation, nothing loaded.
TEST_F(ContentFilterMatchTest, RelationAndDateIntervalAreTestedWithoutLoading) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"news"), 4, -1, 0);
  EXPECT_EQ(Check(filter, Stored({.title = u"news", .relation = 11}), 1), "0 L0 R0 O0 F0");

  ContentFilter dated;
  COleDateTime none;
  none.SetStatus(COleDateTime::invalid);
  dated.SetDateInterval(COleDateTime(2007, 5, 6, 0, 0, 0), COleDateTime(2007, 5, 6, 0, 0, 0));
  CountingRecord* post = Stored({.published = COleDateTime(2007, 5, 5, 10, 0, 0),
                                 .received = COleDateTime(2007, 5, 6, 11, 0, 0)});
  EXPECT_EQ(Check(dated, post, 0), "0 L0 R0 O0 F0");
  dated.ReSetFilterStatus(ContentFilter::kReceivedDate, 0);
  EXPECT_EQ(dated.CheckFocusable(post, 0), 1);
  EXPECT_EQ(dated.CheckFocusable(Stored({.received = none}), 0), 0);
}

// --- Words and values -------------------------------------------------------------------

// "<field 4><field 7><field 9>": 1 where the last load's task loads the field.
std::string Loaded(const CountingRecord* record) {
  if (record->lastTaskWasNull) return "none";
  std::string out;
  for (int field : {4, 7, 9})
    out += record->lastTask.GetFieldTaskType(field) == DBTaskItem::kTaskLoad ? "1" : "0";
  return out;
}

TEST_F(ContentFilterMatchTest, AnAllFieldsSearchReadsTheStringFieldsOnceAndReleasesThem) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"kernel"), -1, -1, 0);
  CountingRecord* hit = Stored({.title = u"News", .body = u"A new Kernel release"});
  CountingRecord* miss = Stored({.title = u"News", .body = u"Nothing here"});
  EXPECT_EQ(Check(filter, miss, 1), "0 L1 R1 O0 F0");  // one partial load, one release
  // The task of the relation names its string fields and not the others.
  EXPECT_EQ(Loaded(miss), "110");
  // Accepted, not word dependent, no cascade, loadOnAccept 1: the record is
  // not loaded on the way out (the kept inversion).
  EXPECT_EQ(Check(filter, hit, 1), "1 L1 R1 O0 F0");
  EXPECT_EQ(filter.GetTaskRelations(), std::vector<int>{4});
  // Without loadOnAccept the record is left loaded for the caller.
  CountingRecord* other = Stored({.body = u"kernel"});
  EXPECT_EQ(Check(filter, other, 0), "1 L2 R2 O1 F1");  // the partial read, then the whole
  other->Release(nullptr);
}

TEST_F(ContentFilterMatchTest, AGivenFieldIsReadThroughTheFiltersTaskItem) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"release"), 4, 4, 0);
  CountingRecord* titled = Stored({.title = u"Release notes", .body = u""});
  CountingRecord* bodied = Stored({.title = u"Notes", .body = u"release"});
  EXPECT_EQ(Check(filter, bodied, 1), "0 L1 R1 O0 F0");
  EXPECT_EQ(Loaded(bodied), "100");
  // Accepted through the end of the fields: loaded on the way out.
  EXPECT_EQ(Check(filter, titled, 1), "1 L2 R2 O1 F1");
  titled->Release(nullptr);
}

// A filter of one word over given fields refuses the records whose stored
// bytes cannot hold it without decoding them; its answers and what it does
// to each record stay those of the full test.
TEST_F(ContentFilterMatchTest, AOneWordFilterAnswersAsTheFullTestWhateverTheStoredBytes) {
  const std::vector<Post> posts = {
      {.title = u"Harbour lights"},
      {.body = u"at the HARBOUR tonight"},
      {.title = u"harbor"},
      {.body = u"harbours of the north"},
      {.title = u"a title long enough to go on into the next slot: harbour"},
      {.title = u"caf\u00e9 by the harbour"},
      {.title = u"caf\u00e9 by the harbor"},
      {}};
  std::vector<CountingRecord*> records;
  for (const Post& post : posts) records.push_back(Stored(post));
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"harbour"), 4, 4, 0);
  filter.AddFilteredStringItem(CString(u"harbour"), 4, 7, 0);
  std::string answers;
  for (CountingRecord* record : records) answers += Check(filter, record, 1).substr(0, 1);
  EXPECT_EQ("11001100", answers);
  EXPECT_EQ("0 L2 R2 O0 F0", Check(filter, records[2], 1));
  filter.SetCaseSensivity(1);
  filter.SetMatchWholeWordOnly(0);
  answers.clear();
  for (CountingRecord* record : records) answers += Check(filter, record, 0).substr(0, 1);
  EXPECT_EQ("00011100", answers);
  // The accepted records were loaded for the caller (the quirk of 0).
  for (CountingRecord* record : records) {
    while (record->Outstanding() > 0) record->Release(nullptr);
  }
}

// Records whose answer the stored bytes cannot give (no store behind them,
// not stored yet, or a searched field held in memory) are answered as the
// full test answers them, whatever the record tested before them.
TEST_F(ContentFilterMatchTest, ARecordTheStoredBytesCannotAnswerForIsTestedInFull) {
  CountingRecord* harbor = Stored({.title = u"harbor"});
  Stored({.title = u"calm sea"});
  Stored({.title = u"Harbour lights"});
  auto held = [&](AZeusDB* db) {
    auto* record = new CountingRecord(4, db, &deaths_);
    record->ReserveHeader(kController);
    headers_.push_back(record);
    return record;
  };
  CountingRecord* unstored = held(nullptr);
  unstored->SetValueStr(4, CString(u"the harbour"), 1);
  CountingRecord* unplaced = held(db_.get());
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"harbour"), 4, 4, 0);
  EXPECT_EQ("0 L1 R1 O0 F0", Check(filter, harbor, 1));
  // The filter's task tells the slot it read, as after a full test.
  EXPECT_EQ(harbor->GetDBSlotIndex(), filter.GetTaskItem(4)->slotPosition);
  EXPECT_EQ("1 L0 R0 O0 F0", Check(filter, unstored, 1));
  // A record without a slot reads the record behind the one the task read
  // last, "calm sea", not the next one that may hold the word.
  EXPECT_EQ("0 L1 R1 O0 F0", Check(filter, unplaced, 1));
  // A load leaves alone a field that the store holds empty: the word is
  // then found in what the record held before.
  CountingRecord* untitled = Stored({.body = u"nothing"});
  untitled->SetValueStr(4, CString(u"the harbour"), 1);
  EXPECT_EQ("1 L2 R2 O1 F1", Check(filter, untitled, 1));
  untitled->Release(nullptr);
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

// In a word dependent filter the first word decides, and a field without
// items accepts (the whole record was read for the test, no task item).
TEST_F(ContentFilterMatchTest, InAWordDependentFilterTheFirstWordDecides) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"alpha"), -1, -1, 0);
  filter.AddFilteredStringItem(CString(u"beta"), -1, -1, 0);
  filter.ReSetFilterStatus(ContentFilter::kWordDependent, 0);
  CountingRecord* first = Stored({.body = u"alpha only"});
  EXPECT_EQ(Check(filter, first, 1), "1 L2 R2 O1 F1");  // loaded on acceptance
  first->Release(nullptr);
  EXPECT_EQ(Check(filter, Stored({.body = u"beta only"}), 1), "0 L1 R1 O0 F0");

  ContentFilter empty;
  ASSERT_EQ(empty.SetFilter(CString(u"(5)(:)(65519)()(4:7:4:|)(9,)")), 1);
  CountingRecord* post = Stored({.body = u"anything"});
  EXPECT_EQ(Check(empty, post, 0), "1 L1 R1 O0 F0");
  EXPECT_EQ(Loaded(post), "none");
}

// Exact match trims and compares whole texts. Typed values are compared as
// items; an in-memory record is never loaded and keeps its values.
TEST_F(ContentFilterMatchTest, ExactMatchAndTypedValues) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"news"), 4, 4, 0);
  filter.ReSetFilterStatus(ContentFilter::kExactMatch, 0);
  CountingRecord* one = Stored({.title = u"  NEWS "});
  EXPECT_EQ(filter.CheckFocusable(one, 1), 1);
  one->Release(nullptr);
  EXPECT_EQ(filter.CheckFocusable(Stored({.title = u"news today"}), 1), 0);
  filter.SetCaseSensivity(1);
  EXPECT_EQ(filter.CheckFocusable(one, 1), 0);

  ContentFilter typed;
  typed.AddFilteredIntItem(42, 4, 9, 0);
  Focusable match(4, nullptr), other(4, nullptr);
  match.SetValueInt(9, 42, 0);
  other.SetValueInt(9, 7, 0);
  EXPECT_EQ(typed.CheckFocusable(&match, 0) * 10 + typed.CheckFocusable(&other, 0), 10);
  EXPECT_EQ(match.GetReferenceCount(), 0);
  EXPECT_EQ(match.GetFieldInt(9), 42);
}

// --- Cascade ------------------------------------------------------------------------------

// A refusing cascade leaves no reservation and no second release; an
// accepting one loads the record for the caller; without a field test the
// cascade is asked after the release; loops end.
TEST_F(ContentFilterMatchTest, CascadesReleaseWhatTheyReadAndLoopsEnd) {
  ContentFilter first, refusing, accepting;
  first.AddFilteredStringItem(CString(u"kernel"), -1, -1, 0);
  refusing.AddFilteredStringItem(CString(u"absent"), -1, -1, 0);
  accepting.ReSetContentFilterMask(ContentFilter::kMaskUnread, 0);
  first.SetCascadeFilter(&refusing);
  EXPECT_EQ(Check(first, Stored({.body = u"kernel"}), 0), "0 L2 R2 O0 F0");  // one read each
  first.SetCascadeFilter(&accepting);
  CountingRecord* post = Stored({.body = u"kernel", .status = 2});
  EXPECT_EQ(Check(first, post, 0), "1 L2 R2 O1 F1");
  post->Release(nullptr);
  ContentFilter plain;
  plain.SetCascadeFilter(&accepting);
  EXPECT_EQ(Check(plain, Stored({.status = 1}), 0), "0 L0 R0 O0 F0");

  ContentFilter self;
  self.AddFilteredStringItem(CString(u"kernel"), -1, -1, 0);
  self.SetCascadeFilter(&self);
  ASSERT_EQ(self.GetCascadeFilter(), &self);
  CountingRecord* looped = Stored({.body = u"kernel"});
  EXPECT_EQ(self.CheckFocusable(looped, 0), 0);
  ContentFilter a, b;
  a.SetCascadeFilter(&b);
  b.SetCascadeFilter(&a);
  EXPECT_EQ(a.CheckFocusable(looped, 0), 0);
  EXPECT_EQ(looped->Outstanding(), 0);
}

}  // namespace
}  // namespace kordll
