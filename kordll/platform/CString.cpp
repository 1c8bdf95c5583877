#include "kordll/platform/CString.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>

namespace kordll {

// ---------------------------------------------------------------------------
// Classification and case mapping

char16_t ToLowerUnit(char16_t ch) {
  if (ch < 128) return (ch >= 'A' && ch <= 'Z') ? static_cast<char16_t>(ch + 32) : ch;
  if (U16_IS_SURROGATE(ch)) return ch;
  UChar32 mapped = u_tolower(ch);
  return mapped <= 0xFFFF ? static_cast<char16_t>(mapped) : ch;
}

char16_t ToUpperUnit(char16_t ch) {
  if (ch < 128) return (ch >= 'a' && ch <= 'z') ? static_cast<char16_t>(ch - 32) : ch;
  if (U16_IS_SURROGATE(ch)) return ch;
  UChar32 mapped = u_toupper(ch);
  return mapped <= 0xFFFF ? static_cast<char16_t>(mapped) : ch;
}

bool IsSpaceUnit(char16_t ch) { return ch == ' ' || (ch >= 9 && ch <= 13); }
bool IsDigitUnit(char16_t ch) { return ch >= '0' && ch <= '9'; }
bool IsAlphaUnit(char16_t ch) { return (ch >= 'a' && ch <= 'z') || (ch >= 'A' && ch <= 'Z'); }
bool IsAlnumUnit(char16_t ch) { return IsDigitUnit(ch) || IsAlphaUnit(ch); }
bool IsXDigitUnit(char16_t ch) {
  return IsDigitUnit(ch) || (ch >= 'a' && ch <= 'f') || (ch >= 'A' && ch <= 'F');
}

// ---------------------------------------------------------------------------
// UTF-8

CString CString::FromUtf8(std::string_view utf8) {
  CString out;
  if (utf8.empty()) return out;
  if (utf8.size() > static_cast<size_t>(INT32_MAX)) utf8 = utf8.substr(0, INT32_MAX);
  UErrorCode err = U_ZERO_ERROR;
  int32_t needed = 0;
  u_strFromUTF8WithSub(nullptr, 0, &needed, utf8.data(), static_cast<int32_t>(utf8.size()), 0xFFFD,
                       nullptr, &err);
  if (err != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(err)) return out;
  out.s_.resize(needed);
  err = U_ZERO_ERROR;
  u_strFromUTF8WithSub(reinterpret_cast<UChar*>(out.s_.data()), needed, &needed, utf8.data(),
                       static_cast<int32_t>(utf8.size()), 0xFFFD, nullptr, &err);
  if (U_FAILURE(err)) out.s_.clear();
  return out;
}

std::string CString::ToUtf8() const {
  std::string out;
  out.reserve(s_.size());
  const size_t n = s_.size();
  for (size_t i = 0; i < n; ++i) {
    char32_t c = s_[i];
    if (U16_IS_LEAD(c) && i + 1 < n && U16_IS_TRAIL(s_[i + 1])) {
      c = U16_GET_SUPPLEMENTARY(c, s_[i + 1]);
      ++i;
    } else if (U16_IS_SURROGATE(c)) {
      c = 0xFFFD;
    }
    if (c < 0x80) {
      out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
      out.push_back(static_cast<char>(0xC0 | (c >> 6)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
      out.push_back(static_cast<char>(0xE0 | (c >> 12)));
      out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
      out.push_back(static_cast<char>(0xF0 | (c >> 18)));
      out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
      out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
  }
  return out;
}

// ---------------------------------------------------------------------------
// Construction

CString::CString(const char16_t* text) {
  if (text) s_ = text;
}

CString::CString(const char16_t* text, int length) {
  if (text && length > 0) s_.assign(text, static_cast<size_t>(length));
}

CString::CString(const char* utf8) {
  if (utf8) *this = FromUtf8(utf8);
}

CString::CString(char16_t ch, int repeat) {
  if (repeat > 0) s_.assign(static_cast<size_t>(repeat), ch);
}

// ---------------------------------------------------------------------------
// Access and search

char16_t CString::GetAt(int index) const {
  if (index < 0 || index >= GetLength()) return 0;
  return s_[static_cast<size_t>(index)];
}

void CString::SetAt(int index, char16_t ch) {
  if (index < 0 || index >= GetLength()) return;
  s_[static_cast<size_t>(index)] = ch;
}

int CString::Find(char16_t ch, int start) const {
  if (start < 0) start = 0;
  if (start >= GetLength()) return -1;
  size_t pos = s_.find(ch, static_cast<size_t>(start));
  return pos == std::u16string::npos ? -1 : static_cast<int>(pos);
}

int CString::Find(const CString& sub, int start) const {
  if (start < 0) start = 0;
  if (start > GetLength()) return -1;
  size_t pos = s_.find(sub.s_, static_cast<size_t>(start));
  return pos == std::u16string::npos ? -1 : static_cast<int>(pos);
}

int CString::FindOneOf(const CString& chars) const {
  size_t pos = s_.find_first_of(chars.s_);
  return pos == std::u16string::npos ? -1 : static_cast<int>(pos);
}

int CString::ReverseFind(char16_t ch) const {
  size_t pos = s_.rfind(ch);
  return pos == std::u16string::npos ? -1 : static_cast<int>(pos);
}

CString CString::Mid(int first) const { return Mid(first, INT_MAX); }

CString CString::Mid(int first, int count) const {
  if (first < 0) first = 0;
  if (count < 0) count = 0;
  const int len = GetLength();
  if (first >= len) return CString();
  if (count > len - first) count = len - first;
  return CString(s_.substr(static_cast<size_t>(first), static_cast<size_t>(count)));
}

CString CString::Left(int count) const { return Mid(0, count); }

CString CString::Right(int count) const {
  if (count < 0) count = 0;
  const int len = GetLength();
  if (count >= len) return *this;
  return CString(s_.substr(static_cast<size_t>(len - count)));
}

CString CString::SpanIncluding(const CString& chars) const {
  size_t pos = s_.find_first_not_of(chars.s_);
  return pos == std::u16string::npos ? *this : CString(s_.substr(0, pos));
}

CString CString::SpanExcluding(const CString& chars) const {
  size_t pos = s_.find_first_of(chars.s_);
  return pos == std::u16string::npos ? *this : CString(s_.substr(0, pos));
}

std::vector<CString> CString::Split(char16_t separator) const {
  std::vector<CString> pieces;
  size_t start = 0;
  for (;;) {
    const size_t at = s_.find(separator, start);
    if (at == std::u16string::npos) {
      pieces.emplace_back(s_.data() + start, static_cast<int>(s_.size() - start));
      return pieces;
    }
    pieces.emplace_back(s_.data() + start, static_cast<int>(at - start));
    start = at + 1;
  }
}

CString CString::Tokenize(const CString& delims, int& start) const {
  if (start < 0 || start >= GetLength()) {
    start = -1;
    return CString();
  }
  size_t from = s_.find_first_not_of(delims.s_, static_cast<size_t>(start));
  if (from == std::u16string::npos) {
    start = -1;
    return CString();
  }
  size_t to = s_.find_first_of(delims.s_, from);
  if (to == std::u16string::npos) to = s_.size();
  // One past the delimiter; after a last token that ends the text this is
  // one past the end, as MFC leaves it.
  start = static_cast<int>(to) + 1;
  return CString(s_.substr(from, to - from));
}

// ---------------------------------------------------------------------------
// Editing

int CString::Replace(char16_t old_ch, char16_t new_ch) {
  int count = 0;
  for (char16_t& c : s_) {
    if (c == old_ch) {
      c = new_ch;
      ++count;
    }
  }
  return count;
}

int CString::Replace(const CString& old_text, const CString& new_text) {
  if (old_text.s_.empty()) return 0;
  size_t pos = s_.find(old_text.s_);
  if (pos == std::u16string::npos) return 0;
  // One pass into a new buffer: linear in the text, whatever the count.
  std::u16string out;
  out.reserve(s_.size());
  size_t last = 0;
  int count = 0;
  while (pos != std::u16string::npos) {
    out.append(s_, last, pos - last);
    out.append(new_text.s_);
    last = pos + old_text.s_.size();
    ++count;
    pos = s_.find(old_text.s_, last);
  }
  out.append(s_, last, std::u16string::npos);
  s_.swap(out);
  return count;
}

int CString::Remove(char16_t ch) {
  size_t before = s_.size();
  s_.erase(std::remove(s_.begin(), s_.end(), ch), s_.end());
  return static_cast<int>(before - s_.size());
}

int CString::Insert(int index, char16_t ch) { return Insert(index, CString(ch)); }

int CString::Insert(int index, const CString& text) {
  if (index < 0) index = 0;
  if (index > GetLength()) index = GetLength();
  s_.insert(static_cast<size_t>(index), text.s_);
  return GetLength();
}

int CString::Delete(int index, int count) {
  if (index < 0) index = 0;
  const int len = GetLength();
  if (count > 0 && index < len) {
    if (count > len - index) count = len - index;
    s_.erase(static_cast<size_t>(index), static_cast<size_t>(count));
  }
  return GetLength();
}

CString& CString::MakeLower() {
  for (char16_t& c : s_) c = ToLowerUnit(c);
  return *this;
}

CString& CString::MakeUpper() {
  for (char16_t& c : s_) c = ToUpperUnit(c);
  return *this;
}

CString& CString::MakeReverse() {
  std::reverse(s_.begin(), s_.end());
  return *this;
}

namespace {

template <class Pred>
void TrimLeftIf(std::u16string& s, Pred pred) {
  size_t i = 0;
  while (i < s.size() && pred(s[i])) ++i;
  s.erase(0, i);
}

template <class Pred>
void TrimRightIf(std::u16string& s, Pred pred) {
  size_t n = s.size();
  while (n > 0 && pred(s[n - 1])) --n;
  s.resize(n);
}

}  // namespace

CString& CString::Trim() { return TrimRight().TrimLeft(); }
CString& CString::Trim(char16_t ch) { return TrimRight(ch).TrimLeft(ch); }
CString& CString::Trim(const CString& chars) { return TrimRight(chars).TrimLeft(chars); }

CString& CString::TrimLeft() {
  TrimLeftIf(s_, IsSpaceUnit);
  return *this;
}
CString& CString::TrimLeft(char16_t ch) {
  TrimLeftIf(s_, [ch](char16_t c) { return c == ch; });
  return *this;
}
CString& CString::TrimLeft(const CString& chars) {
  TrimLeftIf(s_, [&chars](char16_t c) { return chars.s_.find(c) != std::u16string::npos; });
  return *this;
}
CString& CString::TrimRight() {
  TrimRightIf(s_, IsSpaceUnit);
  return *this;
}
CString& CString::TrimRight(char16_t ch) {
  TrimRightIf(s_, [ch](char16_t c) { return c == ch; });
  return *this;
}
CString& CString::TrimRight(const CString& chars) {
  TrimRightIf(s_, [&chars](char16_t c) { return chars.s_.find(c) != std::u16string::npos; });
  return *this;
}

int CString::Compare(const CString& other) const {
  int r = s_.compare(other.s_);
  return r < 0 ? -1 : (r > 0 ? 1 : 0);
}

int CString::CompareNoCase(const CString& other) const {
  const size_t n = std::min(s_.size(), other.s_.size());
  for (size_t i = 0; i < n; ++i) {
    char16_t a = ToLowerUnit(s_[i]);
    char16_t b = ToLowerUnit(other.s_[i]);
    if (a != b) return a < b ? -1 : 1;
  }
  if (s_.size() == other.s_.size()) return 0;
  return s_.size() < other.s_.size() ? -1 : 1;
}

// ---------------------------------------------------------------------------
// Formatting

FormatArg::FormatArg(const CString& v) : kind_(kText), text_(v.view()) {}
FormatArg::FormatArg(const char16_t* v) : kind_(kText), text_(v ? v : u"") {}
FormatArg::FormatArg(const std::u16string& v) : kind_(kText), text_(v) {}
FormatArg::FormatArg(const char* utf8)
    : kind_(kText), owned_(CString::FromUtf8(utf8 ? utf8 : "").str()) {
  text_ = owned_;
}
FormatArg::FormatArg(const std::string& utf8)
    : kind_(kText), owned_(CString::FromUtf8(utf8).str()) {
  text_ = owned_;
}

FormatArg::FormatArg(const FormatArg& other)
    : kind_(other.kind_), i_(other.i_), u_(other.u_), d_(other.d_), owned_(other.owned_) {
  // A view of the other's own copy must become a view of ours.
  text_ = other.OwnsText() ? std::u16string_view(owned_) : other.text_;
}

bool FormatArg::OwnsText() const { return !owned_.empty() && text_.data() == owned_.data(); }

namespace {

// A double as an integer of the conversion, without the undefined behaviour
// of casting a value the integer cannot hold: NaN gives 0, others saturate.
long long DoubleToInt(double d) {
  if (std::isnan(d)) return 0;
  if (d >= 9223372036854775807.0) return LLONG_MAX;
  if (d <= -9223372036854775808.0) return LLONG_MIN;
  return static_cast<long long>(d);
}

unsigned long long DoubleToUInt(double d) {
  if (std::isnan(d)) return 0;
  if (d < 0) return static_cast<unsigned long long>(DoubleToInt(d));
  if (d >= 18446744073709551615.0) return ULLONG_MAX;
  return static_cast<unsigned long long>(d);
}

}  // namespace

long long FormatArg::AsInt() const {
  switch (kind_) {
    case kInt:
      return i_;
    case kUInt:
    case kPointer:
      return static_cast<long long>(u_);
    case kDouble:
      return DoubleToInt(d_);
    case kText:
      return 0;
  }
  return 0;
}

unsigned long long FormatArg::AsUInt() const {
  switch (kind_) {
    case kInt:
      return static_cast<unsigned long long>(i_);
    case kUInt:
    case kPointer:
      return u_;
    case kDouble:
      return DoubleToUInt(d_);
    case kText:
      return 0;
  }
  return 0;
}

double FormatArg::AsDouble() const {
  switch (kind_) {
    case kInt:
      return static_cast<double>(i_);
    case kUInt:
    case kPointer:
      return static_cast<double>(u_);
    case kDouble:
      return d_;
    case kText:
      return 0.0;
  }
  return 0.0;
}

std::u16string_view FormatArg::AsText() const { return text_; }

namespace {

struct Conversion {
  bool left = false, plus = false, space = false, alt = false, zero = false;
  int width = -1;
  int precision = -1;
};

void AppendAscii(std::u16string& out, std::string_view s) {
  for (char c : s) out.push_back(static_cast<unsigned char>(c));
}

// Pads body (with its sign/prefix kept in front of zero padding) to width.
void EmitPadded(std::u16string& out, const Conversion& cv, std::string_view prefix,
                std::u16string_view body, bool allow_zero) {
  const int len = static_cast<int>(prefix.size() + body.size());
  const int pad = cv.width > len ? cv.width - len : 0;
  if (cv.left) {
    AppendAscii(out, prefix);
    out.append(body);
    out.append(static_cast<size_t>(pad), u' ');
  } else if (cv.zero && allow_zero) {
    AppendAscii(out, prefix);
    out.append(static_cast<size_t>(pad), u'0');
    out.append(body);
  } else {
    out.append(static_cast<size_t>(pad), u' ');
    AppendAscii(out, prefix);
    out.append(body);
  }
}

void EmitInteger(std::u16string& out, const Conversion& cv, char conv, const FormatArg& arg) {
  bool negative = false;
  unsigned long long magnitude = 0;
  int base = 10;
  if (conv == 'd' || conv == 'i') {
    long long v = arg.AsInt();
    if (arg.kind() == FormatArg::kUInt || arg.kind() == FormatArg::kPointer) {
      magnitude = arg.AsUInt();
    } else if (v < 0) {
      negative = true;
      magnitude = 0ULL - static_cast<unsigned long long>(v);
    } else {
      magnitude = static_cast<unsigned long long>(v);
    }
  } else {
    if (conv == 'x' || conv == 'X' || conv == 'p') base = 16;
    if (conv == 'o') base = 8;
    unsigned long long v = arg.AsUInt();
    // A negative int printed unsigned shows its 32-bit pattern, as on Windows.
    if (arg.kind() == FormatArg::kInt && arg.AsInt() < 0 && arg.AsInt() >= INT_MIN)
      v &= 0xFFFFFFFFULL;
    magnitude = v;
  }
  char buf[72];
  auto res = std::to_chars(buf, buf + sizeof(buf), magnitude, base);
  std::string digits(buf, res.ptr);
  if (conv == 'X') {
    for (char& c : digits) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  if (cv.precision >= 0) {
    if (cv.precision == 0 && magnitude == 0) digits.clear();
    if (static_cast<int>(digits.size()) < cv.precision) {
      digits.insert(0, static_cast<size_t>(cv.precision) - digits.size(), '0');
    }
  }
  std::string_view prefix;
  if (negative)
    prefix = "-";
  else if ((conv == 'd' || conv == 'i') && cv.plus)
    prefix = "+";
  else if ((conv == 'd' || conv == 'i') && cv.space)
    prefix = " ";
  if (conv == 'p')
    prefix = "0x";
  else if (cv.alt && magnitude != 0 && conv == 'x')
    prefix = "0x";
  else if (cv.alt && magnitude != 0 && conv == 'X')
    prefix = "0X";
  else if (cv.alt && conv == 'o' && (digits.empty() || digits[0] != '0'))
    digits.insert(digits.begin(), '0');
  std::u16string body;
  AppendAscii(body, digits);
  EmitPadded(out, cv, prefix, body, cv.precision < 0);
}

void EmitFloat(std::u16string& out, const Conversion& cv, char conv, double v) {
  const int precision = cv.precision < 0 ? 6 : cv.precision;
  std::chars_format fmt = std::chars_format::fixed;
  char lower = static_cast<char>(std::tolower(static_cast<unsigned char>(conv)));
  if (lower == 'e') fmt = std::chars_format::scientific;
  if (lower == 'g') fmt = std::chars_format::general;
  bool negative = std::signbit(v);
  double magnitude = negative ? -v : v;
  std::string digits;
  if (std::isnan(v)) {
    digits = "nan";
  } else if (std::isinf(v)) {
    digits = "inf";
  } else {
    // 309 integer digits plus the fraction fit in this buffer for any double
    // as long as the precision is bounded; precision is capped to keep it so.
    char buf[400];
    const int capped = std::min(precision, 40);
    if (cv.alt && lower == 'g') {
      // "%#g" keeps the trailing zeros of its significant digits: choose the
      // form as %g does (from the exponent %e would print) and print it with
      // the digits that form needs, without the trimming of %g.
      const int significant = capped == 0 ? 1 : capped;
      auto sci = std::to_chars(buf, buf + sizeof(buf), magnitude, std::chars_format::scientific,
                               significant - 1);
      const char* e = std::find(buf, sci.ptr, 'e');
      const int exponent = e == sci.ptr ? 0 : std::atoi(e + 1);
      if (exponent < -4 || exponent >= significant) {
        digits.assign(buf, sci.ptr);
      } else {
        auto res = std::to_chars(buf, buf + sizeof(buf), magnitude, std::chars_format::fixed,
                                 significant - 1 - exponent);
        digits.assign(buf, res.ptr);
      }
    } else {
      auto res = std::to_chars(buf, buf + sizeof(buf), magnitude, fmt,
                               lower == 'g' && capped == 0 ? 1 : capped);
      digits.assign(buf, res.ptr);
    }
    // The alternate form always shows the decimal point.
    if (cv.alt && digits.find('.') == std::string::npos) {
      const size_t at = digits.find('e');
      digits.insert(at == std::string::npos ? digits.size() : at, 1, '.');
    }
  }
  if (std::isupper(static_cast<unsigned char>(conv))) {
    for (char& c : digits) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  }
  std::string_view prefix;
  if (negative && !std::isnan(v))
    prefix = "-";
  else if (cv.plus)
    prefix = "+";
  else if (cv.space)
    prefix = " ";
  std::u16string body;
  AppendAscii(body, digits);
  EmitPadded(out, cv, prefix, body, std::isfinite(v));
}

std::u16string NumberText(const FormatArg& arg) {
  char buf[64];
  std::to_chars_result res{};
  switch (arg.kind()) {
    case FormatArg::kInt:
      res = std::to_chars(buf, buf + sizeof(buf), arg.AsInt());
      break;
    case FormatArg::kUInt:
    case FormatArg::kPointer:
      res = std::to_chars(buf, buf + sizeof(buf), arg.AsUInt());
      break;
    case FormatArg::kDouble:
      res = std::to_chars(buf, buf + sizeof(buf), arg.AsDouble());
      break;
    case FormatArg::kText:
      return std::u16string(arg.AsText());
  }
  std::u16string out;
  AppendAscii(out, std::string_view(buf, static_cast<size_t>(res.ptr - buf)));
  return out;
}

}  // namespace

CString CString::FormatList(const CString& format, std::initializer_list<FormatArg> args) {
  std::u16string out;
  const std::u16string& f = format.s_;
  const FormatArg* next = args.begin();
  const FormatArg* end = args.end();
  auto take = [&]() -> const FormatArg* { return next != end ? next++ : nullptr; };
  const size_t n = f.size();
  size_t i = 0;
  while (i < n) {
    char16_t c = f[i];
    if (c != u'%') {
      out.push_back(c);
      ++i;
      continue;
    }
    size_t start = i++;
    if (i < n && f[i] == u'%') {
      out.push_back(u'%');
      ++i;
      continue;
    }
    Conversion cv;
    for (; i < n; ++i) {
      char16_t fl = f[i];
      if (fl == u'-')
        cv.left = true;
      else if (fl == u'+')
        cv.plus = true;
      else if (fl == u' ')
        cv.space = true;
      else if (fl == u'#')
        cv.alt = true;
      else if (fl == u'0')
        cv.zero = true;
      else
        break;
    }
    if (i < n && f[i] == u'*') {
      const FormatArg* a = take();
      long long w = a ? std::clamp<long long>(a->AsInt(), -4096, 4096) : 0;
      if (w < 0) {
        cv.left = true;
        w = -w;
      }
      cv.width = static_cast<int>(std::min<long long>(w, 4096));
      ++i;
    } else {
      int w = -1;
      while (i < n && IsDigitUnit(f[i])) {
        w = (w < 0 ? 0 : w) * 10 + (f[i] - u'0');
        if (w > 4096) w = 4096;
        ++i;
      }
      cv.width = w;
    }
    if (i < n && f[i] == u'.') {
      ++i;
      if (i < n && f[i] == u'*') {
        const FormatArg* a = take();
        long long p = a ? a->AsInt() : 0;
        cv.precision = p < 0 ? -1 : static_cast<int>(std::min<long long>(p, 4096));
        ++i;
      } else {
        int p = 0;
        while (i < n && IsDigitUnit(f[i])) {
          p = p * 10 + (f[i] - u'0');
          if (p > 4096) p = 4096;
          ++i;
        }
        cv.precision = p;
      }
    }
    // Size prefixes: accepted, the argument's own type decides.
    while (i < n) {
      if (f[i] == u'h' || f[i] == u'l' || f[i] == u'L' || f[i] == u'z' || f[i] == u'j' ||
          f[i] == u't' || f[i] == u'q') {
        ++i;
      } else if (f[i] == u'I') {
        ++i;
        if (i + 1 < n && ((f[i] == u'6' && f[i + 1] == u'4') || (f[i] == u'3' && f[i + 1] == u'2')))
          i += 2;
      } else {
        break;
      }
    }
    if (i >= n) {
      // A lone '%' at the end (or an unfinished conversion) prints as written.
      out.append(f, start, std::u16string::npos);
      break;
    }
    char16_t conv = f[i++];
    switch (conv) {
      case u'd':
      case u'i':
      case u'u':
      case u'x':
      case u'X':
      case u'o':
      case u'p': {
        const FormatArg* a = take();
        if (a) EmitInteger(out, cv, static_cast<char>(conv), *a);
        break;
      }
      case u'f':
      case u'F':
      case u'e':
      case u'E':
      case u'g':
      case u'G': {
        const FormatArg* a = take();
        if (a) EmitFloat(out, cv, static_cast<char>(conv), a->AsDouble());
        break;
      }
      case u'c':
      case u'C': {
        const FormatArg* a = take();
        if (a) {
          char16_t unit = a->kind() == FormatArg::kText
                              ? (a->AsText().empty() ? u'\0' : a->AsText()[0])
                              : static_cast<char16_t>(a->AsUInt() & 0xFFFF);
          EmitPadded(out, cv, "", std::u16string_view(&unit, 1), false);
        }
        break;
      }
      case u's':
      case u'S': {
        const FormatArg* a = take();
        if (a) {
          std::u16string text = NumberText(*a);
          std::u16string_view view(text);
          if (cv.precision >= 0 && static_cast<size_t>(cv.precision) < view.size()) {
            view = view.substr(0, static_cast<size_t>(cv.precision));
          }
          EmitPadded(out, cv, "", view, false);
        }
        break;
      }
      default:
        // Unknown conversion: printed as written.
        out.append(f, start, i - start);
        break;
    }
  }
  return CString(std::move(out));
}

}  // namespace kordll
