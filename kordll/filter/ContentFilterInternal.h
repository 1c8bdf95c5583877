// Helpers shared by the parts of ContentFilter (ContentFilter.cpp and
// ContentFilterMatch.cpp). Private to the library: not part of the
// application's surface.

#ifndef KORDLL_FILTER_CONTENTFILTERINTERNAL_H_
#define KORDLL_FILTER_CONTENTFILTERINTERNAL_H_

#include <memory>
#include <vector>

#include "kordll/filter/ContentFilter.h"
#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CString.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/StoredWordTest.h"

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

// The stored-bytes test of ContentFilter::PreTestTask and the copy of the
// filter's task that carries it, with what they were made for.
struct ContentFilter::PreTest {
  CString word;
  int caseSensitive = 0;
  std::vector<int> fieldIds;
  std::vector<int> tasks;  // those of the task it was made for
  std::unique_ptr<StoredWordTest> test;
  DBTaskItem task{nullptr};
};

}  // namespace kordll

#endif  // KORDLL_FILTER_CONTENTFILTERINTERNAL_H_
