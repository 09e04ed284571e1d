#include <orvKestrel/clsJobs.h>

#include "errortrap/modFailSafeLITE.h"
#include "jobs/JobReader.h"
#include "platform/FileSystem.h"

namespace orvKestrel {

struct clsJobs::Impl {
  explicit Impl(Host h) : host(std::move(h)), trap(host) {}
  Host host;
  FileSystem fs;
  FailSafe trap;  // holds a pointer to host
  bool failed = false;
};

clsJobs::clsJobs(Host host) : m_(std::make_unique<Impl>(std::move(host))) {}
clsJobs::~clsJobs() = default;

std::vector<job> clsJobs::GetJobs(const std::string& sJobDir, const std::string& sFile) {
  return ReadJobs(m_->fs, m_->trap, m_->host, sJobDir, sFile, &m_->failed);
}

bool clsJobs::LastReadFailed() const { return m_->failed; }

}  // namespace orvKestrel
