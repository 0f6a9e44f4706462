#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/support/Deadline.h"
#include "tests/support/FileDescriptor.h"
#include "tests/support/Gate.h"

namespace CorvaneTest {

struct ProgramOptions {
  // Text for standard input, which is closed after it. BackgroundProgram can send more: see keepInputOpen.
  std::string input;

  // Differences to this process's environment; nullopt removes the variable.
  std::map<std::string, std::optional<std::string>> environment;

  std::filesystem::path workingDirectory;  // empty: this process's

  // RunProgram kills the program after this time; BackgroundProgram does not look at it.
  std::chrono::milliseconds timeout = kPatience;

  // RLIMIT_... and the value set as both the soft and the hard limit.
  std::vector<std::pair<int, rlim_t>> limits;

  // Which of the standard streams are a terminal (one pseudo-terminal for all of them, 80 columns by 24 lines, the
  // program's controlling terminal); the others are pipes. The terminal turns LF into CR LF and echoes input.
  // Its output is collected as standard error when only terminalError is set, and as standard output otherwise.
  bool terminalInput = false;
  bool terminalOutput = false;
  bool terminalError = false;

  // BackgroundProgram: leave standard input open for Send(). On a terminal Send("\x03") is Ctrl-C.
  bool keepInputOpen = false;

  // Signal the program gets when the thread that started it ends, so that a crash of the test leaves nothing behind.
  int signalAtParentsDeath = 9;
};

struct ProgramResult {
  std::optional<int> exitCode;  // set when the program ended by itself
  int signal = 0;               // the signal that ended it, else 0
  bool timedOut = false;        // it was killed at the deadline; `signal` is then SIGKILL
  std::string out;              // standard output
  std::string err;              // standard error

  // For messages of assertions: how it ended and what it wrote.
  std::string Describe() const;
};

// Runs a program to its end. argv[0] is looked up in PATH unless it holds a slash. Always returns: at the deadline the
// program and the process group it leads are killed, and the result says so. Throws std::runtime_error when the program
// cannot be started at all.
ProgramResult RunProgram(const std::vector<std::string>& argv, const ProgramOptions& options = {});

// A program that runs beside the test. It leads a process group of its own. The destructor kills what is left of that
// group.
// The thread that constructs it must stay alive as long as the program (see signalAtParentsDeath).
// Thread safety: Output(), ErrorOutput() and the WaitFor functions from any thread, the rest from one thread.
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

  // Writes to standard input, which must have been kept open. False when the program does not read any more.
  bool Send(std::string_view text);
  void CloseInput();

  // How the program ended, with all its output; nullopt when it was still running at the deadline.
  std::optional<ProgramResult> Wait(Deadline deadline);
  std::optional<ProgramResult> Wait() { return Wait(After(kPatience)); }
  bool IsRunning() { return !Wait(Clock::now()).has_value(); }

  // What it wrote so far.
  std::string Output() const;
  std::string ErrorOutput() const;

  // True as soon as the text occurs in that stream; false when the stream ended or the deadline passed without it.
  [[nodiscard]] bool WaitForOutput(std::string_view text, Deadline deadline) const;
  [[nodiscard]] bool WaitForOutput(std::string_view text) const { return WaitForOutput(text, After(kPatience)); }
  [[nodiscard]] bool WaitForErrorOutput(std::string_view text, Deadline deadline) const;
  [[nodiscard]] bool WaitForErrorOutput(std::string_view text) const {
    return WaitForErrorOutput(text, After(kPatience));
  }

 private:
  // One stream the program writes to.
  struct Stream {
    FileDescriptor source;
    std::string text;      // guarded by m_mutex
    bool hasEnded = true;  // guarded by m_mutex; false while there is a source
  };

  void Start(const std::vector<std::string>& argv, const ProgramOptions& options);
  void Collect();
  bool ReadInto(Stream& stream);
  void PumpInput();
  bool AwaitExit(Deadline deadline);
  bool AwaitStreamEnds(Deadline deadline);
  void KillGroup();
  bool WaitForText(const Stream& stream, std::string_view text, Deadline deadline) const;

  pid_t m_pid = -1;
  FileDescriptor m_pidDescriptor;  // polls as readable when the program has ended
  FileDescriptor m_input;
  std::string m_pendingInput;  // touched by the collector only
  bool m_keepInputOpen = false;
  std::optional<ProgramResult> m_result;  // set once it has been waited for
  mutable std::mutex m_mutex;
  mutable std::condition_variable m_changed;
  Stream m_out;
  Stream m_err;
  Gate m_stop;
  std::thread m_collector;  // reads both streams, so that the program never blocks on a full pipe
};

}  // namespace CorvaneTest
