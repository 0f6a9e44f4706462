#pragma once

#include <optional>
#include <utility>

#include <Corvane/Transfer.h>

#include "tests/loopback/TransferTesting.h"
#include "tests/support/ScriptedServer.h"
#include "tests/torture/Runs.h"

namespace CorvaneTest {

// What the runs of a ZTransfer share.
class TransferRun : public Run {
 public:
  void Prepare() override {
    room.Clear();
    transfer.emplace();
  }

  void Repeat() override {
    const Corvane::ZResult code = Execute();
    EXPECT_THAT(code, IsCode(Expected())) << ErrorOf(*transfer);
    Check({code, Target::kLibraryMemory});
  }

  void Discard() override { transfer.reset(); }

 protected:
  explicit TransferRun(Responder responder)
      : server(KeepAlive(std::move(responder))), url(Wide(server.UrlFor("127.0.0.1"))) {}
  TransferRun(Responder responder, const TlsIdentity& identity)
      : server(KeepAlive(std::move(responder)), identity), url(Wide(server.UrlFor("127.0.0.1"))) {}

  void CheckObject(const RunOutcome& outcome) {
    EXPECT_TRUE(transfer->Wait(0)) << "the object is not idle";
    if (outcome.code) {
      EXPECT_THAT(transfer->GetStatus(), IsCode(*outcome.code));
    }
    room.ExpectNothingElseTouched();
  }

  Room room;
  ScriptedServer server;
  const Corvane::ZString
      url;  // all that an operation is given is made before it: only the library's own calls are to fail
  std::optional<Corvane::ZTransfer> transfer;
};

}  // namespace CorvaneTest
