// CString: the library's text type, a string of 16-bit units.
//
// Every text of the system is held as UTF-16 code units (char16_t). Lone
// surrogates and U+0000 are allowed inside a CString and are kept as they are;
// only the conversion to UTF-8 replaces a lone surrogate with U+FFFD.
//
// The operations keep the meaning of the MFC string class they stand for:
// positions are unit indexes, out-of-range arguments are clamped rather than
// rejected, and nothing throws. Case mapping is Unicode simple case mapping
// applied unit by unit (a search for "Über" finds "über"); white space for
// Trim is the C-locale set (tab, newline, vertical tab, form feed, carriage
// return and space) and nothing above 127.
//
// Formatting is type-safe: Format("%s: %d", name, count) takes its arguments
// by type, never through C varargs, so a CString may be passed for %s.

#ifndef KORDLL_PLATFORM_CSTRING_H_
#define KORDLL_PLATFORM_CSTRING_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace kordll {

class CString;

// One argument of CString::Format. Built implicitly from the supported types.
class FormatArg {
 public:
  enum Kind { kInt, kUInt, kDouble, kText, kPointer };

  FormatArg(int v) : kind_(kInt), i_(v) {}
  FormatArg(long v) : kind_(kInt), i_(v) {}
  FormatArg(long long v) : kind_(kInt), i_(v) {}
  FormatArg(unsigned v) : kind_(kUInt), u_(v) {}
  FormatArg(unsigned long v) : kind_(kUInt), u_(v) {}
  FormatArg(unsigned long long v) : kind_(kUInt), u_(v) {}
  FormatArg(short v) : kind_(kInt), i_(v) {}
  FormatArg(unsigned short v) : kind_(kUInt), u_(v) {}
  FormatArg(char16_t v) : kind_(kUInt), u_(v) {}
  FormatArg(char v) : kind_(kInt), i_(static_cast<unsigned char>(v)) {}
  FormatArg(bool v) : kind_(kInt), i_(v ? 1 : 0) {}
  FormatArg(double v) : kind_(kDouble), d_(v) {}
  FormatArg(float v) : kind_(kDouble), d_(v) {}
  FormatArg(const CString& v);
  FormatArg(const char16_t* v);
  FormatArg(const std::u16string& v);
  FormatArg(const char* utf8);
  FormatArg(const std::string& utf8);
  FormatArg(const void* p) : kind_(kPointer), u_(reinterpret_cast<uintptr_t>(p)) {}
  // A copy views its own converted text, never the original's.
  FormatArg(const FormatArg& other);
  FormatArg& operator=(const FormatArg&) = delete;

  Kind kind() const { return kind_; }
  long long AsInt() const;
  unsigned long long AsUInt() const;
  double AsDouble() const;
  // The text of a %s argument; for a number, its decimal text.
  std::u16string_view AsText() const;

 private:
  bool OwnsText() const;  // text_ views owned_

  Kind kind_;
  long long i_ = 0;
  unsigned long long u_ = 0;
  double d_ = 0.0;
  std::u16string owned_;      // text converted from UTF-8
  std::u16string_view text_;  // view of the caller's text or of owned_
};

class CString {
 public:
  CString() = default;
  CString(const char16_t* text);              // null gives ""
  CString(const char16_t* text, int length);  // length units (clamped at 0)
  CString(std::u16string text) : s_(std::move(text)) {}
  CString(std::u16string_view text) : s_(text) {}
  CString(const char* utf8);  // UTF-8; null gives ""
  explicit CString(char16_t ch, int repeat = 1);

  // UTF-8 conversions. Invalid UTF-8 bytes become U+FFFD.
  static CString FromUtf8(std::string_view utf8);
  std::string ToUtf8() const;  // a lone surrogate becomes U+FFFD

  // Type-safe printf. Conversions: %d %i %u %x %X %o %c %s %S %f %F %e %E
  // %g %G %p %%, with flags "-+ #0", width, precision, '*' for either, and
  // the size prefixes h, l, ll, I64 (accepted and ignored). %c takes a unit;
  // %s takes any text or, for a number, its decimal text. A conversion
  // without an argument prints nothing. Floating point is locale-free.
  template <class... Args>
  void Format(const CString& format, const Args&... args) {
    *this = FormatList(format, {FormatArg(args)...});
  }
  template <class... Args>
  void AppendFormat(const CString& format, const Args&... args) {
    *this += FormatList(format, {FormatArg(args)...});
  }
  template <class... Args>
  static CString Formatted(const CString& format, const Args&... args) {
    return FormatList(format, {FormatArg(args)...});
  }
  static CString FormatList(const CString& format, std::initializer_list<FormatArg> args);

  int GetLength() const { return static_cast<int>(s_.size()); }
  bool IsEmpty() const { return s_.empty(); }
  void Empty() { s_.clear(); }

