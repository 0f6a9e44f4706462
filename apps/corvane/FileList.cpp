#include "apps/corvane/FileList.h"

#include <fcntl.h>
#include <fmt/core.h>

#include <cerrno>
#include <optional>
#include <string_view>

#include "apps/corvane/Failure.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using Corvane::ZString;

// What is wrong with a line, or nothing.
const char* AddLine(std::string_view line, unsigned long long most, FileList& list) {
  // The last tab, since a name may hold others.
  const std::size_t tab = line.rfind('\t');
  if (tab == std::string_view::npos) return "there is no tab in it; give a name, a tab, and a number";
  const std::optional<unsigned long long> number = ParseNumber(line.substr(tab + 1));
  if (!number) return "no number follows the tab; give a name, a tab, and a number";
  if (*number > most) return "the number is too large";
  const std::string name(line.substr(0, tab));
  if (name.empty() || name == "." || name == ".." ||
      name.find_first_of(std::string_view("/\0", 2)) != std::string::npos) {
    return "the name is not that of a file in the directory; give a plain name";
  }
  const std::optional<ZString> text = DecodeLocal(name);
  if (!text) return "the locale cannot express the name; set LC_ALL=C.UTF-8";
  if (!list.emplace(*text, *number).second) return "the name is there twice; leave one of them out";
  return nullptr;
}

}  // namespace

FileList ReadFileList(const std::string& path, unsigned long long most) {
  const Descriptor file = Open(path, O_RDONLY);
  std::string text;
  const int error = file.IsOpen() ? ReadAll(file, -1, text) : errno;
  if (error != 0) {
    throw Failure(ExitCode::kUsage,
                  fmt::format("cannot read the list {}: {}; give a file with a line \"NAME, tab, NUMBER\" "
                              "for each file of the mirror",
                              DisplayName(path), SystemText(error)));
  }
  FileList list;
  std::size_t number = 0;
  for (std::string_view rest = text; !rest.empty();) {
    ++number;
    const std::size_t end = rest.find('\n');
    std::string_view line = rest.substr(0, end);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (const char* const problem = AddLine(line, most, list)) {
      throw Failure(ExitCode::kUsage, fmt::format("cannot use line {} of {}: {}", number, DisplayName(path), problem));
    }
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
  return list;
}

}  // namespace CorvaneCli
