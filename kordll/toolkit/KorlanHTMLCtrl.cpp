#include "kordll/toolkit/KorlanHTMLCtrl.h"

#include <string>
#include <string_view>

#include "kordll/platform/CRuntime.h"
#include "kordll/record/SettingsEntryPoints.h"

namespace kordll {

std::map<CString, int> KorlanHTMLCtrl::m_mHTMLTags;
int KorlanHTMLCtrl::m_bKorlanHTMLCtrlInitialized = 0;

namespace {

struct Replacement {
  std::u16string_view from;
  std::u16string_view to;
};

// Replaces every occurrence of `from`, left to right and without rescanning
// what was put in, as CString::Replace does. One pass over the text; a text
// without the pattern is not copied at all.
void ReplaceAll(std::u16string& text, std::u16string_view from, std::u16string_view to) {
  size_t hit = text.find(from);
  if (hit == std::u16string::npos) return;
  std::u16string out;
  out.reserve(text.size());
  size_t pos = 0;
  while (hit != std::u16string::npos) {
    out.append(text, pos, hit - pos);
    out.append(to);
    pos = hit + from.size();
    hit = text.find(from, pos);
  }
  out.append(text, pos, std::u16string::npos);
  text.swap(out);
}

template <size_t N>
void ReplaceEach(std::u16string& text, const Replacement (&list)[N]) {
  for (const Replacement& r : list) ReplaceAll(text, r.from, r.to);
}

// The six basic entities, in the order that makes "&amp;lt;" give "&lt;".
constexpr Replacement kBasicEntities[] = {
    {u"&lt;", u"<"},   {u"&gt;", u">"},    {u"&amp;", u"&"},
    {u"&apos;", u"'"}, {u"&quot;", u"\""}, {u"&nbsp;", u" "},
};

constexpr Replacement kNumericEntities[] = {
    {u"&#8220;", u"\""},   {u"&#8221;", u"\""},     {u"&#8216;", u"'"},     {u"&#8217;", u"'"},
    {u"&#8230;", u"..."},  {u"&#8218;", u","},      {u"&#8211;", u"-"},     {u"&#8212;", u"--"},
    {u"&#38;&#38;", u"&"}, {u"&#8364;", u"\u20AC"}, {u"&#128;", u"\u20AC"}, {u"&#8482;", u"\u2122"},
};

constexpr Replacement kLowerA[] = {
    {u"&agrave;", u"\u00E0"}, {u"&aacute;", u"\u00E1"}, {u"&acirc;", u"\u00E2"},
    {u"&atilde;", u"\u00E3"}, {u"&auml;", u"\u00E4"},   {u"&aring;", u"\u00E5"},
    {u"&aelig;", u"\u00E6"},
};
constexpr Replacement kUpperA[] = {
    {u"&Agrave;", u"\u00C0"}, {u"&Aacute;", u"\u00C1"}, {u"&Acirc;", u"\u00C2"},
    {u"&Atilde;", u"\u00C3"}, {u"&Auml;", u"\u00C4"},   {u"&Aring;", u"\u00C5"},
    {u"&Aelig;", u"\u00C6"},
};
constexpr Replacement kLowerE[] = {
    {u"&egrave;", u"\u00E8"},
    {u"&eacute;", u"\u00E9"},
    {u"&ecirc;", u"\u00EA"},
    {u"&euml;", u"\u00EB"},
};
constexpr Replacement kUpperE[] = {
    {u"&Egrave;", u"\u00C8"},
    {u"&Eacute;", u"\u00C9"},
    {u"&Ecirc;", u"\u00CA"},
    {u"&Euml;", u"\u00CB"},
};
constexpr Replacement kLowerI[] = {
    {u"&igrave;", u"\u00EC"},
    {u"&iacute;", u"\u00ED"},
    {u"&icirc;", u"\u00EE"},
    {u"&iuml;", u"\u00EF"},
};
constexpr Replacement kUpperI[] = {
    {u"&Igrave;", u"\u00CC"},
    {u"&Iacute;", u"\u00CD"},
    {u"&Icirc;", u"\u00CE"},
    {u"&Iuml;", u"\u00CF"},
};
constexpr Replacement kLowerO[] = {
    {u"&ograve;", u"\u00F2"}, {u"&oacute;", u"\u00F3"}, {u"&ocirc;", u"\u00F4"},
    {u"&otilde;", u"\u00F5"}, {u"&ouml;", u"\u00F6"},   {u"&oslash;", u"\u00F8"},
};
constexpr Replacement kUpperO[] = {
    {u"&Ograve;", u"\u00D2"}, {u"&Oacute;", u"\u00D3"}, {u"&Ocirc;", u"\u00D4"},
    {u"&Otilde;", u"\u00D5"}, {u"&Ouml;", u"\u00D6"},   {u"&Oslash;", u"\u00D8"},
};
constexpr Replacement kLowerU[] = {
    {u"&ugrave;", u"\u00F9"},
    {u"&uacute;", u"\u00FA"},
    {u"&ucirc;", u"\u00FB"},
    {u"&uuml;", u"\u00FC"},
};
constexpr Replacement kUpperU[] = {
    {u"&Ugrave;", u"\u00D9"},
    {u"&Uacute;", u"\u00DA"},
    {u"&Ucirc;", u"\u00DB"},
    {u"&Uuml;", u"\u00DC"},
};
constexpr Replacement kLowerY[] = {
    {u"&yacute;", u"y"},
    {u"&yuml;", u"\u00FF"},
};
constexpr Replacement kUpperY[] = {
    {u"&Yacute;", u"Y"},
    {u"&Yuml;", u"\u0178"},
};
constexpr Replacement kOthers[] = {
    {u"&ccedil;", u"\u00E7"}, {u"&Eth;", u"D"},         {u"&ntilde;", u"\u00F1"},
    {u"&Ccedil;", u"\u00C7"}, {u"&Ntilde;", u"\u00D1"}, {u"&copy;", u"\u00A9"},
    {u"&iexcl;", u"\u00A1"},  {u"&cent;", u"\u00A2"},   {u"&pound;", u"\u00A3"},
    {u"&yen;", u"\u00A5"},    {u"&iquest;", u"\u00BF"}, {u"&frac14;", u"\u00BC"},
    {u"&frac12;", u"\u00BD"}, {u"&frac34;", u"\u00BE"}, {u"&micro;", u"\u00B5"},
    {u"&para;", u"\u00B6"},   {u"&curren;", u"\u00A4"}, {u"&hellip;", u"\u2026"},
    {u"&tilde;", u"\u02DC"},  {u"&dagger;", u"\u2020"}, {u"&Dagger;", u"\u2021"},
    {u"&trade;", u"\u2122"},
};

bool Contains(const std::u16string& text, std::u16string_view what) {
  return text.find(what) != std::u16string::npos;
}

// C-locale white space as the link scanner knows it.
bool IsLinkBlank(char16_t ch) { return ch == u' ' || ch == u'\t' || ch == u'\n' || ch == u'\r'; }

int HexValue(unsigned ch) {
  if (ch >= '0' && ch <= '9') return static_cast<int>(ch - '0');
  if (ch >= 'a' && ch <= 'f') return static_cast<int>(ch - 'a' + 10);
  return static_cast<int>(ch - 'A' + 10);
}

// The next valid occurrence of "href" at or after `from`: one at index 0 or
// 1 always counts; any later one only right behind white space.
int FindHref(const CString& lower, int from) {
  int hit = lower.Find(CString(u"href"), from);
  while (hit > 1 && !IsLinkBlank(lower[hit - 1])) hit = lower.Find(CString(u"href"), hit + 1);
  return hit;
}

// Remembers the last answer of a forward search so that a walk asking again
// from a later position does not rescan the text: the answer stays right as
// long as it lies at or after the new position, and "none" found from an
// earlier position stays "none".
class ForwardSearch {
 public:
  template <class Find>
  int Next(int from, Find find) {
    if (!searched_ || (hit_ >= 0 && hit_ < from)) {
      hit_ = find(from);
      searched_ = true;
    }
    return hit_;
  }

