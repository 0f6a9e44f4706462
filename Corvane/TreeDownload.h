#pragma once

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include <Corvane/Base/Container.h>
#include <Corvane/Base/Duration.h>
#include <Corvane/Base/Result.h>
#include <Corvane/Base/String.h>
#include <Corvane/Export.h>
#include <Corvane/TransferErrorCodes.h>

namespace Corvane {

// What a ZTreeDownload does and where it stops, see ZTreeDownload::SetOptions. Every member begins with a value that suits most.
struct ZTreeOptions {
  // How many connections are open at once, 1 to 64. A server that speaks HTTP/2 gets one, with up to 100 files in flight on it.
  unsigned int mostConnections = 8;

  // How many folders deep below the directory is looked, 0 to 64; 0: the files in the directory itself. What lies deeper is neither
  // asked for nor touched. A tree that goes deeper than 64 folders is a failure.
  unsigned int mostDepth = 64;

  // Patterns of fnmatch(3), with "*", "?" and "[...]". One without a slash matches the names of files and folders at any depth, one
  // with a slash the path below the directory, where "*" matches no slash. What matches `exclude` is left alone on both sides, a folder
  // with all that is in it. When `include` is not empty only files that match it, and those in folders that match it, are fetched.
  Container::ZStringList include;
  Container::ZStringList exclude;  // see `include`

  // Whether files here that the server does not list are deleted, and folders that are empty then. Nothing is deleted unless every
  // page of the tree came whole, and they show at least one file; nothing that the patterns leave out, nothing below `mostDepth`, nothing
  // but regular files, symbolic links (never what they point at) and empty folders.
  bool deleteOthers = false;
  // How many files may be deleted; unset: at most half of those that are here. One more, and none is deleted and the run fails.
  std::optional<unsigned long long> mostDeletes;

  // Whether files are checked against the "SHA512SUMS" or "SHA256SUMS" that the server lists in their folder or in one above it,
  // before they appear. A file without an entry arrives all the same, and is counted in Statistics::filesWithoutChecksum.
  bool verify = false;

  // Whether the first failure of a file or folder ends the run. Otherwise the rest is fetched, and the run fails in the end.
  bool stopAtFirstFailure = false;

  // How often a request is repeated that failed for a reason that may pass (no connection, reset, time-out, 408, 425, 429, 500, 502,
  // 503, 504, FTP 4xx), at most 100. The first wait is `retryWaitMs`, each further one twice as long, up to a minute; a server's
  // Retry-After of up to an hour is obeyed.
  unsigned int mostRetries = 3;
  unsigned int retryWaitMs = 1000;  // before the first repetition, in milliseconds

  // How many redirects of an HTTP server are followed for one resource, at most 50: never from https to http; for a folder only to a
  // place below the directory. The directory itself may be redirected to elsewhere: that is then where the tree is. Credentials and the
  // headers "Authorization" and "Cookie" go to the first server only.
  unsigned int mostRedirects = 10;

  // As ZTransferOptions::headers.
  Container::ZStringList headers;
  // As ZTransferOptions::userAgent.
  ZString userAgent;

  // The most folders of the tree. This and the next two are limits against servers that never end: going beyond one is a failure, and
  // nothing is deleted then.
  unsigned int mostFolders = 100000;
  unsigned int mostEntries = 10000000;              // the most files and folders of the tree; see `mostFolders`
  unsigned long long mostPageBytes = 128ULL << 20;  // the most bytes of one folder's page; see `mostFolders`
};

// Makes a local directory hold what a remote one holds, with all folders below it, and keeps it up to date: asks for the server's
// directory pages (HTTP, HTTPS) or listings (FTP), decides for each file whether it has changed, and fetches what has over several
// connections.
//
//   Corvane::ZTreeDownload tree;
//   if (Corvane::IsFailure(tree.Download(L"https://example.com/pub/", L"/srv/pub"))) Report(tree.GetError());
//
// A file under its final name is complete and of one version at every moment, also after a SIGKILL: what is under way lies in
// DIR/.corvane, and a later run continues it where the server proves that it has not changed since. A fetched file gets the
// server's modification time, by which a later run knows it again. docs/tree.md tells how it is decided.
//
// Servers are not trusted: nothing outside the directory is created, changed or removed, and no symbolic link in it is followed.
//
// Thread safety: one run at a time per object, on the thread that calls Download or Plan; the library starts no thread. While it
// runs, other threads may call the getters, Wait and Abort at any time; settings are refused with BASE_E_BUSY. Two runs of Download
// into one directory, also of different processes, exclude each other.
// Errors: result codes, see TransferErrorCodes.h. An exception from a host's observer or logger ends the run, leaves the object
// idle and reaches the caller of the run.
class CORVANE_ZN_API ZTreeDownload {
 public:
  class CORVANE_ZN_HIDDEN ZTreeDownloadImpl;  // opaque

