#include <gmock/gmock.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "tests/loopback/AdditionsTesting.h"
#include "tests/support/ScriptedFtpServer.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TempDir.h"

// A body handed to a sink from an offset on: only ever that part of the resource, and only when all of it comes.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::IsEmpty;

constexpr const char* kChanged = "The file on the server has changed. Cannot resume.";
constexpr const char* kNoRest = "The server did not send the rest of the file. Cannot resume.";

class ASinkFromAnOffset : public testing::Test {
 protected:
  ZResult From(unsigned long long offset, const std::string& url) {
    sink.collected.clear();
    return transfer.Download(Wide(url), sink, offset);
  }

  void Check(const std::string& validator, bool askTime = false) {
    ZTransferOptions options;
    options.checkResume = true;
    options.validator = Wide(validator);
    options.askModificationTime = askTime;
    EXPECT_THAT(transfer.SetOptions(options), IsCode(BASE_S_OK));
  }

  void ExpectRefused(unsigned long long offset, const std::string& url, const std::string& text) {
    EXPECT_THAT(From(offset, url), IsCode(CurlFailure(kRangeError)));
    EXPECT_EQ(ErrorOf(transfer), text);
    EXPECT_THAT(CauseOf(transfer), IsCode(CurlFailure(kRangeError)));
    EXPECT_EQ(sink.collected, "");
  }

  static ContentOptions Tagged(const std::string& tag) {
    ContentOptions options;
    options.headers = {{"ETag", tag}};
    return options;
  }

  // A 206 with this Content-Range and this body, whatever was asked for.
  static Responder Part(const std::string& range, const std::string& body) {
    return Status(206, body, {{"Content-Range", range}});
  }

  const std::string content = MakePattern(100000);
  ZTransfer transfer;
  CollectingSink sink;
};

TEST_F(ASinkFromAnOffset, IsHandedTheRest) {
  ScriptedServer server(KeepAlive(Content(content)));
  for (const unsigned long long offset : {1ULL, 31ULL, 65536ULL, 99999ULL}) {
    EXPECT_THAT(From(offset, server.Url()), IsCode(TRANSFER_S_FINISHED)) << offset;
    EXPECT_EQ(sink.collected, content.substr(static_cast<std::size_t>(offset)));
    EXPECT_EQ(server.Requests().back().Header("Range"), "bytes=" + std::to_string(offset) + "-");
    EXPECT_FALSE(server.Requests().back().Header("If-Range"));
    EXPECT_EQ(transfer.GetContentSize(), content.size());
    EXPECT_EQ(transfer.GetDownloadSize(), content.size());
    EXPECT_EQ(transfer.GetHttpStatus(), 206);
  }
}

