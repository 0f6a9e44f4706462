#pragma once

#include <map>
#include <string>
#include <string_view>

// What the tests of the listing parsers share.
namespace CorvaneTest {

inline constexpr int kMillion = 1000000;
// In the fixtures.
inline constexpr const char* kLongName =
    "a-rather-long-file-name-that-a-server-shortens-when-it-shows-its-directory.iso";

using Entries = std::map<std::string, unsigned long long>;  // size by name

// The files that a parser takes from a text in UTF-8. Fails the test when the name of an entry is more than a plain
// file name.
Entries ParseHttp(std::string_view text);
Entries ParseHttp(std::string_view header, std::string_view page);
Entries ParseFtp(std::string_view text);

// The bytes of a listing as a server sent it.
std::string Fixture(const std::string& name);

// The number of entries alone, for listings too large to be compared.
std::size_t CountHttp(const std::string& text);
std::size_t CountFtp(const std::string& text);

}  // namespace CorvaneTest
