// SocketStatus: the small state record of one transfer, as the network side
// fills it in: a status text and how much of the content has arrived.
//
// Thread safety: none; the transfer's thread owns it.

#ifndef KORDLL_TALK_SOCKETSTATUS_H_
#define KORDLL_TALK_SOCKETSTATUS_H_

#include "kordll/platform/CString.h"

namespace kordll {

class SocketStatus {
 public:
  // An empty status text, nothing known and nothing arrived.
  SocketStatus() = default;

  CString GetStatusText() const { return statusText_; }
  void SetStatusText(CString text) { statusText_ = text; }
  int GetContentLength() const { return contentLength_; }
  void SetContentLength(int length) { contentLength_ = length; }
  int GetDownloadedLength() const { return downloadedLength_; }
  void SetDownloadedLength(int length) { downloadedLength_ = length; }

  // 0 while the content length is 0; otherwise the downloaded length times
  // 100, divided in floating point by the content length and truncated
  // toward zero (a length that exceeds the content passes 100). A result
  // beyond the int range is held at its limit.
  int GetProgressPercentage() const;

 private:
  CString statusText_;
  int contentLength_ = 0;
  int downloadedLength_ = 0;
};

}  // namespace kordll

#endif  // KORDLL_TALK_SOCKETSTATUS_H_
