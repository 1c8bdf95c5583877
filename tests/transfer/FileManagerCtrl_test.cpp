// The download list: enclosures become entries once per address, the
// network side's reports end in status, sizes and panels, the list is
// repaired at start-up against the download folder, and closing waits for
// the running downloads.

#include "kordll/transfer/FileManagerCtrl.h"

#include "kordll/record/AZeusDB.h"
#include "tests/transfer/FileManagerTest.h"

namespace kordll {
namespace {

using test::FileManagerTest;

// Hands the request back as the network side does after a transfer.
void Reply(FileRequest* request, unsigned message, int http, unsigned long total,
           unsigned long received) {
  request->httpStatus = http, request->totalSize = total, request->receivedSize = received;
  request->SendRequest(message, 0);
}

TEST_F(FileManagerTest, EnclosuresBecomeOneEntryPerDecodedAddress) {
  Focusable* posts[] = {Post("http://h/a%20b.mp3|1200|audio/mpeg", "One"),
                        Post("http://h/a b.mp3|99|audio/x", "Two"), Post("", "None"),
                        Post("http://h/c.ogg", "Three")};
  _struct_RESCTRLNOTIFMSG news;
  news.focusables.assign(std::begin(posts), std::end(posts));
  EXPECT_EQ(0, ctrl_->InsertMsg(&news));
  ASSERT_NE(nullptr, Item("http://h/a b.mp3"));
  EXPECT_EQ(34, Status("http://h/a b.mp3"));
  EXPECT_EQ(1200, Item("http://h/a b.mp3")->GetFieldInt(kFileFieldSize));
  EXPECT_EQ(34, Status("http://h/c.ogg"));
  EXPECT_EQ(2u, ctrl_->GetFocusables().size());
  EXPECT_TRUE(WaitHeard(kPanelMessageActivityAdded, 1));
  // A later batch with a known address adds nothing; the entries are stored.
  ctrl_->InsertMsg(&news);
  EXPECT_EQ(2u, ctrl_->GetFocusables().size());
  Close(), Open();
  EXPECT_EQ(34, Status("http://h/a b.mp3"));
  EXPECT_EQ(2u, ctrl_->GetFocusables().size());
  for (Focusable* post : posts) post->Release();
}

TEST_F(FileManagerTest, ReportsOfTheNetworkSideEndInStatusSizesAndPanels) {
  Focusable* post = Post("http://h/ok.mp3|10|a", "Ok");
  _struct_RESCTRLNOTIFMSG news;
  news.focusables = {post, Post("http://h/part.mp3", "P"), Post("http://h/gone.mp3", "G")};
  ctrl_->InsertMsg(&news);
  for (const char* url : {"http://h/ok.mp3", "http://h/part.mp3", "http://h/gone.mp3"}) {
    EXPECT_EQ(1, Command(kCommandDownloadFile, Item(url)));
    EXPECT_EQ(kFileDownloading | kFileUnseen, Status(url)) << url;
  }
  ASSERT_EQ(3u, net_->requests.size());
  FileRequest* ok = net_->requests[0];
  ok->SaveContent("0123456789", 10), ok->CloseSavedFile();
  Reply(ok, kMsgDownloadFinished, 200, 10, 10);
  // 200 with fewer bytes than announced keeps the part, resumable.
  Reply(net_->requests[1], kMsgDownloadFinished, 200, 50, 20);
  Reply(net_->requests[2], kMsgDownloadFinished, 404, 0, 0);
  ASSERT_TRUE(WaitHeard(kPanelMessageFileChanged, 4));
  EXPECT_EQ(kFileDownloaded | kFileUnseen, Status("http://h/ok.mp3"));
  EXPECT_EQ(10, Item("http://h/ok.mp3")->GetFieldInt(kFileFieldDownloaded));
  EXPECT_EQ(kFilePaused | kFileFailed | kFileUnseen, Status("http://h/part.mp3"));
  EXPECT_EQ(50, Item("http://h/part.mp3")->GetFieldInt(kFileFieldSize));
  EXPECT_EQ(kFileNotFound | kFileUnseen, Status("http://h/gone.mp3"));
  EXPECT_NE(std::string::npos, Talks().find("Downloaded : Ok|")) << Talks();

  for (Focusable* p : news.focusables) p->Release();
}

TEST_F(FileManagerTest, StartUpRepairsTheListAgainstTheDownloadFolder) {
  struct Case {
    const char* url;
    int status, size, downloaded;
    const char* name;
    int fileBytes;  // -1: no file
    int status2, downloaded2;
  } cases[] = {
      {"http://h/run", 64, 100, 40, "run", 60, 512, 60},       // running: paused, size from disk
      {"http://h/cut", 128, 100, 100, "cut", 30, 512, 30},     // truncated: paused
      {"http://h/lost", 512, 100, 40, "lost", -1, 32, 0},      // file gone
      {"http://h/out", 128, 5, 5, "../../secret", -1, 32, 0},  // outside the folder
  };
  FileSystem::WriteWholeFile(root_.Path("secret"), "12345");
  for (const Case& c : cases) {
    auto* item = new FileItem();
    item->SetGUID(c.url), item->SetFocusableStatus(c.status);
    item->SetValueInt(kFileFieldSize, c.size, 1),
        item->SetValueInt(kFileFieldDownloaded, c.downloaded, 1);
    item->SetFileName(c.name);
    _struct_RESCTRLNOTIFMSG insert;
    insert.kind = kFileOpInsert, insert.focusables = {item};
    if (c.status == 64) item->SetFocusableStatus(512);  // running: stored below
    ASSERT_EQ(1, ctrl_->InsertFiles(&insert));
    if (c.fileBytes >= 0)
      FileSystem::WriteWholeFile(Download(c.name), std::string(c.fileBytes, 'x'));
  }
  Close();
  {  // The program ended while the first transfer was running.
    AZeusDB db(settings_.path, "FileManager", 20, 0);
    Focusable record(-1, nullptr);
    ASSERT_EQ(1, db.readFocusableSlot(&record, nullptr, nullptr));
    ASSERT_EQ("http://h/run", record.GetGUID().ToUtf8());
    record.SetFocusableStatus(64), db.writeFocusableSlot(&record, nullptr, nullptr);
  }
  Open();
  for (const Case& c : cases) {
    EXPECT_EQ(c.status2, Status(c.url)) << c.url;
    EXPECT_EQ(c.downloaded2, Item(c.url)->GetFieldInt(kFileFieldDownloaded)) << c.url;
  }
  EXPECT_TRUE(FileSystem::IsFile(root_.Path("secret")));
}

TEST_F(FileManagerTest, ALastDownloadAfterClosingStillSavesAndEndsTheList) {
  Focusable* post = Post("http://h/late.bin", "Late");
  _struct_RESCTRLNOTIFMSG news;
  news.focusables = {post, Post("http://h/idle.bin", "Idle")};
  ctrl_->InsertMsg(&news);
  Command(kCommandDownloadFile, Item("http://h/late.bin"));
  ASSERT_EQ(1u, net_->requests.size());
  FileManagerCtrl* running = ctrl_;
  Close(false);
  EXPECT_EQ(0, FileManagerCtrl::WaitUntilGone(0));
  EXPECT_EQ(1u, running->GetFocusables().size());  // the idle entry is let go
  net_->requests[0]->SaveContent("abc", 3), net_->requests[0]->CloseSavedFile();
  Reply(net_->requests[0], kMsgDownloadFinished, 200, 3, 3);
  EXPECT_EQ(1, FileManagerCtrl::WaitUntilGone(10000));
  Open();
  EXPECT_EQ(kFileDownloaded | kFileUnseen, Status("http://h/late.bin"));
  for (Focusable* p : news.focusables) p->Release();
}

TEST_F(FileManagerTest, ADownloadEndingAfterALogOffAndNewLogInLeavesTheNewDatabasesAlone) {
  Focusable* post = Post("http://h/slow.bin", "Slow");
  _struct_RESCTRLNOTIFMSG news;
  news.focusables = {post};
  ctrl_->InsertMsg(&news);
  Command(kCommandDownloadFile, Item("http://h/slow.bin"));
  ASSERT_EQ(1u, net_->requests.size());
  ctrl_ = nullptr;  // the log-off closes it; the download keeps it
  GlobalResourceCtrl::SetGlobalResourceClosed(1);
  GlobalResourceCtrl::GetGlobalResourceCtrl()->OnClear(nullptr);
  GlobalResourceCtrl::InitializeGlobalResourceCtrl();
  Open();
  Reply(net_->requests[0], kMsgDownloadFinished, 200, 3, 3);
  EXPECT_EQ(1, FileManagerCtrl::WaitUntilGone(0) == 0);  // the new list stands
  Close(false);
  post->Release();
}

}  // namespace
}  // namespace kordll
