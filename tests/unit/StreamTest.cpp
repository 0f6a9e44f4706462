#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <Corvane/Base/Stream.h>

#include "tests/support/NextFunction.h"
#include "tests/unit/PrintTo.h"

namespace {

// The tests' own allocation: refuses blocks of this size and more, in the library too, since it replaces operator new.
std::size_t refusedBytes = std::numeric_limits<std::size_t>::max();

class RefuseAllocations {
 public:
  explicit RefuseAllocations(std::size_t fromBytes) { refusedBytes = fromBytes; }
  ~RefuseAllocations() { refusedBytes = std::numeric_limits<std::size_t>::max(); }
  RefuseAllocations(const RefuseAllocations&) = delete;
  RefuseAllocations& operator=(const RefuseAllocations&) = delete;
};

}  // namespace

// The sizes that the stream has asked realloc for, as long as somebody wants to know.
static std::vector<std::size_t>* requestedSizes = nullptr;

CORVANE_TEST_STANDS_IN void* realloc(void* memory, std::size_t bytes) noexcept {
  static const CorvaneTest::NextFunction<void*(void*, std::size_t)> next("realloc");
  if (std::vector<std::size_t>* const sizes =
          std::exchange(requestedSizes, nullptr)) {  // the vector may come here, too
    sizes->push_back(bytes);
    requestedSizes = sizes;
  }
  return next(memory, bytes);
}

