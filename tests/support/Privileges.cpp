#include "tests/support/Privileges.h"

#include <grp.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace CorvaneTest {

void Die(const char* what) {
  std::perror(what);
  std::exit(2);
}

void DropPrivileges() {
  if (geteuid() != 0) return;
  if (setgroups(0, nullptr) != 0) Die("setgroups");
  if (setresgid(kNobody, kNobody, kNobody) != 0) Die("setresgid");
  if (setresuid(kNobody, kNobody, kNobody) != 0) Die("setresuid");
}

}  // namespace CorvaneTest
