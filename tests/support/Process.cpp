#include "tests/support/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace CorvaneTest {

namespace {

[[noreturn]] void Throw(const std::string& operation) {
  throw std::runtime_error(operation + ": " + std::strerror(errno));
}

FileDescriptor CheckOpen(int descriptor, const char* operation) {
  if (descriptor < 0) Throw(operation);
  return FileDescriptor(descriptor);
}

struct Pipe {
  FileDescriptor readEnd;
  FileDescriptor writeEnd;
};

Pipe MakePipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) Throw("pipe");
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

struct Terminal {
  FileDescriptor ours;
  FileDescriptor theirs;
};

Terminal MakeTerminal() {
  Terminal terminal;
  terminal.ours = CheckOpen(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "posix_openpt");
  std::array<char, 128> name{};
  if (grantpt(terminal.ours.Get()) != 0 || unlockpt(terminal.ours.Get()) != 0 ||
      ptsname_r(terminal.ours.Get(), name.data(), name.size()) != 0) {
    Throw("pseudo-terminal");
  }
  terminal.theirs = CheckOpen(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC), name.data());
  const winsize size{24, 80, 0, 0};
  ioctl(terminal.theirs.Get(), TIOCSWINSZ, &size);
  return terminal;
}

FileDescriptor Duplicate(const FileDescriptor& original) {
  return CheckOpen(fcntl(original.Get(), F_DUPFD_CLOEXEC, 0), "dup");
}

void MakeNonBlocking(const FileDescriptor& descriptor) {
  if (fcntl(descriptor.Get(), F_SETFL, fcntl(descriptor.Get(), F_GETFL) | O_NONBLOCK) != 0) Throw("O_NONBLOCK");
}

std::string FindInPath(const std::string& name) {
  if (name.find('/') != std::string::npos) return name;
  const char* path = std::getenv("PATH");
  std::string folders = path != nullptr ? path : "/usr/bin:/bin";
  for (std::size_t begin = 0; begin <= folders.size();) {
    const std::size_t end = std::min(folders.find(':', begin), folders.size());
    std::string candidate = folders.substr(begin, end - begin) + "/" + name;
    if (access(candidate.c_str(), X_OK) == 0) return candidate;
    begin = end + 1;
  }
  throw std::runtime_error("no program \"" + name + "\" in PATH");
}

std::vector<std::string> MakeEnvironment(const ProgramOptions& options) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (options.environment.count(text.substr(0, text.find('='))) == 0) result.push_back(text);
  }
  for (const auto& [name, value] : options.environment) {
    if (value) result.push_back(name + "=" + *value);
  }
  return result;
}

std::vector<char*> MakePointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// All that the child needs, made ready before the fork: after it only async-signal-safe functions may be called, since
// another thread of the test may have held any lock.
struct Launch {
  std::string program;
  std::vector<std::string> arguments;
  std::vector<std::string> environment;
  std::vector<char*> argv;
  std::vector<char*> envp;
  std::array<int, 3> standardStreams{-1, -1, -1};
  int terminal = -1;  // becomes the controlling terminal
  int errorPipe = -1;
  pid_t parent = 0;
};

