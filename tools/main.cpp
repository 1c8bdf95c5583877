// kordll: a thin command-line shell over the library. Each subcommand lives
// in its own tools/<Name>Command.cpp and registers itself (ToolCommand.h).

#include <iostream>
#include <string>
#include <vector>

#include "tools/ToolCommand.h"

namespace {

void PrintHelp(std::ostream& out) {
  out << "usage: kordll COMMAND [ARGS...]\n\n"
         "Commands:\n";
  size_t width = 0;
  for (const auto& c : kordll_tool::Commands()) width = std::max(width, c.usage.size());
  for (const auto& c : kordll_tool::Commands()) {
    out << "  " << c.usage << std::string(width + 2 - c.usage.size(), ' ') << c.about << "\n";
  }
  out << "  --help" << std::string(width > 4 ? width - 4 : 2, ' ') << "this text\n";
}

int PrintUsage(const kordll_tool::Command& c, std::ostream& out) {
  out << "usage: kordll " << c.usage << "\n  " << c.about << "\n";
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty() || args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
    PrintHelp(std::cout);
    return args.empty() ? 2 : 0;
  }
  for (const auto& c : kordll_tool::Commands()) {
    if (c.name == args[0]) {
      std::vector<std::string> rest(args.begin() + 1, args.end());
      // Asking a command for help is no usage error: its usage goes to
      // standard output and the answer is 0. "-h" counts only as the first
      // word, "--help" anywhere (no command takes either as data).
      if (!rest.empty() && rest[0] == "-h") return PrintUsage(c, std::cout);
      for (const std::string& arg : rest) {
        if (arg == "--help") return PrintUsage(c, std::cout);
      }
      return c.run(rest, std::cout, std::cerr);
    }
  }
  std::cerr << "kordll: unknown command '" << args[0] << "' (try kordll --help)\n";
  return 2;
}
