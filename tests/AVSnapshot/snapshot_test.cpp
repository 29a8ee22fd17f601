#include "snapshot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <sstream>
#include <thread>

#include "log_capture.h"
#include "media.h"
#include "temp_dir.h"

namespace {

std::vector<std::string> lines_of(const std::string& path) {
  std::vector<std::string> lines;
  std::istringstream text(read_file(path));
  for (std::string line; std::getline(text, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();  // text mode on Windows
    lines.push_back(line);
  }
  return lines;
}

// What the records say, read field by field: 0 where nothing stands.
std::vector<std::array<int64_t, 7>> records_of(const std::string& path, size_t streams) {
  std::vector<std::array<int64_t, 7>> records;
  const std::vector<std::string> lines = lines_of(path);
  for (size_t i = 1 + streams; i < lines.size(); ++i) {
    std::istringstream line(lines[i]);
    for (std::string record; std::getline(line, record, ';');) {
      std::istringstream fields(record);
      auto& numbers = records.emplace_back();
      size_t n = 0;
      for (std::string field; std::getline(fields, field, ','); ++n) {
        if (!field.empty()) numbers.at(n) = std::stoll(field);
      }
    }
  }
  return records;
}

// 4 s of pictures that are decoded in another order than shown, and sound, interleaved by FFmpeg.
void write_packets(AVFormatContext* oc, int pictures = 100) {
  constexpr int kShown[] = {3, 1, 2};  // of every three pictures in decoding order
  int64_t sound_pts = 0;
  for (int i = 0; i < pictures; ++i) {
    const int64_t dts = (i - 2) * int64_t{512};
    const int64_t pts = i == 0 ? 0 : ((i - 1) / 3 * 3 + kShown[(i - 1) % 3]) * int64_t{512};
    const auto picture = make_packet(0, pts, dts, 512, 90 + i * 7 % 50, i % 10 == 0);
    ASSERT_EQ(av_interleaved_write_frame(oc, picture.get()), 0);
    for (; sound_pts * 25 < i * int64_t{48000}; sound_pts += 1024) {
      const auto sound = make_packet(1, sound_pts, sound_pts, 1024, 30, true);
      ASSERT_EQ(av_interleaved_write_frame(oc, sound.get()), 0);
    }
  }
}

class SnapshotTest : public testing::Test {
 protected:
  // A whole movie; with an index when `index` is not empty.
  void record(const std::string& movie, const std::string& index) const {
    const zeva::FormatContextPtr oc = make_output(movie);
    ASSERT_TRUE(oc);
    std::unique_ptr<zeva::Snapshot> snapshot;
    if (!index.empty()) {
      snapshot = std::make_unique<zeva::Snapshot>();
      ASSERT_TRUE(snapshot->open(index.c_str()));
      ASSERT_TRUE(snapshot->attach(oc.get()));
    }
    ASSERT_GE(avformat_write_header(oc.get(), nullptr), 0);
    write_packets(oc.get());
    ASSERT_EQ(av_write_trailer(oc.get()), 0);
    snapshot.reset();
    avio_closep(&oc->pb);
  }

  // Every packet the demuxer finds must be told by a record, but the last one.
  static void expect_index_matches(const std::string& index, const Movie& movie) {
    const auto records = records_of(index, 2);
    ASSERT_EQ(records.size() + 1, movie.packets.size());
    int64_t position = records[0][1];
    int64_t last_pts[2] = {};
    int64_t last_dts[2] = {};
    for (size_t i = 0; i < records.size(); ++i) {
      const auto [stream, start, size, pts_delta, dts_delta, duration, key] = records[i];
      const MoviePacket& packet = movie.packets[i];
      SCOPED_TRACE(i);
      ASSERT_EQ(stream, packet.stream);
      EXPECT_EQ(start, i == 0 ? packet.position : 0);
      EXPECT_EQ(position, packet.position);
      EXPECT_EQ(size, packet.size);
      EXPECT_EQ(last_pts[stream] += pts_delta, packet.pts);
      EXPECT_EQ(last_dts[stream] += dts_delta != 0 ? dts_delta : pts_delta, packet.dts);
      EXPECT_EQ(key != 0, packet.key);
      const bool before_sound = movie.packets[i + 1].stream == 1;
      const int64_t made = stream == 1 ? 1024 : 512;
      EXPECT_EQ(duration, before_sound && made == 1024 ? 0 : made);
      position += size;
    }
  }

  const TempDir dir;
};

TEST_F(SnapshotTest, RecordsComeOnePacketLate) {
  const zeva::FormatContextPtr oc = make_output(dir.path("a.mp4"));
  const std::string index = dir.path("a.index");
  zeva::Snapshot snapshot;
  ASSERT_TRUE(snapshot.open(index.c_str()));
  ASSERT_TRUE(snapshot.attach(oc.get()));
  ASSERT_GE(avformat_write_header(oc.get(), nullptr), 0);
  EXPECT_EQ(lines_of(index).size(), 3U);  // on disk at once
  const int64_t start = avio_tell(oc->pb);
  const auto first = make_packet(0, 0, 0, 1024, 50, true);
  ASSERT_EQ(av_write_frame(oc.get(), first.get()), 0);
  ASSERT_EQ(av_write_trailer(oc.get()), 0);
  EXPECT_EQ(lines_of(index).size(), 3U);
  EXPECT_GT(start, 0);
  avio_closep(&oc->pb);
}

TEST_F(SnapshotTest, DurationIsLeftOutByTheLookOfTheNextPacket) {
  const zeva::FormatContextPtr oc = make_output(dir.path("a.mp4"));
  const std::string index = dir.path("a.index");
  auto snapshot = std::make_unique<zeva::Snapshot>();
  ASSERT_TRUE(snapshot->open(index.c_str()));
  ASSERT_TRUE(snapshot->attach(oc.get()));
  ASSERT_GE(avformat_write_header(oc.get(), nullptr), 0);
  const std::string start = std::to_string(avio_tell(oc->pb));
  const struct {
    int stream;
    int64_t pts, duration;
    int size;
    bool key;
  } packets[] = {{0, 0, 1024, 50, true},    {1, 0, 1024, 20, true},     {1, 1024, 1024, 21, true},
                 {0, 1024, 512, 51, false}, {0, 1536, 1024, 52, false}, {1, 2048, 7, 22, true}};
  for (const auto& p : packets) {
    const auto packet = make_packet(p.stream, p.pts, p.pts, p.duration, p.size, p.key);
    ASSERT_EQ(av_write_frame(oc.get(), packet.get()), 0);
  }
  ASSERT_EQ(av_write_trailer(oc.get()), 0);
  snapshot.reset();
  EXPECT_EQ(lines_of(index).back(), "," + start +
                                        ",50,,,,1;"            // a picture, then sound
                                        "1,,20,,,,1;"          // sound, then sound
                                        "1,,21,1024,,1024,1;"  // sound, then a picture
                                        ",,51,1024,,512,;"
                                        ",,52,512,,,;");  // a picture, then sound
  avio_closep(&oc->pb);
}

TEST_F(SnapshotTest, StreamsOfOtherKindsRepeatTheLineBefore) {
  AVFormatContext* made = nullptr;
  ASSERT_GE(avformat_alloc_output_context2(&made, nullptr, "mov", dir.path("a.mov").c_str()), 0);
  const zeva::FormatContextPtr oc(made);
  const auto add_subtitle = [&] {
    AVStream* st = avformat_new_stream(oc.get(), nullptr);
    st->codecpar->codec_type = AVMEDIA_TYPE_SUBTITLE;
    st->codecpar->codec_id = AV_CODEC_ID_MOV_TEXT;
    st->time_base = {1, 1000};
  };
  add_subtitle();
  add_picture_stream(oc.get());
  add_subtitle();
  add_sound_stream(oc.get());
  ASSERT_GE(avio_open(&oc->pb, dir.path("a.mov").c_str(), AVIO_FLAG_WRITE), 0);
  const std::string index = dir.path("a.index");
  auto snapshot = std::make_unique<zeva::Snapshot>();
  ASSERT_TRUE(snapshot->open(index.c_str()));
  ASSERT_TRUE(snapshot->attach(oc.get()));
  ASSERT_GE(avformat_write_header(oc.get(), nullptr), 0);
  for (const int stream : {1, 2, 3}) {
    const auto packet = make_packet(stream, 0, 0, 10, 20, true);
    ASSERT_EQ(av_write_frame(oc.get(), packet.get()), 0);
  }
  snapshot.reset();
  const auto lines = lines_of(index);
  ASSERT_GE(lines.size(), 6U);
  EXPECT_EQ(lines[1], "");
  EXPECT_EQ(lines[2], zeva::index_stream_line(*oc->streams[1]));
  EXPECT_EQ(lines[3], lines[2]);
  EXPECT_EQ(lines[4], zeva::index_stream_line(*oc->streams[3]));
  const auto records = records_of(index, 4);
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(records[1][0], 2);
  EXPECT_EQ(av_write_trailer(oc.get()), 0);
  avio_closep(&oc->pb);
}

}  // namespace
