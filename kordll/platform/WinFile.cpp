#include "kordll/platform/WinFile.h"

#include <cstdint>
#include <limits>
#include <string>

#include "kordll/platform/Env.h"
#include "kordll/platform/FileSystem.h"

namespace kordll {

namespace {

constexpr int64_t kMaxPosition = std::numeric_limits<int64_t>::max();

}  // namespace

WinFile::~WinFile() {
  std::lock_guard<std::mutex> l(mu_);
  file_.reset();
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
  file_.reset();
  can_read_ = can_write_ = false;
  position_ = 0;
  path_ = path;

  std::string sys;
  if (!FileSystem::ToSystemPath(path, &sys)) return Fail(ERROR_INVALID_NAME);
  int code = Env::Current()->OpenFile(sys, access, disposition, &file_);
  if (!file_) return Fail(code == ERROR_SUCCESS ? ERROR_ACCESS_DENIED : code);
  can_read_ = (access & GENERIC_READ) != 0;
  can_write_ = (access & GENERIC_WRITE) != 0;
  Succeed(code);
  return 1;
}

int WinFile::Close() {
  std::lock_guard<std::mutex> l(mu_);
  if (!file_) return Fail(ERROR_INVALID_HANDLE);
  // Some file systems report a failed write only when the file is closed:
  // then the close fails as the write would have. The handle is closed
  // either way.
  const int code = file_->Close();
  file_.reset();
  can_read_ = can_write_ = false;
  position_ = 0;
  if (code != ERROR_SUCCESS) return Fail(code);
  Succeed();
  return 1;
}

bool WinFile::IsOpen() const {
  std::lock_guard<std::mutex> l(mu_);
  return file_ != nullptr;
}

int64_t WinFile::SetFilePointer(int64_t distance, int method) {
  std::lock_guard<std::mutex> l(mu_);
  if (!file_) {
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
      int code = file_->GetSize(&origin);
      if (code != ERROR_SUCCESS) {
        Fail(code);
        return -1;
      }
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
  return file_ ? position_ : -1;
}

int WinFile::ReadLocked(int64_t* offset, void* buffer, uint32_t count, uint32_t* read) {
  if (read != nullptr) *read = 0;
  if (!file_) return Fail(ERROR_INVALID_HANDLE);
  if (!can_read_) return Fail(ERROR_ACCESS_DENIED);
  if (buffer == nullptr && count > 0) return Fail(ERROR_INVALID_PARAMETER);
  uint32_t done = 0;
  int code = ERROR_SUCCESS;
  if (*offset <= kMaxPosition - count) {  // else nothing lies there
    code = file_->ReadAt(*offset, buffer, count, &done);
    *offset += done;
  }
  if (read != nullptr) *read = done;
  if (code != ERROR_SUCCESS) return Fail(code);
  Succeed();
  return 1;
}

int WinFile::WriteLocked(int64_t* offset, const void* buffer, uint32_t count, uint32_t* written) {
  if (written != nullptr) *written = 0;
  if (!file_) return Fail(ERROR_INVALID_HANDLE);
  if (!can_write_) return Fail(ERROR_ACCESS_DENIED);
  if (buffer == nullptr && count > 0) return Fail(ERROR_INVALID_PARAMETER);
  if (*offset > kMaxPosition - count) return Fail(ERROR_DISK_FULL);
  uint32_t done = 0;
  int code = file_->WriteAt(*offset, buffer, count, &done);
  *offset += done;
  if (written != nullptr) *written = done;
  if (code == ERROR_SUCCESS && done < count) code = ERROR_DISK_FULL;
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
    return Fail(!file_ ? ERROR_INVALID_HANDLE : ERROR_NEGATIVE_SEEK);
  }
  return ReadLocked(&offset, buffer, count, read);
}

int WinFile::WriteFileAt(int64_t offset, const void* buffer, uint32_t count, uint32_t* written) {
  std::lock_guard<std::mutex> l(mu_);
  if (offset < 0) {
    if (written != nullptr) *written = 0;
    return Fail(!file_ ? ERROR_INVALID_HANDLE : ERROR_NEGATIVE_SEEK);
  }
  return WriteLocked(&offset, buffer, count, written);
}

int64_t WinFile::GetFileSize() const {
  std::lock_guard<std::mutex> l(mu_);
  if (!file_) {
    Fail(ERROR_INVALID_HANDLE);
    return -1;
  }
  int64_t size = -1;
  int code = file_->GetSize(&size);
  if (code != ERROR_SUCCESS) {
    Fail(code);
    return -1;
  }
  Succeed();
  return size;
}

int WinFile::SetEndOfFile() {
  std::lock_guard<std::mutex> l(mu_);
  if (!file_) return Fail(ERROR_INVALID_HANDLE);
  if (!can_write_) return Fail(ERROR_ACCESS_DENIED);
  int code = file_->Truncate(position_);
  if (code != ERROR_SUCCESS) return Fail(code);
  Succeed();
  return 1;
}

int WinFile::FlushFileBuffers() {
  std::lock_guard<std::mutex> l(mu_);
  if (!file_) return Fail(ERROR_INVALID_HANDLE);
  int code = file_->Flush();
  if (code != ERROR_SUCCESS) return Fail(code);
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
