// Makes the list of files from directory listings of growing size: the time per entry must stay flat, whatever is or is
// not on the page.
//
// BM_FileSizeList_Build only makes the list that the parsers fill, which nobody can save: what its own time per entry
// grows by with the number of entries is the caches and the system's fresh memory, not a parser.

#include <functional>
#include <string>
#include <utility>

#include <benchmark/benchmark.h>

#include <Corvane/Base/Container.h>
#include <Corvane/MultiDownload/ListingImpl.h>

namespace {

using Corvane::ListingEntry;
using Corvane::ZString;
using FileSizeList = Corvane::Container::ZMap<ZString, unsigned long long, std::less<ZString>>;

std::string Number(long long number) {
  std::string digits = std::to_string(number);
  return std::string(8 - digits.size(), '0') + digits;
}

template <class Line>
ZString Page(const std::string& head, long long entries, const std::string& tail, Line line) {
  std::string page = head;
  for (long long i = 0; i < entries; ++i) page += line(Number(i));
  return ZString((page + tail).c_str());
}

ZString NginxPage(long long entries, char quote) {
  return Page("HTTP/1.1 200 OK\r\nServer: nginx\r\n\r\n<html><body><h1>Index of /</h1><hr><pre>", entries,
              "</pre></body></html>", [&](const std::string& n) {
                return std::string("<a href=") + quote + "file" + n + ".bin" + quote + ">file" + n +
                       ".bin</a>          20-Nov-2026 10:00          12345\r\n";
              });
}

ZString IisPage(long long entries) {
  return Page("HTTP/1.1 200 OK\r\nServer: Microsoft-IIS/10.0\r\n\r\n<html><body><H1>host - /</H1><hr><pre>", entries,
              "</pre></body></html>", [](const std::string& n) {
                return "11/20/2026 10:00 AM        12345 <A HREF=\"/dir/file" + n + ".bin\">file" + n + ".bin</A><br>";
              });
}

ZString UnixListing(long long entries) {
  return Page("total 1000\r\n", entries, "", [](const std::string& n) {
    return "-rw-r--r--    1 1000     1000        12345 Nov 20 10:00 file" + n + ".bin\r\n";
  });
}

ZString DosListing(long long entries) {
  return Page("", entries, "",
              [](const std::string& n) { return "11-20-26  10:00AM                12345 file" + n + ".bin\r\n"; });
}

// `build` makes the list of files.
template <class Build>
void Measure(benchmark::State& state, Build build) {
  for (auto _ : state) {
    FileSizeList files = build();
    state.PauseTiming();
    if (files.size() != static_cast<std::size_t>(state.range(0))) state.SkipWithError("entries are missing");
    files.clear();
    state.ResumeTiming();
  }
  state.counters["per_entry"] = benchmark::Counter(
      static_cast<double>(state.range(0)), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// Parses, and puts what was found in order, as a mirror does.
template <class Parse>
void Measure(benchmark::State& state, const ZString& text, Parse parse) {
  Measure(state, [&] {
    FileSizeList files;
    auto listing = parse(text);
    for (ListingEntry& entry : listing.entries) files.insert_or_assign(files.end(), std::move(entry.name), entry.size);
    return files;
  });
}

const auto ParseHttp = [](const ZString& text) { return Corvane::ParseHttpListing(text); };
const auto ParseFtp = [](const ZString& text) { return Corvane::ParseFtpListing(text); };

void BM_ZMultiDownload_ParseHttp_NoApostrophe(benchmark::State& state) {
  Measure(state, NginxPage(state.range(0), '"'), ParseHttp);
}
void BM_ZMultiDownload_ParseHttp_NoDoubleQuote(benchmark::State& state) {
  Measure(state, NginxPage(state.range(0), '\''), ParseHttp);
}
void BM_ZMultiDownload_ParseHttp_Iis(benchmark::State& state) { Measure(state, IisPage(state.range(0)), ParseHttp); }
void BM_ZMultiDownload_ParseFtp_Unix(benchmark::State& state) { Measure(state, UnixListing(state.range(0)), ParseFtp); }
void BM_ZMultiDownload_ParseFtp_Dos(benchmark::State& state) { Measure(state, DosListing(state.range(0)), ParseFtp); }

void BM_FileSizeList_Build(benchmark::State& state) {
  std::wstring name = L"file00000000.bin";
  Measure(state, [&] {
    FileSizeList files;
    for (long long i = 0; i < state.range(0); ++i) {
      long long rest = i;
      for (std::size_t digit = 11; digit >= 4; --digit, rest /= 10)
        name[digit] = static_cast<wchar_t>(L'0' + rest % 10);
      files.insert_or_assign(files.end(), ZString(name), 0);
    }
    return files;
  });
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->Arg(10000)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_FileSizeList_Build)->Apply(Sizes);
BENCHMARK(BM_ZMultiDownload_ParseHttp_NoApostrophe)->Apply(Sizes);
BENCHMARK(BM_ZMultiDownload_ParseHttp_NoDoubleQuote)->Apply(Sizes);
BENCHMARK(BM_ZMultiDownload_ParseHttp_Iis)->Apply(Sizes);
BENCHMARK(BM_ZMultiDownload_ParseFtp_Unix)->Apply(Sizes);
BENCHMARK(BM_ZMultiDownload_ParseFtp_Dos)->Apply(Sizes);

}  // namespace
