// Fuzz target for the stored filter texts: SetFilter and SetFilterOld read
// text typed by users and stored by older versions. Whatever the bytes,
// reading must end, stay inside the text and the filter's item limit, and
// leave a filter that writes, tells and compares itself without fault, and
// that tests a post (the items the text made, of whatever type, against the
// post's fields) without fault and without leaving a reservation behind.
//
// The input is read as UTF-8 (invalid bytes become U+FFFD). The first byte
// chooses the reader: even SetFilter, odd SetFilterOld; the rest is the text.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "kordll/filter/ContentFilter.h"
#include "kordll/platform/CString.h"
#include "kordll/record/Focusable.h"
#include "kordll/schema/GlobalRelationsCtrl.h"

namespace {

// A post in memory, held as a controller holds it, with text in the fields
// a filter reads.
void TestPost(kordll::ContentFilter* filter) {
  constexpr int kController = 3;
  auto* post = new kordll::Focusable(4, nullptr);
  post->ReserveHeader(kController);
  post->SetFocusableStatus(2);
  post->SetPostTitle(kordll::CString(u"Kernel release: notes (art) 42"));
  post->SetValueStr(7, kordll::CString(u"  A body\twith \u00dcber-text, w0 and 7 "), 1);
  // One test leaves at most the one reservation an accepted, loaded record
  // owes its caller.
  for (int loadOnAccept = 0; loadOnAccept < 2; ++loadOnAccept) {
    filter->CheckFocusable(post, loadOnAccept);
    if (post->GetReferenceCount() > 1) __builtin_trap();
    while (post->GetReferenceCount() > 0) post->Release(nullptr);
  }
  post->ReleaseHeader(kController);  // deletes it
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The catalogue gives posts their layout; one for the whole run.
  static kordll::GlobalRelationsCtrl* catalogue = new kordll::GlobalRelationsCtrl();
  (void)catalogue;
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
  TestPost(&filter);
  filter.ReSetFilterStatus(
      kordll::ContentFilter::kWordDependent | kordll::ContentFilter::kExactMatch,
      kordll::ContentFilter::kWholeWordOnly);
  TestPost(&filter);
  return 0;
}