  // Index outside the text: GetAt and [] give 0, SetAt does nothing.
  char16_t GetAt(int index) const;
  char16_t operator[](int index) const { return GetAt(index); }
  void SetAt(int index, char16_t ch);

  // Searches. Return the unit index or -1. A start beyond the text gives -1;
  // a negative start counts as 0. An empty substring is found at start.
  int Find(char16_t ch, int start = 0) const;
  int Find(const CString& sub, int start = 0) const;
  int FindOneOf(const CString& chars) const;
  int ReverseFind(char16_t ch) const;

  // Extraction, clamped to the text as MFC does.
  CString Mid(int first) const;
  CString Mid(int first, int count) const;
  CString Left(int count) const;
  CString Right(int count) const;
  CString SpanIncluding(const CString& chars) const;
  CString SpanExcluding(const CString& chars) const;
  // Next token after *start delimited by any of the units of delims; runs of
  // delimiters are skipped. At the end returns "" and sets *start to -1.
  CString Tokenize(const CString& delims, int& start) const;
  // The pieces between the separators, empty pieces kept: "a||b" gives
  // "a", "", "b" and "" gives one empty piece.
  std::vector<CString> Split(char16_t separator) const;

  // Editing. Each returns the count of what changed (Replace: replacements,
  // Remove: units removed, Insert/Delete: the new length).
  int Replace(char16_t old_ch, char16_t new_ch);
  int Replace(const CString& old_text, const CString& new_text);  // "" old: 0
  int Remove(char16_t ch);
  int Insert(int index, char16_t ch);
  int Insert(int index, const CString& text);
  int Delete(int index, int count = 1);

  CString& MakeLower();
  CString& MakeUpper();
  CString& MakeReverse();
  CString& Trim();
  CString& Trim(char16_t ch);
  CString& Trim(const CString& chars);
  CString& TrimLeft();
  CString& TrimLeft(char16_t ch);
  CString& TrimLeft(const CString& chars);
  CString& TrimRight();
  CString& TrimRight(char16_t ch);
  CString& TrimRight(const CString& chars);

  // Ordinal comparison by unit value: negative, 0 or positive.
  int Compare(const CString& other) const;
  // The same after simple lower-casing both sides unit by unit.
  int CompareNoCase(const CString& other) const;

  CString& operator+=(const CString& other) {
    s_ += other.s_;
    return *this;
  }
  CString& operator+=(const char16_t* other) { return *this += CString(other); }
  CString& operator+=(const char* utf8) { return *this += CString(utf8); }
  CString& operator+=(char16_t ch) {
    s_.push_back(ch);
    return *this;
  }

  friend CString operator+(const CString& a, const CString& b) {
    CString r(a);
    r += b;
    return r;
  }
  friend CString operator+(const CString& a, const char16_t* b) { return a + CString(b); }
  friend CString operator+(const char16_t* a, const CString& b) { return CString(a) + b; }
  friend CString operator+(const CString& a, const char* b) { return a + CString(b); }
  friend CString operator+(const char* a, const CString& b) { return CString(a) + b; }
  friend CString operator+(const CString& a, char16_t b) {
    CString r(a);
    r += b;
    return r;
  }
  friend CString operator+(char16_t a, const CString& b) { return CString(a) + b; }

  friend bool operator==(const CString& a, const CString& b) { return a.s_ == b.s_; }
  friend bool operator==(const CString& a, const char16_t* b) { return a == CString(b); }
  friend bool operator==(const CString& a, const char* b) { return a == CString(b); }
  friend auto operator<=>(const CString& a, const CString& b) { return a.s_ <=> b.s_; }

  // Raw access. The pointer stays valid until the next change.
  const char16_t* GetString() const { return s_.c_str(); }
  const char16_t* c_str() const { return s_.c_str(); }
  const std::u16string& str() const { return s_; }
  std::u16string& str() { return s_; }
  std::u16string_view view() const { return s_; }

 private:
  std::u16string s_;
};

using CStringArray = std::vector<CString>;
template <class T, class ARG = const T&>
using CArray = std::vector<T>;

// Simple Unicode case mapping of one unit (surrogates map to themselves).
char16_t ToLowerUnit(char16_t ch);
char16_t ToUpperUnit(char16_t ch);
// C-locale classification: ASCII only, false for every unit above 127.
bool IsSpaceUnit(char16_t ch);
bool IsDigitUnit(char16_t ch);
bool IsAlnumUnit(char16_t ch);
bool IsXDigitUnit(char16_t ch);
bool IsAlphaUnit(char16_t ch);

}  // namespace kordll

template <>
struct std::hash<kordll::CString> {
  size_t operator()(const kordll::CString& s) const noexcept {
    return std::hash<std::u16string>()(s.str());
  }
};

#endif  // KORDLL_PLATFORM_CSTRING_H_