// Not inlined: with only one of the two calls in sight, the compiler warns of memory freed by the wrong function.
[[gnu::noinline]] void* operator new(std::size_t bytes) {
  void* const memory = bytes >= refusedBytes ? nullptr : std::malloc(bytes == 0 ? 1 : bytes);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

// A sanitizer would otherwise end the program at the requests that the tests mean to fail.
// NOLINTBEGIN(bugprone-reserved-identifier): the sanitizers look for these names
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options();
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() { return "allocator_may_return_null=1"; }
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using Corvane::BASE_E_END_OF_STREAM;
using Corvane::BASE_S_OK;
using Corvane::ResultFromErrno;
using Corvane::ZDynamicMemoryStream;
using Corvane::ZResult;
using Corvane::ZString;
using Corvane::ZUtf8Encoding;

std::size_t WriteText(ZDynamicMemoryStream& stream, const std::string& bytes) {
  return stream.Write(bytes.data(), bytes.size());
}

// The first `bytes` bytes of the stream as text.
std::wstring ReadFromBeginning(ZDynamicMemoryStream& stream, std::size_t bytes) {
  ZString text;
  EXPECT_EQ(stream.Seek(0), BASE_S_OK);
  EXPECT_EQ(stream.Read(text, bytes, ZUtf8Encoding()), BASE_S_OK);
  return text.Str();
}

TEST(ZDynamicMemoryStream, IsEmptyAtFirst) {
  ZDynamicMemoryStream stream(1);
  EXPECT_EQ(stream.Length(), 0u);
  EXPECT_EQ(stream.Seek(0), BASE_S_OK);
  ZString text;
  EXPECT_EQ(stream.Read(text, 0, ZUtf8Encoding()), BASE_S_OK);
  EXPECT_EQ(stream.Read(text, 1, ZUtf8Encoding()), BASE_E_END_OF_STREAM);
  EXPECT_TRUE(text.IsEmpty());
}

TEST(ZDynamicMemoryStream, GivesBackWhatWasWritten) {
  for (const std::size_t initialBytes : {std::size_t{0}, std::size_t{1}, std::size_t{7}, std::size_t{4096}}) {
    ZDynamicMemoryStream stream(initialBytes);
    EXPECT_EQ(WriteText(stream, "one "), 4u);
    EXPECT_EQ(WriteText(stream, "two "), 4u);
    EXPECT_EQ(WriteText(stream, std::string(100, 'x')), 100u);
    EXPECT_EQ(stream.Length(), 108u);
    EXPECT_EQ(ReadFromBeginning(stream, 108), L"one two " + std::wstring(100, L'x')) << initialBytes;
  }
}

TEST(ZDynamicMemoryStream, GrowsByManySmallWrites) {
  // Growing by the size of each block would copy half a terabyte.
  ZDynamicMemoryStream stream(1);
  const std::string block = "0123456789";
  for (int i = 0; i < 300000; ++i) ASSERT_EQ(WriteText(stream, block), block.size());
  EXPECT_EQ(stream.Length(), 3000000u);
  const std::wstring text = ReadFromBeginning(stream, stream.Length());
  for (std::size_t i = 0; i < text.size(); ++i) ASSERT_EQ(text[i], static_cast<wchar_t>(L'0' + i % 10)) << i;
}

TEST(ZDynamicMemoryStream, GrowsByDoublingOrToWhatIsNeeded) {
  std::vector<std::size_t> sizes;
  requestedSizes = &sizes;
  {
    ZDynamicMemoryStream stream(16);
    for (int i = 0; i < 200; ++i) WriteText(stream, "x");
    WriteText(stream, std::string(1000, 'y'));
    for (int i = 0; i < 500; ++i) WriteText(stream, "z");
  }
  requestedSizes = nullptr;
  EXPECT_EQ(sizes, (std::vector<std::size_t>{16, 32, 64, 128, 256, 1200, 2400}));
}

// NOLINTBEGIN(clang-analyzer-cplusplus.Move): for a stream that was moved from
void ExpectEmptyAndUsable(ZDynamicMemoryStream& stream) {
  EXPECT_EQ(stream.Length(), 0u);
  EXPECT_EQ(stream.Seek(1), BASE_E_END_OF_STREAM);
  ZString text;
  EXPECT_EQ(stream.Read(text, 1, ZUtf8Encoding()), BASE_E_END_OF_STREAM);
  EXPECT_EQ(WriteText(stream, "again"), 5u);
  EXPECT_EQ(ReadFromBeginning(stream, 5), L"again");
}
// NOLINTEND(clang-analyzer-cplusplus.Move)

TEST(ZDynamicMemoryStream, IsEmptyAndUsableAfterItWasMovedFrom) {
  ZDynamicMemoryStream first(4);
  WriteText(first, "content");
  ASSERT_EQ(first.Seek(3), BASE_S_OK);
  ZDynamicMemoryStream second(std::move(first));
  ExpectEmptyAndUsable(first);  // NOLINT(bugprone-use-after-move): it is what the test looks at
  ZString rest;
  EXPECT_EQ(second.Read(rest, 4, ZUtf8Encoding()), BASE_S_OK) << "the position moves along";
  EXPECT_EQ(rest, ZString(L"tent"));

  ZDynamicMemoryStream third(1);
  WriteText(third, "given up");
  third = std::move(second);
  ExpectEmptyAndUsable(second);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(third.Length(), 7u);
  EXPECT_EQ(WriteText(third, "s"), 1u);
  EXPECT_EQ(ReadFromBeginning(third, 8), L"contents");
}

TEST(ZDynamicMemoryStream, KeepsItsContentWhenMovedToItself) {
  ZDynamicMemoryStream stream(1);
  WriteText(stream, "content");
  ZDynamicMemoryStream& same = stream;
  stream = std::move(same);
  EXPECT_EQ(stream.Length(), 7u);
  EXPECT_EQ(WriteText(stream, "s"), 1u);
  EXPECT_EQ(ReadFromBeginning(stream, 8), L"contents");
}

TEST(ZDynamicMemoryStream, WritingNothingStoresNothing) {
  ZDynamicMemoryStream stream(1);
  EXPECT_EQ(stream.Write("", 0), 0u);
  EXPECT_EQ(stream.Write(nullptr, 0), 0u);
  EXPECT_EQ(stream.Length(), 0u);
  EXPECT_EQ(WriteText(stream, "a"), 1u);
  EXPECT_EQ(stream.Write(nullptr, 0), 0u);
  EXPECT_EQ(ReadFromBeginning(stream, 1), L"a");
}

TEST(ZDynamicMemoryStream, SeekingBackAndWritingOverwrites) {
  ZDynamicMemoryStream stream(1);
  WriteText(stream, "a long first body");
  ASSERT_EQ(stream.Seek(0), BASE_S_OK);
  EXPECT_EQ(WriteText(stream, "short"), 5u);
  EXPECT_EQ(stream.Length(), 17u);  // the length only grows
  EXPECT_EQ(ReadFromBeginning(stream, 5), L"short");
  EXPECT_EQ(ReadFromBeginning(stream, 17), L"shortg first body");
  ASSERT_EQ(stream.Seek(16), BASE_S_OK);
  EXPECT_EQ(WriteText(stream, "Y!"), 2u);
  EXPECT_EQ(stream.Length(), 18u);
  EXPECT_EQ(ReadFromBeginning(stream, 18), L"shortg first bodY!");
}

TEST(ZMemoryStream, SeekPastTheEndFailsAndMovesNothing) {
  ZDynamicMemoryStream stream(64);  // room is not length
  WriteText(stream, "abc");
  ASSERT_EQ(stream.Seek(1), BASE_S_OK);
  EXPECT_EQ(stream.Seek(4), BASE_E_END_OF_STREAM);
  EXPECT_EQ(stream.Seek(static_cast<std::size_t>(-1)), BASE_E_END_OF_STREAM);
  ZString text;
  EXPECT_EQ(stream.Read(text, 2, ZUtf8Encoding()), BASE_S_OK);
  EXPECT_EQ(text, ZString(L"bc"));
  EXPECT_EQ(stream.Seek(3), BASE_S_OK);  // the end itself is a position
}

TEST(ZDynamicMemoryStream, AFailedGrowthKeepsTheContent) {
  ZDynamicMemoryStream stream(1);
  WriteText(stream, "kept");
  const char byte = 'x';
  const std::size_t tooMuch[] = {SIZE_MAX, SIZE_MAX - 3, SIZE_MAX - 4, SIZE_MAX / 2 + 1};
  for (const std::size_t bytes : tooMuch) EXPECT_EQ(stream.Write(&byte, bytes), 0u) << bytes;
  EXPECT_EQ(stream.Length(), 4u);
  EXPECT_EQ(WriteText(stream, "!"), 1u);
  EXPECT_EQ(ReadFromBeginning(stream, 5), L"kept!");
}

TEST(ZDynamicMemoryStream, AnInitialSizeThatCannotBeHadFailsTheWrite) {
  ZDynamicMemoryStream stream(SIZE_MAX);
  EXPECT_EQ(WriteText(stream, "a"), 0u);
  EXPECT_EQ(stream.Length(), 0u);
}

TEST(ZStream, ReadAppendsAndMovesThePosition) {
  ZDynamicMemoryStream stream(1);
  WriteText(stream,
            "gr\xC3\xBC\xC3\x9F"
            "e");
  ASSERT_EQ(stream.Seek(0), BASE_S_OK);
  ZString text(L"> ");
  EXPECT_EQ(stream.Read(text, 4, ZUtf8Encoding()), BASE_S_OK);
  EXPECT_EQ(text, ZString(L"> gr\u00FC"));
  EXPECT_EQ(stream.Read(text, 3, ZUtf8Encoding()), BASE_S_OK);
  EXPECT_EQ(text, ZString(L"> gr\u00FC\u00DFe"));
}

TEST(ZStream, ReadReplacesIllFormedInput) {
  ZDynamicMemoryStream stream(1);
  WriteText(stream, "a\xFF\xE2\x82");
  EXPECT_EQ(ReadFromBeginning(stream, 4), L"a\uFFFD\uFFFD");
}

TEST(ZStream, ReadKeepsZeroBytes) {
  ZDynamicMemoryStream stream(1);
  WriteText(stream, std::string("a\0b", 3));
  EXPECT_EQ(ReadFromBeginning(stream, 3), std::wstring(L"a\0b", 3));
}

TEST(ZStream, ReadOfMoreThanIsLeftReadsNothing) {
  ZDynamicMemoryStream stream(64);
  WriteText(stream, "abc");
  ASSERT_EQ(stream.Seek(1), BASE_S_OK);
  ZString text(L"old");
  EXPECT_EQ(stream.Read(text, 3, ZUtf8Encoding()), BASE_E_END_OF_STREAM);
  EXPECT_EQ(stream.Read(text, static_cast<std::size_t>(-1), ZUtf8Encoding()), BASE_E_END_OF_STREAM);
  EXPECT_EQ(text, ZString(L"old"));
  EXPECT_EQ(stream.Read(text, 2, ZUtf8Encoding()), BASE_S_OK);
  EXPECT_EQ(text, ZString(L"oldbc"));
}

TEST(ZStream, ReadReportsThatMemoryRanOut) {
  ZDynamicMemoryStream stream(1);
  WriteText(stream, std::string(1 << 20, 'x'));
  ASSERT_EQ(stream.Seek(0), BASE_S_OK);
  ZString text(L"old");
  {
    const RefuseAllocations refuse(1 << 20);
    EXPECT_EQ(stream.Read(text, 1 << 20, ZUtf8Encoding()), ResultFromErrno(ENOMEM));
  }
  EXPECT_TRUE(text.StartsWith(L"old"));
  EXPECT_EQ(stream.Read(text, 1, ZUtf8Encoding()), BASE_E_END_OF_STREAM) << "the position is behind the bytes";
  EXPECT_EQ(ReadFromBeginning(stream, 1 << 20), std::wstring(1 << 20, L'x'));
}

TEST(ZStream, ReadLeavesTheBeginningWhenMemoryRunsOut) {
  // Pieces that no count foresees, so that the text has grown when the memory ends.
  ZDynamicMemoryStream stream(1);
  WriteText(stream, std::string(1 << 20, '\x80'));
  ASSERT_EQ(stream.Seek(0), BASE_S_OK);
  ZString text;
  {
    const RefuseAllocations refuse(1 << 20);
    EXPECT_EQ(stream.Read(text, 1 << 20, ZUtf8Encoding()), ResultFromErrno(ENOMEM));
  }
  EXPECT_GT(text.Length(), 0u);
  EXPECT_LT(text.Length(), std::size_t{1 << 20});
  EXPECT_EQ(text.FindFirstNotOf(L"\uFFFD"), ZString::npos);
}

}  // namespace
