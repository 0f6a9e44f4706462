#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include <Corvane/Base/String.h>

#include "apps/corvane/Files.h"
#include "apps/corvane/PartRecord.h"

namespace CorvaneCli {

// In bytes. What the library takes for too short to be resumed: it would truncate such a file before an answer has come.
inline constexpr unsigned long long kResumeThreshold = 64;
// In bytes. How much of the end of a resumed file is fetched again, to be compared.
inline constexpr unsigned long long kResumeMargin = 32;

// Where the names FILE.1 and so on, or FILE.part.1 and so on, end.
inline constexpr int kMostNumberedNames = 10000;

// What is under way for FILE: FILE.part, with FILE.part.json beside it, which says what FILE.part is a part of. A file of
// that name which the program did not make (one that lacks the record, a link, a device, somebody else's) is left
// alone, and FILE.part.1 and so on are tried. While the object lives no other run of the program writes into the part.
// Thread safety: one thread. Errors: Failure(kLocal), whose text names the file, the reason and the remedy.
class PartFile {
 public:
  // Creates the part, or takes the one that is there. mode: permission bits of a new one.
  PartFile(const std::string& file, mode_t mode);
  PartFile(const PartFile&) = delete;
  PartFile& operator=(const PartFile&) = delete;

  // What an earlier run left; none when it left nothing that could be continued.
  [[nodiscard]] const std::optional<PartRecord>& Found() const noexcept { return m_found; }
  // Whether a file had to be left alone that has the name of the part.
  [[nodiscard]] bool IsBesideAnother() const noexcept { return m_isBesideAnother; }

  [[nodiscard]] const std::string& Path() const noexcept { return m_path; }
  [[nodiscard]] unsigned long long Size() const;
  [[nodiscard]] int Get() const noexcept { return m_file.Get(); }
  // A name of the part for the library, which nobody can take away meanwhile.
  [[nodiscard]] Corvane::ZString Name() const;

  // Says from now on what the part is a part of. A record that cannot be written proves nothing later, and is no reason
  // to stop.
  void Record(const PartRecord& record) noexcept;
  // Gives up the content.
  void Clear() noexcept;
  // Removes the part and its record.
  void Remove() noexcept;
  // The part has become something else: removes the record only.
  void RemoveRecord() noexcept;

 private:
  enum class Find { kTaken, kForeign, kTooLong };

  Find Take(const std::string& path, mode_t mode);
  [[nodiscard]] bool IsStillThere(const std::string& path) const;
  [[nodiscard]] bool TakeRecord(const std::string& path);
  [[noreturn]] void RefuseBusy(const std::string& path) const;

  const std::string m_for;  // the file that it is for
  std::string m_path;
  Descriptor m_file;    // locked
  Descriptor m_record;  // FILE.part.json
  std::optional<PartRecord> m_found;
  std::size_t m_recordBytes = 0;  // what the record file holds
  bool m_isBesideAnother = false;
};

}  // namespace CorvaneCli
