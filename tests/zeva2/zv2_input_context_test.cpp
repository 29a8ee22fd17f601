#include "zv2_input_context.h"

#include <gtest/gtest.h>

#include "clock.h"
#include "elementary.h"
#include "log_capture.h"
#include "zeva/status.h"

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
      ASSERT_EQ(queue.pop(node, false, 0, true), qel::QueueResult::Ok);
      EXPECT_EQ(node->pts, expected);
      EXPECT_EQ(zeva::InputQueue::times_of(*node).dts, expected);
      qel::release_node(node);
    }
  }
}

TEST(InputQueue, DropsTheOldestWhenItIsFull) {
  const LogCapture log;
  zeva::InputQueue queue;
  for (int64_t usec = 0; usec < 2006; ++usec) EXPECT_TRUE(push(queue, "abc", usec));
  EXPECT_EQ(log.count("sort.queue.(sz=6);  drop front-node.(nbytes=3, usec=2000)"), 1);
  EXPECT_EQ(queue.size(), 2000);
  queue.abort();
  EXPECT_FALSE(push(queue, "abc", 3000));
}

// A picture whose slices come one by one is one packet, as long as it is being sorted.
TEST(InputQueue, AppendsToTheNewestPacketOnly) {
  zeva::InputQueue queue;
  EXPECT_FALSE(queue.append_to_newest("x", 1));
  for (const int64_t usec : {20, 10}) push(queue, std::to_string(usec), usec);
  EXPECT_TRUE(queue.append_to_newest("bc", 2) && queue.append_to_newest("d", 1));
  queue.push_data(nullptr, 0, 0);
  EXPECT_FALSE(queue.append_to_newest("x", 1));
  for (const std::string expected : {"10bcd", "20"}) {
    qel::ZVMemNode* node = nullptr;
    ASSERT_EQ(queue.pop(node, false, 0, true), qel::QueueResult::Ok);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(node->data), static_cast<size_t>(node->size)),
              expected);
    qel::release_node(node);
  }
}

// A still screen has no five later pictures for a long time.
TEST(InputQueue, LetsGoOfWhatIsSortedForHalfASecond) {
  zeva::InputSignal signal;
  zeva::InputQueue queue;
  queue.set_signal(&signal);
  EXPECT_EQ(queue.release_due(), -1);
  const int64_t begin_us = zeva::steady_us();
  for (const int64_t usec : {50, 10}) push(queue, "x", usec);
  for (int64_t left = queue.release_due(); left != 0; left = queue.release_due()) {
    ASSERT_GT(left, 0);
    signal.wait(left);
  }
  EXPECT_EQ(queue.size(), 2);  // the one that came first takes along what is before it
  EXPECT_GE(zeva::steady_us() - begin_us, 490000);
}

using Deliveries = std::map<std::string, std::pair<std::string, Stamps>>;
int collect(AVPacket* packet, AVRational, const char* name, void* deliveries) {
  auto& [bytes, stamps] = (*static_cast<Deliveries*>(deliveries))[name];
  if (packet == nullptr) return 0;
  EXPECT_EQ(packet->stream_index, -1);
  bytes.append(reinterpret_cast<const char*>(packet->data), static_cast<size_t>(packet->size));
  stamps.push_back(packet->pts);
  return 0;
}

TEST(InputContext, EndsAtOnceWhileItWaitsForAStream) {
  const auto video = h264_packets(8);
  zeva::InputContext input;
  for (const std::string& packet : video) push(input.video, packet, &packet - video.data());
  const LogCapture log([&](const std::string& text) {
    if (text == "==> open audio input: aac") input.que_abort();
  });
  std::vector<int32_t> told;
  input.tell = [&](int32_t code, const std::string&) { told.push_back(code); };
  // No sound at all; three pictures have left the sorting.
  EXPECT_TRUE(input.open_inputs("aac", "h264").ok);
  EXPECT_FALSE(push(input.audio, "x", 0));
  Deliveries got;
  input.run_demux(collect, &got);
  EXPECT_TRUE(got["h264"].first == video[0] + video[1] + video[2]);
  EXPECT_EQ(told, std::vector<int32_t>({kZevaStatusInputLeftOut, kZevaStatusInputLate}));
}

TEST(InputContext, GivesUpGarbageWithoutAnEndOfTheStream) {
  const std::string packet(60000, 'U');
  zeva::InputContext input;
  for (zeva::InputQueue* queue : {&input.audio, &input.video})
    for (int64_t i = 0; i < 300; ++i) EXPECT_TRUE(push(*queue, packet, -i));
  EXPECT_EQ(input.open_inputs("aac", "h264").code, -23);
}

// The times of several pictures or frames in a packet, and of packets with both times.
TEST(InputContext, StampsWhatIsInAPacket) {
  const auto video = h264_packets(4);
  const auto sound = aac_packets(3);
  zeva::InputContext input;
  zeva::PacketTimes times;
  times.exact = true;
  int64_t n = 0;
  for (const auto& [dts, delay] : {std::pair(-80000, 80000), {0, 160000}, {0, 1}, {50000, -1}}) {
    times.dts = dts;
    times.delay = delay;
    const std::string& packet = video[static_cast<size_t>(n++)];
    input.video.push_timed(packet.data(), static_cast<int32_t>(packet.size()), times);
  }
  push(input.audio, sound[0] + sound[1] + sound[2] + "\xFF\xF1\x4C", 1000000);
  for (zeva::InputQueue* queue : {&input.video, &input.audio}) queue->push_data(nullptr, 0, 0);
  input.que_abort();
  std::vector<int32_t> told;
  input.tell = [&](int32_t code, const std::string&) { told.push_back(code); };
  ASSERT_TRUE(input.open_inputs("aac", "h264").ok);
  Deliveries got;
  input.run_demux(collect, &got);
  EXPECT_EQ(got["h264"].second, Stamps({0, 160000}));
  EXPECT_EQ(got["aac"].second, Stamps({1000000, 1021333, 1042666}));
  EXPECT_EQ(told, std::vector<int32_t>({kZevaStatusPacketsLeftOut}));
}

}  // namespace
