// Sums up a run from its events: per job and per pass, how many files were selected, copied,
// moved, deleted, packed, unpacked, left unchanged and failed, the bytes moved, the time taken.
// The engine's events carry no counts; a message is recognised by its number and its text read
// past the catalogue text it begins with.
#pragma once

#include <orvKestrel/logtexts.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace kestrel {

struct Tally {
  std::int64_t selected = 0, copied = 0, moved = 0, deleted = 0, packed = 0, unpacked = 0,
               unchanged = 0, failed = 0;
  std::uint64_t bytes = 0;
  double seconds = 0;
  void Add(const Tally& other);
};

struct JobSummary {
  std::string job;  // empty for the pass
  Tally tally;
  int endId = 0;    // the message number that ended the job: 6 done, 28 with error, 2 stopped
};

class SummaryCounter {
 public:
  explicit SummaryCounter(orvKestrel::LogTexts texts);

  // Feeds one log message; gives the job's summary when the message ends a job.
  std::optional<JobSummary> OnLogMessage(const std::string& text, std::int16_t id, bool isLast);
  // A pass begins: its time starts here and its counts at zero.
  void BeginPass();
  // A job of the pass comes next: its time starts here.
  void OnCurrentJob();
  // The pass's summary; nullopt when no job ran.
  std::optional<JobSummary> EndPass();
  const Tally& PassSoFar() const { return pass_; }

 private:
  using Clock = std::chrono::steady_clock;
  void Count(const std::string& text, int id);
  // The size of the file that the message names after its catalogue text, between the given
  // separator: the destination (after it) or the source (before it).
  std::uint64_t SizeOf(const std::string& text, int id, bool destination) const;
  std::int64_t NumberAfter(const std::string& text, int id) const;

  orvKestrel::LogTexts texts_;
  std::optional<Clock::time_point> jobStart_;
  Clock::time_point passStart_ = Clock::now();
  Tally job_;
  Tally pass_;
  int jobs_ = 0;
};

// "Summary of job "a": 3 selected, ... 0 failed; 1234 bytes in 0.2 s" (the pass: "of the pass").
std::string SummaryLine(const JobSummary& s);
// The Summary event of the jsonl stream.
std::string SummaryJson(const JobSummary& s);

}  // namespace kestrel
