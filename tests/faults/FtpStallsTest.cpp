#include "tests/faults/FtpFaults.h"

// FTP servers that fall silent, in every phase. The cells run side by side, with the shortest time limit there is.
namespace CorvaneTest {
namespace {

FtpFault SilentAt(const std::string& verb, const std::string& says, const std::string& how) {
  return {.name = how + " at " + verb,
          .arm =
              [=](FtpFaultSite& site) {
                site.On(verb, [=, &site](Connection& control, const std::string&) {
                  control.Send(says);
                  site.FallSilent(control);
                  return true;
                });
              },
          .told = {.curl = kTimedOut, .text = "Operation timed out after * milliseconds with 0 bytes received"},
          // It has a limit for connecting and one for replies.
          .exceptions = {{kTrees, {.curl = kTimedOut, .text = "*time*out*"}}},
          .patience = Patience::kTimeout};
}

std::vector<FtpFault> SilentAtEach(const std::vector<std::string>& verbs) {
  std::vector<FtpFault> faults;
  for (const std::string& verb : verbs) {
    faults.push_back(SilentAt(verb, "", "silence"));
    faults.push_back(SilentAt(verb, "200-Yes\r\nand\r\n", "half of several lines and silence"));
  }
  return faults;
}

const std::vector<FtpFault> kAtLogin = SilentAtEach({"USER", "PASS", "PWD", "CWD"});
const std::vector<FtpFault> kAtCommands = SilentAtEach({"EPSV", "TYPE"});
const std::vector<FtpFault> kAtFiles = SilentAtEach({"SIZE", "RETR"});

TEST(FtpFaults, OfSilenceAtLogin) { EXPECT_EQ(RunCells(CellsOf(kAtLogin, kFtpOpsWithLogin)), 8 * 7U); }
TEST(FtpFaults, OfSilenceAtCommands) { EXPECT_EQ(RunCells(CellsOf(kAtCommands, kFtpOps)), 4 * 8U); }
TEST(FtpFaults, OfSilenceAtFiles) { EXPECT_EQ(RunCells(CellsOf(kAtFiles, Without(kPages, kFtpOps))), 4 * 6U); }

// Sends the data up to this byte, and then nothing more, on either connection.
FtpFault SilentData(const std::string& name, std::size_t upTo) {
  const std::string text = "Operation timed out after * milliseconds with * bytes received";
  return {.name = name,
          .arm =
              [=](FtpFaultSite& site) {
                site.OnData([=, &site](Connection& control, Connection& data, const std::string& bytes) {
                  const std::size_t position = kContentSize - bytes.size();
                  control.Send("150 Here it comes\r\n");
                  control.WaitUntilPeerHasRead();
                  data.Send(bytes.substr(0, upTo > position ? upTo - position : 0));
                  site.FallSilent(data);
                });
              },
          .told = {.curl = kTimedOut, .text = text, .upTo = upTo},
          .exceptions = {{kTrees, {.curl = kTimedOut, .text = "No byte came for * seconds.", .upTo = upTo}}},
          .patience = Patience::kTimeout};
}

const std::vector<FtpFault> kSilentData = {SilentData("silence in place of data", 0),
                                           SilentData("silence within the data", kCut)};

TEST(FtpFaults, OfSilentData) { EXPECT_EQ(RunCells(CellsOf(kSilentData, kFtpOps)), 2 * 8U); }

// All the data has come, and the server says no word about it. A tree asks libcurl, which waits for a minute.
const std::vector<FtpFault> kSilentAfterwards = {
    {.name = "silence after the data",
     .arm =
         [](FtpFaultSite& site) {
           site.OnData([&site](Connection& control, Connection& data, const std::string& bytes) {
             control.Send("150 Here it comes\r\n");
             data.Send(bytes);
             data.WaitUntilPeerHasRead();
             data.Close();
             site.FallSilent(control);
           });
         },
     .told = {.curl = kTimedOut, .text = "FTP response timeout", .upTo = kContentSize},
     .patience = Patience::kTimeout},
};

TEST(FtpFaults, OfSilenceAfterTheData) {
  EXPECT_EQ(RunCells(CellsOf(kSilentAfterwards, Without(kTrees, kFtpOps))), 6U);
}

}  // namespace
}  // namespace CorvaneTest
