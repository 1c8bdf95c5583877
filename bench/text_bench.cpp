// Feed text operations over a 1 MB page: DecodeString, URLDecode and
// NormalizeLinks must stay linear in the page. Each workload reports bytes
// per second; the "plain" runs are the same page without any "&" or link,
// the peer that tells what the markup costs.

#include <benchmark/benchmark.h>

#include <string>

#include "kordll/platform/CString.h"
#include "kordll/toolkit/KorlanHTMLCtrl.h"

namespace {

using kordll::CString;
using kordll::KorlanHTMLCtrl;

constexpr size_t kPageUnits = 1 << 20;

// A feed page of about 1 MB: paragraphs with entities of every group, links
// of every kind, escapes and numeric references, repeated.
CString MarkupPage() {
  static const char16_t kBlock[] =
      u"<p class=\"post\">Caf&eacute; &amp; cr&egrave;me &#8220;quoted&#8221; &lt;b&gt; "
      u"&Agrave; &ouml; &Yacute; &Ycirc; &copy; 100%25 a+b &#65; "
      u"<a href=\"/dir/page.html\">one</a> <img src=\"//cdn.example/a.gif\"> "
      u"<a href=\"HTTP://Example.com/X\">two</a> <a href=\"rel/Path.html\">three</a>"
      u" &#8217;</p>\n";
  std::u16string page;
  page.reserve(kPageUnits + sizeof(kBlock));
  while (page.size() < kPageUnits) page += kBlock;
  return CString(std::move(page));
}

CString PlainPage() {
  static const char16_t kBlock[] =
      u"Plain feed text without any markup at all, only words and numbers 12345.\n";
  std::u16string page;
  page.reserve(kPageUnits + sizeof(kBlock));
  while (page.size() < kPageUnits) page += kBlock;
  return CString(std::move(page));
}

// Pathological input for the link walk and the numeric references: many
// attribute words and "&#" with nothing after them.
CString HostilePage() {
  std::u16string page;
  page.reserve(kPageUnits + 16);
  while (page.size() < kPageUnits) page += u"src &#1 href ";
  return CString(std::move(page));
}

void Run(benchmark::State& state, const CString& page, CString (*op)(const CString&)) {
  for (auto _ : state) benchmark::DoNotOptimize(op(page));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * page.GetLength() * 2);
}

CString Decode(const CString& page) { return KorlanHTMLCtrl::DecodeString(page); }
CString UrlDecode(const CString& page) { return KorlanHTMLCtrl::URLDecode(page); }
CString Links(const CString& page) {
  return KorlanHTMLCtrl::NormalizeLinks(page, CString("http://host/dir/page.html"));
}

void BM_DecodeString(benchmark::State& s) { Run(s, MarkupPage(), Decode); }
void BM_DecodeString_Plain(benchmark::State& s) { Run(s, PlainPage(), Decode); }
void BM_URLDecode(benchmark::State& s) { Run(s, MarkupPage(), UrlDecode); }
void BM_URLDecode_Plain(benchmark::State& s) { Run(s, PlainPage(), UrlDecode); }
void BM_URLDecode_Hostile(benchmark::State& s) { Run(s, HostilePage(), UrlDecode); }
void BM_NormalizeLinks(benchmark::State& s) { Run(s, MarkupPage(), Links); }
void BM_NormalizeLinks_Plain(benchmark::State& s) { Run(s, PlainPage(), Links); }
void BM_NormalizeLinks_Hostile(benchmark::State& s) { Run(s, HostilePage(), Links); }

BENCHMARK(BM_DecodeString)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeString_Plain)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_URLDecode)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_URLDecode_Plain)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_URLDecode_Hostile)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NormalizeLinks)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NormalizeLinks_Plain)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NormalizeLinks_Hostile)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
