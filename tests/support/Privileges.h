#pragma once

// For programs that the tests start because what they do to themselves would hold for the whole test process.
namespace CorvaneTest {

// The account that a program started by root becomes.
inline constexpr unsigned int kNobody = 65534;

// Says why the call `what` failed (errno) and ends the process with 2.
[[noreturn]] void Die(const char* what);

// Root may read and write everything, so root becomes nobody; an ordinary user stays what he is.
void DropPrivileges();

}  // namespace CorvaneTest
