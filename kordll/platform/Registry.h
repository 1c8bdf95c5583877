// Registry: the per-user registry, keys of named values as on Windows.
//
// The registry is one SQLite database, "registry.sqlite3" in the profile
// folder, shared by every application of the family: one application can
// read what another saved. It runs in WAL mode with synchronous=NORMAL and a
// busy timeout, so a value written "at once" costs no disk flush and still
// survives a crash of the process; several processes may use it together.
//
// Keys are paths of names separated by "\" ("Software\Company\App\Section")
// under a hive. Key paths and value names compare without regard to case
// (simple Unicode case mapping, unit by unit); empty parts of a path are
// ignored, so "A\\B\" is "A\B". A key keeps the spelling it was created with.
// A key that was never written does not open; creating a key creates its
// parents. The hive itself always exists and may hold values.
//
// Values keep their type: integers (REG_DWORD, REG_QWORD) are numbers,
// strings (REG_SZ, REG_EXPAND_SZ, REG_MULTI_SZ) are kept as the exact UTF-16
// units given (U+0000 and lone surrogates included), anything else as bytes.
//
// A registry file that SQLite refuses in any way (no database, damaged, a
// format or schema it cannot use) is renamed aside (never deleted)
// to "registry.sqlite3.damaged" (or ".damaged-2", ...), a fresh one is made,
// and the host is told through a message box. If no file can be made at all
// the registry lives in memory for the life of the process, and the host is
// told that too.
//
// Every operation is thread-safe (one connection behind a mutex) and answers
// a Win32 error code: ERROR_SUCCESS, ERROR_FILE_NOT_FOUND for a missing key
// or value, ERROR_REGISTRY_IO_FAILED when the database fails.
//
// Below the class stand the Win32-shaped calls (RegOpenKeyEx and its family)
// over the process registry, with handles.

#ifndef KORDLL_PLATFORM_REGISTRY_H_
#define KORDLL_PLATFORM_REGISTRY_H_

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kordll/platform/CString.h"
#include "kordll/platform/WinError.h"

struct sqlite3;
struct sqlite3_stmt;

namespace kordll {

// Registry error codes beyond those of the file layer (Win32 numbers).
constexpr int ERROR_MORE_DATA = 234;
constexpr int ERROR_NO_MORE_ITEMS = 259;
constexpr int ERROR_BADKEY = 1010;
constexpr int ERROR_REGISTRY_IO_FAILED = 1016;
constexpr int ERROR_KEY_DELETED = 1018;

// Value types. These numbers are stored in the registry file and must not
// change.
constexpr uint32_t REG_NONE = 0;
constexpr uint32_t REG_SZ = 1;
constexpr uint32_t REG_EXPAND_SZ = 2;
constexpr uint32_t REG_BINARY = 3;
constexpr uint32_t REG_DWORD = 4;
constexpr uint32_t REG_MULTI_SZ = 7;
constexpr uint32_t REG_QWORD = 11;

// Access rights of a key handle.
constexpr uint32_t KEY_QUERY_VALUE = 0x0001;
constexpr uint32_t KEY_SET_VALUE = 0x0002;
constexpr uint32_t KEY_CREATE_SUB_KEY = 0x0004;
constexpr uint32_t KEY_ENUMERATE_SUB_KEYS = 0x0008;
constexpr uint32_t KEY_READ = 0x20019;
constexpr uint32_t KEY_WRITE = 0x20006;
constexpr uint32_t KEY_ALL_ACCESS = 0xF003F;

// RegCreateKeyEx dispositions.
constexpr uint32_t REG_CREATED_NEW_KEY = 1;
constexpr uint32_t REG_OPENED_EXISTING_KEY = 2;

// The two hives. On this system both are the user's own: the machine-wide
// hive is kept in the same per-user file.
enum class RegHive { kCurrentUser = 1, kLocalMachine = 2 };

// One value. Integers live in `integer`, strings in `text`, other types in
// `bytes`.
struct RegValue {
  uint32_t type = REG_NONE;
  uint64_t integer = 0;
  CString text;
  std::string bytes;

