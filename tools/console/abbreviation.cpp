/* abbreviation.cpp: commands of which the operator typed only the beginnings of words. */
#include "abbreviation.h"

#include <algorithm>
#include <set>

#include "words.h"

namespace console {

namespace {

struct Candidate {
  std::string text;
  Words words;
};

using Candidates = std::vector<Candidate>;

Candidates CandidatesOf(const std::vector<std::string> &commands) {
  Candidates candidates;
  for (const std::string &text : std::set<std::string>(commands.begin(), commands.end())) {
    candidates.push_back({text, SplitWords(text)});
  }
  return candidates;
}

// Narrow keeps the candidates whose word at `at` is `word`, or else those that begin with it.
Candidates Narrow(const Candidates &candidates, size_t at, const std::string &word) {
  Candidates whole;
  Candidates begun;
  for (const Candidate &candidate : candidates) {
    if (at >= candidate.words.size() || !candidate.words[at].starts_with(word)) continue;
    (candidate.words[at] == word ? whole : begun).push_back(candidate);
  }
  return whole.empty() ? begun : whole;
}

// OfLength keeps the candidates of `count` words.
Candidates OfLength(const Candidates &candidates, size_t count) {
  Candidates complete;
  std::copy_if(candidates.begin(), candidates.end(), std::back_inserter(complete),
               [&](const Candidate &candidate) { return candidate.words.size() == count; });
  return complete;
}

}  // namespace

Expansion Expand(std::string_view line, const std::vector<std::string> &commands) {
  const Words typed = SplitWords(line);
  Candidates open = CandidatesOf(commands);
  Candidates longest;
  for (size_t i = 0; i < typed.size() && !open.empty(); ++i) {
    open = Narrow(open, i, typed[i]);
    Candidates complete = OfLength(open, i + 1);
    if (!complete.empty()) longest = std::move(complete);
  }
  Expansion expansion;
  if (longest.size() > 1) {
    for (const Candidate &one : longest) expansion.choices.push_back(one.text);
  } else if (longest.size() == 1) {
    const std::string_view rest = SkipWords(line, longest[0].words.size());
    expansion.line = longest[0].text + (rest.empty() ? "" : " ") + std::string(rest);
  }
  return expansion;
}

}  // namespace console
