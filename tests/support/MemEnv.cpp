#include "tests/support/MemEnv.h"

#include <algorithm>
#include <limits>

#include "kordll/platform/WinError.h"
#include "kordll/platform/WinFile.h"

namespace kordll {
namespace test {

namespace {

constexpr int64_t kMaxSize = int64_t{1} << 40;  // a memory "disk" is full beyond this

std::string Trim(const std::string& path) {
  std::string p = path;
  while (p.size() > 1 && p.back() == '/') p.pop_back();
  return p;
}

std::string ParentOf(const std::string& path) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) return std::string();
  return slash == 0 ? "/" : path.substr(0, slash);
}

bool IsBelow(const std::string& path, const std::string& folder) {
  const std::string prefix = folder == "/" ? "/" : folder + "/";
  return path.size() > prefix.size() && path.compare(0, prefix.size(), prefix) == 0;
}

class MemFile : public EnvFile {
 public:
  explicit MemFile(std::shared_ptr<MemEnv::Data> data) : data_(std::move(data)) {}

  int ReadAt(int64_t offset, void* buffer, uint32_t count, uint32_t* read) override {
    std::lock_guard<std::mutex> l(data_->mu);
    const std::string& b = data_->bytes;
    *read = static_cast<uint32_t>(
        std::clamp<int64_t>(static_cast<int64_t>(b.size()) - offset, 0, count));
    if (*read > 0) std::copy_n(b.data() + offset, *read, static_cast<char*>(buffer));
    return ERROR_SUCCESS;
  }

  int WriteAt(int64_t offset, const void* buffer, uint32_t count, uint32_t* written) override {
    std::lock_guard<std::mutex> l(data_->mu);
    *written = 0;
    if (offset > kMaxSize - count) return ERROR_DISK_FULL;
    std::string& b = data_->bytes;
    if (b.size() < static_cast<size_t>(offset) + count) b.resize(offset + count);
    std::copy_n(static_cast<const char*>(buffer), count, b.data() + offset);
    *written = count;
    return ERROR_SUCCESS;
  }

  int GetSize(int64_t* size) override {
    std::lock_guard<std::mutex> l(data_->mu);
    return *size = static_cast<int64_t>(data_->bytes.size()), ERROR_SUCCESS;
  }

  int Truncate(int64_t size) override {
    if (size < 0 || size > kMaxSize) return ERROR_DISK_FULL;
    std::lock_guard<std::mutex> l(data_->mu);
    return data_->bytes.resize(static_cast<size_t>(size)), ERROR_SUCCESS;
  }

  int Flush() override { return ERROR_SUCCESS; }

 private:
  std::shared_ptr<MemEnv::Data> data_;
};

}  // namespace

MemEnv::MemEnv() : EnvWrapper(Env::Current()) {
  nodes_["/"] = Node{true, nullptr, next_id_++};
  nodes_["/tmp"] = Node{true, nullptr, next_id_++};
}

int MemEnv::FindLocked(const std::string& path, Node** node) {
  if (auto it = nodes_.find(Trim(path)); it != nodes_.end())
    return *node = &it->second, ERROR_SUCCESS;
  // A file on the way makes the path impossible rather than missing.
  for (std::string p = ParentOf(Trim(path)); !p.empty() && p != "/"; p = ParentOf(p)) {
    auto up = nodes_.find(p);
    if (up != nodes_.end()) return up->second.folder ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
  }
  return ERROR_FILE_NOT_FOUND;
}

int MemEnv::ParentLocked(const std::string& path) {
  auto it = nodes_.find(ParentOf(Trim(path)));
  return it != nodes_.end() && it->second.folder ? ERROR_SUCCESS : ERROR_PATH_NOT_FOUND;
}

std::map<std::string, MemEnv::Node>::iterator MemEnv::FirstBelowLocked(const std::string& path) {
  // Names below "p" start with "p/"; names such as "p.x" sort between.
  return path == "/" ? nodes_.upper_bound(path) : nodes_.lower_bound(path + "/");
}

bool MemEnv::HasChildrenLocked(const std::string& path) {
  auto it = FirstBelowLocked(path);
  return it != nodes_.end() && IsBelow(it->first, path);
}

int MemEnv::OpenFile(const std::string& raw, uint32_t access, int disposition,
                     std::unique_ptr<EnvFile>* file) {
  file->reset();
  if ((access & (GENERIC_READ | GENERIC_WRITE)) == 0) return ERROR_INVALID_PARAMETER;
  if (disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING) return ERROR_INVALID_PARAMETER;
  if (disposition == TRUNCATE_EXISTING && !(access & GENERIC_WRITE)) return ERROR_INVALID_PARAMETER;
  const std::string path = Trim(raw);
  std::lock_guard<std::mutex> l(mu_);
  Node* node = nullptr;
  int code = FindLocked(path, &node);
  if (code == ERROR_SUCCESS) {
    if (node->folder) return ERROR_ACCESS_DENIED;
    if (disposition == CREATE_NEW) return ERROR_FILE_EXISTS;
    if (disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING) {
      std::lock_guard<std::mutex> d(node->data->mu);
      node->data->bytes.clear();
    }
    *file = std::make_unique<MemFile>(node->data);
    return disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS ? ERROR_ALREADY_EXISTS
                                                                      : ERROR_SUCCESS;
  }
  if (code != ERROR_FILE_NOT_FOUND || ParentLocked(path) != ERROR_SUCCESS)
    return ERROR_PATH_NOT_FOUND;
  if (disposition == OPEN_EXISTING || disposition == TRUNCATE_EXISTING) return ERROR_FILE_NOT_FOUND;
  Node& made = nodes_[path];
  made = Node{false, std::make_shared<Data>(), next_id_++};
  *file = std::make_unique<MemFile>(made.data);
  return ERROR_SUCCESS;
}

