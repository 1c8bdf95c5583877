// The filter's setters and their effect on status, mask and the changed
// flag; the date interval; whole-word search; copies and comparison; the
// stored filter text in both forms (GetFilter, SetFilter, SetFilterOld) and
// the two sentences a filter is told in.

#include "kordll/filter/ContentFilter.h"

#include <gtest/gtest.h>

#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Item.h"
#include "kordll/record/LibraryLifetime.h"

namespace kordll {
namespace {

class ContentFilterTest : public ::testing::Test {
 protected:
  void SetUp() override { KordllProcessAttach(); }
  static COleDateTime Invalid() {
    COleDateTime date;
    date.SetStatus(COleDateTime::invalid);
    return date;
  }

  // Marks a filter changed without changing what it holds.
  static void Touch(ContentFilter* filter) {
    const int caseSensitive = filter->IsFilterCaseSensitive();
    filter->SetCaseSensivity(!caseSensitive);
    filter->SetCaseSensivity(caseSensitive);
  }

  static size_t ItemCount(const ContentFilter& filter, int relation, int field) {
    const ContentFilter::ItemArray* items = filter.GetFilteredFieldItems(relation, field);
    return items != nullptr ? items->size() : 0;
  }

  static CStringArray Keywords(const ContentFilter& filter) {
    CStringArray words;
    filter.GetFilterKeywords(&words);
    return words;
  }

  // Adds one word per relation and field, all of relation and field given.
  static void AddWords(ContentFilter* filter, std::initializer_list<const char16_t*> words,
                       int relation, int field) {
    for (const char16_t* word : words)
      filter->AddFilteredStringItem(CString(word), relation, field, 0);
  }

