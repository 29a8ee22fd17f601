#include "index_reader.h"

#include <gtest/gtest.h>

#include <limits>

#include "media.h"

namespace {

using zeva::IndexRecord;

constexpr int32_t kMax32 = std::numeric_limits<int32_t>::max();
constexpr int64_t kMax64 = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin64 = std::numeric_limits<int64_t>::min();

std::vector<std::string> records_of(const std::string& line, int version) {
  std::vector<std::string> found;
  IndexRecord r;
  for (std::string_view rest(line); zeva::read_index_record(rest, version, r);) {
    char text[zeva::kIndexRecordMaxBytes];
    zeva::format_index_record(r, text);
    found.emplace_back(text);
  }
  return found;
}

TEST(IndexReader, TakesRecordsOffALine) {
  using Records = std::vector<std::string>;
  const struct {
    int version;
    std::string line;
    Records records;
  } cases[] = {
      {2, ",48,9,,,512,1;1,,3,1024,-512,,1;\r\n", {",48,9,,,512,1;", "1,,3,1024,-512,,1;"}},
      {2, ",,,,,,;,,,,,,;", {",,,,,,;", ",,,,,,;"}},
      {2, " +1,\t2,3x, 4,nonsense,0,1 ;", {"1,2,3,4,,,1;"}},
      {2,
       "99999999999,99999999999999999999,-99999999999,,,,;",
       {"2147483647,9223372036854775807,-2147483648,,,,;"}},
      // Cut off, or damaged so that the rest means nothing.
      {2, ",,1,,,,1;,,2,,,,1", {",,1,,,,1;"}},
      {2, ",,1,,,,1;,,2,,,", {",,1,,,,1;"}},
      {2, ",,1,,,,1;,,2;,,3,,,,1;", {",,1,,,,1;"}},
      {2, ",,1,,,,1;,,\r\n", {",,1,,,,1;"}},
      {2, std::string(",,1,,,,1;\0,,2,,,,1;", 20), {",,1,,,,1;"}},
      {2, "", {}},
      {1, "0,48,9,0,0,512,1;1,0,3,1024,512,1024,1;\n", {",48,9,,,512,1;", "1,,3,1024,512,1024,1;"}},
      {1, "1,2,oops;1,0,3,0,0,0,1;", {"1,2,,,,,;", "1,,3,,,,1;"}},
      {1, "oops;1,0,3,0,0,0,1;", {}},
      {1, "1,0,3,0,0,0,1", {}},
      {3, ",,1,,,,1;", {}},
      {0, ",,1,,,,1;", {}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(records_of(c.line, c.version), c.records) << c.version << ": " << c.line;
  }
}

TEST(IndexReader, AddsUpByClass) {
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
      {{0, 0, 20, 512, 0, 0, 0}, 158, 1012, 1012, 0},
      {{2, 0, 30, -12, 8, 7, 0}, 178, 1000, 1020, 7},
      {{1, 0, 5, -3000, 500, 960, 1}, 208, -1000, 2500, 960},
      {{0, 5000, 1, kMax64, kMin64, 1, 0}, 5000, kMin64 + 999, kMin64 + 1020, 1},
      {{0, kMax64, kMax32, 0, 0, 0, 0}, kMax64, kMin64 + 999, kMin64 + 999, 0},
      {{0, 0, 1, 0, 0, 0, 0}, kMin64 + kMax32 - 1, kMin64 + 999, kMin64 + 999, 0},
  };
  for (const auto& s : steps) {
    const zeva::IndexedPacket p = decoder.decode(s.record);
    EXPECT_EQ(p.position, s.position) << &s - steps;
    EXPECT_EQ(p.pts, s.pts) << &s - steps;
    EXPECT_EQ(p.dts, s.dts) << &s - steps;
    EXPECT_EQ(p.duration, s.duration) << &s - steps;
  }
}

TEST(IndexReader, StreamLines) {
  const zeva::FormatContextPtr oc = make_output("unused.mp4", false);
  zeva::IndexStreams streams;
  for (unsigned i = 0; i < oc->nb_streams; ++i) {
    EXPECT_TRUE(zeva::read_stream_line(zeva::index_stream_line(*oc->streams[i]) + "\r\n", streams));
  }
  EXPECT_EQ(streams.list, (std::vector{AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_AUDIO}));
  const zeva::VideoDescription& v = streams.video;
  EXPECT_EQ(std::tie(v.index, v.codec, v.format, v.width, v.height, v.time_base.den, v.ev),
            std::make_tuple(0, "mpeg4", "yuv420p", 64, 48, 12800, ""));
  const zeva::AudioDescription& a = streams.audio;
  EXPECT_EQ(std::tie(a.index, a.codec, a.format, a.channels, a.sample_rate, a.frame_size),
            std::make_tuple(1, "aac", "fltp", 2, 48000, 1024));
  EXPECT_EQ(a.ev, "EZA=");

  EXPECT_TRUE(zeva::read_stream_line(R"({"type":"data"})", streams));
  for (const char* other : {"", " {}", "{", "{\"type\":\"video\"", "[1]", ",,1,,,,1;", "{\xff}"}) {
    EXPECT_FALSE(zeva::read_stream_line(other, streams)) << other;
  }
  EXPECT_TRUE(zeva::read_stream_line(
      R"({"type":"video","w":"640","h":4294967297,"tb.num":-1.5,"tb.den":-99999999999,"ev":[1]})",
      streams));
  EXPECT_EQ(std::tie(v.width, v.height, v.time_base.num, v.time_base.den, v.ev),
            std::make_tuple(0, 0, 0, 0, ""));
  for (int i = 0; i < 100; ++i) {
    EXPECT_TRUE(zeva::read_stream_line(R"({"type":"audio","index":77})", streams));
  }
  EXPECT_EQ(streams.list.size(), 5U);

  int version = -7;
  zeva::read_index_version("# no number", version);
  EXPECT_EQ(version, -7);
  zeva::read_index_version("## version=12, x", version);
  EXPECT_EQ(version, 12);
}

}  // namespace
