// The small tools: charsets, text files at the byte level, scrambling, the
// date sort, folders, shortcuts in the profile, sounds, messages, blanks.

#include "kordll/toolkit/Utility.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "kordll/platform/CWinApp.h"
#include "kordll/platform/CWinThread.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/LibraryLifetime.h"
#include "kordll/record/SettingsEntryPoints.h"
#include "tests/support/TempRoot.h"
#include "tests/support/TestHost.h"

namespace kordll {
namespace {

class UtilityTest : public test::TempRootWithProgramTest {
 protected:
  CString Write(const std::string& bytes) {
    const CString path = root_.Path("data/file.txt");
    EXPECT_EQ(FileSystem::WriteWholeFile(path, bytes), 1);
    return path;
  }
  std::string Bytes(const CString& path) {
    std::string out;
    FileSystem::ReadWholeFile(path, &out);
    return out;
  }
};

// What each reader gives for the same bytes.
struct ReadCase {
  std::string bytes;
  std::u16string content, utf8;
};

TEST_F(UtilityTest, ReadersDecodeAsTheFileDeclaresOrByTheLeadBytes) {
  const std::string decl = "<?xml version='1' encoding=";
  const std::u16string udecl = u"<?xml version='1' encoding=";
  const ReadCase cases[] = {
      // A mark alone is no longer than 3 bytes: not taken for UTF-8.
      {"\xEF\xBB\xBF", u"\u00EF\u00BB\u00BF", u"\uFEFF"},
      {decl + "'ISO-8859-1'?>\xE9", udecl + u"'ISO-8859-1'?>\u00E9", udecl + u"'ISO-8859-1'?>"},
      // Unquoted, the first letter starts the name and is lost: "tf-8".
      {decl + "utf-8?>\xC3\xA9", udecl + u"utf-8?>\u00C3\u00A9", udecl + u"utf-8?>\u00E9"},
      {std::string("\xFF\xFE\x61\0b\0", 6), u"\u00FF\u00FEa", u"a"},  // UTF-16: cut at once
      {std::string("ab\0c", 4), u"ab", u"ab"},
  };
  for (const ReadCase& c : cases) {
    const CString path = Write(c.bytes);
    EXPECT_EQ(Utility::ReadFileContent(path), CString(c.content)) << c.bytes;
    EXPECT_EQ(Utility::ReadFile_wUTF8(path), CString(c.utf8)) << c.bytes;
  }
  const CString missing = root_.Path("data/missing.txt");
  EXPECT_EQ(Utility::ReadFileContent(missing) + Utility::ReadFile_wUTF8(missing), CString());
}

TEST_F(UtilityTest, ReadersKeepEachBlockUpToItsFirstNulAndJoinGroupsAcrossBlocks) {
  // A group straddles the first block's end; a NUL ends the second block only.
  std::string bytes(35000, 'a');
  bytes[9999] = '\xC3';
  bytes[10000] = '\xA9';
  bytes[10003] = '\0';
  const CString path = Write(bytes);
  const CString utf8 = Utility::ReadFile_wUTF8(path);
  ASSERT_EQ(utf8.GetLength(), 9999 + 1 + 2 + 15000);
  EXPECT_EQ(utf8[9999], u'\u00E9');
  EXPECT_EQ(Utility::ReadFileContent(path).GetLength(), 10000 + 3 + 15000);
  // A few megabytes come back whole.
  EXPECT_EQ(Utility::ReadFileContent(Write(std::string(3 << 20, 'x'))).GetLength(), 3 << 20);
}

TEST_F(UtilityTest, SaveIntoFileWritesEachUnitByTheFormatsByteRules) {
  const CString path = root_.Path("data/out.txt");
  Utility::SaveIntoFile_wUTF8(path, CString(u"a\u007F\u00E9\u20AC\U0001F600"), 1, 1);
  const std::string expected =
      "\xEF\xBB\xBF\x61\xC1\xBF\xC3\xA9\xE2\x82\xAC\xED\xA0\xBD\xED\xB8\x80";
  EXPECT_EQ(Bytes(path), expected);
  // Appending to a file that is not empty never adds a second mark.
  Utility::SaveIntoFile_wUTF8(path, CString(u"b"), 0, 1);
  EXPECT_EQ(Bytes(path), expected + "b");
  Utility::SaveIntoFile_wUTF8(root_.Path("data/no/such.txt"), CString(u"f"), 1, 1);
  EXPECT_FALSE(FileSystem::Exists(root_.Path("data/no")));
  // Long texts cross the write buffer's flushes unharmed.
  std::u16string units;
  std::mt19937 random(7);
  for (int i = 0; i < 5000; ++i) units.push_back(static_cast<char16_t>(1 + random() % 0xFFFF));
  Utility::SaveIntoFile_wUTF8(path, CString(units), 1, 0);
  EXPECT_EQ(Utility::ReadFile_wUTF8(path), CString(units));
}

TEST_F(UtilityTest, ScramblingRoundTripsEveryTextBehindItsMarker) {
  // Stored texts depend on the key: it never changes.
  EXPECT_EQ(Utility::EncriptString(CString(u"a")), CString(u"::[\u0011"));
  const std::u16string texts[] = {u"", u"password", std::u16string(30, u'\uFFFF'),
                                  std::u16string(u"a\0\xD800z", 4), u"\u65E5\u672C\U0001F600"};
  for (const std::u16string& text : texts) {
    const CString scrambled = Utility::EncriptString(CString(text));
    EXPECT_EQ(scrambled.Left(3), CString(u"::["));
    EXPECT_EQ(scrambled.GetLength(), static_cast<int>(text.size()) + 3);
    EXPECT_EQ(Utility::DecriptString(scrambled), CString(text));
  }
  EXPECT_EQ(Utility::DecriptString(CString(u"password")), CString());
  EXPECT_EQ(Utility::DecriptString(CString(u":[x")), CString());
}

// A record whose dates are given.
class DatedRecord : public Focusable {
 public:
  DatedRecord(char name, COleDateTime received, COleDateTime published)
      : Focusable(4, nullptr), name(name), received_(received), published_(published) {}
  COleDateTime GetReceiveDateTime() override { return received_; }
  COleDateTime GetPublicationDateTime() override { return published_; }
  char name;
  COleDateTime received_, published_;
};

std::string Names(const std::vector<Focusable*>& list) {
  std::string out;
  for (Focusable* f : list) out += f == nullptr ? '-' : static_cast<DatedRecord*>(f)->name;
  return out;
}

TEST_F(UtilityTest, DateSortPutsInvalidDatesFirstAscendingAndIsNotStable) {
  KordllProcessAttach();
  COleDateTime bad;
  bad.SetStatus(COleDateTime::invalid);
  const COleDateTime d1(2005, 1, 1, 0, 0, 0), d2(2006, 1, 1, 0, 0, 0), d3(2007, 1, 1, 0, 0, 0);
  DatedRecord a('a', d3, d1), b('b', bad, d2), c('c', d1, bad), d('d', d2, d3);
  std::vector<Focusable*> list = {&a, &b, &c, &d};
  Utility::QuickSortFocusables_wDate(&list, 0, 3, 1, 0);
  EXPECT_EQ(Names(list), "bcda");
  Utility::QuickSortFocusables_wDate(&list, 0, 3, 0, 1);
  EXPECT_EQ(Names(list), "dbac");
  Utility::QuickSortFocusables_wDate(&list, -1, 2, 1, 1);  // ranges outside: left alone
  Utility::QuickSortFocusables_wDate(&list, 0, 4, 1, 1);
  Utility::QuickSortFocusables_wDate(nullptr, 0, 3, 1, 1);
  EXPECT_EQ(Names(list), "dbac");
  // Equal dates stop both scans and are swapped.
  DatedRecord x('x', d1, d1), y('y', d1, d1), z('z', d1, d1);
  std::vector<Focusable*> same = {&x, &y, &z, nullptr};
  Utility::QuickSortFocusables_wDate(&same, 0, 2, 1, 0);
  EXPECT_EQ(Names(same), "zyx-");
  Utility::QuickSortFocusables_wDate(&same, 0, 3, 1, 0);
  EXPECT_EQ(Names(same), "-xzy");  // no record: no date, first
  // Many records, with many equal dates.
  std::deque<DatedRecord> many;
  std::vector<Focusable*> big;
  std::mt19937 random(3);
  while (big.size() < 20000)
    big.push_back(&many.emplace_back('r', COleDateTime(38000.0 + random() % 50), d1));
  Utility::QuickSortFocusables_wDate(&big, 0, 19999, 0, 0);
  EXPECT_TRUE(std::is_sorted(big.begin(), big.end(), [](Focusable* l, Focusable* r) {
    return l->GetReceiveDateTime() > r->GetReceiveDateTime();
  }));
}

TEST_F(UtilityTest, DeleteDirectoryRemovesTheTreeButNeverFollowsALink) {
  const CString tree = root_.Path("data/tree"), outside = root_.Path("data/outside");
  ASSERT_EQ(
      FileSystem::CreateDirectoryTree(tree + "/sub/deeper") + FileSystem::CreateDirectory(outside),
      2);
  for (const CString& file : {tree + "/f", tree + "/sub/deeper/g", outside + "/keep"}) {
    ASSERT_EQ(FileSystem::WriteWholeFile(file, "x"), 1);
  }
  ASSERT_EQ(FileSystem::CreateSymbolicLink(tree + "/sub/link", outside) +
                FileSystem::CreateSymbolicLink(root_.Path("data/alias"), outside),
            2);
  EXPECT_EQ(Utility::DeleteDirectory(root_.Path("data/alias").GetString()), 0);
  EXPECT_EQ(Utility::DeleteDirectory(tree.GetString()), 1);
  EXPECT_FALSE(FileSystem::Exists(tree));
  EXPECT_TRUE(FileSystem::IsFile(outside + "/keep"));
  EXPECT_EQ(Utility::DeleteDirectory(tree.GetString()) + Utility::DeleteDirectory(nullptr), 0);
}

class SectionSettings : public SettingsEntryPoints {
 public:
  CString GetCurrentPreferencesSection() override { return section; }
  CString section;
};

TEST_F(UtilityTest, ShortcutsSplitIntoModifierAndKeyAndLiveInTheSettingsSection) {
  // "shortcut=modifier key text": the thousands are the modifiers, the rest
  // the key, named only as a letter or digit.
  for (const std::string row : {"2065=2 65 CTRL + A", "4065=3 1065 CTRL + ALT + ", "-5=-1 0 "}) {
    const int shortcut = std::stoi(row);
    EXPECT_EQ(std::to_string(Utility::GetKeyboardShortcut_inMOD(shortcut)) + " " +
                  std::to_string(Utility::GetVirtualKey(shortcut)) + " " +
                  Utility::GetKeyboardShortcut_inString(shortcut).ToUtf8(),
              row.substr(row.find('=') + 1));
  }
  CWinApp app("Korlan", "Tidrel");
  SectionSettings settings;
  SettingsEntryPoints* previous = SettingsEntryPoints::Install(&settings);
  Utility::SetKeyboardShortcut(32771, 2065);  // no settings yet: nothing stored
  EXPECT_EQ(Utility::GetKeyboardShortcut_wCommandID(32771), -1);
  settings.section = "User-ann";
  const CString section("User-ann\\KeyboardShortcuts");
  Utility::SetKeyboardShortcut(32771, 2065);
  EXPECT_EQ(app.GetProfileString(section, "32771"), CString("2065"));
  EXPECT_EQ(Utility::GetKeyboardShortcut_wCommandID(32771), 2065);
  app.WriteProfileInt(section, "3", 2066);  // not a text: as if missing
  EXPECT_EQ(Utility::GetKeyboardShortcut_wCommandID(3), -1);
  SettingsEntryPoints::Install(previous);
}

TEST_F(UtilityTest, SoundsArePathsWithASlashOrFilesOfTheSharedSoundsFolder) {
  TestHost host;
  Host::Install(&host);
  Utility::PlaySoundFile(CString("ding.wav"));
  Utility::PlaySoundFile(CString("/usr/share/sounds/bell.oga"));
  Utility::PlaySoundFile(CString("mine/bell.wav"));
  Utility::PlaySoundFile(CString());
  Host::Install(nullptr);
  const std::vector<TestHost::Call> calls = host.calls();
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_EQ(calls[0].text, root_.ProgramFolder() + "/SoundNotification/ding.wav");
  EXPECT_EQ(calls[1].text + calls[2].text, CString("/usr/share/sounds/bell.ogamine/bell.wav"));
  EXPECT_EQ(calls[0].flags, SND_FILENAME | SND_ASYNC);
}

}  // namespace
}  // namespace kordll
