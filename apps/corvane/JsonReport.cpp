#include "apps/corvane/JsonReport.h"

#include "apps/corvane/JsonValues.h"
#include "apps/corvane/Mirror/LeftOut.h"
#include "apps/corvane/Target.h"
#include "apps/corvane/Text.h"

namespace CorvaneCli {
namespace {

// A mirror has an event for each file: they are counted.
Json FormatEvents(const Report& report) {
  Json events = Json::array();
  for (const auto& [event, count] : report.eventCounts) {
    events.push_back(Json::array({event.first, FormatCode(event.second), count}));
  }
  for (const auto& [event, value] : report.events) events.push_back(Json::array({event, FormatCode(value)}));
  return events;
}

// "file" is the one that ended the run.
void AddFiles(const Report& report, Json& object) {
  const Corvane::ZMultiDownload::Statistics& files = report.files;
  object["file"] = OrNull(ToUtf8(files.fileName));
  object["files"] = {{"known", files.filesKnown},
                     {"fetched", files.filesFetched},
                     {"resumed", files.filesResumed},
                     {"skipped", files.filesSkipped},
                     {"mismatched", files.filesMismatched}};
  object["isListing"] = OrNull(files.isListing);
  object["leftOut"] = files.leftOut;
  Json entries = Json::array();
  for (const Corvane::LeftOut& entry : report.leftOut) {
    entries.push_back(Json::array({WordFor(entry.reason), ToUtf8(entry.name)}));
  }
  object["leftOutEntries"] = entries;
  object["totalSize"] = OrNull(files.totalBytes);
  object["receivedSize"] = files.receivedBytes;
}

std::string DumpLines(const Json& object) { return Dump(object, 2) + "\n"; }

Json ObjectOf(const Report& report) {
  const bool isMirror = report.directory.has_value();
  Json object = {{"operation", report.operation}, {"url", report.url}};
  if (!isMirror) object["effectiveUrl"] = OrNull(report.effectiveUrl);
  if (isMirror) {
    object["directory"] = *report.directory;
    AddFiles(report, object);
  } else {
    object["file"] = OrNull(report.file);
  }
  object["status"] = FormatCode(report.status);
  object["error"] = OrNull(report.error);
  object["exitCode"] = static_cast<int>(report.exitCode);
  if (!isMirror) object["httpStatus"] = report.httpStatus == 0 ? Json(nullptr) : Json(report.httpStatus);
  if (!isMirror) object["attempts"] = report.attempts;
  if (!isMirror) object["contentSize"] = OrNull(report.contentSize);
  object["downloadSize"] = report.downloadSize;
  object["transferSize"] = report.transferSize;
  object["transferRate"] = report.transferRate;
  object["transferTimeMs"] = report.transferTimeMs;
  if (!isMirror) object["header"] = HideUserinfoIn(report.header);
  object["events"] = FormatEvents(report);
  if (!isMirror) object["partial"] = OrNull(report.partial);
  if (report.body) object["body"] = *report.body;
  return object;
}

}  // namespace

std::string FormatJson(const Report& report) { return DumpLines(ObjectOf(report)); }

std::string FormatJson(const std::vector<Report>& reports, ExitCode code) {
  Json transfers = Json::array();
  for (const Report& report : reports) transfers.push_back(ObjectOf(report));
  return DumpLines({{"operation", "get"}, {"exitCode", static_cast<int>(code)}, {"transfers", std::move(transfers)}});
}

std::string FormatJson(const HostReport& report) {
  return DumpLines({{"operation", "resolve"},
                    {"name", report.name},
                    {"error", OrNull(report.error)},
                    {"aliases", report.aliases},
                    {"addresses", report.addresses}});
}

}  // namespace CorvaneCli
