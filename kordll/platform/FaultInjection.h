// FaultInjection: a test switch in the file layer that makes chosen file
// operations fail, so that tests can check what a full disk, a failing read
// or a refused open leaves behind.
//
// Usage, injecting the Nth write failure for N = 0, 1, 2, ... until the
// operation under test completes:
//
//   for (int n = 0;; ++n) {
//     FaultInjection::Arm(FaultInjection::kWrite, n, FaultInjection::kForever);
//     int ok = db.writeFocusableSlot(...);
//     bool hit = FaultInjection::Injected(FaultInjection::kWrite) > 0;
//     FaultInjection::DisarmAll();
//     ... check the file is still consistent ...
//     if (!hit) break;
//   }
//
// When nothing is armed, the check in each file operation is one relaxed
// atomic load. The switch is process-wide; arming and disarming are
// thread-safe, but tests that arm it should not run file work on other
// threads that they do not expect to fail.

#ifndef KORDLL_PLATFORM_FAULTINJECTION_H_
#define KORDLL_PLATFORM_FAULTINJECTION_H_

#include <atomic>

#include "kordll/platform/CString.h"

namespace kordll {

class FaultInjection {
 public:
  // What fails, and how it shows to the caller.
  enum Kind {
    kOpen = 0,    // WinFile::Open fails with ERROR_ACCESS_DENIED, no file made
    kRead,        // WinFile::ReadFile fails with ERROR_READ_FAULT, nothing read
    kWrite,       // WinFile::WriteFile writes nothing and fails with
                  // ERROR_DISK_FULL (also the data writes of CopyFile)
    kShortWrite,  // WinFile::WriteFile writes the first half of the bytes
                  // (rounded down), then fails with ERROR_DISK_FULL
    kFlush,       // WinFile::FlushFileBuffers and SetEndOfFile fail with
                  // ERROR_WRITE_FAULT
    kMove,        // FileSystem::MoveFile and CopyFile fail with
                  // ERROR_ACCESS_DENIED and change nothing
    kDelete,      // FileSystem::DeleteFile and RemoveDirectory fail with
                  // ERROR_ACCESS_DENIED and change nothing
    kKindCount
  };

  static constexpr int kForever = -1;

  // Arms one kind: the next `skip` operations of that kind pass, then `count`
  // fail (kForever: every later one). With a non-empty `path_contains`, only
  // operations on paths (for WinFile: the path it was opened with) whose
  // UTF-8 text contains it are counted and failed. Replaces an earlier arming
  // of the same kind and resets its Injected count.
  static void Arm(Kind kind, int skip, int count, const CString& path_contains = CString());
  static void Disarm(Kind kind);
  static void DisarmAll();

  // How many operations of this kind have been failed since it was armed.
  static int Injected(Kind kind);

  // Called by the file layer before doing the operation: true means "fail it
  // now". Cheap when nothing is armed.
  static bool ShouldFail(Kind kind, const CString& path) {
    if (!armed_.load(std::memory_order_relaxed)) return false;
    return ShouldFailSlow(kind, path);
  }

 private:
  static bool ShouldFailSlow(Kind kind, const CString& path);

  static std::atomic<bool> armed_;  // true while any kind is armed
};

}  // namespace kordll

#endif  // KORDLL_PLATFORM_FAULTINJECTION_H_
