#include <Corvane/Base/Sys.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "tests/frame/BlockedCall.h"
#include "tests/support/FileDescriptor.h"
#include "tests/support/TempDir.h"

namespace {

bool isSetvbufBroken = false;

}  // namespace

// Stands in for the C library's function in the whole process; hidden, it would do so in this file only.
extern "C" __attribute__((visibility("default"))) int setvbuf(std::FILE* file, char* buffer, int mode,
                                                              std::size_t size) noexcept {
  if (isSetvbufBroken) {
    errno = ENOMEM;
    return -1;
  }
  using Function = int (*)(std::FILE*, char*, int, std::size_t);
  static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "setvbuf"));
  return real(file, buffer, mode, size);
}

namespace Corvane::Wrappers::Sys {
namespace {

using CorvaneTest::FileDescriptor;
using CorvaneTest::ReadFile;
using CorvaneTest::TempDir;
using CorvaneTest::WriteFile;

// An open stream, closed without a look at the result.
struct StreamCloser {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using Stream = std::unique_ptr<std::FILE, StreamCloser>;

Stream Open(const std::filesystem::path& path, const char* mode) {
  std::FILE* file = nullptr;
  EXPECT_EQ(Fopen(&file, path.c_str(), mode), BASE_S_OK) << path << ' ' << mode;
  return Stream(file);
}

ZResult Write(std::FILE* file, std::string_view bytes, std::size_t& written) {
  return Fwrite(bytes.data(), bytes.size(), file, written);
}

void WriteAll(std::FILE* file, std::string_view bytes) {
  std::size_t written = 77;
  EXPECT_EQ(Write(file, bytes, written), BASE_S_OK);
  EXPECT_EQ(written, bytes.size());
}

std::atomic<int> signalsTaken{0};

// Installs a handler after which blocked calls do not go on by themselves.
class InterruptingHandler {
 public:
  explicit InterruptingHandler(int signal) : m_signal(signal) {
    struct sigaction action {};
    action.sa_handler = [](int) { ++signalsTaken; };
    sigaction(m_signal, &action, &m_former);
  }
  ~InterruptingHandler() { sigaction(m_signal, &m_former, nullptr); }
  InterruptingHandler(const InterruptingHandler&) = delete;
  InterruptingHandler& operator=(const InterruptingHandler&) = delete;

 private:
  int m_signal;
  struct sigaction m_former {};
};

std::size_t CountOpenDescriptors() {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
  return count;
}

TEST(Fopen, OpensInEveryModeOfFopen) {
  struct Case {
    const char* mode;
    const char* content;  // of the file afterwards, which held "old" and is written "NEW!" where the mode allows
  };
  constexpr Case kCases[] = {{"r", "old"},     {"rb", "old"},     {"w", "NEW!"},     {"wb", "NEW!"},
                             {"a", "oldNEW!"}, {"ab", "oldNEW!"}, {"r+", "NEW!"},    {"rb+", "NEW!"},
                             {"r+b", "NEW!"},  {"w+", "NEW!"},    {"a+", "oldNEW!"}, {"we", "NEW!"}};
  for (const Case& c : kCases) {
    const TempDir dir;
    WriteFile(dir / "file", "old");
    const Stream stream = Open(dir / "file", c.mode);
    ASSERT_NE(stream, nullptr) << c.mode;
    std::size_t written = 77;
    const ZResult result = Write(stream.get(), "NEW!", written);
    const bool isReadOnly = c.mode[0] == 'r' && std::string_view(c.mode).find('+') == std::string_view::npos;
    EXPECT_EQ(result, isReadOnly ? ResultFromErrno(EBADF) : BASE_S_OK) << c.mode;
    EXPECT_EQ(written, isReadOnly ? 0u : 4u) << c.mode;
    EXPECT_EQ(ReadFile(dir / "file"), c.content) << c.mode;
  }
}

// Its time tells whether the file was truncated. See MakeEmpty in Sys.cpp for what that would cost.
TEST(Fopen, TruncatesOnlyAFileThatHoldsSomething) {
  constexpr timespec kLongAgo[] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
  for (const std::string_view content : {"", "old"}) {
    const TempDir dir;
    const std::filesystem::path path = dir / "file";
    WriteFile(path, content);
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), kLongAgo, 0), 0);
    const Stream stream = Open(path, "w");
    ASSERT_NE(stream, nullptr);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 0) << content;
    EXPECT_EQ(status.st_mtime == kLongAgo[1].tv_sec, content.empty()) << content;
  }
}

