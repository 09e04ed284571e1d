#include "jobs/JobFields.h"

#include "jobs/NumberText.h"

#include <array>
#include <stdexcept>

namespace orvKestrel {
namespace {

constexpr std::array<KeyField, 106> kKeys{{
      {"Job", "Name", "", Conversion::Text, &job::JobName},
      {"Job", "From", "", Conversion::Text, &job::From},
      {"Job", "To", "", Conversion::Text, &job::To},
      {"Job", "SubFolder", "0", Conversion::Int32, &job::SubFolder},
      {"Job", "FStruct", "0", Conversion::Int32, &job::FStruct},
      {"Job", "DelEFol", "0", Conversion::Int32, &job::DelEFol},
      {"Job", "DelType", "0", Conversion::Int32, &job::DelType},
      {"Job", "OnlyCompare", "0", Conversion::Int32, &job::OnlyCompare},
      {"Job", "Inactive", "0", Conversion::Int32, &job::Inactive},
      {"Job", "Action", "0", Conversion::Int16, &job::Action},
      {"Job", "DoPreview", "1", Conversion::Int32, &job::DoPreview},
      {"Job", "Exist", "0", Conversion::Int16, &job::Exist},
      {"Job", "FileOpt", "0", Conversion::Int16, &job::FileOpt},
      {"Job", "Ext", "", Conversion::Text, &job::Ext},
      {"Job", "FileSize", "0", Conversion::Double, &job::FileSize},
      {"Job", "RunOnce", "0", Conversion::Int32, &job::RunOnce},
      {"Job", "ChkFreeSpace", "0", Conversion::Int32, &job::ChkFreeSpace},
      {"Job", "FreeSpaceVal", "1", Conversion::Int32, &job::FreeSpaceVal},
      {"Job", "RunState", "0", Conversion::Int16, &job::RunState},
      {"Job", "Status", "0", Conversion::Text, &job::Status},
      {"Job", "Counter", "0", Conversion::Int32, &job::Counter},
      {"Job", "ExecDo", "0", Conversion::Int16, &job::ExecDo},
      {"Job", "Execution", "1", Conversion::Int16, &job::Execution},
      {"Job", "ExecPath", "", Conversion::Trimmed, &job::ExecPath},
      {"Job", "ExecParam", "", Conversion::Trimmed, &job::ExecParam},
      {"Job", "ExecWait", "0", Conversion::Int16, &job::ExecWait},
      {"Job", "ExecMaxSec", "1", Conversion::Int16, &job::ExecMaxSec},
      {"Job", "Zip", "0", Conversion::Int32, &job::Zip},
      {"Job", "ZipAll", "0", Conversion::Int32, &job::ZipAll},
      {"Job", "ZipPwd", "", Conversion::Text, &job::ZipPwd},
      {"Job", "ZipGrade", "3", Conversion::Int16Text, &job::ZipGrade},
      {"Job", "ZipIntStruct", "0", Conversion::Int32, &job::ZipIntStruct},
      {"Job", "ZipExtStruct", "0", Conversion::Int32, &job::ZipExtStruct},
      {"Job", "FileName", "", Conversion::Text, &job::Filename},
      {"Job", "FolderMatch", "", Conversion::Text, &job::FolderMatch},
      {"Job", "DoFileMatch", "0", Conversion::Int16, &job::DoFileMatch},
      {"Job", "DoFolderMatch", "0", Conversion::Int16, &job::DoFolderMatch},
      {"Job", "UseFileRegEx", "0", Conversion::Int32, &job::UseFileRegEx},
      {"Job", "UseFolderRegEx", "0", Conversion::Int32, &job::UseFolderRegEx},
      {"Job", "NodeIcon", ",,,,,,,,,,", Conversion::Text, &job::NodeIcon},
      {"Job", "IntervalType", "0", Conversion::Int16, &job::IntervalType},
      {"Job", "Interval", "0", Conversion::Int32, &job::Interval},
      {"Job", "IntervalTime", "00:00:00", Conversion::Text, &job::IntervalTime},
      {"Job", "IntervalDate", kToday, Conversion::Text, &job::IntervalDate},
      {"Job", "IntTimeType", "0", Conversion::Int16, &job::IntervalTimeType},
      {"Job", "IntMonthDay", "1", Conversion::Int16, &job::IntervalMonthDay},
      {"Job", "IntWeekDay", "0", Conversion::Int16, &job::IntervalWeekDay},
      {"Job", "IntState", "", Conversion::Text, &job::IntervalState},
      {"Job", "AttrNormal", "0", Conversion::Int32, &job::AttrNormal},
      {"Job", "AttrComp", "0", Conversion::Int32, &job::AttrComp},
      {"Job", "AttrArchive", "0", Conversion::Int32, &job::AttrArchive},
      {"Job", "SysFiles", "0", Conversion::Int32, &job::AttrSystem},
      {"Job", "ROFiles", "0", Conversion::Int32, &job::AttrReadOnly},
      {"Job", "HFiles", "0", Conversion::Int32, &job::AttrHidden},
      {"Job", "AttrSetDest", "0", Conversion::Int16, &job::AttrSetDest},
      {"Job", "AttrArchive1", "0", Conversion::Int32, &job::AttrArchive1},
      {"Job", "SysFiles1", "0", Conversion::Int32, &job::AttrSystem1},
      {"Job", "ROFiles1", "0", Conversion::Int32, &job::AttrReadOnly1},
      {"Job", "HFiles1", "0", Conversion::Int32, &job::AttrHidden1},
      {"Job", "AttrSetSource", "0", Conversion::Int16, &job::AttrSetSource},
      {"Job", "AttrArchive2", "0", Conversion::Int32, &job::AttrArchive2},
      {"Job", "SysFiles2", "0", Conversion::Int32, &job::AttrSystem2},
      {"Job", "ROFiles2", "0", Conversion::Int32, &job::AttrReadOnly2},
      {"Job", "HFiles2", "0", Conversion::Int32, &job::AttrHidden2},
      {"Job", "FileAge", "0", Conversion::Int32, &job::FileAge},
      {"Job", "FileAgeType", "1", Conversion::Int16, &job::FileAgeType},
      {"Job", "FileAgeDays", "", Conversion::Text, &job::FileAgeDays},
      {"Job", "FileAgeDiff", "1", Conversion::Int32, &job::FileAgeDiff},
      {"Job", "FileDateOpt", "0", Conversion::Int16, &job::FileDateOpt},
      {"Job", "FileDateDate", "", Conversion::Text, &job::FileDateDate},
      {"Job", "DateFrom", kToday, Conversion::Text, &job::DateFrom},
      {"Job", "DateTo", kToday, Conversion::Text, &job::DateTo},
      {"Job", "MonitorPath", "", Conversion::Text, &job::MonitorPath},
      {"Job", "MonPathOpt", "0", Conversion::Int16, &job::MonPathOpt},
      {"Job", "MonDelay", "0", Conversion::Int16, &job::MonDelay},
      {"Job", "MonWatch", "0", Conversion::Int16, &job::MonWatch},
      {"Job", "MonSubFolder", "0", Conversion::Int16, &job::MonSubFolder},
      {"Job", "ZipDelComp", "0", Conversion::Int16, &job::ZipDelComp},
      {"Job", "ZipDelCompBin", "0", Conversion::Int16, &job::ZipDelCompBin},
      {"Job", "ZipDelCompBinFolder", "0", Conversion::Int16, &job::ZipDelCompBinFolder},
      {"Job", "DestZip", "0", Conversion::Int16, &job::DestZip},
      {"Job", "DestZipFolder", "0", Conversion::Int16, &job::DestZipFolder},
      {"Job", "DestZipPwd", "", Conversion::Text, &job::DestZipPwd},
      {"Job", "DestZipFilter", "", Conversion::Text, &job::DestZipFilter},
      {"Job", "DestZipExist", "0", Conversion::Int16, &job::DestZipExist},
      {"Job", "ZipDelDeComp", "0", Conversion::Int16, &job::ZipDelDeComp},
      {"Job", "ZipDelDeCompBin", "0", Conversion::Int16, &job::ZipDelDeCompBin},
      {"Job", "DestTCreated", "0", Conversion::Int16, &job::DestTCreated},
      {"Job", "DestTModified", "0", Conversion::Int16, &job::DestTModified},
      {"Job", "DestTAccess", "0", Conversion::Int16, &job::DestTAccess},
      {"Job", "ExtOpt", "0", Conversion::Int16, &job::ExtOpt},
      {"Job", "DelEFolSource", "0", Conversion::Int32, &job::DelEFolSource},
      {"Job", "DelTypeSource", "0", Conversion::Int32, &job::DelTypeSource},
      {"Job", "EFSelect", "0", Conversion::Int16, &job::EFSelect},
      {"Job", "EFSDelete", "0", Conversion::Int32, &job::EFSDelete},
      {"Job", "ExtFileTime", "0", Conversion::Int32, &job::ExtFileTime},
      {"Job", "RenameType", "0", Conversion::Int16, &job::RenameType},
      {"Job", "PickRenamer", "0", Conversion::Int16, &job::PickRenamer},
      {"Job", "RenameTxt", "_", Conversion::Text, &job::RenameTxt},
      {"Info", "ProgVersion", "", Conversion::Text, &job::Version},
      {"Job", "NoHidenFolderScan", "0", Conversion::Int32, &job::NoHidenFolderScan},
      {"Job", "NoSystemFolderScan", "0", Conversion::Int32, &job::NoSystemFolderScan},
      {"Job", "NoReadOnlyFolderScan", "0", Conversion::Int32, &job::NoReadOnlyFolderScan},
      {"Job", "SyncExist", "0", Conversion::Int16, &job::SyncExist},
      {"Job", "SyncStart", "0", Conversion::Int16, &job::SyncStart},
      {"Job", "SyncDelete", "0", Conversion::Int32, &job::SyncDelete},}};

constexpr std::array<RecordField, 106> kRecord{{
      {"Action", &job::Action},
      {"AttrHidden", &job::AttrHidden},
      {"AttrHidden1", &job::AttrHidden1},
      {"AttrHidden2", &job::AttrHidden2},
      {"AttrReadOnly", &job::AttrReadOnly},
      {"AttrReadOnly1", &job::AttrReadOnly1},
      {"AttrReadOnly2", &job::AttrReadOnly2},
      {"AttrSystem", &job::AttrSystem},
      {"AttrSystem1", &job::AttrSystem1},
      {"AttrSystem2", &job::AttrSystem2},
      {"AttrNormal", &job::AttrNormal},
      {"AttrComp", &job::AttrComp},
      {"AttrArchive", &job::AttrArchive},
      {"AttrArchive1", &job::AttrArchive1},
      {"AttrArchive2", &job::AttrArchive2},
      {"AttrSetSource", &job::AttrSetSource},
      {"AttrSetDest", &job::AttrSetDest},
      {"JobName", &job::JobName},
      {"From", &job::From},
      {"To", &job::To},
      {"SubFolder", &job::SubFolder},
      {"FStruct", &job::FStruct},
      {"DelEFol", &job::DelEFol},
      {"DelType", &job::DelType},
      {"DelEFolSource", &job::DelEFolSource},
      {"DelTypeSource", &job::DelTypeSource},
      {"Inactive", &job::Inactive},
      {"Exist", &job::Exist},
      {"EFSelect", &job::EFSelect},
      {"EFSDelete", &job::EFSDelete},
      {"ExtFileTime", &job::ExtFileTime},
      {"ExtOpt", &job::ExtOpt},
      {"FileOpt", &job::FileOpt},
      {"Ext", &job::Ext},
      {"FileSize", &job::FileSize},
      {"RunOnce", &job::RunOnce},
      {"ChkFreeSpace", &job::ChkFreeSpace},
      {"FreeSpaceVal", &job::FreeSpaceVal},
      {"RunState", &job::RunState},
      {"PickRenamer", &job::PickRenamer},
      {"RenameTxt", &job::RenameTxt},
      {"RenameType", &job::RenameType},
      {"Interval", &job::Interval},
      {"IntervalType", &job::IntervalType},
      {"IntervalTimeType", &job::IntervalTimeType},
      {"IntervalTime", &job::IntervalTime},
      {"IntervalDate", &job::IntervalDate},
      {"IntervalMonthDay", &job::IntervalMonthDay},
      {"IntervalWeekDay", &job::IntervalWeekDay},
      {"IntervalState", &job::IntervalState},
      {"Status", &job::Status},
      {"Counter", &job::Counter},
      {"Zip", &job::Zip},
      {"ZipAll", &job::ZipAll},
      {"ZipPwd", &job::ZipPwd},
      {"ZipGrade", &job::ZipGrade},
      {"ZipIntStruct", &job::ZipIntStruct},
      {"ZipExtStruct", &job::ZipExtStruct},
      {"Filename", &job::Filename},
      {"FileAge", &job::FileAge},
      {"FileAgeType", &job::FileAgeType},
      {"FileAgeDays", &job::FileAgeDays},
      {"FileAgeDiff", &job::FileAgeDiff},
      {"FolderMatch", &job::FolderMatch},
      {"DoFolderMatch", &job::DoFolderMatch},
      {"DoFileMatch", &job::DoFileMatch},
      {"UseFileRegEx", &job::UseFileRegEx},
      {"UseFolderRegEx", &job::UseFolderRegEx},
      {"DoPreview", &job::DoPreview},
      {"NodeIcon", &job::NodeIcon},
      {"DateFrom", &job::DateFrom},
      {"DateTo", &job::DateTo},
      {"FileDateOpt", &job::FileDateOpt},
      {"FileDateDate", &job::FileDateDate},
      {"MonitorPath", &job::MonitorPath},
      {"MonPathOpt", &job::MonPathOpt},
      {"MonDelay", &job::MonDelay},
      {"MonWatch", &job::MonWatch},
      {"MonSubFolder", &job::MonSubFolder},
      {"ExecDo", &job::ExecDo},
      {"Execution", &job::Execution},
      {"ExecPath", &job::ExecPath},
      {"ExecParam", &job::ExecParam},
      {"ExecWait", &job::ExecWait},
      {"ExecMaxSec", &job::ExecMaxSec},
      {"ZipDelComp", &job::ZipDelComp},
      {"ZipDelDeComp", &job::ZipDelDeComp},
      {"DestZip", &job::DestZip},
      {"DestZipFolder", &job::DestZipFolder},
      {"DestZipPwd", &job::DestZipPwd},
      {"DestZipFilter", &job::DestZipFilter},
      {"DestZipExist", &job::DestZipExist},
      {"DestTCreated", &job::DestTCreated},
      {"DestTModified", &job::DestTModified},
      {"DestTAccess", &job::DestTAccess},
      {"Version", &job::Version},
      {"NoHidenFolderScan", &job::NoHidenFolderScan},
      {"NoSystemFolderScan", &job::NoSystemFolderScan},
      {"NoReadOnlyFolderScan", &job::NoReadOnlyFolderScan},
      {"ZipDelCompBin", &job::ZipDelCompBin},
      {"ZipDelCompBinFolder", &job::ZipDelCompBinFolder},
      {"ZipDelDeCompBin", &job::ZipDelDeCompBin},
      {"OnlyCompare", &job::OnlyCompare},
      {"SyncStart", &job::SyncStart},
      {"SyncExist", &job::SyncExist},
      {"SyncDelete", &job::SyncDelete},}};

// Each conversion writes a field of its own type; a 16-bit conversion also fills a check state.
constexpr bool Fits(const KeyField& k) {
  switch (k.conversion) {
    case Conversion::Int16:
      return std::holds_alternative<std::int16_t job::*>(k.field) ||
             std::holds_alternative<std::int32_t job::*>(k.field);
    case Conversion::Int32: return std::holds_alternative<std::int32_t job::*>(k.field);
    case Conversion::Double: return std::holds_alternative<double job::*>(k.field);
    default: return std::holds_alternative<std::string job::*>(k.field);
  }
}

constexpr bool AllFit() {
  for (const KeyField& k : kKeys) {
    if (!Fits(k)) return false;
  }
  return true;
}
static_assert(AllFit(), "a key's conversion does not match its field's type");

std::string_view Trim(std::string_view s) {
  const auto first = s.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

}  // namespace

std::span<const KeyField> KeyTable() { return kKeys; }
std::span<const RecordField> RecordFields() { return kRecord; }

void ConvertInto(job& j, const KeyField& k, std::string_view text) {
  switch (k.conversion) {
    case Conversion::Text: j.*std::get<std::string job::*>(k.field) = text; return;
    case Conversion::Trimmed: j.*std::get<std::string job::*>(k.field) = Trim(text); return;
    case Conversion::Int16: {
      const std::int16_t v = ToInt16(text);
      if (auto* f = std::get_if<std::int16_t job::*>(&k.field)) j.**f = v;
      else j.*std::get<std::int32_t job::*>(k.field) = v;
      return;
    }
    case Conversion::Int32: j.*std::get<std::int32_t job::*>(k.field) = ToInt32(text); return;
    case Conversion::Double: j.*std::get<double job::*>(k.field) = ToDouble(text); return;
    case Conversion::Int16Text:
      j.*std::get<std::string job::*>(k.field) = std::to_string(ToInt16(text));
      return;
  }
}

}  // namespace orvKestrel
