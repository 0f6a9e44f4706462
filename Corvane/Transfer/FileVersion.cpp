#include <Corvane/Transfer/FileVersionImpl.h>

namespace Corvane {
namespace {

constexpr std::string_view kSize = "SIZE ";

}  // namespace

std::string FileVersion(unsigned long long size, long time) {
  return std::string(kSize) + std::to_string(size) + " MDTM " + std::to_string(time);
}

bool IsFileVersion(std::string_view validator) { return validator.starts_with(kSize); }

}  // namespace Corvane
