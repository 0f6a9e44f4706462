#include "tests/faults/Operations.h"

#include <algorithm>
#include <iterator>

namespace CorvaneTest {
namespace {

std::string Letters(std::size_t count, char first) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += static_cast<char>(first + static_cast<int>(i % 26));
  return text;
}

// Listings are read by both, a mirror and a tree.
std::string MakePage(std::string_view name) {
  const std::string file(name);
  std::string page = "<html><head><title>Index of /</title></head><body><h1>Index of /</h1><pre>\r\n<a href=\"" + file +
                     "\">" + file + "</a>\r\n</pre><p>";
  const std::string end = "</p></body></html>\r\n";
  return page + std::string(kContentSize - page.size() - end.size(), '.') + end;
}

}  // namespace

std::string_view NameOf(Op op) {
  switch (op) {
    case Op::kGet:
      return "Download";
    case Op::kGetChecked:
      return "Download that detects errors";
    case Op::kFile:
      return "DownloadFile afresh";
    case Op::kFileResumed:
      return "DownloadFile resumed";
    case Op::kPostFields:
      return "Post of fields";
    case Op::kPostData:
      return "PostData";
    case Op::kPostFile:
      return "PostFile";
    case Op::kMirrorPage:
      return "ZMultiDownload's page";
    case Op::kMirrorFile:
      return "ZMultiDownload's file";
    case Op::kMirrorResumed:
      return "ZMultiDownload's resumed file";
    case Op::kTreePage:
      return "ZTreeDownload's page";
    case Op::kTreeFile:
      return "ZTreeDownload's file";
  }
  return "?";
}

Ops Without(const Ops& others, const Ops& ops) {
  Ops rest;
  std::copy_if(ops.begin(), ops.end(), std::back_inserter(rest), [&](Op op) { return !IsIn(op, others); });
  return rest;
}

const std::string& FileContent() {
  static const std::string content = Letters(kContentSize, 'a');
  return content;
}

const std::string& GoodContent() {
  static const std::string content = Letters(500, 'A');
  return content;
}

const std::string& PageOfOneFile(std::string_view name) {
  static const std::string page = MakePage(kFileName);
  static const std::string good = MakePage(kGoodName);
  return name == kFileName ? page : good;
}

// Empty lines fill it up. Lines end with LF, which is what libcurl makes of a listing's ends in any case.
const std::string& ListingOfOneFile() {
  static const std::string listing = [] {
    const std::string line = "-rw-r--r--   1 ftp      ftp          1000 Jan 01  2020 " + std::string(kFileName);
    return line + std::string(kContentSize - line.size(), '\n');
  }();
  return listing;
}

const std::string& HeldContent() {
  static const std::string content = FileContent().substr(0, kResumedAt) + std::string(kHeld - kResumedAt, '?');
  return content;
}

bool IsIn(Op op, const Ops& ops) { return std::find(ops.begin(), ops.end(), op) != ops.end(); }
bool IsResumed(Op op) { return IsIn(op, kResumed); }
bool IsOnPage(Op op) { return op == Op::kMirrorPage || op == Op::kTreePage; }

}  // namespace CorvaneTest
