// Fuzz target for the stored filter texts: SetFilter and SetFilterOld read
// text typed by users and stored by older versions. Whatever the bytes,
// reading must end, stay inside the text and the filter's item limit, and
// leave a filter that writes, tells and compares itself without fault.
//
// The input is read as UTF-8 (invalid bytes become U+FFFD). The first byte
// chooses the reader: even SetFilter, odd SetFilterOld; the rest is the text.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "kordll/filter/ContentFilter.h"
#include "kordll/platform/CString.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const kordll::CString text = kordll::CString::FromUtf8(
      std::string_view(reinterpret_cast<const char*>(data) + 1, size - 1));
  kordll::ContentFilter filter;
  if (data[0] % 2 == 0) {
    filter.SetFilter(text);
  } else {
    filter.SetFilterOld(text);
  }
  // Everything a caller does with a filter read from a profile.
  const kordll::CString written = filter.GetFilter();
  filter.CreateStringDefinition();
  filter.GetFilterDefinition();
  filter.ReSetFilterStatus(kordll::ContentFilter::kSearchFilter, 0);
  filter.CreateStringDefinition();
  kordll::ContentFilter copy(filter);
  copy.IsSame(&filter);
  // What a filter writes, it reads again.
  kordll::ContentFilter reread;
  reread.SetFilter(filter.GetFilter());
  reread.GetFilter();
  (void)written;
  return 0;
}
