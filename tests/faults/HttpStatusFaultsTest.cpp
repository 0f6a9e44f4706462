#include "tests/faults/HttpFaults.h"

// Answers that are not the resource: refusals, redirects, logins, and answers that must not have content and have it.
namespace CorvaneTest {
namespace {

constexpr unsigned int kTooManyRedirects = 47;

// This status with these lines, and the content all the same.
std::function<void(Answer&)> WithContent(const std::string& status, const std::string& lines = "") {
  return [=](Answer& a) { a.SendAndClose("HTTP/1.1 " + status + "\r\n" + lines + a.Length() + "\r\n\r\n" + a.Body()); };
}

// Without content, on a connection that stays.
std::function<void(Answer&)> WithoutContent(const std::string& status, const std::string& lines = "") {
  return [=](Answer& a) { a.Send("HTTP/1.1 " + status + "\r\n" + lines + "Content-Length: 0\r\n\r\n"); };
}

Told Page(long status) { return {.status = status, .upTo = kContentSize}; }
Told NotFollowed(const std::string& url) {
  return {
      .status = 302,
      .verdict = Ending{Corvane::TRANSFER_E_CONNECT, "The server redirects to " + url + ", which is not followed."}};
}

const Conditions kLogin = {.hasLogin = true};
const Conditions kFollowing = {.redirects = 5};

const std::vector<HttpFault> kStatusFaults = {
    {.name = "204 with content",
     .answer = WithContent("204 No Content"),
     .told = {.status = 204},
     .exceptions = {{kResumed, kNoRest}}},
    {.name = "205",
     .answer = WithoutContent("205 Reset"),
     .told = {.status = 205},
     .exceptions = {{kResumed, kNoRest}}},
    {.name = "202 with content",
     .answer = WithContent("202 Accepted"),
     .told = Page(202),
     .exceptions = {{kResumed, kNoPart}}},
    {.name = "203 with content",
     .answer = WithContent("203 Changed"),
     .told = Page(203),
     .exceptions = {{kResumed, kNoPart}}},
    {.name = "304 with content", .answer = WithContent("304 Not Modified"), .told = {.status = 304}},
    {.name = "404 with content", .answer = WithContent("404 Not Found"), .told = Page(404)},
    {.name = "404 without content", .answer = WithoutContent("404 Not Found"), .told = {.status = 404}},
    {.name = "404 with less content than announced",
     .answer = [](Answer& a) { a.SendAndClose("HTTP/1.1 404 Not Found\r\n" + a.Length() + "\r\n\r\n" + a.Body(kCut)); },
     .told = {.status = 404,
              .curl = kPartialFile,
              .text = "transfer closed with 400 bytes remaining to read",
              .upTo = kCut},
     .exceptions = {{kResumed, {.status = 404, .curl = kRangeError}}}},
    {.name = "416 with content",
     .answer = WithContent("416 Range Not Satisfiable", "Content-Range: bytes */100\r\n"),
     .told = Page(416),
     .exceptions = {{kResumed, {.status = 416}}}},
    {.name = "500 with content", .answer = WithContent("500 Internal Server Error"), .told = Page(500)},
    {.name = "503 that asks for an hour",
     .answer = WithContent("503 Service Unavailable", "Retry-After: 3600\r\n"),
     .told = Page(503)},
};

TEST(HttpFaults, OfTheStatus) { EXPECT_EQ(RunCells(CellsOf(kStatusFaults, kAllOps)), 11 * 12U); }

const std::vector<HttpFault> kRedirectFaults = {
    {.name = "a redirect that nobody asked for",
     .answer = WithContent("302 Found", "Location: /elsewhere\r\n"),
     .told = Page(302),
     .exceptions = {{kTrees, {.status = 404}}}},  // a tree does, and nothing is there
    {.name = "a redirect to nowhere", .answer = WithContent("302 Found"), .told = Page(302)},
    {.name = "a redirect that leads round",
     .answer =
         [](Answer& a) { a.Send("HTTP/1.1 302 Found\r\nLocation: " + a.Target() + "\r\nContent-Length: 0\r\n\r\n"); },
     .told = {.status = 302, .curl = kTooManyRedirects, .text = "Maximum (5) redirects followed"},
     .exceptions = {{kMirrors, {.status = 302}}, {kTrees, NotFollowed("http://127.0.0.1:*/dir/*")}},
     .conditions = kFollowing},
    {.name = "a redirect to another protocol",
     .answer = WithoutContent("302 Found", "Location: ftp://127.0.0.1:1/x\r\n"),
     .told = {.status = 302,
              .curl = kUnsupportedProtocol,
              .text =
                  "The server redirects to an address that is not followed: only http and https are, and never from "
                  "https to http."},
     .exceptions = {{kMirrors, {.status = 302}}, {kTrees, NotFollowed("ftp://127.0.0.1:1/x")}},
     .conditions = kFollowing},
    {.name = "a redirect to this machine's files",
     .answer = WithoutContent("302 Found", "Location: file:///etc/hostname\r\n"),
     .told = {.status = 302,
              .curl = kUnsupportedProtocol,
              .text =
                  "The server redirects to an address that is not followed: only http and https are, and never from "
                  "https to http."},
     .exceptions = {{kMirrors, {.status = 302}}, {kTrees, NotFollowed("file:///etc/hostname")}},
     .conditions = kFollowing},
};

TEST(HttpFaults, OfRedirects) { EXPECT_EQ(RunCells(CellsOf(kRedirectFaults, kAllOps)), 5 * 12U); }

const std::vector<HttpFault> kLoginFaults = {
    {.name = "401 without a challenge", .answer = WithContent("401 Unauthorized"), .told = Page(401)},
    {.name = "401 with a challenge of nothing",
     .answer = WithContent("401 Unauthorized", "WWW-Authenticate:\r\n"),
     .told = Page(401)},
    {.name = "401 with a challenge that nobody knows",
     .answer = WithContent("401 Unauthorized", "WWW-Authenticate: Riddle speak=\"friend\"\r\n"),
     .told = Page(401),
     .conditions = kLogin},
    // The password never leaves over plain HTTP.
    {.name = "401 that wants the password in the clear",
     .answer = WithContent("401 Unauthorized", "WWW-Authenticate: Basic realm=\"x\"\r\n"),
     .told = Page(401),
     .conditions = kLogin},
    {.name = "401 with a Digest of nothing",
     .answer = WithContent("401 Unauthorized", "WWW-Authenticate: Digest\r\n"),
     .told = Page(401),
     .conditions = kLogin},
    {.name = "401 with an NTLM message of nonsense",
     .answer = WithContent("401 Unauthorized", "WWW-Authenticate: NTLM !!nonsense!!\r\n"),
     .told = Page(401),
     .conditions = kLogin},
    {.name = "401 with an NTLM message that is too short",
     .answer = WithContent("401 Unauthorized", "WWW-Authenticate: NTLM TlRMTVNTUAACAAAA\r\n"),
     .told = Page(401),
     .conditions = kLogin},
    {.name = "407 without a proxy",
     .answer = WithContent("407 Proxy Authentication Required", "Proxy-Authenticate: Basic realm=\"x\"\r\n"),
     .told = Page(407),
     .conditions = kLogin},
};

TEST(HttpFaults, OfLogins) { EXPECT_EQ(RunCells(CellsOf(kLoginFaults, kAllOps)), 8 * 12U); }

}  // namespace
}  // namespace CorvaneTest