TEST(Fopen, TruncatesTheFileBehindALink) {
  const TempDir dir;
  WriteFile(dir / "file", "old");
  std::filesystem::create_symlink("file", dir / "link");
  const Stream stream = Open(dir / "link", "w");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ReadFile(dir / "file"), "");
  EXPECT_TRUE(std::filesystem::is_symlink(dir / "link"));
}

TEST(Fopen, ReadsWhatIsThere) {
  const TempDir dir;
  WriteFile(dir / "file", "content");
  const Stream stream = Open(dir / "file", "r");
  std::array<char, 16> buffer{};
  EXPECT_EQ(std::fread(buffer.data(), 1, buffer.size(), stream.get()), 7u);
  EXPECT_STREQ(buffer.data(), "content");
}

TEST(Fopen, KeepsTheContentWhenOpenedForUpdate) {
  const TempDir dir;
  WriteFile(dir / "file", "0123456789");
  const Stream stream = Open(dir / "file", "r+");
  EXPECT_EQ(Fseek(stream.get(), 3, SEEK_SET), BASE_S_OK);
  WriteAll(stream.get(), "abc");
  EXPECT_EQ(ReadFile(dir / "file"), "012abc6789");
}

struct FailureCase {
  const char* path;
  const char* mode;
  ZResult result;
};
const FailureCase kFailureCases[] = {
    {"missing", "r", ResultFromErrno(ENOENT)},
    {"missing", "r+", ResultFromErrno(ENOENT)},
    {"missing/file", "w", ResultFromErrno(ENOENT)},
    {"", "w", ResultFromErrno(ENOENT)},
    {"file/below", "w", ResultFromErrno(ENOTDIR)},
    {"folder", "r", ResultFromErrno(EISDIR)},
    {"folder", "rb", ResultFromErrno(EISDIR)},
    {"folder", "r+", ResultFromErrno(EISDIR)},
    {"folder", "w", ResultFromErrno(EISDIR)},
    {"folder/", "a", ResultFromErrno(EISDIR)},
    {"loop", "r", ResultFromErrno(ELOOP)},
    {"file", "wx", ResultFromErrno(EEXIST)},
    {"file", "", ResultFromErrno(EINVAL)},
    {"file", "?", ResultFromErrno(EINVAL)},
    {"file", "+", ResultFromErrno(EINVAL)},
    {"file", "rw", ResultFromErrno(EINVAL)},
    {"file", "r,ccs=UTF-8", ResultFromErrno(EINVAL)},
    {"file", "rbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb", ResultFromErrno(EINVAL)},
    {"file", nullptr, ResultFromErrno(EINVAL)},
    {nullptr, "w", BASE_E_INVALID_NAME},
};

TEST(Fopen, ReportsWhyItFailedAndLeavesNothingOpen) {
  const TempDir dir;
  WriteFile(dir / "file", "kept");
  std::filesystem::create_directory(dir / "folder");
  std::filesystem::create_symlink("loop", dir / "loop");
  const std::filesystem::path former = std::filesystem::current_path();
  std::filesystem::current_path(dir.Path());
  const std::size_t before = CountOpenDescriptors();
  for (const FailureCase& c : kFailureCases) {
    std::FILE* file = stdin;
    EXPECT_EQ(Fopen(&file, c.path, c.mode), c.result)
        << (c.path ? c.path : "null") << ' ' << (c.mode ? c.mode : "null");
    EXPECT_EQ(file, nullptr);
  }
  EXPECT_EQ(CountOpenDescriptors(), before);
  EXPECT_EQ(ReadFile("file"), "kept");
  std::filesystem::current_path(former);
}

