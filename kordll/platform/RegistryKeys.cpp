// Registry: keys, values and the Win32-shaped calls over them. The store
// itself and its opening are in Registry.cpp.

#include <sqlite3.h>

#include <cstdint>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "kordll/platform/Registry.h"
#include "kordll/platform/RegistryInternal.h"

namespace kordll {

using registry_internal::InTransaction;
using registry_internal::Statement;

namespace {

// ---------------------------------------------------------------------------
// Paths and names

std::vector<CString> SplitPath(const CString& path) {
  std::vector<CString> parts;
  std::u16string part;
  for (char16_t ch : path.str()) {
    if (ch == u'\\') {
      if (!part.empty()) parts.push_back(CString(part));
      part.clear();
    } else {
      part.push_back(ch);
    }
  }
  if (!part.empty()) parts.push_back(CString(part));
  return parts;
}

std::u16string Fold(std::u16string_view text) {
  std::u16string folded(text);
  for (char16_t& ch : folded) ch = ToLowerUnit(ch);
  return folded;
}

std::u16string Join(const std::vector<CString>& parts, size_t count, bool fold) {
  std::u16string joined;
  for (size_t i = 0; i < count && i < parts.size(); ++i) {
    if (i > 0) joined.push_back(u'\\');
    joined += fold ? Fold(parts[i].view()) : parts[i].str();
  }
  return joined;
}

// Folded names are stored big-endian, so that byte order is unit order and
// the descendants of a key form one range: those starting with its folded
// path and "\".
std::string BigEndian(std::u16string_view text) {
  std::string out;
  out.reserve(text.size() * 2);
  for (char16_t ch : text) {
    out.push_back(static_cast<char>(ch >> 8));
    out.push_back(static_cast<char>(ch & 0xFF));
  }
  return out;
}

// Names and string data are stored little-endian, as Windows keeps them.
std::string LittleEndian(std::u16string_view text) {
  std::string out;
  out.reserve(text.size() * 2);
  for (char16_t ch : text) {
    out.push_back(static_cast<char>(ch & 0xFF));
    out.push_back(static_cast<char>(ch >> 8));
  }
  return out;
}

std::u16string FromLittleEndian(const void* data, size_t bytes) {
  const unsigned char* p = static_cast<const unsigned char*>(data);
  std::u16string out;
  out.reserve(bytes / 2);
  for (size_t i = 0; i + 1 < bytes; i += 2) {
    out.push_back(static_cast<char16_t>(p[i] | (p[i + 1] << 8)));
  }
  return out;
}

CString LastPart(const std::u16string& name) {
  size_t slash = name.rfind(u'\\');
  return CString(slash == std::u16string::npos ? name : name.substr(slash + 1));
}

// The descendants of a key: folded names in [low, high).
void DescendantRange(const std::u16string& folded, std::string* low, std::string* high) {
  *low = BigEndian(folded + u'\\');
  *high = BigEndian(folded + u']');  // ']' is the unit after '\'
}

// Binds the three columns that name one value: hive, folded key path and
// folded value name, as parameters 1 to 3 of a statement on reg_value.
void BindValueName(Statement* s, RegHive hive, const std::u16string& folded, const CString& name) {
  s->BindInt(1, static_cast<int>(hive));
  s->BindBlob(2, BigEndian(folded));
  s->BindBlob(3, BigEndian(Fold(name.view())));
}

}  // namespace

// ---------------------------------------------------------------------------
// Keys

bool Registry::KeyExistsLocked(RegHive hive, const std::u16string& folded) {
  if (folded.empty()) return true;
  Statement find(db_, "SELECT 1 FROM reg_key WHERE hive = ? AND folded = ?", &statements_);
  find.BindInt(1, static_cast<int>(hive));
  find.BindBlob(2, BigEndian(folded));
  return find.Step() == SQLITE_ROW;
}

bool Registry::KeyExists(RegHive hive, const CString& path) {
  std::vector<CString> parts = SplitPath(path);
  std::lock_guard<std::mutex> lock(mutex_);
  return KeyExistsLocked(hive, Join(parts, parts.size(), true));
}

int Registry::CreateKeyLocked(RegHive hive, const std::vector<CString>& parts, bool* created) {
  if (created != nullptr) *created = false;
  // Most writes go to keys that exist: one look instead of one insert per
  // part of the path.
  if (KeyExistsLocked(hive, Join(parts, parts.size(), true))) return ERROR_SUCCESS;
  bool last_new = false;
  for (size_t i = 1; i <= parts.size(); ++i) {
    Statement insert(db_, "INSERT OR IGNORE INTO reg_key(hive, folded, name) VALUES(?, ?, ?)",
                     &statements_);
    insert.BindInt(1, static_cast<int>(hive));
    insert.BindBlob(2, BigEndian(Join(parts, i, true)));
    insert.BindBlob(3, LittleEndian(Join(parts, i, false)));
    if (!insert.Run()) return ERROR_REGISTRY_IO_FAILED;
    last_new = sqlite3_changes(db_) > 0;
  }
  if (created != nullptr) *created = last_new;
  return ERROR_SUCCESS;
}

int Registry::CreateKey(RegHive hive, const CString& path, bool* created) {
  std::vector<CString> parts = SplitPath(path);
  if (created != nullptr) *created = false;
  std::lock_guard<std::mutex> lock(mutex_);
  if (db_ == nullptr) return ERROR_REGISTRY_IO_FAILED;
  if (parts.empty()) return ERROR_SUCCESS;
  return InTransaction(db_, &statements_, [&] { return CreateKeyLocked(hive, parts, created); });
}

int Registry::DeleteKey(RegHive hive, const CString& path) {
  std::vector<CString> parts = SplitPath(path);
  if (parts.empty()) return ERROR_ACCESS_DENIED;
  std::u16string folded = Join(parts, parts.size(), true);
  std::lock_guard<std::mutex> lock(mutex_);
  if (db_ == nullptr) return ERROR_REGISTRY_IO_FAILED;
  return InTransaction(db_, &statements_, [&] {
    if (!KeyExistsLocked(hive, folded)) return ERROR_FILE_NOT_FOUND;
    std::string low, high;
    DescendantRange(folded, &low, &high);
    Statement child(db_, "SELECT 1 FROM reg_key WHERE hive = ? AND folded >= ? AND folded < ?",
                    &statements_);
    child.BindInt(1, static_cast<int>(hive));
    child.BindBlob(2, low);
    child.BindBlob(3, high);
    int rc = child.Step();
    if (rc == SQLITE_ROW) return ERROR_ACCESS_DENIED;
    if (rc != SQLITE_DONE) return ERROR_REGISTRY_IO_FAILED;
    Statement values(db_, "DELETE FROM reg_value WHERE hive = ? AND key = ?", &statements_);
    values.BindInt(1, static_cast<int>(hive));
    values.BindBlob(2, BigEndian(folded));
    Statement key(db_, "DELETE FROM reg_key WHERE hive = ? AND folded = ?", &statements_);
    key.BindInt(1, static_cast<int>(hive));
    key.BindBlob(2, BigEndian(folded));
    return values.Run() && key.Run() ? ERROR_SUCCESS : ERROR_REGISTRY_IO_FAILED;
  });
}

int Registry::DeleteTree(RegHive hive, const CString& path) {
  std::vector<CString> parts = SplitPath(path);
  if (parts.empty()) return ERROR_ACCESS_DENIED;
  std::u16string folded = Join(parts, parts.size(), true);
  std::lock_guard<std::mutex> lock(mutex_);
  if (db_ == nullptr) return ERROR_REGISTRY_IO_FAILED;
  return InTransaction(db_, &statements_, [&] {
    if (!KeyExistsLocked(hive, folded)) return ERROR_FILE_NOT_FOUND;
    std::string self = BigEndian(folded), low, high;
    DescendantRange(folded, &low, &high);
    Statement values(db_,
                     "DELETE FROM reg_value WHERE hive = ?1 AND (key = ?2 OR (key >= ?3 AND "
                     "key < ?4))",
                     &statements_);
    Statement keys(db_,
                   "DELETE FROM reg_key WHERE hive = ?1 AND (folded = ?2 OR (folded >= ?3 AND "
                   "folded < ?4))",
                   &statements_);
    for (Statement* s : {&values, &keys}) {
      s->BindInt(1, static_cast<int>(hive));
      s->BindBlob(2, self);
      s->BindBlob(3, low);
      s->BindBlob(4, high);
    }
    return values.Run() && keys.Run() ? ERROR_SUCCESS : ERROR_REGISTRY_IO_FAILED;
  });
}

// ---------------------------------------------------------------------------
// Values

int Registry::QueryValue(RegHive hive, const CString& path, const CString& name, RegValue* out) {
  std::vector<CString> parts = SplitPath(path);
  std::u16string folded = Join(parts, parts.size(), true);
  std::lock_guard<std::mutex> lock(mutex_);
  if (db_ == nullptr) return ERROR_REGISTRY_IO_FAILED;
  Statement find(db_, "SELECT type, data FROM reg_value WHERE hive = ? AND key = ? AND folded = ?",
                 &statements_);
  BindValueName(&find, hive, folded, name);
  int rc = find.Step();
  if (rc == SQLITE_DONE) return ERROR_FILE_NOT_FOUND;
  if (rc != SQLITE_ROW) return ERROR_REGISTRY_IO_FAILED;
  RegValue value;
  value.type = static_cast<uint32_t>(find.Int(0));
  if (RegValue::IsIntegerType(value.type)) {
    value.integer = static_cast<uint64_t>(find.Int(1));
    if (value.type == REG_DWORD) value.integer &= 0xFFFFFFFFu;
  } else {
    std::string data = find.Blob(1);
    if (RegValue::IsStringType(value.type)) {
      value.text = CString(FromLittleEndian(data.data(), data.size()));
    } else {
      value.bytes = std::move(data);
    }
  }
  if (out != nullptr) *out = std::move(value);
  return ERROR_SUCCESS;
}

int Registry::SetValue(RegHive hive, const CString& path, const CString& name,
                       const RegValue& value, bool create_key) {
  std::vector<CString> parts = SplitPath(path);
  std::u16string folded = Join(parts, parts.size(), true);
  std::lock_guard<std::mutex> lock(mutex_);
  if (db_ == nullptr) return ERROR_REGISTRY_IO_FAILED;
  return InTransaction(db_, &statements_, [&] {
    if (create_key) {
      int rc = CreateKeyLocked(hive, parts, nullptr);
      if (rc != ERROR_SUCCESS) return rc;
    } else if (!KeyExistsLocked(hive, folded)) {
      return ERROR_FILE_NOT_FOUND;
    }
    Statement put(db_,
                  "INSERT OR REPLACE INTO reg_value(hive, key, folded, name, type, data) "
                  "VALUES(?, ?, ?, ?, ?, ?)",
                  &statements_);
    BindValueName(&put, hive, folded, name);
    put.BindBlob(4, LittleEndian(name.view()));
    put.BindInt(5, value.type);
    if (value.type == REG_DWORD) {
      put.BindInt(6, static_cast<int64_t>(value.integer & 0xFFFFFFFFu));
    } else if (value.type == REG_QWORD) {
      put.BindInt(6, static_cast<int64_t>(value.integer));
    } else if (RegValue::IsStringType(value.type)) {
      put.BindBlob(6, LittleEndian(value.text.view()));
    } else {
      put.BindBlob(6, value.bytes);
    }
    return put.Run() ? ERROR_SUCCESS : ERROR_REGISTRY_IO_FAILED;
  });
}

int Registry::DeleteValue(RegHive hive, const CString& path, const CString& name) {
  std::vector<CString> parts = SplitPath(path);
  std::u16string folded = Join(parts, parts.size(), true);
  std::lock_guard<std::mutex> lock(mutex_);
  if (db_ == nullptr) return ERROR_REGISTRY_IO_FAILED;
  Statement erase(db_, "DELETE FROM reg_value WHERE hive = ? AND key = ? AND folded = ?",
                  &statements_);
  BindValueName(&erase, hive, folded, name);
  if (!erase.Run()) return ERROR_REGISTRY_IO_FAILED;
  return sqlite3_changes(db_) > 0 ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

int Registry::EnumKeys(RegHive hive, const CString& path, std::vector<CString>* names) {
  std::vector<CString> parts = SplitPath(path);
  std::u16string folded = Join(parts, parts.size(), true);
  std::vector<CString> found;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (db_ == nullptr) return ERROR_REGISTRY_IO_FAILED;
    if (!KeyExistsLocked(hive, folded)) return ERROR_FILE_NOT_FOUND;
    std::string low, high;
    if (!folded.empty()) DescendantRange(folded, &low, &high);
    Statement list(db_,
                   folded.empty()
                       ? "SELECT folded, name FROM reg_key WHERE hive = ? ORDER BY folded"
                       : "SELECT folded, name FROM reg_key WHERE hive = ? AND folded >= ? "
                         "AND folded < ? ORDER BY folded",
                   &statements_);
    list.BindInt(1, static_cast<int>(hive));
    if (!folded.empty()) {
      list.BindBlob(2, low);
      list.BindBlob(3, high);
    }
    size_t depth = parts.size();
    int rc;
    while ((rc = list.Step()) == SQLITE_ROW) {
      std::string name_bytes = list.Blob(1);
      std::u16string name = FromLittleEndian(name_bytes.data(), name_bytes.size());
      // A direct child has exactly one more part.
      if (SplitPath(CString(name)).size() == depth + 1) found.push_back(LastPart(name));
    }
    if (rc != SQLITE_DONE) return ERROR_REGISTRY_IO_FAILED;
  }
  if (names != nullptr) *names = std::move(found);
  return ERROR_SUCCESS;
}

int Registry::EnumValues(RegHive hive, const CString& path, std::vector<CString>* names) {
  std::vector<CString> parts = SplitPath(path);
  std::u16string folded = Join(parts, parts.size(), true);
  std::vector<CString> found;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (db_ == nullptr) return ERROR_REGISTRY_IO_FAILED;
    if (!KeyExistsLocked(hive, folded)) return ERROR_FILE_NOT_FOUND;
    Statement list(db_, "SELECT name FROM reg_value WHERE hive = ? AND key = ? ORDER BY folded",
                   &statements_);
    list.BindInt(1, static_cast<int>(hive));
    list.BindBlob(2, BigEndian(folded));
    int rc;
    while ((rc = list.Step()) == SQLITE_ROW) {
      std::string bytes = list.Blob(0);
      found.emplace_back(FromLittleEndian(bytes.data(), bytes.size()));
    }
    if (rc != SQLITE_DONE) return ERROR_REGISTRY_IO_FAILED;
  }
  if (names != nullptr) *names = std::move(found);
  return ERROR_SUCCESS;
}

