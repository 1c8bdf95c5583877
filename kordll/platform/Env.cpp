#include "kordll/platform/Env.h"

#include <atomic>

#include "kordll/platform/Clock.h"
#include "kordll/platform/WinError.h"
#include "kordll/platform/WinFile.h"

namespace kordll {

namespace {

constexpr int kMaxTreeDepth = 256;
constexpr uint32_t kCopyChunk = 64 * 1024;

std::atomic<Env*> g_installed{nullptr};

std::string Child(const std::string& folder, const std::string& name) {
  return folder == "/" ? "/" + name : folder + "/" + name;
}

// Removes everything below `folder` (a folder, not a link). False if
// anything stayed.
bool EmptyFolder(Env* env, const std::string& folder, int depth) {
  std::vector<std::string> names;
  if (env->ListFolder(folder, &names) != ERROR_SUCCESS) return false;
  bool ok = true;
  for (const std::string& name : names) {
    const std::string path = Child(folder, name);
    EnvStat st;
    int code = env->Stat(path, /*follow_link=*/false, &st);
    if (code != ERROR_SUCCESS) {
      if (code != ERROR_FILE_NOT_FOUND) ok = false;
      continue;
    }
    if (st.is_folder) {
      if (depth >= kMaxTreeDepth || !EmptyFolder(env, path, depth + 1)) ok = false;
      if (env->RemoveFolder(path) != ERROR_SUCCESS) ok = false;
    } else if ((code = env->DeleteFile(path)) != ERROR_SUCCESS && code != ERROR_FILE_NOT_FOUND) {
      ok = false;
    }
  }
  return ok;
}

}  // namespace

Env* Env::Current() {
  Env* env = g_installed.load(std::memory_order_acquire);
  return env != nullptr ? env : Default();
}

Env* Env::SetForTesting(Env* env) {
  Env* previous = g_installed.exchange(env, std::memory_order_acq_rel);
  Clock::NotifyListeners();
  return previous;
}

int Env::DeleteFolderTree(const std::string& path) {
  EnvStat st;
  int code = Stat(path, /*follow_link=*/false, &st);
  if (code == ERROR_FILE_NOT_FOUND) return ERROR_PATH_NOT_FOUND;
  if (code != ERROR_SUCCESS) return code;
  if (!st.is_folder) return ERROR_DIRECTORY;
  const bool emptied = EmptyFolder(this, path, 1);
  code = RemoveFolder(path);
  if (code != ERROR_SUCCESS) return emptied ? code : ERROR_DIR_NOT_EMPTY;
  return ERROR_SUCCESS;
}

int Env::CopyFileByChunks(const std::string& from, const std::string& to, bool fail_if_exists) {
  EnvStat source;
  int code = Stat(from, /*follow_link=*/true, &source);
  if (code != ERROR_SUCCESS) return code;
  if (!source.is_file) return ERROR_ACCESS_DENIED;
  EnvStat target;
  if (Stat(to, /*follow_link=*/true, &target) == ERROR_SUCCESS) {
    if (fail_if_exists) return ERROR_FILE_EXISTS;
    if (!target.is_file) return ERROR_ACCESS_DENIED;
    if (target.device == source.device && target.node == source.node) {
      return ERROR_SHARING_VIOLATION;
    }
  }
  std::unique_ptr<EnvFile> in, out;
  code = OpenFile(from, GENERIC_READ, OPEN_EXISTING, &in);
  if (code != ERROR_SUCCESS) return code;
  code = OpenFile(to, GENERIC_WRITE, fail_if_exists ? CREATE_NEW : CREATE_ALWAYS, &out);
  if (code != ERROR_SUCCESS && code != ERROR_ALREADY_EXISTS) return code;
  const bool created = code == ERROR_SUCCESS;
  std::vector<char> buffer(kCopyChunk);
  int64_t offset = 0;
  code = ERROR_SUCCESS;
  for (;;) {
    uint32_t got = 0, put = 0;
    code = in->ReadAt(offset, buffer.data(), kCopyChunk, &got);
    if (code != ERROR_SUCCESS || got == 0) break;
    code = out->WriteAt(offset, buffer.data(), got, &put);
    if (code != ERROR_SUCCESS) break;
    offset += got;
  }
  out.reset();
  if (code != ERROR_SUCCESS && created) DeleteFile(to);
  return code;
}

}  // namespace kordll
