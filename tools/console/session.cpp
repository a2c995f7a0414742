/* session.cpp: runs what the operator types. */
#include "session.h"

#include <unistd.h>

#include "escape.h"
#include "help.h"
#include "json.h"
#include "own_commands.h"
#include "pager.h"
#include "table.h"
#include "terminal.h"
#include "watch_loop.h"

namespace console {

namespace {

// RowTap shows each row to somebody on its way to the sink.
class RowTap : public LineSink {
 public:
  RowTap(LineSink &sink, const Session::RowSink &onRow) : sink_(sink), onRow_(onRow) {}

  bool Line(std::string_view line) override {
    const auto row = onRow_ ? ParseRow(line) : std::nullopt;
    if (row) onRow_(*row);
    return sink_.Line(line);
  }
  void End() override { sink_.End(); }

 private:
  LineSink &sink_;
  const Session::RowSink &onRow_;
};

Outcome Wrong(const std::string &reason) {
  Complain(reason);
  return Outcome::kUsage;
}

Outcome IfWritten(Outcome outcome) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return outcome;
  Complain("cannot write the output");
  return Outcome::kNoOutput;
}

}  // namespace

bool IsQuestion(std::string_view line) { return line == "?" || line.ends_with(" ?"); }

Session::Session(Client &client, const Options &options)
    : client_(client),
      format_(options.format),
      options_(options),
      palette_(Palette::Of(STDOUT_FILENO)) {}

std::string Session::InFull(const std::string &line) {
  std::vector<HostCommand> commands;
  if (!MayBeOwn(line) || client_.Commands(commands) != Outcome::kOk) return line;
  return ExpandOwn(line, commands);
}

Outcome Session::Execute(const std::string &typed) {
  const std::string line = InFull(typed);
  if (line == "commands") return ListCommands();
  if (line == "objects") return ListObjects();
  if (IsQuestion(line)) return Help(std::string_view(line).substr(0, line.size() - 1));
  if (FirstWord(line) == "help") return Help(SkipWords(line, 1));
  std::string reason;
  if (IsWatch(line)) {
    const auto request = ParseWatch(line, reason);
    return request ? Watch(*request) : Wrong(reason);
  }
  const auto command = ParseFilters(line, reason);
  return command ? RunOnHost(*command) : Wrong(reason);
}

Outcome Session::RunOnHost(const FilteredCommand &command) {
  const auto printer = NewPrinter();
  const auto sink = NewSink(*printer);
  Filters filters(command.filters, *sink);
  RowTap tap(filters.First(), onRow_);
  const Outcome outcome = client_.Run(command.command, tap);
  if (outcome != Outcome::kOk || filters.Problem().empty()) return IfWritten(outcome);
  Complain(filters.Problem());
  return IfWritten(Outcome::kFailed);
}

Outcome Session::Watch(const WatchRequest &request) {
  std::string reason;
  const auto command = ParseFilters(request.command, reason);
  if (!command) return Wrong(reason);
  const RoundStyle style{format_, TableWidth(options_.width), palette_};
  return WatchCommand(client_, {request.periodMs, options_.count, *command, style});
}

Outcome Session::Help(std::string_view of) {
  std::vector<HostCommand> commands;
  const Outcome outcome = client_.CommandsWithHelp(commands);
  if (outcome != Outcome::kOk) return outcome;
  const std::string asked = Unquoted(Trimmed(of));
  const auto lines = asked.empty() ? HelpOnAll(commands) : HelpOn(asked, commands);
  if (!lines.empty()) return Print(lines, Outcome::kOk);
  Complain("no command begins with \"" + asked + "\"");
  return Outcome::kFailed;
}

std::unique_ptr<Printer> Session::NewPrinter() const {
  if (options_.usePager && CanPage()) return std::make_unique<Pager>(stdout);
  return std::make_unique<FilePrinter>(stdout);
}

std::unique_ptr<LineSink> Session::NewSink(Printer &printer) const {
  if (format_ == Format::kJson) return std::make_unique<JsonLines>(printer);
  if (format_ == Format::kTable) {
    return std::make_unique<TableLines>(printer, TableWidth(options_.width), palette_);
  }
  return std::make_unique<PlainLines>(printer, palette_);
}

Outcome Session::Print(const std::vector<std::string> &lines, Outcome outcome) {
  const auto printer = NewPrinter();
  for (const std::string &line : lines) {
    if (!printer->Print(line)) break;
  }
  return IfWritten(outcome);
}

Outcome Session::ListCommands() {
  std::vector<HostCommand> commands;
  const Outcome outcome = client_.Commands(commands);
  std::vector<std::string> lines;
  for (const HostCommand &command : commands) {
    lines.push_back(Escaped(command.object + ": " + UsageOf(command)));
  }
  return Print(lines, outcome);
}

Outcome Session::ListObjects() {
  std::vector<std::string> objects;
  const Outcome outcome = client_.Objects(objects);
  std::vector<std::string> lines;
  for (const std::string &object : objects) lines.push_back(Escaped(object));
  return Print(lines, outcome);
}

}  // namespace console
