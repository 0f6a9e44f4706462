// How downloads into files and posts of files treat the files.

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/Result.h>

#include "tests/recorder/ScriptedFiles.h"
#include "tests/recorder/TransferTest.h"
#include "tests/support/Env.h"

namespace CorvaneTest {
namespace {

// An answer that continues a file from `position` on.
Answer RestFrom(std::size_t position, const std::string& body) {
  const std::size_t end = position + body.size();
  return {
      .headers = {"HTTP/1.1 206 Partial Content\r\n", "Content-Range: bytes " + std::to_string(position) + "-" +
                                                          std::to_string(end - 1) + "/" + std::to_string(end) + "\r\n"},
      .blocks = {body}};
}

class ADownloadedFile : public TransferTest {
 protected:
  std::string OutPath() { return (folder / "out").string(); }
  ZResult Fresh() { return transfer.DownloadFile(L"http://h/", Path("out"), false); }
  ZResult Resume() { return transfer.DownloadFile(L"http://h/", Path("out"), true); }

  // What happens to a file that held so many bytes: an empty one needs no truncation.
  std::vector<std::string> OpenedAfresh(std::size_t size) {
    std::vector<std::string> calls{"fopen w " + OutPath(), "fclose"};
    if (size != 0) calls.insert(calls.begin() + 1, "ftruncate 0");
    return calls;
  }