  static std::string Sentence(ContentFilter& filter) {
    return filter.CreateStringDefinition().ToUtf8();
  }
};

// The setters report real changes only.
TEST_F(ContentFilterTest, StatusSettersReportRealChangesOnly) {
  ContentFilter filter;
  EXPECT_EQ(filter.ReSetFilterStatus(0, 0) + filter.IsFilterChanged(), 0);
  EXPECT_EQ(filter.SetFilterOut(1) * 10 + filter.SetFilterOut(1), 10);
  EXPECT_EQ(filter.SetFilterActivity(0) * 10 + filter.IsFilterActive(), 10);
  // Nearly every setter activates an inactive filter.
  filter.SetMatchWholeWordOnly(0);
  EXPECT_EQ(filter.IsFilterActive(), 1);
  EXPECT_EQ(filter.GetFilterStatus() & 4, 0);
  EXPECT_EQ(filter.ReSetFilterStatus(256, 4), 1);
  EXPECT_EQ(filter.GetFilterStatus(), 32 | 256);
}

TEST_F(ContentFilterTest, MaskChangesDoNotMarkTheFilterChanged) {
  ContentFilter filter;
  EXPECT_EQ(filter.ReSetContentFilterMask(2, 0), 1);
  EXPECT_EQ(filter.GetFilterMask() * 10 + filter.IsFilterChanged(), 20);
  // Show all keeps read and unread from being cleared.
  EXPECT_EQ(filter.ReSetContentFilterMask(65519, 1 | 2 | 8), 1);
  EXPECT_EQ(filter.GetFilterMask(), 65519 & ~8);
  filter.ReSetContentFilterMask(4, 0);
  EXPECT_EQ(filter.IsFilterMaskValid(2), 0);
}

TEST_F(ContentFilterTest, DateIntervalsStretchToWholeDaysUnlessTimesAreKept) {
  ContentFilter filter;
  EXPECT_EQ(filter.SetDateInterval(Invalid(), Invalid()) + filter.IsDateIntervalSet(), 0);
  EXPECT_EQ(filter.SetDateInterval(COleDateTime(2007, 5, 6, 9, 30, 0), Invalid()), 1);
  EXPECT_EQ(filter.GetStartDate().GetHour(), 0);
  EXPECT_EQ(filter.IsDateValid(COleDateTime(2007, 5, 6, 0, 0, 0)), 1);
  EXPECT_EQ(filter.IsDateValid(COleDateTime(2007, 5, 5, 23, 0, 0)), 0);

  filter.ReSetFilterStatus(ContentFilter::kKeepDateTimes, 0);
  filter.SetDateInterval(COleDateTime(2007, 5, 6, 9, 30, 0), COleDateTime(2007, 5, 6, 10, 0, 0));
  EXPECT_EQ(filter.GetStartDate().GetMinute(), 30);
  EXPECT_EQ(filter.IsDateTimeValid(COleDateTime(2007, 5, 6, 9, 0, 0)), 0);
  // IsDateValid cuts the record's date to midnight: before the start time.
  EXPECT_EQ(filter.IsDateValid(COleDateTime(2007, 5, 6, 9, 45, 0)), 0);
  EXPECT_EQ(filter.IsDateTimeValid(COleDateTime(2007, 5, 6, 9, 45, 0)), 1);
}

TEST_F(ContentFilterTest, ANullDateIsNoInvalidDate) {
  COleDateTime null;
  null.SetStatus(COleDateTime::null);
  ContentFilter filter;
  // A null start kept as given switches the date test on.
  filter.ReSetFilterStatus(ContentFilter::kKeepDateTimes, 0);
  filter.SetDateInterval(null, Invalid());
  EXPECT_EQ(filter.IsDateIntervalSet(), 1);
  EXPECT_EQ(filter.IsFilterDateValuesSet(), 1);

  // With the test on and no dates set, a null record date cut to its day
  // passes; an invalid one is refused before the cut.
  ContentFilter open;
  open.SetDateInterval(COleDateTime(2007, 5, 6, 0, 0, 0), Invalid());
  open.SetDateInterval(Invalid(), Invalid());
  ASSERT_EQ(open.IsDateIntervalSet(), 1);
  EXPECT_EQ(open.IsDateValid(null), 1);
  EXPECT_EQ(open.IsDateValid(Invalid()), 0);
  // With a date set it fails the comparison.
  open.SetDateInterval(COleDateTime(2007, 5, 6, 0, 0, 0), Invalid());
  EXPECT_EQ(open.IsDateValid(null), 0);
}

TEST_F(ContentFilterTest, WholeWordSearchCountsOnlyAsciiLettersAndDigitsAsWordCharacters) {
  ContentFilter whole, part;
  part.SetMatchWholeWordOnly(0);
  const struct {
    const char16_t* text;
    int whole, part;
  } cases[] = {{u"art3", 0, 1}, {u"art\u00e9", 1, 1}, {u"cart and art", 1, 1}};
  for (const auto& c : cases) {
    EXPECT_EQ(whole.SearchWord(CString(c.text), CString(u"art")) * 10 +
                  part.SearchWord(CString(c.text), CString(u"art")),
              c.whole * 10 + c.part)
        << CString(c.text).ToUtf8();
  }
}

TEST_F(ContentFilterTest, RemovingWordsSkipsTheNeighbourOfARemovedKeyword) {
  ContentFilter filter;
  ASSERT_EQ(filter.SetFilter(CString(u"(4)(:)(65519)(a:a:b:)(4:4:4:5:4:|)(1,)")), 1);
  filter.RemoveFilteredStringItem(CString(u"a"), 4, 4);
  EXPECT_EQ(Keywords(filter), (CStringArray{CString(u"a"), CString(u"b")}));
  EXPECT_EQ(filter.GetFilteredFieldItems(4, 4)->size(), 1u);  // "b" stays
  filter.RemoveFilteredStringItem(CString(u"a"), 4, 5);
  EXPECT_EQ(Keywords(filter), CStringArray{CString(u"b")});
  // An absent relation changes nothing, the changed flag included.
  ContentFilter fresh;
  fresh.RemoveFilteredStringItem(CString(u"a"), 4, 4);
  EXPECT_EQ(fresh.IsFilterChanged(), 0);
}

TEST_F(ContentFilterTest, TaskItemsFollowTheNamedFieldsOfARelation) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"x"), 4, 7, 0);
  filter.AddFilteredStringItem(CString(u"y"), -1, 5, 0);
  ASSERT_NE(filter.GetTaskItem(4), nullptr);
  EXPECT_EQ(filter.GetTaskItem(4)->GetFieldTaskType(7), DBTaskItem::kTaskLoad);
  EXPECT_EQ(filter.IsSpecificFieldFilterIsDefined(4), 1);
  filter.RemoveFilteredStringItem(CString(), 4, 7);
  EXPECT_EQ(filter.IsFieldChecked(4, 7), 0);
  EXPECT_EQ(filter.GetTaskItem(4)->GetFieldTaskType(7), DBTaskItem::kTaskPastEnd);
  filter.AddFilteredStringItem(CString(u"z"), 11, -1, 0);
  EXPECT_EQ(filter.IsSpecificFieldFilterIsDefined(11), 0);
}

