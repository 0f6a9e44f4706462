#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/HttpResponders.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/Sockets.h"
#include "tests/support/TempDir.h"

// Where the answers of posts go, and what becomes of refused and failed ones.
namespace CorvaneTest {
namespace {

using namespace Corvane;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

namespace fs = std::filesystem;

using Fields = ZMap<ZString, ZString, ZLtstr>;

constexpr unsigned int kEmptyReply = 52;
constexpr unsigned int kSendError = 55;

class ZTransferPostAnswer : public testing::Test {
 protected:
  ZTransferPostAnswer() { WriteFile(m_folder / "input", "posted"); }

  ZString Input() const { return WidePath(m_folder / "input"); }
  fs::path Output() const { return m_folder / "output"; }

  struct Form {
    std::string name;
    std::function<ZResult(const ZString& url)> post;
    bool hasResult = false;
  };

  // Every overload. Those with a result write to m_result, the one with a file to Output().
  std::vector<Form> Forms() {
    const Fields fields{{L"a", L"1"}};
    return {
        {"field", [this](const ZString& url) { return m_transfer.Post(url, L"a", L"1"); }},
        {"field with result", [this](const ZString& url) { return m_transfer.Post(url, L"a", L"1", m_result); }, true},
        {"map", [=, this](const ZString& url) { return m_transfer.Post(url, fields); }},
        {"map with result", [=, this](const ZString& url) { return m_transfer.Post(url, fields, m_result); }, true},
        {"data", [this](const ZString& url) { return m_transfer.PostData(url, L"x"); }},
        {"data with result", [this](const ZString& url) { return m_transfer.PostData(url, L"x", m_result); }, true},
        {"file", [this](const ZString& url) { return m_transfer.PostFile(url, Input()); }},
        {"file into file",
         [this](const ZString& url) { return m_transfer.PostFile(url, Input(), WidePath(Output())); }},
    };
  }

