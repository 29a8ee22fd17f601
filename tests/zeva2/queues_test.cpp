// The pool, the blocking queue and the packet queue on both.
#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <thread>

#include "zv_packet_queue.h"

namespace {

using qel::QueueResult;
using qel::release_node;
using qel::ZVMemNode;

TEST(MemPool, SizeClasses) {
  // A block must leave 79 bytes beside the payload, or it gets 64 more. Class 0: refused.
  const struct {
    uint32_t size;
    int32_t headroom, size_class;
  } cases[] = {{0, 0, 512},     {433, 0, 512},          {434, 0, 2048},    {1970, 0, 4096},
               {4018, 0, 4160}, {4033, 0, 4160},        {4097, 0, 8192},   {300, 133, 512},
               {4095, 1, 4176}, {1 << 26, 0, 67108928}, {INT32_MAX, 0, 0}, {UINT32_MAX, 1, 0}};
  for (const auto& c : cases) {
    qel::ZVMemPool pool;
    ZVMemNode* node = pool.alloc(c.size, c.headroom);
    EXPECT_EQ(node != nullptr ? node->capacity : 0, c.size_class) << c.size;
    if (node == nullptr) continue;
    memset(node->data, 0xff, c.size);  // an address sanitizer sees a block that is too small
    release_node(node);
  }
}

TEST(MemPool, UsesTheOldestFreeBlockOfTheClassAgain) {
  qel::ZVMemPool pool;
  pool.max_free = 2;
  ZVMemNode* nodes[] = {pool.alloc(100, 0), pool.alloc(100, 300), pool.alloc(100, 0)};
  nodes[0]->refs = 2;
  release_node(nodes[0]);
  EXPECT_EQ(pool.counters().free_count, 0);  // somebody still has it
  for (ZVMemNode* node : nodes) release_node(node);
  release_node(nodes[0]);  // once too often, which must not put it there twice
  EXPECT_EQ(pool.counters().freed, 1);
  EXPECT_EQ(pool.counters().free_bytes, 2 * 512);
  ZVMemNode* again[] = {pool.alloc(200, 0), pool.alloc(430, 0), pool.alloc(0, 0)};
  for (int i : {0, 1}) EXPECT_EQ(again[i]->id, i + 1);
  memset(again[1]->data, 0xff, 430);  // its payload began 304 bytes further in
  for (ZVMemNode* node : again) release_node(node);
}

TEST(BlockingQueue, AnswersAtOnceWithoutAWait) {
  qel::BlockingQueue<int> queue;
  int out = 0;
  EXPECT_EQ(queue.pop(out, false, 0, true), QueueResult::Empty);
  EXPECT_EQ(queue.push(1, 1, false, 0), QueueResult::Ok);
  for (const uint32_t wait_ms : {0U, 1U})
    EXPECT_EQ(queue.push(2, 1, false, wait_ms), QueueResult::Full);
  EXPECT_EQ(queue.push(2, 2, true, 0), QueueResult::Ok);  // each push has its own limit
  for (const bool remove : {false, true, true})
    EXPECT_EQ(queue.pop(out, false, 0, remove), QueueResult::Ok);
  EXPECT_EQ(out, 2);  // a look takes nothing away
  EXPECT_EQ(queue.push(3, 1, false, 0), QueueResult::Ok);
  std::thread waiting([&] { EXPECT_EQ(queue.push(4, 1, true, 0), QueueResult::Aborted); });
  queue.abort();
  waiting.join();
  EXPECT_EQ(queue.pop(out, false, 0, false), QueueResult::Aborted);
}

TEST(BlockingQueue, ManyThreadsGetEveryItemOnceAndAbortEndsTheirWaits) {
  constexpr int kItems = 3000, kThreads = 2, kLimit = 3;
  qel::ZVPacketQueue queue;
  std::vector<std::atomic<int>> seen(kItems);
  std::atomic<int> left{kItems};
  std::promise<void> all;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {  // one waits for as long as it takes, one briefly
    threads.emplace_back([&, t] {
      for (QueueResult result{}; result != QueueResult::Aborted;) {
        ZVMemNode* node = nullptr;
        result = queue.pop(node, t == 0, 1, true);
        if (result != QueueResult::Ok) continue;
        ++seen[static_cast<size_t>(node->pts)];
        release_node(node);
        if (--left == 0) all.set_value();
      }
    });
    threads.emplace_back([&, t] {
      for (int i = t; i < kItems; i += kThreads) {
        ZVMemNode* node = queue.alloc_node(static_cast<uint32_t>(i % 3000));
        node->pts = i;
        while (queue.push(node, kLimit, t == 0, 1) != QueueResult::Ok) EXPECT_LE(queue.size(), 3);
      }
    });
  }
  all.get_future().wait();
  queue.abort();
  for (std::thread& thread : threads) thread.join();
  for (const std::atomic<int>& times : seen) EXPECT_EQ(times, 1);
  // Of three classes, what can be queued and held at the same time.
  EXPECT_LE(queue.pool_counters().allocated, 3 * (kLimit + 2 * kThreads));
}

TEST(PacketQueue, CountsItsBytesAndTakesNothingOnceAborted) {
  qel::ZVPacketQueue queue;
  for (const uint32_t bytes : {3U, 10U}) {
    ASSERT_EQ(queue.push(queue.alloc_node(bytes, 32), 2, false, 0), QueueResult::Ok);
  }
  EXPECT_EQ(queue.queued_bytes(), 3 + 10 + 2 * 64);
  ZVMemNode* node = nullptr;
  ASSERT_EQ(queue.pop(node, false, 0, true), QueueResult::Ok);
  EXPECT_EQ(node->data - node->head, 32);
  release_node(node);
  EXPECT_EQ(queue.queued_bytes(), 10 + 64);
  queue.abort();
  EXPECT_EQ(queue.alloc_node(1), nullptr);
}

}  // namespace
