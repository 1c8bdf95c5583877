// `kordll demo`: a short walk through what the library does, on a scratch
// data root (the Makefile points KORDLL_ROOT at build/demo-root).

#include <ostream>

#include "kordll/kordll.h"
#include "tools/ToolCommand.h"

namespace {

using kordll::CString;

int Run(const std::vector<std::string>&, std::ostream& out, std::ostream&) {
  out << "KorDLL " << kordll::GetLibraryVersion() << " demo\n\n";

  out << "Text is 16-bit units, formatted without C varargs:\n";
  CString guid = CString::Formatted(u"R%d_G%d", 7, 1234);
  out << "  GUID of record 1234 of controller 7: " << guid.ToUtf8() << "\n";
  CString title(u"Über die Brücke");
  CString lower = title;
  lower.MakeLower();
  out << "  \"" << title.ToUtf8() << "\" lower-cased unit by unit: \"" << lower.ToUtf8() << "\"\n";

  out << "\nThe record files keep numbers in brackets, read back with C meaning:\n";
  int id = 0, relation = 0, length = 0;
  int fields = kordll::swscanf(CString(u"[40:4:120]"), CString(u"[%d:%d:%d]"), {&id, &relation, &length});
  out << "  \"[40:4:120]\" -> " << fields << " fields: sub-table " << id << ", relation "
      << relation << ", length " << length << "\n";
  out << "  _wtoi(\"  -17 apples\") = " << kordll::_wtoi(CString(u"  -17 apples")) << "\n";
  return 0;
}

const kordll_tool::Registration kReg{"demo", "demo", "walk through what the library does", &Run};

}  // namespace
