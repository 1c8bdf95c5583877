// FaultEnv: an Env that passes every call to a base Env, except those a test
// has told it to fail, so that tests can check what a failing disk leaves
// behind.
//
// Usage, injecting the Nth write failure for N = 0, 1, 2, ... until the
// operation under test completes:
//
//   kordll::test::FaultEnv faults(&mem);      // or Env::Current()
//   kordll::ScopedEnv use(&faults);
//   for (int n = 0;; ++n) {
//     faults.Arm(FaultEnv::kWrite, n, FaultEnv::kForever);
//     int ok = db.writeFocusableSlot(...);
//     bool hit = faults.Injected(FaultEnv::kWrite) > 0;
//     faults.DisarmAll();
//     ... check the file is still consistent ...
//     if (!hit) break;
//   }
//
// Files opened through a FaultEnv keep consulting it for as long as they are
// open. Thread-safe.

#ifndef KORDLL_TESTS_SUPPORT_FAULTENV_H_
#define KORDLL_TESTS_SUPPORT_FAULTENV_H_

#include <mutex>
#include <string>

#include "kordll/platform/Env.h"

namespace kordll {
namespace test {

class FaultEnv : public EnvWrapper {
 public:
  // What fails, and how it shows to the caller.
  enum Kind {
    kOpen = 0,    // opening a file fails with ERROR_ACCESS_DENIED, no file made
    kRead,        // a read fails with ERROR_READ_FAULT, nothing read
    kWrite,       // a write writes nothing and fails with ERROR_DISK_FULL
                  // (also the data writes of a copy)
    kShortWrite,  // a write writes the first half of its bytes (rounded
                  // down), then fails with ERROR_DISK_FULL
    kFlush,       // a flush, and cutting or extending a file, fails with
                  // ERROR_WRITE_FAULT
    kFullDisk,    // the disk is full: a write that would make its file
                  // longer writes what fits before the end and fails with
                  // ERROR_DISK_FULL; only such writes are counted
    kMove,        // a move or copy fails with ERROR_ACCESS_DENIED, changing nothing
    kDelete,      // deleting a file or a folder (or a folder tree) fails
                  // with ERROR_ACCESS_DENIED, changing nothing
    kClose,       // closing a file reports ERROR_WRITE_FAULT (it is closed
                  // all the same)
    kKindCount
  };
  static constexpr int kOnce = 1;
  static constexpr int kForever = -1;

  // The base must outlive this object and every file opened through it.
  explicit FaultEnv(Env* base) : EnvWrapper(base) {}

  // Arms one kind: the next `skip` operations of that kind pass, then `count`
  // fail (kForever: every later one). With a non-empty `path_contains`, only
  // operations on paths (for a file: the path it was opened with) holding
  // that text are counted and failed. Replaces an earlier arming of the same
  // kind and resets its Injected count.
  void Arm(Kind kind, int skip, int count, const std::string& path_contains = std::string());
  void DisarmAll();
  // How many operations of this kind have been failed since it was armed.
  int Injected(Kind kind);

  // True: fail this operation of `kind` on `path` now (and count it).
  bool ShouldFail(Kind kind, const std::string& path);

  int OpenFile(const std::string& path, uint32_t access, int disposition,
               std::unique_ptr<EnvFile>* file) override;
  int RemoveFolder(const std::string& path) override;
  int MoveFile(const std::string& from, const std::string& to) override;
  int CopyFile(const std::string& from, const std::string& to, bool fail_if_exists) override;
  int DeleteFile(const std::string& path) override;
  int DeleteFolderTree(const std::string& path) override;

 private:
  struct Plan {
    bool armed = false;
    int skip = 0, count = 0, injected = 0;  // count kForever: no end
    std::string path_contains;
  };

  std::mutex mu_;
  Plan plans_[kKindCount];  // guarded by mu_
};

}  // namespace test
}  // namespace kordll

#endif  // KORDLL_TESTS_SUPPORT_FAULTENV_H_
