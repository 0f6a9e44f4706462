#pragma once

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <Corvane/Base/Container.h>
#include <Corvane/Base/Duration.h>
#include <Corvane/Base/Result.h>
#include <Corvane/Base/String.h>
#include <Corvane/Export.h>
#include <Corvane/Transfer.h>

namespace Corvane {

// Why something that a server lists is not among the files of a mirror.
enum class LeftOutReason {
  Folder,         // a mirror is one directory, without those below it
  Link,           // a symbolic link in an FTP listing
  Special,        // a device, FIFO or socket in an FTP listing
  NameShortened,  // the page shows the beginning of the name only
  NameDiffers,    // the page shows another text than the name that it links, such as one with entities
  NameRefused,    // no plain file name: empty, ".", "..", or with a NUL
  Unreadable      // not in the format of the listing: an FTP line, or all that follows a link without quotes on a page
};

// One such thing.
struct LeftOut {
  ZString name;  // as far as it could be read, at most 255 characters; of what is unreadable the text
  LeftOutReason reason = LeftOutReason::Unreadable;  // why it is left out
};

// Mirrors one remote directory, without its subdirectories, into one local directory: fetches the list of files (from
// the server's directory page over HTTP, its listing over FTP), decides for each file whether it must be fetched,
// checks the free disk space, downloads, checks sizes, makes the files executable (mode 0755) and sets their times.
//
//   Corvane::ZMultiDownload mirror;
//   if (Corvane::IsFailure(mirror.Download(L"http://example.com/pub/", L"/srv/pub", true))) Report(mirror.GetError());
//
// Files are fetched one after the other, in the order of their names, over one ZTransfer that keeps its connection.
// Names that a server lists are taken as plain file names: nothing outside the target directory is created, changed or
// removed.
//
// Thread safety: Download runs on the calling thread, one at a time per object; a second one is refused with
// BASE_E_BUSY. While it runs, other threads may call the getters, Wait and Abort at any time; setters, Attach and
// Detach are refused with BASE_E_BUSY.
// Errors: result codes, see TransferErrorCodes.h. An exception from a host's observer or logger ends the run, leaves
// the object idle and reaches the caller of Download, as std::bad_alloc does.
class CORVANE_ZN_API ZMultiDownload {
 public:
  class CORVANE_ZN_HIDDEN ZMultiDownloadImpl;  // opaque

  // What a run has found and done; all values are of one moment.
  struct Statistics {
    std::size_t filesKnown = 0;       // in the list, without those that are ignored; 0 until the list is there
    std::size_t filesFetched = 0;     // from their beginning
    std::size_t filesResumed = 0;     // continued
    std::size_t filesSkipped = 0;     // complete before
    std::size_t filesMismatched = 0;  // of the fetched and resumed ones: have not the size that was expected
    std::optional<unsigned long long> totalBytes;  // of all files known; unset while the size of one is not known
    unsigned long long receivedBytes = 0;          // of files, by this run
    // Of the files that are kept or continued: in them before this run, known once it has looked at the files that are
    // here. With receivedBytes it makes what is here of totalBytes, at every moment.
    unsigned long long presentBytes = 0;
    ZString fileName;  // the file that is being fetched, or that ended the run; empty otherwise
    // Whether what the server sent for the directory is a listing, be it an empty one; unset when none was fetched. A
    // page that is none (a table, say, or a home page) gives no files, and the run succeeds without any.
    std::optional<bool> isListing;
    std::size_t leftOut = 0;  // of what the listing shows, without links that lead around; see GetLeftOut
  };

  // Makes a ZTransfer, and throws what its constructor throws.
  ZMultiDownload();
  // Aborts a running Download and returns after it has ended.
  ~ZMultiDownload();
  ZMultiDownload(const ZMultiDownload&) = delete;
  ZMultiDownload& operator=(const ZMultiDownload&) = delete;

  // --- Settings of the transfers; see ZTransfer. Return 0, or BASE_E_BUSY while a Download runs. ---

  // As ZTransfer::SetCredentials.
  [[nodiscard]] ZResult SetCredentials(const ZString& user, const ZString& password);
  // As ZTransfer::Attach. The observer sees every transfer of the run, the listing's too.
  ZResult Attach(ZTransfer::Observer* observer);
  // As ZTransfer::Detach.
  ZResult Detach(ZTransfer::Observer* observer);
  // As ZTransfer::Notify: calls every attached observer, on the calling thread.
  void Notify(int event, long value);
  // As ZTransfer::UseThrottling; true at first.
  ZResult UseThrottling(bool use);
  // As ZTransfer::SetTimeout, for each transfer of a run by itself; but refused while a Download runs.
  ZResult SetTimeout(unsigned long seconds);
  // The same in any unit, rounded up to seconds. Returns the code of EINVAL for a negative time, and leaves the limit as it was.
  template <class Rep, class Period>
  [[nodiscard]] ZResult SetTimeout(std::chrono::duration<Rep, Period> limit) {
    const long long seconds = SecondsOf(limit);
    return seconds < 0 ? ResultFromErrno(EINVAL) : SetTimeout(static_cast<unsigned long>(seconds));
  }
  // As ZTransfer::SetSSL: nothing is checked until this is called.
  [[nodiscard]] ZResult SetSSL(bool verifyHost, bool verifyPeer, const ZString& caFile, const ZString& caDir);

