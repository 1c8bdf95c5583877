#include "kordll/platform/CRuntime.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

namespace kordll {
namespace {

TEST(RuntimeWtoi, WhiteSpaceSignDigitsAndSaturation) {
  // A sign must touch the digits; only C-locale white space is skipped, and
  // full-width digits are none.
  // clang-format off
  const struct {
    const char16_t* text;
    int value;
  } cases[] = {
      {u"  \t\n\v\f\r-42abc", -42}, {u"+7", 7}, {u"", 0}, {u"- 5", 0}, {u"\u00A012", 0},
      {u"\uFF11", 0}, {u"2147483648", INT_MAX}, {u"-2147483648", INT_MIN},
      {u"-99999999999999999999", INT_MIN}};
  // clang-format on
  for (const auto& c : cases)
    EXPECT_EQ(c.value, _wtoi(CString(c.text))) << CString(c.text).ToUtf8();
  EXPECT_EQ(_wtoi64(CString(u"9223372036854775808")), LLONG_MAX);
  EXPECT_EQ(_atoi("  31x"), 31);
}

TEST(RuntimeWtof, LocaleFreeStrtodMeaning) {
  EXPECT_DOUBLE_EQ(_wtof(CString(u" 3.25xyz")), 3.25);
  EXPECT_DOUBLE_EQ(_wtof(CString(u"-1e3")), -1000.0);
  EXPECT_DOUBLE_EQ(_wtof(CString(u"1,5")), 1.0);  // the comma is never a decimal point
  EXPECT_DOUBLE_EQ(_wtof(CString(u"x")), 0.0);
  EXPECT_DOUBLE_EQ(_wtof(CString(u"2\u00B75")), 2.0);  // a unit above 127 ends the number
}

TEST(RuntimeItow, RadixAndSign) {
  EXPECT_EQ(_itow(-1, 16) + u"|" + _itow(5, 2) + u"|" + _itow(INT_MIN) + u"|" + _itow(5, 1),
            u"ffffffff|101|-2147483648|");
}

TEST(RuntimeScan, CountsAssignedFieldsAndStopsAtMismatch) {
  int a = -1, b = -1, c = -1;
  EXPECT_EQ(swscanf(CString(u"[12:34:56]"), CString(u"[%d:%d:%d]"), {&a, &b, &c}), 3);
  EXPECT_EQ(a, 12);
  EXPECT_EQ(c, 56);
  a = b = -1;
  EXPECT_EQ(swscanf(CString(u"[12;34]"), CString(u"[%d:%d]"), {&a, &b}), 1);
  EXPECT_EQ(b, -1);
  EXPECT_EQ(swscanf(CString(u"x"), CString(u"%d"), {&a}), 0);
  // Input that ends before the first conversion is EOF.
  EXPECT_EQ(swscanf(CString(u"   "), CString(u"%d"), {&a}), -1);
  // A literal does not skip white space: a mismatch, not the end of input.
  EXPECT_EQ(swscanf(CString(u"  ["), CString(u"[%d"), {&a}), 0);
  // A blank matches any run of white space, including none.
  EXPECT_EQ(swscanf(CString(u"1,2"), CString(u"%d ,%d"), {&a, &b}), 2);
  EXPECT_EQ(swscanf(CString(u"1 \t\n ,  2"), CString(u"%d ,%d"), {&a, &b}), 2);
  EXPECT_EQ(b, 2);
  // Conversions beyond the destinations given are not counted.
  a = -1;
  EXPECT_EQ(swscanf(CString(u"12 34 x"), CString(u"%d %d %s"), {&a}), 1);
  EXPECT_EQ(a, 12);
  EXPECT_EQ(sscanf("key=value", "%[^=]=%s", {}), 0);
}

TEST(RuntimeScan, StringReadsAWholeWordWithoutLimit) {
  std::u16string long_word(5000, u'w');
  CString word;
  int n = 0;
  EXPECT_EQ(swscanf(CString(u"  " + long_word + u" 7"), CString(u"%s %d"), {&word, &n}), 2);
  EXPECT_EQ(word.GetLength(), 5000);
  EXPECT_EQ(n, 7);
}

TEST(RuntimeScan, SuppressionCharsAndSets) {
  int a = 0;
  char16_t ch = 0;
  CString rest;
  EXPECT_EQ(swscanf(CString(u"9 x|tail"), CString(u"%*d %c|%[a-z]"), {&ch, &rest}), 2);
  EXPECT_EQ(ch, u'x');
  EXPECT_EQ(rest, u"tail");
  EXPECT_EQ(swscanf(CString(u"0x1A"), CString(u"%x"), {&a}), 1);
  EXPECT_EQ(a, 26);
}

TEST(RuntimeScan, InputAndFormatEndAtTheFirstNul) {
  // A NUL-padded record read as a C string: the padding is not part of %s.
  CString word;
  int n = 0;
  const char16_t padded[] = u"5:abc\0\0x";
  EXPECT_EQ(swscanf(CString(padded, 8), CString(u"%d:%s"), {&n, &word}), 2);
  EXPECT_EQ(word, u"abc");
  // Nothing after the NUL is seen: the input ends before the conversion.
  EXPECT_EQ(swscanf(CString(u"\0"
                            u"7",
                            2),
                    CString(u"%d"), {&n}),
            -1);
  std::string narrow;
  EXPECT_EQ(sscanf(std::string_view("ab\0cd", 5), "%s", {&narrow}), 1);
  EXPECT_EQ(narrow, "ab");
}

TEST(RuntimeScan, CharsWiderThanTheInputAreNotAssigned) {
  CString three(u"--");
  int n = 0;
  EXPECT_EQ(swscanf(CString(u"ab"), CString(u"%3c"), {&three}), -1);
  EXPECT_EQ(three, u"--");
  EXPECT_EQ(swscanf(CString(u"1ab"), CString(u"%d%3c"), {&n, &three}), 1);
  EXPECT_EQ(three, u"--");
  EXPECT_EQ(swscanf(CString(u"abc"), CString(u"%3c"), {&three}), 1);
  EXPECT_EQ(three, u"abc");
}

TEST(RuntimeScan, RealIntoIntegerDestinationKeepsWholePartWithinRange) {
  long long low = 1, high = 1, none = 1;
  int small = 0;
  EXPECT_EQ(swscanf(CString(u"-inf 1e300 nan -2.9"), CString(u"%f %f %f %f"),
                    {&low, &high, &none, &small}),
            4);
  EXPECT_EQ(low, LLONG_MIN);
  EXPECT_EQ(high, LLONG_MAX);
  EXPECT_EQ(none, 0);
  EXPECT_EQ(small, -2);
  unsigned u = 1;
  EXPECT_EQ(sscanf("infinity", "%lf", {&u}), 1);
  EXPECT_EQ(u, static_cast<unsigned>(LLONG_MAX));
}

// Every token wcstok gives for `text` split at ";".
std::vector<CString> Split(CString text, TokenState& st) {
  CString tok;
  std::vector<CString> got;
  for (int r = wcstok(&tok, &text, CString(u";"), st); r;
       r = wcstok(&tok, nullptr, CString(u";"), st))
    got.push_back(tok);
  return got;
}

TEST(RuntimeTokens, RunsOfDelimitersVanishAndTextAndDelimitersEndAtTheFirstNul) {
  TokenState st;
  CString tok;
  EXPECT_EQ(Split(CString(u";;a;b;;c;"), st),
            (std::vector<CString>{CString(u"a"), CString(u"b"), CString(u"c")}));
  EXPECT_EQ(wcstok(&tok, nullptr, CString(u";"), st), 0);
  EXPECT_EQ(Split(CString(u"a;b\0;c", 6), st),
            (std::vector<CString>{CString(u"a"), CString(u"b")}));
  // A NUL in the delimiters ends them; it is no delimiter itself.
  CString plain(u"x,y");
  EXPECT_EQ(wcstok(&tok, &plain, CString(u"\0,", 2), st), 1);
  EXPECT_EQ(tok, u"x,y");
  std::string narrow = "x y", word;
  EXPECT_EQ(strtok(&word, &narrow, " "), 1);
  EXPECT_EQ(word, "x");
}

}  // namespace
}  // namespace kordll
