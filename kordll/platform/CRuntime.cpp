#include "kordll/platform/CRuntime.h"

#include <locale.h>
#include <stdlib.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>

namespace kordll {

namespace {

template <class Ch>
bool IsSpace(Ch c) {
  return c == ' ' || (c >= 9 && c <= 13);
}

template <class Ch>
bool IsDigit(Ch c) {
  return c >= '0' && c <= '9';
}

// Reads [ws][sign]digits like the C runtime's atoi, saturating at the limits
// of T. *consumed gets the count of units read (0 when no digits).
template <class T, class Ch>
T ReadDecimal(std::basic_string_view<Ch> s, size_t* consumed) {
  size_t i = 0;
  while (i < s.size() && IsSpace(s[i])) ++i;
  bool negative = false;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) {
    negative = s[i] == '-';
    ++i;
  }
  const size_t digits_start = i;
  // Accumulate as a negative number so that the minimum value fits.
  T value = 0;
  bool overflow = false;
  const T min = std::numeric_limits<T>::min();
  while (i < s.size() && IsDigit(s[i])) {
    const T d = static_cast<T>(s[i] - '0');
    if (!overflow) {
      if (value < (min + d) / 10) {
        overflow = true;
      } else {
        value = static_cast<T>(value * 10 - d);
      }
    }
    ++i;
  }
  if (i == digits_start) {
    if (consumed) *consumed = 0;
    return 0;
  }
  if (consumed) *consumed = i;
  if (overflow) return negative ? min : std::numeric_limits<T>::max();
  if (!negative) {
    if (value == min) return std::numeric_limits<T>::max();
    return static_cast<T>(-value);
  }
  return value;
}

// The C functions read their arguments as NUL-terminated strings: a text
// that holds U+0000 (a NUL-padded record, say) ends there for them.
template <class Ch>
std::basic_string_view<Ch> UpToNul(std::basic_string_view<Ch> s) {
  size_t nul = s.find(Ch(0));
  return nul == std::basic_string_view<Ch>::npos ? s : s.substr(0, nul);
}

locale_t CLocale() {
  static locale_t loc = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
  return loc;
}

// strtod in the C locale over units; a unit above 127 ends the number.
template <class Ch>
double ReadDouble(std::basic_string_view<Ch> s, size_t* consumed) {
  std::string narrow;
  narrow.reserve(s.size());
  for (Ch c : s) {
    auto u = static_cast<std::make_unsigned_t<Ch>>(c);
    if (u == 0 || u > 127) break;
    narrow.push_back(static_cast<char>(u));
  }
  const char* begin = narrow.c_str();
  char* end = nullptr;
  double v = strtod_l(begin, &end, CLocale());
  if (consumed) *consumed = static_cast<size_t>(end - begin);
  return v;
}

}  // namespace

int _wtoi(const CString& text) { return ReadDecimal<int, char16_t>(text.view(), nullptr); }
int _atoi(std::string_view text) { return ReadDecimal<int, char>(text, nullptr); }
long long _wtoi64(const CString& text) {
  return ReadDecimal<long long, char16_t>(text.view(), nullptr);
}

double _wtof(const CString& text) { return ReadDouble<char16_t>(text.view(), nullptr); }
double _atof(std::string_view text) { return ReadDouble<char>(text, nullptr); }

CString _itow(int value, int radix) {
  if (radix < 2 || radix > 36) return CString();
  std::u16string out;
  bool negative = radix == 10 && value < 0;
  unsigned long long v = negative ? 0ULL - static_cast<long long>(value)
                                  : static_cast<unsigned long long>(static_cast<unsigned>(value));
  do {
    const int d = static_cast<int>(v % static_cast<unsigned>(radix));
    out.push_back(static_cast<char16_t>(d < 10 ? '0' + d : 'a' + d - 10));
    v /= static_cast<unsigned>(radix);
  } while (v != 0);
  if (negative) out.push_back(u'-');
  return CString(std::u16string(out.rbegin(), out.rend()));
}

