// PLACEHOLDER: not built yet; the owner of this role replaces the whole file.
#include <orvKestrel/clsJobs.h>
#include "jobs/JobReader.h"
namespace orvKestrel {
struct clsJobs::Impl { Host host; bool failed = false; };
clsJobs::clsJobs(Host host) : m_(std::make_unique<Impl>()) { m_->host = std::move(host); }
clsJobs::~clsJobs() = default;
std::vector<job> clsJobs::GetJobs(const std::string&, const std::string&) { return {}; }
bool clsJobs::LastReadFailed() const { return m_->failed; }
}  // namespace orvKestrel
namespace orvKestrel {
std::vector<job> ReadJobs(FileSystem&, FailSafe&, const Host&, const std::string&, const std::string&, bool*) { return {}; }
}  // namespace orvKestrel