  ZTransfer transfer;
};

TEST_F(ADownloadedFile, IsTruncatedWithoutResumeWhateverItsSize) {
  for (const std::size_t size : {0u, 64u, 65u, 1000u}) {
    WriteFile(folder / "out", MakePattern(size));
    curl.Respond(200, {.blocks = {"new"}});
    ScriptedFiles files;
    EXPECT_EQ(Fresh(), kFinished);
    EXPECT_THAT(files.calls, ElementsAreArray(OpenedAfresh(size))) << size;
    EXPECT_EQ(ReadFile(folder / "out"), "new") << size;
  }
}

TEST_F(ADownloadedFile, IsResumedOnlyWhenItIsLongerThan64Bytes) {
  for (const std::size_t size : {0u, 1u, 63u, 64u}) {
    WriteFile(folder / "out", MakePattern(size));
    curl.Respond(200, {.blocks = {"new"}});
    ScriptedFiles files;
    EXPECT_EQ(Resume(), kFinished);
    EXPECT_THAT(files.calls, ElementsAreArray(OpenedAfresh(size))) << size;
    EXPECT_EQ(ReadFile(folder / "out"), "new") << size;
    EXPECT_EQ(transfer.GetDownloadSize(), 3u);
  }
  WriteFile(folder / "out", MakePattern(65));
  curl.Respond(206, RestFrom(33, std::string(32, 'x')));
  ScriptedFiles files;
  EXPECT_EQ(Resume(), kFinished);
  EXPECT_THAT(files.calls, ElementsAre("fopen r+ " + OutPath(), "fseek 33", "fclose"));
  EXPECT_EQ(ReadFile(folder / "out"), MakePattern(33) + std::string(32, 'x')) << "the last 32 bytes are overwritten";
  EXPECT_EQ(transfer.GetDownloadSize(), 65u);
}

TEST_F(ADownloadedFile, StartsAfreshWhenItCannotBeOpenedForAResume) {
  WriteFile(folder / "out", MakePattern(1000));
  curl.Respond(200, {.blocks = {"new"}});
  ScriptedFiles files;
  files.onOpen = [](const std::string&, const std::string& mode) { return mode == "r+" ? EACCES : 0; };
  EXPECT_EQ(Resume(), kFinished);
  EXPECT_THAT(files.calls, ElementsAre("fopen r+ " + OutPath(), "fopen w " + OutPath(), "ftruncate 0", "fclose"));
  EXPECT_THAT(curl.ValuesOf(CURLOPT_RESUME_FROM_LARGE), ElementsAre("0"));
  EXPECT_THAT(logger.Lines(), testing::Not(testing::Contains(testing::HasSubstr("Resuming"))));
  EXPECT_EQ(ReadFile(folder / "out"), "new");
}

TEST_F(ADownloadedFile, ThatCannotBeOpenedIsNamedWithTheReasonOfTheLastTry) {
  WriteFile(folder / "out", MakePattern(1000));
  ScriptedFiles files;
  files.onOpen = [](const std::string&, const std::string& mode) { return mode == "r+" ? EACCES : EROFS; };
  curl.Clear();
  for (const bool resume : {false, true}) {
    EXPECT_EQ(transfer.DownloadFile(L"http://h/", Path("out"), resume), Corvane::TRANSFER_E_DOWNLOAD);
    EXPECT_EQ(Outcome(transfer), "0x8001138A Failed to open output file " + OutPath() + ": " +
                                     Narrow(Corvane::ZGetErrorMsg(Corvane::ResultFromErrno(EROFS))));
  }
  EXPECT_THAT(curl.Options(), IsEmpty()) << "no request is prepared";
  EXPECT_EQ(FileSize(folder / "out"), 1000u);
}

TEST_F(ADownloadedFile, HasANameThatTheLocaleCanExpress) {
  const ZString name = Path("new/") + L"caf\u00E9";
  {
    const ScopedLocale ascii("C");
    EXPECT_EQ(transfer.DownloadFile(L"http://h/", name, true), Corvane::TRANSFER_E_DOWNLOAD);
  }
  EXPECT_EQ(transfer.GetError(), L"Download failed: Output file name '" + name + L"' contains invalid characters");
  EXPECT_FALSE(std::filesystem::exists(folder / "new")) << "no directory is made";
  EXPECT_EQ(transfer.DownloadFile(L"http://h/", name, true), kFinished);
  EXPECT_TRUE(std::filesystem::exists(folder / "new" / "caf\xC3\xA9"));
}

TEST_F(ADownloadedFile, HasANameAtAll) {
  EXPECT_EQ(transfer.DownloadFile(L"http://h/", ZString(), false), Corvane::TRANSFER_E_DOWNLOAD);
  EXPECT_EQ(Outcome(transfer), "0x8001138A Failed to open output file : " +
                                   Narrow(Corvane::ZGetErrorMsg(Corvane::ResultFromErrno(ENOENT))));
}

TEST_F(ADownloadedFile, GetsItsMissingDirectoriesWhichStayAfterAFailure) {
  EXPECT_EQ(transfer.DownloadFile(L"http://h/", Path("a/b/c/out"), false), kFinished);
  EXPECT_TRUE(std::filesystem::exists(folder / "a/b/c/out"));
  curl.Respond(404, {});
  EXPECT_EQ(transfer.DownloadFile(L"http://h/", Path("d/e/out"), false), Corvane::TRANSFER_E_CONNECT);
  EXPECT_TRUE(std::filesystem::is_directory(folder / "d/e"));
  EXPECT_FALSE(std::filesystem::exists(folder / "d/e/out"));
}

TEST_F(ADownloadedFile, IsRemovedWhenAFreshOneWasRefusedAndKeptWhenAnOldOneWas) {
  const Answer refusal = {.headers = {"HTTP/1.1 404 No\r\n", "X: y\r\n", "\r\n"}, .blocks = {"page"}};
  curl.Respond(404, refusal);
  EXPECT_EQ(Fresh(), Corvane::TRANSFER_E_CONNECT);
  const std::string outcome =
      "0x80011389 Failed to connect to the specified URL, http://h/\nHTTP/1.1 404 No\r\nX: y\r\n\r\n";
  EXPECT_EQ(Outcome(transfer), outcome);
  EXPECT_FALSE(std::filesystem::exists(folder / "out"));
  WriteFile(folder / "out", MakePattern(100));
  EXPECT_EQ(Resume(), Corvane::TRANSFER_E_CONNECT);
  EXPECT_EQ(Outcome(transfer), outcome);
  EXPECT_EQ(ReadFile(folder / "out"), MakePattern(100));
  EXPECT_EQ(Fresh(), Corvane::TRANSFER_E_CONNECT);
  EXPECT_FALSE(std::filesystem::exists(folder / "out")) << "it was truncated before";
}

TEST_F(ADownloadedFile, WithoutAnAnswerIsNoConnectionWhateverLibcurlSays) {
  for (const CURLcode code : {CURLE_COULDNT_CONNECT, CURLE_COULDNT_RESOLVE_HOST, CURLE_OPERATION_TIMEDOUT}) {
    curl.Respond(0, {.result = code, .errorText = "why"});
    EXPECT_EQ(Fresh(), Corvane::TRANSFER_E_CONNECT);
    EXPECT_FALSE(std::filesystem::exists(folder / "out"));
  }
}

TEST_F(ADownloadedFile, ThatBreaksOffAfterAGoodAnswerKeepsItsPartAndLibcurlsCode) {
  curl.Respond(200, {.blocks = {"part"}, .result = CURLE_PARTIAL_FILE, .errorText = "why"});
  EXPECT_EQ(Fresh(), kCurl | CURLE_PARTIAL_FILE);
  EXPECT_EQ(Narrow(transfer.GetError()), "why");
  EXPECT_EQ(ReadFile(folder / "out"), "part");
}

TEST_F(ADownloadedFile, OfAnotherSchemeHasLibcurlsResultAndStays) {
  curl.Respond(550, {.blocks = {"part"}, .result = CURLE_FTP_COULDNT_RETR_FILE, .errorText = "why"});
  EXPECT_EQ(transfer.DownloadFile(L"ftp://h/", Path("out"), false), kCurl | CURLE_FTP_COULDNT_RETR_FILE);
  EXPECT_EQ(ReadFile(folder / "out"), "part");
}

TEST_F(ADownloadedFile, IsClosedBeforeItIsRemoved) {
  curl.Respond(404, {});
  ScriptedFiles files;
  EXPECT_EQ(Fresh(), Corvane::TRANSFER_E_CONNECT);
  EXPECT_THAT(files.calls, ElementsAre("fopen w " + OutPath(), "fclose"));
  EXPECT_FALSE(IsOpen(folder / "out"));
}

// Data that did not reach the disk is never a success.
TEST_F(ADownloadedFile, WhoseCloseFailsIsAFailure) {
  ScriptedFiles files;
  files.closeFailure = ENOSPC;
  EXPECT_EQ(Fresh(), Corvane::TRANSFER_E_DOWNLOAD);
  EXPECT_EQ(Outcome(transfer),
            "0x8001138A Download failed: " + Narrow(Corvane::ZGetErrorMsg(Corvane::ResultFromErrno(ENOSPC))));
  curl.Respond(200, {.result = CURLE_PARTIAL_FILE, .errorText = "why"});
  EXPECT_EQ(Fresh(), kCurl | CURLE_PARTIAL_FILE) << "an earlier failure is told instead";
}

// Answers in 200 to 299 that do not continue the file. What libcurl would say of them is its code 33.
TEST_F(ADownloadedFile, IsKeptWhenTheAnswerToAResumeIsNotItsRest) {
  struct Case {
    const char* name;
    Answer answer;
    double length;
  };
  const std::string line = "HTTP/1.1 206 Partial Content\r\n";
  const Case cases[] = {
      {"another range", {.headers = {line, "Content-Range: bytes 67-99/100\r\n"}, .blocks = {"no"}}, 2.0},
      {"a range without numbers", {.headers = {line, "Content-Range: bytes */100\r\n"}, .blocks = {"no"}}, 2.0},
      {"no range", {.headers = {line}, .blocks = {"1"}}, 1.0},
      {"no content", {.headers = {line}}, -1.0},
      {"no content, though a length", {.headers = {line}}, 100.0}};
  const std::string outcome = "0x80010021 The server did not send the rest of the file. Cannot resume.";
  for (const Case& c : cases) {
    WriteFile(folder / "out", MakePattern(100));
    curl.Respond(206, c.answer);
    curl.info[CURLINFO_CONTENT_LENGTH_DOWNLOAD] = c.length;
    EXPECT_EQ(Resume(), kCurl | CURLE_RANGE_ERROR) << c.name;
    EXPECT_EQ(Outcome(transfer), outcome) << c.name;
    ZString cause;
    EXPECT_EQ(transfer.GetCause(cause), kCurl | CURLE_RANGE_ERROR) << c.name;
    EXPECT_EQ(cause, transfer.GetError()) << c.name;
    EXPECT_EQ(ReadFile(folder / "out"), MakePattern(100)) << c.name;
  }
  curl.Respond(200, {.headers = {line}});
  curl.info[CURLINFO_CONTENT_LENGTH_DOWNLOAD] = 68.0;
  EXPECT_EQ(Resume(), kFinished) << "all of it is there already";
}

// The request was made all the same, and the bytes went to the file's beginning.
TEST_F(ADownloadedFile, WhoseRestCannotBePlacedStaysAsItIs) {
  WriteFile(folder / "out", MakePattern(1000));
  curl.Respond(206, RestFrom(968, std::string(100, 'x')));
  ScriptedFiles files;
  files.seekFailure = EIO;
  EXPECT_EQ(Resume(), kCurl | CURLE_WRITE_ERROR);
  EXPECT_EQ(ReadFile(folder / "out"), MakePattern(1000));
}

TEST_F(ADownloadedFile, LosesItsStaleTailAfterASuccessfulResumeOnly) {
  const std::string old = MakePattern(1000);
  for (const CURLcode result : {CURLE_OK, CURLE_PARTIAL_FILE}) {
    WriteFile(folder / "out", old);
    curl.Respond(206, RestFrom(968, "short"));
    curl.perform = [&, deliver = curl.perform](const EasyHandle& handle) {
      deliver(handle);
      return result;
    };
    EXPECT_EQ(IsFailure(Resume()), result != CURLE_OK);
    const std::string expected = old.substr(0, 968) + "short";
    EXPECT_EQ(ReadFile(folder / "out"), result == CURLE_OK ? expected : expected + old.substr(973));
  }
}

TEST_F(ADownloadedFile, WhoseStaleTailCannotBeCutOffIsAFailure) {
  WriteFile(folder / "out", MakePattern(1000));
  curl.Respond(206, RestFrom(968, "short"));
  ScriptedFiles files;
  files.truncateFailure = EIO;
  EXPECT_EQ(Resume(), Corvane::TRANSFER_E_DOWNLOAD);
  EXPECT_EQ(Outcome(transfer),
            "0x8001138A Download failed: " + Narrow(Corvane::ZGetErrorMsg(Corvane::ResultFromErrno(EIO))));
  EXPECT_THAT(files.calls, ElementsAre("fopen r+ " + OutPath(), "fseek 968", "ftruncate 973", "fclose"));
}

// --- Posted files. ---

class APostedFile : public TransferTest {
 protected:
  APostedFile() { WriteFile(folder / "in", "posted"); }

