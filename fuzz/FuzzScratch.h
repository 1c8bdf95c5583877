// What every fuzz target that touches files or the registry needs once per
// process: a scratch folder removed at exit, and a host that answers
// message boxes as closed without printing them.

#ifndef KORDLL_FUZZ_FUZZSCRATCH_H_
#define KORDLL_FUZZ_FUZZSCRATCH_H_

#include <cstdlib>

#include "kordll/platform/CString.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/HeadlessHost.h"

namespace kordll_fuzz {

// A fresh folder named after prefix, made on the first call and removed when
// the process exits. The same folder is answered to every later call (one
// prefix per process). Never destroyed, so that the exit handler still
// finds it.
inline const kordll::CString& ScratchFolder(const char* prefix) {
  static const kordll::CString* folder = [prefix] {
    auto* made = new kordll::CString();
    if (kordll::FileSystem::CreateTempFolder(kordll::CString(prefix), made) != 1) __builtin_trap();
    std::atexit([] { kordll::FileSystem::DeleteFolderTree(*folder); });
    return made;
  }();
  return *folder;
}

// The headless host without its printing: message boxes are counted and
// answered as closed.
class QuietHost : public kordll::HeadlessHost {
 public:
  int MessageBox(const kordll::CString&, const kordll::CString&, unsigned type) override {
    ++boxes;
    return ClosedMessageBoxAnswer(type);
  }
  int boxes = 0;
};

}  // namespace kordll_fuzz

#endif  // KORDLL_FUZZ_FUZZSCRATCH_H_
