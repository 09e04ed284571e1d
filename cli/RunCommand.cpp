// kestrel run, run-one and daemon: one pass over a job folder, one job now, or a pass every
// interval until SIGTERM or SIGINT.
#include <memory>
#include <string>

#include "Commands.h"
#include "RunSession.h"

namespace kestrel {
namespace {

// An empty folder name would become "/", the root folder.
const CLI::Validator kNotEmpty(
    [](std::string& s) { return s.empty() ? std::string("must not be empty") : std::string(); }, "",
    "NOT_EMPTY");

void AddShared(CLI::App* cmd, RunOptions& o, bool passOptions) {
  cmd->add_option("--lang", o.lang,
                  "Language file (section LogMessages). Without it: KESTREL_LANG, else the "
                  "installed language file of the locale's language (English for a language "
                  "without one), else the built-in German texts (also for the C and POSIX "
                  "locales). A missing or unreadable file, or one that is no regular file or "
                  "over 1 MiB, is no error: the built-in texts are used")
      ->type_name("FILE");
  if (passOptions) {
    cmd->add_flag("--verbose", o.verbose, "Also report inactive jobs and jobs with invalid paths");
    cmd->add_flag("--preview-jobs", o.previewJobs,
                  "Take the jobs marked as preview jobs (DoPreview, on by default) into the pass "
                  "as well; each job still acts as its own DoPreview says");
  }
  cmd->add_flag("--dry-run", o.dryRun,
                "Run every job as a preview whatever its DoPreview says, and write nothing: no "
                "file of a job, no job file (counters, states, IntState), no external program");
  cmd->add_flag("--regex", o.regex, "Regular-expression switch of the run (bFilterRegExp)");
  cmd->add_option("--events", o.events,
                  "How events are written to stdout: text (for people) or jsonl (one JSON "
                  "object per event and line)")
      ->check(CLI::IsMember({"text", "jsonl"}));
  cmd->add_flag("-q,--quiet", o.quiet,
                "Text view: only error lines and the summaries of the jobs and the pass");
  cmd->add_option("--log", o.log,
                  "Append every log line meant for a file to FILE, with a local time stamp "
                  "(control characters in names as \\xNN)")
      ->type_name("FILE");
  cmd->add_option("--error-log", o.errorLog,
                  "Append the error trap's reports to FILE (default: error.log in the current "
                  "folder; created by the first report)")
      ->type_name("FILE")
      ->check(kNotEmpty);
  cmd->add_option("--progress", o.progress,
                  "Every SECONDS, a status line on stderr (job, files, bytes, rate, time left) when stderr "
                  "is not a terminal, for the logs of cron and systemd")
      ->type_name("SECONDS")
      ->check(CLI::Range(1, 86400));
  o.host.AddTo(*cmd);
  cmd->add_flag("--no-size-check", o.noSizeCheck,
                "Do not check the free space of the destination before copying or moving");
  cmd->add_option("--jobs", o.jobs,
                  "Workers that copy files and pack or unpack archive entries ahead of the one in "
                  "hand (contents flushed, no name yet); names, events and logs stay in list "
                  "order, as with 1, which does one file after another (default: the number of "
                  "cores)")
      ->type_name("N")
      ->check(CLI::Range(1, 256));
  cmd->add_option("--trace", o.trace, "Write the per-procedure trace (enter, leave, error) to FILE")
      ->type_name("FILE");
  if (passOptions) {
    cmd->add_option("--metrics", o.metrics,
                    "After each pass, write the last run of every job to FILE in the Prometheus "
                    "text format (in one step, for a textfile collector)")
        ->type_name("FILE");
  }
  cmd->add_flag("--no-wait", o.noWait,
                "When another pass works on the job folder, exit 5 at once instead of waiting");
  cmd->add_option("--on-error", o.onError,
                  "Answer to the error trap instead of a dialog (each report also goes to "
                  "stderr and the error log): leave (default) and abort leave the failing procedure, "
                  "ignore goes on with its next statement, retry runs the failing statement "
                  "again - at most 3 times in a row for the same report, then leaves")
      ->check(CLI::IsMember({"abort", "retry", "ignore", "leave"}));
}

}  // namespace

void AddRunCommands(CLI::App& app, Action& action) {
  // The options live as long as the parser and the action that reads them.
  auto o = std::make_shared<RunOptions>();
  const auto bind = [&action, o](Mode mode) {
    return [&action, o, mode] { action = [o, mode] { return Execute(mode, *o); }; };
  };

  const std::string exits =
      "After each job and after the pass a summary (files selected, copied, moved, deleted, "
      "packed, unpacked, unchanged, failed; bytes; seconds): a line of the text view, a "
      "\"Summary\" event of the jsonl stream.\n"
      "Exit status: 0 no job ended with an error, 1 a job ended with an error or the error trap "
      "recorded one, 2 bad command line, 3 a job file could not be read (the jobs after it did "
      "not run; wins over 1), 4 a job was skipped for a missing folder or its external program "
      "could not be started or failed (ended with a status other than 0 while waited for), 5 another pass works on the job folder and --no-wait was given, "
      "130 stopped by SIGINT or SIGTERM (a second signal ends the process at once).";
  CLI::App* run = app.add_subcommand("run", "Run every due job of a job folder once");
  run->footer(exits);
  run->add_option("JOBDIR", o->target, "Job folder (.kjb files)")->required()->check(kNotEmpty);
  AddShared(run, *o, true);
  run->callback(bind(Mode::Run));

  CLI::App* one = app.add_subcommand(
      "run-one", "Run one job file now: no schedule, state, counter or free-space test");
  one->footer(exits);
  one->add_option("JOBFILE", o->target, "Job file (.kjb)")->required()->check(kNotEmpty);
  AddShared(one, *o, false);
  one->callback(bind(Mode::RunOne));

  CLI::App* daemon = app.add_subcommand(
      "daemon", "Run every due job of a job folder once every interval until SIGTERM or SIGINT");
  daemon->footer(
      "Passes start at whole intervals from the start; a slow pass skips the starts it overran. "
      "SIGHUP reopens the --log, --trace and --error-log files (after a log rotation) and the "
      "daemon goes on. Exit status: 130 when stopped by a signal, 2 for a bad command line, 5 "
      "another pass works on the job folder and --no-wait was given.");
  daemon->add_option("JOBDIR", o->target, "Job folder (.kjb files)")->required()->check(kNotEmpty);
  daemon
      ->add_option("--every", o->every,
                   "Seconds from the start of one pass to the next (default 60)")
      ->type_name("SECONDS")
      ->check(CLI::Range(1, 31536000));
  AddShared(daemon, *o, true);
  daemon->callback(bind(Mode::Daemon));
}

}  // namespace kestrel
