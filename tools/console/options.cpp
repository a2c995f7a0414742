/* options.cpp: the command line of the console. */
#include "options.h"

#include <CLI/CLI.hpp>

#include <unistd.h>

#include "client.h"
#include "terminal.h"

namespace console {

namespace {

constexpr char kAbout[] =
    "kestrel-console shows the tables of a running host.\n\n"
    "Without a command it asks for commands, with line editing, history and completion.\n"
    "Commands are the host's own display commands, and\n"
    "  commands                    list the host's commands\n"
    "  objects                     list the host's display objects\n"
    "  watch <seconds> <command>   repeat a command and mark what changed\n"
    "  help [<command>]            this text, or what a command shows\n"
    "A command of the host may be abbreviated, and followed by\n"
    "  | include TEXT   | sort COLUMN   | columns A,B   | count";

constexpr char kExitCodes[] =
    "Exit codes: 0 success, 1 the command failed, 2 wrong usage, 3 cannot connect,\n"
    "4 connection lost, 5 standard output cannot be written.\n"
    "See kestrel-console(1).";

// Flags are options that have no value.
struct Flags {
  bool json = false;
  bool table = false;
  bool lines = false;
  bool noPager = false;
  bool noHistory = false;
};

void Describe(CLI::App &app, Options &options, Flags &flags) {
  app.add_option("-s,--socket", options.socket, "path of the host's socket")
      ->envname("KESTREL_SOCKET")
      ->type_name("PATH")
      ->take_last();
  app.add_option("-o,--object", options.object, "display object that the commands are for")
      ->type_name("NAME");
  auto *json = app.add_flag("--json", flags.json, "print one JSON array");
  auto *table =
      app.add_flag("--table", flags.table, "print aligned columns (default on a terminal)");
  app.add_flag("--lines", flags.lines, "print lines as the host does (default without a terminal)")
      ->excludes(json, table);
  table->excludes(json);
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
  app.set_version_flag("--version", "kestrel-console " COAP_RPC_VERSION);
  app.add_option("command", options.command, "command and its parameters");
}

Format FormatOf(const Flags &flags) {
  if (flags.json) return Format::kJson;
  if (flags.lines) return Format::kLines;
  return flags.table || IsTerminal(STDOUT_FILENO) ? Format::kTable : Format::kLines;
}

bool IsHelp(const std::vector<std::string> &command) {
  return command == std::vector<std::string>{"help"};
}

// Parse throws what the parser throws.
void Parse(CLI::App &app, int argc, char **argv, const Options &options) {
  app.parse(argc, argv);
  if (IsHelp(options.command)) throw CLI::CallForHelp();
  if (options.socket.empty()) throw CLI::RequiredError("--socket");
}

}  // namespace

std::optional<Options> ParseOptions(int argc, char **argv, int &exitCode) {
  Options options;
  Flags flags;
  CLI::App app(kAbout, "kestrel-console");
  app.footer(kExitCodes);
  Describe(app, options, flags);
  try {
    Parse(app, argc, argv, options);
  } catch (const CLI::ParseError &error) {
    exitCode = app.exit(error) == 0 ? 0 : static_cast<int>(Outcome::kUsage);
    return std::nullopt;
  }
  options.format = FormatOf(flags);
  options.usePager = !flags.noPager;
  options.useHistory = !flags.noHistory;
  return options;
}

}  // namespace console
