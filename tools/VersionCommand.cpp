#include <ostream>

#include "kordll/kordll.h"
#include "tools/ToolCommand.h"

namespace {

int Run(const std::vector<std::string>&, std::ostream& out, std::ostream&) {
  out << "kordll " << kordll::GetLibraryVersion() << "\n";
  return 0;
}

const kordll_tool::Registration kReg{"version", "version", "print the library version", &Run};

}  // namespace
