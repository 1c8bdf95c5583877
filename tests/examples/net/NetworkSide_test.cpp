// The sample network side against the tests' local web server.

#include "examples/net/NetworkSide.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "kordll/control/GlobalResourceCtrl.h"
#include "kordll/control/PANELVIEWMESSAGE.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/transfer/FileRequest.h"
#include "tests/support/TempRoot.h"
#include "tests/transfer/LocalHttpServer.h"

namespace kordll {
namespace {

// What a handler saw of a request it got back.
struct Report {
  unsigned message = 0;
  int httpStatus = 0;
  uint64_t total = 0, received = 0;
  CString words, statusText, date, path;
};

// Stands for the download list's thread: notes each report and releases the
// request as the list's handlers do (all but the resumed one).
class ReplyThread : public CWinThread {
 public:
  int OnThreadMessage(unsigned message, intptr_t, intptr_t lParam) override {
    auto* r = reinterpret_cast<FileRequest*>(lParam);
    Report report;
    report.message = message;
    // A resumed request goes on at once: only its address may be read then.
    if (message != kMsgDownloadResumed) {
      report = Report{message,
                      r->httpStatus,
                      r->totalSize,
                      r->receivedSize,
                      r->GetHTTPStatusString(),
                      r->statusText,
                      r->responseDate,
                      r->GetFullFilePath2Save()};
      r->Release();
    }
    std::lock_guard<std::mutex> hold(mu_);
    reports_.push_back(report);
    cv_.notify_all();
    return 1;
  }
  // The n-th report (from 0), waiting for it up to 60 seconds.
  Report Get(size_t n) {
    std::unique_lock<std::mutex> hold(mu_);
    cv_.wait_for(hold, std::chrono::seconds(60), [&] { return reports_.size() > n; });
    return reports_.size() > n ? reports_[n] : Report();
  }

 private:
  std::mutex mu_;
  std::condition_variable cv_;
  std::vector<Report> reports_;
};

class NetworkSideTest : public test::TempRootTest {
 protected:
  void SetUp() override {
    GlobalResourceCtrl::GetGlobalResourceCtrl();
    served_ = root_.Path("served");
    ASSERT_EQ(FileSystem::CreateDirectoryTree(served_), 1);
    server_ = std::make_unique<test::LocalHttpServer>(served_.ToUtf8(),
                                                      root_.Path("requests.log").ToUtf8());
    ASSERT_TRUE(server_->ok());
    replies_ = new ReplyThread();
    replies_->m_bAutoDelete = 0;
    ASSERT_NE(AfxBeginThread(replies_), nullptr);
  }
  void StartNetwork(uint64_t multiPartThreshold) {
    kordll_net::NetworkOptions options;
    options.multiPartThreshold = multiPartThreshold;
    options.makeResumeRequest = [this](const CString& url) { return NewRequest(url); };
    net_ = kordll_net::NetworkSide::Start(options);
    ASSERT_NE(net_, nullptr);
  }
  void TearDown() override {
    if (net_ != nullptr) net_->CloseResourceCtrl(), net_->Release();
    replies_->PostThreadMessage(18, 0, 0);
    replies_->WaitForExit(60000);
    delete replies_;
    server_.reset();
  }
  std::string Serve(const char* name, size_t size) {
    std::string bytes(size, '\0');
    std::mt19937 random(static_cast<unsigned>(size));
    for (char& b : bytes) b = static_cast<char>(random());
    EXPECT_EQ(FileSystem::WriteWholeFile(Locations::Join(served_, CString(name)), bytes), 1);
    return bytes;
  }
  // A download request replying to our thread, named after the address's file.
  FileRequest* NewRequest(const CString& url) {
    auto* request = new FileRequest();
    request->url = url;
    request->folder = root_.DownloadFolder();
    request->requestFlags = kRequestFlagsFileDownload;
    request->fileName = CString("got.bin");
    request->fullPath = Locations::Join(root_.DownloadFolder(), request->fileName);
    request->SetReplyThread(replies_);
    request->Reserve();
    return request;
  }
  void Offer(int command, const std::string& url) {
    PANELVIEWMESSAGE message;
    message.message = command;
    message.text = CString(url.c_str());
    if (command == kCommandStartTransfer) {
      message.object = reinterpret_cast<intptr_t>(NewRequest(message.text));
    }
    EXPECT_EQ(GlobalResourceCtrl::InterpretGUICommand(&message, nullptr), 1);
  }
  std::string Downloaded(const char* name = "got.bin") {
    std::string bytes;
    FileSystem::ReadWholeFile(Locations::Join(root_.DownloadFolder(), CString(name)), &bytes);
    return bytes;
  }
  std::string Requests() {
    std::string log;
    FileSystem::ReadWholeFile(root_.Path("requests.log"), &log);
    return log;
  }

