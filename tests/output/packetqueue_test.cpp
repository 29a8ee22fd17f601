#include "packetqueue.h"

#include <gtest/gtest.h>

#include <future>

#include "log_capture.h"
#include "media.h"

namespace {

using zeva::PacketQueue;

// A packet whose payload's references can be counted from outside.
struct CountedPacket {
  CountedPacket()
      : packet(make_packet(0, 0, 0, 1, 10, true)), witness(av_buffer_ref(packet->buf)) {}
  ~CountedPacket() { av_buffer_unref(&witness); }
  CountedPacket(const CountedPacket&) = delete;
  CountedPacket& operator=(const CountedPacket&) = delete;
  // References besides the witness.
  int references() const { return av_buffer_get_ref_count(witness) - 1; }

  zeva::PacketPtr packet;
  AVBufferRef* witness;
};

TEST(PacketQueue, SharesPayloadsAndReleasesWhatItRefuses) {
  CountedPacket first, second, too_many, too_late;
  AVPacket out{};
  const LogCapture log;
  {
    PacketQueue queue;
    EXPECT_EQ(queue.get(&out, false), 0);
    EXPECT_EQ(queue.put_bounded(first.packet.get(), {1}, false), 0);
    EXPECT_EQ(first.references(), 2);  // the caller keeps its packet
    EXPECT_EQ(queue.put_bounded(too_many.packet.get(), {1}, false), -2);
    EXPECT_EQ(log.messages(), std::vector<std::string>{"write full: maxNpkt=1, have=1"});
    EXPECT_EQ(too_many.references(), 0);
    ASSERT_EQ(queue.get(&out, true), 1);
    EXPECT_EQ(out.data, first.packet->data);
    EXPECT_EQ(first.references(), 2);
    av_packet_unref(&out);
    EXPECT_EQ(first.references(), 1);

    EXPECT_EQ(queue.put_bounded(second.packet.get(), {1}, false), 0);
    queue.abort();
    EXPECT_EQ(queue.put_bounded(too_late.packet.get(), {9}, true), -1);
    EXPECT_EQ(too_late.references(), 0);
    EXPECT_EQ(queue.get(&out, true), -1);  // although one is left
    EXPECT_EQ(queue.put(PacketQueue::tailer()), 0);
    EXPECT_EQ(queue.nb_packets(), 2);
  }
  EXPECT_EQ(log.count("************ safe-free-packet(): pkt is tailer *****"), 1);
  EXPECT_EQ(second.references(), 1);
}

TEST(PacketQueue, KnowsHowLongWhatWaitsLasts) {
  PacketQueue queue;
  CountedPacket a, b, c;
  EXPECT_EQ(queue.backlog_until(5000000).us, 0) << "nothing waits";
  ASSERT_EQ(queue.put(a.packet.get(), 1000000), 0);
  ASSERT_EQ(queue.put(b.packet.get(), 1040000), 0);
  EXPECT_EQ(queue.backlog().us, 40000);
  EXPECT_EQ(queue.backlog().bytes, a.packet->size + b.packet->size);
  EXPECT_EQ(queue.backlog_until(3000000).us, 2000000) << "the gap of what was dropped counts";
  EXPECT_TRUE(queue.backlog().reaches({UINT32_MAX, 40000, INT64_MAX}));
  EXPECT_EQ(queue.put(PacketQueue::tailer()), 0);
  int dropped = 0;
  queue.clear([&](const AVPacket&) { ++dropped; });
  EXPECT_EQ(dropped, 2);
  AVPacket out{};
  ASSERT_EQ(queue.get(&out, false), 1);
  EXPECT_TRUE(PacketQueue::is_tailer(out)) << "the end stays";
  ASSERT_EQ(queue.put(c.packet.get()), 0);
  queue.stop_waiting();
  EXPECT_EQ(queue.put_bounded(b.packet.get(), {1}, true), 0) << "does not wait";
}

TEST(PacketQueue, AbortWakesABlockedPut) {
  PacketQueue queue;
  CountedPacket queued, waiting;
  std::promise<void> full;
  const LogCapture log([&](const std::string&) { full.set_value(); });
  ASSERT_EQ(queue.put(queued.packet.get()), 0);
  auto put = std::async(std::launch::async,
                        [&] { return queue.put_bounded(waiting.packet.get(), {1}, true); });
  full.get_future().wait();
  queue.abort();  // gets the lock only once the putter waits
  EXPECT_EQ(put.get(), -1);
  EXPECT_EQ(waiting.references(), 0);
}

}  // namespace
