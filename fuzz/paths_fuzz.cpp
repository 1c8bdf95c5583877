// Fuzzes the rules applied to names and paths taken from data: the file name
// made from an address, login and skin entry names, Windows drive paths, the
// lexical normal form, the inside-a-folder check and wildcard masks. The input
// is UTF-8 text; a first line break splits it into a name and a mask.
// Invariants that must hold for every input end the run with a trap.

#include <cstddef>
#include <cstdint>
#include <string>

#include "kordll/platform/CString.h"
#include "kordll/platform/FileFind.h"
#include "kordll/platform/Locations.h"

namespace {

using kordll::CString;
using kordll::FileFind;
using kordll::Locations;

// A root that does not exist: the checks only look at names and never make
// anything.
const char kRoot[] = "/nonexistent-kordll-fuzz-root";

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

bool HasUnsafeUnit(const CString& s) {
  for (char16_t c : s.str()) {
    if (c == u'/' || c == u'\\' || c == u':' || c < 0x20 || (c >= 0x7F && c <= 0x9F)) return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool rooted = (Locations::SetRootForTesting(kRoot), true);
  (void)rooted;
  if (size > 4096) return 0;
  std::string bytes(reinterpret_cast<const char*>(data), size);
  CString text = CString::FromUtf8(bytes);

  CString safe = Locations::SafeDownloadFileName(text);
  Check(!safe.IsEmpty() && safe != "." && safe != ".." && !HasUnsafeUnit(safe));
  Check(Locations::SafeDownloadFileName(safe) == safe);
  CString download = Locations::GetDownloadFolder();
  Check(Locations::IsPathInside(download, Locations::Join(download, safe)));

  if (Locations::IsUsableLoginName(text))
    Check(Locations::SafeDownloadFileName(text) == text || text.Find(u':') >= 0);
  (void)Locations::IsUsableSkinEntryName(text);

  CString normal = Locations::NormalizePath(text);
  Check(Locations::NormalizePath(normal) == normal);

  CString mapped = Locations::MapDrivePath(text);
  if (mapped != text) {
    // A drive path always lands in the data root or the download folder.
    CString data = Locations::GetDataRoot();
    bool in_data = mapped.Left(data.GetLength() + 7) == data + "/drive_";
    bool in_downloads =
        mapped == download || mapped.Left(download.GetLength() + 1) == download + "/";
    Check(in_data || in_downloads);
    Check(Locations::NormalizePath(mapped) == mapped);
  }
  (void)Locations::IsPathInside(Locations::GetDataRoot(), text);

  size_t split = bytes.find('\n');
  CString name = CString::FromUtf8(bytes.substr(0, split));
  CString mask =
      split == std::string::npos ? CString("*.*") : CString::FromUtf8(bytes.substr(split + 1));
  (void)FileFind::MatchMask(name, mask);
  Check(FileFind::MatchMask(name, name));
  Check(FileFind::MatchMask(name, "*"));
  return 0;
}
