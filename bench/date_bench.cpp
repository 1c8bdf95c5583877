// Reading feed dates: texts per second for a mixed set of the shapes feeds
// write, and for each family alone, so that a slow form shows by name.
//
//   date_bench --benchmark_counter_tabular=true
//
// The clock and zone are the machine's, as in an application: the year
// rules read "now" for every short year.

#include <benchmark/benchmark.h>

#include <vector>

#include "kordll/core/DateText.h"
#include "kordll/platform/COleDateTime.h"
#include "kordll/platform/CString.h"
#include "kordll/toolkit/KorlanDateTime.h"

namespace {

using kordll::COleDateTime;
using kordll::CString;
using kordll::DateText;
using kordll::KorlanDateTime;

std::vector<CString> Texts(std::initializer_list<const char*> list) {
  std::vector<CString> texts;
  for (const char* t : list) texts.emplace_back(t);
  return texts;
}

const std::vector<CString>& Rfc822() {
  static const auto* texts = new std::vector<CString>(Texts({
      "Mon, 07 Nov 2005 10:00:00 GMT",
      "Tue, 08 Nov 2005 23:59:59 +0100",
      "Wed, 09 Nov 2005 08:30 EST",
      "07 Nov 2005 10:00:00 PST",
      "07 Nov 2005 10:00 -0500",
  }));
  return *texts;
}

const std::vector<CString>& Iso8601() {
  static const auto* texts = new std::vector<CString>(Texts({
      "2005-11-03T09:15:43Z",
      "2005-11-03T09:15:43-05:00",
      "2005-11-03T09:15:43.123+01:00",
      "2005-11-03T09:15Z",
      "2005-11-03T09:15:43",
  }));
  return *texts;
}

const std::vector<CString>& Stored() {
  static const auto* texts = new std::vector<CString>(Texts({
      "11/07/05@10:00",
      "12/31/99@23:59",
      "01/01/10@00:00",
  }));
  return *texts;
}

const std::vector<CString>& Mixed() {
  static const auto* texts = [] {
    auto* all = new std::vector<CString>();
    for (const auto* family : {&Rfc822(), &Iso8601(), &Stored()}) {
      all->insert(all->end(), family->begin(), family->end());
    }
    for (const char* t : {"11/7/2005 10:00", "Monday November 7, 2005 @ 10:00",
                          "11/03/05 10:00 GMT", "not a date at all", ""}) {
      all->emplace_back(t);
    }
    return all;
  }();
  return *texts;
}

void Read(benchmark::State& state, const std::vector<CString>& texts, int to_local) {
  size_t i = 0;
  for (auto _ : state) {
    COleDateTime d = KorlanDateTime::StringToDateTime(texts[i], to_local);
    benchmark::DoNotOptimize(d);
    if (++i == texts.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
  state.SetLabel("texts/s");
}

void BM_ReadMixed(benchmark::State& state) { Read(state, Mixed(), 0); }
void BM_ReadMixedToLocal(benchmark::State& state) { Read(state, Mixed(), 1); }
void BM_ReadRfc822(benchmark::State& state) { Read(state, Rfc822(), 0); }
void BM_ReadIso8601(benchmark::State& state) { Read(state, Iso8601(), 0); }
void BM_ReadStoredShape(benchmark::State& state) { Read(state, Stored(), 0); }

void BM_ReadDayOnlyMixed(benchmark::State& state) {
  const auto& texts = Mixed();
  size_t i = 0;
  for (auto _ : state) {
    COleDateTime d = KorlanDateTime::StringToDate(texts[i]);
    benchmark::DoNotOptimize(d);
    if (++i == texts.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
  state.SetLabel("texts/s");
}

// The write and read-back of the stored shape, as every record save and
// load of a date field does.
void BM_StoredShapeRoundTrip(benchmark::State& state) {
  COleDateTime d(2005, 11, 7, 21, 45, 0);
  for (auto _ : state) {
    CString text = KorlanDateTime::DateTimeToSimpleString(d, 0);
    COleDateTime back = KorlanDateTime::StringToDateTime(text, 0);
    benchmark::DoNotOptimize(back);
  }
  state.SetItemsProcessed(state.iterations());
  state.SetLabel("dates/s");
}

// Records reading their stored dates: every text of the stored shape, read
// by the full reader and by the short way that records use (which falls
// back to the full reader for anything else).
const std::vector<CString>& StoredDays() {
  static const auto* texts = [] {
    auto* all = new std::vector<CString>();
    for (int i = 0; i < 64; ++i) {
      all->push_back(DateText::DateTimeToSimpleString(
          COleDateTime(1990 + i % 35, i % 12 + 1, i % 28 + 1, i % 24, i * 7 % 60, 0)));
    }
    return all;
  }();
  return *texts;
}

void BM_StoredDayFullReader(benchmark::State& state) {
  const auto& texts = StoredDays();
  size_t i = 0;
  for (auto _ : state) {
    COleDateTime d = DateText::StringToDateTime(texts[i], 0);
    benchmark::DoNotOptimize(d);
    if (++i == texts.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
  state.SetLabel("texts/s");
}

void BM_StoredDayShortWay(benchmark::State& state) {
  const auto& texts = StoredDays();
  size_t i = 0;
  for (auto _ : state) {
    COleDateTime d = DateText::StoredTextToDateTime(texts[i]);
    benchmark::DoNotOptimize(d);
    if (++i == texts.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
  state.SetLabel("texts/s");
}

BENCHMARK(BM_ReadMixed);
BENCHMARK(BM_ReadMixedToLocal);
BENCHMARK(BM_ReadRfc822);
BENCHMARK(BM_ReadIso8601);
BENCHMARK(BM_ReadStoredShape);
BENCHMARK(BM_ReadDayOnlyMixed);
BENCHMARK(BM_StoredShapeRoundTrip);
BENCHMARK(BM_StoredDayFullReader);
BENCHMARK(BM_StoredDayShortWay);

}  // namespace

BENCHMARK_MAIN();
