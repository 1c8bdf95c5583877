// kordll_net_fetch: fetches one address through the sample network side, as
// the download list would, and tells how long it took. Used to compare the
// network side (libcurl plus the library's bookkeeping: the request, every
// block through SaveContent, the messages) with a plain `curl -o` of the same
// address.
//
// Usage: kordll_net_fetch URL FOLDER [--segments N] [--threshold BYTES] [--runs N]
//   FOLDER       where the file goes (made if missing; a fetched file is
//                removed before the next run)
//   --segments   split transfers into N segments (default 4)
//   --threshold  split transfers of at least this many bytes when the server
//                accepts ranges (default 0: never)
//   --runs       how many times to fetch (default 3); each run prints one line
//
// Output, one line per run:
//   fetch: <bytes> bytes in <seconds> s, <MB/s> MB/s, status <code>
// Exit status: 0 when every run ended with status 200 or 206 and the whole
// file; 1 otherwise; 2 for a usage error.

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>

#include "examples/net/NetworkSide.h"
#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/transfer/FileRequest.h"

namespace {

using kordll::CString;
using kordll::FileRequest;

// Stands for the download list's thread: takes the request back, notes its
// status and sizes, and releases it.
class Replies : public kordll::CWinThread {
 public:
  int OnThreadMessage(unsigned message, intptr_t, intptr_t lParam) override {
    auto* request = reinterpret_cast<FileRequest*>(lParam);
    if (message == kordll::kMsgDownloadResumed) return 1;
    std::lock_guard<std::mutex> hold(mu);
    status = request->httpStatus;
    received = request->receivedSize;
    total = request->totalSize;
    path = request->GetFullFilePath2Save();
    request->Release();
    done = true;
    cv.notify_all();
    return 1;
  }
  std::mutex mu;
  std::condition_variable cv;
  bool done = false;
  int status = 0;
  uint64_t received = 0, total = 0;
  CString path;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s URL FOLDER [--segments N] [--threshold BYTES] [--runs N]\n",
                 argv[0]);
    return 2;
  }
  kordll_net::NetworkOptions options;
  options.multiPartThreshold = 0;
  int runs = 3;
  for (int i = 3; i + 1 < argc; i += 2) {
    if (std::strcmp(argv[i], "--segments") == 0)
      options.segments = std::atoi(argv[i + 1]);
    else if (std::strcmp(argv[i], "--threshold") == 0)
      options.multiPartThreshold = std::strtoull(argv[i + 1], nullptr, 10);
    else if (std::strcmp(argv[i], "--runs") == 0)
      runs = std::atoi(argv[i + 1]);
    else
      return 2;
  }
  const CString url = CString(argv[1]);
  const CString folder = CString(argv[2]);
  kordll::FileSystem::CreateDirectoryTree(folder);

  kordll::GlobalResourceCtrl::GetGlobalResourceCtrl();
  auto* replies = new Replies();
  replies->m_bAutoDelete = 0;
  kordll::AfxBeginThread(replies);
  kordll_net::NetworkSide* net = kordll_net::NetworkSide::Start(options);
  if (net == nullptr) return 1;

  int failures = 0;
  for (int run = 0; run < runs; ++run) {
    {
      std::lock_guard<std::mutex> hold(replies->mu);
      replies->done = false;
    }
    auto* request = new FileRequest();
    request->url = url;
    request->folder = folder;
    request->requestFlags = kordll::kRequestFlagsFileDownload;
    request->SetReplyThread(replies);
    request->Reserve();
    kordll::PANELVIEWMESSAGE message;
    message.message = kordll::kCommandStartTransfer;
    message.object = reinterpret_cast<intptr_t>(request);
    const auto start = std::chrono::steady_clock::now();
    kordll::GlobalResourceCtrl::InterpretGUICommand(&message, nullptr);
    std::unique_lock<std::mutex> hold(replies->mu);
    replies->cv.wait(hold, [&] { return replies->done; });
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("fetch: %llu bytes in %.3f s, %.1f MB/s, status %d\n",
                static_cast<unsigned long long>(replies->received), seconds,
                static_cast<double>(replies->received) / seconds / 1e6, replies->status);
    const bool ok =
        (replies->status == 200 || replies->status == 206) && replies->received == replies->total;
    if (!ok) ++failures;
    kordll::FileSystem::DeleteFile(replies->path);
  }
  net->CloseResourceCtrl();
  net->Release();
  replies->PostThreadMessage(18, 0, 0);
  replies->WaitForExit(-1);
  delete replies;
  kordll::GlobalResourceCtrl::DeleteGlobalResourceCtrl();
  return failures == 0 ? 0 : 1;
}
