// The whole road of a download: a post's enclosure becomes an entry, the
// user's commands go to the sample network side, which fetches from the
// tests' local web server, and the download list records what comes back,
// tells its panels and the user (a talk), across a restart.

#include <algorithm>
#include <memory>
#include <random>
#include <string>

#include "examples/net/NetworkSide.h"
#include "kordll/platform/Locations.h"
#include "tests/transfer/FileManagerTest.h"
#include "tests/transfer/LocalHttpServer.h"

namespace kordll {
namespace {

class DownloadRoadTest : public test::FileManagerTest {
 protected:
  DownloadRoadTest() : FileManagerTest(false) {
    served_ = root_.Path("served");
    FileSystem::CreateDirectory(served_);
    server_ = std::make_unique<test::LocalHttpServer>(served_.ToUtf8(), root_.Path("log").ToUtf8());
    StartNetwork();
  }
  ~DownloadRoadTest() override {
    StopNetwork();
    server_.reset();
  }
  void StartNetwork() { network_ = kordll_net::NetworkSide::Start({}); }
  void StopNetwork() {
    if (network_ != nullptr) network_->CloseResourceCtrl(), network_->Release(), network_ = nullptr;
  }
  std::string Serve(const char* name, size_t size) {
    std::string bytes(size, '\0');
    std::mt19937 random(static_cast<unsigned>(size));
    for (char& b : bytes) b = static_cast<char>(random());
    FileSystem::WriteWholeFile(Locations::Join(served_, name), bytes);
    return bytes;
  }
  // The entry of a new post whose enclosure is the served address.
  CString Enclose(const std::string& path, const char* title) {
    const CString url(server_->Url(path).c_str());
    Focusable* post = Post(url + "|0|application/octet-stream", title);
    _struct_RESCTRLNOTIFMSG news;
    news.focusables = {post};
    ctrl_->InsertMsg(&news);
    post->Release();
    return url;
  }
  std::string Saved(const CString& url) {
    std::string bytes;
    FileSystem::ReadWholeFile(Download(Item(url)->GetFileName().ToUtf8().c_str()), &bytes);
    return bytes;
  }

  CString served_;
  std::unique_ptr<test::LocalHttpServer> server_;
  kordll_net::NetworkSide* network_ = nullptr;
};

TEST_F(DownloadRoadTest, APostsEnclosureIsResumedAfterARestartSavedAndTold) {
  ASSERT_TRUE(server_->ok() && network_ != nullptr);
  const std::string part = Serve("r.bin", 300001);
  const CString restarted = Enclose("r.bin?stall=100000", "Restarted");
  Command(kCommandDownloadFile, Item(restarted));
  ASSERT_TRUE(server_->WaitFor("STALLED"));
  // The program ends in the middle: the network side reports the transfer
  // paused, the list closes, and both start again.
  StopNetwork();
  ASSERT_TRUE(WaitHeard(kPanelMessageFileChanged, 1));
  Close(), Open();
  StartNetwork();
  EXPECT_EQ(kFilePaused | kFileUnseen, Status(restarted));
  // The partial file on disk (none if no block had come) gives the size.
  const int64_t partial =
      FileSystem::GetFileSize(Download(Item(restarted)->GetFileName().ToUtf8().c_str()));
  EXPECT_EQ(std::max<int64_t>(partial, 0), Item(restarted)->GetFieldInt(kFileFieldDownloaded));
  heard_.clear();
  Command(kCommandResumeDownload, Item(restarted));
  ASSERT_TRUE(WaitHeard(kPanelMessageFileChanged, 2));
  EXPECT_EQ(kFileDownloaded | kFileUnseen, Status(restarted));
  EXPECT_EQ(300001, Item(restarted)->GetFieldInt(kFileFieldSize));
  EXPECT_TRUE(Saved(restarted) == part);
  EXPECT_NE(std::string::npos, Talks().find("Downloaded : Restarted|")) << Talks();
}

}  // namespace
}  // namespace kordll
