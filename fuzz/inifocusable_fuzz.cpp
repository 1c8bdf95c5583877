// Reads a settings record of the news application from a profile section
// filled with anything: value names, types and values all come from the
// input, as another program sharing the registry might have left them.
//
// Input: fields (see FuzzFields.h), in groups of three: an operation, a
// name and a value. The first unit of the operation picks the type stored:
//   's' a string   'i' an integer (the value's first units)   'b' raw bytes
//   'q' a 64-bit integer
// With a second unit, the name is not the name field but the key of the
// settings field that unit picks, so that real keys get hostile values.
// Then every field of the relation is read through the record, from the
// profile and through a registry root; a key holding a value of the wrong
// type must read the field's default. Last the values are copied into a
// record that is not savable, and one is written back through a savable one.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzFields.h"
#include "FuzzProfileValue.h"
#include "FuzzScratch.h"
#include "kordll/control/INIFocusable.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/HeadlessHost.h"
#include "kordll/platform/Registry.h"
#include "kordll/record/FieldInfo.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/schema/Relation.h"

namespace {

using kordll::CString;
using kordll::CWinApp;
using kordll::FieldInfo;
using kordll::FileSystem;
using kordll::INIFocusable;
using kordll::RegHive;
using kordll::Registry;
using kordll::RegValue;
using kordll_fuzz::Check;
using kordll_fuzz::Field;
using kordll_fuzz::FieldAt;

constexpr int kRelation = 12;

using kordll_fuzz::QuietHost;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static QuietHost host;
  static kordll::Host* installed = kordll::Host::Install(&host);
  (void)installed;
  static const CString& folder = kordll_fuzz::ScratchFolder("kordll-inifocusable-fuzz-");
  static Registry* registry = new Registry(folder.ToUtf8());
  static kordll::GlobalRelationsCtrl* catalogue = new kordll::GlobalRelationsCtrl();
  Check(!registry->in_memory());
  registry->DeleteTree(RegHive::kCurrentUser, CString("Software"));

  kordll::Relation* relation = catalogue->GetRelation(kRelation);
  Check(relation != nullptr && relation->GetRGDBTemplate() != nullptr);
  kordll::RGDBTemplate* layout = relation->GetRGDBTemplate();
  std::vector<int> keyed;
  for (int id = 0; id < layout->GetFieldCount(); ++id) {
    if (layout->GetField(id) != nullptr) keyed.push_back(id);
  }

  CWinApp app(CString("Korlan"), CString("Tidrel"), registry);
  const CString section("User-fuzz");
  const CString sectionKey = app.GetSectionKey(section);
  const std::vector<Field> fields = kordll_fuzz::SplitFields(data, size, 3 * 40);
  for (size_t g = 0; g < fields.size(); g += 3) {
    const CString& op = FieldAt(fields, g).text;
    const Field& value = FieldAt(fields, g + 2);
    CString name = FieldAt(fields, g + 1).text;
    if (op.GetLength() > 1) {
      name = relation->GetFieldDecorationName(keyed[op[1] % keyed.size()]);
    }
    registry->SetValue(RegHive::kCurrentUser, sectionKey, name,
                       kordll_fuzz::ProfileValueOf(op.IsEmpty() ? u's' : op[0], value), true);
  }

  INIFocusable prefs(section, kRelation, CString());
  INIFocusable shared(section, kRelation, app.GetProfileKey());
  for (int id : keyed) {
    const int type = layout->GetFieldType(id);
    const CString key = relation->GetFieldDecorationName(id);
    const CString fallback = relation->GetFieldDefaultValueName(id);
    RegValue stored;
    const bool found = registry->QueryValue(RegHive::kCurrentUser, sectionKey, key, &stored) == 0;
    const bool isText = found && RegValue::IsStringType(stored.type);
    const bool isDword = found && stored.type == kordll::REG_DWORD;
    const CString text = prefs.GetFieldString(id, 0);
    Check(text == (isText ? stored.text : fallback));
    if (type == 0) {
      const int number = prefs.GetFieldInt(id);
      Check(number == (isDword ? static_cast<int>(static_cast<uint32_t>(stored.integer))
                               : kordll::_wtoi(fallback)) ||
            (found && !isText && !isDword));
    } else if (type == 3) {
      Check(prefs.GetFieldBool(id) == ((isText ? stored.text : fallback) == "1" ? 1 : 0));
    }
    prefs.GetFieldDouble(id);
    prefs.GetFieldDate(id);
    shared.GetFieldString(id, 0);
    shared.GetFieldInt(id);
    shared.GetFieldDate(id);
  }

  // A copy that is not savable holds every value and leaves the store alone.
  INIFocusable copy(section, kRelation, CString());
  copy.SetSavable(0);
  copy.CopyFocusable(&prefs, 0);
  for (int id : keyed) {
    if (layout->GetFieldType(id) == 4)
      Check(copy.GetFieldString(id, 0) == prefs.GetFieldString(id, 0));
  }
  // A value written through reads back.
  const CString last = FieldAt(fields, fields.size() - 1).text;
  if (prefs.SetValueStr(4, last, 1) == 1) Check(prefs.GetFieldString(4, 0) == last);
  CWinApp::SetCurrent(nullptr);
  return 0;
}
