#include "zv2_input_context.h"

#include <gtest/gtest.h>

#include "elementary.h"
#include "log_capture.h"

namespace {

using Stamps = std::vector<int64_t>;

bool push(zeva::InputQueue& queue, const std::string& packet, int64_t usec) {
  return queue.push_data(packet.data(), static_cast<int32_t>(packet.size()), usec);
}

TEST(InputQueue, SortsStampsAndMakesThemDiffer) {
  constexpr int64_t kMax = INT64_MAX;
  const std::pair<Stamps, Stamps> cases[] = {
      {{1000, 1000, 1000}, {1000, 1001, 1002}},
      {{10, 20, 30, 40, 60, 50, -5}, {10, -5, 20, 30, 40, 50, 60}},  // five wait for later ones
      {{kMax, INT64_MIN, kMax, kMax, kMax, kMax, kMax},
       {-kMax, kMax - 5, kMax - 4, kMax - 3, kMax - 2, kMax - 1, kMax}}};
  for (const auto& [pushed, queued] : cases) {
    zeva::InputQueue queue;
    for (const int64_t usec : pushed) EXPECT_TRUE(push(queue, "x", usec));
    EXPECT_EQ(queue.size(), pushed.size() > 5 ? 2 : 0);
    EXPECT_TRUE(queue.push_data(nullptr, 7, 0) && queue.push_data("x", 0, 0));
    for (const int64_t expected : queued) {
      qel::ZVMemNode* node = nullptr;
      int64_t pts = 0;
      ASSERT_EQ(queue.pop(node, false, 0, true), qel::QueueResult::Ok);
      ASSERT_EQ(queue.pts_queue.pop(pts, false, 0, true), qel::QueueResult::Ok);
      EXPECT_TRUE(node->pts == expected && pts == expected) << pts;
      qel::release_node(node);
    }
  }
}

TEST(InputQueue, FullQueueDropsTheOldestWithItsStamp) {
  const LogCapture log;
  zeva::InputQueue queue;
  for (int64_t usec = 0; usec < 2006; ++usec) EXPECT_TRUE(push(queue, "abc", usec));
  EXPECT_EQ(log.count("sort.queue.(sz=6);  drop front-node.(nbytes=3, usec=2000)"), 1);
  EXPECT_EQ(queue.pts_queue.size(), 2000);
  queue.abort();
  EXPECT_FALSE(push(queue, "abc", 3000));
}

using Deliveries = std::map<std::string, std::pair<std::string, Stamps>>;
int collect(AVPacket* packet, AVRational, const char* name, void* deliveries) {
  auto& [bytes, stamps] = (*static_cast<Deliveries*>(deliveries))[name];
  if (packet == nullptr) return 0;
  EXPECT_EQ(packet->duration, packet->pts - (stamps.empty() ? 0 : stamps.back()));
  EXPECT_TRUE(packet->dts == packet->pts && packet->stream_index == -1);
  bytes.append(reinterpret_cast<const char*>(packet->data), static_cast<size_t>(packet->size));
  stamps.push_back(packet->pts);
  return 0;
}

TEST(InputContext, EndsAtOnceWhileProbing) {
  const auto video = h264_packets(8);
  zeva::InputContext input;
  for (const std::string& packet : video) push(input.video, packet, &packet - video.data());
  const LogCapture log([&](const std::string& text) {
    if (text == "==> open audio input: aac") input.que_abort();
  });
  // No sound at all; the three pictures that have left the sorting are enough to know the stream.
  EXPECT_TRUE(input.open_inputs("aac", "h264").ok);
  Deliveries got;
  input.run_demux(collect, &got);
  EXPECT_TRUE(got["h264"].first == video[0] + video[1] + video[2]);
}

TEST(InputContext, ProbingOfGarbageEndsWithoutAnEndOfTheStream) {
  const std::string packet(60000, 'U');
  zeva::InputContext input;
  for (zeva::InputQueue* queue : {&input.audio, &input.video})
    for (int64_t i = 0; i < 300; ++i) EXPECT_TRUE(push(*queue, packet, -i));
  EXPECT_EQ(input.open_inputs("aac", "h264").code, -23);
}

}  // namespace
