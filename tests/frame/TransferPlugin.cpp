// A shared object that uses the library, for programs that do not link it: loading this loads the library, closing it
// unloads the library.

#include <memory>

#include <Corvane/Transfer.h>

namespace {

using Corvane::ZResult;
using Corvane::ZString;
using Corvane::ZTransfer;

#define CORVANE_TEST_PLUGIN extern "C" __attribute__((visibility("default")))

}  // namespace

CORVANE_TEST_PLUGIN void* PluginMakeTransfer() { return std::make_unique<ZTransfer>().release(); }
CORVANE_TEST_PLUGIN void PluginDestroyTransfer(void* transfer) {
  const std::unique_ptr<ZTransfer> owned(static_cast<ZTransfer*>(transfer));
}

// An operation that fails before it reaches any network, and everything that a watching thread asks for.
CORVANE_TEST_PLUGIN unsigned int PluginUseTransfer(void* object) {
  ZTransfer& transfer = *static_cast<ZTransfer*>(object);
  ZString page;
  const ZResult result = transfer.Download(L"no-such-scheme://127.0.0.1/", page);
  static_cast<void>(transfer.GetError());
  static_cast<void>(transfer.GetTransferTime());
  return result;
}

CORVANE_TEST_PLUGIN void PluginSetThrottling() { ZTransfer::SetThrottling(0, 0, false); }
