#include "kordll/control/TrashItem.h"

#include <gtest/gtest.h>

#include <memory>

#include "kordll/platform/Clock.h"

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
  post.SetValueStr(8, "Channel", 1);
  TrashItem trash(&post), notPost(&channel);
  EXPECT_EQ(trash.Focusable::GetGUID(), S("R7&898989;G&898989;3|03/05/24@10:30|-1"));
  EXPECT_EQ(trash.GetFocusableStatus() & TrashItem::kStatusTrashed, TrashItem::kStatusTrashed);
  EXPECT_EQ(trash.GetFocusableTitle() + trash.GetSourceTitle(), S("TitleChannel"));
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
  // The number read as INT_MAX and kept in 16 bits.
  EXPECT_EQ(bars->GetGUID() + S::Formatted("%d", bars->GetRescueDBID()), S("a-1"));
  EXPECT_EQ(Stored("|||")->GetGUID(), S());
  EXPECT_EQ(Stored("g|d|70000")->GetRescueDBID(), 4464);
}

}  // namespace
}  // namespace kordll
