#include <Corvane/TreeDownload/PartStoreImpl.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>
#include <vector>

#include <Corvane/TreeDownload/ChecksumsImpl.h>
#include <Corvane/TreeDownload/FolderNamesImpl.h>

namespace Corvane {
namespace {

constexpr const char* kLock = "lock";
constexpr std::string_view kPart = ".part";
constexpr std::string_view kInfo = ".info";
constexpr std::string_view kNew = ".new";
constexpr std::size_t kKeyLength = 40;
constexpr std::size_t kMostRecordBytes = std::size_t{1} << 20;
constexpr mode_t kFileMode = 0666;  // what the umask leaves of it

std::string KeyOf(const std::string& path) {
  return Checksum::OfText(Checksum::Kind::Sha256, path).substr(0, kKeyLength);
}
std::string PartOf(const std::string& key) { return key + std::string(kPart); }
std::string InfoOf(const std::string& key) { return key + std::string(kInfo); }

ZResult LastError() { return ResultFromErrno(errno); }

bool ReadAll(const Descriptor& file, std::string& text) {
  std::array<char, 4096> block{};
  while (text.size() <= kMostRecordBytes) {
    const ssize_t got = read(file.Get(), block.data(), block.size());
    if (got <= 0) return got == 0;
    text.append(block.data(), static_cast<std::size_t>(got));
  }
  return false;
}

}  // namespace

ZResult PartStore::Open(const Descriptor& directory) {
  m_directory = Descriptor(openat(directory.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // The folder may go while another run ends.
  for (int attempt = 0; attempt < 100; ++attempt) {
    if (mkdirat(m_directory.Get(), kName, 0777) != 0 && errno != EEXIST) return LastError();
    m_folder = Descriptor(openat(m_directory.Get(), kName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!m_folder.IsOpen() && errno != ENOENT) return LastError();
    if (!m_folder.IsOpen()) continue;
    const ZResult locked = Lock();
    if (IsFailure(locked) && locked != ResultFromErrno(ENOENT)) {
      m_folder.Close();
      return locked;
    }
    if (!IsFailure(locked) && IsLockInPlace()) {
      RemoveOthers();
      return BASE_S_OK;
    }
  }
  m_folder.Close();
  return BASE_E_IN_USE;
}

ZResult PartStore::Lock() {
  m_lock = Descriptor(openat(m_folder.Get(), kLock, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kFileMode));
  if (!m_lock.IsOpen()) return LastError();
  if (flock(m_lock.Get(), LOCK_EX | LOCK_NB) == 0) return BASE_S_OK;
  return errno == EWOULDBLOCK ? BASE_E_IN_USE : LastError();
}

// A run that ends removes the file that it held the lock of; who waited for that holds nothing.
bool PartStore::IsLockInPlace() const noexcept {
  struct stat held {};
  struct stat there {};
  return fstat(m_lock.Get(), &held) == 0 &&
         fstatat(m_directory.Get(), ".corvane/lock", &there, AT_SYMLINK_NOFOLLOW) == 0 && held.st_ino == there.st_ino &&
         held.st_dev == there.st_dev;
}

void PartStore::OpenToLook(const Descriptor& directory) {
  m_folder = Descriptor(openat(directory.Get(), kName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (m_folder.IsOpen()) ReadFolder();
}

bool PartStore::Holds(const std::string& path) const { return !m_keys.empty() && m_keys.count(KeyOf(path)) != 0; }

unsigned long long PartStore::SizeOf(const std::string& path) const {
  struct stat status {};
  const bool isThere =
      Holds(path) && fstatat(m_folder.Get(), NameOfPart(path).c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  return isThere && S_ISREG(status.st_mode) ? static_cast<unsigned long long>(status.st_size) : 0;
}

std::optional<std::vector<std::string>> PartStore::ReadFolder() {
  m_keys.clear();
  std::optional<std::vector<std::string>> names = NamesIn(m_folder);
  if (!names) return std::nullopt;
  std::vector<std::string> others;
  for (std::string& name : *names) {
    if (name.ends_with(kInfo)) {
      m_keys.insert(name.substr(0, name.size() - kInfo.size()));
    } else if (name.ends_with(kPart) || name.ends_with(kNew)) {
      others.push_back(std::move(name));
    }
  }
  const auto isKept = [&](const std::string& name) {
    return name.ends_with(kPart) && m_keys.count(name.substr(0, name.size() - kPart.size())) != 0;
  };
  others.erase(std::remove_if(others.begin(), others.end(), isKept), others.end());
  return others;
}

bool PartStore::RemoveOthers() {
  const std::optional<std::vector<std::string>> others = ReadFolder();
  if (!others) return false;
  for (const std::string& name : *others) Remove(name);
  return true;
}

ZResult PartStore::OpenNew(Descriptor& file, std::string& name) {
  name = std::to_string(m_newFiles++) + std::string(kNew);
  file = Descriptor(openat(m_folder.Get(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode));
  return file.IsOpen() ? BASE_S_OK : LastError();
}

std::optional<PartRecord> PartStore::ReadRecord(const std::string& key) const {
  const Descriptor info(openat(m_folder.Get(), InfoOf(key).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  std::string text;
  return info.IsOpen() && ReadAll(info, text) ? ParsePartRecord(text) : std::nullopt;
}

std::optional<PartStore::Part> PartStore::Find(const std::string& path) {
  if (m_keys.empty()) return std::nullopt;
  const std::string key = KeyOf(path);
  if (m_keys.count(key) == 0) return std::nullopt;
  std::optional<PartRecord> record = ReadRecord(key);
  Part part;
  part.file = Descriptor(openat(m_folder.Get(), PartOf(key).c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  const bool isFile = part.file.IsOpen() && fstat(part.file.Get(), &status) == 0 && S_ISREG(status.st_mode);
  if (!record || record->path != path || !isFile) {
    Discard(path);
    return std::nullopt;
  }
  part.size = static_cast<unsigned long long>(status.st_size);
  part.record = *std::move(record);
  return part;
}

ZResult PartStore::WriteRecord(const std::string& key, const PartRecord& record) {
  const std::string text = TextOf(record);
  Descriptor info(openat(m_folder.Get(), InfoOf(key).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode));
  if (!info.IsOpen()) return LastError();
  m_keys.insert(key);
  // What a full disk cuts off is no record.
  if (const int error = info.Write(text.data(), text.size()); error != 0) return ResultFromErrno(error);
  return info.Close() ? BASE_S_OK : LastError();
}

ZResult PartStore::Begin(const PartRecord& record, Descriptor& file) {
  const std::string key = KeyOf(record.path);
  Discard(record.path);
  file = Descriptor(openat(m_folder.Get(), PartOf(key).c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode));
  if (!file.IsOpen()) return LastError();
  // Without a validator nothing could be continued.
  return record.validator.empty() ? BASE_S_OK : WriteRecord(key, record);
}

void PartStore::Discard(const std::string& path) {
  const std::string key = KeyOf(path);
  Remove(InfoOf(key));
  Remove(PartOf(key));
  m_keys.erase(key);
}

std::string PartStore::NameOfPart(const std::string& path) { return PartOf(KeyOf(path)); }

ZResult PartStore::Place(const std::string& name, const Descriptor& folder, const std::string& finalName,
                         const std::string& path) {
  if (renameat(m_folder.Get(), name.c_str(), folder.Get(), finalName.c_str()) != 0) return LastError();
  if (!path.empty()) Discard(path);
  return BASE_S_OK;
}

void PartStore::Remove(const std::string& name) noexcept { unlinkat(m_folder.Get(), name.c_str(), 0); }

void PartStore::Tidy(const std::function<bool(const std::string&)>& isKept) {
  const std::set<std::string> keys = m_keys;
  for (const std::string& key : keys) {
    const std::optional<PartRecord> record = ReadRecord(key);
    if (record && isKept(record->path)) continue;
    Remove(InfoOf(key));
    Remove(PartOf(key));
    m_keys.erase(key);
  }
  if (!RemoveOthers() || !m_keys.empty()) return;
  // In this order a run that comes in between makes a folder and a lock of its own, or finds this lock gone.
  Remove(kLock);
  unlinkat(m_directory.Get(), kName, AT_REMOVEDIR);
}

}  // namespace Corvane
