// observe URL FILE: downloads into a file, and tells when the answer begins what it is going to be.
//
// Shows an observer: the library calls it at the first bytes of a body, and hosts may send it events of their own.

#include <clocale>
#include <cstdio>

#include <Corvane/Transfer.h>

#include "examples/host.h"

namespace {

constexpr int kAnswerBegins = 1;  // the only event of the library itself
constexpr int kDone = 100;        // this program's own

class Teller : public Corvane::ZTransfer::Observer {
 public:
  explicit Teller(const Corvane::ZTransfer& transfer) : m_transfer(transfer) {}

  // On the transferring thread: what takes long here holds the transfer up.
  void Update(int event, long value) override {
    if (event == kAnswerBegins) {
      const bool isGood = static_cast<Corvane::ZResult>(value) == Corvane::TRANSFER_E_IN_PROGRESS;
      std::printf("%s, status %ld\n", isGood ? "it comes" : "refused", m_transfer.GetHttpStatus());
    } else if (event == kDone) {
      std::printf("done, %ld bytes\n", value);
    }
  }

 private:
  const Corvane::ZTransfer& m_transfer;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::setlocale(LC_ALL, "");  // the encoding of the arguments and of file names
  Corvane::ZTransfer transfer;
  if (!VerifyServers(transfer)) return 1;
  Teller teller(transfer);
  if (Corvane::IsFailure(transfer.Attach(&teller))) return 1;

  const Corvane::ZResult result = transfer.DownloadFile(argv[1], argv[2], /*resume=*/false);
  if (!Corvane::IsFailure(result)) transfer.Notify(kDone, static_cast<long>(transfer.GetDownloadSize()));
  // The observer goes before the transfer does, and so must be taken off.
  if (Corvane::IsFailure(transfer.Detach(&teller))) return 1;
  return Corvane::IsFailure(result) ? TellFailure(transfer, result) : 0;
}
