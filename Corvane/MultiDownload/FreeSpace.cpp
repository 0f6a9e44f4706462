#include <Corvane/Base/Dir.h>
#include <Corvane/Base/ErrorDict.h>
#include <Corvane/MultiDownload/MultiDownloadImpl.h>
#include <Corvane/NumberTextImpl.h>
#include <Corvane/ShownUrlImpl.h>

// The walk over the files before the first of them is fetched.
namespace Corvane {

using Impl = ZMultiDownload::ZMultiDownloadImpl;

// Counts what is present already, removes what is stale, and compares the space that the rest needs with what is free.
bool Impl::CheckFreeSpaceAndUpdateCurSize() {
  const ZString& directory = m_targetDirectory.ToString();
  ZDir::CreateR(directory);
  unsigned long long required = 0;
  for (const auto& [name, expectedSize] : m_fileSizes) {
    if (m_abort) return true;
    if (!IsIgnored(name)) required = AddSaturated(required, PrepareFile(name, expectedSize));
  }
  unsigned long long availableKb = 0;
  const ZResult asked = ZDir::GetFreeSpace(directory, availableKb);
  if (IsFailure(asked)) {
    SetStatus(TRANSFER_E_DISK_SPACE, ZString(L"Cannot obtain disk space required for downloading %1 to %2 (%3, %4)")
                                         .Arg(ShownUrl(m_url.ToString()))
                                         .Arg(directory)
                                         .Arg(UnsignedNumber(asked))
                                         .Arg(ZGetErrorMsg(asked)));
    return false;
  }
  const unsigned long long requiredKb = required >> 10;
  if (requiredKb <= availableKb) return true;
  SetStatus(TRANSFER_E_DISK_SPACE,
            ZString(L"Insufficient disk space to download %1 to %2. Required: %3 Kb. Available: %4 Kb.")
                .Arg(ShownUrl(m_url.ToString()))
                .Arg(directory)
                .Arg(UnsignedNumber(requiredKb))
                .Arg(UnsignedNumber(availableKb)));
  return false;
}

// The space in bytes that the file will need.
unsigned long long Impl::PrepareFile(const ZString& name, unsigned long long expectedSize) {
  const ZFileInfo local(GetFullPath(name), 0);
  const FilePlan plan = PlanFor(name, expectedSize, local);
  if (plan.action == FileAction::Replace) ZFile::Remove(local.Name(), 0);
  if (plan.bytesPresent != 0) AddCompleted(plan.bytesPresent);
  return plan.bytesNeeded;
}

}  // namespace Corvane
