// Which names were meant by a mistyped one.

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "apps/corvane/Options/Nearest.h"

namespace CorvaneCli {
namespace {

using Names = std::vector<std::string>;

struct NearestCase {
  std::string typed;
  Names names;
};

TEST(NearestNames, AreBeginningsAndSlips) {
  const Names names = {"resume", "retries", "retry-wait", "remote-name", "into", "user", "user-agent", "quiet"};
  const NearestCase cases[] = {
      {"resum", {"resume"}},
      {"resmue", {"resume"}},
      {"rezume", {"resume"}},
      {"ressume", {"resume"}},
      {"retr", {"retries", "retry-wait"}},
      {"re", {"resume", "retries", "retry-wait"}},
      {"user", {"user", "user-agent"}},
      {"useragent", {"user-agent"}},
      {"itno", {"into"}},
      {"onto", {"into"}},
      {"onti", {}},
      {"r", {}},
      {"", {}},
      {"bogus", {}},
      {std::string(1000000, 'r'), {}},
  };
  for (const NearestCase& c : cases) EXPECT_EQ(NearestNames(c.typed, names), c.names) << c.typed.substr(0, 40);
}

TEST(NearestNames, PreferFewerSlips) {
  EXPECT_EQ(NearestNames("limitt", {"limbo", "limits", "limit"}), (Names{"limits", "limit"}));
  EXPECT_EQ(NearestNames("header", {"headers", "heads", "reader"}), (Names{"headers"}));
}

}  // namespace
}  // namespace CorvaneCli
