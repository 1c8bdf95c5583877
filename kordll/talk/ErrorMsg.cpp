#include "kordll/talk/ErrorMsg.h"

#include "kordll/platform/Clock.h"
#include "kordll/toolkit/CXMLFile.h"
#include "kordll/toolkit/KorlanDateTime.h"
#include "kordll/toolkit/KorlanHTMLCtrl.h"

namespace kordll {

namespace {

// The code ranges of each kind, tested in this order.
struct CodeRange {
  int first;
  int last;
  const char* type;
};

constexpr CodeRange kRanges[] = {
    {1, 19, "Parser Error"},         {20, 39, "Database Error"},      {200, 600, "Network Error"},
    {10004, 11004, "Network Error"}, {12001, 12156, "Network Error"},
};

constexpr const char* kOtherType = "System Error";
constexpr const char* kUnknownWords = "Unknown Error!";

// The standard words of each code that has some. The parser's codes come
// first, then the databases', HTTP status codes, the socket library's and
// the internet client library's.
struct CodeWords {
  int code;
  const char* words;
};

constexpr CodeWords kWords[] = {
    {1, "Unmatched Item at parsing."},
    {2, "Unexpected HTML in RSS/XML parsing."},
    {3, "Unexpected Atom Feed at RSS/XML parsing."},
    {4, "Unexpected ScriptingNews Feed at RSS/XML parsing."},
    {5, "No Terminator character seen at parsing."},
    {6, "Unknown Error at parsing."},
    {7, "Parsing Aborted."},
    {20, "Write Error"},
    {21, "Read Error"},
    {203, "Non-Authoritative Information."},
    {301, "Invalid Redirection"},
    {302, "Invalid Redirection"},
    {400, "Bad Request"},
    {401, "The request requires user authentication."},
    {403, "Forbidden"},
    {404, "Requested file not found."},
    {406, "Not Acceptable HTTP Response."},
    {407, "Proxy Authentication Required."},
    {500, "Internal Server Error."},
    {504, "Gateway or Proxy Server Timeout"},
    {505, "HTTP Version Not Supported."},
    {10013, "Permission denied."},
    {10022, "Invalid argument"},
    {12002, "The request has timed out."},
    {12004, "An internal error has occurred."},
    {12005, "The URL is invalid."},
    {12007, "The server name could not be resolved."},
    {12028, "The requested item could not be located."},
    {12029, "The attempt to connect to the server failed."},
};

// "<tag>text</tag>" and a line feed.
void AppendLine(CString* out, const char* tag, const CString& text) {
  out->AppendFormat("<%s>%s</%s>\n", tag, text, tag);
}

}  // namespace

ErrorMsg::ErrorMsg(int code, CString text)
    : errorCode(code), erroneousResourceID(-1), message(text), errorTime(Clock::Now()) {}

CString ErrorMsg::GetErrorType() const {
  for (const CodeRange& range : kRanges) {
    if (errorCode >= range.first && errorCode <= range.last) return CString(range.type);
  }
  return CString(kOtherType);
}

CString ErrorMsg::GetErrorMsg() const {
  for (const CodeWords& entry : kWords) {
    if (entry.code == errorCode) return CString(entry.words);
  }
  return CString(kUnknownWords);
}

int ErrorMsg::DecorateErrorInXMLFile(CXMLFile* xml, IXMLDOMElement* element) const {
  if (xml == nullptr) return 0;
  int result = 1;
  IXMLDOMNode* error = nullptr;
  result |= xml->AddNewNode(&error, element, "error", CString());
  // Without the "error" node the two below fail on their null parent.
  result |= xml->AddNewNode(error, "errortype", GetErrorType());
  result |= xml->AddNewNode(error, "errormessage", GetErrorMsg());
  if (error != nullptr) error->Release();
  return result;
}

CString ErrorMsg::DecorateErrorInXML() const {
  CString out("<error>\n");
  AppendLine(&out, "errortype", GetErrorType());
  AppendLine(&out, "errormessage", GetErrorMsg());
  AppendLine(&out, "erroneousresource", KorlanHTMLCtrl::NormalizeHTML(erroneousResource));
  if (erroneousResourceID != -1) {
    AppendLine(&out, "erroneousresourceid", CString::Formatted("%d", erroneousResourceID));
    AppendLine(&out, "errorid", CString::Formatted("%d_%d", erroneousResourceID, errorCode));
  } else {
    AppendLine(&out, "errorid", CString::Formatted("%d", errorCode));
  }
  if (!recommendation.IsEmpty()) AppendLine(&out, "recommendationmsg", recommendation);
  AppendLine(&out, "errortime", KorlanDateTime::DateTimeToFullString(errorTime, 0));
  out += "</error>\n";
  return out;
}

}  // namespace kordll
