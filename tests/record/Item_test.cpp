// Field items: how stored text turns into values and back, lazily, and how
// values are compared, copied and marked changed; record layouts and the
// task items that say which fields one load or save covers; and the short
// way of reading stored dates, which must give exactly the date of the full
// reader for every text it takes, and hand every other text on.

#include "kordll/record/Item.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

#include "kordll/core/DateText.h"
#include "kordll/platform/Clock.h"
#include "kordll/record/BoolItem.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/DoubleItem.h"
#include "kordll/record/IntItem.h"
#include "kordll/record/LibraryLifetime.h"
#include "kordll/record/RGDBTemplate.h"

namespace kordll {
namespace {

struct ItemDeleter {
  void operator()(Item* item) const { delete item; }
};
using ItemPtr = std::unique_ptr<Item, ItemDeleter>;

class ItemTest : public ::testing::Test {
 protected:
  void SetUp() override { KordllProcessAttach(); }
  static ItemPtr Make(int type, const char16_t* text) {
    return ItemPtr(Item::CreateTypedItem(type, CString(text)));
  }
};

// --- Construction from stored text ---------------------------------------------

// What a typed item reads from its stored text (int and bool parse at once,
// a double not at all) and the text it gives back while unchanged.
TEST_F(ItemTest, StoredTextGivesTheValueAndStandsUntilChanged) {
  const struct {
    int type;
    const char16_t* text;
    double value;
    const char16_t* shown;
  } rows[] = {
      {0, u"12abc", 12, u"12abc"}, {0, u"", -1, u"-1"}, {1, u"3.25", 0, u"3.25"},
      {3, u"false", 1, u"false"},  {3, u"", 0, u"0"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.type << " [" << CString(row.text).ToUtf8() << "]");
    ItemPtr item = Make(row.type, row.text);
    double value = 0;
    if (auto* i = dynamic_cast<IntItem*>(item.get())) value = i->GetValue();
    if (auto* d = dynamic_cast<DoubleItem*>(item.get())) value = d->GetValue();
    if (auto* f = dynamic_cast<BoolItem*>(item.get())) value = f->GetValue();
    EXPECT_EQ(value, row.value);
    EXPECT_EQ(item->GetItemString(), CString(row.shown));
    EXPECT_EQ(item->IsChanged(), 0);
  }
}

// --- Change and comparison --------------------------------------------------------

// SetItem copies only a different value of the same type, and marks the item
// changed; IsSame compares texts with case and typed values as they stand
// (doubles not yet parsed are both 0).
TEST_F(ItemTest, SetItemCopiesOnlyADifferentValueOfTheSameType) {
  const struct {
    int typeA;
    const char16_t* a;
    int typeB;
    const char16_t* b;
    int same, changed;
    const char16_t* after;
  } rows[] = {{0, u"5", 0, u"9", 0, 1, u"9"},
              {3, u"0", 0, u"1", 0, 0, u"0"},
              {4, u"Title", 4, u"title", 0, 1, u"title"},
              {2, u"01/02/10@03:04", 2, u"01/02/10@03:05", 0, 1, u"01/02/10@03:05"},
              {1, u"1.5", 1, u"2.5", 1, 0, u"1.5"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(CString(row.a).ToUtf8() + " <- " + CString(row.b).ToUtf8());
    ItemPtr a = Make(row.typeA, row.a);
    ItemPtr b = Make(row.typeB, row.b);
    EXPECT_EQ(a->IsSame(b.get()), row.same);
    a->SetItem(b.get());
    EXPECT_EQ(a->IsChanged(), row.changed);
    EXPECT_EQ(a->GetItemString(), CString(row.after));
    EXPECT_EQ(a->IsSame(b.get()), row.same || row.changed);
  }
  IntItem target(CString(u"5"));
  IntItem source(CString(u"9"));
  target.SetItem(&source);
  EXPECT_TRUE(target.GetText().IsEmpty());  // the text is rebuilt from the value
  target.SetChanged(0);
  target.SetItem(nullptr);
  EXPECT_EQ(target.IsChanged(), 0);
}

// --- Record layouts ----------------------------------------------------------------

TEST(RGDBTemplateTest, AbsurdFieldIdsAreRefusedAndARepeatedIdKeepsTheLaterField) {
  RGDBTemplate layout(1);
  for (int id : {-1, RGDBTemplate::kMaxFieldID + 1, 2000000000}) {
    layout.AddField(id, 10, 0, CString(), CString(), 0, 0);
  }
  EXPECT_EQ(layout.GetFieldCount(), 0);
  layout.AddField(1, 10, 0, CString(), CString(u"first"), 0, 0);
  layout.AddField(1, 30, 4, CString(), CString(u"second"), 0, 0);
  EXPECT_EQ(layout.GetFieldCount(), 2);
  EXPECT_EQ(layout.GetField(1)->decoration, CString(u"second"));
}

// --- Task items -------------------------------------------------------------------

TEST(DBTaskItemTest, DefiningPastTheEndFillsWithFillersAndUndefiningClosesTheGap) {
  DBTaskItem task;
  task.DefineFieldTaskType(-5, 2);  // absurd positions are refused
  task.DefineFieldTaskType(2000000000, 2);
  EXPECT_EQ(task.IsDefinedTasksEmpty(), 1);
  task.DefineFieldTaskType(3, DBTaskItem::kTaskLoad);
  EXPECT_EQ(task.tasks, (std::vector<int>{3, 3, 3, 2}));
  task.DefineFieldTaskType(4, DBTaskItem::kTaskSave);  // at the end: appended
  task.DefineFieldTaskType(0, DBTaskItem::kTaskLoad);  // inside: overwritten
  EXPECT_EQ(task.tasks, (std::vector<int>{2, 3, 3, 2, 1}));
  EXPECT_EQ(task.UnDefineFieldTask(0), 1);
  EXPECT_EQ(task.UnDefineFieldTask(2), 1);
  EXPECT_EQ(task.tasks, (std::vector<int>{3, 3, 1}));
  EXPECT_EQ(task.UnDefineFieldTask(3), 0);
}

// --- Stored dates --------------------------------------------------------------------

struct Checker {
  int taken = 0;
  // Reads text both ways; true when the short way took it.
  bool Check(std::u16string_view units) {
    const CString text(units);
    const COleDateTime full = DateText::StringToDateTime(text, 0);
    COleDateTime fast(1234.5);
    const bool took = DateText::ReadStoredShape(text, &fast);
    const COleDateTime both = DateText::StoredTextToDateTime(text);
    const std::string shown = text.ToUtf8();
    if (took) {
      ++taken;
      EXPECT_EQ(fast.GetStatus(), full.GetStatus()) << shown;
      EXPECT_EQ(fast.GetDATE(), full.GetDATE()) << shown;
    } else {
      EXPECT_EQ(fast.GetDATE(), 1234.5) << "refused text changed the date: " << shown;
    }
    EXPECT_EQ(both.GetStatus(), full.GetStatus()) << shown;
    EXPECT_EQ(both.GetDATE(), full.GetDATE()) << shown;
    return took;
  }
};

std::u16string Two(int n) { return {char16_t(u'0' + n / 10 % 10), char16_t(u'0' + n % 10)}; }

std::u16string Shape(int month, int day, int year, int hour, int minute) {
  return Two(month) + u"/" + Two(day) + u"/" + Two(year) + u"@" + Two(hour) + u":" + Two(minute);
}

// Under three "now"s, since the short year is widened by the current year:
// "00" is 1900 (refused) before 2000, "49" is 1949 or 2049.
class StoredDateTest : public ::testing::TestWithParam<int> {
 protected:
  ScopedManualClock clock_{GetParam(), 6, 15, 12, 0, 0};
  Checker check_;
};

TEST_P(StoredDateTest, TrickyTextsAgree) {
  // Well-formed shapes (a day past its month's end, which both readers treat
  // alike, and minute 60), shapes of another width or separator, and texts that the
  // full reader reads another way (a four-digit year, full-width digits, a
  // zone or seconds after the time).
  const char16_t* texts[] = {u"11/07/05@10:00",     u"12/31/99@23:59",           u"02/29/00@00:00",
                             u"02/29/01@00:00",     u"04/31/05@10:00",           u"11/07/05@23:60",
                             u"11/7/05@10:00",      u"11/07/2005@10:00",         u"11/07/05T10:00",
                             u"11/07/05@10:00 GMT", u"\uff11\uff11/07/05@10:00", u"",
                             u"11/07/05@10:00:30"};
  for (const char16_t* t : texts) check_.Check(t);
  check_.Check(std::u16string(u"11/07/05@10:00\0xy", 17));
  check_.Check(std::u16string(u"11/07/05@10:0\0", 14));
  EXPECT_EQ(check_.taken, 5);  // the well-formed texts with each field in its range
}

TEST_P(StoredDateTest, EveryFieldBoundaryAgrees) {
  for (int month = 0; month <= 13; ++month) {
    for (int day = 0; day <= 32; ++day) {
      for (int year = 0; year <= 99; ++year) check_.Check(Shape(month, day, year, 23, 59));
    }
  }
  for (int hour = 0; hour <= 25; ++hour) {
    for (int minute = 0; minute <= 61; ++minute) check_.Check(Shape(2, 29, 4, hour, minute));
  }
  // Every text the store writes for a calendar day takes the short way.
  for (int year = 1950; year <= 2049; ++year) {
    const COleDateTime d(year, year % 12 + 1, year % 28 + 1, year % 24, year % 60, 0);
    EXPECT_TRUE(check_.Check(DateText::DateTimeToSimpleString(d).view()));
  }
}

// (Arbitrary texts get the same check from the stored-date fuzz target.)
INSTANTIATE_TEST_SUITE_P(Now, StoredDateTest, ::testing::Values(1999, 2026, 2049));

}  // namespace
}  // namespace kordll
