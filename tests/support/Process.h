#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/Deadline.h"
#include "tests/support/FileDescriptor.h"
#include "tests/support/Gate.h"

namespace CorvaneTest {

struct ProgramOptions {
  // Text for standard input, which is closed after it. BackgroundProgram can send more: see keepInputOpen.
  std::string input = {};

  // Differences to this process's environment; nullopt removes the variable.
  std::map<std::string, std::optional<std::string>> environment = {};

  std::filesystem::path workingDirectory = {};  // empty: this process's

  // RunProgram kills the program after this time; BackgroundProgram does not look at it.
  std::chrono::milliseconds timeout = kPatience;

  // RLIMIT_... and the value set as both the soft and the hard limit.
  std::vector<std::pair<int, rlim_t>> limits = {};

  // Which of the standard streams are a terminal (one pseudo-terminal for all of them, 80 columns by 24 lines, the
  // program's controlling terminal); the others are pipes. The terminal turns LF into CR LF and echoes input. What
  // comes out of it is collected apart, as ProgramResult::terminal. Without any of them the program has no terminal
  // at all, not even the test's own.
  bool terminalInput = false;
  bool terminalOutput = false;
  bool terminalError = false;

  // BackgroundProgram: leave standard input open for Send(). On a terminal Send("\x03") is Ctrl-C; the end of the input
  // is Ctrl-D there, which counts at the beginning of a line only.
  bool keepInputOpen = false;

  // Signal the program gets when the thread that started it ends, so that a crash of the test leaves nothing behind.
  int signalAtParentsDeath = 9;
};

struct ProgramResult {
  std::optional<int> exitCode;  // set when the program ended by itself
  int signal = 0;               // the signal that ended it, else 0
  bool timedOut = false;        // it was killed at the deadline; `signal` is then SIGKILL
  std::string out;              // standard output, unless it was the terminal
  std::string err;              // standard error, unless it was the terminal
  std::string terminal;         // whatever was written to the terminal, and the echo of the input

  // For messages of assertions: how it ended and what it wrote.
  std::string Describe() const;
};

// Runs a program to its end. argv[0] is looked up in PATH unless it holds a slash. Always returns: at the deadline the
// program is killed, and the result says so. What it left running in its process group is killed as well. Throws
// std::runtime_error when the program cannot be started at all.
// The program starts with the default disposition of every signal and with none blocked.
ProgramResult RunProgram(const std::vector<std::string>& argv, const ProgramOptions& options = {});

// A program that runs beside the test, in a session and process group of its own. Whatever is left of that group when
// the program has ended is killed; the destructor kills the program first.
// The thread that constructs it must stay alive as long as the program (see signalAtParentsDeath).
// Thread safety: the output and the WaitFor functions from any thread, the rest from one thread.
class BackgroundProgram {
 public:
  // Throws std::runtime_error when the program cannot be started.
  explicit BackgroundProgram(const std::vector<std::string>& argv, const ProgramOptions& options = {});
  ~BackgroundProgram();
  BackgroundProgram(const BackgroundProgram&) = delete;
  BackgroundProgram& operator=(const BackgroundProgram&) = delete;

  pid_t Pid() const { return m_pid; }

  // Sends the signal to the program itself; does nothing once it has been waited for.
  void Kill(int signal);

  // Hands the text over to be written to standard input, which must have been kept open. Does not wait for the program
  // to read it. False when the program is known to read no more.
  bool Send(std::string_view text);
  void CloseInput();  // after what was handed over so far

  // How the program ended, with all its output; nullopt when it was still running at the deadline. The output may be
  // incomplete when a descendant outside the group still holds it at the deadline.
  std::optional<ProgramResult> Wait(Deadline deadline);
  std::optional<ProgramResult> Wait() { return Wait(After(kPatience)); }
  bool IsRunning() { return !Wait(Clock::now()).has_value(); }

  // What it wrote so far.
  std::string Output() const { return TextOf(m_out); }
  std::string ErrorOutput() const { return TextOf(m_err); }
  std::string TerminalOutput() const { return TextOf(m_terminal); }

  // True as soon as the text occurs in that stream; false when the stream ended or the deadline passed without it.
  [[nodiscard]] bool WaitForOutput(std::string_view text, Deadline deadline = After(kPatience)) const {
    return WaitForText(m_out, text, deadline);
  }
  [[nodiscard]] bool WaitForErrorOutput(std::string_view text, Deadline deadline = After(kPatience)) const {
    return WaitForText(m_err, text, deadline);
  }
  [[nodiscard]] bool WaitForTerminalOutput(std::string_view text, Deadline deadline = After(kPatience)) const {
    return WaitForText(m_terminal, text, deadline);
  }

 private:
  // A stream the program writes to.
  struct Stream {
    FileDescriptor source;  // touched by the collector only; empty when the program has no such stream
    std::string text;       // guarded by m_mutex
    bool hasEnded = false;  // guarded by m_mutex
  };

  // The program's ends of its streams, open in this process until it has started.
  struct ChildStreams {
    std::array<FileDescriptor, 3> standard;
    FileDescriptor terminal;
  };

  ChildStreams MakeStreams(const ProgramOptions& options);
  void Start(const std::vector<std::string>& argv, const ProgramOptions& options);
  void Collect();
  void ReadInto(Stream& stream);
  void PumpInput();
  int InputToPoll() const;
  void WakeCollector() const;
  bool AwaitExit(Deadline deadline) const;
  void AwaitStreamEnds(Deadline deadline) const;
  void KillGroup() const;
  void Reap();
  std::string TextOf(const Stream& stream) const;
  bool WaitForText(const Stream& stream, std::string_view text, Deadline deadline) const;

  pid_t m_pid = -1;
  FileDescriptor m_pidDescriptor;       // polls as readable when the program has ended
  std::optional<ProgramResult> m_exit;  // how it ended, without the output; set when it is waited for
  Gate m_stop;
  FileDescriptor m_wake;  // tells the collector that there is input
  // The program's side of the terminal, touched by the collector once that runs. As long as it is open the terminal does
  // not end, although the program may close its streams and open /dev/tty again.
  FileDescriptor m_terminalHold;
  mutable std::mutex m_mutex;
  mutable std::condition_variable m_changed;
  FileDescriptor m_input;      // this and the next two: guarded by m_mutex
  std::string m_pendingInput;  // not yet written
  bool m_isInputClosing;       // close the input when all of it is written
  const bool m_isInputTerminal;
  Stream m_out;
  Stream m_err;
  Stream m_terminal;
  std::thread m_collector;  // moves input and output, so that the program never blocks on a full pipe
};

}  // namespace CorvaneTest
