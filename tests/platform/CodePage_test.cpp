#include "kordll/platform/CodePage.h"

#include <gtest/gtest.h>

#include "kordll/platform/WinError.h"
#include "tests/platform/LastError.h"

namespace kordll {
namespace {

TEST(CodePageTest, AnsiIsWindows1252) {
  EXPECT_EQ(GetACP(), 1252u);
  // 0x80 is the euro sign in windows-1252 and a control in ISO-8859-1.
  EXPECT_EQ(CodePage::ToUnicode(CP_ACP, "\x80").str(), std::u16string(u"\u20AC"));
  EXPECT_EQ(CodePage::ToUnicode(1252, "caf\xE9 \x93q\x94").str(),
            std::u16string(u"caf\u00E9 \u201Cq\u201D"));
  EXPECT_EQ(CodePage::ToUnicode(28591, "\x80").str(), std::u16string(u"\u0080"));
}

TEST(CodePageTest, CommonCodePagesDecode) {
  EXPECT_EQ(CodePage::ToUnicode(CP_UTF8, "\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80").str(),
            std::u16string(u"\u00FC\u20AC\U0001F600"));
  EXPECT_EQ(CodePage::ToUnicode(932, "\x82\xA0\x93\xFA").str(), std::u16string(u"\u3042\u65E5"));
  EXPECT_EQ(CodePage::ToUnicode(1200, std::string("A\0\xAC\x20", 4)).str(),
            std::u16string(u"A\u20AC"));
  EXPECT_EQ(CodePage::ToUnicode(20866, "\xC1").str(), std::u16string(u"\u0430"));
}

TEST(CodePageTest, InvalidBytesBecomeReplacementCharacters) {
  bool invalid = false;
  CString text = CodePage::ToUnicode(CP_UTF8,
                                     "a\xFF"
                                     "b\xC3",
                                     &invalid);
  EXPECT_TRUE(invalid);
  EXPECT_EQ(text.str(), std::u16string(u"a\uFFFDb\uFFFD"));
  // Bytes a code page leaves undefined; single-byte converters would
  // otherwise give U+001A.
  EXPECT_EQ(CodePage::ToUnicode(20127, "x\xE9y", &invalid).str(), std::u16string(u"x\uFFFDy"));
  EXPECT_TRUE(invalid);
  EXPECT_EQ(CodePage::ToUnicode(932, "\x85\x40!\xFF", &invalid).str(),
            std::u16string(u"\uFFFD!\uFFFD"));
  EXPECT_TRUE(invalid);
  // windows-1252 gives its five unused bytes their C1 controls, as Windows
  // itself does.
  EXPECT_EQ(CodePage::ToUnicode(1252, "\x81\x8D", &invalid).str(), std::u16string(u"\u0081\u008D"));
  EXPECT_FALSE(invalid);
  // NUL bytes are characters like any other.
  EXPECT_EQ(CodePage::ToUnicode(1252, std::string("a\0b", 3)).str(), std::u16string(u"a\0b", 3));
}

TEST(CodePageTest, UnknownCodePageGivesEmpty) {
  for (unsigned cp : {4u, 99u, 1361u + 100000u, 65535u, 0xFFFFFFFFu}) {
    EXPECT_FALSE(CodePage::IsKnown(cp)) << cp;
    EXPECT_TRUE(CodePage::ToUnicode(cp, "abc").IsEmpty()) << cp;
    EXPECT_TRUE(CodePage::FromUnicode(cp, "abc").empty()) << cp;
  }
  char16_t buffer[8];
  SetLastError(0);
  EXPECT_TRUE(
      test::Answers(0, ERROR_INVALID_PARAMETER, MultiByteToWideChar(99, 0, "abc", 3, buffer, 8)));
}

TEST(CodePageTest, EncodingReplacesWhatTheCodePageCannotHold) {
  bool replaced = true;
  EXPECT_EQ(CodePage::FromUnicode(1252, u"caf\u00E9 \u20AC", &replaced), "caf\xE9 \x80");
  EXPECT_FALSE(replaced);
  EXPECT_EQ(CodePage::FromUnicode(1252, u"\u65E5x", &replaced), "?x");
  EXPECT_TRUE(replaced);
  EXPECT_EQ(CodePage::FromUnicode(932, u"\u3042\u65E5"), "\x82\xA0\x93\xFA");
  // UTF-8 writes a lone surrogate as U+FFFD.
  const std::u16string lone = {u'a', 0xD800, u'b'};
  EXPECT_EQ(CodePage::FromUnicode(CP_UTF8, CString(lone), &replaced),
            "a\xEF\xBF\xBD"
            "b");
  EXPECT_TRUE(replaced);
}

TEST(CodePageTest, Win32MultiByteToWideChar) {
  // Counting, then converting; -1 takes the terminator along.
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "h\xC3\xA9", -1, nullptr, 0), 3);
  char16_t buffer[4] = {u'?', u'?', u'?', u'?'};
  ASSERT_EQ(MultiByteToWideChar(CP_UTF8, 0, "h\xC3\xA9", -1, buffer, 4), 3);
  EXPECT_EQ(std::u16string(buffer, 3), std::u16string(u"h\u00E9\0", 3));
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "h\xC3\xA9", 3, buffer, 4), 2);

  SetLastError(0);
  EXPECT_TRUE(test::Answers(0, ERROR_INSUFFICIENT_BUFFER,
                            MultiByteToWideChar(CP_UTF8, 0, "hello", 5, buffer, 4)));
  EXPECT_TRUE(test::Answers(0, ERROR_INVALID_PARAMETER,
                            MultiByteToWideChar(CP_UTF8, 0, "hello", 0, buffer, 4)));
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, nullptr, 3, buffer, 4), 0);
  EXPECT_TRUE(
      test::Answers(0, ERROR_NO_UNICODE_TRANSLATION,
                    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "a\xFF", 2, buffer, 4)));
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "a\xFF", 2, buffer, 4), 2);
  EXPECT_EQ(buffer[1], u'\uFFFD');
}

TEST(CodePageTest, Win32WideCharToMultiByte) {
  const char16_t text[] = u"\u00E9t\u00E9";
  EXPECT_EQ(WideCharToMultiByte(1252, 0, text, -1, nullptr, 0, nullptr, nullptr), 4);
  char out[8] = {};
  int used = -1;
  ASSERT_EQ(WideCharToMultiByte(1252, 0, text, 3, out, 8, nullptr, &used), 3);
  EXPECT_EQ(std::string(out, 3), "\xE9t\xE9");
  EXPECT_EQ(used, 0);
  ASSERT_EQ(WideCharToMultiByte(1252, 0, u"\u4E2D", 1, out, 8, nullptr, &used), 1);
  EXPECT_EQ(out[0], '?');
  EXPECT_EQ(used, 1);
  SetLastError(0);
  EXPECT_TRUE(test::Answers(0, ERROR_INSUFFICIENT_BUFFER,
                            WideCharToMultiByte(CP_UTF8, 0, text, 3, out, 2, nullptr, nullptr)));
}

TEST(CodePageTest, RoundTripsThroughEveryNamedFamily) {
  const CString sample(u"Abc 123 \u00E9");
  for (unsigned cp :
       {1250u, 1252u, 1254u, 1257u, 28591u, 28592u, 850u, 65001u, 1200u, 1201u, 54936u}) {
    ASSERT_TRUE(CodePage::IsKnown(cp)) << cp;
    std::string bytes = CodePage::FromUnicode(cp, sample);
    EXPECT_EQ(CodePage::ToUnicode(cp, bytes), sample) << cp;
  }
}

}  // namespace
}  // namespace kordll
