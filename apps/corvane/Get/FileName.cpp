#include "apps/corvane/Get/FileName.h"

#include <algorithm>
#include <cstddef>

#include "apps/corvane/AnyCase.h"
#include "apps/corvane/Get/SafeName.h"
#include "apps/corvane/Utf8.h"

namespace CorvaneCli {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

// Behind scheme and host.
std::string_view PathOf(std::string_view url) {
  const std::size_t scheme = url.find("://");
  if (scheme != std::string_view::npos) url.remove_prefix(scheme + 3);
  url = url.substr(0, url.find_first_of("?#"));
  return url.substr(std::min(url.find('/'), url.size()));
}

std::string_view BehindLast(std::string_view separators, std::string_view text) {
  const std::size_t last = text.find_last_of(separators);
  return last == std::string_view::npos ? text : text.substr(last + 1);
}

std::string_view Trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

struct Parameter {
  std::string_view name;
  std::string value;
};

// Takes the value of a Content-Disposition field apart, as far as it can be understood: servers leave out semicolons and quotes,
// and the type before the parameters.
class ParameterReader {
 public:
  explicit ParameterReader(std::string_view text) : m_rest(text) {}

  // The next parameter that has a value; nullopt at the end.
  std::optional<Parameter> Next() {
    while (true) {
      m_rest.remove_prefix(std::min(m_rest.find_first_not_of("; \t\r\n="), m_rest.size()));
      if (m_rest.empty()) return std::nullopt;
      if (m_rest.front() == '"') {  // a text in quotes that belongs to nothing: what is in it is no parameter
        static_cast<void>(TakeQuoted());
        continue;
      }
      const std::string_view name = Take(m_rest.find_first_of("=;\" \t\r\n"));
      SkipBlanks();
      if (m_rest.empty() || m_rest.front() != '=') continue;
      m_rest.remove_prefix(1);
      SkipBlanks();
      const bool isQuoted = !m_rest.empty() && m_rest.front() == '"';
      return Parameter{name, isQuoted ? TakeQuoted() : std::string(Trimmed(Take(FindEndOfPlain())))};
    }
  }

 private:
  std::string_view Take(std::size_t count) {
    const std::string_view taken = m_rest.substr(0, count);
    m_rest.remove_prefix(taken.size());
    return taken;
  }

  void SkipBlanks() { m_rest.remove_prefix(std::min(m_rest.find_first_not_of(kBlanks), m_rest.size())); }

  // With the quotes and escapes taken away. One that is not closed goes to the end.
  std::string TakeQuoted() {
    std::string text;
    std::size_t i = 1;
    for (; i < m_rest.size() && m_rest[i] != '"'; ++i) {
      if (m_rest[i] == '\\' && i + 1 < m_rest.size()) ++i;
      text += m_rest[i];
    }
    Take(i + 1);
    return text;
  }

  // A plain value may hold blanks. It ends before a semicolon, or before the other form of the name if the semicolon is missing.
  [[nodiscard]] std::size_t FindEndOfPlain() const {
    const std::size_t end = std::min(m_rest.find(';'), m_rest.size());
    for (std::size_t blank = m_rest.find_first_of(kBlanks); blank < end;
         blank = m_rest.find_first_of(kBlanks, blank + 1)) {
      const std::string_view behind = m_rest.substr(blank + 1);
      if (BeginsWith(behind, "filename=") || BeginsWith(behind, "filename*=")) return blank;
    }
    return end;
  }

  std::string_view m_rest;
};

bool IsUtf8(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t length = Utf8Length(bytes);
    if (length == 0) return false;
    bytes.remove_prefix(length);
  }
  return true;
}

std::string FromLatin1(std::string_view bytes) {
  std::string utf8;
  for (const char character : bytes) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte >= 0x80) utf8 += static_cast<char>(0xC0U | (byte >> 6U));
    utf8 += byte < 0x80 ? character : static_cast<char>(0x80U | (byte & 0x3FU));
  }
  return utf8;
}

// CHARSET'LANGUAGE'TEXT as UTF-8; nullopt when it is malformed or the character set is another.
std::optional<std::string> DecodeExtended(std::string_view value) {
  const std::size_t first = value.find('\'');
  if (first == std::string_view::npos) return std::nullopt;
  const std::size_t second = value.find('\'', first + 1);
  if (second == std::string_view::npos) return std::nullopt;
  const std::string_view charset = value.substr(0, first);
  std::string text = PercentDecode(value.substr(second + 1));
  if (IsSame(charset, "ISO-8859-1")) return FromLatin1(text);
  if (IsSame(charset, "UTF-8") && IsUtf8(text)) return text;
  return std::nullopt;
}

// nullopt when nothing is left of it.
std::optional<std::string> NameOfSuggestion(std::string_view suggestion) {
  std::string name = MakeSafeName(Trimmed(BehindLast("/\\", suggestion)));
  if (name.empty()) return std::nullopt;
  if (name.front() == '.' || name.front() == '-') name.front() = '_';
  return name;
}

// A value that is folded over several lines, each of which goes on with a blank, is one line.
std::string Unfold(std::string_view value) {
  std::string line;
  for (std::size_t i = 0; i < value.size(); ++i) {
    const std::string_view rest = value.substr(i);
    const std::size_t lineEnd = rest.starts_with("\r\n") ? 2 : rest.starts_with("\n") ? 1 : 0;
    const std::size_t behind = lineEnd == 0 ? 0 : std::min(rest.find_first_not_of(" \t", lineEnd), rest.size());
    if (behind > lineEnd) {
      line += ' ';
      i += behind - 1;
    } else {
      line += value[i];
    }
  }
  return line;
}

}  // namespace

std::string NameFromUrl(const std::string& url) {
  std::string_view path = PathOf(url);
  // What libcurl takes for the way to transfer the file, and does not ask the server for.
  if (BeginsWith(url, "ftp:")) path = path.substr(0, path.find(";type="));
  std::string name = MakeSafeName(PercentDecode(BehindLast("/", path)));
  return name.empty() ? "index.html" : name;
}

std::optional<std::string> NameFromDisposition(std::string_view value) {
  const std::string line = Unfold(value);
  std::optional<std::string> extended, plain;
  ParameterReader reader(line);
  while (const std::optional<Parameter> parameter = reader.Next()) {
    if (!extended && IsSame(parameter->name, "filename*")) {
      if (const std::optional<std::string> text = DecodeExtended(parameter->value)) extended = NameOfSuggestion(*text);
    }
    if (!plain && IsSame(parameter->name, "filename")) plain = NameOfSuggestion(parameter->value);
  }
  return extended ? extended : plain;
}

}  // namespace CorvaneCli
