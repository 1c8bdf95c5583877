// Loading records: the decoders that turn a stored area into text, the
// piece setter the store feeds, and scans served from the read window.

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/FocusableLink.h"
#include "kordll/record/MarkedText.h"
#include "tests/record/FocusableTestSupport.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

// The multi-byte rules one byte at a time, as the format states them.
std::u16string ReferenceMultiByte(const std::vector<unsigned char>& b, size_t* firstNul) {
  std::u16string out;
  *firstNul = std::u16string::npos;
  const size_t n = b.size();
  for (size_t i = 0; i < n;) {
    const unsigned c = b[i];
    if (c == 0) break;
    const size_t len = c < 0x80 ? 1 : (c & 0xE0) == 0xC0 ? 2 : (c & 0xF0) == 0xE0 ? 3 : 0;
    if (len == 0) {  // a stray continuation byte or a longer lead: passed over
      ++i;
      continue;
    }
    if (i + len > n) break;
    unsigned unit = len == 1 ? c : c & (len == 2 ? 0x1F : 0x0F);
    for (size_t k = 1; k < len; ++k) unit = (unit << 6) | (b[i + k] & 0x3F);
    i += len;
    if (unit == 0 && *firstNul == std::u16string::npos) *firstNul = out.size();
    out.push_back(static_cast<char16_t>(unit));
  }
  return out;
}

TEST(MarkedTextDecodeTest, BlockDecoderMatchesTheByteRules) {
  std::mt19937 rng(5);
  // Long plain runs (the widened blocks), every kind of lead, stray
  // continuation bytes, NUL bytes and groups of zero bits.
  const char* const parts[] = {
      "plain text run ", "a",    "\xC3\xA9", "\xE2\x82\xAC",       "\x80", "\xF5", "", "\xC0\x80",
      "\xE0\x80\x80",    "\xC3", "\xE2\x82", "0123456789abcdefXYZ"};
  for (int round = 0; round < 4000; ++round) {
    std::string s;
    const int pieces = static_cast<int>(rng() % 24);
    for (int k = 0; k < pieces; ++k) {
      // NUL bytes are rare, so that most areas decode to their end.
      const size_t p = rng() % std::size(parts);
      if (p == 6 && rng() % 8 != 0) continue;
      s += p == 6 ? std::string(1, '\0') : std::string(parts[p]);  // "" stands for NUL
    }
    std::vector<unsigned char> area(s.begin(), s.end());
    size_t want_nul;
    const std::u16string want = ReferenceMultiByte(area, &want_nul);

    std::u16string got = u"pre";
    const size_t nul =
        MarkedText::AppendMultiByte(area.data(), static_cast<int>(area.size()), &got);
    ASSERT_EQ(u"pre" + want, got) << "round " << round;
    ASSERT_EQ(want_nul == std::u16string::npos ? want_nul : want_nul + 3, nul) << "round " << round;

    std::vector<char16_t> raw(area.size() + 1);
    size_t raw_nul;
    const size_t n = MarkedText::DecodeMultiByte(area.data(), static_cast<int>(area.size()),
                                                 raw.data(), &raw_nul);
    ASSERT_EQ(want, std::u16string(raw.data(), n));
    ASSERT_EQ(want_nul, raw_nul);
  }
}

TEST(PieceSetterTest, LengthAwarePieceKeepsU0000AndTerminatedTextStopsThere) {
  Focusable r(4, nullptr);
  const char16_t text[] = u"ab\0cd";
  ASSERT_EQ(1, r.SetValuePiece(4, 4, std::u16string_view(text, 5), 0, 0, 1));
  EXPECT_EQ(5, r.GetFieldString(4, 1).GetLength());
  ASSERT_EQ(1, r.SetValue(5, 4, text, 0, 0, 1));
  EXPECT_EQ(CString(u"ab"), r.GetFieldString(5, 1));
  // Pieces of a long field join; a first piece starts afresh.
  ASSERT_EQ(1, r.SetValuePiece(6, 4, u"one ", 1, 1, 0));
  ASSERT_EQ(1, r.SetValuePiece(6, 4, u"two", 1, 0, 1));
  EXPECT_EQ(CString(u"one two"), r.GetFieldString(6, 1));
  ASSERT_EQ(1, r.SetValuePiece(6, 4, u"new", 1, 1, 0));
  EXPECT_EQ(CString(u"new"), r.GetFieldString(6, 1));
  // A typed field is read when it comes whole.
  ASSERT_EQ(1, r.SetValuePiece(1, 0, u"42", 0, 0, 1));
  EXPECT_EQ(42, r.GetFieldInt(1));
}

