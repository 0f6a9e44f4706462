#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <Corvane/Base/Stream.h>
#include <Corvane/Base/String.h>
#include <Corvane/Base/Sys.h>
#include <Corvane/TransferOptions.h>

namespace Corvane {

// What a body's destination may want to know of the answer before it takes the first block.
struct Answer {
  bool isHttp = false;
  bool isAcceptable = false;  // a status in 200 to 299, or no HTTP at all
  std::string_view header;    // all header lines received so far
  std::string fileVersion{};  // without HTTP: what stands for the file's version; empty when that is not known
  long status = 0;            // of HTTP, as libcurl took it: a status line that is none by the book may say another one
};

// Where the body of an answer goes: into memory, into a file, or into a file that holds its beginning already.
// One thread, that of the operation.
class Body {
 public:
  Body() = default;
  virtual ~Body() = default;
  Body(const Body&) = delete;
  Body& operator=(const Body&) = delete;

  // The offset in the resource at which the request asks the server to begin.
  [[nodiscard]] virtual unsigned long long Position() const noexcept { return 0; }
  // Whether Judge is to be called, once, before the first block.
  [[nodiscard]] virtual bool WantsAnswer() const noexcept { return false; }
  virtual void Judge(const Answer& /*answer*/) {}
  // Returns how many of the bytes were taken; fewer than `bytes` ends the transfer.
  virtual std::size_t Write(const char* data, std::size_t bytes) = 0;
};

// Collects the body. The memory is kept from one operation to the next: later data overwrites it, and only the caller knows how
// much of it counts.
class MemoryBody final : public Body {
 public:
  std::size_t Write(const char* data, std::size_t bytes) override { return m_stream.Write(data, bytes); }
  void Rewind() noexcept { static_cast<void>(m_stream.Seek(0)); }  // the beginning is always there
  // Replaces `text` by what the first `bytes` bytes stand for in UTF-8.
  ZResult Read(ZString& text, std::size_t bytes);

 private:
  ZDynamicMemoryStream m_stream{1};
};

// Hands the body of an acceptable answer to an object of the host. The page of a refusal is no part of what was asked for, and is
// handed on only to a host that asks for it.
class SinkBody final : public Body {
 public:
  SinkBody(ZTransferSink& sink, bool handsOnErrorPages) : m_sink(sink), m_handsOnErrorPages(handsOnErrorPages) {}
  [[nodiscard]] bool WantsAnswer() const noexcept override { return true; }
  void Judge(const Answer& answer) override { m_refused = !answer.isAcceptable && !m_handsOnErrorPages; }
  std::size_t Write(const char* data, std::size_t bytes) override {
    return m_refused || bytes == 0 ? bytes : m_sink.Write(data, bytes);
  }

 private:
  ZTransferSink& m_sink;
  bool m_handsOnErrorPages;
  bool m_refused = false;
};

// An open file that an operation closes itself, so that it learns of a failure; or that closes when an exception passes.
class OpenFile {
 public:
  OpenFile() = default;
  ~OpenFile() { Close(); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  ZResult Open(const char* localName, const char* mode) { return Wrappers::Sys::Fopen(&m_file, localName, mode); }
  ZResult Close();
  [[nodiscard]] bool IsOpen() const noexcept { return m_file != nullptr; }
  [[nodiscard]] std::FILE* Get() const noexcept { return m_file; }

 private:
  std::FILE* m_file = nullptr;
};

// Writes the body into a file that somebody else opens and closes.
class FileBody : public Body {
 public:
  explicit FileBody(const OpenFile& file) : m_file(file) {}
  std::size_t Write(const char* data, std::size_t bytes) override;

 protected:
  [[nodiscard]] const OpenFile& File() const noexcept { return m_file; }

 private:
  const OpenFile& m_file;
};

}  // namespace Corvane
