// The job file reader: turns the job files of a folder into job records.
#pragma once

#include <orvKestrel/host.h>
#include <orvKestrel/job.h>

#include <memory>
#include <string>
#include <vector>

namespace orvKestrel {

class clsJobs {
 public:
  explicit clsJobs(Host host = {});
  ~clsJobs();
  clsJobs(const clsJobs&) = delete;
  clsJobs& operator=(const clsJobs&) = delete;

  // sJobDir carries its trailing "/" (the caller's business). With sFile, only that file is read.
  // Records come in listing order; a file that fails to read ends the listing (reported through
  // the error trap) and the records read before it are kept.
  std::vector<job> GetJobs(const std::string& sJobDir, const std::string& sFile = "");

  // True when the last GetJobs stopped at a file it could not read.
  bool LastReadFailed() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> m_;
};

}  // namespace orvKestrel
