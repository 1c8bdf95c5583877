#include "kordll/toolkit/KorlanHTMLCtrl.h"

#include <gtest/gtest.h>

#include <string>

#include "kordll/record/SettingsEntryPoints.h"

namespace kordll {

// Prints CStrings readably in failure messages.
void PrintTo(const CString& s, std::ostream* os) { *os << '"' << s.ToUtf8() << '"'; }

namespace {

#define EXPECT_TEXT(expected, actual) EXPECT_EQ(CString(expected), (actual))

// --- DecodeString ------------------------------------------------------------

TEST(DecodeString, TextWithoutAmpersandIsUnchanged) {
  EXPECT_TEXT("plain <b>text</b> 100%",
              KorlanHTMLCtrl::DecodeString(CString("plain <b>text</b> 100%")));
  EXPECT_TEXT("", KorlanHTMLCtrl::DecodeString(CString()));
}

TEST(DecodeString, BasicEntitiesInOrder) {
  EXPECT_TEXT("<b>", KorlanHTMLCtrl::DecodeString(CString("&lt;b&gt;")));
  EXPECT_TEXT(
      "a & b 'c' \"d\" e f",
      KorlanHTMLCtrl::DecodeString(CString("a &amp; b &apos;c&apos; &quot;d&quot; e&nbsp;f")));
  // "&amp;" comes after "&lt;", so the decoded "&lt;" is not decoded again...
  EXPECT_TEXT("&lt;", KorlanHTMLCtrl::DecodeString(CString("&amp;lt;")));
  // ...but it comes before "&apos;", which then is.
  EXPECT_TEXT("'", KorlanHTMLCtrl::DecodeString(CString("&amp;apos;")));
}

TEST(DecodeString, FirstMissingGuardStopsTheChain) {
  // No "&#": the letter groups are never reached.
  EXPECT_TEXT("caf&eacute;", KorlanHTMLCtrl::DecodeString(CString("caf&eacute;")));
  // With every guard up to "&e" present, the same word is decoded.
  EXPECT_TEXT(u"caf\u00e9 ' &a &A",
              KorlanHTMLCtrl::DecodeString(CString("caf&eacute; &#8217; &a &A")));
  // "&A" missing: "&e" group not reached even though "&e" is there.
  EXPECT_TEXT(u"caf&eacute; ' \u00e0",
              KorlanHTMLCtrl::DecodeString(CString("caf&eacute; &#8217; &agrave;")));
}

TEST(DecodeString, GuardIsTestedOnTheTextAsItStands) {
  // The "&" guard of the numeric group is made by decoding "&amp;#".
  EXPECT_TEXT("'", KorlanHTMLCtrl::DecodeString(CString("&amp;#8217;")));
  // "&amp;eacute;" becomes "&eacute;" in the first group and is decoded again
  // once every guard before the "&e" group is met.
  EXPECT_TEXT(u"\u00e9 - &a &A",
              KorlanHTMLCtrl::DecodeString(CString("&amp;eacute; &#8211; &a &A")));
}

TEST(DecodeString, NumericGroup) {
  EXPECT_TEXT(u"\"q\" 'x' ... , - -- & \u20ac\u20ac\u2122",
              KorlanHTMLCtrl::DecodeString(CString(
                  "&#8220;q&#8221; &#8216;x&#8217; &#8230; &#8218; &#8211; &#8212; &#38;&#38; "
                  "&#8364;&#128;&#8482;")));
  // Other numeric references are not decoded, nor is a single "&#38;".
  EXPECT_TEXT("&#233; &#38;", KorlanHTMLCtrl::DecodeString(CString("&#233; &#38;")));
}

// Every guard of the chain, so that all groups run.
const char kAllGuards[] = " &#0 &a &A &e &E &i &I &o &O &u &U &y &Yx";

TEST(DecodeString, LetterGroupsWithEveryGuard) {
  CString in = CString(
                   "&agrave;&aacute;&acirc;&atilde;&auml;&aring;&aelig;"
                   "&Agrave;&Aacute;&Acirc;&Atilde;&Auml;&Aring;&Aelig;"
                   "&egrave;&eacute;&ecirc;&euml;&Egrave;&Eacute;&Ecirc;&Euml;"
                   "&igrave;&iacute;&icirc;&iuml;&Igrave;&Iacute;&Icirc;&Iuml;"
                   "&ograve;&oacute;&ocirc;&otilde;&ouml;&oslash;"
                   "&Ograve;&Oacute;&Ocirc;&Otilde;&Ouml;&Oslash;"
                   "&ugrave;&uacute;&ucirc;&uuml;&Ugrave;&Uacute;&Ucirc;&Uuml;"
                   "&yacute;&yuml;&Yacute;&Yuml;") +
               kAllGuards;
  EXPECT_TEXT(
      u"\u00e0\u00e1\u00e2\u00e3\u00e4\u00e5\u00e6"
      u"\u00c0\u00c1\u00c2\u00c3\u00c4\u00c5\u00c6"
      u"\u00e8\u00e9\u00ea\u00eb\u00c8\u00c9\u00ca\u00cb"
      u"\u00ec\u00ed\u00ee\u00ef\u00cc\u00cd\u00ce\u00cf"
      u"\u00f2\u00f3\u00f4\u00f5\u00f6\u00f8\u00d2\u00d3\u00d4\u00d5\u00d6\u00d8"
      u"\u00f9\u00fa\u00fb\u00fc\u00d9\u00da\u00db\u00dc"
      u"y\u00ffY\u0178"
      u" &#0 &a &A &e &E &i &I &o &O &u &U &y &Yx",
      KorlanHTMLCtrl::DecodeString(in));
}

TEST(DecodeString, LastGroupNeedsALeftoverYWord) {
  CString others(
      "&ccedil;&Eth;&ntilde;&Ccedil;&Ntilde;&copy;&iexcl;&cent;&pound;&yen;&iquest;"
      "&frac14;&frac12;&frac34;&micro;&para;&curren;&hellip;&tilde;&dagger;&Dagger;&trade;");
  EXPECT_TEXT(
      u"\u00e7D\u00f1\u00c7\u00d1\u00a9\u00a1\u00a2\u00a3\u00a5\u00bf"
      u"\u00bc\u00bd\u00be\u00b5\u00b6\u00a4\u2026\u02dc\u2020\u2021\u2122"
      u" &#0 &a &A &e &E &i &I &o &O &u &U &y &Yx",
      KorlanHTMLCtrl::DecodeString(others + kAllGuards));
  // The only "&Y" word is "&Yuml;", gone after its own group: "&copy;" stays.
  CString no_leftover = CString("&copy; &#0 &a &A &e &E &i &I &o &O &u &U &y &Yuml;");
  EXPECT_TEXT(u"&copy; &#0 &a &A &e &E &i &I &o &O &u &U &y \u0178",
              KorlanHTMLCtrl::DecodeString(no_leftover));
}

TEST(DecodeString, BrokenAndUnknownEntitiesStay) {
  EXPECT_TEXT("&lt &bogus; & &;", KorlanHTMLCtrl::DecodeString(CString("&lt &bogus; & &;")));
  EXPECT_TEXT("&EACUTE; &#x41;", KorlanHTMLCtrl::DecodeString(CString("&EACUTE; &#x41;")));
}

// --- NormalizeHTML and EscapeHTML -------------------------------------------

TEST(NormalizeHTML, AmpersandFirstThenBrackets) {
  EXPECT_TEXT("&amp;lt; &lt;b&gt; &amp;amp;",
              KorlanHTMLCtrl::NormalizeHTML(CString("&lt; <b> &amp;")));
}

TEST(EscapeHTML, TextWithoutTagIsUnchanged) {
  EXPECT_TEXT("a > b &amp;", KorlanHTMLCtrl::EscapeHTML(CString("a > b &amp;"), nullptr, 0));
}

TEST(EscapeHTML, RemovesTagsAndKeepsEntities) {
  EXPECT_TEXT("bold &amp; text", KorlanHTMLCtrl::EscapeHTML(
                                     CString("<p><b>bold</b> &amp; <i>text</i></p>"), nullptr, 0));
  EXPECT_TEXT("", KorlanHTMLCtrl::EscapeHTML(KorlanHTMLCtrl::DecodeString(CString("&lt;b&gt;")),
                                             nullptr, 0));
}

TEST(EscapeHTML, UnclosedTagKeepsItsTextWithoutTheBracket) {
  EXPECT_TEXT("a  b", KorlanHTMLCtrl::EscapeHTML(CString("a < b"), nullptr, 0));
  EXPECT_TEXT("xy", KorlanHTMLCtrl::EscapeHTML(CString("x<i>y"), nullptr, 0));
  EXPECT_TEXT("x", KorlanHTMLCtrl::EscapeHTML(CString("x<"), nullptr, 0));
  // Inside a tag a second "<" is part of the tag.
  EXPECT_TEXT("ab", KorlanHTMLCtrl::EscapeHTML(CString("a<<x>b"), nullptr, 0));
}

TEST(EscapeHTML, ListAndFlagAreNotRead) {
  CArray<CString, CString> tags = {CString("b")};
  EXPECT_TEXT("x", KorlanHTMLCtrl::EscapeHTML(CString("<b>x</b>"), &tags, 1));
  EXPECT_EQ(1u, tags.size());
}

// --- UrlEncode -----------------------------------------------------------------

TEST(UrlEncode, LettersDigitsBlanksAndOthers) {
  EXPECT_TEXT("a+b%2Fc", KorlanHTMLCtrl::UrlEncode(CString("a b/c")));
  EXPECT_TEXT("%09%00Z9", KorlanHTMLCtrl::UrlEncode(CString(u"\t", 1) + CString(u'\0') + "Z9"));
  EXPECT_TEXT("%7E%2E%25", KorlanHTMLCtrl::UrlEncode(CString("~.%")));
}

TEST(UrlEncode, WideCodesKeepTheirTwoLeadingDigits) {
  EXPECT_TEXT("%20", KorlanHTMLCtrl::UrlEncode(CString(u"\u20AC")));
  EXPECT_TEXT("%E9", KorlanHTMLCtrl::UrlEncode(CString(u"\u00E9")));
  EXPECT_TEXT("%10", KorlanHTMLCtrl::UrlEncode(CString(u"\u0100")));
  EXPECT_TEXT("%FF", KorlanHTMLCtrl::UrlEncode(CString(u"\uFFFF")));
  EXPECT_TEXT("%D8", KorlanHTMLCtrl::UrlEncode(CString(u'\xD800')));
}

// --- URLDecode -------------------------------------------------------------------

TEST(URLDecode, PercentEscapes) {
  EXPECT_TEXT("a b/c", KorlanHTMLCtrl::URLDecode(CString("a+b%2fc")));
  EXPECT_TEXT("100%", KorlanHTMLCtrl::URLDecode(CString("100%")));
  EXPECT_TEXT("%zz", KorlanHTMLCtrl::URLDecode(CString("%zz")));
  EXPECT_TEXT("%4", KorlanHTMLCtrl::URLDecode(CString("%4")));
  // One escape gives one unit: UTF-8 bytes are not joined.
  EXPECT_EQ(CString(u"\u00C3\u00A9"), KorlanHTMLCtrl::URLDecode(CString("%C3%A9")));
}

TEST(URLDecode, OnlyTheLowEightBitsOfTheDigitsCount) {
  // U+0141 has 0x41 ("A") in its low byte.
  EXPECT_EQ(CString(u"\u001A"), KorlanHTMLCtrl::URLDecode(CString(u"%1\u0141")));
}

TEST(URLDecode, NumericReferences) {
  EXPECT_TEXT("A", KorlanHTMLCtrl::URLDecode(CString("&#65;")));
  EXPECT_TEXT("&#65", KorlanHTMLCtrl::URLDecode(CString("&#65")));
  // No number gives U+0000; the ";" may lie anywhere further on.
  EXPECT_EQ(CString(u'\0') + CString("x"), KorlanHTMLCtrl::URLDecode(CString("&#abc def;x")));
  // The code is cut to 16 bits.
  EXPECT_EQ(CString(u"\u0041"), KorlanHTMLCtrl::URLDecode(CString("&#65601;")));
  EXPECT_TEXT("&B", KorlanHTMLCtrl::URLDecode(CString("&&#66;")));
  // Many "&#" without any ";" further on are all copied.
  EXPECT_TEXT("&#1 &#2 &#", KorlanHTMLCtrl::URLDecode(CString("&#1 &#2 &#")));
}

TEST(URLDecode, PlusAndBasicEntitiesFirst) {
  EXPECT_TEXT("<a> & ' \"  x",
              KorlanHTMLCtrl::URLDecode(CString("&lt;a&gt;+&amp;+&apos;+&quot;+&nbsp;x")));
  // "&amp;#65;" first becomes "&#65;", then a number.
  EXPECT_TEXT("A", KorlanHTMLCtrl::URLDecode(CString("&amp;#65;")));
}

// --- GetNextLink -------------------------------------------------------------------

TEST(GetNextLink, QuotedValue) {
  CString t("href = 'x'");  // blank before "=": the search ends at once
  int start = -7, end = -7;
  ASSERT_EQ(1, KorlanHTMLCtrl::GetNextLink(t, t.GetLength(), 4, start, end));
  EXPECT_EQ(4, start);
  EXPECT_EQ(6, end);  // the next blank after start+1

  CString q("href= \"a b\">");
  ASSERT_EQ(1, KorlanHTMLCtrl::GetNextLink(q, q.GetLength(), 4, start, end));
  EXPECT_EQ(7, start);
  EXPECT_EQ(10, end);
  EXPECT_TEXT("a b", q.Mid(start, end - start));
}

TEST(GetNextLink, UnquotedValueEndsAtWhiteSpaceNotAtBracket) {
  CString t("src=a.gif>next\tmore");
  int start = 0, end = 0;
  ASSERT_EQ(1, KorlanHTMLCtrl::GetNextLink(t, t.GetLength(), 3, start, end));
  EXPECT_EQ(4, start);
  EXPECT_EQ(14, end);
  // At the very end of the text the value ends with the text.
  CString u("src=a.gif");
  ASSERT_EQ(1, KorlanHTMLCtrl::GetNextLink(u, u.GetLength(), 3, start, end));
  EXPECT_EQ(9, end);
}

TEST(GetNextLink, MissingClosingQuoteGivesMinusOne) {
  CString t("href='abc");
  int start = 0, end = 0;
  ASSERT_EQ(1, KorlanHTMLCtrl::GetNextLink(t, t.GetLength(), 4, start, end));
  EXPECT_EQ(6, start);
  EXPECT_EQ(-1, end);
}

TEST(GetNextLink, EmptyQuotedValueSearchesBeyondItsOwnQuote) {
  CString t("href=\"\" a=\"b\"");
  int start = 0, end = 0;
  ASSERT_EQ(1, KorlanHTMLCtrl::GetNextLink(t, t.GetLength(), 4, start, end));
  EXPECT_EQ(6, start);
  EXPECT_EQ(10, end);
}

TEST(GetNextLink, NothingLeftReturnsZero) {
  int start = 99, end = 99;
  CString t("a href");
  EXPECT_EQ(0, KorlanHTMLCtrl::GetNextLink(t, t.GetLength(), 6, start, end));
  CString u("a href= \t");
  EXPECT_EQ(0, KorlanHTMLCtrl::GetNextLink(u, u.GetLength(), 6, start, end));
  // A length shorter than the text bounds the search.
  CString v("href=abc");
  EXPECT_EQ(0, KorlanHTMLCtrl::GetNextLink(v, 5, 4, start, end));
  EXPECT_EQ(0, KorlanHTMLCtrl::GetNextLink(v, v.GetLength(), -3, start, end));
  EXPECT_EQ(0, KorlanHTMLCtrl::GetNextLink(v, 100, 50, start, end));
  EXPECT_EQ(99, start);
  EXPECT_EQ(99, end);
}

// --- NormalizeLinks ----------------------------------------------------------------

const char kBase[] = "http://host/dir/page.html";

CString Links(const char* html, const char* base = kBase) {
  return KorlanHTMLCtrl::NormalizeLinks(CString(html), CString(base));
}

TEST(NormalizeLinks, EmptyBaseOrTextGivesEmptyText) {
  EXPECT_TEXT("", Links("<a href=\"/x\">x</a>", ""));
  EXPECT_TEXT("", Links("", kBase));
}

TEST(NormalizeLinks, ValueKinds) {
  EXPECT_TEXT("<img src=\"http://host/dir/a.gif\">", Links("<img src=\"/a.gif\">"));
  EXPECT_TEXT("<a href=\"http://cdn/a.gif\">", Links("<a href=\"//cdn/a.gif\">"));
  EXPECT_TEXT("<a href=\"sub/a.gif\">", Links("<a href=\"sub/A.gif\">"));
  EXPECT_TEXT("<a href=\"HTTP://x/Y\">", Links("<a href=\"HTTP://x/Y\">"));
  EXPECT_TEXT("<a href=\"mailto:me@x\">", Links("<a href=\"mailto:Me@X\">"));
  // Shorter than two units: kept as written.
  EXPECT_TEXT("<a href='/'>", Links("<a href='/'>"));
}

TEST(NormalizeLinks, BaseIsCutToItsDirectory) {
  EXPECT_TEXT("<a href=\"http://host/a\">", Links("<a href=\"/a\">", "http://host"));
  EXPECT_TEXT("<a href=\"http://host/d//a\">", Links("<a href=\"/a\">", "http://host/d/"));
  // The slash of "https://" is not at index 6, so the host is cut away.
  EXPECT_TEXT("<a href=\"https://a\">", Links("<a href=\"/a\">", "https://host"));
  // No slash at all leaves an empty base.
  EXPECT_TEXT("<a href=\"/a\">", Links("<a href=\"/a\">", "host"));
}

TEST(NormalizeLinks, ManyLinksAndUnchangedTextBetween) {
  EXPECT_TEXT("<P>Text <A HREF=\"http://host/dir/x\">One</A>\n<IMG SRC=\"http://a/b\"> end",
              Links("<P>Text <A HREF=\"/x\">One</A>\n<IMG SRC=\"//a/b\"> end"));
}

TEST(NormalizeLinks, HrefCountsOnlyBehindWhiteSpaceOrAtTheStart) {
  EXPECT_TEXT("<a xhref=\"/x\">", Links("<a xhref=\"/x\">"));
  EXPECT_TEXT("<a\nb>href=/x", Links("<a\nb>href=/x"));
  EXPECT_TEXT("href=http://host/dir/x", Links("href=/x"));
  EXPECT_TEXT(" href=http://host/dir/x", Links(" href=/x"));
  // "src" inside a word is a hit.
  EXPECT_TEXT("<a xsrc=http://host/dir/x>", Links("<a xsrc=/x>"));
}

TEST(NormalizeLinks, AttributeWordWithoutValueDropsTheTail) {
  EXPECT_TEXT("", Links("<a href"));
  EXPECT_TEXT("<a href=\"http://host/dir/x", Links("<a href=\"/x\"> the src"));
}

TEST(NormalizeLinks, WordWithoutEqualSignTakesWhatFollows) {
  // No "=": the value starts right behind the word and runs to white space.
  EXPECT_TEXT("the src code", Links("the src Code"));
  EXPECT_TEXT("<img src>rest", Links("<img src>Rest"));
}

TEST(NormalizeLinks, MissingClosingQuoteKeepsTheRest) {
  EXPECT_TEXT("<a href=\"http://host/dir/x\"> <a href=\"/Open",
              Links("<a href=\"/x\"> <a href=\"/Open"));
}

// --- InitializeKorlanHTML --------------------------------------------------------

TEST(InitializeKorlanHTML, FillsTheTagWordsAndLeavesTheFlag) {
  KorlanHTMLCtrl::InitializeKorlanHTML();
  EXPECT_EQ(34u, KorlanHTMLCtrl::m_mHTMLTags.size());
  EXPECT_EQ(1, KorlanHTMLCtrl::m_mHTMLTags[CString("blockquote")]);
  EXPECT_EQ(1, KorlanHTMLCtrl::m_mHTMLTags.count(CString("/strong")));
  EXPECT_EQ(0u, KorlanHTMLCtrl::m_mHTMLTags.count(CString("div")));
  EXPECT_EQ(0, KorlanHTMLCtrl::m_bKorlanHTMLCtrlInitialized);
  KorlanHTMLCtrl::InitializeKorlanHTML();
  EXPECT_EQ(34u, KorlanHTMLCtrl::m_mHTMLTags.size());
}

// --- DoesLinkPointToDownloadableFile -------------------------------------------

// Current settings that hold only the downloadable extensions.
class ExtensionSettings : public SettingsEntryPoints {
 public:
  explicit ExtensionSettings(const char* extensions, bool present = true)
      : extensions_(extensions), present_(present) {
    previous_ = SettingsEntryPoints::Install(this);
  }
  ~ExtensionSettings() override { SettingsEntryPoints::Install(previous_); }

