#include "kordll/platform/WinFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <limits>
#include <string>

#include "kordll/platform/FaultInjection.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Locations.h"

namespace kordll {

namespace {

constexpr int64_t kMaxPosition = std::numeric_limits<int64_t>::max();

int OpenRetrying(const std::string& path, int flags) {
  int fd;
  do {
    fd = ::open(path.c_str(), flags, 0666);
  } while (fd < 0 && errno == EINTR);
  return fd;
}

void CloseRetrying(int fd) {
  // On Linux the descriptor is released even when close reports EINTR, so a
  // retry could close a descriptor another thread has just been given.
  ::close(fd);
}

}  // namespace

WinFile::~WinFile() {
  std::lock_guard<std::mutex> l(mu_);
  if (fd_ >= 0) CloseRetrying(fd_);
  fd_ = -1;
}

int WinFile::Fail(int code) const {
  last_error_ = code;
  kordll::SetLastError(code);
  return 0;
}

void WinFile::Succeed(int code) const {
  last_error_ = code;
  kordll::SetLastError(code);
}

int WinFile::Open(const CString& path, uint32_t access, uint32_t share, int disposition) {
  (void)share;  // Sharing between handles is not enforced.
  std::lock_guard<std::mutex> l(mu_);
  if (fd_ >= 0) CloseRetrying(fd_);
  fd_ = -1;
  can_read_ = can_write_ = false;
  position_ = 0;
  path_ = path;

  std::string sys;
  if (!FileSystem::ToSystemPath(path, &sys)) return Fail(ERROR_INVALID_NAME);
  const bool want_read = (access & GENERIC_READ) != 0;
  const bool want_write = (access & GENERIC_WRITE) != 0;
  if (!want_read && !want_write) return Fail(ERROR_INVALID_PARAMETER);
  if (disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  if (disposition == TRUNCATE_EXISTING && !want_write) return Fail(ERROR_INVALID_PARAMETER);
  if (FaultInjection::ShouldFail(FaultInjection::kOpen, path)) return Fail(ERROR_ACCESS_DENIED);

  // O_NONBLOCK keeps the open itself from waiting on a pipe or a device; the
  // object is refused below unless it is a regular file.
  int base = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  base |= want_read && want_write ? O_RDWR : (want_write ? O_WRONLY : O_RDONLY);

  int fd = -1;
  bool existed = false;
  bool created = false;
  switch (disposition) {
    case CREATE_NEW:
      fd = OpenRetrying(sys, base | O_CREAT | O_EXCL);
      if (fd < 0) return Fail(errno == EEXIST ? ERROR_FILE_EXISTS : WinErrorFromErrno(errno));
      created = true;
      break;
    case OPEN_EXISTING:
      fd = OpenRetrying(sys, base);
      break;
    case TRUNCATE_EXISTING:
      fd = OpenRetrying(sys, base | O_TRUNC);
      break;
    case CREATE_ALWAYS:
    case OPEN_ALWAYS: {
      // Try to make the file; if the name is taken, open what is there. A
      // file removed in between makes us try again, a few times.
      const int keep = disposition == CREATE_ALWAYS ? O_TRUNC : 0;
      for (int attempt = 0; attempt < 4 && fd < 0; ++attempt) {
        fd = OpenRetrying(sys, base | O_CREAT | O_EXCL);
        if (fd >= 0) {
          created = true;
          break;
        }
        if (errno != EEXIST) break;
        fd = OpenRetrying(sys, base | keep);
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
    if (err == ENOENT && disposition != CREATE_NEW) {
      return Fail(FileSystem::IsFolder(Locations::GetParent(path)) ? ERROR_FILE_NOT_FOUND
                                                                   : ERROR_PATH_NOT_FOUND);
    }
    if (err == ENOENT) return Fail(ERROR_PATH_NOT_FOUND);
    if (err == ENXIO || err == ENODEV) return Fail(ERROR_ACCESS_DENIED);
    return Fail(WinErrorFromErrno(err));
  }

  struct stat st;
  int rc;
  do {
    rc = ::fstat(fd, &st);
  } while (rc != 0 && errno == EINTR);
  if (rc != 0 || !S_ISREG(st.st_mode)) {
    int code = rc != 0 ? WinErrorFromErrno(errno) : ERROR_ACCESS_DENIED;
    CloseRetrying(fd);
    if (created) ::unlink(sys.c_str());
    return Fail(code);
  }
  int fl = ::fcntl(fd, F_GETFL);
  if (fl >= 0) ::fcntl(fd, F_SETFL, fl & ~O_NONBLOCK);

  fd_ = fd;
  can_read_ = want_read;
  can_write_ = want_write;
  Succeed(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
  return 1;
}

int WinFile::Close() {
  std::lock_guard<std::mutex> l(mu_);
  if (fd_ < 0) return Fail(ERROR_INVALID_HANDLE);
  CloseRetrying(fd_);
  fd_ = -1;
  can_read_ = can_write_ = false;
  position_ = 0;
  Succeed();
  return 1;
}

bool WinFile::IsOpen() const {
  std::lock_guard<std::mutex> l(mu_);
  return fd_ >= 0;
}

int64_t WinFile::SetFilePointer(int64_t distance, int method) {
  std::lock_guard<std::mutex> l(mu_);
  if (fd_ < 0) {
    Fail(ERROR_INVALID_HANDLE);
    return -1;
  }
  int64_t origin;
  switch (method) {
    case FILE_BEGIN:
      origin = 0;
      break;
    case FILE_CURRENT:
      origin = position_;
      break;
    case FILE_END: {
      struct stat st;
      if (::fstat(fd_, &st) != 0) {
        Fail(WinErrorFromErrno(errno));
        return -1;
      }
      origin = st.st_size;
      break;
    }
    default:
      Fail(ERROR_INVALID_PARAMETER);
      return -1;
  }
  if (distance > 0 && origin > kMaxPosition - distance) {
    Fail(ERROR_INVALID_PARAMETER);
    return -1;
  }
  int64_t target = origin + distance;
  if (target < 0) {
    Fail(ERROR_NEGATIVE_SEEK);
    return -1;
  }
  position_ = target;
  Succeed();
  return target;
}

int64_t WinFile::GetFilePointer() const {
  std::lock_guard<std::mutex> l(mu_);
  return fd_ < 0 ? -1 : position_;
}

int WinFile::ReadLocked(int64_t* offset, void* buffer, uint32_t count, uint32_t* read) {
  if (read != nullptr) *read = 0;
  if (fd_ < 0) return Fail(ERROR_INVALID_HANDLE);
  if (!can_read_) return Fail(ERROR_ACCESS_DENIED);
  if (buffer == nullptr && count > 0) return Fail(ERROR_INVALID_PARAMETER);
  if (FaultInjection::ShouldFail(FaultInjection::kRead, path_)) return Fail(ERROR_READ_FAULT);

  char* out = static_cast<char*>(buffer);
  uint32_t done = 0;
  int code = ERROR_SUCCESS;
  while (done < count) {
    if (*offset > kMaxPosition - (count - done)) break;  // nothing lies there
    ssize_t n = ::pread(fd_, out + done, count - done, *offset);
    if (n < 0) {
      if (errno == EINTR) continue;
      code = errno == EIO ? ERROR_READ_FAULT : WinErrorFromErrno(errno);
      break;
    }
    if (n == 0) break;  // end of file
    done += static_cast<uint32_t>(n);
    *offset += n;
  }
  if (read != nullptr) *read = done;
  if (code != ERROR_SUCCESS) return Fail(code);
  Succeed();
  return 1;
}

int WinFile::WriteLocked(int64_t* offset, const void* buffer, uint32_t count, uint32_t* written) {
  if (written != nullptr) *written = 0;
  if (fd_ < 0) return Fail(ERROR_INVALID_HANDLE);
  if (!can_write_) return Fail(ERROR_ACCESS_DENIED);
  if (buffer == nullptr && count > 0) return Fail(ERROR_INVALID_PARAMETER);
  uint32_t limit = count;
  if (FaultInjection::ShouldFail(FaultInjection::kWrite, path_)) return Fail(ERROR_DISK_FULL);
  if (FaultInjection::ShouldFail(FaultInjection::kShortWrite, path_)) limit = count / 2;
  if (*offset > kMaxPosition - count) return Fail(ERROR_DISK_FULL);

  const char* in = static_cast<const char*>(buffer);
  uint32_t done = 0;
  int code = ERROR_SUCCESS;
  while (done < limit) {
    ssize_t n = ::pwrite(fd_, in + done, limit - done, *offset);
    if (n < 0) {
      if (errno == EINTR) continue;
      code = WinErrorFromErrno(errno);
      break;
    }
    if (n == 0) {  // the file system took nothing: treat as full
      code = ERROR_DISK_FULL;
      break;
    }
    done += static_cast<uint32_t>(n);
    *offset += n;
  }
  if (written != nullptr) *written = done;
  if (code == ERROR_SUCCESS && done < count) code = ERROR_DISK_FULL;  // injected short write
  if (code != ERROR_SUCCESS) return Fail(code);
  Succeed();
  return 1;
}

int WinFile::ReadFile(void* buffer, uint32_t count, uint32_t* read) {
  std::lock_guard<std::mutex> l(mu_);
  return ReadLocked(&position_, buffer, count, read);
}

int WinFile::WriteFile(const void* buffer, uint32_t count, uint32_t* written) {
  std::lock_guard<std::mutex> l(mu_);
  return WriteLocked(&position_, buffer, count, written);
}

int WinFile::ReadFileAt(int64_t offset, void* buffer, uint32_t count, uint32_t* read) {
  std::lock_guard<std::mutex> l(mu_);
  if (offset < 0) {
    if (read != nullptr) *read = 0;
    return Fail(fd_ < 0 ? ERROR_INVALID_HANDLE : ERROR_NEGATIVE_SEEK);
  }
  return ReadLocked(&offset, buffer, count, read);
}

int WinFile::WriteFileAt(int64_t offset, const void* buffer, uint32_t count, uint32_t* written) {
  std::lock_guard<std::mutex> l(mu_);
  if (offset < 0) {
    if (written != nullptr) *written = 0;
    return Fail(fd_ < 0 ? ERROR_INVALID_HANDLE : ERROR_NEGATIVE_SEEK);
  }
  return WriteLocked(&offset, buffer, count, written);
}

int64_t WinFile::GetFileSize() const {
  std::lock_guard<std::mutex> l(mu_);
  if (fd_ < 0) {
    Fail(ERROR_INVALID_HANDLE);
    return -1;
  }
  struct stat st;
  if (::fstat(fd_, &st) != 0) {
    Fail(WinErrorFromErrno(errno));
    return -1;
  }
  Succeed();
  return st.st_size;
}

int WinFile::SetEndOfFile() {
  std::lock_guard<std::mutex> l(mu_);
  if (fd_ < 0) return Fail(ERROR_INVALID_HANDLE);
  if (!can_write_) return Fail(ERROR_ACCESS_DENIED);
  if (FaultInjection::ShouldFail(FaultInjection::kFlush, path_)) return Fail(ERROR_WRITE_FAULT);
  int rc;
  do {
    rc = ::ftruncate(fd_, position_);
  } while (rc != 0 && errno == EINTR);
  if (rc != 0) return Fail(WinErrorFromErrno(errno));
  Succeed();
  return 1;
}

int WinFile::FlushFileBuffers() {
  std::lock_guard<std::mutex> l(mu_);
  if (fd_ < 0) return Fail(ERROR_INVALID_HANDLE);
  if (FaultInjection::ShouldFail(FaultInjection::kFlush, path_)) return Fail(ERROR_WRITE_FAULT);
  int rc;
  do {
    rc = ::fdatasync(fd_);
  } while (rc != 0 && errno == EINTR);
  // A handle without write access has nothing to flush; Linux may say EINVAL
  // or EBADF for some file systems, which is not a failure of the data.
  if (rc != 0 && errno != EINVAL && !(errno == EBADF && !can_write_)) {
    return Fail(WinErrorFromErrno(errno));
  }
  Succeed();
  return 1;
}

int WinFile::GetLastError() const {
  std::lock_guard<std::mutex> l(mu_);
  return last_error_;
}

CString WinFile::GetPath() const {
  std::lock_guard<std::mutex> l(mu_);
  return path_;
}

}  // namespace kordll
