// The commands of the kestrel host. Each command module adds its sub-command to the parser and
// sets the action that main runs after a successful parse.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>

namespace kestrel {

using Action = std::function<int()>;

// kestrel list
void AddListCommand(CLI::App& app, Action& action);
// kestrel check
void AddCheckCommand(CLI::App& app, Action& action);
// kestrel run, run-one, daemon
void AddRunCommands(CLI::App& app, Action& action);

}  // namespace kestrel
