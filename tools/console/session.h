/* session.h: runs what the operator types, from the command line or from the prompt. */
#ifndef KESTREL_TOOLS_CONSOLE_SESSION_H
#define KESTREL_TOOLS_CONSOLE_SESSION_H

#include <functional>
#include <memory>
#include <string>

#include "client.h"
#include "options.h"
#include "row.h"
#include "watch.h"

namespace console {

class Session {
 public:
  using RowSink = std::function<void(const Row &)>;

  Session(Client &client, const Options &options)
      : client_(client), format_(options.format), options_(options) {}

  // Execute runs one line: a command of the console's own, or one of the host's.
  Outcome Execute(const std::string &line);

  // OnRow names what is called with each row that a host's command prints.
  void OnRow(RowSink onRow) { onRow_ = std::move(onRow); }

  void SetFormat(Format format) { format_ = format; }

 private:
  Outcome RunOnHost(const std::string &line);
  Outcome Watch(const WatchRequest &request);
  Outcome ListCommands();
  Outcome ListObjects();
  std::unique_ptr<LineSink> NewSink() const;

  Client &client_;
  Format format_;
  const Options &options_;
  RowSink onRow_;
};

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_SESSION_H */
