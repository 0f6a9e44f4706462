#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// What is run against a fault, and what is fetched by it.
namespace CorvaneTest {

// A mirror and a tree meet the fault on the directory's page, or on the one file in it.
enum class Op {
  kGet,         // Download
  kGetChecked,  // Download with DetectHttpError
  kFile,        // DownloadFile afresh
  kFileResumed,
  kPostFields,
  kPostData,
  kPostFile,  // with an output file
  kMirrorPage,
  kMirrorFile,
  kMirrorResumed,
  kTreePage,
  kTreeFile,
};
using Ops = std::vector<Op>;

inline const Ops kAllOps = {Op::kGet,        Op::kGetChecked,    Op::kFile,     Op::kFileResumed,
                            Op::kPostFields, Op::kPostData,      Op::kPostFile, Op::kMirrorPage,
                            Op::kMirrorFile, Op::kMirrorResumed, Op::kTreePage, Op::kTreeFile};
inline const Ops kResumed = {Op::kFileResumed, Op::kMirrorResumed};
inline const Ops kMirrors = {Op::kMirrorPage, Op::kMirrorFile, Op::kMirrorResumed};
inline const Ops kTrees = {Op::kTreePage, Op::kTreeFile};
inline const Ops kPages = {Op::kMirrorPage, Op::kTreePage};
inline const Ops kPosts = {Op::kPostFields, Op::kPostData, Op::kPostFile};

std::string_view NameOf(Op op);
[[nodiscard]] bool IsIn(Op op, const Ops& ops);
// `ops` without those of `others`.
Ops Without(const Ops& others, const Ops& ops);
[[nodiscard]] bool IsResumed(Op op);
[[nodiscard]] bool IsOnPage(Op op);

// Page and file are equally long, so that libcurl's texts with numbers of bytes are the same for both.
inline constexpr std::size_t kContentSize = 1000;
inline constexpr std::size_t kHeld = 200;              // of the content, that a resumed file holds already
inline constexpr std::size_t kResumedAt = kHeld - 32;  // where a resume begins
inline constexpr std::size_t kCut = 600;               // where faults in the middle of the content are
inline constexpr std::string_view kFileName = "a";     // the only file of the directory
inline constexpr std::string_view kGoodName = "b";     // the only file of another, on which nothing is wrong

const std::string& FileContent();                         // of kFileName
const std::string& GoodContent();                         // of kGoodName
const std::string& PageOfOneFile(std::string_view name);  // of a directory that holds one of them
const std::string& HeldContent();                         // of a file to be resumed; its last 32 bytes are damaged
const std::string& ListingOfOneFile();                    // of an FTP server's directory that holds kFileName

}  // namespace CorvaneTest
