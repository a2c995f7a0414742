/* sweep.h: lets every allocation of a scenario fail in turn.
 *
 * A scenario is played once with nothing failing, which counts the calls of each source.  Then it
 * is played again for every call of one source: that call fails alone, and again with all later
 * ones failing too.  Each time a fresh instance is taken down at the end and must leave nothing. */
#ifndef SWEEP_H
#define SWEEP_H

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "sweep_stage.h"

namespace coap_rpc_test {

// Scenario is something an instance does.
struct Scenario {
  const char *name;
  uint32_t sources;  // that it allocates from; it makes no call of any other
  void (*prepare)(Stage &);
  void (*play)(Stage &);   // while calls fail: copes, and gives no result that is not documented
  void (*works)(Stage &);  // nothing fails any more: the same again, and it works

  // A scenario of one step leaves the tables as they were or as the step that succeeds does, or in
  // another state that is meant.
  bool isOneStep = false;
  bool (*isMeant)(const std::string &tables) = nullptr;
};

std::ostream &operator<<(std::ostream &out, const Scenario &scenario);

// Sweep lets every call that `scenario` makes of `source` fail.  Returns the number of those calls.
uint64_t Sweep(const Scenario &scenario, Source source);

// The scenarios, by what they are about.
const std::vector<Scenario> &TableScenarios();
const std::vector<Scenario> &RequestScenarios();
const std::vector<Scenario> &ObserveScenarios();
const std::vector<Scenario> &SyncScenarios();
const std::vector<Scenario> &MirrorScenarios();
const std::vector<Scenario> &ClientScenarios();
const std::vector<Scenario> &CallScenarios();

}  // namespace coap_rpc_test

#endif /* SWEEP_H */
