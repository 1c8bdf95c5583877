#include "kordll/control/TreeItem.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "kordll/control/_struct_RESCTRLNOTIFMSG.h"
#include "kordll/talk/ErrorMsg.h"
#include "tests/control/GlobalResourceCtrlTest.h"

namespace kordll {
namespace {

using S = CString;

// Notes the news and the updates it hears from its records.
struct Parent : test::Ctrl {
  using Ctrl::Ctrl;
  void OnUpdateResourceCtrl(_struct_RESCTRLNOTIFMSG* m) override {
    news.push_back(m->originatorID);
  }
  void UpdateFocusable(Focusable* record, int flag) override { updated = flag == 1 ? record : 0; }
  std::vector<int> news;
  Focusable* updated = nullptr;
};

class TreeItemTest : public test::RegistryTest {
 protected:
  TreeItemTest() : parent_(new Parent(20)) { GlobalResourceCtrl::RegisterPanel(&panel_, 20, 0); }
  ~TreeItemTest() override { GlobalResourceCtrl::DeRegisterPanel(&panel_, -1); }
  int Changes() { return std::count(panel_.heard.begin(), panel_.heard.end(), kChanged); }
  const std::vector<int> kChanged{1041, 3, 20};
  Parent* parent_;
  test::Panel panel_;
};

TEST_F(TreeItemTest, IdComesFromTheGuidAndOnceKnownStaysFixed) {
  TreeItem node(parent_, 2), copy(nullptr, 2);
  node.SetGUID("R7-G5");
  EXPECT_EQ(node.GetFocusableID(), -1);
  node.SetGUID("R7_G5");  // tried again on each call
  EXPECT_EQ(node.GetFocusableID(), 5);
  node.SetGUID("R9_G8");
  node.SetGUID("garbage|&898989;");
  EXPECT_EQ(node.GetGUID(), S("R9_G5"));
  node.SetFocusableID(12);
  EXPECT_EQ(node.GetGUID(), S("R9_G12"));
  copy.SetTreeItem(&node, 3, 0);
  EXPECT_EQ(copy.GetFocusableID() + copy.GetTreePosition() + copy.GetParentResourceCtrlID(), 35);
}

TEST_F(TreeItemTest, FieldsFollowTheRelationAndStatusClearWins) {
  TreeItem folder(parent_, 27), tag(parent_, 22), channel(parent_, 9), other(parent_, 30);
  folder.SetTreeItemCaption("News");
  folder.SetTreeItemType(14);
  folder.SetParentFocusableID(3);
  EXPECT_EQ(folder.GetFieldString(7, 0) + folder.GetFocusableTitle(), S("NewsNews"));
  EXPECT_EQ(folder.GetParentFocusableID() * folder.IsFolder(), 3);
  tag.SetTreeItemType(2);
  EXPECT_EQ(tag.GetFieldInt(7) * 10 + channel.GetTreeItemType(), 26);
  channel.SetTreeItemStatus(0x400 | 0x80, 0);
  EXPECT_EQ(channel.GetTreeItemType() + channel.IsBoldFocusable(), 5);
  channel.SetTreeItemStatus(0x80, 0x80);
  EXPECT_EQ(channel.GetTreeItemStatus(), 0x400);
  // Without a parent field the id is written to field 4 but reads as -1.
  other.SetParentFocusableID(9);
  other.SetTreeItemType(2);
  EXPECT_EQ(other.GetFieldInt(4), 9);
  EXPECT_EQ(other.GetParentFocusableID() + other.GetTreeItemType(), 20);
}

TEST_F(TreeItemTest, TreeUpdatesReachTheParentAndItsPanels) {
  TreeItem node(parent_, 2), orphan(nullptr, 2);
  _struct_RESCTRLNOTIFMSG m;
  EXPECT_EQ(node.BroadCastTreeItemUpdate(&m) + orphan.BroadCastTreeItemUpdate(&m), 1);
  EXPECT_EQ(parent_->news, std::vector<int>{20});
  EXPECT_EQ(node.BroadCastTreeItemUpdate(nullptr), 1);
  EXPECT_EQ(Changes(), 1);
  node.UpdateItem(0);
  EXPECT_EQ(parent_->updated, &node);
}

TEST_F(TreeItemTest, ErrorsAreFiledOncePerCodeAndTheirEndIsAnnounced) {
  TreeItem node(parent_, 2);
  node.SetGUID("R7_G4");
  node.InsertErrorMsg(404, "first");
  node.InsertErrorMsg(500, "x");
  node.SetTreeItemCaption("Renamed");
  clock_.Advance(60000);
  node.InsertErrorMsg(404, "second");
  ASSERT_EQ(node.GetErrorMsgMap()->size(), 2u);
  const ErrorMsg* e = node.GetErrorMsgMap()->at(404);
  EXPECT_EQ(e->message + e->erroneousResource + S::Formatted("%d", e->erroneousResourceID),
            S("firstRenamed4"));
  EXPECT_EQ(e->errorTime, Clock::Now());
  EXPECT_EQ(node.ReleaseError(1) + node.ReleaseError(404), 1);
  EXPECT_EQ(Changes(), 0);
  EXPECT_EQ(node.ReleaseError(500), 1);
  EXPECT_EQ(Changes() + node.IsErrorExist(), 1);
  node.ReleaseAllErrorMsgs();
  EXPECT_EQ(Changes(), 2);
  node.InsertErrorMsg(1, "kept by the node until it ends");  // ASan: no leak
  GlobalResourceCtrl::SetGlobalResourceClosed(1);
  node.InsertErrorMsg(2, "refused");
  EXPECT_EQ(node.GetErrorMsgMap()->count(2), 0u);
}

}  // namespace
}  // namespace kordll