// ---------------------------------------------------------------------------
// The scanner

namespace {

template <class Ch>
struct Scanner {
  std::basic_string_view<Ch> in;
  std::basic_string_view<Ch> fmt;
  const ScanArg* arg;
  const ScanArg* arg_end;
  size_t pos = 0;
  int assigned = 0;
  bool converted = false;  // any conversion finished (for the EOF rule)

  void SkipSpace() {
    while (pos < in.size() && IsSpace(in[pos])) ++pos;
  }

  const ScanArg* Next() { return arg != arg_end ? arg++ : nullptr; }

  // Each Assign* answers 1 if there was a destination to assign, else 0:
  // a conversion beyond the destinations given assigns nothing and does not
  // count.
  template <class Text>
  static int AssignText(const ScanArg* a, Text text) {
    if (!a) return 0;
    if (auto p = std::get_if<CString*>(a)) {
      if (*p) {
        std::u16string u;
        for (auto c : text)
          u.push_back(static_cast<char16_t>(static_cast<std::make_unsigned_t<Ch>>(c)));
        **p = CString(std::move(u));
      }
    } else if (auto q = std::get_if<std::string*>(a)) {
      if (*q) {
        std::string s;
        for (auto c : text) s.push_back(static_cast<char>(c));
        **q = std::move(s);
      }
    } else if (auto r = std::get_if<char16_t*>(a)) {
      if (*r && !text.empty()) **r = static_cast<char16_t>(text[0]);
    } else if (auto t = std::get_if<char*>(a)) {
      if (*t && !text.empty()) **t = static_cast<char>(text[0]);
    }
    return 1;
  }

  static int AssignInt(const ScanArg* a, long long v) {
    if (!a) return 0;
    if (auto p = std::get_if<int*>(a)) {
      if (*p) **p = static_cast<int>(v);
    } else if (auto q = std::get_if<long long*>(a)) {
      if (*q) **q = v;
    } else if (auto r = std::get_if<unsigned*>(a)) {
      if (*r) **r = static_cast<unsigned>(v);
    } else if (auto d = std::get_if<double*>(a)) {
      if (*d) **d = static_cast<double>(v);
    }
    return 1;
  }

  static int AssignDouble(const ScanArg* a, double v) {
    if (!a) return 0;
    if (auto d = std::get_if<double*>(a)) {
      if (*d) **d = v;
      return 1;
    } else {
      // A real read into an integer destination keeps its whole part, held
      // within the 64-bit range; NaN gives 0.
      long long n = 0;
      if (v >= 0x1p63) {
        n = LLONG_MAX;
      } else if (v < -0x1p63) {
        n = LLONG_MIN;
      } else if (v == v) {
        n = static_cast<long long>(v);
      }
      return AssignInt(a, n);
    }
  }

  // Reads an integer in base (0 = by prefix) of at most width units.
  bool ReadInteger(int base, size_t width, long long* out) {
    size_t end = width == 0 ? in.size() : std::min(in.size(), pos + width);
    size_t i = pos;
    bool negative = false;
    if (i < end && (in[i] == '+' || in[i] == '-')) {
      negative = in[i] == '-';
      ++i;
    }
    if ((base == 0 || base == 16) && i + 1 < end && in[i] == '0' &&
        (in[i + 1] == 'x' || in[i + 1] == 'X')) {
      // "0x" counts only when a hex digit follows.
      if (i + 2 < end && DigitValue(in[i + 2]) < 16) {
        i += 2;
        base = 16;
      }
    }
    if (base == 0) base = (i < end && in[i] == '0') ? 8 : 10;
    unsigned long long v = 0;
    size_t start = i;
    while (i < end) {
      int d = DigitValue(in[i]);
      if (d >= base) break;
      if (v <= (ULLONG_MAX - static_cast<unsigned>(d)) / static_cast<unsigned>(base)) {
        v = v * static_cast<unsigned>(base) + static_cast<unsigned>(d);
      } else {
        v = ULLONG_MAX;
      }
      ++i;
    }
    if (i == start) return false;
    pos = i;
    *out = negative ? static_cast<long long>(0ULL - v) : static_cast<long long>(v);
    return true;
  }