TEST_F(ASinkFromAnOffset, OfZeroIsHandedTheWhole) {
  ScriptedServer server(KeepAlive(Content(content)));
  Check("\"v1\"");
  EXPECT_THAT(From(0, server.Url()), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(sink.collected, content);
  EXPECT_FALSE(server.Requests()[0].Header("Range"));
  EXPECT_FALSE(server.Requests()[0].Header("If-Range"));
}

TEST_F(ASinkFromAnOffset, CountsFromTheOffsetOn) {
  ScriptedServer server(KeepAlive(Content(content)));
  std::optional<unsigned long long> first;
  sink.onWrite = [&] {
    if (!first) first = transfer.GetDownloadSize();
  };
  From(70000, server.Url());
  EXPECT_EQ(first, 70000u);
}

TEST_F(ASinkFromAnOffset, MayLieBehind4GiB) {
  constexpr unsigned long long kOffset = (5ULL << 30) + 7;
  const std::string last = std::to_string(kOffset + 9), total = std::to_string(kOffset + 10);
  ScriptedServer server(
      KeepAlive(Part("bytes " + std::to_string(kOffset) + "-" + last + "/" + total, content.substr(0, 10))));
  EXPECT_THAT(From(kOffset, server.Url()), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(sink.collected, content.substr(0, 10));
  EXPECT_EQ(server.Requests()[0].Header("Range"), "bytes=" + std::to_string(kOffset) + "-");
  EXPECT_EQ(transfer.GetContentSize(), kOffset + 10);
  EXPECT_EQ(transfer.GetDownloadSize(), kOffset + 10);
}

TEST_F(ASinkFromAnOffset, ThatNoFileHasIsRefusedWithoutARequest) {
  ScriptedServer server(KeepAlive(Content(content)));
  ExpectRefused(1ULL << 63, server.Url(), "No file has an offset of 9223372036854775808 bytes.");
  ExpectRefused(~0ULL, server.Url(), "No file has an offset of 18446744073709551615 bytes.");
  EXPECT_THAT(server.Requests(), IsEmpty());
}

TEST_F(ASinkFromAnOffset, IsHandedNothingOfAWhole) {
  ContentOptions options;
  options.ranges = ContentOptions::Ranges::kIgnored;
  ScriptedServer server(OncePerConnection(Content(content, options)));
  EXPECT_THAT(From(500, server.Url()), IsCode(CurlFailure(kRangeError)));
  EXPECT_EQ(sink.collected, "");
  EXPECT_EQ(transfer.GetHttpStatus(), 200);
}

TEST_F(ASinkFromAnOffset, IsHandedNothingOfAnotherPart) {
  for (const char* range : {"bytes */1000", "bytes x-y/z"}) {
    ScriptedServer server(OncePerConnection(Part(range, "0123456789")));
    EXPECT_THAT(From(500, server.Url()), IsCode(CurlFailure(kRangeError))) << range;
    EXPECT_EQ(sink.collected, "") << range;
  }
  ScriptedServer twice(OncePerConnection(
      Status(206, "0123456789", {{"Content-Range", "bytes 500-509/1000"}, {"Content-Range", "bytes 500-509/510"}})));
  ExpectRefused(500, twice.Url(), kNoRest);
}

TEST_F(ASinkFromAnOffset, IsHandedNothingBehindTheAnnouncedEnd) {
  ScriptedServer server(OncePerConnection(Part("bytes 500-504/505", "0123456789")));
  ExpectRefused(500, server.Url(), "The server sent more than the range it announced. Cannot resume.");
}

TEST_F(ASinkFromAnOffset, IsNoSuccessBeforeTheResourceEnds) {
  ScriptedServer announced(OncePerConnection(Part("bytes 500-509/1000", "0123456789")));
  EXPECT_THAT(From(500, announced.Url()), IsCode(CurlFailure(kPartialFile)));
  EXPECT_EQ(ErrorOf(transfer), "The server sent only 510 of the file's 1000 bytes. The rest is still missing.");
  EXPECT_EQ(sink.collected, "0123456789") << "it can go on from there";
  ContentOptions options;
  options.stopAfter = 20000;
  ScriptedServer delivered(OncePerConnection(Content(content, options)));
  EXPECT_THAT(From(500, delivered.Url()), IsCode(CurlFailure(kPartialFile)));
  EXPECT_EQ(sink.collected, content.substr(500, 20000));
}

TEST_F(ASinkFromAnOffset, AtTheEndOfTheResourceIsHandedNothingAndComplete) {
  ContentOptions options;
  options.ranges = ContentOptions::Ranges::kIgnored;
  ScriptedServer server(OncePerConnection(Content(content, options)));
  EXPECT_THAT(From(content.size(), server.Url()), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(sink.collected, "");
}

// Most servers say 416 then, and how long the resource is.
TEST_F(ASinkFromAnOffset, IsHandedNoPageOfARefusal) {
  ZTransferOptions options;
  options.handOnErrorPages = true;
  EXPECT_THAT(transfer.SetOptions(options), IsCode(BASE_S_OK));
  ScriptedServer server(OncePerConnection(Routes(
      {{"/end", Content(content)}, {"/odd", Status(404, "page", {{"Content-Range", "bytes 100000-100003/100004"}})}})));
  for (const auto& [path, status] : {std::pair("/end", 416), std::pair("/gone", 404), std::pair("/odd", 404)}) {
    EXPECT_THAT(From(content.size(), server.Url(path)), IsCode(TRANSFER_E_CONNECT)) << path;
    EXPECT_EQ(ErrorOf(transfer), "Failed to connect to the specified URL, " + server.Url(path));
    EXPECT_EQ(transfer.GetHttpStatus(), status);
    EXPECT_EQ(sink.collected, "");
  }
}

TEST_F(ASinkFromAnOffset, KeepsTheFailureOfAConnection) {
  std::string url;
  {
    ScriptedServer server(KeepAlive(Content(content)));
    url = server.Url();
  }
  EXPECT_THAT(From(5, url), IsCode(CurlFailure(kRefusedConnection)));
}

TEST_F(ASinkFromAnOffset, EndsWhenTheSinkTakesLess) {
  ScriptedServer server(OncePerConnection(Content(content)));
  sink.room = 100;
  EXPECT_THAT(From(500, server.Url()), IsCode(CurlFailure(kWriteError)));
  EXPECT_EQ(sink.collected, content.substr(500, 100));
  EXPECT_EQ(transfer.GetDownloadSize(), 600u);
}

TEST_F(ASinkFromAnOffset, PassesAnExceptionToTheCaller) {
  ScriptedServer server(OncePerConnection(Content(content)));
  sink.thrown = true;
  EXPECT_THROW(From(500, server.Url()), std::runtime_error);
  sink.thrown = false;
  EXPECT_THAT(From(500, server.Url()), IsCode(TRANSFER_S_FINISHED));
}

// --- checked

TEST_F(ASinkFromAnOffset, ThatIsCheckedAsksForTheSameVersion) {
  ScriptedServer server(KeepAlive(Content(content, Tagged("\"v1\""))));
  Check("\"v1\"");
  EXPECT_THAT(From(500, server.Url()), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(server.Requests()[0].Header("If-Range"), "\"v1\"");
  EXPECT_EQ(sink.collected, content.substr(500));
}

TEST_F(ASinkFromAnOffset, ThatIsCheckedIsHandedNothingOfAnotherVersion) {
  Check("\"v1\"");
  ScriptedServer spliced(OncePerConnection(Content(content, Tagged("\"v2\""))));
  ExpectRefused(500, spliced.Url(), kChanged);
  ContentOptions whole = Tagged("\"v2\"");
  whole.ranges = ContentOptions::Ranges::kIgnored;
  ScriptedServer obedient(OncePerConnection(Content(content, whole)));
  ExpectRefused(500, obedient.Url(), kChanged);
  ExpectRefused(content.size(), obedient.Url(), kChanged);
}

TEST_F(ASinkFromAnOffset, OverHttpIsNotProvenByAnFtpValidator) {
  Check("SIZE 100000 MDTM 1795255200");
  ScriptedServer server(OncePerConnection(Content(content)));
  ExpectRefused(500, server.Url(), kChanged);
  EXPECT_FALSE(server.Requests()[0].Header("If-Range"));
}

// --- FTP

TEST_F(ASinkFromAnOffset, OverFtpIsHandedTheRest) {
  ScriptedFtpServer server({{"/f", content}});
  EXPECT_THAT(From(500, server.Url("/f")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(server.HasCommand("REST 500"));
  EXPECT_EQ(sink.collected, content.substr(500));
  EXPECT_EQ(transfer.GetContentSize(), content.size());
  EXPECT_EQ(transfer.GetDownloadSize(), content.size());
}

TEST_F(ASinkFromAnOffset, OverFtpAtTheEndIsCompleteOnlyWhereTheServerSaysSo) {
  ScriptedFtpServer server({{"/f", content}});
  EXPECT_THAT(From(content.size(), server.Url("/f")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(sink.collected, "");
  EXPECT_THAT(From(content.size() + 1, server.Url("/f")), IsCode(CurlFailure(kBadResume)));
  server.SetReply("SIZE", "502 What?");
  ExpectRefused(content.size(), server.Url("/f"), kNoRest);
}

TEST_F(ASinkFromAnOffset, OverFtpThatIsCheckedIsHandedNothingOfAnotherVersion) {
  ScriptedFtpServer server({{"/f", content}});
  server.SetModificationTime("/f", "20261121100000");
  Check("SIZE 100000 MDTM 1795255200", true);
  EXPECT_THAT(From(500, server.Url("/f")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(sink.collected, content.substr(500));
  EXPECT_THAT(From(content.size(), server.Url("/f")), IsCode(TRANSFER_S_FINISHED));
  server.SetModificationTime("/f", "20261121100001");
  ExpectRefused(500, server.Url("/f"), kChanged);
  ExpectRefused(content.size(), server.Url("/f"), kChanged);
  ExpectRefused(content.size() + 1, server.Url("/f"), kChanged);
}

}  // namespace
}  // namespace CorvaneTest
