// How fast text bodies decode, next to a plain loop over utf8cpp that does the same with exceptions and push_back.
//
// BM_AppendUtf8_* decode into a new string each time, as a body that arrives is; BM_Utf8cpp_* are the comparison. The
// argument is the size of the input in bytes: one that stays in the cache, and one where fresh memory is the limit.

#include <cstddef>
#include <iterator>
#include <string>

#include <benchmark/benchmark.h>
#include <utf8.h>

#include <Corvane/Base/StringCoding.h>

namespace {

using Corvane::AppendUtf8;
using Corvane::ZString;

constexpr char kAscii[] =
    "<tr><td><a href=\"package-1.2.3.tar.gz\">package-1.2.3.tar.gz</a></td><td>2024-01-31 12:00</td></tr>\n";
// "Falsches Ueben von Xylophonmusik quaelt jeden groesseren Zwerg." with its umlauts and sharp s.
constexpr char kGerman[] =
    "Falsches \xC3\x9C"
    "ben von Xylophonmusik qu\xC3\xA4lt jeden gr\xC3\xB6\xC3\x9F"
    "eren Zwerg.\n";
constexpr char kCjk[] =
    "\xE6\x96\x87\xE5\xAD\x97\xE7\xAC\xA6\xE5\x8F\xB7\xE3\x81\xAE\xE9\x9B\x86\xE5\x90\x88\xE3\x80\x82\n";
constexpr char kInvalid[] = "\xFF\xC0\xAF\xED\xA0\x80\xF4\x90\x80\x80\xE2\x82\xFE";

// `size` bytes of `sample`, again and again.
std::string Repeat(const std::string& sample, std::size_t size) {
  std::string text;
  text.reserve(size + sample.size());
  while (text.size() < size) text += sample;
  text.resize(size);
  return text;
}

// The comparison: one character at a time, the ill-formed ones found by an exception for each byte.
std::wstring DecodeWithUtf8cpp(const std::string& bytes) {
  std::wstring text;
  auto position = bytes.begin();
  while (position != bytes.end()) {
    try {
      text.push_back(static_cast<wchar_t>(utf8::next(position, bytes.end())));
    } catch (const utf8::exception&) {
      text.push_back(0xFFFD);
      ++position;
    }
  }
  return text;
}

void DecodeOurs(benchmark::State& state, const std::string& sample) {
  const std::string bytes = Repeat(sample, static_cast<std::size_t>(state.range(0)));
  for ([[maybe_unused]] const auto _ : state) {
    ZString text;
    AppendUtf8(text, bytes.data(), bytes.size());
    benchmark::DoNotOptimize(text.CStr());
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void DecodeNaively(benchmark::State& state, const std::string& sample) {
  const std::string bytes = Repeat(sample, static_cast<std::size_t>(state.range(0)));
  for ([[maybe_unused]] const auto _ : state) {
    const std::wstring text = DecodeWithUtf8cpp(bytes);
    benchmark::DoNotOptimize(text.data());
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_AppendUtf8_Ascii(benchmark::State& state) { DecodeOurs(state, kAscii); }
void BM_AppendUtf8_German(benchmark::State& state) { DecodeOurs(state, kGerman); }
void BM_AppendUtf8_Cjk(benchmark::State& state) { DecodeOurs(state, kCjk); }
void BM_AppendUtf8_Invalid(benchmark::State& state) { DecodeOurs(state, kInvalid); }
void BM_Utf8cpp_Ascii(benchmark::State& state) { DecodeNaively(state, kAscii); }
void BM_Utf8cpp_German(benchmark::State& state) { DecodeNaively(state, kGerman); }
void BM_Utf8cpp_Cjk(benchmark::State& state) { DecodeNaively(state, kCjk); }
void BM_Utf8cpp_Invalid(benchmark::State& state) { DecodeNaively(state, kInvalid); }

constexpr long kInCache = 16 << 10;
constexpr long kLargeBody = 16 << 20;

BENCHMARK(BM_AppendUtf8_Ascii)->Arg(kInCache)->Arg(kLargeBody);
BENCHMARK(BM_Utf8cpp_Ascii)->Arg(kInCache)->Arg(kLargeBody);
BENCHMARK(BM_AppendUtf8_German)->Arg(kInCache)->Arg(kLargeBody);
BENCHMARK(BM_Utf8cpp_German)->Arg(kInCache)->Arg(kLargeBody);
BENCHMARK(BM_AppendUtf8_Cjk)->Arg(kInCache)->Arg(kLargeBody);
BENCHMARK(BM_Utf8cpp_Cjk)->Arg(kInCache)->Arg(kLargeBody);
BENCHMARK(BM_AppendUtf8_Invalid)->Arg(kInCache)->Arg(kLargeBody);
BENCHMARK(BM_Utf8cpp_Invalid)->Arg(kInCache);  // an exception per byte: the large one would take a minute

}  // namespace