  static RegValue Dword(uint32_t v);
  static RegValue Qword(uint64_t v);
  static RegValue String(const CString& s, uint32_t type = REG_SZ);
  static RegValue Binary(std::string b, uint32_t type = REG_BINARY);
  static bool IsStringType(uint32_t type);
  static bool IsIntegerType(uint32_t type) { return type == REG_DWORD || type == REG_QWORD; }
};

class Registry {
 public:
  // The file name of the registry inside the profile folder.
  static constexpr const char* kFileName = "registry.sqlite3";

  // Opens (creating if needed) <folder>/registry.sqlite3, making the folder
  // if it is missing. Never fails: a damaged file is set aside and replaced,
  // and with no usable file at all the registry lives in memory; in both
  // cases the host hears of it (see the file comment).
  explicit Registry(const std::string& folder);
  ~Registry();
  Registry(const Registry&) = delete;
  Registry& operator=(const Registry&) = delete;

  // The registry of this process, in the profile folder
  // (Locations::GetProfileFolder); opened on first use, and opened again
  // when the profile folder has changed (as tests do). Never null. The
  // pointer stays valid for the life of the process, but once Current has
  // moved on (or after CloseCurrent) that object answers every operation
  // with ERROR_REGISTRY_IO_FAILED: call Current again rather than keep it.
  static Registry* Current();
  // Makes Current use `folder` instead of the profile folder ("" goes back
  // to the profile folder), and closes the registry it was using.
  static void SetCurrentFolder(const std::string& folder);
  // Closes the process registry; the next Current opens it again.
  static void CloseCurrent();

  // The file in use ("" when the registry lives in memory).
  const std::string& file_path() const { return file_path_; }
  bool in_memory() const { return in_memory_; }
  // The damaged file set aside when this registry was opened, or "".
  const std::string& set_aside_path() const { return set_aside_path_; }

  // Whether the key exists. The empty path (the hive) always does.
  bool KeyExists(RegHive hive, const CString& path);
  // Makes the key and its missing parents. *created (if given) tells whether
  // the key itself is new. An empty path is the hive: nothing to make.
  int CreateKey(RegHive hive, const CString& path, bool* created = nullptr);
  // Removes a key and its values; refused (ERROR_ACCESS_DENIED) while it has
  // subkeys, as is the hive itself.
  int DeleteKey(RegHive hive, const CString& path);
  // Removes a key with everything below it. The hive itself cannot go
  // (ERROR_ACCESS_DENIED); its values and keys can, by DeleteTree of each.
  int DeleteTree(RegHive hive, const CString& path);

  // Reads one value. ERROR_FILE_NOT_FOUND if the key or the value is missing.
  int QueryValue(RegHive hive, const CString& path, const CString& name, RegValue* out);
  // Writes one value, replacing any value of that name whatever its type.
  // With create_key false the key must exist (ERROR_FILE_NOT_FOUND);
  // otherwise it is made as by CreateKey. A value whose type is a string or
  // integer type reads its data from text or integer; REG_DWORD keeps the
  // low 32 bits.
  int SetValue(RegHive hive, const CString& path, const CString& name, const RegValue& value,
               bool create_key);
  int DeleteValue(RegHive hive, const CString& path, const CString& name);

  // Names of the direct subkeys, and of the values, of a key, in the order of
  // their folded names. ERROR_FILE_NOT_FOUND for a missing key.
  int EnumKeys(RegHive hive, const CString& path, std::vector<CString>* names);
  int EnumValues(RegHive hive, const CString& path, std::vector<CString>* names);

 private:
  enum class OpenOutcome { kOpen, kDamaged, kFailed };
  struct NoReport {};

