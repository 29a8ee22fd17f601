// Memory blocks that are used again instead of going back to the heap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <unordered_map>

namespace qel {

class iMemNodePool;

// The header at the start of a block; the payload follows it in the same block. Whoever holds a
// reference may use all of it but `refs`, which is guarded by the pool's lock.
struct ZVMemNode {
  uint8_t* data;     // start of the payload
  uint8_t* head;     // start of the headroom before it, null without
  int32_t size;      // of the payload, as asked for
  int64_t pts;       // of the packet in it, microseconds
  int64_t reserved;  // 0
  int32_t id;        // the pool's n-th block
  int32_t capacity;  // of the block, this header included
  int32_t refs;
  int32_t stamp;  // seconds since 1970 at the last allocation, low 32 bits
  iMemNodePool* pool;
};
inline constexpr int32_t kNodeHeaderBytes = 64;
static_assert(sizeof(ZVMemNode) <= kNodeHeaderBytes, "the payload starts right behind it");

class iMemNodePool {
 public:
  virtual void lock() = 0;
  virtual void unlock() = 0;
  virtual void recycle(ZVMemNode* node) = 0;

 protected:
  ~iMemNodePool() = default;
};

// Drops a reference; the last one gives the block back to its pool. Any thread; null is ignored.
void release_node(ZVMemNode* node);

struct PoolCounters {
  int32_t allocated = 0;   // blocks obtained from the heap
  int32_t freed = 0;       // blocks given back to the heap
  int32_t free_count = 0;  // blocks kept for use
  int64_t free_bytes = 0;  // their capacities
};

// Blocks sorted by size class. Keeps every block it ever made (unless `max_free` says otherwise)
// and frees them when it is destroyed, by when all must have been released. Any thread may call
// anything.
class ZVMemPool : public iMemNodePool {
 public:
  ZVMemPool();
  virtual ~ZVMemPool();
  ZVMemPool(const ZVMemPool&) = delete;
  ZVMemPool& operator=(const ZVMemPool&) = delete;

  // A block with one reference, and room for `size` bytes after `headroom` bytes. Null when that is
  // more than a block can be, or there is no memory.
  [[nodiscard]] ZVMemNode* alloc(uint32_t size, int32_t headroom);

  void lock() override { node_mutex.lock(); }
  void unlock() override { node_mutex.unlock(); }
  // Drops a reference, with the pool locked by the caller.
  void recycle(ZVMemNode* node) override;

  PoolCounters counters();

  // Fixed before the first call of `alloc`.
  uint32_t alignment = 16;                       // of the payload; a power of two
  int32_t max_free = -1;                         // free blocks kept at most; negative: all
  std::function<void(ZVMemNode*)> release_hook;  // sees every block before it is kept or freed

 private:
  int64_t size_class(int64_t total, int32_t headroom) const;
  ZVMemNode* take_free_locked(int32_t block_class);
  ZVMemNode* make_block_locked(int32_t block_class, int32_t headroom);
  void place_payload(ZVMemNode* node, int32_t headroom) const;
  static bool payload_fits(const ZVMemNode* node, int64_t size);
  void keep_locked(ZVMemNode* node);
  void free_block_locked(ZVMemNode* node);
  void forget_free_locked(const ZVMemNode* node);
  void trim_locked();

  std::recursive_mutex node_mutex;  // reference counts; taken before list_mutex
  std::mutex list_mutex;

  // Guarded by list_mutex.
  std::unordered_map<int32_t, std::deque<ZVMemNode*>> free_lists;
  PoolCounters count;
};

}  // namespace qel
