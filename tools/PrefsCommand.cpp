// kordll prefs: prints a user's settings as the application sees them, one
// setting a line, as tab-separated columns:
//
//   key, type, value, "stored" or "default"
//
// "default" means that the profile holds no usable value for the key (none,
// or one of another type), so the application reads the default. Fields
// come in id order. Texts are UTF-8; a tab, line feed, carriage return or
// backslash is written \t, \n, \r or \\, any other control character or a
// lone surrogate as \uXXXX, so that each setting stays on one line.
//
// The settings are read from the per-user registry of the profile folder,
// the store every application of the family uses, under
// "Software\<company>\<application>\User-<login>". Without a LOGIN the first
// user of the profile's "Users" list is taken, else the relation's default
// login. --set KEY=VALUE writes one setting first, through the settings
// record, by the type of its field: a whole number, 1 or 0 (or true,
// false), a decimal number, a date the settings can read back, or any text.
// Nothing is written unless every --set is valid.

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "kordll/platform/CRuntime.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/Registry.h"
#include "kordll/record/FieldInfo.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/schema/GlobalRelationsCtrl.h"
#include "kordll/schema/Relation.h"
#include "kordll/settings/Preferences.h"
#include "kordll/toolkit/KorlanDateTime.h"
#include "tools/ToolCommand.h"

