#include "kordll/toolkit/KorlanHTMLCtrl.h"

#include <gtest/gtest.h>

#include <string>

#include "kordll/record/SettingsEntryPoints.h"

namespace kordll {

// Prints CStrings readably in failure messages.
void PrintTo(const CString& s, std::ostream* os) { *os << '"' << s.ToUtf8() << '"'; }

namespace {

#define EXPECT_TEXT(expected, actual) EXPECT_EQ(CString(expected), (actual))

using H = KorlanHTMLCtrl;

struct TextCase {
  const char16_t* in;
  const char16_t* out;
};

// Runs `fn` over each row; a failure names the row's input.
template <typename Fn>
void ExpectEach(Fn fn, std::initializer_list<TextCase> cases) {
  for (const TextCase& c : cases)
    EXPECT_EQ(CString(c.out), fn(CString(c.in))) << CString(c.in).ToUtf8();
}

// Every guard of the decoding chain, so that all groups run.
#define ALL_GUARDS u" &#0 &a &A &e &E &i &I &o &O &u &U &y &Yx"

TEST(DecodeString, EntityGroupsAndTheGuardsBeforeThem) {
  ExpectEach(H::DecodeString,
             {// The basic group, in its order: "&amp;" after "&lt;", before "&apos;".
              {u"&lt;b&gt;", u"<b>"},
              {u"a &amp; b &apos;c&apos; &quot;d&quot; e&nbsp;f", u"a & b 'c' \"d\" e f"},
              // The first missing guard stops the chain: no "&#", no letter groups;
              // "&A" missing, the "&e" group is not reached though "&e" is there.
              {u"caf&eacute; &#8217; &a &A", u"caf\u00e9 ' &a &A"},
              {u"caf&eacute; &#8217; &agrave;", u"caf&eacute; ' \u00e0"},
              // A guard is looked for in the text as it stands after earlier groups.
              {u"&amp;#8217;", u"'"},
              // The numeric group knows its own numbers only, and "&#38;" only doubled.
              {u"&#8220;q&#8221; &#8230; &#38;&#38; &#8364;", u"\"q\" ... & \u20ac"},
              {u"&#233; &#38;", u"&#233; &#38;"},
              // One word at each end of every letter group, with every guard.
              {u"&agrave;&Aelig;&egrave;&Euml;&igrave;&Iuml;&ograve;&Oslash;&ugrave;&Uuml;&yacute;"
               u"&Yuml;" ALL_GUARDS,
               u"\u00e0\u00c6\u00e8\u00cb\u00ec\u00cf\u00f2\u00d8\u00f9\u00dc"
               u"y\u0178" ALL_GUARDS},
              // The last group runs only while a "&Y" word is left over.
              {u"&ccedil;&Eth;&copy;&hellip;&tilde;&trade;" ALL_GUARDS,
               u"\u00e7D\u00a9\u2026\u02dc\u2122" ALL_GUARDS},
              // Broken and unknown entities stay.
              {u"&lt &bogus; & &;", u"&lt &bogus; & &;"}});
}

TEST(NormalizeAndEscapeHTML, AmpersandFirstAndTagsRemoved) {
  EXPECT_TEXT("&amp;lt; &lt;b&gt; &amp;amp;", H::NormalizeHTML(CString("&lt; <b> &amp;")));
  ExpectEach([](const CString& t) { return H::EscapeHTML(t, nullptr, 0); },
             {{u"a > b &amp;", u"a > b &amp;"},
              {u"<p><b>bold</b> &amp; <i>text</i></p>", u"bold &amp; text"},
              // An unclosed tag keeps its text without the bracket; inside a
              // tag a second "<" is part of the tag.
              {u"a < b", u"a  b"},
              {u"a<<x>b", u"ab"}});
}

TEST(UrlEncodeAndDecode, EscapesBothWays) {
  ExpectEach(H::UrlEncode, {{u"a b/c", u"a+b%2Fc"},
                            // Wide codes keep their two leading hex digits.
                            {u"\u20AC", u"%20"}});

  ExpectEach(H::URLDecode,
             {{u"a+b%2fc", u"a b/c"},
              {u"100%", u"100%"},
              // One escape gives one unit: UTF-8 bytes are not joined.
              {u"%C3%A9", u"\u00C3\u00A9"},
              // Only the low eight bits of a digit count (U+0141 ends in 0x41, "A").
              {u"%1\u0141", u"\u001A"},
              // Numeric references, cut to 16 bits, need a ";" somewhere further on.
              {u"&#65601;", u"A"},
              {u"&#1 &#2 &#", u"&#1 &#2 &#"},
              // "+" and the basic entities come first, so "&amp;#65;" ends as a number.
              {u"&amp;#65;", u"A"}});
  // No number gives U+0000; the ";" may lie anywhere further on.
  EXPECT_EQ(CString(u'\0') + CString("x"), H::URLDecode(CString("&#abc def;x")));
}

TEST(GetNextLink, ValueBoundsAndFailures) {
  struct Case {
    const char* text;
    int length;  // -1: the whole text
    int from;
    int answer, start, end;
  } cases[] = {{"href = 'x'", -1, 4, 1, 4, 6},  // blank before "=": the search ends at once
               {"href= \"a b\">", -1, 4, 1, 7, 10},
               // Unquoted: ends at white space, not at ">", or with the text.
               {"src=a.gif>next\tmore", -1, 3, 1, 4, 14},
               {"href='abc", -1, 4, 1, 6, -1},  // no closing quote
               // Nothing left: 0, and start and end untouched.
               {"a href", -1, 6, 0, 99, 99},
               {"href=abc", 5, 4, 0, 99, 99}};  // the length bounds the search
  for (const Case& c : cases) {
    CString t(c.text);
    int start = 99, end = 99;
    EXPECT_EQ(c.answer,
              H::GetNextLink(t, c.length < 0 ? t.GetLength() : c.length, c.from, start, end))
        << c.text;
    EXPECT_EQ(c.start, start) << c.text;
    EXPECT_EQ(c.end, end) << c.text;
  }
}

const char kBase[] = "http://host/dir/page.html";

TEST(NormalizeLinks, ValuesBaseAndTheTextAround) {
  struct Case {
    const char* html;
    const char* base;
    const char* out;
  } cases[] = {
      {"<a href=\"/x\">x</a>", "", ""},
      // Kinds of value: rooted, protocol-relative, and others lowered.
      {"<img src=\"/a.gif\">", kBase, "<img src=\"http://host/dir/a.gif\">"},
      {"<a href=\"//cdn/a.gif\">", kBase, "<a href=\"http://cdn/a.gif\">"},
      {"<a href=\"mailto:Me@X\">", kBase, "<a href=\"mailto:me@x\">"},
      // The base is cut to its folder; the slash of "https://" is not at
      // index 6, so there the host goes too.
      {"<a href=\"/a\">", "https://host", "<a href=\"https://a\">"},
      // "href" counts only behind white space or at the start; "src" anywhere.
      {"<a xhref=\"/x\">", kBase, "<a xhref=\"/x\">"},
      {"<a xsrc=/x>", kBase, "<a xsrc=http://host/dir/x>"},
      // A word without a value drops the tail; a missing closing quote keeps the rest.
      {"<a href", kBase, ""},
      {"<a href=\"/x\"> <a href=\"/Open", kBase, "<a href=\"http://host/dir/x\"> <a href=\"/Open"}};
  for (const Case& c : cases)
    EXPECT_TEXT(c.out, H::NormalizeLinks(CString(c.html), CString(c.base))) << c.html;
}

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
    return field == H::kDownloadableExtensionsField ? extensions_ : CString();
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

int Downloadable(const char* link) { return H::DoesLinkPointToDownloadableFile(CString(link)); }

TEST(DoesLinkPointToDownloadableFile, ListedExtensionAtTheEnd) {
  EXPECT_EQ(0, Downloadable("http://x/a.mp3"));  // no settings
  {
    ExtensionSettings settings(".mp3", false);
    EXPECT_EQ(0, Downloadable("http://x/a.mp3"));
    EXPECT_EQ(0, settings.reads_);
  }
  {
    ExtensionSettings settings("");
    EXPECT_EQ(0, Downloadable("http://x/a.mp3"));
    EXPECT_EQ(1, settings.reads_);
  }
  ExtensionSettings settings(";.MP3;;.ogg;zip;.torrent");
  // Case does not count; words without a leading "." are passed over; only
  // the first occurrence of an extension is looked at.
  for (const char* yes : {"http://x/Song.mp3", "HTTP://X/A.OGG", "f.torrent", "a.mp4.mp3"})
    EXPECT_EQ(1, Downloadable(yes)) << yes;
  for (const char* no : {"http://x/a.mp3?x=1", "http://x/a.zip", "mp3", "", "a.mp3.mp3"})
    EXPECT_EQ(0, Downloadable(no)) << no;
}

}  // namespace
}  // namespace kordll