  TempDir m_folder;
  ZTransfer m_transfer;
  ZString m_result;
};

// --- answers

TEST_F(ZTransferPostAnswer, GoesIntoTheResultAsUtf8) {
  ScriptedServer server(KeepAlive(Status(200, "\xE2\x82\xAC 5\n")));
  for (const Form& form : Forms()) {
    m_result = L"before";
    EXPECT_THAT(form.post(Wide(server.Url())), IsCode(TRANSFER_S_FINISHED)) << form.name;
    EXPECT_EQ(Narrow(m_result), form.hasResult ? "\xE2\x82\xAC 5\n" : "before") << form.name;
    EXPECT_EQ(m_transfer.GetDownloadSize(), 6u) << form.name << ": dropped or not, it was received";
    EXPECT_EQ(m_transfer.GetContentSize(), 6u) << form.name;
  }
}

TEST_F(ZTransferPostAnswer, MayBeEmpty) {
  for (const int status : {200, 204, 299}) {
    ScriptedServer server(KeepAlive(Status(status)));
    for (const Form& form : Forms()) {
      m_result = L"before";
      EXPECT_THAT(form.post(Wide(server.Url())), IsCode(TRANSFER_S_FINISHED)) << form.name;
      EXPECT_EQ(Narrow(m_result), form.hasResult ? "" : "before") << form.name;
      EXPECT_EQ(m_transfer.GetContentSize(), kUnknownSize) << form.name;
    }
    EXPECT_TRUE(FileHolds(Output(), ""));
  }
}

TEST_F(ZTransferPostAnswer, GoesIntoTheFileByteByByte) {
  for (const std::size_t size : {1u, 4096u, 300000u}) {
    for (const auto framing : {ContentOptions::Framing::kContentLength, ContentOptions::Framing::kChunked,
                               ContentOptions::Framing::kUntilClose}) {
      const std::string answer = MakePattern(size);
      ContentOptions options;
      options.framing = framing;
      ScriptedServer server(KeepAlive(Content(answer, options)));
      EXPECT_THAT(m_transfer.PostFile(Wide(server.Url()), Input(), WidePath(Output())), IsCode(TRANSFER_S_FINISHED));
      EXPECT_TRUE(FileHolds(Output(), answer));
      EXPECT_EQ(m_transfer.GetDownloadSize(), size);
    }
  }
  EXPECT_TRUE(FileHolds(m_folder / "input", "posted"));
}

TEST_F(ZTransferPostAnswer, ReplacesALongerFile) {
  ScriptedServer server(KeepAlive(Status(200, "new")));
  WriteFile(Output(), MakePattern(100000));
  EXPECT_THAT(m_transfer.PostFile(Wide(server.Url()), Input(), WidePath(Output())), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(Output(), "new"));
}

TEST_F(ZTransferPostAnswer, OfAFileIsDroppedWithoutAnOutputFile) {
  ScriptedServer server(KeepAlive(Status(200, "dropped")));
  EXPECT_THAT(m_transfer.PostFile(Wide(server.Url()), Input()), IsCode(TRANSFER_S_FINISHED));
  const std::string text = ErrorOf(m_transfer);
  EXPECT_THAT(m_transfer.PostFile(Wide(server.Url()), Input(), ZString()), IsCode(TRANSFER_S_FINISHED));
  EXPECT_EQ(ErrorOf(m_transfer), text);
  EXPECT_THAT(NamesIn(m_folder.Path()), ElementsAre("input"));
  ASSERT_EQ(server.Requests().size(), 2u);
  EXPECT_EQ(server.Requests()[0].raw, server.Requests()[1].raw);
  EXPECT_EQ(server.Requests()[0].body, server.Requests()[1].body);
}

TEST_F(ZTransferPostAnswer, GoesWhereTheLatestOperationSays) {
  ScriptedServer server(KeepAlive([](Connection& peer, const Request& request) {
    Status(200, request.method + " of " + request.Path())(peer, request);
  }));
  const auto url = [&](const char* path) { return Wide(server.Url(path)); };
  for (int round = 0; round < 2; ++round) {
    EXPECT_THAT(m_transfer.PostFile(url("/file"), Input(), WidePath(Output())), IsCode(TRANSFER_S_FINISHED));
    EXPECT_THAT(m_transfer.Download(url("/text"), m_result), IsCode(TRANSFER_S_FINISHED));
    EXPECT_EQ(Narrow(m_result), "GET of /text");
    EXPECT_TRUE(FileHolds(Output(), "POST of /file"));
    EXPECT_THAT(m_transfer.PostFile(url("/file"), Input(), WidePath(Output())), IsCode(TRANSFER_S_FINISHED));
    EXPECT_THAT(m_transfer.PostData(url("/data"), L"x", m_result), IsCode(TRANSFER_S_FINISHED));
    EXPECT_EQ(Narrow(m_result), "POST of /data");
    EXPECT_THAT(m_transfer.PostFile(url("/file"), Input(), WidePath(Output())), IsCode(TRANSFER_S_FINISHED));
    EXPECT_THAT(m_transfer.PostFile(url("/dropped"), Input()), IsCode(TRANSFER_S_FINISHED));
    EXPECT_THAT(m_transfer.DownloadFile(url("/other"), WidePath(m_folder / "other"), false),
                IsCode(TRANSFER_S_FINISHED));
    EXPECT_TRUE(FileHolds(Output(), "POST of /file"));
    EXPECT_TRUE(FileHolds(m_folder / "other", "GET of /other"));
  }
}

// --- refused posts

TEST_F(ZTransferPostAnswer, OutsideTwoHundredIsAFailureWithTheUrl) {
  struct Refusal {
    const char* name;
    Responder responder;
    std::string page;
  };
  const Refusal refusals[] = {
      {"500", Status(500, "broken"), "broken"}, {"404", Status(404, "not here"), "not here"},
      {"300", Status(300, "choose"), "choose"}, {"302", Redirect("/elsewhere"), ""},
      {"303", Redirect("/elsewhere", 303), ""}, {"empty", Status(403), ""},
  };
  for (const Refusal& refusal : refusals) {
    ScriptedServer server(KeepAlive(refusal.responder));
    const std::string url = server.Url("/form?100%25");
    std::size_t posts = 0;
    for (const Form& form : Forms()) {
      SCOPED_TRACE(std::string(refusal.name) + ", " + form.name);
      m_result = L"before";
      EXPECT_THAT(form.post(Wide(url)), IsCode(TRANSFER_E_POST));
      EXPECT_THAT(m_transfer.GetStatus(), IsCode(TRANSFER_E_POST));
      EXPECT_EQ(ErrorOf(m_transfer), "Post failed, " + url);
      EXPECT_THAT(CauseOf(m_transfer), IsCode(TRANSFER_S_FINISHED));
      EXPECT_EQ(server.Requests().size(), ++posts) << "no redirect is followed";
      EXPECT_EQ(Narrow(m_result), form.hasResult ? refusal.page : "before");
    }
    EXPECT_TRUE(FileHolds(Output(), refusal.page)) << refusal.name;
  }
}

TEST_F(ZTransferPostAnswer, IsCheckedWhateverDetectHttpErrorSays) {
  ScriptedServer server(KeepAlive(Status(500, "broken")));
  for (const bool detect : {true, false}) {
    m_transfer.DetectHttpError(detect);
    for (const Form& form : Forms()) {
      EXPECT_THAT(form.post(Wide(server.Url())), IsCode(TRANSFER_E_POST)) << form.name;
      EXPECT_EQ(ErrorOf(m_transfer), "Post failed, " + server.Url()) << form.name;
    }
  }
}

// A server that has seen enough answers before it has read the whole body.
class ZTransferEarlyRefusal : public ZTransferPostAnswer, public testing::WithParamInterface<std::size_t> {};

TEST_P(ZTransferEarlyRefusal, EndsTheUploadAndIsReported) {
  const std::size_t bytesRead = GetParam();
  ScriptedServer server([&](Connection& peer) {
    const std::optional<Request> request = peer.ReadRequest(Body::kLeave);
    if (!request) return;
    if (bytesRead > 0) {
      peer.Send("HTTP/1.1 100 Continue\r\n\r\n");
      EXPECT_EQ(peer.ReadExactly(bytesRead).size(), bytesRead);
    }
    Status(500, "too much")(peer, *request);
    peer.WaitUntilPeerCloses();  // closing before that could cost the client the answer
  });
  fs::resize_file(m_folder / "input", 32 << 20);  // more than the socket buffers hold
  EXPECT_THAT(m_transfer.PostFile(Wide(server.Url()), Input(), WidePath(Output())), IsCode(TRANSFER_E_POST));
  EXPECT_EQ(ErrorOf(m_transfer), "Post failed, " + server.Url());
  EXPECT_TRUE(FileHolds(Output(), "too much"));
  const ZString data(std::wstring(12 << 20, L'x'));
  EXPECT_THAT(m_transfer.PostData(Wide(server.Url()), data, m_result), IsCode(TRANSFER_E_POST));
  EXPECT_EQ(ErrorOf(m_transfer), "Post failed, " + server.Url());
  EXPECT_EQ(Narrow(m_result), "too much");
}

INSTANTIATE_TEST_SUITE_P(AfterBytes, ZTransferEarlyRefusal, testing::Values(0, 1, 100000),
                         testing::PrintToStringParamName());

// --- failed transfers keep the code and the text of libcurl

TEST_F(ZTransferPostAnswer, ThatNeverComesIsLibcurlsFailure) {
  const PortReservation nobody;  // bound, but not listening
  const std::string refused = "http://127.0.0.1:" + std::to_string(nobody.Port()) + "/";
  ScriptedServer silent([](Connection& peer) { peer.ReadRequest(); });
  struct Failure {
    std::string url;
    unsigned int curlCode;
  };
  const Failure failures[] = {{refused, kRefusedConnection},
                              {silent.Url(), kEmptyReply},
                              {"nosuch://127.0.0.1/", kUnsupportedProtocol},
                              {"http://127.0.0.1:port/", kMalformedUrl}};
  for (const Failure& failure : failures) {
    for (const Form& form : Forms()) {
      SCOPED_TRACE(failure.url + ", " + form.name);
      m_result = L"before";
      EXPECT_THAT(form.post(Wide(failure.url)), IsCode(CurlFailure(failure.curlCode)));
      EXPECT_THAT(CauseOf(m_transfer), IsCode(CurlFailure(failure.curlCode)));
      EXPECT_EQ(ErrorOf(m_transfer), CauseTextOf(m_transfer));
      EXPECT_EQ(Narrow(m_result), form.hasResult ? "" : "before") << "nothing was received";
    }
    // The file was emptied for the answer, and stays.
    EXPECT_TRUE(FileHolds(Output(), ""));
    WriteFile(Output(), "of an earlier post");
  }
}

TEST_F(ZTransferPostAnswer, ThatIsCutShortIsLibcurlsFailureAndIsKept) {
  for (const int status : {200, 500}) {
    ContentOptions options;
    options.status = status;
    options.stopAfter = 3;
    ScriptedServer server(KeepAlive(Content("answer", options)));
    for (const Form& form : Forms()) {
      SCOPED_TRACE(std::to_string(status) + ", " + form.name);
      EXPECT_THAT(form.post(Wide(server.Url())), IsCode(CurlFailure(kPartialFile)));
      EXPECT_THAT(ErrorOf(m_transfer), Not(IsEmpty()));
      EXPECT_EQ(ErrorOf(m_transfer), CauseTextOf(m_transfer));
      if (form.hasResult) {
        EXPECT_EQ(Narrow(m_result), "ans");
      }
    }
    EXPECT_TRUE(FileHolds(Output(), "ans"));
  }
}

TEST_F(ZTransferPostAnswer, OfAServerThatClosesDuringTheUploadIsLibcurlsFailure) {
  ScriptedServer server([](Connection& peer) {
    peer.ReadRequest(Body::kLeave);
    peer.Send("HTTP/1.1 100 Continue\r\n\r\n");
    peer.ReadExactly(100000);
  });
  fs::resize_file(m_folder / "input", 32 << 20);
  const auto isFailure = testing::AnyOf(IsCode(CurlFailure(kEmptyReply)), IsCode(CurlFailure(kSendError)),
                                        IsCode(CurlFailure(kReceiveError)));
  const ZResult file = m_transfer.PostFile(Wide(server.Url()), Input(), WidePath(Output()));
  EXPECT_THAT(file, isFailure);
  EXPECT_THAT(CauseOf(m_transfer), IsCode(file));
  EXPECT_TRUE(FileHolds(Output(), ""));
  const ZResult data = m_transfer.PostData(Wide(server.Url()), ZString(std::wstring(12 << 20, L'x')), m_result);
  EXPECT_THAT(data, isFailure);
  EXPECT_THAT(CauseOf(m_transfer), IsCode(data));
  EXPECT_EQ(Narrow(m_result), "");
}

// After whatever failure the object works as a new one does.
TEST_F(ZTransferPostAnswer, FollowsAFailedPost) {
  ScriptedServer broken(KeepAlive(Status(500, "broken")));
  ScriptedServer silent([](Connection& peer) { peer.ReadRequest(); });
  ScriptedServer server(KeepAlive(Status(200, "fine")));
  for (const std::string& url : {broken.Url(), silent.Url()}) {
    for (const Form& form : Forms()) {
      EXPECT_TRUE(IsFailure(form.post(Wide(url)))) << form.name;
      EXPECT_THAT(m_transfer.PostData(Wide(server.Url()), L"x", m_result), IsCode(TRANSFER_S_FINISHED)) << form.name;
      EXPECT_EQ(Narrow(m_result), "fine") << form.name;
      EXPECT_EQ(ErrorOf(m_transfer), "Transfer has finished successfully") << form.name;
      ASSERT_THAT(server.Requests(), Not(IsEmpty()));
      EXPECT_EQ(server.Requests().back().body, "x") << form.name << ": nothing of the former body";
    }
  }
}

}  // namespace
}  // namespace CorvaneTest
