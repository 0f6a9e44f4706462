#include "tests/tree/TreeFiles.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <ctime>
#include <vector>

#include "tests/support/TempDir.h"

namespace CorvaneTest {

namespace fs = std::filesystem;

TreeFiles MakeAwkwardTree() {
  TreeFiles tree = {{"empty folder/", ""}, {"one.txt", "one"}, {"no bytes", ""}};
  const std::vector<std::string> names = {"blanks in a name",
                                          "100%.txt",
                                          "%2e%2e",
                                          "a+b=c&d;e",
                                          "what?",
                                          "sharp#s",
                                          "quote\"s and 'these'",
                                          "<angle>",
                                          "back\\slash",
                                          "gr\xC3\xBC\xC3\x9F",
                                          "\xE6\x97\xA5\xE6\x9C\xAC",
                                          "latin \xFC",
                                          "-rf",
                                          "..a",
                                          "a..",
                                          ".hidden",
                                          "~tilde",
                                          "a:b",
                                          "[x]{y}",
                                          "index.html.bak",
                                          "&amp;",
                                          "name with a colon: and more",
                                          std::string(200, 'l')};
  std::size_t number = 0;
  for (const std::string& name : names) {
    ++number;
    tree["odd/" + name] = MakePattern(number * 211, number);
    tree["folders/" + name + "/in it"] = MakePattern(number, number);
  }
  tree["deep/1/2/3/4/5/6/7/8/9/bottom"] = "bottom";
  tree["large/100k"] = MakePattern(100000, 7);
  tree["large/300k"] = MakePattern(300000, 8);
  return tree;
}

void WriteTree(const fs::path& folder, const TreeFiles& tree) {
  fs::create_directories(folder);
  std::time_t time = 1500000000;
  for (const auto& [path, content] : tree) {
    if (path.ends_with('/')) {
      fs::create_directories(folder / path);
      continue;
    }
    WriteFile(folder / path, content);
    time += 3607;
    const timespec times[2] = {{time, 0}, {time, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, (folder / path).c_str(), times, 0), 0) << path;
  }
}

TreeFiles ReadTree(const fs::path& folder) {
  TreeFiles tree;
  if (!fs::exists(folder)) return tree;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    const std::string path = entry.path().lexically_relative(folder).string();
    if (entry.is_symlink()) {
      tree[path] = "link to " + fs::read_symlink(entry.path()).string();
    } else if (entry.is_directory()) {
      if (fs::is_empty(entry.path())) tree[path + '/'] = "";
    } else {
      tree[path] = ReadFile(entry.path());
    }
  }
  return tree;
}

testing::AssertionResult HoldsTree(const fs::path& folder, const TreeFiles& tree) {
  const TreeFiles here = ReadTree(folder);
  testing::AssertionResult difference = testing::AssertionFailure();
  bool isSame = true;
  for (const auto& [path, content] : tree) {
    const auto found = here.find(path);
    if (found != here.end() && found->second == content) continue;
    isSame = false;
    difference << "\n  " << (found == here.end() ? "missing: " : "differs: ") << path;
  }
  for (const auto& [path, content] : here) {
    if (tree.count(path) != 0) continue;
    isSame = false;
    difference << "\n  not expected: " << path;
  }
  return isSame ? testing::AssertionSuccess() : difference;
}

}  // namespace CorvaneTest
