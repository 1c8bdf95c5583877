// The record store side by side with SQLite: the same logical work on
// 100,000 posts of relation 4 (titles of 40 to 80 characters, descriptions
// of 200 to 2,000 with some non-ASCII, a few per cent long enough to chain).
// SQLite runs each workload twice, on a file of its own per text form: one
// stores its texts as UTF-16 (the library's own text form: bound with
// sqlite3_bind_text16 from the library's strings, read back with
// sqlite3_column_text16 into CString), the other as UTF-8 (bound from UTF-8
// strings, read back converted into CString, as an application holding its
// texts as CString does). The AZeusDB run after them reports records per
// second and "ratio_vs_sqlite16" and "ratio_vs_sqlite8" (above 1: AZeusDB is
// faster), and at the end one summary line per workload gives the three
// rates and both ratios. SQLite runs with WAL, synchronous=OFF, prepared
// statements and one transaction per batch; AZeusDB hands every byte of an
// operation to the operating system before the operation returns, and its
// owner holds the file open for the workload, as a controller does while it
// works on its records. The three bulk writes go a batch of each in turn,
// and what each wrote goes to the disk (not timed) before the workloads
// that read, so that no side pays for the write-back of another's files.
//
// What is timed is the store's work on data the program already holds: the
// test posts are made before any clock starts, in both text forms, and
// AZeusDB is handed records (the form in which an application holds its
// posts) built from 16-bit text before its clock starts. What a load
// produces is built inside the timed part on both sides (records for
// AZeusDB; strings, numbers and dates for SQLite), since making them is what
// a load is for.
//
// Arguments besides those of the benchmark library: --posts=N writes N
// posts instead of 100,000 (a multiple of 1,000, at least 1,000), and
// --journal=1 turns the record file's rollback journal on, so that the cost
// of the journal shows against a run without it, and --clock=cpu times
// processor time instead of wall time.

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "kordll/filter/ContentFilter.h"
#include "kordll/platform/Env.h"
#include "kordll/platform/FileSystem.h"
#include "kordll/platform/WinFile.h"
#include "kordll/record/AZeusDB.h"
#include "kordll/record/DBTaskItem.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/RGDBTemplate.h"
#include "kordll/record/RelationsEntryPoints.h"
#include "kordll/record/StoredWordTest.h"

