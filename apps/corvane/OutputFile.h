#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include <Corvane/Base/String.h>

#include "apps/corvane/Files.h"

namespace CorvaneCli {

// In bytes. What the library takes for too short to be resumed: it would truncate such a file before an answer has come.
inline constexpr off_t kResumeThreshold = 64;
// In bytes. How much of the end of a resumed file the library fetches again.
inline constexpr off_t kResumeMargin = 32;

// The file that -o names, written so that nothing the user had is lost when the transfer fails:
//
//   FILE is missing, empty, or no regular file     written directly
//   FILE holds data                                a new file beside it, FILE.part, takes its place at the end
//   FILE holds data that is to be resumed          continued in place
//
// When FILE is a symbolic link, all this happens to what it leads to, and the link stays.
// Thread safety: one thread. Errors: Failure(kLocal), whose text names the file, the reason and the remedy.
class OutputFile {
 public:
  struct Options {
    bool resume = false;
    // The library removes a fresh file that no good answer came for. With this it cannot, so that an error page is kept.
    bool keepRefused = false;
  };

  // What a failed transfer left behind.
  struct Kept {
    std::string path;
    unsigned long long bytes;
  };

  // Creates the directories and the file that will be written, or finds out that it cannot be written.
  OutputFile(const std::string& path, const Options& options);
  ~OutputFile();  // as Abandon, unless one of the two has been called
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // The name to give to the library.
  [[nodiscard]] const Corvane::ZString& WorkName() const noexcept { return m_workName; }
  // The file that the data goes into, and the one it is for. The same unless FILE is being replaced.
  [[nodiscard]] const std::string& WorkPath() const noexcept { return m_workPath; }
  [[nodiscard]] const std::string& Path() const noexcept { return m_path; }
  [[nodiscard]] bool IsReplacement() const noexcept { return m_kind == Kind::kReplace; }
  [[nodiscard]] bool IsResumed() const noexcept { return m_kind == Kind::kResume; }
  // Bytes that a resumed transfer counts without having received them; 0 for any other.
  [[nodiscard]] unsigned long long ResumeOffset() const noexcept { return m_resumeOffset; }
  [[nodiscard]] bool IsRegular() const noexcept { return m_kind != Kind::kDevice; }

  // After a success: puts the new file in the place of the old one.
  void Commit();
  // After a failure: removes a file without content that was made for this transfer. Tells what is left of it.
  [[nodiscard]] std::optional<Kept> Abandon();

 private:
  enum class Kind {
    kNew,      // a regular file that was missing or empty
    kReplace,  // a new file for the place of an existing one
    kResume,   // a file with data that is continued
    kDevice    // anything but a regular file
  };

  void ChooseKind(bool resume);
  void CreateWorkFile();
  void CreateSibling();
  [[noreturn]] void Refuse(const std::string& reason, const char* remedy) const;

  std::string m_given;  // as the user named it
  std::string m_path;   // what it leads to
  std::string m_workPath;
  Kind m_kind = Kind::kNew;
  unsigned long long m_resumeOffset = 0;
  bool m_isSettled = false;
  Descriptor m_held;  // open on the work file with Options::keepRefused
  Corvane::ZString m_workName;
};

}  // namespace CorvaneCli
