// Takes paths and command lines of any text apart, and names start-up entries
// after any text. Nothing is written: the root does not exist.
//
// Input: fields (see FuzzFields.h). Field 0 is the path or command line,
// field 1 a base folder, field 2 a switch name and field 3 its value; the
// first byte of field 4, if any, picks the folder and argument flags.
// Invariants that must hold for every input end the run with a trap.

#include <cstddef>
#include <cstdint>

#include "FuzzFields.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/Locations.h"
#include "kordll/toolkit/CPath.h"
#include "kordll/toolkit/CWinStartup.h"

namespace {

using kordll::CPath;
using kordll::CString;
using kordll::CWinStartup;
using kordll::Locations;
using kordll_fuzz::Check;
using kordll_fuzz::FieldAt;

const char kRoot[] = "/nonexistent-kordll-fuzz-root";

bool StartsWith(const CString& text, const CString& prefix) {
  return text.Left(prefix.GetLength()) == prefix;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool rooted = (Locations::SetRootForTesting(kRoot), true);
  (void)rooted;
  if (size > 8192) return 0;
  auto fields = kordll_fuzz::SplitFields(data, size, 5);
  const CString& text = FieldAt(fields, 0).text;
  const CString& base = FieldAt(fields, 1).text;
  const std::string& flags = FieldAt(fields, 4).bytes;
  int is_folder = !flags.empty() && (flags[0] & 1);
  int has_arguments = !flags.empty() && (flags[0] & 2);

  CPath path(text, is_folder, has_arguments);
  Check(path.GetPath(0, 1).Find(char16_t(0)) < 0);
  Check(path.GetLocation() + path.GetFileName() == path.GetPath(0, 0));
  Check(!is_folder || path.GetFileTitle().IsEmpty());
  Check(path.GetDir(-1).Find(u'/') < 0);
  for (int i = 0; i < path.GetDirCount(); ++i) Check(!path.GetDir(i).IsEmpty());
  Check(path.GetDir(path.GetDirCount()).IsEmpty());
  Check(path.GetAbsolutePath(base).GetLength() < 260);
  (void)path.GetRelativePath(base);
  (void)path.GetDrive();
  (void)path.GetDriveLabel(1);

  // A drive path stays in the data root's drive folders or the downloads.
  CString sys = path.GetSystemPath();
  if (path.GetDrive().GetLength() == 2 && !sys.IsEmpty()) {
    Check(StartsWith(sys, Locations::GetDataRoot() + "/drive_") ||
          StartsWith(sys, Locations::GetDownloadFolder()));
  }

  int count = path.GetArgCount();
  for (int i = 0; i <= count; ++i) (void)path.GetArgument(i, i & 1);
  const CString& name = FieldAt(fields, 2).text;
  path.AddSetArgument(name, FieldAt(fields, 3).text);
  int found = path.FindArgument(name);
  Check(found < 0 || found < path.GetArgCount());
  if (found >= 0) Check(path.RemoveArgument(found) == 1);

  // A start-up entry never lies anywhere but directly in the autostart folder.
  CString entry = CWinStartup::GetEntryPath(text);
  if (!entry.IsEmpty()) {
    Check(Locations::GetParent(entry) == Locations::GetAutostartFolder());
    Check(Locations::GetFileName(entry) == text + ".desktop");
  }
  return 0;
}
