/* stats_changes.h: an action and the numbers that it changes, all of them. */
#ifndef STATS_CHANGES_H
#define STATS_CHANGES_H

#include <functional>
#include <sstream>

#include "stats_reader.h"

namespace coap_rpc_test {

inline std::string TextOf(const Changes &changes) {
  std::ostringstream text;
  for (const auto &[name, by] : changes) text << "{\"" << name << "\", " << by << "}, ";
  return text.str();
}

// WithoutNoise leaves out what each run of the I/O changes, and bytes, which come with messages.
inline Changes WithoutNoise(Changes changes) {
  for (const char *name : {"io.runs", "pool.used", "pool.most"}) changes.erase(name);
  for (const std::string way : {"in", "out"}) {
    EXPECT_EQ(changes.erase(way + ".bytes"), changes.count(way + ".messages")) << way;
  }
  return changes;
}

// CountingTest is a test of what actions change.
template <typename Base>
class CountingTest : public Base {
 protected:
  CoapRpcStats Now() const { return StatsOf(this->Ctx()); }

  // Expect says that `action` changes the numbers `expected`, and no other.
  void Expect(const std::string &what, const std::function<void()> &action,
              const Changes &expected) {
    const CoapRpcStats before = Now();
    action();
    EXPECT_EQ(TextOf(WithoutNoise(ChangesFrom(before, Now()))), TextOf(expected)) << what;
  }
};

// With joins changes.
inline Changes With(Changes changes, const Changes &more) {
  for (const auto &[name, by] : more) changes[name] += by;
  std::erase_if(changes, [](const auto &change) { return change.second == 0; });
  return changes;
}

// A callback that takes no time.
inline const Changes kCallback = {{"callbacks", 1}, {"callbacks.times.0", 1}};

// What came and what was sent, each by the name of its kind: "requests.get".
inline Changes In(const std::string &kind) { return {{"in.messages", 1}, {"in." + kind, 1}}; }
inline Changes Out(const std::string &kind) { return {{"out.messages", 1}, {"out." + kind, 1}}; }

}  // namespace coap_rpc_test

#endif /* STATS_CHANGES_H */
