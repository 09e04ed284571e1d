// The job record and the job state: the public data types that hosts exchange with the engine.
#pragma once

#include <cstdint>
#include <string>

namespace orvKestrel {

// A three-state check box: 0 unchecked, 1 checked, 2 indeterminate. Only 1 counts as "on".
using CheckState = std::int32_t;

enum JobState : std::int32_t {
  sOK = 0,
  sRunOnce = 1,
  sError = 2,
  sDeactivated = 3,
  sErrDeactivated = 4,
  sRunnedOnce = 5,
};

// The 106 fields stand in their published order; hosts exchange the record by layout.
struct job {
  std::int16_t Action = 0;
  CheckState AttrHidden = 0;
  CheckState AttrHidden1 = 0;
  CheckState AttrHidden2 = 0;
  CheckState AttrReadOnly = 0;
  CheckState AttrReadOnly1 = 0;
  CheckState AttrReadOnly2 = 0;
  CheckState AttrSystem = 0;
  CheckState AttrSystem1 = 0;
  CheckState AttrSystem2 = 0;
  CheckState AttrNormal = 0;
  CheckState AttrComp = 0;
  CheckState AttrArchive = 0;
  CheckState AttrArchive1 = 0;
  CheckState AttrArchive2 = 0;
  std::int16_t AttrSetSource = 0;
  std::int16_t AttrSetDest = 0;
  std::string JobName;
  std::string From;
  std::string To;
  CheckState SubFolder = 0;
  CheckState FStruct = 0;
  CheckState DelEFol = 0;
  CheckState DelType = 0;
  CheckState DelEFolSource = 0;
  CheckState DelTypeSource = 0;
  CheckState Inactive = 0;
  std::int16_t Exist = 0;
  std::int16_t EFSelect = 0;
  CheckState EFSDelete = 0;
  CheckState ExtFileTime = 0;
  std::int16_t ExtOpt = 0;
  std::int16_t FileOpt = 0;
  std::string Ext;
  double FileSize = 0;
  CheckState RunOnce = 0;
  CheckState ChkFreeSpace = 0;
  std::int32_t FreeSpaceVal = 1;
  std::int16_t RunState = 0;
  std::int16_t PickRenamer = 0;
  std::string RenameTxt = "_";
  std::int16_t RenameType = 0;
  std::int32_t Interval = 0;
  std::int16_t IntervalType = 0;
  std::int16_t IntervalTimeType = 0;
  std::string IntervalTime = "00:00:00";
  std::string IntervalDate;
  std::int16_t IntervalMonthDay = 1;
  std::int16_t IntervalWeekDay = 0;
  std::string IntervalState;
  std::string Status = "0";
  std::int32_t Counter = 0;
  CheckState Zip = 0;
  CheckState ZipAll = 0;
  std::string ZipPwd;
  std::string ZipGrade = "3";
  CheckState ZipIntStruct = 0;
  CheckState ZipExtStruct = 0;
  std::string Filename;
  std::int32_t FileAge = 0;
  std::int16_t FileAgeType = 1;
  std::string FileAgeDays;
  std::int32_t FileAgeDiff = 1;
  std::string FolderMatch;
  std::int16_t DoFolderMatch = 0;
  std::int16_t DoFileMatch = 0;
  CheckState UseFileRegEx = 0;
  CheckState UseFolderRegEx = 0;
  CheckState DoPreview = 1;
  std::string NodeIcon = ",,,,,,,,,,";
  std::string DateFrom;
  std::string DateTo;
  std::int16_t FileDateOpt = 0;
  std::string FileDateDate;
  std::string MonitorPath;
  std::int16_t MonPathOpt = 0;
  std::int16_t MonDelay = 0;
  std::int16_t MonWatch = 0;
  CheckState MonSubFolder = 0;
  CheckState ExecDo = 0;
  std::int16_t Execution = 1;
  std::string ExecPath;
  std::string ExecParam;
  CheckState ExecWait = 0;
  std::int16_t ExecMaxSec = 1;
  CheckState ZipDelComp = 0;
  CheckState ZipDelDeComp = 0;
  CheckState DestZip = 0;
  CheckState DestZipFolder = 0;
  std::string DestZipPwd;
  std::string DestZipFilter;
  std::int16_t DestZipExist = 0;
  CheckState DestTCreated = 0;
  CheckState DestTModified = 0;
  CheckState DestTAccess = 0;
  std::string Version;
  CheckState NoHidenFolderScan = 0;  // one "d": the published name
  CheckState NoSystemFolderScan = 0;
  CheckState NoReadOnlyFolderScan = 0;
  CheckState ZipDelCompBin = 0;
  CheckState ZipDelCompBinFolder = 0;
  CheckState ZipDelDeCompBin = 0;
  CheckState OnlyCompare = 0;
  std::int16_t SyncStart = 0;
  std::int16_t SyncExist = 0;
  CheckState SyncDelete = 0;
};

}  // namespace orvKestrel
