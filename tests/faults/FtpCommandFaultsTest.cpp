#include "tests/faults/FtpFaults.h"
#include "tests/support/Sockets.h"

// Replies of FTP servers: refusals at each command, and replies that are none.
namespace CorvaneTest {
namespace {

constexpr unsigned int kWeirdReply = 8;
constexpr unsigned int kAccessDenied = 9;
constexpr unsigned int kWeirdPasvReply = 13;
constexpr unsigned int kNoType = 17;
constexpr unsigned int kNotRetrieved = 19;
constexpr unsigned int kNoRest31 = 31;

const Told kWholeOfUnknownSize = {.upTo = kContentSize, .size = kUnknownSize};

// libcurl takes 421 for the end of an idle connection, wherever it comes, and leaves no words.
const Told kLeaving = {.curl = kTimedOut};
const Exception kLeavingTree = {kTrees, {.curl = kTimedOut, .text = "Timeout was reached"}};

std::function<void(FtpFaultSite&)> Replying(const std::string& verb, const std::string& reply) {
  return [=](FtpFaultSite& site) { site.Reply(verb, reply); };
}

Told Denied(const std::string& code) { return {.curl = kLoginDenied, .text = "Access denied: " + code}; }
Told Failing(unsigned int curl, const std::string& text) { return {.curl = curl, .text = text}; }

// A tree compares before it takes anything.
Told Mismatched(const std::string& text) { return {.verdict = Ending{Corvane::TRANSFER_E_SIZE_MISMATCH, text}}; }

const std::vector<FtpFault> kLoginFaults = {
    {.name = "530 to USER", .arm = Replying("USER", "530 No"), .told = Denied("530")},
    {.name = "421 to USER", .arm = Replying("USER", "421 Too many"), .told = kLeaving, .exceptions = {kLeavingTree}},
    {.name = "530 to PASS", .arm = Replying("PASS", "530 No"), .told = Denied("530")},
    {.name = "430 to PASS", .arm = Replying("PASS", "430 Not now"), .told = Denied("430")},
    {.name = "999 to USER", .arm = Replying("USER", "999 What"), .told = Denied("999")},
    // Where the login led is not known then: such a connection is not used again.
    {.name = "550 to PWD", .arm = Replying("PWD", "550 No"), .told = kFtpWhole},
    {.name = "451 to PWD", .arm = Replying("PWD", "451 Not now"), .told = kFtpWhole},
    {.name = "a directory without quotes to PWD", .arm = Replying("PWD", "257 here"), .told = kFtpWhole},
    {.name = "550 to CWD",
     .arm = Replying("CWD", "550 No"),
     .told = Failing(kAccessDenied, "Server denied you to change to the given directory")},
    {.name = "450 to CWD",
     .arm = Replying("CWD", "450 Not now"),
     .told = Failing(kAccessDenied, "Server denied you to change to the given directory")},
    {.name = "a greeting in several lines",
     .arm = Replying("USER", "331-Well\r\n331-then\r\n 331 not yet\r\n331 The password"),
     .told = kFtpWhole},
    {.name = "a greeting whose lines have no code",
     .arm = Replying("USER", "331-Hello\r\nyou\r\nthere\r\n331 The password"),
     .told = kFtpWhole},
};

TEST(FtpFaults, OfTheLogin) { EXPECT_EQ(RunCells(CellsOf(kLoginFaults, kFtpOpsWithLogin)), 12 * 7U); }

const std::vector<FtpFault> kBannerFaults = {
    {.name = "a banner that refuses",
     .arm = [](FtpFaultSite&) {},
     .told = kLeaving,
     .exceptions = {kLeavingTree},
     .banner = "421 Too many",
     .isGoodElsewhere = true},
    {.name = "the banner of another protocol",
     .arm = [](FtpFaultSite&) {},
     .told = Failing(kWeirdReply, "Got a 500 ftp-server response when 220 was expected"),
     .banner = "500 What",
     .isGoodElsewhere = true},
    {.name = "a banner in several lines",
     .arm = [](FtpFaultSite&) {},
     .told = kFtpWhole,
     .banner = "220-Hello\r\n 220 not yet\r\n220-\r\n220 Ready",
     .isGoodElsewhere = true},
};

TEST(FtpFaults, OfTheBanner) { EXPECT_EQ(RunCells(CellsOf(kBannerFaults, kFtpOpsWithLogin)), 3 * 7U); }

const std::vector<FtpFault> kCommandFaults = {
    {.name = "500 to EPSV", .arm = Replying("EPSV", "500 What"), .told = kFtpWhole},
    {.name = "425 to EPSV", .arm = Replying("EPSV", "425 Not now"), .told = kFtpWhole},
    {.name = "no passive mode at all",
     .arm = [](FtpFaultSite& site) { site.RefusePassive(); },
     .told = Failing(kWeirdPasvReply, "Bad PASV/EPSV response: 502")},
    {.name = "a port that is none to EPSV",
     .arm = Replying("EPSV", "229 Entering (|||99999|)"),
     .told = Failing(kWeirdPasvReply, "Illegal port number in EPSV reply")},
    {.name = "words to EPSV",
     .arm = Replying("EPSV", "229 Entering passive mode"),
     .told = Failing(kWeirdPasvReply, "Weirdly formatted EPSV reply")},
    {.name = "words to PASV",
     .arm =
         [](FtpFaultSite& site) {
           site.Reply("EPSV", "500 What");
           site.Reply("PASV", "227 Entering passive mode");
         },
     .told = Failing(14, "Couldn't interpret the 227-*")},
    {.name = "550 to TYPE", .arm = Replying("TYPE", "550 No"), .told = Failing(kNoType, "Couldn't set desired mode")},
    {.name = "451 to TYPE",
     .arm = Replying("TYPE", "451 Not now"),
     .told = Failing(kNoType, "Couldn't set desired mode")},
    {.name = "500 to QUIT", .arm = Replying("QUIT", "500 Stay"), .told = kFtpWhole},
    {.name = "450 to QUIT", .arm = Replying("QUIT", "450 Not now"), .told = kFtpWhole},
};

TEST(FtpFaults, OfCommands) { EXPECT_EQ(RunCells(CellsOf(kCommandFaults, kFtpOps)), 10 * 8U); }

// --- what is asked of files alone

const Ops kFtpFiles = Without(kPages, kFtpOps);
const Ops kFtpResumed = {Op::kFileResumed, Op::kMirrorResumed};

const std::vector<FtpFault> kFileFaults = {
    {.name = "500 to SIZE", .arm = Replying("SIZE", "500 What"), .told = kWholeOfUnknownSize},
    {.name = "450 to SIZE", .arm = Replying("SIZE", "450 Not now"), .told = kWholeOfUnknownSize},
    {.name = "550 to SIZE",
     .arm = Replying("SIZE", "550 No"),
     .told = Failing(kRemoteFileNotFound, "The file does not exist")},
    {.name = "words to SIZE",  // no digits are nought to libcurl
     .arm = Replying("SIZE", "213 large"),
     .told = {.upTo = kContentSize, .size = 0},
     .exceptions = {{kResumed, Failing(kBadResume, "Offset (168) was beyond file size (0)")},
                    {{Op::kTreeFile}, Mismatched("The server sends 0 bytes, and lists 1000.")}}},
    // The rest is nothing then, and what is held behind it belongs to no resource.
    {.name = "a size that is the part's beginning",
     .arm = Replying("SIZE", "213 168"),
     .told = {.upTo = kResumedAt, .size = kResumedAt},
     .exceptions = {{{Op::kFileResumed}, {.isTailCut = true}},
                    {{Op::kMirrorResumed},
                     {.verdict = Ending{Corvane::TRANSFER_E_SIZE_MISMATCH,
                                        "Download file size mismatch, File: * Size: 168 Expected size: 1000"},
                      .isTailCut = true}},
                    {{Op::kTreeFile}, Mismatched("The server sends 168 bytes, and lists 1000.")}}},
    {.name = "a size beyond the file",
     .arm = Replying("SIZE", "213 1100"),
     .told = {.curl = kPartialFile,
              .text = "transfer closed with 100 bytes remaining to read",
              .upTo = kContentSize,
              .size = 1100},
     .exceptions = {{{Op::kTreeFile}, Mismatched("The server sends 1100 bytes, and lists 1000.")}}},
    {.name = "a size within the file",
     .arm = Replying("SIZE", "213 600"),
     .told = {.upTo = kCut, .size = kCut},
     .exceptions = {{{Op::kMirrorResumed},
                     {.upTo = kCut,
                      .size = kCut,
                      .verdict = Ending{Corvane::TRANSFER_E_SIZE_MISMATCH,
                                        "Download file size mismatch, File: * Size: 600 Expected size: 1000"}}},
                    {{Op::kTreeFile}, Mismatched("The server sends 600 bytes, and lists 1000.")}}},
    {.name = "550 to MDTM", .arm = Replying("MDTM", "550 No"), .told = kFtpWhole},
    {.name = "450 to MDTM", .arm = Replying("MDTM", "450 Not now"), .told = kFtpWhole},
    {.name = "words to MDTM", .arm = Replying("MDTM", "213 yesterday"), .told = kFtpWhole},
    {.name = "550 to RETR",
     .arm = Replying("RETR", "550 No"),
     .told = Failing(kRemoteFileNotFound, "RETR response: 550")},
    {.name = "450 to RETR", .arm = Replying("RETR", "450 Busy"), .told = Failing(kNotRetrieved, "RETR response: 450")},
    {.name = "425 to RETR",
     .arm = Replying("RETR", "425 No data"),
     .told = Failing(kNotRetrieved, "RETR response: 425")},
    {.name = "226 in place of 150",
     .arm = Replying("RETR", "226 Done"),
     .told = Failing(kNotRetrieved, "RETR response: 226")},
    {.name = "500 to REST",
     .arm = Replying("REST", "500 What"),
     .told = kFtpWhole,
     .exceptions = {{kFtpResumed, Failing(kNoRest31, "Couldn't use REST")}}},
    {.name = "450 to REST",
     .arm = Replying("REST", "450 Not now"),
     .told = kFtpWhole,
     .exceptions = {{kFtpResumed, Failing(kNoRest31, "Couldn't use REST")}}},
};

TEST(FtpFaults, OfFiles) { EXPECT_EQ(RunCells(CellsOf(kFileFaults, kFtpFiles)), 16 * 6U); }

// --- what is asked of pages alone

const std::vector<FtpFault> kListFaults = {
    {.name = "550 to LIST", .arm = Replying("LIST", "550 No"), .told = Failing(kNotRetrieved, "RETR response: 550")},
    {.name = "425 to LIST", .arm = Replying("LIST", "425 No"), .told = Failing(kNotRetrieved, "RETR response: 425")},
};

// A busy server's page is no empty one, but to libcurl, and to a mirror.
const std::vector<FtpFault> kBusyFaults = {
    {.name = "450 to LIST",
     .arm = Replying("LIST", "450 Busy"),
     .told = {.isEmptyListing = true},
     .exceptions = {{{Op::kTreePage}, Failing(kNotRetrieved, "The server answered 450 in place of a listing.")}}},
};

TEST(FtpFaults, OfBusyListings) { EXPECT_EQ(RunCells(CellsOf(kBusyFaults, kPages)), 2U); }

TEST(FtpFaults, OfListings) { EXPECT_EQ(RunCells(CellsOf(kListFaults, kPages)), 2 * 2U); }

const std::vector<FtpFault> kMlsdFaults = {
    {.name = "504 to MLSD", .arm = Replying("MLSD", "504 What"), .told = kFtpWhole},
    {.name = "550 to MLSD", .arm = Replying("MLSD", "550 No"), .told = Failing(kNotRetrieved, "RETR response: 550")},
    {.name = "450 to MLSD",
     .arm = Replying("MLSD", "450 Nothing"),
     .told = Failing(kNotRetrieved, "The server answered 450 in place of a listing.")},
};

TEST(FtpFaults, OfListingsForMachines) { EXPECT_EQ(RunCells(CellsOf(kMlsdFaults, {Op::kTreePage})), 3U); }

}  // namespace
}  // namespace CorvaneTest
