// Helpers shared by the parts of Registry (Registry.cpp: the store, its
// opening and recovery; RegistryKeys.cpp: keys, values and the
// Win32-shaped calls). Private to the platform layer.

#ifndef KORDLL_PLATFORM_REGISTRYINTERNAL_H_
#define KORDLL_PLATFORM_REGISTRYINTERNAL_H_

#include <sqlite3.h>

#include <cstdint>
#include <map>
#include <string>

#include "kordll/platform/Registry.h"

namespace kordll {
namespace registry_internal {

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

// Runs a write as one transaction; BEGIN IMMEDIATE takes the write lock at
// once, so that two processes never deadlock upgrading read locks.
template <class Body>
inline int InTransaction(sqlite3* db, StatementCache* cache, Body body) {
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

}  // namespace registry_internal
}  // namespace kordll

#endif  // KORDLL_PLATFORM_REGISTRYINTERNAL_H_
