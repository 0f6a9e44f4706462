#pragma once

#include <Corvane/TransferOptions.h>

#include "apps/corvane/Logging.h"

namespace CorvaneCli {

// Puts what goes on during a transfer into the log: "> " before what is sent, "< " before what is received, "* " before
// what is said about addresses, TLS and connections. The library has struck the secrets out.
class Trace : public Corvane::ZTransferTrace {
 public:
  explicit Trace(Logging& logging) : m_logging(logging) {}
  void Line(Kind kind, const Corvane::ZString& line) override;

 private:
  Logging& m_logging;
};

}  // namespace CorvaneCli
