// Registry: the SQLite store, its opening and recovery, the process
// registry (Current) and RegValue. Keys, values and the Win32-shaped calls
// are in RegistryKeys.cpp.

#include "kordll/platform/Registry.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Host.h"
#include "kordll/platform/Locations.h"
#include "kordll/platform/RegistryInternal.h"

namespace kordll {

using registry_internal::InTransaction;
using registry_internal::Statement;

namespace {

// Written into the file; a file with another number is not ours.
constexpr int kSchemaVersion = 1;
constexpr int kBusyTimeoutMs = 5000;

// The two tables: keys by folded path, values by key and folded name. The
// original spellings are kept beside the folded forms.
constexpr const char* kSchemaSql =
    "CREATE TABLE reg_key(hive INTEGER NOT NULL, folded BLOB NOT NULL, name BLOB NOT NULL, "
    "PRIMARY KEY(hive, folded)) WITHOUT ROWID;"
    "CREATE TABLE reg_value(hive INTEGER NOT NULL, key BLOB NOT NULL, folded BLOB NOT NULL, "
    "name BLOB NOT NULL, type INTEGER NOT NULL, data, PRIMARY KEY(hive, key, folded)) "
    "WITHOUT ROWID;"
    "PRAGMA user_version=1;";

bool Exec(sqlite3* db, const char* sql) {
  return db != nullptr && sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

// Whether the tables are the ones this code reads.
bool HasOurTables(sqlite3* db) {
  Statement keys(db, "SELECT hive, folded, name FROM reg_key LIMIT 0");
  Statement values(db, "SELECT hive, key, folded, name, type, data FROM reg_value LIMIT 0");
  return keys.ok() && values.ok();
}

// Whether a failure to open the file says something about the file itself
// (it is no database, is damaged, is of a format or schema this library
// cannot use, or its tables cannot be made) rather than about the moment or
// the machine: a lock held by another process, no memory, a refused or
// read-only file, an I/O error. Only the first kind is set aside; a file
// refused for the second kind is left alone for the next start.
bool IsDamagedCode(int rc) {
  switch (rc & 0xFF) {
    case SQLITE_OK:
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_NOMEM:
    case SQLITE_INTERRUPT:
    case SQLITE_IOERR:
    case SQLITE_FULL:
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
    case SQLITE_READONLY:
    case SQLITE_AUTH:
      return false;
    default:
      return true;
  }
}

bool PathExists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

// Makes the folder and its parents (0700 for those made here).
bool MakeFolders(const std::string& folder) {
  if (folder.empty()) return false;
  std::string partial;
  size_t pos = 0;
  while (pos != std::string::npos) {
    pos = folder.find('/', pos + 1);
    partial = folder.substr(0, pos);
    if (partial.empty()) continue;
    if (mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST) return false;
  }
  struct stat st;
  return stat(folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Renames without replacing an existing target, also on a file system that
// lacks the kernel's no-replace rename (the file layer falls back to a hard
// link there). *taken tells whether the target name was in use.
bool RenameNoReplace(const std::string& from, const std::string& to, bool* taken = nullptr) {
  int ok = FileSystem::MoveFile(CString::FromUtf8(from), CString::FromUtf8(to));
  if (taken != nullptr) *taken = !ok && GetLastError() == ERROR_ALREADY_EXISTS;
  return ok != 0;
}

std::string ProfileFolder() {
  std::string folder;
  FileSystem::ToSystemPath(Locations::GetProfileFolder(), &folder);
  return folder;
}

// The process registry. A registry that Current stops using (its folder
// changed, or it was closed) is closed but kept, so that a pointer handed out
// earlier answers ERROR_REGISTRY_IO_FAILED instead of pointing nowhere.
std::mutex g_current_mutex;
Registry* g_current = nullptr;                       // guarded by g_current_mutex
std::string g_current_opened_from;                   // guarded by g_current_mutex
std::string g_current_folder;                        // guarded by g_current_mutex; "" = profile
std::vector<std::unique_ptr<Registry>>& Retired() {  // guarded by g_current_mutex
  static auto* retired = new std::vector<std::unique_ptr<Registry>>();
  return *retired;
}

}  // namespace

// ---------------------------------------------------------------------------
// RegValue

RegValue RegValue::Dword(uint32_t v) {
  RegValue value;
  value.type = REG_DWORD;
  value.integer = v;
  return value;
}

RegValue RegValue::Qword(uint64_t v) {
  RegValue value;
  value.type = REG_QWORD;
  value.integer = v;
  return value;
}

RegValue RegValue::String(const CString& s, uint32_t type) {
  RegValue value;
  value.type = IsStringType(type) ? type : REG_SZ;
  value.text = s;
  return value;
}

RegValue RegValue::Binary(std::string b, uint32_t type) {
  RegValue value;
  value.type = type;
  value.bytes = std::move(b);
  return value;
}

bool RegValue::IsStringType(uint32_t type) {
  return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

// ---------------------------------------------------------------------------
// Opening

Registry::Registry(const std::string& folder) : Registry(folder, NoReport()) { DeliverReport(); }

Registry::Registry(const std::string& folder, NoReport) { Open(folder); }

Registry::~Registry() { CloseDb(); }

void Registry::CloseDb() {
  for (auto& entry : statements_) sqlite3_finalize(entry.second);
  statements_.clear();
  if (db_ != nullptr) sqlite3_close_v2(db_);
  db_ = nullptr;
}

void Registry::DeliverReport() {
  CString text;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    text = report_;
    report_.Empty();
  }
  if (!text.IsEmpty()) Host::Current()->MessageBox(text, "Registry", MB_OK | MB_ICONEXCLAMATION);
}

void Registry::Open(const std::string& folder) {
  std::lock_guard<std::mutex> lock(mutex_);
  std::string path = folder.empty() ? std::string() : folder + "/" + kFileName;
  if (!path.empty() && MakeFolders(folder)) {
    OpenOutcome outcome = OpenFile(path);
    if (outcome == OpenOutcome::kOpen) return;
    if (outcome == OpenOutcome::kDamaged && SetAside(path) &&
        OpenFile(path) == OpenOutcome::kOpen) {
      report_ = CString::Formatted(
          "The registry file \"%s\" could not be read. It was renamed to \"%s\" and a new, "
          "empty registry was made.",
          path.c_str(), set_aside_path_.c_str());
      return;
    }
  }
  // Nothing on disk can be used: keep the settings of this session in memory
  // so that the application still runs.
  in_memory_ = true;
  file_path_.clear();
  if (sqlite3_open_v2(":memory:", &db_,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                      nullptr) != SQLITE_OK ||
      !Exec(db_, kSchemaSql)) {
    CloseDb();  // every operation now answers ERROR_REGISTRY_IO_FAILED
  }
  report_ = CString::Formatted(
      "The registry file \"%s\" could not be opened. Settings will not be kept after this "
      "session.",
      path.empty() ? "(no profile folder)" : path.c_str());
}

Registry::OpenOutcome Registry::OpenFile(const std::string& path) {
  CloseDb();
  int rc =
      sqlite3_open_v2(path.c_str(), &db_,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  auto fail = [&](int code) {
    OpenOutcome outcome = IsDamagedCode(code) ? OpenOutcome::kDamaged : OpenOutcome::kFailed;
    CloseDb();
    return outcome;
  };
  if (rc != SQLITE_OK) return fail(rc);
  sqlite3_extended_result_codes(db_, 0);
  sqlite3_busy_timeout(db_, kBusyTimeoutMs);

  // Nothing below changes the file before it is known to be a registry, so
  // that a file set aside keeps its bytes. A damaged page anywhere makes the
  // file unusable for settings that must be trusted (the registry is small,
  // so the check is cheap); a file that is no database fails here with
  // SQLITE_NOTADB.
  {
    Statement check(db_, "PRAGMA quick_check");
    if (!check.ok()) return fail(sqlite3_errcode(db_));
    rc = check.Step();
    if (rc != SQLITE_ROW) return fail(sqlite3_errcode(db_));
    std::string answer = check.Blob(0);
    if (answer != "ok") return fail(SQLITE_CORRUPT);
  }

  int version = -1;
  {
    Statement v(db_, "PRAGMA user_version");
    if (v.Step() == SQLITE_ROW) version = static_cast<int>(v.Int(0));
  }
  if (version == 0) {
    int tables = -1;
    {
      Statement count(db_, "SELECT count(*) FROM sqlite_schema");
      if (count.Step() == SQLITE_ROW) tables = static_cast<int>(count.Int(0));
    }
    if (tables != 0) return fail(SQLITE_NOTADB);  // someone else's database
  } else if (version != kSchemaVersion) {
    return fail(version < 0 ? sqlite3_errcode(db_) : SQLITE_NOTADB);
  } else if (!HasOurTables(db_)) {
    return fail(SQLITE_NOTADB);
  }
  // journal_mode answers a row.
  {
    sqlite3_stmt* stmt = nullptr;
    rc = sqlite3_prepare_v2(db_, "PRAGMA journal_mode=WAL", -1, &stmt, nullptr);
    if (rc == SQLITE_OK) {
      rc = sqlite3_step(stmt);
      if (rc == SQLITE_ROW || rc == SQLITE_DONE) rc = SQLITE_OK;
    }
    sqlite3_finalize(stmt);
    if (rc != SQLITE_OK) return fail(sqlite3_errcode(db_));
  }
  if (sqlite3_exec(db_, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr) != SQLITE_OK) {
    return fail(sqlite3_errcode(db_));
  }

  if (version == 0) {
    bool made = InTransaction(db_, &statements_, [&] {
                  return Exec(db_, kSchemaSql) ? ERROR_SUCCESS : ERROR_REGISTRY_IO_FAILED;
                }) == ERROR_SUCCESS;
    if (!made) {
      // Another process may have made the tables meanwhile.
      Statement v(db_, "PRAGMA user_version");
      if (v.Step() != SQLITE_ROW || v.Int(0) != kSchemaVersion) return fail(sqlite3_errcode(db_));
    }
  }
  if (!HasOurTables(db_)) return fail(SQLITE_NOTADB);
  file_path_ = path;
  in_memory_ = false;
  return OpenOutcome::kOpen;
}

bool Registry::SetAside(const std::string& path) {
  CloseDb();
  for (int n = 1; n <= 1000; ++n) {
    std::string aside = path;
    aside.append(".damaged");
    if (n > 1) aside.append(1, '-').append(std::to_string(n));
    if (PathExists(aside) || PathExists(aside + "-wal") || PathExists(aside + "-shm")) continue;
    bool taken = false;
    if (!RenameNoReplace(path, aside, &taken)) {
      if (taken) continue;
      return false;
    }
    // The journal files belong to the damaged file: they must not be
    // replayed into the fresh one.
    RenameNoReplace(path + "-wal", aside + "-wal");
    RenameNoReplace(path + "-shm", aside + "-shm");
    set_aside_path_ = aside;
    return true;
  }
  return false;
}

// ---------------------------------------------------------------------------
// The process registry

Registry* Registry::Current() {
  Registry* made = nullptr;
  {
    std::lock_guard<std::mutex> lock(g_current_mutex);
    std::string folder = g_current_folder.empty() ? ProfileFolder() : g_current_folder;
    if (g_current != nullptr && folder == g_current_opened_from) return g_current;
    if (g_current != nullptr) g_current->Retire();
    made = new Registry(folder, NoReport());
    g_current = made;
    g_current_opened_from = folder;
  }
  made->DeliverReport();
  return made;
}

void Registry::SetCurrentFolder(const std::string& folder) {
  std::lock_guard<std::mutex> lock(g_current_mutex);
  g_current_folder = folder;
  if (g_current != nullptr) g_current->Retire();
  g_current = nullptr;
}

void Registry::CloseCurrent() {
  std::lock_guard<std::mutex> lock(g_current_mutex);
  if (g_current != nullptr) g_current->Retire();
  g_current = nullptr;
}

// REQUIRES: g_current_mutex held; this is g_current.
void Registry::Retire() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    CloseDb();
  }
  Retired().emplace_back(this);
}

}  // namespace kordll
