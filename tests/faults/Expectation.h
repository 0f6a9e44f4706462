#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tests/faults/Client.h"
#include "tests/faults/Operations.h"
#include "tests/faults/Outcome.h"

namespace CorvaneTest {

// What a fault comes to by what libcurl documents, before the library makes anything of it. A row of a table says this once; what each
// operation has to make of it is derived from it, see Expect.
struct Told {
  // A further end, where it is a matter of chance which comes.
  struct Alternative {
    unsigned int curl;
    std::string text;
  };

  long status = 0;                         // of the last answer; 0: none came. FTP has 200 here
  unsigned int curl = 0;                   // libcurl's code; 0: the request has succeeded
  std::string text = {};                   // libcurl's words
  std::size_t upTo = 0;                    // the content comes up to this byte, and no further
  unsigned long long size = kContentSize;  // of the whole, as the answer tells it, or kUnknownSize
  std::string content = {};                // what comes in place of the content, if anything does
  std::optional<Ending> verdict = {};      // what the library says in place of libcurl, without names and addresses
  std::vector<Alternative> alternatives = {};
  bool isBlockRefused = false;  // the library takes nothing of the first block, and ends the request
  bool isEmptyListing = false;  // no content is a listing, of nothing
  bool isTailCut = false;       // a resumed file ends where its part begins
  bool isEndless = false;       // the content is any number of bytes 'x'
};

// The outcome that the operation has to have, by the class of operation:
//   Download         libcurl's end; checked, a status outside 200 to 299 is TRANSFER_E_CONNECT. The text is whatever came.
//   DownloadFile     without a good status TRANSFER_E_CONNECT with the header lines, and no file, or the file to be resumed as it
//                    was; else libcurl's end and what came
//   posts            libcurl's end; a bad status is TRANSFER_E_POST
//   ZMultiDownload   the page's or the file's failure, and no further file
//   ZTreeDownload    libcurl's end or the status in its own words, and only whole files
// `content` is what the server has for the operation; `header` what the transfer told as such, whose truth is looked at elsewhere.
Outcome Expect(const Told& told, Op op, const Targets& targets, const std::string& content, const std::string& header);

}  // namespace CorvaneTest
