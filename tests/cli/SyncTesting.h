#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "tests/cli/CliTesting.h"

namespace CorvaneTest {

// Content by path below a directory; a path that ends with a slash is an empty folder.
using Tree = std::map<std::string, std::string>;

// The files' times lie hours in the past, each at another minute, so that a page to the minute tells them apart; `later` moves all.
void PublishTree(const std::filesystem::path& folder, const Tree& tree, std::chrono::minutes later = {});

// What a folder holds. A symbolic link has "-> TARGET" for its content.
[[nodiscard]] Tree TreeIn(const std::filesystem::path& folder);

// "corvane sync URL DIR MORE ..."; the password is none of the test's own environment.
[[nodiscard]] ProgramResult RunSync(const std::string& url, const std::filesystem::path& folder,
                                    std::vector<std::string> more = {}, const ProgramOptions& options = {});

// Of a report's files the action by the path; fails the test when a path comes twice.
[[nodiscard]] std::map<std::string, std::string> ActionsIn(const nlohmann::json& report);

// Of a report's files the one with this path; fails the test when there is none.
[[nodiscard]] nlohmann::json FileIn(const nlohmann::json& report, const std::string& path);

// Returns when what is under way in `folder` is a file of at least `size` bytes.
[[nodiscard]] testing::AssertionResult AwaitPartIn(const std::filesystem::path& folder, std::uintmax_t size);

// Returns when the file is there.
[[nodiscard]] testing::AssertionResult AwaitFile(const std::filesystem::path& path);

}  // namespace CorvaneTest