TEST_F(ContentFilterTest, CopiesAreDeepAndComparisonIsOneWay) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"x"), 4, 4, 0);
  filter.AddResourceToFilter(7);
  filter.AddResourceToFilter(7);
  filter.SetCascadeFilter(&filter);
  ContentFilter copy(filter);
  EXPECT_EQ(copy.GetCascadeFilter(), &filter);  // the pointer, not the filter, is copied
  ContentFilter pointsAtCopy;
  pointsAtCopy.SetCascadeFilter(&copy);
  ContentFilter taken(copy);
  taken.SetContentFilter(&pointsAtCopy, 1);
  EXPECT_EQ(taken.GetCascadeFilter(), &copy);
  copy.SetContentFilter(&pointsAtCopy, 1);
  EXPECT_EQ(copy.GetCascadeFilter(), nullptr);  // a cascade to itself is dropped
  copy = filter;
  copy.AddFilteredStringItem(CString(u"more"), 11, 4, 0);
  EXPECT_EQ(copy.IsSame(&filter), 1);  // relations only this one has do not count
  EXPECT_EQ(filter.IsSame(&copy), 0);
  copy.AddResourceToFilter(9);
  EXPECT_EQ(copy.IsSame(&filter), 0);  // 9 is not among the source's
  EXPECT_EQ(filter.GetFilteredFieldItems(11, 4), nullptr);
}

// --- Writing and reading the present form ----------------------------------------

TEST_F(ContentFilterTest, AFilterOnTwoRelationsRoundTrips) {
  ContentFilter filter;
  for (int relation : {4, 11}) AddWords(&filter, {u"red", u"blue"}, relation, -1);
  filter.ReSetFilterStatus(ContentFilter::kWordDependent, 0);
  filter.ReSetContentFilterMask(ContentFilter::kMaskUnread, 0);
  filter.AddResourceToFilter(7);
  const CString text(u"(5)(:)(2)(red:blue:)(4:-1:4:|11:-1:4:|)(7,)");
  EXPECT_EQ(filter.GetFilter(), text);

  ContentFilter read;
  ASSERT_EQ(read.SetFilter(text), 1);
  EXPECT_EQ(read.GetFilterStatus() * 10 + read.GetFilterMask(), 52);
  EXPECT_EQ(ItemCount(read, 11, -1), 2u);
  EXPECT_EQ(read.IsSame(&filter) + filter.IsSame(&read), 2);
  // Read with resources and not marked changed: the very text comes back.
  EXPECT_EQ(read.IsFilterChanged(), 0);
  EXPECT_EQ(read.GetFilter(), text);
}

TEST_F(ContentFilterTest, AColonInAKeywordIsEscapedAndAParenthesisBreaksTheText) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"10:30"), 4, 4, 0);
  const CString text = filter.GetFilter();
  EXPECT_EQ(text, CString(u"(4)(:)(65519)(10&9877;30:)(4:4:4:|)()"));
  ContentFilter read;
  ASSERT_EQ(read.SetFilter(text), 1);
  EXPECT_EQ(Keywords(read), CStringArray{CString(u"10:30")});

  ContentFilter broken;
  AddWords(&broken, {u"x)y"}, 4, -1);
  ContentFilter misread;
  EXPECT_EQ(misread.SetFilter(broken.GetFilter()), 1);
  EXPECT_EQ(Keywords(misread), CStringArray{CString(u"x")});
  EXPECT_EQ(misread.GetFilteredFieldItems(4, -1), nullptr);
  // The relation section was taken for the resources.
  EXPECT_EQ(misread.GetResources(), std::vector<int>{4});
}

TEST_F(ContentFilterTest, ARelationWithoutFieldsGainsAnAllFieldsSearchOnReading) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"x"), 4, 4, 0);
  filter.RemoveFilteredStringItem(CString(u"x"), 4, 4);
  EXPECT_EQ(filter.GetFilter(), CString(u"(4)(:)(65519)()(4:-1:4|)()"));
  ContentFilter read;
  ASSERT_EQ(read.SetFilter(filter.GetFilter()), 1);
  EXPECT_EQ(read.IsFieldChecked(4, -1), 1);
  EXPECT_EQ(read.IsFieldChecked(4, 4), 0);
}

TEST_F(ContentFilterTest, ItemTypesComeFromTheTextAndUnknownTypesAreReadAsText) {
  ContentFilter filter;
  ASSERT_EQ(filter.SetFilter(CString(u"(4)(:)(65519)(12:)(4:9:0:7:4:5:77:6:)(1,)")), 1);
  std::vector<int> types;
  for (int field : {9, 7, 5})
    types.push_back(filter.GetFilteredFieldItems(4, field)->front()->GetItemTypeID());
  EXPECT_EQ(types, (std::vector<int>{Item::kTypeInt, Item::kTypeString, Item::kTypeString}));
  // A lone last token names no type and is passed over.
  EXPECT_EQ(filter.IsFieldChecked(4, 6), 0);
}