TEST(PieceSetterTest, LinkTakesPiecesThroughEitherRoad) {
  FocusableLink link;
  Focusable& base = link;
  // Each field is read when its last piece comes, whatever came between.
  ASSERT_EQ(1, base.SetValue(0, 4, u"R3_", 1, 1, 0));
  ASSERT_EQ(1, base.SetValuePiece(0, 4, u"G5", 1, 0, 1));
  EXPECT_EQ(CString(u"R3_G5"), link.GetGUID());
  ASSERT_EQ(1, base.SetValue(1, 0, u"10", 1, 1, 0));
  ASSERT_EQ(1, base.SetValuePiece(2, 0, u"4", 1, 1, 0));
  ASSERT_EQ(1, base.SetValue(1, 0, u"4", 1, 0, 1));
  EXPECT_EQ(CString(u"104"), link.GetFieldString(1, 1));
  ASSERT_EQ(1, base.SetValuePiece(2, 0, u"2", 1, 0, 1));
  EXPECT_EQ(CString(u"42"), link.GetFieldString(2, 1));
  // A link has no field 4 of its own.
  EXPECT_EQ(0, base.SetValuePiece(4, 4, u"x", 0, 1, 1));
  EXPECT_EQ(0, base.SetValue(4, 4, u"x", 0, 0, 1));
}

// Many records, scanned by the owner that just wrote them (its cache holds
// the pages) and changed half way through the scan: every record comes
// once, with the text it holds when it is read.
// Some texts chain into a second slot; every text has a multi-byte character.
CString Text(int i) {
  std::u16string s(static_cast<size_t>(i % 17 == 0 ? 400 : 20 + i % 250), u'a' + i % 26);
  s[s.size() / 2] = u'\u20ac';
  return CString(s);
}

TEST(WindowScanTest, ScanSeesEveryRecordAndChangesMadeDuringIt) {
  test::TempRoot root;
  test::PostLayout layout(300);
  AZeusDB db(root.root(), "scan", 10, 0);
  db.openDB(0);
  constexpr int kCount = 600;
  std::vector<int> slots;
  for (int i = 0; i < kCount; ++i) {
    Focusable r(4, nullptr);
    r.SetValueInt(1, i, 1);
    r.SetValueStr(4, Text(i), 1);
    ASSERT_EQ(1, db.writeFocusableSlot(&r, nullptr, nullptr));
    slots.push_back(r.GetDBSlotIndex());
  }
  int seen = 0;
  int changed_at = -1;
  std::vector<bool> found(kCount, false);
  DBTaskItem task;  // carries the scan's place
  task.allFields = 1;
  for (;;) {
    Focusable r(-1, nullptr);
    if (!db.readFocusableSlot(&r, nullptr, &task)) break;
    // The status names the record; the text field tells whether it changed.
    const int index = r.GetFieldInt(1);
    ASSERT_TRUE(index >= 0 && index < kCount && !found[index]) << index << " seen " << seen;
    found[index] = true;
    const CString text = r.GetFieldString(4, 1);
    EXPECT_EQ(index == changed_at ? CString(u"changed") : Text(index), text) << index;
    if (++seen == kCount / 2) {
      // A record ahead of the scan changes: the scan must read the change.
      changed_at = kCount - 3;
      Focusable w(4, nullptr);
      w.SetDBSlotIndex(slots[changed_at]);
      w.SetValueInt(1, changed_at, 1);
      w.SetValueStr(4, CString(u"changed"), 1);
      ASSERT_EQ(1, db.writeFocusableSlot(&w, nullptr, nullptr));
    }
  }
  EXPECT_EQ(kCount, seen);
  db.closeDB();
}

}  // namespace
}  // namespace kordll
