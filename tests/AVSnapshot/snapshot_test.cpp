#include "snapshot.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

#include "index_reader.h"
#include "log_capture.h"
#include "media.h"
#include "temp_dir.h"
#include "zeva/status.h"

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

void add_subtitle_stream(AVFormatContext* oc) {
  AVStream* st = avformat_new_stream(oc, nullptr);
  st->codecpar->codec_type = AVMEDIA_TYPE_SUBTITLE;
  st->codecpar->codec_id = AV_CODEC_ID_DVD_SUBTITLE;
  st->time_base = {1, 12800};
}

TEST(Snapshot, TellsStreamsAtOnceAndPacketsOnePacketLate) {
  constexpr int kPictures = 1, kSubtitles = 2, kSound = 3;
  const TempDir dir;
  const std::string index = dir.path("a.index");
  AVFormatContext* made = nullptr;
  ASSERT_GE(avformat_alloc_output_context2(&made, nullptr, "mp4", dir.path("a.mp4").c_str()), 0);
  const zeva::FormatContextPtr oc(made);
  add_subtitle_stream(made);
  add_picture_stream(made);
  add_subtitle_stream(made);
  add_sound_stream(made);
  ASSERT_GE(avio_open(&made->pb, made->url, AVIO_FLAG_WRITE), 0);
  auto snapshot = std::make_unique<zeva::Snapshot>();
  ASSERT_TRUE(snapshot->open(index.c_str()));
  ASSERT_TRUE(snapshot->attach(made));
  ASSERT_GE(avformat_write_header(made, nullptr), 0);
  EXPECT_EQ(read_file(index), "") << "an older index would be gone before there is a movie";
  EXPECT_EQ(snapshot->commit(), 0);

  // A stream that is neither repeats the line before it.
  const std::string pictures =
      R"({"type":"video","index":1,"codec":"mpeg4","format":"yuv420p","h":48,"w":64,)"
      R"("tb.num":1,"tb.den":12800,"ev":""})";
  const std::string sound =
      R"({"type":"audio","index":3,"codec":"aac","format":"fltp","channels":2,)"
      R"("frame_size":1024,"sample_rate":48000,"tb.num":1,"tb.den":48000,"ev":"EZA="})";
  const std::vector<std::string> described{"", pictures, pictures, sound};
  std::vector<std::string> lines = lines_of(index);
  EXPECT_EQ(lines.at(0).rfind("## version=2, ", 0), 0U);
  lines.erase(lines.begin());
  EXPECT_EQ(lines, described);

  const std::string start = std::to_string(avio_tell(made->pb));
  const struct {
    int stream;
    int64_t pts, duration;
    int size;
    bool key;
  } packets[] = {{kPictures, 0, 1024, 50, true},     {kSound, 0, 1024, 20, true},
                 {kSound, 1024, 1024, 21, true},     {kPictures, 1024, 512, 51, false},
                 {kPictures, 1536, 1024, 52, false}, {kSound, 2048, 7, 22, true},
                 {kSubtitles, 1600, 9, 23, true},    {kPictures, 2000, 512, 53, false}};
  for (const auto& p : packets) {
    const auto packet = make_packet(p.stream, p.pts, p.pts, p.duration, p.size, p.key);
    ASSERT_EQ(av_write_frame(made, packet.get()), 0);
  }
  ASSERT_EQ(av_write_trailer(made), 0);
  snapshot.reset();
  EXPECT_EQ(lines_of(index).back(), "1," + start +
                                        ",50,,,,1;"            // a picture, then sound
                                        "3,,20,,,,1;"          // sound, then sound
                                        "3,,21,1024,,1024,1;"  // sound, then a picture
                                        "1,,51,1024,,512,;"
                                        "1,,52,512,,,;"  // a picture, then sound
                                        "3,,22,1024,,7,1;"
                                        "2,,23,64,,9,1;");  // counts on from the pictures
  avio_closep(&made->pb);
}

// A disk that takes `g_room` bytes more and tears the write that does not fit.
size_t g_room = 0;
size_t write_while_room(const void* data, size_t size, size_t count, FILE* file) {
  const size_t fits = std::min(count, g_room);
  const size_t written = fwrite(data, size, fits, file);
  g_room -= written;
  if (written < count) errno = ENOSPC;
  return written;
}

bool sync_nothing(FILE*) {
  errno = EIO;
  return false;
}

struct Reports {
  std::mutex mutex;
  std::vector<int> codes;
  std::string first_text;
  void add(int code, const std::string& text) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (codes.empty()) first_text = text;
    codes.push_back(code);
  }
};

// Pictures and sound in turn; `on_packet(i)` is called before packet i.
template <typename OnPacket>
void write_packets(AVFormatContext* oc, int count, OnPacket on_packet) {
  for (int i = 0; i < count; ++i) {
    on_packet(i);
    const auto packet = make_packet(i % 2, i / 2 * 1024, i / 2 * 1024, 1024, 30 + i % 50, true);
    ASSERT_EQ(av_write_frame(oc, packet.get()), 0);
  }
}

