/* line_editor.h: reads lines from the operator's terminal, with editing, history and completion. */
#ifndef KESTREL_TOOLS_CONSOLE_LINE_EDITOR_H
#define KESTREL_TOOLS_CONSOLE_LINE_EDITOR_H

#include <histedit.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "completion.h"

namespace console {

class LineEditor {
 public:
  // Hooks are what the editor asks while the operator types.
  struct Hooks {
    std::function<Completion(std::string_view)> complete;            // for Tab
    std::function<std::vector<std::string>(std::string_view)> help;  // for "?"; none: a character
    std::function<std::string()> attend;  // called every second, and when the descriptor hangs up;
                                          // returns a line to be shown, or ""
    std::function<int()> descriptor;      // -1: none
  };

  // `historyPath` is empty for no history beyond this run.
  LineEditor(std::string historyPath, Hooks hooks);
  ~LineEditor();
  LineEditor(const LineEditor &) = delete;
  LineEditor &operator=(const LineEditor &) = delete;

  void SetPrompt(std::string prompt) { prompt_ = std::move(prompt); }

  // ReadLine returns the next line without line feed, an empty one after Ctrl-C, none at the end.
  std::optional<std::string> ReadLine();

 private:
  static char *OnPrompt(EditLine *editor);
  static unsigned char OnTab(EditLine *editor, int key);
  static unsigned char OnQuestion(EditLine *editor, int key);
  static int OnRead(EditLine *editor, wchar_t *character);

  void WaitForKey();
  void Attend();

  void Remember(const std::string &line);
  void Save();
  void ShowChoices(const std::vector<std::string> &choices) const;

  std::string historyPath_;
  Hooks hooks_;
  std::string prompt_;
  EditLine *editor_;
  History *history_;
};

}  // namespace console

#endif /* KESTREL_TOOLS_CONSOLE_LINE_EDITOR_H */
