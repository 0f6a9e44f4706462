#include "apps/corvane/Options.h"

#include <fmt/core.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <initializer_list>
#include <limits>
#include <memory>
#include <string_view>

#include <Corvane/Base/Module.h>

#include "apps/corvane/Failure.h"
#include "apps/corvane/Files.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

using Corvane::ZString;

// ---------------------------------------------------------------------------------------------------------------------
// Help
// ---------------------------------------------------------------------------------------------------------------------

// What the help of the program or of one command says beside the options. Lines are broken by hand.
struct HelpTexts {
  const char* usage;
  const char* description;
  const char* footer;
};

constexpr HelpTexts kProgramHelp = {"COMMAND [ARGUMENT ...]", "Transfers files and data over HTTP, HTTPS and FTP.",
                                    R"(Exit status:
  0  success                          3  cannot write, or no space
  1  the transfer failed              4  TLS or authentication failed
  2  the command line is wrong      130  interrupted

Examples:
  corvane get https://example.com/news.txt
  corvane get https://example.com/big.iso -o big.iso
  corvane post https://example.com/form --field name=Ada --field "note=a & b"
  corvane mirror ftp://example.com/pub/ pub --resume
  corvane resolve example.com

"corvane COMMAND --help" tells the options of a command; see also corvane(1).)"};