TEST(Snapshot, AFullDiskMakesAHoleAndNoGarbage) {
  constexpr int kPackets = 2000;
  const TempDir dir;
  const LogCapture log;
  const std::string path = dir.path("a.index");
  for (const size_t room : {size_t{0}, size_t{100}, size_t{3000}, size_t{9000}}) {
    SCOPED_TRACE(room);
    const zeva::FormatContextPtr movie = make_output(dir.path("a.mp4"));
    Reports reports;
    g_room = room;
    zeva::Snapshot snapshot([&](int code, const std::string& text) { reports.add(code, text); },
                            {write_while_room, zeva::sync_file});
    ASSERT_TRUE(snapshot.open(path.c_str()) && snapshot.attach(movie.get()));
    ASSERT_GE(avformat_write_header(movie.get(), nullptr), 0);
    std::vector<int64_t> places;  // what the movie's muxer knows of each packet
    write_packets(movie.get(), kPackets, [&](int i) {
      places.push_back(avio_tell(movie->pb));
      if (i == kPackets / 2) {
        std::this_thread::sleep_for(std::chrono::milliseconds(zeva::kIndexHandOverMs));
        g_room = SIZE_MAX;
      }
    });
    ASSERT_EQ(av_write_trailer(movie.get()), 0);
    avio_closep(&movie->pb);
    EXPECT_TRUE(snapshot.end());
    EXPECT_EQ(reports.codes, (std::vector<int>{kZevaStatusIndexFailing, kZevaStatusIndexBack}));
    EXPECT_NE(reports.first_text.find(path + ": No space left"), std::string::npos);

    zeva::IndexReader reader;
    ASSERT_TRUE(reader.open(path));
    EXPECT_EQ(reader.streams().list.size(), 2U);
    size_t next = 0, holes = 0;  // packets of the recording
    while (reader.next_line()) {
      for (zeva::IndexedPacket packet; reader.next_packet(packet); ++next) {
        holes += packet.skipped_bytes != 0 ? 1 : 0;
        while (next < places.size() && places[next] != packet.position) ++next;
        ASSERT_LT(next, places.size()) << "a record of no packet";
        EXPECT_EQ(packet.stream_index, static_cast<int>(next % 2));
        EXPECT_EQ(packet.pts, static_cast<int64_t>(next / 2 * 1024));
        EXPECT_EQ(packet.position + packet.size, places[next + 1]);
      }
      EXPECT_FALSE(reader.has_rest());
    }
    EXPECT_EQ(next, places.size() - 1);
    EXPECT_EQ(holes, 1U);
  }
  EXPECT_EQ(log.count("the index cannot be written: "), 4);
  EXPECT_EQ(log.count("the index is written again: "), 4);
}

TEST(Snapshot, KeepsAnOlderIndexUntilItsMovieIsWorthIt) {
  const TempDir dir;
  const LogCapture quiet;
  const std::string path = dir.path("a.index");
  for (const bool older : {true, false}) {
    if (older) write_file(path, "older");
    const zeva::FormatContextPtr movie = make_output(dir.path("a.mp4"));
    {
      zeva::Snapshot snapshot;
      ASSERT_TRUE(snapshot.open(path.c_str()) && snapshot.attach(movie.get()));
      EXPECT_EQ(snapshot.commit(), AVERROR(EINVAL)) << "no header yet";
      ASSERT_GE(avformat_write_header(movie.get(), nullptr), 0);
    }
    EXPECT_EQ(read_file(path), older ? "older" : "");
    EXPECT_EQ(zeva::file_exists(path), older);
    zeva::remove_file(path);
    avio_closep(&movie->pb);
  }
}

TEST(Snapshot, SaysWhenTheDiskKeepsNothing) {
  const TempDir dir;
  const LogCapture quiet;
  write_file(dir.path("a.index"), "older");
  const zeva::FormatContextPtr movie = make_output(dir.path("a.mp4"));
  Reports reports;
  zeva::Snapshot snapshot([&](int code, const std::string& text) { reports.add(code, text); },
                          {fwrite, sync_nothing});
  ASSERT_TRUE(snapshot.open(dir.path("a.index").c_str()) && snapshot.attach(movie.get()));
  ASSERT_GE(avformat_write_header(movie.get(), nullptr), 0);
  EXPECT_EQ(snapshot.commit(), 0);
  EXPECT_EQ(reports.codes, std::vector<int>{kZevaStatusSyncFailing}) << "before it returns";
  write_packets(movie.get(), 100, [](int) {});
  EXPECT_FALSE(snapshot.end());
  EXPECT_EQ(reports.codes.size(), 1U);
  avio_closep(&movie->pb);
}

}  // namespace