namespace {

using kordll::CString;

constexpr int kBatch = 1000;
int g_posts = 100000;  // --posts
int g_journal = 0;     // --journal
constexpr int kUpdates = 10000;

struct Post {
  std::string guid, title, author, description, link;
  int status;
  double received, published;  // day counts, as COleDateTime holds them
  // The same texts as the library's strings.
  CString wguid, wtitle, wauthor, wdescription, wlink;
};

std::vector<Post>& Posts() {
  static std::vector<Post> posts = [] {
    std::mt19937 rng(42);
    std::vector<Post> out(g_posts);
    const char* words[] = {"feed",           "news",    "river",        "caf\xc3\xa9", "update",
                           "m\xc3\xbcnchen", "release", "\xe2\x82\xac", "story",       "report"};
    auto text = [&](int lo, int hi) {
      const int n = std::uniform_int_distribution<int>(lo, hi)(rng);
      std::string s;
      while (static_cast<int>(s.size()) < n) {
        s += words[rng() % 10];
        s += ' ';
      }
      return s.substr(0, n);
    };
    for (int i = 0; i < g_posts; ++i) {
      out[i].guid = "R3_G" + std::to_string(i);
      out[i].title = text(40, 80);
      out[i].author = text(5, 30);
      out[i].description = text(200, 2000);
      // The word the keyword search looks for, in one post of 50: in the
      // title of some, inside the description of others.
      // Inserted after a blank, so that no character is cut.
      auto insert = [](std::string* text, size_t from, const char* word) {
        const size_t blank = text->find(' ', from);
        text->insert(blank == std::string::npos ? 0 : blank + 1, word);
      };
      if (i % 100 == 17) insert(&out[i].title, 10, "Harbour ");
      if (i % 100 == 67) insert(&out[i].description, out[i].description.size() / 2, "HARBOUR ");
      out[i].link = "http://example.org/post/" + std::to_string(i);
      out[i].status = 2;
      out[i].received =
          kordll::COleDateTime(2024, 1 + i % 12, 1 + i % 28, i % 24, i % 60, 0).GetDATE();
      out[i].published = out[i].received - 0.25;
      out[i].wguid = CString(out[i].guid.c_str());
      out[i].wtitle = CString(out[i].title.c_str());
      out[i].wauthor = CString(out[i].author.c_str());
      out[i].wdescription = CString(out[i].description.c_str());
      out[i].wlink = CString(out[i].link.c_str());
    }
    return out;
  }();
  return posts;
}

kordll::RGDBTemplate* Template() {
  static kordll::RGDBTemplate* t = [] {
    auto* t = new kordll::RGDBTemplate(4);
    t->AddField(0, 20, 4, "", "guid", 0, 0);
    t->AddField(1, 10, 0, "", "status", 0, 0);
    t->AddField(2, 20, 2, "", "received", 0, 0);
    t->AddField(3, 20, 2, "", "published", 0, 0);
    t->AddField(4, 100, 4, "", "title", 0, 0);
    t->AddField(5, 40, 4, "", "author", 0, 0);
    t->AddField(7, 1900, 4, "", "description", 0, 0);
    t->AddField(10, 60, 4, "", "link", 0, 0);
    kordll::RelationsEntryPoints::SetTemplate(4, t);
    return t;
  }();
  return t;
}

CString Folder() {
  static CString f = [] {
    CString out;
    kordll::FileSystem::CreateTempFolder("store_bench", &out);
    return out;
  }();
  return f;
}

// The text forms of the SQLite files; a SQLite benchmark's argument is
// one of them.
enum Form { kUtf16 = 0, kUtf8 = 1 };
constexpr int kWorkloads = 7;
const char* const kWorkloadNames[kWorkloads] = {"bulk write", "full load", "status scan", "updates",
                                                "start-up",   "keyword",   "filter"};

// Records per second of each side per workload; 0 when it did not run.
double g_sqlite_rate[2][kWorkloads];
double g_store_rate[kWorkloads];
sqlite3* g_sql[2] = {nullptr, nullptr};
std::unique_ptr<kordll::AZeusDB> g_db;
std::vector<int> g_slots;

Form FormOf(const benchmark::State& state) { return state.range(0) == 16 ? kUtf16 : kUtf8; }

void ReportSqlite(benchmark::State& state, int workload, int records, double seconds) {
  const double rate = records / seconds;
  state.counters["records_per_s"] = rate;
  g_sqlite_rate[FormOf(state)][workload] = rate;
  // The filter over held headers answers the keyword question too: SQLite's
  // side of it is the same query.
  if (workload == 5) g_sqlite_rate[FormOf(state)][6] = rate;
}

void ReportStore(benchmark::State& state, int workload, int records, double seconds) {
  const double rate = records / seconds;
  state.counters["records_per_s"] = rate;
  g_store_rate[workload] = rate;
  if (g_sqlite_rate[kUtf16][workload] > 0) {
    state.counters["ratio_vs_sqlite16"] = rate / g_sqlite_rate[kUtf16][workload];
  }
  if (g_sqlite_rate[kUtf8][workload] > 0) {
    state.counters["ratio_vs_sqlite8"] = rate / g_sqlite_rate[kUtf8][workload];
  }
}

std::string SqlitePath(Form form) {
  return (Folder() + (form == kUtf16 ? "/posts16.sqlite3" : "/posts8.sqlite3")).ToUtf8();
}

// Binds a post's text in the file's form: the library's string as UTF-16,
// or the UTF-8 copy made beside it.
void BindText(sqlite3_stmt* st, int column, Form form, const std::string& utf8,
              const CString& text) {
  if (form == kUtf16) {
    sqlite3_bind_text16(st, column, text.GetString(), text.GetLength() * 2, SQLITE_STATIC);
  } else {
    sqlite3_bind_text(st, column, utf8.data(), static_cast<int>(utf8.size()), SQLITE_STATIC);
  }
}

// A text column as the library's string: taken as it is from a UTF-16 file,
// converted from a UTF-8 one.
CString ColumnText(sqlite3_stmt* st, int column, Form form) {
  if (form == kUtf16) {
    const auto* text = static_cast<const char16_t*>(sqlite3_column_text16(st, column));
    return CString(text, sqlite3_column_bytes16(st, column) / 2);
  }
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(st, column));
  return CString::FromUtf8(std::string_view(text, sqlite3_column_bytes(st, column)));
}

