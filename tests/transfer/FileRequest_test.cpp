#include "kordll/transfer/FileRequest.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "kordll/platform/CWinThread.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

class FileRequestTest : public test::TempRootTest {
 protected:
  // A download request into the download folder; released by the test.
  FileRequest* Download(const char* url) {
    auto* request = new FileRequest(nullptr, 0);
    request->url = CString(url);
    request->folder = root_.DownloadFolder();
    request->requestFlags = kRequestFlagsFileDownload;
    return request;
  }
  std::string Read(const CString& path) {
    std::string bytes;
    FileSystem::ReadWholeFile(path, &bytes);
    return bytes;
  }
};

TEST_F(FileRequestTest, NameComesFromTheAddressAndTakenNamesAreNumbered) {
  FileRequest* first = Download("http://example.com/casts/a.mp3");
  EXPECT_EQ(first->GetFileToSave(), CString("a.mp3"));
  EXPECT_EQ(first->GetFullFilePath2Save(), root_.Path("downloads/a.mp3"));
  ASSERT_EQ(first->SaveContent("abc", 3), 1);
  first->CloseSavedFile();

  FileRequest* second = Download("http://example.com/other/a.mp3");
  EXPECT_EQ(second->GetFileToSave(), CString("a(1).mp3"));
  ASSERT_EQ(second->SaveContent("d", 1), 1);
  // A folder under the next name makes it taken as well.
  ASSERT_EQ(FileSystem::CreateDirectory(root_.Path("downloads/a(2).mp3")), 1);
  FileRequest* third = Download("http://example.com/a.mp3");
  EXPECT_EQ(third->GetFileToSave(), CString("a(3).mp3"));
  // An address whose last part has no dot gives no name: "download" stands.
  FileRequest* bare = Download("http://example.com/feed/latest");
  EXPECT_EQ(bare->GetFileToSave(), CString("download"));
  EXPECT_EQ(bare->Release(), 1);
  EXPECT_EQ(first->Release(), 1);
  EXPECT_EQ(second->Release(), 1);
  EXPECT_EQ(third->Release(), 1);
}

TEST_F(FileRequestTest, HostileAddressesNeverLeaveTheFolder) {
  const std::u16string nul(u"http://h/a\0b.mp3", 16);
  const std::vector<CString> urls = {
      CString("http://h/..\\..\\etc\\passwd"),
      CString(nul),
      CString("http://h/a\x01\x1f\x7f.mp3"),
      CString("http://h/.."),
      CString::FromUtf8("http://h/" + std::string(10000, 'n') + ".mp3"),
      CString::FromUtf8("http://h/a." + std::string(10000, 'e')),
  };
  for (const CString& url : urls) {
    FileRequest* request = Download("");
    request->url = url;
    const CString name = request->GetFileToSave();
    SCOPED_TRACE(name.ToUtf8().substr(0, 80));
    EXPECT_LE(name.ToUtf8().size(), 255u);
    EXPECT_LT(name.FindOneOf(CString("/\\:")), 0);
    const CString path = request->GetFullFilePath2Save();
    EXPECT_TRUE(Locations::IsPathInside(root_.DownloadFolder(), path));
    EXPECT_EQ(request->SaveContent("x", 1), 1);
    request->CloseSavedFile();
    EXPECT_EQ(FileSystem::GetFileSize(path), 1);
    request->Release();
  }
  FileRequest* dots = Download("http://h/..");
  EXPECT_EQ(dots->GetFileToSave(), CString("download(1)"));
  dots->Release();
}

