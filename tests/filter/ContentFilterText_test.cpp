// The stored filter text in both forms (GetFilter, SetFilter, SetFilterOld)
// and the two sentences a filter is told in.

#include <gtest/gtest.h>

#include "kordll/filter/ContentFilter.h"
#include "kordll/record/Item.h"
#include "kordll/record/LibraryLifetime.h"

namespace kordll {
namespace {

class ContentFilterTextTest : public ::testing::Test {
 protected:
  void SetUp() override { KordllProcessAttach(); }

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

// --- Writing and reading the present form ----------------------------------------

// An unchanged new filter gives the empty cache; once changed, six sections
// with its status 4 and mask 65519.
TEST_F(ContentFilterTextTest, AFilterOnTwoRelationsRoundTrips) {
  ContentFilter empty;
  EXPECT_EQ(empty.GetFilter(), CString());
  Touch(&empty);
  EXPECT_EQ(empty.GetFilter(), CString(u"(4)(:)(65519)()()()"));
  ContentFilter filter;
  for (int relation : {4, 11}) AddWords(&filter, {u"red", u"blue"}, relation, -1);
  filter.ReSetFilterStatus(ContentFilter::kWordDependent, 0);
  filter.ReSetContentFilterMask(ContentFilter::kMaskUnread, 0);
  filter.AddResourceToFilter(7);
  const CString text(u"(5)(:)(2)(red:blue:)(4:-1:4:|11:-1:4:|)(7,)");
  EXPECT_EQ(filter.GetFilter(), text);

  ContentFilter read;
  ASSERT_EQ(read.SetFilter(text), 1);
  EXPECT_EQ(read.GetFilterStatus(), 5);
  EXPECT_EQ(read.GetFilterMask(), 2);
  EXPECT_EQ(read.GetResources(), std::vector<int>{7});
  EXPECT_EQ(ItemCount(read, 11, -1), 2u);
  EXPECT_EQ(read.IsSame(&filter) + filter.IsSame(&read), 2);
  // Read with resources and not marked changed: the very text comes back.
  EXPECT_EQ(read.IsFilterChanged(), 0);
  EXPECT_EQ(read.GetFilter(), text);
}

TEST_F(ContentFilterTextTest, AColonInAKeywordIsEscapedAndAParenthesisBreaksTheText) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"10:30"), 4, 4, 0);
  const CString text = filter.GetFilter();
  EXPECT_EQ(text, CString(u"(4)(:)(65519)(10&9877;30:)(4:4:4:|)()"));
  ContentFilter read;
  ASSERT_EQ(read.SetFilter(text), 1);
  EXPECT_EQ(Keywords(read), CStringArray{CString(u"10:30")});
  ASSERT_EQ(ItemCount(read, 4, 4), 1u);
  EXPECT_EQ(read.GetFilteredFieldItems(4, 4)->front()->GetItemString(), CString(u"10:30"));

  ContentFilter broken;
  AddWords(&broken, {u"x)y"}, 4, -1);
  ContentFilter misread;
  EXPECT_EQ(misread.SetFilter(broken.GetFilter()), 1);
  EXPECT_EQ(Keywords(misread), CStringArray{CString(u"x")});
  EXPECT_EQ(misread.GetFilteredFieldItems(4, -1), nullptr);
  // The relation section was taken for the resources.
  EXPECT_EQ(misread.GetResources(), std::vector<int>{4});
}

TEST_F(ContentFilterTextTest, AnEmptyResourceSectionMakesTheFilterRebuildItsText) {
  ContentFilter withResources;
  const CString kept(u"(0004)(:)(65519)(red:)(4:4:4:|)(7,)");
  ASSERT_EQ(withResources.SetFilter(kept), 1);
  EXPECT_EQ(withResources.GetFilter(), kept);

  ContentFilter withoutResources;
  ASSERT_EQ(withoutResources.SetFilter(CString(u"(0004)(:)(65519)(red:)(4:4:4:|)()")), 1);
  EXPECT_EQ(withoutResources.IsFilterChanged(), 1);
  EXPECT_EQ(withoutResources.GetFilter(), CString(u"(4)(:)(65519)(red:)(4:4:4:|)()"));
}

