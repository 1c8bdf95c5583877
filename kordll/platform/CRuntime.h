// CRuntime: the C runtime conversions that the file formats rely on, written
// once over 16-bit text with their exact C meaning.
//
// These do not use the wchar_t functions of the C library: wchar_t is 32-bit
// here, and glibc's swscanf("%s") writes narrow text. The narrow overloads
// (std::string_view) behave the same over bytes.

#ifndef KORDLL_PLATFORM_CRUNTIME_H_
#define KORDLL_PLATFORM_CRUNTIME_H_

#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>

#include "kordll/platform/CString.h"

namespace kordll {

// _wtoi: skips leading white space (C-locale: tab, newline, vertical tab,
// form feed, carriage return, space), reads an optional sign and the decimal
// digits up to the first non-digit. No digits give 0. A value beyond the int
// range saturates at INT_MAX or INT_MIN.
int _wtoi(const CString& text);
int _atoi(std::string_view text);
// The same reading into 64 bits (saturating at the long long limits).
long long _wtoi64(const CString& text);

// _wtof: strtod meaning without locale: leading white space, optional sign,
// digits with an optional '.', an optional exponent; also "inf"/"nan" words
// as strtod reads them. Nothing readable gives 0.0.
double _wtof(const CString& text);
double _atof(std::string_view text);

// _itow: the value in the radix (2 to 36, lower-case letters). Radix 10 is
// signed; any other radix prints the value as unsigned 32-bit, as the C
// runtime does. A radix outside 2 to 36 gives "".
CString _itow(int value, int radix = 10);

// One destination of a scan. %d/%i/%u/%x take int (or long long), %f/%e/%g
// take double, %s takes CString (wide) or std::string (narrow), %c takes
// char16_t or char, %[...] takes the text types. '*' suppresses assignment.
using ScanArg =
    std::variant<int*, long long*, unsigned*, double*, CString*, std::string*, char16_t*, char*>;

// swscanf meaning: a blank in the format matches any run of white space,
// including none; a literal must match exactly; %d reads like strtol (white
// space skipped first); %s reads a whole word with no length limit (white
// space skipped first); %c reads one unit without skipping white space;
// %[set] and %[^set] read a non-empty run. Returns the count of assigned
// fields, or -1 (EOF) when the input ends before the first conversion.
// Input and format are read as C strings: each ends at its first U+0000.
int swscanf(const CString& input, const CString& format, std::initializer_list<ScanArg> args);
int sscanf(std::string_view input, std::string_view format, std::initializer_list<ScanArg> args);

// The state of a wcstok/strtok walk. The C functions keep it in a hidden
// static; here the caller owns it, or uses the thread's default state
// (the overloads without a state), which reproduces the C behaviour that a
// nested split started on the same state consumes the outer one.
struct TokenState {
  std::u16string text;
  size_t pos = 0;
  bool active = false;
};
struct NarrowTokenState {
  std::string text;
  size_t pos = 0;
  bool active = false;
};

// wcstok meaning: with text non-null, starts a new walk over a copy of
// *text; with null, goes on with the walk of the state. Skips runs of
// delimiters, so empty tokens vanish. Returns 1 and sets *token, or 0 when
// no token is left (then the walk is over). As with the C strings the C
// functions take, the text and the delimiters end at their first U+0000.
int wcstok(CString* token, const CString* text, const CString& delims, TokenState& state);
int wcstok(CString* token, const CString* text, const CString& delims);
int strtok(std::string* token, const std::string* text, std::string_view delims,
           NarrowTokenState& state);
int strtok(std::string* token, const std::string* text, std::string_view delims);

}  // namespace kordll

#endif  // KORDLL_PLATFORM_CRUNTIME_H_
