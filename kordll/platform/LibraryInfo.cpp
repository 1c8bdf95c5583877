#include "kordll/platform/LibraryInfo.h"

#ifndef KORDLL_VERSION
#define KORDLL_VERSION "0.0.0"
#endif

extern "C" int GetDLLType() { return 0; }

namespace kordll {

const char* GetLibraryVersion() { return KORDLL_VERSION; }

}  // namespace kordll
