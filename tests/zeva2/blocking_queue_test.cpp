#include "blocking_queue.h"

#include <gmock/gmock.h>

#include <future>
#include <thread>

namespace {

using qel::QueueResult;

TEST(BlockingQueue, AnswersAtOnceWithoutAWait) {
  std::vector<int> disposed;
  {
    qel::BlockingQueue<int> queue([&](int& item) { disposed.push_back(item); });
    int out = 0;
    EXPECT_EQ(queue.pop(out, false, 0, true), QueueResult::Empty);
    EXPECT_EQ(queue.push(1, 2, false, 0), QueueResult::Ok);
    EXPECT_EQ(queue.push(2, 2, true, 0), QueueResult::Ok);
    EXPECT_EQ(queue.push(3, 2, false, 0), QueueResult::Full);
    EXPECT_EQ(queue.push(3, 2, false, 1), QueueResult::Full);
    EXPECT_EQ(queue.push(3, 3, false, 0), QueueResult::Ok);  // each push has its own limit
    EXPECT_EQ(queue.pop(out, false, 0, false), QueueResult::Ok);
    EXPECT_EQ(queue.size(), 3);  // a look takes nothing away
    EXPECT_EQ(queue.pop(out, true, 0, true), QueueResult::Ok);
    EXPECT_EQ(out, 1);
    queue.abort();
    EXPECT_EQ(queue.push(5, qel::kUnbounded, true, 0), QueueResult::Aborted);
    EXPECT_EQ(queue.pop(out, false, 0, false), QueueResult::Aborted);
    EXPECT_EQ(queue.size(), 2);
  }
  EXPECT_THAT(disposed, testing::ElementsAre(2, 3));
}

TEST(BlockingQueue, AbortEndsEveryWait) {
  qel::BlockingQueue<int> full, empty;
  ASSERT_EQ(full.push(1, 1, false, 0), QueueResult::Ok);
  std::vector<std::future<QueueResult>> waits;
  for (const bool forever : {true, false}) {
    waits.push_back(std::async(std::launch::async,
                               [&full, forever] { return full.push(2, 1, forever, 1000000); }));
    waits.push_back(std::async(std::launch::async, [&empty, forever, out = 0]() mutable {
      return empty.pop(out, forever, 1000000, true);
    }));
  }
  full.abort();
  empty.abort();
  for (auto& wait : waits) EXPECT_EQ(wait.get(), QueueResult::Aborted);
}

TEST(BlockingQueue, HandsEveryItemToOneOfManyThreads) {
  constexpr int kItems = 3000, kThreads = 2, kEnd = -1;
  qel::BlockingQueue<int> queue;
  std::vector<std::future<std::vector<int>>> consumers;
  std::vector<std::thread> producers;
  for (int t = 0; t < kThreads; ++t) {
    consumers.push_back(std::async(std::launch::async, [&queue, t] {
      std::vector<int> got;
      for (int item = 0; item != kEnd;)
        if (queue.pop(item, t == 0, 1, true) == QueueResult::Ok) got.push_back(item);
      return got;
    }));
    producers.emplace_back([&queue, t] {
      for (int i = t; i < kItems; i += kThreads)
        while (queue.push(i, 3, t == 0, 1) == QueueResult::Full) EXPECT_LE(queue.size(), 3);
    });
  }
  for (std::thread& producer : producers) producer.join();
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(queue.push(kEnd, 3, true, 0), QueueResult::Ok);
  std::vector<int> seen(kItems + 1, 0);
  for (auto& consumer : consumers)
    for (const int item : consumer.get()) ++seen[static_cast<size_t>(item == kEnd ? kItems : item)];
  EXPECT_EQ(seen.back(), kThreads);
  seen.pop_back();
  EXPECT_THAT(seen, testing::Each(1));
}

}  // namespace
