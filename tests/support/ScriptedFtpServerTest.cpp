#include "tests/support/ScriptedFtpServer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Fetch.h"
#include "tests/support/Sockets.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

constexpr long kShortTimeoutMs = 300;  // for fetches that must not come to an end

std::string ReadAll(Connection& connection) {
  std::string all;
  for (std::string part = connection.ReadSome(); !part.empty(); part = connection.ReadSome()) all += part;
  return all;
}

auto GivingUpSoon() {
  return [](CURL* easy) { curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, kShortTimeoutMs); };
}

TEST(ScriptedFtpServer, SendsAFile) {
  const std::string content = MakePattern(300000);
  ScriptedFtpServer server({{"/pub/a.bin", content}});
  const Fetched fetched = Fetch(server.Url("/pub/a.bin"));
  EXPECT_EQ(fetched.code, CURLE_OK);
  EXPECT_TRUE(fetched.body == content);
  EXPECT_EQ(fetched.head.substr(0, 11), "220 Ready\r\n");
  const std::vector<std::string> expected{"USER anonymous", "PASS ftp@example.com", "PWD",       "CWD pub", "EPSV",
                                          "TYPE I",         "SIZE a.bin",           "RETR a.bin"};
  ASSERT_TRUE(server.WaitForCommand("RETR"));
  std::vector<std::string> commands = server.Commands();
  commands.resize(std::min(commands.size(), expected.size()));  // QUIT may have come
  EXPECT_EQ(commands, expected);
}

TEST(ScriptedFtpServer, SendsAFileInOldPassiveMode) {
  ScriptedFtpServer server({{"/a", "content"}});
  const Fetched fetched = Fetch(server.Url("/a"), [](CURL* easy) { curl_easy_setopt(easy, CURLOPT_FTP_USE_EPSV, 0L); });
  EXPECT_EQ(fetched.body, "content");
  EXPECT_TRUE(server.HasCommand("PASV"));
  EXPECT_FALSE(server.HasCommand("EPSV"));
}

TEST(ScriptedFtpServer, ResumesWithRest) {
  ScriptedFtpServer server({{"/a", "0123456789"}});
  const Fetched fetched = Fetch(server.Url("/a"), [](CURL* easy) { curl_easy_setopt(easy, CURLOPT_RESUME_FROM, 4L); });
  EXPECT_EQ(fetched.body, "456789");
  EXPECT_TRUE(server.HasCommand("REST 4"));
}

// A client that keeps the connection would be sent the end of its next file for the whole.
TEST(ScriptedFtpServer, ForgetsAnOffsetWhoseCommandWasRefused) {
  ScriptedFtpServer server({{"/a", "0123456789"}});
  std::atomic<bool> isRefused{false};
  server.OnCommand("RETR", [&](Connection& control, const std::string&) {
    if (isRefused.exchange(true)) return false;
    return control.Send("450 Later\r\n");
  });
  const std::unique_ptr<CURL, void (*)(CURL*)> easy(curl_easy_init(), curl_easy_cleanup);
  const auto fetch = [&](long offset) {
    std::string body;
    const auto write = +[](char* data, std::size_t size, std::size_t count, void* into) {
      static_cast<std::string*>(into)->append(data, size * count);
      return size * count;
    };
    curl_easy_setopt(easy.get(), CURLOPT_URL, server.Url("/a").c_str());
    curl_easy_setopt(easy.get(), CURLOPT_RESUME_FROM, offset);
    curl_easy_setopt(easy.get(), CURLOPT_WRITEFUNCTION, write);
    curl_easy_setopt(easy.get(), CURLOPT_WRITEDATA, &body);
    curl_easy_setopt(easy.get(), CURLOPT_TIMEOUT, 60L);
    return curl_easy_perform(easy.get()) == CURLE_OK ? body : "failed after " + body;
  };
  EXPECT_EQ(fetch(4), "failed after ");
  EXPECT_EQ(fetch(0), "0123456789");
  const std::vector<std::string> commands = server.Commands();
  EXPECT_EQ(std::count(commands.begin(), commands.end(), "USER anonymous"), 1) << "it was another connection";
}

