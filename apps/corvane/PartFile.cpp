#include "apps/corvane/PartFile.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>

#include "apps/corvane/Failure.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

// Never through a link, and without waiting for the other end of a pipe.
constexpr int kCarefully = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;

std::string RecordPath(const std::string& part) { return part + ".json"; }

bool Exists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

// A regular file of this user's under one name only: writing into it changes nothing else.
bool IsOwnFile(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1 &&
         status.st_uid == geteuid();
}

// The name that the system cannot take is too long by what is added to it.
std::string ShortName(const std::string& file) { return file.substr(0, file.rfind('/') + 1) + "corvane-download"; }

}  // namespace

PartFile::PartFile(const std::string& file, mode_t mode) : m_for(file) {
  std::string stem = file;
  std::string path = stem + ".part";
  for (int number = 1; number < kMostNumberedNames; ++number) {
    switch (Take(path, mode)) {
      case Find::kTaken:
        return;
      case Find::kTooLong:
        stem = ShortName(file);
        path = stem + ".part";
        continue;
      case Find::kForeign:
        m_isBesideAnother = true;
        path = fmt::format("{}.part.{}", stem, number);
    }
  }
  throw Failure(ExitCode::kLocal,
                fmt::format("cannot write {}: there are too many files named .part beside it; remove those that are no "
                            "longer needed",
                            DisplayName(file)));
}

PartFile::Find PartFile::Take(const std::string& path, mode_t mode) {
  bool isNew = false;
  while (true) {
    m_file = Open(path, O_RDWR | O_CREAT | O_EXCL | kCarefully, mode);
    isNew = m_file.IsOpen();
    if (!isNew && errno == EEXIST) m_file = Open(path, O_RDWR | kCarefully);
    if (!m_file.IsOpen()) {
      if (errno == ENOENT && !isNew) continue;  // it has just gone
      const int error = errno;
      if (error == ENAMETOOLONG) return Find::kTooLong;
      if (Exists(path)) return Find::kForeign;
      throw Failure(ExitCode::kLocal,
                    fmt::format("cannot write {}: cannot create {} beside it: {}; what comes goes there first, so that "
                                "a file under its own name is complete; make the directory writable, or choose another",
                                DisplayName(m_for), DisplayName(path), SystemText(error)));
    }
    if (!IsOwnFile(m_file.Get())) return Find::kForeign;
    // File systems without locks do without.
    if (flock(m_file.Get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) RefuseBusy(path);
    if (IsStillThere(path)) break;  // else another run has finished it between the two steps
  }
  m_path = path;
  if (TakeRecord(RecordPath(path))) return Find::kTaken;
  if (isNew) unlink(path.c_str());
  return Find::kForeign;
}

bool PartFile::IsStillThere(const std::string& path) const {
  struct stat mine {};
  struct stat named {};
  return fstat(m_file.Get(), &mine) == 0 && lstat(path.c_str(), &named) == 0 && mine.st_dev == named.st_dev &&
         mine.st_ino == named.st_ino;
}

// False when the part is none of the program's. One without content is nobody's loss.
bool PartFile::TakeRecord(const std::string& path) {
  const unsigned long long size = Size();
  m_record = Open(path, O_RDWR | kCarefully | (size == 0 ? O_CREAT : 0), S_IRUSR | S_IWUSR);
  if (!m_record.IsOpen() || !IsOwnFile(m_record.Get())) return false;
  struct stat status {};
  if (fstat(m_record.Get(), &status) != 0) return false;
  std::string text;
  if (static_cast<std::size_t>(status.st_size) <= kMostRecordBytes && ReadAll(m_record, -1, text) != 0) {
    return false;
  }
  m_recordBytes = text.size();
  m_found = ParsePartRecord(text);
  const bool isOurs = m_found || (size == 0 && status.st_size == 0);
  if (size == 0) m_found.reset();
  return isOurs;
}

void PartFile::RefuseBusy(const std::string& path) const {
  throw Failure(
      ExitCode::kLocal,
      fmt::format("cannot write {}: another run of corvane is writing {}; wait for it, or choose another file",
                  DisplayName(m_for), DisplayName(path)));
}

unsigned long long PartFile::Size() const {
  struct stat status {};
  return fstat(m_file.Get(), &status) == 0 ? static_cast<unsigned long long>(status.st_size) : 0;
}

Corvane::ZString PartFile::Name() const { return Corvane::ZString(m_file.Name().c_str()); }

void PartFile::Record(const PartRecord& record) noexcept {
  try {
    std::string text = Format(record);
    const std::size_t length = text.size();
    // One write, without a moment in which the file is no record: what is left of a longer one is made blank.
    text.resize(std::max(text.size(), m_recordBytes), '\n');
    if (pwrite(m_record.Get(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) return;
    m_recordBytes = ftruncate(m_record.Get(), static_cast<off_t>(length)) == 0 ? length : text.size();
  } catch (const std::exception&) {
    // Memory ran out: as above.
  }
}

void PartFile::Clear() noexcept { static_cast<void>(!ftruncate(m_file.Get(), 0)); }

void PartFile::Remove() noexcept {
  if (IsStillThere(m_path)) unlink(m_path.c_str());
  RemoveRecord();
}

void PartFile::RemoveRecord() noexcept { unlink(RecordPath(m_path).c_str()); }

}  // namespace CorvaneCli