constexpr HelpTexts kGetHelp = {"get URL [OPTION ...]",
                                R"(Downloads URL to the standard output as UTF-8 text or, with -o, byte by byte
into a file. A URL without a scheme is completed with http://.)",
                                R"(A file that exists is replaced only when the download is complete. What a
failed or interrupted download has received is kept, and a message tells how to
go on.

Examples:
  corvane get example.com/list.txt | sort
  corvane get https://example.com/big.iso -o big.iso
  corvane get https://example.com/big.iso -o big.iso --resume
  corvane get https://intranet.example/report --user ada --cacert ca.pem
  corvane get https://example.com/big.iso -o big.iso --limit 500k)"};

constexpr HelpTexts kPostHelp = {
    "post URL --field NAME=VALUE ... [OPTION ...]\n"
    "       corvane post URL (--data TEXT | --file PATH) [OPTION ...]",
    R"(Posts form fields, a text or a file to URL and prints the answer as UTF-8 text
or, with -o, writes it byte by byte into a file. A URL without a scheme is
completed with http://. The content type is application/x-www-form-urlencoded.)",
    R"(Examples:
  corvane post https://example.com/form --field name=Ada --field "note=a & b"
  corvane post https://example.com/api --data "id=7&state=done"
  corvane post https://example.com/upload --file report.csv -o answer.txt)"};

constexpr HelpTexts kMirrorHelp = {"mirror URL DIR [OPTION ...]",
                                   R"(Fetches the files of the directory URL, without its subdirectories, into the
directory DIR. Which files there are is taken from the directory page (HTTP) or
the listing (FTP) that the server sends, or from --sizes. Files get the mode
0755.)",
                                   R"(Files in DIR that the server has too are given up for the new ones, unless
--resume finds that they are complete or a beginning. A file whose size is not
known, as on most HTTP servers, is always fetched again.

A list has a line for each file: its name, a tab, and a number. On the server,
"stat --printf '%n\t%s\n' *" writes that of the sizes in bytes and
"stat --printf '%n\t%Y\n' *" that of the times in seconds since 1970.

Examples:
  corvane mirror ftp://example.com/pub/ pub --resume
  corvane mirror https://example.com/pub/ pub --sizes sizes --ignore README)"};

constexpr HelpTexts kResolveHelp = {"resolve HOST [OPTION ...]",
                                    "Looks HOST up and prints its name, other names and addresses, one on a line.",
                                    R"(Examples:
  corvane resolve localhost
  corvane resolve example.com --json)"};

constexpr std::size_t kHelpColumns = 80;
constexpr std::size_t kTextColumn = 26;

// "  NAME      text", the text wrapped at kHelpColumns.
std::string FormatEntry(const std::string& name, std::string_view text) {
  std::string entry = "  " + name;
  std::size_t column = entry.size();
  if (column + 2 > kTextColumn) {
    entry += '\n';
    column = 0;
  }
  entry.append(kTextColumn - column, ' ');
  column = kTextColumn;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    if (column > kTextColumn && column + 1 + end > kHelpColumns) {
      entry.append("\n").append(kTextColumn, ' ');
      column = kTextColumn;
    } else if (column > kTextColumn) {
      entry += ' ';
      ++column;
    }
    entry.append(text.substr(0, end));
    column += end;
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return entry + '\n';
}

class HelpFormatter : public CLI::Formatter {
 public:
  explicit HelpFormatter(const HelpTexts& texts) : m_texts(texts) {}

  std::string make_help(const CLI::App* app, std::string /*name*/, CLI::AppFormatMode /*mode*/) const override {
    std::string help = fmt::format("Usage: corvane {}\n\n{}\n", m_texts.usage, m_texts.description);
    const auto all = [](const CLI::App*) { return true; };
    if (!app->get_subcommands(all).empty()) help += "\nCommands:\n";
    for (const CLI::App* const command : app->get_subcommands(all)) {
      help += FormatEntry(command->get_name(), command->get_description());
    }
    for (const std::string& group : app->get_groups()) {
      const auto options = app->get_options(
          [&](const CLI::Option* option) { return option->get_group() == group && !option->get_positional(); });
      if (!options.empty()) help += fmt::format("\n{}:\n", group);
      for (const CLI::Option* const option : options) help += FormatOption(*option);
    }
    return fmt::format("{}\n{}\n", help, m_texts.footer);
  }

 private:
  static std::string FormatOption(const CLI::Option& option) {
    std::string name = option.get_snames().empty() ? "    " : "-" + option.get_snames().front() + ", ";
    name += "--" + option.get_lnames().front();
    if (option.get_expected_max() > 0 && !option.get_type_name().empty()) name += " " + option.get_type_name();
    return FormatEntry(name, option.get_description());
  }

  const HelpTexts& m_texts;
};

std::string VersionText() {
  std::string text = fmt::format("corvane {}", CORVANE_VERSION);
  for (const Corvane::ZModule& module : Corvane::ZModuleRegistry::GetModules()) {
    text += fmt::format("\nlibrary {} {}", ToUtf8(module.GetName()), ToUtf8(module.GetVersion().ToString()));
  }
  return text;
}

// ---------------------------------------------------------------------------------------------------------------------
// Definition. Numbers are taken as text and understood further down, so that what is wrong with them is told in words.
// ---------------------------------------------------------------------------------------------------------------------

struct RawOptions {
  std::string url;
  std::string output;
  bool resume = false;
  bool acceptHttpErrors = false;
  std::vector<std::string> fields;
  std::string data;
  std::string file;
  std::string directory;
  std::vector<std::string> ignored;
  std::string sizes;
  std::string times;
  std::string host;

  std::string timeout;
  std::string user;
  std::string passwordFile;
  std::string caFile;
  std::string caDirectory;
  bool insecure = false;
  std::string limit;
  std::string limitPercent;
  std::string lowWater;
  bool noThrottle = false;
  bool json = false;
  bool quiet = false;
  bool verbose = false;
  std::string logFile;
};

// Adds options to one group of a command's help.
class Group {
 public:
  Group(CLI::App& command, const char* name) : m_command(command), m_name(name) {}

  template <class Value>
  void Add(const char* names, Value& value, const char* type, const char* help) {
    m_command.add_option(names, value, help)->type_name(type)->group(m_name)->expected(1);
  }
  void AddList(const char* names, std::vector<std::string>& values, const char* type, const char* help) {
    m_command.add_option(names, values, help)->type_name(type)->group(m_name)->allow_extra_args(false);
  }
  void AddFlag(const char* names, bool& value, const char* help) {
    m_command.add_flag(names, value, help)->group(m_name);
  }

 private:
  CLI::App& m_command;
  const char* m_name;
};

void AddLoginOptions(CLI::App& command, RawOptions& raw) {
  Group group(command, "TLS and login");
  group.Add("--user", raw.user, "NAME",
            "Log in as NAME, over plain http with NTLM only. The password comes from --password-file, else from the "
            "variable CORVANE_PASSWORD, else it is asked for");
  group.Add("--password-file", raw.passwordFile, "FILE", "The first line of FILE is the password");
  group.Add("--cacert", raw.caFile, "FILE", "Trust the certificates in FILE (PEM)");
  group.Add("--capath", raw.caDirectory, "DIR", "Trust the certificates in DIR, which openssl rehash has prepared");
  group.AddFlag("--insecure", raw.insecure, "Do not verify the server's certificate");
}

void AddSpeedOptions(CLI::App& command, RawOptions& raw) {
  Group group(command, "Time and speed");
  group.Add("--timeout", raw.timeout, "S", "Give up after S seconds without a connection or data; 0: never [300]");
  group.Add("--limit", raw.limit, "RATE", "Receive at most RATE bytes a second; k, M or G may follow the number");
  group.Add("--limit-percent", raw.limitPercent, "N",
            "Receive at most N percent of the speed, which is measured for 10 seconds every 3 minutes");
  group.Add("--low-water", raw.lowWater, "RATE", "Measure, and limit only when the speed is below RATE [limit always]");
  group.AddFlag("--no-throttle", raw.noThrottle, "Take no part in the measuring and limiting");
}

void AddMessageOptions(CLI::App& command, RawOptions& raw) {
  Group group(command, "Messages");
  group.AddFlag("--json", raw.json, "Print one JSON object about the transfer on standard output");
  group.AddFlag("-q,--quiet", raw.quiet, "No progress line and no notes; failures are told all the same");
  group.AddFlag("-v,--verbose", raw.verbose, "Tell on standard error what is going on");
  group.Add("--log-file", raw.logFile, "FILE", "Append what is going on, with the time, to FILE");
}

void AddInformationOptions(CLI::App& command) {
  command.set_help_flag("-h,--help", "Print this help")->group("Information");
  command.set_version_flag("--version", VersionText, "Print the versions of program and library")->group("Information");
}

CLI::App& AddCommand(CLI::App& program, const char* name, const char* summary, const HelpTexts& texts) {
  CLI::App& command = *program.add_subcommand(name, summary);
  command.formatter(std::make_shared<HelpFormatter>(texts));
  return command;
}

// The options of every command that transfers.
void AddTransferOptions(CLI::App& command, RawOptions& raw) {
  AddLoginOptions(command, raw);
  AddSpeedOptions(command, raw);
  AddMessageOptions(command, raw);
  AddInformationOptions(command);
}

void AddAcceptHttpErrors(Group& group, RawOptions& raw) {
  group.AddFlag("--accept-http-errors", raw.acceptHttpErrors,
                "Take the answer to a failed request (404 ...) for a success");
}

void AddGet(CLI::App& program, RawOptions& raw) {
  CLI::App& command = AddCommand(program, "get", "Download a URL to standard output or into a file", kGetHelp);
  command.add_option("URL", raw.url)->required();
  Group group(command, "Output");
  group.Add("-o,--output", raw.output, "FILE", "Write into FILE instead of to the standard output");
  group.AddFlag("--resume", raw.resume, "Continue FILE where an earlier download stopped");
  AddAcceptHttpErrors(group, raw);
  AddTransferOptions(command, raw);
}

void AddPost(CLI::App& program, RawOptions& raw) {
  CLI::App& command = AddCommand(program, "post", "Send form fields, a text or a file to a URL", kPostHelp);
  command.add_option("URL", raw.url)->required();
  Group content(command, "Content");
  content.AddList("--field", raw.fields, "NAME=VALUE", "A form field, percent-encoded on its way; may be repeated");
  content.Add("--data", raw.data, "TEXT", "A text, sent as it is in UTF-8");
  content.Add("--file", raw.file, "PATH", "The content of a file, sent as it is");
  Group group(command, "Output");
  group.Add("-o,--output", raw.output, "FILE", "Write the answer into FILE instead of to the standard output");
  AddAcceptHttpErrors(group, raw);
  AddTransferOptions(command, raw);
}

void AddMirror(CLI::App& program, RawOptions& raw) {
  CLI::App& command = AddCommand(program, "mirror", "Fetch the files of a directory into a directory", kMirrorHelp);
  command.add_option("URL", raw.url)->required();
  command.add_option("DIR", raw.directory)->required();
  Group group(command, "Files");
  group.AddFlag("--resume", raw.resume, "Keep files that are complete, and continue partial ones");
  group.AddList("--ignore", raw.ignored, "NAME", "Never fetch the file NAME; may be repeated");
  group.Add("--sizes", raw.sizes, "FILE",
            "Fetch the files that the list FILE names, with the sizes in it; no listing is asked for");
  group.Add("--times", raw.times, "FILE",
            "Give files the times in the list FILE, and fetch those again that are older");
  AddTransferOptions(command, raw);
}

void AddResolve(CLI::App& program, RawOptions& raw) {
  CLI::App& command = AddCommand(program, "resolve", "Look up the addresses of a host", kResolveHelp);
  command.add_option("HOST", raw.host)->required();
  AddMessageOptions(command, raw);
  AddInformationOptions(command);
}

// ---------------------------------------------------------------------------------------------------------------------
// Understanding
// ---------------------------------------------------------------------------------------------------------------------

[[noreturn]] void Refuse(const std::string& text) { throw Failure(ExitCode::kUsage, text); }

// A value for a message, with nothing in it that could be a password.
std::string Shown(const std::string& value) { return '"' + HideSecrets(DisplayName(value)) + '"'; }

class Parsed {
 public:
  explicit Parsed(const CLI::App& command) : m_command(command) {}

  [[nodiscard]] bool Has(const char* option) const {
    const CLI::Option* const found = m_command.get_option_no_throw(option);
    return found != nullptr && found->count() > 0;
  }

  // At most one of them may be given.
  void Exclude(std::initializer_list<const char*> options, const char* remedy) const {
    std::vector<const char*> given;
    for (const char* const option : options) {
      if (Has(option)) given.push_back(option);
    }
    if (given.size() > 1) Refuse(fmt::format("{} and {} cannot be used together; {}", given[0], given[1], remedy));
  }

  void Require(const char* option, const char* needed) const {
    if (Has(option) && !Has(needed))
      Refuse(fmt::format("{0} needs {1}; give {1} too, or leave {0} out", option, needed));
  }

  [[nodiscard]] std::optional<std::string> Path(const char* option, const std::string& value) const {
    if (!Has(option)) return std::nullopt;
    if (value.empty()) Refuse(fmt::format("{} got an empty name; give the name of a file", option));
    return value;
  }

 private:
  const CLI::App& m_command;
};

ZString DecodeText(const char* option, const std::string& value) {
  std::optional<ZString> text = DecodeLocal(value);
  if (!text)
    Refuse(fmt::format("cannot use the value of {}: the locale cannot express it; set LC_ALL=C.UTF-8", option));
  return *text;
}

unsigned long long UnderstandNumber(const char* option, const std::string& value, unsigned long long least,
                                    unsigned long long most, const char* what) {
  const std::optional<unsigned long long> number = ParseNumber(value);
  if (number && *number >= least && *number <= most) return *number;
  Refuse(fmt::format("{} {} is no {}; give a whole number from {} to {}", option, Shown(value), what, least, most));
}

unsigned int UnderstandRate(const char* option, const std::string& value, unsigned long long least) {
  constexpr unsigned long long kMost = std::numeric_limits<unsigned int>::max();
  const std::optional<unsigned long long> rate = ParseSize(value);
  if (rate && *rate >= least && *rate <= kMost) return static_cast<unsigned int>(*rate);
  Refuse(
      fmt::format("{} {} is no usable rate; give a whole number of bytes a second from {} to {}, or one with k, M or G "
                  "for 1024, 1024^2 or 1024^3, such as 500k",
                  option, Shown(value), least, kMost));
}

// From this mark on the library limits from the first byte, without measuring.
constexpr unsigned int kNoMeasuring = 1000000000;

std::optional<Throttling> UnderstandThrottling(const Parsed& parsed, const RawOptions& raw) {
  parsed.Exclude({"--limit", "--limit-percent"}, "choose one of the two");
  for (const char* const option : {"--limit", "--limit-percent", "--low-water"}) {
    parsed.Exclude({"--no-throttle", option}, "leave one of the two out");
  }
  const bool percent = parsed.Has("--limit-percent");
  if (parsed.Has("--low-water") && !percent) parsed.Require("--low-water", "--limit");
  if (!percent && !parsed.Has("--limit")) return std::nullopt;
  Throttling throttling;
  throttling.percent = percent;
  if (percent) {
    throttling.limit =
        static_cast<unsigned int>(UnderstandNumber("--limit-percent", raw.limitPercent, 1, 100, "percentage"));
    // A percentage has to be measured anyway; with the highest mark every speed counts as low, so that it is always limited.
    throttling.lowWaterMark = std::numeric_limits<unsigned int>::max();
  } else {
    throttling.limit = UnderstandRate("--limit", raw.limit, 1024) / 1024;
    throttling.lowWaterMark = kNoMeasuring;
  }
  if (parsed.Has("--low-water")) throttling.lowWaterMark = UnderstandRate("--low-water", raw.lowWater, 1);
  return throttling;
}

std::optional<ZString> UnderstandUser(const Parsed& parsed, const RawOptions& raw) {
  parsed.Require("--password-file", "--user");
  if (!parsed.Has("--user")) return std::nullopt;
  if (raw.user.empty()) Refuse("--user got an empty name; give the name to log in with");
  if (raw.user.find(':') != std::string::npos) {
    // People who know other programs write NAME:PASSWORD; it must not be repeated here.
    Refuse(
        "--user takes a name without a colon and never a password; the password comes from --password-file FILE, from "
        "the "
        "variable CORVANE_PASSWORD or from a question");
  }
  return DecodeText("--user", raw.user);
}

CommonOptions UnderstandCommon(const Parsed& parsed, const RawOptions& raw) {
  // More than this libcurl cannot count in milliseconds.
  constexpr unsigned long long kMostSeconds = std::numeric_limits<int>::max() / 1000;
  CommonOptions common;
  if (parsed.Has("--timeout")) {
    common.timeoutSeconds =
        static_cast<unsigned long>(UnderstandNumber("--timeout", raw.timeout, 0, kMostSeconds, "number of seconds"));
  }
  common.user = UnderstandUser(parsed, raw);
  common.passwordFile = parsed.Path("--password-file", raw.passwordFile);
  parsed.Exclude({"--insecure", "--cacert", "--capath"}, "choose one of the two");
  common.caFile = parsed.Path("--cacert", raw.caFile);
  common.caDirectory = parsed.Path("--capath", raw.caDirectory);
  common.insecure = raw.insecure;
  common.throttling = UnderstandThrottling(parsed, raw);
  common.noThrottle = raw.noThrottle;
  common.json = raw.json;
  common.quiet = raw.quiet;
  common.verbose = raw.verbose;
  common.logFile = parsed.Path("--log-file", raw.logFile);
  return common;
}

std::optional<std::string> UnderstandOutput(const Parsed& parsed, const RawOptions& raw) {
  std::optional<std::string> output = parsed.Path("-o", raw.output);
  if (output == "-") {
    Refuse(
        "-o - names no file; leave -o out to write text to the standard output, or use -o /dev/stdout for binary data "
        "through a pipe");
  }
  return output;
}

GetCommand UnderstandGet(const Parsed& parsed, const RawOptions& raw) {
  parsed.Require("--resume", "--output");
  // The library throws away the answer to a refused resumption: it is no part of the file.
  parsed.Exclude({"--resume", "--accept-http-errors"}, "leave one of the two out");
  return {MakeTarget(raw.url), UnderstandOutput(parsed, raw), raw.resume, raw.acceptHttpErrors};
}

// The order and the repetitions of the fields stay as they were given.
ZString FormBody(const std::vector<std::string>& fields) {
  std::string body;
  for (const std::string& field : fields) {
    const std::string text = ToUtf8(DecodeText("--field", field));
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) {
      Refuse(fmt::format("--field {} has no \"=\"; give NAME=VALUE", Shown(field)));
    }
    if (!body.empty()) body += '&';
    body += PercentEncode(text.substr(0, equals)) + '=' + PercentEncode(text.substr(equals + 1));
  }
  return FromUtf8(body);
}

PostCommand UnderstandPost(const Parsed& parsed, const RawOptions& raw) {
  parsed.Exclude({"--field", "--data", "--file"}, "choose one of the two");
  PostCommand command{MakeTarget(raw.url), UnderstandOutput(parsed, raw), raw.acceptHttpErrors, ZString()};
  if (command.target.scheme == "ftp") {
    Refuse(fmt::format("cannot post to {}: FTP has no posts; use an http or https URL", command.target.display));
  }
  if (parsed.Has("--field")) {
    command.content = FormBody(raw.fields);
  } else if (parsed.Has("--data")) {
    command.content = DecodeText("--data", raw.data);
  } else if (const std::optional<std::string> file = parsed.Path("--file", raw.file)) {
    command.content = *file;
  } else {
    Refuse("nothing to post; give --field NAME=VALUE, --data TEXT or --file PATH");
  }
  return command;
}

MirrorCommand UnderstandMirror(const Parsed& parsed, const RawOptions& raw) {
  MirrorCommand command{MakeTarget(raw.url), raw.directory, raw.resume, {}, std::nullopt, std::nullopt};
  if (raw.directory.empty()) Refuse("DIR is empty; give the directory to mirror into, . for the current one");
  for (const std::string& name : raw.ignored) command.ignored.push_back(DecodeText("--ignore", name));
  command.sizes = parsed.Path("--sizes", raw.sizes);
  command.times = parsed.Path("--times", raw.times);
  return command;
}

ResolveCommand UnderstandResolve(const RawOptions& raw) {
  if (raw.host.empty()) Refuse("HOST is empty; give a name such as example.com");
  if (raw.host.find_first_of("/@ ") != std::string::npos) {
    Refuse(
        fmt::format("{} is no name of a host; leave out what is not, such as http:// and the path", Shown(raw.host)));
  }
  return {DecodeText("HOST", raw.host)};
}

// The command and its options as words, see CommandLine::words.
std::vector<std::string> WordsOf(const CLI::App& command) {
  std::vector<std::string> words = {"corvane", command.get_name()};
  for (const CLI::Option* const option : command.get_options()) {
    if (option->count() == 0 || option->check_name("--output") || option->check_name("--resume")) continue;
    const bool isFlag = option->get_expected_max() == 0;
    for (const std::string& value : option->results()) {
      if (!option->get_positional()) words.push_back("--" + option->get_lnames().front());
      if (!isFlag) words.push_back(value);
    }
  }
  return words;
}

CommandLine Understand(const CLI::App& command, const RawOptions& raw) {
  const Parsed parsed(command);
  CommandLine line{UnderstandCommon(parsed, raw), {}, WordsOf(command)};
  const std::string& name = command.get_name();
  if (name == "get") line.command = UnderstandGet(parsed, raw);
  if (name == "post") line.command = UnderstandPost(parsed, raw);
  if (name == "mirror") line.command = UnderstandMirror(parsed, raw);
  if (name == "resolve") line.command = UnderstandResolve(raw);
  return line;
}

// ---------------------------------------------------------------------------------------------------------------------
// What is wrong with a command line
// ---------------------------------------------------------------------------------------------------------------------

const CLI::App* ChosenCommand(const CLI::App& program) {
  const std::vector<CLI::App*> chosen = program.get_subcommands();
  return chosen.empty() ? nullptr : chosen.front();
}

// Only the first argument is repeated, and of an option only its name: behind it there may be a password.
std::string DescribeExtra(const CLI::App& program, const std::string& first) {
  const CLI::App* const command = ChosenCommand(program);
  if (first.size() > 1 && first.front() == '-') {
    const std::string name = first.substr(0, first.find('='));
    if (command != nullptr && command->get_option_no_throw(name) != nullptr) {
      return fmt::format("the option {} is in the wrong place; put it behind \"corvane {}\"", name,
                         command->get_name());
    }
    return fmt::format("the option {} is not known here; see the help for those that are", DisplayName(name));
  }
  if (command == nullptr) {
    return fmt::format("the command {} is not known; use get, post, mirror or resolve", Shown(first));
  }
  return fmt::format("the argument {} is one too many; quote a URL or text with blanks", Shown(first));
}

std::string DescribeMissing(const CLI::App& command) {
  if (command.get_name() == "resolve") return "no HOST; give a name such as example.com";
  if (command["URL"]->count() == 0) return "no URL; give one such as http://example.com/file";
  return "no DIR; give the directory to mirror into";
}

std::string DescribeError(const CLI::App& program, const CLI::ParseError& error, const char* firstArgument) {
  const std::vector<std::string> extras = program.remaining(true);
  if (ChosenCommand(program) == nullptr) {
    return firstArgument == nullptr ? "no command; use get, post, mirror or resolve"
                                    : DescribeExtra(program, firstArgument);
  }
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr && !extras.empty()) {
    return DescribeExtra(program, extras.front());
  }
  if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) return DescribeMissing(*ChosenCommand(program));
  std::string text = error.what();
  std::replace(text.begin(), text.end(), '\n', ' ');
  return HideSecrets(DisplayName(text)) + "; see the help";
}

