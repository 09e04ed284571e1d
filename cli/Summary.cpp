#include "Summary.h"

#include <orvKestrel/hostio.h>

#include <fmt/format.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "JsonText.h"

namespace kestrel {
namespace {

enum class Outcome { None, Copied, Moved, Deleted, Packed, Unpacked, Unchanged, Failed, Selected };

// What a real action's message says happened to its file; preview lines ("would ...") count
// for nothing but their selection.
Outcome OutcomeOf(int id) {
  switch (id) {
    case 11: case 44: return Outcome::Copied;
    case 12: case 43: return Outcome::Moved;
    case 13: case 36: case 81: case 87: case 94: return Outcome::Deleted;
    case 32: case 33: case 35: return Outcome::Packed;
    case 77: case 78: return Outcome::Unpacked;
    case 34: case 38: case 45: return Outcome::Unchanged;
    case 10: case 74: case 75: case 76: case 83: return Outcome::Failed;
    case 84: case 85: return Outcome::Selected;
    default: return Outcome::None;
  }
}

bool EndsJob(int id, bool isLast) { return isLast && (id == 2 || id == 6 || id == 7 || id == 28); }

double Seconds(std::chrono::steady_clock::duration d) {
  return std::round(std::chrono::duration<double>(d).count() * 1000) / 1000;
}

}  // namespace

void Tally::Add(const Tally& o) {
  selected += o.selected;
  copied += o.copied;
  moved += o.moved;
  deleted += o.deleted;
  packed += o.packed;
  unpacked += o.unpacked;
  unchanged += o.unchanged;
  failed += o.failed;
  bytes += o.bytes;
}

SummaryCounter::SummaryCounter(orvKestrel::LogTexts texts) : texts_(std::move(texts)) {}

void SummaryCounter::BeginPass() {
  passStart_ = Clock::now();
  pass_ = {};
  jobs_ = 0;
}

void SummaryCounter::OnCurrentJob() {
  job_ = {};
  jobStart_ = Clock::now();
}

std::optional<JobSummary> SummaryCounter::OnLogMessage(const std::string& text, std::int16_t id,
                                                       bool isLast) {
  if (!jobStart_) jobStart_ = Clock::now();
  Count(text, id);
  if (!EndsJob(id, isLast)) return std::nullopt;
  const std::string tail = ": " + texts_.Text(id);
  JobSummary s;
  s.job = text.ends_with(tail) ? text.substr(0, text.size() - tail.size()) : text;
  s.tally = job_;
  s.endId = id;
  s.tally.seconds = Seconds(Clock::now() - *jobStart_);
  ++jobs_;
  job_ = {};
  jobStart_.reset();
  return s;
}

std::optional<JobSummary> SummaryCounter::EndPass() {
  if (jobs_ == 0) return std::nullopt;
  JobSummary s{{}, pass_};
  s.tally.seconds = Seconds(Clock::now() - passStart_);
  return s;
}

void SummaryCounter::Count(const std::string& text, int id) {
  Tally t;
  switch (OutcomeOf(id)) {
    case Outcome::None: return;
    case Outcome::Copied: t.copied = 1; t.bytes = SizeOf(text, id, true); break;
    case Outcome::Moved: t.moved = 1; t.bytes = SizeOf(text, id, true); break;
    case Outcome::Deleted: t.deleted = 1; break;
    case Outcome::Packed: t.packed = 1; t.bytes = SizeOf(text, id, false); break;
    case Outcome::Unpacked: t.unpacked = std::atoll(text.c_str()); break;
    case Outcome::Unchanged: t.unchanged = 1; break;
    case Outcome::Failed: t.failed = 1; break;
    case Outcome::Selected: t.selected = NumberAfter(text, id); break;
  }
  job_.Add(t);
  pass_.Add(t);
}

std::uint64_t SummaryCounter::SizeOf(const std::string& text, int id, bool destination) const {
  const std::string& head = texts_.Text(id);
  const std::string& sep = texts_.Text(14);
  if (!text.starts_with(head) || sep.empty()) return 0;
  const std::string rest = text.substr(head.size());
  // A name may hold the separator itself: the split that names an existing file wins.
  for (auto at = rest.find(sep); at != std::string::npos; at = rest.find(sep, at + 1)) {
    const std::string path = destination ? rest.substr(at + sep.size()) : rest.substr(0, at);
    if (const auto size = orvKestrel::hostio::FileSize(path)) return *size;
  }
  return 0;
}

std::int64_t SummaryCounter::NumberAfter(const std::string& text, int id) const {
  const std::string& head = texts_.Text(id);
  if (!text.starts_with(head)) return 0;
  return std::atoll(text.c_str() + head.size());
}

std::string SummaryLine(const JobSummary& s) {
  const Tally& t = s.tally;
  return fmt::format(
      "Summary of {}: {} selected, {} copied, {} moved, {} deleted, {} packed, {} unpacked, "
      "{} unchanged, {} failed; {} bytes in {:.1f} s",
      s.job.empty() ? "the pass" : "job \"" + s.job + "\"", t.selected, t.copied, t.moved,
      t.deleted, t.packed, t.unpacked, t.unchanged, t.failed, t.bytes, t.seconds);
}

std::string SummaryJson(const JobSummary& s) {
  const Tally& t = s.tally;
  nlohmann::ordered_json j;
  j["event"] = "Summary";
  j["scope"] = s.job.empty() ? "pass" : "job";
  j["job"] = s.job.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(ValidUtf8(s.job));
  j["selected"] = t.selected;
  j["copied"] = t.copied;
  j["moved"] = t.moved;
  j["deleted"] = t.deleted;
  j["packed"] = t.packed;
  j["unpacked"] = t.unpacked;
  j["unchanged"] = t.unchanged;
  j["failed"] = t.failed;
  j["bytes"] = t.bytes;
  j["seconds"] = t.seconds;
  return j.dump();
}

}  // namespace kestrel
