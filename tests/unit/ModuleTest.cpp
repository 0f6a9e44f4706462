#include <Corvane/Base/Module.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/PrintTo.h"

namespace Corvane {
namespace {

struct CompareCase {
  const wchar_t* a;
  const wchar_t* b;
  int sign;
};
constexpr CompareCase kCompareCases[] = {
    {L"6.2.1591", L"6.2.1591", 0},
    {L"6.2.1591", L"6.2.1592", -1},
    {L"6.10", L"6.9", 1},
    {L"6.2", L"6.2.0.0", 0},
    {L"6.2", L"6.2.0.1", -1},
    {L"6.2.1", L"6.2", 1},
    {L"", L"", 0},
    {L"", L"0.0", 0},
    {L"", L"0.1", -1},
    {L"1..2", L"1.0.2", 0},
    {L"1.x.2", L"1.0.2", 0},
    {L".5", L"0.5", 0},
    {L"1.", L"1.0", 0},
    {L"007", L"7", 0},
    {L"2.5beta", L"2.5", 0},
    {L"-1", L"0", 0},
    {L"18446744073709551615", L"18446744073709551614", 1},
};

int SignOf(int number) { return number < 0 ? -1 : number > 0 ? 1 : 0; }

TEST(ZVersion, ComparesComponentByComponent) {
  for (const CompareCase& c : kCompareCases) {
    const ZVersion a{ZString(c.a)};
    const ZVersion b{ZString(c.b)};
    EXPECT_EQ(SignOf(a.Compare(b)), c.sign) << ZStringEncoder(c.a, ZStringEncoder::Utf8).CStr();
    EXPECT_EQ(SignOf(b.Compare(a)), -c.sign) << ZStringEncoder(c.a, ZStringEncoder::Utf8).CStr();
  }
}

TEST(ZVersion, ComparesADefaultVersionAsZero) {
  EXPECT_EQ(ZVersion().Compare(ZVersion(L"0")), 0);
  EXPECT_LT(ZVersion().Compare(ZVersion(L"0.0.1")), 0);
}

TEST(ZVersion, WritesItsComponents) {
  EXPECT_EQ(ZVersion(L"6.2.1591").ToString(), ZString(L"6.2.1591"));
  EXPECT_EQ(ZVersion("6.2.1591").ToString(), ZString(L"6.2.1591"));
  EXPECT_EQ(ZVersion(L"1..x.04").ToString(), ZString(L"1.0.0.4"));
  EXPECT_EQ(ZVersion().ToString(), ZString());
  EXPECT_EQ(ZVersion(L"").ToString(), ZString());
  EXPECT_EQ(ZVersion(L"2.5beta.1").ToString(), ZString(L"2.5.1"));
}

TEST(ZModule, KeepsNameAndVersion) {
  ZModule module(L"example.base.network");
  EXPECT_EQ(module.GetName(), ZString(L"example.base.network"));
  EXPECT_EQ(module.GetVersion().Compare(ZVersion()), 0);
  EXPECT_EQ(&module.SetVersion(ZVersion(L"6.2.1591")), &module);
  EXPECT_EQ(module.GetVersion().ToString(), ZString(L"6.2.1591"));
}

std::vector<ZString> RegisteredNames() {
  std::vector<ZString> names;
  for (const ZModule& module : ZModuleRegistry::GetModules()) names.push_back(module.GetName());
  return names;
}

bool IsRegistered(const ZString& name) {
  const std::vector<ZString> names = RegisteredNames();
  return std::find(names.begin(), names.end(), name) != names.end();
}

TEST(ZModuleRegistry, ListsModulesInTheOrderOfTheirNames) {
  for (const wchar_t* name : {L"test.c", L"test.a", L"test.b", L"test.B"}) ZModuleRegistry::Register(ZModule(name));
  const std::vector<ZString> names = RegisteredNames();
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
  for (const wchar_t* name : {L"test.a", L"test.b", L"test.B", L"test.c"}) {
    EXPECT_EQ(std::count(names.begin(), names.end(), ZString(name)), 1);
    ZModuleRegistry::Unregister(name);
    EXPECT_FALSE(IsRegistered(name));
  }
}

TEST(ZModuleRegistry, ReplacesTheModuleOfTheSameName) {
  const std::size_t before = RegisteredNames().size();
  ZModuleRegistry::Register(ZModule(L"test.twice").SetVersion(ZVersion(L"1")));
  ZModuleRegistry::Register(ZModule(L"test.twice").SetVersion(ZVersion(L"2")));
  const std::vector<ZModule> modules = ZModuleRegistry::GetModules();
  EXPECT_EQ(modules.size(), before + 1);
  const auto found = std::find_if(modules.begin(), modules.end(),
                                  [](const ZModule& module) { return module.GetName() == ZString(L"test.twice"); });
  ASSERT_NE(found, modules.end());
  EXPECT_EQ(found->GetVersion().ToString(), ZString(L"2"));
  ZModuleRegistry::Unregister(L"test.twice");
}

TEST(ZModuleRegistry, TakesTheRemovalOfAnUnknownModule) {
  const std::size_t before = RegisteredNames().size();
  ZModuleRegistry::Unregister(L"test.unknown");
  ZModuleRegistry::Unregister(ZString());
  EXPECT_EQ(RegisteredNames().size(), before);
}

TEST(ZModuleRegistry, CanBeUsedByManyThreads) {
  std::atomic<int> missing = 0;
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&missing, name = ZString(L"test.thread") + ZString().SetNum(i)] {
      for (int round = 0; round < 300; ++round) {
        ZModuleRegistry::Register(ZModule(name));
        if (!IsRegistered(name)) ++missing;
        ZModuleRegistry::Unregister(name);
        if (IsRegistered(name)) ++missing;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(missing, 0);
}

// Libraries register before main and unregister after it.
struct RegistersOutsideMain {
  RegistersOutsideMain() { ZModuleRegistry::Register(ZModule(L"test.early")); }
  ~RegistersOutsideMain() {
    ZModuleRegistry::Unregister(L"test.early");
    if (IsRegistered(L"test.early")) std::abort();  // too late for an assertion
  }
};
const RegistersOutsideMain registersOutsideMain;

TEST(ZModuleRegistry, TakesRegistrationsOfStaticInitialisersAndRemovalsOfDestructors) {
  EXPECT_TRUE(IsRegistered(L"test.early"));
}

}  // namespace
}  // namespace Corvane
