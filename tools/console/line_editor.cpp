/* line_editor.cpp: reads lines from the operator's terminal. */
#include "line_editor.h"

#include <sys/stat.h>

#include <cstdio>

#include "escape.h"
#include "interrupt.h"

namespace console {

namespace {

constexpr int kHistorySize = 1000;

LineEditor *EditorOf(EditLine *editor) {
  void *self = nullptr;
  el_get(editor, EL_CLIENTDATA, &self);
  return static_cast<LineEditor *>(self);
}

}  // namespace

LineEditor::LineEditor(std::string historyPath, Completer completer)
    : historyPath_(std::move(historyPath)),
      completer_(std::move(completer)),
      editor_(el_init("kestrel-console", stdin, stdout, stderr)),
      history_(history_init()) {
  HistEvent event;
  history(history_, &event, H_SETSIZE, kHistorySize);
  history(history_, &event, H_SETUNIQUE, 1);
  if (!historyPath_.empty()) history(history_, &event, H_LOAD, historyPath_.c_str());
  el_set(editor_, EL_CLIENTDATA, this);
  el_set(editor_, EL_PROMPT, OnPrompt);
  el_set(editor_, EL_EDITOR, "emacs");
  el_set(editor_, EL_HIST, history, history_);
  el_set(editor_, EL_ADDFN, "complete", "complete the word", OnTab);
  el_set(editor_, EL_BIND, "^I", "complete", nullptr);
}

LineEditor::~LineEditor() {
  history_end(history_);
  el_end(editor_);
}

std::optional<std::string> LineEditor::ReadLine() {
  ClearInterrupt();
  int len = 0;
  const char *text = el_gets(editor_, &len);
  if (!text || len <= 0) {
    std::fputc('\n', stdout);
    if (!WasInterrupted()) return std::nullopt;
    el_reset(editor_);
    return "";
  }
  std::string line(text);
  if (line.ends_with('\n')) line.pop_back();
  Remember(line);
  return line;
}

void LineEditor::Remember(const std::string &line) {
  if (line.find_first_not_of(' ') == line.npos) return;
  HistEvent event;
  history(history_, &event, H_ENTER, line.c_str());
  if (!historyPath_.empty()) Save();
}

// The file holds what an operator typed, which is nobody else's business.
void LineEditor::Save() {
  const mode_t before = umask(0077);
  HistEvent event;
  history(history_, &event, H_SAVE, historyPath_.c_str());
  umask(before);
}

char *LineEditor::OnPrompt(EditLine *editor) { return EditorOf(editor)->prompt_.data(); }

unsigned char LineEditor::OnTab(EditLine *editor, int) {
  LineEditor *self = EditorOf(editor);
  const LineInfo *line = el_line(editor);
  const Completion completion =
      self->completer_({line->buffer, static_cast<size_t>(line->cursor - line->buffer)});
  if (!completion.insert.empty()) {
    return el_insertstr(editor, completion.insert.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
  }
  if (completion.choices.empty()) return CC_ERROR;
  self->ShowChoices(completion.choices);
  return CC_REDISPLAY;
}

void LineEditor::ShowChoices(const std::vector<std::string> &choices) const {
  constexpr size_t kMaxShown = 100;
  std::fputc('\n', stdout);
  for (size_t i = 0; i < choices.size() && i < kMaxShown; ++i) {
    std::printf("  %s\n", Escaped(choices[i]).c_str());
  }
  if (choices.size() > kMaxShown) std::printf("  and %zu more\n", choices.size() - kMaxShown);
}

}  // namespace console
