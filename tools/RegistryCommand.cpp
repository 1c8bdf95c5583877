// kordll registry dump [KEY]: what the per-user registry store holds.
//
// Prints every key, depth first in the store's order, each as a line
// "[HIVE\path]", followed by its values, one a line:
//   "name" REG_SZ "text"          texts quoted, escaped (see Escape)
//   "name" REG_DWORD 42 (0x0000002a)
//   "name" REG_BINARY 00 ff 10    other types as hex bytes
// The value without a name shows as @. KEY limits the dump to that key and
// what lies below it; it names a key of the current user's hive, or of the
// machine hive with the prefix "HKLM\" (or "HKCU\" for the user's, the
// default). Without KEY both hives are shown. Exit status: 0, 1 when KEY
// does not exist, 2 on a usage error. Nothing is written to the store.

#include <cstdio>
#include <string>
#include <vector>

#include "kordll/platform/CString.h"
#include "kordll/platform/Registry.h"
#include "tools/ToolCommand.h"

namespace {

using kordll::CString;
using kordll::RegHive;
using kordll::Registry;
using kordll::RegValue;

const char* TypeName(uint32_t type) {
  switch (type) {
    case kordll::REG_NONE:
      return "REG_NONE";
    case kordll::REG_SZ:
      return "REG_SZ";
    case kordll::REG_EXPAND_SZ:
      return "REG_EXPAND_SZ";
    case kordll::REG_BINARY:
      return "REG_BINARY";
    case kordll::REG_DWORD:
      return "REG_DWORD";
    case kordll::REG_MULTI_SZ:
      return "REG_MULTI_SZ";
    case kordll::REG_QWORD:
      return "REG_QWORD";
    default:
      return "REG_TYPE";
  }
}

// A text in double quotes: printable characters as UTF-8, `\` and `"`
// escaped, control characters, U+007F and lone surrogates as \u{XXXX}, so
// that every unit of the stored text can be told from the output.
std::string Escape(const CString& text) {
  std::string out = "\"";
  const int n = text.GetLength();
  for (int i = 0; i < n; ++i) {
    const char16_t unit = text[i];
    const bool high = unit >= 0xD800 && unit <= 0xDBFF;
    const bool pair = high && i + 1 < n && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF;
    if (pair) {
      out += CString(std::u16string{unit, text[i + 1]}).ToUtf8();
      ++i;
    } else if (unit == '\\' || unit == '"') {
      out += '\\';
      out += static_cast<char>(unit);
    } else if (unit < 0x20 || unit == 0x7F || (unit >= 0xD800 && unit <= 0xDFFF)) {
      char buf[16];
      std::snprintf(buf, sizeof(buf), "\\u{%04X}", static_cast<unsigned>(unit));
      out += buf;
    } else {
      out += CString(std::u16string(1, unit)).ToUtf8();
    }
  }
  return out + "\"";
}

std::string ValueText(const RegValue& value) {
  char buf[64];
  if (value.type == kordll::REG_DWORD) {
    std::snprintf(buf, sizeof(buf), "%u (0x%08x)", static_cast<unsigned>(value.integer),
                  static_cast<unsigned>(value.integer));
    return buf;
  }
  if (value.type == kordll::REG_QWORD) {
    std::snprintf(buf, sizeof(buf), "%llu (0x%016llx)",
                  static_cast<unsigned long long>(value.integer),
                  static_cast<unsigned long long>(value.integer));
    return buf;
  }
  if (RegValue::IsStringType(value.type)) return Escape(value.text);
  std::string hex;
  for (unsigned char byte : value.bytes) {
    std::snprintf(buf, sizeof(buf), hex.empty() ? "%02x" : " %02x", byte);
    hex += buf;
  }
  return hex;
}

void DumpKey(Registry* registry, RegHive hive, const char* hiveName, const CString& path,
             std::ostream& out) {
  out << "[" << hiveName << (path.IsEmpty() ? "" : "\\") << path.ToUtf8() << "]\n";
  std::vector<CString> names;
  registry->EnumValues(hive, path, &names);
  for (const CString& name : names) {
    RegValue value;
    if (registry->QueryValue(hive, path, name, &value) != kordll::ERROR_SUCCESS) continue;
    out << "  " << (name.IsEmpty() ? std::string("@") : Escape(name)) << " " << TypeName(value.type)
        << " " << ValueText(value) << "\n";
  }
  std::vector<CString> keys;
  registry->EnumKeys(hive, path, &keys);
  for (const CString& key : keys) {
    DumpKey(registry, hive, hiveName, path.IsEmpty() ? key : path + "\\" + key, out);
  }
}

int RunRegistry(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  if (args.empty() || args.size() > 2 || args[0] != "dump") {
    err << "usage: kordll registry dump [KEY]\n";
    return 2;
  }
  Registry* registry = Registry::Current();
  if (args.size() == 1) {
    DumpKey(registry, RegHive::kCurrentUser, "HKCU", CString(), out);
    DumpKey(registry, RegHive::kLocalMachine, "HKLM", CString(), out);
    return 0;
  }
  std::string key = args[1];
  RegHive hive = RegHive::kCurrentUser;
  const char* hiveName = "HKCU";
  for (const char* prefix : {"HKCU\\", "HKLM\\"}) {
    if (key.rfind(prefix, 0) == 0) {
      if (prefix[2] == 'L') hive = RegHive::kLocalMachine, hiveName = "HKLM";
      key.erase(0, 5);
      break;
    }
  }
  const CString path = CString::FromUtf8(key);
  if (!registry->KeyExists(hive, path)) {
    err << "kordll registry: no key " << args[1] << "\n";
    return 1;
  }
  DumpKey(registry, hive, hiveName, path, out);
  return 0;
}

const kordll_tool::Registration kRegistry{"registry", "registry dump [KEY]",
                                          "show the keys and values of the registry store",
                                          &RunRegistry};

}  // namespace
