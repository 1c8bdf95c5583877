// Runs the C-runtime readers over hostile text: _wtoi, _wtoi64, _wtof, the
// swscanf/sscanf scanners with a format from the input, and the
// wcstok/strtok tokenizers.
//
// Input: fields (see FuzzFields.h). Field 0 chooses: its bytes pick the
// destination types of the scan, one per byte, and the first byte how many
// destinations there are. Field 1 is the text read; field 2 the scan format
// and the delimiters.
//
// What must hold: the 32-bit reading is the 64-bit one clamped; the narrow
// readers agree with the wide ones on ASCII text; a scan assigns no more
// fields than it has destinations and reads no text longer than its input;
// a token walk ends, gives non-empty tokens free of delimiters, and the
// narrow walk gives the same tokens on ASCII text.

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzFields.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/platform/CString.h"

namespace {

using kordll::CString;
using kordll::ScanArg;
using kordll_fuzz::Check;

// The text up to its first U+0000, as the C functions see it.
std::u16string CText(const CString& s) {
  const std::u16string& u = s.str();
  return u.substr(0, std::min(u.size(), u.find(u'\0')));
}

// The text as bytes if every unit is ASCII.
bool AsAscii(const CString& s, std::string* out) {
  out->clear();
  for (char16_t c : s.str()) {
    if (c > 0x7F) return false;
    out->push_back(static_cast<char>(c));
  }
  return true;
}

bool SameDouble(double a, double b) {
  if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// The destinations of one scan, of every type.
struct Destinations {
  int i[8] = {};
  long long ll[8] = {};
  unsigned u[8] = {};
  double d[8] = {};
  CString s[8];
  std::string n[8];
  char16_t c[8] = {};
  char b[8] = {};

  ScanArg Pick(uint8_t kind, int k) {
    switch (kind % 8) {
      case 0:
        return &i[k];
      case 1:
        return &ll[k];
      case 2:
        return &u[k];
      case 3:
        return &d[k];
      case 4:
        return &s[k];
      case 5:
        return &n[k];
      case 6:
        return &c[k];
      default:
        return &b[k];
    }
  }
  size_t LongestText() const {
    size_t m = 0;
    for (int k = 0; k < 8; ++k) m = std::max({m, s[k].str().size(), n[k].size()});
    return m;
  }
};

int Scan(bool narrow, const CString& input, const std::string& ninput, const CString& format,
         const std::string& nformat, const std::string& kinds, Destinations* d) {
  auto kind = [&](int k) { return k + 1 < static_cast<int>(kinds.size()) ? kinds[k + 1] : k; };
  ScanArg a[8] = {d->Pick(kind(0), 0), d->Pick(kind(1), 1), d->Pick(kind(2), 2),
                  d->Pick(kind(3), 3), d->Pick(kind(4), 4), d->Pick(kind(5), 5),
                  d->Pick(kind(6), 6), d->Pick(kind(7), 7)};
  const int count = kinds.empty() ? 8 : static_cast<uint8_t>(kinds[0]) % 9;
  auto run = [&](std::initializer_list<ScanArg> args) {
    return narrow ? kordll::sscanf(ninput, nformat, args) : kordll::swscanf(input, format, args);
  };
  int rc;
  switch (count) {
    case 0:
      rc = run({});
      break;
    case 1:
      rc = run({a[0]});
      break;
    case 2:
      rc = run({a[0], a[1]});
      break;
    case 3:
      rc = run({a[0], a[1], a[2]});
      break;
    default:
      rc = run({a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7]});
      break;
  }
  Check(rc >= -1 && rc <= (count > 3 ? 8 : count));
  return rc;
}

void Tokens(const CString& text, const CString& delims, std::vector<std::u16string>* out) {
  const std::u16string t = CText(text);
  const std::u16string ds = CText(delims);
  kordll::TokenState state;
  CString token;
  size_t total = 0;
  for (int r = kordll::wcstok(&token, &text, delims, state); r;
       r = kordll::wcstok(&token, nullptr, delims, state)) {
    Check(out->size() <= t.size());  // the walk ends
    Check(!token.IsEmpty());
    for (char16_t c : token.str()) Check(ds.find(c) == std::u16string::npos);
    total += token.str().size();
    out->push_back(token.str());
  }
  Check(total <= t.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<kordll_fuzz::Field> fields = kordll_fuzz::SplitFields(data, size, 3);
  const std::string& kinds = kordll_fuzz::FieldAt(fields, 0).bytes;
  const CString& text = kordll_fuzz::FieldAt(fields, 1).text;
  const CString& format = kordll_fuzz::FieldAt(fields, 2).text;
  std::string ntext, nformat;
  const bool ascii = AsAscii(text, &ntext) && AsAscii(format, &nformat);

  // Numbers.
  const int n32 = kordll::_wtoi(text);
  const long long n64 = kordll::_wtoi64(text);
  Check(n32 == static_cast<int>(std::clamp<long long>(n64, INT_MIN, INT_MAX)));
  const double real = kordll::_wtof(text);
  if (ascii) {
    Check(kordll::_atoi(ntext) == n32);
    Check(SameDouble(kordll::_atof(ntext), real));
  }
  Check(kordll::_wtoi(kordll::_itow(n32)) == n32);
  const int radix = kinds.empty() ? 16 : static_cast<uint8_t>(kinds[0]) % 40;
  const CString digits = kordll::_itow(n32, radix);
  Check(digits.GetLength() <= 33);
  if (radix < 2 || radix > 36) Check(digits.IsEmpty());

  // Scans, wide and narrow.
  Destinations wide;
  const int rc = Scan(false, text, ntext, format, nformat, kinds, &wide);
  Check(wide.LongestText() <= CText(text).size());
  if (ascii) {
    Destinations narrow;
    Check(Scan(true, text, ntext, format, nformat, kinds, &narrow) == rc);
    Check(narrow.LongestText() <= CText(text).size());
  }

  // Tokens: the text split by the format's units.
  std::vector<std::u16string> tokens;
  Tokens(text, format, &tokens);
  if (ascii) {
    kordll::NarrowTokenState state;
    std::string token;
    size_t k = 0;
    for (int r = kordll::strtok(&token, &ntext, nformat, state); r;
         r = kordll::strtok(&token, nullptr, nformat, state), ++k) {
      Check(k < tokens.size());
      Check(CString(token.c_str()).str() == tokens[k]);
    }
    Check(k == tokens.size());
  }
  // The thread's own walk, with a nested split started inside it.
  CString token;
  int steps = 0;
  for (int r = kordll::wcstok(&token, &text, format); r && steps <= text.GetLength() + 2;
       r = kordll::wcstok(&token, nullptr, format), ++steps) {
    if (steps == 1) kordll::wcstok(&token, &format, text);
  }
  Check(steps <= text.GetLength() + 2);
  return 0;
}
