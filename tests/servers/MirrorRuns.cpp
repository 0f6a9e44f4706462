#include "tests/servers/MirrorRuns.h"

namespace CorvaneTest {

Sizes SizeListOf(const Files& files) {
  Sizes sizes;
  for (const auto& [name, content] : files) sizes[Wide(name)] = content.size();
  return sizes;
}

Outcome MirrorAfresh(const std::string& url, const std::filesystem::path& folder, bool resume, const Sizes& sizes,
                     const Times& times) {
  Corvane::ZMultiDownload mirror;
  mirror.SetFileSizeList(sizes);
  mirror.SetFileTimeList(times);
  const Corvane::ZResult code = mirror.Download(Wide(url), WidePath(folder), resume);
  EXPECT_EQ(mirror.GetStatus(), code);
  return {code, ErrorOf(mirror), mirror.GetDownloadSize()};
}

}  // namespace CorvaneTest