int MemEnv::CreateFolder(const std::string& raw) {
  const std::string path = Trim(raw);
  std::lock_guard<std::mutex> l(mu_);
  Node* node = nullptr;
  if (FindLocked(path, &node) == ERROR_SUCCESS) return ERROR_ALREADY_EXISTS;
  if (ParentLocked(path) != ERROR_SUCCESS) return ERROR_PATH_NOT_FOUND;
  nodes_[path] = Node{true, nullptr, next_id_++};
  return ERROR_SUCCESS;
}

int MemEnv::RemoveFolder(const std::string& raw) {
  const std::string path = Trim(raw);
  std::lock_guard<std::mutex> l(mu_);
  Node* node = nullptr;
  if (int code = FindLocked(path, &node); code != ERROR_SUCCESS) return code;
  if (!node->folder) return ERROR_DIRECTORY;
  if (HasChildrenLocked(path)) return ERROR_DIR_NOT_EMPTY;
  if (path == "/") return ERROR_ACCESS_DENIED;
  nodes_.erase(path);
  return ERROR_SUCCESS;
}

int MemEnv::ListFolder(const std::string& raw, std::vector<std::string>* names) {
  names->clear();
  const std::string path = Trim(raw);
  std::lock_guard<std::mutex> l(mu_);
  Node* node = nullptr;
  if (FindLocked(path, &node) != ERROR_SUCCESS || !node->folder) return ERROR_PATH_NOT_FOUND;
  const size_t skip = path == "/" ? 1 : path.size() + 1;
  for (auto it = FirstBelowLocked(path); it != nodes_.end() && IsBelow(it->first, path); ++it) {
    if (it->first.find('/', skip) == std::string::npos) names->push_back(it->first.substr(skip));
  }
  return ERROR_SUCCESS;
}

int MemEnv::Stat(const std::string& path, bool /*follow_link: no links here*/, EnvStat* stat) {
  std::lock_guard<std::mutex> l(mu_);
  Node* node = nullptr;
  if (int code = FindLocked(path, &node); code != ERROR_SUCCESS) return code;
  *stat = EnvStat();
  stat->is_folder = node->folder;
  stat->is_file = !node->folder;
  stat->node = node->id;
  if (!node->folder) {
    std::lock_guard<std::mutex> d(node->data->mu);
    stat->size = static_cast<int64_t>(node->data->bytes.size());
  }
  return ERROR_SUCCESS;
}

int MemEnv::MoveFile(const std::string& raw_from, const std::string& raw_to) {
  const std::string from = Trim(raw_from), to = Trim(raw_to);
  std::lock_guard<std::mutex> l(mu_);
  Node* node = nullptr;
  if (int code = FindLocked(from, &node); code != ERROR_SUCCESS) return code;
  if (FindLocked(to, &node) == ERROR_SUCCESS) return ERROR_ALREADY_EXISTS;
  if (ParentLocked(to) != ERROR_SUCCESS) return ERROR_PATH_NOT_FOUND;
  if (from == "/" || IsBelow(to, from)) return ERROR_INVALID_PARAMETER;
  // The name and everything below it move together.
  std::vector<std::pair<std::string, Node>> moved = {{to, nodes_[from]}};
  nodes_.erase(from);
  for (auto it = FirstBelowLocked(from); it != nodes_.end() && IsBelow(it->first, from);) {
    moved.emplace_back(to + it->first.substr(from.size()), it->second);
    it = nodes_.erase(it);
  }
  for (auto& [name, n] : moved) nodes_[name] = n;
  return ERROR_SUCCESS;
}

int MemEnv::CopyFile(const std::string& from, const std::string& to, bool fail_if_exists) {
  return CopyFileByChunks(from, to, fail_if_exists);
}

int MemEnv::DeleteFile(const std::string& raw) {
  const std::string path = Trim(raw);
  std::lock_guard<std::mutex> l(mu_);
  Node* node = nullptr;
  if (int code = FindLocked(path, &node); code != ERROR_SUCCESS) return code;
  if (node->folder) return ERROR_ACCESS_DENIED;
  nodes_.erase(path);
  return ERROR_SUCCESS;
}

int MemEnv::ResolvePath(const std::string& path, std::string* resolved) {
  if (path.empty() || path[0] != '/') return ERROR_PATH_NOT_FOUND;
  std::string out = "/";
  for (size_t start = 1, end; start <= path.size(); start = end + 1) {
    end = std::min(path.find('/', start), path.size());
    const std::string part = path.substr(start, end - start);
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      out = ParentOf(out);
      continue;
    }
    out = (out == "/" ? "" : out) + "/" + part;
    EnvStat st;
    if (int code = Stat(out, /*follow_link=*/true, &st); code != ERROR_SUCCESS) return code;
  }
  *resolved = out;
  return ERROR_SUCCESS;
}

int MemEnv::CreateTempFolder(const std::string& prefix, std::string* made) {
  for (;;) {
    std::string name;
    {
      std::lock_guard<std::mutex> l(mu_);
      name = prefix + std::to_string(100000 + temp_count_++);
    }
    int code = CreateFolder(name);
    if (code == ERROR_SUCCESS) *made = name;
    if (code != ERROR_ALREADY_EXISTS) return code;
  }
}

}  // namespace test
}  // namespace kordll
