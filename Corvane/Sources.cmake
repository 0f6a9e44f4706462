# The sources of libzn, for the library and for whatever else is built from them.
#
# Static initialisers run in link order, and in the reverse order at unload: the transfers' process-wide state must be there
# before the module and the error codes are registered, and must outlive both.
set(CORVANE_ZN_SOURCES
    Transfer/ProcessSetup.cpp
    Transfer/Throttle.cpp
    ShownUrl.cpp
    Transfer/Abort.cpp
    Transfer/Additions.cpp
    Transfer/AnswerHeader.cpp
    Transfer/Body.cpp
    Transfer/Bracket.cpp
    Transfer/ContentRange.cpp
    Transfer/Download.cpp
    Transfer/DownloadFile.cpp
    Transfer/FileVersion.cpp
    Transfer/Operation.cpp
    Transfer/Outcome.cpp
    Transfer/Post.cpp
    Transfer/Procedure.cpp
    Transfer/Receive.cpp
    Transfer/Request.cpp
    Transfer/RequestedPart.cpp
    Transfer/ResumedFile.cpp
    Transfer/Settings.cpp
    Transfer/Trace.cpp
    Transfer/TraceLines.cpp
    Transfer/Transfer.cpp
    Transfer/Verification.cpp
    TransferModule.cpp
    TransferErrorCodes.cpp
    GetHostByName.cpp
    SystemTrust.cpp
    MultiDownload/Counters.cpp
    MultiDownload/FetchFiles.cpp
    MultiDownload/FileList.cpp
    MultiDownload/FileState.cpp
    MultiDownload/FreeSpace.cpp
    MultiDownload/FtpListing.cpp
    MultiDownload/HttpListing.cpp
    MultiDownload/Listing.cpp
    MultiDownload/LocalFiles.cpp
    MultiDownload/MultiDownload.cpp
    MultiDownload/Run.cpp)
list(TRANSFORM CORVANE_ZN_SOURCES PREPEND "${CMAKE_CURRENT_LIST_DIR}/")