// Wall time by default; with --clock=cpu the processor time of the process
// (std::clock), which a machine shared with other work leaves steadier.
// Both sides run in this one thread, and their files stay in the system's
// cache, so both measure the same kind of time.
bool g_cpu_clock = false;
struct Clock {
  struct time_point {
    std::chrono::steady_clock::time_point wall;
    std::clock_t cpu;
  };
  static time_point now() { return {std::chrono::steady_clock::now(), std::clock()}; }
};
double Since(Clock::time_point t) {
  if (g_cpu_clock) return static_cast<double>(std::clock() - t.cpu) / CLOCKS_PER_SEC;
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t.wall).count();
}

void Exec(sqlite3* db, const char* sql) { sqlite3_exec(db, sql, nullptr, nullptr, nullptr); }

// Sends what a bulk write left in the system's cache to the disk, not
// timed: the workload that runs next (the other side's bulk write above
// all) must not pay for the write-back of this one's gigabytes.
void FlushWritten(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) {
    kordll::WinFile file;
    if (file.Open(CString::FromUtf8(path), kordll::GENERIC_READ | kordll::GENERIC_WRITE,
                  kordll::FILE_SHARE_READ | kordll::FILE_SHARE_WRITE, kordll::OPEN_EXISTING)) {
      file.FlushFileBuffers();
      file.Close();
    }
  }
}

// One side's part of the bulk write, a batch at a time.
class SqliteBulk {
 public:
  // Makes a new SQLite file of the given text form, left open in g_sql[form].
  explicit SqliteBulk(Form form) : form_(form), path_(SqlitePath(form)) {
    sqlite3_open(path_.c_str(), &g_sql[form]);
    db_ = g_sql[form];
    // The text form is fixed when the file is made, before its first table.
    Exec(db_, form == kUtf16 ? "PRAGMA encoding=\"UTF-16le\"" : "PRAGMA encoding=\"UTF-8\"");
    Exec(db_, "PRAGMA journal_mode=WAL; PRAGMA synchronous=OFF;");
    Exec(db_,
         "CREATE TABLE posts(id INTEGER PRIMARY KEY, guid TEXT, status INTEGER, received REAL, "
         "published REAL, title TEXT, author TEXT, description TEXT, link TEXT)");
    sqlite3_prepare_v2(db_, "INSERT INTO posts VALUES(?,?,?,?,?,?,?,?,?)", -1, &st_, nullptr);
  }
  // Inserts posts first..first+kBatch-1 in one transaction; returns the
  // seconds spent in SQLite.
  double Batch(int first) {
    const auto t = Clock::now();
    Exec(db_, "BEGIN");
    for (int i = first; i < first + kBatch; ++i) {
      const Post& p = Posts()[i];
      sqlite3_bind_int(st_, 1, i);
      BindText(st_, 2, form_, p.guid, p.wguid);
      sqlite3_bind_int(st_, 3, p.status);
      sqlite3_bind_double(st_, 4, p.received);
      sqlite3_bind_double(st_, 5, p.published);
      BindText(st_, 6, form_, p.title, p.wtitle);
      BindText(st_, 7, form_, p.author, p.wauthor);
      BindText(st_, 8, form_, p.description, p.wdescription);
      BindText(st_, 9, form_, p.link, p.wlink);
      sqlite3_step(st_);
      sqlite3_reset(st_);
    }
    Exec(db_, "COMMIT");
    return Since(t);
  }
  void Finish() {
    sqlite3_finalize(st_);
    FlushWritten({path_, path_ + "-wal"});
  }

 private:
  Form form_;
  std::string path_;
  sqlite3* db_ = nullptr;
  sqlite3_stmt* st_ = nullptr;
};

// Saves posts first..first+kBatch-1 into the record file held open in
// g_db, noting each post's slot in g_slots; returns the seconds spent in
// the store.
double StoreBatch(int first) {
  std::vector<kordll::Focusable*> batch;
  for (int k = first; k < first + kBatch; ++k) {
    const Post& p = Posts()[k];
    auto* r = new kordll::Focusable(4, nullptr);
    r->SetValueStr(0, p.wguid, 1);
    r->SetValueInt(1, p.status, 1);
    r->SetValueDate(2, kordll::COleDateTime(p.received), 1);
    r->SetValueDate(3, kordll::COleDateTime(p.published), 1);
    r->SetValueStr(4, p.wtitle, 1);
    r->SetValueStr(5, p.wauthor, 1);
    r->SetValueStr(7, p.wdescription, 1);
    r->SetValueStr(10, p.wlink, 1);
    batch.push_back(r);
  }
  const auto t = Clock::now();
  g_db->writeFocusablesSlot(&batch, nullptr, nullptr);
  const double seconds = Since(t);
  for (int k = 0; k < kBatch; ++k) {
    g_slots[first + k] = batch[k]->GetDBSlotIndex();
    delete batch[k];
  }
  return seconds;
}

