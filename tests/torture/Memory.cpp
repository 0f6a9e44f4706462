#include "tests/torture/Memory.h"

#include <curl/curl.h>
#include <openssl/crypto.h>
#include <openssl/ssl.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string_view>

#include "tests/support/NextFunction.h"
#include "tests/torture/Injection.h"

// Whoever allocates comes through here: the library by the operators and by functions of C, libcurl and OpenSSL by the functions that
// they let a program set. So malloc itself stays what it is, and a sanitizer's own.
// NOLINTBEGIN(cppcoreguidelines-no-malloc): these are what allocates

using CorvaneTest::Injection;
using CorvaneTest::NextFunction;
using Memory = CorvaneTest::Injection::Memory;

namespace {

void* Allocate(std::size_t bytes) noexcept {
  if (Injection::FailsMemory(Memory::kLibrary, "operator new")) return nullptr;
  return std::malloc(bytes == 0 ? 1 : bytes);
}

}  // namespace

// Every form of the operators is replaced, so that a sanitizer never sees memory of one kind freed as another.
CORVANE_TEST_REPLACES void* operator new(std::size_t bytes) {
  void* const memory = Allocate(bytes);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
CORVANE_TEST_REPLACES void* operator new[](std::size_t bytes) { return operator new(bytes); }
CORVANE_TEST_REPLACES void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return Allocate(bytes); }
CORVANE_TEST_REPLACES void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
  return Allocate(bytes);
}
CORVANE_TEST_REPLACES void operator delete(void* memory) noexcept { std::free(memory); }
CORVANE_TEST_REPLACES void operator delete[](void* memory) noexcept { std::free(memory); }
CORVANE_TEST_REPLACES void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
CORVANE_TEST_REPLACES void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
CORVANE_TEST_REPLACES void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
CORVANE_TEST_REPLACES void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

// A sanitizer that is linked into the program itself has no "next" function; its own goes by this name.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" __attribute__((weak)) void* __interceptor_realloc(void* memory, std::size_t bytes);
extern "C" __attribute__((weak)) char* __interceptor_strdup(const char* text);
// NOLINTEND(bugprone-reserved-identifier)

CORVANE_TEST_STANDS_IN void* realloc(void* memory, std::size_t bytes) noexcept {
  static const NextFunction<void*(void*, std::size_t)> next("realloc");
  const bool isLibrarys = CorvaneTest::IsLibraryCode(__builtin_return_address(0));
  if (isLibrarys && Injection::FailsMemory(Memory::kLibrary, "realloc")) return nullptr;
  return __interceptor_realloc != nullptr ? __interceptor_realloc(memory, bytes) : next(memory, bytes);
}

CORVANE_TEST_STANDS_IN char* strdup(const char* text) noexcept {
  static const NextFunction<char*(const char*)> next("strdup");
  const bool isLibrarys = CorvaneTest::IsLibraryCode(__builtin_return_address(0));
  if (isLibrarys && Injection::FailsMemory(Memory::kLibrary, "strdup")) return nullptr;
  return __interceptor_strdup != nullptr ? __interceptor_strdup(text) : next(text);
}

// What runs out of memory here tells nobody. libcurl 7.88 leaves the handle without the size of its buffer then, and a transfer over FTP
// gets nothing until its time limit ends it: a bare program does, too. No host can know.
CORVANE_TEST_STANDS_IN void curl_easy_reset(CURL* easy) {
  static const NextFunction<void(CURL*)> next("curl_easy_reset");
  const Injection::LeavingOut leavingOut;
  next(easy);
}

namespace {

using RememberSession = int(SSL*, SSL_SESSION*);
std::atomic<RememberSession*> s_rememberSession{nullptr};

int RememberWithoutFailure(SSL* ssl, SSL_SESSION* session) {
  const Injection::LeavingOut leavingOut;
  return s_rememberSession.load()(ssl, session);
}

}  // namespace

// libcurl 7.88 remembers the sessions of TLS by the name of their server. When memory runs out just then it frees the name, keeps the
// pointer, and frees it once more with the next session of the same handle: two downloads by a bare program show it.
CORVANE_TEST_STANDS_IN void SSL_CTX_sess_set_new_cb(SSL_CTX* context, RememberSession* remember) {
  static const NextFunction<void(SSL_CTX*, RememberSession*)> next("SSL_CTX_sess_set_new_cb");
  s_rememberSession = remember;
  next(context, remember == nullptr ? nullptr : &RememberWithoutFailure);
}

namespace CorvaneTest {
namespace {

bool FailsInLibcurl(const char* function) noexcept { return Injection::FailsMemory(Memory::kOther, function); }

void* CurlMalloc(std::size_t bytes) { return FailsInLibcurl("libcurl's malloc") ? nullptr : std::malloc(bytes); }
void* CurlCalloc(std::size_t count, std::size_t bytes) {
  return FailsInLibcurl("libcurl's calloc") ? nullptr : std::calloc(count, bytes);
}
void* CurlRealloc(void* memory, std::size_t bytes) {
  return FailsInLibcurl("libcurl's realloc") ? nullptr : std::realloc(memory, bytes);
}

// libcurl 7.88 does not look whether it has got its copy of the name of a file on an FTP server. Without the name it asks for the listing
// of the file, hands that on in the file's place and succeeds: a bare program gets no other. So these copies do not fail; the files of
// the runs over FTP are named for it.
bool IsNameOnFtpServer(std::string_view text) {
  return text.ends_with(kFtpSuffix) && text.find('/') == std::string_view::npos;
}

bool FailsToCopy(const char* text) {
  if (!IsNameOnFtpServer(text)) return FailsInLibcurl("libcurl's strdup");
  const Injection::LeavingOut leavingOut;
  return FailsInLibcurl("libcurl's strdup");
}

char* CurlStrdup(const char* text) {
  if (FailsToCopy(text)) return nullptr;
  const std::size_t bytes = std::strlen(text) + 1;
  void* const copy = std::malloc(bytes);
  return copy == nullptr ? nullptr : static_cast<char*>(std::memcpy(copy, text, bytes));
}
void CurlFree(void* memory) { std::free(memory); }

void* CryptoMalloc(std::size_t bytes, const char* file, int line) {
  return Injection::FailsMemory(Memory::kOther, file, line) ? nullptr : std::malloc(bytes);
}
void* CryptoRealloc(void* memory, std::size_t bytes, const char* file, int line) {
  return Injection::FailsMemory(Memory::kOther, file, line) ? nullptr : std::realloc(memory, bytes);
}
void CryptoFree(void* memory, const char* /*file*/, int /*line*/) { std::free(memory); }

}  // namespace

// libcurl is set up here, and stays so: what the library's own objects do is counted by libcurl and changes nothing.
void PrepareMemory() {
  if (CRYPTO_set_mem_functions(&CryptoMalloc, &CryptoRealloc, &CryptoFree) != 1)
    throw std::runtime_error("OpenSSL has been used already");
  const CURLcode initialised =
      curl_global_init_mem(CURL_GLOBAL_ALL, &CurlMalloc, &CurlFree, &CurlRealloc, &CurlStrdup, &CurlCalloc);
  if (initialised != CURLE_OK) throw std::runtime_error(curl_easy_strerror(initialised));
}

}  // namespace CorvaneTest
// NOLINTEND(cppcoreguidelines-no-malloc)
