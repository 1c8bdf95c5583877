// KorDLL: the foundation library of the Tidrel family of feed readers.
// Including this header gives the whole public surface.

#ifndef KORDLL_KORDLL_H_
#define KORDLL_KORDLL_H_

#include "kordll/platform/CCriticalSection.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/LibraryInfo.h"

#endif  // KORDLL_KORDLL_H_