  CString GetCurrentPreferencesStringValue(int field) override {
    ++reads_;
    return field == KorlanHTMLCtrl::kDownloadableExtensionsField ? extensions_ : CString();
  }
  // Any non-null record stands for "settings exist"; it is never opened.
  Preferences* GetCurrentPreferences() override {
    return present_ ? reinterpret_cast<Preferences*>(&marker_) : nullptr;
  }

  int reads_ = 0;

 private:
  CString extensions_;
  bool present_;
  int marker_ = 0;
  SettingsEntryPoints* previous_ = nullptr;
};

TEST(DoesLinkPointToDownloadableFile, NoSettingsOrEmptyListGivesZero) {
  EXPECT_EQ(0, KorlanHTMLCtrl::DoesLinkPointToDownloadableFile(CString("http://x/a.mp3")));
  {
    ExtensionSettings settings(".mp3", false);
    EXPECT_EQ(0, KorlanHTMLCtrl::DoesLinkPointToDownloadableFile(CString("http://x/a.mp3")));
    EXPECT_EQ(0, settings.reads_);
  }
  ExtensionSettings settings("");
  EXPECT_EQ(0, KorlanHTMLCtrl::DoesLinkPointToDownloadableFile(CString("http://x/a.mp3")));
  EXPECT_EQ(1, settings.reads_);
}

TEST(DoesLinkPointToDownloadableFile, ExtensionAtTheEndWithoutRegardToCase) {
  ExtensionSettings settings(";.MP3;;.ogg;zip;.torrent");
  EXPECT_EQ(1, KorlanHTMLCtrl::DoesLinkPointToDownloadableFile(CString("http://x/Song.mp3")));
  EXPECT_EQ(1, KorlanHTMLCtrl::DoesLinkPointToDownloadableFile(CString("HTTP://X/A.OGG")));
  EXPECT_EQ(1, KorlanHTMLCtrl::DoesLinkPointToDownloadableFile(CString("f.torrent")));
  EXPECT_EQ(0, KorlanHTMLCtrl::DoesLinkPointToDownloadableFile(CString("http://x/a.mp3?x=1")));
  // Words without a leading "." are passed over.
  EXPECT_EQ(0, KorlanHTMLCtrl::DoesLinkPointToDownloadableFile(CString("http://x/a.zip")));
  EXPECT_EQ(0, KorlanHTMLCtrl::DoesLinkPointToDownloadableFile(CString("mp3")));
  EXPECT_EQ(0, KorlanHTMLCtrl::DoesLinkPointToDownloadableFile(CString("")));
}

TEST(DoesLinkPointToDownloadableFile, OnlyTheFirstOccurrenceCounts) {
  ExtensionSettings settings(".mp3");
  EXPECT_EQ(0, KorlanHTMLCtrl::DoesLinkPointToDownloadableFile(CString("a.mp3.mp3")));
  EXPECT_EQ(1, KorlanHTMLCtrl::DoesLinkPointToDownloadableFile(CString("a.mp4.mp3")));
}

TEST(KorlanHTMLCtrl, CallerTextIsUnchanged) {
  CString text("&lt;a href=\"/x\"&gt; a+b%20");
  CString copy = text;
  KorlanHTMLCtrl::DecodeString(text);
  KorlanHTMLCtrl::URLDecode(text);
  KorlanHTMLCtrl::NormalizeLinks(text, CString(kBase));
  KorlanHTMLCtrl::EscapeHTML(text, nullptr, 0);
  EXPECT_EQ(copy, text);
}

}  // namespace
}  // namespace kordll
