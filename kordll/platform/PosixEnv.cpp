// The machine's Env: POSIX files and folders, the system clocks and the C
// library's time zone. errno is translated to a Win32 code in one place per
// call, interrupted system calls are retried, and every descriptor is opened
// close-on-exec.

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "kordll/platform/Env.h"
#include "kordll/platform/WinError.h"
#include "kordll/platform/WinFile.h"

#ifndef RENAME_NOREPLACE
#define RENAME_NOREPLACE (1 << 0)
#endif

namespace kordll {

namespace {

constexpr int64_t kMaxPosition = std::numeric_limits<int64_t>::max();
constexpr int kMaxTreeDepth = 256;
constexpr size_t kCopyChunk = 64 * 1024;
constexpr int64_t kMillisPerDay = 86400000;

int Errno() { return WinErrorFromErrno(errno); }

int OpenRetrying(const std::string& path, int flags, mode_t mode = 0666) {
  int fd;
  do {
    fd = ::open(path.c_str(), flags, mode);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

int FstatRetrying(int fd, struct stat* st) {
  int rc;
  do {
    rc = ::fstat(fd, st);
  } while (rc != 0 && errno == EINTR);
  return rc;
}

void ClearNonBlocking(int fd) {
  int fl = ::fcntl(fd, F_GETFL);
  if (fl >= 0) ::fcntl(fd, F_SETFL, fl & ~O_NONBLOCK);
}

std::string ParentOf(const std::string& path) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) return std::string();  // no folder named: "not found"
  return slash == 0 ? "/" : path.substr(0, slash);
}

void FillStat(const struct stat& st, EnvStat* out) {
  *out = EnvStat();
  out->is_folder = S_ISDIR(st.st_mode);
  out->is_file = S_ISREG(st.st_mode);
  out->is_symlink = S_ISLNK(st.st_mode);
  out->size = out->is_file ? st.st_size : 0;
  out->last_write = st.st_mtim.tv_sec;
  out->last_access = st.st_atim.tv_sec;
  out->change_time = st.st_ctim.tv_sec;
  out->device = st.st_dev;
  out->node = st.st_ino;
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

class PosixFile : public EnvFile {
 public:
  PosixFile(int fd, bool can_write) : fd_(fd), can_write_(can_write) {}
  ~PosixFile() override {
    if (fd_ >= 0) ::close(fd_);
  }

  // On Linux the descriptor is released even when close reports EINTR, so a
  // retry could close a descriptor another thread has just been given; EINTR
  // says nothing about the data, so it is no failure.
  int Close() override {
    const int fd = fd_;
    fd_ = -1;
    if (fd >= 0 && ::close(fd) != 0 && errno != EINTR) return Errno();
    return ERROR_SUCCESS;
  }

  int ReadAt(int64_t offset, void* buffer, uint32_t count, uint32_t* read) override {
    char* out = static_cast<char*>(buffer);
    uint32_t done = 0;
    int code = ERROR_SUCCESS;
    while (done < count) {
      if (offset > kMaxPosition - (count - done)) break;  // nothing lies there
      ssize_t n = ::pread(fd_, out + done, count - done, offset);
      if (n < 0) {
        if (errno == EINTR) continue;
        code = errno == EIO ? ERROR_READ_FAULT : Errno();
        break;
      }
      if (n == 0) break;  // end of file
      done += static_cast<uint32_t>(n);
      offset += n;
    }
    *read = done;
    return code;
  }

  int WriteAt(int64_t offset, const void* buffer, uint32_t count, uint32_t* written) override {
    *written = 0;
    if (offset > kMaxPosition - count) return ERROR_DISK_FULL;
    const char* in = static_cast<const char*>(buffer);
    uint32_t done = 0;
    int code = ERROR_SUCCESS;
    while (done < count) {
      ssize_t n = ::pwrite(fd_, in + done, count - done, offset);
      if (n < 0) {
        if (errno == EINTR) continue;
        code = Errno();
        break;
      }
      if (n == 0) {  // the file system took nothing: treat as full
        code = ERROR_DISK_FULL;
        break;
      }
      done += static_cast<uint32_t>(n);
      offset += n;
    }
    *written = done;
    return code;
  }

  int GetSize(int64_t* size) override {
    struct stat st;
    if (FstatRetrying(fd_, &st) != 0) return Errno();
    *size = st.st_size;
    return ERROR_SUCCESS;
  }

  int Truncate(int64_t size) override {
    int rc;
    do {
      rc = ::ftruncate(fd_, size);
    } while (rc != 0 && errno == EINTR);
    return rc != 0 ? Errno() : ERROR_SUCCESS;
  }

  int Flush() override {
    int rc;
    do {
      rc = ::fdatasync(fd_);
    } while (rc != 0 && errno == EINTR);
    // A handle without write access has nothing to flush; Linux may say
    // EINVAL or EBADF for some file systems, which is not a failure of the
    // data.
    if (rc != 0 && errno != EINVAL && !(errno == EBADF && !can_write_)) return Errno();
    return ERROR_SUCCESS;
  }

 private:
  int fd_;  // -1 once closed
  const bool can_write_;
};

// The bytes of the regular file `from` into `to`. `exclusive`: refuse an
// existing target.
int CopyBytes(const std::string& from, const std::string& to, bool exclusive) {
  int src = OpenRetrying(from, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (src < 0) return Errno();
  struct stat sst;
  if (FstatRetrying(src, &sst) != 0 || !S_ISREG(sst.st_mode)) {
    ::close(src);
    return ERROR_ACCESS_DENIED;
  }
  const int base = O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  bool created = false;
  int dst = OpenRetrying(to, base | O_CREAT | O_EXCL, sst.st_mode & 0777);
  if (dst >= 0) {
    created = true;
  } else if (errno == EEXIST && !exclusive) {
    // Opened without O_TRUNC: the target is checked before it is emptied, so
    // that a copy onto the source itself cannot destroy it.
    dst = OpenRetrying(to, base);
  } else if (errno == EEXIST) {
    ::close(src);
    return ERROR_FILE_EXISTS;
  }
  if (dst < 0) {
    int code = Errno();
    ::close(src);
    return code;
  }
  int code = ERROR_SUCCESS;
  struct stat dstat;
  if (FstatRetrying(dst, &dstat) != 0) {
    code = Errno();
  } else if (!S_ISREG(dstat.st_mode)) {
    code = ERROR_ACCESS_DENIED;
  } else if (dstat.st_dev == sst.st_dev && dstat.st_ino == sst.st_ino) {
    code = ERROR_SHARING_VIOLATION;
  } else if (!created && ::ftruncate(dst, 0) != 0) {
    code = Errno();
  }
  if (code == ERROR_SUCCESS) {
    ClearNonBlocking(dst);
    ClearNonBlocking(src);
    std::vector<char> buffer(kCopyChunk);
    for (;;) {
      ssize_t n = ::read(src, buffer.data(), buffer.size());
      if (n < 0) {
        if (errno == EINTR) continue;
        code = ERROR_READ_FAULT;
        break;
      }
      if (n == 0) break;
      if (!WriteAll(dst, buffer.data(), static_cast<size_t>(n))) {
        code = Errno();
        break;
      }
    }
  }
  ::close(src);
  if (::close(dst) != 0 && code == ERROR_SUCCESS && errno != EINTR) code = Errno();
  if (code != ERROR_SUCCESS && created) ::unlink(to.c_str());
  return code;
}

// Moves without replacing where renameat2's no-replace flag is not supported
// by the file system. A file is hard-linked to the new name (which refuses a
// taken name atomically) and then unlinked from the old; a folder first
// claims the new name with an empty folder, which rename may then replace.
// Only on a file system with neither hard links nor renameat2 is the check
// separate from the rename.
int MoveWithoutReplace(const std::string& from, const std::string& to) {
  struct stat st;
  if (::lstat(from.c_str(), &st) != 0) return Errno();
  if (S_ISDIR(st.st_mode)) {
    if (::mkdir(to.c_str(), 0700) != 0) return Errno();
    if (::rename(from.c_str(), to.c_str()) != 0) {
      int code = Errno();
      ::rmdir(to.c_str());
      return code;
    }
    return ERROR_SUCCESS;
  }
  if (::link(from.c_str(), to.c_str()) == 0) {
    if (::unlink(from.c_str()) != 0) {
      int code = Errno();
      ::unlink(to.c_str());
      return code;
    }
    return ERROR_SUCCESS;
  }
  if (errno != EPERM && errno != ENOTSUP && errno != EMLINK && errno != ENOSYS) return Errno();
  struct stat tst;
  if (::lstat(to.c_str(), &tst) == 0) return ERROR_ALREADY_EXISTS;
  if (::rename(from.c_str(), to.c_str()) != 0) return Errno();
  return ERROR_SUCCESS;
}

// Removes everything inside the open folder `dir_fd` (which this call
// closes), through descriptors so that no link is ever followed. Answers
// false if anything could not be removed.
bool EmptyFolderAt(int dir_fd, int depth) {
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
      if (!EmptyFolderAt(child, depth + 1)) ok = false;
      if (::unlinkat(fd, name.c_str(), AT_REMOVEDIR) != 0) ok = false;
    } else if (::unlinkat(fd, name.c_str(), 0) != 0 && errno != ENOENT) {
      ok = false;
    }
  }
  ::closedir(dir);
  return ok;
}

COleDateTime FromTm(const struct tm& t, long ms) {
  // A leap second reads as the last second of its minute.
  int second = t.tm_sec > 59 ? 59 : t.tm_sec;
  COleDateTime date(t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, second);
  return date + COleDateTimeSpan(static_cast<double>(ms) / kMillisPerDay);
}

void ReadSystemTime(time_t* seconds, long* ms) {
  auto now = std::chrono::system_clock::now();
  auto whole = std::chrono::floor<std::chrono::seconds>(now);
  *seconds = std::chrono::system_clock::to_time_t(whole);
  *ms =
      static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(now - whole).count());
}

class PosixEnv : public Env {
 public:
  int OpenFile(const std::string& path, uint32_t access, int disposition,
               std::unique_ptr<EnvFile>* file) override;