TEST_F(ContentFilterTest, DatesAreWrittenButSplitOnReadingAndTheDateTestStaysOff) {
  ContentFilter filter;
  filter.SetDateInterval(COleDateTime(2007, 5, 6, 9, 0, 0), COleDateTime(2007, 5, 8, 9, 0, 0));
  Touch(&filter);
  const CString text = filter.GetFilter();
  EXPECT_EQ(text, CString(u"(4)(05/06/07@00:00:05/08/07@23:59)(65519)()()()"));
  ContentFilter read;
  ASSERT_EQ(read.SetFilter(text), 1);
  EXPECT_EQ(read.IsDateIntervalSet(), 0);
  EXPECT_EQ(read.IsDateValid(COleDateTime(1990, 1, 1, 0, 0, 0)), 1);
}

TEST_F(ContentFilterTest, MalformedTextsAreRefused) {
  const char16_t* present[] = {u"", u"(", u"(1)(abc)", u"(1)(a)b:)", u"(1)(:)(2)x"};
  for (const char16_t* text : present) {
    ContentFilter filter;
    EXPECT_EQ(filter.SetFilter(CString(text)), 0) << CString(text).ToUtf8();
    ContentFilter old;
    EXPECT_EQ(old.SetFilterOld(CString(text)), 0) << CString(text).ToUtf8();
  }
  const char16_t* older[] = {u"[", u"[1][x]", u"[1][:][2]x"};
  for (const char16_t* text : older) {
    ContentFilter old;
    EXPECT_EQ(old.SetFilterOld(CString(text)), 0) << CString(text).ToUtf8();
    // The present reader hands an old text on and answers 1 whatever it
    // gave.
    ContentFilter filter;
    EXPECT_EQ(filter.SetFilter(CString(text)), 1) << CString(text).ToUtf8();
  }
}

TEST_F(ContentFilterTest, UnclosedSectionsReadWithoutRunningOffTheText) {
  ContentFilter filter;
  EXPECT_EQ(filter.SetFilter(CString(u"(1)(:)(2)(a:b:)(4:-1:4:|")), 1);
  EXPECT_EQ(Keywords(filter).size(), 2u);
  ContentFilter old;
  EXPECT_EQ(old.SetFilterOld(CString(u"[1][:][2][4][4:4:w|")), 1);
  // A mask section without its closing mark leaves the index at the start
  // of the text, and reading goes on from there.
  ContentFilter cut;
  EXPECT_EQ(cut.SetFilter(CString(u"(1)(:)(2")), 1);
  EXPECT_EQ(cut.GetFilterMask(), 0);
}

TEST_F(ContentFilterTest, APresentTextAskingForTooManyItemsIsRefused) {
  // Every keyword becomes an item of every listed field: 100 words over 100
  // fields are exactly the limit, 101 words one field too many.
  auto text = [](int words, int fields) {
    CString out(u"(4)(:)(65519)(");
    for (int i = 0; i < words; ++i) out.AppendFormat(u"w%d:", i);
    out += u")(4:";
    for (int i = 0; i < fields; ++i) out.AppendFormat(u"%d:4:", i + 4);
    out += u"|)()";
    return out;
  };
  ContentFilter fits;
  EXPECT_EQ(fits.SetFilter(text(100, 100)), 1);
  EXPECT_EQ(ItemCount(fits, 4, 103), 100u);
  ContentFilter tooMany;
  EXPECT_EQ(tooMany.SetFilter(text(101, 100)), 0);
  // The items already held count too.
  EXPECT_EQ(fits.SetFilter(text(1, 1)), 0);
}

TEST_F(ContentFilterTest, EmptyKeywordsLeftByAnOldTextCostNothingPerListedField) {
  // 50,000 empty words, then 50,000 fields: a pass over every word for every
  // field would not end in any reasonable time.
  CString old(u"[4][:][65519][16][");
  for (int i = 0; i < 50000; ++i) old += u"7:4:|";
  old += u"][]";
  CString present(u"(4)(:)(65519)()(16:");
  for (int i = 0; i < 50000; ++i) present.AppendFormat(u"%d:4:", i + 4);
  present += u"|)()";
  ContentFilter filter;
  ASSERT_EQ(filter.SetFilterOld(old), 1);
  ASSERT_EQ(Keywords(filter).size(), 50000u);
  EXPECT_EQ(filter.SetFilter(present), 1);
  EXPECT_EQ(filter.IsFieldChecked(16, 50003), 1);
  EXPECT_EQ(ItemCount(filter, 16, 50003), 0u);
}

