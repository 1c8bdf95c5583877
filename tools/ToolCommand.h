// Subcommands of the `kordll` tool register themselves here, so that each
// lives in its own tools/<Name>Command.cpp and main.cpp stays a thin shell.
//
//   static const kordll_tool::Registration kDate{
//       "date", "date [--local] TEXT...", "how the library reads feed dates", &RunDate};
//
// A command gets the arguments after its name and returns the exit status.
// It writes to the streams it is given, so that tests can run it in-process.

#ifndef KORDLL_TOOLS_TOOLCOMMAND_H_
#define KORDLL_TOOLS_TOOLCOMMAND_H_

#include <ostream>
#include <string>
#include <vector>

namespace kordll_tool {

using CommandFn = int (*)(const std::vector<std::string>& args, std::ostream& out,
                          std::ostream& err);

struct Command {
  std::string name;   // first word: "date", or two words: "kdb dump"
  std::string usage;  // one line, shown by --help
  std::string about;  // one line, shown by --help
  CommandFn run;
};

// All registered commands, sorted by name.
std::vector<Command>& Commands();

// The word for a field or item type (int, double, date, bool, string); a
// number outside the types gives "unknown".
const char* FieldTypeName(int type);

struct Registration {
  Registration(const char* name, const char* usage, const char* about, CommandFn run);
};

}  // namespace kordll_tool

#endif  // KORDLL_TOOLS_TOOLCOMMAND_H_
