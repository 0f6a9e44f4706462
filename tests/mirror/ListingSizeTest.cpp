#include <gmock/gmock.h>

#include <algorithm>
#include <optional>
#include <string>

#include "tests/mirror/MirrorTesting.h"

// Listings of the size that a run takes at most, and beyond. A program of its own: it needs two thirds of a gigabyte.
namespace CorvaneTest {
namespace {

using namespace Corvane;

constexpr std::size_t kMostBytes = 134217728;
constexpr ZResult kFileSizeExceeded = CurlFailure(63);

class ListingSize : public MirrorFixture {
 protected:
  // A page that links one file, of exactly this many bytes, in an answer that does not tell how long it is.
  static Responder PageOfBytes(std::size_t bytes) {
    return [bytes](Connection& peer, const Request&) {
      const std::string page = PageOf({"a"});
      peer.Send(FormatHead(200, {{"Connection", "close"}}) + page);
      const std::string blanks(1 << 20, ' ');
      for (std::size_t left = bytes - page.size(); left != 0;) {
        const std::size_t block = std::min(left, blanks.size());
        peer.Send(blanks.substr(0, block));
        left -= block;
      }
    };
  }

  void Serve(std::size_t bytes) {
    m_server.emplace(OncePerConnection([bytes](Connection& peer, const Request& request) {
      (request.target == "/dir/" ? PageOfBytes(bytes) : Content("the file"))(peer, request);
    }));
  }

  std::optional<ScriptedServer> m_server;
};

TEST_F(ListingSize, MayReachItsBound) {
  Serve(kMostBytes);
  EXPECT_THAT(Run(m_server->Url("/dir/")), IsCode(TRANSFER_S_FINISHED));
  EXPECT_TRUE(FileHolds(Local("a"), "the file"));
}

TEST_F(ListingSize, BeyondItsBoundEndsTheRun) {
  Serve(kMostBytes + 1);
  EXPECT_THAT(Run(m_server->Url("/dir/")), IsCode(kFileSizeExceeded));
  EXPECT_THAT(m_mirror.GetStatus(), IsCode(kFileSizeExceeded));
  EXPECT_EQ(ErrorOf(m_mirror),
            "Failed to obtain the list of files to download: The listing has more than 134217728 bytes");
  EXPECT_THAT(Names(), testing::IsEmpty()) << "nothing of it is used";
  EXPECT_EQ(m_mirror.GetStatistics().filesKnown, 0u);
}

}  // namespace
}  // namespace CorvaneTest
