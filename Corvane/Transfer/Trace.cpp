#include <optional>
#include <utility>

#include <Corvane/Transfer/AnswerHeaderImpl.h>
#include <Corvane/Transfer/TransferImpl.h>

// What goes on while a request runs, told to a host that asks for it. libcurl is told to be verbose only then, and the host's object
// is known to the request only while the operation runs: libcurl has more to say when the handle goes.

namespace Corvane {
namespace {

// Bodies and the bytes of TLS are nobody's business here.
std::optional<ZTransferTrace::Kind> KindOf(curl_infotype type) {
  switch (type) {
    case CURLINFO_TEXT:
      return ZTransferTrace::Kind::Information;
    case CURLINFO_HEADER_OUT:
      return ZTransferTrace::Kind::RequestLine;
    case CURLINFO_HEADER_IN:
      return ZTransferTrace::Kind::ResponseLine;
    default:
      return std::nullopt;
  }
}

}  // namespace

bool ZTransfer::ZTransferImpl::SetTrace() {
  const Additions& wanted = m_settings.additions;
  if (wanted.trace == nullptr) return true;
  std::vector<std::string> names;
  for (const std::string& header : wanted.headers) names.emplace_back(NameOf(header));
  m_request.trace.emplace(*wanted.trace, std::move(names), m_request.url.get());
  // Without the function a verbose libcurl writes to the host's standard error.
  return SetOption("Transfer", CURLOPT_DEBUGFUNCTION, &DebugCallback) &&
         SetOption("Transfer", CURLOPT_DEBUGDATA, this) && SetOption("Transfer", CURLOPT_VERBOSE, 1L);
}

int ZTransfer::ZTransferImpl::DebugCallback(CURL* /*handle*/, curl_infotype type, char* data, std::size_t size,
                                            void* object) noexcept {
  constexpr int kAlways = 0;
  if (const auto kind = KindOf(type)) {
    static_cast<ZTransferImpl*>(object)->Trace([&](TraceLines& lines) { lines.Take(*kind, {data, size}); });
  }
  return kAlways;
}

void ZTransfer::ZTransferImpl::FinishTrace() noexcept {
  Trace([](TraceLines& lines) { lines.Finish(); });
}

// The first exception of the host's code is kept, and the host told nothing more: what only looks on ends no transfer.
template <class Tell>
void ZTransfer::ZTransferImpl::Trace(Tell tell) noexcept {
  if (!m_request.trace || m_request.traceException != nullptr) return;
  try {
    tell(*m_request.trace);
  } catch (...) {
    m_request.traceException = std::current_exception();
  }
}

void ZTransfer::ZTransferImpl::RethrowFromTrace() {
  if (m_request.traceException != nullptr) std::rethrow_exception(std::exchange(m_request.traceException, nullptr));
}

}  // namespace Corvane
