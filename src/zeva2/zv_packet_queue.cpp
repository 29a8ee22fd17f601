#include "zv_packet_queue.h"

namespace qel {

ZVPacketQueue::ZVPacketQueue(ZVMemPool* external_pool)
    : BlockingQueue(release_node),
      own_pool(external_pool == nullptr ? std::make_unique<ZVMemPool>() : nullptr),
      pool(external_pool == nullptr ? own_pool.get() : external_pool) {}

// The nodes go before the pool that they lie in.
ZVPacketQueue::~ZVPacketQueue() { clear(); }

ZVMemNode* ZVPacketQueue::alloc_node(uint32_t size, int32_t headroom) {
  {
    const std::lock_guard<std::mutex> lock(mutex);
    if (is_aborted()) return nullptr;
  }
  return pool->alloc(size, headroom);
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

void ZVPacketQueue::on_clear() { bytes = 0; }

}  // namespace qel
