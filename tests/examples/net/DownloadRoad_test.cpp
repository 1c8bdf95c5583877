// The whole road of a download: a post's enclosure becomes an entry, the
// user's commands go to the sample network side, which fetches from the
// tests' local web server, and the download list records what comes back,
// tells its panels and the user (a talk), across pauses, failures and a
// restart.

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
    StartNetwork(0);
  }
  ~DownloadRoadTest() override {
    StopNetwork();
    server_.reset();
  }
  void StartNetwork(uint64_t multiPartThreshold) {
    kordll_net::NetworkOptions options;
    options.multiPartThreshold = multiPartThreshold;
    network_ = kordll_net::NetworkSide::Start(options);
  }
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
  size_t changes_ = 0;
  // Waits for the next report that changes an entry.
  bool NextChange() { return WaitHeard(kPanelMessageFileChanged, ++changes_); }

  CString served_;
  std::unique_ptr<test::LocalHttpServer> server_;
  kordll_net::NetworkSide* network_ = nullptr;
};

TEST_F(DownloadRoadTest, APostsEnclosureIsDownloadedToldAndItsTalkRemoved) {
  ASSERT_TRUE(server_->ok() && network_ != nullptr);
  const std::string served = Serve("ep.mp3", 300000);
  const CString url = Enclose("ep.mp3", "Episode");
  EXPECT_EQ(kFileEntryOnly | kFileUnseen, Status(url));
  Command(kCommandDownloadFile, Item(url));
  ASSERT_TRUE(NextChange());
  EXPECT_EQ(kFileDownloaded | kFileUnseen, Status(url));
  EXPECT_EQ(300000, Item(url)->GetFieldInt(kFileFieldDownloaded));
  EXPECT_EQ(300000, Item(url)->GetFieldInt(kFileFieldSize));
  EXPECT_EQ(COleDateTime::valid, Item(url)->GetFieldDate(kFileFieldPublished).GetStatus());
  EXPECT_TRUE(Saved(url) == served);
  // The talk: opened by the user, then removed by its command.
  ASSERT_NE(std::string::npos, Talks().find("Downloaded : Episode|")) << Talks();
  CArray<Focusable*, Focusable*> talks;
  SystemTalkCtrl::Get()->GetFocusables_wFilter(&talks, nullptr);
  for (Focusable* talk : talks) {
    if (talk->GetFocusableTitle() == "Downloaded : Episode") {
      talk->OpenFocusable();
      EXPECT_EQ(1, host_.CountOf(TestHost::CallKind::kDoModal));
      Command(kCommandRemoveTalkRecord, talk);
    }
    talk->Release();
  }
  EXPECT_EQ(std::string::npos, Talks().find("Downloaded : Episode|")) << Talks();

  const CString missing = Enclose("none.mp3", "Missing");
  Command(kCommandDownloadFile, Item(missing));
  ASSERT_TRUE(NextChange());
  EXPECT_EQ(kFileNotFound | kFileUnseen, Status(missing));
}

TEST_F(DownloadRoadTest, PauseResumeCancelAndADroppedConnection) {
  ASSERT_TRUE(server_->ok() && network_ != nullptr);
  const std::string served = Serve("p.bin", 400000);
  const CString url = Enclose("p.bin?stall=150000", "Paused");
  Command(kCommandDownloadFile, Item(url));
  ASSERT_TRUE(server_->WaitFor("STALLED"));
  Command(kCommandPauseDownload, Item(url));
  ASSERT_TRUE(NextChange());
  EXPECT_EQ(kFilePaused | kFileUnseen, Status(url));
  // What had arrived is recorded (a busy machine may pause before any block).
  EXPECT_LE(Item(url)->GetFieldInt(kFileFieldDownloaded), 150000);
  Command(kCommandResumeDownload, Item(url));
  ASSERT_TRUE(NextChange());  // resumed
  ASSERT_TRUE(NextChange());  // finished
  EXPECT_EQ(kFileDownloaded | kFileUnseen, Status(url));
  EXPECT_TRUE(Saved(url) == served);

  Serve("d.bin", 200000);
  const CString dropped = Enclose("d.bin?drop=70000", "Dropped");
  Command(kCommandDownloadFile, Item(dropped));
  ASSERT_TRUE(NextChange());
  EXPECT_EQ(kFilePaused | kFileFailed | kFileUnseen, Status(dropped));
  EXPECT_EQ(70000, Item(dropped)->GetFieldInt(kFileFieldDownloaded));

  Serve("c.bin", 200000);
  const CString cancelled = Enclose("c.bin?stall=1000", "Cancelled");
  Command(kCommandDownloadFile, Item(cancelled));
  ASSERT_TRUE(server_->WaitFor("STALLED /c.bin"));
  Command(kCommandCancelDownload, Item(cancelled));
  EXPECT_EQ(kFileEntryOnly | kFileUnseen, Status(cancelled));
  EXPECT_EQ("", Item(cancelled)->GetFileName().ToUtf8());
}

TEST_F(DownloadRoadTest, ARestartFindsThePartialFileAndAMultiPartTransferCompletes) {
  ASSERT_TRUE(server_->ok() && network_ != nullptr);
  const std::string served = Serve("r.bin", 300000);
  const CString url = Enclose("r.bin?stall=100000", "Restarted");
  Command(kCommandDownloadFile, Item(url));
  ASSERT_TRUE(server_->WaitFor("STALLED"));
  // The program ends in the middle: the network side reports the transfer
  // paused, the list closes, and both start again.
  StopNetwork();
  ASSERT_TRUE(NextChange());
  Close(), Open();
  StartNetwork(64 << 10);
  EXPECT_EQ(kFilePaused | kFileUnseen, Status(url));
  // The partial file on disk (none if no block had come) gives the size.
  const int64_t partial =
      FileSystem::GetFileSize(Download(Item(url)->GetFileName().ToUtf8().c_str()));
  EXPECT_EQ(std::max<int64_t>(partial, 0), Item(url)->GetFieldInt(kFileFieldDownloaded));
  changes_ = 0, heard_.clear();
  Command(kCommandResumeDownload, Item(url));
  ASSERT_TRUE(WaitHeard(kPanelMessageFileChanged, 2));
  EXPECT_EQ(kFileDownloaded | kFileUnseen, Status(url));
  EXPECT_TRUE(Saved(url) == served);

  const std::string big = Serve("m.bin", 1 << 20);
  const CString parts = Enclose("m.bin", "Parts");
  Command(kCommandDownloadFile, Item(parts));
  ASSERT_TRUE(WaitHeard(kPanelMessageFileChanged, 3));
  EXPECT_EQ(kFileDownloaded | kFileUnseen, Status(parts));
  EXPECT_TRUE(Saved(parts) == big);
  std::string log;  // fetched in segments, by ranges
  FileSystem::ReadWholeFile(root_.Path("log"), &log);
  size_t ranges = 0;
  for (size_t at = 0; (at = log.find("GET /m.bin bytes=", at)) != std::string::npos; ++at) ++ranges;
  EXPECT_GE(ranges, 2u) << log;
}

}  // namespace
}  // namespace kordll
