#include "netfault_scenario.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <functional>
#include <map>
#include <sstream>

namespace netfault {
namespace {

using Words = std::vector<std::string>;

// Form is a timeline verb: "n" in `args` is a number, other words are the alternatives.
struct Form {
  const char *who, *what;
  std::vector<std::string> args;
  size_t numOptional = 0;
};

const std::string kLinks = "link to-mirror to-publisher";
const std::string kNodes = "publisher mirror";

const std::vector<Form> &Forms() {
  static const std::vector<Form> forms = {
      {kLinks.c_str(), "up", {}},
      {kLinks.c_str(), "down", {}},
      {kLinks.c_str(), "delay", {"n"}},
      {kLinks.c_str(), "jitter", {"n"}},
      {kLinks.c_str(), "loss", {"n"}},
      {kLinks.c_str(), "late", {"n", "n"}},
      {kLinks.c_str(), "copy", {"n", "n"}},
      {kLinks.c_str(), "renumbered", {"n", "n"}},
      {kLinks.c_str(), "flip", {"n"}},
      {kLinks.c_str(), "forge", {"n"}},
      {kLinks.c_str(), "fragment-loss", {"n"}},
      {kLinks.c_str(), "max-size", {"n"}},
      {kLinks.c_str(), "lose-next", {"n"}},
      {kNodes.c_str(), "interface", {"up down"}},
      {kNodes.c_str(), "address", {"n"}},
      {kNodes.c_str(), "mtu", {"n"}},
      {kNodes.c_str(), "route", {"normal prohibit unreachable blackhole"}},
      {kNodes.c_str(), "sends", {"ok EPERM ENOBUFS ENETUNREACH EAGAIN"}},
      {kNodes.c_str(), "stop", {}},
      {kNodes.c_str(), "start", {"same-port"}, 1},
      {kNodes.c_str(), "freeze", {}},
      {kNodes.c_str(), "thaw", {}},
      {"publisher", "attach", {}},
      {"publisher", "detach", {}},
      {"publisher", "change", {"n"}},
      {"publisher", "delete", {"n"}},
      {"publisher", "erase", {"n"}},
      {"mirror", "observe", {}},
      {"mirror", "verify", {}},
      {"mirror", "batch", {}},
      {"mirror", "cancel", {}},
      {"mirror", "peer", {"n"}},
      {"changes", "rate", {"n"}},
  };
  return forms;
}

Words WordsOf(const std::string &text) {
  std::istringstream in(text);
  Words words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

bool IsOneOf(const std::string &word, const std::string &list) {
  const Words words = WordsOf(list);
  return std::find(words.begin(), words.end(), word) != words.end();
}

bool IsNumber(const std::string &word) {
  char *end = nullptr;
  const double number = std::strtod(word.c_str(), &end);
  return !word.empty() && *end == '\0' && number >= 0 && number <= 1e9;
}

bool Fits(const std::string &word, const std::string &arg) {
  return arg == "n" ? IsNumber(word) : IsOneOf(word, arg);
}

bool Fits(const Event &event, const Form &form) {
  if (!IsOneOf(event.who, form.who) || event.what != form.what) return false;
  const size_t num = event.args.size();
  if (num > form.args.size() || num + form.numOptional < form.args.size()) return false;
  return std::equal(
      event.args.begin(), event.args.end(), form.args.begin(),
      [](const std::string &word, const std::string &arg) { return Fits(word, arg); });
}

std::string AddEvent(const Words &words, Scenario &scenario) {
  if (words.size() < 4 || !IsNumber(words[1])) return "an event is: at <seconds> <who> <what> ...";
  Event event;
  event.atMs = static_cast<uint64_t>(1000 * std::stod(words[1]));
  event.who = words[2];
  event.what = words[3];
  event.args.assign(words.begin() + 4, words.end());
  const auto &forms = Forms();
  if (std::none_of(forms.begin(), forms.end(), [&](const Form &form) { return Fits(event, form); }))
    return "no such event";
  const auto next =
      std::upper_bound(scenario.events.begin(), scenario.events.end(), event,
                       [](const Event &a, const Event &b) { return a.atMs < b.atMs; });
  scenario.events.insert(next, event);
  return "";
}

bool SetKind(const std::string &word, Policy::Kind &kind) {
  static const std::map<std::string, Policy::Kind> kinds = {{"none", Policy::kNone},
                                                            {"verify", Policy::kVerify},
                                                            {"batch", Policy::kBatch},
                                                            {"hand", Policy::kHand},
                                                            {"mirror", Policy::kMirror}};
  const auto found = kinds.find(word);
  if (found != kinds.end()) kind = found->second;
  return found != kinds.end();
}

bool SetPolicy(const Words &words, Policy &policy) {
  policy.seconds = 30;
  if (!SetKind(words[1], policy.kind)) return false;
  if (words.size() == 2) return true;
  if (!IsNumber(words[2]) || std::stoul(words[2]) == 0) return false;
  policy.seconds = static_cast<uint32_t>(std::stoul(words[2]));
  return true;
}

bool AddReason(const Words &words, Scenario &scenario) {
  Policy::Kind kind = Policy::kNone;
  if (words.size() < 3 || !SetKind(words[1], kind)) return false;
  std::string &reason = scenario.reasons[kind];
  for (size_t i = 2; i < words.size(); ++i) reason += (i > 2 ? " " : "") + words[i];
  return true;
}

// Choose sets a flag by one of two words.
bool Choose(const std::string &word, const char *yes, const char *no, bool &flag) {
  flag = word == yes;
  return flag || word == no;
}

template <typename Number>
bool SetNumber(const std::string &word, double scale, Number &number) {
  if (!IsNumber(word)) return false;
  number = static_cast<Number>(std::stod(word) * scale);
  return true;
}

using Setter = std::function<bool(const Words &, Scenario &)>;

const std::map<std::string, Setter> &Setters() {
  static const std::map<std::string, Setter> setters = {
      {"name", [](const Words &w, Scenario &s) { return !(s.name = w[1]).empty(); }},
      {"seed", [](const Words &w, Scenario &s) { return SetNumber(w[1], 1, s.seed); }},
      {"tuples", [](const Words &w, Scenario &s) { return SetNumber(w[1], 1, s.numTuples); }},
      {"format", [](const Words &w, Scenario &s) { return Choose(w[1], "idl", "json", s.isIdl); }},
      {"policy", [](const Words &w, Scenario &s) { return SetPolicy(w, s.policy); }},
      {"ip", [](const Words &w, Scenario &s) { return Choose(w[1], "6", "4", s.isIpv6); }},
      {"io",
       [](const Words &w, Scenario &s) { return Choose(w[1], "polled", "prompt", s.isPolled); }},
      {"icmp", [](const Words &w, Scenario &s) { return Choose(w[1], "on", "off", s.hasIcmp); }},
      {"changes",
       [](const Words &w, Scenario &s) { return SetNumber(w[1], 1, s.changesPerSecond); }},
      {"deletions",
       [](const Words &w, Scenario &s) { return SetNumber(w[1], 1, s.deletionPercent); }},
      {"base",
       [](const Words &w, Scenario &s) { return Choose(w[1], "start", "settled", s.isBaseStart); }},
      {"tail", [](const Words &w, Scenario &s) { return SetNumber(w[1], 1000, s.tailMs); }},
      {"limit", [](const Words &w, Scenario &s) { return SetNumber(w[1], 1000, s.limitMs); }},
      {"reason", AddReason},
      {"watch", [](const Words &w, Scenario &s) { return SetNumber(w[1], 1000, s.watchMs); }},
  };
  return setters;
}

}  // namespace

std::string Scenario::Apply(const std::string &line) {
  const Words words = WordsOf(line.substr(0, line.find('#')));
  if (words.empty()) return "";
  if (words[0] == "at") return AddEvent(words, *this);
  const auto setter = Setters().find(words[0]);
  if (setter == Setters().end()) return "no such setting";
  if (words.size() < 2 || !setter->second(words, *this)) return "not a value of this setting";
  return "";
}

std::string ParseScenario(const std::string &text, Scenario *scenario) {
  std::istringstream in(text);
  size_t number = 0;
  for (std::string line; std::getline(in, line);) {
    ++number;
    const std::string fault = scenario->Apply(line);
    if (!fault.empty()) return "line " + std::to_string(number) + ": " + fault + ": " + line;
  }
  return "";
}

}  // namespace netfault
