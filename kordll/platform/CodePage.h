// CodePage: text conversions by Windows code page number, through ICU.
//
// A code page number names an ICU converter: 65001 UTF-8, 1252 windows-1252,
// 932 Shift-JIS (Windows' variant), 936, 949, 950, 874, 1250 to 1258, the
// IBM/DOS pages (437, 850 ...), 28591 to 28605 ISO-8859-x, 20127 US-ASCII,
// 1200/1201 UTF-16LE/BE, 54936 GB18030, and the others ICU knows under the
// Windows number. The ANSI code page of this system is 1252 (GetACP), and
// CP_ACP and CP_THREAD_ACP stand for it.
//
// Decoding turns every byte sequence the code page does not define into
// U+FFFD; encoding turns every unit the code page cannot hold into "?" (for
// the Unicode encodings, a lone surrogate becomes U+FFFD). A code page the
// converter does not know gives an empty result.
//
// All members are static and thread-safe.

#ifndef KORDLL_PLATFORM_CODEPAGE_H_
#define KORDLL_PLATFORM_CODEPAGE_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "kordll/platform/CString.h"

namespace kordll {

constexpr unsigned CP_ACP = 0;
constexpr unsigned CP_OEMCP = 1;
constexpr unsigned CP_MACCP = 2;
constexpr unsigned CP_THREAD_ACP = 3;
constexpr unsigned CP_UTF7 = 65000;
constexpr unsigned CP_UTF8 = 65001;

// MultiByteToWideChar flag: fail on a byte sequence the code page does not
// define instead of giving U+FFFD.
constexpr uint32_t MB_ERR_INVALID_CHARS = 0x8;

constexpr int ERROR_INSUFFICIENT_BUFFER = 122;
constexpr int ERROR_NO_UNICODE_TRANSLATION = 1113;

class CodePage {
 public:
  CodePage() = delete;

  // The ANSI code page: 1252.
  static unsigned GetACP() { return 1252; }
  // The ICU converter name for the code page, or "" when none is known.
  static std::string ConverterName(unsigned code_page);
  static bool IsKnown(unsigned code_page) { return !ConverterName(code_page).empty(); }

  // The bytes read in the code page. Unknown code page, or input above 1 GB:
  // "". With `invalid` given, it is set to whether any byte sequence was not
  // defined by the code page (each such sequence became U+FFFD).
  static CString ToUnicode(unsigned code_page, std::string_view bytes, bool* invalid = nullptr);
  // The text written in the code page. Unknown code page: "". With
  // `used_default` given, it is set to whether any unit had to be replaced.
  static std::string FromUnicode(unsigned code_page, const CString& text,
                                 bool* used_default = nullptr);
};

// The ANSI code page (1252).
inline unsigned GetACP() { return CodePage::GetACP(); }

// MultiByteToWideChar meaning. `count` bytes of `bytes`, or with -1 the
// NUL-terminated text including its terminator (which is then converted and
// counted too). With capacity 0 answers the units needed; otherwise writes
// into `out` and answers the units written. Answers 0 with the last error
// (kordll::GetLastError) set for: an unknown code page, a null input or a
// count of 0 or below -1 (ERROR_INVALID_PARAMETER), a short buffer
// (ERROR_INSUFFICIENT_BUFFER), an undefined sequence with
// MB_ERR_INVALID_CHARS (ERROR_NO_UNICODE_TRANSLATION).
int MultiByteToWideChar(unsigned code_page, uint32_t flags, const char* bytes, int count,
                        char16_t* out, int capacity);
// WideCharToMultiByte meaning, the same way round. default_char is not
// supported (must be null); *used_default, if given, tells whether a unit
// was replaced.
int WideCharToMultiByte(unsigned code_page, uint32_t flags, const char16_t* text, int count,
                        char* out, int capacity, const char* default_char, int* used_default);

}  // namespace kordll

#endif  // KORDLL_PLATFORM_CODEPAGE_H_
