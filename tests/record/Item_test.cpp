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
  for (int type : {4, 7, -1}) {
    ItemPtr item = Make(type, u"any text");
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->GetItemTypeID(), 4) << type;
    EXPECT_EQ(item->IsString(), 1);
    EXPECT_EQ(item->GetItemString(), CString(u"any text"));
  }
}

TEST_F(ItemTest, ExactlyOneTypeFlagIsSetAndChangedStartsAtZero) {
  for (int type = 0; type <= 4; ++type) {
    ItemPtr item = Make(type, u"");
    EXPECT_EQ(item->GetItemTypeID(), type);
    EXPECT_EQ(item->IsInteger() + item->IsDouble() + item->IsDate() + item->IsBoolean() +
                  item->IsString(),
              1);
    EXPECT_EQ(item->IsChanged(), 0);
  }
}

TEST_F(ItemTest, IntItemParsesAtOnceButKeepsItsTextUntilChanged) {
  IntItem item(CString(u"12abc"));
  EXPECT_EQ(item.GetValue(), 12);
  EXPECT_EQ(item.GetItemString(), CString(u"12abc"));
  IntItem empty(CString(u""));
  EXPECT_EQ(empty.GetValue(), -1);
  EXPECT_EQ(empty.GetItemString(), CString(u"-1"));
  EXPECT_EQ(empty.GetText(), CString(u"-1"));  // rebuilt text is kept
  EXPECT_EQ(empty.IsChanged(), 0);             // and changed is left alone
  IntItem noDigits(CString(u"abc"));
  EXPECT_EQ(noDigits.GetInt(), 0);
}

TEST_F(ItemTest, IntItemWithValueMinusOneIsParsedAgainFromItsText) {
  IntItem item(CString(u"42"));
  item.SetValue(-1);
  EXPECT_EQ(item.GetInt(), 42);
  IntItem real(CString(u"-1"));
  EXPECT_EQ(real.GetInt(), -1);
  EXPECT_EQ(real.GetInt(), -1);
}

TEST_F(ItemTest, DoubleItemParsesNothingOnConstruction) {
  DoubleItem item(CString(u"3.25"));
  EXPECT_EQ(item.GetValue(), 0.0);
  EXPECT_EQ(item.GetItemString(), CString(u"3.25"));
}

TEST_F(ItemTest, BoolItemIsFalseOnlyForExactlyZero) {
  EXPECT_EQ(BoolItem(CString(u"0")).GetValue(), 0);
  EXPECT_EQ(BoolItem(CString(u"00")).GetValue(), 1);
  EXPECT_EQ(BoolItem(CString(u"false")).GetValue(), 1);
  EXPECT_EQ(BoolItem(CString(u" ")).GetValue(), 1);
  BoolItem empty(CString(u""));
  EXPECT_EQ(empty.GetValue(), 0);
  EXPECT_TRUE(empty.GetText().IsEmpty());
  EXPECT_EQ(empty.GetItemString(), CString(u"0"));
  BoolItem no(CString(u"no"));
  EXPECT_EQ(no.GetItemString(), CString(u"no"));  // unchanged text stands
}

TEST_F(ItemTest, DateItemReadsTheStoredShapeAndWritesItBack) {
  DateItem item(CString(u"11/07/05@21:05"));
  COleDateTime date = item.GetDateTime();
  ASSERT_EQ(date.GetStatus(), COleDateTime::valid);
  EXPECT_EQ(date.GetYear(), 2005);
  EXPECT_EQ(date.GetMonth(), 11);
  EXPECT_EQ(date.GetDay(), 7);
  EXPECT_EQ(date.GetHour(), 21);
  EXPECT_EQ(date.GetMinute(), 5);
  EXPECT_EQ(item.GetItemString(), CString(u"11/07/05@21:05"));

  DateItem empty;
  EXPECT_EQ(empty.GetValue().GetStatus(), COleDateTime::invalid);
  EXPECT_EQ(empty.GetItemString(), CString(u""));  // invalid and unchanged: text as is
  empty.SetValue(COleDateTime(2010, 1, 2, 3, 4, 0));
  EXPECT_EQ(empty.GetItemString(), CString(u"01/02/10@03:04"));
}

TEST_F(ItemTest, DateItemWithInvalidDateReadsItsTextOnDemand) {
  DateItem item(CString(u"01/02/10@03:04"));
  COleDateTime unparsed = item.GetValue();
  unparsed.SetStatus(COleDateTime::invalid);
  item.SetValue(unparsed);
  EXPECT_EQ(item.GetDateTime().GetStatus(), COleDateTime::valid);
  EXPECT_EQ(item.GetDateTime().GetYear(), 2010);
}

// --- Change and comparison --------------------------------------------------------

