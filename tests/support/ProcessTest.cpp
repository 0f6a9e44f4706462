#include "tests/support/Process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/support/Env.h"
#include "tests/support/TempDir.h"

namespace CorvaneTest {
namespace {

using std::chrono::milliseconds;

ProgramResult RunShell(const std::string& script, const ProgramOptions& options = {}) {
  return RunProgram({"/bin/sh", "-c", script}, options);
}

// --- how a program ends

TEST(RunProgram, ReportsTheExitCode) {
  const ProgramResult result = RunShell("echo out; echo err >&2; exit 42");
  EXPECT_EQ(result.exitCode, 42);
  EXPECT_EQ(result.signal, 0);
  EXPECT_FALSE(result.timedOut);
  EXPECT_EQ(result.out, "out\n");
  EXPECT_EQ(result.err, "err\n");
  EXPECT_EQ(result.terminal, "");
  EXPECT_EQ(result.Describe(), "exit code 42\n--- standard output\nout\n\n--- standard error\nerr\n");
}

TEST(RunProgram, ReportsTheSignal) {
  const ProgramResult result = RunShell("kill -TERM $$; sleep 1000");
  EXPECT_EQ(result.exitCode, std::nullopt);
  EXPECT_EQ(result.signal, SIGTERM);
  EXPECT_FALSE(result.timedOut);
}

TEST(RunProgram, KillsAtTheDeadlineAndKeepsTheOutput) {
  ProgramOptions options;
  options.timeout = milliseconds(300);
  const ProgramResult result = RunProgram({"/bin/sh", "-c", "trap '' TERM INT; echo before; sleep 1000"}, options);
  EXPECT_TRUE(result.timedOut);
  EXPECT_EQ(result.signal, SIGKILL);
  EXPECT_NE(result.Describe().find("killed at the deadline"), std::string::npos);
}

TEST(RunProgram, DoesNotWaitForADescendantThatHoldsTheOutput) {
  const Deadline deadline = After(kPatience);
  const ProgramResult result = RunShell("sleep 1000 & echo $!");
  EXPECT_EQ(result.exitCode, 0);
  EXPECT_LT(Clock::now(), deadline);
  const pid_t descendant = std::stoi(result.out);
  // Orphaned and killed, it belongs to init until that has reaped it.
  while (kill(descendant, 0) == 0 && Clock::now() < deadline) {
    const std::string state = ReadFile("/proc/" + std::to_string(descendant) + "/stat");
    if (state.find(") Z ") != std::string::npos) return;
  }
  EXPECT_NE(kill(descendant, 0), 0);
}

TEST(RunProgram, ThrowsWhenThereIsNoSuchProgram) {
  EXPECT_THROW(RunProgram({"corvane-no-such-program"}), std::runtime_error);
  EXPECT_THROW(RunProgram({"/no/such/program"}), std::runtime_error);
  EXPECT_THROW(RunProgram({"/etc/passwd"}), std::runtime_error);
  EXPECT_THROW(RunProgram({}), std::runtime_error);
}

TEST(RunProgram, ThrowsWhenTheFolderIsMissing) {
  ProgramOptions options;
  options.workingDirectory = "/no/such/folder";
  EXPECT_THROW(RunShell("true", options), std::runtime_error);
}

// --- what a program is given

TEST(RunProgram, PassesInputAndCollectsBothStreamsWhateverTheirSize) {
  ProgramOptions options;
  options.input = MakePattern(3000000);
  const ProgramResult result = RunShell("tee /dev/stderr", options);
  EXPECT_TRUE(result.out == options.input);
  EXPECT_TRUE(result.err == options.input);
}

TEST(RunProgram, DoesNotMindAProgramThatLeavesItsInput) {
  ProgramOptions options;
  options.input = MakePattern(3000000);
  EXPECT_EQ(RunShell("exit 3", options).exitCode, 3);
}

TEST(RunProgram, GivesEndOfInputAtOnceByDefault) { EXPECT_EQ(RunProgram({"cat"}).exitCode, 0); }

TEST(RunProgram, ChangesTheEnvironment) {
  const ScopedVariable kept("CORVANE_TEST_KEPT", "kept");
  const ScopedVariable changed("CORVANE_TEST_CHANGED", "old");
  const ScopedVariable removed("CORVANE_TEST_REMOVED", "old");
  ProgramOptions options;
  options.environment = {{"CORVANE_TEST_CHANGED", "new"}, {"CORVANE_TEST_REMOVED", std::nullopt}};
  EXPECT_EQ(RunShell("env | grep ^CORVANE_TEST_ | sort", options).out,
            "CORVANE_TEST_CHANGED=new\nCORVANE_TEST_KEPT=kept\n");
}

TEST(RunProgram, ChangesTheFolder) {
  const TempDir folder;
  ProgramOptions options;
  options.workingDirectory = folder.Path();
  EXPECT_EQ(RunShell("pwd -P", options).out, folder.Path().string() + "\n");
}

TEST(RunProgram, SetsLimits) {
  ProgramOptions options;
  options.limits = {{RLIMIT_NOFILE, 17}, {RLIMIT_CORE, 0}};
  EXPECT_EQ(RunShell("ulimit -n; ulimit -H -n; ulimit -c", options).out, "17\n17\n0\n");
}

TEST(RunProgram, RestoresSignalsThatThisProcessIgnoresOrBlocks) {
  const auto former = signal(SIGINT, SIG_IGN);
  sigset_t pipe, before;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, &before);
  const ProgramResult result = RunProgram({"grep", "-E", "^Sig(Blk|Ign|Cgt)", "/proc/self/status"});
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  signal(SIGINT, former);
  EXPECT_NE(result.out.find("SigBlk:\t0000000000000000"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("SigIgn:\t0000000000000000"), std::string::npos) << result.out;
}

TEST(RunProgram, LeavesNoDescriptorOfItsOwnToTheProgram) {
  // Only what the test itself was started with may appear beside the standard streams and ls's own.
  const ProgramResult outer = RunShell("ls /proc/self/fd | wc -l");
  const BackgroundProgram other({"sleep", "1000"});
  const ProgramResult inner = RunShell("ls /proc/self/fd | wc -l");
  EXPECT_EQ(outer.out, inner.out);
}

// --- terminals

struct TerminalCase {
  bool input, output, error;
  const char* expected;  // of the descriptors that are terminals
};
constexpr TerminalCase kTerminalCases[] = {
    {false, false, false, ""}, {true, false, false, "0"}, {false, true, false, "1"},
    {false, false, true, "2"}, {false, true, true, "12"}, {true, true, true, "012"},
};

TEST(RunProgram, ConnectsTheChosenStreamsToATerminal) {
  const TempDir folder;
  for (const TerminalCase& c : kTerminalCases) {
    ProgramOptions options;
    options.terminalInput = c.input;
    options.terminalOutput = c.output;
    options.terminalError = c.error;
    options.environment["REPORT"] = (folder / "report").string();
    const char* script = "for fd in 0 1 2; do test -t $fd && printf $fd; done > \"$REPORT\" 3>&1; true";
    // test -t 1 must look at the real standard output, hence the report goes through descriptor 3.
    script = "exec 3> \"$REPORT\"; for fd in 0 1 2; do if test -t $fd; then printf $fd >&3; fi; done";
    EXPECT_EQ(RunShell(script, options).exitCode, 0);
    EXPECT_EQ(ReadFile(folder / "report"), c.expected);
  }
}

TEST(RunProgram, CollectsWhatGoesToTheTerminalApart) {
  ProgramOptions options;
  options.terminalError = true;
  const ProgramResult result = RunShell("echo out; echo err >&2; echo tty > /dev/tty", options);
  EXPECT_EQ(result.out, "out\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.terminal, "err\r\ntty\r\n");
}

TEST(RunProgram, GivesTheTerminalASize) {
  ProgramOptions options;
  options.terminalInput = true;
  EXPECT_EQ(RunProgram({"stty", "size"}, options).out, "24 80\n");
}

TEST(RunProgram, TypesTheInputAndThenItsEnd) {
  ProgramOptions options;
  options.terminalInput = true;
  options.input = "typed\n";
  const ProgramResult result = RunProgram({"cat"}, options);
  EXPECT_EQ(result.exitCode, 0) << result.Describe();
  EXPECT_EQ(result.out, "typed\n");
}

TEST(BackgroundProgram, MayCloseItsTerminalAndOpenItAgain) {
  const TempDir folder;
  ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
  // For reading, too: opening it must not wait for a program that may have died.
  const FileDescriptor fifo(open((folder / "fifo").c_str(), O_RDWR | O_CLOEXEC));
  ProgramOptions options;
  options.terminalInput = true;
  options.workingDirectory = folder.Path();
  BackgroundProgram program({"/bin/sh", "-c", "exec < /dev/null; echo closed; read line < fifo; echo $line > /dev/tty"},
                            options);
  ASSERT_TRUE(program.WaitForOutput("closed"));
  ASSERT_EQ(write(fifo.Get(), "back\n", 5), 5);
  const std::optional<ProgramResult> result = program.Wait();
  ASSERT_TRUE(result);
  EXPECT_EQ(result->exitCode, 0) << result->Describe();
  EXPECT_NE(result->terminal.find("back"), std::string::npos) << result->Describe();
}

TEST(RunProgram, HasNoTerminalByDefault) { EXPECT_NE(RunShell("echo x > /dev/tty").exitCode, 0); }

// --- programs in the background

TEST(BackgroundProgram, AnswersInput) {
  ProgramOptions options;
  options.keepInputOpen = true;
  BackgroundProgram program({"cat"}, options);
  EXPECT_TRUE(program.Send("one\n"));
  EXPECT_TRUE(program.WaitForOutput("one\n"));
  EXPECT_TRUE(program.IsRunning());
  EXPECT_TRUE(program.Send("two\n"));
  program.CloseInput();
  EXPECT_FALSE(program.Send("three\n"));
  const std::optional<ProgramResult> result = program.Wait();
  ASSERT_TRUE(result);
  EXPECT_EQ(result->exitCode, 0);
  EXPECT_EQ(result->out, "one\ntwo\n");
  EXPECT_FALSE(program.IsRunning());
}

TEST(BackgroundProgram, WaitKeepsItsDeadline) {
  BackgroundProgram program({"sleep", "1000"});
  EXPECT_FALSE(program.Wait(After(milliseconds(1))));
  EXPECT_FALSE(program.WaitForOutput("x", After(milliseconds(1))));
}

TEST(BackgroundProgram, IsEndedByASignal) {
  BackgroundProgram program({"sleep", "1000"});
  program.Kill(SIGINT);
  const std::optional<ProgramResult> result = program.Wait();
  ASSERT_TRUE(result);
  EXPECT_EQ(result->signal, SIGINT);
  program.Kill(SIGKILL);  // nothing to kill any more
  EXPECT_EQ(program.Wait()->signal, SIGINT);
}

TEST(BackgroundProgram, WaitForOutputEndsWithTheStream) {
  BackgroundProgram program({"/bin/sh", "-c", "echo other; echo error >&2"});
  EXPECT_FALSE(program.WaitForOutput("never", Deadline::max()));
  EXPECT_TRUE(program.WaitForErrorOutput("error"));
  EXPECT_FALSE(program.WaitForTerminalOutput("no terminal", Deadline::max()));
}

TEST(BackgroundProgram, ControlCInterruptsTheForeground) {
  ProgramOptions options;
  options.terminalInput = options.terminalError = true;
  options.keepInputOpen = true;
  BackgroundProgram program({"/bin/sh", "-c", "trap 'echo caught; exit 7' INT; echo ready >&2; read line"}, options);
  ASSERT_TRUE(program.WaitForTerminalOutput("ready"));
  program.Send("\x03");
  const std::optional<ProgramResult> result = program.Wait();
  ASSERT_TRUE(result);
  EXPECT_EQ(result->exitCode, 7) << result->Describe();
  EXPECT_EQ(result->out, "caught\n");
}

TEST(BackgroundProgram, DestructorKillsTheProgramAndItsGroup) {
  pid_t pid = -1;
  {
    const BackgroundProgram program({"sleep", "1000"});
    pid = program.Pid();
    EXPECT_EQ(kill(pid, 0), 0);
  }
  EXPECT_NE(kill(pid, 0), 0);
}

TEST(BackgroundProgram, EndsWithTheThreadThatStartedIt) {
  std::unique_ptr<BackgroundProgram> program;
  std::thread([&] { program = std::make_unique<BackgroundProgram>(std::vector<std::string>{"sleep", "1000"}); }).join();
  const std::optional<ProgramResult> result = program->Wait();
  ASSERT_TRUE(result);
  EXPECT_EQ(result->signal, SIGKILL);
}

}  // namespace
}  // namespace CorvaneTest
