// ErrorMsg: one error that happened to one resource.
//
// The numeric code is shared by the feed parser, the record databases, the
// socket and internet client libraries and HTTP, so that one number tells
// both the kind of the error (GetErrorType) and its standard words
// (GetErrorMsg). Both are pure functions of the code: the text handed to the
// constructor is kept in `message` but never replaces the standard words.
//
// A plain record: the fields are public and written by whoever files the
// error (a tree node sets the caption, the id and the time of its source).
// Copying copies every field.
//
// Thread safety: none; an error belongs to one holder at a time.

#ifndef KORDLL_TALK_ERRORMSG_H_
#define KORDLL_TALK_ERRORMSG_H_

#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CString.h"

namespace kordll {

class CXMLFile;
class IXMLDOMElement;

class ErrorMsg {
 public:
  // The error `code` with the caller's text: no resource (id -1), every
  // other text empty, and the time of the error now.
  ErrorMsg(int code, CString message);
  ErrorMsg(const ErrorMsg& other) = default;
  ErrorMsg& operator=(const ErrorMsg& other) = default;
  ~ErrorMsg() = default;

  // The kind of the code: "Parser Error" (1 to 19), "Database Error" (20 to
  // 39), "Network Error" (200 to 600, 10004 to 11004, 12001 to 12156), and
  // "System Error" for every other code. Both ends of each range count.
  CString GetErrorType() const;
  // The standard words of the code; "Unknown Error!" for a code that has
  // none, including codes inside a known range (19 is a parser error whose
  // words are unknown).
  CString GetErrorMsg() const;

  // Adds under `element` a node "error" holding "errortype" and
  // "errormessage". The answer is meant to be 1 whatever the three additions
  // answered (their results are or-ed onto 1); it is 0 only when `xml` is
  // null, since then nothing can be added at all.
  int DecorateErrorInXMLFile(CXMLFile* xml, IXMLDOMElement* element) const;
  // The record as text, one tag per line, each line ended by a line feed:
  // error, errortype, errormessage, erroneousresource (the caption with "&",
  // "<" and ">" escaped), the resource id and "<id>_<code>" as errorid when
  // there is a resource (else the code alone), recommendationmsg when there
  // is a recommendation, and errortime in full words. Only the caption is
  // escaped: the message and the recommendation are written as they stand.
  CString DecorateErrorInXML() const;

  int errorCode;
  // Id of the record the error belongs to; -1 when there is none.
  int erroneousResourceID;
  // Kept for the applications; nothing in the library reads it.
  CString firstText;
  // The text given to the constructor.
  CString message;
  // Advice for the user; empty leaves "recommendationmsg" out.
  CString recommendation;
  // Caption of the record the error belongs to.
  CString erroneousResource;
  // Kept for the applications; empty after construction.
  CString lastText;
  COleDateTime errorTime;
};

}  // namespace kordll

#endif  // KORDLL_TALK_ERRORMSG_H_
