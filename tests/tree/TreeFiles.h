#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

// The files and folders of a tree. Knows nothing of the library, so that the tests of the program can use it, too.
namespace CorvaneTest {

// Content by path below a directory; a path that ends with a slash is an empty folder.
using TreeFiles = std::map<std::string, std::string>;

// Folders in folders, empty ones, files of 0 bytes to some 100 KiB, and names of every kind that URLs and pages have trouble with.
TreeFiles MakeAwkwardTree();

// The files' times lie in the past and differ from each other.
void WriteTree(const std::filesystem::path& folder, const TreeFiles& tree);
TreeFiles ReadTree(const std::filesystem::path& folder);
// Whether it holds these files and folders and nothing else.
testing::AssertionResult HoldsTree(const std::filesystem::path& folder, const TreeFiles& tree);

}  // namespace CorvaneTest