ExitCode TellUsage(const CLI::App& program, const std::string& text, Console& console) {
  console.Error(text);
  const CLI::App* const command = ChosenCommand(program);
  console.Line(fmt::format("Try: corvane {}--help", command == nullptr ? "" : command->get_name() + " "));
  return ExitCode::kUsage;
}

ExitCode Print(const std::string& text, Console& console) {
  const int error = WriteAll(STDOUT_FILENO, text);
  if (error == 0) return ExitCode::kSuccess;
  console.Error("cannot write to the standard output: " + SystemText(error) + "; check where it goes");
  return ExitCode::kLocal;
}

}  // namespace

std::variant<CommandLine, ExitCode> ParseCommandLine(int argc, const char* const* argv, Console& console) {
  RawOptions raw;
  CLI::App program("", "corvane");
  program.formatter(std::make_shared<HelpFormatter>(kProgramHelp));
  program.require_subcommand(1);
  AddInformationOptions(program);
  AddGet(program, raw);
  AddPost(program, raw);
  AddMirror(program, raw);
  AddResolve(program, raw);
  try {
    program.parse(argc, argv);
    return Understand(*ChosenCommand(program), raw);
  } catch (const CLI::CallForHelp&) {
    return Print(program.help(), console);
  } catch (const CLI::CallForVersion& version) {
    return Print(version.what() + std::string("\n"), console);
  } catch (const CLI::ParseError& error) {
    return TellUsage(program, DescribeError(program, error, argc > 1 ? argv[1] : nullptr), console);
  } catch (const Failure& failure) {
    return TellUsage(program, failure.what(), console);
  }
}

}  // namespace CorvaneCli
