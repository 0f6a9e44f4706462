// Names for files, from URLs and from servers.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "apps/corvane/Get/FileName.h"
#include "apps/corvane/Text.h"
#include "apps/corvane/Utf8.h"

namespace CorvaneCli {
namespace {

using namespace std::string_literals;

struct UrlCase {
  std::string url;
  std::string name;
};

TEST(NameFromUrl, IsTheLastSegmentOfThePath) {
  const UrlCase cases[] = {
      {"http://h/a.iso", "a.iso"},
      {"http://h/a/b/c.tar.gz", "c.tar.gz"},
      {"http://h/a.iso?x=/y", "a.iso"},
      {"http://h/a.iso#/y", "a.iso"},
      {"http://h/a%20b.txt", "a b.txt"},
      {"http://h/gr%C3%BC.txt", "gr\xC3\xBC.txt"},
      {"http://h/gr\xC3\xBC.txt", "gr\xC3\xBC.txt"},
      {"http://h/100%.txt", "100%.txt"},
      {"http://h/%4", "%4"},
      {"http://h/%zz%2", "%zz%2"},
      {"http://h/%2541", "%41"},  // decoded once
      {"http://h/a+b", "a+b"},
      {"http://h/a;type=i", "a;type=i"},
      {"ftp://h/a.iso;type=i", "a.iso"},
      {"FTP://h/a;b;type=a", "a;b"},
      {"http://h/.bashrc", ".bashrc"},  // the user asked for it
  };
  for (const UrlCase& c : cases) EXPECT_EQ(NameFromUrl(c.url), c.name) << c.url;
}

TEST(NameFromUrl, IsIndexHtmlWhereThereIsNoName) {
  for (const char* const url :
       {"http://h", "http://h/", "http://h/a/", "http://h?a=/b", "http://h#/b", "http://h/?a", "http://h/a/?b/c",
        "http://h/..", "http://h/.", "http://h/%2e%2e", "http://h/....", "http://h/a/%2E", "http://h/%20", "", "h"}) {
    EXPECT_EQ(NameFromUrl(url), "index.html") << url;
  }
}

TEST(NameFromUrl, IsOneNameWhateverIsEncodedInIt) {
  const UrlCase cases[] = {
      {"http://h/%2e%2e%2f", ".._"},
      {"http://h/..%2f..%2fetc%2fpasswd", ".._.._etc_passwd"},
      {"http://h/%2Fetc%2Fpasswd", "_etc_passwd"},
      {"http://h/a%00b", "a_b"},
      {"http://h/a%0Ab%0D%1B[2J%7F", "a_b__[2J_"},
      {"http://h/a%C2%9Bb", "a_b"},
      {"http://h/a%E2%80%AEb", "a_b"},
      {"http://h/a%E2%80%A8b%E2%80%A9", "a_b_"},
      {"http://h/a%D8%9Cb", "a_b"},
      {"http://h/gr%FC.txt", "gr%FC.txt"},
      {"http://h/%c0%ae%c0%ae%c0%af", "%C0%AE%C0%AE%C0%AF"},  // overlong ".." and "/"
      {"http://h/%ED%A0%80", "%ED%A0%80"},
      {"http://h/a%20.%20.", "a"},
  };
  for (const UrlCase& c : cases) EXPECT_EQ(NameFromUrl(c.url), c.name) << c.url;
}

TEST(NameFromUrl, IsAtMost200BytesLongAndKeepsAShortExtension) {
  const std::string longName(10000, 'a');
  EXPECT_EQ(NameFromUrl("http://h/" + std::string(200, 'a')), std::string(200, 'a'));
  EXPECT_EQ(NameFromUrl("http://h/" + longName), std::string(200, 'a'));
  EXPECT_EQ(NameFromUrl("http://h/" + longName + ".iso"), std::string(196, 'a') + ".iso");
  EXPECT_EQ(NameFromUrl("http://h/a." + longName), "a." + std::string(198, 'a'));
  EXPECT_EQ(NameFromUrl("http://h/." + longName), "." + std::string(199, 'a'));
  // U+6F22 takes three bytes: 65 of them and ".iso" fit into 200, 66 do not.
  std::string han, kept;
  for (int i = 0; i < 1000; ++i) han += "\xE6\xBC\xA2";
  for (int i = 0; i < 65; ++i) kept += "\xE6\xBC\xA2";
  EXPECT_EQ(NameFromUrl("http://h/" + han + ".iso"), kept + ".iso");
  // The cut must not leave a dot or a blank at the end.
  EXPECT_EQ(NameFromUrl("http://h/" + std::string(190, 'a') + std::string(20, '.') + longName), std::string(190, 'a'));
  EXPECT_EQ(NameFromUrl("http://h/" + std::string(10000, '.')), "index.html");
}

// --- Content-Disposition

struct DispositionCase {
  std::string value;
  std::optional<std::string> name;
};

void Expect(const std::vector<DispositionCase>& cases) {
  for (const DispositionCase& c : cases) EXPECT_EQ(NameFromDisposition(c.value), c.name) << c.value;
}

TEST(NameFromDisposition, ReadsWhatTheStandardsShow) {
  Expect({
      {"Attachment; filename=example.html", "example.html"},
      {"INLINE; FILENAME= \"an example.html\"", "an example.html"},
      {"attachment; filename*= UTF-8''%e2%82%ac%20rates", "\xE2\x82\xAC rates"},
      {"attachment; filename=\"EURO rates\"; filename*=utf-8''%e2%82%ac%20rates", "\xE2\x82\xAC rates"},
      {"attachment; filename*=utf-8''%e2%82%ac%20rates; filename=\"EURO rates\"", "\xE2\x82\xAC rates"},
      {"attachment; filename*=iso-8859-1'en'%A3%20rates", "\xC2\xA3 rates"},
      {"attachment; filename*=UTF-8'en'gr%C3%BC.txt", "gr\xC3\xBC.txt"},
      {"attachment; filename=\"f\\oo.html\"", "foo.html"},
      {"attachment; filename=\"\\\"quoting\\\" tested.html\"", "\"quoting\" tested.html"},
      {"attachment; filename=\"semi;colon.txt\"; size=5", "semi;colon.txt"},
      {"attachment; foo=\"\\\"\\\\\"; filename=\"foo.html\"", "foo.html"},
      {"attachment; foo=\"filename=evil; filename=bad\"; filename=good", "good"},
      {"attachment; filename = \"foo.html\"", "foo.html"},
      {"attachment;filename=\"a\"", "a"},
      {"attachment; filename*0=\"a\"; filename*1=\"b\"", std::nullopt},  // that is for mail
      {"attachment; filename=\"\xC3\xBC.txt\"", "\xC3\xBC.txt"},
      {"attachment; filename=\"a%20b.txt\"", "a%20b.txt"},
  });
}

TEST(NameFromDisposition, UnderstandsOddServers) {
  Expect({
      {"filename=a.txt", "a.txt"},
      {"attachment filename=a.txt", "a.txt"},
      {"attachment; filename=an unquoted name.txt", "an unquoted name.txt"},
      {"attachment; filename=an unquoted name.txt ; size=3", "an unquoted name.txt"},
      {"attachment; filename=\"a.txt\" filename*=UTF-8''b.txt", "b.txt"},
      {"attachment; filename=a.txt filename*=UTF-8''b.txt", "b.txt"},
      {"attachment; filename=\"never closed.txt", "never closed.txt"},
      {"attachment;;; filename=a.txt;;", "a.txt"},
      {"attachment; filename=\"folded\r\n  name.txt\"", "folded name.txt"},
      {"attachment;\r\n\tfilename=a.txt", "a.txt"},
      {"attachment; filename==a.txt", "=a.txt"},
      {"attachment; filename*=\"UTF-8''b.txt\"", "b.txt"},
      {"attachment; filename=a; filename=b", "a"},
      {"attachment; filename=gr\xFC.txt", "gr%FC.txt"},
      {"attachment; filename*=UTF-8''100%", "100%"},
  });
}

TEST(NameFromDisposition, FallsBackWhereTheBetterFormIsOfNoUse) {
  Expect({
      {"attachment; filename=a.txt; filename*=b.txt", "a.txt"},
      {"attachment; filename=a.txt; filename*=UTF-8'b.txt", "a.txt"},
      {"attachment; filename=a.txt; filename*=KOI8-R''%C1.txt", "a.txt"},
      {"attachment; filename=a.txt; filename*=''b.txt", "a.txt"},
      {"attachment; filename=a.txt; filename*=UTF-8''%FF.txt", "a.txt"},
      {"attachment; filename=a.txt; filename*=UTF-8''%c0%ae%c0%ae%c0%afb", "a.txt"},
      {"attachment; filename=a.txt; filename*=UTF-8''", "a.txt"},
      {"attachment; filename=a.txt; filename*=UTF-8''..", "a.txt"},
      {"attachment; filename*=UTF-8''%FF; filename*=UTF-8''b", "b"},
  });
}

TEST(NameFromDisposition, IsNothingWhereNothingIsLeft) {
  for (const std::string& value : {""s,
                                   "attachment"s,
                                   "attachment;"s,
                                   "attachment; filename"s,
                                   "attachment; filename="s,
                                   "attachment; filename=;"s,
                                   "attachment; filename=\"\""s,
                                   "attachment; filename=\""s,
                                   "attachment; filename=."s,
                                   "attachment; filename=.."s,
                                   "attachment; filename=\" . . \""s,
                                   "attachment; filename=a/"s,
                                   "attachment; filename=a\\"s,
                                   "attachment; filename=../.."s,
                                   "attachment; myfilename=a"s,
                                   "attachment; \"filename=a\""s,
                                   "="s,
                                   ";"s,
                                   "\""s,
                                   "attachment; filename="s + std::string(10000, '.'),
                                   "filename*=UTF-8''%2f"s}) {
    EXPECT_EQ(NameFromDisposition(value), std::nullopt) << value;
  }
}

TEST(NameFromDisposition, LeavesAHostileServerNothingButAPlainName) {
  Expect({
      {"attachment; filename=\"../../.bashrc\"", "_bashrc"},
      {"attachment; filename=../../.ssh/authorized_keys", "authorized_keys"},
      {"attachment; filename=\"..\\\\..\\\\x\"", "x"},
      {"attachment; filename=..\\..\\x", "x"},
      {"attachment; filename=\"C:\\\\x\"", "x"},
      {"attachment; filename=C:\\x", "x"},
      {"attachment; filename=\"a/../b\"", "b"},
      {"attachment; filename=\"/etc/passwd\"", "passwd"},
      {"attachment; filename=%2e%2e%2f", "%2e%2e%2f"},
      {"attachment; filename*=UTF-8''%2e%2e%2f%2e%2e%2f.bashrc", "_bashrc"},
      {"attachment; filename*=UTF-8''a%00b", "a_b"},
      {"attachment; filename*=UTF-8''%00", "_"},
      {"attachment; filename*=ISO-8859-1''a%9B31m", "a_31m"},
      {"attachment; filename*=UTF-8''a%0d%0aSet-Cookie:%20x", "a__Set-Cookie: x"},
      {"attachment; filename*=UTF-8''gpj.%E2%80%AEexe", "gpj._exe"},
      {"attachment; filename=-rf", "_rf"},
      {"attachment; filename=--output=x", "_-output=x"},
      {"attachment; filename=-", "_"},
      {"attachment; filename=\"  .profile\"", "_profile"},
      {"attachment; filename=\" -x\"", "_x"},
      {"attachment; filename=...a", "_..a"},
      {"attachment; filename=\"a\x1b[2J.txt\"", "a_[2J.txt"},
      {"attachment; filename=" + std::string(10000, 'a') + ".txt", std::string(196, 'a') + ".txt"},
  });
}

// --- whatever comes

bool IsOnePlainName(std::string_view name) {
  if (name.empty() || name == "." || name == ".." || name.size() > 200 || name.back() == '.' || name.back() == ' ') {
    return false;
  }
  while (!name.empty()) {
    const std::size_t length = Utf8Length(name);
    if (length == 0 || name.front() == '/' || !IsPlain(FromUtf8(name.substr(0, length))[0])) return false;
    name.remove_prefix(length);
  }
  return true;
}

class Bytes {
 public:
  // Bytes from pieces that matter for names and for the syntax around them.
  std::string Make() {
    static const std::string kPieces[] = {"/",
                                          "\\",
                                          ".",
                                          "..",
                                          " ",
                                          "\t",
                                          "-",
                                          "%",
                                          "%2f",
                                          "%00",
                                          "\"",
                                          ";",
                                          "=",
                                          "'",
                                          "a",
                                          "b.c",
                                          "\r\n",
                                          "\r\n ",
                                          "\xE2\x80\xAE",  // NOLINT(misc-misleading-bidirectional)
                                          "%c0%af",
                                          "*",
                                          "\n",
                                          "UTF-8",
                                          "%e2%80%a8",
                                          "\xC3",
                                          "\xF0\x9F\x98\x80",
                                          "filename=",
                                          "filename*=UTF-8''"};
    std::string text;
    for (auto count = m_random() % 40; count > 0; --count) {
      if (m_random() % 3 == 0) {
        text += static_cast<char>(m_random() & 0xFF);
      } else {
        text += kPieces[m_random() % std::size(kPieces)];
      }
    }
    if (m_random() % 16 == 0) text += std::string(m_random() % 400, text.empty() ? '.' : text.back());
    return text;
  }

