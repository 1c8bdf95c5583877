// Fuzzes the file name a request derives from its address (and from a preset
// base name and extension), and the first block written under it. The input
// is UTF-8 text; line breaks split it into address, base name and extension.
// Whatever the input, the chosen name is one plain name of the folder, the
// full path lies inside the folder, and the block lands there; a violation
// ends the run with a trap.

#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/FuzzScratch.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"
#include "kordll/transfer/FileRequest.h"

namespace {

using kordll::CString;
using kordll::FileRequest;
using kordll::FileSystem;
using kordll::Locations;

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

std::string NextLine(const std::string& bytes, size_t* at) {
  if (*at >= bytes.size()) return std::string();
  size_t end = bytes.find('\n', *at);
  if (end == std::string::npos) end = bytes.size();
  std::string line = bytes.substr(*at, end - *at);
  *at = end + 1;
  return line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 16384) return 0;
  const CString& scratch = kordll_fuzz::ScratchFolder("kordll-filename-fuzz-");
  const CString folder = Locations::Join(scratch, CString("downloads"));
  FileSystem::CreateDirectoryTree(folder);

  std::string bytes(reinterpret_cast<const char*>(data), size);
  size_t at = 0;
  FileRequest* request = new FileRequest();
  request->url = CString::FromUtf8(NextLine(bytes, &at));
  request->baseName = CString::FromUtf8(NextLine(bytes, &at));
  request->extension = CString::FromUtf8(NextLine(bytes, &at));
  request->folder = folder;
  request->requestFlags = kordll::kRequestFlagsFileDownload;

  const CString name = request->GetFileToSave();
  Check(!name.IsEmpty() && name != "." && name != "..");
  Check(name.Find(u'/') < 0 && name.Find(u'\\') < 0 && name.Find(u':') < 0);
  Check(name.ToUtf8().size() <= 255);
  Check(request->GetFileToSave() == name);
  const CString path = request->GetFullFilePath2Save();
  Check(path == Locations::Join(folder, name));
  Check(Locations::IsPathInside(folder, path));

  const char block[] = "data";
  Check(request->SaveContent(block, 4) == 1);
  request->CloseSavedFile();
  Check(FileSystem::GetFileSize(path) == 4);
  request->DeleteSavedFile();
  Check(!FileSystem::Exists(path));
  Check(request->Release() == 1);
  return 0;
}
