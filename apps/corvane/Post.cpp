#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <utility>
#include <variant>

#include <Corvane/Base/StringCoding.h>

#include "apps/corvane/Command.h"
#include "apps/corvane/Failure.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/Session.h"
#include "apps/corvane/Text.h"

// corvane post: sends form fields, a text or a file, and prints the answer or writes it into a file.

namespace CorvaneCli {
namespace {

using Corvane::ZString;
using Corvane::ZTransfer;

constexpr const char* kDoing = "cannot post to";

Descriptor OpenMemoryOrFail(const char* purpose) {
  Descriptor memory = OpenMemory(purpose);
  if (memory.IsOpen()) return memory;
  throw Failure(ExitCode::kLocal,
                fmt::format("cannot keep the {} in memory: {}; free some memory", purpose, SystemText(errno)));
}

Descriptor Store(const std::string& bytes) {
  Descriptor memory = OpenMemoryOrFail("content");
  const int error = WriteAll(memory.Get(), bytes);
  if (error == 0) return memory;
  throw Failure(ExitCode::kLocal,
                fmt::format("cannot keep the content in memory: {}; free some memory", SystemText(error)));
}

// What is posted, as a file that the library can open and measure.
class Content {
 public:
  Content(const PostCommand& command, const Interrupt& interrupt) {
    if (const std::string* const path = std::get_if<std::string>(&command.content)) {
      UseFile(*path, interrupt);
    } else {
      m_descriptor = Store(ToUtf8(std::get<ZString>(command.content)));
    }
  }

  [[nodiscard]] ZString Name() const { return ZString(m_descriptor.Name().c_str()); }

 private:
  void UseFile(const std::string& path, const Interrupt& interrupt) {
    m_descriptor = Open(path, O_RDONLY);
    struct stat status {};
    if (!m_descriptor.IsOpen() || fstat(m_descriptor.Get(), &status) != 0) Refuse(path, errno);
    if (S_ISDIR(status.st_mode)) Refuse(path, EISDIR);
    if (S_ISREG(status.st_mode)) return;
    // The length of a pipe or device shows only when all of it has been read.
    std::string bytes;
    const int error = ReadAll(m_descriptor, interrupt.PollDescriptor(), bytes);
    if (error == ECANCELED) throw Failure(ExitCode::kInterrupted, "interrupted; nothing was sent");
    if (error != 0) Refuse(path, error);
    m_descriptor = Store(bytes);
  }

  [[noreturn]] static void Refuse(const std::string& path, int error) {
    throw Failure(ExitCode::kUsage, fmt::format("cannot read {}: {}; give --file a file that can be read",
                                                DisplayName(path), SystemText(error)));
  }

  Descriptor m_descriptor;
};

void AcceptOrFail(const PostCommand& command, Session& session, OutputFile* file, Report& report) {
  if (command.acceptHttpErrors) Session::AcceptHttpError(report);
  if (Corvane::IsFailure(report.status)) session.Fail(kDoing, file, false, report);
}

// A text whose answer is printed: no file is needed on either side.
void PostText(const PostCommand& command, Environment& environment, Report& report) {
  Session session(command.target, PrepareTransfers(command.target, environment), environment);
  ZString answer;
  session.Run(
      command.target.Label(), false,
      [&](ZTransfer& transfer) { transfer.PostData(command.target.url, std::get<ZString>(command.content), answer); },
      report);
  TakeBody(std::move(answer), report, environment);
  AcceptOrFail(command, session, nullptr, report);
}

// Any content, with the answer into a file.
void PostIntoFile(const PostCommand& command, Environment& environment, Report& report) {
  const Content content(command, *environment.interrupt);
  Session session(command.target, PrepareTransfers(command.target, environment), environment);
  OutputFile file(*command.output, {});
  session.Run(
      command.target.Label(), true,
      [&](ZTransfer& transfer) { transfer.PostFile(command.target.url, content.Name(), file.WorkName()); }, report);
  AcceptOrFail(command, session, &file, report);
  file.Commit();
}

// A file whose answer is printed. The library hands the answer to a posted file out only as a file.
void PostFromFile(const PostCommand& command, Environment& environment, Report& report) {
  const Content content(command, *environment.interrupt);
  Session session(command.target, PrepareTransfers(command.target, environment), environment);
  const Descriptor memory = OpenMemoryOrFail("answer");
  session.Run(
      command.target.Label(), false,
      [&](ZTransfer& transfer) {
        transfer.PostFile(command.target.url, content.Name(), ZString(memory.Name().c_str()));
      },
      report);
  std::string answer;
  const int error = ReadAll(memory, -1, answer);
  if (error != 0)
    throw Failure(ExitCode::kLocal, "cannot read back the answer: " + SystemText(error) + "; use -o FILE");
  TakeBody(FromUtf8(answer), report, environment);
  AcceptOrFail(command, session, nullptr, report);
}

}  // namespace

ExitCode RunPost(const PostCommand& command, Environment& environment) {
  Report report = MakeReport("post", command.target, command.output);
  return RunReported(report, environment, [&] {
    if (command.output) {
      PostIntoFile(command, environment, report);
    } else if (std::holds_alternative<ZString>(command.content)) {
      PostText(command, environment, report);
    } else {
      PostFromFile(command, environment, report);
    }
  });
}

}  // namespace CorvaneCli