  static int DigitValue(Ch c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'z') return c - 'a' + 10;
    if (c >= 'A' && c <= 'Z') return c - 'A' + 10;
    return 99;
  }

  int Run() {
    size_t f = 0;
    while (f < fmt.size()) {
      Ch c = fmt[f];
      if (IsSpace(c)) {
        while (f < fmt.size() && IsSpace(fmt[f])) ++f;
        SkipSpace();
        continue;
      }
      if (c != '%') {
        if (pos >= in.size()) return Fail();
        if (in[pos] != c) return assigned;
        ++pos;
        ++f;
        continue;
      }
      ++f;
      if (f < fmt.size() && fmt[f] == '%') {
        SkipSpace();
        if (pos >= in.size()) return Fail();
        if (in[pos] != '%') return assigned;
        ++pos;
        ++f;
        continue;
      }
      bool suppress = false;
      if (f < fmt.size() && fmt[f] == '*') {
        suppress = true;
        ++f;
      }
      size_t width = 0;
      while (f < fmt.size() && IsDigit(fmt[f])) {
        width = std::min<size_t>(width * 10 + static_cast<size_t>(fmt[f] - '0'), 1u << 30);
        ++f;
      }
      while (f < fmt.size() && (fmt[f] == 'h' || fmt[f] == 'l' || fmt[f] == 'L' || fmt[f] == 'z' ||
                                fmt[f] == 'j' || fmt[f] == 't' || fmt[f] == 'w')) {
        ++f;
      }
      if (f + 2 < fmt.size() && fmt[f] == 'I' && fmt[f + 1] == '6' && fmt[f + 2] == '4') f += 3;
      if (f >= fmt.size()) return assigned;
      Ch conv = fmt[f++];
      switch (conv) {
        case 'd':
        case 'i':
        case 'u':
        case 'x':
        case 'X':
        case 'o': {
          SkipSpace();
          if (pos >= in.size()) return Fail();
          int base = conv == 'i' ? 0 : (conv == 'x' || conv == 'X') ? 16 : conv == 'o' ? 8 : 10;
          long long v = 0;
          if (!ReadInteger(base, width, &v)) return assigned;
          converted = true;
          if (!suppress) {
            assigned += AssignInt(Next(), v);
          }
          break;
        }
        case 'f':
        case 'e':
        case 'g':
        case 'E':
        case 'G':
        case 'a':
        case 'A':
        case 'F': {
          SkipSpace();
          if (pos >= in.size()) return Fail();
          size_t limit = width == 0 ? in.size() - pos : std::min(width, in.size() - pos);
          size_t used = 0;
          double v = ReadDouble<Ch>(in.substr(pos, limit), &used);
          if (used == 0) return assigned;
          pos += used;
          converted = true;
          if (!suppress) {
            assigned += AssignDouble(Next(), v);
          }
          break;
        }
        case 's':
        case 'S': {
          SkipSpace();
          if (pos >= in.size()) return Fail();
          size_t start = pos;
          while (pos < in.size() && !IsSpace(in[pos]) && (width == 0 || pos - start < width)) ++pos;
          converted = true;
          if (!suppress) {
            assigned += AssignText(Next(), in.substr(start, pos - start));
          }
          break;
        }
        case 'c':
        case 'C': {
          size_t count = width == 0 ? 1 : width;
          // Fewer units than the width asks for end the input before the
          // conversion completes: nothing is assigned or counted.
          if (pos >= in.size() || in.size() - pos < count) return Fail();
          converted = true;
          if (!suppress) {
            assigned += AssignText(Next(), in.substr(pos, count));
          }
          pos += count;
          break;
        }
        case '[': {
          bool negate = false;
          if (f < fmt.size() && fmt[f] == '^') {
            negate = true;
            ++f;
          }
          size_t set_start = f;
          if (f < fmt.size() && fmt[f] == ']') ++f;  // a leading ']' belongs to the set
          while (f < fmt.size() && fmt[f] != ']') ++f;
          std::basic_string_view<Ch> set = fmt.substr(set_start, f - set_start);
          if (f < fmt.size()) ++f;
          if (pos >= in.size()) return Fail();
          size_t start = pos;
          while (pos < in.size() && (width == 0 || pos - start < width) &&
                 InSet(set, in[pos]) != negate) {
            ++pos;
          }
          if (pos == start) return assigned;
          converted = true;
          if (!suppress) {
            assigned += AssignText(Next(), in.substr(start, pos - start));
          }
          break;
        }
        case 'n': {
          if (!suppress) AssignInt(Next(), static_cast<long long>(pos));
          break;
        }
        default:
          return assigned;
      }
    }
    return assigned;
  }

