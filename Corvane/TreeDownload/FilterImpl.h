#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Corvane {

// Which files and folders of a tree are wanted, by patterns of fnmatch(3). One without a slash is compared with names, one with a slash
// with the path below the directory; slashes at its ends do not count.
class Filter {
 public:
  Filter() = default;
  Filter(std::vector<std::string> include, std::vector<std::string> exclude);

  // What is left alone, here and on the server.
  [[nodiscard]] bool IsExcluded(const std::string& path) const { return Matches(m_exclude, path); }
  // Whether a folder makes everything in it wanted.
  [[nodiscard]] bool IncludesAllOf(const std::string& folder) const {
    return m_include.empty() || Matches(m_include, folder);
  }
  // Whether a file is wanted that lies in no folder of that kind.
  [[nodiscard]] bool IsIncluded(const std::string& path) const { return m_include.empty() || Matches(m_include, path); }

 private:
  struct Pattern {
    std::string text;
    bool isPath = false;
  };
  static std::vector<Pattern> PatternsOf(std::vector<std::string> texts);
  [[nodiscard]] static bool Matches(const std::vector<Pattern>& patterns, const std::string& path);

  std::vector<Pattern> m_include;
  std::vector<Pattern> m_exclude;
};

}  // namespace Corvane
