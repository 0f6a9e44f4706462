#include <functional>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include <Corvane/Base/Container.h>

#include "tests/unit/PrintTo.h"

namespace {

using Corvane::ZLtstr;
using Corvane::ZMap;
using Corvane::ZString;
using Corvane::ZStringList;

TEST(ZLtstr, OrdersByCharacterNumber) {
  const ZLtstr less;
  EXPECT_TRUE(less(L"a", L"b"));
  EXPECT_FALSE(less(L"b", L"a"));
  EXPECT_FALSE(less(L"a", L"a"));
  EXPECT_TRUE(less(L"", L"a"));
  EXPECT_TRUE(less(L"B", L"a"));
  EXPECT_TRUE(less(L"z", L"\u00E4"));
  EXPECT_TRUE(less(L"\uFFFD", L"\U00010000"));
  EXPECT_TRUE(less(ZString(L"a\0a", 3), ZString(L"a\0b", 3)));
}

TEST(ZMap, KeepsKeysInTheOrderOfZLtstr) {
  ZMap<ZString, ZString, ZLtstr> fields;
  fields[L"b"] = L"1";
  fields[L"B"] = L"2";
  fields[L"a"] = L"3";
  fields[L"b"] = L"4";
  std::wstring order;
  for (const auto& [name, value] : fields) order += name.Str() + value.Str();
  EXPECT_EQ(order, L"B2a3b4");
}

TEST(ZMap, OrdersByStandardLessUnlessToldOtherwise) {
  EXPECT_TRUE((std::is_same_v<ZMap<ZString, long>, std::map<ZString, long, std::less<ZString>>>));
  EXPECT_TRUE((std::is_same_v<ZMap<ZString, long>, Corvane::Container::ZMap<ZString, long, std::less<ZString>>>));
  const ZMap<ZString, unsigned long long> sizes = {{L"b", 2}, {L"a", 1}};
  EXPECT_EQ(sizes.begin()->first, ZString(L"a"));
}

TEST(ZStringList, KeepsStringsInTheirOrder) {
  EXPECT_TRUE((std::is_same_v<ZStringList, Corvane::Container::ZStringList>));
  const ZStringList list = {L"b", L"a", L"b"};
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list.front(), ZString(L"b"));
  EXPECT_EQ(list[1], ZString(L"a"));
}

}  // namespace
