// Helpers shared by the parts of ContentFilter (ContentFilter.cpp and
// ContentFilterMatch.cpp). Private to the library: not part of the
// application's surface.

#ifndef KORDLL_FILTER_CONTENTFILTERINTERNAL_H_
#define KORDLL_FILTER_CONTENTFILTERINTERNAL_H_

#include "kordll/platform/COleDateTime.h"

namespace kordll {
namespace content_filter_internal {

// The date at hour:minute:second of its day; invalid when date is not
// valid, since its parts then form no date.
inline COleDateTime AtTimeOfDay(const COleDateTime& date, int hour, int minute, int second) {
  COleDateTime result;
  result.SetDateTime(date.GetYear(), date.GetMonth(), date.GetDay(), hour, minute, second);
  return result;
}

}  // namespace content_filter_internal
}  // namespace kordll

#endif  // KORDLL_FILTER_CONTENTFILTERINTERNAL_H_
