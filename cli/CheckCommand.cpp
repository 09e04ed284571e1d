// kestrel check: says of every job file whether it reads, whether a pass runs it now and why
// not, and what is wrong with it. It writes nothing: no job file, no error log.
#include <orvKestrel/hostio.h>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "Commands.h"
#include "HostOptions.h"
#include "JobCheck.h"
#include "EventWriter.h"
#include "JsonText.h"

namespace kestrel {
namespace {

constexpr int kExitProblems = 1;
constexpr int kExitUsage = 2;

struct CheckOptions {
  std::string jobDir;
  std::string file;
  std::string events = "text";
  HostOptions host;
};

// "YYYY-MM-DD HH:MM:SS" of the local time t.
std::string Stamp(std::time_t t) {
  std::string s = LogStamp(t);
  s.pop_back();
  return s;
}

void PrintText(const JobCheck& c) {
  std::printf("%s\n", ValidUtf8(c.file).c_str());
  if (c.valid) {
    std::printf("  job \"%s\": valid\n", ValidUtf8(c.name).c_str());
  } else {
    std::printf("  invalid: %s\n", ValidUtf8(c.error).c_str());
  }
  if (c.valid) {
    std::printf("  due now: %s\n", c.due ? "yes" : "no");
    for (const auto& w : c.why) std::printf("    %s\n", ValidUtf8(w).c_str());
    if (c.next && !c.due) std::printf("  next firing: %s\n", Stamp(*c.next).c_str());
  }
  for (const auto& p : c.problems) {
    if (p != c.error) std::printf("  problem: %s\n", ValidUtf8(p).c_str());
  }
}

void PrintJson(const JobCheck& c) {
  nlohmann::ordered_json o;
  o["file"] = ValidUtf8(c.file);
  o["valid"] = c.valid;
  o["name"] = c.valid ? nlohmann::ordered_json(ValidUtf8(c.name)) : nullptr;
  o["error"] = c.valid ? nullptr : nlohmann::ordered_json(ValidUtf8(c.error));
  o["due"] = c.due;
  o["why"] = nlohmann::ordered_json::array();
  for (const auto& w : c.why) o["why"].push_back(ValidUtf8(w));
  o["next"] = c.next ? nlohmann::ordered_json(Stamp(*c.next)) : nullptr;
  o["problems"] = nlohmann::ordered_json::array();
  for (const auto& p : c.problems) o["problems"].push_back(ValidUtf8(p));
  std::printf("%s\n", o.dump().c_str());
}

int Check(const CheckOptions& o) {
  auto made = o.host.MakeHostOrSay();
  if (!made) return kExitUsage;
  orvKestrel::Host host = std::move(*made);
  host.errorLogSink = [](const std::string&) {};  // a check writes nothing
  std::string jobDir = o.jobDir;
  if (jobDir.empty() || jobDir.back() != '/') jobDir += '/';
  std::vector<JobCheck> checks = CheckJobs(host, jobDir, o.file);
  if (!o.file.empty() && !checks.empty() &&
      orvKestrel::hostio::KindOf(jobDir + o.file) != orvKestrel::hostio::Kind::File) {
    checks.front().problems.insert(checks.front().problems.begin(),
                                   "the file does not exist (a missing job file reads as defaults)");
  }
  std::size_t withProblems = 0;
  for (const JobCheck& c : checks) {
    if (!c.problems.empty()) ++withProblems;
    if (o.events == "jsonl") {
      PrintJson(c);
    } else {
      PrintText(c);
    }
  }
  if (o.events != "jsonl") {
    std::printf("%zu job file(s), %zu with problems\n", checks.size(), withProblems);
  }
  std::fflush(stdout);
  return withProblems == 0 ? 0 : kExitProblems;
}

}  // namespace

void AddCheckCommand(CLI::App& app, Action& action) {
  auto o = std::make_shared<CheckOptions>();
  CLI::App* check = app.add_subcommand(
      "check", "Say of every job file whether it is valid, whether a pass runs it now and why, "
               "and what is wrong with it (reads only; nothing is written)");
  AddJobFileOptions(*check, o->jobDir, o->file);
  check->add_option("--events", o->events,
                    "text: one block per job for people (default); jsonl: one JSON object per "
                    "job (file, valid, name, error, due, why, next, problems)")
      ->check(CLI::IsMember({"text", "jsonl"}));
  o->host.AddTo(*check);
  check->footer(
      "Each job file is read on its own, so a file that does not read hides none after it. "
      "\"due now\" is what a plain `kestrel run` at --now (default: now) would do.\n"
      "Exit status: 0 every job file is valid and has no problem, 1 otherwise, 2 bad command "
      "line.\n\n"
      "Examples:\n"
      "  kestrel check examples/jobs\n"
      "  kestrel check /etc/kestrel/jobs --file backup.kjb --events jsonl");
  check->callback([&action, o] { action = [o] { return Check(*o); }; });
}

}  // namespace kestrel
