#include "tools/ToolCommand.h"

#include <algorithm>

namespace kordll_tool {

std::vector<Command>& Commands() {
  static std::vector<Command> commands;
  return commands;
}

Registration::Registration(const char* name, const char* usage, const char* about, CommandFn run) {
  auto& list = Commands();
  list.push_back(Command{name, usage, about, run});
  std::sort(list.begin(), list.end(),
            [](const Command& a, const Command& b) { return a.name < b.name; });
}

}  // namespace kordll_tool
