#pragma once

#include <cstddef>

#include <Corvane/Base/Container.h>
#include <Corvane/Base/String.h>
#include <Corvane/Export.h>

namespace Corvane {

class ZTransferTrace;

// What a ZTransfer does only when it is asked to, see ZTransfer::SetOptions. Every member begins with the value that leaves a
// transfer as it is without any of this.
//
//   Corvane::ZTransferOptions options;
//   options.mostRedirects = 10;
//   options.headers = {L"Accept: application/json"};
//   if (Corvane::IsFailure(transfer.SetOptions(options))) ...
struct ZTransferOptions {
  // How many redirects of an HTTP server are followed in one operation; 0: none, a redirect then is an answer outside 200 to 299.
  // Only to http and https, and never from https to http; what ZTransfer::SetSSL asks for is checked also where a redirect leads to
  // https. Credentials go to the first host only (libcurl compares host, port and scheme); the headers below, but for
  // "Authorization" and "Cookie", go to every host. The header text holds all answers, and the last one counts. A post becomes a
  // GET after 301, 302 and 303, and stays what it is after 307 and 308 (RFC 9110, section 15.4). One redirect more than this ends
  // the operation with libcurl's code 47, a refused one with its code 1. At most 10,000.
  unsigned int mostRedirects = 0;

  // Request headers, each "NAME: VALUE", sent to HTTP servers in this order. They replace what libcurl would send under the same
  // name; an empty value sends an empty field. Refused are a name that is no token (RFC 9110, section 5.6.2), a character below
  // the blank, but for the tab, or DEL in a value, a name that comes twice, and the fields that the library and libcurl need for
  // themselves: Range, If-Range, User-Agent, Content-Length, Transfer-Encoding, Connection.
  ZStringList headers;

  // The field User-Agent; empty: none is sent. The same characters are refused as in a header's value.
  ZString userAgent;

  // Whether a resume proves that the old part belongs to what the server has now: the 32 bytes that are fetched again are compared
  // with those in the file before one byte is written. A difference, a resource that is shorter than the file, or an answer with
  // another validator than the one below gives libcurl's code 33 with the text "The file on the server has changed. Cannot
  // resume.", and leaves the file as it is. A sink that asks for a part has nothing to compare: there the validator is all.
  bool checkResume = false;

  // With checkResume, what the server said of the version that the old part came from, as ZTransfer::GetValidator gave it. Over HTTP
  // that is a strong entity tag, with its quotes, or the text of Last-Modified, and the request carries it as If-Range (RFC 9110,
  // section 13.1.5), so that a server which has another version sends no part of it. Over FTP it stands for the size and the time of
  // the file (SIZE and MDTM; set askModificationTime, too), which are asked for again and have to be the same. A validator of the
  // other protocol proves nothing: no HTTP request carries one of FTP, and either is refused as another version.
  ZString validator;

  // Whether bytes sent move the sliding time limit, as received ones do, and show in GetTransferSize and GetTransferRate while they
  // are sent. Without it an upload must be through within the time limit.
  bool limitFollowsUpload = false;

  // Asks FTP servers for the time of the file (MDTM), for GetModificationTime and GetValidator. HTTP servers tell it unasked.
  bool askModificationTime = false;

  // Whether a sink is handed the body of an answer outside 200 to 299, too, unless it asked for a part of the resource. The code is
  // TRANSFER_E_CONNECT all the same.
  bool handOnErrorPages = false;

  // Told what goes on while an operation runs; null: nobody. The host's: it must live until it is replaced or the transfer is
  // destroyed.
  ZTransferTrace* trace = nullptr;

  // libcurl's receive buffer in bytes, 1,024 to 10,485,760; 0: libcurl's own, 16 KiB. More makes fewer and larger blocks.
  unsigned long receiveBufferBytes = 0;
};

// Takes the bytes of a body as they come, see ZTransfer::Download. Objects are the host's.
class ZTransferSink {
 public:
  // Called on the transferring thread, without any lock, block after block in order. Returns how many of the bytes were taken;
  // fewer than `bytes` end the operation with libcurl's code 23. A slow sink holds the server up: nothing is collected meanwhile,
  // but the time limit runs on until it returns. `data` is valid during the call only; `bytes` is never 0.
  // An exception ends the operation and is passed to its caller; std::bad_alloc counts as 0 bytes taken.
  virtual std::size_t Write(const void* data, std::size_t bytes) = 0;
  virtual ~ZTransferSink() = default;
};

// Is told what goes on during an operation: what is sent and received beside the bodies, and what libcurl says of addresses, TLS
// versions, certificates and connections. See ZTransferOptions::trace. Objects are the host's.
class ZTransferTrace {
 public:
  // What a line is.
  enum class Kind {
    Information,  // libcurl's own words: "Connected to ...", "SSL connection using TLSv1.3 ...", "Server certificate:"
    RequestLine,  // a line of a request's header, or a command to an FTP server
    ResponseLine  // a line of an answer's header, or an FTP server's reply
  };

  // Called on the transferring thread, without any lock. `line` has no line end; the one after a header's last is empty. It may hold
  // any character that a server sends, those that move a terminal's cursor, too; ill-formed UTF-8 is U+FFFD in it.
  // "***" stands for what may be a secret: passwords in URLs, the password sent to an FTP server, the values of Authorization,
  // Proxy-Authorization, Cookie and Set-Cookie, and those of all fields of ZTransferOptions::headers, sent or received; and for
  // all that is sent to a server of another protocol than HTTP and FTP, or for a URL without a scheme. Queries of URLs are shown
  // as they are.
  // Must not start an operation of the same object. An exception ends the operation no sooner; it is passed to the operation's
  // caller, and no further line of that operation is told.
  virtual void Line(Kind kind, const ZString& line) = 0;
  virtual ~ZTransferTrace() = default;
};

}  // namespace Corvane