// The bulk writes of the three files, a batch of each in turn, so that all
// three meet the same state of the system's cache: written one after the
// other, the later ones pay for the write-back of the gigabytes before
// them. Seconds per side: SQLite UTF-16, SQLite UTF-8, the store.
double g_bulk_seconds[3] = {-1, -1, -1};

void WriteAll() {
  if (g_bulk_seconds[2] >= 0) return;
  Template();
  Posts();
  SqliteBulk s16(kUtf16);
  SqliteBulk s8(kUtf8);
  g_db = std::make_unique<kordll::AZeusDB>(Folder(), "posts", 10, 0);
  g_db->SetJournal(g_journal);
  g_db->openDB(0);
  g_slots.assign(g_posts, -1);
  double seconds[3] = {0, 0, 0};
  for (int first = 0; first < g_posts; first += kBatch) {
    seconds[0] += s16.Batch(first);
    seconds[1] += s8.Batch(first);
    seconds[2] += StoreBatch(first);
  }
  s16.Finish();
  s8.Finish();
  const std::string store = (Folder() + "/posts.kdb").ToUtf8();
  FlushWritten({store, store + "-map"});
  for (int side = 0; side < 3; ++side) g_bulk_seconds[side] = seconds[side];
}

void BM_Sqlite_BulkWrite(benchmark::State& state) {
  for (auto _ : state) {
    WriteAll();
    state.SetIterationTime(g_bulk_seconds[FormOf(state)]);
    ReportSqlite(state, 0, g_posts, g_bulk_seconds[FormOf(state)]);
  }
}

void BM_AZeusDB_BulkWrite(benchmark::State& state) {
  for (auto _ : state) {
    WriteAll();
    state.SetIterationTime(g_bulk_seconds[2]);
    ReportStore(state, 0, g_posts, g_bulk_seconds[2]);
  }
}

void EnsureFiles();

// A post as a load hands it to an application: its texts as the library's
// strings, its dates as dates.
struct LoadedPost {
  CString guid, title, author, description, link;
  int status;
  kordll::COleDateTime received, published;
};

void BM_Sqlite_FullLoad(benchmark::State& state) {
  EnsureFiles();
  const Form form = FormOf(state);
  for (auto _ : state) {
    sqlite3_stmt* st;
    sqlite3_prepare_v2(g_sql[form], "SELECT * FROM posts", -1, &st, nullptr);
    const auto t = Clock::now();
    int n = 0;
    long sum = 0;
    while (sqlite3_step(st) == SQLITE_ROW) {
      LoadedPost p;
      p.guid = ColumnText(st, 1, form);
      p.status = sqlite3_column_int(st, 2);
      p.received = kordll::COleDateTime(sqlite3_column_double(st, 3));
      p.published = kordll::COleDateTime(sqlite3_column_double(st, 4));
      p.title = ColumnText(st, 5, form);
      p.author = ColumnText(st, 6, form);
      p.description = ColumnText(st, 7, form);
      p.link = ColumnText(st, 8, form);
      sum += p.description.GetLength();
      ++n;
    }
    benchmark::DoNotOptimize(sum);
    sqlite3_finalize(st);
    ReportSqlite(state, 1, n, Since(t));
  }
}

int Scan(kordll::DBTaskItem* task, bool statusOnly) {
  int n = 0;
  long sum = 0;
  for (;;) {
    kordll::Focusable r(-1, nullptr);
    if (!g_db->readFocusableSlot(&r, nullptr, task)) break;
    sum += statusOnly ? r.GetFieldInt(1) : r.GetFieldString(7, 0).GetLength();
    ++n;
  }
  benchmark::DoNotOptimize(sum);
  return n;
}

void BM_AZeusDB_FullLoad(benchmark::State& state) {
  EnsureFiles();
  for (auto _ : state) {
    kordll::DBTaskItem task;
    task.allFields = 1;
    const auto t = Clock::now();
    const int n = Scan(&task, false);
    ReportStore(state, 1, n, Since(t));
  }
}

