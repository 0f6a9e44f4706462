#pragma once

namespace CorvaneCli {

// The program's exit status. The numbers are documented in the man page and never change.
enum class ExitCode {
  kSuccess = 0,       // everything that was asked for has been done
  kTransfer = 1,      // the transfer failed: network, server, protocol
  kUsage = 2,         // the command line is wrong; nothing was begun
  kLocal = 3,         // the local side failed: cannot write, no space, a name that the locale cannot express
  kSecurity = 4,      // TLS verification or authentication failed, or could not be set up
  kInterrupted = 130  // SIGINT, SIGTERM or SIGHUP, as shells report it
};

}  // namespace CorvaneCli
