#include "tools/ToolCommand.h"

#include <algorithm>

#include "kordll/record/Item.h"

namespace kordll_tool {

std::vector<Command>& Commands() {
  static std::vector<Command> commands;
  return commands;
}

const char* FieldTypeName(int type) {
  switch (type) {
    case kordll::Item::kTypeInt:
      return "int";
    case kordll::Item::kTypeDouble:
      return "double";
    case kordll::Item::kTypeDate:
      return "date";
    case kordll::Item::kTypeBool:
      return "bool";
    case kordll::Item::kTypeString:
      return "string";
    default:
      return "unknown";
  }
}

Registration::Registration(const char* name, const char* usage, const char* about, CommandFn run) {
  auto& list = Commands();
  list.push_back(Command{name, usage, about, run});
  std::sort(list.begin(), list.end(),
            [](const Command& a, const Command& b) { return a.name < b.name; });
}

}  // namespace kordll_tool
