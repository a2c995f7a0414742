/* session.cpp: runs what the operator types. */
#include "session.h"

#include "escape.h"
#include "json.h"
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

}  // namespace

Outcome Session::Execute(const std::string &line) {
  if (line == "commands") return ListCommands();
  if (line == "objects") return ListObjects();
  if (!IsWatch(line)) return RunOnHost(line);
  std::string reason;
  const auto request = ParseWatch(line, reason);
  if (request) return Watch(*request);
  Complain(reason);
  return Outcome::kUsage;
}

Outcome Session::RunOnHost(const std::string &line) {
  const auto sink = NewSink();
  RowTap tap(*sink, onRow_);
  const Outcome outcome = client_.Run(line, tap);
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return outcome;
  Complain("cannot write the output");
  return Outcome::kNoOutput;
}

Outcome Session::Watch(const WatchRequest &request) {
  if (format_ == Format::kLines) return WatchCommand(client_, request, options_.count);
  Complain("watch prints lines: --json and --table do not go with it");
  return Outcome::kUsage;
}

std::unique_ptr<LineSink> Session::NewSink() const {
  if (format_ == Format::kJson) return std::make_unique<JsonLines>(stdout);
  if (format_ == Format::kTable) {
    return std::make_unique<TableLines>(stdout, TableWidth(options_.width));
  }
  if (options_.usePager && CanPage()) return std::make_unique<PagedLines>(stdout);
  return std::make_unique<PlainLines>(stdout);
}

Outcome Session::ListCommands() {
  std::vector<HostCommand> commands;
  const Outcome outcome = client_.Commands(commands);
  for (const HostCommand &command : commands) {
    std::string text = command.object + ": " + command.command;
    for (const std::string &param : command.params) text += " <" + param + ">";
    PrintLine(stdout, Escaped(text));
  }
  return outcome;
}

Outcome Session::ListObjects() {
  std::vector<std::string> objects;
  const Outcome outcome = client_.Objects(objects);
  for (const std::string &object : objects) PrintLine(stdout, Escaped(object));
  return outcome;
}

}  // namespace console
