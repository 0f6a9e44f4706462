#include <algorithm>
#include <array>
#include <string_view>

#include <Corvane/Base/TokenScannerImpl.h>
#include <Corvane/MultiDownload/ListingImpl.h>

namespace Corvane {
namespace {

constexpr bool IsDigit(wchar_t character) noexcept { return character >= L'0' && character <= L'9'; }

// Reads a listing line by line. Its members save allocations for each line.
class FtpListingReader {
 public:
  explicit FtpListingReader(Listing& listing) : m_listing(listing) {}

  void Read(std::wstring_view line) {
    m_line.Clear().Append(line.data(), line.size()).TrimLeft().TrimRight();
    if (m_line.IsEmpty()) return;
    m_anyLine = true;
    if (IsDigit(m_line[0])) return ReadDosLine();
    switch (m_line[0]) {
      case L'-':
        return ReadUnixFile();
      case L'd':
        return ReadUnixOther(ListingKind::Folder);
      case L'l':
        return ReadUnixOther(ListingKind::Link);
      case L'b':
      case L'c':
      case L'p':
      case L's':
        return ReadUnixOther(ListingKind::Special);
      default:
        return ReadOtherLine();
    }
  }

  // A directory without anything in it is shown as no line at all, or by the line of the total size alone.
  [[nodiscard]] bool IsRecognised() const noexcept { return m_anyKnownLine || !m_anyLine; }

 private:
  static constexpr std::size_t kMostFields = 9;
  using Fields = std::array<std::wstring_view, kMostFields>;

  // The last field is the rest of the line, blanks included; it is empty when fields are missing.
  [[nodiscard]] Fields SplitLine(std::size_t count) const {
    Fields fields;
    TokenScanner scanner(m_line.Str(), m_blanks);
    for (std::size_t i = 0; i + 1 < count; ++i) fields[i] = scanner.Next();
    fields[count - 1] = scanner.Remainder();
    return fields;
  }

  void ReadUnixFile() {
    const Fields fields = SplitLine(9);
    if (fields[8].empty()) return ReadOtherLine();
    m_anyKnownLine = true;
    AddEntry(m_listing, fields[8], Number(fields[4]), ListingKind::File);
  }

  // A file's line needs nothing but the dash, but the first letters of these begin many a word.
  void ReadUnixOther(ListingKind kind) {
    const Fields fields = SplitLine(9);
    if (fields[8].empty() || !IsMode(fields[0])) return ReadOtherLine();
    m_anyKnownLine = true;
    std::wstring_view name = fields[8];
    if (kind == ListingKind::Link) name = name.substr(0, name.find(L" -> "));
    // A device shows two numbers in place of a size.
    if (kind == ListingKind::Special && fields[4].ends_with(L',')) {
      TokenScanner scanner(name, m_blanks);
      scanner.Next();
      name = scanner.Remainder();
    }
    AddOther(name, kind);
  }

  // The third field is a size or a marker such as <DIR>.
  void ReadDosLine() {
    const Fields fields = SplitLine(4);
    const std::wstring_view size = fields[2];
    const bool isFile = std::all_of(size.begin(), size.end(), IsDigit);
    if (fields[3].empty() || (!isFile && size.front() != L'<')) return ReadOtherLine();
    m_anyKnownLine = true;
    if (isFile) return AddEntry(m_listing, fields[3], Number(size), ListingKind::File);
    AddOther(fields[3],
             ZString(size.data(), size.size()).Upper() == L"<DIR>" ? ListingKind::Folder : ListingKind::Link);
  }

  // Folders show themselves and their parent, too.
  void AddOther(std::wstring_view name, ListingKind kind) {
    if (name != L"." && name != L"..") AddEntry(m_listing, name, 0, kind);
  }

  void ReadOtherLine() {
    if (m_line.Str().starts_with(L"total ")) {
      m_anyKnownLine = true;
    } else {
      LeaveOut(m_listing, m_line.Str(), LeftOutReason::Unreadable);
    }
  }

  // Whether the field is a mode such as "drwxr-xr-x"; a mark may follow it.
  static bool IsMode(std::wstring_view field) {
    constexpr std::size_t kLength = 10;
    return field.size() >= kLength && field.substr(1, kLength - 1).find_first_not_of(L"-rwxsStTlL") == field.npos;
  }

  unsigned long long Number(std::wstring_view digits) {
    return m_number.Clear().Append(digits.data(), digits.size()).ToULongLong(10);
  }

  const DelimiterSet m_blanks{L" \t"};
  Listing& m_listing;
  ZString m_line;
  ZString m_number;
  bool m_anyLine = false;
  bool m_anyKnownLine = false;
};

}  // namespace

Listing ParseFtpListing(const ZString& text) {
  Listing listing;
  FtpListingReader reader(listing);
  const DelimiterSet lineEnds(L"\n\r");
  TokenScanner lines(text.Str(), lineEnds);
  while (lines.HasMore()) reader.Read(lines.Next());
  listing.recognised = reader.IsRecognised();
  return listing;
}

}  // namespace Corvane
