#include "kordll/platform/PluginLoader.h"

#include <gtest/gtest.h>

#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Host.h"
#include "kordll/platform/Locations.h"
#include "tests/support/TempRoot.h"
#include "tests/support/TestHost.h"

#ifndef KORDLL_TEST_PLUGIN_DIR
#error "the build defines KORDLL_TEST_PLUGIN_DIR, the folder of the test plug-ins"
#endif

namespace kordll {
namespace {

const CString kPluginDir(KORDLL_TEST_PLUGIN_DIR);

class PluginLoaderTest : public ::testing::Test {
 protected:
  PluginLoaderTest() : root_(test::TempRoot::kWithProgramFolder) { Host::Install(&host_); }
  ~PluginLoaderTest() override { Host::Install(nullptr); }

  // Copies a built plug-in into the test's program folder under `name`.
  CString Install(const char* built, const CString& name) {
    CString target = root_.ProgramFolder() + "/" + name;
    EXPECT_EQ(FileSystem::CopyFile(kPluginDir + "/" + built, target, 1), 1) << built;
    return target;
  }

  test::TempRoot root_;
  TestHost host_;
};

TEST_F(PluginLoaderTest, EntryPointRunsAndTheLibraryStays) {
  CString path = Install("TestPlugin.DLL", "First.DLL");
  CString error;
  ASSERT_EQ(PluginLoader::LoadPlugin(path, &error), PluginLoader::kLoaded) << error.ToUtf8();
  // The plug-in reached the host this test installed: it shares the library.
  ASSERT_EQ(host_.CountOf(TestHost::CallKind::kMessageBox), 1);
  auto box = host_.LastOf(TestHost::CallKind::kMessageBox);
  EXPECT_EQ(box->text, CString("LoadResources ran"));
  EXPECT_EQ(box->caption, CString("TestPlugin"));
  EXPECT_TRUE(PluginLoader::IsLoaded(path));
}

TEST_F(PluginLoaderTest, BareNameIsLookedUpInTheProgramFolder) {
  Install("TestPlugin.DLL", "Second.DLL");
  ASSERT_EQ(PluginLoader::LoadPlugin("Second.DLL"), PluginLoader::kLoaded);
  EXPECT_EQ(host_.CountOf(TestHost::CallKind::kMessageBox), 1);
}

TEST_F(PluginLoaderTest, LibraryWithoutEntryPointIsClosedAgain) {
  CString path = Install("NoEntryPlugin.DLL", "NoEntry.DLL");
  EXPECT_FALSE(PluginLoader::IsLoaded(path));
  CString error;
  EXPECT_EQ(PluginLoader::LoadPlugin(path, &error), PluginLoader::kNoEntry);
  EXPECT_FALSE(error.IsEmpty());
  EXPECT_FALSE(PluginLoader::IsLoaded(path));
  EXPECT_EQ(host_.CountOf(TestHost::CallKind::kMessageBox), 0);
}

TEST_F(PluginLoaderTest, LoadLibraryAndGetProcAddress) {
  CString path = Install("NoEntryPlugin.DLL", "Lookup.DLL");
  void* module = PluginLoader::LoadLibrary(path);
  ASSERT_NE(module, nullptr);
  auto fn = reinterpret_cast<int (*)()>(PluginLoader::GetProcAddress(module, "NotTheEntryPoint"));
  ASSERT_NE(fn, nullptr);
  EXPECT_EQ(fn(), 7);
  EXPECT_EQ(PluginLoader::GetProcAddress(module, "LoadResources"), nullptr);
  EXPECT_EQ(PluginLoader::GetProcAddress(nullptr, "NotTheEntryPoint"), nullptr);
  EXPECT_EQ(PluginLoader::FreeLibrary(module), 1);
  EXPECT_EQ(PluginLoader::FreeLibrary(nullptr), 0);
}

TEST_F(PluginLoaderTest, FilesOutsideTheProgramFolderAreRefused) {
  // The built plug-in itself lies outside this test's program folder.
  CString error;
  EXPECT_EQ(PluginLoader::LoadPlugin(kPluginDir + "/TestPlugin.DLL", &error),
            PluginLoader::kRefused);
  EXPECT_FALSE(error.IsEmpty());
  EXPECT_EQ(PluginLoader::LoadLibrary(kPluginDir + "/TestPlugin.DLL"), nullptr);

  // Nor may a sub-folder, a way out through "..", or a relative path serve.
  ASSERT_EQ(FileSystem::CreateDirectory(root_.ProgramFolder() + "/sub"), 1);
  ASSERT_EQ(FileSystem::CopyFile(kPluginDir + "/TestPlugin.DLL",
                                 root_.ProgramFolder() + "/sub/Deep.DLL", 1),
            1);
  EXPECT_EQ(PluginLoader::LoadPlugin(root_.ProgramFolder() + "/sub/Deep.DLL"),
            PluginLoader::kRefused);
  ASSERT_EQ(FileSystem::CopyFile(kPluginDir + "/TestPlugin.DLL", root_.Path("Outside.DLL"), 1), 1);
  EXPECT_EQ(PluginLoader::LoadPlugin(root_.ProgramFolder() + "/../Outside.DLL"),
            PluginLoader::kRefused);
  EXPECT_EQ(PluginLoader::LoadPlugin("sub/Deep.DLL"), PluginLoader::kRefused);
  EXPECT_EQ(host_.CountOf(TestHost::CallKind::kMessageBox), 0) << "nothing ran";

  // The same file inside the program folder loads.
  Locations::SetProgramFolder(kPluginDir);
  EXPECT_EQ(PluginLoader::LoadPlugin("TestPlugin.DLL"), PluginLoader::kLoaded);
  EXPECT_EQ(host_.CountOf(TestHost::CallKind::kMessageBox), 1);
}

TEST_F(PluginLoaderTest, NamesThatAreNoLoadableFile) {
  EXPECT_EQ(PluginLoader::LoadPlugin("Missing.DLL"), PluginLoader::kRefused);
  EXPECT_EQ(PluginLoader::LoadPlugin(""), PluginLoader::kRefused);
  EXPECT_EQ(PluginLoader::LoadPlugin(root_.ProgramFolder() + "/."), PluginLoader::kRefused);
  EXPECT_EQ(PluginLoader::LoadPlugin(CString(u"A\u0000.DLL", 6)), PluginLoader::kRefused);
  ASSERT_EQ(FileSystem::CreateDirectory(root_.ProgramFolder() + "/Folder.DLL"), 1);
  EXPECT_EQ(PluginLoader::LoadPlugin("Folder.DLL"), PluginLoader::kRefused);

  // A regular file that is no library: the loader says why, nothing crashes.
  ASSERT_EQ(FileSystem::WriteWholeFile(root_.ProgramFolder() + "/Broken.DLL",
                                       "\x7F"
                                       "ELF but not really a library"),
            1);
  CString error;
  EXPECT_EQ(PluginLoader::LoadPlugin("Broken.DLL", &error), PluginLoader::kOpenFailed);
  EXPECT_FALSE(error.IsEmpty());
}

}  // namespace
}  // namespace kordll
