// Field items: how stored text turns into values and back, lazily, and how
// values are compared, copied and marked changed.

#include "kordll/record/Item.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "kordll/record/BoolItem.h"
#include "kordll/record/DateItem.h"
#include "kordll/record/DoubleItem.h"
#include "kordll/record/IntItem.h"
#include "kordll/record/LibraryLifetime.h"

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

TEST_F(ItemTest, CreateTypedItemPicksTheClassByTypeIdAndFallsBackToString) {
  EXPECT_NE(dynamic_cast<IntItem*>(Make(0, u"1").get()), nullptr);
  EXPECT_NE(dynamic_cast<DoubleItem*>(Make(1, u"1").get()), nullptr);
  EXPECT_NE(dynamic_cast<DateItem*>(Make(2, u"").get()), nullptr);
  EXPECT_NE(dynamic_cast<BoolItem*>(Make(3, u"1").get()), nullptr);
  for (int type : {0, 1, 2, 3, 4, 7, -1}) {
    ItemPtr item = Make(type, u"any text");
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->GetItemTypeID(), type >= 0 && type <= 4 ? type : 4) << type;
    EXPECT_EQ(item->IsInteger() + item->IsDouble() + item->IsDate() + item->IsBoolean() +
                  item->IsString(),
              1);
    EXPECT_EQ(item->IsChanged(), 0);
  }
  EXPECT_EQ(Make(9, u"any text")->GetItemString(), CString(u"any text"));
}

// What a typed item reads from its stored text (int and bool parse at once,
// a double not at all) and the text it gives back while unchanged.
TEST_F(ItemTest, StoredTextGivesTheValueAndStandsUntilChanged) {
  const struct {
    int type;
    const char16_t* text;
    double value;
    const char16_t* shown;
  } rows[] = {
      {0, u"12abc", 12, u"12abc"}, {0, u"", -1, u"-1"}, {0, u"abc", 0, u"abc"},
      {1, u"3.25", 0, u"3.25"},    {3, u"0", 0, u"0"},  {3, u"00", 1, u"00"},
      {3, u"false", 1, u"false"},  {3, u" ", 1, u" "},  {3, u"", 0, u"0"},
      {3, u"no", 1, u"no"},        {2, u"", 0, u""},
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
  IntItem empty(CString(u""));
  EXPECT_EQ(empty.GetItemString(), CString(u"-1"));
  EXPECT_EQ(empty.GetText(), CString(u"-1"));  // rebuilt text is kept
  BoolItem noText(CString(u""));
  EXPECT_TRUE(noText.GetText().IsEmpty());
  EXPECT_EQ(DateItem().GetValue().GetStatus(), COleDateTime::invalid);
}

TEST_F(ItemTest, IntItemWithValueMinusOneIsParsedAgainFromItsText) {
  IntItem item(CString(u"42"));
  item.SetValue(-1);
  EXPECT_EQ(item.GetInt(), 42);
  IntItem real(CString(u"-1"));
  EXPECT_EQ(real.GetInt(), -1);
  EXPECT_EQ(real.GetInt(), -1);
}

TEST_F(ItemTest, DateItemReadsTheStoredShapeAndItsTextOnDemand) {
  DateItem item(CString(u"11/07/05@21:05"));
  COleDateTime date = item.GetDateTime();
  ASSERT_EQ(date.GetStatus(), COleDateTime::valid);
  EXPECT_EQ(date, COleDateTime(2005, 11, 7, 21, 5, 0));
  EXPECT_EQ(item.GetItemString(), CString(u"11/07/05@21:05"));
  DateItem empty;
  empty.SetValue(COleDateTime(2010, 1, 2, 3, 4, 0));
  EXPECT_EQ(empty.GetItemString(), CString(u"01/02/10@03:04"));
  // An invalid native date is read again from the text.
  DateItem stored(CString(u"01/02/10@03:04"));
  COleDateTime unparsed = stored.GetValue();
  unparsed.SetStatus(COleDateTime::invalid);
  stored.SetValue(unparsed);
  EXPECT_EQ(stored.GetDateTime().GetStatus(), COleDateTime::valid);
  EXPECT_EQ(stored.GetDateTime().GetYear(), 2010);
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
              {0, u"07", 0, u"7", 1, 0, u"07"},
              {3, u"0", 0, u"1", 0, 0, u"0"},
              {4, u"abc", 0, u"1", 0, 0, u"abc"},
              {4, u"", 0, u"3", 0, 0, u""},
              {0, u"3", 4, u"", 0, 0, u"3"},
              {4, u"Title", 4, u"title", 0, 1, u"title"},
              {2, u"01/02/10@03:04", 2, u"01/02/10@03:04", 1, 0, u"01/02/10@03:04"},
              {2, u"01/02/10@03:04", 2, u"01/02/10@03:05", 0, 1, u"01/02/10@03:05"},
              {1, u"1.5", 1, u"2.5", 1, 0, u"1.5"},
              {1, u"1.5", 0, u"3", 0, 0, u"1.5"}};
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
  EXPECT_TRUE(target.GetText().IsEmpty());
  target.SetChanged(0);
  target.SetItem(nullptr);
  EXPECT_EQ(target.IsChanged(), 0);
  // Both just read from disk and not parsed: the values are -1 and equal.
  IntItem x(CString(u"3"));
  IntItem y(CString(u"4"));
  x.SetValue(-1);
  y.SetValue(-1);
  EXPECT_EQ(x.IsSame(&y), 1);
}