TEST(Fopen, ReportsAStreamThatCannotBeUnbuffered) {
  const TempDir dir;
  const std::size_t before = CountOpenDescriptors();
  std::FILE* file = stdin;
  isSetvbufBroken = true;
  const ZResult result = Fopen(&file, (dir / "file").c_str(), "w");
  isSetvbufBroken = false;
  EXPECT_EQ(result, ResultFromErrno(ENOMEM));
  EXPECT_EQ(file, nullptr);
  EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(Fopen, ClosesTheDescriptorOnExec) {
  const TempDir dir;
  WriteFile(dir / "file", "");
  for (const char* mode : {"r", "rb", "w", "a", "r+", "w+b", "a+"}) {
    const Stream stream = Open(dir / "file", mode);
    EXPECT_NE(fcntl(fileno(stream.get()), F_GETFD) & FD_CLOEXEC, 0) << mode;
  }
}

std::filesystem::path MakePipe(const TempDir& dir) {
  std::filesystem::path path = dir / "pipe";
  EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
  return path;
}

// The open must come back by itself; if it waits, the other side is opened so that the test can end.
TEST(Fopen, DoesNotWaitForTheReaderOfAPipe) {
  const TempDir dir;
  const std::filesystem::path pipe = MakePipe(dir);
  const std::size_t before = CountOpenDescriptors();
  for (const char* mode : {"w", "wb", "a", "wx"}) {
    std::FILE* file = stdin;
    ZResult result = 77;
    CorvaneTest::BlockedCall call([&] { result = Fopen(&file, pipe.c_str(), mode); });
    EXPECT_FALSE(call.IsBlocked()) << mode;
    const FileDescriptor reader(call.IsDone() ? -1 : open(pipe.c_str(), O_RDONLY | O_NONBLOCK));
    call.Join();
    EXPECT_EQ(result, ResultFromErrno(mode == std::string_view("wx") ? EEXIST : ENXIO)) << mode;
    EXPECT_EQ(file, nullptr) << mode;
  }
  EXPECT_EQ(CountOpenDescriptors(), before);
}

TEST(Fopen, DoesNotWaitForTheWriterOfAPipe) {
  const TempDir dir;
  const std::filesystem::path pipe = MakePipe(dir);
  Stream stream;
  CorvaneTest::BlockedCall call([&] { stream = Open(pipe, "r"); });
  EXPECT_FALSE(call.IsBlocked());
  FileDescriptor writer(call.IsDone() ? -1 : open(pipe.c_str(), O_WRONLY | O_NONBLOCK));
  call.Join();
  writer.Close();
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(std::fgetc(stream.get()), EOF);
}

TEST(Fopen, WaitsForWhatTheWriterOfAPipeHasYetToWrite) {
  const TempDir dir;
  const std::filesystem::path pipe = MakePipe(dir);
  const FileDescriptor writer(open(pipe.c_str(), O_RDWR));
  const Stream stream = Open(pipe, "r");
  int first = EOF;
  CorvaneTest::BlockedCall call([&] { first = std::fgetc(stream.get()); });
  EXPECT_TRUE(call.IsBlocked());
  EXPECT_EQ(write(writer.Get(), "x", 1), 1);
  call.Join();
  EXPECT_EQ(first, 'x');
}

TEST(Fopen, LeavesNoStreamThatDoesNotWait) {
  const TempDir dir;
  WriteFile(dir / "file", "");
  const std::filesystem::path pipe = MakePipe(dir);
  const FileDescriptor otherSide(open(pipe.c_str(), O_RDWR));
  for (const auto& path : {dir / "file", pipe, std::filesystem::path("/dev/null")}) {
    for (const char* mode : {"r", "w", "a", "r+", "w+", "a+"}) {
      const Stream stream = Open(path, mode);
      ASSERT_NE(stream, nullptr) << path << ' ' << mode;
      EXPECT_EQ(fcntl(fileno(stream.get()), F_GETFL) & O_NONBLOCK, 0) << path << ' ' << mode;
    }
  }
}

// Who holds a lease on a file, as file servers do, is told when somebody opens it, and has some time to give it back.
TEST(Fopen, WaitsForTheHolderOfALease) {
  const InterruptingHandler handler(SIGIO);  // tells the holder; left alone, it ends the process
  for (const char* mode : {"r", "r+", "a", "w"}) {
    FileDescriptor file(memfd_create("leased", MFD_CLOEXEC));
    ASSERT_EQ(write(file.Get(), "content", 7), 7);
    const FileDescriptor holder(open(("/proc/self/fd/" + std::to_string(file.Get())).c_str(), O_RDONLY | O_CLOEXEC));
    file.Close();
    ASSERT_EQ(fcntl(holder.Get(), F_SETLEASE, F_WRLCK), 0);
    const std::string path = "/proc/self/fd/" + std::to_string(holder.Get());
    Stream stream;
    CorvaneTest::BlockedCall call([&] { stream = Open(path, mode); });
    EXPECT_TRUE(call.IsBlocked()) << mode;
    EXPECT_EQ(fcntl(holder.Get(), F_SETLEASE, F_UNLCK), 0);
    call.Join();
    EXPECT_NE(stream, nullptr) << mode;
  }
}

TEST(Fopen, CreatesFilesWithTheModeThatTheUmaskLeaves) {
  const TempDir dir;
  for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{077}}) {
    const mode_t former = umask(mask);
    for (const char* mode : {"w", "a", "w+", "a+", "wx"}) {
      const std::filesystem::path path = dir / (std::to_string(mask) + mode);
      Open(path, mode);
      struct stat status {};
      EXPECT_EQ(stat(path.c_str(), &status), 0);
      EXPECT_EQ(status.st_mode & 07777, 0666 & ~mask) << path;
    }
    umask(former);
  }
}

