// The profile's cost per call: writes (each its own transaction, WAL with
// synchronous=NORMAL, so no disk flush) and reads, through CWinApp and the
// registry. The "peer" runs do the same work as one plain SQLite table keyed
// by text, in the same process and folder setup: the difference is what the
// case-insensitive keys, the typed values and the key checks cost.

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <string>

#include "kordll/platform/CString.h"
#include "kordll/platform/CWinApp.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/Registry.h"

namespace {

using kordll::CString;
using kordll::CWinApp;
using kordll::FileSystem;
using kordll::Registry;

constexpr int kEntries = 1000;

// A fresh folder per run, removed when the run ends.
class Scratch {
 public:
  Scratch() { FileSystem::CreateTempFolder("kordll-registry-bench-", &folder_); }
  ~Scratch() { FileSystem::DeleteFolderTree(folder_); }
  std::string path() const { return folder_.ToUtf8(); }

 private:
  CString folder_;
};

CString Entry(int64_t i) { return CString::Formatted("LRID-%d", static_cast<int>(i % kEntries)); }

void BM_ProfileWriteInt(benchmark::State& state) {
  Scratch scratch;
  Registry registry(scratch.path());
  CWinApp app("Korlan", "Tidrel", &registry);
  int64_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        app.WriteProfileInt("User-ann\\IDRolls", Entry(i), static_cast<int>(i)));
    ++i;
  }
  CWinApp::SetCurrent(nullptr);
}
BENCHMARK(BM_ProfileWriteInt);

void BM_ProfileReadInt(benchmark::State& state) {
  Scratch scratch;
  Registry registry(scratch.path());
  CWinApp app("Korlan", "Tidrel", &registry);
  for (int i = 0; i < kEntries; ++i) app.WriteProfileInt("User-ann\\IDRolls", Entry(i), i);
  int64_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(app.GetProfileInt("user-ANN\\idrolls", Entry(i), -1));
    ++i;
  }
  CWinApp::SetCurrent(nullptr);
}
BENCHMARK(BM_ProfileReadInt);

void BM_ProfileReadString(benchmark::State& state) {
  Scratch scratch;
  Registry registry(scratch.path());
  CWinApp app("Korlan", "Tidrel", &registry);
  const CString value(u'x', 200);
  for (int i = 0; i < kEntries; ++i) app.WriteProfileString("User-ann", Entry(i), value);
  int64_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(app.GetProfileString("User-ann", Entry(i)));
    ++i;
  }
  CWinApp::SetCurrent(nullptr);
}
BENCHMARK(BM_ProfileReadString);

// The peer: one table, text keys, the same pragmas.
struct Peer {
  explicit Peer(const std::string& folder) {
    sqlite3_open((folder + "/peer.sqlite3").c_str(), &db);
    sqlite3_exec(db,
                 "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;"
                 "CREATE TABLE v(k TEXT PRIMARY KEY, n INTEGER) WITHOUT ROWID;",
                 nullptr, nullptr, nullptr);
    sqlite3_prepare_v2(db, "INSERT OR REPLACE INTO v VALUES(?, ?)", -1, &put, nullptr);
    sqlite3_prepare_v2(db, "SELECT n FROM v WHERE k = ?", -1, &get, nullptr);
  }
  ~Peer() {
    sqlite3_finalize(put);
    sqlite3_finalize(get);
    sqlite3_close(db);
  }
  sqlite3* db = nullptr;
  sqlite3_stmt* put = nullptr;
  sqlite3_stmt* get = nullptr;
};

std::string PeerKey(int64_t i) { return "user-ann\\idrolls\\lrid-" + std::to_string(i % kEntries); }

void BM_PeerWriteInt(benchmark::State& state) {
  Scratch scratch;
  Peer peer(scratch.path());
  int64_t i = 0;
  for (auto _ : state) {
    std::string key = PeerKey(i);
    sqlite3_bind_text(peer.put, 1, key.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_int64(peer.put, 2, i);
    benchmark::DoNotOptimize(sqlite3_step(peer.put));
    sqlite3_reset(peer.put);
    ++i;
  }
}
BENCHMARK(BM_PeerWriteInt);

void BM_PeerReadInt(benchmark::State& state) {
  Scratch scratch;
  Peer peer(scratch.path());
  for (int i = 0; i < kEntries; ++i) {
    std::string key = PeerKey(i);
    sqlite3_bind_text(peer.put, 1, key.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_int64(peer.put, 2, i);
    sqlite3_step(peer.put);
    sqlite3_reset(peer.put);
  }
  int64_t i = 0;
  for (auto _ : state) {
    std::string key = PeerKey(i);
    sqlite3_bind_text(peer.get, 1, key.c_str(), -1, SQLITE_TRANSIENT);
    benchmark::DoNotOptimize(sqlite3_step(peer.get));
    sqlite3_reset(peer.get);
    ++i;
  }
}
BENCHMARK(BM_PeerReadInt);

}  // namespace

BENCHMARK_MAIN();
