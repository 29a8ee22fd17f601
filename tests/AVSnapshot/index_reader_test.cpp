#include "index_reader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "media.h"

namespace {

using zeva::IndexRecord;

// The records of a line as the writer would write them.
std::string read_back(const std::string& line, int version) {
  std::string all;
  char text[zeva::kIndexRecordMaxBytes];
  IndexRecord r;
  for (std::string_view rest(line); zeva::read_index_record(rest, version, r); all += text) {
    zeva::format_index_record(r, text);
  }
  return all;
}

TEST(IndexReader, TakesRecordsOffALine) {
  const struct {
    int version;
    std::string line, records;
  } cases[] = {
      {2, ",48,9,,,512,1;1,,3,1024,-512,,1;\r\n", ",48,9,,,512,1;1,,3,1024,-512,,1;"},
      {2, ",,,,,,;,,,,,,;", ",,,,,,;,,,,,,;"},
      {2, " +1,\t2,3x, 4,nonsense,0,1 ;", "1,2,3,4,,,1;"},
      {2, "99999999999,,-99999999999,99999999999999999999,,,;",
       "2147483647,,-2147483648,9223372036854775807,,,;"},
      // Cut off, or damaged so that the rest means nothing.
      {2, ",,1,,,,1;,,2,,,,1", ",,1,,,,1;"},
      {2, ",,1,,,,1;,,2,,,", ",,1,,,,1;"},
      {2, ",,1,,,,1;,,2;,,3,,,,1;", ",,1,,,,1;"},
      {2, ",,1,,,,1;,\r\n", ",,1,,,,1;"},
      {2, std::string(",,1,,,,1;\0,,2,,,,1;", 19), ",,1,,,,1;"},
      {1, "0,48,9,0,0,512,1;1,0,3,1024,512,1024,1;\n", ",48,9,,,512,1;1,,3,1024,512,1024,1;"},
      {1, "1,2,oops;1,0,3,0,0,0,1;oops;,,,,,,1;", "1,2,,,,,;1,,3,,,,1;"},
      {1, "1,0,3,0,0,0,1", ""},
      {3, ",,1,,,,1;", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(read_back(c.line, c.version), c.records) << c.line;
}

TEST(IndexFormat, HasRoomForTheLongestRecord) {
  constexpr int64_t kLow64 = std::numeric_limits<int64_t>::min();
  constexpr int32_t kLow32 = std::numeric_limits<int32_t>::min();
  std::string out(zeva::kIndexRecordMaxBytes, '#');
  const IndexRecord longest{kLow32, kLow64, kLow32, kLow64, kLow64, kLow64, kLow32};
  const int length = zeva::format_index_record(longest, out.data());
  EXPECT_EQ(length, static_cast<int>(strlen(out.c_str())));
  EXPECT_EQ(out.find('#'), std::string::npos) << "more room than is needed";
}

TEST(IndexReader, AddsUpByClass) {
  constexpr int64_t kMax = std::numeric_limits<int64_t>::max(), kMin = -kMax - 1;
  zeva::AudioDescription audio;
  audio.index = 1;
  audio.frame_size = 1024;
  zeva::RecordDecoder decoder(audio);
  const struct {
    IndexRecord record;
    int64_t position, pts, dts, duration;
  } steps[] = {
      {{0, 48, 100, 500, 400, 512, 1}, 48, 500, 400, 512},
      {{1, 0, 10, 2000, 0, 0, 1}, 148, 2000, 2000, 1024},
      {{2, 0, 20, 512, 0, 0, 0}, 158, 1012, 1012, 0},
      {{1, 0, 30, -3000, 500, 960, 1}, 178, -1000, 2500, 960},
      {{0, kMax, 1, kMax, kMin, 1, 0}, kMax, kMin + 1011, kMin + 1012, 1},
      {{0, 0, 1, 0, 0, 0, 0}, kMin, kMin + 1011, kMin + 1011, 0},
  };
  for (const auto& s : steps) {
    const zeva::IndexedPacket p = decoder.decode(s.record);
    EXPECT_EQ(std::tie(p.position, p.pts, p.dts, p.duration),
              std::tie(s.position, s.pts, s.dts, s.duration));
  }
}

TEST(IndexReader, StreamLines) {
  const zeva::FormatContextPtr oc = make_output("unused.mp4", false);
  zeva::IndexStreams streams;
  for (int i : {0, 1}) zeva::read_stream_line(zeva::index_stream_line(*oc->streams[i]), streams);
  const zeva::VideoDescription& v = streams.video;
  EXPECT_EQ(std::tie(v.index, v.codec, v.format, v.width, v.height, v.time_base.den, v.ev),
            std::make_tuple(0, "mpeg4", "yuv420p", 64, 48, 12800, ""));
  const zeva::AudioDescription& a = streams.audio;
  EXPECT_EQ(std::tie(a.index, a.codec, a.format, a.channels, a.sample_rate, a.frame_size, a.ev),
            std::make_tuple(1, "aac", "fltp", 2, 48000, 1024, "EZA="));
  for (const char* other : {"", "{", "{\"type\":\"video\"", "[1]", ",,1,,,,1;", "{\xff}"}) {
    EXPECT_FALSE(zeva::read_stream_line(other, streams)) << other;
  }
  EXPECT_TRUE(zeva::read_stream_line(
      R"({"type":"video","w":"640","h":4294967297,"tb.num":-1.5,"tb.den":-99999999999,"ev":[1]})",
      streams));
  EXPECT_EQ(std::tie(v.width, v.height, v.time_base.num, v.time_base.den, v.ev),
            std::make_tuple(0, 0, 0, 0, ""));
}

}  // namespace
