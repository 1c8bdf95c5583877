// kordll schema: prints the relation catalogue, one field a line, as
// tab-separated columns:
//
//   relation id, catalogue name, field id, type name, size, indexable,
//   CDATA, default, key
//
// Relations come in the order the catalogue loads them; fields in id order,
// holes left out. Texts are UTF-8; a tab, line feed, carriage return or
// backslash inside a text is written as \t, \n, \r or \\ so that every
// field stays on one line of nine columns.

#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "kordll/platform/CString.h"
#include "kordll/record/FieldInfo.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/schema/Relation.h"
#include "tools/ToolCommand.h"

namespace {

std::string Column(const kordll::CString& text) {
  std::string out;
  for (char c : text.ToUtf8()) {
    switch (c) {
      case '\t':
        out += "\\t";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\\':
        out += "\\\\";
        break;
      default:
        out += c;
    }
  }
  return out;
}

void PrintRelation(const kordll::Relation& relation, std::ostream& out) {
  const kordll::RGDBTemplate* layout = relation.GetRGDBTemplate();
  if (layout == nullptr) return;
  const std::string name = Column(relation.GetRelationName());
  for (int index = 0; index < layout->GetFieldCount(); ++index) {
    const kordll::FieldInfo* field = layout->GetField(index);
    if (field == nullptr) continue;
    out << relation.GetRelationID() << '\t' << name << '\t' << field->id << '\t'
        << kordll_tool::FieldTypeName(field->type) << '\t' << field->size << '\t'
        << field->indexable << '\t' << field->cdata << '\t' << Column(field->defaultValue) << '\t'
        << Column(field->decoration) << '\n';
  }
}

int RunSchema(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  if (!args.empty()) {
    err << "usage: kordll schema\n";
    return 2;
  }
  // The catalogue is made here for the listing. If the process already has
  // one, this is a private copy holding the same default relations.
  kordll::GlobalRelationsCtrl catalogue;
  std::set<int> printed;
  for (int id : kordll::GlobalRelationsCtrl::GetDefaultRelationOrder()) {
    const kordll::Relation* relation = catalogue.GetRelation(id);
    if (relation == nullptr) continue;
    PrintRelation(*relation, out);
    printed.insert(id);
  }
  // Relations outside the default table (none in a fresh catalogue) follow
  // in id order.
  for (int id : catalogue.GetRelationIDs()) {
    if (printed.count(id) == 0) PrintRelation(*catalogue.GetRelation(id), out);
  }
  out.flush();
  return out.good() ? 0 : 1;
}

const kordll_tool::Registration kReg{
    "schema", "schema", "print the relation catalogue, one field a line, tab-separated",
    &RunSchema};

}  // namespace
