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

// The headless host stands in until an application installs its own, and
// comes back when that one leaves; it closes a dialog the user would see.
TEST(HostTest, HeadlessIsTheDefaultAndComesBack) {
  Host* initial = Host::Current();
  EXPECT_NE(dynamic_cast<HeadlessHost*>(initial), nullptr);
  TestHost installed;
  EXPECT_EQ(Host::Install(&installed), initial);
  EXPECT_EQ(Host::Install(nullptr), &installed);
  EXPECT_EQ(Host::Current(), initial);
  HeadlessHost host;
  EXPECT_EQ(host.DoModal(HostDialog(), nullptr), 0);
  EXPECT_EQ(host.MessageBox("t", "c", MB_YESNO), IDNO);
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