void BM_Sqlite_StatusScan(benchmark::State& state) {
  EnsureFiles();
  const Form form = FormOf(state);
  for (auto _ : state) {
    sqlite3_stmt* st;
    sqlite3_prepare_v2(g_sql[form], "SELECT status FROM posts", -1, &st, nullptr);
    const auto t = Clock::now();
    int n = 0;
    long sum = 0;
    while (sqlite3_step(st) == SQLITE_ROW) sum += sqlite3_column_int(st, 0), ++n;
    benchmark::DoNotOptimize(sum);
    sqlite3_finalize(st);
    ReportSqlite(state, 2, n, Since(t));
  }
}

void BM_AZeusDB_StatusScan(benchmark::State& state) {
  EnsureFiles();
  for (auto _ : state) {
    kordll::DBTaskItem task;
    task.DefineFieldTaskType(1, kordll::DBTaskItem::kTaskLoad);
    const auto t = Clock::now();
    const int n = Scan(&task, true);
    ReportStore(state, 2, n, Since(t));
  }
}

void BM_Sqlite_Updates(benchmark::State& state) {
  EnsureFiles();
  sqlite3* db = g_sql[FormOf(state)];
  for (auto _ : state) {
    std::mt19937 rng(7);
    sqlite3_stmt* st;
    sqlite3_prepare_v2(db, "UPDATE posts SET status=? WHERE id=?", -1, &st, nullptr);
    const auto t = Clock::now();
    Exec(db, "BEGIN");
    for (int i = 0; i < kUpdates; ++i) {
      sqlite3_bind_int(st, 1, 1 + (i & 7));
      sqlite3_bind_int(st, 2, static_cast<int>(rng() % g_posts));
      sqlite3_step(st);
      sqlite3_reset(st);
    }
    Exec(db, "COMMIT");
    sqlite3_finalize(st);
    ReportSqlite(state, 3, kUpdates, Since(t));
  }
}

void BM_AZeusDB_Updates(benchmark::State& state) {
  EnsureFiles();
  for (auto _ : state) {
    std::mt19937 rng(7);
    const auto t = Clock::now();
    for (int i = 0; i < kUpdates; ++i) {
      kordll::Focusable r(4, nullptr);
      r.SetDBSlotIndex(g_slots[rng() % g_posts]);
      r.SetValueInt(1, 1 + (i & 7), 1);
      g_db->writeFocusableSlot(&r, nullptr, nullptr);
    }
    ReportStore(state, 3, kUpdates, Since(t));
  }
}

// ---- start-up: open a database and show the newest 50 headers ----
//
// What a reader does at every start: a fresh connection or engine on the
// file written above, the guid, status and both dates of the newest 50 posts
// made into the texts and dates an application holds. The newest posts are
// the last written, whose slots are the highest heads of the file. The
// store's side also counts the bytes that it reads (the record file and the
// map file beside it), next to the bytes that a mapping from the headers
// alone needs: the database header, every sub-table header and the front of
// each head slot read (slot header, items status and the four fields).

constexpr int kNewest = 50;
constexpr int kStarts = 5;

// Counts what is read through the files that it opens.
class CountingEnv : public kordll::EnvWrapper {
 public:
  CountingEnv() : EnvWrapper(kordll::Env::Default()) {}
  std::atomic<int64_t> bytes{0};
  std::atomic<int64_t> reads{0};

  int OpenFile(const std::string& path, uint32_t access, int disposition,
               std::unique_ptr<kordll::EnvFile>* file) override {
    const int r = base()->OpenFile(path, access, disposition, file);
    if (*file) *file = std::make_unique<File>(std::move(*file), this);
    return r;
  }

 private:
  class File : public kordll::EnvFileWrapper {
   public:
    File(std::unique_ptr<kordll::EnvFile> base, CountingEnv* env)
        : EnvFileWrapper(std::move(base)), env_(env) {}
    int ReadAt(int64_t offset, void* buffer, uint32_t count, uint32_t* read) override {
      const int r = EnvFileWrapper::ReadAt(offset, buffer, count, read);
      env_->bytes += *read;
      ++env_->reads;
      return r;
    }

   private:
    CountingEnv* env_;
  };
};

// The files of the start-up runs: those of the bulk write when it ran,
// otherwise written now (not timed).
void EnsureFiles() { WriteAll(); }

