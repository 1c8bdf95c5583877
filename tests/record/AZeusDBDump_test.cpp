// `kordll kdb dump`: records shown field by field with the ids, keys and
// types of the relation catalogue, and by position when the catalogue does
// not know the relation or its layout differs from the file's.

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "kordll/platform/FileSystem.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/KdbExaminer.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/schema/Relation.h"
#include "tests/support/TempRoot.h"

namespace kordll {
namespace {

std::string Load(const std::string& name) {
  std::string bytes;
  FileSystem::ReadWholeFile(
      CString((std::string(KORDLL_SOURCE_DIR) + "/tests/record/data/" + name).c_str()), &bytes);
  return bytes;
}

// The layout of valid.kdb (relation 4): guid, status, two holes, title.
bool ValidLayout(int relation, std::vector<KdbExaminer::FieldDesc>* fields) {
  if (relation != 4) return false;
  fields->assign(5, KdbExaminer::FieldDesc());
  (*fields)[0] = {0, "guid", 4};
  (*fields)[1] = {1, "status", 0};
  (*fields)[4] = {4, "title", 4};
  return true;
}

TEST(KdbDumpTest, FieldsAreShownWithKeyAndTypeAndDecodedByType) {
  const std::string bytes = Load("valid.kdb");
  ASSERT_FALSE(bytes.empty());
  std::ostringstream out;
  EXPECT_EQ(0, KdbExaminer::DumpKdb(bytes, out, ValidLayout));
  const std::string s = out.str();
  // A title chained over three slots, joined, and one with multi-byte
  // characters decoded as marked text.
  for (const char* line : {"  field 0 guid (string): R3_G1\n", "  field 1 status (int): 2\n",
                           "  field 4 title (string): a title that runs over three slots\n",
                           "  field 4 title (string): caf\xc3\xa9 \xe2\x82\xac\n"}) {
    EXPECT_NE(std::string::npos, s.find(line)) << line << " in\n" << s;
  }
  EXPECT_EQ(std::string::npos, s.find("  field 4: ")) << s;
}

TEST(KdbDumpTest, TypeDecidesHowAnAreaIsRead) {
  // Declared as an int, the title's area is read as 8-bit text: the marker
  // blanks stay and the multi-byte groups are not joined.
  auto narrow_title = [](int relation, std::vector<KdbExaminer::FieldDesc>* fields) {
    if (!ValidLayout(relation, fields)) return false;
    (*fields)[4].type = 0;
    return true;
  };
  std::ostringstream out;
  KdbExaminer::DumpKdb(Load("valid.kdb"), out, narrow_title);
  EXPECT_NE(std::string::npos, out.str().find("  field 4 title (int):   short\n")) << out.str();
  // "é" as its two bytes, each read as the unit of the same value.
  EXPECT_NE(std::string::npos, out.str().find("  field 4 title (int): !:caf\xc3\x83\xc2\xa9"))
      << out.str();
}

TEST(KdbDumpTest, UnknownRelationOrOtherLayoutIsShownByPosition) {
  auto none = [](int, std::vector<KdbExaminer::FieldDesc>*) { return false; };
  std::ostringstream unknown;
  KdbExaminer::DumpKdb(Load("valid.kdb"), unknown, none);
  EXPECT_NE(std::string::npos,
            unknown.str().find("  field 4: a title that runs over three slots\n"))
      << unknown.str();
  EXPECT_NE(std::string::npos, unknown.str().find("  field 1: 2\n"));

  auto longer = [](int relation, std::vector<KdbExaminer::FieldDesc>* fields) {
    if (!ValidLayout(relation, fields)) return false;
    fields->resize(7);
    return true;
  };
  std::ostringstream other;
  KdbExaminer::DumpKdb(Load("valid.kdb"), other, longer);
  const std::string s = other.str();
  EXPECT_NE(std::string::npos,
            s.find("relation 4: the catalogue's layout has 7 field positions, the file 5"))
      << s;
  EXPECT_NE(std::string::npos, s.find("  field 4: a title that runs over three slots\n")) << s;
  // Told once, not for every record.
  EXPECT_EQ(s.find("the catalogue's layout"), s.rfind("the catalogue's layout"));
}

// The tool takes the layout from the relation catalogue.
TEST(KdbDumpTest, ToolUsesTheRelationCatalogue) {
  const char* tool = KORDLL_TOOL_PATH;
  test::TempRoot root;
  ASSERT_TRUE(root.ok());
  GlobalRelationsCtrl catalogue;
  Relation* post = catalogue.GetRelation(4);
  ASSERT_NE(nullptr, post);
  const std::string title_key = post->GetFieldDecorationName(4).ToUtf8();
  // A field without a key shows that it has none.
  std::string status_key = post->GetFieldDecorationName(1).ToUtf8();
  if (status_key.empty()) status_key = "(no key)";
  ASSERT_FALSE(title_key.empty());
  {
    AZeusDB db(root.root(), "posts", 10, 0);
    Focusable record(4, nullptr);
    record.SetValueStr(0, CString("R3_G7"), 1);
    record.SetValueInt(1, 5, 1);
    record.SetValueStr(4,
                       CString("Gr\xc3\xbc\xc3\x9f"
                               "e aus M\xc3\xbcnchen"),
                       1);
    ASSERT_NE(0, db.writeFocusableSlot(&record, nullptr, nullptr));
  }
  const std::string file = root.Path("posts.kdb").ToUtf8();
  const std::string dump = root.Path("dump.txt").ToUtf8();
  const int status =
      std::system(("'" + std::string(tool) + "' kdb dump '" + file + "' > '" + dump + "'").c_str());
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(0, WEXITSTATUS(status));
  std::string out;
  ASSERT_TRUE(FileSystem::ReadWholeFile(CString(dump.c_str()), &out));
  EXPECT_NE(std::string::npos, out.find("  field 4 " + title_key +
                                        " (string): Gr\xc3\xbc\xc3\x9f"
                                        "e aus M\xc3\xbcnchen\n"))
      << out;
  EXPECT_NE(std::string::npos, out.find("  field 1 " + status_key + " (int): 5\n")) << out;
}

}  // namespace
}  // namespace kordll
