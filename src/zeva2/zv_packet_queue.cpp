#include "zv_packet_queue.h"

#include <algorithm>
#include <cstring>

#include "elapsed.h"

namespace qel {

ZVPacketQueue::ZVPacketQueue(ZVMemPool* external_pool)
    : BlockingQueue(release_node),
      own_pool(external_pool == nullptr ? std::make_unique<ZVMemPool>() : nullptr),
      pool(external_pool == nullptr ? own_pool.get() : external_pool) {}

// The nodes go before the pool that they lie in.
ZVPacketQueue::~ZVPacketQueue() { clear(); }

ZVMemNode* ZVPacketQueue::alloc_node(uint32_t size) {
  {
    const std::lock_guard<std::mutex> lock(mutex);
    if (is_aborted()) return nullptr;
  }
  return pool->alloc(size, 0);
}

QueueResult ZVPacketQueue::read(uint8_t* buffer, int32_t want, bool wait_forever,
                                uint32_t timeout_ms) {
  if (want < 1) return QueueResult::Invalid;
  int32_t copied = take_pending(buffer, want);
  const zeva::Elapsed elapsed;
  uint32_t wait_ms = timeout_ms;
  while (copied < want) {
    ZVMemNode* node = nullptr;
    const QueueResult popped = pop(node, wait_forever, wait_ms, true);
    if (popped != QueueResult::Ok) {
      // `Interrupted` included: no byte may be lost.
      keep_pending(buffer, copied);
      return popped;
    }
    if (node == nullptr) {
      keep_pending(buffer, copied);
      abort();
      return QueueResult::Empty;
    }
    copied += take_node(node, buffer + copied, want - copied);
    wait_ms = elapsed.ms() < timeout_ms ? timeout_ms : 0;
  }
  return QueueResult::Ok;
}

int32_t ZVPacketQueue::take_pending(uint8_t* buffer, int32_t size) {
  const int32_t taken = std::min(pending.remaining, size);
  if (taken < 1) return 0;
  memcpy(buffer, pending.node->data + pending.offset, static_cast<size_t>(taken));
  pending.offset += taken;
  pending.remaining -= taken;
  if (pending.remaining == 0) drop_pending();
  return taken;
}

// Copies what fits of a popped node and keeps the rest of it.
int32_t ZVPacketQueue::take_node(ZVMemNode* node, uint8_t* buffer, int32_t room) {
  drop_pending();
  pending = {node->size, 0, node};
  if (node->size == 0) drop_pending();
  return take_pending(buffer, room);
}

void ZVPacketQueue::keep_pending(const uint8_t* data, int32_t size_bytes) {
  if (size_bytes < 1) return;
  ZVMemNode* node = pool->alloc(static_cast<uint32_t>(size_bytes), 0);
  if (node == nullptr) return;
  memcpy(node->data, data, static_cast<size_t>(size_bytes));
  pending = {size_bytes, 0, node};
}

void ZVPacketQueue::drop_pending() {
  release_node(pending.node);
  pending = {};
}

int64_t ZVPacketQueue::queued_bytes() {
  const std::lock_guard<std::mutex> lock(mutex);
  return bytes;
}

void ZVPacketQueue::on_pushed(ZVMemNode*& node) {
  if (node != nullptr) bytes += int64_t{node->size} + kNodeHeaderBytes;
}

void ZVPacketQueue::on_popped(ZVMemNode*& node) {
  if (node != nullptr) bytes -= int64_t{node->size} + kNodeHeaderBytes;
}

void ZVPacketQueue::on_clear() {
  bytes = 0;
  drop_pending();
}

}  // namespace qel
