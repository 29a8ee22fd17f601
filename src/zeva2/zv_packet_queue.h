// A queue of memory nodes that can be read as a stream of bytes.
#pragma once

#include <cstdint>
#include <memory>

#include "blocking_queue.h"
#include "mem_pool.h"

namespace qel {

// Owns the nodes in it, and its pool unless it was given one. A null node marks the end of the
// stream. Any thread may push and pop; `read` and `take_pending` belong to one reading thread.
class ZVPacketQueue : public BlockingQueue<ZVMemNode*> {
 public:
  // A given pool must outlive the queue.
  explicit ZVPacketQueue(ZVMemPool* external_pool = nullptr);
  ~ZVPacketQueue() override;

  // A node of the queue's pool; null when the queue was aborted or there is no memory.
  [[nodiscard]] ZVMemNode* alloc_node(uint32_t size);

  // Copies exactly `want` bytes to `buffer`. When they do not come within the allowed wait, or the
  // stream ends, the result is `Empty` and what there was stays for the next `read` or
  // `take_pending`. The end of the stream aborts the queue.
  [[nodiscard]] QueueResult read(uint8_t* buffer, int32_t want, bool wait_forever,
                                 uint32_t timeout_ms);

  // Moves what an unfinished `read` left to `buffer`; returns the number of bytes, at most `size`.
  int32_t take_pending(uint8_t* buffer, int32_t size);

  int64_t queued_bytes();
  PoolCounters pool_counters() { return pool->counters(); }

 protected:
  void on_pushed(ZVMemNode*& node) override;
  void on_popped(ZVMemNode*& node) override;
  void on_clear() override;

 private:
  // The rest of a node that was read in part.
  struct Pending {
    int32_t remaining = 0;
    int32_t offset = 0;
    ZVMemNode* node = nullptr;
  };

  int32_t take_node(ZVMemNode* node, uint8_t* buffer, int32_t room);
  void keep_pending(const uint8_t* data, int32_t size_bytes);
  void drop_pending();

  const std::unique_ptr<ZVMemPool> own_pool;
  ZVMemPool* const pool;
  int64_t bytes = 0;  // guarded by mutex: payloads and headers of the queued nodes
  Pending pending;    // reading thread only
};

}  // namespace qel
