#include "kordll/talk/ErrorMsg.h"

#include <gtest/gtest.h>

#include <tuple>

#include "kordll/talk/SocketStatus.h"
#include "kordll/toolkit/CXMLFile.h"

namespace kordll {
namespace {

// A few codes whose words or kind a slip in the tables or the range tests
// would change: the first and last words, codes sharing words, codes in a
// range without words of their own, and the ends of ranges.
TEST(ErrorMsgTest, CodesGiveTheirKindAndWords) {
  std::tuple<int, const char*, const char*> rows[] = {
      {1, "Parser Error", "Unmatched Item at parsing."},
      {302, "Network Error", "Invalid Redirection"},
      {601, "System Error", "Unknown Error!"},
  };
  for (auto [code, type, words] : rows) {
    ErrorMsg error(code, "ignored words");
    EXPECT_EQ(error.GetErrorType() + "/" + error.GetErrorMsg(), CString(type) + "/" + words)
        << code;
  }
}

TEST(ErrorMsgTest, TextFormEscapesOnlyTheCaption) {
  ErrorMsg error(404, "x");  // the caller's words are not the error's
  error.erroneousResource = "Tom & Jerry <feed>";
  error.recommendation = "Check <b>it</b>";
  const CString text = error.DecorateErrorInXML();
  EXPECT_NE(text.Find(CString(">Tom &amp; Jerry &lt;feed&gt;</erroneousresource>")), -1);
  EXPECT_NE(text.Find(CString("<recommendationmsg>Check <b>it</b></recommendationmsg>")), -1);
}

TEST(ErrorMsgTest, DecoratesAnXmlElement) {
  CXMLFile xml;
  ASSERT_EQ(xml.CreateRootNode("feed"), 1);
  IXMLDOMElement* root = nullptr;
  ASSERT_EQ(xml.GetRootNode(&root), 1);
  EXPECT_EQ(ErrorMsg(2, "x").DecorateErrorInXMLFile(&xml, root), 1);
  root->Release();
  CString words;  // the words under the error of the right type
  EXPECT_EQ(xml.GetSingleNodeValue("error[errortype='Parser Error']/errormessage", words), 1);
  EXPECT_EQ(words, CString("Unexpected HTML in RSS/XML parsing."));
  // Without a file nothing can be added.
  EXPECT_EQ(ErrorMsg(2, "x").DecorateErrorInXMLFile(nullptr, nullptr), 0);
}

TEST(SocketStatusTest, PercentageIsTruncatedAndSafeAtTheEdges) {
  auto percent = [](int content, int done) {
    SocketStatus status;
    return status.SetContentLength(content), status.SetDownloadedLength(done),
           status.GetProgressPercentage();
  };
  EXPECT_EQ(percent(0, 50), 0);  // no content length yet
  EXPECT_EQ(percent(3, 2), 66);
}

}  // namespace
}  // namespace kordll