// --- The older form ---------------------------------------------------------------------

TEST_F(ContentFilterTest, AnOldTextIsReadWholeHoweverManyEntriesItHas) {
  CString text(u"[4][:][65519][16][");
  for (int i = 0; i < 10001; ++i) text.AppendFormat(u"7:4:w%d|", i);
  text += u"][]";
  ContentFilter filter;
  EXPECT_EQ(filter.SetFilterOld(text), 1);
  EXPECT_EQ(ItemCount(filter, 16, 7), 10001u);
}

TEST_F(ContentFilterTest, AnOldFilterOnPostsActsOnBothPostRelationsAndIsUpgraded) {
  ContentFilter filter;
  ASSERT_EQ(filter.SetFilter(CString(u"[4][:][65519][4][4:4:news|][]")), 1);
  EXPECT_EQ(ItemCount(filter, 4, 4) + ItemCount(filter, 11, 4), 2u);
  EXPECT_EQ(filter.IsFilterChanged(), 1);
  EXPECT_EQ(filter.GetFilter(), CString(u"(4)(:)(65519)(news:)(4:4:4:|11:4:4:|)()"));
}

TEST_F(ContentFilterTest, AnOldWordKeepsItsColonsAndAnotherRelationStaysAlone) {
  ContentFilter filter;
  ASSERT_EQ(filter.SetFilterOld(CString(u"[1][:][2][16][5:4:a:b|bad|6:4:|][8,0,9,]")), 1);
  EXPECT_EQ(Keywords(filter), (CStringArray{CString(u"a:b"), CString()}));
  EXPECT_EQ(ItemCount(filter, 16, 5) + ItemCount(filter, 16, 6), 2u);
  EXPECT_EQ(filter.GetFilteredFieldItems(4, 5), nullptr);
  EXPECT_EQ(filter.GetResources(), (std::vector<int>{8, 9}));
  // Not marked changed: the old text is what GetFilter still gives.
  EXPECT_EQ(filter.GetFilter(), CString(u"[1][:][2][16][5:4:a:b|bad|6:4:|][8,0,9,]"));
}

// --- Sentences -------------------------------------------------------------------------------

TEST_F(ContentFilterTest, TheAcceptAndRejectSentencesTellTheWordsAndFields) {
  ContentFilter out;
  AddWords(&out, {u"a", u"b", u"c"}, 11, -1);
  out.SetFilterOut(1);
  out.ReSetFilterStatus(ContentFilter::kWordDependent, 0);
  EXPECT_EQ(Sentence(out),
            "Filter out retrieved post when words \"a\", \"b\" and \"c\" occur together in any "
            "part of it.");
  // The fields are named in the sentence's own order.
  ContentFilter fields;
  AddWords(&fields, {u"x"}, 4, 4);
  AddWords(&fields, {u"x"}, 11, 7);
  AddWords(&fields, {u"x"}, 4, 6);
  EXPECT_EQ(Sentence(fields),
            "Accept retrieved post only when word \"x\" occurs in body, title, and category fields "
            "of the post.");
}

TEST_F(ContentFilterTest, TheSearchSentenceTellsMaskAndDates) {
  ContentFilter filter;
  AddWords(&filter, {u"x"}, 4, -1);
  filter.ReSetFilterStatus(ContentFilter::kSearchFilter, 0);
  EXPECT_EQ(Sentence(filter), "Searching word \"x\" in posts ");
  filter.ReSetContentFilterMask(ContentFilter::kMaskFlagged, 0);
  filter.ReSetFilterStatus(ContentFilter::kReceivedDate, 0);
  filter.SetDateInterval(COleDateTime(2007, 5, 6, 0, 0, 0), COleDateTime(2007, 6, 1, 0, 0, 0));
  EXPECT_EQ(Sentence(filter),
            "Searching word \"x\" in starred posts received between dates May 06, 2007 and June "
            "01, 2007");
}

TEST_F(ContentFilterTest, TheNotificationSentenceTellsTheWordsOfTheItems) {
  ContentFilter filter;
  AddWords(&filter, {u"a"}, 11, 4);
  AddWords(&filter, {u"b", u"a"}, 11, 7);
  EXPECT_EQ(filter.GetFilterDefinition(), CString(u"Notify me when words \"a\", or \"b\" occur ."));
}

}  // namespace
}  // namespace kordll