  std::string In() { return (folder / "in").string(); }
  std::string Out() { return (folder / "out").string(); }

  ZTransfer transfer;
};

TEST_F(APostedFile, IsOpenedReadSentAndClosedAndItsAnswerLikewise) {
  ScriptedFiles files;
  EXPECT_EQ(transfer.PostFile(L"http://h/", Path("in"), Path("out")), kFinished);
  EXPECT_THAT(files.calls, ElementsAre("fopen r " + In(), "fopen w " + Out(), "fclose", "fclose"));
  files.calls.clear();
  EXPECT_EQ(transfer.PostFile(L"http://h/", Path("in")), kFinished);
  EXPECT_THAT(files.calls, ElementsAre("fopen r " + In(), "fclose"));
}

TEST_F(APostedFile, WhoseSizeCannotBeReadCountsAsEmpty) {
  ScriptedFiles files;
  files.afterOpen = [&] { std::filesystem::remove(folder / "in"); };
  EXPECT_EQ(transfer.PostFile(L"http://h/", Path("in")), kFinished);
  EXPECT_THAT(curl.ValuesOf(CURLOPT_POSTFIELDSIZE_LARGE), ElementsAre("0"));
}

TEST_F(APostedFile, IsReadByLibcurlItself) {
  curl.perform = [](const EasyHandle& handle) {
    auto* const file = static_cast<std::FILE*>(const_cast<void*>(handle.Get(CURLOPT_READDATA).pointer));
    char buffer[16] = {};
    EXPECT_EQ(std::fread(buffer, 1, sizeof buffer, file), 6u);
    EXPECT_STREQ(buffer, "posted");
    EXPECT_ANY_THROW(static_cast<void>(handle.Get(CURLOPT_READFUNCTION)));
    return CURLE_OK;
  };
  EXPECT_EQ(transfer.PostFile(L"http://h/", Path("in")), kFinished);
}

TEST_F(APostedFile, ThatCannotBeOpenedIsNamedWithTheReasonAndNoAnswerIsMade) {
  ScriptedFiles files;
  files.onOpen = [](const std::string&, const std::string&) { return EMFILE; };
  EXPECT_EQ(transfer.PostFile(L"http://h/", Path("in"), Path("out")), Corvane::TRANSFER_E_DOWNLOAD);
  EXPECT_EQ(Outcome(transfer), "0x8001138A Failed to open input file " + In() + ": " +
                                   Narrow(Corvane::ZGetErrorMsg(Corvane::ResultFromErrno(EMFILE))));
  EXPECT_THAT(files.calls, ElementsAre("fopen r " + In()));
  EXPECT_FALSE(std::filesystem::exists(folder / "out"));
}

TEST_F(APostedFile, IsClosedWhenItsAnswerCannotBeOpened) {
  ScriptedFiles files;
  files.onOpen = [](const std::string&, const std::string& mode) { return mode == "w" ? EROFS : 0; };
  curl.Clear();
  EXPECT_EQ(transfer.PostFile(L"http://h/", Path("in"), Path("out")), Corvane::TRANSFER_E_DOWNLOAD);
  EXPECT_EQ(Outcome(transfer), "0x8001138A Failed to open output file " + Out() + ": " +
                                   Narrow(Corvane::ZGetErrorMsg(Corvane::ResultFromErrno(EROFS))));
  EXPECT_THAT(files.calls, ElementsAre("fopen r " + In(), "fopen w " + Out(), "fclose"));
  EXPECT_THAT(curl.Options(), IsEmpty());
}

TEST_F(APostedFile, HasANameThatTheLocaleCanExpress) {
  const ZString name = Path(std::string()) + L"caf\u00E9";
  const ScopedLocale ascii("C");
  ScriptedFiles files;
  EXPECT_EQ(transfer.PostFile(L"http://h/", name, name), Corvane::TRANSFER_E_DOWNLOAD);
  EXPECT_EQ(transfer.GetError(), L"Download failed: Input file name '" + name + L"' contains invalid characters");
  EXPECT_EQ(transfer.PostFile(L"http://h/", Path("in"), name), Corvane::TRANSFER_E_DOWNLOAD);
  EXPECT_EQ(transfer.GetError(), L"Download failed: Output file name '" + name + L"' contains invalid characters");
  EXPECT_THAT(files.calls, IsEmpty());
}

TEST_F(APostedFile, HasANameAtAll) {
  EXPECT_EQ(transfer.PostFile(L"http://h/", ZString(), Path("out")), Corvane::TRANSFER_E_DOWNLOAD);
  EXPECT_EQ(Outcome(transfer), "0x8001138A Failed to open input file : " +
                                   Narrow(Corvane::ZGetErrorMsg(Corvane::ResultFromErrno(ENOENT))));
}

TEST_F(APostedFile, KeepsAPartialAnswer) {
  curl.Respond(200, {.blocks = {"part"}, .result = CURLE_PARTIAL_FILE, .errorText = "why"});
  EXPECT_EQ(transfer.PostFile(L"http://h/", Path("in"), Path("out")), kCurl | CURLE_PARTIAL_FILE);
  EXPECT_EQ(ReadFile(folder / "out"), "part");
  curl.Respond(500, {.blocks = {"page"}});
  EXPECT_EQ(transfer.PostFile(L"http://h/", Path("in"), Path("out")), Corvane::TRANSFER_E_POST);
  EXPECT_EQ(ReadFile(folder / "out"), "page");
}

TEST_F(APostedFile, WhoseAnswerCannotBeClosedIsAFailure) {
  ScriptedFiles files;
  files.closeFailure = ENOSPC;
  EXPECT_EQ(transfer.PostFile(L"http://h/", Path("in"), Path("out")), Corvane::TRANSFER_E_DOWNLOAD);
  EXPECT_EQ(Outcome(transfer),
            "0x8001138A Download failed: " + Narrow(Corvane::ZGetErrorMsg(Corvane::ResultFromErrno(ENOSPC))));
  EXPECT_EQ(transfer.PostFile(L"http://h/", Path("in")), kFinished) << "closing what was only read loses nothing";
  curl.Respond(500, {});
  EXPECT_EQ(transfer.PostFile(L"http://h/", Path("in"), Path("out")), Corvane::TRANSFER_E_POST)
      << "an earlier failure is told instead";
}

}  // namespace
}  // namespace CorvaneTest
