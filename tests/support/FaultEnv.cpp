#include "tests/support/FaultEnv.h"

#include <algorithm>

#include "kordll/platform/WinError.h"

namespace kordll {
namespace test {

namespace {

bool ValidKind(int kind) { return kind >= 0 && kind < FaultEnv::kKindCount; }

class FaultFile : public EnvFileWrapper {
 public:
  FaultFile(FaultEnv* env, std::string path, std::unique_ptr<EnvFile> base)
      : EnvFileWrapper(std::move(base)), env_(env), path_(std::move(path)) {}

  int ReadAt(int64_t offset, void* buffer, uint32_t count, uint32_t* read) override {
    if (!env_->ShouldFail(FaultEnv::kRead, path_))
      return EnvFileWrapper::ReadAt(offset, buffer, count, read);
    *read = 0;
    return ERROR_READ_FAULT;
  }

  int WriteAt(int64_t offset, const void* buffer, uint32_t count, uint32_t* written) override {
    *written = 0;
    if (Fails(FaultEnv::kWrite)) return ERROR_DISK_FULL;
    uint32_t limit = Fails(FaultEnv::kShortWrite) ? count / 2 : count;
    int64_t size = 0;
    if (GetSize(&size) == ERROR_SUCCESS && offset + count > size && Fails(FaultEnv::kFullDisk)) {
      limit = offset >= size ? 0 : std::min<uint32_t>(limit, static_cast<uint32_t>(size - offset));
    }
    int code = limit > 0 ? EnvFileWrapper::WriteAt(offset, buffer, limit, written) : ERROR_SUCCESS;
    if (code == ERROR_SUCCESS && *written < count) code = ERROR_DISK_FULL;
    return code;
  }

  int Truncate(int64_t size) override {
    return Fails(FaultEnv::kFlush) ? ERROR_WRITE_FAULT : EnvFileWrapper::Truncate(size);
  }
  int Flush() override {
    return Fails(FaultEnv::kFlush) ? ERROR_WRITE_FAULT : EnvFileWrapper::Flush();
  }
  // Closed all the same when the close is made to fail.
  int Close() override {
    const int code = EnvFileWrapper::Close();
    return Fails(FaultEnv::kClose) ? ERROR_WRITE_FAULT : code;
  }

 private:
  bool Fails(FaultEnv::Kind kind) { return env_->ShouldFail(kind, path_); }

  FaultEnv* const env_;
  const std::string path_;
};

}  // namespace

void FaultEnv::Arm(Kind kind, int skip, int count, const std::string& path_contains) {
  if (!ValidKind(kind)) return;
  std::lock_guard<std::mutex> l(mu_);
  Plan& p = plans_[kind];
  p.armed = count != 0;
  p.skip = skip < 0 ? 0 : skip;
  p.count = count < 0 ? kForever : count;
  p.injected = 0;
  p.path_contains = path_contains;
}

void FaultEnv::DisarmAll() {
  std::lock_guard<std::mutex> l(mu_);
  for (Plan& p : plans_) p.armed = false;
}

int FaultEnv::Injected(Kind kind) {
  if (!ValidKind(kind)) return 0;
  std::lock_guard<std::mutex> l(mu_);
  return plans_[kind].injected;
}

bool FaultEnv::ShouldFail(Kind kind, const std::string& path) {
  if (!ValidKind(kind)) return false;
  std::lock_guard<std::mutex> l(mu_);
  Plan& p = plans_[kind];
  if (!p.armed) return false;
  if (!p.path_contains.empty() && path.find(p.path_contains) == std::string::npos) return false;
  if (p.skip > 0) return --p.skip, false;
  if (p.count == 0) return false;
  if (p.count != kForever) --p.count;
  ++p.injected;
  return true;
}

int FaultEnv::OpenFile(const std::string& path, uint32_t access, int disposition,
                       std::unique_ptr<EnvFile>* file) {
  file->reset();
  if (ShouldFail(kOpen, path)) return ERROR_ACCESS_DENIED;
  std::unique_ptr<EnvFile> opened;
  int code = base()->OpenFile(path, access, disposition, &opened);
  if (opened) *file = std::make_unique<FaultFile>(this, path, std::move(opened));
  return code;
}

int FaultEnv::RemoveFolder(const std::string& path) {
  return ShouldFail(kDelete, path) ? ERROR_ACCESS_DENIED : base()->RemoveFolder(path);
}

int FaultEnv::MoveFile(const std::string& from, const std::string& to) {
  return ShouldFail(kMove, from) ? ERROR_ACCESS_DENIED : base()->MoveFile(from, to);
}

int FaultEnv::CopyFile(const std::string& from, const std::string& to, bool fail_if_exists) {
  if (ShouldFail(kMove, from)) return ERROR_ACCESS_DENIED;
  // Through this Env's own files, so that their writes can fail.
  return CopyFileByChunks(from, to, fail_if_exists);
}

int FaultEnv::DeleteFile(const std::string& path) {
  return ShouldFail(kDelete, path) ? ERROR_ACCESS_DENIED : base()->DeleteFile(path);
}

int FaultEnv::DeleteFolderTree(const std::string& path) {
  return ShouldFail(kDelete, path) ? ERROR_ACCESS_DENIED : base()->DeleteFolderTree(path);
}

}  // namespace test
}  // namespace kordll
