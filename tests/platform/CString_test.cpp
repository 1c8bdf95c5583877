#include "kordll/platform/CString.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <string>
#include <vector>

namespace kordll {
namespace {

TEST(CStringText, KeepsLoneSurrogatesAndNulUnits) {
  std::u16string raw = {u'a', 0xD800, u'\0', u'b'};
  CString s{raw};
  EXPECT_EQ(s.GetLength(), 4);
  EXPECT_EQ(s[1], 0xD800);
  EXPECT_EQ(s[2], u'\0');
  // Only the UTF-8 view replaces the lone surrogate.
  EXPECT_EQ(s.ToUtf8(), std::string("a\xEF\xBF\xBD\0b", 6));
}

TEST(CStringText, Utf8RoundTripIncludingSupplementaryPlane) {
  CString s("Grüße \xF0\x9F\x93\xB0");  // a newspaper emoji, two units
  EXPECT_EQ(s.GetLength(), 8);
  EXPECT_EQ(s.ToUtf8(), "Grüße \xF0\x9F\x93\xB0");
  EXPECT_EQ(CString::FromUtf8("a\xFF" "b").str(), u"a\uFFFDb");
}

TEST(CStringExtraction, ClampsLikeMfc) {
  CString s(u"abcdef");
  EXPECT_EQ(s.Mid(2), u"cdef");
  EXPECT_EQ(s.Mid(-3, 2), u"ab");
  EXPECT_EQ(s.Mid(4, 100), u"ef");
  EXPECT_EQ(s.Mid(10), u"");
  EXPECT_EQ(s.Mid(1, -1), u"");
  EXPECT_EQ(s.Left(-1), u"");
  EXPECT_EQ(s.Left(99), u"abcdef");
  EXPECT_EQ(s.Right(2), u"ef");
  EXPECT_EQ(s.Right(99), u"abcdef");
  EXPECT_EQ(s.GetAt(6), 0);
}

TEST(CStringSearch, FindRulesAtTheEdges) {
  CString s(u"a,b,,c");
  EXPECT_EQ(s.Find(u','), 1);
  EXPECT_EQ(s.Find(u',', 2), 3);
  EXPECT_EQ(s.Find(u',', 6), -1);
  EXPECT_EQ(s.Find(CString(u",,")), 3);
  EXPECT_EQ(s.Find(CString(u""), 2), 2);
  EXPECT_EQ(s.Find(CString(u""), 7), -1);
  EXPECT_EQ(s.ReverseFind(u','), 4);
  EXPECT_EQ(s.FindOneOf(CString(u"cb")), 2);
}

TEST(CStringEditing, ReplaceRemoveInsertDelete) {
  CString s(u"aaaa");
  EXPECT_EQ(s.Replace(CString(u"aa"), CString(u"b")), 2);  // left to right, no overlap
  EXPECT_EQ(s, u"bb");
  EXPECT_EQ(s.Replace(CString(u""), CString(u"x")), 0);
  CString t(u"a-b-c");
  EXPECT_EQ(t.Remove(u'-'), 2);
  EXPECT_EQ(t, u"abc");
  EXPECT_EQ(t.Insert(99, CString(u"!")), 4);
  EXPECT_EQ(t, u"abc!");
  EXPECT_EQ(t.Delete(1, 99), 1);
  EXPECT_EQ(t, u"a");
}

TEST(CStringCase, SimpleCaseMappingUnitByUnit) {
  CString s(u"Über STRASSE ǅ");
  s.MakeLower();
  EXPECT_EQ(s, u"über strasse ǆ");
  s.MakeUpper();
  EXPECT_EQ(s, u"ÜBER STRASSE Ǆ");
  EXPECT_EQ(CString(u"Über").CompareNoCase(CString(u"üBER")), 0);
  EXPECT_LT(CString(u"abc").CompareNoCase(CString(u"ABD")), 0);
  EXPECT_GT(CString(u"b").Compare(CString(u"a")), 0);
}

TEST(CStringTrim, CLocaleWhiteSpaceOnly) {
  CString s(u"\t\v\f\r\n x \u00A0");
  s.Trim();
  // No-break space is not white space in the C locale.
  EXPECT_EQ(s, u"x \u00A0");
  CString t(u"--x--");
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
  // A last token that ends the text leaves the start one past the end.
  CString t(u"a,b");
  pos = 2;
  EXPECT_EQ(t.Tokenize(CString(u","), pos), u"b");
  EXPECT_EQ(pos, 4);
  EXPECT_EQ(t.Tokenize(CString(u","), pos), u"");
  EXPECT_EQ(pos, -1);
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

TEST(CStringFormat, ConversionsAndFlags) {
  EXPECT_EQ(CString::Formatted(u"R%d_G%d", 13, 42), u"R13_G42");
  EXPECT_EQ(CString::Formatted(u"[%05d|%-4d|%+d]", 42, 7, 3), u"[00042|7   |+3]");
  EXPECT_EQ(CString::Formatted(u"%x %X %#x %o", 255, 255, 255, 8), u"ff FF 0xff 10");
  EXPECT_EQ(CString::Formatted(u"%u", -1), u"4294967295");
  EXPECT_EQ(CString::Formatted(u"%s/%s", CString(u"dir"), "name"), u"dir/name");
  EXPECT_EQ(CString::Formatted(u"%.3s|%5s", CString(u"abcdef"), CString(u"ab")), u"abc|   ab");
  EXPECT_EQ(CString::Formatted(u"%c%c", u'x', 65), u"xA");
  EXPECT_EQ(CString::Formatted(u"%.2f %f %e", 3.14159, 1.5, 12345.678),
            u"3.14 1.500000 1.234568e+04");
  EXPECT_EQ(CString::Formatted(u"%g %g", 0.0001, 1e20), u"0.0001 1e+20");
  EXPECT_EQ(CString::Formatted(u"%*d|%-*d|", 4, 1, 3, 2), u"   1|2  |");
  EXPECT_EQ(CString::Formatted(u"100%% %d"), u"100% ");  // missing argument prints nothing
  EXPECT_EQ(CString::Formatted(u"%I64d %ld", 5LL, 6L), u"5 6");
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

}  // namespace
}  // namespace kordll
