// Reads a user's settings from a profile section filled with anything:
// value names, types and values come from the input, as another program
// sharing the registry might have left them.
//
// Input: fields (see FuzzFields.h). Field 0: its first unit picks the
// settings relation (12, 28 or 31); the rest of it is a login. Then groups
// of three: an operation, a name and a value. The first unit of the
// operation picks the type stored:
//   's' a string   'i' an integer (the value's first bytes)   'b' raw bytes
//   'q' a 64-bit integer   'k' a string in the user's keyboard shortcuts,
//   named by the name field
// With a second unit, the name is not the name field but the key of the
// settings field that unit picks, so that real keys get hostile values.
//
// Then every field is read through the current-settings calls, and the
// computed values, orderings, scrambled accounts and search engines are
// taken from what the profile holds. Properties: a login that cannot name a
// folder is refused and gives no folder, any other gives a folder inside the
// data root; a scrambled text without its marker reads as ""; search engine
// definitions written once read back and write again as the same text.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzFields.h"
#include "FuzzProfileValue.h"
#include "FuzzScratch.h"
#include "kordll/platform/CRuntime.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/Host.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/Registry.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/schema/Relation.h"
#include "kordll/settings/Preferences.h"
#include "kordll/settings/UserPreferences.h"
#include "kordll/toolkit/Utility.h"

namespace {

using kordll::CString;
using kordll::Locations;
using kordll::Preferences;
using kordll::RegHive;
using kordll::RegValue;
using kordll_fuzz::Check;
using kordll_fuzz::Field;
using kordll_fuzz::FieldAt;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static kordll_fuzz::QuietHost host;
  static kordll::Host* installed = kordll::Host::Install(&host);
  (void)installed;
  static const CString& folder = kordll_fuzz::ScratchFolder("kordll-preferences-fuzz-");
  static const bool rooted = (Locations::SetRootForTesting(folder), true);
  (void)rooted;
  static kordll::Registry* registry = new kordll::Registry(folder.ToUtf8());
  static kordll::GlobalRelationsCtrl* catalogue = new kordll::GlobalRelationsCtrl();
  Check(!registry->in_memory());
  registry->DeleteTree(RegHive::kCurrentUser, CString("Software"));

  const std::vector<Field> fields = kordll_fuzz::SplitFields(data, size, 1 + 3 * 40);
  const CString& head = FieldAt(fields, 0).text;
  const int relations[] = {12, 28, 31};
  const int relationID = relations[head.IsEmpty() ? 0 : head[0] % 3];
  const CString login = head.Mid(1);
  kordll::Relation* relation = catalogue->GetRelation(relationID);
  Check(relation != nullptr && relation->GetRGDBTemplate() != nullptr);
  kordll::RGDBTemplate* layout = relation->GetRGDBTemplate();
  std::vector<int> keyed;
  for (int id = 0; id < layout->GetFieldCount(); ++id) {
    if (layout->GetField(id) != nullptr) keyed.push_back(id);
  }

  kordll::CWinApp app(CString("Tidrel"), CString("Tidrel"), registry);
  const CString sectionKey = app.GetSectionKey(CString("User-fuzz"));
  std::vector<int> commands;
  for (size_t g = 1; g < fields.size(); g += 3) {
    const CString& op = FieldAt(fields, g).text;
    const Field& value = FieldAt(fields, g + 2);
    CString name = FieldAt(fields, g + 1).text;
    if (!op.IsEmpty() && op[0] == u'k') {
      registry->SetValue(RegHive::kCurrentUser, sectionKey + CString("\\KeyboardShortcuts"), name,
                         RegValue::String(value.text), true);
      commands.push_back(kordll::_wtoi(name));
      continue;
    }
    if (op.GetLength() > 1) name = relation->GetFieldDecorationName(keyed[op[1] % keyed.size()]);
    registry->SetValue(RegHive::kCurrentUser, sectionKey, name,
                       kordll_fuzz::ProfileValueOf(op.IsEmpty() ? u's' : op[0], value), true);
  }

  {
    Preferences prefs(CString("fuzz"), CString(), relationID);
    Preferences::SetGlobalPreferences(&prefs);
    for (int id : keyed) {
      Preferences::GetCurrentPreferencesIntValue(id);
      Preferences::GetCurrentPreferencesStringValue(id);
      Preferences::GetCurrentPreferencesBoolValue(id);
      Preferences::GetCurrentPreferencesDoubleValue(id);
      Preferences::GetCurrentPreferencesDateValue(id);
    }
    Preferences::GetLinkCheckingAutoRankingValue();
    Preferences::GetReadingItemAutoRankingValue();
    Preferences::IsAutoDeleteRankingValueValid(0x700);
    Preferences::PlayGeneralNotificationSound();
    std::vector<int> order;
    prefs.GetSlideShowResourceTypeOrdering(&order);
    prefs.GetSlideShowResourceOrdering(&order);
    if (!prefs.GetFieldString(Preferences::kBloglinesPassword, 0).Left(3).IsEmpty() &&
        prefs.GetFieldString(Preferences::kBloglinesPassword, 0).Left(3) != CString("::[")) {
      Check(prefs.GetBloglinesPassword().IsEmpty());
    }
    prefs.GetBloglinesUserName();
    // Shortcuts of any value: no shortcut, or a modifier and a key.
    for (int command : commands) {
      const int shortcut = kordll::Utility::GetKeyboardShortcut_wCommandID(command);
      const bool none = shortcut % 1000 == 0 || shortcut <= 1000;
      Check(kordll::Utility::GetKeyboardShortcut_inString(shortcut).IsEmpty() == none);
      Check((kordll::Utility::GetKeyboardShortcut_inMOD(shortcut) == -1) == none);
      kordll::Utility::GetVirtualKey(shortcut);
    }

    // Search engines: what is written once is written again alike.
    std::vector<CString> terms;
    prefs.GetSearchEngineShortcutTerms(&terms);
    CString part1, part2, part3;
    int first = 0;
    prefs.GetDefaultWebSearchEngineDefinition(part1, part2, part3, first);
    if (prefs.SaveMySearchEngineDefinitions() == 1 && relationID == 12) {
      const CString once = prefs.GetFieldString(Preferences::kMySearchEngineDefinitions, 0);
      prefs.LoadMySearchEngineDefinitions();
      std::vector<CString> again;
      prefs.GetSearchEngineShortcutTerms(&again);
      Check(again.size() == terms.size());
      Check(prefs.SaveMySearchEngineDefinitions() == 1);
      Check(prefs.GetFieldString(Preferences::kMySearchEngineDefinitions, 0) == once);
    }

    // A login from the input: refused unless it can name a folder, and
    // then its folder lies inside the program folder.
    const int taken = prefs.SetUserLogin(login);
    const CString userFolder = kordll::UserPreferences::GetUserFolder(login);
    Check(taken == (Locations::IsUsableLoginName(login) ? 1 : 0));
    Check(taken == 1 ? Locations::IsPathInside(Locations::GetProgramFolder(), userFolder)
                     : userFolder.IsEmpty());
    if (taken == 1 && login.GetLength() < 200)
      Check(prefs.GetSection() == CString("User-") + login);
    Preferences::SetGlobalPreferences(nullptr);
  }
  kordll::CWinApp::SetCurrent(nullptr);
  return 0;
}
