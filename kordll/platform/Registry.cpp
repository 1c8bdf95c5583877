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

#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Host.h"
#include "kordll/platform/Locations.h"

namespace kordll {

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

// ---------------------------------------------------------------------------
// A prepared statement: its own, finalized at the end, or borrowed from a
// cache of prepared statements and only reset at the end.
using StatementCache = std::map<std::string, sqlite3_stmt*>;

class Statement {
 public:
  Statement(sqlite3* db, const char* sql) {
    ok_ = db != nullptr && sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr) == SQLITE_OK;
  }
  Statement(sqlite3* db, const char* sql, StatementCache* cache) : cached_(true) {
    if (db == nullptr) return;
    auto it = cache->find(sql);
    if (it == cache->end()) {
      sqlite3_stmt* made = nullptr;
      if (sqlite3_prepare_v2(db, sql, -1, &made, nullptr) != SQLITE_OK) {
        sqlite3_finalize(made);
        return;
      }
      it = cache->emplace(sql, made).first;
    }
    stmt_ = it->second;
    ok_ = true;
  }
  ~Statement() {
    if (!cached_) {
      sqlite3_finalize(stmt_);
    } else if (stmt_ != nullptr) {
      sqlite3_reset(stmt_);
      sqlite3_clear_bindings(stmt_);
    }
  }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  bool ok() const { return ok_; }
  void BindInt(int index, int64_t v) {
    if (ok_) ok_ = sqlite3_bind_int64(stmt_, index, v) == SQLITE_OK;
  }
  // A zero-length blob, never NULL, for empty text.
  void BindBlob(int index, const std::string& bytes) {
    if (!ok_) return;
    ok_ = (bytes.empty()
               ? sqlite3_bind_zeroblob(stmt_, index, 0)
               : sqlite3_bind_blob(stmt_, index, bytes.data(), static_cast<int>(bytes.size()),
                                   SQLITE_TRANSIENT)) == SQLITE_OK;
  }
  // SQLITE_ROW, SQLITE_DONE or an error.
  int Step() { return ok_ ? sqlite3_step(stmt_) : SQLITE_ERROR; }
  bool Run() { return Step() == SQLITE_DONE; }

  int64_t Int(int column) { return sqlite3_column_int64(stmt_, column); }
  int Type(int column) { return sqlite3_column_type(stmt_, column); }
  std::string Blob(int column) {
    const void* p = sqlite3_column_blob(stmt_, column);
    int n = sqlite3_column_bytes(stmt_, column);
    return p == nullptr || n <= 0 ? std::string() : std::string(static_cast<const char*>(p), n);
  }

 private:
  sqlite3_stmt* stmt_ = nullptr;
  bool ok_ = false;
  bool cached_ = false;
};

bool Exec(sqlite3* db, const char* sql) {
  return db != nullptr && sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

// Runs a write as one transaction; BEGIN IMMEDIATE takes the write lock at
// once, so that two processes never deadlock upgrading read locks.
template <class Body>
int InTransaction(sqlite3* db, StatementCache* cache, Body body) {
  auto run = [&](const char* sql) {
    Statement s(db, sql, cache);
    return s.Run();
  };
  if (!run("BEGIN IMMEDIATE")) return ERROR_REGISTRY_IO_FAILED;
  int result = body();
  if (result == ERROR_SUCCESS) {
    if (run("COMMIT")) return ERROR_SUCCESS;
    result = ERROR_REGISTRY_IO_FAILED;
  }
  run("ROLLBACK");
  return result;
}

// The descendants of a key: folded names in [low, high).
void DescendantRange(const std::u16string& folded, std::string* low, std::string* high) {
  *low = BigEndian(folded + u'\\');
  *high = BigEndian(folded + u']');  // ']' is the unit after '\'
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
  find.BindInt(1, static_cast<int>(hive));
  find.BindBlob(2, BigEndian(folded));
  find.BindBlob(3, BigEndian(Fold(name.view())));
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
    put.BindInt(1, static_cast<int>(hive));
    put.BindBlob(2, BigEndian(folded));
    put.BindBlob(3, BigEndian(Fold(name.view())));
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
  erase.BindInt(1, static_cast<int>(hive));
  erase.BindBlob(2, BigEndian(folded));
  erase.BindBlob(3, BigEndian(Fold(name.view())));
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
