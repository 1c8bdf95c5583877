#include "kordll/platform/FileSystem.h"

#include <string>
#include <vector>

#include "kordll/platform/Env.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/WinFile.h"

namespace kordll {

namespace {

// Sets the thread's last error to code and answers 1 for success, else 0.
int Answer(int code) {
  SetLastError(code);
  return code == ERROR_SUCCESS ? 1 : 0;
}

int Fail(int code) {
  SetLastError(code);
  return 0;
}

int Ok() {
  SetLastError(ERROR_SUCCESS);
  return 1;
}

bool Look(const CString& path, bool follow_link, EnvStat* st) {
  std::string p;
  return FileSystem::ToSystemPath(path, &p) &&
         Env::Current()->Stat(p, follow_link, st) == ERROR_SUCCESS;
}

}  // namespace

bool FileSystem::ToSystemPath(const CString& path, std::string* out) {
  out->clear();
  if (path.IsEmpty()) return false;
  const std::u16string& s = path.str();
  for (size_t i = 0; i < s.size(); ++i) {
    char16_t c = s[i];
    if (c == 0) return false;
    if (c >= 0xD800 && c <= 0xDBFF) {
      if (i + 1 >= s.size() || s[i + 1] < 0xDC00 || s[i + 1] > 0xDFFF) return false;
      ++i;
    } else if (c >= 0xDC00 && c <= 0xDFFF) {
      return false;
    }
  }
  *out = path.ToUtf8();
  return true;
}

int FileSystem::MoveFile(const CString& from, const CString& to) {
  std::string f, t;
  if (!ToSystemPath(from, &f) || !ToSystemPath(to, &t)) return Fail(ERROR_INVALID_NAME);
  return Answer(Env::Current()->MoveFile(f, t));
}

int FileSystem::CopyFile(const CString& from, const CString& to, int fail_if_exists) {
  std::string f, t;
  if (!ToSystemPath(from, &f) || !ToSystemPath(to, &t)) return Fail(ERROR_INVALID_NAME);
  return Answer(Env::Current()->CopyFile(f, t, fail_if_exists != 0));
}

int FileSystem::DeleteFile(const CString& path) {
  std::string p;
  if (!ToSystemPath(path, &p)) return Fail(ERROR_INVALID_NAME);
  return Answer(Env::Current()->DeleteFile(p));
}

int FileSystem::CreateDirectory(const CString& path) {
  std::string p;
  if (!ToSystemPath(path, &p)) return Fail(ERROR_INVALID_NAME);
  return Answer(Env::Current()->CreateFolder(p));
}

int FileSystem::CreateDirectoryTree(const CString& path) {
  std::string p;
  if (!ToSystemPath(path, &p)) return Fail(ERROR_INVALID_NAME);
  Env* env = Env::Current();
  // Each prefix ending before a "/" is made in turn; existing folders pass.
  for (size_t i = 1; i <= p.size(); ++i) {
    if (i != p.size() && p[i] != '/') continue;
    if (p[i - 1] == '/') continue;
    int code = env->CreateFolder(p.substr(0, i));
    if (code != ERROR_SUCCESS && code != ERROR_ALREADY_EXISTS) return Fail(code);
  }
  EnvStat st;
  int code = env->Stat(p, /*follow_link=*/true, &st);
  if (code != ERROR_SUCCESS) return Fail(code);
  if (!st.is_folder) return Fail(ERROR_ALREADY_EXISTS);
  return Ok();
}

int FileSystem::RemoveDirectory(const CString& path) {
  std::string p;
  if (!ToSystemPath(path, &p)) return Fail(ERROR_INVALID_NAME);
  return Answer(Env::Current()->RemoveFolder(p));
}

int FileSystem::DeleteFolderTree(const CString& path) {
  std::string p;
  if (!ToSystemPath(path, &p)) return Fail(ERROR_INVALID_NAME);
  return Answer(Env::Current()->DeleteFolderTree(p));
}

int FileSystem::CreateSymbolicLink(const CString& link, const CString& target) {
  std::string l, t;
  if (!ToSystemPath(link, &l) || !ToSystemPath(target, &t)) return Fail(ERROR_INVALID_NAME);
  return Answer(Env::Current()->CreateSymbolicLink(l, t));
}

bool FileSystem::Exists(const CString& path) {
  EnvStat st;
  return Look(path, /*follow_link=*/false, &st);
}

bool FileSystem::IsFolder(const CString& path) {
  EnvStat st;
  return Look(path, /*follow_link=*/true, &st) && st.is_folder;
}

bool FileSystem::IsFile(const CString& path) {
  EnvStat st;
  return Look(path, /*follow_link=*/true, &st) && st.is_file;
}

bool FileSystem::IsSymlink(const CString& path) {
  EnvStat st;
  return Look(path, /*follow_link=*/false, &st) && st.is_symlink;
}

int64_t FileSystem::GetFileSize(const CString& path) {
  std::string p;
  if (!ToSystemPath(path, &p)) {
    Fail(ERROR_INVALID_NAME);
    return -1;
  }
  EnvStat st;
  int code = Env::Current()->Stat(p, /*follow_link=*/true, &st);
  if (code != ERROR_SUCCESS) {
    Fail(code);
    return -1;
  }
  if (!st.is_file) {
    Fail(ERROR_ACCESS_DENIED);
    return -1;
  }
  return st.size;
}

bool FileSystem::IsNameFree(const CString& path) {
  std::string p;
  EnvStat st;
  // Only a name that is plainly missing is free; a file on the way
  // (ERROR_PATH_NOT_FOUND) or any other failure counts as taken.
  return ToSystemPath(path, &p) &&
         Env::Current()->Stat(p, /*follow_link=*/false, &st) == ERROR_FILE_NOT_FOUND;
}

int FileSystem::ReadWholeFile(const CString& path, std::string* out, int64_t max_bytes) {
  out->clear();
  WinFile file;
  if (!file.Open(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING)) return 0;
  int64_t size = file.GetFileSize();
  if (size < 0) return 0;
  if (size > max_bytes) return Fail(ERROR_NOT_ENOUGH_MEMORY);
  std::string data;
  data.resize(static_cast<size_t>(size));
  uint32_t got = 0;
  if (size > 0 && !file.ReadFile(data.data(), static_cast<uint32_t>(size), &got)) return 0;
  data.resize(got);
  // The file may have grown since its size was taken; read on to its end.
  char buffer[4096];
  for (;;) {
    uint32_t n = 0;
    if (!file.ReadFile(buffer, sizeof buffer, &n)) return 0;
    if (n == 0) break;
    if (static_cast<int64_t>(data.size() + n) > max_bytes) return Fail(ERROR_NOT_ENOUGH_MEMORY);
    data.append(buffer, n);
  }
  *out = std::move(data);
  return Ok();
}

int FileSystem::WriteWholeFile(const CString& path, std::string_view bytes) {
  WinFile file;
  if (!file.Open(path, GENERIC_WRITE, 0, CREATE_ALWAYS)) return 0;
  size_t done = 0;
  while (done < bytes.size()) {
    size_t chunk = bytes.size() - done;
    if (chunk > (1u << 30)) chunk = 1u << 30;
    uint32_t n = 0;
    if (!file.WriteFile(bytes.data() + done, static_cast<uint32_t>(chunk), &n)) return 0;
    done += n;
  }
  return Ok();
}

int FileSystem::CreateTempFolder(const CString& prefix, CString* out) {
  out->Empty();
  if (prefix.Find(u'/') >= 0 || prefix.Find(char16_t(0)) >= 0) return Fail(ERROR_INVALID_NAME);
  CString base = Locations::GetVariable("TMPDIR");
  if (base.IsEmpty() || base[0] != u'/') base = "/tmp";
  std::string pattern;
  if (!ToSystemPath(Locations::Join(base, prefix + "X"), &pattern)) return Fail(ERROR_INVALID_NAME);
  pattern.pop_back();
  std::string made;
  int code = Env::Current()->CreateTempFolder(pattern, &made);
  if (code != ERROR_SUCCESS) return Fail(code);
  *out = CString::FromUtf8(made);
  return Ok();
}

}  // namespace kordll
