// kordll sdb dump FILE | kordll sdb check FILE: what is inside a
// string database (.sdb) file, and what is wrong with it.
//
// dump prints the header, the slots and each text; check walks
// every slot and chain and prints each inconsistency with its
// offset. Both exit 1 when they found a problem, 2 on a usage error or a
// file that cannot be read, 0 otherwise.

#include <string>
#include <vector>

#include "kordll/platform/CString.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/record/KdbExaminer.h"
#include "tools/ToolCommand.h"

namespace {

int RunSdb(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  if (args.size() != 2 || (args[0] != "dump" && args[0] != "check")) {
    err << "usage: kordll sdb dump|check FILE\n";
    return 2;
  }
  std::string bytes;
  if (!kordll::FileSystem::ReadWholeFile(kordll::CString::FromUtf8(args[1]), &bytes)) {
    err << "kordll sdb: cannot read " << args[1] << "\n";
    return 2;
  }
  const int problems = args[0] == "dump" ? kordll::KdbExaminer::DumpSdb(bytes, out)
                                         : kordll::KdbExaminer::CheckSdb(bytes, out);
  if (args[0] == "check") {
    out << (problems == 0 ? "no problems found" : std::to_string(problems) + " problem(s) found")
        << "\n";
  }
  return problems == 0 ? 0 : 1;
}

const kordll_tool::Registration kSdb{"sdb", "sdb dump|check FILE",
                                     "show or check the inside of a .sdb file", &RunSdb};

}  // namespace
