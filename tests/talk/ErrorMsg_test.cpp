#include "kordll/talk/ErrorMsg.h"

#include <gtest/gtest.h>

#include "kordll/talk/SocketStatus.h"
#include "kordll/toolkit/CXMLFile.h"

namespace kordll {
namespace {

// A few codes whose words or kind a slip in the tables or the range tests
// would change: the first and last words, codes sharing words, codes in a
// range without words of their own, and the ends of every range.
TEST(ErrorMsgTest, CodesGiveTheirKindAndWords) {
  struct Row {
    int code;
    const char* type;
    const char* words;
  } rows[] = {
      {1, "Parser Error", "Unmatched Item at parsing."},
      {12029, "Network Error", "The attempt to connect to the server failed."},
      {302, "Network Error", "Invalid Redirection"},
      {0, "System Error", "Unknown Error!"},
      {19, "Parser Error", "Unknown Error!"},
      {39, "Database Error", "Unknown Error!"},
      {40, "System Error", "Unknown Error!"},
      {600, "Network Error", "Unknown Error!"},
      {601, "System Error", "Unknown Error!"},
      {12156, "Network Error", "Unknown Error!"},
      {12157, "System Error", "Unknown Error!"},
  };
  for (const Row& row : rows) {
    ErrorMsg error(row.code, "ignored words");
    EXPECT_EQ(error.GetErrorType(), CString(row.type)) << row.code;
    EXPECT_EQ(error.GetErrorMsg(), CString(row.words)) << row.code;
  }
}

TEST(ErrorMsgTest, TextFormEscapesOnlyTheCaption) {
  ErrorMsg error(404, "x");  // the caller's words are not the error's
  EXPECT_EQ(error.erroneousResourceID, -1);
  error.errorTime = COleDateTime(2005, 11, 7, 10, 0, 0);
  error.erroneousResource = "Tom & Jerry <feed>";
  error.recommendation = "Check <b>it</b>";
  error.erroneousResourceID = 12;
  EXPECT_EQ(error.DecorateErrorInXML(),
            CString("<error>\n<errortype>Network Error</errortype>\n"
                    "<errormessage>Requested file not found.</errormessage>\n"
                    "<erroneousresource>Tom &amp; Jerry &lt;feed&gt;</erroneousresource>\n"
                    "<erroneousresourceid>12</erroneousresourceid>\n"
                    "<errorid>12_404</errorid>\n"
                    "<recommendationmsg>Check <b>it</b></recommendationmsg>\n"
                    "<errortime>Monday, November 07, 2005 @ 10:00</errortime>\n</error>\n"));

  ErrorMsg bare(7, "x");
  bare.errorTime = COleDateTime(2005, 11, 7, 10, 0, 0);
  CString text = bare.DecorateErrorInXML();
  EXPECT_NE(text.Find(CString("<erroneousresource></erroneousresource>\n<errorid>7</errorid>\n"
                              "<errortime>")),
            -1)
      << text.ToUtf8();
  EXPECT_EQ(text.Find(CString("recommendationmsg")), -1);
  EXPECT_EQ(text.Find(CString("erroneousresourceid")), -1);
}

TEST(ErrorMsgTest, DecoratesAnXmlElement) {
  CXMLFile xml;
  ASSERT_EQ(xml.CreateRootNode("feed"), 1);
  IXMLDOMElement* root = nullptr;
  ASSERT_EQ(xml.GetRootNode(&root), 1);
  EXPECT_EQ(ErrorMsg(2, "x").DecorateErrorInXMLFile(&xml, root), 1);
  root->Release();
  CString type, words;
  EXPECT_EQ(xml.GetSingleNodeValue("error/errortype", type), 1);
  EXPECT_EQ(xml.GetSingleNodeValue("error/errormessage", words), 1);
  EXPECT_EQ(type, CString("Parser Error"));
  EXPECT_EQ(words, CString("Unexpected HTML in RSS/XML parsing."));
  // Nothing to add to: still 1, and nothing breaks; without a file, 0.
  EXPECT_EQ(ErrorMsg(2, "x").DecorateErrorInXMLFile(&xml, nullptr), 1);
  EXPECT_EQ(ErrorMsg(2, "x").DecorateErrorInXMLFile(nullptr, nullptr), 0);
}

TEST(SocketStatusTest, PercentageIsTruncatedAndSafeAtTheEdges) {
  SocketStatus status;
  EXPECT_TRUE(status.GetStatusText().IsEmpty());
  status.SetDownloadedLength(50);
  EXPECT_EQ(status.GetProgressPercentage(), 0);  // no content length yet
  status.SetContentLength(3);
  status.SetDownloadedLength(2);
  EXPECT_EQ(status.GetProgressPercentage(), 66);
  status.SetContentLength(1);
  status.SetDownloadedLength(2147483647);
  EXPECT_EQ(status.GetProgressPercentage(), 2147483647);
  status.SetContentLength(-3);
  status.SetDownloadedLength(2);
  EXPECT_EQ(status.GetProgressPercentage(), -66);
}

}  // namespace
}  // namespace kordll
