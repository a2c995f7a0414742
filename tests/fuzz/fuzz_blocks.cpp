#include "fuzz_blocks.h"

#include <algorithm>
#include <iterator>

#include "coap_svc/rpc/coap_rpc_ext.h"
#include "coap_svc/rpc/libadapter/coap_rpc_lib_ctx.h"
#include "fresh_memory.h"
#include "fuzz_tables.h"
#include "test_process.h"

namespace fuzz {
namespace {

using coap_rpc_test::Bytes;

constexpr size_t kUnit = 16;  // the smallest block
constexpr uint8_t kMaxSzx = 6;
constexpr uint8_t kReservedSzx = 7;
constexpr uint8_t kRare = 0xF8;  // from here a choice is one of the rare ones

uint8_t ByteAt(uint32_t id, size_t offset) {
  const uint32_t mixed = (id * 0x9E3779B9u + static_cast<uint32_t>(offset / kUnit)) * 0x85EBCA6Bu;
  return static_cast<uint8_t>(0x20 + (mixed >> 24) % 0x60);
}

bool IsBeginOf(uint32_t id, const Bytes &data) {
  for (size_t i = 0; i < data.size(); ++i) {
    if (data[i] != ByteAt(id, i)) return false;
  }
  return true;
}

uint8_t SzxFor(uint8_t choice) {
  return choice >= kRare ? kReservedSzx : static_cast<uint8_t>((choice >> 4) % (kMaxSzx + 1));
}

uint32_t NumFor(uint32_t num, uint8_t choice, uint8_t number) {
  switch (choice) {
    case 0:
      return num;
    case 1:
      return 0;
    case 2:
      return 1;
    case 3:
      return num + 1;
    case 4:
      return num != 0 ? num - 1 : 0;
    default:
      return number & 0x0F;
  }
}

}  // namespace

Step ReadStep(Input &input) {
  Step step = {};
  step.kind = input.Byte();
  step.who = input.Byte();
  for (uint8_t &arg : step.arg) arg = input.Byte();
  return step;
}

void LogLess(CoapRpcCtx *ctx) {
  constexpr uint32_t kWithoutMessages = 6;
  if (!getenv("FUZZ_LOG")) COAP_RpcSetLibLogLevel(ctx, kWithoutMessages);
}

CoapBlock ChangedBlock(CoapBlock block, uint8_t choice, uint8_t number) {
  block.num = NumFor(block.num, choice & 7, number);
  if ((choice & 0x08) != 0) block.more = !block.more;
  if ((choice & 0x10) != 0) block.szx = SzxFor(number);
  return block;
}

Bytes TokenFor(uint8_t choice, uint8_t first) {
  constexpr size_t kMaxLen = 8;
  return Bytes(choice % (kMaxLen + 1), first);
}

Bytes Bodies::Part(uint32_t id, size_t offset, size_t len, bool isLast) {
  Bytes part(len);
  for (size_t i = 0; i < len; ++i) part[i] = ByteAt(id, offset + i);
  std::set<size_t> &ends = ends_[id];
  if (isLast) ends.insert(offset + len);
  parts_.emplace(part.begin(), part.end());
  return part;
}

Bytes Bodies::PartOf(uint32_t id, const CoapBlock &block, size_t len) {
  const size_t size = SizeOf(block);
  return Part(id, block.num * size, len != 0 ? std::min(len, size) : size, !block.more);
}

Bodies::Kind Bodies::KindOf(const Bytes &data) const {
  const bool isWhole = std::any_of(ends_.begin(), ends_.end(), [&](const auto &sent) {
    return sent.second.count(data.size()) != 0 && IsBeginOf(sent.first, data);
  });
  if (isWhole) return Kind::kWhole;
  return parts_.count({data.begin(), data.end()}) != 0 ? Kind::kPart : Kind::kForeign;
}

void Bodies::CheckDelivered(const uint8_t *data, size_t len) const {
  if (len == 0) return;
  const Kind kind = KindOf(Bytes(data, data + len));
  Check(kind != Kind::kPart, "a part of a body was taken for all of it");
  Check(kind == Kind::kWhole, "a body that nobody sent");
}

void CheckSent(const CoapMessage &message) {
  const Bytes &payload = message.payload;
  Check(std::find(payload.begin(), payload.end(), coap_rpc_test::kFreshByte) == payload.end(),
        "a message with memory that nobody wrote");
}

Scene::Scene() : param_(host_.Param()), ctx_(COAP_RpcInit(&param_)) {
  Check(ctx_, "no instance");
  LogLess(ctx_);
}

void Scene::Stop() {
  Check(ctx_->ioDepth == 0, "the I/O is still running");
  Check(coap_rpc_test::TestProcess::Get().Asserts().empty(), "an assertion was recorded");
  COAP_RpcUninit(ctx_);
}

void Scene::Run(Input &input) {
  constexpr uint8_t kAtOnce = 0x80;  // the next step's datagram is taken in the same turn
  for (int i = 0; i < kMaxSteps && !input.IsEmpty(); ++i) {
    const Step step = ReadStep(input);
    Play(step);
    if ((step.kind & kAtOnce) == 0) TakeTurn();
  }
  TakeTurn();
}

}  // namespace fuzz