// ---------------------------------------------------------------------------
// Win32-shaped calls

const HKEY HKEY_CURRENT_USER = reinterpret_cast<HKEY>(uintptr_t{0x80000001u});
const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(uintptr_t{0x80000002u});

namespace {

struct KeyHandle {
  RegHive hive;
  std::vector<CString> parts;
  uint32_t sam;
};

std::mutex g_handles_mutex;
std::map<uintptr_t, KeyHandle> g_handles;  // guarded by g_handles_mutex
uintptr_t g_next_handle = 0x10000;         // guarded by g_handles_mutex

// The key that parent and sub_key name together, or false for a bad handle.
bool Resolve(HKEY parent, const CString& sub_key, KeyHandle* out) {
  if (parent == HKEY_CURRENT_USER || parent == HKEY_LOCAL_MACHINE) {
    out->hive = parent == HKEY_CURRENT_USER ? RegHive::kCurrentUser : RegHive::kLocalMachine;
    out->parts.clear();
    out->sam = KEY_ALL_ACCESS;
  } else {
    std::lock_guard<std::mutex> lock(g_handles_mutex);
    auto it = g_handles.find(reinterpret_cast<uintptr_t>(parent));
    if (it == g_handles.end()) return false;
    *out = it->second;
  }
  for (CString& part : SplitPath(sub_key)) out->parts.push_back(std::move(part));
  return true;
}

HKEY NewHandle(const KeyHandle& key) {
  std::lock_guard<std::mutex> lock(g_handles_mutex);
  uintptr_t id = g_next_handle;
  g_next_handle += 4;
  g_handles[id] = key;
  return reinterpret_cast<HKEY>(id);
}

CString PathOf(const KeyHandle& key) { return CString(Join(key.parts, key.parts.size(), false)); }

}  // namespace

