#include <gmock/gmock.h>

#include <cerrno>
#include <functional>
#include <optional>

#include "tests/support/Pki.h"
#include "tests/torture/Injection.h"
#include "tests/tree/TreeTesting.h"

// Memory that runs out while a tree is told what to do: it is reported, and all stays as it was.
namespace CorvaneTest {
namespace {

using testing::IsEmpty;

class SettingsTorture : public testing::Test {
 protected:
  // Each allocation of `set` fails once. `undo` makes what it was before.
  static void FailEach(const std::function<Corvane::ZResult()>& set, const std::function<void()>& undo) {
    std::size_t calls = 0;
    {
      const Injection counted(Target::kLibraryMemory, 0);
      ASSERT_EQ(set(), 0U);
      calls = counted.Calls();
    }
    ASSERT_GT(calls, 0U);
    undo();
    for (std::size_t number = 1; number <= calls; ++number) {
      const Injection failing(Target::kLibraryMemory, number);
      const Corvane::ZResult result = set();
      ASSERT_TRUE(failing.HasFailed()) << number;
      EXPECT_THAT(result, IsCode(Corvane::ResultFromErrno(ENOMEM))) << failing.Place();
    }
  }

  TreeResult Download() { return client.Download(server->Url("/"), folder / "target"); }

  TreeSite site{{{"a", "1"}, {"b", "22"}}};
  std::optional<ScriptedServer> server;
  TreeClient client;
  TempDir folder;
};

TEST_F(SettingsTorture, LeavesTheOptionsOfATree) {
  server.emplace(KeepAlive(site.Serve()));
  ZTreeOptions first;
  first.exclude = {L"b"};
  ZTreeOptions second;
  second.include = {L"a name that is too long for a string without memory"};
  second.exclude = {L"another name that is too long for a string without memory"};
  second.headers = {L"X-Header: a value that is too long for a string without memory"};
  second.userAgent = L"an agent that is too long for a string without memory";
  ASSERT_NO_FATAL_FAILURE(
      FailEach([&] { return client.tree.SetOptions(second); }, [&] { ASSERT_EQ(client.tree.SetOptions(first), 0U); }));
  EXPECT_THAT(client.tree.Download(Wide(server->Url("/")), WidePath(folder / "target")),
              IsCode(Corvane::TRANSFER_S_FINISHED));
  EXPECT_TRUE(HoldsTree(folder / "target", {{"a", "1"}}));
}

// A tree that refused a server never accepts it because a setting failed.
TEST_F(SettingsTorture, LeavesATreesVerification) {
  const Pki& pki = ThePki();
  server.emplace(KeepAlive(site.Serve()), pki.server);
  const Corvane::ZString file = WidePath(pki.caFile);
  const Corvane::ZString directory = WidePath(pki.caDirectory);
  const Corvane::ZString otherFile = WidePath(pki.otherCaFile);
  ASSERT_NO_FATAL_FAILURE(FailEach([&] { return client.tree.SetSSL(false, false, file, directory); },
                                   [&] { ASSERT_EQ(client.tree.SetSSL(true, true, otherFile, L""), 0U); }));
  EXPECT_THAT(Download().code, IsCode(CurlFailure(kPeerNotVerified)));
  EXPECT_THAT(server->Requests(), IsEmpty());
}

TEST_F(SettingsTorture, LeavesATreesCredentials) {
  server.emplace(KeepAlive(site.Serve()));
  const Corvane::ZString user = L"a user whose name is too long for a string without memory";
  const Corvane::ZString password = L"secret";
  ASSERT_NO_FATAL_FAILURE(FailEach([&] { return client.tree.SetCredentials(user, password); },
                                   [&] { ASSERT_EQ(client.tree.SetCredentials(L"", L""), 0U); }));
  EXPECT_THAT(Download().code, IsCode(Corvane::TRANSFER_S_FINISHED));
  for (const Request& request : server->Requests()) EXPECT_EQ(request.Header("Authorization"), std::nullopt);
}

}  // namespace
}  // namespace CorvaneTest
