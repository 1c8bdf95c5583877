// KorlanHTMLCtrl: the toolkit for the text that arrives in feeds.
//
// Decodes entities, encodes and decodes addresses, strips tags, makes the
// links of a fragment absolute and tells whether a link points at a file to
// download. It is not a parser: every operation works by plain search over a
// CString, so that broken markup passes through without an error. What each
// operation does with broken input is part of its contract below; several of
// those results look odd and are kept on purpose, because stored texts and
// the applications depend on them.
//
// Every operation takes its text by value and never changes the caller's
// text. Every operation is linear in the length of its input.
//
// Thread safety: all operations but InitializeKorlanHTML read only their
// arguments and may run on any thread.

#ifndef KORDLL_TOOLKIT_KORLANHTMLCTRL_H_
#define KORDLL_TOOLKIT_KORLANHTMLCTRL_H_

#include <map>

#include "kordll/platform/CString.h"

namespace kordll {

class KorlanHTMLCtrl {
 public:
  KorlanHTMLCtrl() = default;
  KorlanHTMLCtrl(const KorlanHTMLCtrl&) = default;
  KorlanHTMLCtrl& operator=(const KorlanHTMLCtrl&) = default;
  virtual ~KorlanHTMLCtrl() = default;

  // Encodes an address component: ASCII letters and digits are copied, a
  // blank becomes "+", and every other unit becomes "%" and the first two
  // hexadecimal digits of its code (upper case, at least two digits). A code
  // above 255 therefore keeps only its two leading digits (U+20AC gives
  // "%20"); this is not UTF-8 encoding.
  static CString UrlEncode(CString text);

  // Decodes an address or form text. First every "+" becomes a blank and the
  // six basic entities ("&lt;", "&gt;", "&amp;", "&apos;", "&quot;",
  // "&nbsp;") are replaced in that order. Then, walking the text:
  //  - "%" and two units whose low 8 bits are hexadecimal digits give the one
  //    unit of that value (multi-byte sequences are not joined); any other
  //    "%" is copied.
  //  - "&#" up to the next ";" gives the unit of the decimal number between
  //    (read as _wtoi reads it, so a text that is no number gives U+0000; the
  //    code is cut to 16 bits); without any ";" further on, the "&" is copied.
  //  - anything else is copied.
  static CString URLDecode(CString text);

  // Turns a fixed list of entities into characters by whole-text
  // replacement, case-sensitively, group by group. A group is reached only
  // when its guard ("&", "&#", "&a", "&A", "&e", ... "&Y", "&Y" again) is
  // found in the text as it stands at that moment; the chain stops at the
  // first missing guard. So "caf&eacute;" alone stays as it is, because the
  // text holds no "&#". Numeric references other than the listed ones, and
  // broken or unknown entities, stay as they stand.
  static CString DecodeString(CString text);

  // Fills m_mHTMLTags with the tag words the applications test for. Call
  // once at start, before any application reads the map: it is not locked.
  // Does not touch m_bKorlanHTMLCtrlInitialized.
  static void InitializeKorlanHTML();

  // The small reverse of DecodeString: "&" to "&amp;", then "<" to "&lt;",
  // then ">" to "&gt;".
  static CString NormalizeHTML(CString text);

  // In spite of its name, removes markup: the text outside "<" ... ">" pairs
  // is kept. An unclosed tag keeps its text without its "<" ("a < b" gives
  // "a  b"). Entities are not touched. `tags` and `flag` are not read; they
  // stay for the applications that pass them.
  static CString EscapeHTML(CString text, CArray<CString, CString>* tags, int flag);

  // The settings field holding the downloadable extensions.
  static constexpr int kDownloadableExtensionsField = 93;

  // 1 if the link ends in one of the downloadable extensions of the current
  // settings (settings field 93, a ";"-separated list of ".ext" words; words
  // not starting with "." are passed over), compared without regard to case. It is the first
  // occurrence of the extension in the link that has to lie at the end, so "a.mp3.mp3" does not
  // count for ".mp3". 0 without current settings or with an empty list.
  static int DoesLinkPointToDownloadableFile(CString link);

  // Makes the values of "href" and "src" attributes absolute against
  // `baseUrl`. An empty base or text gives an empty text. The base is cut
  // to its last "/" (not the one of "http://"), unless it ends in "/".
  // Values beginning with "http" or shorter than 2 units are kept as
  // written; "//x" becomes "http://x"; "/x" is joined to the cut base (the
  // directory of the page, not the root of the host); anything else (a
  // relative path, "mailto:") is written lower-cased and is not resolved.
  // "href" counts only at index 0 or 1 or right behind white space; "src"
  // counts anywhere. An attribute word with no value behind it ends the walk
  // and the rest of the text is dropped; a quoted value without its closing
  // quote ends the walk with the rest of the text kept as it is.
  static CString NormalizeLinks(CString html, CString baseUrl);

  // Finds the value of an attribute whose word ends just before `from`.
  // Only "=" right behind the word, then optional white space and an
  // optional quote, are passed over; anything else ends the search where it
  // is. Returns 0 when that position is outside 0..length-1. Otherwise sets
  // `start` to it and `end` to the closing like quote (-1 if there is none)
  // for a quoted value, or to the next blank, tab, line feed or carriage
  // return (the end of the text if there is none) for an unquoted one, and
  // returns 1. The search for `end` starts one unit beyond `start`.
  static int GetNextLink(CString text, int length, int from, int& start, int& end);

  // The tag words set by InitializeKorlanHTML, each mapped to 1. Nothing in
  // this library reads it; it lives as long as the process.
  static std::map<CString, int> m_mHTMLTags;
  // For the applications' use; starts at 0 and is never set here.
  static int m_bKorlanHTMLCtrlInitialized;
};

}  // namespace kordll

#endif  // KORDLL_TOOLKIT_KORLANHTMLCTRL_H_
