#include "zv_packet_queue.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>

#include "elementary.h"

namespace {

using qel::QueueResult;
using qel::ZVPacketQueue;

bool push(ZVPacketQueue& queue, const std::string& bytes, int32_t capacity = qel::kUnbounded) {
  qel::ZVMemNode* node = queue.alloc_node(static_cast<uint32_t>(bytes.size()));
  if (node == nullptr) return false;
  memcpy(node->data, bytes.data(), bytes.size());
  return queue.push(node, capacity, true, 0) == QueueResult::Ok;
}

TEST(PacketByteStream, ReadsAcrossPacketsAndKeepsWhatIsTooLittle) {
  ZVPacketQueue queue;
  std::string out(64, '\0');
  auto* buffer = reinterpret_cast<uint8_t*>(out.data());
  EXPECT_EQ(queue.read(buffer, 0, false, 0), QueueResult::Invalid);
  EXPECT_EQ(queue.read(buffer, 1, false, 0), QueueResult::Empty);
  push(queue, "abc");
  push(queue, "0123456789");
  EXPECT_EQ(queue.queued_bytes(), 3 + 10 + 2 * 64);

  EXPECT_EQ(queue.read(buffer, 8, false, 0), QueueResult::Ok);
  EXPECT_EQ(out.substr(0, 8), "abc01234");
  EXPECT_EQ(queue.queued_bytes(), 0);
  EXPECT_EQ(queue.read(buffer, 2, false, 0), QueueResult::Ok);
  EXPECT_EQ(out.substr(0, 2), "56");
  EXPECT_EQ(queue.read(buffer, 9, false, 1), QueueResult::Empty);  // 789 stay
  push(queue, "");
  push(queue, "defghi");
  EXPECT_EQ(queue.read(buffer, 9, false, 0), QueueResult::Ok);
  EXPECT_EQ(out.substr(0, 9), "789defghi");

  push(queue, "end");
  ASSERT_EQ(queue.push(nullptr, qel::kUnbounded, false, 0), QueueResult::Ok);
  EXPECT_EQ(queue.read(buffer, 9, true, 0), QueueResult::Empty);
  EXPECT_TRUE(queue.is_aborted());
  EXPECT_EQ(queue.take_pending(buffer, 64), 3);  // the last bytes of a recording are not lost
  EXPECT_EQ(out.substr(0, 3), "end");
  EXPECT_EQ(queue.read(buffer, 1, true, 0), QueueResult::Aborted);
  EXPECT_EQ(queue.alloc_node(1), nullptr);
}

TEST(PacketByteStream, ArrivesWholeOnAnotherThread) {
  const std::string sent = garbage(200000, 1);
  ZVPacketQueue queue;
  std::thread producer([&] {
    for (size_t at = 0, n = 1; at < sent.size(); at += n, n = n * 7 % 2000 + 1)
      EXPECT_TRUE(push(queue, sent.substr(at, n), 4));
    EXPECT_EQ(queue.push(nullptr, 4, true, 0), QueueResult::Ok);
  });
  std::string got;
  uint8_t buffer[3000];
  QueueResult result = QueueResult::Ok;
  for (int32_t want = 1; !queue.is_aborted(); want = want * 3 % 2999 + 1) {
    result = queue.read(buffer, want, want % 2 == 0, 1);
    const int32_t size = result == QueueResult::Ok ? want : queue.take_pending(buffer, want);
    got.append(reinterpret_cast<const char*>(buffer), static_cast<size_t>(size));
  }
  producer.join();
  EXPECT_EQ(got, sent);
  EXPECT_LE(queue.pool_counters().allocated, 40);
}

}  // namespace
