// Keyword filter over stored posts that are not loaded, against SQLite
// answering the same question with LIKE over the same columns.
//
//   filter_keyword : a ContentFilter looking for "kernel" in the title and
//                    body of 100,000 posts held as headers, as a controller
//                    holds them: each record is read only as far as the
//                    filter's task item names (title and body), tested, and
//                    given up again.
//   sqlite_like    : SELECT count(*) ... WHERE title LIKE '%kernel%' OR
//                    body LIKE '%kernel%' over a table of the same posts in
//                    a SQLite file in the same folder.
//
// Both report records per second; sqlite_like also reports the ratio of the
// filter's rate to its own. The word is chosen so that the substring search
// of LIKE and the filter's whole-word search find the same posts, and each
// line prints the count found. --posts=N changes the number of posts.

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kordll/filter/ContentFilter.h"
#include "kordll/platform/CString.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/LibraryLifetime.h"
#include "kordll/schema/GlobalRelationsCtrl.h"

namespace {

using kordll::CString;

constexpr int kController = 3;
int g_posts = 100000;

const char* const kWords[] = {"release", "notes",   "garden",  "weather", "market",
                              "update",  "driver",  "report",  "travel",  "music",
                              "science", "library", "history", "sport",   "review"};

// A deterministic text of count words; every 97th post mentions the kernel.
std::string Text(int post, int count, int salt) {
  std::string text;
  unsigned state = static_cast<unsigned>(post) * 2654435761u + static_cast<unsigned>(salt);
  for (int i = 0; i < count; ++i) {
    state = state * 1103515245u + 12345u;
    if (!text.empty()) text += ' ';
    text += kWords[(state >> 16) % (sizeof(kWords) / sizeof(kWords[0]))];
  }
  if (post % 97 == salt) text += " Kernel";
  return text;
}

struct Store {
  CString folder;
  std::unique_ptr<kordll::GlobalRelationsCtrl> catalogue;
  std::unique_ptr<kordll::AZeusDB> db;
  std::vector<kordll::Focusable*> headers;
  sqlite3* sql = nullptr;
  int expected = 0;

  ~Store() {
    for (kordll::Focusable* header : headers) header->ReleaseHeader(kController);
    if (db) db->closeDB();
    db.reset();
    catalogue.reset();
    if (sql != nullptr) sqlite3_close(sql);
    if (!folder.IsEmpty()) kordll::FileSystem::DeleteFolderTree(folder);
  }
};

Store* g_store = nullptr;

double Seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

bool BuildStore() {
  kordll::KordllProcessAttach();
  auto* store = new Store();
  g_store = store;
  if (!kordll::FileSystem::CreateTempFolder(CString(u"kordll-filter-bench-"), &store->folder)) {
    return false;
  }
  store->catalogue = std::make_unique<kordll::GlobalRelationsCtrl>();
  store->db = std::make_unique<kordll::AZeusDB>(store->folder, CString(u"posts"), 0, 0);
  store->db->openDB(0);  // kept open for the whole run

  const std::string sqlPath = store->folder.ToUtf8() + "/posts.sqlite3";
  if (sqlite3_open(sqlPath.c_str(), &store->sql) != SQLITE_OK) return false;
  sqlite3_exec(store->sql,
               "PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF;"
               "CREATE TABLE posts(id INTEGER PRIMARY KEY, status INTEGER, title TEXT, body TEXT);"
               "BEGIN;",
               nullptr, nullptr, nullptr);
  sqlite3_stmt* insert = nullptr;
  sqlite3_prepare_v2(store->sql, "INSERT INTO posts VALUES(?,?,?,?)", -1, &insert, nullptr);

  constexpr int kBatch = 1000;
  for (int first = 0; first < g_posts; first += kBatch) {
    std::vector<std::unique_ptr<kordll::Focusable>> batch;
    std::vector<kordll::Focusable*> pointers;
    for (int post = first; post < first + kBatch && post < g_posts; ++post) {
      const std::string title = Text(post, 4, 0);
      const std::string body = Text(post, 10, 1);
      if (post % 97 == 0 || post % 97 == 1) ++store->expected;
      auto record = std::make_unique<kordll::Focusable>(4, store->db.get());
      record->SetGUID(CString::Formatted(CString(u"R3_G%d"), post));
      record->SetFocusableStatus(2);
      record->SetPostTitle(CString::FromUtf8(title));
      record->SetValueStr(7, CString::FromUtf8(body), 1);
      pointers.push_back(record.get());
      batch.push_back(std::move(record));

      sqlite3_bind_int(insert, 1, post);
      sqlite3_bind_int(insert, 2, 2);
      sqlite3_bind_text(insert, 3, title.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_bind_text(insert, 4, body.c_str(), -1, SQLITE_TRANSIENT);
      sqlite3_step(insert);
      sqlite3_reset(insert);
    }
    if (store->db->writeFocusablesSlot(&pointers, nullptr, nullptr) != 1) return false;
    for (kordll::Focusable* record : pointers) {
      // What a controller keeps: the header, not the body.
      auto* header = new kordll::Focusable(4, store->db.get());
      header->SetDBSlotIndex(record->GetDBSlotIndex());
      header->ReserveHeader(kController);
      store->headers.push_back(header);
    }
  }
  sqlite3_finalize(insert);
  sqlite3_exec(store->sql, "COMMIT;", nullptr, nullptr, nullptr);
  return true;
}

void BM_FilterKeyword(benchmark::State& state) {
  kordll::ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"kernel"), 4, 4, 0);
  filter.AddFilteredStringItem(CString(u"kernel"), 4, 7, 0);
  int found = 0;
  for (auto _ : state) {
    found = 0;
    for (kordll::Focusable* header : g_store->headers) {
      // loadOnAccept 0: a match in a given field is not loaded on the way
      // out, so the run measures the partial reads alone.
      found += filter.CheckFocusable(header, 0);
    }
  }
  const double records = static_cast<double>(state.iterations()) * g_store->headers.size();
  state.SetItemsProcessed(static_cast<int64_t>(records));
  state.counters["records_per_second"] = benchmark::Counter(records, benchmark::Counter::kIsRate);
  state.counters["found"] = found;
  state.counters["expected"] = g_store->expected;
}

