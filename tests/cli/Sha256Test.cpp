// Checksums.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>
#include <utility>
#include <variant>

#include "apps/corvane/Files.h"
#include "apps/corvane/Sha256.h"

namespace CorvaneCli {
namespace {

// FIPS 180-4 and its example values.
constexpr const char* kOfNothing = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr const char* kOfAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
constexpr const char* kOfMillionA = "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0";

TEST(Sha256, GivesTheKnownValues) {
  Sha256 sum;
  EXPECT_EQ(sum.Hex(), kOfNothing);
  sum.Add("abc", 3);
  EXPECT_EQ(sum.Hex(), kOfAbc);
  EXPECT_EQ(sum.Hex(), kOfAbc);
}

TEST(Sha256, DoesNotDependOnThePieces) {
  Sha256 sum;
  const std::string piece(1000, 'a');
  for (int i = 0; i < 1000; ++i) {
    sum.Add(piece.data(), 1);
    static_cast<void>(sum.Hex());  // what it is so far spoils nothing
    sum.Add(nullptr, 0);
    sum.Add(piece.data(), 999);
  }
  EXPECT_EQ(sum.Hex(), kOfMillionA);
}

TEST(Sha256, CanBeMoved) {
  Sha256 first;
  first.Add("ab", 2);
  Sha256 second(std::move(first));
  second.Add("c", 1);
  EXPECT_EQ(second.Hex(), kOfAbc);
  second = Sha256();
  EXPECT_EQ(second.Hex(), kOfNothing);
}

TEST(ParseSha256, TakesDigitsInAnyCaseAndThePrefix) {
  const std::string lower = kOfAbc;
  const std::string upper = "BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD";
  for (const std::string& text : {lower, upper, "sha256:" + lower, "SHA256:" + upper})
    EXPECT_EQ(ParseSha256(text), lower);
}

TEST(ParseSha256, RefusesAnythingElse) {
  const std::string digits = kOfAbc;
  for (const std::string& text :
       {std::string(), std::string("sha256:"), digits.substr(1), digits + "0", " " + digits, digits + "\n",
        "0x" + digits, "sha256-" + digits, "sha512:" + digits, "sha256:sha256:" + digits, "g" + digits.substr(1),
        digits.substr(1) + std::string(1, '\0'), "sha256:" + digits.substr(7), digits + "  a.iso"}) {
    EXPECT_EQ(ParseSha256(text), std::nullopt) << text;
  }
}

Descriptor FileWith(const std::string& content) {
  Descriptor file = OpenMemory("test");
  EXPECT_TRUE(file.IsOpen());
  EXPECT_EQ(WriteAll(file.Get(), content), 0);
  return file;
}

std::string SumOf(const std::string& content) {
  Sha256 sum;
  sum.Add(content.data(), content.size());
  return sum.Hex();
}

using Result = std::variant<std::string, int>;

TEST(Sha256OfFile, ReadsTheWholeFileWhereverItsPositionIs) {
  const Descriptor file = FileWith("abc");
  EXPECT_EQ(lseek(file.Get(), 2, SEEK_SET), 2);
  EXPECT_EQ(Sha256OfFile(file.Get(), -1), Result(kOfAbc));
  EXPECT_EQ(lseek(file.Get(), 0, SEEK_CUR), 2);
}

TEST(Sha256OfFile, ReadsFilesOfAnySize) {
  for (const std::size_t size : {0U, 1U, 1048575U, 1048576U, 1048577U, 3145728U, 5000000U}) {
    std::string content(size, '\0');
    for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>(i * 7 + i / 251);
    EXPECT_EQ(Sha256OfFile(FileWith(content).Get(), -1), Result(SumOf(content))) << size;
  }
}

TEST(Sha256OfFile, StopsWhenItIsTold) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  const Descriptor reader(ends[0]);
  const Descriptor writer(ends[1]);
  const Descriptor file = FileWith("abc");
  EXPECT_EQ(Sha256OfFile(file.Get(), reader.Get()), Result(kOfAbc));
  ASSERT_EQ(WriteAll(writer.Get(), "x"), 0);
  EXPECT_EQ(Sha256OfFile(file.Get(), reader.Get()), Result(ECANCELED));
}

TEST(Sha256OfFile, TellsWhyAFileCannotBeRead) {
  EXPECT_EQ(Sha256OfFile(-1, -1), Result(EBADF));
  const Descriptor folder = Open("/", O_RDONLY | O_DIRECTORY);
  EXPECT_EQ(Sha256OfFile(folder.Get(), -1), Result(EISDIR));
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  const Descriptor reader(ends[0]);
  const Descriptor writer(ends[1]);
  EXPECT_EQ(Sha256OfFile(reader.Get(), -1), Result(ESPIPE));
}

}  // namespace
}  // namespace CorvaneCli