TEST_F(ContentFilterTextTest, ARelationWithoutFieldsGainsAnAllFieldsSearchOnReading) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"x"), 4, 4, 0);
  filter.RemoveFilteredStringItem(CString(u"x"), 4, 4);
  EXPECT_EQ(filter.GetFilter(), CString(u"(4)(:)(65519)()(4:-1:4|)()"));
  ContentFilter read;
  ASSERT_EQ(read.SetFilter(filter.GetFilter()), 1);
  EXPECT_EQ(read.IsFieldChecked(4, -1), 1);
  EXPECT_EQ(read.IsFieldChecked(4, 4), 0);
}

TEST_F(ContentFilterTextTest, ReadingTheSameTextTwiceAddsToWhatTheFilterHolds) {
  const CString text(u"(4)(:)(65519)(red:blue:)(4:-1:4:|)(3,)");
  ContentFilter filter;
  ASSERT_EQ(filter.SetFilter(text), 1);
  EXPECT_EQ(ItemCount(filter, 4, -1), 2u);
  ASSERT_EQ(filter.SetFilter(text), 1);
  EXPECT_EQ(Keywords(filter).size(), 4u);
  // Each listed field gets one item per keyword the filter holds by then.
  EXPECT_EQ(ItemCount(filter, 4, -1), 6u);
  EXPECT_EQ(filter.GetResources(), (std::vector<int>{3, 3}));
}

TEST_F(ContentFilterTextTest, ItemTypesComeFromTheTextAndUnknownTypesAreReadAsText) {
  ContentFilter filter;
  ASSERT_EQ(filter.SetFilter(CString(u"(4)(:)(65519)(12:)(4:9:0:7:4:5:77:6:)(1,)")), 1);
  ASSERT_EQ(ItemCount(filter, 4, 9), 1u);
  EXPECT_EQ(filter.GetFilteredFieldItems(4, 9)->front()->GetItemTypeID(), Item::kTypeInt);
  EXPECT_EQ(filter.GetFilteredFieldItems(4, 7)->front()->GetItemTypeID(), Item::kTypeString);
  EXPECT_EQ(filter.GetFilteredFieldItems(4, 5)->front()->GetItemTypeID(), Item::kTypeString);
  // A lone last token names no type and is passed over.
  EXPECT_EQ(filter.IsFieldChecked(4, 6), 0);
}

TEST_F(ContentFilterTextTest, DatesAreWrittenButSplitOnReadingAndTheDateTestStaysOff) {
  ContentFilter filter;
  filter.SetDateInterval(COleDateTime(2007, 5, 6, 9, 0, 0), COleDateTime(2007, 5, 8, 9, 0, 0));
  Touch(&filter);
  const CString text = filter.GetFilter();
  EXPECT_EQ(text, CString(u"(4)(05/06/07@00:00:05/08/07@23:59)(65519)()()()"));
  ContentFilter read;
  ASSERT_EQ(read.SetFilter(text), 1);
  EXPECT_EQ(read.IsDateIntervalSet(), 0);
  EXPECT_FALSE(read.GetStartDate() == filter.GetStartDate() &&
               read.GetEndDate() == filter.GetEndDate());
  EXPECT_EQ(read.IsDateValid(COleDateTime(1990, 1, 1, 0, 0, 0)), 1);
}

TEST_F(ContentFilterTextTest, MalformedTextsAreRefused) {
  const char16_t* present[] = {u"",         u"x",         u"(",      u"(1)",       u"(1)x",
                               u"(1)(abc)", u"(1)(a)b:)", u"(1)(:)", u"(1)(:)(2)", u"(1)(:)(2)x"};
  for (const char16_t* text : present) {
    ContentFilter filter;
    EXPECT_EQ(filter.SetFilter(CString(text)), 0) << CString(text).ToUtf8();
    ContentFilter old;
    EXPECT_EQ(old.SetFilterOld(CString(text)), 0) << CString(text).ToUtf8();
  }
  const char16_t* older[] = {u"[", u"[1]", u"[1][x]", u"[1][a]b:]", u"[1][:][2]", u"[1][:][2]x"};
  for (const char16_t* text : older) {
    ContentFilter old;
    EXPECT_EQ(old.SetFilterOld(CString(text)), 0) << CString(text).ToUtf8();
    // The present reader hands an old text on and answers 1 whatever it
    // gave.
    ContentFilter filter;
    EXPECT_EQ(filter.SetFilter(CString(text)), 1) << CString(text).ToUtf8();
  }
}

