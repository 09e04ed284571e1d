#include "Metrics.h"

#include <orvKestrel/hostio.h>

#include <fmt/format.h>

#include <cstdio>
#include <utility>

#include "JsonText.h"

namespace kestrel {
namespace {

// A label value as the text format wants it: backslash, quote and line feed escaped.
std::string Label(const std::string& value) {
  std::string out;
  for (const char c : ValidUtf8(value)) {
    if (c == '\\' || c == '"') out += '\\';
    if (c == '\n') {
      out += "\\n";
      continue;
    }
    out += c;
  }
  return out;
}

// A job's exit status as a pass would give it: 0 done, 1 ended with an error, 4 its external
// program failed, 130 stopped.
int JobExit(const JobSummary& s, bool programFailed) {
  if (s.endId == 2) return 130;
  if (programFailed) return 4;
  return s.endId == 28 || s.tally.failed > 0 ? 1 : 0;
}

void Family(std::string& out, const char* name, const char* help) {
  out += fmt::format("# HELP {} {}\n# TYPE {} gauge\n", name, help, name);
}

}  // namespace

void Metrics::Job(const JobSummary& s, std::time_t ended) {
  jobs_[s.job] = {s, ended, failedBefore_.erase(s.job) > 0};
  summarised_.insert(s.job);
}

void Metrics::ProgramFailed(const std::string& job) {
  // A program after the job fails once its summary is there, one before the job before it.
  if (summarised_.contains(job)) {
    jobs_[job].programFailed = true;
  } else {
    failedBefore_.insert(job);
  }
}

std::string Metrics::Text(int passExit, std::time_t ended) const {
  std::string out;
  Family(out, "kestrel_job_last_run_timestamp_seconds", "When the job's last run ended.");
  for (const auto& [name, last] : jobs_) {
    out += fmt::format("kestrel_job_last_run_timestamp_seconds{{job=\"{}\"}} {}\n", Label(name),
                       last.ended);
  }
  Family(out, "kestrel_job_duration_seconds", "How long the job's last run took.");
  for (const auto& [name, last] : jobs_) {
    out += fmt::format("kestrel_job_duration_seconds{{job=\"{}\"}} {}\n", Label(name),
                       last.summary.tally.seconds);
  }
  Family(out, "kestrel_job_files", "Files of the job's last run by outcome.");
  for (const auto& [name, last] : jobs_) {
    const Tally& t = last.summary.tally;
    const std::pair<const char*, std::int64_t> outcomes[] = {
        {"selected", t.selected}, {"copied", t.copied},       {"moved", t.moved},
        {"deleted", t.deleted},   {"packed", t.packed},       {"unpacked", t.unpacked},
        {"unchanged", t.unchanged}, {"failed", t.failed}};
    for (const auto& [outcome, count] : outcomes) {
      out += fmt::format("kestrel_job_files{{job=\"{}\",outcome=\"{}\"}} {}\n", Label(name),
                         outcome, count);
    }
  }
  Family(out, "kestrel_job_bytes", "Bytes copied, moved or packed by the job's last run.");
  for (const auto& [name, last] : jobs_) {
    out += fmt::format("kestrel_job_bytes{{job=\"{}\"}} {}\n", Label(name),
                       last.summary.tally.bytes);
  }
  Family(out, "kestrel_job_errors", "Error lines of the job's last run.");
  for (const auto& [name, last] : jobs_) {
    out += fmt::format("kestrel_job_errors{{job=\"{}\"}} {}\n", Label(name),
                       last.summary.tally.failed);
  }
  Family(out, "kestrel_job_last_exit_status",
         "How the job's last run ended: 0 done, 1 with an error, 130 stopped.");
  for (const auto& [name, last] : jobs_) {
    out += fmt::format("kestrel_job_last_exit_status{{job=\"{}\"}} {}\n", Label(name),
                       JobExit(last.summary, last.programFailed));
  }
  Family(out, "kestrel_pass_last_exit_status", "The exit status of the last pass.");
  out += fmt::format("kestrel_pass_last_exit_status {}\n", passExit);
  Family(out, "kestrel_pass_last_run_timestamp_seconds", "When the last pass ended.");
  out += fmt::format("kestrel_pass_last_run_timestamp_seconds {}\n", ended);
  return out;
}

void Metrics::Write(int passExit, std::time_t ended) {
  summarised_.clear();
  failedBefore_.clear();
  if (path_.empty()) return;
  const std::string why = orvKestrel::hostio::WriteFileAtomically(path_, Text(passExit, ended));
  if (!why.empty()) {
    std::fprintf(stderr, "kestrel: cannot write metrics file %s\n", EscapeControls(why).c_str());
  }
}

}  // namespace kestrel