int RegOpenKeyEx(HKEY parent, const CString& sub_key, uint32_t, uint32_t sam, HKEY* result) {
  if (result == nullptr) return ERROR_INVALID_PARAMETER;
  *result = nullptr;
  KeyHandle key;
  if (!Resolve(parent, sub_key, &key)) return ERROR_INVALID_HANDLE;
  if (!Registry::Current()->KeyExists(key.hive, PathOf(key))) return ERROR_FILE_NOT_FOUND;
  key.sam = sam;
  *result = NewHandle(key);
  return ERROR_SUCCESS;
}

int RegCreateKeyEx(HKEY parent, const CString& sub_key, uint32_t, const char16_t*, uint32_t,
                   uint32_t sam, const void*, HKEY* result, uint32_t* disposition) {
  if (result == nullptr) return ERROR_INVALID_PARAMETER;
  *result = nullptr;
  KeyHandle key;
  if (!Resolve(parent, sub_key, &key)) return ERROR_INVALID_HANDLE;
  bool created = false;
  int rc = Registry::Current()->CreateKey(key.hive, PathOf(key), &created);
  if (rc != ERROR_SUCCESS) return rc;
  if (disposition != nullptr) {
    *disposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
  }
  key.sam = sam;
  *result = NewHandle(key);
  return ERROR_SUCCESS;
}