  // Opens without telling the host; the caller then calls DeliverReport
  // with no lock held (the host may well read the registry).
  Registry(const std::string& folder, NoReport);
  void DeliverReport();
  void Retire();
  void Open(const std::string& folder);
  OpenOutcome OpenFile(const std::string& path);
  bool SetAside(const std::string& path);
  void CloseDb();
  bool KeyExistsLocked(RegHive hive, const std::u16string& folded);
  int CreateKeyLocked(RegHive hive, const std::vector<CString>& parts, bool* created);

  std::mutex mutex_;
  // State below is protected by mutex_ (set once by the constructor).
  sqlite3* db_ = nullptr;
  // Prepared statements by their text, reused from call to call.
  std::map<std::string, sqlite3_stmt*> statements_;
  std::string file_path_;
  std::string set_aside_path_;
  bool in_memory_ = false;
  CString report_;  // what the host must hear of, once
};

// ---------------------------------------------------------------------------
// Win32-shaped calls over the process registry (Registry::Current()).
//
// A handle is an opaque value valid until RegCloseKey; the two predefined
// handles stand for the hives and need no closing. A handle names a key by
// its path: a key deleted while a handle is open answers ERROR_KEY_DELETED
// to writes and ERROR_FILE_NOT_FOUND to reads. An unknown or closed handle
// answers ERROR_INVALID_HANDLE; a handle opened without KEY_SET_VALUE cannot
// write (ERROR_ACCESS_DENIED), one without KEY_QUERY_VALUE cannot read.

using HKEY = struct HKEY__*;
extern const HKEY HKEY_CURRENT_USER;
extern const HKEY HKEY_LOCAL_MACHINE;

// Opens an existing key below parent (ERROR_FILE_NOT_FOUND if it was never
// written). An empty sub_key opens parent again.
int RegOpenKeyEx(HKEY parent, const CString& sub_key, uint32_t options, uint32_t sam, HKEY* result);
// Opens the key, making it (and its parents) first if needed.
int RegCreateKeyEx(HKEY parent, const CString& sub_key, uint32_t reserved, const char16_t* cls,
                   uint32_t options, uint32_t sam, const void* security, HKEY* result,
                   uint32_t* disposition);
int RegCreateKey(HKEY parent, const CString& sub_key, HKEY* result);
int RegCloseKey(HKEY key);

// Reads the value `name` of the key. *type gets its type. With data null,
// *cb_data (if given) gets the size needed. Otherwise *cb_data is the size of
// the buffer: if it is too small the answer is ERROR_MORE_DATA with the size
// needed in *cb_data; if not, the data is copied and *cb_data is its size.
// Strings come as UTF-16 units always followed by one terminating U+0000
// (counted in the size), whether or not the writer stored one. Integers come
// as 4 or 8 little-endian bytes.
int RegQueryValueEx(HKEY key, const CString& name, uint32_t* reserved, uint32_t* type,
                    uint8_t* data, uint32_t* cb_data);
// Writes the value. A string type takes cb_data / 2 UTF-16 units from data,
// and drops one final U+0000 (the terminator, which writers usually count);
// REG_DWORD needs exactly 4 bytes and REG_QWORD 8 (ERROR_INVALID_PARAMETER
// otherwise); other types keep their bytes as given.
int RegSetValueEx(HKEY key, const CString& name, uint32_t reserved, uint32_t type,
                  const uint8_t* data, uint32_t cb_data);
int RegDeleteValue(HKEY key, const CString& name);
// Removes the subkey, which must have no subkeys of its own.
int RegDeleteKey(HKEY parent, const CString& sub_key);
// Removes the subkey and everything below it.
int RegDeleteTree(HKEY parent, const CString& sub_key);
// The name of the index-th direct subkey, or of the index-th value, in the
// order of Registry::EnumKeys/EnumValues; ERROR_NO_MORE_ITEMS past the end.
int RegEnumKeyEx(HKEY key, uint32_t index, CString* name);
int RegEnumValue(HKEY key, uint32_t index, CString* name, uint32_t* type);

}  // namespace kordll

#endif  // KORDLL_PLATFORM_REGISTRY_H_
