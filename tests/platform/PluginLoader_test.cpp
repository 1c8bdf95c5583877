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
  EXPECT_EQ(host_.LastOf(TestHost::CallKind::kMessageBox)->text, CString("LoadResources ran"));
  EXPECT_TRUE(PluginLoader::IsLoaded(path));
}

TEST_F(PluginLoaderTest, LibraryWithoutEntryPointIsClosedAgain) {
  CString path = Install("NoEntryPlugin.DLL", "NoEntry.DLL");
  CString error;
  EXPECT_EQ(PluginLoader::LoadPlugin(path, &error), PluginLoader::kNoEntry);
  EXPECT_FALSE(error.IsEmpty());
  EXPECT_FALSE(PluginLoader::IsLoaded(path));
  EXPECT_EQ(host_.CountOf(TestHost::CallKind::kMessageBox), 0);
}

// Only regular files directly in the program folder load: the built plug-in
// itself (outside it), a sub-folder, a way out through "..", relative paths,
// missing files, folders and names with U+0000 are refused before anything
// runs; a file that is no library is told apart.
TEST_F(PluginLoaderTest, NamesOutsideTheProgramFolderOrNoLoadableFileAreRefused) {
  const CString program = root_.ProgramFolder();
  ASSERT_EQ(FileSystem::CreateDirectory(program + "/sub"), 1);
  ASSERT_EQ(FileSystem::CreateDirectory(program + "/Folder.DLL"), 1);
  ASSERT_EQ(FileSystem::CopyFile(kPluginDir + "/TestPlugin.DLL", program + "/sub/Deep.DLL", 1), 1);
  ASSERT_EQ(FileSystem::CopyFile(kPluginDir + "/TestPlugin.DLL", root_.Path("Outside.DLL"), 1), 1);
  for (const CString& name :
       {kPluginDir + "/TestPlugin.DLL", program + "/sub/Deep.DLL", program + "/../Outside.DLL",
        CString("sub/Deep.DLL"), CString("Missing.DLL"), CString(), program + "/.",
        CString(u"A\u0000.DLL", 6), CString("Folder.DLL")}) {
    CString error;
    EXPECT_EQ(PluginLoader::LoadPlugin(name, &error), PluginLoader::kRefused) << name.ToUtf8();
    EXPECT_FALSE(error.IsEmpty()) << name.ToUtf8();
  }
  EXPECT_EQ(PluginLoader::LoadLibrary(kPluginDir + "/TestPlugin.DLL"), nullptr);
  EXPECT_EQ(host_.CountOf(TestHost::CallKind::kMessageBox), 0) << "nothing ran";
  ASSERT_EQ(FileSystem::WriteWholeFile(program + "/Broken.DLL",
                                       "\x7F"
                                       "ELF but not a library"),
            1);
  CString error;
  EXPECT_EQ(PluginLoader::LoadPlugin("Broken.DLL", &error), PluginLoader::kOpenFailed);
  EXPECT_FALSE(error.IsEmpty());
  // The same file inside the program folder loads.
  Locations::SetProgramFolder(kPluginDir);
  EXPECT_EQ(PluginLoader::LoadPlugin("TestPlugin.DLL"), PluginLoader::kLoaded);
  EXPECT_EQ(host_.CountOf(TestHost::CallKind::kMessageBox), 1);
}

}  // namespace
}  // namespace kordll
