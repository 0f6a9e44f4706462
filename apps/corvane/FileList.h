#pragma once

#include <map>
#include <string>

#include <Corvane/Base/String.h>

namespace CorvaneCli {

// A number for each of some files: what --sizes and --times name.
//
// The text has one line for each file: the name, a tab, and the number. "find -maxdepth 1 -type f -printf '%f\t%s\n'" writes
// such a list of sizes. Names are plain: no "/", not "." or "..". Every line counts, an empty one is wrong: a name that holds a line break
// has lines that look like it.
using FileList = std::map<Corvane::ZString, unsigned long long>;

// Reads a list whose numbers are at most `most`. Throws Failure(kUsage), which names the file, the line, and what is wrong with it.
[[nodiscard]] FileList ReadFileList(const std::string& path, unsigned long long most);

}  // namespace CorvaneCli
