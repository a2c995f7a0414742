/* session.h: runs what the operator types, from the command line or from the prompt. */
#ifndef KESTREL_TOOLS_CONSOLE_SESSION_H
#define KESTREL_TOOLS_CONSOLE_SESSION_H

#include <functional>
#include <memory>
#include <string>

#include "client.h"
#include "filter.h"
#include "options.h"
#include "row.h"
#include "style.h"
#include "watch.h"

namespace console {

class Session {
 public:
  using RowSink = std::function<void(const Row &)>;

  Session(Client &client, const Options &options);

  // Execute runs one line: a command of the console's own, or one of the host's.
  Outcome Execute(const std::string &line);

  // InFull replaces an abbreviated command of the console's own.
  std::string InFull(const std::string &line);

  // OnRow names what is called with each row that a host's command prints.
  void OnRow(RowSink onRow) { onRow_ = std::move(onRow); }

  void SetFormat(Format format) { format_ = format; }

 private:
  Outcome RunOnHost(const FilteredCommand &command);
  Outcome Watch(const WatchRequest &request);
  Outcome Help(std::string_view of);
  Outcome ListCommands();
  Outcome ListObjects();
  Outcome Print(const std::vector<std::string> &lines, Outcome outcome);
  std::unique_ptr<Printer> NewPrinter() const;
  std::unique_ptr<LineSink> NewSink(Printer &printer) const;

  Client &client_;
  Format format_;
  const Options &options_;
  Palette palette_;
  RowSink onRow_;
};

// IsQuestion tells a line that asks for help: "?", or words and "?".
bool IsQuestion(std::string_view line);

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_SESSION_H */
