// CWinStartup: registers a program to start when the user logs in.
//
// A registration is two things kept in step:
//   - the string value `name` of the key
//     "SOFTWARE\Microsoft\Windows\CurrentVersion\Run" in the registry store,
//     holding the command line, under HKEY_LOCAL_MACHINE for kAllUsers and
//     HKEY_CURRENT_USER for kCurrentUser (both hives live in the user's own
//     registry file here);
//   - the desktop's autostart entry <name>.desktop in
//     Locations::GetAutostartFolder(), whose Exec line runs the same command,
//     so that the desktop really starts the program at log-in.
// Both hives share the one entry: it follows the latest registration, and
// removing one hive's value rewrites it from the other's, or removes it when
// neither has the name any more.
//
// Names and commands are outside input. A name that cannot be a file name
// (empty, "." or "..", holding "/", "\", U+0000 or control characters, or
// too long for a file name) is refused before anything is written, and the
// entry is only ever written inside the autostart folder (a link there that
// leads out is refused). An entry of that name that this class did not write
// is never changed or removed: adding is then refused. Texts end at their
// first U+0000, as wide C strings do.
//
// Every operation answers 1 (true) or 0. Thread-safe as the registry and the
// file calls below it are; two threads registering the same name at once
// leave one of the two.

#ifndef KORDLL_TOOLKIT_CWINSTARTUP_H_
#define KORDLL_TOOLKIT_CWINSTARTUP_H_

#include "kordll/platform/CString.h"

namespace kordll {

// A module handle. This system starts one program per process: every handle
// (null included) stands for the main program.
using HINSTANCE = void*;

class CWinStartup {
 public:
  enum StartupUser { kCurrentUser = 0, kAllUsers = 1 };

  // The key that holds the commands run at log-in.
  static constexpr const char16_t* kRunKey = u"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Run";

  CWinStartup() = delete;

  // Registers the running program with " /deskbar" behind its path when
  // deskbar is non-zero, " /background" otherwise.
  static int AddApp(HINSTANCE module, const CString& name, StartupUser user, int deskbar);
  // Registers `command` (a program path, spelled as on Windows or as here,
  // and its arguments) under `name`, replacing a registration of that name.
  // 1 only if the registry value and the autostart entry were both written;
  // on failure neither is left changed.
  static int AddApp(const CString& name, const CString& command, StartupUser user);
  // Removes the registration of `name` from the user's hive, and brings the
  // autostart entry in step. 0 for a name that hive does not have.
  static int RemoveApp(const CString& name, StartupUser user);

  // The autostart entry that `name` gives, or "" for a refused name.
  static CString GetEntryPath(const CString& name);

 protected:
  // Stores the running program's path, terminated, in buffer (size units).
  // Answers its length, or 0 when it is unknown or does not fit.
  static int GetCurrentAppPath(HINSTANCE module, unsigned short* buffer, int size);
};

}  // namespace kordll

#endif  // KORDLL_TOOLKIT_CWINSTARTUP_H_
