#include "tests/support/SmallFileSystem.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace CorvaneTest {
namespace {

bool Mount(const std::filesystem::path& folder, const std::string& size) {
  const std::string options = "size=" + size;
  return mount("tmpfs", folder.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) == 0;
}

// The process keeps its user and group, so that files look as before, and may mount what only it will see.
bool EnterNamespaces() {
  const std::string user = std::to_string(geteuid());
  const std::string group = std::to_string(getegid());
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
  std::ofstream("/proc/self/setgroups") << "deny";  // asked for before groups may be mapped
  std::ofstream("/proc/self/uid_map") << user << ' ' << user << " 1";
  std::ofstream("/proc/self/gid_map") << group << ' ' << group << " 1";
  return true;
}

}  // namespace

SmallFileSystem::SmallFileSystem(const std::string& size) {
  if (Mount(m_folder.Path(), size)) return;
  if (EnterNamespaces() && Mount(m_folder.Path(), size)) return;
  const int reason = errno;
  throw std::runtime_error(std::string(kNeedsPrivileges) + " (" + std::strerror(reason) + ")");
}

SmallFileSystem::~SmallFileSystem() { umount2(m_folder.Path().c_str(), MNT_DETACH); }

}  // namespace CorvaneTest