TEST_F(ContentFilterTextTest, UnclosedSectionsReadWithoutRunningOffTheText) {
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

TEST_F(ContentFilterTextTest, APresentTextAskingForTooManyItemsIsRefused) {
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

TEST_F(ContentFilterTextTest, EmptyKeywordsLeftByAnOldTextCostNothingPerListedField) {
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

TEST_F(ContentFilterTextTest, AnOldTextIsReadWholeHoweverManyEntriesItHas) {
  CString text(u"[4][:][65519][16][");
  for (int i = 0; i < 10001; ++i) text.AppendFormat(u"7:4:w%d|", i);
  text += u"][]";
  ContentFilter filter;
  EXPECT_EQ(filter.SetFilterOld(text), 1);
  EXPECT_EQ(ItemCount(filter, 16, 7), 10001u);
}

TEST_F(ContentFilterTextTest, AnOldFilterOnPostsActsOnBothPostRelationsAndIsUpgraded) {
  ContentFilter filter;
  ASSERT_EQ(filter.SetFilter(CString(u"[4][:][65519][4][4:4:news|][]")), 1);
  EXPECT_EQ(ItemCount(filter, 4, 4), 1u);
  EXPECT_EQ(ItemCount(filter, 11, 4), 1u);
  EXPECT_EQ(filter.IsFilterChanged(), 1);
  EXPECT_EQ(filter.GetFilter(), CString(u"(4)(:)(65519)(news:)(4:4:4:|11:4:4:|)()"));
}

TEST_F(ContentFilterTextTest, AnOldWordKeepsItsColonsAndAnotherRelationStaysAlone) {
  ContentFilter filter;
  ASSERT_EQ(filter.SetFilterOld(CString(u"[1][:][2][16][5:4:a:b|bad|6:4:|][8,0,9,]")), 1);
  EXPECT_EQ(Keywords(filter), (CStringArray{CString(u"a:b"), CString()}));
  EXPECT_EQ(ItemCount(filter, 16, 5), 1u);
  EXPECT_EQ(ItemCount(filter, 16, 6), 1u);
  EXPECT_EQ(filter.GetFilteredFieldItems(4, 5), nullptr);
  EXPECT_EQ(filter.GetResources(), (std::vector<int>{8, 9}));
  EXPECT_EQ(filter.GetFilterStatus(), 1);
  EXPECT_EQ(filter.GetFilterMask(), 2);
  // Not marked changed: the old text is what GetFilter still gives.
  EXPECT_EQ(filter.GetFilter(), CString(u"[1][:][2][16][5:4:a:b|bad|6:4:|][8,0,9,]"));
}

TEST_F(ContentFilterTextTest, AnOldFilterOnEveryRelationReplacesTheEntryOfRelationEleven) {
  ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"before"), 11, 7, 0);
  ASSERT_EQ(filter.SetFilterOld(CString(u"[4][:][65519][][4:4:news|][]")), 1);
  EXPECT_EQ(filter.IsFieldChecked(11, 7), 0);
  EXPECT_EQ(ItemCount(filter, 11, 4), 1u);
  EXPECT_EQ(ItemCount(filter, 4, 4), 1u);
  EXPECT_EQ(filter.GetFilteredFieldItems(-1, 4), nullptr);
}

// --- Sentences -------------------------------------------------------------------------------

TEST_F(ContentFilterTextTest, TheAcceptAndRejectSentencesTellTheWordsAndFields) {
  ContentFilter filter;
  EXPECT_EQ(Sentence(filter), "");
  AddWords(&filter, {u"linux"}, 4, -1);
  EXPECT_EQ(Sentence(filter),
            "Accept retrieved post only when word \"linux\" occurs in any part of it.");
  ContentFilter out;
  AddWords(&out, {u"a", u"b"}, 11, -1);
  out.SetFilterOut(1);
  EXPECT_EQ(Sentence(out),
            "Filter out retrieved post when words \"a\", or \"b\" occur in any part of it.");
  AddWords(&out, {u"c"}, 11, -1);
  out.ReSetFilterStatus(ContentFilter::kWordDependent, 0);
  EXPECT_EQ(Sentence(out),
            "Filter out retrieved post when words \"a\", \"b\" and \"c\" occur together in any "
            "part of it.");
  AddWords(&out, {u"d"}, 11, -1);
  EXPECT_NE(Sentence(out).find("\"a\", \"b\", \"c\", and \"d\""), std::string::npos);
  // The fields are named in the sentence's own order.
  ContentFilter fields;
  AddWords(&fields, {u"x"}, 4, 4);
  EXPECT_EQ(Sentence(fields),
            "Accept retrieved post only when word \"x\" occurs in title field of the post.");
  AddWords(&fields, {u"x"}, 11, 7);
  AddWords(&fields, {u"x"}, 4, 6);
  EXPECT_EQ(Sentence(fields),
            "Accept retrieved post only when word \"x\" occurs in body, title, and category fields "
            "of the post.");
}

TEST_F(ContentFilterTextTest, TheSearchSentenceTellsMaskAndDates) {
  ContentFilter filter;
  AddWords(&filter, {u"x"}, 4, -1);
  filter.ReSetFilterStatus(ContentFilter::kSearchFilter, 0);
  EXPECT_EQ(Sentence(filter), "Searching word \"x\" in posts ");
  filter.ReSetContentFilterMask(ContentFilter::kMaskFlagged, 0);
  filter.SetDateInterval(COleDateTime(2007, 5, 6, 0, 0, 0), COleDateTime(2007, 5, 6, 0, 0, 0));
  EXPECT_EQ(Sentence(filter), "Searching word \"x\" in starred posts published on May 06, 2007");
  filter.ReSetFilterStatus(ContentFilter::kReceivedDate, 0);
  filter.SetDateInterval(COleDateTime(2007, 5, 6, 0, 0, 0), COleDateTime(2007, 6, 1, 0, 0, 0));
  EXPECT_EQ(Sentence(filter),
            "Searching word \"x\" in starred posts received between dates May 06, 2007 and June "
            "01, 2007");
  // Fields are named only for relation 11 searched in all fields; before
  // "author" the opening replaces what was built.
  for (int authorFirst : {0, 1}) {
    ContentFilter search;
    search.ReSetFilterStatus(ContentFilter::kSearchFilter, 0);
    if (authorFirst) AddWords(&search, {u"x"}, 11, 5);
    AddWords(&search, {u"x"}, 11, -1);
    if (!authorFirst) AddWords(&search, {u"x"}, 11, 7), AddWords(&search, {u"x"}, 11, 4);
    EXPECT_EQ(Sentence(search), authorFirst
                                    ? " in author field of posts "
                                    : "Searching word \"x\" in body, and title fields of posts ");
  }
}

TEST_F(ContentFilterTextTest, TheNotificationSentenceTellsTheWordsOfTheItems) {
  ContentFilter filter;
  EXPECT_EQ(filter.GetFilterDefinition(), CString());
  AddWords(&filter, {u"a"}, 11, 4);
  EXPECT_EQ(filter.GetFilterDefinition(), CString(u"Notify me when word \"a\" occurs."));
  AddWords(&filter, {u"b", u"a"}, 11, 7);
  EXPECT_EQ(filter.GetFilterDefinition(), CString(u"Notify me when words \"a\", or \"b\" occur ."));
  filter.ReSetFilterStatus(ContentFilter::kWordDependent, 0);
  filter.SetNotificationFilter(0);
  EXPECT_EQ(filter.GetFilterDefinition(),
            CString(u"Message related when words \"a\", and \"b\" occur  together."));
}

}  // namespace
}  // namespace kordll
