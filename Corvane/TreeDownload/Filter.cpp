#include <Corvane/TreeDownload/FilterImpl.h>

#include <fnmatch.h>

#include <algorithm>
#include <utility>

namespace Corvane {

Filter::Filter(std::vector<std::string> include, std::vector<std::string> exclude)
    : m_include(PatternsOf(std::move(include))), m_exclude(PatternsOf(std::move(exclude))) {}

std::vector<Filter::Pattern> Filter::PatternsOf(std::vector<std::string> texts) {
  std::vector<Pattern> patterns;
  for (std::string& text : texts) {
    const bool isPath = text.find('/') < text.size() - 1;
    while (text.ends_with('/')) text.pop_back();
    if (text.starts_with('/')) text.erase(0, 1);
    patterns.push_back({std::move(text), isPath});
  }
  return patterns;
}

bool Filter::Matches(const std::vector<Pattern>& patterns, const std::string& path) {
  const char* const name = path.c_str() + path.rfind('/') + 1;  // npos + 1 is 0
  return std::any_of(patterns.begin(), patterns.end(), [&](const Pattern& pattern) {
    return pattern.isPath ? fnmatch(pattern.text.c_str(), path.c_str(), FNM_PATHNAME) == 0
                          : fnmatch(pattern.text.c_str(), name, 0) == 0;
  });
}

}  // namespace Corvane