  // What is done with a file or a folder.
  enum class Action {
    Keep,      // it is up to date
    Fetch,     // from its beginning
    Continue,  // the rest of what an earlier run left under way
    Delete,    // the server does not list it
    LeaveOut,  // the server shows something that is no file or folder with a plain name below the directory
    Refuse     // something stands in its place here, or it cannot be asked for
  };
  // Why it is done.
  enum class Reason {
    None,            // there is nothing to say
    Missing,         // not here
    SizeDiffers,     // from the server's
    TimeDiffers,     // from the server's, to the second as far as it shows it
    NotComparable,   // the server does not tell enough to compare
    SameAsListed,    // size and time are those that the listing shows
    SameAsAnswered,  // size and time are those that the server answered for the file
    NotModified,     // the server answered that it has not changed since the time of the file here
    NotListed,       // here, and not on the server
    NotPlain,        // on the server, and nothing that can be fetched
    InTheWay         // a folder, link or device has the file's name here, or a file or link that of a folder
  };

  // One file, or a folder that could not be listed, made or deleted.
  struct Item {
    // Below the directory, "/" between names and behind the last one of a folder. Bytes as in the file system, UTF-8 where the server has
    // that.
    std::string path;
    bool isFolder = false;                   // whether it is a folder
    Action action = Action::Fetch;           // what a plan would do, or a run has done
    Reason reason = Reason::None;            // why
    std::optional<unsigned long long> size;  // bytes on the server; of a deleted file here
    ZResult result = 0;                      // 0, or the code of the failure, in a plan, too
    ZString text;                            // what there is to say about a failure; empty without one
    unsigned int attempts = 0;               // requests made for the file's content
    long httpStatus = 0;                     // of the last one, of a folder's page, too; 0 without an answer of HTTP
  };

  // Follows runs. Objects are the host's: the library neither copies nor deletes them.
  class Observer {
   public:
    // Called on the run's thread, without any lock: by a plan for every file, by a run for each when it is done with it. May call
    // the getters and Abort.
    virtual void Update(const Item& item) = 0;
    virtual ~Observer() = default;
  };

  // What a run is at. Phases follow one another in this order.
  enum class Phase {
    Idle,       // no run is on
    Listing,    // asks for the folders' pages
    Comparing,  // asks for the files of which the pages do not tell enough
    Fetching,   // fetches what is missing or has changed
    Deleting    // deletes what the server does not list, when that is asked for
  };

  // What a run has found and done; all values are of one moment.
  struct Statistics {
    Phase phase = Phase::Idle;             // what the run is at
    std::size_t folders = 0;               // listed, the directory itself included
    std::size_t filesKnown = 0;            // listed, without those that the patterns leave out
    std::size_t filesToFetch = 0;          // of these; 0 until all are compared
    std::size_t filesFetched = 0;          // from their beginning
    std::size_t filesResumed = 0;          // continued
    std::size_t filesKept = 0;             // up to date before
    std::size_t filesFailed = 0;           // with those of Action::Refuse; folders are counted in foldersFailed
    std::size_t foldersFailed = 0;         // could not be listed, made or deleted
    std::size_t filesDeleted = 0;          // in a plan: that would be
    std::size_t filesWithoutChecksum = 0;  // fetched with `verify`, and not to be found in any list of checksums
    std::size_t leftOut = 0;               // Action::LeaveOut
    std::size_t inFlight = 0;              // requests under way
    std::size_t connections = 0;           // open ones
    unsigned long long requests = 0;       // made so far, repeated and redirected ones included
    std::optional<unsigned long long> totalBytes;  // of the files to fetch; unset while the size of one is not known
    // Of these what is here, in finished ones and in those under way; what an earlier run left is counted when it is continued, and
    // what turns out to be of another version no more.
    unsigned long long bytesHere = 0;
    unsigned long long receivedBytes = 0;  // of files, by this run
    unsigned long long listingBytes = 0;   // of pages and lists of checksums
    long long elapsedMs = 0;               // since the run's beginning; up to its end
  };

  // As the constructor of ZTransfer, the first object of the process initialises libcurl. Throws only std::bad_alloc or what the host's
  // logger throws.
  ZTreeDownload();
  // Aborts a running operation and returns after it has ended.
  ~ZTreeDownload();
  ZTreeDownload(const ZTreeDownload&) = delete;
  ZTreeDownload& operator=(const ZTreeDownload&) = delete;

  // --- Settings. They persist from run to run. ---

