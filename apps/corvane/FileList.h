#pragma once

#include <map>
#include <string>

#include <Corvane/Base/String.h>

namespace CorvaneCli {

// A number for each of some files: what --sizes and --times name.
//
// The text has one line for each file: the number, one blank, and the name, which may hold further blanks. "stat -c '%s %n' *"
// writes such a list of sizes. Empty lines and lines that begin with "#" are skipped. Names are plain: no "/", not "." or "..".
using FileList = std::map<Corvane::ZString, unsigned long long>;

// Reads a list whose numbers are at most `most`. Throws Failure(kUsage), which names the file, the line, and what is wrong with it.
[[nodiscard]] FileList ReadFileList(const std::string& path, unsigned long long most);

}  // namespace CorvaneCli
