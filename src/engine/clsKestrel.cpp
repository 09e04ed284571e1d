#include <orvKestrel/clsKestrel.h>

#include "engine/Engine.h"
#include "zip/modZIP32vb.h"

#include <algorithm>

namespace orvKestrel {

clsKestrel::clsKestrel(Host host) : m_(std::make_unique<Engine>(std::move(host))) {}
clsKestrel::~clsKestrel() = default;

void clsKestrel::Connect(IKestrelEvents* events) { m_->svc.events = events; }
void clsKestrel::StopMsg(bool bStop) { m_->StopMsg(bStop); }
void clsKestrel::CheckNoFileSize(bool b) { m_->svc.noSizeCheck = b; }
void clsKestrel::DryRun(bool b) { m_->svc.dryRun = b; }
void clsKestrel::Jobs(std::int32_t n) {
  m_->svc.jobs = std::max(n, 1);
  m_->svc.zip->SetWorkers(m_->svc.jobs);
}

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