  int CreateFolder(const std::string& path) override {
    if (::mkdir(path.c_str(), 0777) != 0) return errno == ENOENT ? ERROR_PATH_NOT_FOUND : Errno();
    return ERROR_SUCCESS;
  }

  int RemoveFolder(const std::string& path) override {
    if (::rmdir(path.c_str()) != 0) {
      if (errno == ENOTDIR) return ERROR_DIRECTORY;
      if (errno == EEXIST) return ERROR_DIR_NOT_EMPTY;
      return Errno();
    }
    return ERROR_SUCCESS;
  }

  int ListFolder(const std::string& path, std::vector<std::string>* names) override {
    names->clear();
    int fd = OpenRetrying(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return errno == ENOENT || errno == ENOTDIR ? ERROR_PATH_NOT_FOUND : Errno();
    DIR* dir = ::fdopendir(fd);
    if (dir == nullptr) {
      int code = Errno();
      ::close(fd);
      return code;
    }
    errno = 0;
    while (struct dirent* e = ::readdir(dir)) {
      std::string name = e->d_name;
      if (name != "." && name != "..") names->push_back(std::move(name));
      errno = 0;
    }
    int code = Errno();
    ::closedir(dir);
    if (code != ERROR_SUCCESS) names->clear();
    return code;
  }

  int Stat(const std::string& path, bool follow_link, EnvStat* out) override {
    struct stat st;
    if ((follow_link ? ::stat(path.c_str(), &st) : ::lstat(path.c_str(), &st)) != 0) return Errno();
    FillStat(st, out);
    return ERROR_SUCCESS;
  }

  int MoveFile(const std::string& from, const std::string& to) override {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
      return ERROR_SUCCESS;
    }
    int err = errno;
    if (err == EINVAL || err == ENOSYS || err == ENOTSUP) return MoveWithoutReplace(from, to);
    struct stat st;
    if (err == EXDEV) {
      if (::lstat(from.c_str(), &st) != 0) return Errno();
      if (!S_ISREG(st.st_mode)) return ERROR_NOT_SAME_DEVICE;
      int code = CopyBytes(from, to, /*exclusive=*/true);
      if (code != ERROR_SUCCESS) return code == ERROR_FILE_EXISTS ? ERROR_ALREADY_EXISTS : code;
      if (::unlink(from.c_str()) != 0) {
        code = Errno();
        ::unlink(to.c_str());
        return code;
      }
      return ERROR_SUCCESS;
    }
    if (err == ENOENT) {
      return ::lstat(from.c_str(), &st) == 0 ? ERROR_PATH_NOT_FOUND : ERROR_FILE_NOT_FOUND;
    }
    return WinErrorFromErrno(err);
  }