  // A set as in %[...]: single units and ranges "a-z".
  static bool InSet(std::basic_string_view<Ch> set, Ch c) {
    for (size_t i = 0; i < set.size(); ++i) {
      if (i + 2 < set.size() && set[i + 1] == '-') {
        if (c >= set[i] && c <= set[i + 2]) return true;
        i += 2;
      } else if (set[i] == c) {
        return true;
      }
    }
    return false;
  }

  // Input ran out: EOF before the first conversion, else the count so far.
  int Fail() const { return (!converted && assigned == 0) ? -1 : assigned; }
};

}  // namespace

int swscanf(const CString& input, const CString& format, std::initializer_list<ScanArg> args) {
  Scanner<char16_t> s{UpToNul(input.view()), UpToNul(format.view()), args.begin(), args.end()};
  return s.Run();
}

int sscanf(std::string_view input, std::string_view format, std::initializer_list<ScanArg> args) {
  Scanner<char> s{UpToNul(input), UpToNul(format), args.begin(), args.end()};
  return s.Run();
}

// ---------------------------------------------------------------------------
// Tokenizers

namespace {

template <class Str, class State>
int NextToken(Str* token, const Str* text, std::basic_string_view<typename Str::value_type> delims,
              State& state) {
  if (text) {
    state.text = UpToNul(std::basic_string_view<typename Str::value_type>(*text));
    state.pos = 0;
    state.active = true;
  }
  if (!state.active) return 0;
  delims = UpToNul(delims);
  const auto& t = state.text;
  size_t from = t.find_first_not_of(delims, state.pos);
  if (from == Str::npos) {
    state.active = false;
    state.pos = t.size();
    return 0;
  }
  size_t to = t.find_first_of(delims, from);
  if (to == Str::npos) {
    if (token) *token = t.substr(from);
    state.pos = t.size();
  } else {
    if (token) *token = t.substr(from, to - from);
    state.pos = to + 1;  // the delimiter is consumed, as strtok overwrites it
  }
  return 1;
}

TokenState& DefaultTokenState() {
  thread_local TokenState state;
  return state;
}

NarrowTokenState& DefaultNarrowTokenState() {
  thread_local NarrowTokenState state;
  return state;
}

}  // namespace

int wcstok(CString* token, const CString* text, const CString& delims, TokenState& state) {
  std::u16string out;
  int r = NextToken<std::u16string, TokenState>(
      token ? &out : nullptr, text ? &text->str() : nullptr, delims.view(), state);
  if (r && token) *token = CString(std::move(out));
  return r;
}

int wcstok(CString* token, const CString* text, const CString& delims) {
  return wcstok(token, text, delims, DefaultTokenState());
}

int strtok(std::string* token, const std::string* text, std::string_view delims,
           NarrowTokenState& state) {
  return NextToken<std::string, NarrowTokenState>(token, text, delims, state);
}

int strtok(std::string* token, const std::string* text, std::string_view delims) {
  return strtok(token, text, delims, DefaultNarrowTokenState());
}

}  // namespace kordll