TEST(Fopen, BeginsWhereFopenBegins) {
  const TempDir dir;
  for (const char* mode : {"r", "w", "a", "r+", "w+", "a+"}) {
    WriteFile(dir / "ours", "0123456789");
    WriteFile(dir / "theirs", "0123456789");
    const Stream ours = Open(dir / "ours", mode);
    const Stream theirs(std::fopen((dir / "theirs").c_str(), mode));
    EXPECT_EQ(std::ftell(ours.get()), std::ftell(theirs.get())) << mode;
  }
}

TEST(Fopen, WritesWithoutABuffer) {
  const TempDir dir;
  for (const char* mode : {"w", "a", "w+", "r+", "a+"}) {
    WriteFile(dir / "file", "");
    const Stream stream = Open(dir / "file", mode);
    WriteAll(stream.get(), "x");
    EXPECT_EQ(ReadFile(dir / "file"), "x") << mode << ": seen before any flush";
  }
}

TEST(Fwrite, ReportsAFullDiskAtTheBlockThatDidNotFit) {
  const Stream stream = Open("/dev/full", "w");
  std::size_t written = 77;
  EXPECT_EQ(Write(stream.get(), "one block", written), ResultFromErrno(ENOSPC));
  EXPECT_EQ(written, 0u);
  EXPECT_EQ(Write(stream.get(), std::string(1 << 20, 'x'), written), ResultFromErrno(ENOSPC));
  EXPECT_EQ(written, 0u);
}

// Limits the size of files and lets a write beyond it fail instead of ending the process.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : m_formerHandler(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &m_former);
    const rlimit limit{bytes, m_former.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &m_former);
    std::signal(SIGXFSZ, m_formerHandler);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  void (*m_formerHandler)(int);
  rlimit m_former{};
};

TEST(Fwrite, CountsWhatFittedBeforeTheFailure) {
  const TempDir dir;
  const Stream stream = Open(dir / "file", "w");
  std::size_t written = 77;
  {
    const FileSizeLimit limit(1000);
    WriteAll(stream.get(), std::string(700, 'a'));
    EXPECT_EQ(Write(stream.get(), std::string(700, 'b'), written), ResultFromErrno(EFBIG));
  }
  EXPECT_EQ(written, 300u);
  EXPECT_EQ(ReadFile(dir / "file"), std::string(700, 'a') + std::string(300, 'b'));
}

TEST(Fwrite, WritesNothingForNoBytes) {
  const Stream stream = Open("/dev/full", "w");
  std::size_t written = 77;
  EXPECT_EQ(Fwrite(nullptr, 0, stream.get(), written), BASE_S_OK);
  EXPECT_EQ(written, 0u);
}

TEST(Fwrite, WritesLargeAndBinaryBlocks) {
  const TempDir dir;
  const std::string bytes = CorvaneTest::MakePattern(3'000'001);
  const Stream stream = Open(dir / "file", "w");
  WriteAll(stream.get(), bytes);
  EXPECT_TRUE(ReadFile(dir / "file") == bytes);
}

// The writer is interrupted again and again while it waits for room in the pipe; every byte must arrive once.
TEST(Fwrite, GoesOnAfterASignal) {
  const InterruptingHandler handler(SIGUSR1);
  const TempDir dir;
  ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
  const CorvaneTest::FileDescriptor reader(open((dir / "pipe").c_str(), O_RDONLY | O_NONBLOCK));
  const Stream stream = Open(dir / "pipe", "w");
  const std::string bytes = CorvaneTest::MakePattern(2'000'000);
  std::atomic<bool> isOver = false;
  std::thread writer([&] {
    WriteAll(stream.get(), bytes);
    isOver = true;
  });
  std::string received;
  std::array<char, 10000> buffer{};
  while (!isOver || received.size() < bytes.size()) {
    if (!isOver) pthread_kill(writer.native_handle(), SIGUSR1);
    const ssize_t count = read(reader.Get(), buffer.data(), buffer.size());
    if (count > 0) received.append(buffer.data(), static_cast<std::size_t>(count));
    if (isOver && count <= 0) break;  // bytes were lost
  }
  writer.join();
  EXPECT_TRUE(received == bytes) << received.size();
  EXPECT_GT(signalsTaken, 0);
  EXPECT_EQ(std::ferror(stream.get()), 0);
}

