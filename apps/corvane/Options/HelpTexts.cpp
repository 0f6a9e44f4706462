#include "apps/corvane/Options/HelpTexts.h"

namespace CorvaneCli {

const HelpTexts kProgramHelp = {"COMMAND [ARGUMENT ...]", "Transfers files and data over HTTP, HTTPS and FTP.",
                                R"(Exit status:
  0  success                          3  cannot write, or no space
  1  the transfer failed              4  TLS or authentication failed
  2  the command line is wrong      130  interrupted

Examples:
  corvane get https://example.com/news.txt | less
  corvane get https://example.com/big.iso -o big.iso
  corvane post https://example.com/form --field name=Ada --field "note=a & b"
  corvane mirror ftp://example.com/pub/ pub --resume
  corvane sync https://example.com/pub/ pub
  corvane resolve example.com

"corvane COMMAND --help" tells the options of a command; see also corvane(1).)"};

const HelpTexts kGetHelp = {"get URL ... [OPTION ...]",
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
  corvane get https://example.com/big.iso -o big.iso --limit 500k)"};

const HelpTexts kPostHelp = {
    "post URL --field NAME=VALUE ... [OPTION ...]\n"
    "       corvane post URL (--data TEXT | --file PATH) [OPTION ...]",
    R"(Posts form fields, a text or a file to URL and prints the answer as it comes or,
with -o, writes it into a file. A URL without a scheme is completed with
http://. A post that fails is not repeated.)",
    R"(Examples:
  corvane post https://example.com/form --field name=Ada --field "note=a & b"
  corvane post https://example.com/api --data '{"id":7}' --type application/json
  corvane post https://example.com/upload --file report.csv -o answer.txt)"};

const HelpTexts kMirrorHelp = {"mirror URL DIR [OPTION ...]",
                               R"(Fetches the files of the directory URL, without its subdirectories, into the
directory DIR. Which files there are is taken from the directory page (HTTP) or
the listing (FTP) that the server sends, or from --sizes. Files get the mode
that the umask allows.)",
                               R"(Files in DIR that the server has too are given up for the new ones, unless
--resume finds that they are complete or a beginning. A file whose size is not
known, as on most HTTP servers, is always fetched again.

A list has a line for each file: its name, a tab, and a number. On the server,
"stat --printf '%n\t%s\n' *" writes that of the sizes in bytes and
"stat --printf '%n\t%Y\n' *" that of the times in seconds since 1970.

Examples:
  corvane mirror ftp://example.com/pub/ pub --resume
  corvane mirror https://example.com/pub/ pub --sizes sizes --ignore README)"};

const HelpTexts kSyncHelp = {"sync URL DIR [OPTION ...]",
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
  corvane sync ftp://example.com/pub/ pub --exclude /old --delete)"};

const HelpTexts kResolveHelp = {"resolve HOST [OPTION ...]",
                                "Looks HOST up and prints its name, other names and addresses, one on a line.",
                                R"(Examples:
  corvane resolve localhost
  corvane resolve example.com --json)"};

}  // namespace CorvaneCli
