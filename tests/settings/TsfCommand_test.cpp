// `kordll tsf`, run in-process: dump shows what the writer laid out, check
// tells the reader's verdict with its offset, export writes what the reader
// stored.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "kordll/platform/FileSystem.h"
#include "kordll/settings/SkinFile.h"
#include "tests/support/TempRoot.h"
#include "tools/ToolCommand.h"

namespace kordll {
namespace {

class TsfCommandTest : public test::TempRootTest {
 protected:
  int Run(const std::vector<std::string>& args) {
    for (const auto& command : kordll_tool::Commands()) {
      if (command.name != "tsf") continue;
      std::ostringstream o, e;
      const int status = command.run(args, o, e);
      out_ = o.str();
      return status;
    }
    ADD_FAILURE() << "tsf command not registered";
    return -1;
  }
  std::string out_;
};

TEST_F(TsfCommandTest, DumpCheckAndExport) {
  const CString dir = root_.DataRoot();
  const std::string file = dir.ToUtf8() + "/s.tsf";
  SkinFile skin;
  skin.SetFileName("s.tsf");
  skin.SetDirectory(dir);
  skin.SetHeaderText(0, "Sea|side");  // a separator: the reader finds four values
  skin.SetHeaderText(1, "b");
  skin.SetHeaderText(2, "c");
  skin.AddSkinEntry("logo.png", "PNG", 3);
  skin.FlushSkin();

  ASSERT_EQ(0, Run({"dump", file}));
  EXPECT_NE(std::string::npos, out_.find("header: \"[Sea|side|b|c]\"\n")) << out_;
  EXPECT_NE(std::string::npos, out_.find("entry \"logo.png\" size 3 at offset 1200\n")) << out_;
  EXPECT_EQ(1, Run({"check", file}));
  EXPECT_NE(std::string::npos, out_.find("refused at offset 1000: ")) << out_;

  std::string header(1000, '\0');
  const std::u16string text = u"[a|b|c|d]";
  for (size_t i = 0; i < text.size(); ++i) header[2 * i] = static_cast<char>(text[i]);
  ASSERT_TRUE(FileSystem::WriteWholeFile(dir + "/h.tsf", header));
  EXPECT_EQ(0, Run({"check", dir.ToUtf8() + "/h.tsf"}));
  EXPECT_EQ("accepted: \"a\", \"b\", \"c\", 0 entries\n", out_);
  EXPECT_EQ(0, Run({"export", dir.ToUtf8() + "/h.tsf", dir.ToUtf8()}));
  EXPECT_EQ(2, Run({"export", dir.ToUtf8() + "/h.tsf", dir.ToUtf8() + "/none"}));
  EXPECT_EQ(2, Run({"check", dir.ToUtf8() + "/missing.tsf"}));
  EXPECT_EQ(2, Run({"dump"}));
}

}  // namespace
}  // namespace kordll