  // A request that moves no byte for so many seconds is given up, 300 at first, as is a connection that does not come about in this
  // time; 0: no limit but libcurl's own, for connecting 300 seconds, for the reply of an FTP server 2 minutes (in libcurl 7.88).
  // Returns 0, or BASE_E_BUSY.
  ZResult SetTimeout(unsigned long seconds);
  // The same in any unit, rounded up to seconds. Returns the code of EINVAL for a negative time, and leaves the limit as it was.
  template <class Rep, class Period>
  [[nodiscard]] ZResult SetTimeout(std::chrono::duration<Rep, Period> limit) {
    const long long seconds = SecondsOf(limit);
    return seconds < 0 ? ResultFromErrno(EINVAL) : SetTimeout(static_cast<unsigned long>(seconds));
  }
  // How servers of https are verified, also where a redirect leads to: that the certificate names the host, and that it is signed
  // by one of the certificates in the directory `caDir` (hashed as by openssl-rehash(1)) or the file `caFile` (PEM); with two
  // empty names by one of those that libcurl knows by itself, which it may also accept when one name is given. Until this is
  // called both are checked. Returns 0; BASE_E_BUSY; BASE_E_INVALID_NAME for a path that the locale cannot express or that is not
  // there; the code of ENOMEM. After a failure everything is as it was.
  [[nodiscard]] ZResult SetSSL(bool verifyHost, bool verifyPeer, const ZString& caFile, const ZString& caDir);
  // As ZTransfer::SetCredentials.
  [[nodiscard]] ZResult SetCredentials(const ZString& user, const ZString& password);
  // Whether what is received counts in the process-wide throttle, and is slowed by it. True at first. Returns 0, or BASE_E_BUSY.
  ZResult UseThrottling(bool use);
  // Replaces all of them; ZTreeOptions() takes all back. Returns 0; BASE_E_BUSY; the code of EINVAL when a value is refused, of
  // ENOMEM. After a failure the old ones stay.
  [[nodiscard]] ZResult SetOptions(const ZTreeOptions& options);
  // Returns 0, also when `observer` was attached already (it stays once in the list); BASE_E_BUSY while a run is on or when
  // `observer` is null. The observer must live until it is detached or this object is destroyed.
  ZResult Attach(Observer* observer);
  // Returns 0, also when `observer` was not attached; BASE_E_BUSY while a run is on.
  ZResult Detach(Observer* observer);

  // --- What the current or last run has done. Any thread, any time. ---

  // TRANSFER_E_NOT_STARTED before the first run; while one is on, what has failed first so far, else TRANSFER_E_IN_PROGRESS.
  [[nodiscard]] ZResult GetStatus() const;
  // The text for GetStatus, with the name of what failed; a copy of the calling thread's, valid until its next call and as long as
  // this object.
  [[nodiscard]] const ZString& GetError() const;
  // What has been found and done so far.
  [[nodiscard]] Statistics GetStatistics() const;

  // --- Control, from any thread. ---

  // Asks the run to end, which it does within a second, or at the end of the throttle's sleep, with TRANSFER_E_ABORTED, or with
  // the code of what had failed before. What is under way stays to be continued. Returns at once, always 0. Without a run nothing
  // happens.
  ZResult Abort();
  // Waits until no run is on, up to `milliseconds`, 0xFFFFFFFF: without limit. True when none is. Not for observers.
  bool Wait(unsigned long milliseconds);
  // The same in any unit, rounded up to milliseconds, for 49 days at most; a negative time only looks.
  template <class Rep, class Period>
  bool Wait(std::chrono::duration<Rep, Period> time) {
    return Wait(MillisecondsOf(time));
  }

  // --- The operations. ---

  // Makes `dir` hold what `url` holds. `dir` is made when it is missing. A URL without a scheme is taken as http; only http,
  // https and ftp are taken. A query goes with the request for the directory's own page alone; a fragment is dropped. Returns
  // TRANSFER_S_FINISHED when every file is here and up to date. Else the code of the first failure; what could be fetched is here
  // all the same, and the same call makes good what is missing:
  //   TRANSFER_E_INVALID_URL     the URL; nothing was fetched
  //   TRANSFER_E_CONNECT         an answer outside 200 to 299
  //   TRANSFER_E_CURL_BASE | n   libcurl's failure n
  //   TRANSFER_E_SIZE_MISMATCH   a file has not the length that the listing shows or not the checksum of its list
  //   TRANSFER_E_DISK_SPACE      nothing was fetched, or the run ended at the file that did not fit
  //   TRANSFER_E_DOWNLOAD        a page is no listing, a limit was reached, something is in the way, or the local side failed; the
  //                              text tells which
  //   TRANSFER_E_ABORTED         Abort was called
  //   BASE_E_INVALID_NAME        the directory's name is empty, or one that the locale cannot express
  //   BASE_E_IN_USE              a run is on, of this object or, by the lock in DIR/.corvane, of another one
  ZResult Download(const ZString& url, const ZString& dir);

  // Tells the observers what Download would do, by the same decisions: asks for pages, and for files without their content, and
  // changes nothing here. Takes no lock, so that it may be asked while another object's run is on in `dir`. Returns
  // TRANSFER_S_FINISHED, or the code of the first failure.
  ZResult Plan(const ZString& url, const ZString& dir);

 private:
  std::unique_ptr<ZTreeDownloadImpl> m_impl;
};

}  // namespace Corvane
