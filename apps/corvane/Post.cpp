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
#include "apps/corvane/HeaderFile.h"
#include "apps/corvane/OutputFile.h"
#include "apps/corvane/OutputStream.h"
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
  [[nodiscard]] unsigned long long Size() const {
    struct stat status {};
    return fstat(m_descriptor.Get(), &status) == 0 ? static_cast<unsigned long long>(status.st_size) : 0;
  }

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

class Post {
 public:
  Post(const PostCommand& command, Environment& environment, Report& report)
      : m_command(command),
        m_environment(environment),
        m_report(report),
        m_content(command, *environment.interrupt),
        m_session(command.target, PrepareTransfers(command.target, environment), environment) {
    Corvane::ZTransferOptions& options = m_session.Options();
    // An upload has all the time that it needs, as long as it moves.
    options.limitFollowsUpload = true;
    if (command.type) {
      std::vector<ZString> headers = environment.line.common.request.headers;
      headers.push_back(*command.type);
      RefuseRepeatedHeaders(headers);
      options.headers.push_back(*command.type);
    }
    m_session.ShowUpload(m_content.Size());
  }

  void Run() {
    if (m_command.output && !OutputFile::IsStream(*m_command.output)) {
      IntoFile();
    } else {
      ToStream();
    }
  }

 private:
  void Send(const ZString& answer, bool writesToFile) {
    m_report.attempts = 1;
    m_session.Run(
        m_command.target.Label(), writesToFile,
        [&](ZTransfer& transfer) { transfer.PostFile(m_command.target.url, m_content.Name(), answer); }, m_report);
    if (m_command.acceptHttpErrors) Session::AcceptHttpError(m_report);
  }

  void IntoFile() {
    OutputFile file(*m_command.output, OutputFile::Existing::kReplaced);
    file.Part().Record({m_command.target.display, {}, std::nullopt});
    file.Part().Clear();
    Send(file.Part().Name(), true);
    // The page of a refusal is kept, too: it may tell why, and a post is not made again to see it.
    if (Corvane::IsFailure(m_report.status)) m_session.Fail(kDoing, &file, false, m_report);
    static_cast<void>(file.Commit());
  }

  // The library hands the answer to a posted file out only as a file; so it is kept until it is whole.
  void ToStream() {
    const Descriptor memory = OpenMemoryOrFail("answer");
    Send(ZString(memory.Name().c_str()), m_command.output.has_value());
    std::string answer;
    const int error = ReadAll(memory, -1, answer);
    if (error != 0) {
      throw Failure(ExitCode::kLocal, "cannot read back the answer: " + SystemText(error) + "; use -o FILE");
    }
    const bool isFailure = Corvane::IsFailure(m_report.status);
    if (m_environment.line.common.json && !m_command.output) {
      TakeBody(FromUtf8(answer), m_report, m_environment);
    } else if (!isFailure) {
      WriteAnswer(answer);
    }
    if (isFailure) m_session.Fail(kDoing, nullptr, false, m_report);
  }

  void WriteAnswer(const std::string& answer) {
    OutputStream output(m_command.output, m_environment, m_command.decodesText);
    if (!output.Write(answer) || !output.Finish()) output.Fail(m_command.target.display);
  }

  const PostCommand& m_command;
  Environment& m_environment;
  Report& m_report;
  const Content m_content;
  Session m_session;
};

}  // namespace

ExitCode RunPost(const PostCommand& command, Environment& environment) {
  Report report = MakeReport("post", command.target, command.output);
  return RunReported(report, environment, [&] { Post(command, environment, report).Run(); });
}

}  // namespace CorvaneCli
