#include "apps/corvane/Trace.h"

#include <string>

#include "apps/corvane/Text.h"

namespace CorvaneCli {

void Trace::Line(Kind kind, const Corvane::ZString& line) {
  const char* const mark = kind == Kind::RequestLine ? "> " : kind == Kind::ResponseLine ? "< " : "* ";
  m_logging.Tell(mark + ToUtf8(line));
}

}  // namespace CorvaneCli
