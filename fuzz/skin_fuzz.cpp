// Reads arbitrary bytes as a skin container: the reader must answer 0 or 1,
// never crash, hang or allocate more than the file holds; what it stored
// must write back and export without leaving the scratch folder.

#include <cstdint>
#include <string>

#include "fuzz/FuzzScratch.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/settings/SkinFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const kordll::CString& folder = kordll_fuzz::ScratchFolder("skin_fuzz");
  const kordll::CString out = folder + "/out";
  kordll::FileSystem::CreateDirectory(out);
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  if (!kordll::FileSystem::WriteWholeFile(folder + "/input.tsf", bytes)) return 0;

  kordll::SkinFile skin;
  kordll::SkinParseReport report;
  const int result = skin.ParseSkinFile("input.tsf", folder, &report);
  if (result != 0 && result != 1) __builtin_trap();
  if (result == 1 && !report.reason.IsEmpty()) __builtin_trap();
  int64_t stored = 0;
  for (const kordll::CString& name : skin.GetEntryNames()) stored += skin.GetEntrySize(name);
  if (stored > static_cast<int64_t>(size)) __builtin_trap();

  skin.ExportAllSkinFiles(out);
  skin.SetFileName("again.tsf");
  skin.SetDirectory(folder);
  skin.FlushSkin();
  kordll::SkinFile again;
  again.ParseSkinFile("again.tsf", folder);
  kordll::FileSystem::DeleteFolderTree(out);
  return 0;
}
