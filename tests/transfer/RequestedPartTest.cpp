#include <Corvane/Transfer/RequestedPartImpl.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <tuple>

#include <Corvane/Transfer/FileVersionImpl.h>

#include "tests/unit/PrintTo.h"

// Whether an answer is the rest of a resource, from what it says of itself alone. What a file makes of it stands in
// ResumedFileTest.cpp.
namespace Corvane {
namespace {

constexpr unsigned long long kPosition = 5'000'000'000;  // more than 32 bits hold
constexpr const char* kFileVersion = "SIZE 5000000010 MDTM 1767322800";

class ARequestedPart : public testing::Test {
 protected:
  void Judge206(const std::string& fields) {
    header = "HTTP/1.1 206 Partial Content\r\n" + fields + "\r\n";
    part.Judge({true, true, header, "", 206});
  }

  RequestedPart::End Ended(CURLcode code, bool hasContent = true) const {
    RequestedPart::End end;
    end.answer = {true, true, header, ""};
    end.code = code == CURLE_OK ? TRANSFER_S_FINISHED : CodeOf(code);
    end.hasContent = hasContent;
    return end;
  }

  void ExpectChanged(const RequestedPart::End& end) const {
    const std::optional<RequestedPart::Refusal> refusal = part.Refuse(end);
    ASSERT_TRUE(refusal);
    EXPECT_EQ(refusal->code, CURLE_RANGE_ERROR);
    EXPECT_EQ(refusal->text, ZString(L"The file on the server has changed. Cannot resume."));
  }

