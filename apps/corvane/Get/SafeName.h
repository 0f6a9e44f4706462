#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace CorvaneCli {

// `bytes` as the plain name of a file, see FileName.h; empty when nothing is left of it.
[[nodiscard]] std::string MakeSafeName(std::string_view bytes);

// `text` with each %XX as the byte that it stands for. Other "%" stay.
[[nodiscard]] std::string PercentDecode(std::string_view text);

}  // namespace CorvaneCli