TEST(Fclose, ReportsSuccessAndFailure) {
  const TempDir dir;
  std::FILE* file = Open(dir / "file", "w").release();
  EXPECT_EQ(Fclose(file), BASE_S_OK);

  file = Open(dir / "file", "w").release();
  close(fileno(file));  // as a file system does that finds its errors when a file is closed
  EXPECT_EQ(Fclose(file), ResultFromErrno(EBADF));
  EXPECT_EQ(Fclose(nullptr), ResultFromErrno(EBADF));
}

// The stream of somebody else, who left it buffered: the lost tail shows only here.
TEST(Fclose, ReportsBufferedBytesThatDidNotFit) {
  std::FILE* const file = std::fopen("/dev/full", "w");
  ASSERT_NE(file, nullptr);
  std::fputs("lost", file);
  EXPECT_EQ(Fclose(file), ResultFromErrno(ENOSPC));
}

TEST(Fseek, MovesFromBeginningPositionAndEnd) {
  const TempDir dir;
  WriteFile(dir / "file", "0123456789");
  const Stream stream = Open(dir / "file", "r+");
  struct Case {
    long offset;
    int whence;
    long position;
  };
  for (const Case& c : {Case{4, SEEK_SET, 4}, Case{2, SEEK_CUR, 6}, Case{-1, SEEK_CUR, 5}, Case{-3, SEEK_END, 7},
                        Case{5, SEEK_END, 15}, Case{5'000'000'000, SEEK_SET, 5'000'000'000}}) {
    EXPECT_EQ(Fseek(stream.get(), c.offset, c.whence), BASE_S_OK) << c.offset;
    EXPECT_EQ(std::ftell(stream.get()), c.position);
  }
}

TEST(Fseek, ReportsWhyItFailed) {
  const TempDir dir;
  const Stream file = Open(dir / "file", "w");
  EXPECT_EQ(Fseek(file.get(), -1, SEEK_SET), ResultFromErrno(EINVAL));
  EXPECT_EQ(Fseek(file.get(), 0, 77), ResultFromErrno(EINVAL));
  ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
  const Stream pipe = Open(dir / "pipe", "r+");  // for reading as well, so that the open does not wait for a reader
  EXPECT_EQ(Fseek(pipe.get(), 1, SEEK_SET), ResultFromErrno(ESPIPE));
}

TEST(Ftruncate, CutsOffAndExtends) {
  const TempDir dir;
  WriteFile(dir / "file", "0123456789");
  const Stream stream = Open(dir / "file", "r+");
  EXPECT_EQ(Ftruncate(stream.get(), 4), BASE_S_OK);
  EXPECT_EQ(ReadFile(dir / "file"), "0123");
  EXPECT_EQ(Ftruncate(stream.get(), 6), BASE_S_OK);
  EXPECT_EQ(ReadFile(dir / "file"), std::string("0123\0\0", 6));
  EXPECT_EQ(Ftruncate(stream.get(), 0), BASE_S_OK);
  EXPECT_EQ(ReadFile(dir / "file"), "");
  EXPECT_EQ(Ftruncate(stream.get(), 5'000'000'000), BASE_S_OK);
  EXPECT_EQ(CorvaneTest::FileSize(dir / "file"), 5'000'000'000u);
}

TEST(Ftruncate, WritesABuffersContentFirst) {
  const TempDir dir;
  const Stream stream(std::fopen((dir / "file").c_str(), "w"));
  std::fputs("0123456789", stream.get());
  EXPECT_EQ(Ftruncate(stream.get(), 4), BASE_S_OK);
  EXPECT_EQ(ReadFile(dir / "file"), "0123");
}

TEST(Ftruncate, ReportsWhyItFailed) {
  const TempDir dir;
  WriteFile(dir / "file", "kept");
  const Stream readOnly = Open(dir / "file", "r");
  EXPECT_EQ(Ftruncate(readOnly.get(), 1), ResultFromErrno(EINVAL));
  const Stream stream = Open(dir / "file", "r+");
  EXPECT_EQ(Ftruncate(stream.get(), std::numeric_limits<unsigned long long>::max()), ResultFromErrno(EFBIG));
  EXPECT_EQ(Ftruncate(stream.get(), 1ull << 63), ResultFromErrno(EFBIG));
  EXPECT_EQ(ReadFile(dir / "file"), "kept");
}

}  // namespace
}  // namespace Corvane::Wrappers::Sys
