// Reads profile values that hold anything: the company and application
// names, the sections, the entries and the values all come from the input,
// and some values are stored with any type and any bytes, as another program
// sharing the registry might have left them.
//
// Input: fields (see FuzzFields.h). Field 0 is the company, field 1 the
// application; then groups of four: an operation, a section, an entry and a
// value. The first unit of the operation picks what is done:
//   's' WriteProfileString   'i' WriteProfileInt (the value's first units)
//   'r' a value of the type given by the operation's second unit, stored
//       directly ('b' as raw bytes, otherwise as text or number)
//   'd' DeleteProfileEntry   'D' DeleteProfileSection
// Every write that succeeds must read back at once through the profile,
// and a value of the other type must read as the default.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzFields.h"
#include "FuzzScratch.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/HeadlessHost.h"
#include "kordll/platform/Registry.h"

namespace {

using kordll::CString;
using kordll::CWinApp;
using kordll::FileSystem;
using kordll::RegHive;
using kordll::Registry;
using kordll::RegValue;
using kordll_fuzz::Check;
using kordll_fuzz::Field;
using kordll_fuzz::FieldAt;

using kordll_fuzz::QuietHost;

// The first four units of a text as a 32-bit number (a unit per byte).
uint32_t NumberOf(const CString& text) {
  uint32_t v = 0;
  for (int i = 0; i < 4 && i < text.GetLength(); ++i) v |= (text[i] & 0xFFu) << (8 * i);
  return v;
}

// Defaults that no stored value is likely to equal by chance.
const int kIntDefault = -123456789;
const CString& StringDefault() {
  static const CString d(u"\u2022default\u2022");
  return d;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static QuietHost host;
  static kordll::Host* installed = kordll::Host::Install(&host);
  (void)installed;
  static const CString& folder = kordll_fuzz::ScratchFolder("kordll-profile-fuzz-");
  static Registry* registry = new Registry(folder.ToUtf8());
  Check(!registry->in_memory());
  registry->DeleteTree(RegHive::kCurrentUser, CString("Software"));

  const std::vector<Field> fields = kordll_fuzz::SplitFields(data, size, 2 + 4 * 24);
  CWinApp app(FieldAt(fields, 0).text, FieldAt(fields, 1).text, registry);
  struct Place {
    CString section;
    CString entry;
  };
  std::vector<Place> places;
  for (size_t g = 2; g < fields.size(); g += 4) {
    const CString& op = FieldAt(fields, g).text;
    const CString& section = FieldAt(fields, g + 1).text;
    const CString& entry = FieldAt(fields, g + 2).text;
    const Field& value = FieldAt(fields, g + 3);
    places.push_back({section, entry});
    switch (op[0]) {
      case u's':
        if (app.WriteProfileString(section, entry, value.text) == 1) {
          Check(app.GetProfileString(section, entry, StringDefault()) == value.text);
          Check(app.GetProfileInt(section, entry, kIntDefault) == kIntDefault);
        }
        break;
      case u'i': {
        const int v = static_cast<int>(NumberOf(value.text));
        if (app.WriteProfileInt(section, entry, v) == 1) {
          Check(app.GetProfileInt(section, entry, kIntDefault) == v);
          Check(app.GetProfileString(section, entry, StringDefault()) == StringDefault());
        }
        break;
      }
      case u'r': {
        const uint32_t type = op[1];
        RegValue raw;
        if (op[1] == u'b') {
          raw = RegValue::Binary(value.bytes, NumberOf(op.Mid(2)));
        } else if (RegValue::IsIntegerType(type)) {
          raw.type = type;
          raw.integer =
              (static_cast<uint64_t>(NumberOf(value.text.Mid(4))) << 32) | NumberOf(value.text);
        } else if (RegValue::IsStringType(type)) {
          raw = RegValue::String(value.text, type);
        } else {
          raw = RegValue::Binary(value.bytes, type);
        }
        if (registry->SetValue(RegHive::kCurrentUser, app.GetSectionKey(section), entry, raw,
                               true) != kordll::ERROR_SUCCESS) {
          break;
        }
        const CString text = app.GetProfileString(section, entry, StringDefault());
        const int number = app.GetProfileInt(section, entry, kIntDefault);
        if (RegValue::IsStringType(raw.type)) {
          Check(text == raw.text);
          Check(number == kIntDefault);
        } else if (RegValue::IsIntegerType(raw.type)) {
          Check(number == static_cast<int>(static_cast<uint32_t>(raw.integer)));
          Check(text == StringDefault());
        } else {
          Check(number == kIntDefault);
          Check(text == StringDefault());
        }
        break;
      }
      case u'd':
        if (app.DeleteProfileEntry(section, entry) == 1) {
          Check(app.GetProfileString(section, entry, StringDefault()) == StringDefault());
          Check(app.GetProfileInt(section, entry, kIntDefault) == kIntDefault);
        }
        break;
      case u'D':
        app.DeleteProfileSection(section);
        break;
      default:
        break;
    }
  }
  // Every place read again, in both types, after all the writes.
  for (const Place& p : places) {
    app.GetProfileString(p.section, p.entry, StringDefault());
    app.GetProfileInt(p.section, p.entry, kIntDefault);
  }
  std::vector<CString> names;
  registry->EnumKeys(RegHive::kCurrentUser, app.GetProfileKey(), &names);
  registry->EnumValues(RegHive::kCurrentUser, app.GetProfileKey(), &names);
  CWinApp::SetCurrent(nullptr);
  return 0;
}
