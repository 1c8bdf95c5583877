#include "kordll/platform/FileSystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "kordll/platform/FaultInjection.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/WinFile.h"

#ifndef RENAME_NOREPLACE
#define RENAME_NOREPLACE (1 << 0)
#endif

namespace kordll {

namespace {

constexpr int kMaxTreeDepth = 256;
constexpr size_t kCopyChunk = 64 * 1024;

int Fail(int code) {
  SetLastError(code);
  return 0;
}

int FailErrno() { return Fail(WinErrorFromErrno(errno)); }

int Ok() {
  SetLastError(ERROR_SUCCESS);
  return 1;
}

int OpenRetrying(const char* path, int flags, mode_t mode = 0666) {
  int fd;
  do {
    fd = ::open(path, flags, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

// Writes all of [data, data + size) to fd, retrying EINTR and short writes.
bool WriteAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    ssize_t n = ::write(fd, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (n == 0) {
      errno = ENOSPC;
      return false;
    }
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

// The bytes of the regular file `from` into `to`. `exclusive`: refuse an
// existing target. Sets the last error and answers 1 or 0.
int CopyBytes(const CString& to_name, const std::string& from, const std::string& to,
              bool exclusive) {
  int src = OpenRetrying(from.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (src < 0) return FailErrno();
  struct stat sst;
  if (::fstat(src, &sst) != 0 || !S_ISREG(sst.st_mode)) {
    ::close(src);
    return Fail(ERROR_ACCESS_DENIED);
  }
  const int base = O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  bool created = false;
  int dst = OpenRetrying(to.c_str(), base | O_CREAT | O_EXCL, sst.st_mode & 0777);
  if (dst >= 0) {
    created = true;
  } else if (errno == EEXIST && !exclusive) {
    // Opened without O_TRUNC: the target is checked before it is emptied, so
    // that a copy onto the source itself cannot destroy it.
    dst = OpenRetrying(to.c_str(), base);
  } else if (errno == EEXIST) {
    ::close(src);
    return Fail(ERROR_FILE_EXISTS);
  }
  if (dst < 0) {
    int err = errno;
    ::close(src);
    return Fail(WinErrorFromErrno(err));
  }
  int code = ERROR_SUCCESS;
  struct stat dstat;
  if (::fstat(dst, &dstat) != 0) {
    code = WinErrorFromErrno(errno);
  } else if (!S_ISREG(dstat.st_mode)) {
    code = ERROR_ACCESS_DENIED;
  } else if (dstat.st_dev == sst.st_dev && dstat.st_ino == sst.st_ino) {
    code = ERROR_SHARING_VIOLATION;
  } else if (!created && ::ftruncate(dst, 0) != 0) {
    code = WinErrorFromErrno(errno);
  }
  if (code == ERROR_SUCCESS) {
    int fl = ::fcntl(dst, F_GETFL);
    if (fl >= 0) ::fcntl(dst, F_SETFL, fl & ~O_NONBLOCK);
    fl = ::fcntl(src, F_GETFL);
    if (fl >= 0) ::fcntl(src, F_SETFL, fl & ~O_NONBLOCK);
    std::vector<char> buffer(kCopyChunk);
    for (;;) {
      ssize_t n = ::read(src, buffer.data(), buffer.size());
      if (n < 0) {
        if (errno == EINTR) continue;
        code = ERROR_READ_FAULT;
        break;
      }
      if (n == 0) break;
      if (FaultInjection::ShouldFail(FaultInjection::kWrite, to_name)) {
        code = ERROR_DISK_FULL;
        break;
      }
      if (!WriteAll(dst, buffer.data(), static_cast<size_t>(n))) {
        code = WinErrorFromErrno(errno);
        break;
      }
    }
  }
  ::close(src);
  if (::close(dst) != 0 && code == ERROR_SUCCESS && errno != EINTR) {
    code = WinErrorFromErrno(errno);
  }
  if (code != ERROR_SUCCESS) {
    if (created) ::unlink(to.c_str());
    return Fail(code);
  }
  return Ok();
}

// Moves without replacing where renameat2's no-replace flag is not supported
// by the file system. A file is hard-linked to the new name (which refuses a
// taken name atomically) and then unlinked from the old; a folder first
// claims the new name with an empty folder, which rename may then replace.
// Only on a file system with neither hard links nor renameat2 is the check
// separate from the rename.
int MoveWithoutReplace(const std::string& from, const std::string& to) {
  struct stat st;
  if (::lstat(from.c_str(), &st) != 0) return FailErrno();
  if (S_ISDIR(st.st_mode)) {
    if (::mkdir(to.c_str(), 0700) != 0) return FailErrno();
    if (::rename(from.c_str(), to.c_str()) != 0) {
      int err = errno;
      ::rmdir(to.c_str());
      return Fail(WinErrorFromErrno(err));
    }
    return Ok();
  }
  if (::link(from.c_str(), to.c_str()) == 0) {
    if (::unlink(from.c_str()) != 0) {
      int err = errno;
      ::unlink(to.c_str());
      return Fail(WinErrorFromErrno(err));
    }
    return Ok();
  }
  if (errno != EPERM && errno != ENOTSUP && errno != EMLINK && errno != ENOSYS) return FailErrno();
  struct stat tst;
  if (::lstat(to.c_str(), &tst) == 0) return Fail(ERROR_ALREADY_EXISTS);
  if (::rename(from.c_str(), to.c_str()) != 0) return FailErrno();
  return Ok();
}

// Removes everything inside the open folder `dir_fd` (which this call
// closes). Answers false if anything could not be removed.
bool EmptyFolder(int dir_fd, int depth) {
  DIR* dir = ::fdopendir(dir_fd);
  if (dir == nullptr) {
    ::close(dir_fd);
    return false;
  }
  // Names are gathered first, so that removing does not disturb the listing.
  std::vector<std::string> names;
  errno = 0;
  while (struct dirent* e = ::readdir(dir)) {
    std::string name = e->d_name;
    if (name == "." || name == "..") continue;
    names.push_back(std::move(name));
  }
  bool ok = errno == 0;
  int fd = ::dirfd(dir);
  for (const std::string& name : names) {
    struct stat st;
    if (::fstatat(fd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno != ENOENT) ok = false;
      continue;
    }
    if (S_ISDIR(st.st_mode)) {
      if (depth >= kMaxTreeDepth) {
        ok = false;
        continue;
      }
      int child =
          ::openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY);
      if (child < 0) {
        ok = false;
        continue;
      }
      if (!EmptyFolder(child, depth + 1)) ok = false;
      if (::unlinkat(fd, name.c_str(), AT_REMOVEDIR) != 0) ok = false;
    } else if (::unlinkat(fd, name.c_str(), 0) != 0 && errno != ENOENT) {
      ok = false;
    }
  }
  ::closedir(dir);
  return ok;
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
  if (FaultInjection::ShouldFail(FaultInjection::kMove, from)) return Fail(ERROR_ACCESS_DENIED);
  if (::renameat2(AT_FDCWD, f.c_str(), AT_FDCWD, t.c_str(), RENAME_NOREPLACE) == 0) return Ok();
  int err = errno;
  if (err == EINVAL || err == ENOSYS || err == ENOTSUP) return MoveWithoutReplace(f, t);
  if (err == EXDEV) {
    struct stat st;
    if (::lstat(f.c_str(), &st) != 0) return FailErrno();
    if (!S_ISREG(st.st_mode)) return Fail(ERROR_NOT_SAME_DEVICE);
    if (!CopyBytes(to, f, t, /*exclusive=*/true)) {
      return GetLastError() == ERROR_FILE_EXISTS ? Fail(ERROR_ALREADY_EXISTS) : 0;
    }
    if (::unlink(f.c_str()) != 0) {
      err = errno;
      ::unlink(t.c_str());
      return Fail(WinErrorFromErrno(err));
    }
    return Ok();
  }
  if (err == ENOENT) {
    struct stat st;
    return Fail(::lstat(f.c_str(), &st) == 0 ? ERROR_PATH_NOT_FOUND : ERROR_FILE_NOT_FOUND);
  }
  return Fail(WinErrorFromErrno(err));
}

int FileSystem::CopyFile(const CString& from, const CString& to, int fail_if_exists) {
  std::string f, t;
  if (!ToSystemPath(from, &f) || !ToSystemPath(to, &t)) return Fail(ERROR_INVALID_NAME);
  if (FaultInjection::ShouldFail(FaultInjection::kMove, from)) return Fail(ERROR_ACCESS_DENIED);
  return CopyBytes(to, f, t, fail_if_exists != 0);
}

int FileSystem::DeleteFile(const CString& path) {
  std::string p;
  if (!ToSystemPath(path, &p)) return Fail(ERROR_INVALID_NAME);
  if (FaultInjection::ShouldFail(FaultInjection::kDelete, path)) return Fail(ERROR_ACCESS_DENIED);
  if (::unlink(p.c_str()) != 0) return FailErrno();  // a folder: EISDIR, access denied
  return Ok();
}

int FileSystem::CreateDirectory(const CString& path) {
  std::string p;
  if (!ToSystemPath(path, &p)) return Fail(ERROR_INVALID_NAME);
  if (::mkdir(p.c_str(), 0777) != 0) {
    return Fail(errno == ENOENT ? ERROR_PATH_NOT_FOUND : WinErrorFromErrno(errno));
  }
  return Ok();
}

int FileSystem::CreateDirectoryTree(const CString& path) {
  std::string p;
  if (!ToSystemPath(path, &p)) return Fail(ERROR_INVALID_NAME);
  // Each prefix ending before a "/" is made in turn; existing folders pass.
  for (size_t i = 1; i <= p.size(); ++i) {
    if (i != p.size() && p[i] != '/') continue;
    if (p[i - 1] == '/') continue;
    std::string part = p.substr(0, i);
    if (::mkdir(part.c_str(), 0777) != 0 && errno != EEXIST) return FailErrno();
  }
  struct stat st;
  if (::stat(p.c_str(), &st) != 0) return FailErrno();
  if (!S_ISDIR(st.st_mode)) return Fail(ERROR_ALREADY_EXISTS);
  return Ok();
}

int FileSystem::RemoveDirectory(const CString& path) {
  std::string p;
  if (!ToSystemPath(path, &p)) return Fail(ERROR_INVALID_NAME);
  if (FaultInjection::ShouldFail(FaultInjection::kDelete, path)) return Fail(ERROR_ACCESS_DENIED);
  if (::rmdir(p.c_str()) != 0) {
    if (errno == ENOTDIR) return Fail(ERROR_DIRECTORY);
    if (errno == EEXIST) return Fail(ERROR_DIR_NOT_EMPTY);
    return FailErrno();
  }
  return Ok();
}

int FileSystem::DeleteFolderTree(const CString& path) {
  std::string p;
  if (!ToSystemPath(path, &p)) return Fail(ERROR_INVALID_NAME);
  if (FaultInjection::ShouldFail(FaultInjection::kDelete, path)) return Fail(ERROR_ACCESS_DENIED);
  struct stat st;
  if (::lstat(p.c_str(), &st) != 0) {
    return Fail(errno == ENOENT ? ERROR_PATH_NOT_FOUND : WinErrorFromErrno(errno));
  }
  if (!S_ISDIR(st.st_mode)) return Fail(ERROR_DIRECTORY);
  int fd = OpenRetrying(p.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY);
  if (fd < 0) return Fail(errno == ELOOP ? ERROR_DIRECTORY : WinErrorFromErrno(errno));
  bool emptied = EmptyFolder(fd, 1);
  if (::rmdir(p.c_str()) != 0)
    return Fail(emptied ? WinErrorFromErrno(errno) : ERROR_DIR_NOT_EMPTY);
  return Ok();
}

int FileSystem::CreateSymbolicLink(const CString& link, const CString& target) {
  std::string l, t;
  if (!ToSystemPath(link, &l) || !ToSystemPath(target, &t)) return Fail(ERROR_INVALID_NAME);
  if (::symlink(t.c_str(), l.c_str()) != 0) {
    return Fail(errno == ENOENT ? ERROR_PATH_NOT_FOUND : WinErrorFromErrno(errno));
  }
  return Ok();
}

bool FileSystem::Exists(const CString& path) {
  std::string p;
  struct stat st;
  return ToSystemPath(path, &p) && ::lstat(p.c_str(), &st) == 0;
}

bool FileSystem::IsFolder(const CString& path) {
  std::string p;
  struct stat st;
  return ToSystemPath(path, &p) && ::stat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool FileSystem::IsFile(const CString& path) {
  std::string p;
  struct stat st;
  return ToSystemPath(path, &p) && ::stat(p.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

bool FileSystem::IsSymlink(const CString& path) {
  std::string p;
  struct stat st;
  return ToSystemPath(path, &p) && ::lstat(p.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

int64_t FileSystem::GetFileSize(const CString& path) {
  std::string p;
  struct stat st;
  if (!ToSystemPath(path, &p)) {
    Fail(ERROR_INVALID_NAME);
    return -1;
  }
  if (::stat(p.c_str(), &st) != 0) {
    FailErrno();
    return -1;
  }
  if (!S_ISREG(st.st_mode)) {
    Fail(ERROR_ACCESS_DENIED);
    return -1;
  }
  return st.st_size;
}

bool FileSystem::IsNameFree(const CString& path) {
  std::string p;
  struct stat st;
  if (!ToSystemPath(path, &p)) return false;
  return ::lstat(p.c_str(), &st) != 0 && errno == ENOENT;
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
  if (!ToSystemPath(Locations::Join(base, prefix + "XXXXXX"), &pattern)) {
    return Fail(ERROR_INVALID_NAME);
  }
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (::mkdtemp(buffer.data()) == nullptr) return FailErrno();
  *out = CString::FromUtf8(buffer.data());
  return Ok();
}

}  // namespace kordll