  int CopyFile(const std::string& from, const std::string& to, bool fail_if_exists) override {
    return CopyBytes(from, to, fail_if_exists);
  }

  int DeleteFile(const std::string& path) override {
    return ::unlink(path.c_str()) != 0 ? Errno() : ERROR_SUCCESS;  // a folder: EISDIR
  }

  int CreateSymbolicLink(const std::string& link, const std::string& target) override {
    if (::symlink(target.c_str(), link.c_str()) != 0) {
      return errno == ENOENT ? ERROR_PATH_NOT_FOUND : Errno();
    }
    return ERROR_SUCCESS;
  }

  int DeleteFolderTree(const std::string& path) override {
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0) return errno == ENOENT ? ERROR_PATH_NOT_FOUND : Errno();
    if (!S_ISDIR(st.st_mode)) return ERROR_DIRECTORY;
    int fd = OpenRetrying(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return errno == ELOOP ? ERROR_DIRECTORY : Errno();
    bool emptied = EmptyFolderAt(fd, 1);
    if (::rmdir(path.c_str()) != 0) return emptied ? Errno() : ERROR_DIR_NOT_EMPTY;
    return ERROR_SUCCESS;
  }

  int ResolvePath(const std::string& path, std::string* resolved) override {
    std::unique_ptr<char, decltype(&free)> real(::realpath(path.c_str(), nullptr), &free);
    if (real == nullptr) return Errno();
    *resolved = real.get();
    return ERROR_SUCCESS;
  }

