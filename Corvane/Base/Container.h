#pragma once

#include <functional>
#include <map>
#include <vector>

#include <Corvane/Base/String.h>

namespace Corvane {

// Orders strings by ZString::Compare, that is by character number.
struct ZLtstr {
  // True when `a` comes before `b`.
  bool operator()(const ZString& a, const ZString& b) const noexcept { return a.Compare(b) < 0; }
};

namespace Container {

// A map in the order of its keys.
template <class Key, class Value, class Less = std::less<Key>>
using ZMap = std::map<Key, Value, Less>;

// Strings in the order in which they were put in.
using ZStringList = std::vector<ZString>;

}  // namespace Container

using Container::ZMap;
using Container::ZStringList;

}  // namespace Corvane
