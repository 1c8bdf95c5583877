// Helpers shared by the parts of Focusable (Focusable.cpp,
// FocusableFields.cpp, FocusablePost.cpp, FocusableStatus.cpp). Private to
// the library: not part of the application's surface.

#ifndef KORDLL_RECORD_FOCUSABLEINTERNAL_H_
#define KORDLL_RECORD_FOCUSABLEINTERNAL_H_

#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/record/DoubleItem.h"

namespace kordll {
namespace focusable_internal {

// Gives the value of a double item, reading its text first when the value
// is still unparsed (0.0).
inline double ParsedDouble(DoubleItem* item) {
  if (item->GetValue() == 0.0 && !item->GetText().IsEmpty()) {
    item->SetValue(_wtof(item->GetText()));
  }
  return item->GetValue();
}

}  // namespace focusable_internal
}  // namespace kordll

#endif  // KORDLL_RECORD_FOCUSABLEINTERNAL_H_
