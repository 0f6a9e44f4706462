#include <Corvane/Transfer/ResumedFileImpl.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <string>

#include "tests/support/TempDir.h"
#include "tests/unit/PrintTo.h"

// What becomes of a file that is continued, from the answer's header text alone.
namespace Corvane {
namespace {

using CorvaneTest::ReadFile;
using CorvaneTest::TempDir;
using CorvaneTest::WriteFile;

constexpr unsigned long long kSize = 120;  // so that the resume begins at 88

class AResumedFile : public testing::Test {
 protected:
  AResumedFile() { SetUpAgain(); }

  void SetUpAgain() {
    WriteFile(folder / "f", std::string(kSize, 'o'));
    file.Close();
    EXPECT_EQ(file.Open((folder / "f").c_str(), "r+"), BASE_S_OK);
    resumed.emplace(file, kSize);
  }

  void Answer206(const std::string& range) {
    resumed->Judge({true, true, "HTTP/1.1 206 Partial Content\r\nContent-Range: " + range + "\r\n\r\n"});
  }

  std::size_t Write(std::size_t bytes) { return resumed->Write(std::string(bytes, 'n').c_str(), bytes); }

  // The end of a request that libcurl was content with.
  static RequestedPart::End GoodEnd() {
    RequestedPart::End end;
    end.answer.isHttp = true;
    end.hasContent = true;
    return end;
  }

  TempDir folder;
  OpenFile file;
  std::optional<ResumedFile> resumed;
};

TEST_F(AResumedFile, IsOneOfMoreThan64Bytes) {
  EXPECT_FALSE(ResumedFile::IsResumable(0));
  EXPECT_FALSE(ResumedFile::IsResumable(64));
  EXPECT_TRUE(ResumedFile::IsResumable(65));
}

TEST_F(AResumedFile, BeginsThirtyTwoBytesBeforeItsEnd) { EXPECT_EQ(resumed->Position(), 88u); }

TEST_F(AResumedFile, TakesTheRestAndIsWhole) {
  Answer206("bytes 88-199/200");
  EXPECT_EQ(Write(100), 100u);
  EXPECT_EQ(Write(12), 12u);
  EXPECT_FALSE(resumed->Part().Refuse(GoodEnd()));
  EXPECT_EQ(resumed->CutStaleTail(GoodEnd()), BASE_S_OK);
  EXPECT_EQ(ReadFile(folder / "f"), std::string(88, 'o') + std::string(112, 'n'));
}

TEST_F(AResumedFile, LosesItsTailWhenTheResourceIsKnownToEndBeforeIt) {
  Answer206("bytes 88-97/98");
  EXPECT_EQ(Write(10), 10u);
  EXPECT_FALSE(resumed->Part().Refuse(GoodEnd()));
  EXPECT_EQ(resumed->CutStaleTail(GoodEnd()), BASE_S_OK);
  EXPECT_EQ(ReadFile(folder / "f"), std::string(88, 'o') + std::string(10, 'n'));
}

TEST_F(AResumedFile, TakesNothingBehindTheAnnouncedEnd) {
  Answer206("bytes 88-97/98");
  EXPECT_EQ(Write(10), 10u);
  EXPECT_EQ(Write(1), 0u);
  RequestedPart::End end = GoodEnd();
  end.code = CodeOf(CURLE_WRITE_ERROR);
  ASSERT_TRUE(resumed->Part().Refuse(end));
  EXPECT_EQ(resumed->Part().Refuse(end)->code, CURLE_RANGE_ERROR);
  EXPECT_EQ(resumed->Part().Refuse(end)->text,
            ZString(L"The server sent more than the range it announced. Cannot resume."));
  EXPECT_EQ(ReadFile(folder / "f").size(), kSize);
}

TEST_F(AResumedFile, TakesNothingOfAnotherRange) {
  Answer206("bytes 0-199/200");
  EXPECT_EQ(Write(10), 0u);
  RequestedPart::End end = GoodEnd();
  end.code = CodeOf(CURLE_WRITE_ERROR);
  ASSERT_TRUE(resumed->Part().Refuse(end));
  EXPECT_EQ(resumed->Part().Refuse(end)->text,
            ZString(L"The server did not send the rest of the file. Cannot resume."));
  EXPECT_EQ(ReadFile(folder / "f"), std::string(kSize, 'o'));
}

TEST_F(AResumedFile, DropsThePageOfARefusalWithoutJudgingItFurther) {
  resumed->Judge({true, false, "HTTP/1.1 404 Not Found\r\n\r\n"});
  EXPECT_EQ(Write(10), 10u);
  EXPECT_FALSE(resumed->Part().Refuse(GoodEnd()));
  EXPECT_EQ(ReadFile(folder / "f"), std::string(kSize, 'o'));
}

// A request that failed by itself keeps its own failure.
TEST_F(AResumedFile, LeavesOtherFailuresAsTheyAre) {
  Answer206("bytes 0-199/200");
  RequestedPart::End end = GoodEnd();
  end.code = CodeOf(CURLE_RECV_ERROR);
  EXPECT_FALSE(resumed->Part().Refuse(end));
}

TEST_F(AResumedFile, WithoutContentIsWholeOnlyWhereTheResourceEnds) {
  RequestedPart::End end;
  for (const bool isHttp : {true, false}) {
    end.answer.isHttp = isHttp;
    for (const double length : {-1.0, 0.0, 87.0, 89.0}) {
      end.contentLength = length;
      ASSERT_TRUE(resumed->Part().Refuse(end)) << length;
      EXPECT_EQ(resumed->Part().Refuse(end)->code, CURLE_RANGE_ERROR);
    }
    end.contentLength = 88.0;
    EXPECT_FALSE(resumed->Part().Refuse(end));
  }
  EXPECT_EQ(resumed->CutStaleTail(end), BASE_S_OK);
  EXPECT_EQ(ReadFile(folder / "f").size(), 88u);
}

TEST_F(AResumedFile, OverFtpEndsWhereTheServerSaysItDoes) {
  resumed->Judge({false, true, ""});
  EXPECT_EQ(Write(10), 10u);
  RequestedPart::End end;
  end.hasContent = true;
  EXPECT_FALSE(resumed->Part().Refuse(end));
  EXPECT_EQ(resumed->CutStaleTail(end), BASE_S_OK);
  EXPECT_EQ(ReadFile(folder / "f").size(), 98u);
}

// --- checked

class ACheckedFile : public AResumedFile {
 protected:
  ACheckedFile() { EXPECT_EQ(resumed->Check("\"v1\""), BASE_S_OK); }

