// `kordll registry dump`, run in-process on a temporary profile.

#include <gtest/gtest.h>

#include <sstream>

#include "kordll/platform/Registry.h"
#include "tests/support/TempRoot.h"
#include "tools/ToolCommand.h"

namespace kordll {
namespace {

int Dump(const std::vector<std::string>& args, std::string* out, std::string* err) {
  for (const auto& command : kordll_tool::Commands()) {
    if (command.name != "registry") continue;
    std::ostringstream o, e;
    const int status = command.run(args, o, e);
    return *out = o.str(), *err = e.str(), status;
  }
  return -1;
}

TEST(RegistryCommandTest, EveryTypeAndEveryUnitOfATextCanBeToldFromTheDump) {
  test::TempRoot root;
  Registry* r = Registry::Current();
  const char16_t odd[] = {u'a', 0, u'"', u'\\', 0xD800, u'\n', 0xD83D, 0xDE00, u'é'};
  r->SetValue(RegHive::kCurrentUser, "Software\\T", "Pass",
              RegValue::String(std::u16string(odd, 9)), true);
  r->SetValue(RegHive::kCurrentUser, "Software\\T", "", RegValue::Dword(42), true);
  r->SetValue(RegHive::kCurrentUser, "Software\\T\\Sub", "B", RegValue::Binary({"\0\xff\x10", 3}),
              true);
  r->SetValue(RegHive::kLocalMachine, "M", "Q", RegValue::Qword(1ull << 40), true);
  std::string out, err;
  EXPECT_EQ(Dump({"dump", "HKCU\\Software\\T"}, &out, &err), 0) << err;
  EXPECT_EQ(out,
            "[HKCU\\Software\\T]\n  @ REG_DWORD 42 (0x0000002a)\n"
            "  \"Pass\" REG_SZ \"a\\u{0000}\\\"\\\\\\u{D800}\\u{000A}\xF0\x9F\x98\x80\xC3\xA9\"\n"
            "[HKCU\\Software\\T\\Sub]\n  \"B\" REG_BINARY 00 ff 10\n");
  EXPECT_EQ(Dump({"dump"}, &out, &err), 0);
  EXPECT_NE(out.find("[HKLM\\M]\n  \"Q\" REG_QWORD 1099511627776 (0x0000010000000000)\n"),
            std::string::npos)
      << out;
  EXPECT_EQ(Dump({"dump", "Software\\Nowhere"}, &out, &err) * 10 + Dump({"list"}, &out, &err), 12);
}

}  // namespace
}  // namespace kordll
