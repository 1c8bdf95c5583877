// `kordll registry dump`, run in-process on a temporary profile.

#include <gtest/gtest.h>

#include <sstream>

#include "kordll/platform/Registry.h"
#include "tests/support/TempRoot.h"
#include "tools/ToolCommand.h"

namespace kordll {
namespace {

class RegistryCommandTest : public test::TempRootTest {
 protected:
  int Run(const std::vector<std::string>& args) {
    for (const auto& command : kordll_tool::Commands()) {
      if (command.name != "registry") continue;
      std::ostringstream o, e;
      const int status = command.run(args, o, e);
      out_ = o.str(), err_ = e.str();
      return status;
    }
    ADD_FAILURE() << "registry command not registered";
    return -1;
  }
  std::string out_, err_;
};

TEST_F(RegistryCommandTest, EveryTypeAndEveryUnitOfATextCanBeToldFromTheDump) {
  Registry* r = Registry::Current();
  const RegHive user = RegHive::kCurrentUser;
  const char16_t odd[] = {u'a', 0, u'"', u'\\', 0xD800, u'\n', 0xD83D, 0xDE00, u'é'};
  ASSERT_EQ(
      r->SetValue(user, "Software\\T", "Pass", RegValue::String(std::u16string(odd, 9)), true), 0);
  r->SetValue(user, "Software\\T", "", RegValue::Dword(42), true);
  r->SetValue(user, "Software\\T\\Sub", "Blob", RegValue::Binary(std::string("\0\xff\x10", 3)),
              true);
  r->SetValue(RegHive::kLocalMachine, "Software\\M", "Q", RegValue::Qword(1ull << 40), true);
  EXPECT_EQ(Run({"dump", "HKCU\\Software\\T"}), 0) << err_;
  EXPECT_EQ(out_,
            "[HKCU\\Software\\T]\n"
            "  @ REG_DWORD 42 (0x0000002a)\n"
            "  \"Pass\" REG_SZ \"a\\u{0000}\\\"\\\\\\u{D800}\\u{000A}\xF0\x9F\x98\x80\xC3\xA9\"\n"
            "[HKCU\\Software\\T\\Sub]\n"
            "  \"Blob\" REG_BINARY 00 ff 10\n");
  EXPECT_EQ(Run({"dump"}), 0);
  EXPECT_NE(
      out_.find("[HKLM\\Software\\M]\n  \"Q\" REG_QWORD 1099511627776 (0x0000010000000000)\n"),
      std::string::npos)
      << out_;
  EXPECT_EQ(Run({"dump", "Software\\Nowhere"}), 1);
  EXPECT_EQ(err_, "kordll registry: no key Software\\Nowhere\n");
  EXPECT_EQ(Run({"list"}), 2);
}

}  // namespace
}  // namespace kordll
