#include "kordll/control/TreeItem.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "kordll/talk/ErrorMsg.h"
#include "tests/control/GlobalResourceCtrlTest.h"

namespace kordll {
namespace {

using S = CString;

class TreeItemTest : public test::RegistryTest {
 protected:
  TreeItemTest() : parent_(new test::Ctrl(20)) {
    GlobalResourceCtrl::RegisterPanel(&panel_, 20, 0);
  }
  ~TreeItemTest() override { GlobalResourceCtrl::DeRegisterPanel(&panel_, -1); }
  int Changes() { return std::count(panel_.heard.begin(), panel_.heard.end(), kChanged); }
  const std::vector<int> kChanged{1041, 3, 20};
  test::Ctrl* parent_;
  test::Panel panel_;
};

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