int RegCreateKey(HKEY parent, const CString& sub_key, HKEY* result) {
  return RegCreateKeyEx(parent, sub_key, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, result, nullptr);
}

int RegCloseKey(HKEY key) {
  if (key == HKEY_CURRENT_USER || key == HKEY_LOCAL_MACHINE) return ERROR_SUCCESS;
  std::lock_guard<std::mutex> lock(g_handles_mutex);
  return g_handles.erase(reinterpret_cast<uintptr_t>(key)) > 0 ? ERROR_SUCCESS
                                                               : ERROR_INVALID_HANDLE;
}

int RegQueryValueEx(HKEY handle, const CString& name, uint32_t*, uint32_t* type, uint8_t* data,
                    uint32_t* cb_data) {
  KeyHandle key;
  if (!Resolve(handle, CString(), &key)) return ERROR_INVALID_HANDLE;
  if ((key.sam & KEY_QUERY_VALUE) == 0) return ERROR_ACCESS_DENIED;
  if (data != nullptr && cb_data == nullptr) return ERROR_INVALID_PARAMETER;
  RegValue value;
  int rc = Registry::Current()->QueryValue(key.hive, PathOf(key), name, &value);
  if (rc != ERROR_SUCCESS) return rc;
  std::string bytes;
  if (value.type == REG_DWORD) {
    for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<char>(value.integer >> (8 * i)));
  } else if (value.type == REG_QWORD) {
    for (int i = 0; i < 8; ++i) bytes.push_back(static_cast<char>(value.integer >> (8 * i)));
  } else if (RegValue::IsStringType(value.type)) {
    bytes = LittleEndian(value.text.view());
    bytes.append(2, '\0');
  } else {
    bytes = std::move(value.bytes);
  }
  if (type != nullptr) *type = value.type;
  if (bytes.size() > UINT32_MAX) return ERROR_MORE_DATA;
  uint32_t needed = static_cast<uint32_t>(bytes.size());
  if (data == nullptr) {
    if (cb_data != nullptr) *cb_data = needed;
    return ERROR_SUCCESS;
  }
  if (*cb_data < needed) {
    *cb_data = needed;
    return ERROR_MORE_DATA;
  }
  if (needed > 0) std::memcpy(data, bytes.data(), needed);
  *cb_data = needed;
  return ERROR_SUCCESS;
}

