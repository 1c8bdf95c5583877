// Locations: where the library keeps things, and the rules for paths and for
// names taken from data.
//
// Folders:
//   - With $KORDLL_ROOT set, the profile folder is $KORDLL_ROOT/config and the
//     data root $KORDLL_ROOT/data. Otherwise the profile folder is
//     $XDG_CONFIG_HOME/kordll (default ~/.config/kordll) and the data root
//     $XDG_DATA_HOME/kordll (default ~/.local/share/kordll).
//   - The download folder (the design's "C:\Tidrel Downloads\") is
//     $KORDLL_DOWNLOAD_DIR if set; else $KORDLL_ROOT/downloads if KORDLL_ROOT
//     is set; else $XDG_DOWNLOAD_DIR/Tidrel Downloads; else
//     ~/Downloads/Tidrel Downloads.
//   - The program folder (the folder of the running module) is the folder of
//     the main executable, unless the application or a test sets it.
// A variable that is empty or holds a relative path counts as unset. Folder
// answers are absolute, without a trailing "/". None of these calls makes a
// folder; FileSystem::CreateDirectoryTree does.
//
// Tests never touch the real home folder: SetRootForTesting (or the TempRoot
// helper of the tests) points every location into a temporary folder, and
// SetVariableForTesting stands in for the process environment. Once any
// testing override has been set, the process environment and the user
// database no longer decide a location, even after ResetForTesting: a folder
// that no override names lies below "/proc/self/kordll-no-test-root", where
// nothing can be made, so a call that comes after a test's root is gone fails
// rather than reaching the real home folder. Applications, which never set
// these overrides, see the rules above unchanged.
//
// All members are static and thread-safe.

#ifndef KORDLL_PLATFORM_LOCATIONS_H_
#define KORDLL_PLATFORM_LOCATIONS_H_

#include <optional>

#include "kordll/platform/CString.h"

namespace kordll {

class Locations {
 public:
  Locations() = delete;

  // ---- Folders -------------------------------------------------------------

  static CString GetProfileFolder();
  static CString GetDataRoot();
  static CString GetDownloadFolder();
  // The desktop's per-user list of programs started at log-in: with
  // $KORDLL_ROOT set, $KORDLL_ROOT/autostart (a sandboxed run never reaches
  // the real desktop); otherwise $XDG_CONFIG_HOME/autostart, default
  // ~/.config/autostart.
  static CString GetAutostartFolder();

  // The program folder. SetProgramFolder is for the application and tests,
  // before start-up; an empty text goes back to the executable's folder.
  static CString GetProgramFolder();
  static void SetProgramFolder(const CString& folder);

  // ---- The environment -----------------------------------------------------

  // The value of an environment variable, as overridden for testing. Unset
  // and empty both give "".
  static CString GetVariable(const char* name);

  // Testing: makes GetVariable(name) answer `value`, or answer "" (as if
  // unset) for std::nullopt, whatever the process environment holds.
  static void SetVariableForTesting(const char* name, std::optional<CString> value);

  // Testing: acts as if KORDLL_ROOT were `root` and KORDLL_DOWNLOAD_DIR,
  // XDG_CONFIG_HOME, XDG_DATA_HOME and XDG_DOWNLOAD_DIR were unset, and makes
  // HOME `root`/home, so that no location can reach the real home folder.
  static void SetRootForTesting(const CString& root);

  // Testing: forgets every override and the program folder set (the
  // process stays in testing mode, see above).
  static void ResetForTesting();

  // ---- Paths ---------------------------------------------------------------

  // a + "/" + b, with one separator where a ends or b begins with "/"
  // (so "a/" + "/b" is "a/b"). An empty part gives the other. A "\" is an
  // ordinary character.
  static CString Join(const CString& a, const CString& b);

  // The text before the last "/" ("/" for "/x", "" without a "/").
  static CString GetParent(const CString& path);
  // The text after the last "/".
  static CString GetFileName(const CString& path);

  // Lexical normal form: runs of "/" as one, "." parts dropped, ".." taking
  // away the part before it (at the root of an absolute path it stays at the
  // root; a relative path keeps leading ".." parts), no trailing "/".
  // "" stays "", a relative path reduced to nothing gives ".".
  static CString NormalizePath(const CString& path);

  // Whether `path` names something strictly inside the absolute folder
  // `folder` (the folder itself is not inside it). A relative path is taken
  // relative to the folder. Checked first on the lexical normal forms, then,
  // for the part of the path that exists, on the names with every symbolic
  // link resolved, so "../x", "/etc/x" and a link that leads out are all
  // refused; so is a path through a dangling link. An empty path or folder,
  // or one holding U+0000, is refused.
  static bool IsPathInside(const CString& folder, const CString& path);

  // A Windows drive path met in data ("X:\..." or "X:/...") as a path here:
  // "C:\Tidrel Downloads\rest" (any case) is the download folder with rest
  // below it; any other is <data root>/drive_x/rest, x lower case. Both "\"
  // and "/" separate parts of such a path; ".." parts stop at the drive's
  // root, as on Windows. With no such folder (no home folder at all) the
  // answer is "", which names no file. Any other text is given back
  // unchanged.
  static CString MapDrivePath(const CString& text);

  // ---- Names taken from data -----------------------------------------------

  // A file name derived from an address, made safe to use inside the download
  // folder: "/", "\", ":", U+0000 and control characters (U+0001 to U+001F,
  // U+007F to U+009F) become "_"; a name that is then empty, "." or ".."
  // becomes "download".
  static CString SafeDownloadFileName(const CString& name);

  // Whether a login may serve as a folder name: not empty, not "." or "..",
  // and without "/", "\", U+0000 or control characters.
  static bool IsUsableLoginName(const CString& login);

  // Whether a skin entry name may be written out: not empty, not "." or "..",
  // not starting with "~", and without "/", "\" or U+0000.
  static bool IsUsableSkinEntryName(const CString& name);
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_LOCATIONS_H_
