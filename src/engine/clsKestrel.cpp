#include <orvKestrel/clsKestrel.h>

#include "engine/Engine.h"

namespace orvKestrel {

clsKestrel::clsKestrel(Host host) : m_(std::make_unique<Engine>(std::move(host))) {}
clsKestrel::~clsKestrel() = default;

void clsKestrel::Connect(IKestrelEvents* events) { m_->svc.events = events; }
void clsKestrel::StopMsg(bool bStop) { m_->StopMsg(bStop); }
void clsKestrel::CheckNoFileSize(bool b) { m_->svc.noSizeCheck = b; }
void clsKestrel::DryRun(bool b) { m_->svc.dryRun = b; }
void clsKestrel::Jobs(unsigned n) { m_->svc.jobs = n == 0 ? 1 : n; }

void clsKestrel::ExecuteAllJobs(const std::string& sJobDir, const std::string& sLanguagePath,
                                bool bVerbose, bool bDoPreview, bool bFilterRegExp) {
  m_->ExecuteAllJobs(sJobDir, sLanguagePath, bVerbose, bDoPreview, bFilterRegExp);
}

void clsKestrel::ExecuteOneJob(const std::string& sFile, const std::string& sJobDir,
                               const std::string& sLanguagePath, bool bStartInactive,
                               bool bFilterRegEx) {
  m_->ExecuteOneJob(sFile, sJobDir, sLanguagePath, bStartInactive, bFilterRegEx);
}

JobState clsKestrel::CheckStatus(job& job, const std::string& sDel) {
  return m_->CheckStatus(job, sDel);
}

bool clsKestrel::HadErrors() const {
  return m_->jobEndedWithError || m_->svc.trap.ErrorCount() > 0;
}

bool clsKestrel::JobFileUnreadable() const { return m_->jobFileUnreadable; }

}  // namespace orvKestrel
