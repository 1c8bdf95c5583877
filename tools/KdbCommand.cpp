// kordll kdb dump FILE | kordll kdb check FILE: what is inside a
// record database (.kdb) file, and what is wrong with it.
//
// dump prints the header, the sub-tables and each record field by field,
// each field with its id, key and type from the relation catalogue and
// decoded as its type says (by position when the catalogue does not know
// the relation or its layout differs from the file's); check walks
// every sub-table, slot and chain and prints each inconsistency with its
// offset. Both exit 1 when they found a problem, 2 on a usage error or a
// file that cannot be read, 0 otherwise.

#include <memory>
#include <string>
#include <vector>

#include "kordll/platform/CString.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/record/FieldInfo.h"
#include "kordll/record/KdbExaminer.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/schema/Relation.h"
#include "tools/ToolCommand.h"

namespace {

// The layout of a relation from the catalogue: one entry per field
// position, holes with id -1.
bool CatalogueLayout(const kordll::GlobalRelationsCtrl& catalogue, int relation,
                     std::vector<kordll::KdbExaminer::FieldDesc>* fields) {
  kordll::Relation* r = catalogue.GetRelation(relation);
  if (r == nullptr || r->GetRGDBTemplate() == nullptr) return false;
  kordll::RGDBTemplate* layout = r->GetRGDBTemplate();
  fields->assign(layout->GetFieldCount(), kordll::KdbExaminer::FieldDesc());
  for (int i = 0; i < layout->GetFieldCount(); ++i) {
    const kordll::FieldInfo* field = layout->GetField(i);
    if (field == nullptr || field->id < 0) continue;
    (*fields)[i].id = field->id;
    (*fields)[i].name = field->decoration.ToUtf8();
    (*fields)[i].type = field->type;
  }
  return true;
}

int RunKdb(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  if (args.size() != 2 || (args[0] != "dump" && args[0] != "check")) {
    err << "usage: kordll kdb dump|check FILE\n";
    return 2;
  }
  std::string bytes;
  if (!kordll::FileSystem::ReadWholeFile(kordll::CString::FromUtf8(args[1]), &bytes)) {
    err << "kordll kdb: cannot read " << args[1] << "\n";
    return 2;
  }
  int problems;
  if (args[0] == "dump") {
    // The catalogue of the process if one stands, else one of our own with
    // the default relations.
    std::unique_ptr<kordll::GlobalRelationsCtrl> own;
    const kordll::GlobalRelationsCtrl* catalogue =
        kordll::GlobalRelationsCtrl::GetGlobalRelationsCtrl();
    if (catalogue == nullptr) {
      own = std::make_unique<kordll::GlobalRelationsCtrl>();
      catalogue = own.get();
    }
    problems = kordll::KdbExaminer::DumpKdb(
        bytes, out, [catalogue](int relation, std::vector<kordll::KdbExaminer::FieldDesc>* f) {
          return CatalogueLayout(*catalogue, relation, f);
        });
  } else {
    problems = kordll::KdbExaminer::CheckKdb(bytes, out);
  }
  if (args[0] == "check") {
    out << (problems == 0 ? "no problems found" : std::to_string(problems) + " problem(s) found")
        << "\n";
  }
  return problems == 0 ? 0 : 1;
}

const kordll_tool::Registration kKdb{"kdb", "kdb dump|check FILE",
                                     "show or check the inside of a .kdb file", &RunKdb};

}  // namespace
