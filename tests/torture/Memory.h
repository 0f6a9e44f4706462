#pragma once

namespace CorvaneTest {

// How the names end of the files that are fetched over FTP: copies that libcurl makes of them do not fail, see Memory.cpp.
inline constexpr const char* kFtpSuffix = ".ftp";

// Part of PrepareInjection: takes over how libcurl and OpenSSL allocate.
void PrepareMemory();

}  // namespace CorvaneTest
