// NetworkSide: the sample application's network side, on libcurl.
//
// The library describes transfers in FileRequest records and offers them
// through the registry of controllers; this controller answers those
// commands:
//   29670 start   the FileRequest* in the message's object (reserved once for us)
//   29671 pause   the address in the message's text
//   29672 resume  the address in the message's text
//   29673 cancel  the address in the message's text
//   29675 show network settings (counted; the sample has no settings window)
// Each command is handed to the network thread, which keeps the table of
// transfers; every transfer runs on a worker thread of its own. A worker
// writes every block through FileRequest::SaveContent, fills the status
// members (HTTP status or network error code, reported, total and received
// sizes, the server's date of the content, the status text) and ends the
// transfer with the matching message:
//   finished (success or failure, 404 included)  SendFinishedMessage
//   paused                                        SendPausedMessage
//   cancelled (partial file deleted)              SendAbortMsg
//   resumed (before the transfer goes on)         SendResumedMessage
// A resumed transfer asks the server for the rest with a range request and
// appends to the partial file. A transfer of at least multiPartThreshold
// bytes from a server that accepts ranges is split into segment requests,
// written as the slots of the ".spawn" partial file and joined into the
// final file at the end; a later resume picks each segment up where its
// header says it stopped.
//
// References: a started request arrives reserved once; the message that
// ends it hands that reservation to the handler (which releases it). A
// paused request stays with the network side, which reserves it once more
// before it reports the pause, so that it can resume it later. A message
// that cannot be delivered is released here.
//
// Typical use (the sample application):
//   kordll_net::NetworkSide* net = kordll_net::NetworkSide::Start({});
//   ...                                    // the library offers commands
//   net->CloseResourceCtrl();              // stops transfers, ends the thread
//   net->Release();

#ifndef KORDLL_EXAMPLES_NET_NETWORKSIDE_H_
#define KORDLL_EXAMPLES_NET_NETWORKSIDE_H_

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>

#include "kordll/control/ResourceController.h"
#include "kordll/platform/CString.h"

namespace kordll {
class FileRequest;
struct PANELVIEWMESSAGE;
}  // namespace kordll

namespace kordll_net {

// Network error codes put into FileRequest::httpStatus when no HTTP answer
// came (the codes of the Windows network library that the texts follow).
constexpr int kNetErrorTimeout = 12002;
constexpr int kNetErrorInternal = 12004;
constexpr int kNetErrorBadAddress = 12005;
constexpr int kNetErrorNameNotResolved = 12007;
constexpr int kNetErrorCannotConnect = 12029;
constexpr int kNetErrorConnectionAborted = 12030;

struct NetworkOptions {
  // The registry slot the commands come through (a reserved id no
  // controller of the library uses).
  int controllerID = 12;
  // Transfers of at least this many bytes are split into segments when the
  // server accepts ranges; 0 never splits.
  uint64_t multiPartThreshold = uint64_t{32} << 20;
  int segments = 4;
  // A transfer that moves less than one byte a second for this long fails
  // with kNetErrorTimeout; so does a connection not made in time.
  long lowSpeedSeconds = 60;
  long connectTimeoutSeconds = 30;
  // Makes the request for a resume of an address the network side holds no
  // request for (after a failure, or in a later run of the program): a new
  // request (count 1, reserved once) naming the partial file, or null to
  // ignore the resume. The default asks the download list (controller 14)
  // for its entry and replies to that controller's thread.
  std::function<kordll::FileRequest*(const kordll::CString& url)> makeResumeRequest;
};

class NetworkSide : public kordll::ResourceController {
 public:
  // Makes the network side, starts its thread and registers it under
  // options.controllerID. Null when the thread could not be made. The
  // caller holds the one reference (ends with CloseResourceCtrl, Release).
  static NetworkSide* Start(const NetworkOptions& options);

  // Takes the commands listed above; 0 for any other, so that the registry
  // offers it to the next controller.
  int InterpretGUICommand(kordll::PANELVIEWMESSAGE* message, int* result) override;

  // Stops every running transfer (each reported paused, forced, so the
  // download list can resume it next time), gives back the paused requests
  // held, ends the network thread and leaves the registry. Idempotent.
  void CloseResourceCtrl() override;

  // How many transfers are running or paused (any thread).
  int GetActiveTransferCount() const { return active_.load(); }
  // How often 29675 came.
  int GetSettingsRequestCount() const { return settingsRequests_.load(); }

 private:
  class Thread;
  explicit NetworkSide(const NetworkOptions& options);
  ~NetworkSide() override;

  friend class Thread;
  NetworkOptions options_;
  std::mutex threadMu_;       // guards thread_ against a close meanwhile
  Thread* thread_ = nullptr;  // owned; ends in CloseResourceCtrl
  std::atomic<int> active_{0};
  std::atomic<int> settingsRequests_{0};
  std::atomic<bool> closed_{false};
};

}  // namespace kordll_net

#endif  // KORDLL_EXAMPLES_NET_NETWORKSIDE_H_
