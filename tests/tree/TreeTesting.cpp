#include "tests/tree/TreeTesting.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <utility>

#include <Corvane/Base/StringCoding.h>

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

std::set<std::string> TreeResult::PathsWith(Action action) const {
  std::set<std::string> paths;
  for (const auto& [path, item] : items) {
    if (item.action == action) paths.insert(path);
  }
  return paths;
}

std::ostream& operator<<(std::ostream& stream, const TreeResult& result) {
  stream << Hex(result.code) << ' ' << result.error;
  for (const auto& [path, item] : result.items) {
    if (item.result != 0) stream << "\n  " << path << ": " << Hex(item.result) << ' ' << Narrow(item.text);
  }
  return stream;
}

TreeClient::TreeClient() {
  options.retryWaitMs = 0;
  EXPECT_EQ(tree.Attach(this), 0U);
}

TreeResult TreeClient::Download(const std::string& url, const fs::path& folder) {
  m_items.clear();
  EXPECT_EQ(tree.SetOptions(options), 0U);
  return Finish(tree.Download(Wide(url), WidePath(folder)));
}

TreeResult TreeClient::Plan(const std::string& url, const fs::path& folder) {
  m_items.clear();
  EXPECT_EQ(tree.SetOptions(options), 0U);
  return Finish(tree.Plan(Wide(url), WidePath(folder)));
}

TreeResult TreeClient::Finish(Corvane::ZResult code) {
  EXPECT_EQ(tree.GetStatus(), code);
  return {code, Narrow(tree.GetError()), tree.GetStatistics(), m_items};
}

void TreeClient::Update(const ZTreeDownload::Item& item) {
  // A page may show the same thing twice that is left out.
  const bool isNew = m_items.emplace(item.path, item).second;
  EXPECT_TRUE(isNew || item.action == Action::LeaveOut) << "told twice: " << item.path;
  if (onItem) onItem(item);
}

std::string IndexPage(const std::vector<std::string>& hrefs) {
  std::string page = "<html><head><title>Index of /</title></head><body><h1>Index of /</h1><ul>\n";
  for (const std::string& href : hrefs) page += "<li><a href=\"" + href + "\">" + href + "</a></li>\n";
  return page + "</ul></body></html>\n";
}

void TreeSite::SetFile(const std::string& path, std::string content) {
  const std::lock_guard guard(m_mutex);
  m_files[path] = std::move(content);
}

void TreeSite::Remove(const std::string& path) {
  const std::lock_guard guard(m_mutex);
  m_files.erase(path);
}

void TreeSite::Answer(const std::string& path, Responder responder) {
  const std::lock_guard guard(m_mutex);
  if (responder) {
    m_answers[path] = std::move(responder);
  } else {
    m_answers.erase(path);
  }
}

Responder TreeSite::Serve() {
  return [this](Connection& peer, const Request& request) { Respond(peer, request); };
}

namespace {

std::string EscapedName(const std::string& name) {
  std::string text;
  for (const char c : name) {
    char escape[4];
    std::snprintf(escape, sizeof escape, "%%%02x", static_cast<unsigned char>(c));
    text += std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '.' || c == '-' ? std::string(1, c) : escape;
  }
  return text;
}

std::string UnescapedPath(const std::string& path) {
  std::string text;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (path[i] != '%' || i + 2 >= path.size()) {
      text += path[i];
      continue;
    }
    text += static_cast<char>(std::stoi(path.substr(i + 1, 2), nullptr, 16));
    i += 2;
  }
  return text;
}

}  // namespace

// Null for what is no folder.
std::optional<std::string> TreeSite::PageOf(const std::string& folder) const {
  std::set<std::string> names;
  bool isFolder = folder.empty();
  for (const auto& [path, content] : m_files) {
    if (!path.starts_with(folder)) continue;
    isFolder = true;
    const std::string rest = path.substr(folder.size());
    const std::size_t slash = rest.find('/');
    if (!rest.empty()) names.insert(slash == rest.npos ? EscapedName(rest) : EscapedName(rest.substr(0, slash)) + '/');
  }
  if (!isFolder) return std::nullopt;
  return IndexPage({names.begin(), names.end()});
}

void TreeSite::Respond(Connection& peer, const Request& request) {
  const std::string path = UnescapedPath(request.Path().substr(1));
  Responder responder = Status(404);
  {
    const std::lock_guard guard(m_mutex);
    const auto answer = m_answers.find(path);
    const auto file = m_files.find(path);
    if (answer != m_answers.end()) {
      responder = answer->second;
    } else if (path.empty() || path.ends_with('/')) {
      if (const std::optional<std::string> page = PageOf(path)) responder = Content(*page);
    } else if (file != m_files.end()) {
      ContentOptions options;
      options.headers = {{"Last-Modified", "Mon, 06 Jan 2020 10:00:00 GMT"},
                         {"Date", "Tue, 07 Jan 2020 10:00:00 GMT"},
                         {"ETag", '"' + std::to_string(std::hash<std::string>()(file->second)) + '"'}};
      responder = Content(file->second, options);
    }
  }
  responder(peer, request);
}

std::vector<std::string> RequestLines(const ScriptedServer& server) {
  std::vector<std::string> lines;
  for (const Request& request : server.Requests())
    lines.push_back(request.method + ' ' + UnescapedPath(request.target.substr(1)));
  return lines;
}

}  // namespace CorvaneTest
