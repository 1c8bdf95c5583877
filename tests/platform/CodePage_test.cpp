#include "kordll/platform/CodePage.h"

#include <gtest/gtest.h>

namespace kordll {
namespace {

TEST(CodePageTest, AnsiIsWindows1252) {
  EXPECT_EQ(GetACP(), 1252u);
  // 0x80 is the euro sign in windows-1252.
  EXPECT_EQ(CodePage::ToUnicode(CP_ACP, "\x80").str(), std::u16string(u"\u20AC"));
  EXPECT_EQ(CodePage::ToUnicode(1252, "caf\xE9 \x93q\x94").str(),
            std::u16string(u"caf\u00E9 \u201Cq\u201D"));
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
