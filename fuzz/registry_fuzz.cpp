// Fuzzes the opening of a registry file found on disk: the input becomes
// "registry.sqlite3" in a scratch profile folder, and the registry must open
// it or set it aside and make a fresh one, and then work, whatever the bytes.
// Invariants that must hold for every input end the run with a trap.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "FuzzScratch.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Host.h"
#include "kordll/platform/Registry.h"
#include "tests/support/TestHost.h"

namespace {

using kordll::CString;
using kordll::FileSystem;
using kordll::RegHive;
using kordll::Registry;
using kordll::RegValue;

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // A quiet host (the registry reports damage to it) and one scratch folder
  // per process, emptied before every input.
  static kordll::TestHost* host = [] {
    auto* h = new kordll::TestHost();
    kordll::Host::Install(h);
    return h;
  }();
  static const CString& folder = kordll_fuzz::ScratchFolder("kordll-registry-fuzz-");
  host->ClearCalls();
  Check(FileSystem::DeleteFolderTree(folder) == 1 || !FileSystem::Exists(folder));
  Check(FileSystem::CreateDirectoryTree(folder) == 1);
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  Check(FileSystem::WriteWholeFile(folder + "/registry.sqlite3", bytes) == 1);

  {
    Registry registry(folder.ToUtf8());
    Check(!registry.in_memory());
    if (!registry.set_aside_path().empty()) {
      // Set aside untouched, and the host heard of it once.
      std::string kept;
      Check(FileSystem::ReadWholeFile(CString::FromUtf8(registry.set_aside_path()), &kept) == 1);
      Check(kept == bytes);
      Check(host->CountOf(kordll::TestHost::CallKind::kMessageBox) == 1);
    }
    // Whatever the file held, the registry answers without crashing, and a
    // write to a fresh registry reads back.
    std::vector<CString> names;
    registry.EnumKeys(RegHive::kCurrentUser, "", &names);
    RegValue value;
    registry.QueryValue(RegHive::kCurrentUser, "Software\\Korlan\\Tidrel", "Users", &value);
    int rc =
        registry.SetValue(RegHive::kCurrentUser, "Software\\Fuzz", "n", RegValue::Dword(42), true);
    if (!registry.set_aside_path().empty()) {
      Check(rc == kordll::ERROR_SUCCESS);
      Check(registry.QueryValue(RegHive::kCurrentUser, "Software\\Fuzz", "n", &value) ==
            kordll::ERROR_SUCCESS);
      Check(value.integer == 42);
    }
  }
  return 0;
}