  RequestedPart part{kPosition, kPosition};
  std::string header;
};

TEST_F(ARequestedPart, TakesWhatWasAnnouncedAndIsWhole) {
  Judge206("Content-Range: bytes 5000000000-5000000009/5000000010\r\n");
  EXPECT_TRUE(part.Admits(4));
  part.Count(4);
  EXPECT_TRUE(part.Admits(6));
  part.Count(6);
  EXPECT_FALSE(part.Refuse(Ended(CURLE_OK)));
  EXPECT_TRUE(part.IsEndKnown(Ended(CURLE_OK)));
  EXPECT_FALSE(part.Admits(1));
}

// "HTTP/q.1 206" is 200 to libcurl, and to GetHttpStatus.
TEST_F(ARequestedPart, IsJudgedByTheStatusThatLibcurlTook) {
  const std::string line = "HTTP/q.1 206 Partial Content\r\n";
  const std::string range = "Content-Range: bytes 5000000000-5000000009/5000000010\r\n";
  for (const auto& [status, length, isTaken] :
       {std::tuple{206, "", true}, std::tuple{200, "", false}, std::tuple{200, "Content-Length: 10\r\n", true}}) {
    RequestedPart other{kPosition, kPosition};
    header = line + range + length + "\r\n";
    other.Judge({true, true, header, "", status});
    EXPECT_EQ(other.Admits(4), isTaken) << status << length;
  }
}

TEST_F(ARequestedPart, IsNotWholeBeforeTheResourceEnds) {
  Judge206("Content-Range: bytes 5000000000-5000000003/5000000010\r\n");
  EXPECT_TRUE(part.Admits(4));
  part.Count(4);
  const std::optional<RequestedPart::Refusal> refusal = part.Refuse(Ended(CURLE_OK));
  ASSERT_TRUE(refusal);
  EXPECT_EQ(refusal->code, CURLE_PARTIAL_FILE);
  EXPECT_EQ(refusal->text,
            ZString(L"The server sent only 5000000004 of the file's 5000000010 bytes. The rest is still missing."));
}

TEST_F(ARequestedPart, AdmitsNothingOfAnotherRange) {
  for (const char* range : {"bytes 0-9/10", "bytes 4999999999-5000000009/5000000010", "bytes */5000000010"}) {
    part = RequestedPart(kPosition, kPosition);
    Judge206(std::string("Content-Range: ") + range + "\r\n");
    EXPECT_FALSE(part.Admits(1)) << range;
    ASSERT_TRUE(part.Refuse(Ended(CURLE_WRITE_ERROR)));
    EXPECT_EQ(part.Refuse(Ended(CURLE_WRITE_ERROR))->text,
              ZString(L"The server did not send the rest of the file. Cannot resume."));
  }
}

TEST_F(ARequestedPart, LeavesFailuresOfTheRequestAlone) {
  part.Check("\"v1\"");
  Judge206("ETag: \"v1\"\r\nContent-Range: bytes 5000000000-5000000009/5000000010\r\n");
  for (const CURLcode code : {CURLE_WRITE_ERROR, CURLE_RANGE_ERROR, CURLE_RECV_ERROR, CURLE_OPERATION_TIMEDOUT}) {
    EXPECT_FALSE(part.Refuse(Ended(code))) << code;
  }
}

TEST_F(ARequestedPart, ThatIsCheckedAdmitsNothingOfAnotherVersion) {
  part.Check("\"v1\"");
  Judge206("ETag: \"v2\"\r\nContent-Range: bytes 5000000000-5000000009/5000000010\r\n");
  EXPECT_FALSE(part.Admits(1));
  ExpectChanged(Ended(CURLE_WRITE_ERROR));
}

// libcurl refuses the whole that comes for a part, and reads no content where nothing is left.
TEST_F(ARequestedPart, ThatIsCheckedLooksAtTheVersionOfAnswersWithoutContent) {
  part.Check("\"v1\"");
  header = "HTTP/1.1 200 OK\r\nETag: \"v2\"\r\n\r\n";
  ExpectChanged(Ended(CURLE_RANGE_ERROR, false));
  RequestedPart::End whole = Ended(CURLE_OK, false);
  whole.contentLength = static_cast<double>(kPosition);
  whole.answer.header = header;
  ExpectChanged(whole);
  header = "HTTP/1.1 200 OK\r\nETag: \"v1\"\r\n\r\n";
  EXPECT_FALSE(part.Refuse(Ended(CURLE_RANGE_ERROR, false)));
  whole.answer.header = header;
  EXPECT_FALSE(part.Refuse(whole));
}

TEST_F(ARequestedPart, ThatIsNotCheckedTakesAnyVersion) {
  Judge206("ETag: \"v2\"\r\nContent-Range: bytes 5000000000-5000000009/5000000010\r\n");
  EXPECT_TRUE(part.Admits(10));
  header = "HTTP/1.1 200 OK\r\nETag: \"v2\"\r\n\r\n";
  EXPECT_FALSE(part.Refuse(Ended(CURLE_RANGE_ERROR, false)));
  EXPECT_FALSE(part.Refuse(Ended(CURLE_BAD_DOWNLOAD_RESUME, false)));
}

TEST_F(ARequestedPart, TakesTheSameVersionOverFtpOnly) {
  for (const std::string now :
       {kFileVersion, "SIZE 5000000010 MDTM 1767322801", "SIZE 5000000011 MDTM 1767322800", ""}) {
    part = RequestedPart(kPosition, kPosition);
    part.Check(kFileVersion);
    part.Judge({false, true, "", now});
    EXPECT_EQ(part.Admits(1), now == kFileVersion) << now;
  }
}

TEST_F(ARequestedPart, OverFtpWithoutContentIsTheEndOfTheSameVersion) {
  part.Check(kFileVersion);
  RequestedPart::End end;
  end.contentLength = static_cast<double>(kPosition);
  ExpectChanged(end);
  end.answer.fileVersion = kFileVersion;
  EXPECT_FALSE(part.Refuse(end));
}

TEST_F(ARequestedPart, OverFtpBehindTheEndOfTheFileHasChanged) {
  RequestedPart::End end;
  end.code = CodeOf(CURLE_BAD_DOWNLOAD_RESUME);
  EXPECT_FALSE(part.Refuse(end)) << "that nobody checks";
  part.Check("");
  ExpectChanged(end);
}

TEST_F(ARequestedPart, IsNotProvenByTheValidatorOfTheOtherProtocol) {
  part.Check(kFileVersion);
  Judge206("Content-Range: bytes 5000000000-5000000009/5000000010\r\n");
  EXPECT_FALSE(part.Admits(1));
  ExpectChanged(Ended(CURLE_WRITE_ERROR));
  part = RequestedPart(kPosition, kPosition);
  part.Check("\"v1\"");
  part.Judge({false, true, "", kFileVersion});
  EXPECT_FALSE(part.Admits(1));
}

TEST(FileVersion, IsMadeOfSizeAndTime) {
  EXPECT_EQ(FileVersion(1234, 1767322800), "SIZE 1234 MDTM 1767322800");
  EXPECT_EQ(FileVersion(~0ULL, 0), "SIZE 18446744073709551615 MDTM 0");
}

TEST(FileVersion, IsToldFromTheValidatorsOfHttp) {
  EXPECT_TRUE(IsFileVersion(FileVersion(0, 0)));
  for (const char* other : {"", "\"SIZE 1 MDTM 2\"", "Sat, 21 Nov 2026 10:00:00 GMT", "W/\"x\""}) {
    EXPECT_FALSE(IsFileVersion(other)) << other;
  }
}

}  // namespace
}  // namespace Corvane
