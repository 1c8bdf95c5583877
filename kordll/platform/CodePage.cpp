#include "kordll/platform/CodePage.h"

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <unicode/ucnv_err.h>

#include <cstring>
#include <memory>

#include "kordll/platform/WinError.h"

namespace kordll {

namespace {

// Larger inputs are refused rather than converted: ICU counts in int32_t, and
// no text of the system comes near this.
constexpr size_t kMaxInput = size_t{1} << 30;

struct ConverterCloser {
  void operator()(UConverter* c) const { ucnv_close(c); }
};
using Converter = std::unique_ptr<UConverter, ConverterCloser>;

bool Opens(const char* name) {
  UErrorCode err = U_ZERO_ERROR;
  Converter c(ucnv_open(name, &err));
  return U_SUCCESS(err) && c != nullptr;
}

bool IsUnicodeEncoding(unsigned code_page) {
  return code_page == 65000 || code_page == 65001 || code_page == 1200 || code_page == 1201 ||
         code_page == 12000 || code_page == 12001 || code_page == 54936;
}

// Code pages whose ICU name is not "windows-<number>".
const char* ExplicitName(unsigned code_page) {
  switch (code_page) {
    case 65001:
      return "UTF-8";
    case 65000:
      return "UTF-7";
    case 1200:
      return "UTF-16LE";
    case 1201:
      return "UTF-16BE";
    case 12000:
      return "UTF-32LE";
    case 12001:
      return "UTF-32BE";
    case 20127:
      return "US-ASCII";
    case 28591:
      return "ISO-8859-1";
    case 28592:
      return "ISO-8859-2";
    case 28593:
      return "ISO-8859-3";
    case 28594:
      return "ISO-8859-4";
    case 28595:
      return "ISO-8859-5";
    case 28596:
      return "ISO-8859-6";
    case 28597:
      return "ISO-8859-7";
    case 28598:
      return "ISO-8859-8";
    case 28599:
      return "ISO-8859-9";
    case 28603:
      return "ISO-8859-13";
    case 28605:
      return "ISO-8859-15";
    case 20866:
      return "KOI8-R";
    case 21866:
      return "KOI8-U";
    case 20932:
    case 51932:
      return "EUC-JP";
    case 51949:
      return "EUC-KR";
    case 51936:
      return "GB2312";
    case 52936:
      return "HZ-GB-2312";
    case 54936:
      return "GB18030";
    case 50220:
    case 50221:
    case 50222:
      return "ISO-2022-JP";
    case 50225:
      return "ISO-2022-KR";
    case 10000:
      return "macintosh";
    case 10007:
      return "x-mac-cyrillic";
    default:
      return nullptr;
  }
}

// Undefined input becomes U+FFFD whatever the converter's own substitute
// (single-byte converters would give U+001A).
void ToUnicodeReplace(const void* context, UConverterToUnicodeArgs* args, const char*, int32_t,
                      UConverterCallbackReason reason, UErrorCode* err) {
  if (reason > UCNV_IRREGULAR) return;  // reset, close, clone
  if (context != nullptr) *static_cast<bool*>(const_cast<void*>(context)) = true;
  static const UChar kReplacement = 0xFFFD;
  *err = U_ZERO_ERROR;
  ucnv_cbToUWriteUChars(args, &kReplacement, 1, 0, err);
}

void FromUnicodeReplace(const void* context, UConverterFromUnicodeArgs* args, const UChar*, int32_t,
                        UChar32, UConverterCallbackReason reason, UErrorCode* err) {
  if (reason > UCNV_IRREGULAR) return;
  if (context != nullptr) *static_cast<bool*>(const_cast<void*>(context)) = true;
  *err = U_ZERO_ERROR;
  ucnv_cbFromUWriteSub(args, 0, err);
}

Converter Open(unsigned code_page) {
  std::string name = CodePage::ConverterName(code_page);
  if (name.empty()) return nullptr;
  UErrorCode err = U_ZERO_ERROR;
  Converter c(ucnv_open(name.c_str(), &err));
  if (U_FAILURE(err)) return nullptr;
  return c;
}

}  // namespace

std::string CodePage::ConverterName(unsigned code_page) {
  if (code_page == CP_ACP || code_page == CP_THREAD_ACP) code_page = GetACP();
  if (code_page == CP_OEMCP) code_page = 437;
  if (code_page == CP_MACCP) code_page = 10000;
  if (const char* name = ExplicitName(code_page)) {
    return Opens(name) ? name : std::string();
  }
  // ICU knows most Windows code pages by this alias.
  std::string windows = "windows-" + std::to_string(code_page);
  if (Opens(windows.c_str())) return windows;
  // The IBM pages: DOS (437, 850 ...) and EBCDIC (37, 500, 1140 ...), which
  // Windows also numbers 20000 above the IBM number (20273 is IBM 273).
  unsigned ibm = code_page;
  if (code_page >= 20273 && code_page <= 20924) ibm = code_page - 20000;
  if (ibm < 20000 && ibm > 2) {
    std::string name = "ibm-" + std::to_string(ibm);
    if (Opens(name.c_str())) return name;
  }
  return std::string();
}

CString CodePage::ToUnicode(unsigned code_page, std::string_view bytes, bool* invalid) {
  bool bad = false;
  if (invalid != nullptr) *invalid = false;
  if (bytes.size() > kMaxInput) return CString();
  Converter c = Open(code_page);
  if (c == nullptr) return CString();
  UErrorCode err = U_ZERO_ERROR;
  ucnv_setToUCallBack(c.get(), ToUnicodeReplace, &bad, nullptr, nullptr, &err);
  if (U_FAILURE(err)) return CString();
  if (bytes.empty()) return CString();
  // Preflight, then convert; each byte gives at most two units.
  int32_t length =
      ucnv_toUChars(c.get(), nullptr, 0, bytes.data(), static_cast<int32_t>(bytes.size()), &err);
  if (err != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(err)) return CString();
  std::u16string out(static_cast<size_t>(length), u'\0');
  err = U_ZERO_ERROR;
  bad = false;
  ucnv_resetToUnicode(c.get());
  length = ucnv_toUChars(c.get(), out.data(), static_cast<int32_t>(out.size()), bytes.data(),
                         static_cast<int32_t>(bytes.size()), &err);
  if (U_FAILURE(err) && err != U_STRING_NOT_TERMINATED_WARNING) return CString();
  out.resize(static_cast<size_t>(length));
  if (invalid != nullptr) *invalid = bad;
  return CString(std::move(out));
}

std::string CodePage::FromUnicode(unsigned code_page, const CString& text, bool* used_default) {
  bool replaced = false;
  if (used_default != nullptr) *used_default = false;
  if (static_cast<size_t>(text.GetLength()) > kMaxInput / 4) return std::string();
  Converter c = Open(code_page);
  if (c == nullptr) return std::string();
  UErrorCode err = U_ZERO_ERROR;
  // "?" as Windows writes for what a code page cannot hold; the Unicode
  // encodings hold everything but lone surrogates, written as U+FFFD.
  if (IsUnicodeEncoding(code_page)) {
    static const UChar kReplacement = 0xFFFD;
    ucnv_setSubstString(c.get(), &kReplacement, 1, &err);
  } else {
    static const UChar kQuestion = u'?';
    ucnv_setSubstString(c.get(), &kQuestion, 1, &err);
  }
  err = U_ZERO_ERROR;  // a converter that cannot take the string keeps its own
  ucnv_setFromUCallBack(c.get(), FromUnicodeReplace, &replaced, nullptr, nullptr, &err);
  if (U_FAILURE(err)) return std::string();
  if (text.IsEmpty()) return std::string();
  const UChar* src = reinterpret_cast<const UChar*>(text.GetString());
  int32_t length = ucnv_fromUChars(c.get(), nullptr, 0, src, text.GetLength(), &err);
  if (err != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(err)) return std::string();
  std::string out(static_cast<size_t>(length), '\0');
  err = U_ZERO_ERROR;
  replaced = false;
  ucnv_resetFromUnicode(c.get());
  length = ucnv_fromUChars(c.get(), out.data(), static_cast<int32_t>(out.size()), src,
                           text.GetLength(), &err);
  if (U_FAILURE(err) && err != U_STRING_NOT_TERMINATED_WARNING) return std::string();
  out.resize(static_cast<size_t>(length));
  if (used_default != nullptr) *used_default = replaced;
  return out;
}

int MultiByteToWideChar(unsigned code_page, uint32_t flags, const char* bytes, int count,
                        char16_t* out, int capacity) {
  if (bytes == nullptr || count == 0 || count < -1 || capacity < 0 ||
      (capacity > 0 && out == nullptr) || !CodePage::IsKnown(code_page)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  size_t size = count == -1 ? std::strlen(bytes) + 1 : static_cast<size_t>(count);
  bool invalid = false;
  CString text = CodePage::ToUnicode(code_page, std::string_view(bytes, size), &invalid);
  if (invalid && (flags & MB_ERR_INVALID_CHARS) != 0) {
    SetLastError(ERROR_NO_UNICODE_TRANSLATION);
    return 0;
  }
  if (text.IsEmpty()) {
    SetLastError(ERROR_NO_UNICODE_TRANSLATION);
    return 0;
  }
  int needed = text.GetLength();
  if (capacity == 0) return needed;
  if (capacity < needed) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return 0;
  }
  std::memcpy(out, text.GetString(), static_cast<size_t>(needed) * sizeof(char16_t));
  return needed;
}

int WideCharToMultiByte(unsigned code_page, uint32_t, const char16_t* text, int count, char* out,
                        int capacity, const char* default_char, int* used_default) {
  if (text == nullptr || count == 0 || count < -1 || capacity < 0 ||
      (capacity > 0 && out == nullptr) || default_char != nullptr ||
      !CodePage::IsKnown(code_page)) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  size_t length = 0;
  if (count == -1) {
    while (text[length] != u'\0') ++length;
    ++length;  // the terminator is converted too
  } else {
    length = static_cast<size_t>(count);
  }
  bool replaced = false;
  std::string bytes =
      CodePage::FromUnicode(code_page, CString(std::u16string_view(text, length)), &replaced);
  if (used_default != nullptr) *used_default = replaced ? 1 : 0;
  if (bytes.empty() || bytes.size() > static_cast<size_t>(INT32_MAX)) {
    SetLastError(ERROR_NO_UNICODE_TRANSLATION);
    return 0;
  }
  int needed = static_cast<int>(bytes.size());
  if (capacity == 0) return needed;
  if (capacity < needed) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return 0;
  }
  std::memcpy(out, bytes.data(), bytes.size());
  return needed;
}

}  // namespace kordll