int RegSetValueEx(HKEY handle, const CString& name, uint32_t, uint32_t type, const uint8_t* data,
                  uint32_t cb_data) {
  KeyHandle key;
  if (!Resolve(handle, CString(), &key)) return ERROR_INVALID_HANDLE;
  if ((key.sam & KEY_SET_VALUE) == 0) return ERROR_ACCESS_DENIED;
  if (data == nullptr && cb_data > 0) return ERROR_INVALID_PARAMETER;
  RegValue value;
  value.type = type;
  if (type == REG_DWORD || type == REG_QWORD) {
    uint32_t size = type == REG_DWORD ? 4 : 8;
    if (cb_data != size) return ERROR_INVALID_PARAMETER;
    for (uint32_t i = 0; i < size; ++i) value.integer |= uint64_t{data[i]} << (8 * i);
  } else if (RegValue::IsStringType(type)) {
    std::u16string text = FromLittleEndian(data, cb_data);
    if (!text.empty() && text.back() == u'\0') text.pop_back();
    value.text = CString(std::move(text));
  } else if (cb_data > 0) {
    value.bytes.assign(reinterpret_cast<const char*>(data), cb_data);
  }
  int rc = Registry::Current()->SetValue(key.hive, PathOf(key), name, value, false);
  return rc == ERROR_FILE_NOT_FOUND ? ERROR_KEY_DELETED : rc;
}