TEST(ScriptedFtpServer, RefusesWhatIsNotThere) {
  ScriptedFtpServer server({{"/dir/a", "x"}});
  EXPECT_EQ(Fetch(server.Url("/dir/b")).code, CURLE_REMOTE_FILE_NOT_FOUND);
  EXPECT_EQ(Fetch(server.Url("/other/a")).code, CURLE_REMOTE_ACCESS_DENIED);
}

// The bytes that LIST sends for the folder; libcurl would not do, as it turns CR LF of a listing into LF.
std::string List(const ScriptedFtpServer& server, const std::string& folder) {
  const Gate never;
  Connection control(ConnectToLoopback(server.Port()), never);
  control.Send("USER a\r\nPASS b\r\nCWD " + folder + "\r\nEPSV\r\n");
  std::string reply;
  while (reply.substr(0, 4) != "229 ") reply = control.ReadLine().value();
  const int port = std::stoi(reply.substr(reply.find("(|||") + 4));
  Connection data(ConnectToLoopback(static_cast<std::uint16_t>(port)), never);
  control.Send("LIST\r\n");
  return ReadAll(data);
}

TEST(ScriptedFtpServer, ListsItsTable) {
  ScriptedFtpServer server({{"/dir/a.bin", "12345"}, {"/dir/b c", ""}, {"/dir/sub/d", "x"}, {"/e", "x"}});
  EXPECT_EQ(List(server, "dir"),
            "-rw-r--r--   1 ftp      ftp                 5 Jan 01  2020 a.bin\r\n"
            "-rw-r--r--   1 ftp      ftp                 0 Jan 01  2020 b c\r\n"
            "drwxr-xr-x   1 ftp      ftp              4096 Jan 01  2020 sub\r\n");
  const auto namesOnly = [](CURL* easy) { curl_easy_setopt(easy, CURLOPT_DIRLISTONLY, 1L); };
  EXPECT_EQ(Fetch(server.Url("/"), namesOnly).body, "dir\ne\n");
}

TEST(ScriptedFtpServer, SendsTheListingItWasGiven) {
  ScriptedFtpServer server;
  const std::string listing = "01-02-20  03:04AM  5 a.txt\r\n\nodd\n";
  server.SetListing("/dos/deep/", listing);
  EXPECT_EQ(List(server, "/dos/deep"), listing);
  EXPECT_EQ(Fetch(server.Url("/dos/")).body, "");
}

TEST(ScriptedFtpServer, TellsModificationTimes) {
  ScriptedFtpServer server({{"/a", "x"}});
  server.SetModificationTime("/a", "20200102030405");
  long stamp = -1;
  Fetch(server.Url("/a"), [](CURL* easy) { curl_easy_setopt(easy, CURLOPT_FILETIME, 1L); });
  EXPECT_TRUE(server.HasCommand("MDTM a"));
  const auto askAgain = [&](CURL* easy) {
    curl_easy_setopt(easy, CURLOPT_FILETIME, 1L);
    curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    curl_easy_perform(easy);
    curl_easy_getinfo(easy, CURLINFO_FILETIME, &stamp);
  };
  Fetch(server.Url("/a"), askAgain);
  EXPECT_EQ(stamp, 1577934245);
}

TEST(ScriptedFtpServer, ChecksTheLogin) {
  ScriptedFtpServer server({{"/a", "content"}});
  server.SetLogin("user", "secret");
  const auto as = [](const char* account) {
    return [account](CURL* easy) { curl_easy_setopt(easy, CURLOPT_USERPWD, account); };
  };
  EXPECT_EQ(Fetch(server.Url("/a"), as("user:secret")).body, "content");
  EXPECT_EQ(Fetch(server.Url("/a"), as("user:wrong")).code, CURLE_LOGIN_DENIED);
  EXPECT_EQ(Fetch(server.Url("/a")).code, CURLE_LOGIN_DENIED);
}

