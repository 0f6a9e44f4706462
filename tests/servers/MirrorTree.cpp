#include "tests/servers/MirrorTree.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "tests/support/Fetch.h"

namespace CorvaneTest {

namespace fs = std::filesystem;

namespace {

std::string MakeName(std::size_t index) {
  // nginx shows 50 characters of a name at most.
  static const char* const kFormats[] = {"file-%04zu.bin",
                                         "With two blanks %04zu.txt",
                                         "%04zu",
                                         "archive.%04zu.tar.gz",
                                         "UPPER_%04zu.TXT",
                                         "-begins with a dash %04zu",
                                         "gr\xC3\xBC\xC3\x9F-%04zu",
                                         "many.dots..%04zu.",
                                         "(%04zu)[x]{y}~!@$,",
                                         "a name of exactly fifty characters, no more: %04zu."};
  char name[80];
  std::snprintf(name, sizeof name, kFormats[index % std::size(kFormats)], index);
  return name;
}

std::size_t MakeSize(std::size_t index, std::uint64_t seed) {
  const std::uint64_t hash = (index + seed) * 0x9E3779B97F4A7C15U >> 20;
  if (index % 50 == 7) return 0;
  if (index % 333 == 100) return (3U << 20) + hash % 1000;
  return hash % 1024 * (hash / 1024 % 100) + hash % 7;
}

std::string KindOf(const struct stat& status) {
  if (S_ISREG(status.st_mode)) return "file";
  if (S_ISDIR(status.st_mode)) return "folder";
  if (S_ISLNK(status.st_mode)) return "link";
  return "something else";
}

// Runs `check` for each regular file in the folder; fails at any other entry and at the first that `check` fails.
template <class Check>
testing::AssertionResult EachFile(const fs::path& folder, Check check) {
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    if (!entry.is_regular_file() || entry.is_symlink()) {
      return testing::AssertionFailure() << entry.path() << " is no regular file";
    }
    if (const testing::AssertionResult result = check(entry.path()); !result) return result;
  }
  return testing::AssertionSuccess();
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

}  // namespace

// --- files

Files MakeFiles(std::size_t count, std::uint64_t seed) {
  Files files;
  for (std::size_t i = 0; i < count; ++i) files[MakeName(i)] = MakePattern(MakeSize(i, seed), seed * 100000 + i);
  return files;
}

void WriteFiles(const fs::path& folder, const Files& files) {
  fs::create_directories(folder);
  for (const auto& [name, content] : files) WriteFile(folder / name, content);
}

testing::AssertionResult HoldsExactly(const fs::path& folder, const Files& files) {
  std::size_t count = 0;
  const testing::AssertionResult result = EachFile(folder, [&](const fs::path& path) -> testing::AssertionResult {
    ++count;
    const auto file = files.find(path.filename().string());
    if (file == files.end()) return testing::AssertionFailure() << path << " does not belong there";
    const std::string content = ReadFile(path);
    if (content == file->second) return testing::AssertionSuccess();
    return testing::AssertionFailure() << path << " differs: " << content.size() << " bytes, not "
                                       << file->second.size();
  });
  if (!result || count == files.size()) return result;
  testing::AssertionResult missing = testing::AssertionFailure() << files.size() - count << " files are missing:";
  for (const auto& [name, content] : files) {
    if (!fs::exists(folder / name)) missing << " \"" << name << "\"";
  }
  return missing;
}

testing::AssertionResult HoldsBeginningsOf(const fs::path& folder, const Files& files) {
  return EachFile(folder, [&](const fs::path& path) -> testing::AssertionResult {
    const auto file = files.find(path.filename().string());
    if (file == files.end()) return testing::AssertionFailure() << path << " does not belong there";
    const std::string content = ReadFile(path);
    if (file->second.compare(0, content.size(), content) == 0) return testing::AssertionSuccess();
    return testing::AssertionFailure() << path << " of " << content.size() << " bytes is no beginning of its source";
  });
}

struct stat StatusOf(const fs::path& path) {
  struct stat status {};
  EXPECT_EQ(lstat(path.c_str(), &status), 0) << path << ": " << std::strerror(errno);
  return status;
}

Traces TracesOf(const fs::path& folder, const fs::path& without) {
  Traces traces;
  const auto add = [&](const fs::path& path) {
    const struct stat status = StatusOf(path);
    std::ostringstream text;
    text << KindOf(status) << ' ' << std::oct << status.st_mode << std::dec << ' ' << status.st_ino << " modified "
         << status.st_mtim.tv_sec << '.' << status.st_mtim.tv_nsec << " changed " << status.st_ctim.tv_sec << '.'
         << status.st_ctim.tv_nsec << ' ' << status.st_size << ' ';
    if (S_ISREG(status.st_mode)) text << std::hash<std::string>()(ReadFile(path));
    if (S_ISLNK(status.st_mode)) text << fs::read_symlink(path).string();
    traces[path.string()] = text.str();
  };
  add(folder);
  for (auto entry = fs::recursive_directory_iterator(folder); entry != fs::recursive_directory_iterator(); ++entry) {
    if (entry->path() == without) {
      entry.disable_recursion_pending();
    } else {
      add(entry->path());
    }
  }
  return traces;
}

void WriteNumberList(const fs::path& path, const std::map<std::string, unsigned long long>& numbers) {
  std::string text;
  for (const auto& [name, number] : numbers) text += name + "\t" + std::to_string(number) + "\n";
  WriteFile(path, text);
}

std::map<std::string, unsigned long long> SizesOf(const Files& files) {
  std::map<std::string, unsigned long long> sizes;
  for (const auto& [name, content] : files) sizes[name] = content.size();
  return sizes;
}

// --- servers

namespace {

std::unique_ptr<Daemon> StartDaemon(ServerKind kind) {
  switch (kind) {
    case ServerKind::kNginx:
      return std::make_unique<NginxServer>();
    case ServerKind::kApache:
      return std::make_unique<ApacheServer>();
    case ServerKind::kVsftpd:
      return std::make_unique<VsftpdServer>(
          VsftpdOptions{"force_dot_files=YES\n"});  // lists hidden files, as the others do
    case ServerKind::kPyftpdlib:
      return std::make_unique<PyftpdServer>();
  }
  throw std::logic_error("no such server");
}

}  // namespace

RemoteServer::RemoteServer(ServerKind kind) : m_daemon(StartDaemon(kind)) {
  if (IsFtp(kind)) m_delay = std::make_unique<FtpDelay>(m_daemon->Port());
}

std::string NameOf(ServerKind kind) {
  static const char* const kNames[] = {"Nginx", "Apache", "Vsftpd", "Pyftpdlib"};
  return kNames[static_cast<std::size_t>(kind)];
}

void RemoteServer::Stop() {
  m_daemon->Stop();
  m_delay.reset();
}

WatchedNginx::WatchedNginx(const WatchedOptions& options) {
  NginxOptions nginx;
  // By default a connection serves 1,000 requests.
  nginx.httpLines =
      "keepalive_requests 1000000;\nlog_format watched escape=none '$connection $status $uri';\naccess_log \"" +
      (m_folder / "requests").string() + "\" watched;\n";
  // Small pieces make an even stream of the limit, which holds from one piece to the next.
  if (options.bytesPerSecond != 0) {
    nginx.httpLines +=
        "limit_rate " + std::to_string(options.bytesPerSecond) + ";\noutput_buffers 1 8k;\npostpone_output 0;\n";
  }
  m_server = std::make_unique<NginxServer>(nginx);
}

// The server writes in the order in which it has answered, so a request of our own marks the end of all before.
std::vector<std::string> WatchedNginx::Requests() {
  const std::string mark = "/mark-" + std::to_string(++m_marks);
  Fetch(m_server->Url(mark));
  if (!m_server->WaitForAccess(mark)) throw std::runtime_error("nginx does not log");
  std::vector<std::string> lines = LinesOf(ReadFile(m_folder / "requests"));
  lines.erase(std::remove_if(lines.begin(), lines.end(),
                             [](const std::string& line) { return line.find("/mark-") != std::string::npos; }),
              lines.end());
  return lines;
}

WatchedVsftpd::WatchedVsftpd(const WatchedOptions& options) {
  VsftpdOptions vsftpd;
  // Commands are logged in the server's own format only.
  vsftpd.lines =
      "xferlog_std_format=NO\nlog_ftp_protocol=YES\nvsftpd_log_file=" + (m_folder / "commands").string() + "\n";
  if (options.bytesPerSecond != 0) {
    vsftpd.lines += "anon_max_rate=" + std::to_string(options.bytesPerSecond) + "\ntrans_chunk_size=8192\n";
  }
  m_server = std::make_unique<VsftpdServer>(vsftpd);
  m_delay = std::make_unique<FtpDelay>(m_server->Port());
}

// A line ends with: FTP command: Client "127.0.0.1", "RETR a b"
std::vector<std::string> WatchedVsftpd::Commands() const {
  static constexpr std::string_view kCommand = "FTP command: Client \"127.0.0.1\", \"";
  std::vector<std::string> commands;
  for (const std::string& line : LinesOf(ReadFile(m_folder / "commands"))) {
    const std::size_t found = line.find(kCommand);
    if (found == std::string::npos) continue;
    const std::size_t begin = found + kCommand.size();
    commands.push_back(line.substr(begin, line.size() - 1 - begin));
  }
  return commands;
}

std::size_t WatchedVsftpd::CountCommands(std::string_view verb) const {
  const std::vector<std::string> commands = Commands();
  return static_cast<std::size_t>(std::count_if(commands.begin(), commands.end(), [&](const std::string& command) {
    return command.substr(0, command.find(' ')) == verb;
  }));
}

std::size_t WatchedVsftpd::CountConnections() const {
  const std::vector<std::string> lines = LinesOf(ReadFile(m_folder / "commands"));
  return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
    return line.find("CONNECT: Client") != std::string::npos;
  }));
}

void StallAfterTheListing(ScriptedFtpServer& server, Gate& listed) {
  server.OnCommand("TYPE", [&listed](Connection& control, const std::string& argument) {
    if (argument != "I") return false;  // the listing comes as text
    listed.Open();
    control.WaitUntilStopped();
    return true;
  });
}

}  // namespace CorvaneTest
