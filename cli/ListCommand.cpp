// kestrel list: the job records of a job folder as a table for people or as JSON lines.
// It reads only; no job file is written.
#include <orvKestrel/clsJobs.h>
#include <orvKestrel/fields.h>
#include <orvKestrel/hostio.h>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Commands.h"
#include "HostOptions.h"
#include "JsonText.h"

namespace kestrel {
namespace {

using orvKestrel::job;

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

struct ListOptions {
  std::string jobDir;
  std::string file;
  std::string events = "text";
  HostOptions host;
};

std::string ActionWords(std::int16_t action) {
  static const char* const kWords[] = {"copy", "move", "delete", "zip", "unzip", "sync"};
  if (action >= 0 && action < 6) return kWords[action];
  return "action " + std::to_string(action) + " (does nothing)";
}

std::string ScheduleWords(const job& j) {
  static const char* const kDays[] = {"Monday", "Tuesday",  "Wednesday", "Thursday",
                                      "Friday", "Saturday", "Sunday"};
  std::string s;
  const std::string at = " at " + j.IntervalTime;
  switch (j.IntervalType) {
    case 0:
      if (j.Interval == 1) s = "every pass";
      else s = j.Interval > 1 ? "every " + std::to_string(j.Interval) + " passes" : "by counter only";
      break;
    case 1:
      switch (j.IntervalTimeType) {
        case 0: s = "daily" + at; break;
        case 1:
          s = j.IntervalWeekDay >= 0 && j.IntervalWeekDay < 7
                  ? std::string("weekly on ") + kDays[j.IntervalWeekDay] + at
                  : "weekly on no day (" + std::to_string(j.IntervalWeekDay) + ")";
          break;
        case 2: s = "monthly on day " + std::to_string(j.IntervalMonthDay) + at; break;
        case 3: s = "on " + j.IntervalDate + at; break;
        default: s = "unknown schedule (" + std::to_string(j.IntervalTimeType) + ")"; break;
      }
      break;
    case 2: s = "never"; break;
    default: s = "unknown schedule type (" + std::to_string(j.IntervalType) + ")"; break;
  }
  if (j.RunOnce == 1) s += ", once";
  if (j.ChkFreeSpace == 1) s += ", when free space < " + std::to_string(j.FreeSpaceVal) + " MB";
  return s;
}

// A check state: only 1 is on.
std::string Check(std::int32_t v) {
  if (v == 1) return "yes";
  return v == 0 ? "no" : std::to_string(v) + " (no)";
}

std::size_t Width(const std::string& s) {
  std::size_t n = 0;
  for (const char c : s) n += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  return n;
}

void PrintTable(const std::vector<job>& jobs, const std::string& jobDir) {
  if (jobs.empty()) {
    std::printf("No job files in %s\n", ValidUtf8(jobDir).c_str());
    return;
  }
  std::vector<std::vector<std::string>> rows = {
      {"#", "Name", "Action", "Schedule", "Status", "Counter", "Inactive", "DoPreview", "From",
       "To"}};
  for (std::size_t i = 0; i < jobs.size(); ++i) {
    const job& j = jobs[i];
    rows.push_back({std::to_string(i), ValidUtf8(j.JobName), ActionWords(j.Action),
                    ScheduleWords(j), ValidUtf8(j.Status), std::to_string(j.Counter),
                    Check(j.Inactive), Check(j.DoPreview), ValidUtf8(j.From), ValidUtf8(j.To)});
  }
  std::vector<std::size_t> widths(rows[0].size(), 0);
  for (const auto& row : rows) {
    for (std::size_t c = 0; c < row.size(); ++c) widths[c] = std::max(widths[c], Width(row[c]));
  }
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t c = 0; c < row.size(); ++c) {
      line += row[c];
      if (c + 1 < row.size()) line += std::string(widths[c] - Width(row[c]) + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    std::printf("%s\n", line.c_str());
  }
}

void PrintJsonl(const std::vector<job>& jobs) {
  for (std::size_t i = 0; i < jobs.size(); ++i) {
    nlohmann::ordered_json o;
    o["record"] = i;
    orvKestrel::ForEachField(jobs[i], [&o](const char* name, const auto& value) {
      if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::string>) {
        o[name] = ValidUtf8(value);
      } else {
        o[name] = value;
      }
    });
    std::printf("%s\n", o.dump().c_str());
    std::fflush(stdout);
  }
}

int List(const ListOptions& o) {
  auto made = o.host.MakeHostOrSay();
  if (!made) return kExitUsage;
  orvKestrel::Host host = std::move(*made);
  // A file that does not read is reported by the error trap; its report goes to stderr.
  // Listing writes nothing, no error log either.
  host.errorLogSink = [](const std::string&) {};
  host.messageBox = [](const orvKestrel::MessageBoxRequest& box) {
    std::fprintf(stderr, "%s\n", box.text.c_str());
    return orvKestrel::BoxAnswer::Abort;
  };
  std::string jobDir = o.jobDir;
  if (jobDir.empty() || jobDir.back() != '/') jobDir += '/';
  orvKestrel::clsJobs reader(host);
  const std::vector<job> jobs = reader.GetJobs(jobDir, o.file);
  if (!o.file.empty() &&
      orvKestrel::hostio::KindOf(jobDir + o.file) != orvKestrel::hostio::Kind::File) {
    std::fprintf(stderr, "kestrel: %s does not exist; a missing job file reads as defaults\n",
                 (jobDir + o.file).c_str());
  }
  if (o.events == "jsonl") {
    PrintJsonl(jobs);
  } else {
    PrintTable(jobs, jobDir);
  }
  std::fflush(stdout);
  return reader.LastReadFailed() ? kExitFailed : 0;
}

}  // namespace

void AddListCommand(CLI::App& app, Action& action) {
  auto o = std::make_shared<ListOptions>();
  CLI::App* list = app.add_subcommand(
      "list", "List the job records of a job folder (reads only; nothing is written)");
  AddJobFileOptions(*list, o->jobDir, o->file);
  list->add_option("--events", o->events,
                   "text: a table for people (default); jsonl: one JSON object per record with "
                   "all 106 fields under their field names")
      ->check(CLI::IsMember({"text", "jsonl"}));
  o->host.AddTo(*list);
  list->footer(
      "The three date keys that a job file leaves out (IntervalDate, DateFrom, DateTo) read as "
      "today's date in the short date format; --now and --date-format decide both.\n"
      "Exit status: 0 listed (also when there is no job file), 1 a job file could not be read "
      "(the report names the file and key and goes to stderr; the records before it are listed), "
      "2 bad command line.\n\n"
      "Examples:\n"
      "  kestrel list examples/jobs\n"
      "  kestrel list examples/jobs --file copy-documents.kjb --events jsonl\n"
      "  kestrel list /etc/kestrel/jobs --events jsonl | jq -r '.JobName + \" \" + .Status'\n"
      "  kestrel list jobs --now \"2026-11-22 08:00:00\" --date-format %Y-%m-%d");
  list->callback([&action, o] { action = [o] { return List(*o); }; });
}

}  // namespace kestrel
