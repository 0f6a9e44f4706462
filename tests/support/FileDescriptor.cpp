#include "tests/support/FileDescriptor.h"

#include <unistd.h>

namespace CorvaneTest {

void FileDescriptor::Close() {
  if (m_descriptor < 0) return;
  close(m_descriptor);  // nothing a test could do about an error, and Linux frees the number in any case
  m_descriptor = -1;
}

}  // namespace CorvaneTest
