#include "apps/corvane/Password.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>

#include "apps/corvane/Failure.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using Corvane::ZString;

// Switches the echo off, and restores the terminal on every way out. Suspending is off meanwhile too: the shell would get a
// terminal that shows nothing.
class HiddenInput {
 public:
  explicit HiddenInput(const Descriptor& terminal) : m_terminal(terminal) {
    m_isTerminal = tcgetattr(terminal.Get(), &m_former) == 0;
    if (!m_isTerminal) return;
    termios hidden = m_former;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    hidden.c_cc[VSUSP] = _POSIX_VDISABLE;
    tcsetattr(terminal.Get(), TCSAFLUSH, &hidden);
  }
  ~HiddenInput() {
    if (m_isTerminal) tcsetattr(m_terminal.Get(), TCSAFLUSH, &m_former);
  }
  HiddenInput(const HiddenInput&) = delete;
  HiddenInput& operator=(const HiddenInput&) = delete;

 private:
  const Descriptor& m_terminal;
  termios m_former{};
  bool m_isTerminal = false;
};

ZString Decode(const std::string& password, std::string_view source) {
  const std::optional<ZString> text = DecodeLocal(password);
  if (text) return *text;
  throw Failure(
      ExitCode::kUsage,
      fmt::format("cannot use the password from {}: the locale cannot express it; set LC_ALL=C.UTF-8", source));
}

std::string FirstLine(const std::string& text) {
  std::string line = text.substr(0, text.find('\n'));
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

std::optional<ZString> FromFile(const std::string& path, const Interrupt& interrupt) {
  const Descriptor file = Open(path, O_RDONLY);
  std::string text;
  const int error = file.IsOpen() ? ReadAll(file, interrupt.PollDescriptor(), text) : errno;
  if (error == ECANCELED) return std::nullopt;
  if (error != 0) {
    throw Failure(ExitCode::kSecurity,
                  fmt::format("cannot read the password file {}: {}; give a file whose first line is the password",
                              DisplayName(path), SystemText(error)));
  }
  return Decode(FirstLine(text), "the file " + DisplayName(path));
}

// One line as the terminal delivers it; nullopt when the user interrupts, an empty one at the end of the input.
std::optional<std::string> ReadLine(const Descriptor& terminal, const Interrupt& interrupt) {
  std::string line;
  std::array<pollfd, 2> sources = {pollfd{terminal.Get(), POLLIN, 0}, pollfd{interrupt.PollDescriptor(), POLLIN, 0}};
  while (line.find('\n') == std::string::npos) {
    if (poll(sources.data(), sources.size(), -1) < 0) {
      if (errno == EINTR) continue;
      return line;
    }
    if (interrupt.HasHappened()) return std::nullopt;
    std::array<char, 256> block{};
    const ssize_t count = read(terminal.Get(), block.data(), block.size());
    if (count <= 0) return line;
    line.append(block.data(), static_cast<std::size_t>(count));
  }
  return FirstLine(line);
}

std::optional<ZString> AskFor(const std::string& user, const Interrupt& interrupt) {
  const Descriptor terminal = Open("/dev/tty", O_RDWR | O_NOCTTY);
  if (!terminal.IsOpen()) {
    throw Failure(ExitCode::kUsage, fmt::format("no password for --user {}: there is no terminal to ask at; set "
                                                "CORVANE_PASSWORD or give --password-file FILE",
                                                user));
  }
  std::optional<std::string> password;
  {
    const HiddenInput hidden(terminal);
    static_cast<void>(WriteAll(terminal.Get(), Printable("Password for " + user + ": ")));
    password = ReadLine(terminal, interrupt);
  }
  static_cast<void>(WriteAll(terminal.Get(), "\n"));
  if (!password) return std::nullopt;
  return Decode(*password, "the terminal");
}

}  // namespace

std::optional<ZString> ObtainPassword(const std::string& user, const std::optional<std::string>& passwordFile,
                                      const Interrupt& interrupt) {
  if (passwordFile) return FromFile(*passwordFile, interrupt);
  const char* const variable = std::getenv("CORVANE_PASSWORD");  // NOLINT(concurrency-mt-unsafe): never set here
  if (variable != nullptr) return Decode(variable, "CORVANE_PASSWORD");
  return AskFor(user, interrupt);
}

}  // namespace CorvaneCli
