// demo_screen.h: what a person sees: numbered steps, bars, live tables, a summary.
#ifndef DEMO_SCREEN_H
#define DEMO_SCREEN_H

#include <string>
#include <vector>

#include "demo_node.h"
#include "demo_table.h"

// Verdict is the outcome of a step.
struct Verdict {
  bool isGood;
  std::string counts;
};

// Screen writes to the standard output.  On a terminal, bars and tables are drawn over and over in
// one place; elsewhere only their last state is printed, in plain lines.
class Screen {
 public:
  Screen();
  ~Screen() { Settle(); }
  Screen(const Screen &) = delete;
  Screen &operator=(const Screen &) = delete;

  void BeginStep(const char *title);
  void EndStep(const Verdict &verdict);

  // Say prints one line that stays.
  void Say(const std::string &line);

  // Bar shows how much of something is done, List the rows of a table with the largest numbers in
  // the first column.  The last state of each stays when another one begins.
  void Bar(const std::string &what, uint64_t done, uint64_t total);
  void List(const std::string &title, const char *columns, const Rows &table);

  // Summary prints all steps.  Returns whether all were good.
  bool Summary(double seconds);

 private:
  struct Step {
    std::string title;
    DemoClock::time_point start;
    double seconds;
    Verdict verdict;
  };

  void Draw(const std::string &title, std::vector<std::string> lines);
  void Redraw();
  void Settle();
  const char *Paint(const char *code) const { return isTerminal_ ? code : ""; }

  const bool isTerminal_;
  std::vector<Step> steps_;
  std::string title_;               // of the bar or table
  std::vector<std::string> state_;  // the bar or table as it is now
  size_t numDrawn_ = 0;             // lines of it that stand there to be drawn over
  DemoClock::time_point lastDraw_ = {};
};

#endif  // DEMO_SCREEN_H
