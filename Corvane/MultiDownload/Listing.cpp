#include <algorithm>

#include <Corvane/MultiDownload/ListingImpl.h>

namespace Corvane {

bool IsPlainFileName(std::wstring_view name) {
  return !name.empty() && name != L"." && name != L".." && name.find(L'/') == name.npos &&
         name.find(L'\0') == name.npos;
}

std::wstring_view FileNameOf(std::wstring_view path) { return path.substr(path.rfind(L'/') + 1); }  // npos + 1 is 0

void AddEntry(Listing& listing, std::wstring_view path, unsigned long long size, ListingKind kind) {
  const std::wstring_view name = FileNameOf(path);
  if (!IsPlainFileName(name)) return LeaveOut(listing, path, LeftOutReason::NameRefused);
  listing.entries.push_back({ZString(name.data(), name.size()), size, kind});
}

void LeaveOut(Listing& listing, std::wstring_view name, LeftOutReason reason) {
  ++listing.leftOut;
  if (listing.leftOutNames.size() == kMostLeftOutNames) return;
  listing.leftOutNames.push_back({ZString(name.data(), std::min(name.size(), kMostLeftOutLength)), reason});
}

}  // namespace Corvane
