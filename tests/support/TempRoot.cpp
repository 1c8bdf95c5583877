#include "tests/support/TempRoot.h"

#include <vector>

#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/Registry.h"

namespace kordll {
namespace test {

TempRoot::TempRoot(int options) {
  CString made;
  if (!FileSystem::CreateTempFolder("kordll-test-", &made)) {
    ADD_FAILURE() << "TempRoot: cannot make a temporary folder, error " << GetLastError();
    return;
  }
  root_ = made;
  Locations::ResetForTesting();
  Locations::SetRootForTesting(root_);
  std::vector<const char*> subs = {"config", "data", "downloads", "home"};
  if (options & kWithProgramFolder) subs.push_back("program");
  for (const char* sub : subs)
    if (!FileSystem::CreateDirectory(Path(sub))) ADD_FAILURE() << "TempRoot: cannot make " << sub;
  if (options & kWithProgramFolder) Locations::SetProgramFolder(Path("program"));
}

TempRoot::~TempRoot() {
  // The process registry lives in the profile folder about to go: close it,
  // so that no connection outlives its file. Once the overrides are gone,
  // every location lies where nothing can be made (see Locations), so a late
  // call fails instead of reaching the real home folder.
  Registry::CloseCurrent();
  Locations::ResetForTesting();
  if (root_.IsEmpty()) return;
  if (!FileSystem::DeleteFolderTree(root_)) {
    ADD_FAILURE() << "TempRoot: cannot remove " << root_.ToUtf8() << ", error " << GetLastError();
  }
}

CString TempRoot::Path(const CString& relative) const { return Locations::Join(root_, relative); }

CString TempRoot::ProfileFolder() const { return Path("config"); }
CString TempRoot::DataRoot() const { return Path("data"); }
CString TempRoot::DownloadFolder() const { return Path("downloads"); }
CString TempRoot::ProgramFolder() const { return Path("program"); }

}  // namespace test
}  // namespace kordll
