// The user's commands on files: menus by status with their labels, what
// each command does to the entry and the file, and that no stored name
// reaches outside the download folder.

#include "tests/transfer/FileManagerTest.h"

namespace kordll {
namespace {

using test::FileManagerTest;

// The labels of the last popup menu, "-" for a separator.
std::string Labels(const TestHost& host) {
  std::string out;
  auto call = host.LastOf(TestHost::CallKind::kTrackPopupMenu);
  if (!call) return "none";
  for (const HostMenuItem& item : call->menu)
    out += (item.separator ? "-" : item.text.ToUtf8()) + ";";
  return out;
}

class FileCommandsTest : public FileManagerTest {
 protected:
  // An entry of the list with this status and saved name.
  FileItem* Entry(const char* url, int status, const char* name = "") {
    auto* item = new FileItem();
    item->SetGUID(url), item->SetFocusableStatus(status), item->SetFileName(name);
    item->SetValueInt(kFileFieldDownloaded, *name != 0 ? 3 : 0, 1);
    _struct_RESCTRLNOTIFMSG insert;
    insert.kind = kFileOpInsert, insert.focusables = {item};
    ctrl_->InsertFiles(&insert);
    return item;
  }
};

TEST_F(FileCommandsTest, MenusOfferWhatTheStatusAllows) {
  FileItem* done = Entry("http://h/m", 128);
  EXPECT_EQ(1, Command(kCommandFileMenu, done));
  EXPECT_EQ(
      "Open File;Export File;-;Mark File as Not Seen;-;Delete Entry Only;Delete File Only;"
      "Delete File && Entry;",
      Labels(host_));
  FileItem* item = Entry("http://h/r", 32);
  // A choice goes round the controllers: "Download File" starts it.
  host_.QueueMenuChoice(kCommandDownloadFile);
  Command(kCommandFileMenu, item);
  EXPECT_EQ(kFileDownloading, Status("http://h/r"));
  ASSERT_EQ(1u, net_->requests.size());
  net_->requests[0]->SendRequest(kMsgDownloadAborted, 0);
  // Other relations get no menu.
  Focusable post(4, nullptr);
  host_.ClearCalls();
  EXPECT_EQ(1, Command(kCommandFileMenu, &post));
  EXPECT_EQ(1, Command(kCommandDeleteFileEntry, nullptr));
  EXPECT_EQ(0, host_.CountOf(TestHost::CallKind::kTrackPopupMenu));
}

TEST_F(FileCommandsTest, FilesAndEntriesAreDeletedCancelledAndExported) {
  for (const char* name : {"a.mp3", "b.mp3", "c.mp3"})
    FileSystem::WriteWholeFile(Download(name), "abc");
  Entry("http://h/a.mp3", 128 | 2, "a.mp3");
  Entry("http://h/b.mp3", 512, "b.mp3");
  Entry("http://h/c.mp3", 128, "c.mp3");

  // Export copies the file where the user says.
  host_.QueueSaveFile(IDOK, root_.Path("copy.mp3"));
  Command(kCommandExportFile, Item("http://h/a.mp3"));
  EXPECT_EQ(3, FileSystem::GetFileSize(root_.Path("copy.mp3")));

  Command(kCommandDeleteFileOnly, Item("http://h/a.mp3"));
  EXPECT_FALSE(FileSystem::Exists(Download("a.mp3")));
  EXPECT_EQ(kFileEntryOnly | kFileUnseen, Status("http://h/a.mp3"));

  Command(kCommandCancelDownload, Item("http://h/b.mp3"));
  EXPECT_EQ("29673 http://h/b.mp3", net_->codes.back());
  EXPECT_FALSE(FileSystem::Exists(Download("b.mp3")));
  EXPECT_EQ(kFileEntryOnly, Status("http://h/b.mp3"));

  Command(kCommandDeleteFileAndEntry, Item("http://h/c.mp3"));
  EXPECT_EQ(nullptr, Item("http://h/c.mp3"));
  EXPECT_FALSE(FileSystem::Exists(Download("c.mp3")));
  EXPECT_TRUE(WaitHeard(kPanelMessageActivityRemoved, 1));
  // Not downloaded: the entry goes, no file is touched.
  FileSystem::WriteWholeFile(Download("b.mp3"), "abc");
  Item("http://h/b.mp3")->SetFileName("b.mp3");
  Command(kCommandDeleteFileAndEntry, Item("http://h/b.mp3"));
  EXPECT_EQ(nullptr, Item("http://h/b.mp3"));
  EXPECT_TRUE(FileSystem::Exists(Download("b.mp3")));
  // A file record of another class is entered as a file entry when started.
  Focusable plain(kFileRelation, nullptr);
  plain.SetGUID("http://h/plain%20x.mp3"), plain.SetFocusableStatus(kFileEntryOnly);
  Command(kCommandDownloadFile, &plain);
  EXPECT_EQ(kFileDownloading, Status("http://h/plain x.mp3"));
  net_->requests.back()->SendRequest(kMsgDownloadAborted, 0);
  Command(kCommandKeepAsFileEntry, &plain);
  Close(), Open();
  EXPECT_EQ(2u, ctrl_->GetFocusables().size());
}

TEST_F(FileCommandsTest, StoredNamesNeverReachOutsideTheDownloadFolder) {
  FileSystem::WriteWholeFile(root_.Path("keep"), "abc");
  for (const char* name : {"../keep", "..", "a/../../keep"}) {
    FileItem* item = Entry("http://h/x", 128, name);
    host_.ClearCalls();
    EXPECT_EQ("", item->GetFileSavePath().ToUtf8()) << name;
    Command(kCommandOpenFile, item);
    Command(kCommandDeleteFileOnly, item);
    Command(kCommandCancelDownload, item);
    EXPECT_EQ(0, host_.CountOf(TestHost::CallKind::kShellExecute)) << name;
    Command(kCommandDeleteFileAndEntry, item);
  }
  EXPECT_TRUE(FileSystem::IsFile(root_.Path("keep")));
  // Inside the folder the file opens; a failure is told in words.
  FileSystem::WriteWholeFile(Download("in.txt"), "abc");
  host_.QueueShellExecuteAnswer(SE_ERR_ASSOCINCOMPLETE);
  Command(kCommandOpenFile, Entry("http://h/in.txt", 128, "in.txt"));
  EXPECT_EQ(Download("in.txt").ToUtf8(),
            host_.LastOf(TestHost::CallKind::kShellExecute)->text.ToUtf8());
  EXPECT_EQ("The file name association is incomplete or invalid.",
            host_.LastOf(TestHost::CallKind::kDoModal)->text.ToUtf8());
}

}  // namespace
}  // namespace kordll