  CString served_;
  std::unique_ptr<test::LocalHttpServer> server_;
  ReplyThread* replies_ = nullptr;
  kordll_net::NetworkSide* net_ = nullptr;
};

TEST_F(NetworkSideTest, WholeFileArrivesWithStatusSizesAndDate) {
  const std::string served = Serve("a.bin", 300000);
  StartNetwork(0);
  Offer(kCommandStartTransfer, server_->Url("a.bin?extra=5000"));
  const Report done = replies_->Get(0);
  EXPECT_EQ(done.message, kMsgDownloadFinished);
  EXPECT_EQ(done.httpStatus, 200);
  EXPECT_EQ(done.received, served.size());
  EXPECT_NE(done.date.Find(CString("GMT")), -1);
  EXPECT_TRUE(Downloaded() == served);  // the bytes beyond the announced length are not kept
  Offer(kCommandShowNetworkSettings, "");
  EXPECT_EQ(net_->GetSettingsRequestCount(), 1);
}

// A missing file ends with 404, a cancelled transfer is aborted; neither leaves a file.
TEST_F(NetworkSideTest, MissingAndCancelledTransfersLeaveNoFile) {
  StartNetwork(0);
  Offer(kCommandStartTransfer, server_->Url("missing.mp3"));
  const Report done = replies_->Get(0);
  EXPECT_EQ(done.message, kMsgDownloadFinished);
  EXPECT_EQ(done.httpStatus, 404);
  EXPECT_EQ(done.received, 0u);
  EXPECT_EQ(done.words, CString("Requested file not found."));
  EXPECT_FALSE(FileSystem::Exists(done.path));
  Serve("c.bin", 100000);
  const std::string url = server_->Url("c.bin?stall=1000");
  Offer(kCommandStartTransfer, url);
  Offer(kCommandCancelTransfer, url);
  const Report aborted = replies_->Get(1);
  EXPECT_EQ(aborted.message, kMsgDownloadAborted);
  EXPECT_EQ(aborted.statusText, CString("Request canceled"));
  EXPECT_FALSE(FileSystem::Exists(aborted.path));
}

TEST_F(NetworkSideTest, PausedTransferResumesWithARangeAndEndsByteIdentical) {
  const std::string served = Serve("p.bin", 400000);
  StartNetwork(0);
  const std::string url = server_->Url("p.bin?stall=150000");
  Offer(kCommandStartTransfer, url);
  ASSERT_TRUE(server_->WaitFor("STALLED"));
  Offer(kCommandPauseTransfer, url);
  const Report paused = replies_->Get(0);
  ASSERT_EQ(paused.message, kMsgDownloadPaused);
  EXPECT_LE(paused.received, 150000u);
  Offer(kCommandResumeTransfer, url);
  EXPECT_EQ(replies_->Get(1).message, kMsgDownloadResumed);
  const Report done = replies_->Get(2);
  EXPECT_EQ(done.message, kMsgDownloadFinished);
  EXPECT_TRUE(Downloaded() == served);
  EXPECT_NE(Requests().find("bytes=" + std::to_string(paused.received) + "-"), std::string::npos);
}

TEST_F(NetworkSideTest, LargeTransferGoesInSegmentsThroughThePartialFile) {
  const std::string served = Serve("m.bin", 1000003);
  StartNetwork(100000);
  // The first segment's connection drops: the run fails, keeping every
  // segment's progress in the ".spawn" file; the resume finishes each.
  const std::string url = server_->Url("m.bin?drop=1234");
  Offer(kCommandStartTransfer, url);
  const Report failed = replies_->Get(0);
  EXPECT_EQ(failed.httpStatus, kordll_net::kNetErrorConnectionAborted);
  EXPECT_EQ(failed.total, served.size());
  EXPECT_LT(failed.received, served.size());
  EXPECT_TRUE(FileSystem::Exists(failed.path + CString(".spawn")));
  EXPECT_FALSE(FileSystem::Exists(failed.path));
  Offer(kCommandResumeTransfer, url);
  const Report done = replies_->Get(2);
  EXPECT_EQ(done.httpStatus, 200);
  EXPECT_TRUE(Downloaded() == served);
  EXPECT_FALSE(FileSystem::Exists(done.path + CString(".spawn")));
  // Four segments: the second one is 250001 to 500001.
  EXPECT_NE(Requests().find("bytes=250001-500001"), std::string::npos);
}

}  // namespace
}  // namespace kordll
