#include "mem_pool.h"

#include <algorithm>
#include <cstdlib>
#include <new>

#include "clock.h"
#include "logger.h"

namespace qel {

namespace {

constexpr int64_t kPageBytes = 4096;
// Room that a block must have beyond header and payload for aligning, or it is made larger.
constexpr int64_t kSlackBytes = kNodeHeaderBytes - 1;

int64_t round_up(int64_t value, int64_t step) { return (value + step - 1) / step * step; }

int64_t class_of(int64_t bytes, int64_t step) {
  if (bytes <= 2048) return 2048;
  if (bytes <= kPageBytes) return kPageBytes;
  return round_up(bytes, step);
}

}  // namespace

ZVMemPool::ZVMemPool() : free_lists(8) { free_lists.max_load_factor(1.0F); }

ZVMemPool::~ZVMemPool() {
  for (const auto& [block_class, nodes] : free_lists) {
    for (ZVMemNode* node : nodes) free(node);
  }
}

ZVMemNode* ZVMemPool::alloc(uint32_t size, int32_t headroom) {
  const int64_t total = int64_t{size} + headroom;
  if (headroom < 0 || total > INT32_MAX) return nullptr;
  const int64_t block_class = size_class(total, headroom);
  if (block_class > INT32_MAX) return nullptr;

  const std::lock_guard<std::mutex> guard(list_mutex);
  ZVMemNode* node = take_free_locked(static_cast<int32_t>(block_class));
  if (node == nullptr) node = make_block_locked(static_cast<int32_t>(block_class), headroom);
  if (node == nullptr) return nullptr;
  // A block that was made for a larger headroom has its payload further in.
  if (!payload_fits(node, size)) place_payload(node, headroom);
  node->size = static_cast<int32_t>(size);
  node->stamp = static_cast<int32_t>(zeva::calendar_seconds());
  node->reserved = 0;
  node->refs = 1;
  return node;
}

int64_t ZVMemPool::size_class(int64_t total, int32_t headroom) const {
  int64_t block_class = total <= 512 ? 512 : class_of(total, kPageBytes);
  // Large blocks grow by the header only, not by another page: deliberate.
  if (block_class - total < alignment + kSlackBytes) {
    block_class = class_of(block_class + kNodeHeaderBytes, alignment);
  }
  // What a headroom loses by being aligned, and an alignment beyond malloc's.
  const int64_t malloc_alignment = alignof(std::max_align_t);
  const int64_t lost =
      round_up(headroom, alignment) - headroom + std::max<int64_t>(alignment - malloc_alignment, 0);
  return std::max(block_class, round_up(kNodeHeaderBytes + total + lost, alignment));
}

ZVMemNode* ZVMemPool::take_free_locked(int32_t block_class) {
  const auto list = free_lists.find(block_class);
  if (list == free_lists.end() || list->second.empty()) return nullptr;
  ZVMemNode* node = list->second.front();
  list->second.pop_front();
  forget_free_locked(node);
  return node;
}

ZVMemNode* ZVMemPool::make_block_locked(int32_t block_class, int32_t headroom) {
  void* block = malloc(static_cast<size_t>(block_class));
  if (block == nullptr) return nullptr;
  auto* node = new (block) ZVMemNode{};
  node->id = ++count.allocated;
  node->capacity = block_class;
  node->pool = this;
  place_payload(node, headroom);
  return node;
}

void ZVMemPool::place_payload(ZVMemNode* node, int32_t headroom) const {
  const auto start =
      reinterpret_cast<uintptr_t>(node) + kNodeHeaderBytes + static_cast<uintptr_t>(headroom);
  const uintptr_t mask = alignment - 1;
  node->data = reinterpret_cast<uint8_t*>((start + mask) & ~mask);
  node->head = headroom > 0 ? node->data - headroom : nullptr;
}

bool ZVMemPool::payload_fits(const ZVMemNode* node, int64_t size) {
  return node->data - reinterpret_cast<const uint8_t*>(node) + size <= node->capacity;
}

void ZVMemPool::recycle(ZVMemNode* node) {
  if (node == nullptr || node->refs < 1) return;
  if (--node->refs > 0) return;
  if (release_hook) release_hook(node);
  const std::lock_guard<std::mutex> guard(list_mutex);
  if (max_free < 0 || count.free_count < max_free) {
    keep_locked(node);
    return;
  }
  free_block_locked(node);
  trim_locked();
}

void ZVMemPool::keep_locked(ZVMemNode* node) {
  node->size = 0;
  free_lists[node->capacity].push_back(node);
  count.free_bytes += node->capacity;
  ++count.free_count;
}

void ZVMemPool::free_block_locked(ZVMemNode* node) {
  free(node);
  ++count.freed;
}

void ZVMemPool::forget_free_locked(const ZVMemNode* node) {
  --count.free_count;
  count.free_bytes = std::max<int64_t>(count.free_bytes - node->capacity, 0);
}

// Only finds something to do when the limit was lowered.
void ZVMemPool::trim_locked() {
  for (auto& [block_class, nodes] : free_lists) {
    while (count.free_count > max_free && !nodes.empty()) {
      ZVMemNode* node = nodes.front();
      nodes.pop_front();
      forget_free_locked(node);
      free_block_locked(node);
    }
  }
}

PoolCounters ZVMemPool::counters() {
  const std::lock_guard<std::mutex> guard(list_mutex);
  return count;
}

void release_node(ZVMemNode* node) {
  if (node == nullptr) return;
  iMemNodePool* const pool = node->pool;
  if (pool == nullptr) {
    zeva::err_print(stderr, "[ERROR] *** ZVMemNode's pool is NULL, exit\n");
    free(node);
    return;
  }
  const std::lock_guard<iMemNodePool> guard(*pool);
  if (node->refs < 1) {
    node->refs = 0;
  } else if (node->refs > 1) {
    --node->refs;
  } else {
    pool->recycle(node);
  }
}

}  // namespace qel
