#include <Corvane/Base/Singleton.h>

#include <type_traits>

namespace Corvane {

namespace {

// Initialised by the compiler and never destroyed: other libraries create singletons in their static initialisers and
// destructors, in whatever order the loader runs these.
constinit ZRecursiveMutex creationLock;
static_assert(std::is_trivially_destructible_v<ZRecursiveMutex>);

}  // namespace

ZRecursiveMutex& ZSingleton::CreationLock() { return creationLock; }

}  // namespace Corvane
