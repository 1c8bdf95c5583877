// The filter's setters and their effect on status, mask and the changed
// flag; the date interval; whole-word search; copies and comparison.

#include "kordll/filter/ContentFilter.h"

#include <gtest/gtest.h>

#include "kordll/record/DBTaskItem.h"
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
};

// A new filter is active, whole-word, a notification filter, shows all and
// has no dates; the setters report real changes only.
TEST_F(ContentFilterTest, StatusSettersReportRealChangesOnly) {
  ContentFilter filter;
  EXPECT_EQ(std::vector<int>({filter.GetFilterStatus(), filter.GetFilterMask(),
                              filter.IsFilterActive(), filter.IsNotificationFilter(),
                              filter.IsShowAll(), filter.IsFilterDateValuesSet()}),
            std::vector<int>({4, 65519, 1, 1, 1, 0}));
  EXPECT_EQ(filter.ReSetFilterStatus(0, 0), 0);
  EXPECT_EQ(filter.IsFilterChanged(), 0);
  EXPECT_EQ(filter.SetFilterOut(1), 1);
  EXPECT_EQ(filter.SetFilterOut(1), 0);
  EXPECT_EQ(filter.IsFilterOut(), 1);
  EXPECT_EQ(filter.SetFilterActivity(0), 1);
  EXPECT_EQ(filter.IsFilterActive(), 0);
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
  EXPECT_EQ(filter.GetFilterMask(), 2);
  EXPECT_EQ(filter.IsShowUnread(), 1);
  EXPECT_EQ(filter.IsFilterChanged(), 0);
  EXPECT_EQ(filter.ReSetContentFilterMask(3, 0), 1);
  EXPECT_EQ(filter.GetFilterMask(), 3);
  EXPECT_EQ(filter.ReSetContentFilterMask(4, 0), 1);
  EXPECT_EQ(filter.GetFilterMask(), 4);
  // Show all keeps read and unread from being cleared.
  EXPECT_EQ(filter.ReSetContentFilterMask(65519, 1 | 2 | 8), 1);
  EXPECT_EQ(filter.GetFilterMask(), 65519 & ~8);
  EXPECT_EQ(filter.IsFilterMaskValid(1), 1);
  filter.ReSetContentFilterMask(4, 0);
  EXPECT_EQ(filter.IsFilterMaskValid(2), 0);
  EXPECT_EQ(filter.IsFilterMaskValid(6), 1);
}

TEST_F(ContentFilterTest, DateIntervalsStretchToWholeDaysUnlessTimesAreKept) {
  ContentFilter filter;
  EXPECT_EQ(filter.SetDateInterval(Invalid(), Invalid()), 0);
  EXPECT_EQ(filter.IsDateIntervalSet(), 0);
  EXPECT_EQ(filter.SetDateInterval(COleDateTime(2007, 5, 6, 9, 30, 0), Invalid()), 1);
  EXPECT_EQ(filter.IsDateIntervalSet(), 1);
  EXPECT_EQ(filter.GetStartDate().GetHour(), 0);
  EXPECT_EQ(filter.IsDateValid(COleDateTime(2007, 5, 6, 0, 0, 0)), 1);
  EXPECT_EQ(filter.IsDateValid(COleDateTime(2007, 5, 5, 23, 0, 0)), 0);
  // Two invalid dates leave the date test as it was.
  EXPECT_EQ(filter.SetDateInterval(Invalid(), Invalid()), 1);
  EXPECT_EQ(filter.IsDateIntervalSet(), 1);
  EXPECT_EQ(filter.IsDateValid(COleDateTime(1990, 1, 1, 0, 0, 0)), 1);

  filter.ReSetFilterStatus(ContentFilter::kKeepDateTimes, 0);
  filter.SetDateInterval(COleDateTime(2007, 5, 6, 9, 30, 0), COleDateTime(2007, 5, 6, 10, 0, 0));
  EXPECT_EQ(filter.GetStartDate().GetMinute(), 30);
  EXPECT_EQ(filter.IsDateTimeValid(COleDateTime(2007, 5, 6, 9, 0, 0)), 0);
  // IsDateValid cuts the record's date to midnight: before the start time.
  EXPECT_EQ(filter.IsDateValid(COleDateTime(2007, 5, 6, 9, 45, 0)), 0);
  EXPECT_EQ(filter.IsDateTimeValid(COleDateTime(2007, 5, 6, 9, 45, 0)), 1);
  // The pointer form always stretches.
  COleDateTime day(2007, 5, 6, 9, 30, 0);
  filter.SetDateInterval(&day, nullptr);
  EXPECT_EQ(filter.GetStartDate().GetMinute(), 0);
  EXPECT_EQ(filter.GetEndDate().GetStatus(), COleDateTime::invalid);
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
  } cases[] = {{u"art", 1, 1},          {u"the art.", 1, 1}, {u"party", 0, 1},
               {u"cart", 0, 1},         {u"art3", 0, 1},     {u"art\u00e9", 1, 1},
               {u"cart and art", 1, 1}, {u"a cart", 0, 1},   {u"pa", 0, 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(whole.SearchWord(CString(c.text), CString(u"art")), c.whole)
        << CString(c.text).ToUtf8();
    EXPECT_EQ(part.SearchWord(CString(c.text), CString(u"art")), c.part)
        << CString(c.text).ToUtf8();
  }
}

TEST_F(ContentFilterTest, RemovingWordsSkipsTheNeighbourOfARemovedKeyword) {
  ContentFilter filter;
  ASSERT_EQ(filter.SetFilter(CString(u"(4)(:)(65519)(a:a:b:)(4:4:4:5:4:|)(1,)")), 1);
  filter.RemoveFilteredStringItem(CString(u"a"), 4, 4);
  CStringArray words;
  filter.GetFilterKeywords(&words);
  EXPECT_EQ(words, (CStringArray{CString(u"a"), CString(u"b")}));
  EXPECT_EQ(filter.GetFilteredFieldItems(4, 4)->size(), 1u);  // "b" stays
  filter.RemoveFilteredStringItem(CString(u"a"), 4, 5);
  words.clear();
  filter.GetFilterKeywords(&words);
  EXPECT_EQ(words, CStringArray{CString(u"b")});
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
  EXPECT_EQ(filter.GetTaskItem(-1), nullptr);
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
  EXPECT_EQ(copy.IsSame(&filter), 1);
  copy.AddFilteredStringItem(CString(u"more"), 11, 4, 0);
  EXPECT_EQ(copy.IsSame(&filter), 1);  // relations only this one has do not count
  EXPECT_EQ(filter.IsSame(&copy), 0);
  copy.AddResourceToFilter(9);
  EXPECT_EQ(filter.IsSame(&copy), 0);
  EXPECT_EQ(copy.IsSame(&filter), 0);  // 9 is not among the source's
  EXPECT_EQ(filter.GetFilteredFieldItems(11, 4), nullptr);

  ContentFilter appended;
  appended.AddResourceToFilter(7);
  appended.SetContentFilter(&filter, 1);
  EXPECT_EQ(appended.GetResources(), (std::vector<int>{7, 7}));
  ContentFilter assigned;
  assigned = copy;
  EXPECT_EQ(assigned.IsSame(&copy), 1);
}

}  // namespace
}  // namespace kordll
