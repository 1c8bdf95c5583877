// Skin containers: the reader's exact tests on damaged containers, the
// writer's records byte by byte, the writer/reader asymmetry, texts that do
// not fit, and entry names that must not leave the export folder.

#include "kordll/settings/SkinFile.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "kordll/platform/Env.h"
#include "kordll/platform/FileSystem.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

// `text` as UTF-16LE in a record of `size` bytes padded with NUL.
std::string Record(const std::u16string& text, size_t size) {
  std::string bytes;
  for (char16_t unit : text) {
    bytes.push_back(static_cast<char>(unit & 0xFF));
    bytes.push_back(static_cast<char>(unit >> 8));
  }
  if (size > bytes.size()) bytes.resize(size, '\0');
  return bytes;
}
const std::string kGoodHeader = Record(u"[a|b|c|d]", 1000);

class SkinFileTest : public test::TempRootTest {
 protected:
  CString Dir() const { return root_.DataRoot(); }
  int Parse(const std::string& bytes, SkinFile* skin, SkinParseReport* report = nullptr) {
    EXPECT_TRUE(FileSystem::WriteWholeFile(Dir() + "/s.tsf", bytes));
    return skin->ParseSkinFile("s.tsf", Dir(), report);
  }
  std::string Read(const char* name) {
    std::string bytes;
    FileSystem::ReadWholeFile(Dir() + "/" + name, &bytes);
    return bytes;
  }
};

TEST_F(SkinFileTest, DamagedContainers) {
  const std::string writer_entry = Record(u"[logo|3]", 200) + "xyz";
  const struct {
    const char* damage;
    std::string bytes;
    int result;
    int64_t offset;
  } cases[] = {
      {"three values", Record(u"[a|b|c]", 1000), 0, 0},
      {"header cut short", Record(u"[a|b|c|d]", 40), 1, -1},
      {"entry as the writer lays it out", kGoodHeader + writer_entry, 0, 1000},
      {"entry of size 0", kGoodHeader + Record(u"[x|0]", 100), 0, 1000},
      {"absurd entry size", kGoodHeader + Record(u"[x|2147483647]", 100), 0, 1000},
      {"entry without a name", kGoodHeader + Record(u"[|5]", 100), 0, 1000},
  };
  for (const auto& c : cases) {
    SkinFile skin;
    SkinParseReport report;
    EXPECT_EQ(c.result, Parse(c.bytes, &skin, &report)) << c.damage;
    EXPECT_EQ(c.offset, report.offset) << c.damage;
    EXPECT_EQ(c.result == 1, report.reason.IsEmpty()) << c.damage;
    EXPECT_TRUE(skin.GetEntryNames().empty()) << c.damage;
  }
  SkinFile skin;
  EXPECT_EQ(0, skin.ParseSkinFile("missing.tsf", Dir()));
}

TEST_F(SkinFileTest, AFailedParseKeepsWhatWasStored) {
  SkinFile skin;
  skin.AddSkinEntry("kept", "ab", 2);
  EXPECT_EQ(0, Parse(Record(u"[x|y|z]", 1000), &skin));
  EXPECT_EQ(CString("y"), skin.GetHeaderText(1));
  EXPECT_EQ(2, skin.GetEntrySize("kept"));
}

TEST_F(SkinFileTest, TextsThatDoNotFitWriteNothing) {
  SkinFile skin;
  skin.SetFileName("w.tsf");
  skin.SetDirectory(Dir());
  skin.SetHeaderText(0, std::u16string(495, u'h'));  // "[" + 495 + "||]" + NUL = 500 units
  skin.FlushSkin();
  const std::string before = Read("w.tsf");
  EXPECT_EQ(Record(u"[" + std::u16string(495, u'h') + u"||]", 1000), before);
  skin.SetHeaderText(0, std::u16string(496, u'h'));
  skin.FlushSkin();
  EXPECT_EQ(before, Read("w.tsf"));
  skin.SetHeaderText(0, "");
  skin.AddSkinEntry(std::u16string(96, u'n'), "x", 1);  // "[" + 96 + "|1]" + NUL = 100 units
  skin.FlushSkin();
  EXPECT_EQ(before, Read("w.tsf"));
}

// Notes every path opened and opens none.
class OpenRecorder : public EnvWrapper {
 public:
  OpenRecorder() : EnvWrapper(Env::Current()) {}
  int OpenFile(const std::string& path, uint32_t, int, std::unique_ptr<EnvFile>*) override {
    opened += path + ";";
    return ERROR_ACCESS_DENIED;
  }
  std::string opened;
};

// Without a folder there is no container: "//" + name is not taken as a
// path at the top of the file system.
TEST(SkinFileNoFolderTest, NeitherReadNorWrittenWithoutAFolder) {
  OpenRecorder recorder;
  ScopedEnv use(&recorder);
  SkinFile skin;
  EXPECT_EQ(0, skin.ParseSkinFile("r.tsf", ""));
  skin.SetFileName("w.tsf");
  skin.FlushSkin();
  skin.SetFileName("");
  skin.SetDirectory("/tmp");
  skin.FlushSkin();
  EXPECT_EQ("", recorder.opened);
}

TEST_F(SkinFileTest, ExportKeepsHostileNamesInsideTheFolder) {
  SkinFile skin;
  const std::u16string nul_name(u"a\0b", 3);
  for (const std::u16string& name :
       {std::u16string(u"."), std::u16string(u".."), std::u16string(u"../up"),
        std::u16string(u"a/b"), std::u16string(u"a\\b"), std::u16string(u"~home"), nul_name}) {
    ASSERT_EQ(1, skin.AddSkinEntry(name, "evil", 4));
    EXPECT_EQ(0, skin.ExportSkinFile(name, Dir())) << CString(name).ToUtf8();
  }
  skin.AddSkinEntry("good.png", "fine", 4);
  EXPECT_EQ(0, skin.ExportSkinFile("unknown", Dir()));
  EXPECT_EQ(0, skin.ExportSkinFile("good.png", ""));
  EXPECT_EQ(0, skin.ExportAllSkinFiles(""));
  ASSERT_TRUE(FileSystem::CreateDirectory(Dir() + "/out"));
  EXPECT_EQ(1, skin.ExportAllSkinFiles(Dir() + "/out"));
  EXPECT_EQ("fine", Read("out/good.png"));
  EXPECT_FALSE(FileSystem::Exists(Dir() + "/up"));
  EXPECT_FALSE(FileSystem::Exists(Dir() + "/out/a"));
  EXPECT_FALSE(FileSystem::Exists(Dir() + "/out/a\\b"));
  EXPECT_FALSE(FileSystem::Exists(Dir() + "/out/~home"));
}

}  // namespace
}  // namespace kordll
