#pragma once

#include <string_view>

#include <Corvane/TreeDownload.h>

// What is done with a file, and why, in words. All are constants.
namespace CorvaneCli {

struct ActionWords {
  std::string_view plan;   // what is to be done: "fetch"
  std::string_view past;   // what has been done: "fetched"
  std::string_view value;  // in reports for programs; never changes
};
[[nodiscard]] const ActionWords& WordsFor(Corvane::ZTreeDownload::Action action) noexcept;

struct ReasonWords {
  std::string_view text;   // for people; empty for no reason
  std::string_view value;  // in reports for programs; never changes, and is empty for no reason
};
[[nodiscard]] const ReasonWords& WordsFor(Corvane::ZTreeDownload::Reason reason) noexcept;

}  // namespace CorvaneCli
