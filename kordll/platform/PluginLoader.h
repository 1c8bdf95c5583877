// PluginLoader: loads the application's plug-in libraries and runs their
// entry point.
//
// A plug-in is a shared library (named "*.DLL" in this family) that
// lies in the program folder itself (Locations::GetProgramFolder). It is
// loaded only if the name is a regular file directly in that folder: not a
// symbolic link, not a file of a sub-folder, nothing reached through "..".
// It is opened by its absolute path with RTLD_NOW | RTLD_LOCAL, so every
// missing symbol shows at once and nothing it defines leaks into others.
// Plug-ins link the library's shared object, never a copy of it, so that
// every process-wide object (the host, the registry, the controllers) exists
// once.
//
// The entry point is "LoadResources", with C linkage, no arguments and no
// result: there the plug-in creates its controllers. A library without it is
// closed again. A library whose entry point ran stays loaded for the life of
// the process, since the objects it made refer to its code.
//
// All members are static and thread-safe (the system's loader locks). No
// failure throws: every answer is a status.

#ifndef KORDLL_PLATFORM_PLUGINLOADER_H_
#define KORDLL_PLATFORM_PLUGINLOADER_H_

#include "kordll/platform/CString.h"

namespace kordll {

class PluginLoader {
 public:
  PluginLoader() = delete;

  enum Status {
    kLoaded = 1,     // LoadResources ran; the library stays loaded
    kNoEntry = 2,    // the library has no LoadResources; it was closed again
    kRefused = 3,    // not a regular file directly in the program folder
    kOpenFailed = 4  // the system could not load it (see the error text)
  };

  // The whole step of the user platform for one plug-in: load the library
  // at `path` (absolute, or a bare file name in the program folder), run its
  // LoadResources if it has one and keep it, or close it if it has not.
  // *error, if given, gets a one-line reason for any status but kLoaded.
  static Status LoadPlugin(const CString& path, CString* error = nullptr);

  // LoadLibrary: opens the library at `path` under the same rule as
  // LoadPlugin and answers its handle, or null (with the reason in *error).
  static void* LoadLibrary(const CString& path, CString* error = nullptr);
  // GetProcAddress: the address of an exported C symbol, or null.
  static void* GetProcAddress(void* module, const char* name);
  // FreeLibrary: closes a handle from LoadLibrary. 1 or 0.
  static int FreeLibrary(void* module);

  // Whether the library at `path` is loaded in this process now.
  static bool IsLoaded(const CString& path);

  // The absolute path the library at `path` would be loaded from, or "" when
  // the rule above refuses it (with the reason in *why, if given).
  static CString ResolveInProgramFolder(const CString& path, CString* why = nullptr);
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_PLUGINLOADER_H_
