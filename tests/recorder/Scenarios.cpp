#include "tests/recorder/Scenarios.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <utility>

#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using Corvane::ZString;
using Corvane::ZTransfer;
using Fields = Corvane::ZMap<ZString, ZString, Corvane::ZLtstr>;
using Options = std::vector<ExpectedOption>;

Scenario Download(const std::string& name, const ZString& url, Options options,
                  std::function<void(ZTransfer&)> configure = {}) {
  return {.name = name,
          .configure = std::move(configure),
          .run = [url](ZTransfer& transfer, ZString& result) { return transfer.Download(url, result); },
          .options = std::move(options)};
}

// What posts set beforehand, whoever is to blame; then the request without resume over HTTP.
Options PostOf(const Options& body) {
  return body + From("Post", {"47=1"}) + Basics("http://host/form") + HeaderCollection() + Limits("300");
}

ZString WidePath(const TempDir& folder, const char* name) { return ZString((folder / name).c_str()); }

void AddSchemes(std::vector<Scenario>& all) {
  all.push_back(Download("http", L"http://host/page", Basics("http://host/page") + HeaderCollection() + Limits("300")));
  all.push_back(Download("http in capitals", L"HTTP://HOST/Page",
                         Basics("HTTP://HOST/Page") + HeaderCollection() + Limits("300")));
  all.push_back(Download("https without verification", L"https://host/",
                         Basics("https://host/") + HeaderCollection() + Limits("300")));
  all.push_back(Download("ftp", L"ftp://host/file", Basics("ftp://host/file") + Limits("300")));
  all.push_back(Download("ftps", L"FTPS://host/file", Basics("FTPS://host/file") + Limits("300")));
  all.push_back(
      Download("the URL in UTF-8", L"http://host/\u00E9\u20AC\U0001F600",
               Basics("http://host/\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80") + HeaderCollection() + Limits("300")));
  all.push_back(Download("an empty URL", L"", Basics("") + Limits("300")));
  all.push_back(Download("four characters are http", L"http", Basics("http") + HeaderCollection() + Limits("300")));
  all.push_back(Download("three characters are not", L"htt", Basics("htt") + Limits("300")));
  all.push_back(Download("http only at the beginning", L"xhttp://h", Basics("xhttp://h") + Limits("300")));
}

void AddCredentials(std::vector<Scenario>& all) {
  const auto login = [](ZTransfer& transfer) { EXPECT_EQ(transfer.SetCredentials(L"j\u00F6rg", L"pa:ss"), 0u); };
  const std::string user = "10005='j\xC3\xB6rg:pa:ss'";
  all.push_back(Download(
      "http with credentials", L"http://host/",
      Basics("http://host/") + HeaderCollection() + Limits("300") + From("Transfer", {user, "107=8", "68=10000"}),
      login));
  all.push_back(Download(
      "https with credentials", L"Https://host/",
      Basics("Https://host/") + HeaderCollection() + Limits("300") + From("Transfer", {user, "107=9", "68=10000"}),
      login));
  all.push_back(Download("ftp with credentials", L"ftp://host/",
                         Basics("ftp://host/") + Limits("300") + From("Transfer", {user, "107=8"}), login));
}

void AddVerification(std::vector<Scenario>& all, const TempDir& folder) {
  const ZString file = WidePath(folder, "ca.pem");
  const ZString directory = WidePath(folder, "certs");
  const Options before = Basics("HTTPS://host/") + HeaderCollection();
  const Options after = Limits("300");
  const std::string who = "ApplyExtraHttpsSettings";
  all.push_back(Download("HTTPS in capitals, host and directory", L"HTTPS://host/",
                         before + From(who, {"81=2", "64=1", "10097='" + (folder / "certs").string() + "'"}) + after,
                         [=](ZTransfer& transfer) { EXPECT_EQ(transfer.SetSSL(true, true, file, directory), 0u); }));
  all.push_back(Download("HTTPS, peer and file", L"HTTPS://host/",
                         before + From(who, {"64=1", "10065='" + (folder / "ca.pem").string() + "'"}) + after,
                         [=](ZTransfer& transfer) { EXPECT_EQ(transfer.SetSSL(false, true, file, ZString()), 0u); }));
}

