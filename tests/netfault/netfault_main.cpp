// netfault: plays scenarios and prints a line for each.
//
//   netfault [--trace] [--set "<line>"]... <scenario file>...
//   netfault --check
//
// --set adds a line to each scenario (netfault_scenario.h), as "--set 'tuples 5000'".  Each line of
// the output has name, tuples, format, policy, seed, a short verdict, the digest of all packets,
// the long verdict, and for a mirror that is wrong the scenario's reason ("-" without one), between
// tabs.  Short verdicts: "<n> s", "wrong late <n> s" for a mirror that keeps itself right and took
// longer than a heartbeat and 5 s, or "wrong <missing>/<stale>/<not deleted> <code> <news>", where
// the code is "current" when the mirror believes itself up to date, else "old", and the news are
// "told" or "silent".  --check only says whether it can work here.
// Status 0: all mirrors became right; 1: one did not; 2: usage; 77: no namespaces here.
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "netfault_bench.h"

namespace {

using netfault::Bench;
using netfault::Policy;
using netfault::Scenario;
using netfault::Verdict;

struct Options {
  bool isTraced = false;
  bool isCheck = false;
  std::string lines;
  std::vector<std::string> files;
};

bool ReadOptions(int argc, char **argv, Options &options) {
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--trace") == 0) {
      options.isTraced = true;
    } else if (strcmp(argv[i], "--check") == 0) {
      options.isCheck = true;
    } else if (strcmp(argv[i], "--set") == 0 && i + 1 < argc) {
      options.lines += std::string(argv[++i]) + '\n';
    } else if (argv[i][0] != '-') {
      options.files.emplace_back(argv[i]);
    } else {
      return false;
    }
  }
  return options.isCheck || !options.files.empty();
}

bool ReadScenario(const std::string &path, const std::string &lines, Scenario *scenario) {
  std::ifstream file(path);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  std::string fault = file ? ParseScenario(text, scenario) : "cannot be read";
  if (fault.empty()) fault = ParseScenario(lines, scenario);
  if (!fault.empty()) fprintf(stderr, "%s: %s\n", path.c_str(), fault.c_str());
  return fault.empty();
}

std::string PolicyText(const Policy &policy) {
  static constexpr const char *kNames[] = {"none", "verify", "batch", "hand", "mirror"};
  std::string text = kNames[policy.kind];
  if (policy.kind != Policy::kNone) text += ' ' + std::to_string(policy.seconds);
  return text;
}

std::string ShortText(const Verdict &verdict) {
  char text[128];
  const netfault::State &state = verdict.state;
  const netfault::Difference &wrong = state.difference;
  if (verdict.isRight) {
    snprintf(text, sizeof(text), "%.0f s", verdict.seconds);
  } else if (verdict.isLate) {
    snprintf(text, sizeof(text), "wrong late %.0f s", verdict.seconds);
  } else {
    snprintf(text, sizeof(text), "wrong %u/%u/%u %s %s", wrong.numMissing, wrong.numStale,
             wrong.numExtra, state.isSure ? "current" : "old",
             state.IsReported() ? "told" : "silent");
  }
  return text;
}

// ReasonFor is why a mirror that is wrong may be so; "-" when it may not.
std::string ReasonFor(const Scenario &scenario) {
  const auto reason = scenario.reasons.find(scenario.policy.kind);
  return reason != scenario.reasons.end() ? reason->second : "-";
}

bool Play(const Scenario &scenario, bool isTraced) {
  const Bench::Trace trace = [](const std::string &text) { printf("%s\n", text.c_str()); };
  const Verdict verdict = Bench(scenario, isTraced ? trace : nullptr).Run();
  printf("%s\t%u\t%s\t%s\t%u\t%s\t%016" PRIx64 "\t%s\t%s\n", scenario.name.c_str(),
         scenario.numTuples, scenario.isIdl ? "IDL" : "JSON", PolicyText(scenario.policy).c_str(),
         scenario.seed, ShortText(verdict).c_str(), verdict.digest, verdict.Text().c_str(),
         verdict.isRight ? "" : ReasonFor(scenario).c_str());
  fflush(stdout);
  return verdict.isRight;
}

}  // namespace

int main(int argc, char **argv) {
  Options options;
  if (!ReadOptions(argc, argv, options)) {
    fprintf(stderr, "usage: netfault [--trace] [--set <line>]... <scenario file>...\n");
    return 2;
  }
  if (!netfault::CanMakeNetworks()) {
    fprintf(stderr, "netfault: the system does not let this user make network namespaces\n");
    return 77;
  }
  bool isRight = true;
  for (const std::string &path : options.files) {
    Scenario scenario;
    if (!ReadScenario(path, options.lines, &scenario)) return 2;
    isRight = Play(scenario, options.isTraced) && isRight;
  }
  return isRight ? 0 : 1;
}
