// mirror_list URL DIRECTORY < LIST: fetches the files of a list, whose lines are "SIZE TIME NAME", and keeps those that
// are here already.
//
// Shows a mirror that asks for no listing: sizes tell what is complete, and times (seconds since 1970) what is stale.

#include <clocale>
#include <cstdio>
#include <functional>
#include <iostream>
#include <string>

#include <Corvane/Base/StringCoding.h>
#include <Corvane/MultiDownload.h>

#include "examples/host.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::setlocale(LC_ALL, "");  // the encoding of the arguments, of the list and of file names
  Corvane::Container::ZMap<Corvane::ZString, unsigned long long, std::less<Corvane::ZString>> sizes;
  Corvane::Container::ZMap<Corvane::ZString, long, std::less<Corvane::ZString>> times;
  unsigned long long size = 0;
  long time = 0;
  for (std::string name; std::cin >> size >> time >> std::ws && std::getline(std::cin, name);) {
    sizes[name.c_str()] = size;
    times[name.c_str()] = time;
  }
  if (!std::cin.eof() || sizes.empty()) return 2;  // with an empty list the server would be asked for its own

  Corvane::ZMultiDownload mirror;
  if (!VerifyServers(mirror)) return 1;
  if (Corvane::IsFailure(mirror.SetFileSizeList(sizes)) || Corvane::IsFailure(mirror.SetFileTimeList(times))) return 1;
  const Corvane::ZResult result = mirror.Download(argv[1], argv[2], /*resume=*/true);
  const Corvane::ZMultiDownload::Statistics files = mirror.GetStatistics();
  std::printf("%zu fetched, %zu continued, %zu kept, %zu of another size\n", files.filesFetched, files.filesResumed,
              files.filesSkipped, files.filesMismatched);
  if (Corvane::IsFailure(result)) return TellFailure(mirror, result);
  return files.filesMismatched == 0 ? 0 : 1;  // the result tells of the last file only
}