  int CreateTempFolder(const std::string& prefix, std::string* made) override {
    std::vector<char> buffer(prefix.begin(), prefix.end());
    for (int i = 0; i < 6; ++i) buffer.push_back('X');
    buffer.push_back('\0');
    if (::mkdtemp(buffer.data()) == nullptr) return Errno();
    *made = buffer.data();
    return ERROR_SUCCESS;
  }

  COleDateTime LocalNow() override {
    // localtime_r need not read TZ by itself; make sure the zone was read
    // once. SetTimeZoneSetting reads it again whenever it changes TZ.
    static std::once_flag once;
    std::call_once(once, [] { tzset(); });
    time_t seconds;
    long ms;
    ReadSystemTime(&seconds, &ms);
    struct tm t;
    if (localtime_r(&seconds, &t) == nullptr) return UtcNow();
    return FromTm(t, ms);
  }

  COleDateTime UtcNow() override {
    time_t seconds;
    long ms;
    ReadSystemTime(&seconds, &ms);
    struct tm t;
    if (gmtime_r(&seconds, &t) == nullptr) {
      COleDateTime bad;
      bad.SetStatus(COleDateTime::invalid);
      return bad;
    }
    return FromTm(t, ms);
  }

  int64_t MonotonicMillis() override {
    auto since = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(since).count();
  }

  void SleepMillis(int64_t ms) override {
    if (ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(ms));
  }

  bool WaitUntil(std::condition_variable& cv, std::unique_lock<std::mutex>& lock,
                 int64_t deadline_ms) override {
    if (deadline_ms < 0) {
      cv.wait(lock);
      return false;
    }
    // MonotonicMillis counts the steady clock from its epoch. A deadline
    // beyond a century is waited for a century at a time: the clock's
    // nanoseconds would overflow there.
    constexpr int64_t kFarMs = int64_t{100} * 365 * 24 * 3600 * 1000;
    const int64_t now = MonotonicMillis();
    const int64_t until = deadline_ms - now > kFarMs ? now + kFarMs : deadline_ms;
    std::chrono::steady_clock::time_point at{std::chrono::milliseconds(until)};
    cv.wait_until(lock, at);
    return MonotonicMillis() >= deadline_ms;
  }

