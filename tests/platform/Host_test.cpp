#include "kordll/platform/Host.h"

#include <gtest/gtest.h>

#include "kordll/platform/DesktopHost.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/HeadlessHost.h"
#include "kordll/platform/Locations.h"
#include "tests/support/TempRoot.h"
#include "tests/support/TestHost.h"

namespace kordll {
namespace {

using Kind = TestHost::CallKind;

// A dialog handler that closes on a chosen button and remembers what it heard.
class Handler : public HostDialogHandler {
 public:
  explicit Handler(int closing_button) : closing_button_(closing_button) {}
  bool OnDialogButton(int button, int check, int, int) override {
    heard.push_back(button);
    checks.push_back(check);
    return button == closing_button_;
  }
  bool OnDialogCommand(int command, int check) override {
    heard.push_back(-command);
    checks.push_back(check);
    return true;
  }
  std::vector<int> heard;
  std::vector<int> checks;

 private:
  int closing_button_;
};

class Client : public HostProgressClient {
 public:
  CString GetProgressCaption() override { return "Working"; }
  int GetProgressPercentage() override { return 40; }
  CString GetProgressButtonCaption(int) override { return "Cancel"; }
  bool IsProgressButtonEnabled(int) override { return true; }
  void OnProgressButton(int button) override { clicks.push_back(button); }
  std::vector<int> clicks;
};

TEST(HostTest, HeadlessIsTheDefaultAndAnswersAsAUserWhoClosesEverything) {
  Host* initial = Host::Current();
  ASSERT_NE(initial, nullptr);
  EXPECT_NE(dynamic_cast<HeadlessHost*>(initial), nullptr);
  TestHost installed;
  EXPECT_EQ(Host::Install(&installed), initial);
  EXPECT_EQ(Host::Install(nullptr), &installed);
  EXPECT_EQ(Host::Current(), initial);

  HeadlessHost host;
  HostDialog dialog;
  dialog.checkValue = 1;
  Handler keeps_open(/*closing_button=*/0);
  EXPECT_EQ(host.DoModal(dialog, &keeps_open), IDOK);
  EXPECT_EQ(keeps_open.heard, std::vector<int>{3}) << "the third button, once, even if refused";
  EXPECT_EQ(keeps_open.checks, std::vector<int>{1});
  EXPECT_EQ(host.DoModal(dialog, nullptr), 0);

  EXPECT_EQ(host.TrackPopupMenu({HostMenuItem::Command(29301, "Download File")}, 0, 1, 2, 0), 0);
  CString path("unchanged");
  EXPECT_EQ(host.GetSaveFileName(HostFileDialog(), &path), IDCANCEL);
  EXPECT_EQ(path, CString("unchanged"));
  EXPECT_EQ(host.ShellExecute("open", "https://example.org/", "", "", SW_SHOW), 0);
  EXPECT_EQ(host.PlaySound("/no/such.wav", SND_FILENAME | SND_ASYNC), 0);

  const int boxes[][2] = {{MB_OK | MB_ICONEXCLAMATION, IDOK},
                          {MB_YESNO, IDNO},
                          {MB_YESNOCANCEL, IDCANCEL},
                          {MB_ABORTRETRYIGNORE, IDABORT}};
  for (const auto& b : boxes) EXPECT_EQ(host.MessageBox("t", "c", b[0]), b[1]) << b[0];

  Client client;
  auto window = host.CreateProgressWindow(&client);
  ASSERT_NE(window, nullptr);
  EXPECT_FALSE(window->IsVisible());
  window->Show();
  EXPECT_TRUE(window->IsVisible());
}

// ---- DesktopHost ---------------------------------------------------------------

class DesktopHostTest : public test::TempRootTest {
 protected:
  CString Download(const char* name) { return root_.DownloadFolder() + "/" + name; }
};

TEST_F(DesktopHostTest, OnlyWebAddressesAndTheDownloadFolderOpen) {
  ASSERT_EQ(FileSystem::CreateDirectoryTree(root_.DownloadFolder()), 1);
  ASSERT_EQ(FileSystem::WriteWholeFile(Download("a.mp3"), "x"), 1);
  intptr_t answer = 0;
  EXPECT_EQ(DesktopHost::OpenableTarget("https://example.org/feed?a=1", &answer),
            CString("https://example.org/feed?a=1"));
  EXPECT_EQ(answer, 42);
  EXPECT_EQ(DesktopHost::OpenableTarget("a.mp3", &answer), Download("a.mp3"));
  EXPECT_EQ(DesktopHost::OpenableTarget("C:\\Tidrel Downloads\\a.mp3", &answer), Download("a.mp3"));
  EXPECT_EQ(DesktopHost::OpenableTarget(root_.DownloadFolder(), &answer), root_.DownloadFolder())
      << "the folder itself opens (\"Open Tidrel Downloads Folder\")";

  // Never handed on; other schemes read as names inside the download folder,
  // where no such file exists.
  for (const char* refused : {"file:///etc/passwd", "-h", "https://example.org/\n--help", ""}) {
    EXPECT_TRUE(DesktopHost::OpenableTarget(refused, &answer).IsEmpty()) << refused;
    EXPECT_NE(answer, 42) << refused;
  }
  for (const char* outside : {"/etc/passwd", "../config/registry.sqlite3", "C:\\Windows\\x"}) {
    EXPECT_TRUE(DesktopHost::OpenableTarget(outside, &answer).IsEmpty()) << outside;
    EXPECT_EQ(answer, SE_ERR_ACCESSDENIED) << outside;
  }
  EXPECT_TRUE(DesktopHost::OpenableTarget(Download("../data/x"), &answer).IsEmpty());
  EXPECT_TRUE(DesktopHost::OpenableTarget(Download("missing.mp3"), &answer).IsEmpty());
  EXPECT_EQ(answer, SE_ERR_FNF);
}

TEST_F(DesktopHostTest, StartsTheOpenerWithoutWaiting) {
  ASSERT_EQ(FileSystem::CreateDirectoryTree(root_.DownloadFolder()), 1);
  DesktopHost host("/bin/true");
  EXPECT_EQ(host.ShellExecute("open", "https://example.org/", "", "", SW_SHOW), 42);
  EXPECT_EQ(host.ShellExecute("print", "https://example.org/", "", "", SW_SHOW), SE_ERR_NOASSOC);
  EXPECT_EQ(host.ShellExecute("open", "/etc/passwd", "", "", SW_SHOW), SE_ERR_ACCESSDENIED);
  DesktopHost missing("/no/such/opener");
  EXPECT_EQ(missing.ShellExecute("open", "https://example.org/", "", "", SW_SHOW), SE_ERR_NOASSOC);
  // The other calls stay headless.
  EXPECT_EQ(host.TrackPopupMenu({HostMenuItem::Command(1, "x")}, 0, 0, 0, 0), 0);
}

TEST_F(DesktopHostTest, PlaysWithTheFirstPlayerFound) {
  ASSERT_EQ(FileSystem::WriteWholeFile(root_.Path("ding.wav"), "RIFF"), 1);
  Locations::SetVariableForTesting("PATH", CString("/usr/bin:/bin"));
  EXPECT_FALSE(DesktopHost::FindProgram("true").IsEmpty());
  EXPECT_TRUE(DesktopHost::FindProgram("no-such-player-here").IsEmpty());

  DesktopHost works("xdg-open", {"no-such-player-here", "true"});
  EXPECT_EQ(works.PlaySound(root_.Path("ding.wav"), SND_FILENAME | SND_ASYNC), 1);
  EXPECT_EQ(works.PlaySound(root_.Path("missing.wav"), SND_FILENAME), 0);
  EXPECT_EQ(works.PlaySound(root_.root(), SND_FILENAME), 0) << "a folder is no sound";
  DesktopHost fails("xdg-open", {"false"});
  EXPECT_EQ(fails.PlaySound(root_.Path("ding.wav"), SND_FILENAME), 0)
      << "a player that fails, waited for, answers 0";
  DesktopHost none("xdg-open", {"no-such-player-here"});
  EXPECT_EQ(none.PlaySound(root_.Path("ding.wav"), SND_FILENAME | SND_ASYNC), 0);
}

}  // namespace
}  // namespace kordll