void AddTimeouts(std::vector<Scenario>& all) {
  for (const unsigned long seconds : {0UL, 1UL, 7UL, 2147483UL}) {
    const std::string text = std::to_string(seconds);
    all.push_back(Download("time-out " + text, L"http://host/",
                           Basics("http://host/") + HeaderCollection() + Limits(text),
                           [=](ZTransfer& transfer) { transfer.SetTimeout(seconds); }));
  }
}

// `size`: of the file that is there before, none when negative.
Scenario DownloadFile(const std::string& name, const TempDir& folder, long long size, bool resume, bool http,
                      const std::string& position) {
  const std::string url = http ? "http://host/file" : "ftp://host/file";
  Scenario scenario;
  scenario.name = name;
  scenario.isFileOverHttp = http;
  scenario.prepare = [&folder, size] {
    std::filesystem::remove(folder / "out");
    if (size < 0) return;
    WriteFile(folder / "out", "");
    std::filesystem::resize_file(folder / "out", static_cast<std::uintmax_t>(size));
  };
  // Nothing is made here: the memory that an operation takes is its own.
  scenario.run = [wideUrl = ZString(url.c_str()), file = WidePath(folder, "out"), resume](
                     ZTransfer& transfer, ZString&) { return transfer.DownloadFile(wideUrl, file, resume); };
  // A server that does not send what is missing is a failure of its own.
  if (http && position != "0") {
    const long long first = std::stoll(position);
    const std::string range =
        "Content-Range: bytes " + position + "-" + std::to_string(first + 3) + "/" + std::to_string(first + 4) + "\r\n";
    scenario.answer = {
        .headers = {"HTTP/1.1 206 Partial Content\r\n", range, "\r\n"}, .blocks = {"rest"}, .status = 206};
  } else if (position != "0") {
    scenario.answer = {.blocks = {"rest"}};
  }
  scenario.options = Basics(url, position) + (http ? HeaderCollection() : Options()) + Limits("300");
  return scenario;
}

void AddFiles(std::vector<Scenario>& all, const TempDir& folder) {
  all.push_back(DownloadFile("a fresh file", folder, -1, false, true, "0"));
  all.push_back(DownloadFile("an old file without resume", folder, 1000, false, true, "0"));
  all.push_back(DownloadFile("resume of no file", folder, -1, true, true, "0"));
  all.push_back(DownloadFile("resume of an empty file", folder, 0, true, true, "0"));
  all.push_back(DownloadFile("resume of 64 bytes", folder, 64, true, true, "0"));
  all.push_back(DownloadFile("resume of 65 bytes", folder, 65, true, true, "33"));
  all.push_back(DownloadFile("resume of 5 GiB", folder, 5368709120, true, true, "5368709088"));
  all.push_back(DownloadFile("a fresh file over ftp", folder, -1, false, false, "0"));
  all.push_back(DownloadFile("resume over ftp", folder, 1000, true, false, "968"));
}

Scenario Post(const std::string& name, std::function<Corvane::ZResult(ZTransfer&, ZString&)> run, const Options& body) {
  return {.name = name, .run = std::move(run), .options = PostOf(body)};
}

