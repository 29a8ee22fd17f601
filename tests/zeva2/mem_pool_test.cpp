#include "mem_pool.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

namespace {

using qel::release_node;
using qel::ZVMemNode;
using qel::ZVMemPool;

TEST(MemPool, SizeClasses) {
  // A block must leave 79 bytes beside the payload, or it gets 64 more. Capacity 0: refused.
  constexpr uint32_t kBig = 64 << 20;
  const struct {
    uint32_t size;
    int32_t headroom, capacity;
  } cases[] = {{0, 0, 512},        {433, 0, 512},   {434, 0, 2048},    {500, 0, 2048},
               {1969, 0, 2048},    {1970, 0, 4096}, {4017, 0, 4096},   {4018, 0, 4160},
               {4033, 0, 4160},    {4097, 0, 8192}, {8192, 0, 8256},   {kBig, 0, kBig + 64},
               {300, 133, 512},    {4095, 1, 4176}, {INT32_MAX, 0, 0}, {INT32_MAX, 1, 0},
               {UINT32_MAX, 1, 0}, {100, -1, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.size << " + " << c.headroom);
    ZVMemPool pool;
    ZVMemNode* node = pool.alloc(c.size, c.headroom);
    ASSERT_EQ(node != nullptr, c.capacity != 0);
    if (node == nullptr) continue;
    EXPECT_EQ(node->capacity, c.capacity);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(node->data) % 16, 0U);
    EXPECT_EQ(node->head, c.headroom > 0 ? node->data - c.headroom : nullptr);
    EXPECT_GE(node->data - c.headroom, reinterpret_cast<uint8_t*>(node) + 64);
    memset(node->data, 0xff, c.size);  // an address sanitizer sees a block that is too small
    release_node(node);
  }
}

TEST(MemPool, UsesTheOldestFreeBlockOfTheClassAgain) {
  ZVMemPool pool;
  pool.max_free = 2;
  ZVMemNode* nodes[] = {pool.alloc(100, 0), pool.alloc(100, 300), pool.alloc(100, 0)};
  nodes[0]->pts = 77;
  nodes[0]->refs = 2;
  release_node(nodes[0]);
  EXPECT_EQ(pool.counters().free_count, 0);  // somebody still has it
  for (ZVMemNode* node : nodes) release_node(node);
  release_node(nodes[0]);  // once too often, which must not put it there twice
  EXPECT_EQ(pool.counters().freed, 1);
  EXPECT_EQ(pool.counters().free_bytes, 2 * 512);
  ZVMemNode* again[] = {pool.alloc(1000, 0), pool.alloc(200, 0), pool.alloc(430, 0)};
  memset(again[2]->data, 0xff, 430);  // its payload began 304 bytes further in
  EXPECT_EQ(again[0]->id, 4);
  EXPECT_EQ(again[1]->pts, 77);
  EXPECT_EQ(again[2]->id, 2);
  for (ZVMemNode* node : again) release_node(node);

  testing::internal::CaptureStderr();
  release_node(new (malloc(64)) ZVMemNode{});
  release_node(nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "[ERROR] *** ZVMemNode's pool is NULL, exit\n");
}

TEST(MemPool, ThreadsShareBlocksAndNoneIsMadeOnceWarm) {
  constexpr int kThreads = 3, kHeld = 8;
  ZVMemPool pool;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&pool, t] {
      ZVMemNode* held[kHeld] = {};
      for (int i = 0; i < 1000; ++i) {
        ZVMemNode*& node = held[i % kHeld];
        EXPECT_TRUE(node == nullptr || (node->pts == t && node->data[node->size - 1] == t));
        release_node(node);
        node = pool.alloc(static_cast<uint32_t>(200 + 2000 * (i % 2)), 0);
        node->pts = t;
        memset(node->data, t, static_cast<size_t>(node->size));
      }
      for (ZVMemNode* node : held) release_node(node);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_LE(pool.counters().allocated, kThreads * kHeld);
  EXPECT_EQ(pool.counters().free_count, pool.counters().allocated);
}

}  // namespace
