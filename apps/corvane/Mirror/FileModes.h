#pragma once

#include <sys/stat.h>

#include <map>
#include <set>
#include <string>

namespace CorvaneCli {

// Gives the files that a mirror has fetched the mode that any program's new file gets: the library makes them
// executable. A file that was there keeps what it had denied to others.
// Thread safety: one thread. Errors: a mode that cannot be changed stays.
class FileModes {
 public:
  // Looks at what is in `directory`, before the run.
  explicit FileModes(const std::string& directory);

  // After the run. fetched: the names of the files that something came for; those that are empty are found without it.
  void Restore(const std::set<std::string>& fetched) const;

 private:
  using Files = std::map<std::string, struct stat>;
  [[nodiscard]] static Files Look(const std::string& directory);

  const std::string m_directory;
  const Files m_before;
};

}  // namespace CorvaneCli
