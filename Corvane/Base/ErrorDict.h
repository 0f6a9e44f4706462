#pragma once

#include <cstddef>

#include <Corvane/Base/Container.h>
#include <Corvane/Base/Result.h>
#include <Corvane/Base/String.h>

namespace Corvane {

using ZErrorMap = ZMap<unsigned int, ZString>;  // result code to message

// The process-wide dictionary of result codes and their messages, one map per facility: the last one registered. A map
// that another has replaced is forgotten, and does not come back when that one is withdrawn.
// Thread safety: all operations from any thread at any time. A thread that registers or withdraws waits for those that
// read at that moment, never for those that come after it.
// Errors: only ZGetErrorMsg throws, and only std::bad_alloc.
class CORVANE_ZPS_API ZErrorDict {
 public:
  // Makes the messages of `map` known, replacing those that the facility had. The dictionary keeps the pointer: the map
  // must stay as it is until it is withdrawn or replaced; nobody reads it once that call has returned. Null withdraws
  // the messages. Nothing happens for facility 0, which is this library's own and cannot be replaced, and above 0x7FF,
  // which no code can name.
  static void Register(unsigned int facility, const ZErrorMap* map);
  // Withdraws the facility's messages, whoever registered them; nothing happens when it has none. Nobody reads the map
  // after the return.
  static void Unregister(unsigned int facility);
  // The same, but only if it is `map` that is registered: for a library that goes, and must leave a map alone that the
  // host has put in the place of its own. Nobody reads `map` after the return, either way.
  static void Unregister(unsigned int facility, const ZErrorMap* map);
  // The number of messages registered for `facility`, 0 when it is not registered.
  [[nodiscard]] static std::size_t CountMessages(unsigned int facility);
};

// The message of `code`. A failure of the system (BASE_E_ERRNO + n) gives the system's text for errno n; a code that
// nobody has registered gives "Unknown error 0x" and its eight hexadecimal digits.
[[nodiscard]] CORVANE_ZPS_API ZString ZGetErrorMsg(ZResult code);

}  // namespace Corvane
