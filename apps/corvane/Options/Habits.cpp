#include "apps/corvane/Options/Habits.h"

#include <algorithm>

namespace CorvaneCli {
namespace {

struct Habit {
  std::string_view names;     // with blanks between them
  std::string_view commands;  // likewise; those whose users are told
  std::string_view remedy;
};

constexpr std::string_view kAll = "get post mirror sync";

constexpr std::string_view kNoPassword =
    "give --user NAME; the password comes from --password-file FILE, from the variable CORVANE_PASSWORD or from a "
    "question";
constexpr std::string_view kSync = "\"corvane sync URL DIR\" fetches a directory with all below it";
constexpr std::string_view kPost =
    "\"corvane post URL\" sends something: --field NAME=VALUE, --data TEXT or --file PATH";
constexpr std::string_view kByItself = "all that lies below the directory is fetched, and nothing else; leave it out";

// The first row that fits counts. A letter that stands for different things elsewhere has a sentence that serves both.
constexpr Habit kHabits[] = {
    // Where it goes.
    {"-O --remote-name --output-document", "post", "give -o FILE for the answer"},
    {"--output-document", "get", "give -o FILE; without it the bytes go to the standard output"},
    {"-o --output -O --remote-name --output-document --into -P --directory-prefix --output-dir", "mirror sync",
     "the directory stands behind the URL, without an option"},
    {"-P --directory-prefix --output-dir", "get", "give --into DIR"},
    {"-J --remote-header-name --content-disposition", "get", "give -O, which asks the server for a name, too"},
    {"--create-dirs", kAll, "missing directories are made; leave it out"},
    {"-nc --no-clobber", "get", "give -O or --into DIR, which never replace a file"},
    {"-R", "get", "give --remote-time"},
    // What was there before.
    {"-c -C --continue --continue-at", "get mirror", "give --resume"},
    {"-c -C --continue --continue-at --resume", "sync",
     "the same command continues what was interrupted; leave it out"},
    {"-N --timestamping", "get", "\"corvane sync URL DIR\" fetches what has changed; bytes are never held back"},
    {"-N --timestamping", "mirror", "give --resume, or use \"corvane sync URL DIR\", which fetches what has changed"},
    {"-N --timestamping --update", "sync", "only what has changed is fetched; leave it out"},
    // Trees.
    {"-m", "get",
     "give --timeout S for a limit of time; \"corvane sync URL DIR\" fetches a directory with all below it"},
    {"-r --recursive -m --mirror", "get mirror", kSync},
    {"-r --recursive -m --mirror -np --no-parent -a --archive", "sync", kByItself},
    {"-l --level", "get mirror sync", "\"corvane sync URL DIR\" takes --depth N"},
    {"-A --accept", "sync", "give --include GLOB for files, --user-agent TEXT for the name of the program"},
    {"-A", "get", "give --user-agent TEXT; \"corvane sync URL DIR\" takes --include GLOB for files"},
    {"-A -U", "post", "give --user-agent TEXT"},
    {"-U", "get sync", "give --user-agent TEXT"},
    {"-A --accept", "get mirror", "\"corvane sync URL DIR\" takes --include GLOB"},
    {"-R --reject", "sync", "give --exclude GLOB"},
    {"-R --reject", "mirror", "give --ignore NAME, or use \"corvane sync URL DIR\" with --exclude GLOB"},
    {"-n --dry-run", "sync", "give --plan"},
    {"-Z -P --parallel --parallel-max --max-threads -j", "sync", "give --connections N"},
    // Requests.
    {"-L --location", "get post sync", "redirections are followed; leave it out, or give --redirects N for how many"},
    {"-L --location", "mirror", "a mirror follows no redirections; give the URL where they lead"},
    {"--max-redirs --max-redirect", "get post sync", "give --redirects N"},
    {"-H", "get post sync", "give --header 'NAME: VALUE', or --header-file FILE for secrets"},
    {"-H --header", "mirror", "a mirror sends no headers of yours; \"corvane sync URL DIR\" does, with --header"},
    {"-b --cookie", "get post sync", "give --header-file FILE with a line \"Cookie: NAME=VALUE\""},
    {"-e --referer", "get post sync", "give --header 'Referer: URL'"},
    {"-d --data --data-raw --data-binary --data-urlencode --post-data --post-file -F --form", "get", kPost},
    {"-T --upload-file", "get", "\"corvane post URL --file PATH\" sends a file, by POST"},
    {"-X --request --method", "get", "\"corvane post URL\" sends a POST; other methods there are not"},
    {"-d --data-raw --data-binary --post-data", "post", "give --data TEXT, or --file PATH for the content of a file"},
    {"--data-urlencode -F --form", "post", "give --field NAME=VALUE, or --file PATH for the content of a file"},
    {"-T --upload-file --post-file --body-file", "post", "give --file PATH"},
    {"-X --request --method", "post", "a POST is all that it sends; leave it out"},
    {"-i --show-headers -D --dump-header -S --server-response", "get post", "give -v to see the headers, or --json"},
    {"-I --head --spider", "get",
     "give -o /dev/null -v to see the headers, or \"corvane sync URL DIR --plan\" for a tree"},
    // Login and TLS.
    {"-u --http-user --ftp-user --password --http-password --ftp-password --ask-password", kAll, kNoPassword},
    {"-k --no-check-certificate", kAll, "give --insecure; --cacert FILE trusts an authority of yours"},
    {"--ca-certificate", kAll, "give --cacert FILE"},
    {"--ca-directory", kAll, "give --capath DIR"},
    {"-x --proxy --no-proxy", kAll, "the variables http_proxy, https_proxy, ftp_proxy and no_proxy tell of proxies"},
    // Time and speed.
    {"-m --max-time --connect-timeout --read-timeout --speed-time", kAll, "give --timeout S"},
    {"-t --tries --retry", "get sync", "give --retries N"},
    {"-w --wait --waitretry --retry-delay", "get sync", "give --retry-wait S for the wait before a retry"},
    {"--limit-rate --bwlimit", kAll, "give --limit RATE, such as --limit 500k"},
    // Messages.
    {"-# --progress-bar --progress --show-progress", kAll, "a terminal is shown how far it is; leave it out"},
    {"-s --silent -nv --no-verbose", kAll, "give -q"},
    {"-S --show-error -f --fail", kAll, "failures are always told, with an exit status; leave it out"},
    {"-g --globoff --compressed -y", kAll, "leave it out"},
};

struct Word {
  std::string_view words;
  std::string_view command;
};

constexpr Word kWords[] = {
    {"fetch download dl cat wget curl cp", "get"},      {"send upload put submit", "post"},
    {"clone rsync recursive update pull tree", "sync"}, {"copy dir", "mirror"},
    {"lookup dns host dig nslookup name", "resolve"},
};

bool Holds(std::string_view list, std::string_view word) noexcept {
  while (!list.empty()) {
    const std::string_view first = list.substr(0, list.find(' '));
    if (first == word) return true;
    list.remove_prefix(std::min(list.size(), first.size() + 1));
  }
  return false;
}

}  // namespace

std::string_view RemedyForOption(std::string_view name, std::string_view command) noexcept {
  for (const Habit& habit : kHabits) {
    if (Holds(habit.names, name) && Holds(habit.commands, command)) return habit.remedy;
  }
  return {};
}

std::string_view CommandMeantBy(std::string_view word) noexcept {
  for (const Word& row : kWords) {
    if (Holds(row.words, word)) return row.command;
  }
  return {};
}

}  // namespace CorvaneCli
