// Makes the list of files from directory listings of growing size: the time per entry must stay flat, whatever is or is
// not on the page.
//
// BM_FileSizeList_Build only makes the list that the parsers fill, which nobody can save: what its own time per entry
// grows by with the number of entries is the caches and the system's fresh memory, not a parser.
//
// BM_ZTreeDownload_... are the readers of a whole tree, which make a list of entries of their own.

#include <functional>
#include <string>
#include <utility>

#include <benchmark/benchmark.h>

#include <Corvane/Base/Container.h>
#include <Corvane/MultiDownload/ListingImpl.h>
#include <Corvane/TreeDownload/PageImpl.h>

namespace {

using Corvane::ListingEntry;
using Corvane::ZString;
using FileSizeList = Corvane::Container::ZMap<ZString, unsigned long long, std::less<ZString>>;

std::string Number(long long number) {
  std::string digits = std::to_string(number);
  return std::string(8 - digits.size(), '0') + digits;
}

template <class Line>
std::string Bytes(const std::string& head, long long entries, const std::string& tail, Line line) {
  std::string page = head;
  for (long long i = 0; i < entries; ++i) page += line(Number(i));
  return page + tail;
}

template <class Line>
ZString Page(const std::string& head, long long entries, const std::string& tail, Line line) {
  return ZString(Bytes(head, entries, tail, line).c_str());
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

// --- The readers of a tree. ---

// `read` makes a page of the bytes.
template <class Read>
void MeasurePage(benchmark::State& state, const std::string& bytes, Read read) {
  for (auto _ : state) {
    Corvane::Page page = read(bytes);
    state.PauseTiming();
    const bool isWhole = page.isListing && page.leftOut == 0;
    if (!isWhole || page.entries.size() != static_cast<std::size_t>(state.range(0))) {
      state.SkipWithError("entries are missing");
    }
    page = {};
    state.ResumeTiming();
  }
  state.counters["per_entry"] = benchmark::Counter(
      static_cast<double>(state.range(0)), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

constexpr std::size_t kMostEntries = 10000000;
const auto ReadHtml = [](const std::string& page) {
  return Corvane::ReadHtmlPage(page, "http://host/dir/", "", kMostEntries);
};
const auto ReadMlsd = [](const std::string& text) { return Corvane::ReadMlsd(text, kMostEntries); };
const auto ReadList = [](const std::string& text) { return Corvane::ReadList(text, 0, kMostEntries); };

// The page of a server that nothing tells but its links, which are written like `target`.
std::string LinkPage(long long entries, const std::string& target) {
  return Bytes("<html><body><ul>", entries, "</ul></body></html>", [&](const std::string& n) {
    return "<li><a href=\"" + target + "file" + n + ".bin\">file" + n + ".bin</a></li>\n";
  });
}

void BM_ZTreeDownload_ReadHtml_Nginx(benchmark::State& state) {
  const std::string head = "<title>Index of /dir/</title><h1>Index of /dir/</h1><hr><pre><a href=\"../\">../</a>\r\n";
  MeasurePage(state,
              Bytes(head, state.range(0), "</pre>",
                    [](const std::string& n) {
                      return "<a href=\"file" + n + ".bin\">file" + n +
                             ".bin</a>          20-Nov-2026 10:00               12345\r\n";
                    }),
              ReadHtml);
}
void BM_ZTreeDownload_ReadHtml_Unknown(benchmark::State& state) {
  MeasurePage(state, LinkPage(state.range(0), ""), ReadHtml);
}
void BM_ZTreeDownload_ReadHtml_FromTheRoot(benchmark::State& state) {
  MeasurePage(state, LinkPage(state.range(0), "/dir/"), ReadHtml);
}
// Links that only the parser of requests can read.
void BM_ZTreeDownload_ReadHtml_FromAbove(benchmark::State& state) {
  MeasurePage(state, LinkPage(state.range(0), "../dir/"), ReadHtml);
}
void BM_ZTreeDownload_ReadMlsd(benchmark::State& state) {
  MeasurePage(state,
              Bytes("", state.range(0), "",
                    [](const std::string& n) {
                      return "modify=20261120100000;perm=r;size=12345;type=file;unique=fe00g" + n + "; file" + n +
                             ".bin\r\n";
                    }),
              ReadMlsd);
}
void BM_ZTreeDownload_ReadList(benchmark::State& state) {
  MeasurePage(state,
              Bytes("", state.range(0), "",
                    [](const std::string& n) {
                      return "-rw-r--r--    1 1000     1000        12345 Nov 20 10:00 file" + n + ".bin\r\n";
                    }),
              ReadList);
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
BENCHMARK(BM_ZTreeDownload_ReadHtml_Nginx)->Apply(Sizes);
BENCHMARK(BM_ZTreeDownload_ReadHtml_Unknown)->Apply(Sizes);
BENCHMARK(BM_ZTreeDownload_ReadHtml_FromTheRoot)->Apply(Sizes);
BENCHMARK(BM_ZTreeDownload_ReadHtml_FromAbove)->Apply(Sizes);
BENCHMARK(BM_ZTreeDownload_ReadMlsd)->Apply(Sizes);
BENCHMARK(BM_ZTreeDownload_ReadList)->Apply(Sizes);

}  // namespace