  bool GetTimeZoneSetting(std::string* tz) override {
    const char* value = ::getenv("TZ");
    if (value == nullptr) return false;
    *tz = value;
    return true;
  }

  void SetTimeZoneSetting(const std::string* tz) override {
    if (tz != nullptr) {
      ::setenv("TZ", tz->c_str(), 1);
    } else {
      ::unsetenv("TZ");
    }
    ::tzset();
  }

  int ReadTimeZoneBias() override {
    ::tzset();
    // `timezone` is seconds west of UTC for the zone's standard time, which
    // is the bias with daylight saving left out.
    return static_cast<int>(::timezone / 60);
  }
};

int PosixEnv::OpenFile(const std::string& path, uint32_t access, int disposition,
                       std::unique_ptr<EnvFile>* file) {
  file->reset();
  const bool want_read = (access & GENERIC_READ) != 0;
  const bool want_write = (access & GENERIC_WRITE) != 0;
  if (!want_read && !want_write) return ERROR_INVALID_PARAMETER;
  if (disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING) return ERROR_INVALID_PARAMETER;
  if (disposition == TRUNCATE_EXISTING && !want_write) return ERROR_INVALID_PARAMETER;

  // O_NONBLOCK keeps the open itself from waiting on a pipe or a device; the
  // object is refused below unless it is a regular file.
  int base = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  base |= want_read && want_write ? O_RDWR : (want_write ? O_WRONLY : O_RDONLY);

  int fd = -1;
  bool existed = false;
  bool created = false;
  switch (disposition) {
    case CREATE_NEW:
      fd = OpenRetrying(path, base | O_CREAT | O_EXCL);
      if (fd < 0) return errno == EEXIST ? ERROR_FILE_EXISTS : Errno();
      created = true;
      break;
    case OPEN_EXISTING:
      fd = OpenRetrying(path, base);
      break;
    case TRUNCATE_EXISTING:
      fd = OpenRetrying(path, base | O_TRUNC);
      break;
    case CREATE_ALWAYS:
    case OPEN_ALWAYS: {
      // Try to make the file; if the name is taken, open what is there. A
      // file removed in between makes us try again, a few times.
      const int keep = disposition == CREATE_ALWAYS ? O_TRUNC : 0;
      for (int attempt = 0; attempt < 4 && fd < 0; ++attempt) {
        fd = OpenRetrying(path, base | O_CREAT | O_EXCL);
        if (fd >= 0) {
          created = true;
          break;
        }
        if (errno != EEXIST) break;
        fd = OpenRetrying(path, base | keep);
        if (fd >= 0) {
          existed = true;
          break;
        }
        if (errno != ENOENT) break;
      }
      break;
    }
  }
  if (fd < 0) {
    int err = errno;
    // Win32 tells a missing file from a missing folder.
    if (err == ENOENT) {
      struct stat st;
      return ::stat(ParentOf(path).c_str(), &st) == 0 && S_ISDIR(st.st_mode) ? ERROR_FILE_NOT_FOUND
                                                                             : ERROR_PATH_NOT_FOUND;
    }
    if (err == ENXIO || err == ENODEV) return ERROR_ACCESS_DENIED;
    return WinErrorFromErrno(err);
  }

  struct stat st;
  int rc = FstatRetrying(fd, &st);
  if (rc != 0 || !S_ISREG(st.st_mode)) {
    int code = rc != 0 ? Errno() : ERROR_ACCESS_DENIED;
    ::close(fd);
    if (created) ::unlink(path.c_str());
    return code;
  }
  ClearNonBlocking(fd);
  *file = std::make_unique<PosixFile>(fd, want_write);
  return existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS;
}

}  // namespace

Env* Env::Default() {
  static Env* env = new PosixEnv();  // never destroyed: used at exit
  return env;
}

}  // namespace kordll
