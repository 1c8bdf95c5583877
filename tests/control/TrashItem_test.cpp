#include "kordll/control/TrashItem.h"

#include <gtest/gtest.h>

#include <memory>

#include "kordll/platform/Clock.h"
#include "kordll/record/AZeusDB.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

using S = CString;

// An empty bin record whose GUID field holds text, as read from a database.
std::unique_ptr<TrashItem> Stored(const S& text) {
  auto t = std::make_unique<TrashItem>();
  t->Focusable::SetGUID(text);
  return t;
}

TEST(TrashItemTest, PostGoesToTheBinAndIsRescuedWithItsGuid) {
  ScopedManualClock clock(2024, 3, 5, 10, 30, 0);
  Focusable post(4, nullptr), channel(5, nullptr);
  post.SetGUID("R7|G&898989;3");
  post.SetValueStr(4, "Title", 1);
  TrashItem trash(&post), notPost(&channel);
  EXPECT_EQ(trash.Focusable::GetGUID(), S("R7&898989;G&898989;3|03/05/24@10:30|-1"));
  EXPECT_EQ(trash.GetFocusableStatus() & TrashItem::kStatusTrashed, TrashItem::kStatusTrashed);
  // Read back after a restart: the bars return, and so does a literal escape.
  auto read = Stored(trash.Focusable::GetGUID());
  EXPECT_EQ(read->GetGUID(), S("R7|G|3"));
  EXPECT_EQ(read->GetTrashedDate(), COleDateTime(2024, 3, 5, 10, 30, 0));
  read->CopyFocusable(&trash, 0);
  std::unique_ptr<Focusable> live(TrashItem(*read).RescueTrash());
  ASSERT_NE(live, nullptr);
  EXPECT_EQ(live->GetGUID() + live->GetFieldString(4, 0), S("R7|G|3Title"));
  EXPECT_EQ(notPost.RescueTrash(), nullptr);
}

TEST(TrashItemTest, DamagedGuidTextsLeaveWhatTheyCannotSay) {
  auto empty = Stored(S());
  EXPECT_EQ(empty->GetGUID(), S());
  empty->Focusable::SetGUID("later|01/02/03@04:05|7");  // unpacked again on each call
  EXPECT_EQ(empty->GetGUID() + S::Formatted("%d", empty->GetRescueDBID()), S("later7"));
  auto one = Stored("only");
  EXPECT_EQ(one->GetGUID() + S::Formatted("%d", one->GetRescueDBID()), S("only0"));
  EXPECT_EQ(one->GetTrashedDate(), COleDateTime());
  auto bars = Stored("||a|||junk|99999999999999|more");
  EXPECT_NE(bars->GetTrashedDate().GetStatus(), COleDateTime::valid);
  // A number beyond the int range reads as the int limit.
  EXPECT_EQ(bars->GetGUID() + S::Formatted("%d", bars->GetRescueDBID()), S("a2147483647"));
  EXPECT_EQ(Stored("|||")->GetGUID(), S());
}

TEST(TrashItemTest, DatabaseIdsBeyondSixteenBitsSurviveTheBin) {
  ScopedManualClock clock(2024, 3, 5, 10, 30, 0);
  test::TempRoot root;
  AZeusDB db(root.DataRoot(), CString("posts"), 0, 0);
  db.SetDBID(70000, 0);
  Focusable post(4, &db);
  post.SetGUID("g");
  TrashItem trash(&post);
  EXPECT_EQ(trash.Focusable::GetGUID(), S("g|03/05/24@10:30|70000"));
  EXPECT_EQ(Stored(trash.Focusable::GetGUID())->GetRescueDBID(), 70000);
  EXPECT_EQ(TrashItem(trash).GetRescueDBID(), 70000);
}

}  // namespace
}  // namespace kordll
