// Strips markup from hostile text with EscapeHTML, with a tag list and a
// flag also taken from the input.
//
// Input: fields (see FuzzFields.h). Field 0 is the flag (its number), the
// last field the text, the fields between the tag list.
//
// What must hold: the list and the flag change nothing; text without "<"
// comes back as it is; otherwise at least the "<" goes, and what is left is
// the input with pieces taken out, in order, never anything new.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "FuzzFields.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/platform/CString.h"
#include "kordll/toolkit/KorlanHTMLCtrl.h"

namespace {

// True if every unit of part occurs in whole in the same order.
bool IsSubsequence(const std::u16string& part, const std::u16string& whole) {
  size_t j = 0;
  for (char16_t c : part) {
    while (j < whole.size() && whole[j] != c) ++j;
    if (j == whole.size()) return false;
    ++j;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using kordll::CString;
  using kordll::KorlanHTMLCtrl;
  using kordll_fuzz::Check;
  const std::vector<kordll_fuzz::Field> fields = kordll_fuzz::SplitFields(data, size, 64);
  const int flag = kordll::_wtoi(kordll_fuzz::FieldAt(fields, 0).text);
  const CString text = fields.size() > 1 ? fields.back().text : CString();
  kordll::CArray<CString, CString> tags;
  for (size_t i = 1; i + 1 < fields.size(); ++i) tags.push_back(fields[i].text);

  const CString stripped = KorlanHTMLCtrl::EscapeHTML(text, &tags, flag);
  Check(KorlanHTMLCtrl::EscapeHTML(text, nullptr, 0) == stripped);
  Check(KorlanHTMLCtrl::EscapeHTML(text, &tags, ~flag) == stripped);
  if (text.Find(u'<') < 0) {
    Check(stripped == text);
  } else {
    Check(stripped.GetLength() < text.GetLength());
    Check(IsSubsequence(stripped.str(), text.str()));
  }
  // Escaped text has no markup left to strip.
  const CString escaped = KorlanHTMLCtrl::NormalizeHTML(text);
  Check(KorlanHTMLCtrl::EscapeHTML(escaped, &tags, flag) == escaped);
  return 0;
}
