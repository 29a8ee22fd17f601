#include "record_coder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <tuple>
#include <vector>

#include "index_reader.h"

namespace {

using zeva::IndexedPacket;
using zeva::IndexRecord;

constexpr int64_t kMax = std::numeric_limits<int64_t>::max(), kMin = -kMax - 1;

IndexedPacket packet_of(int stream, int64_t position, int64_t pts, int64_t dts, int64_t duration,
                        bool key) {
  IndexedPacket packet;
  packet.stream_index = stream;
  packet.position = position;
  packet.pts = pts;
  packet.dts = dts;
  packet.duration = duration;
  packet.key = key;
  return packet;
}

// Times at the ends of the range, reordered pictures (from a decoding time of 0, then by equal
// deltas), a subtitle, sound with durations of its own.
const std::vector<IndexedPacket> kPackets = {
    packet_of(0, 48, 500, 0, 512, true),           packet_of(1, 148, -3000, -3000, 1024, true),
    packet_of(1, 158, -1976, -1976, 960, true),    packet_of(0, 178, 1012, 512, 512, false),
    packet_of(2, 300, 1100, 1100, 7, false),       packet_of(0, 310, kMax, kMax - 9, 512, false),
    packet_of(0, 310, kMin, kMin, 512, false),     packet_of(1, 340, kMax, kMax, 1024, true),
    packet_of(1, 5000000000, kMin, kMin, 0, true), packet_of(0, 5000000009, 7, 5, 1, true),
};

// Through the text, as a reader gets it. Packets from `begin` up to `end` have no record.
std::vector<IndexedPacket> round_trip(size_t begin, size_t end) {
  zeva::RecordEncoder encoder(1, 1024);
  std::string line;
  for (size_t i = 0; i < kPackets.size(); ++i) {
    IndexRecord record;
    char text[zeva::kIndexRecordMaxBytes];
    if (i > begin && i <= end) {
      encoder.push_unrecorded(kPackets[i]);
    } else if (encoder.push(kPackets[i], record)) {
      zeva::format_index_record(record, text);
      line += text;
    }
  }
  zeva::RecordDecoder decoder(1, 1024);
  std::vector<IndexedPacket> decoded;
  std::string_view rest(line);
  for (IndexRecord r; zeva::read_index_record(rest, 2, r);) decoded.push_back(decoder.decode(r));
  return decoded;
}

TEST(RecordCoder, EveryPacketButTheLastComesBackWhereverAHoleIs) {
  const size_t all = kPackets.size() - 1;
  for (size_t begin = 0; begin <= all; ++begin) {
    for (size_t end = begin; end <= all; ++end) {
      SCOPED_TRACE(std::to_string(begin) + " to " + std::to_string(end));
      const std::vector<IndexedPacket> decoded = round_trip(begin, end);
      ASSERT_EQ(decoded.size(), all - (end - begin));
      for (size_t i = 0; i < decoded.size(); ++i) {
        const size_t which = i < begin ? i : i + end - begin;
        const IndexedPacket &is = decoded[i], &was = kPackets[which];
        EXPECT_EQ(std::tie(is.stream_index, is.position, is.pts, is.dts, is.key),
                  std::tie(was.stream_index, was.position, was.pts, was.dts, was.key));
        EXPECT_EQ(is.size, static_cast<int32_t>(kPackets[which + 1].position - was.position));
        EXPECT_EQ(is.audio, was.stream_index == 1);
        const bool behind_hole = end > begin && i == begin && i > 0;
        const int64_t hole = behind_hole ? was.position - kPackets[begin].position : 0;
        // The size has 32 bits: a larger step is a hole of its own.
        if (which != 8) {
          EXPECT_EQ(is.skipped_bytes, hole);
        }
      }
    }
  }
}

TEST(RecordCoder, AddsUpByClass) {
  zeva::RecordDecoder decoder(1, 1024);
  const struct {
    IndexRecord record;
    int64_t position, pts, dts, duration, skipped;
  } steps[] = {
      {{0, 48, 100, 500, 400, 512, 1}, 48, 500, 400, 512, 0},
      {{1, 0, 10, 2000, {}, 0, 1}, 148, 2000, 2000, 1024, 0},
      {{2, 0, 20, 512, {}, 0, 0}, 158, 1012, 1012, 0, 0},
      {{1, 200, 30, -3000, 500, 960, 1}, 200, -1000, 2500, 960, 22},
      {{0, kMax, 1, kMax, kMin, 1, 0}, kMax, kMin + 1011, kMin + 1012, 1, kMax - 230},
      {{0, 0, 1, 0, {}, 0, 0}, kMin, kMin + 1011, kMin + 1011, 0, 0},
  };
  for (const auto& s : steps) {
    const IndexedPacket p = decoder.decode(s.record);
    EXPECT_EQ(std::tie(p.position, p.pts, p.dts, p.duration, p.skipped_bytes),
              std::tie(s.position, s.pts, s.dts, s.duration, s.skipped));
  }
}

TEST(IndexFormat, HasRoomForTheLongestRecord) {
  constexpr int32_t kLow32 = std::numeric_limits<int32_t>::min();
  std::string out(zeva::kIndexRecordMaxBytes, '#');
  const IndexRecord longest{kLow32, kMin, kLow32, kMin, kMin, kMin, kLow32};
  const int length = zeva::format_index_record(longest, out.data());
  EXPECT_EQ(length, static_cast<int>(strlen(out.c_str())));
  EXPECT_EQ(out.find('#'), std::string::npos) << "more room than is needed";
}

}  // namespace
