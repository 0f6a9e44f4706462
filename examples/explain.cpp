// explain CODE...: tells what result codes, in hexadecimal, stand for.
//
// Shows the dictionary of messages, and how a host puts codes of its own into it.

#include <clocale>
#include <cstdio>
#include <cstdlib>

#include <Corvane/Base/ErrorDict.h>
#include <Corvane/Base/StringCoding.h>
#include <Corvane/TransferErrorCodes.h>

namespace {

constexpr unsigned int kFacility = 0x700;  // this program's own: any but 0 and TRANSFER_FACILITY
constexpr Corvane::ZResult kNoLicence = 0x80000000 | kFacility << 16 | 1;

void Explain(Corvane::ZResult code) {
  const Corvane::ZStringEncoder text(Corvane::ZGetErrorMsg(code), Corvane::ZStringEncoder::Utf8);
  std::printf("0x%08x %s, facility %u: %s\n", code, Corvane::IsFailure(code) ? "failure" : "success",
              Corvane::FacilityOf(code), text.CStr());
  if (Corvane::FacilityOf(code) == Corvane::TRANSFER_FACILITY && (code & 0xFFFF) > 0 && (code & 0xFFFF) < 0x1000) {
    std::printf("  libcurl's failure %u, see libcurl-errors(3)\n", code & 0xFFFF);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  std::setlocale(LC_ALL, "");          // the language of the system's own messages
  Corvane::LoadErrorCodes_TRANSFER();  // there once the library is loaded; this has the linker keep the library
  const Corvane::ZErrorMap own = {{kNoLicence, L"No licence for this file"}};
  Corvane::ZErrorDict::Register(kFacility, &own);  // keeps the address: the map stays until it is withdrawn

  int status = 0;
  for (int i = 1; i < argc; ++i) {
    char* end = nullptr;
    const unsigned long code = std::strtoul(argv[i], &end, 16);
    if (end == argv[i] || *end != '\0' || code > 0xFFFFFFFF) {
      std::fprintf(stderr, "%s: no code\n", argv[i]);
      status = 2;
      continue;
    }
    Explain(static_cast<Corvane::ZResult>(code));
  }
  Corvane::ZErrorDict::Unregister(kFacility, &own);
  return status;
}
