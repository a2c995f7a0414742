#include "coap_svc/rpc/libadapter/direct/coap_rpc_lib_byte_queue.h"

#include "coap_svc/rpc/common/coap_rpc_own.h"

namespace coap_rpc {

// ByteSegment is the head of a segment, its records are behind it.
struct ByteSegment {
  ByteSegment *next;
  uint32_t begin;  // of its oldest record; it has one
  uint32_t end;

  uint8_t *At(uint32_t place) { return reinterpret_cast<uint8_t *>(this + 1) + place; }
};
static_assert(sizeof(ByteSegment) % kRecordAlign == 0);

namespace {

// A small instance pays for few, a busy one seldom asks for another.
constexpr size_t kSegmentBytes = 32768;
constexpr size_t kSegmentRoom = kSegmentBytes - sizeof(ByteSegment);

constexpr uint32_t Aligned(size_t size) {
  return static_cast<uint32_t>((size + kRecordAlign - 1) / kRecordAlign * kRecordAlign);
}

bool HasRoom(const ByteSegment *segment, uint32_t size) {
  return segment && segment->end + size <= kSegmentRoom;
}

bool AddSegment(uint64_t mem, ByteQueue &queue) {
  auto *segment = static_cast<ByteSegment *>(PoolAlloc(mem, kSegmentBytes));
  if (!segment) return false;
  (queue.newest ? queue.newest->next : queue.oldest) = segment;
  queue.newest = segment;
  return true;
}

void DropOldestSegment(uint64_t mem, ByteQueue &queue) {
  ByteSegment *segment = queue.oldest;
  queue.oldest = segment->next;
  if (!queue.oldest) queue.newest = nullptr;
  PoolFree(mem, segment);
}

}  // namespace

void *PushBytes(uint64_t mem, ByteQueue &queue, size_t size) {
  const uint32_t bytes = Aligned(size);
  if (bytes > kSegmentRoom) return nullptr;
  if (!HasRoom(queue.newest, bytes) && !AddSegment(mem, queue)) return nullptr;
  ByteSegment *segment = queue.newest;
  segment->end += bytes;
  return segment->At(segment->end - bytes);
}

void *FirstBytes(const ByteQueue &queue) {
  return queue.oldest ? queue.oldest->At(queue.oldest->begin) : nullptr;
}

void PopBytes(uint64_t mem, ByteQueue &queue, size_t size) {
  ByteSegment *segment = queue.oldest;
  segment->begin += Aligned(size);
  if (segment->begin == segment->end) DropOldestSegment(mem, queue);
}

}  // namespace coap_rpc
