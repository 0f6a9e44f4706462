#pragma once

#include <string>
#include <vector>

#include <Corvane/TreeDownload/DescriptorImpl.h>

namespace Corvane {

// What stands in a folder, in no order, without "." and "..". Ends early when it cannot be read.
[[nodiscard]] std::vector<std::string> NamesIn(const Descriptor& folder);

}  // namespace Corvane
