#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/support/HttpResponders.h"
#include "tests/support/ScriptedServer.h"

// Directories of a scripted web server, for the tests of corvane mirror.
namespace CorvaneTest {

// A page in the style of most servers, in which no sizes can be found.
[[nodiscard]] std::string PageOf(const std::vector<std::string>& names);

// A directory with these files under /d/, whose page lists them.
[[nodiscard]] Responder Directory(const std::map<std::string, Responder>& files);

[[nodiscard]] std::vector<std::string> PathsAskedOf(const ScriptedServer& server);

}  // namespace CorvaneTest