TEST_F(ItemTest, SetItemCopiesADifferentValueOfTheSameTypeAndMarksChanged) {
  IntItem target(CString(u"5"));
  IntItem source(CString(u"9"));
  target.SetItem(&source);
  EXPECT_EQ(target.GetValue(), 9);
  EXPECT_EQ(target.IsChanged(), 1);
  EXPECT_TRUE(target.GetText().IsEmpty());
  EXPECT_EQ(target.GetItemString(), CString(u"9"));
}

TEST_F(ItemTest, SetItemWithEqualValueOrOtherTypeChangesNothing) {
  IntItem target(CString(u"07"));
  IntItem same(CString(u"7"));
  target.SetItem(&same);
  EXPECT_EQ(target.IsChanged(), 0);
  EXPECT_EQ(target.GetText(), CString(u"07"));

  BoolItem flag(CString(u"0"));
  IntItem one(CString(u"1"));
  flag.SetItem(&one);
  EXPECT_EQ(flag.GetValue(), 0);
  EXPECT_EQ(flag.IsChanged(), 0);
  flag.SetItem(nullptr);
  EXPECT_EQ(flag.IsChanged(), 0);

  Item text(CString(u"abc"));
  text.SetItem(&one);
  EXPECT_EQ(text.GetText(), CString(u"abc"));
}

TEST_F(ItemTest, StringItemsCompareTextsWithCase) {
  Item a(CString(u"Title"));
  Item b(CString(u"title"));
  EXPECT_EQ(a.IsSame(&b), 0);
  a.SetItem(&b);
  EXPECT_EQ(a.GetText(), CString(u"title"));
  EXPECT_EQ(a.IsChanged(), 1);
  EXPECT_EQ(a.IsSame(&b), 1);
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
  DoubleItem half;
  half.SetValue(0.5);
  DoubleItem other;
  other.SetValue(0.5);
  EXPECT_EQ(half.IsSame(&other), 1);
}

TEST_F(ItemTest, IsSameComparesUnparsedValuesAsTheyStand) {
  // Both just read from disk and not parsed: the values are -1 and equal.
  IntItem a(CString(u"3"));
  IntItem b(CString(u"4"));
  a.SetValue(-1);
  b.SetValue(-1);
  EXPECT_EQ(a.IsSame(&b), 1);
  DoubleItem x(CString(u"1.5"));
  DoubleItem y(CString(u"2.5"));
  EXPECT_EQ(x.IsSame(&y), 1);
  EXPECT_EQ(x.IsSame(&a), 0);
  Item text(CString(u""));
  EXPECT_EQ(text.IsSame(&a), 0);
  EXPECT_EQ(a.IsSame(&text), 0);
}

TEST_F(ItemTest, DatesCompareByNativeValue) {
  DateItem a(CString(u"01/02/10@03:04"));
  DateItem b(CString(u"01/02/10@03:04"));
  DateItem c(CString(u"01/02/10@03:05"));
  EXPECT_EQ(a.IsSame(&b), 1);
  EXPECT_EQ(a.IsSame(&c), 0);
  a.SetItem(&c);
  EXPECT_EQ(a.IsChanged(), 1);
  EXPECT_EQ(a.GetItemString(), CString(u"01/02/10@03:05"));
}

TEST_F(ItemTest, CreateCopyItemCopiesClassValueTextAndChanged) {
  IntItem source(CString(u"12abc"));
  source.SetChanged(1);
  ItemPtr copy(source.CreateCopyItem());
  auto* typed = dynamic_cast<IntItem*>(copy.get());
  ASSERT_NE(typed, nullptr);
  EXPECT_EQ(typed->GetValue(), 12);
  EXPECT_EQ(typed->GetText(), CString(u"12abc"));
  EXPECT_EQ(typed->IsChanged(), 1);

  DateItem date(CString(u"01/02/10@03:04"));
  ItemPtr dateCopy(date.CreateCopyItem());
  EXPECT_EQ(dateCopy->IsSame(&date), 1);
  Item text(CString(u"t"));
  ItemPtr textCopy(text.CreateCopyItem());
  EXPECT_EQ(textCopy->GetItemTypeID(), 4);
  EXPECT_EQ(textCopy->GetText(), CString(u"t"));
  BoolItem flag(CString(u"yes"));
  ItemPtr flagCopy(flag.CreateCopyItem());
  EXPECT_EQ(flagCopy->GetItemString(), CString(u"yes"));
  DoubleItem d;
  d.SetValue(2.5);
  ItemPtr dCopy(d.CreateCopyItem());
  EXPECT_EQ(static_cast<DoubleItem*>(dCopy.get())->GetValue(), 2.5);
}

TEST_F(ItemTest, ChangedIntAndBoolRebuildTheirText) {
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
