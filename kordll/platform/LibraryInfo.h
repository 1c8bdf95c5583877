// What the library says about itself.

#ifndef KORDLL_PLATFORM_LIBRARYINFO_H_
#define KORDLL_PLATFORM_LIBRARYINFO_H_

extern "C" {
// The library's type tag for hosts that probe it: always 0.
int GetDLLType();
}

namespace kordll {

// The version of the library, "major.minor.patch".
const char* GetLibraryVersion();

}  // namespace kordll

#endif  // KORDLL_PLATFORM_LIBRARYINFO_H_