TEST_F(FileRequestTest, SegmentsWriteHeadersAndDataIntoThePartialFile) {
  FileRequest* parent = Download("http://h/big.bin");
  parent->requestFlags |= kRequestFlagNoSeekToEnd;
  // Two segments of 4 bytes: slot 0 and slot 54 (50 + 4).
  FileRequest first(parent, 0), second(parent, 0);
  for (FileRequest* c : {&first, &second}) c->parentRequest = parent;
  first.segmentStart = 0, first.segmentEnd = 4, first.segmentWritten = 0;
  second.segmentStart = 4, second.segmentEnd = 8, second.segmentWritten = 0;
  second.segmentSlot = 54, second.segmentBase = 4;
  ASSERT_EQ(second.SaveContent("EF", 2), 1);
  ASSERT_EQ(first.SaveContent("AB", 2), 1);
  ASSERT_EQ(first.SaveContent("CD", 2), 1);
  parent->CloseSavedFile();
  const std::string spawn = Read(parent->GetFullFilePath2Save() + CString(".spawn"));
  // Each header is its "start:written:end" in two-byte characters, padded to 50 bytes.
  auto header = [](const std::string& text) {
    std::string record(50, '\0');
    for (size_t i = 0; i < text.size(); ++i) record[2 * i] = text[i];
    return record;
  };
  EXPECT_EQ(spawn, header("0:4:4") + "ABCD" + header("4:6:8") + "EF");
  EXPECT_FALSE(FileSystem::Exists(parent->GetFullFilePath2Save()));
  parent->Release();
}

TEST_F(FileRequestTest, PlainWritesAppendAtTheEndUnlessTold) {
  ASSERT_EQ(FileSystem::WriteWholeFile(root_.Path("downloads/r.bin"), "12345"), 1);
  FileRequest* resumed = Download("http://h/r.bin");
  resumed->fileName = CString("r.bin");
  resumed->fullPath = root_.Path("downloads/r.bin");
  ASSERT_EQ(resumed->SaveContent("67", 2), 1);
  resumed->CloseSavedFile();
  EXPECT_EQ(Read(resumed->fullPath), "1234567");
  resumed->requestFlags |= kRequestFlagNoSeekToEnd;
  ASSERT_EQ(resumed->SaveContent("ab", 2), 1);  // a new open starts at 0
  resumed->CloseSavedFile();
  EXPECT_EQ(Read(resumed->fullPath), "ab34567");
  resumed->DeleteSavedFile();
  EXPECT_FALSE(FileSystem::Exists(resumed->fullPath));
  // A file that cannot be made answers 0.
  resumed->fullPath = root_.Path("downloads/missing/x.bin");
  EXPECT_EQ(resumed->SaveContent("z", 1), 0);
  resumed->Release();
}

// Records the messages that reach it.
class ReplyThread : public CWinThread {
 public:
  int OnThreadMessage(unsigned message, intptr_t, intptr_t lParam) override {
    std::lock_guard<std::mutex> hold(mu);
    got.emplace_back(message, reinterpret_cast<FileRequest*>(lParam));
    cv.notify_all();
    return 1;
  }
  bool WaitFor(size_t count) {
    std::unique_lock<std::mutex> hold(mu);
    return cv.wait_for(hold, std::chrono::seconds(10), [&] { return got.size() >= count; });
  }
  std::mutex mu;
  std::condition_variable cv;
  std::vector<std::pair<unsigned, FileRequest*>> got;
};

TEST_F(FileRequestTest, MessagesGoToTheReplyThreadAndAbortOnlyOnce) {
  auto* thread = new ReplyThread();
  thread->m_bAutoDelete = 0;
  ASSERT_NE(AfxBeginThread(thread), nullptr);
  FileRequest* request = Download("http://h/a.mp3");
  request->SetReplyThread(thread);
  EXPECT_EQ(request->SendPausedMessage(0), 1);
  EXPECT_EQ(request->SendAbortMsg(0), 1);
  request->finished = 1;
  EXPECT_EQ(request->SendAbortMsg(1), 0);
  ASSERT_TRUE(thread->WaitFor(2));
  EXPECT_EQ(thread->got,
            (std::vector<std::pair<unsigned, FileRequest*>>{{32982, request}, {32979, request}}));
  thread->PostThreadMessage(18, 0, 0);
  ASSERT_EQ(thread->WaitForExit(10000), 1);
  delete thread;
  // The thread has ended: the message stays with the sender.
  request->finished = 0;
  EXPECT_EQ(request->SendFinishedMessage(), 0);
  EXPECT_EQ(request->SendAbortMsg(0), 0);
  request->Release();
}

}  // namespace
}  // namespace kordll
