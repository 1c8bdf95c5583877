// Records of twelve fields: build 100,000 records, change each, and release
// them, against the same work on a plain record of twelve texts made with
// new/delete.
//
//   records_bench --benchmark_counter_tabular=true
//
// "ratio_vs_plain" is record time over plain time, measured in the same
// iteration.

#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <vector>

#include "kordll/platform/COleDateTime.h"
#include "kordll/record/Focusable.h"
#include "kordll/record/LibraryLifetime.h"

namespace {

using kordll::COleDateTime;
using kordll::CString;
using kordll::Focusable;
using Seconds = std::chrono::duration<double>;

constexpr int kRecords = 100000;

// The peer: twelve texts, no types, no change tracking.
struct PlainRecord {
  std::array<CString, 12> fields;
};

double RecordRound(std::vector<Focusable*>& records, const COleDateTime& date) {
  const auto start = std::chrono::steady_clock::now();
  const CString title(u"A title of ordinary length for a post");
  const CString link(u"http://example.com/2007/05/06/a-post.html");
  for (int i = 0; i < kRecords; ++i) {
    auto* record = new Focusable(4, nullptr);
    record->SetGUID(CString::Formatted(CString(u"R3_G%d"), i));
    record->SetFocusableStatus(2);
    record->SetReceiveDateTime(date);
    record->SetPublicationDateTime(date);
    record->SetValueStr(4, title, 1);
    record->SetValueStr(5, CString(u"Author"), 1);
    record->SetValueStr(6, CString(u"news|tech"), 1);
    record->SetValueStr(7, CString(u"A short description."), 1);
    record->SetValueStr(8, CString(u"Channel"), 1);
    record->SetValueInt(9, i, 1);
    record->SetValueStr(10, link, 1);
    record->SetValueBOOL(11, 1, 1);
    records[i] = record;
  }
  for (int i = 0; i < kRecords; ++i) {
    Focusable* record = records[i];
    record->ReSetFocusableStatus(1, 2);
    record->SetValueStr(4, CString(u"A changed title"), 1);
    record->SetValueInt(9, i + 1, 1);
    benchmark::DoNotOptimize(record->GetFieldString(9, 0));
  }
  for (int i = 0; i < kRecords; ++i) {
    records[i]->Reserve();
    records[i]->Release(nullptr);  // unheld: the last release deletes it
  }
  return Seconds(std::chrono::steady_clock::now() - start).count();
}

double PlainRound(std::vector<PlainRecord*>& records) {
  const auto start = std::chrono::steady_clock::now();
  const CString title(u"A title of ordinary length for a post");
  const CString link(u"http://example.com/2007/05/06/a-post.html");
  for (int i = 0; i < kRecords; ++i) {
    auto* record = new PlainRecord();
    record->fields[0] = CString::Formatted(CString(u"R3_G%d"), i);
    record->fields[1] = CString(u"2");
    record->fields[2] = CString(u"05/06/07@07:08");
    record->fields[3] = CString(u"05/06/07@07:08");
    record->fields[4] = title;
    record->fields[5] = CString(u"Author");
    record->fields[6] = CString(u"news|tech");
    record->fields[7] = CString(u"A short description.");
    record->fields[8] = CString(u"Channel");
    record->fields[9] = CString::Formatted(CString(u"%d"), i);
    record->fields[10] = link;
    record->fields[11] = CString(u"1");
    records[i] = record;
  }
  for (int i = 0; i < kRecords; ++i) {
    records[i]->fields[1] = CString(u"1");
    records[i]->fields[4] = CString(u"A changed title");
    records[i]->fields[9] = CString::Formatted(CString(u"%d"), i + 1);
    benchmark::DoNotOptimize(records[i]->fields[9]);
  }
  for (int i = 0; i < kRecords; ++i) delete records[i];
  return Seconds(std::chrono::steady_clock::now() - start).count();
}

void BM_RecordsBuildChangeRelease(benchmark::State& state) {
  kordll::KordllProcessAttach();
  const COleDateTime date(2007, 5, 6, 7, 8, 0);
  std::vector<Focusable*> records(kRecords);
  std::vector<PlainRecord*> plain(kRecords);
  double recordTime = 0.0;
  double plainTime = 0.0;
  for (auto _ : state) {
    const double r = RecordRound(records, date);
    state.SetIterationTime(r);
    recordTime += r;
    plainTime += PlainRound(plain);
  }
  state.SetItemsProcessed(state.iterations() * kRecords);
  const double ratio = plainTime > 0.0 ? recordTime / plainTime : 0.0;
  state.counters["ratio_vs_plain"] = ratio;
  state.SetLabel("ratio vs plain new/delete record: " + std::to_string(ratio));
}

BENCHMARK(BM_RecordsBuildChangeRelease)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