TEST_F(ItemTest, DoubleNaNNeverEqualsSoItIsAlwaysCopied) {
  DoubleItem a;
  DoubleItem nan;
  nan.SetValue(std::nan(""));
  a.SetItem(&nan);
  EXPECT_EQ(a.IsChanged(), 1);
  EXPECT_TRUE(std::isnan(a.GetValue()));
  EXPECT_EQ(a.IsSame(&nan), 0);
  a.SetChanged(0);
  a.SetItem(&nan);
  EXPECT_EQ(a.IsChanged(), 1);
  a.SetValue(0.5);
  nan.SetValue(0.5);
  EXPECT_EQ(a.IsSame(&nan), 1);
}

TEST_F(ItemTest, CopiesKeepClassValueTextAndChangedAndChangedItemsRebuildTheirText) {
  const std::pair<int, const char16_t*> rows[] = {
      {0, u"12abc"}, {1, u"2.5"}, {2, u"01/02/10@03:04"}, {3, u"yes"}, {4, u"t"}};
  for (auto [type, text] : rows) {
    for (int changed : {0, 1}) {
      SCOPED_TRACE(testing::Message() << type << " " << changed);
      ItemPtr source = Make(type, text);
      source->SetChanged(changed);
      ItemPtr copy(source->CreateCopyItem());
      ASSERT_NE(copy, nullptr);
      EXPECT_EQ(typeid(*copy), typeid(*source));
      EXPECT_EQ(copy->IsSame(source.get()), 1);
      EXPECT_EQ(copy->GetText(), CString(text));
      EXPECT_EQ(copy->IsChanged(), changed);
    }
  }
  EXPECT_EQ(static_cast<IntItem*>(ItemPtr(Make(0, u"12abc")->CreateCopyItem()).get())->GetValue(),
            12);
  IntItem number(CString(u"12"));
  number.SetValue(13);
  EXPECT_EQ(number.GetItemString(), CString(u"12"));  // unchanged: text stands
  number.SetChanged(1);
  EXPECT_EQ(number.GetItemString(), CString(u"13"));
  BoolItem flag(CString(u"true"));
  flag.SetValue(0);
  flag.SetChanged(1);
  EXPECT_EQ(flag.GetItemString(), CString(u"0"));
}

}  // namespace
}  // namespace kordll
