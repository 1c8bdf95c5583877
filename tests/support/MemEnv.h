// MemEnv: files and folders kept in memory, for tests that must not touch
// the disk or that want to damage and inspect files freely.
//
// Everything that is not a file or a folder (the clock, the time zone,
// waits) goes to the Env installed when the MemEnv was made, so that a
// ManualClock installed before keeps its meaning. The tree starts with the
// folders "/" and "/tmp". Paths are absolute, "/"-separated; there are no
// symbolic links (CreateSymbolicLink answers ERROR_NOT_SUPPORTED). A file
// removed or replaced while open stays readable through the open file, as
// on POSIX. Answers carry the same codes as the machine's Env.
//
//   kordll::test::MemEnv mem;
//   kordll::ScopedEnv use(&mem);
//   kordll::FileSystem::CreateDirectory("/data");   // in memory only

#ifndef KORDLL_TESTS_SUPPORT_MEMENV_H_
#define KORDLL_TESTS_SUPPORT_MEMENV_H_

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kordll/platform/Env.h"
#include "kordll/platform/WinError.h"

namespace kordll {
namespace test {

class MemEnv : public EnvWrapper {
 public:
  MemEnv();

  int OpenFile(const std::string& path, uint32_t access, int disposition,
               std::unique_ptr<EnvFile>* file) override;
  int CreateFolder(const std::string& path) override;
  int RemoveFolder(const std::string& path) override;
  int ListFolder(const std::string& path, std::vector<std::string>* names) override;
  int Stat(const std::string& path, bool follow_link, EnvStat* stat) override;
  int MoveFile(const std::string& from, const std::string& to) override;
  int CopyFile(const std::string& from, const std::string& to, bool fail_if_exists) override;
  int DeleteFile(const std::string& path) override;
  int CreateSymbolicLink(const std::string&, const std::string&) override {
    return ERROR_NOT_SUPPORTED;
  }
  int DeleteFolderTree(const std::string& path) override { return Env::DeleteFolderTree(path); }
  // Folds "." and ".." of an absolute path whose every part exists.
  int ResolvePath(const std::string& path, std::string* resolved) override;
  int CreateTempFolder(const std::string& prefix, std::string* made) override;

  // The bytes of a file, shared with every open file of it.
  struct Data {
    std::mutex mu;
    std::string bytes;  // guarded by mu
  };

 private:
  struct Node {
    bool folder = false;
    std::shared_ptr<Data> data;  // files only
    uint64_t id = 0;
  };

  // REQUIRES: mu_ held. Where `path` stands: ERROR_SUCCESS with *node set,
  // or the code a missing name gives.
  int FindLocked(const std::string& path, Node** node);
  // REQUIRES: mu_ held. ERROR_SUCCESS if the parent of `path` is a folder.
  int ParentLocked(const std::string& path);
  bool HasChildrenLocked(const std::string& path);
  // REQUIRES: mu_ held. The first name that may lie below `path`.
  std::map<std::string, Node>::iterator FirstBelowLocked(const std::string& path);

  std::mutex mu_;
  // State below is protected by mu_.
  std::map<std::string, Node> nodes_;
  uint64_t next_id_ = 1;
  int temp_count_ = 0;
};

}  // namespace test
}  // namespace kordll

#endif  // KORDLL_TESTS_SUPPORT_MEMENV_H_