 private:
  std::mt19937 m_random{5489};
};

TEST(NameFromUrl, IsOnePlainNameWhateverComes) {
  Bytes bytes;
  for (int round = 0; round < 50000; ++round) {
    const std::string text = bytes.Make();
    for (const std::string& url : {text, "http://h/" + text, "ftp://h/a/" + text}) {
      const std::string name = NameFromUrl(url);
      ASSERT_TRUE(IsOnePlainName(name)) << testing::PrintToString(url) << testing::PrintToString(name);
    }
  }
}

TEST(NameFromDisposition, IsOnePlainNameOrNothingWhateverComes) {
  Bytes bytes;
  int names = 0;
  for (int round = 0; round < 50000; ++round) {
    const std::string text = bytes.Make();
    for (const std::string& value : {text, "attachment; filename=" + text, "attachment; filename=\"" + text + '"',
                                     "attachment; filename*=UTF-8''" + text, "x; filename*=ISO-8859-1''" + text}) {
      const std::optional<std::string> name = NameFromDisposition(value);
      if (!name) continue;
      ++names;
      ASSERT_TRUE(IsOnePlainName(*name)) << testing::PrintToString(value) << testing::PrintToString(*name);
      ASSERT_TRUE(name->front() != '.' && name->front() != '-') << testing::PrintToString(value);
    }
  }
  EXPECT_GT(names, 100000);
}

TEST(NameFromDisposition, IsReadInOnePass) {
  // Half a million blanks with nothing behind them, each of which may end a plain value.
  const std::string blanks = "attachment; filename=" + std::string(500000, ' ') + "a" + std::string(500000, ' ') + "b";
  EXPECT_TRUE(NameFromDisposition(blanks).has_value());
  std::string escapes = "attachment; filename=\"";
  for (int i = 0; i < 500000; ++i) escapes += "\r\n \\\"";
  EXPECT_TRUE(NameFromDisposition(escapes).has_value());
}

}  // namespace
}  // namespace CorvaneCli
