#include "kordll/platform/PluginLoader.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>

#include <memory>
#include <string>

#include "kordll/platform/Env.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"

namespace kordll {

namespace {

using LoadResourcesFn = void (*)();

// The name with its links resolved, or "" when it cannot be resolved.
std::string RealPath(const std::string& path) {
  std::string resolved;
  return Env::Current()->ResolvePath(path, &resolved) == ERROR_SUCCESS ? resolved : std::string();
}

void SetText(CString* out, const CString& text) {
  if (out != nullptr) *out = text;
}

}  // namespace

CString PluginLoader::ResolveInProgramFolder(const CString& path, CString* why) {
  std::string folder;
  if (!FileSystem::ToSystemPath(Locations::GetProgramFolder(), &folder)) {
    SetText(why, "the program folder is unknown");
    return CString();
  }
  std::string given;
  if (!FileSystem::ToSystemPath(path, &given)) {
    SetText(why, "the name cannot be a file name");
    return CString();
  }
  std::string full = given.find('/') == std::string::npos ? folder + "/" + given : given;
  if (full.empty() || full[0] != '/') {
    SetText(why, "the path is not absolute");
    return CString();
  }
  size_t slash = full.rfind('/');
  std::string name = full.substr(slash + 1);
  std::string parent = slash == 0 ? std::string("/") : full.substr(0, slash);
  if (name.empty() || name == "." || name == "..") {
    SetText(why, "the path names no file");
    return CString();
  }
  std::string real_folder = RealPath(folder);
  std::string real_parent = RealPath(parent);
  if (real_folder.empty() || real_parent.empty() || real_folder != real_parent) {
    SetText(why, "the file is not in the program folder");
    return CString();
  }
  std::string resolved = real_parent == "/" ? "/" + name : real_parent + "/" + name;
  // Not following links: a link in the program folder may lead anywhere, so
  // it is refused.
  EnvStat st;
  if (Env::Current()->Stat(resolved, /*follow_link=*/false, &st) != ERROR_SUCCESS) {
    SetText(why, "the file does not exist");
    return CString();
  }
  if (!st.is_file) {
    SetText(why, "the name is not a regular file");
    return CString();
  }
  return CString::FromUtf8(resolved);
}

void* PluginLoader::LoadLibrary(const CString& path, CString* error) {
  CString why;
  CString resolved = ResolveInProgramFolder(path, &why);
  if (resolved.IsEmpty()) {
    SetText(error, why);
    return nullptr;
  }
  std::string system_path = resolved.ToUtf8();
  void* module = dlopen(system_path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr) {
    const char* text = dlerror();
    SetText(error, text != nullptr ? CString::FromUtf8(text) : CString("the library cannot load"));
  }
  return module;
}

void* PluginLoader::GetProcAddress(void* module, const char* name) {
  if (module == nullptr || name == nullptr) return nullptr;
  dlerror();
  return dlsym(module, name);
}

int PluginLoader::FreeLibrary(void* module) {
  if (module == nullptr) return 0;
  return dlclose(module) == 0 ? 1 : 0;
}

PluginLoader::Status PluginLoader::LoadPlugin(const CString& path, CString* error) {
  CString why;
  if (ResolveInProgramFolder(path, &why).IsEmpty()) {
    SetText(error, why);
    return kRefused;
  }
  void* module = LoadLibrary(path, error);
  if (module == nullptr) return kOpenFailed;
  void* entry = GetProcAddress(module, "LoadResources");
  if (entry == nullptr) {
    FreeLibrary(module);
    SetText(error, "the library has no LoadResources");
    return kNoEntry;
  }
  // The plug-in is the application's code; an exception from it must still
  // not leave the library.
  try {
    reinterpret_cast<LoadResourcesFn>(entry)();
  } catch (...) {
  }
  return kLoaded;
}

bool PluginLoader::IsLoaded(const CString& path) {
  CString resolved = ResolveInProgramFolder(path);
  std::string system_path = resolved.IsEmpty() ? path.ToUtf8() : resolved.ToUtf8();
  void* module = dlopen(system_path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (module == nullptr) return false;
  dlclose(module);  // drops the reference this question took
  return true;
}

}  // namespace kordll
