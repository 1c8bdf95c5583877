// Puts arbitrary bytes beside a sound record database as its map file (the
// input follows the map's magic). Whatever the map says, a scan must find
// exactly the records of the file, and saves that need new sub-tables must
// leave a file that the inspector finds sound; otherwise the target traps.

#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "kordll/platform/CString.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/KdbExaminer.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RelationsEntryPoints.h"

namespace {

constexpr int kPosts = 4 * 40;  // four full sub-tables
constexpr int kAdded = 41;      // one more sub-table and a place in another

kordll::CString Folder() {
  static kordll::CString folder = [] {
    kordll::CString f;
    kordll::FileSystem::CreateTempFolder("kdbmap_fuzz", &f);
    return f;
  }();
  return folder;
}

kordll::CString Kdb() { return Folder() + "/posts.kdb"; }

void Save(int first, int count) {
  kordll::AZeusDB db(Folder(), "posts", 10, 0);
  std::vector<std::unique_ptr<kordll::Focusable>> owned;
  std::vector<kordll::Focusable*> batch;
  for (int i = 0; i < count; ++i) {
    owned.push_back(std::make_unique<kordll::Focusable>(4, nullptr));
    owned.back()->SetValueInt(1, first + i, 1);
    batch.push_back(owned.back().get());
  }
  db.writeFocusablesSlot(&batch, nullptr, nullptr);
}

// The statuses that a fresh engine finds in a scan.
std::vector<int> Scan() {
  kordll::AZeusDB db(Folder(), "posts", 10, 0);
  kordll::DBTaskItem task;
  task.allFields = 1;
  std::vector<int> out;
  for (int i = 0; i < 2 * (kPosts + kAdded); ++i) {
    kordll::Focusable record(-1, nullptr);
    if (!db.readFocusableSlot(&record, nullptr, &task)) break;
    out.push_back(record.GetFieldInt(1));
  }
  return out;
}

bool Counts(const std::vector<int>& statuses, int count) {
  if (static_cast<int>(statuses.size()) != count) return false;
  for (int i = 0; i < count; ++i) {
    if (statuses[i] != i) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static kordll::RGDBTemplate* four = [] {
    auto* t = new kordll::RGDBTemplate(4);
    t->AddField(0, 20, 4, "", "guid", 0, 0);
    t->AddField(1, 10, 0, "", "status", 0, 0);
    return t;
  }();
  kordll::RelationsEntryPoints::SetTemplate(4, four);
  static const std::string sound = [] {
    kordll::FileSystem::DeleteFile(Kdb());
    Save(0, kPosts);
    std::string bytes;
    kordll::FileSystem::ReadWholeFile(Kdb(), &bytes);
    return bytes;
  }();
  kordll::FileSystem::WriteWholeFile(Kdb(), sound);
  std::string map = "KORMAP01";
  map.append(reinterpret_cast<const char*>(data), size);
  kordll::FileSystem::WriteWholeFile(Kdb() + "-map", map);

  if (!Counts(Scan(), kPosts)) __builtin_trap();
  Save(kPosts, kAdded);
  std::string bytes;
  kordll::FileSystem::ReadWholeFile(Kdb(), &bytes);
  std::ostringstream problems;
  if (kordll::KdbExaminer::CheckKdb(bytes, problems) != 0) __builtin_trap();
  if (!Counts(Scan(), kPosts + kAdded)) __builtin_trap();
  kordll::RelationsEntryPoints::ClearTemplates();
  return 0;
}
