#include "tests/faults/FtpFaults.h"
#include "tests/support/Sockets.h"

// What can be wrong with the connections of FTP: with the one for data, with the last word about it, and with the one for commands.
namespace CorvaneTest {
namespace {

constexpr const char* kOpening = "150 Here it comes\r\n";
constexpr const char* kDone = "226 Done\r\n";

using DataHook = FtpFaultSite::DataHook;

// A listing has no size that was told before. For a part libcurl counts what was to come, and the whole content is the same.
Told Broken(unsigned int curl, const std::string& text, std::size_t upTo) {
  return {.curl = curl, .text = text, .upTo = upTo};
}

// A part begins where it was asked for.
std::string UpTo(const std::string& bytes, std::size_t upTo) {
  const std::size_t position = kContentSize - bytes.size();
  return bytes.substr(0, upTo > position ? upTo - position : 0);
}

// Sends the data up to this byte of the content, ends it so, and says this.
std::function<void(FtpFaultSite&)> Data(std::size_t upTo, void (Connection::*end)(), const std::string& lastWord) {
  return [=](FtpFaultSite& site) {
    site.OnData([=](Connection& control, Connection& data, const std::string& bytes) {
      control.Send(kOpening);
      data.Send(UpTo(bytes, upTo));
      data.WaitUntilPeerHasRead();
      (data.*end)();
      control.Send(lastWord);
    });
  };
}

const std::string kNotOk = "server did not report OK, got ";
const Told kCutOff = Broken(kPartialFile, "transfer closed with 400 bytes remaining to read", kCut);
const Told kReset = Broken(kReceiveError, "Recv failure: Connection reset by peer", kCut);

const std::vector<FtpFault> kDataFaults = {
    {.name = "data cut off, and 426",
     .arm = Data(kCut, &Connection::Close, "426 Aborted\r\n"),
     .told = kCutOff,
     .exceptions = {{kPages, Broken(kPartialFile, kNotOk + "426", kCut)}}},
    {.name = "data cut off, and 451",
     .arm = Data(kCut, &Connection::Close, "451 Error\r\n"),
     .told = kCutOff,
     .exceptions = {{kPages, Broken(kPartialFile, kNotOk + "451", kCut)}}},
    // Whether a listing has come whole, nobody can tell but the server.
    {.name = "data cut off, and 226",
     .arm = Data(kCut, &Connection::Close, kDone),
     .told = kCutOff,
     .exceptions = {{kPages, {.upTo = kCut}}}},
    {.name = "data reset, and 426", .arm = Data(kCut, &Connection::Reset, "426 Aborted\r\n"), .told = kReset},
    {.name = "data reset, and 226", .arm = Data(kCut, &Connection::Reset, kDone), .told = kReset},
    {.name = "all data, and 426",
     .arm = Data(kContentSize, &Connection::Close, "426 Aborted\r\n"),
     .told = Broken(kPartialFile, kNotOk + "426", kContentSize)},
    {.name = "all data, and 451",
     .arm = Data(kContentSize, &Connection::Close, "451 Error\r\n"),
     .told = Broken(kPartialFile, kNotOk + "451", kContentSize)},
    {.name = "all data, and 550",
     .arm = Data(kContentSize, &Connection::Close, "550 No\r\n"),
     .told = Broken(kPartialFile, kNotOk + "550", kContentSize)},
    {.name = "all data, and 250", .arm = Data(kContentSize, &Connection::Close, "250 Done\r\n"), .told = kFtpWhole},
    {.name = "all data, and 226 in several lines",
     .arm = Data(kContentSize, &Connection::Close, "226-That\r\n 226 was\r\n226 all\r\n"),
     .told = kFtpWhole},
    {.name = "226 before the data",
     .arm =
         [](FtpFaultSite& site) {
           site.OnData([](Connection& control, Connection& data, const std::string& bytes) {
             control.Send(std::string(kOpening) + kDone);
             control.WaitUntilPeerHasRead();
             data.Send(bytes);
             data.Close();
           });
         },
     .told = kFtpWhole},
    {.name = "more data than SIZE has told",
     .arm =
         [](FtpFaultSite& site) {
           site.OnData([](Connection& control, Connection& data, const std::string& bytes) {
             control.Send(kOpening);
             data.Send(bytes + "\n\n");
             data.Close();
             control.Send(kDone);
           });
         },
     .told = kFtpWhole,
     .exceptions = {{{Op::kMirrorPage, Op::kTreePage},
                     {.upTo = kContentSize + 2, .content = ListingOfOneFile() + "\n\n"}}}},
};

TEST(FtpFaults, OfData) { EXPECT_EQ(RunCells(CellsOf(kDataFaults, kFtpOps)), 12 * 8U); }

// --- connections for data that do not come about, and that bring nothing

const std::vector<FtpFault> kNoDataFaults = {
    {.name = "nobody at the port of EPSV, and PASV is good",
     .arm =
         [](FtpFaultSite& site) {
           const auto nobody = std::make_shared<PortReservation>();
           site.On("EPSV", [nobody](Connection& control, const std::string&) {
             return control.Send("229 Entering (|||" + std::to_string(nobody->Port()) + "|)\r\n");
           });
         },
     .told = kFtpWhole},
    {.name = "nobody at any port",
     .arm =
         [](FtpFaultSite& site) {
           const auto nobody = std::make_shared<PortReservation>();
           site.NamePort(nobody->Port());
           site.On("NOOP", [nobody](Connection&, const std::string&) { return false; });  // keeps the port
         },
     .told = Broken(kRefusedConnection, "*", 0)},
    {.name = "no data, and 226",
     .arm = Data(0, &Connection::Close, kDone),
     .told = Broken(kPartialFile, "transfer closed with * bytes remaining to read", 0)},
    {.name = "no data, and 426",
     .arm = Data(0, &Connection::Close, "426 Aborted\r\n"),
     .told = Broken(kPartialFile, "transfer closed with * bytes remaining to read", 0)},
};

TEST(FtpFaults, OfNoData) { EXPECT_EQ(RunCells(CellsOf(kNoDataFaults, Without(kPages, kFtpOps))), 4 * 6U); }

// --- the connection for commands

// At this verb the server says this, and is gone.
FtpFault GoneAt(const std::string& verb, const std::string& says, void (Connection::*end)(), const std::string& how) {
  return {.name = how + " at " + verb,
          .arm =
              [=](FtpFaultSite& site) {
                site.On(verb, [=](Connection& control, const std::string&) {
                  control.Send(says);
                  control.WaitUntilPeerHasRead();
                  (control.*end)();
                  return true;
                });
              },
          .told = {.curl = kReceiveError, .text = "*"}};
}

std::vector<FtpFault> GoneAtEach(const std::vector<std::string>& verbs) {
  std::vector<FtpFault> faults;
  for (const std::string& verb : verbs) {
    faults.push_back(GoneAt(verb, "", &Connection::Close, "the end"));
    faults.push_back(GoneAt(verb, "", &Connection::Reset, "a reset"));
    faults.push_back(GoneAt(verb, "2", &Connection::Close, "half a reply and the end"));
    faults.push_back(GoneAt(verb, "200-Yes\r\nand\r\n", &Connection::Close, "half of several lines and the end"));
    faults.push_back(GoneAt(verb, std::string(1000000, 'x'), &Connection::Close, "1 MB of a line"));
    faults.push_back(GoneAt(verb, "What?\r\n\r\n\x01\xff\r\n", &Connection::Close, "words and the end"));
  }
  return faults;
}

const std::vector<FtpFault> kGoneAtLogin = GoneAtEach({"USER", "PASS", "PWD", "CWD"});
const std::vector<FtpFault> kGoneAtCommands = GoneAtEach({"EPSV", "TYPE"});
const std::vector<FtpFault> kGoneAtFiles = GoneAtEach({"SIZE", "RETR"});

TEST(FtpFaults, OfTheConnectionAtLogin) { EXPECT_EQ(RunCells(CellsOf(kGoneAtLogin, kFtpOpsWithLogin)), 24 * 7U); }

TEST(FtpFaults, OfTheConnectionAtCommands) { EXPECT_EQ(RunCells(CellsOf(kGoneAtCommands, kFtpOps)), 12 * 8U); }

TEST(FtpFaults, OfTheConnectionAtFiles) {
  EXPECT_EQ(RunCells(CellsOf(kGoneAtFiles, Without(kPages, kFtpOps))), 12 * 6U);
}

// The data has come, and the last word about it never does.
const std::vector<FtpFault> kLastWordFaults = {
    {.name = "all data, and the end",
     .arm =
         [](FtpFaultSite& site) {
           site.OnData([](Connection& control, Connection& data, const std::string& bytes) {
             control.Send(kOpening);
             data.Send(bytes);
             data.Close();
             control.Close();
           });
         },
     .told = Broken(kReceiveError, "*", kContentSize)},
};

TEST(FtpFaults, OfTheLastWord) { EXPECT_EQ(RunCells(CellsOf(kLastWordFaults, kFtpOps)), 8U); }

}  // namespace
}  // namespace CorvaneTest
