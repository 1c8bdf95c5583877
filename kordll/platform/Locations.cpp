#include "kordll/platform/Locations.h"

#include <limits.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "kordll/platform/Env.h"
#include "kordll/platform/FileSystem.h"

namespace kordll {

namespace {

struct State {
  std::mutex mu;
  // State below is protected by mu.
  std::map<std::string, std::optional<CString>> overrides;
  CString program_folder;  // set by the application; "" for the default
  CString exe_folder;      // folder of /proc/self/exe, computed once
  bool exe_folder_known = false;
  // Set by the first testing override and never cleared: from then on the
  // process environment no longer speaks for the location variables.
  bool testing = false;
};

// Where the folders lie below when a test has set overrides but no root is
// set now (its temporary root is gone). Nothing can be made below /proc/self,
// not even by the super-user, so a late call fails instead of reaching the
// real home folder.
constexpr char kNoTestRoot[] = "/proc/self/kordll-no-test-root";

State& GetState() {
  static State* state = new State;  // never destroyed: usable at exit
  return *state;
}

bool IsControl(char16_t c) { return c < 0x20 || (c >= 0x7F && c <= 0x9F); }

bool IsAsciiLetter(char16_t c) { return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'); }

bool IsAbsolute(const CString& path) { return !path.IsEmpty() && path[0] == u'/'; }

bool InTestingMode() {
  State& s = GetState();
  std::lock_guard<std::mutex> l(s.mu);
  return s.testing;
}

// A variable that decides a location: as overridden for testing; once any
// override has been set, unset unless overridden; otherwise the process
// environment.
CString LocationVariable(const char* name) {
  {
    State& s = GetState();
    std::lock_guard<std::mutex> l(s.mu);
    auto it = s.overrides.find(name);
    if (it != s.overrides.end()) return it->second ? *it->second : CString();
    if (s.testing) return CString();
  }
  return Locations::GetVariable(name);
}

// An absolute folder from a variable, or "" for unset, empty or relative.
CString AbsoluteVariable(const char* name) {
  CString value = LocationVariable(name);
  if (!IsAbsolute(value)) return CString();
  return Locations::NormalizePath(value);
}

CString HomeFolder() {
  CString home = AbsoluteVariable("HOME");
  if (!home.IsEmpty()) return home;
  // A test never reaches the account's real home.
  if (InTestingMode()) return CString();
  // Without HOME, the account's home from the user database.
  std::vector<char> buffer(16384);
  struct passwd pw;
  struct passwd* found = nullptr;
  if (::getpwuid_r(::getuid(), &pw, buffer.data(), buffer.size(), &found) == 0 &&
      found != nullptr && found->pw_dir != nullptr && found->pw_dir[0] == '/') {
    return Locations::NormalizePath(CString::FromUtf8(found->pw_dir));
  }
  return CString();
}

// A location below the home folder, or "" when there is no home folder (so
// that work fails rather than lands in a folder nobody chose).
CString BelowHome(const char* relative) {
  CString home = HomeFolder();
  if (home.IsEmpty()) return InTestingMode() ? Locations::Join(kNoTestRoot, relative) : CString();
  return Locations::Join(home, relative);
}

std::vector<CString> SplitParts(const CString& path, bool backslash_too) {
  const CString separators(backslash_too ? u"/\\" : u"/");
  std::vector<CString> parts;
  int at = 0;
  for (CString part = path.Tokenize(separators, at); at >= 0;
       part = path.Tokenize(separators, at)) {
    parts.push_back(part);
  }
  return parts;
}

// Drops "." parts and resolves ".." parts; `rooted` keeps ".." from leaving
// the start.
std::vector<CString> ResolveDots(const std::vector<CString>& parts, bool rooted) {
  std::vector<CString> out;
  for (const CString& p : parts) {
    if (p == ".") continue;
    if (p == "..") {
      if (!out.empty() && out.back() != "..") {
        out.pop_back();
      } else if (!rooted) {
        out.push_back(p);
      }
      continue;
    }
    out.push_back(p);
  }
  return out;
}

CString JoinParts(const CString& base, const std::vector<CString>& parts) {
  CString result = base;
  for (const CString& p : parts) result = Locations::Join(result, p);
  return result;
}

// Strictly below: `path` starts with `folder` followed by a "/". Both are
// normal forms.
bool StrictlyBelow(const std::string& folder, const std::string& path) {
  if (folder == "/") return path.size() > 1 && path[0] == '/';
  return path.size() > folder.size() + 1 && path.compare(0, folder.size(), folder) == 0 &&
         path[folder.size()] == '/';
}

bool RealPath(const std::string& path, std::string* out) {
  return Env::Current()->ResolvePath(path, out) == ERROR_SUCCESS;
}

// The path with symbolic links resolved in the part that exists; the rest is
// appended as it is. False if the path cannot be resolved safely: a part that
// exists but cannot be resolved (a dangling link, a loop, no access).
bool ResolveExisting(const std::string& path, std::string* out) {
  if (RealPath(path, out)) return true;
  std::string head = path;
  std::string tail;
  for (;;) {
    size_t slash = head.rfind('/');
    if (slash == std::string::npos) return false;
    std::string name = head.substr(slash + 1);
    head = slash == 0 ? "/" : head.substr(0, slash);
    // The part that could not be resolved must not exist at all; a name that
    // exists here (a dangling link) could lead anywhere once made.
    EnvStat st;
    std::string probe = head == "/" ? "/" + name : head + "/" + name;
    if (Env::Current()->Stat(probe, /*follow_link=*/false, &st) != ERROR_FILE_NOT_FOUND)
      return false;
    tail = tail.empty() ? name : name + "/" + tail;
    std::string resolved;
    if (RealPath(head, &resolved)) {
      *out = resolved == "/" ? "/" + tail : resolved + "/" + tail;
      return true;
    }
    if (head == "/") return false;
  }
}

}  // namespace

// ---- Folders ----------------------------------------------------------------

CString Locations::GetProfileFolder() {
  CString root = AbsoluteVariable("KORDLL_ROOT");
  if (!root.IsEmpty()) return Join(root, "config");
  CString xdg = AbsoluteVariable("XDG_CONFIG_HOME");
  if (!xdg.IsEmpty()) return Join(xdg, "kordll");
  return BelowHome(".config/kordll");
}

CString Locations::GetDataRoot() {
  CString root = AbsoluteVariable("KORDLL_ROOT");
  if (!root.IsEmpty()) return Join(root, "data");
  CString xdg = AbsoluteVariable("XDG_DATA_HOME");
  if (!xdg.IsEmpty()) return Join(xdg, "kordll");
  return BelowHome(".local/share/kordll");
}

CString Locations::GetDownloadFolder() {
  CString dir = AbsoluteVariable("KORDLL_DOWNLOAD_DIR");
  if (!dir.IsEmpty()) return dir;
  CString root = AbsoluteVariable("KORDLL_ROOT");
  if (!root.IsEmpty()) return Join(root, "downloads");
  CString xdg = AbsoluteVariable("XDG_DOWNLOAD_DIR");
  if (!xdg.IsEmpty()) return Join(xdg, "Tidrel Downloads");
  return BelowHome("Downloads/Tidrel Downloads");
}

CString Locations::GetAutostartFolder() {
  CString root = AbsoluteVariable("KORDLL_ROOT");
  if (!root.IsEmpty()) return Join(root, "autostart");
  CString xdg = AbsoluteVariable("XDG_CONFIG_HOME");
  if (!xdg.IsEmpty()) return Join(xdg, "autostart");
  return BelowHome(".config/autostart");
}

CString Locations::GetProgramFolder() {
  State& s = GetState();
  std::lock_guard<std::mutex> l(s.mu);
  if (!s.program_folder.IsEmpty()) return s.program_folder;
  if (!s.exe_folder_known) {
    s.exe_folder_known = true;
    std::string target;
    if (RealPath("/proc/self/exe", &target)) {
      s.exe_folder = GetParent(CString::FromUtf8(target));
    }
  }
  return s.exe_folder;
}

void Locations::SetProgramFolder(const CString& folder) {
  State& s = GetState();
  std::lock_guard<std::mutex> l(s.mu);
  s.program_folder = folder.IsEmpty() ? CString() : NormalizePath(folder);
}

// ---- The environment ----------------------------------------------------------

CString Locations::GetVariable(const char* name) {
  if (name == nullptr) return CString();
  {
    State& s = GetState();
    std::lock_guard<std::mutex> l(s.mu);
    auto it = s.overrides.find(name);
    if (it != s.overrides.end()) return it->second ? *it->second : CString();
  }
  const char* value = ::getenv(name);
  return value == nullptr ? CString() : CString::FromUtf8(value);
}

void Locations::SetVariableForTesting(const char* name, std::optional<CString> value) {
  if (name == nullptr) return;
  State& s = GetState();
  std::lock_guard<std::mutex> l(s.mu);
  s.overrides[name] = std::move(value);
  s.testing = true;
}

void Locations::SetRootForTesting(const CString& root) {
  SetVariableForTesting("KORDLL_ROOT", root);
  SetVariableForTesting("KORDLL_DOWNLOAD_DIR", std::nullopt);
  SetVariableForTesting("XDG_CONFIG_HOME", std::nullopt);
  SetVariableForTesting("XDG_DATA_HOME", std::nullopt);
  SetVariableForTesting("XDG_DOWNLOAD_DIR", std::nullopt);
  SetVariableForTesting("HOME", Join(root, "home"));
}

void Locations::ResetForTesting() {
  State& s = GetState();
  std::lock_guard<std::mutex> l(s.mu);
  s.overrides.clear();
  s.program_folder.Empty();
}

// ---- Paths ----------------------------------------------------------------------

CString Locations::Join(const CString& a, const CString& b) {
  if (a.IsEmpty()) return b;
  if (b.IsEmpty()) return a;
  CString left = a;
  int keep = left.GetLength();
  while (keep > 1 && left[keep - 1] == u'/') --keep;  // "/" alone stays
  left = left.Left(keep);
  int skip = 0;
  while (skip < b.GetLength() && b[skip] == u'/') ++skip;
  if (left == "/") return left + b.Mid(skip);
  return left + u'/' + b.Mid(skip);
}

CString Locations::GetParent(const CString& path) {
  int slash = path.ReverseFind(u'/');
  if (slash < 0) return CString();
  if (slash == 0) return CString("/");
  return path.Left(slash);
}

CString Locations::GetFileName(const CString& path) { return path.Mid(path.ReverseFind(u'/') + 1); }

CString Locations::NormalizePath(const CString& path) {
  if (path.IsEmpty()) return path;
  const bool absolute = IsAbsolute(path);
  std::vector<CString> parts = ResolveDots(SplitParts(path, false), absolute);
  if (absolute) return parts.empty() ? CString("/") : JoinParts(CString("/"), parts);
  if (parts.empty()) return CString(".");
  CString result = parts[0];
  for (size_t i = 1; i < parts.size(); ++i) result = Join(result, parts[i]);
  return result;
}

bool Locations::IsPathInside(const CString& folder, const CString& path) {
  std::string check;
  if (!IsAbsolute(folder) || !FileSystem::ToSystemPath(folder, &check) ||
      !FileSystem::ToSystemPath(path, &check)) {
    return false;
  }
  CString norm_folder = NormalizePath(folder);
  CString norm_path = NormalizePath(IsAbsolute(path) ? path : Join(folder, path));
  std::string f = norm_folder.ToUtf8();
  std::string p = norm_path.ToUtf8();
  if (!StrictlyBelow(f, p)) return false;

  // The same on the names the system will really use.
  std::string real_folder;
  if (!RealPath(f, &real_folder)) {
    if (!ResolveExisting(f, &real_folder)) return false;
  }
  std::string real_path;
  if (!ResolveExisting(p, &real_path)) return false;
  return StrictlyBelow(real_folder, real_path);
}

CString Locations::MapDrivePath(const CString& text) {
  if (text.GetLength() < 2 || !IsAsciiLetter(text[0]) || text[1] != u':') return text;
  if (text.GetLength() > 2 && text[2] != u'\\' && text[2] != u'/') return text;
  std::vector<CString> parts = ResolveDots(SplitParts(text.Mid(2), true), /*rooted=*/true);
  char16_t drive = text[0] | 0x20;  // ASCII lower case
  if (drive == u'c' && !parts.empty() && parts[0].CompareNoCase("Tidrel Downloads") == 0) {
    parts.erase(parts.begin());
    CString downloads = GetDownloadFolder();
    // Without a download folder the path has nowhere to go: "" names no
    // file, where a relative path would land in the working folder.
    if (downloads.IsEmpty()) return CString();
    return JoinParts(downloads, parts);
  }
  CString data = GetDataRoot();
  if (data.IsEmpty()) return CString();
  CString base = Join(data, CString("drive_") + drive);
  return JoinParts(base, parts);
}

// ---- Names taken from data --------------------------------------------------------

CString Locations::SafeDownloadFileName(const CString& name) {
  CString out = name;
  for (int i = 0; i < out.GetLength(); ++i) {
    char16_t c = out[i];
    if (c == u'/' || c == u'\\' || c == u':' || c == 0 || IsControl(c)) out.SetAt(i, u'_');
  }
  if (out.IsEmpty() || out == "." || out == "..") return CString("download");
  return out;
}

bool Locations::IsUsableLoginName(const CString& login) {
  if (login.IsEmpty() || login == "." || login == "..") return false;
  for (char16_t c : login.str()) {
    if (c == u'/' || c == u'\\' || c == 0 || IsControl(c)) return false;
  }
  return true;
}

bool Locations::IsUsableSkinEntryName(const CString& name) {
  if (name.IsEmpty() || name == "." || name == ".." || name[0] == u'~') return false;
  for (char16_t c : name.str()) {
    if (c == u'/' || c == u'\\' || c == 0) return false;
  }
  return true;
}

}  // namespace kordll