void BM_SqliteLike(benchmark::State& state) {
  sqlite3_stmt* query = nullptr;
  sqlite3_prepare_v2(g_store->sql,
                     "SELECT count(*) FROM posts WHERE title LIKE '%kernel%' OR body LIKE "
                     "'%kernel%'",
                     -1, &query, nullptr);
  int found = 0;
  for (auto _ : state) {
    sqlite3_reset(query);
    if (sqlite3_step(query) == SQLITE_ROW) found = sqlite3_column_int(query, 0);
  }
  sqlite3_finalize(query);
  const double records = static_cast<double>(state.iterations()) * g_store->headers.size();
  state.SetItemsProcessed(static_cast<int64_t>(records));
  state.counters["records_per_second"] = benchmark::Counter(records, benchmark::Counter::kIsRate);
  state.counters["found"] = found;
}

// The filter's rate over SQLite's, measured back to back in this process.
void BM_FilterOverSqliteRatio(benchmark::State& state) {
  kordll::ContentFilter filter;
  filter.AddFilteredStringItem(CString(u"kernel"), 4, 4, 0);
  filter.AddFilteredStringItem(CString(u"kernel"), 4, 7, 0);
  sqlite3_stmt* query = nullptr;
  sqlite3_prepare_v2(g_store->sql,
                     "SELECT count(*) FROM posts WHERE title LIKE '%kernel%' OR body LIKE "
                     "'%kernel%'",
                     -1, &query, nullptr);
  double filterSeconds = 0.0;
  double sqlSeconds = 0.0;
  for (auto _ : state) {
    auto start = Seconds();
    for (kordll::Focusable* header : g_store->headers) filter.CheckFocusable(header, 0);
    auto middle = Seconds();
    sqlite3_reset(query);
    sqlite3_step(query);
    auto end = Seconds();
    filterSeconds += middle - start;
    sqlSeconds += end - middle;
    state.SetIterationTime(end - start);
  }
  sqlite3_finalize(query);
  const double ratio = filterSeconds > 0.0 ? sqlSeconds / filterSeconds : 0.0;
  state.counters["filter_rate_over_sqlite"] = ratio;
  state.SetLabel("filter speed / SQLite LIKE speed: " + std::to_string(ratio));
}

}  // namespace

BENCHMARK(BM_FilterKeyword)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SqliteLike)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FilterOverSqliteRatio)->UseManualTime()->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
  std::vector<char*> args;
  for (int i = 0; i < argc; ++i) {
    if (std::strncmp(argv[i], "--posts=", 8) == 0) {
      g_posts = std::max(1, std::atoi(argv[i] + 8));
    } else {
      args.push_back(argv[i]);
    }
  }
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  if (!BuildStore()) {
    std::fprintf(stderr, "filter_bench: could not build the stores\n");
    delete g_store;
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  delete g_store;
  return 0;
}