 private:
  bool searched_ = false;
  int hit_ = -1;
};

// GetNextLink over a view, so that a walk over a long text does not copy the
// text for every link it meets.
int FindLinkValue(std::u16string_view text, int length, int from, int& start, int& end) {
  const int text_length = static_cast<int>(text.size());
  auto inside = [text_length](int p) { return p >= 0 && p < text_length; };
  int pos = from;
  bool seen_equal = false;
  char16_t quote = 0;
  while (true) {
    if (inside(pos) && text[pos] == u'=') {
      seen_equal = true;
      ++pos;
    }
    // Anything but "=" right behind the attribute word ends the search with
    // the position where it is.
    if (!seen_equal || !inside(pos)) break;
    char16_t ch = text[pos];
    if (ch == u'\'' || ch == u'"') {
      quote = ch;
      ++pos;
      break;
    }
    if (!IsLinkBlank(ch)) break;
    ++pos;
  }
  if (pos >= length || pos >= text_length || pos < 0) return 0;
  start = pos;
  if (quote != 0) {
    size_t close = text.find(quote, static_cast<size_t>(start) + 1);
    end = close == std::u16string_view::npos ? -1 : static_cast<int>(close);
  } else {
    // An unquoted value at the very end of the text has no terminator: the
    // end of the text ends it.
    end = text_length;
    for (int i = start + 1; i < text_length; ++i) {
      if (IsLinkBlank(text[i])) {
        end = i;
        break;
      }
    }
  }
  return 1;
}

}  // namespace

CString KorlanHTMLCtrl::UrlEncode(CString text) {
  static constexpr char16_t kHex[] = u"0123456789ABCDEF";
  std::u16string out;
  out.reserve(text.str().size());
  for (char16_t ch : text.str()) {
    if (IsAlnumUnit(ch)) {
      out.push_back(ch);
    } else if (ch == u' ') {
      out.push_back(u'+');
    } else {
      // "%-2.2X" and its first two characters: the two leading hexadecimal
      // digits of the code, with a leading zero below 16.
      unsigned code = ch;
      out.push_back(u'%');
      if (code < 0x100) {
        out.push_back(kHex[code >> 4]);
        out.push_back(kHex[code & 0xF]);
      } else if (code < 0x1000) {
        out.push_back(kHex[code >> 8]);
        out.push_back(kHex[(code >> 4) & 0xF]);
      } else {
        out.push_back(kHex[code >> 12]);
        out.push_back(kHex[(code >> 8) & 0xF]);
      }
    }
  }
  return CString(std::move(out));
}

CString KorlanHTMLCtrl::URLDecode(CString text) {
  std::u16string& s = text.str();
  for (char16_t& ch : s) {
    if (ch == u'+') ch = u' ';
  }
  ReplaceEach(s, kBasicEntities);

  std::u16string out;
  out.reserve(s.size());
  const size_t n = s.size();
  // The next ";" is looked up once and reused while it lies ahead, so that
  // many "&#" without a ";" do not rescan the rest of the text each time.
  size_t semicolon = 0;
  bool semicolon_known = false;
  size_t i = 0;
  while (i < n) {
    char16_t ch = s[i];
    if (ch == u'%') {
      if (i + 2 < n && IsXDigitUnit(s[i + 1] & 0xFF) && IsXDigitUnit(s[i + 2] & 0xFF)) {
        int value = HexValue(s[i + 1] & 0xFF) * 16 + HexValue(s[i + 2] & 0xFF);
        out.push_back(static_cast<char16_t>(value));
        i += 3;
      } else {
        out.push_back(u'%');
        i += 1;
      }
    } else if (ch == u'&' && i + 1 < n && s[i + 1] == u'#') {
      size_t digits = i + 2;
      if (!semicolon_known || (semicolon != std::u16string::npos && semicolon < digits)) {
        semicolon = s.find(u';', digits);
        semicolon_known = true;
      }
      if (semicolon == std::u16string::npos) {
        out.push_back(u'&');
        i += 1;
      } else {
        int code = _wtoi(CString(std::u16string_view(s).substr(digits, semicolon - digits)));
        out.push_back(static_cast<char16_t>(code));
        i = semicolon + 1;
      }
    } else {
      out.push_back(ch);
      i += 1;
    }
  }
  return CString(std::move(out));
}

CString KorlanHTMLCtrl::DecodeString(CString text) {
  std::u16string& s = text.str();
  // Each group runs only when its guard is in the text as it stands now; the
  // first missing guard ends the chain. Ordinary text pays for one search.
  if (!Contains(s, u"&")) return text;
  ReplaceEach(s, kBasicEntities);
  if (!Contains(s, u"&#")) return text;
  ReplaceEach(s, kNumericEntities);
  if (!Contains(s, u"&a")) return text;
  ReplaceEach(s, kLowerA);
  if (!Contains(s, u"&A")) return text;
  ReplaceEach(s, kUpperA);
  if (!Contains(s, u"&e")) return text;
  ReplaceEach(s, kLowerE);
  if (!Contains(s, u"&E")) return text;
  ReplaceEach(s, kUpperE);
  if (!Contains(s, u"&i")) return text;
  ReplaceEach(s, kLowerI);
  if (!Contains(s, u"&I")) return text;
  ReplaceEach(s, kUpperI);
  if (!Contains(s, u"&o")) return text;
  ReplaceEach(s, kLowerO);
  if (!Contains(s, u"&O")) return text;
  ReplaceEach(s, kUpperO);
  if (!Contains(s, u"&u")) return text;
  ReplaceEach(s, kLowerU);
  if (!Contains(s, u"&U")) return text;
  ReplaceEach(s, kUpperU);
  if (!Contains(s, u"&y")) return text;
  ReplaceEach(s, kLowerY);
  if (!Contains(s, u"&Y")) return text;
  ReplaceEach(s, kUpperY);
  // The last group is guarded by "&Y" once more: it needs a "&Y" word left
  // over after "&Yacute;" and "&Yuml;" are gone.
  if (!Contains(s, u"&Y")) return text;
  ReplaceEach(s, kOthers);
  return text;
}

void KorlanHTMLCtrl::InitializeKorlanHTML() {
  static constexpr const char16_t* kTags[] = {
      u"a",    u"img",         u"html",   u"body", u"pre",  u"blockquote", u"title",
      u"li",   u"ul",          u"form",   u"p",    u"em",   u"i",          u"br",
      u"b",    u"u",           u"strong", u"/a",   u"/img", u"/html",      u"/body",
      u"/pre", u"/blockquote", u"/title", u"/li",  u"/ul",  u"/form",      u"/p",
      u"/em",  u"/i",          u"/br",    u"/b",   u"/u",   u"/strong",
  };
  for (const char16_t* tag : kTags) m_mHTMLTags[CString(tag)] = 1;
}

CString KorlanHTMLCtrl::NormalizeHTML(CString text) {
  std::u16string& s = text.str();
  ReplaceAll(s, u"&", u"&amp;");
  ReplaceAll(s, u"<", u"&lt;");
  ReplaceAll(s, u">", u"&gt;");
  return text;
}

CString KorlanHTMLCtrl::EscapeHTML(CString text, CArray<CString, CString>* /*tags*/, int /*flag*/) {
  const std::u16string& s = text.str();
  if (s.find(u'<') == std::u16string::npos) return text;
  std::u16string out;
  out.reserve(s.size());
  size_t pos = 0;
  bool in_tag = false;
  while (true) {
    if (!in_tag) {
      size_t open = s.find(u'<', pos);
      if (open == std::u16string::npos) break;
      out.append(s, pos, open - pos);
      pos = open + 1;
      in_tag = true;
    } else {
      size_t close = s.find(u'>', pos);
      if (close == std::u16string::npos) break;
      pos = close + 1;
      in_tag = false;
    }
  }
  // Whatever follows the last step is kept, so an unclosed tag keeps its
  // text without the "<".
  if (pos < s.size()) out.append(s, pos, std::u16string::npos);
  return CString(std::move(out));
}

int KorlanHTMLCtrl::GetNextLink(CString text, int length, int from, int& start, int& end) {
  return FindLinkValue(text.view(), length, from, start, end);
}

int KorlanHTMLCtrl::DoesLinkPointToDownloadableFile(CString link) {
  SettingsEntryPoints* settings = SettingsEntryPoints::Get();
  if (settings->GetCurrentPreferences() == nullptr) return 0;
  CString extensions = settings->GetCurrentPreferencesStringValue(kDownloadableExtensionsField);
  extensions.MakeLower();
  link.MakeLower();
  if (extensions.IsEmpty()) return 0;
  const std::u16string_view list = extensions.view();
  const std::u16string_view text = link.view();
  size_t pos = 0;
  while (pos <= list.size()) {
    size_t semicolon = list.find(u';', pos);
    if (semicolon == std::u16string_view::npos) semicolon = list.size();
    std::u16string_view token = list.substr(pos, semicolon - pos);
    pos = semicolon + 1;
    if (token.empty() || token[0] != u'.') continue;
    // The first occurrence has to be the one at the end: "a.mp3.mp3" does
    // not count for ".mp3".
    size_t hit = text.find(token);
    if (hit != std::u16string_view::npos && token.size() <= text.size() &&
        hit == text.size() - token.size()) {
      return 1;
    }
  }
  return 0;
}

CString KorlanHTMLCtrl::NormalizeLinks(CString html, CString baseUrl) {
  if (baseUrl.IsEmpty() || html.IsEmpty()) return CString();
  CString lower = html;
  lower.MakeLower();

  CString base = baseUrl;
  if (base[base.GetLength() - 1] != u'/') {
    // The slash at index 6 is the one behind "http://": a bare host keeps
    // its whole name.
    int slash = base.ReverseFind(u'/');
    if (slash != 6) base = base.Left(slash);
  }

  const int length = html.GetLength();
  std::u16string result;
  result.reserve(html.str().size());
  ForwardSearch href_search;
  ForwardSearch src_search;
  int pos = 0;
  while (true) {
    int href = href_search.Next(pos, [&lower](int from) { return FindHref(lower, from); });
    int src =
        src_search.Next(pos, [&lower](int from) { return lower.Find(CString(u"src"), from); });
    if (href < 0 && src < 0) {
      result.append(html.str(), pos, std::u16string::npos);
      break;
    }
    int word_end;
    if (href >= 0 && (src < 0 || href < src)) {
      word_end = href + 4;
    } else {
      word_end = src + 3;
    }
    int start = 0;
    int end = 0;
    // An attribute word with nothing after it ends the walk, and the rest of
    // the text from the position is lost.
    if (!FindLinkValue(html.view(), length, word_end, start, end)) break;
    if (end < 0) {
      // A quoted value without its closing quote: the walk ends here and
      // the rest of the text is kept as it stands.
      result.append(html.str(), pos, std::u16string::npos);
      break;
    }
    result.append(html.str(), pos, start - pos);
    std::u16string_view value = std::u16string_view(lower.str()).substr(start, end - start);
    std::u16string_view written = std::u16string_view(html.str()).substr(start, end - start);
    if (value.starts_with(u"http") || value.size() < 2) {
      result.append(written);
    } else if (value.starts_with(u"//")) {
      result.append(u"http:");
      result.append(written);
    } else if (value.starts_with(u"/")) {
      result.append(base.str());
      result.append(written);
    } else {
      // Relative paths and "mailto:" links are not resolved, and go out in
      // lower case.
      result.append(value);
    }
    pos = end;
  }
  return CString(std::move(result));
}

}  // namespace kordll