namespace {

using kordll::CString;

#define KORDLL_PREFS_USAGE \
  "prefs [--company NAME] [--app NAME] [--relation 12|28|31] [--set KEY=VALUE]... [LOGIN]"
const char kUsage[] = "usage: kordll " KORDLL_PREFS_USAGE "\n";

std::string Column(const CString& text) {
  CString shown;
  for (int i = 0; i < text.GetLength(); ++i) {
    const char16_t unit = text[i];
    const bool high = unit >= 0xD800 && unit <= 0xDBFF;
    const bool low = unit >= 0xDC00 && unit <= 0xDFFF;
    const bool paired =
        high && i + 1 < text.GetLength() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF;
    if (paired) {
      shown += unit;
      shown += text[++i];
    } else if (unit == u'\t') {
      shown += u"\\t";
    } else if (unit == u'\n') {
      shown += u"\\n";
    } else if (unit == u'\r') {
      shown += u"\\r";
    } else if (unit == u'\\') {
      shown += u"\\\\";
    } else if (unit < 0x20 || unit == 0x7F || high || low) {
      shown.AppendFormat(u"\\u%04X", static_cast<int>(unit));
    } else {
      shown += unit;
    }
  }
  return shown.ToUtf8();
}

// A whole number of the int range, nothing else.
bool ParseInt(const std::string& text, int* out) {
  if (text.empty()) return false;
  char* end = nullptr;
  errno = 0;
  const long long value = std::strtoll(text.c_str(), &end, 10);
  if (errno != 0 || *end != '\0' || value < INT_MIN || value > INT_MAX) return false;
  if (text[0] == ' ' || text[0] == '\t') return false;
  *out = static_cast<int>(value);
  return true;
}

struct Change {
  int field = 0;
  int type = 4;
  CString key;
  CString text;
  int number = 0;
  double real = 0;
  kordll::COleDateTime date;
};

// Checks KEY=VALUE against the relation; fills change or says why not.
bool ParseChange(const std::string& arg, kordll::Relation* relation, Change* change,
                 std::string* why) {
  const size_t equals = arg.find('=');
  if (equals == std::string::npos) {
    *why = "--set needs KEY=VALUE";
    return false;
  }
  const CString key = CString::FromUtf8(arg.substr(0, equals));
  const std::string value = arg.substr(equals + 1);
  const kordll::RGDBTemplate* layout = relation->GetRGDBTemplate();
  for (int id = 0; layout != nullptr && id < layout->GetFieldCount(); ++id) {
    const kordll::FieldInfo* field = layout->GetField(id);
    if (field == nullptr || field->decoration.IsEmpty() ||
        field->decoration.CompareNoCase(key) != 0)
      continue;
    change->field = id;
    change->type = field->type;
    change->key = field->decoration;
    change->text = CString::FromUtf8(value);
    switch (field->type) {
      case 0:
        if (ParseInt(value, &change->number)) return true;
        *why = key.ToUtf8() + " takes a whole number";
        return false;
      case 3:
        if (value == "1" || value == "true") change->number = 1;
        if (value == "1" || value == "true" || value == "0" || value == "false") return true;
        *why = key.ToUtf8() + " takes 1 or 0";
        return false;
      case 1: {
        char* end = nullptr;
        change->real = std::strtod(value.c_str(), &end);
        if (!value.empty() && *end == '\0' && std::isfinite(change->real)) return true;
        *why = key.ToUtf8() + " takes a decimal number";
        return false;
      }
      case 2:
        change->date = kordll::KorlanDateTime::StringToDateTime(change->text, 0);
        if (change->date.GetStatus() == kordll::COleDateTime::valid) return true;
        *why = key.ToUtf8() + " takes a date such as 11/07/05@10:00";
        return false;
      default:
        return true;
    }
  }
  *why = "no setting " + key.ToUtf8() + " in this relation";
  return false;
}

int Write(kordll::Preferences& prefs, const Change& c) {
  switch (c.type) {
    case 0:
      return prefs.SetValueInt(c.field, c.number, 1);
    case 1:
      return prefs.SetValueDouble(c.field, c.real, 1);
    case 2:
      return prefs.SetValueDate(c.field, c.date, 1);
    case 3:
      return prefs.SetValueBOOL(c.field, c.number, 1);
    default:
      return prefs.SetValueStr(c.field, c.text, 1);
  }
}

CString ValueAsSeen(kordll::Preferences& prefs, int id, int type) {
  switch (type) {
    case 0:
      return CString::Formatted(u"%d", prefs.GetFieldInt(id));
    case 1:
      return CString::Formatted(u"%f", prefs.GetFieldDouble(id));
    case 2:
      return prefs.GetFieldDate(id).GetStatus() == kordll::COleDateTime::valid
                 ? prefs.GetFieldString(id, 0)
                 : CString();
    case 3:
      return CString(prefs.GetFieldBool(id) != 0 ? u"1" : u"0");
    default:
      return prefs.GetFieldString(id, 0);
  }
}

// The first login of the profile's user list, or "".
CString FirstListedUser(kordll::CWinApp& app) {
  const CString users = app.GetProfileString(CString(), CString(u"Users"));
  int start = 0;
  while (start >= 0 && start < users.GetLength()) {
    const CString login = users.Tokenize(CString(u"|"), start);
    if (start >= 0 && !login.IsEmpty()) return login;
  }
  return CString();
}

int RunPrefs(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  CString company(u"Tidrel"), application(u"Tidrel"), login;
  int relationID = kordll::Preferences::kNewsRelation;
  std::vector<std::string> sets;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    const bool more = i + 1 < args.size();
    if (arg == "--help" || arg == "-h") {
      out << kUsage
          << "prints a user's settings as the application sees them: key, type, value, "
             "stored or default\n";
      return 0;
    } else if (arg == "--company" && more) {
      company = CString::FromUtf8(args[++i]);
    } else if (arg == "--app" && more) {
      application = CString::FromUtf8(args[++i]);
    } else if (arg == "--relation" && more) {
      relationID = std::atoi(args[++i].c_str());
    } else if (arg == "--set" && more) {
      sets.push_back(args[++i]);
    } else if (!arg.empty() && arg[0] != '-' && login.IsEmpty()) {
      login = CString::FromUtf8(arg);
    } else {
      err << kUsage;
      return 2;
    }
  }
  if (relationID != kordll::Preferences::kNewsRelation &&
      relationID != kordll::Preferences::kPodcastRelation &&
      relationID != kordll::Preferences::kSearchRelation) {
    err << "kordll prefs: the settings relations are 12, 28 and 31\n";
    return 2;
  }
  // The process's catalogue, or one made for this listing.
  std::unique_ptr<kordll::GlobalRelationsCtrl> ownCatalogue;
  if (kordll::GlobalRelationsCtrl::GetGlobalRelationsCtrl() == nullptr)
    ownCatalogue = std::make_unique<kordll::GlobalRelationsCtrl>();
  kordll::Relation* relation =
      kordll::GlobalRelationsCtrl::GetGlobalRelationsCtrl()->GetRelation(relationID);
  // The application object is current while the settings are read, and
  // whatever was current before comes back afterwards.
  kordll::CWinApp* before = kordll::CWinApp::Current();
  int status = 0;
  {
    kordll::CWinApp app(company, application);
    kordll::CWinApp::SetCurrent(&app);
    if (login.IsEmpty()) login = FirstListedUser(app);
    if (login.IsEmpty())
      login = relation->GetFieldDefaultValueName(kordll::Preferences::kUserLogin);
    std::vector<Change> changes(sets.size());
    std::string why;
    if (!kordll::Locations::IsUsableLoginName(login)) {
      err << "kordll prefs: \"" << Column(login) << "\" cannot be a login\n";
      status = 2;
    }
    for (size_t i = 0; status == 0 && i < sets.size(); ++i) {
      if (!ParseChange(sets[i], relation, &changes[i], &why)) {
        err << "kordll prefs: " << why << "\n";
        status = 2;
      }
    }
    if (status == 0) {
      kordll::Preferences prefs(login, CString(), relationID);
      for (const Change& change : changes) {
        if (Write(prefs, change) != 1) {
          err << "kordll prefs: the profile did not take " << change.key.ToUtf8() << "\n";
          status = 1;
        }
      }
      const CString section = app.GetSectionKey(prefs.GetSection());
      // The login was checked: the key holds no control character.
      out << "# " << section.ToUtf8() << " (relation " << relationID << ")\n";
      const kordll::RGDBTemplate* layout = relation->GetRGDBTemplate();
      kordll::Registry* registry = app.GetRegistry();
      for (int id = 0; layout != nullptr && id < layout->GetFieldCount(); ++id) {
        const kordll::FieldInfo* field = layout->GetField(id);
        if (field == nullptr || field->decoration.IsEmpty()) continue;
        kordll::RegValue stored;
        const bool found = registry->QueryValue(kordll::RegHive::kCurrentUser, section,
                                                field->decoration, &stored) == 0;
        const bool usable =
            found && (field->type == 0 ? stored.type == kordll::REG_DWORD
                                       : kordll::RegValue::IsStringType(stored.type));
        out << Column(field->decoration) << '\t' << kordll_tool::FieldTypeName(field->type) << '\t'
            << Column(ValueAsSeen(prefs, id, field->type)) << '\t'
            << (usable ? "stored" : "default") << '\n';
      }
    }
  }
  kordll::CWinApp::SetCurrent(before);
  out.flush();
  return status != 0 ? status : (out.good() ? 0 : 1);
}

const kordll_tool::Registration kReg{
    "prefs", KORDLL_PREFS_USAGE,
    "print a user's settings as the application sees them; --set writes one", &RunPrefs};

}  // namespace
