// What a live stream gets while its server is slow, gone or back.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "drop_gate.h"
#include "media.h"
#include "output_monitor.h"
#include "session_times.h"
#include "zeva/status.h"

namespace {

using zeva::DropGate;
using zeva::OutputMonitor;
using zeva::SessionTimes;

// K, P: a key picture and another one; s: sound. A capital F or an r before it: the queue is full,
// or roomy again. The answers: + taken, - dropped, ! taken alone, x everything dropped.
std::string answers(DropGate& gate, const std::string& packets) {
  std::string told;
  bool full = false;
  bool roomy = true;
  for (const char c : packets) {
    if (c == 'F' || c == 'm' || c == 'r') {
      full = c == 'F';
      roomy = c == 'r';
      continue;
    }
    const DropGate::Answer answer = gate.admit({c != 's', c == 'K'}, full, roomy);
    told += "+-!x"[static_cast<int>(answer)];
  }
  return told;
}

TEST(DropGate, LetsNoPictureThroughThatRefersToADroppedOne) {
  const struct {
    const char* what;
    bool connected;
    const char* packets;
    const char* answers;
  } cases[] = {
      {"keeps up", true, "KPsPs", "+++++"},
      {"full: sound waits for room, pictures for a key picture and half of the room", true,
       "KPF P s K m s P K r P K P",
       "++---+--"
       "-++"},
      {"only sound is dropped for lack of room", true, "KFsrPs", "+-++"},
      {"not connected yet: everything, then the newest from a key picture on", false,
       "sKPsKPF P r P s K P s K s",
       "++++++"
       "x--!++!+"},
      {"a beginning that is full with a key picture", false, "KPF K r P", "++!+"},
  };
  for (const auto& c : cases) {
    std::string packets;
    for (const char* p = c.packets; *p != '\0'; ++p) {
      if (*p != ' ') packets += *p;
    }
    DropGate gate(c.connected);
    EXPECT_EQ(answers(gate, packets), c.answers) << c.what;
  }
}

TEST(DropGate, GoesOnWithWhatIsThereOrAsksForAKeyPicture) {
  DropGate gate(false);
  EXPECT_EQ(answers(gate, "sKP"), "+++");
  EXPECT_FALSE(gate.connect()) << "the beginning is there";
  EXPECT_FALSE(gate.wants_key());

  gate.disconnect();
  EXPECT_TRUE(gate.wants_key());
  EXPECT_EQ(answers(gate, "PsKP"), "--!+");
  EXPECT_TRUE(gate.connect()) << "anew";
  EXPECT_FALSE(gate.wants_key()) << "one is queued";
  EXPECT_EQ(answers(gate, "Ps"), "++");

  gate.disconnect();
  EXPECT_TRUE(gate.connect());
  EXPECT_TRUE(gate.wants_key());
  EXPECT_FALSE(gate.wants_key()) << "once";
  EXPECT_EQ(answers(gate, "PsPKP"), "-+-++");
  EXPECT_FALSE(gate.wants_key());
}

zeva::PacketPtr packet(int stream, int64_t pts, int64_t dts, bool key) {
  return make_packet(stream, pts, dts, 1, 10, key);
}

TEST(SessionTimes, BeginsAtZeroWithAKeyPicture) {
  const std::vector<SessionTimes::Stream> streams = {{{1, 25}, true}, {{1, 1000}, false}};
  const struct {
    int stream;
    int64_t pts, dts;
    bool key;
    int64_t moved;  // -1: left out
  } packets[] = {
      {1, 3900, 3900, true, -1}, {0, 99, 97, false, -1},
      {0, 103, 100, true, 3},    {1, 3990, 3990, true, -1},  // the sound before it
      {1, 4000, 4000, true, 0},  {0, 101, 101, false, -1},   // shown before the key picture
      {0, 104, 103, false, 4},   {1, 4020, 4020, true, 20},
  };
  SessionTimes times;
  times.begin(streams, true);
  EXPECT_TRUE(times.is_waiting());
  for (const auto& p : packets) {
    const zeva::PacketPtr given = packet(p.stream, p.pts, p.dts, p.key);
    EXPECT_EQ(times.fit(*given) ? given->pts : -1, p.moved) << p.stream << ": " << p.pts;
  }
  times.begin(streams, false);
  const zeva::PacketPtr first = packet(1, 3900, 3900, true);
  EXPECT_TRUE(times.fit(*first));
  EXPECT_EQ(first->pts, 3900) << "a connection from the beginning on keeps its times";
}

TEST(SessionTimes, OfSoundAloneBeginWithAnyPacket) {
  SessionTimes times;
  times.begin({{{1, 48000}, false}}, true);
  const zeva::PacketPtr first = packet(0, 96000, 96000, true);
  EXPECT_TRUE(times.fit(*first));
  EXPECT_EQ(first->pts, 0);
}

struct Told {
  std::vector<int32_t> codes;
  std::vector<std::string> texts;
};

OutputMonitor::Report into(Told& told) {
  return [&told](int32_t code, const std::string& text) {
    told.codes.push_back(code);
    told.texts.push_back(text);
  };
}

TEST(OutputMonitor, TellsChangesOnceAndNotInAFlood) {
  Told told;
  OutputMonitor monitor("rtmp://a/b", into(told), true);
  EXPECT_GT(monitor.tell_due(), 0) << "a server that answers soon is not waited for";
  monitor.enter(kZevaOutputOpening, "Connection refused");
  EXPECT_EQ(monitor.tell_due(), -1);
  ASSERT_EQ(told.codes, std::vector<int32_t>{kZevaStatusStreamWaiting});
  EXPECT_EQ(told.texts[0], "'rtmp://a/b' is waited for: Connection refused");
  for (int i = 0; i < 100; ++i) {
    monitor.enter(kZevaOutputLive);
    EXPECT_GT(monitor.tell_due(), 0);
    monitor.enter(kZevaOutputReconnecting, "reset");
    EXPECT_GT(monitor.tell_due(), 0);
  }
  EXPECT_EQ(told.codes.size(), 1U) << "within a second";
  told.codes.clear();
  OutputMonitor brief("rtmp://a/b", into(told), false);
  brief.enter(kZevaOutputReconnecting, "reset");
  brief.enter(kZevaOutputLive);
  EXPECT_EQ(brief.tell_due(), -1);
  EXPECT_EQ(told.codes, std::vector<int32_t>{kZevaStatusStreamBack}) << "a loss is never untold";
  monitor.enter(kZevaOutputGivenUp, "reset");
  EXPECT_EQ(monitor.tell_due(), -1);
  EXPECT_EQ(told.codes.back(), kZevaStatusOutputGivenUp) << "at once, since nothing follows";
  monitor.enter(kZevaOutputLive);
  EXPECT_EQ(monitor.phase(), kZevaOutputGivenUp) << "for good";
}

TEST(OutputMonitor, CountsForThoseWhoAsk) {
  OutputMonitor monitor("a.mp4", {}, false);
  for (int i = 0; i < 10; ++i) monitor.count_written(1000, i * 40000);
  monitor.count_dropped(true);
  monitor.count_dropped(false);
  monitor.note_error(-5);
  ZevaOutputState state{};
  monitor.fill(state);
  EXPECT_EQ(state.packets_written, 10);
  EXPECT_EQ(state.bytes_written, 10000);
  EXPECT_EQ(state.written_us, 360000);
  EXPECT_EQ(state.packets_dropped, 2);
  EXPECT_EQ(state.pictures_dropped, 1);
  EXPECT_EQ(state.bits_per_second, 40000) << "80,000 bits within two seconds";
  EXPECT_EQ(state.last_error, -5);
  EXPECT_GE(state.last_error_us, 0);
}

}  // namespace
