#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <Corvane/Base/String.h>
#include <Corvane/TransferOptions.h>

namespace Corvane {

// Makes of what libcurl tells the lines that a trace is told, and strikes out what may be a secret in them. One thread, that of the
// operation.
class TraceLines {
 public:
  // `secretFields`: names of header fields whose values are not shown, beside those that never are. `url`: of the first request.
  // `trace` must outlive this object.
  TraceLines(ZTransferTrace& trace, std::vector<std::string> secretFields, std::string_view url);

  // Tells the lines that are complete with these bytes. libcurl hands a request over in pieces when not all of it could be sent at
  // once, so that a line may come in several.
  void Take(ZTransferTrace::Kind kind, std::string_view bytes);
  // Tells what has not come to its line's end.
  void Finish();

 private:
  using Kind = ZTransferTrace::Kind;

  struct Stream {
    std::string unfinished;
    bool isInSecretField = false;  // the last line was of a field that is not shown, and the next may continue it
  };

  void Tell(Kind kind, std::string_view line);
  [[nodiscard]] std::string WithoutSecrets(Kind kind, std::string_view line);
  [[nodiscard]] std::string WithoutSecretField(Stream& stream, std::string_view line) const;
  [[nodiscard]] std::string WithoutSecretPair(std::string_view line) const;
  [[nodiscard]] bool IsSecret(std::string_view name) const;
  [[nodiscard]] Stream& StreamOf(Kind kind) { return m_streams[static_cast<std::size_t>(kind)]; }

  ZTransferTrace& m_trace;
  std::vector<std::string> m_secretFields;
  bool m_isProtocolKnown;
  std::array<Stream, 3> m_streams;
};

}  // namespace Corvane