int RegDeleteValue(HKEY handle, const CString& name) {
  KeyHandle key;
  if (!Resolve(handle, CString(), &key)) return ERROR_INVALID_HANDLE;
  if ((key.sam & KEY_SET_VALUE) == 0) return ERROR_ACCESS_DENIED;
  return Registry::Current()->DeleteValue(key.hive, PathOf(key), name);
}

int RegDeleteKey(HKEY parent, const CString& sub_key) {
  KeyHandle key;
  if (!Resolve(parent, sub_key, &key)) return ERROR_INVALID_HANDLE;
  return Registry::Current()->DeleteKey(key.hive, PathOf(key));
}

int RegDeleteTree(HKEY parent, const CString& sub_key) {
  KeyHandle key;
  if (!Resolve(parent, sub_key, &key)) return ERROR_INVALID_HANDLE;
  return Registry::Current()->DeleteTree(key.hive, PathOf(key));
}

int RegEnumKeyEx(HKEY handle, uint32_t index, CString* name) {
  KeyHandle key;
  if (!Resolve(handle, CString(), &key)) return ERROR_INVALID_HANDLE;
  std::vector<CString> names;
  int rc = Registry::Current()->EnumKeys(key.hive, PathOf(key), &names);
  if (rc != ERROR_SUCCESS) return rc;
  if (index >= names.size()) return ERROR_NO_MORE_ITEMS;
  if (name != nullptr) *name = names[index];
  return ERROR_SUCCESS;
}

int RegEnumValue(HKEY handle, uint32_t index, CString* name, uint32_t* type) {
  KeyHandle key;
  if (!Resolve(handle, CString(), &key)) return ERROR_INVALID_HANDLE;
  std::vector<CString> names;
  Registry* registry = Registry::Current();
  int rc = registry->EnumValues(key.hive, PathOf(key), &names);
  if (rc != ERROR_SUCCESS) return rc;
  if (index >= names.size()) return ERROR_NO_MORE_ITEMS;
  if (type != nullptr) {
    RegValue value;
    *type = registry->QueryValue(key.hive, PathOf(key), names[index], &value) == ERROR_SUCCESS
                ? value.type
                : REG_NONE;
  }
  if (name != nullptr) *name = names[index];
  return ERROR_SUCCESS;
}

}  // namespace kordll
