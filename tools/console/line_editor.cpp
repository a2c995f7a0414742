/* line_editor.cpp: reads lines from the operator's terminal. */
#include "line_editor.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cwchar>

#include "escape.h"
#include "interrupt.h"
#include "terminal.h"

namespace console {

namespace {

constexpr int kHistorySize = 1000;

LineEditor *EditorOf(EditLine *editor) {
  void *self = nullptr;
  el_get(editor, EL_CLIENTDATA, &self);
  return static_cast<LineEditor *>(self);
}

}  // namespace

LineEditor::LineEditor(std::string historyPath, Hooks hooks)
    : historyPath_(std::move(historyPath)),
      hooks_(std::move(hooks)),
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
  el_set(editor_, EL_ADDFN, "help", "what may follow", OnQuestion);
  el_set(editor_, EL_BIND, "?", "help", nullptr);
  el_set(editor_, EL_GETCFN, OnRead);
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
      self->hooks_.complete({line->buffer, static_cast<size_t>(line->cursor - line->buffer)});
  if (!completion.insert.empty()) {
    return el_insertstr(editor, completion.insert.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
  }
  if (completion.choices.empty()) return CC_ERROR;
  self->ShowChoices(completion.choices);
  return CC_REDISPLAY;
}

unsigned char LineEditor::OnQuestion(EditLine *editor, int) {
  LineEditor *self = EditorOf(editor);
  const LineInfo *line = el_line(editor);
  const auto help =
      self->hooks_.help({line->buffer, static_cast<size_t>(line->cursor - line->buffer)});
  if (help.empty()) return el_insertstr(editor, "?") == 0 ? CC_REFRESH : CC_ERROR;
  std::fputc('\n', stdout);
  for (const std::string &text : help) PrintLine(stdout, text);
  return CC_REDISPLAY;
}

// OnRead reads one character, in as many bytes as it has.  Ctrl-C ends the line.
int LineEditor::OnRead(EditLine *editor, wchar_t *character) {
  LineEditor *self = EditorOf(editor);
  std::mbstate_t state{};
  for (;;) {
    self->WaitForKey();
    char byte = 0;
    const ssize_t len = WasInterrupted() ? -1 : read(STDIN_FILENO, &byte, 1);
    if (len < 0 && errno == EINTR && !WasInterrupted()) continue;
    if (len <= 0) return static_cast<int>(len);
    const size_t used = std::mbrtowc(character, &byte, 1, &state);
    if (used == static_cast<size_t>(-2)) continue;
    if (used != static_cast<size_t>(-1)) return 1;
    state = {};  // a byte that is no character is dropped
  }
}

void LineEditor::WaitForKey() {
  constexpr int kAttendMs = 1000;
  for (;;) {
    pollfd waiting[] = {{STDIN_FILENO, POLLIN, 0}, {hooks_.descriptor(), POLLRDHUP, 0}};
    poll(waiting, std::size(waiting), kAttendMs);
    if (WasInterrupted() || waiting[0].revents != 0) return;
    Attend();
  }
}

void LineEditor::Attend() {
  const std::string notice = hooks_.attend();
  if (notice.empty()) return;
  PrintLine(stdout, EraseLine() + Escaped(notice));
  el_set(editor_, EL_REFRESH);
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
