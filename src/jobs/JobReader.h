// Reading the job files of a folder into records: the body of clsJobs::GetJobs, shared with the
// engine, which reads through its own error trap.
#pragma once

#include <orvKestrel/host.h>
#include <orvKestrel/job.h>

#include <string>
#include <vector>

namespace orvKestrel {

class FileSystem;
class FailSafe;

// sJobDir carries its trailing "/". A file whose value does not convert is reported through the
// trap (naming the file and the key); reading stops there and the records before it are kept;
// *failed (when given) tells whether that happened.
std::vector<job> ReadJobs(FileSystem& fs, FailSafe& trap, const Host& host,
                          const std::string& sJobDir, const std::string& sFile,
                          bool* failed = nullptr);

}  // namespace orvKestrel
