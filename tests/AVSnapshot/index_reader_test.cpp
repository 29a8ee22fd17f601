#include "index_reader.h"

#include <gtest/gtest.h>

#include <tuple>

#include "log_capture.h"
#include "media.h"
#include "moov_parser.h"
#include "temp_dir.h"

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

// `zeva inspect` and the repair both act on these few facts of a head.
TEST(IndexReader, DamagedHeads) {
  const TempDir dir;
  const LogCapture quiet;
  const std::string path = dir.path("a.index");
  const std::string sound = R"({"type":"audio","index":0,"codec":"aac","frame_size":1024,)"
                            R"("sample_rate":48000,"channels":2,"ev":"EZA="})";
  const std::string record = ",48,10,,,,1;";
  const struct {
    std::string text;
    int version;
    size_t streams;
    int64_t first_line;  // with records; 0: none
    size_t packets;
  } cases[] = {
      {"## version=2, x\n" + sound + "\n" + record, 2, 1, 3, 1},
      {"## version=2, x\r\n# a note\r\n" + sound + "\r\n" + record + "\r\n", 2, 1, 4, 1},
      {"# a note\n## version=2, x\n" + sound + "\n" + record, 0, 1, 4, 0},
      {"## version=1, x\n" + sound + "\n0" + record + "\n0,48,10,0,0,0,1;", 1, 1, 3, 2},
      {"## version=2, x\n" + record + "\n" + sound + "\n" + record, 2, 0, 2, 2},
      {"## version=2, x\n\n" + sound + "\n" + record, 2, 0, 2, 1},
      {"## version=99999999999\n" + sound + "\n" + record, 2147483647, 1, 3, 0},
      {std::string("## version=2, \0x\n", 17) + sound + "\n" + record, 2, 1, 3, 1},
      {sound, 0, 1, 0, 0},
      {"", 0, 0, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    write_file(path, c.text);
    zeva::IndexReader reader;
    ASSERT_TRUE(reader.open(path));
    EXPECT_EQ(reader.is_empty(), c.text.empty());
    EXPECT_EQ(std::make_tuple(reader.version(), reader.streams().list.size()),
              std::make_tuple(c.version, c.streams));
    zeva::MoovParser parser;
    EXPECT_EQ(parser.parse(path.c_str()), c.streams > 0);
    size_t packets = 0, repaired = 0;
    int64_t first_line = 0;
    for (zeva::IndexedPacket packet; reader.next_line();) {
      if (first_line == 0) first_line = reader.line_number();
      while (reader.next_packet(packet)) ++packets;
    }
    while (parser.next_record_line() != nullptr) {
      for (zeva::IndexedPacket packet; parser.next_packet(packet);) ++repaired;
    }
    EXPECT_EQ(std::make_tuple(first_line, packets), std::make_tuple(c.first_line, c.packets));
    EXPECT_EQ(repaired, c.packets);
  }
  zeva::IndexReader reader;
  EXPECT_FALSE(reader.open(dir.path("none")) || reader.open(dir.path("")));
}

TEST(IndexReader, SaysWhatIsLeftOfALine) {
  const TempDir dir;
  const std::string path = dir.path("a.index"), record = ",,1,,,,1;";
  const struct {
    std::string line;
    bool has_rest, cut_off;
  } cases[] = {
      {record + "\n", false, false},
      {record, false, true},
      {record + ",,7\n", true, false},
      {record + ",,7", true, true},
      {record + std::string(1, '\0') + record + "\n", true, false},
      {record + "\r\n", false, false},
  };
  for (const auto& c : cases) {
    write_file(path, "## version=2, x\n" + c.line);
    zeva::IndexReader reader;
    ASSERT_TRUE(reader.open(path) && reader.next_line());
    for (zeva::IndexedPacket packet; reader.next_packet(packet);) {
    }
    EXPECT_EQ(std::tie(c.has_rest, c.cut_off),
              std::make_tuple(reader.has_rest(), reader.is_cut_off()))
        << c.line;
  }
}

}  // namespace
