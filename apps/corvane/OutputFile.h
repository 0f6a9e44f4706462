#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "apps/corvane/PartFile.h"

namespace CorvaneCli {

// A file under its final name is complete, whatever happens: what comes for FILE goes into FILE.part (PartFile.h), which
// takes the name, and the place of what was there, at the end. When FILE is a symbolic link, this happens to what it
// leads to, and the link stays.
// Thread safety: one thread. Errors: Failure(kLocal), whose text names the file, the reason and the remedy.
class OutputFile {
 public:
  // What a file that exists means.
  enum class Existing {
    kReplaced,  // it was named on purpose
    kSpared     // its name came from elsewhere: the new one gets a number
  };

  // What a failed transfer left behind.
  struct Kept {
    std::string path;
    unsigned long long bytes;
  };

  // Whether `path` is no file to be written beside and renamed but a stream: a pipe, a terminal, another device, or what
  // standard output or standard error lead to.
  [[nodiscard]] static bool IsStream(const std::string& path);
  // The descriptor of the standard stream that `path` leads to; -1 for none.
  [[nodiscard]] static int StandardStream(const std::string& path);

  // Creates the directories and the part, or finds out that the file cannot be written.
  OutputFile(const std::string& path, Existing existing);
  ~OutputFile();  // as Abandon, unless one of the two has been called
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // As the user named it.
  [[nodiscard]] const std::string& Given() const noexcept { return m_given; }
  [[nodiscard]] PartFile& Part() noexcept { return *m_part; }
  // The file itself, when there is one with content that may be what is to be fetched; empty otherwise.
  [[nodiscard]] const std::string& Old() const noexcept { return m_old; }

  // After a success: the part becomes the file. name: another name for it, which a server chose; empty for none.
  // modificationTime: seconds since 1970, unset to leave it. Returns the path that the file has got.
  std::string Commit(const std::string& name = {}, std::optional<long long> modificationTime = std::nullopt);
  // The old file is what was to be fetched. modificationTime: as above.
  void KeepOld(std::optional<long long> modificationTime);
  // After a failure: removes a part without content. Tells what is left.
  [[nodiscard]] std::optional<Kept> Abandon();

 private:
  void LookAtOld();
  void SetTime(int descriptor, long long modificationTime) const;
  void CreateDirectories() const;
  void TakeOverFrom(const std::string& old);
  [[nodiscard]] std::string MoveToFreeName(const std::string& path);
  [[noreturn]] void FailToMove(int error) const;
  [[noreturn]] void Refuse(const std::string& reason, const char* remedy) const;

  const std::string m_given;  // as the user named it
  const std::string m_path;   // what it leads to
  const Existing m_existing;
  std::string m_old;
  bool m_isReplacement = false;
  mode_t m_mode = 0666;  // of a new part, less the umask
  bool m_isSettled = false;
  std::optional<PartFile> m_part;
};

}  // namespace CorvaneCli