void BM_Sqlite_StartUp(benchmark::State& state) {
  EnsureFiles();
  const Form form = FormOf(state);
  const std::string path = SqlitePath(form);
  for (auto _ : state) {
    double seconds = 0;
    long sum = 0;
    for (int run = 0; run < kStarts; ++run) {
      const auto t = Clock::now();
      sqlite3* db = nullptr;
      sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
      sqlite3_stmt* st;
      sqlite3_prepare_v2(db,
                         "SELECT guid, status, received, published FROM posts ORDER BY id DESC "
                         "LIMIT 50",
                         -1, &st, nullptr);
      while (sqlite3_step(st) == SQLITE_ROW) {
        const CString guid = ColumnText(st, 0, form);
        const int status = sqlite3_column_int(st, 1);
        const kordll::COleDateTime received(sqlite3_column_double(st, 2));
        const kordll::COleDateTime published(sqlite3_column_double(st, 3));
        sum += guid.GetLength() + status + received.GetStatus() + published.GetStatus();
      }
      sqlite3_finalize(st);
      sqlite3_close(db);
      seconds += Since(t);
    }
    benchmark::DoNotOptimize(sum);
    state.counters["ms_per_start"] = 1000 * seconds / kStarts;
    ReportSqlite(state, 4, kNewest * kStarts, seconds);
  }
}

void BM_AZeusDB_StartUp(benchmark::State& state) {
  EnsureFiles();
  for (auto _ : state) {
    CountingEnv env;
    kordll::ScopedEnv scoped(&env);
    double seconds = 0;
    long sum = 0;
    int64_t needed = 0;
    int64_t read = 0;
    int64_t reads = 0;
    for (int run = 0; run < kStarts; ++run) {
      env.bytes = 0;
      env.reads = 0;
      const auto t = Clock::now();
      kordll::AZeusDB db(Folder(), "posts", 10, 0);
      db.openDB(1);
      kordll::DBTaskItem task;
      for (int field = 0; field <= 3; ++field) {
        task.DefineFieldTaskType(field, kordll::DBTaskItem::kTaskLoad);
      }
      for (int k = 1; k <= kNewest; ++k) {
        kordll::Focusable r(4, nullptr);
        r.SetDBSlotIndex(g_slots[g_posts - k]);
        if (!db.readFocusableSlot(&r, nullptr, &task)) continue;
        const CString guid = r.GetFieldString(0, 0);
        const kordll::COleDateTime received = r.GetFieldDate(2);
        const kordll::COleDateTime published = r.GetFieldDate(3);
        sum += guid.GetLength() + r.GetFieldInt(1) + received.GetStatus() + published.GetStatus();
      }
      db.closeDB();
      seconds += Since(t);
      read = env.bytes;
      reads = env.reads;
      // What the work needs, from the map it made (not timed, once).
      if (run + 1 < kStarts) continue;
      needed = 1000;
      for (kordll::_struct_SubTableInfo& info : db.GetSubTableInfos()) {
        needed += info.GetHeaderSize();
        if (info.id == g_slots[g_posts - 1] / 40) {
          const int64_t front = 25 + info.fieldCount + 2 + info.lengths[0] + info.lengths[1] +
                                info.lengths[2] + info.lengths[3];
          needed += kNewest * front;
        }
      }
    }
    benchmark::DoNotOptimize(sum);
    state.counters["ms_per_start"] = 1000 * seconds / kStarts;
    state.counters["bytes_read"] = static_cast<double>(read);
    state.counters["bytes_needed"] = static_cast<double>(needed);
    state.counters["reads"] = static_cast<double>(reads);
    ReportStore(state, 4, kNewest * kStarts, seconds);
  }
}

// ---- keyword: posts whose title or description holds a word ----
//
// The search a reader runs from its search box: every post whose title or
// description holds "harbour" in any case (one post in 50), its guid, title
// and description made into the strings an application holds. SQLite tests
// with LIKE; the store scans with a word test on the stored bytes, which
// passes over the posts that certainly do not hold the word, and the posts
// it gives are tested on their texts, lowered.

constexpr char kKeyword[] = "harbour";
int g_keyword_matches[3] = {-1, -1, -1};  // SQLite 16, SQLite 8, store

bool HoldsKeyword(const CString& text) {
  CString lowered = text;
  lowered.MakeLower();
  return lowered.Find(CString(kKeyword)) >= 0;
}

