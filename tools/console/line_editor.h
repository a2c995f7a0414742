/* line_editor.h: reads lines from the operator's terminal, with editing, history and completion. */
#ifndef KESTREL_TOOLS_CONSOLE_LINE_EDITOR_H
#define KESTREL_TOOLS_CONSOLE_LINE_EDITOR_H

#include <histedit.h>

#include <functional>
#include <optional>
#include <string>

#include "completion.h"

namespace console {

class LineEditor {
 public:
  using Completer = std::function<Completion(std::string_view)>;

  // `historyPath` is empty for no history beyond this run.
  LineEditor(std::string historyPath, Completer completer);
  ~LineEditor();
  LineEditor(const LineEditor &) = delete;
  LineEditor &operator=(const LineEditor &) = delete;

  void SetPrompt(std::string prompt) { prompt_ = std::move(prompt); }

  // ReadLine returns the next line without line feed, an empty one after Ctrl-C, none at the end.
  std::optional<std::string> ReadLine();

 private:
  static char *OnPrompt(EditLine *editor);
  static unsigned char OnTab(EditLine *editor, int key);

  void Remember(const std::string &line);
  void Save();
  void ShowChoices(const std::vector<std::string> &choices) const;

  std::string historyPath_;
  Completer completer_;
  std::string prompt_;
  EditLine *editor_;
  History *history_;
};

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_LINE_EDITOR_H */