TEST(ScriptedFtpServer, GivesTheReplyItWasTold) {
  ScriptedFtpServer server({{"/a", "x"}}, "220-Hello\r\n220 there");
  server.SetReply("retr", "451 Local error.");
  const Fetched fetched = Fetch(server.Url("/a"));
  EXPECT_EQ(fetched.status, 451);
  EXPECT_EQ(fetched.head.substr(0, 22), "220-Hello\r\n220 there\r\n");
}

TEST(ScriptedFtpServer, RunsAHookAndThenTheUsualAnswer) {
  ScriptedFtpServer server({{"/a", "old"}});
  server.OnCommand("RETR", [&](Connection&, const std::string& argument) {
    server.SetFile("/" + argument, "new");
    return false;
  });
  EXPECT_EQ(Fetch(server.Url("/a")).body.substr(0, 3), "new");
}

TEST(ScriptedFtpServer, HookMayCloseTheControlConnection) {
  ScriptedFtpServer server({{"/a", "x"}});
  server.OnCommand("SIZE", [](Connection& control, const std::string&) {
    control.Close();
    return true;
  });
  EXPECT_NE(Fetch(server.Url("/a")).code, CURLE_OK);
}

TEST(ScriptedFtpServer, StallsAtAVerb) {
  for (const char* verb : {"USER", "PASS", "CWD", "EPSV", "SIZE", "RETR"}) {
    ScriptedFtpServer server({{"/dir/a", "x"}});
    server.StallAt(verb);
    EXPECT_EQ(Fetch(server.Url("/dir/a"), GivingUpSoon()).code, CURLE_OPERATION_TIMEDOUT) << verb;
    EXPECT_TRUE(server.WaitForCommand(verb)) << verb;
  }
}

TEST(ScriptedFtpServer, CutsTheDataConnection) {
  ScriptedFtpServer server({{"/a", "0123456789"}});
  server.CutDataAfter(4);
  const Fetched cut = Fetch(server.Url("/a"));
  EXPECT_EQ(cut.code, CURLE_PARTIAL_FILE);
  EXPECT_EQ(cut.body, "0123");
  server.CutDataAfter(std::nullopt);
  EXPECT_EQ(Fetch(server.Url("/a")).body, "0123456789");
}

TEST(ScriptedFtpServer, DoesNotCutShorterData) {
  ScriptedFtpServer server({{"/a", "0123"}});
  server.CutDataAfter(4);
  EXPECT_EQ(Fetch(server.Url("/a")).code, CURLE_OK);
}

TEST(ScriptedFtpServer, StallsTheDataConnection) {
  ScriptedFtpServer server({{"/a", "0123456789"}});
  server.StallDataAfter(4);
  const Fetched stalled = Fetch(server.Url("/a"), GivingUpSoon());
  EXPECT_EQ(stalled.code, CURLE_OPERATION_TIMEDOUT);
  EXPECT_EQ(stalled.body, "0123");
}

TEST(ScriptedFtpServer, StopEndsAStalledSession) {
  ScriptedFtpServer server({{"/a", "0123456789"}});
  server.StallDataAfter(4);
  Fetched stalled;
  std::thread client([&] { stalled = Fetch(server.Url("/a")); });
  EXPECT_TRUE(server.WaitForCommand("RETR"));
  server.Stop();
  client.join();
  EXPECT_NE(stalled.code, CURLE_OK);
}

TEST(ScriptedFtpServer, WaitForCommandKeepsItsDeadline) {
  const ScriptedFtpServer server;
  EXPECT_FALSE(server.WaitForCommand("", After(std::chrono::milliseconds(1))));
}

}  // namespace
}  // namespace CorvaneTest