void BM_Sqlite_Keyword(benchmark::State& state) {
  EnsureFiles();
  const Form form = FormOf(state);
  for (auto _ : state) {
    sqlite3_stmt* st;
    sqlite3_prepare_v2(g_sql[form],
                       "SELECT guid, title, description FROM posts WHERE title LIKE ?1 OR "
                       "description LIKE ?1",
                       -1, &st, nullptr);
    const std::string pattern = std::string("%") + kKeyword + "%";
    sqlite3_bind_text(st, 1, pattern.c_str(), -1, SQLITE_TRANSIENT);
    const auto t = Clock::now();
    int n = 0;
    long sum = 0;
    while (sqlite3_step(st) == SQLITE_ROW) {
      const CString guid = ColumnText(st, 0, form);
      const CString title = ColumnText(st, 1, form);
      const CString description = ColumnText(st, 2, form);
      sum += guid.GetLength() + title.GetLength() + description.GetLength();
      ++n;
    }
    const double seconds = Since(t);
    benchmark::DoNotOptimize(sum);
    sqlite3_finalize(st);
    g_keyword_matches[form] = n;
    state.counters["matches"] = n;
    // The rate counts the posts searched, as on the store's side.
    ReportSqlite(state, 5, g_posts, seconds);
  }
}

void BM_AZeusDB_Keyword(benchmark::State& state) {
  EnsureFiles();
  for (auto _ : state) {
    const auto t = Clock::now();
    kordll::StoredWordTest test(CString(kKeyword), 0, {4, 7});
    kordll::DBTaskItem task;
    for (int field : {0, 4, 7}) task.DefineFieldTaskType(field, kordll::DBTaskItem::kTaskLoad);
    task.wordTest = &test;
    int n = 0;
    int given = 0;
    long sum = 0;
    for (;;) {
      kordll::Focusable r(-1, nullptr);
      if (!g_db->readFocusableSlot(&r, nullptr, &task)) break;
      ++given;
      const CString title = r.GetFieldString(4, 0);
      const CString description = r.GetFieldString(7, 0);
      if (!HoldsKeyword(title) && !HoldsKeyword(description)) continue;
      const CString guid = r.GetFieldString(0, 0);
      sum += guid.GetLength() + title.GetLength() + description.GetLength();
      ++n;
    }
    const double seconds = Since(t);
    benchmark::DoNotOptimize(sum);
    g_keyword_matches[2] = n;
    state.counters["matches"] = n;
    state.counters["decoded"] = given;
    ReportStore(state, 5, g_posts, seconds);
  }
}

// ---- filter: the keyword filter over the headers a controller holds ----
//
// The same question as the keyword line, asked as a reader's search asks it
// of the posts it already holds: headers that know their slot and nothing
// else, a content filter looking for the word in title or description (it
// reads those fields of each header and gives them up again), and the
// guid, title and description of the posts it accepts made into texts.
// SQLite's side is the keyword line's query.

void BM_AZeusDB_Filter(benchmark::State& state) {
  EnsureFiles();
  constexpr int kController = 3;
  std::vector<kordll::Focusable*> headers;
  for (int slot : g_slots) {
    auto* header = new kordll::Focusable(4, g_db.get());
    header->SetDBSlotIndex(slot);
    header->ReserveHeader(kController);
    headers.push_back(header);
  }
  kordll::ContentFilter filter;
  filter.AddFilteredStringItem(CString(kKeyword), 4, 4, 0);
  filter.AddFilteredStringItem(CString(kKeyword), 4, 7, 0);
  for (auto _ : state) {
    const auto t = Clock::now();
    int n = 0;
    long sum = 0;
    for (kordll::Focusable* header : headers) {
      if (!filter.CheckFocusable(header, 0)) continue;
      const CString guid = header->GetFieldString(0, 0);
      const CString title = header->GetFieldString(4, 0);
      const CString description = header->GetFieldString(7, 0);
      sum += guid.GetLength() + title.GetLength() + description.GetLength();
      ++n;
    }
    const double seconds = Since(t);
    benchmark::DoNotOptimize(sum);
    state.counters["matches"] = n;
    if (n != g_keyword_matches[2]) state.SkipWithError("the filter and the keyword scan differ");
    ReportStore(state, 6, g_posts, seconds);
  }
  for (kordll::Focusable* header : headers) header->ReleaseHeader(kController);
}

