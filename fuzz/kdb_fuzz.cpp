// Maps and scans arbitrary bytes as a record database (.kdb): the engine
// must fail with its error codes, never crash, hang or allocate without
// bound; the inspector must list problems the same way. A save into the
// damaged file is tried too.

#include <cstdint>
#include <sstream>
#include <string>

#include "kordll/platform/CString.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/KdbExaminer.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RelationsEntryPoints.h"

namespace {

kordll::CString Folder() {
  static kordll::CString folder = [] {
    kordll::CString f;
    kordll::FileSystem::CreateTempFolder("kdb_fuzz", &f);
    return f;
  }();
  return folder;
}

kordll::RGDBTemplate* Template(int relation) {
  auto* t = new kordll::RGDBTemplate(relation);
  t->AddField(0, 20, 4, "", "guid", 0, 0);
  t->AddField(1, 10, 0, "", "status", 0, 0);
  t->AddField(4, 10, 4, "", "title", 0, 0);
  return t;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static kordll::RGDBTemplate* four = Template(4);
  static kordll::RGDBTemplate* seven = Template(7);
  kordll::RelationsEntryPoints::SetTemplate(4, four);
  kordll::RelationsEntryPoints::SetTemplate(7, seven);
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  std::ostringstream sink;
  kordll::KdbExaminer::CheckKdb(bytes, sink);
  kordll::KdbExaminer::DumpKdb(bytes, sink);

  const kordll::CString path = Folder() + "/input.kdb";
  kordll::FileSystem::DeleteFile(path);
  if (!kordll::FileSystem::WriteWholeFile(path, bytes)) return 0;
  {
    kordll::AZeusDB db(Folder(), "input", 10, 1);
    kordll::DBTaskItem task;
    task.allFields = 1;
    for (int i = 0; i < 100000; ++i) {
      kordll::Focusable record(-1, nullptr);
      const int ok = db.readFocusableSlot(&record, nullptr, &task);
      // A bad slot (error 3) is passed over, as the activity list does.
      if (!ok && db.GetLastDBErrorMsgCode() != 3) break;
    }
    kordll::Focusable fresh(4, nullptr);
    fresh.SetValueStr(0, "R3_G1", 1);
    fresh.SetValueStr(4, "a title that chains over slots", 1);
    db.writeFocusableSlot(&fresh, nullptr, nullptr);
    kordll::Focusable at(4, nullptr);
    at.SetValueStr(4, "x", 1);
    at.SetDBSlotIndex(size > 0 ? data[0] : 0);
    db.writeFocusableSlot(&at, nullptr, nullptr);
    db.deleteFocusableSlot(&at, nullptr, nullptr);
  }
  kordll::RelationsEntryPoints::ClearTemplates();
  return 0;
}
