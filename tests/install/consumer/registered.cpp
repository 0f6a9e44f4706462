// What the transfer library registers when it is loaded is there for the static objects of a program, too, before main() and after
// it, however the library is linked.

#include <cstdlib>
#include <iostream>
#include <vector>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/Module.h>
#include <Corvane/Transfer.h>
#include <Corvane/TransferErrorCodes.h>

namespace {

void ExpectRegistered(const char* when) {
  const std::vector<Corvane::ZModule> modules = Corvane::ZModuleRegistry::GetModules();
  const Corvane::ZString text = Corvane::ZGetErrorMsg(Corvane::TRANSFER_E_ABORTED);
  if (modules.size() == 1 && text == L"Download aborted by user") return;
  std::cerr << when << ": " << modules.size() << " modules, and a code that means '" << text << "'\n";
  std::_Exit(1);
}

struct Witness {
  Witness() { ExpectRegistered("before main()"); }
  ~Witness() { ExpectRegistered("after main()"); }
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;

  Corvane::ZTransfer transfer;
};
const Witness witness;

}  // namespace

int main() { ExpectRegistered("in main()"); }
