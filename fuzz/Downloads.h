#pragma once

#include <Corvane/Transfer.h>

#include "fuzz/Require.h"

// The ways in which a fuzzer downloads.
namespace CorvaneFuzz {

struct Outcome {
  Corvane::ZResult code = 0;
  bool isText = false;              // any answer is a success then
  unsigned long long offset = 0;    // where in the resource `received` begins
  unsigned long long received = 0;  // bytes that came into the caller's hands; of a text 0 when that is not known
};

// way: "t", "s", "p", "f" or "r", see response_fuzz.cpp; anything else is "t". Requires what holds of the way itself.
Outcome Download(Corvane::ZTransfer& transfer, char way, const Corvane::ZString& url);

}  // namespace CorvaneFuzz
