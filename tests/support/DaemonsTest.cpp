#include "tests/support/Daemons.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

#include "tests/support/Fetch.h"
#include "tests/support/Sockets.h"

namespace CorvaneTest {
namespace {

namespace fs = std::filesystem;

void SetResumeFrom(CURL* easy) { curl_easy_setopt(easy, CURLOPT_RESUME_FROM, 1000L); }

// What every server does: serve a file whole and in part, report what is missing, and end.
void CheckServing(Daemon& server) {
  const std::string content = MakePattern(200000);
  WriteFile(server.RootDir() / "dir/a.bin", content);
  const Fetched whole = Fetch(server.Url("/dir/a.bin"));
  EXPECT_EQ(whole.code, CURLE_OK) << server.Log();
  EXPECT_TRUE(whole.body == content);
  const Fetched part = Fetch(server.Url("/dir/a.bin"), SetResumeFrom);
  EXPECT_EQ(part.code, CURLE_OK) << server.Log();
  EXPECT_TRUE(part.body == content.substr(1000));
  EXPECT_NE(Fetch(server.Url("/dir/missing")).body, content);
  EXPECT_TRUE(server.WaitForAccess("/dir/a.bin")) << server.AccessLog();
  EXPECT_FALSE(server.WaitForAccess("/never", Clock::now()));
  EXPECT_NE(Fetch(server.Url("/dir/")).body.find("a.bin"), std::string::npos) << server.Log();
  server.Stop();
  EXPECT_THROW(ConnectToLoopback(server.Port()), std::system_error);
  server.Stop();
}

// A file that only root may read shows that the server works for an account without rights: another one when root starts it.
void CheckPrivileges(const Daemon& server) {
  WriteFile(server.RootDir() / "secret", "secret");
  fs::permissions(server.RootDir() / "secret", geteuid() == 0 ? fs::perms::owner_read : fs::perms::none);
  const Fetched fetched = Fetch(server.Url("/secret"));
  EXPECT_EQ(fetched.body.find("secret\n"), std::string::npos);
  EXPECT_TRUE(fetched.status == 403 || fetched.status == 550) << fetched.status;
}

// Two servers of a kind at a time, and the folder gone with the server.
template <class Server>
void CheckSeparation() {
  fs::path root;
  {
    const Server first;
    const Server second;
    EXPECT_NE(first.Port(), second.Port());
    WriteFile(first.RootDir() / "name", "first");
    WriteFile(second.RootDir() / "name", "second");
    EXPECT_EQ(Fetch(first.Url("/name")).body, "first");
    EXPECT_EQ(Fetch(second.Url("/name")).body, "second");
    root = first.RootDir();
  }
  EXPECT_FALSE(fs::exists(root));
}

// A server that was started by a thread that ends without stopping it ends with it, its own children included. This
// is what becomes of it when a test crashes.
template <class Server>
void CheckOrphan() {
  std::unique_ptr<Server> server;
  std::thread([&] { server = std::make_unique<Server>(); }).join();
  const Deadline deadline = After(kPatience);
  while (true) {
    try {
      ConnectToLoopback(server->Port());
    } catch (const std::system_error&) {
      return;
    }
    ASSERT_LT(Clock::now(), deadline) << "the server survived the thread that started it";
    std::this_thread::sleep_for(std::chrono::milliseconds(5));  // lest its queue fills up
  }
}

std::string MessageOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

// --- common

struct MissingServer : Daemon {
  MissingServer() : Daemon("http") { FindProgram("corvane-no-such-server", "no-such-package"); }
};

TEST(Daemon, MissingProgramIsNamedWithItsPackage) {
  EXPECT_EQ(MessageOf([] { MissingServer(); }),
            "the server \"corvane-no-such-server\" is not installed (Debian package no-such-package)");
}

// --- nginx

TEST(NginxServer, Serves) {
  NginxServer server;
  CheckServing(server);
}
TEST(NginxServer, WorksForAnUnprivilegedAccount) { CheckPrivileges(NginxServer()); }
TEST(NginxServer, RunsBesideAnother) { CheckSeparation<NginxServer>(); }
TEST(NginxServer, EndsWithTheTest) { CheckOrphan<NginxServer>(); }

TEST(NginxServer, ListsFoldersInPreUnlessTold) {
  const NginxServer listing;
  WriteFile(listing.RootDir() / "a b.txt", "x");
  EXPECT_NE(Fetch(listing.Url()).body.find("<pre><a href=\"../\">../</a>"), std::string::npos);
  EXPECT_NE(Fetch(listing.Url()).body.find("<a href=\"a%20b.txt\">a b.txt</a>"), std::string::npos);
  EXPECT_EQ(Fetch(NginxServer({.autoindex = false}).Url()).status, 403);
}

TEST(NginxServer, ServesTlsAsWell) {
  const TempDir folder;
  const Pki pki = MakePki(folder.Path());
  const NginxServer server({.tls = pki.server});
  WriteFile(server.RootDir() / "a", "content");
  EXPECT_EQ(Fetch(server.Url("/a")).body, "content");
  const auto trust = [&](CURL* easy) { curl_easy_setopt(easy, CURLOPT_CAINFO, pki.caFile.c_str()); };
  EXPECT_EQ(Fetch(server.HttpsUrl("/a"), trust).body, "content");
  EXPECT_EQ(Fetch(server.HttpsUrl("/a")).code, CURLE_PEER_FAILED_VERIFICATION);
  EXPECT_THROW(NginxServer().HttpsUrl(), std::logic_error);
}

TEST(NginxServer, TakesFurtherLines) {
  const NginxServer server({.serverLines = "location /teapot { return 418; }", .httpLines = "server_tokens off;"});
  const Fetched fetched = Fetch(server.Url("/teapot"));
  EXPECT_EQ(fetched.status, 418);
  EXPECT_NE(fetched.head.find("Server: nginx\r\n"), std::string::npos);
}

TEST(NginxServer, ReportsItsOwnMessageWhenItDoesNotStart) {
  const std::string message = MessageOf([] { NginxServer({.serverLines = "no_such_directive;"}); });
  EXPECT_NE(message.find("no_such_directive"), std::string::npos) << message;
}

// --- apache

TEST(ApacheServer, Serves) {
  ApacheServer server;
  CheckServing(server);
}
TEST(ApacheServer, WorksForAnUnprivilegedAccount) { CheckPrivileges(ApacheServer()); }
TEST(ApacheServer, RunsBesideAnother) { CheckSeparation<ApacheServer>(); }
TEST(ApacheServer, EndsWithTheTest) { CheckOrphan<ApacheServer>(); }

TEST(ApacheServer, ListsFoldersInTheStyleAskedFor) {
  const auto list = [](const char* indexOptions) {
    const ApacheServer server({.indexOptions = indexOptions});
    WriteFile(server.RootDir() / "a.bin", "12345");
    return Fetch(server.Url()).body;
  };
  EXPECT_NE(list("FancyIndexing").find("<pre>"), std::string::npos);
  EXPECT_NE(list("FancyIndexing HTMLTable").find("<table>"), std::string::npos);
  EXPECT_NE(list("None").find("<ul>"), std::string::npos);
}

TEST(ApacheServer, RunsCgiProgramsWhenAsked) {
  const ApacheServer server({.cgi = true});
  const fs::path program = server.RootDir() / "echo.cgi";
  WriteFile(program, "#!/bin/sh\necho 'Content-Type: text/plain'\necho\necho \"$REQUEST_METHOD\"; cat\n");
  fs::permissions(program, fs::perms(0755));
  const auto post = [](CURL* easy) { curl_easy_setopt(easy, CURLOPT_COPYPOSTFIELDS, "posted"); };
  EXPECT_EQ(Fetch(server.Url("/echo.cgi"), post).body, "POST\nposted") << server.Log();
  EXPECT_EQ(Fetch(server.Url("/echo.cgi")).body, "GET\n") << server.Log();
}

TEST(ApacheServer, TakesFurtherModulesAndLines) {
  const ApacheServer server({.modules = {"headers"}, .serverLines = "Header set X-Extra yes"});
  EXPECT_NE(Fetch(server.Url()).head.find("X-Extra: yes\r\n"), std::string::npos);
}

TEST(ApacheServer, ReportsItsOwnMessageWhenItDoesNotStart) {
  const std::string message = MessageOf([] { ApacheServer({.serverLines = "NoSuchDirective"}); });
  EXPECT_NE(message.find("NoSuchDirective"), std::string::npos) << message;
}

// --- vsftpd

TEST(VsftpdServer, Serves) {
  VsftpdServer server;
  CheckServing(server);
}
TEST(VsftpdServer, WorksForAnUnprivilegedAccount) { CheckPrivileges(VsftpdServer()); }
TEST(VsftpdServer, RunsBesideAnother) { CheckSeparation<VsftpdServer>(); }
TEST(VsftpdServer, EndsWithTheTest) { CheckOrphan<VsftpdServer>(); }

TEST(VsftpdServer, ReportsItsOwnMessageWhenItDoesNotStart) {
  const std::string message = MessageOf([] { VsftpdServer({.lines = "no_such_option=YES"}); });
  EXPECT_NE(message.find("no_such_option"), std::string::npos) << message;
}

// --- pyftpdlib

TEST(PyftpdServer, Serves) {
  PyftpdServer server;
  CheckServing(server);
}
TEST(PyftpdServer, RunsBesideAnother) { CheckSeparation<PyftpdServer>(); }
TEST(PyftpdServer, EndsWithTheTest) { CheckOrphan<PyftpdServer>(); }

TEST(PyftpdServer, ChecksTheLogin) {
  const PyftpdServer server({.anonymous = false, .user = "user", .password = "secret"});
  WriteFile(server.RootDir() / "a", "content");
  const auto as = [](const char* account) {
    return [account](CURL* easy) { curl_easy_setopt(easy, CURLOPT_USERPWD, account); };
  };
  EXPECT_EQ(Fetch(server.Url("/a"), as("user:secret")).body, "content") << server.Log();
  EXPECT_EQ(Fetch(server.Url("/a"), as("user:wrong")).code, CURLE_LOGIN_DENIED);
  EXPECT_EQ(Fetch(server.Url("/a")).code, CURLE_LOGIN_DENIED);
}

}  // namespace
}  // namespace CorvaneTest
