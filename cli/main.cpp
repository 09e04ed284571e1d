// kestrel: the command-line host of the orvKestrel job engine.
#include "Commands.h"

#include <cstdio>

int main(int argc, char** argv) {
  CLI::App app{
      "kestrel - runs file-management jobs (.kjb files): copy, move, delete, zip, unzip and\n"
      "synchronise files, on a schedule, with previews and numbered log messages."};
  app.set_version_flag("--version", std::string("kestrel ") + KESTREL_VERSION);
  app.require_subcommand(1);
  kestrel::Action action;
  kestrel::AddListCommand(app, action);
  kestrel::AddCheckCommand(app, action);
  kestrel::AddRunCommands(app, action);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return 2;
  }
  return action ? action() : 2;
}
