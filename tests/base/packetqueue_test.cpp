#include "packetqueue.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "log_capture.h"
#include "media.h"

namespace {

using zeva::PacketQueue;

// A packet whose payload's references can be counted from outside.
struct CountedPacket {
  explicit CountedPacket(int64_t pts = 0)
      : packet(make_packet(0, pts, pts, 1, 10, true)), witness(av_buffer_ref(packet->buf)) {}
  ~CountedPacket() { av_buffer_unref(&witness); }
  CountedPacket(const CountedPacket&) = delete;
  CountedPacket& operator=(const CountedPacket&) = delete;
  // References besides our own two.
  int references() const { return av_buffer_get_ref_count(witness) - 1; }

  zeva::PacketPtr packet;
  AVBufferRef* witness;
};

TEST(PacketQueue, SharesPayloadsAndHandsThemOver) {
  PacketQueue queue;
  CountedPacket first(1);
  CountedPacket second(2);
  AVPacket out{};
  EXPECT_EQ(queue.get(&out, false), 0);
  EXPECT_EQ(queue.put_bounded(first.packet.get(), 2, false), 0);
  EXPECT_EQ(queue.put(second.packet.get()), 0);
  EXPECT_EQ(queue.nb_packets(), 2);
  EXPECT_EQ(first.references(), 2);  // the caller keeps its packet

  for (const auto* expected : {&first, &second}) {
    ASSERT_EQ(queue.get(&out, true), 1);
    EXPECT_EQ(out.pts, expected->packet->pts);
    EXPECT_EQ(out.data, expected->packet->data);
    EXPECT_EQ(expected->references(), 2);
    av_packet_unref(&out);
    EXPECT_EQ(expected->references(), 1);
  }
  EXPECT_EQ(queue.get(&out, false), 0);
  EXPECT_EQ(queue.put(first.packet.get()), 0);  // the list works again after running empty
  EXPECT_EQ(queue.get(&out, false), 1);
  av_packet_unref(&out);
}

TEST(PacketQueue, RefusedPacketsAreReleased) {
  PacketQueue queue;
  CountedPacket queued;
  CountedPacket too_many;
  CountedPacket too_late;
  AVPacket out{};
  const LogCapture log;
  EXPECT_EQ(queue.put_bounded(queued.packet.get(), 1, false), 0);
  EXPECT_EQ(queue.put_bounded(too_many.packet.get(), 1, false), -2);
  EXPECT_EQ(log.messages(), std::vector<std::string>{"write full: maxNpkt=1, have=1"});
  EXPECT_EQ(too_many.packet->data, nullptr);
  EXPECT_EQ(too_many.references(), 0);

  queue.abort();
  queue.abort();
  EXPECT_EQ(queue.put_bounded(too_late.packet.get(), 9, true), -1);
  EXPECT_EQ(too_late.packet->data, nullptr);
  EXPECT_EQ(too_late.references(), 0);
  EXPECT_EQ(queue.get(&out, true), -1);  // although one is left
  EXPECT_EQ(queue.nb_packets(), 1);
}

TEST(PacketQueue, TailerGoesIntoAFullAndAbortedQueue) {
  const LogCapture log;
  CountedPacket queued;
  {
    PacketQueue queue;
    EXPECT_EQ(queue.put_bounded(queued.packet.get(), 1, false), 0);
    EXPECT_EQ(queue.put(PacketQueue::tailer()), 0);
    AVPacket out{};
    EXPECT_EQ(queue.get(&out, true), 1);
    EXPECT_FALSE(PacketQueue::is_tailer(out));
    av_packet_unref(&out);
    EXPECT_EQ(queue.get(&out, true), 1);
    EXPECT_TRUE(PacketQueue::is_tailer(out));

    queue.abort();
    EXPECT_EQ(queue.put(queued.packet.get()), 0);
    EXPECT_EQ(queue.put(PacketQueue::tailer()), 0);
    EXPECT_EQ(log.count("safe-free-packet"), 0);
  }
  EXPECT_EQ(log.count("************ safe-free-packet(): pkt is tailer *****"), 1);
  EXPECT_EQ(queued.references(), 1);
}

TEST(PacketQueue, AbortWakesABlockedPut) {
  PacketQueue queue;
  CountedPacket queued;
  CountedPacket waiting;
  std::promise<void> full;
  const LogCapture log([&](const std::string&) { full.set_value(); });
  ASSERT_EQ(queue.put(queued.packet.get()), 0);
  auto put = std::async(std::launch::async,
                        [&] { return queue.put_bounded(waiting.packet.get(), 1, true); });
  full.get_future().wait();
  queue.abort();  // gets the lock only once the putter waits
  EXPECT_EQ(put.get(), -1);
  EXPECT_EQ(waiting.references(), 0);
}

TEST(PacketQueue, KeepsTheOrderThroughASmallLimit) {
  constexpr int kPackets = 2000;
  PacketQueue queue;
  std::thread producer([&] {
    for (int i = 0; i < kPackets; ++i) {
      const zeva::PacketPtr packet = make_packet(0, i, i, 1, 4, false);
      EXPECT_EQ(queue.put_bounded(packet.get(), 2, true), 0);
    }
    EXPECT_EQ(queue.put(PacketQueue::tailer()), 0);
  });
  int64_t next = 0;
  for (AVPacket out{}; queue.get(&out, true) == 1 && !PacketQueue::is_tailer(out); ++next) {
    EXPECT_EQ(out.pts, next);
    EXPECT_LE(queue.nb_packets(), 3);  // two, and the tailer
    av_packet_unref(&out);
  }
  producer.join();
  EXPECT_EQ(next, kPackets);
}

}  // namespace
