#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <Corvane/Base/Result.h>
#include <Corvane/TreeDownload/DescriptorImpl.h>
#include <Corvane/TreeDownload/PartRecordImpl.h>

namespace Corvane {

// The folder ".corvane" of a directory: its lock, and the files that are under way. They are named by their path's hash: KEY.part holds
// what has come, KEY.info what is known of it. Without the latter the former is worth nothing, so that is written before the first byte
// and removed after the last. What is there of no file under way is removed.
//
// All that returns a result returns the code of the system's failure.
class PartStore {
 public:
  static constexpr const char* kName = ".corvane";

  // Makes the folder and takes the lock, which holds until the object goes. BASE_E_IN_USE when another one has it.
  ZResult Open(const Descriptor& directory);
  // Only for Holds: changes nothing, and takes no lock. Nothing happens when the folder is not there.
  void OpenToLook(const Descriptor& directory);
  [[nodiscard]] bool IsOpen() const noexcept { return m_lock.IsOpen(); }

  // Whether something is there of a file.
  [[nodiscard]] bool Holds(const std::string& path) const;

  // A file without a name of its own, for content that is there already: written, timed and given its name by Place.
  ZResult OpenNew(Descriptor& file, std::string& name);

  // Bytes that are there of a file; 0 when nothing is.
  [[nodiscard]] unsigned long long SizeOf(const std::string& path) const;

  // What is there of a file. None without a record that fits.
  struct Part {
    Descriptor file;  // open for reading and writing
    unsigned long long size = 0;
    PartRecord record;
  };
  [[nodiscard]] std::optional<Part> Find(const std::string& path);

  // An empty file for `record.path`, in the place of what was there of it.
  ZResult Begin(const PartRecord& record, Descriptor& file);
  void Discard(const std::string& path);
  // The name of a file that Begin made.
  [[nodiscard]] static std::string NameOfPart(const std::string& path);

  // Gives a file of this folder its final place; nobody sees it there unless it is whole. `path` is that of a part, or empty.
  ZResult Place(const std::string& name, const Descriptor& folder, const std::string& finalName,
                const std::string& path);
  void Remove(const std::string& name) noexcept;

  // Removes what is there of files that are not kept, and the folder if nothing is left in it.
  void Tidy(const std::function<bool(const std::string& path)>& isKept);

 private:
  ZResult Lock();
  // Returns what belongs to no file; none when the folder cannot be read.
  std::optional<std::vector<std::string>> ReadFolder();
  // Removes what a run left that was killed between two steps. False when the folder cannot be read.
  bool RemoveOthers();
  [[nodiscard]] bool IsLockInPlace() const noexcept;
  [[nodiscard]] std::optional<PartRecord> ReadRecord(const std::string& key) const;
  ZResult WriteRecord(const std::string& key, const PartRecord& record);

  Descriptor m_directory;
  Descriptor m_folder;
  Descriptor m_lock;
  std::set<std::string> m_keys;  // of the records that there are
  unsigned long long m_newFiles = 0;
};

}  // namespace Corvane
