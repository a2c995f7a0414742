/* options.cpp: the command line of the console. */
#include "options.h"

#include <CLI/CLI.hpp>

#include "client.h"

namespace console {

namespace {

constexpr char kAbout[] =
    "kestrel-console shows the tables of a running host.\n\n"
    "Without a command it asks for commands, with line editing, history and completion.\n"
    "Commands are the host's own display commands, and\n"
    "  commands                    list the host's commands\n"
    "  objects                     list the host's display objects\n"
    "  watch <seconds> <command>   repeat a command and mark what changed";

constexpr char kExitCodes[] =
    "Exit codes: 0 success, 1 the command failed, 2 wrong usage, 3 cannot connect,\n"
    "4 connection lost, 5 standard output cannot be written.\n"
    "See kestrel-console(1).";

// Flags are options that have no value.
struct Flags {
  bool json = false;
  bool table = false;
  bool noPager = false;
  bool noHistory = false;
};

void Describe(CLI::App &app, Options &options, Flags &flags) {
  app.add_option("-s,--socket", options.socket, "path of the host's socket")
      ->envname("KESTREL_SOCKET")
      ->type_name("PATH")
      ->take_last()
      ->required();
  app.add_option("-o,--object", options.object, "display object that the commands are for")
      ->type_name("NAME");
  auto *json = app.add_flag("--json", flags.json, "print one JSON array");
  app.add_flag("--table", flags.table, "print aligned columns")->excludes(json);
  app.add_option("--width", options.width, "width of tables (default: that of the terminal)")
      ->type_name("N")
      ->check(CLI::Range(1, 100000));
  app.add_option("--count", options.count, "end watch after N rounds")->type_name("N");
  app.add_option("--timeout", options.timeoutS,
                 "give up when the host is silent for so long (default 10, 0: never)")
      ->type_name("SECONDS")
      ->check(CLI::Range(0, 1000000));
  app.add_flag("--no-pager", flags.noPager, "do not pause after each screen");
  app.add_flag("--no-history", flags.noHistory, "keep no history of commands");
  app.add_option("command", options.command, "command and its parameters");
}

}  // namespace

std::optional<Options> ParseOptions(int argc, char **argv, int &exitCode) {
  Options options;
  Flags flags;
  CLI::App app(kAbout, "kestrel-console");
  app.footer(kExitCodes);
  Describe(app, options, flags);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    exitCode = app.exit(error) == 0 ? 0 : static_cast<int>(Outcome::kUsage);
    return std::nullopt;
  }
  if (flags.json) options.format = Format::kJson;
  if (flags.table) options.format = Format::kTable;
  options.usePager = !flags.noPager;
  options.useHistory = !flags.noHistory;
  return options;
}

}  // namespace console
