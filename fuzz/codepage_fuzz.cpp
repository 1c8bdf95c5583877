// Fuzzes the code page conversions with bytes from outside: the first two
// input bytes choose the code page (from the families the library meets, or
// as a raw number), the rest is decoded, encoded back and decoded through the
// Win32-shaped calls with buffers of every size class.
// Invariants that must hold for every input end the run with a trap.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kordll/platform/CString.h"
#include "kordll/platform/CodePage.h"

namespace {

using kordll::CodePage;
using kordll::CString;

void Check(bool ok) {
  if (!ok) __builtin_trap();
}

const unsigned kCodePages[] = {0,     1252,  65001, 932,   936,   949,   950,   874,   1250,
                               1251,  1253,  1254,  1255,  1256,  1257,  1258,  437,   850,
                               28591, 28592, 28605, 20127, 1200,  1201,  54936, 50220, 65000,
                               20866, 21866, 51932, 51949, 52936, 10000, 37,    1140};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  unsigned selector = data[0] | (data[1] << 8);
  constexpr size_t kCount = sizeof(kCodePages) / sizeof(kCodePages[0]);
  unsigned code_page = selector < 0x8000 ? kCodePages[selector % kCount] : selector;
  std::string_view bytes(reinterpret_cast<const char*>(data + 2), size - 2);

  bool invalid = false;
  CString text = CodePage::ToUnicode(code_page, bytes, &invalid);
  if (!CodePage::IsKnown(code_page)) {
    Check(text.IsEmpty());
    return 0;
  }
  // Every byte gives at most two units (a surrogate pair); nothing grows
  // beyond that.
  Check(static_cast<size_t>(text.GetLength()) <= 2 * bytes.size() + 4);

  bool replaced = false;
  std::string back = CodePage::FromUnicode(code_page, text, &replaced);
  Check(back.size() <= 16 * static_cast<size_t>(text.GetLength()) + 16);
  // What decoded cleanly from UTF-8 encodes back to the same bytes.
  if (code_page == 65001 && !invalid) Check(back == bytes);

  if (!bytes.empty() && bytes.size() < (1u << 20)) {
    int count = static_cast<int>(bytes.size());
    int needed = kordll::MultiByteToWideChar(code_page, 0, bytes.data(), count, nullptr, 0);
    Check(needed == text.GetLength());
    if (needed > 0) {
      std::vector<char16_t> exact(static_cast<size_t>(needed));
      Check(kordll::MultiByteToWideChar(code_page, 0, bytes.data(), count, exact.data(), needed) ==
            needed);
      Check(std::u16string_view(exact.data(), exact.size()) == text.view());
      std::vector<char16_t> short_buffer(static_cast<size_t>(needed - 1) + 1);
      if (needed > 1) {
        Check(kordll::MultiByteToWideChar(code_page, 0, bytes.data(), count, short_buffer.data(),
                                          needed - 1) == 0);
      }
    }
  }
  return 0;
}
