#include <Corvane/TreeDownload/DecisionImpl.h>

namespace Corvane {
namespace {

using Reason = ZTreeDownload::Reason;

bool IsWithin(long long time, long long begin, unsigned int length) noexcept {
  long long since = 0;
  return !__builtin_sub_overflow(time, begin, &since) && since >= 0 && since < static_cast<long long>(length);
}

}  // namespace

// A size that a listing shows is exact. A time to the minute may be in the server's own time zone: only one to the second, which comes
// with a zone, tells that a file has changed.
Decision DecideByListing(const FileHere& here, const FileThere& there) noexcept {
  if (here.kind == FileHere::Kind::None) return {Verdict::Fetch, Reason::Missing};
  if (here.kind == FileHere::Kind::Other) return {Verdict::Refuse, Reason::InTheWay};
  if (there.size && *there.size != here.size) return {Verdict::Fetch, Reason::SizeDiffers};
  if (!there.time) return {Verdict::Ask, Reason::NotComparable};
  if (!IsWithin(here.time, *there.time, there.exactness)) {
    return there.exactness <= 1 ? Decision{Verdict::Fetch, Reason::TimeDiffers}
                                : Decision{Verdict::Ask, Reason::TimeDiffers};
  }
  return there.size ? Decision{Verdict::Keep, Reason::SameAsListed} : Decision{Verdict::Ask, Reason::NotComparable};
}

Decision DecideByAnswer(const FileHere& here, const FileThere& there) noexcept {
  if (there.size && *there.size != here.size) return {Verdict::Fetch, Reason::SizeDiffers};
  if (there.time && *there.time != here.time) return {Verdict::Fetch, Reason::TimeDiffers};
  if (there.size && there.time) return {Verdict::Keep, Reason::SameAsAnswered};
  return {Verdict::AskWhetherModified, Reason::NotComparable};
}

}  // namespace Corvane
