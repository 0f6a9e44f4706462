#include "apps/corvane/Options/HelpTexts.h"

namespace CorvaneCli {
namespace {

constexpr BriefOption kGetOptions[] = {{"--output", "Write into FILE"},
                                       {"--remote-name", "Write into a file named by the URL or the server"},
                                       {"--into", "The same, in the directory DIR"},
                                       {"--resume", "Continue an earlier download of the same URL"},
                                       {"--sha256", "Take the file only with this SHA-256 checksum"},
                                       {"--user", "Log in as NAME; the password is asked for"},
                                       {"--header", "Send a header of your own"},
                                       {"--limit", "Receive at most RATE bytes a second, such as 500k"},
                                       {"--quiet", "No progress line and no notes"},
                                       {"--verbose", "Tell on standard error what is going on"}};

constexpr BriefOption kPostOptions[] = {{"--field", "A form field, percent-encoded; may be repeated"},
                                        {"--data", "A text, sent as it is"},
                                        {"--file", "The content of a file"},
                                        {"--type", "What the content is, such as application/json"},
                                        {"--output", "Write the answer into FILE"},
                                        {"--user", "Log in as NAME; the password is asked for"},
                                        {"--header", "Send a header of your own"},
                                        {"--quiet", "No progress line and no notes"},
                                        {"--verbose", "Tell on standard error what is going on"}};

constexpr BriefOption kMirrorOptions[] = {{"--resume", "Keep complete files, and continue partial ones"},
                                          {"--ignore", "Never fetch the file NAME; may be repeated"},
                                          {"--sizes", "Fetch the files that the list FILE names"},
                                          {"--times", "Give files the times in the list FILE"},
                                          {"--user", "Log in as NAME; the password is asked for"},
                                          {"--limit", "Receive at most RATE bytes a second, such as 500k"},
                                          {"--timeout", "Give up after S seconds without data [300]"},
                                          {"--quiet", "No progress line and no notes"},
                                          {"--verbose", "Name what is left out, and what is going on"}};

constexpr BriefOption kSyncOptions[] = {{"--plan", "Tell what would be done, and change nothing"},
                                        {"--include", "Fetch only files that match; repeatable"},
                                        {"--exclude", "Leave alone what matches; repeatable"},
                                        {"--depth", "Look at most N folders deep [64]"},
                                        {"--delete", "Delete files here that the server does not list"},
                                        {"--verify", "Check against the server's lists of checksums"},
                                        {"--connections", "Open at most N connections at once [8]"},
                                        {"--limit", "Receive at most RATE bytes a second, such as 500k"},
                                        {"--quiet", "No progress line and no notes"},
                                        {"--verbose", "Name all failures, and what is left out"}};

}  // namespace

constinit const HelpTexts kProgramHelp = {
    "COMMAND [ARGUMENT ...]", "Transfers files and data over HTTP, HTTPS and FTP.",
    R"(Exit: 0 success, 1 failed, 2 usage, 3 output, 4 TLS or login, 130 interrupted

Examples:
  corvane get https://example.com/big.iso -o big.iso
  corvane sync https://example.com/pub/ pub

"corvane COMMAND --help" tells more of a command, as does corvane(1).)"};

constinit const HelpTexts kGetHelp = {
    "get URL ... [OPTION ...]",
    R"(Downloads each URL to the standard output as the bytes come or, with -o, -O or
--into, into a file. A URL without a scheme is completed with http://.)",
    R"(A file under its name is complete: what is under way is in FILE.part, with
FILE.part.json beside it. --resume continues that one when the server proves
that it still has the same, and begins anew otherwise.

Examples:
  corvane get example.com/list.txt | sort
  corvane get https://example.com/src.tar.xz | tar xJ
  corvane get https://example.com/big.iso -o big.iso --resume
  corvane get -O https://example.com/a.zip https://example.com/b.zip
  corvane get https://example.com/big.iso --into iso --sha256 SUM
  corvane get https://intranet.example/report --user ada --cacert ca.pem
  corvane get https://example.com/big.iso -o big.iso --limit 500k)",
    {R"(Downloads URLs to the standard output or, with -o, -O or --into, into files.)", kGetOptions,
     R"(Examples:
  corvane get https://example.com/src.tar.xz | tar xJ
  corvane get https://example.com/big.iso -o big.iso --resume
  corvane get -O https://example.com/a.zip https://example.com/b.zip)"}};

constinit const HelpTexts kPostHelp = {
    "post URL --field NAME=VALUE ... [OPTION ...]\n"
    "       corvane post URL (--data TEXT | --file PATH) [OPTION ...]",
    R"(Posts form fields, a text or a file to URL and prints the answer as it comes or,
with -o, writes it into a file. A URL without a scheme is completed with
http://. A post that fails is not repeated.)",
    R"(Examples:
  corvane post https://example.com/form --field name=Ada --field "note=a & b"
  corvane post https://example.com/api --data '{"id":7}' --type application/json
  corvane post https://example.com/upload --file report.csv -o answer.txt)",
    {R"(Posts form fields, a text or a file to URL and prints the answer.)", kPostOptions,
     R"(Examples:
  corvane post https://example.com/form --field name=Ada --field "note=a & b"
  corvane post https://example.com/api --data '{"id":7}' --type application/json
  corvane post https://example.com/upload --file report.csv -o answer.txt)"}};

constinit const HelpTexts kMirrorHelp = {
    "mirror URL DIR [OPTION ...]",
    R"(Fetches the files of the directory URL, without its subdirectories, into the
directory DIR. Which files there are is taken from the directory page (HTTP) or
the listing (FTP) that the server sends, or from --sizes. Files get the mode
that the umask allows.)",
    R"(Files in DIR that the server has too are given up for the new ones, unless
--resume finds that they are complete or a beginning. A file whose size is not
known, as on most HTTP servers, is always fetched again.

A list has a line for each file: its name, a tab, and a number. On the server,
"find -maxdepth 1 -type f -printf '%f\t%s\n'" writes that of the sizes in
bytes, with "%Ts" for "%s" that of the times in seconds since 1970.

Examples:
  corvane mirror ftp://example.com/pub/ pub --resume
  corvane mirror https://example.com/pub/ pub --sizes sizes --ignore README)",
    {R"(Fetches the files of the directory URL, without its subdirectories, into DIR.)", kMirrorOptions,
     R"(Examples:
  corvane mirror ftp://example.com/pub/ pub --resume
  corvane mirror https://example.com/pub/ pub --sizes sizes --ignore README)"}};

constinit const HelpTexts kSyncHelp = {
    "sync URL DIR [OPTION ...]",
    R"(Makes the directory DIR hold what the directory URL holds, with all folders
below it: asks for the server's pages (HTTP) or listings (FTP), and fetches the
files that are not here or have changed, over several connections.)",
    R"(A file under its name is complete; what is under way lies in DIR/.corvane. The
same command continues after a failure or an interruption, and fetches nothing
when all is up to date. A file is up to date when its size and time are those
that the server tells.

A GLOB without a slash matches names of files and folders at any depth, one with
a slash the path below DIR; quote it. --delete deletes nothing unless all pages
of the tree have come.

Examples:
  corvane sync https://example.com/pub/ pub
  corvane sync https://example.com/pub/ pub --plan --delete
  corvane sync https://example.com/pub/ pub --include '*.iso' --verify
  corvane sync ftp://example.com/pub/ pub --exclude /old --delete)",
    {R"(Makes DIR hold what the directory URL holds, with all folders below it. The same
command continues what was interrupted, and brings DIR up to date later.)",
     kSyncOptions,
     R"(Examples:
  corvane sync https://example.com/pub/ pub
  corvane sync https://example.com/pub/ pub --include '*.iso' --verify
  corvane sync ftp://example.com/pub/ pub --exclude /old --delete --plan)"}};

constinit const HelpTexts kResolveHelp = {
    "resolve HOST [OPTION ...]", "Looks HOST up and prints its name, other names and addresses, one on a line.",
    R"(Examples:
  corvane resolve localhost
  corvane resolve example.com --json)"};

}  // namespace CorvaneCli
