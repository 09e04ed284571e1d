// Options that every command of kestrel shares: the clock and the short date format.
#pragma once

#include <orvKestrel/host.h>

#include <CLI/CLI.hpp>

#include <optional>
#include <string>

namespace kestrel {

struct HostOptions {
  std::string now;         // --now "YYYY-MM-DD HH:MM:SS"
  std::string dateFormat;  // --date-format FMT
  // Adds --now and --date-format to a command.
  void AddTo(CLI::App& command);
  // The host with its clock and date format; throws CLI::ValidationError for a bad --now.
  orvKestrel::Host MakeHost() const;
  // MakeHost, but a bad option is said on stderr and gives nullopt (exit 2 for the caller).
  std::optional<orvKestrel::Host> MakeHostOrSay() const;
};

// The JOBDIR argument and --file of the commands that read job files one by one (list, check).
void AddJobFileOptions(CLI::App& command, std::string& jobDir, std::string& file);

// --date-format, else KESTREL_DATE_FORMAT, else the LC_TIME locale's date format.
std::string ShortDateFormat(const std::string& option);

}  // namespace kestrel
