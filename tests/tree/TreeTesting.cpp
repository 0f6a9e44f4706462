#include "tests/tree/TreeTesting.h"

#include <cstdio>
#include <utility>

#include <Corvane/Base/StringCoding.h>

namespace CorvaneTest {

namespace fs = std::filesystem;

std::string TreeResult::TextOf(const std::string& path) const { return Narrow(items.at(path).text); }

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
  for (const std::string& href : hrefs)
    page.append("<li><a href=\"").append(href).append("\">").append(href).append("</a></li>\n");
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
