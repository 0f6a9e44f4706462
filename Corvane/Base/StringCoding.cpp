#include <Corvane/Base/StringCoding.h>

#include <algorithm>
#include <array>
#include <bit>
#include <climits>
#include <cstdint>
#include <cstring>
#include <cwchar>

#include <utf8.h>

#include <Corvane/Base/StringCodingImpl.h>

namespace Corvane {
namespace {

constexpr wchar_t kReplacement = 0xFFFD;

constexpr bool IsAscii(char byte) noexcept { return static_cast<unsigned char>(byte) < 0x80; }

constexpr bool IsContinuation(char byte) noexcept { return (static_cast<unsigned char>(byte) & 0xC0u) == 0x80u; }

constexpr bool IsScalarValue(std::uint32_t character) noexcept {
  return character < 0xD800 || (character > 0xDFFF && character <= 0x10FFFF);
}

std::uint64_t Load8(const char* bytes) noexcept {
  std::uint64_t word;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

// How many of the 8 bytes loaded as `word`, in the order of memory, come before the first that is not ASCII.
std::size_t AsciiPrefix(std::uint64_t word) noexcept {
  const std::uint64_t high = word & 0x8080808080808080u;
  const int zeros = std::endian::native == std::endian::little ? std::countr_zero(high) : std::countl_zero(high);
  return static_cast<std::size_t>(zeros) / 8;
}

// Gathers characters and appends them to a string by the thousand: the string's memory is written once, in blocks that
// are still in the first-level cache, and never filled with zeros beforehand.
class WideBuffer {
 public:
  explicit WideBuffer(ZString& text) noexcept : m_text(text) {}
  WideBuffer(const WideBuffer&) = delete;
  WideBuffer& operator=(const WideBuffer&) = delete;

  void Put(wchar_t character) {
    if (m_used == kSize) Flush();
    m_characters[m_used++] = character;
  }

  // Puts the ASCII characters that the bytes begin with and returns the position behind them.
  const char* PutAscii(const char* bytes, const char* end) {
    while (end - bytes >= kBlock) {
      if (kSize - m_used < kBlock) Flush();
      const std::size_t widened = WidenBlock(bytes, m_characters + m_used);
      m_used += widened;
      bytes += widened;
      if (widened < kBlock) return bytes;
    }
    while (bytes != end && IsAscii(*bytes)) Put(static_cast<wchar_t>(*bytes++));
    return bytes;
  }

  // To be called at the end; not by the destructor, for it may throw.
  void Flush() {
    m_text.Append(m_characters, m_used);
    m_used = 0;
  }

 private:
  static constexpr std::size_t kSize = 1024;
  static constexpr std::ptrdiff_t kBlock = 16;

  // Widens all 16 bytes, which compiles to a few vector instructions, and returns how many of them count.
  static std::size_t WidenBlock(const char* bytes, wchar_t* characters) noexcept {
    unsigned char block[kBlock];  // a copy: the compiler knows that the characters do not overlap it
    std::memcpy(block, bytes, sizeof block);
    for (std::ptrdiff_t i = 0; i < kBlock; ++i) characters[i] = block[i];
    const std::size_t first = AsciiPrefix(Load8(bytes));
    return first < 8 ? first : 8 + AsciiPrefix(Load8(bytes + 8));
  }

  ZString& m_text;
  std::size_t m_used = 0;
  wchar_t m_characters[kSize];
};

// The number of bytes that do not continue a character: that is how many characters well-formed UTF-8 stands for.
std::size_t CountUtf8(const char* bytes, std::size_t length) noexcept {
  constexpr std::uint64_t kLowBits = 0x0101010101010101u;
  std::size_t continuations = 0;
  std::size_t i = 0;
  for (; length - i >= 8; i += 8) {
    const std::uint64_t word = Load8(bytes + i);
    const std::uint64_t marks = (word >> 7) & (~word >> 6) & kLowBits;  // 1 in each byte 10xxxxxx
    continuations += static_cast<std::size_t>((marks * kLowBits) >> 56);
  }
  for (; i < length; ++i) continuations += IsContinuation(bytes[i]) ? 1 : 0;
  return length - continuations;
}

// Makes room for `more` characters. A string that grows piece by piece at least doubles, so that the pieces of a large
// text are not copied again and again; an empty one gets exactly what it needs.
void MakeRoom(ZString& text, std::size_t more) {
  const std::size_t needed = text.Length() + more;
  const std::size_t capacity = text.Str().capacity();
  if (needed > capacity) text.Reserve(text.IsEmpty() ? needed : std::max(needed, 2 * capacity));
}

// What may follow the first byte of a well-formed sequence (Unicode standard, table 3-7): the sequence's length and the
// range of its second byte; all later bytes are 80 to BF. Length 1: no sequence begins with the byte.
struct SequenceForm {
  unsigned char length;
  unsigned char lowest;
  unsigned char highest;
};

constexpr SequenceForm FormOf(unsigned int lead) noexcept {
  if (lead < 0xC2 || lead > 0xF4) return {1, 0, 0};
  if (lead < 0xE0) return {2, 0x80, 0xBF};
  if (lead == 0xE0) return {3, 0xA0, 0xBF};
  if (lead == 0xED) return {3, 0x80, 0x9F};
  if (lead < 0xF0) return {3, 0x80, 0xBF};
  if (lead == 0xF0) return {4, 0x90, 0xBF};
  if (lead == 0xF4) return {4, 0x80, 0x8F};
  return {4, 0x80, 0xBF};
}

constexpr std::array<SequenceForm, 0x80> kForms = [] {
  std::array<SequenceForm, 0x80> forms{};
  for (unsigned int lead = 0x80; lead <= 0xFF; ++lead) forms[lead - 0x80] = FormOf(lead);
  return forms;
}();

// How many bytes at `bytes` fit the form of the sequence that the first one begins, at least 1.
std::ptrdiff_t FittingBytes(const SequenceForm& form, const char* bytes, const char* end) noexcept {
  const std::ptrdiff_t available = std::min<std::ptrdiff_t>(form.length, end - bytes);
  if (available < 2) return 1;
  const auto second = static_cast<unsigned char>(bytes[1]);
  if (second < form.lowest || second > form.highest) return 1;
  std::ptrdiff_t fitting = 2;
  while (fitting < available && IsContinuation(bytes[fitting])) ++fitting;
  return fitting;
}

// Puts the character at `bytes`, which is not ASCII, or U+FFFD, and returns the position behind it. The validation is
// our own, for utf8cpp can only throw or stop at ill-formed input: what is replaced as one piece is the longest
// beginning of a sequence that could have become well-formed, or else one byte, as the standard recommends.
const char* PutUtf8(WideBuffer& buffer, const char* bytes, const char* end) {
  const SequenceForm& form = kForms[static_cast<unsigned char>(*bytes) - 0x80u];
  const std::ptrdiff_t fitting = FittingBytes(form, bytes, end);
  if (fitting == form.length && form.length > 1) {
    buffer.Put(static_cast<wchar_t>(utf8::unchecked::next(bytes)));
    return bytes;
  }
  buffer.Put(kReplacement);
  return bytes + fitting;
}

// Puts the character at `bytes`, which is not ASCII, or its first byte as a character, and returns the position behind.
const char* PutLocal(WideBuffer& buffer, const char* bytes, const char* end) {
  std::mbstate_t state{};  // no locale of today's systems has shift states, so every character starts afresh
  wchar_t character = 0;
  const std::size_t length = std::mbrtowc(&character, bytes, static_cast<std::size_t>(end - bytes), &state);
  // -1: undecodable, -2: incomplete. glibc also decodes sequences beyond Unicode, which nothing could encode again.
  const bool decoded = length != 0 && length <= static_cast<std::size_t>(end - bytes) &&
                       IsScalarValue(static_cast<std::uint32_t>(character));
  buffer.Put(decoded ? character : static_cast<wchar_t>(static_cast<unsigned char>(*bytes)));
  return bytes + (decoded ? length : 1);
}

// Leaves `bytes` alone when the text is not plain.
bool EncodeAscii(const std::wstring& text, std::string& bytes) {
  if (!Coding::IsPlainAscii(text)) return false;
  bytes.resize(text.size());
  Coding::CopyAscii(text, bytes.data());
  return true;
}

// Encodes `text` into `bytes`; returns false when a character cannot be expressed.
bool EncodeLocal(const std::wstring& text, std::string& bytes) {
  if (EncodeAscii(text, bytes)) return true;
  char sequence[MB_LEN_MAX];
  bytes.reserve(text.size());
  for (const wchar_t character : text) {
    const auto code = static_cast<std::uint32_t>(character);
    if (code == 0 || !IsScalarValue(code)) return false;
    if (code < 0x80) {
      bytes.push_back(static_cast<char>(character));
      continue;
    }
    std::mbstate_t state{};
    const std::size_t length = std::wcrtomb(sequence, character, &state);
    // 0 comes from encodings that wait for a combining character: nothing must get lost unnoticed.
    if (length == 0 || length == static_cast<std::size_t>(-1)) return false;
    bytes.append(sequence, length);
  }
  return true;
}

constexpr std::uint32_t ToScalarValue(wchar_t character) noexcept {
  const auto code = static_cast<std::uint32_t>(character);
  return IsScalarValue(code) ? code : static_cast<std::uint32_t>(kReplacement);
}

constexpr std::size_t Utf8Length(std::uint32_t character) noexcept {
  if (character < 0x80) return 1;
  if (character < 0x800) return 2;
  return character < 0x10000 ? 3 : 4;
}

// Measures first: a large text then takes exactly its own size and is never copied.
void EncodeUtf8(const std::wstring& text, std::string& bytes) {
  if (EncodeAscii(text, bytes)) return;
  std::size_t length = 0;
  for (const wchar_t character : text) length += Utf8Length(ToScalarValue(character));
  bytes.resize(length);
  char* out = bytes.data();
  for (const wchar_t character : text) {
    const std::uint32_t code = ToScalarValue(character);
    if (code < 0x80) {
      *out++ = static_cast<char>(code);
    } else {
      out = utf8::unchecked::append(code, out);
    }
  }
}

}  // namespace

bool Coding::IsPlainAscii(const std::wstring& text) noexcept {
  std::uint32_t bits = 0;
  for (const wchar_t character : text) bits |= static_cast<std::uint32_t>(character);
  return bits < 0x80 && text.find(L'\0') == std::wstring::npos;
}

void Coding::CopyAscii(const std::wstring& text, char* bytes) noexcept {
  const std::size_t length = text.size();
  const wchar_t* const characters = text.data();
  for (std::size_t i = 0; i < length; ++i) bytes[i] = static_cast<char>(characters[i]);
}

void Coding::AppendLocal(ZString& text, const char* bytes, std::size_t length) {
  const char* const end = bytes + length;
  WideBuffer buffer(text);
  while (bytes != end) {
    bytes = buffer.PutAscii(bytes, end);
    while (bytes != end && !IsAscii(*bytes)) bytes = PutLocal(buffer, bytes, end);
  }
  buffer.Flush();
}

void AppendUtf8(ZString& text, const char* bytes, std::size_t length) {
  if (length == 0) return;
  MakeRoom(text, CountUtf8(bytes, length));
  WideBuffer buffer(text);
  const char* const end = bytes + length;
  while (bytes != end) {
    bytes = buffer.PutAscii(bytes, end);
    while (bytes != end && !IsAscii(*bytes)) bytes = PutUtf8(buffer, bytes, end);
  }
  buffer.Flush();
}

ZStringEncoder::ZStringEncoder(const ZString& text, Encoding encoding) {
  if (encoding == Utf8) {
    EncodeUtf8(text.Str(), m_bytes);
  } else {
    m_representable = EncodeLocal(text.Str(), m_bytes);
  }
}

ZString ZStringDecoder::FromLocal(const char* text, std::size_t length) { return ZString(text, length); }

ZString ZStringDecoder::FromUtf8(const char* text, std::size_t length) {
  ZString result;
  if (text != nullptr) AppendUtf8(result, text, length == ZString::npos ? std::strlen(text) : length);
  return result;
}

}  // namespace Corvane
