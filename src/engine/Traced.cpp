#include "engine/Traced.h"

#include <algorithm>
#include <iterator>

namespace orvKestrel {
namespace {

constexpr ProcName kProcedures[] = {
    {"clsKestrel", "Function", "CheckDailyInterval"},
    {"clsKestrel", "Function", "CheckDateInterval"},
    {"clsKestrel", "Function", "CheckFreeSpace"},
    {"clsKestrel", "Function", "CheckMonthlyInterval"},
    {"clsKestrel", "Function", "CheckStatus"},
    {"clsKestrel", "Function", "CheckWeeklyInterval"},
    {"clsKestrel", "Function", "CleanFilePattern"},
    {"clsKestrel", "Function", "CleanFolderPattern"},
    {"clsKestrel", "Function", "GetJobs"},
    {"clsKestrel", "Function", "GetValidPathName"},
    {"clsKestrel", "Function", "GetZipFileName"},
    {"clsKestrel", "Function", "GetZipFileNamePreview"},
    {"clsKestrel", "Function", "HandleFolders"},
    {"clsKestrel", "Function", "HandlePreviewFolders"},
    {"clsKestrel", "Function", "Kill"},
    {"clsKestrel", "Function", "NoRoomFor"},
    {"clsKestrel", "Function", "UnZipFile"},
    {"clsKestrel", "Sub", "CheckEmptyFolder"},
    {"clsKestrel", "Sub", "CheckSync"},
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
    {"clsKestrel", "Sub", "FindFiles"},
    {"clsKestrel", "Sub", "FireCurrentJob"},
    {"clsKestrel", "Sub", "FireLogMessage"},
    {"clsKestrel", "Sub", "GetFilesInFolder"},
    {"clsKestrel", "Sub", "KestrelCounter"},
    {"clsKestrel", "Sub", "LoadLogMessages"},
    {"clsKestrel", "Sub", "MoveFiles"},
    {"clsKestrel", "Sub", "Preview"},
    {"clsKestrel", "Sub", "ProcessFiles"},
    {"clsKestrel", "Sub", "RemoveEmptyFolders"},
    {"clsKestrel", "Sub", "RunExternalProgram"},
    {"clsKestrel", "Sub", "Search"},
    {"clsKestrel", "Sub", "SearchSync"},
    {"clsKestrel", "Sub", "SetMsgIDs"},
    {"clsKestrel", "Sub", "StartLine"},
    {"clsKestrel", "Sub", "UnZip_Files"},
    {"clsKestrel", "Sub", "Zip_Files"},
    {"clsKestrel", "Sub", "Zip_Preview"},
    {"modDiskFree", "Function", "GetDiskFree"},
    {"modFileTime", "Function", "ReadDestFileTime"},
    {"modFileTime", "Function", "ReadSourceFileTime"},
    {"modFileTime", "Function", "WriteFileTime"},
    {"modFilterAttribute", "Function", "FilterAttributes"},
    {"modFilterAttribute", "Sub", "SetAttribute"},
    {"modFilterAttribute", "Sub", "SetDestAttributes"},
    {"modFilterAttribute", "Sub", "SetSourceAttributes"},
    {"modFilterAttribute", "Sub", "UnsetAttribute"},
    {"modFilterDate", "Function", "FilterDate"},
    {"modFilterExtension", "Function", "FilterExtention"},
    {"modFilterFileSize", "Function", "FilterFileSize"},
    {"modFilterZIP", "Function", "FilterZip"},
    {"modIniHandler", "Sub", "WriteJobString"},
};

}  // namespace

ProcName Traced(std::string_view function) {
  const auto* it = std::find_if(std::begin(kProcedures), std::end(kProcedures),
                                [function](const ProcName& p) { return p.name == function; });
  return it != std::end(kProcedures) ? *it : ProcName{"clsKestrel", "Sub", function};
}

}  // namespace orvKestrel
