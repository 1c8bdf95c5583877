#include "kordll/platform/CString.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <string>
#include <vector>

namespace kordll {
namespace {

TEST(CStringText, KeepsLoneSurrogatesAndNulUnitsAndRoundTripsUtf8) {
  std::u16string raw = {u'a', 0xD800, u'\0', u'b'};
  CString s{raw};
  EXPECT_EQ(s.GetLength(), 4);
  EXPECT_EQ(s[1], 0xD800);
  EXPECT_EQ(s[2], u'\0');
  // Only the UTF-8 view replaces the lone surrogate.
  EXPECT_EQ(s.ToUtf8(), std::string("a\xEF\xBF\xBD\0b", 6));
  // UTF-8 round trip, supplementary planes included.
  s = CString("Grüße \xF0\x9F\x93\xB0");  // a newspaper emoji, two units
  EXPECT_EQ(s.GetLength(), 8);
  EXPECT_EQ(s.ToUtf8(), "Grüße \xF0\x9F\x93\xB0");
  EXPECT_EQ(CString::FromUtf8("a\xFF"
                              "b")
                .str(),
            u"a\uFFFDb");
}

TEST(CStringExtraction, ExtractionAndSearchClampLikeMfc) {
  CString s(u"abcdef");
  EXPECT_EQ(s.Mid(-3, 2) + s.Mid(4, 100) + s.Mid(10) + s.Mid(1, -1), u"abef");
  EXPECT_EQ(s.Left(-1) + s.Right(99), u"abcdef");
  EXPECT_EQ(s.GetAt(6), 0);
  s = CString(u"a,b,,c");
  EXPECT_EQ(s.Find(u',', 2), 3);
  EXPECT_EQ(s.Find(u',', 6), -1);
  EXPECT_EQ(s.Find(CString(u""), 2), 2);
  EXPECT_EQ(s.Find(CString(u""), 7), -1);
  EXPECT_EQ(s.ReverseFind(u',') * 10 + s.FindOneOf(CString(u"cb")), 42);
}

TEST(CStringEditing, ReplaceRemoveInsertDeleteCaseAndTrim) {
  CString s(u"aaaa");
  EXPECT_EQ(s.Replace(CString(u"aa"), CString(u"b")), 2);  // left to right, no overlap
  EXPECT_EQ(s, u"bb");
  EXPECT_EQ(s.Replace(CString(u""), CString(u"x")), 0);
  CString t(u"a-b-c");
  EXPECT_EQ(t.Remove(u'-'), 2);
  EXPECT_EQ(t, u"abc");
  EXPECT_EQ(t.Insert(99, CString(u"!")), 4);
  EXPECT_EQ(t.Delete(1, 2), 2);
  EXPECT_EQ(t, u"a!");
  // Simple case mapping, unit by unit.
  s = CString(u"Über STRASSE ǅ");
  s.MakeLower();
  EXPECT_EQ(s, u"über strasse ǆ");
  s.MakeUpper();
  EXPECT_EQ(s, u"ÜBER STRASSE Ǆ");
  EXPECT_EQ(CString(u"Über").CompareNoCase(CString(u"üBER")), 0);
  EXPECT_LT(CString(u"abc").CompareNoCase(CString(u"ABD")), 0);
  s = CString(u"\t\v\f\r\n x \u00A0");
  s.Trim();
  // No-break space is not white space in the C locale.
  EXPECT_EQ(s, u"x \u00A0");
  t = CString(u"--x--");
  t.Trim(u'-');
  EXPECT_EQ(t, u"x");
}

TEST(CStringTokenize, SkipsRunsOfDelimiters) {
  CString s(u",a,,b,");
  int pos = 0;
  EXPECT_EQ(s.Tokenize(CString(u","), pos), u"a");
  EXPECT_EQ(s.Tokenize(CString(u","), pos), u"b");
  EXPECT_EQ(s.Tokenize(CString(u","), pos), u"");
  EXPECT_EQ(pos, -1);
}

TEST(CStringSplit, KeepsEmptyPiecesUnlikeTokenize) {
  EXPECT_EQ(CString(u",a,,b,").Split(u','), (std::vector<CString>{u"", u"a", u"", u"b", u""}));
  EXPECT_EQ(CString().Split(u'|'), std::vector<CString>{CString()});
}

TEST(CStringFormat, NumbersOutOfRangeOfTheConversionSaturate) {
  // A double for an integer conversion never casts out of range.
  EXPECT_EQ(CString::Formatted(u"%d", 1e300), u"9223372036854775807");
  EXPECT_EQ(CString::Formatted(u"%d", -1e300), u"-9223372036854775808");
  EXPECT_EQ(CString::Formatted(u"%d", std::nan("")), u"0");
  EXPECT_EQ(CString::Formatted(u"%u", 1e300), u"18446744073709551615");
  // The most negative width is a left-aligned width like any other.
  EXPECT_EQ(CString::Formatted(u"[%*d]", LLONG_MIN, 5).GetLength(), 4098);
}

TEST(CStringFormat, CopiedArgumentsKeepTheirOwnText) {
  std::vector<FormatArg> args;
  {
    std::string utf8 = "converted";
    FormatArg original(utf8);
    args.push_back(original);
  }
  args.push_back(FormatArg("second"));  // may move the first to new storage
  EXPECT_EQ(args[0].AsText(), u"converted");
  EXPECT_EQ(args[1].AsText(), u"second");
}

TEST(CStringFormat, FloatingPointIgnoresProcessLocale) {
  const char* old = setlocale(LC_NUMERIC, nullptr);
  std::string saved = old ? old : "C";
  // de_DE may be missing; then the process stays in "C" and the test still
  // checks the result.
  setlocale(LC_NUMERIC, "de_DE.UTF-8");
  EXPECT_EQ(CString::Formatted(u"%.1f", 2.5), u"2.5");
  setlocale(LC_NUMERIC, saved.c_str());
}

// Conversions, widths, precisions and flags as printf gives them.
TEST(CStringFormat, WidthPrecisionAndFlagsAsPrintf) {
  const struct {
    CString got;
    const char16_t* want;
  } cases[] = {
      {CString::Formatted(u"R%d_G%d %I64d %u %#x %c%c", 13, 42, 5LL, -1, 255, u'x', 65),
       u"R13_G42 5 4294967295 0xff xA"},
      {CString::Formatted(u"%*d|%-*d|", 4, 1, 3, 2), u"   1|2  |"},
      {CString::Formatted(u"[%5s|%.1s|%3s]", "ab", "ab", CString(u"\u00E9")),
       u"[   ab|a|  \u00E9]"},
      {CString::Formatted(u"[%08.2f|%12.3e|%.3g|%G]", -3.5, 12345.678, 1234567.0, 1e-10),
       u"[-0003.50|   1.235e+04|1.23e+06|1E-10]"},
      {CString::Formatted(u"[%#.3g|%#.0e|%#.0f]", 1.0, 2.0, 3.0), u"[1.00|2.e+00|3.]"},
  };
  for (const auto& c : cases) EXPECT_EQ(CString(c.want).ToUtf8(), c.got.ToUtf8());
}

// U+0000 and lone surrogates are units like any other: searches and edits
// go past them and never stop at them.
TEST(CStringSearch, NulAndLoneSurrogatesAreOrdinaryUnits) {
  const std::u16string raw = {u'a', u'\0', u'b', 0xD800, u'c', u'\0'};
  const CString s{raw};
  EXPECT_EQ(s.Find(u'\0', 2), 5);
  EXPECT_EQ(s.Find(CString(std::u16string{u'\0', u'b'})), 1);
  EXPECT_EQ(s.Find(CString(std::u16string{0xD800})), 3);
  EXPECT_EQ(s.Find(CString(std::u16string{0xDC00})), -1);
  EXPECT_EQ(s.ReverseFind(u'\0'), 5);
  EXPECT_EQ(s.FindOneOf(CString(std::u16string{0xDC00, 0xD800})), 3);

  CString edited = s;
  EXPECT_EQ(edited.Replace(CString(std::u16string(1, u'\0')), CString(u"<>")), 2);
  EXPECT_EQ(edited.str(), (std::u16string{u'a', u'<', u'>', u'b', 0xD800, u'c', u'<', u'>'}));
  CString removed = s;
  EXPECT_EQ(removed.Remove(u'\0'), 2);
  EXPECT_EQ(removed.str(), (std::u16string{u'a', u'b', 0xD800, u'c'}));
  // A replacement that brings its own match is not searched again.
  CString grow(u"aXa");
  EXPECT_EQ(grow.Replace(CString(u"a"), CString(u"aa")), 2);
  EXPECT_EQ(grow, u"aaXaa");
}

}  // namespace
}  // namespace kordll
