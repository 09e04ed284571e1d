// Compression, extraction and the compression preview of a selected list.
#pragma once

#include "engine/JobRun.h"

#include <cstdint>
#include <string>

namespace orvKestrel {

void Zip_Files(JobRun& run, Services& s, FileList& sArray);
std::string GetZipFileName(JobRun& run, Services& s, const std::string& Mode,
                           const std::string& sFile = "");
void UnZip_Files(JobRun& run, Services& s, FileList& sArray);
std::int32_t UnZipFile(Services& s, const std::string& sZipFile, job& job,
                       const std::string& sDestPath);
void Zip_Preview(JobRun& run, Services& s, FileList& sArray);
std::string GetZipFileNamePreview(Services& s, job& job, const std::string& Mode,
                                  const std::string& sFile = "");

}  // namespace orvKestrel
