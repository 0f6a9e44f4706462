#pragma once

#include <functional>
#include <map>
#include <vector>

#include <Corvane/Base/String.h>

namespace Corvane {

// Orders strings by ZString::Compare, that is by character number.
struct ZLtstr {
  bool operator()(const ZString& a, const ZString& b) const noexcept { return a.Compare(b) < 0; }
};

namespace Container {

template <class Key, class Value, class Less = std::less<Key>>
using ZMap = std::map<Key, Value, Less>;

using ZStringList = std::vector<ZString>;

}  // namespace Container

using Container::ZMap;
using Container::ZStringList;

}  // namespace Corvane
