/* completion.cpp: what may follow what the operator has typed. */
#include "completion.h"

#include <algorithm>

#include "watch.h"
#include "words.h"

namespace console {

namespace {

// Typed is a line taken apart: its whole words, and the one that is being typed.
struct Typed {
  Words done;
  std::string last;
};

Typed TakeApart(std::string_view line) {
  Typed typed{SplitWords(line), ""};
  if (!typed.done.empty() && !line.ends_with(' ')) {
    typed.last = typed.done.back();
    typed.done.pop_back();
  }
  return typed;
}

bool BeginsWith(const Words &words, const Words &first) {
  return words.size() >= first.size() && std::equal(first.begin(), first.end(), words.begin());
}

// AddNextWord offers the word of `phrase` that stands where the operator is typing.
void AddNextWord(const Words &phrase, const Typed &typed, std::set<std::string> &found) {
  if (phrase.size() <= typed.done.size() || !BeginsWith(phrase, typed.done)) return;
  const std::string &word = phrase[typed.done.size()];
  if (word.starts_with(typed.last)) found.insert(word);
}

// FieldOf is the field whose values a parameter takes: "pcUri" takes those of "uri".
std::string FieldOf(std::string_view param) {
  for (const std::string_view prefix : {"uni", "pc"}) {
    if (param.starts_with(prefix)) return Lower(param.substr(prefix.size()));
  }
  return Lower(param);
}

struct Search {
  std::set<std::string> found;
  std::set<std::string> hints;  // parameters that cannot be completed
};

void AddParam(const Catalog &catalog, const std::string &param, const Typed &typed,
              Search &search) {
  const size_t before = search.found.size();
  const auto values = catalog.values.find(FieldOf(param));
  if (values != catalog.values.end()) {
    for (const std::string &value : values->second) {
      if (value.starts_with(typed.last)) search.found.insert(value);
    }
  }
  if (search.found.size() == before) search.hints.insert("<" + param + ">");
}

void AddHostCommands(const Catalog &catalog, const Typed &typed, Search &search) {
  for (const HostCommand &command : catalog.commands) {
    const Words phrase = SplitWords(command.command);
    AddNextWord(phrase, typed, search.found);
    if (!BeginsWith(typed.done, phrase)) continue;
    const size_t param = typed.done.size() - phrase.size();
    if (param < command.params.size()) AddParam(catalog, command.params[param], typed, search);
  }
}

void AddObjects(const Catalog &catalog, const Typed &typed, Search &search) {
  if (typed.done != Words{"object"}) return;
  for (const std::string &object : catalog.objects) {
    if (object.starts_with(typed.last)) search.found.insert(object);
  }
}

size_t CommonLength(const std::string &a, const std::string &b) {
  const auto differs = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
  return static_cast<size_t>(differs.first - a.begin());
}

Completion CompletionOf(const Typed &typed, const Search &search) {
  const std::set<std::string> &found = search.found;
  if (found.empty()) return {"", {search.hints.begin(), search.hints.end()}};
  std::string common = *found.begin();
  for (const std::string &word : found) common.resize(CommonLength(common, word));
  std::string insert = common.substr(typed.last.size());
  if (found.size() == 1) return {insert + " ", {}};
  if (!insert.empty()) return {insert, {}};
  return {"", {found.begin(), found.end()}};
}

}  // namespace

void Catalog::Remember(const Row &row) {
  constexpr size_t kMaxValues = 10000;
  for (const Field &field : row) {
    if (field.value.empty() || field.value.find_first_of(" \t\"") != field.value.npos) continue;
    auto &seen = values[Lower(field.name)];
    if (seen.size() < kMaxValues) seen.insert(field.value);
  }
}

Completion Complete(const Catalog &catalog, std::string_view line) {
  Typed typed = TakeApart(line);
  Search search;
  const bool isWatched = typed.done.size() >= 2 && typed.done[0] == "watch";
  if (isWatched) {
    typed.done.erase(typed.done.begin(), typed.done.begin() + 2);
  } else {
    for (const Words &own : catalog.ownCommands) AddNextWord(own, typed, search.found);
    AddObjects(catalog, typed, search);
  }
  AddHostCommands(catalog, typed, search);
  return CompletionOf(typed, search);
}

}  // namespace console
