#include "zv2_input_context.h"

#include <gmock/gmock.h>

#include <numeric>
#include <thread>

#include "elementary.h"
#include "log_capture.h"
#include "pts_smoother.h"

namespace {

using Stamps = std::vector<int64_t>;
constexpr int64_t kMax = INT64_MAX;

bool push(zeva::InputQueue& queue, const std::string& packet, int64_t usec) {
  return queue.push_data(packet.data(), static_cast<int32_t>(packet.size()), usec);
}

TEST(InputQueue, SortsStampsAndMakesThemDiffer) {
  const struct {
    Stamps pushed, queued;
    int32_t before_flush;
  } cases[] = {{{1000, 1000, 1000}, {1000, 1001, 1002}, 0},
               {{60, 50, 40, 30, 20}, {20, 30, 40, 50, 60}, 0},
               {{10, 20, 30, 40, 60, 50, -5}, {10, -5, 20, 30, 40, 50, 60}, 2},
               {{kMax, INT64_MIN, kMax, kMax, kMax, kMax, kMax},
                {-kMax, kMax - 5, kMax - 4, kMax - 3, kMax - 2, kMax - 1, kMax},
                2}};
  for (const auto& c : cases) {
    zeva::InputQueue queue;
    for (const int64_t usec : c.pushed) EXPECT_TRUE(push(queue, "x", usec));
    EXPECT_EQ(queue.size(), c.before_flush);
    EXPECT_TRUE(queue.push_data(nullptr, 7, 0));
    EXPECT_TRUE(queue.push_data("x", 0, 0));
    Stamps got;
    qel::ZVMemNode* node = nullptr;
    for (int64_t pts = 0; queue.pop(node, false, 0, true) == qel::QueueResult::Ok;) {
      EXPECT_EQ(queue.pts_queue.pop(pts, false, 0, true), qel::QueueResult::Ok);
      EXPECT_EQ(node->pts, pts);
      got.push_back(pts);
      qel::release_node(node);
    }
    EXPECT_EQ(got, c.queued);
  }
}

TEST(InputQueue, FullQueueDropsTheOldestWithItsStamp) {
  const LogCapture log;
  zeva::InputQueue queue;
  for (int64_t usec = 0; usec < 2006; ++usec) EXPECT_TRUE(push(queue, "abc", usec));
  EXPECT_EQ(log.messages().back(),
            "[uninit] pb.queue(sz=2000) is full; ---> sort.queue.(sz=6);  drop "
            "front-node.(nbytes=3, usec=2000)");
  EXPECT_EQ(queue.pts_queue.size(), 2000);
  queue.abort();
  EXPECT_FALSE(push(queue, "abc", 3000));
  EXPECT_EQ(log.messages().back(), "malloc pnode==null, aborted");
}

TEST(PtsSmoother, KeepsATenthOfTheJitter) {
  // Late by 10000: the mean becomes 33433 (1 % more), and a tenth of the other 9900 stays.
  const Stamps in = {0, 33333, 76666, 100199}, out = {0, 33333, 67756, 101081};
  zeva::PtsSmoother smoother, wild;
  for (size_t i = 0; i < in.size(); ++i) EXPECT_EQ(smoother.smooth(in[i]), out[i]);
  for (const int64_t pts : {-kMax, kMax, -kMax, kMax}) EXPECT_NE(wild.smooth(pts), INT64_MIN);
}

struct Delivered {
  std::string bytes;
  Stamps pts, durations;
};
using Deliveries = std::map<std::string, Delivered>;
int collect(AVPacket* packet, AVRational time_base, const char* name, void* deliveries) {
  Delivered& to = (*static_cast<Deliveries*>(deliveries))[name];
  EXPECT_EQ(av_cmp_q(time_base, {1, 1000000}), 0);
  if (packet == nullptr) return 0;
  EXPECT_TRUE(packet->dts == packet->pts && packet->stream_index == -1);
  to.bytes.append(reinterpret_cast<const char*>(packet->data), static_cast<size_t>(packet->size));
  to.pts.push_back(packet->pts);
  to.durations.push_back(packet->duration);
  return 0;
}

// The rules by hand. The last `late` packets came after the end, and got no stamp of the host.
void expect_smoothed(const Delivered& got, const Stamps& host, int late) {
  ASSERT_EQ(got.pts.size(), host.size());
  double mean = 0;
  int64_t last = 0;
  for (size_t i = 0; i < host.size(); ++i) {
    int64_t p = i + static_cast<size_t>(late) < host.size() ? host[i] : last + 1;
    if (i == 1) mean = static_cast<double>(p - last);
    if (i > 1) {
      mean = 0.99 * mean + 0.01 * static_cast<double>(p - last);
      const int64_t expected = last + static_cast<int64_t>(mean + 0.5);
      p = expected + static_cast<int64_t>(static_cast<double>(p - expected) * 0.1);
    }
    EXPECT_EQ(got.pts[i], p) << i;
    EXPECT_EQ(got.durations[i], p - last) << i;
    last = p;
  }
}

TEST(InputContext, EveryPacketComesOutWithItsStamp) {
  const auto video = h264_packets(90), audio = aac_packets(150);
  const LogCapture log;
  zeva::InputContext input;
  Stamps video_us, audio_us;
  std::thread host([&] {
    for (int64_t i = 0; i < 150; ++i) {
      audio_us.push_back(i * 21333 + i % 7 * 900);
      EXPECT_TRUE(push(input.audio, audio[static_cast<size_t>(i)], audio_us.back()));
      if (i >= 90) continue;
      video_us.push_back(i * 33333 - i % 5 * 2000);
      EXPECT_TRUE(push(input.video, video[static_cast<size_t>(i)], video_us.back()));
    }
    input.video.push_data(nullptr, 0, 0);
    input.audio.push_data(nullptr, 0, 0);
    input.que_abort();
  });
  EXPECT_TRUE(input.open_inputs("aac", "h264").ok);
  Deliveries got;
  input.run_demux(collect, &got);
  host.join();
  EXPECT_EQ(input.audio_stream()->codecpar->sample_rate, 48000);
  EXPECT_EQ(input.video_stream()->codecpar->width, 96);
  input.clear();
  const int late_video = log.count("[h264] --- get pts from queue failed.");
  const int late_audio = log.count("[aac] --- get pts from queue failed.");
  EXPECT_LT(late_video, 5);  // what the last 8 KB and the parser held
  EXPECT_LT(late_audio, 50);
  EXPECT_EQ(got.count("tailer"), 1U);
  EXPECT_TRUE(got["h264"].bytes == std::accumulate(video.begin(), video.end(), std::string()));
  EXPECT_TRUE(got["aac"].bytes == std::accumulate(audio.begin(), audio.end(), std::string()));
  expect_smoothed(got["h264"], video_us, late_video);
  expect_smoothed(got["aac"], audio_us, late_audio);
}

TEST(InputContext, EndsAtOnceWhileProbing) {
  const auto video = h264_packets(8);
  for (const std::string moment : {"", "==> open audio input: aac"}) {
    zeva::InputContext input;
    for (int64_t i = 0; i < 8; ++i) push(input.video, video[static_cast<size_t>(i)], i);
    const LogCapture log([&](const std::string& message) {
      if (message == moment) input.que_abort();
    });
    if (moment.empty()) input.que_abort();
    // No sound at all; the three pictures that have left the sorting are enough to know the stream.
    EXPECT_TRUE(input.open_inputs("aac", "h264").ok);
    Deliveries got;
    input.run_demux(collect, &got);
    EXPECT_TRUE(got["h264"].bytes == video[0] + video[1] + video[2]);
  }
}

TEST(InputContext, GarbageEnds) {
  for (const std::string& packet : {garbage(60000, 7), std::string(60000, 'U')}) {
    zeva::InputContext input;
    for (int64_t i = 0; i < 300; ++i) EXPECT_TRUE(push(input.audio, packet, i));
    for (int64_t i = 0; i < 300; ++i) EXPECT_TRUE(push(input.video, packet, -i));
    // Some of what is random may pass for a stream.
    EXPECT_EQ(input.open_inputs("aac", "h264").code, packet[0] == 'U' ? -23 : 0);
    input.que_abort();
    Deliveries got;
    input.run_demux(collect, &got);
    EXPECT_EQ(got.count("tailer"), 1U);
  }
}

}  // namespace