void AddFieldPosts(std::vector<Scenario>& all) {
  const ZString url = L"http://host/form";
  const Fields fields = {{L"b", L"2 3"}, {L"a", L"1&\u00E9"}};
  const std::string body = "10015='a=1&\xC3\xA9&b=2 3'";
  all.push_back(Post(
      "one field", [=](ZTransfer& t, ZString&) { return t.Post(url, L"a", L"1"); }, From("PostData", {"10015='a=1'"})));
  all.push_back(Post(
      "one field with an answer", [=](ZTransfer& t, ZString& result) { return t.Post(url, L"", L"", result); },
      From("PostData", {"10015='='"})));
  all.push_back(Post(
      "fields in the order of their names", [=](ZTransfer& t, ZString&) { return t.Post(url, fields); },
      From("PostData", {body})));
  all.push_back(Post(
      "fields with an answer", [=](ZTransfer& t, ZString& result) { return t.Post(url, fields, result); },
      From("PostData", {body})));
  all.push_back(Post(
      "no fields", [=](ZTransfer& t, ZString&) { return t.Post(url, Fields()); }, From("PostData", {"10015=''"})));
}

void AddDataPosts(std::vector<Scenario>& all, const TempDir& folder) {
  const ZString url = L"http://host/form";
  const ZString in = WidePath(folder, "in");
  const ZString empty = WidePath(folder, "empty");
  const ZString out = WidePath(folder, "out");
  all.push_back(Post(
      "data", [=](ZTransfer& t, ZString&) { return t.PostData(url, L"\u20AC 5"); },
      From("PostData", {"10015='\xE2\x82\xAC 5'"})));
  all.push_back(Post(
      "data with an answer", [=](ZTransfer& t, ZString& result) { return t.PostData(url, L"x", result); },
      From("PostData", {"10015='x'"})));
  all.push_back(Post(
      "a posted file", [=](ZTransfer& t, ZString&) { return t.PostFile(url, in); },
      From("PostFile", {"10009=pointer", "30120=11"})));
  all.push_back(Post(
      "a posted file with an answer", [=](ZTransfer& t, ZString&) { return t.PostFile(url, in, out); },
      From("PostFile", {"10009=pointer", "30120=11"})));
  all.push_back(Post(
      "a posted file with an empty name for the answer",
      [=](ZTransfer& t, ZString&) { return t.PostFile(url, in, ZString()); },
      From("PostFile", {"10009=pointer", "30120=11"})));
  all.push_back(Post(
      "an empty posted file", [=](ZTransfer& t, ZString&) { return t.PostFile(url, empty); },
      From("PostFile", {"10009=pointer", "30120=0"})));
}

}  // namespace

std::vector<ExpectedOption> From(const std::string& who, const std::vector<std::string>& texts) {
  std::vector<ExpectedOption> options;
  for (const std::string& text : texts) options.push_back({text, who});
  return options;
}

std::vector<ExpectedOption> operator+(std::vector<ExpectedOption> first, const std::vector<ExpectedOption>& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

std::vector<std::string> Texts(const std::vector<ExpectedOption>& options) {
  std::vector<std::string> texts;
  for (const ExpectedOption& option : options) texts.push_back(option.text);
  return texts;
}

std::vector<ExpectedOption> Basics(const std::string& url, const std::string& position) {
  return From("Transfer", {"10002='" + url + "'", "43=1", "99=1", "64=0", "81=0", "20011=function", "10001=pointer",
                           "30116=" + position, "10010=pointer"});
}

std::vector<ExpectedOption> HeaderCollection() { return From("Transfer", {"20079=function", "10029=pointer"}); }

std::vector<ExpectedOption> Limits(const std::string& seconds) {
  return From("Transfer", {"13=" + seconds, "78=" + seconds});
}

std::vector<Scenario> AllScenarios(const TempDir& folder) {
  WriteFile(folder / "ca.pem", "no certificate");
  WriteFile(folder / "in", "eleven byte");
  WriteFile(folder / "empty", "");
  std::filesystem::create_directory(folder / "certs");
  std::vector<Scenario> all;
  AddSchemes(all);
  AddCredentials(all);
  AddVerification(all, folder);
  AddTimeouts(all);
  AddFiles(all, folder);
  AddFieldPosts(all);
  AddDataPosts(all, folder);
  return all;
}

}  // namespace CorvaneTest
