#include <gmock/gmock.h>

#include <string>

#include <Corvane/TreeDownload/HtmlTagsImpl.h>
#include <Corvane/TreeDownload/HtmlTextImpl.h>

namespace CorvaneTest {
namespace {

using Corvane::HtmlTag;
using Corvane::HtmlTags;

std::string Unreferenced(std::string_view text, bool isAttribute) {
  std::string decoded;
  Corvane::AppendUnreferenced(text, isAttribute, decoded);
  return decoded;
}

struct ReferenceCase {
  const char* text;
  const char* inAttribute;
  const char* inText;
};
constexpr ReferenceCase kReferences[] = {
    {"", "", ""},
    {"a&amp;b", "a&b", "a&b"},
    {"&AMP;&LT;&GT;&QUOT;", "&<>\"", "&<>\""},
    {"&nbsp;&apos;", "\xC2\xA0'", "\xC2\xA0'"},
    {"&ampx", "&ampx", "&x"},
    {"&amp=x", "&amp=x", "&=x"},
    {"&amp x", "& x", "& x"},
    {"&apos", "&apos", "&apos"},
    {"&amp;lt;", "&lt;", "&lt;"},
    {"&&lt;", "&<", "&<"},
    {"&Amp;", "&Amp;", "&Amp;"},
    {"&#65", "A", "A"},
    {"&#x41g", "Ag", "Ag"},
    {"&#0;", "\xEF\xBF\xBD", "\xEF\xBF\xBD"},
    {"&#xD800;", "\xEF\xBF\xBD", "\xEF\xBF\xBD"},
    {"&#x10FFFF;", "\xF4\x8F\xBF\xBF", "\xF4\x8F\xBF\xBF"},
    {"&#x110000;", "\xEF\xBF\xBD", "\xEF\xBF\xBD"},
    {"&#99999999999999999999;", "\xEF\xBF\xBD", "\xEF\xBF\xBD"},
    {"&#-1;", "&#-1;", "&#-1;"},
    {"&#;&#x;&", "&#;&#x;&", "&#;&#x;&"},
};

TEST(HtmlText, DecodesReferences) {
  for (const ReferenceCase& c : kReferences) {
    EXPECT_EQ(Unreferenced(c.text, true), c.inAttribute) << c.text;
    EXPECT_EQ(Unreferenced(c.text, false), c.inText) << c.text;
  }
}

TEST(HtmlTags, TellsWhereTagsAre) {
  const std::string page = "a<b c=d>e</b >f";
  HtmlTags tags(page);
  HtmlTag tag;
  ASSERT_TRUE(tags.Next(tag));
  EXPECT_EQ(page.substr(tag.begin, tag.end - tag.begin), "<b c=d>");
  EXPECT_TRUE(tag.Is("b"));
  EXPECT_FALSE(tag.isEnd);
  EXPECT_EQ(tag.Attribute("c"), "d");
  EXPECT_EQ(tag.Attribute("d"), std::nullopt);
  ASSERT_TRUE(tags.Next(tag));
  EXPECT_EQ(page.substr(tag.begin, tag.end - tag.begin), "</b >");
  EXPECT_TRUE(tag.isEnd);
  EXPECT_FALSE(tags.Next(tag));
  EXPECT_FALSE(tags.Next(tag));
}

TEST(HtmlTags, ReadsAttributes) {
  const auto valueOf = [](std::string_view page) {
    HtmlTags tags(page);
    HtmlTag tag;
    return tags.Next(tag) ? tag.Attribute("x") : std::optional<std::string_view>("no tag");
  };
  EXPECT_EQ(valueOf("<a x=1>"), "1");
  EXPECT_EQ(valueOf("<a x>"), "");
  EXPECT_EQ(valueOf("<a x=>"), "");
  EXPECT_EQ(valueOf("<a x= >"), "");
  EXPECT_EQ(valueOf("<a x=\"\">"), "");
  EXPECT_EQ(valueOf("<a x=1/>"), "1/");
  EXPECT_EQ(valueOf("<a x='1'y=2>"), "1");
  EXPECT_EQ(valueOf("<a y='2'X='1'>"), "1");
  EXPECT_EQ(valueOf("<a =x=1>"), std::nullopt);
  EXPECT_EQ(valueOf("<a y=x=1>"), std::nullopt);
  EXPECT_EQ(valueOf("<a x=1"), "no tag");
  EXPECT_EQ(valueOf("<a x='1>"), "no tag");
}

}  // namespace
}  // namespace CorvaneTest
