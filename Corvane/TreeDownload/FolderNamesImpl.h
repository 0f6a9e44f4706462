#pragma once

#include <optional>
#include <string>
#include <vector>

#include <Corvane/TreeDownload/DescriptorImpl.h>

namespace Corvane {

// What stands in a folder, in no order, without "." and "..". None when not all of it can be read, with the reason in errno.
[[nodiscard]] std::optional<std::vector<std::string>> NamesIn(const Descriptor& folder);

}  // namespace Corvane
