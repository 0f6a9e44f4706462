#include "apps/corvane/OutputFile.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#include <Corvane/Base/Dir.h>
#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/Path.h>

#include "apps/corvane/Failure.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

constexpr const char* kOtherName = "choose another file with -o, or change the permissions";

struct FreeDeleter {
  void operator()(char* memory) const noexcept { std::free(memory); }
};

// Follows symbolic links to the file they lead to, also when that does not exist yet.
std::string Resolve(std::string path) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0) {
    const std::unique_ptr<char, FreeDeleter> resolved(realpath(path.c_str(), nullptr));
    return S_ISREG(status.st_mode) && lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode) &&
                   resolved != nullptr
               ? resolved.get()
               : path;
  }
  for (int links = 0; links < 40; ++links) {  // as many as the system follows
    std::string target(PATH_MAX, '\0');
    const ssize_t length = readlink(path.c_str(), target.data(), target.size());
    if (length < 0) break;
    target.resize(static_cast<std::size_t>(length));
    const std::size_t slash = path.rfind('/');
    const bool isRelative = target.front() != '/' && slash != std::string::npos;
    path.erase(isRelative ? slash + 1 : 0);
    path += target;
  }
  return path;
}

std::string DirectoryOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

}  // namespace

bool OutputFile::IsStream(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || S_ISDIR(status.st_mode)) return false;
  return !S_ISREG(status.st_mode) || StandardStream(path) != -1;
}

int OutputFile::StandardStream(const std::string& path) {
  struct stat file {};
  if (stat(path.c_str(), &file) != 0) return -1;
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    struct stat status {};
    if (fstat(stream, &status) == 0 && status.st_dev == file.st_dev && status.st_ino == file.st_ino) return stream;
  }
  return -1;
}

OutputFile::OutputFile(const std::string& path, Existing existing)
    : m_given(path), m_path(existing == Existing::kReplaced ? Resolve(path) : path), m_existing(existing) {
  if (!DecodeLocal(m_path)) {
    Refuse("the locale cannot express the name", "set LC_ALL=C.UTF-8, or choose another name");
  }
  LookAtOld();
  CreateDirectories();
  m_part.emplace(m_path, m_mode);
}

OutputFile::~OutputFile() {
  if (!m_isSettled) static_cast<void>(Abandon());
}

void OutputFile::Refuse(const std::string& reason, const char* remedy) const {
  throw Failure(ExitCode::kLocal, fmt::format("cannot write {}: {}; {}", DisplayName(m_given), reason, remedy));
}

void OutputFile::LookAtOld() {
  struct stat status {};
  if (m_path.back() == '/') Refuse(SystemText(EISDIR), "name a file inside it");
  if (stat(m_path.c_str(), &status) != 0) {
    if (errno != ENOENT && errno != ENOTDIR) Refuse(SystemText(errno), kOtherName);
    return;  // what stands in the way will show when the part is created
  }
  const bool isNamed = m_existing == Existing::kReplaced;
  if (S_ISDIR(status.st_mode) && isNamed) Refuse(SystemText(EISDIR), "name a file inside it");
  if (!S_ISREG(status.st_mode)) return;
  if (status.st_size != 0) m_old = m_path;
  if (!isNamed) return;
  if (faccessat(AT_FDCWD, m_path.c_str(), W_OK, AT_EACCESS) != 0) Refuse(SystemText(errno), kOtherName);
  m_isReplacement = true;
  // Data that nobody else may read is never open to others while it comes.
  m_mode = (status.st_mode & 0777) | S_IWUSR | S_IRUSR;
}

void OutputFile::CreateDirectories() const {
  const Corvane::ZString directory = Corvane::ZPath::GetDirectory(*DecodeLocal(m_path));
  const Corvane::ZResult created = directory.IsEmpty() ? Corvane::BASE_S_OK : Corvane::ZDir::CreateR(directory);
  if (!Corvane::IsFailure(created)) return;
  Refuse(fmt::format("cannot create the directory: {}", ToUtf8(Corvane::ZGetErrorMsg(created))), kOtherName);
}

std::string OutputFile::Commit(const std::string& name, std::optional<long long> modificationTime) {
  m_isSettled = true;
  std::string path = name.empty() ? m_path : DirectoryOf(m_path) + name;
  // The old content is given up only when the new one is on the disk.
  if (m_isReplacement && fsync(m_part->Get()) != 0) FailToMove(errno);
  if (m_isReplacement) TakeOverFrom(m_path);
  if (modificationTime) SetTime(m_part->Get(), *modificationTime);
  if (m_existing == Existing::kSpared) {
    path = MoveToFreeName(path);
  } else if (std::rename(m_part->Path().c_str(), path.c_str()) != 0) {
    FailToMove(errno);
  }
  m_part->RemoveRecord();
  return m_existing == Existing::kSpared ? path : m_given;
}

void OutputFile::TakeOverFrom(const std::string& old) {
  struct stat status {};
  if (stat(old.c_str(), &status) != 0) return;
  // Only root can give a file to another owner, and a file that changes hands must not stay executable as that owner.
  static_cast<void>(!fchown(m_part->Get(), status.st_uid, status.st_gid));
  if (fchmod(m_part->Get(), status.st_mode & 0777) != 0) FailToMove(errno);
}

// "NAME", "NAME.1" and so on: whatever has the name already, and also when it gets it just now.
std::string OutputFile::MoveToFreeName(const std::string& path) {
  std::string free = path;
  for (int number = 1; number < kMostNumberedNames; ++number) {
    if (renameat2(AT_FDCWD, m_part->Path().c_str(), AT_FDCWD, free.c_str(), RENAME_NOREPLACE) == 0) return free;
    if (errno == EINVAL || errno == ENOSYS) {  // a file system that does not know how
      if (link(m_part->Path().c_str(), free.c_str()) == 0) {
        unlink(m_part->Path().c_str());
        return free;
      }
    }
    if (errno != EEXIST) FailToMove(errno);
    free = fmt::format("{}.{}", path, number);
  }
  FailToMove(EEXIST);
}

void OutputFile::FailToMove(int error) const {
  throw Failure(ExitCode::kLocal, fmt::format("cannot put {} in the place of {}: {}; the complete download is in {}",
                                              DisplayName(m_part->Path()), DisplayName(m_given), SystemText(error),
                                              DisplayName(m_part->Path())));
}

void OutputFile::SetTime(int descriptor, long long modificationTime) const {
  const std::array<timespec, 2> times = {timespec{0, UTIME_OMIT}, timespec{static_cast<time_t>(modificationTime), 0}};
  if (futimens(descriptor, times.data()) != 0) {
    Refuse("it cannot be given the server's time: " + SystemText(errno), "leave out --remote-time");
  }
}

void OutputFile::KeepOld(std::optional<long long> modificationTime) {
  m_isSettled = true;
  m_part->Remove();
  const Descriptor old = Open(m_old, O_RDONLY);
  if (modificationTime && old.IsOpen()) SetTime(old.Get(), *modificationTime);
}

std::optional<OutputFile::Kept> OutputFile::Abandon() {
  m_isSettled = true;
  const unsigned long long size = m_part->Size();
  if (size != 0) return Kept{m_part->Path(), size};
  m_part->Remove();
  return std::nullopt;
}

}  // namespace CorvaneCli
