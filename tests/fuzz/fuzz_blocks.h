/* fuzz_blocks.h: what targets for bodies in blocks share: steps of one size, which the mutator
 * moves as a whole (fuzz_blocks_mutator.cpp), and bodies whose bytes tell which body they are of
 * and where they belong. */
#ifndef FUZZ_BLOCKS_H
#define FUZZ_BLOCKS_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "fuzz_host.h"
#include "fuzz_support.h"
#include "fuzz_wire.h"

namespace fuzz {

using coap_rpc_test::CoapBlock;

inline constexpr size_t kStepLen = 8;
inline constexpr int kMaxSteps = 24;  // in longer plays most transfers are disturbed

// Step is what one step of a play reads.  The meaning of `arg` is its kind's; all 0 is the usual
// case.
struct Step {
  uint8_t kind;
  uint8_t who;
  uint8_t arg[kStepLen - 2];

  bool Has(int i, uint8_t bit) const { return (arg[i] & bit) != 0; }
};

Step ReadStep(Input &input);

// LogLess keeps libcoap from printing every byte of a body, unless the texts are wanted (FUZZ_LOG).
void LogLess(CoapRpcCtx *ctx);

inline size_t SizeOf(const CoapBlock &block) { return size_t{16} << block.szx; }

// ChangedBlock is `block` with the number, the size or the "more" bit that a step puts in its
// place. `choice`: bits 0 to 2 which number (0: the same), 3: the other "more" bit, 4: the size in
// `number`'s high bits.
CoapBlock ChangedBlock(CoapBlock block, uint8_t choice, uint8_t number);

// TokenFor is a token of 0 to 8 bytes.
coap_rpc_test::Bytes TokenFor(uint8_t choice, uint8_t first);

// Bodies knows the bodies that peers send parts of.  What a callback is given must be one of them,
// from its beginning to where one of its last blocks ended.  No byte of a body is 0 or that of
// fresh memory, so a hole is a finding however it was filled.
class Bodies {
 public:
  // Part is `len` bytes of the body with that id, from `offset`; `isLast` says that it may end
  // there.
  coap_rpc_test::Bytes Part(uint32_t id, size_t offset, size_t len, bool isLast);

  // PartOf is the part that a block carries, with `len` bytes or, where `len` is 0, all of them.
  coap_rpc_test::Bytes PartOf(uint32_t id, const CoapBlock &block, size_t len);

  void CheckDelivered(const uint8_t *data, size_t len) const;

 private:
  enum class Kind { kWhole, kPart, kForeign };

  Kind KindOf(const coap_rpc_test::Bytes &data) const;

  std::map<uint32_t, std::set<size_t>> ends_;  // by id
  std::set<std::string> parts_;
};

// Scene is the library on a host, and what peers do to it, step by step.
class Scene {
 public:
  Scene(const Scene &) = delete;
  Scene &operator=(const Scene &) = delete;

  // Run plays the steps that the input holds.
  void Run(Input &input);

 protected:
  Scene();
  virtual ~Scene() = default;

  // Stop ends the library; for the destructor of the scene, whose callbacks are still called.
  void Stop();

  virtual void Play(const Step &step) = 0;
  virtual void TakeTurn() = 0;  // of the library, and of the peers after it

  Host host_;
  CoapRpcInitParam param_;
  CoapRpcCtx *ctx_;
};

// CheckSent looks for memory that nobody wrote in a message of the library's.
void CheckSent(const CoapMessage &message);

}  // namespace fuzz

#endif /* FUZZ_BLOCKS_H */