  // --- Settings of the run. Return 0, or BASE_E_BUSY while a Download runs. ---

  // Names that are never fetched, compared exactly.
  ZResult SetIgnoreList(const Container::ZStringList& names);
  // The files to fetch and their expected sizes in bytes (0: not known). A list that is not empty replaces the server's
  // listing, which is not fetched then. A Download that fetched a listing leaves it here: the next one fetches the same
  // names without asking, unless an empty list is set before.
  ZResult SetFileSizeList(const Container::ZMap<ZString, unsigned long long, std::less<ZString>>& sizes);
  // The same from text: decimal numbers, as ZString::ToULongLong reads them; anything else counts as 0.
  ZResult SetFileSizeList(const Container::ZMap<ZString, ZString, ZLtstr>& sizes);
  // The files' expected modification times in seconds since the epoch (0 or absent: not known). A local file that is
  // older is fetched again; a fetched file gets this time.
  ZResult SetFileTimeList(const Container::ZMap<ZString, long, std::less<ZString>>& times);
  ZResult SetFileTimeList(const Container::ZMap<ZString, ZString, ZLtstr>& times);

  // --- What the current or last run has done. Any thread, any time. ---

  // Milliseconds from the run's beginning to the end of its last transfer.
  [[nodiscard]] long long GetDownloadTime() const;
  // The same for the standard library.
  [[nodiscard]] std::chrono::milliseconds GetDownloadDuration() const {
    return std::chrono::milliseconds(GetDownloadTime());
  }
  // Bytes of the set of files that are here: present before, or downloaded in this run.
  [[nodiscard]] unsigned long long GetDownloadSize() const;
  // Bytes moved in both directions, headers and listing included.
  [[nodiscard]] unsigned long long GetTransferSize() const;
  // Mean rate in KiB per second up to the end of the last transfer.
  [[nodiscard]] unsigned int GetTransferRate() const;
  // TRANSFER_E_NOT_STARTED before the first run, while the listing is fetched, and after an abort during the listing;
  // then TRANSFER_S_FINISHED as long as nothing has failed. TRANSFER_E_SIZE_MISMATCH tells that the LAST file fetched
  // has not the expected size; a mismatch before it is replaced by the next file's result.
  [[nodiscard]] ZResult GetStatus() const;
  // The text for GetStatus; a copy of the calling thread's, valid as ZTransfer::GetError's.
  [[nodiscard]] const ZString& GetError() const;
  // The files, where the other getters count bytes. A mismatch of any file shows here.
  [[nodiscard]] Statistics GetStatistics() const;
  // What the listing shows and the run leaves out, the first 100: names first that were not understood, then folders
  // and the like.
  [[nodiscard]] std::vector<LeftOut> GetLeftOut() const;
  // What libcurl said of the transfer that ended the run, as ZTransfer::GetCause tells it, and that transfer's response
  // header in `header`. TRANSFER_E_NOT_STARTED and two empty texts when no transfer did.
  ZResult GetCause(ZString& text, ZString& header) const;

  // --- Control, from any thread. ---

  // Asks the running Download to end, which it does within about a second, or at the end of the throttle's sleep. Its
  // code is TRANSFER_E_ABORTED; but TRANSFER_E_NOT_STARTED while the listing is fetched, and over HTTP
  // TRANSFER_E_CONNECT while a file has no answer yet. Returns at once, always 0. Without a running Download nothing
  // happens, and an abort that comes while one is just beginning may be lost.
  ZResult Abort();
  // Waits until no Download runs, up to `milliseconds`, 0xFFFFFFFF: without limit. True when none runs, or when the one
  // that ran has ended and another has begun since. Not for observers, which would wait for themselves.
  bool Wait(unsigned long milliseconds);
  // The same in any unit, rounded up to milliseconds, for 49 days at most; a negative time only looks.
  template <class Rep, class Period>
  bool Wait(std::chrono::duration<Rep, Period> time) {
    return Wait(MillisecondsOf(time));
  }

  // --- The operation. ---

  // Mirrors the directory `url` into the directory `dir`, which is made when it is missing. A URL without a scheme is
  // taken as http. A query ("?C=M&O=D" orders the page) goes with the request for the page alone: the names of files
  // join the path before it. A fragment ("#top") is dropped.
  // With `resume`, files that are complete are skipped and partial ones continued; without, all are fetched afresh.
  // Needs the expected sizes to tell complete from partial: a file whose size is not known is always fetched again.
  // Before the first file is fetched, those here that are stale, larger than expected, of unknown size or, without
  // `resume`, partial are removed; so they are gone also when the run then stops, or fails for want of space.
  // Stops at the first file that cannot be fetched; files fetched until then stay, with their times. A listing of
  // more than 134,217,728 bytes gives TRANSFER_E_CURL_BASE | 63 and none of its files. A folder, device, FIFO or
  // socket in the place of a file gives TRANSFER_E_DOWNLOAD and stays. A symbolic link there is the user's own: one
  // that leads to a file which is kept, overwritten or continued is followed, of any other the link is removed.
  ZResult Download(const ZString& url, const ZString& dir, bool resume);

 private:
  std::unique_ptr<ZMultiDownloadImpl> m_impl;
};

}  // namespace Corvane
