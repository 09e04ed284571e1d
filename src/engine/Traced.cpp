#include "engine/Traced.h"

#include <algorithm>
#include <iterator>

namespace orvKestrel {
namespace {

// Sorted by procedure name: looked up on every call of a procedure, once per file and more.
constexpr ProcName kProcedures[] = {
    {"clsKestrel", "Function", "CheckDailyInterval"},
    {"clsKestrel", "Function", "CheckDateInterval"},
    {"clsKestrel", "Sub", "CheckEmptyFolder"},
    {"clsKestrel", "Function", "CheckFreeSpace"},
    {"clsKestrel", "Function", "CheckMonthlyInterval"},
    {"clsKestrel", "Function", "CheckStatus"},
    {"clsKestrel", "Sub", "CheckSync"},
    {"clsKestrel", "Function", "CheckWeeklyInterval"},
    {"clsKestrel", "Function", "CleanFilePattern"},
    {"clsKestrel", "Function", "CleanFolderPattern"},
    {"clsKestrel", "Sub", "CopyFiles"},
    {"clsKestrel", "Sub", "DecideDue"},
    {"clsKestrel", "Sub", "DeleteFile"},
    {"clsKestrel", "Sub", "DeleteFiles"},
    {"clsKestrel", "Sub", "DeleteFilesPreview"},
    {"clsKestrel", "Sub", "DeleteSourceFile"},
    {"clsKestrel", "Sub", "DeleteSyncFiles"},
    {"clsKestrel", "Sub", "DeleteSyncFilesPreview"},
    {"clsKestrel", "Sub", "DeleteZipSourceFile"},
    {"clsKestrel", "Sub", "DoMoveCopySelection"},
    {"clsKestrel", "Sub", "DriveJob"},
    {"clsKestrel", "Sub", "EndLine"},
    {"clsKestrel", "Sub", "ExecuteAllJobs"},
    {"clsKestrel", "Sub", "ExecuteOneJob"},
    {"clsKestrel", "Sub", "ExecuteSingleJob"},
    {"clsKestrel", "Sub", "FileCleanUp"},
    {"modFilterAttribute", "Function", "FilterAttributes"},
    {"modFilterDate", "Function", "FilterDate"},
    {"modFilterExtension", "Function", "FilterExtention"},
    {"modFilterFileSize", "Function", "FilterFileSize"},
    {"modFilterZIP", "Function", "FilterZip"},
    {"clsKestrel", "Sub", "FindFiles"},
    {"clsKestrel", "Sub", "FireCurrentJob"},
    {"clsKestrel", "Sub", "FireLogMessage"},
    {"modDiskFree", "Function", "GetDiskFree"},
    {"clsKestrel", "Sub", "GetFilesInFolder"},
    {"clsKestrel", "Function", "GetJobs"},
    {"clsKestrel", "Function", "GetValidPathName"},
    {"clsKestrel", "Function", "GetZipFileName"},
    {"clsKestrel", "Function", "GetZipFileNamePreview"},
    {"clsKestrel", "Function", "HandleFolders"},
    {"clsKestrel", "Function", "HandlePreviewFolders"},
    {"clsKestrel", "Sub", "KestrelCounter"},
    {"clsKestrel", "Function", "Kill"},
    {"clsKestrel", "Sub", "LoadLogMessages"},
    {"clsKestrel", "Sub", "MoveFiles"},
    {"clsKestrel", "Function", "NoRoomFor"},
    {"clsKestrel", "Sub", "Preview"},
    {"clsKestrel", "Sub", "ProcessFiles"},
    {"modFileTime", "Function", "ReadDestFileTime"},
    {"modFileTime", "Function", "ReadSourceFileTime"},
    {"clsKestrel", "Sub", "RemoveEmptyFolders"},
    {"clsKestrel", "Sub", "RunExternalProgram"},
    {"clsKestrel", "Sub", "Search"},
    {"clsKestrel", "Sub", "SearchSync"},
    {"modFilterAttribute", "Sub", "SetAttribute"},
    {"modFilterAttribute", "Sub", "SetDestAttributes"},
    {"clsKestrel", "Sub", "SetMsgIDs"},
    {"modFilterAttribute", "Sub", "SetSourceAttributes"},
    {"clsKestrel", "Sub", "StartLine"},
    {"clsKestrel", "Function", "UnZipFile"},
    {"clsKestrel", "Sub", "UnZip_Files"},
    {"modFilterAttribute", "Sub", "UnsetAttribute"},
    {"modFileTime", "Function", "WriteFileTime"},
    {"modIniHandler", "Sub", "WriteJobString"},
    {"clsKestrel", "Sub", "Zip_Files"},
    {"clsKestrel", "Sub", "Zip_Preview"},
};

constexpr bool ByName(const ProcName& a, const ProcName& b) { return a.name < b.name; }
static_assert(std::is_sorted(std::begin(kProcedures), std::end(kProcedures), ByName));

}  // namespace

ProcName Traced(std::string_view function) {
  const ProcName wanted{"", "", function};
  const auto* it = std::lower_bound(std::begin(kProcedures), std::end(kProcedures), wanted, ByName);
  return it != std::end(kProcedures) && it->name == function
             ? *it
             : ProcName{"clsKestrel", "Sub", function};
}

}  // namespace orvKestrel
