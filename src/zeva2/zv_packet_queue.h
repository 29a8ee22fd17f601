// A queue of memory nodes.
#pragma once

#include <cstdint>
#include <memory>

#include "blocking_queue.h"
#include "mem_pool.h"

namespace qel {

// Owns the nodes in it, and its pool unless it was given one. A null node marks the end of the
// stream. Any thread may push and pop.
class ZVPacketQueue : public BlockingQueue<ZVMemNode*> {
 public:
  // A given pool must outlive the queue.
  explicit ZVPacketQueue(ZVMemPool* external_pool = nullptr);
  ~ZVPacketQueue() override;

  // A node of the queue's pool, with `headroom` bytes in front of its payload; null when the queue
  // was aborted or there is no memory.
  [[nodiscard]] ZVMemNode* alloc_node(uint32_t size, int32_t headroom = 0);

  int64_t queued_bytes();
  PoolCounters pool_counters() { return pool->counters(); }

 protected:
  void on_pushed(ZVMemNode*& node) override;
  void on_popped(ZVMemNode*& node) override;
  void on_clear() override;

 private:
  const std::unique_ptr<ZVMemPool> own_pool;
  ZVMemPool* const pool;
  int64_t bytes = 0;  // guarded by mutex: payloads and headers of the queued nodes
};

}  // namespace qel
