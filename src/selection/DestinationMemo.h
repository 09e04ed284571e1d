// The destination folder of the last file's folder. The files of one folder come one after
// another and go to one folder, and working that folder out from the paths' text again for
// each file showed in the profiles of large runs.
#pragma once

#include <orvKestrel/job.h>

#include <string>

namespace orvKestrel {

class DestinationMemo {
 public:
  // DestinationFolder(file, job), kept while the files asked about lie in one folder and the
  // job's From and To stay as they are.
  const std::string& Of(const std::string& file, const job& job);

 private:
  bool held_ = false;
  std::string parent_, from_, to_, folder_;
};

}  // namespace orvKestrel