BENCHMARK(BM_Sqlite_BulkWrite)
    ->ArgName("utf")
    ->Arg(16)
    ->Arg(8)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AZeusDB_BulkWrite)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Sqlite_FullLoad)
    ->ArgName("utf")
    ->Arg(16)
    ->Arg(8)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AZeusDB_FullLoad)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Sqlite_StatusScan)
    ->ArgName("utf")
    ->Arg(16)
    ->Arg(8)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AZeusDB_StatusScan)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Sqlite_Updates)
    ->ArgName("utf")
    ->Arg(16)
    ->Arg(8)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AZeusDB_Updates)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Sqlite_StartUp)
    ->ArgName("utf")
    ->Arg(16)
    ->Arg(8)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AZeusDB_StartUp)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Sqlite_Keyword)
    ->ArgName("utf")
    ->Arg(16)
    ->Arg(8)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AZeusDB_Keyword)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AZeusDB_Filter)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  // The arguments of this benchmark are taken out before the library sees
  // the rest.
  int kept = 1;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg.rfind("--posts=", 0) == 0) {
      const int n = std::atoi(arg.c_str() + 8);
      g_posts = std::max(kBatch, n / kBatch * kBatch);
    } else if (arg == "--clock=cpu") {
      g_cpu_clock = true;
    } else if (arg.rfind("--journal=", 0) == 0) {
      g_journal = std::atoi(arg.c_str() + 10) != 0 ? 1 : 0;
    } else {
      argv[kept++] = argv[i];
    }
  }
  argc = kept;
  benchmark::Initialize(&argc, argv);
  benchmark::AddCustomContext("posts", std::to_string(g_posts));
  benchmark::AddCustomContext("journal", g_journal ? "on" : "off");
  benchmark::AddCustomContext("clock", g_cpu_clock ? "cpu" : "wall");
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  // One line per workload that ran: records per second of each side, the
  // store's rate over each SQLite rate (0 where a side did not run), and the
  // cost of one record on each side, so that growth shows between sizes.
  std::printf("%-12s %12s %12s %12s %8s %8s %9s %9s %9s\n", "workload", "ours/s", "sqlite16/s",
              "sqlite8/s", "ours/16", "ours/8", "us/ours", "us/sq16", "us/sq8");
  auto micros = [](double rate) { return rate > 0 ? 1e6 / rate : 0.0; };
  for (int w = 0; w < kWorkloads; ++w) {
    const double ours = g_store_rate[w];
    const double s16 = g_sqlite_rate[kUtf16][w];
    const double s8 = g_sqlite_rate[kUtf8][w];
    if (ours == 0 && s16 == 0 && s8 == 0) continue;
    std::printf("%-12s %12.0f %12.0f %12.0f %8.2f %8.2f %9.3f %9.3f %9.3f\n", kWorkloadNames[w],
                ours, s16, s8, s16 > 0 ? ours / s16 : 0.0, s8 > 0 ? ours / s8 : 0.0, micros(ours),
                micros(s16), micros(s8));
  }
  if (g_keyword_matches[2] >= 0 && (g_keyword_matches[2] != g_keyword_matches[0] ||
                                    g_keyword_matches[2] != g_keyword_matches[1])) {
    std::printf("keyword matches differ: store %d, sqlite16 %d, sqlite8 %d\n", g_keyword_matches[2],
                g_keyword_matches[0], g_keyword_matches[1]);
  }
  // Sizes: the files as written (SQLite's with its write-ahead log), and
  // the peak memory of the process.
  auto size = [](const std::string& path) {
    std::error_code error;
    const auto bytes = std::filesystem::file_size(path, error);
    return error ? 0.0 : static_cast<double>(bytes) / (1 << 20);
  };
  const std::string store = (Folder() + "/posts.kdb").ToUtf8();
  std::printf(
      "posts %d; files MB: store %.1f, sqlite16 %.1f (+wal %.1f), sqlite8 %.1f (+wal %.1f)\n",
      g_posts, size(store), size(SqlitePath(kUtf16)), size(SqlitePath(kUtf16) + "-wal"),
      size(SqlitePath(kUtf8)), size(SqlitePath(kUtf8) + "-wal"));
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) std::printf("peak memory:%s\n", line.c_str() + 6);
  }
  // The record file as a reader finds it at its next start: a new engine
  // opens it (through its map) and scans every post.
  if (g_db != nullptr) {
    kordll::AZeusDB reopened(Folder(), "posts", 10, 0);
    kordll::DBTaskItem task;
    task.DefineFieldTaskType(1, kordll::DBTaskItem::kTaskLoad);
    int n = 0;
    for (;;) {
      kordll::Focusable r(-1, nullptr);
      if (!reopened.readFocusableSlot(&r, nullptr, &task)) break;
      ++n;
    }
    std::printf("reopened: %d of %d posts found by a scan\n", n, g_posts);
  }
  // The files of the run are large: they go with it.
  g_db.reset();
  for (sqlite3* db : g_sql) {
    if (db != nullptr) sqlite3_close(db);
  }
  kordll::FileSystem::DeleteFolderTree(Folder());
  return 0;
}
