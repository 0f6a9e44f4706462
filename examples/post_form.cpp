// post_form URL NAME=VALUE...: posts form fields and prints the answer.
//
// Shows that fields are sent as given: a browser would percent-encode them, and so must a host whose names or values hold
// more than letters and digits.

#include <clocale>
#include <cstdio>
#include <string>
#include <string_view>

#include <Corvane/Base/StringCoding.h>
#include <Corvane/Transfer.h>

#include "examples/host.h"

namespace {

// The encoding of application/x-www-form-urlencoded.
std::string EncodeField(std::string_view text) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789*-._";
  std::string encoded;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == ' ') {
      encoded += '+';
    } else if (kPlain.find(c) != std::string_view::npos) {
      encoded += c;
    } else {
      encoded += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return encoded;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  std::setlocale(LC_ALL, "");  // the encoding of the arguments
  Corvane::ZMap<Corvane::ZString, Corvane::ZString, Corvane::ZLtstr> fields;
  for (int i = 2; i < argc; ++i) {
    const Corvane::ZStringEncoder utf8(Corvane::ZString(argv[i]), Corvane::ZStringEncoder::Utf8);
    const std::string_view field(utf8.CStr(), utf8.Length());
    const std::size_t equals = field.find('=');
    if (equals == std::string_view::npos) return 2;
    fields[EncodeField(field.substr(0, equals)).c_str()] = EncodeField(field.substr(equals + 1)).c_str();
  }

  Corvane::ZTransfer transfer;
  if (!VerifyServers(transfer)) return 1;
  Corvane::ZString answer;
  const Corvane::ZResult result = transfer.Post(argv[1], fields, answer);
  if (Corvane::IsFailure(result)) return TellFailure(transfer, result);
  std::printf("%s\n", Corvane::ZStringEncoder(answer, Corvane::ZStringEncoder::Utf8).CStr());
}
