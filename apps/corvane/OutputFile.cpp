#include "apps/corvane/OutputFile.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

#include <Corvane/Base/Dir.h>
#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/Path.h>

#include "apps/corvane/Failure.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using Corvane::ZString;

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

bool IsStandardStream(const struct stat& file) {
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    struct stat status {};
    if (fstat(stream, &status) == 0 && status.st_dev == file.st_dev && status.st_ino == file.st_ino) return true;
  }
  return false;
}

}  // namespace

OutputFile::OutputFile(const std::string& path, const Options& options) : m_given(path), m_path(Resolve(path)) {
  if (!DecodeLocal(m_path)) {
    Refuse("the locale cannot express the name", "set LC_ALL=C.UTF-8, or choose another name");
  }
  m_workPath = m_path;
  ChooseKind(options.resume);
  if (m_kind == Kind::kNew || m_kind == Kind::kReplace) CreateWorkFile();
  if (options.keepRefused && m_kind != Kind::kDevice) m_held = Open(m_workPath, O_WRONLY);
  m_workName = *DecodeLocal(m_held.IsOpen() ? m_held.Name() : m_workPath);
}

OutputFile::~OutputFile() {
  if (!m_isSettled) static_cast<void>(Abandon());
}

void OutputFile::Refuse(const std::string& reason, const char* remedy) const {
  throw Failure(ExitCode::kLocal, fmt::format("cannot write {}: {}; {}", DisplayName(m_given), reason, remedy));
}

void OutputFile::ChooseKind(bool resume) {
  struct stat status {};
  if (m_path.back() == '/') Refuse(SystemText(EISDIR), "name a file inside it");
  if (stat(m_path.c_str(), &status) != 0) {
    if (errno != ENOENT && errno != ENOTDIR) Refuse(SystemText(errno), kOtherName);
    m_kind = Kind::kNew;  // what stands in the way will show when it is created
    return;
  }
  if (S_ISDIR(status.st_mode)) Refuse(SystemText(EISDIR), "name a file inside it");
  if (faccessat(AT_FDCWD, m_path.c_str(), W_OK, AT_EACCESS) != 0) Refuse(SystemText(errno), kOtherName);
  if (!S_ISREG(status.st_mode)) {
    m_kind = Kind::kDevice;
  } else if (status.st_size == 0) {
    m_kind = Kind::kNew;
  } else if (IsStandardStream(status)) {
    Refuse("it is also where the standard output goes, and holds data", "choose another file with -o");
  } else {
    m_kind = resume && status.st_size > kResumeThreshold ? Kind::kResume : Kind::kReplace;
    if (IsResumed()) m_resumeOffset = static_cast<unsigned long long>(status.st_size - kResumeMargin);
  }
}

void OutputFile::CreateWorkFile() {
  if (m_kind == Kind::kReplace) return CreateSibling();
  const ZString directory = Corvane::ZPath::GetDirectory(*DecodeLocal(m_path));
  const Corvane::ZResult created = directory.IsEmpty() ? Corvane::BASE_S_OK : Corvane::ZDir::CreateR(directory);
  if (Corvane::IsFailure(created)) {
    Refuse(fmt::format("cannot create the directory: {}", ToUtf8(Corvane::ZGetErrorMsg(created))), kOtherName);
  }
  if (!Open(m_path, O_WRONLY | O_CREAT).IsOpen()) Refuse(SystemText(errno), kOtherName);
}

// "FILE.part", or with a number when that exists. It gets the permissions of FILE, so that data which nobody else may read
// is never open to others while it comes.
void OutputFile::CreateSibling() {
  struct stat status {};
  if (stat(m_path.c_str(), &status) != 0) Refuse(SystemText(errno), kOtherName);
  std::string name = m_path + ".part";
  for (int number = 1; number < 10000; ++number) {
    const Descriptor sibling = Open(name, O_WRONLY | O_CREAT | O_EXCL, (status.st_mode & 0777) | S_IWUSR);
    if (sibling.IsOpen()) {
      m_workPath = name;
      return;
    }
    if (errno == ENAMETOOLONG && number == 1) {
      m_workPath = m_path.substr(0, m_path.rfind('/') + 1) + "corvane-download";
      name = m_workPath + ".part";
      continue;
    }
    if (errno != EEXIST) {
      Refuse(fmt::format("cannot create {} beside it: {}", DisplayName(name), SystemText(errno)),
             "the new content goes there first, so that the old one is kept until the new one is complete; "
             "make the directory writable, or remove the file");
    }
    name = fmt::format("{}.part.{}", m_workPath, number);
  }
  Refuse("there are too many files named .part beside it", "remove those that are no longer needed");
}

void OutputFile::Commit() {
  m_isSettled = true;
  m_held.Close();
  if (m_kind != Kind::kReplace) return;
  const auto fail = [this](int error) {
    throw Failure(ExitCode::kLocal, fmt::format("cannot put {} in the place of {}: {}; the complete download is in {}",
                                                DisplayName(m_workPath), DisplayName(m_given), SystemText(error),
                                                DisplayName(m_workPath)));
  };
  const Descriptor file = Open(m_workPath, O_WRONLY);
  // The old content is given up only when the new one is on the disk.
  if (!file.IsOpen() || fsync(file.Get()) != 0) fail(errno);
  struct stat status {};
  if (stat(m_path.c_str(), &status) == 0) {
    // Only root can give a file to another owner, and a file that changes hands must not stay executable as that owner.
    static_cast<void>(!fchown(file.Get(), status.st_uid, status.st_gid));
    if (fchmod(file.Get(), status.st_mode & 0777) != 0) fail(errno);
  }
  if (std::rename(m_workPath.c_str(), m_path.c_str()) != 0) fail(errno);
}

std::optional<OutputFile::Kept> OutputFile::Abandon() {
  m_isSettled = true;
  m_held.Close();
  struct stat status {};
  if (m_kind == Kind::kDevice || stat(m_workPath.c_str(), &status) != 0) return std::nullopt;
  if (status.st_size == 0) {
    if (m_kind != Kind::kResume) unlink(m_workPath.c_str());
    return std::nullopt;
  }
  // A file that is continued is named as the user did.
  return Kept{m_kind == Kind::kReplace ? m_workPath : m_given, static_cast<unsigned long long>(status.st_size)};
}

}  // namespace CorvaneCli