void RestoreSignals() {
  // A test program started in the background by a shell ignores SIGINT, which its children would inherit.
  for (int signal = 1; signal < NSIG; ++signal) ::signal(signal, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

bool ApplyOptions(const Launch& launch, const ProgramOptions& options) {
  prctl(PR_SET_PDEATHSIG, options.signalAtParentsDeath);
  if (getppid() != launch.parent) _exit(127);  // the parent died before the line above
  setsid();
  if (launch.terminal >= 0 && ioctl(launch.terminal, TIOCSCTTY, 0) != 0) return false;
  for (int stream = 0; stream < 3; ++stream) {
    if (dup2(launch.standardStreams[static_cast<std::size_t>(stream)], stream) < 0) return false;
  }
  const std::string& folder = options.workingDirectory.native();
  if (!folder.empty() && chdir(folder.c_str()) != 0) return false;
  for (const auto& [resource, value] : options.limits) {
    const rlimit limit{value, value};
    if (setrlimit(static_cast<__rlimit_resource>(resource), &limit) != 0) return false;
  }
  return true;
}

[[noreturn]] void RunChild(const Launch& launch, const ProgramOptions& options) {
  RestoreSignals();
  if (ApplyOptions(launch, options)) execve(launch.program.c_str(), launch.argv.data(), launch.envp.data());
  const int error = errno;
  if (write(launch.errorPipe, &error, sizeof error) < 0) _exit(126);
  _exit(127);
}

// The errno with which the child failed before it became the program; 0 when it succeeded.
int ReadLaunchError(const FileDescriptor& errorPipe) {
  int error = 0;
  while (read(errorPipe.Get(), &error, sizeof error) < 0 && errno == EINTR) {
  }
  return error;
}

// The test's threads answer the signals; writing to a program that has gone must not raise SIGPIPE.
void BlockAllSignalsInThisThread() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

std::string DescribeStream(const char* name, const std::string& text) {
  return text.empty() ? "" : std::string("\n--- ") + name + "\n" + text;
}

}  // namespace

std::string ProgramResult::Describe() const {
  std::string how = exitCode ? "exit code " + std::to_string(*exitCode) : "signal " + std::to_string(signal);
  if (timedOut) how += " (killed at the deadline)";
  return how + DescribeStream("standard output", out) + DescribeStream("standard error", err) +
         DescribeStream("terminal", terminal);
}

ProgramResult RunProgram(const std::vector<std::string>& argv, const ProgramOptions& options) {
  ProgramOptions closingInput = options;
  closingInput.keepInputOpen = false;  // nobody could send more
  BackgroundProgram program(argv, closingInput);
  if (const std::optional<ProgramResult> result = program.Wait(After(options.timeout))) return *result;
  program.Kill(SIGKILL);
  std::optional<ProgramResult> killed = program.Wait();
  if (!killed) throw std::runtime_error("\"" + argv.at(0) + "\" survives SIGKILL");
  killed->timedOut = true;
  return *killed;
}

// --- starting

BackgroundProgram::BackgroundProgram(const std::vector<std::string>& argv, const ProgramOptions& options)
    : m_wake(CheckOpen(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd")),
      m_pendingInput(options.input),
      m_isInputClosing(false),
      m_isInputTerminal(options.terminalInput) {
  Start(argv, options);
  if (!options.keepInputOpen) CloseInput();
  m_collector = std::thread([this] { Collect(); });
}

BackgroundProgram::ChildStreams BackgroundProgram::MakeStreams(const ProgramOptions& options) {
  ChildStreams theirs;
  const std::array<bool, 3> isOnTerminal{options.terminalInput, options.terminalOutput, options.terminalError};
  if (isOnTerminal[0] || isOnTerminal[1] || isOnTerminal[2]) {
    Terminal terminal = MakeTerminal();
    m_terminal.source = std::move(terminal.ours);
    m_terminalHold = Duplicate(terminal.theirs);
    theirs.terminal = std::move(terminal.theirs);
  }
  const std::array<FileDescriptor*, 3> ours{&m_input, &m_out.source, &m_err.source};
  for (std::size_t stream = 0; stream < 3; ++stream) {
    if (isOnTerminal[stream]) {
      theirs.standard[stream] = Duplicate(theirs.terminal);
      continue;
    }
    Pipe pipe = MakePipe();
    const bool isInput = stream == 0;
    *ours[stream] = std::move(isInput ? pipe.writeEnd : pipe.readEnd);
    theirs.standard[stream] = std::move(isInput ? pipe.readEnd : pipe.writeEnd);
  }
  if (options.terminalInput) m_input = Duplicate(m_terminal.source);
  for (Stream* stream : {&m_out, &m_err, &m_terminal}) stream->hasEnded = !stream->source.IsOpen();
  MakeNonBlocking(m_input);
  return theirs;
}

void BackgroundProgram::Start(const std::vector<std::string>& argv, const ProgramOptions& options) {
  if (argv.empty()) throw std::runtime_error("no program given");
  const ChildStreams streams = MakeStreams(options);
  Pipe error = MakePipe();
  Launch launch;
  launch.program = FindInPath(argv[0]);
  launch.arguments = argv;
  launch.environment = MakeEnvironment(options);
  launch.argv = MakePointers(launch.arguments);
  launch.envp = MakePointers(launch.environment);
  for (std::size_t stream = 0; stream < 3; ++stream) launch.standardStreams[stream] = streams.standard[stream].Get();
  launch.terminal = streams.terminal.Get();
  launch.errorPipe = error.writeEnd.Get();
  launch.parent = getpid();

  m_pid = fork();
  if (m_pid < 0) Throw("fork");
  if (m_pid == 0) RunChild(launch, options);
  error.writeEnd.Close();
  if (const int launchError = ReadLaunchError(error.readEnd)) {
    waitpid(m_pid, nullptr, 0);
    errno = launchError;
    Throw("cannot run \"" + launch.program + "\"");
  }
  m_pidDescriptor = CheckOpen(static_cast<int>(syscall(SYS_pidfd_open, m_pid, 0)), "pidfd_open");
}

// --- moving input and output

void BackgroundProgram::Collect() {
  BlockAllSignalsInThisThread();
  const std::array<Stream*, 3> streams{&m_out, &m_err, &m_terminal};
  while (!m_stop.IsOpen()) {
    // poll() skips entries without a descriptor.
    const int end = m_terminalHold.IsOpen() ? m_pidDescriptor.Get() : -1;
    std::array<pollfd, 7> events{pollfd{m_out.source.Get(), POLLIN, 0},
                                 pollfd{m_err.source.Get(), POLLIN, 0},
                                 pollfd{m_terminal.source.Get(), POLLIN, 0},
                                 pollfd{InputToPoll(), POLLOUT, 0},
                                 pollfd{m_wake.Get(), POLLIN, 0},
                                 pollfd{m_stop.PollDescriptor(), POLLIN, 0},
                                 pollfd{end, POLLIN, 0}};
    if (poll(events.data(), events.size(), -1) <= 0) continue;
    for (std::size_t stream = 0; stream < streams.size(); ++stream) {
      if (events[stream].revents != 0) ReadInto(*streams[stream]);
    }
    if (events[3].revents != 0) PumpInput();
    eventfd_t count = 0;
    if (events[4].revents != 0) eventfd_read(m_wake.Get(), &count);
    if (events[6].revents != 0) m_terminalHold.Close();
  }
}

void BackgroundProgram::ReadInto(Stream& stream) {
  std::array<char, 65536> buffer;
  const ssize_t count = read(stream.source.Get(), buffer.data(), buffer.size());
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
  {
    const std::lock_guard lock(m_mutex);
    if (count > 0) {
      stream.text.append(buffer.data(), static_cast<std::size_t>(count));
    } else {
      // The end of a pipe; a terminal that nobody has open any more says EIO instead. Closing our side of it any earlier
      // would send SIGHUP to the program.
      stream.hasEnded = true;
      stream.source.Close();
    }
  }
  m_changed.notify_all();
}

int BackgroundProgram::InputToPoll() const {
  const std::lock_guard lock(m_mutex);
  return m_pendingInput.empty() && !m_isInputClosing ? -1 : m_input.Get();
}

void BackgroundProgram::PumpInput() {
  const std::lock_guard lock(m_mutex);
  if (!m_pendingInput.empty()) {
    const ssize_t count = write(m_input.Get(), m_pendingInput.data(), m_pendingInput.size());
    if (count > 0) {
      m_pendingInput.erase(0, static_cast<std::size_t>(count));
    } else if (errno != EAGAIN && errno != EINTR) {
      m_input.Close();  // the program reads no more
    }
  }
  if (m_pendingInput.empty() && m_isInputClosing) m_input.Close();
}

bool BackgroundProgram::Send(std::string_view text) {
  {
    const std::lock_guard lock(m_mutex);
    if (!m_input.IsOpen() || m_isInputClosing) return false;
    m_pendingInput += text;
  }
  WakeCollector();
  return true;
}

void BackgroundProgram::CloseInput() {
  {
    const std::lock_guard lock(m_mutex);
    if (m_isInputTerminal && !m_isInputClosing) m_pendingInput += '\x04';
    m_isInputClosing = true;
  }
  WakeCollector();
}

void BackgroundProgram::WakeCollector() const { eventfd_write(m_wake.Get(), 1); }

std::string BackgroundProgram::TextOf(const Stream& stream) const {
  const std::lock_guard lock(m_mutex);
  return stream.text;
}

bool BackgroundProgram::WaitForText(const Stream& stream, std::string_view text, Deadline deadline) const {
  const auto hasText = [&] { return stream.text.find(text) != std::string::npos; };
  std::unique_lock lock(m_mutex);
  m_changed.wait_until(lock, deadline, [&] { return hasText() || stream.hasEnded; });
  return hasText();
}

// --- ending

BackgroundProgram::~BackgroundProgram() {
  if (!m_exit) {
    KillGroup();
    Reap();
  }
  m_stop.Open();
  m_collector.join();
}

void BackgroundProgram::Kill(int signal) {
  if (!m_exit) kill(m_pid, signal);
}

std::optional<ProgramResult> BackgroundProgram::Wait(Deadline deadline) {
  if (!m_exit) {
    if (!AwaitExit(deadline)) return std::nullopt;
    // Before the program is reaped: until then its number cannot be another group's.
    KillGroup();
    Reap();
  }
  AwaitStreamEnds(deadline);
  ProgramResult result = *m_exit;
  result.out = Output();
  result.err = ErrorOutput();
  result.terminal = TerminalOutput();
  return result;
}

bool BackgroundProgram::AwaitExit(Deadline deadline) const {
  while (true) {
    pollfd end{m_pidDescriptor.Get(), POLLIN, 0};
    const int ready = poll(&end, 1, MillisecondsUntil(deadline));
    if (ready > 0) return true;
    if (ready == 0 && Clock::now() >= deadline) return false;
  }
}

void BackgroundProgram::AwaitStreamEnds(Deadline deadline) const {
  std::unique_lock lock(m_mutex);
  m_changed.wait_until(lock, deadline, [&] { return m_out.hasEnded && m_err.hasEnded && m_terminal.hasEnded; });
}

void BackgroundProgram::KillGroup() const { kill(-m_pid, SIGKILL); }

void BackgroundProgram::Reap() {
  int status = 0;
  while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
  }
  m_exit.emplace();
  if (WIFEXITED(status)) m_exit->exitCode = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) m_exit->signal = WTERMSIG(status);
}

}  // namespace CorvaneTest
