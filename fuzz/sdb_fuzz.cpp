// Maps and reads arbitrary bytes as a string database (.sdb): reads, writes
// and deletes must fail with error codes, never crash, hang or allocate
// without bound; the inspector must list problems the same way.

#include <cstdint>
#include <sstream>
#include <string>

#include "kordll/platform/CString.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/record/KdbExaminer.h"
#include "kordll/record/StringDB.h"

namespace {

kordll::CString Folder() {
  static kordll::CString folder = [] {
    kordll::CString f;
    kordll::FileSystem::CreateTempFolder("sdb_fuzz", &f);
    return f;
  }();
  return folder;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  std::ostringstream sink;
  kordll::KdbExaminer::CheckSdb(bytes, sink);
  kordll::KdbExaminer::DumpSdb(bytes, sink);

  const kordll::CString path = Folder() + "/input.sdb";
  kordll::FileSystem::DeleteFile(path);
  if (!kordll::FileSystem::WriteWholeFile(path, bytes)) return 0;
  kordll::StringDB db(Folder(), "input", 30, 4);
  const int slots = db.GetTotalSlotCount();
  (void)slots;
  for (int i = 0; i < 64; ++i) {
    kordll::CString text;
    db.ReadStringSlot(i, text);
  }
  int slot = size > 0 ? data[0] % 16 : 0;
  db.WriteStringSlot(&slot, kordll::CString("a text long enough to need a second slot here"));
  db.DeleteStringSlot(size > 1 ? data[1] % 16 : 0, 1);
  slot = -1;
  db.WriteStringSlot(&slot, kordll::CString("short"));
  return 0;
}