  // What the file holds from 88 on, and new bytes behind it.
  std::size_t WriteRest(std::size_t old, std::size_t fresh) {
    const std::string bytes = std::string(old, 'o') + std::string(fresh, 'n');
    return resumed->Write(bytes.data(), bytes.size());
  }

  void ExpectChangedAndUntouched(const RequestedPart::End& end) {
    ASSERT_TRUE(resumed->Part().Refuse(end));
    EXPECT_EQ(resumed->Part().Refuse(end)->code, CURLE_RANGE_ERROR);
    EXPECT_EQ(resumed->Part().Refuse(end)->text, ZString(L"The file on the server has changed. Cannot resume."));
    EXPECT_EQ(ReadFile(folder / "f"), std::string(kSize, 'o'));
  }

  static RequestedPart::End WriteError() {
    RequestedPart::End end = GoodEnd();
    end.code = CodeOf(CURLE_WRITE_ERROR);
    return end;
  }
};

TEST_F(ACheckedFile, TakesTheRestBehindTheSameOverlap) {
  for (const std::size_t first : {1u, 31u, 32u, 33u, 112u}) {
    SetUpAgain();
    EXPECT_EQ(resumed->Check(""), BASE_S_OK);
    Answer206("bytes 88-199/200");
    const std::string rest = std::string(32, 'o') + std::string(80, 'n');
    EXPECT_EQ(resumed->Write(rest.data(), first), first);
    const std::size_t left = rest.size() - first;
    if (left != 0) {
      EXPECT_EQ(resumed->Write(rest.data() + first, left), left);
    }
    EXPECT_FALSE(resumed->Part().Refuse(GoodEnd())) << first;
    EXPECT_EQ(ReadFile(folder / "f"), std::string(kSize, 'o') + std::string(80, 'n')) << first;
  }
}

TEST_F(ACheckedFile, TakesNothingBehindAnOverlapThatDiffers) {
  Answer206("bytes 88-199/200");
  EXPECT_EQ(WriteRest(31, 81), 0u) << "the last byte of the overlap differs";
  ExpectChangedAndUntouched(WriteError());
}

TEST_F(ACheckedFile, TakesNothingWhenALaterBlockOfTheOverlapDiffers) {
  Answer206("bytes 88-199/200");
  EXPECT_EQ(WriteRest(20, 0), 20u);
  EXPECT_EQ(WriteRest(0, 20), 0u);
  ExpectChangedAndUntouched(WriteError());
}

TEST_F(ACheckedFile, TakesNothingOfAShorterResource) {
  Answer206("bytes 88-97/98");
  EXPECT_EQ(WriteRest(10, 0), 0u);
  ExpectChangedAndUntouched(WriteError());
}

TEST_F(ACheckedFile, OverFtpIsNoneOfAShorterResource) {
  EXPECT_EQ(resumed->Check(""), BASE_S_OK);
  resumed->Judge({false, true, ""});
  EXPECT_EQ(WriteRest(10, 0), 10u);
  RequestedPart::End end;
  end.hasContent = true;
  ExpectChangedAndUntouched(end);
}

TEST_F(ACheckedFile, WithoutContentIsNoneOfAResourceThatEndsBeforeIt) {
  RequestedPart::End end;
  end.answer.isHttp = true;
  end.contentLength = 88.0;
  ExpectChangedAndUntouched(end);
}

// A server may leave If-Range aside and send the range of whatever it has now.
TEST_F(ACheckedFile, TakesNothingOfAnAnswerOfAnotherVersion) {
  resumed->Judge({true, true, "HTTP/1.1 206 X\r\nETag: \"v2\"\r\nContent-Range: bytes 88-199/200\r\n\r\n"});
  EXPECT_EQ(WriteRest(32, 80), 0u);
  ExpectChangedAndUntouched(WriteError());
}

TEST_F(ACheckedFile, ThatIsCompleteIsWholeAndUntouched) {
  Answer206("bytes 88-119/120");
  EXPECT_EQ(WriteRest(32, 0), 32u);
  EXPECT_FALSE(resumed->Part().Refuse(GoodEnd()));
  EXPECT_EQ(resumed->CutStaleTail(GoodEnd()), BASE_S_OK);
  EXPECT_EQ(ReadFile(folder / "f"), std::string(kSize, 'o'));
}

TEST_F(ACheckedFile, ThatCannotBeReadIsAFailure) {
  WriteFile(folder / "f", "short");
  ResumedFile other(file, kSize);
  EXPECT_EQ(other.Check(""), ResultFromErrno(EIO));
}

}  // namespace
}  // namespace Corvane
