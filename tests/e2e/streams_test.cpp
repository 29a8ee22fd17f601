// Pictures of live streams that differ from those of the files beside them. The server is the build
// machine's own ffmpeg.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <thread>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

#include "judge.h"
#include "recording.h"
#include "sockets.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix
namespace fs = std::filesystem;
using testing::HasSubstr;

// Takes one stream and writes it down.
class RtmpServer {
 public:
  explicit RtmpServer(fs::path file) : file(std::move(file)) {
    Listener free;
    url = "rtmp://127.0.0.1:" + std::to_string(free.port()) + "/live/test";
    free.close();
    const std::string script = "timeout 60 ffmpeg -loglevel error -y -listen 1 -i " + url +
                               " -c copy -f flv " + shell_path(this->file);
    server = std::thread([script] { run_shell(script); });
  }
  ~RtmpServer() { finish(); }
  // Waits until the file is whole.
  void finish() {
    if (server.joinable()) server.join();
  }
  std::string url;
  const fs::path file;

 private:
  std::thread server;
};

// The server may not listen yet.
std::unique_ptr<Recording> record(const MovieInfo& info, const ZevaOptions& with) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (std::chrono::steady_clock::now() < deadline) {
    auto recording = std::make_unique<Recording>(info, with);
    if (recording->open()) return recording;
    std::this_thread::yield();
  }
  return nullptr;
}

ZevaOptions half_size() {
  ZevaOptions with = options();
  with.stream_bitrate = 150000;
  with.stream_width = kWidth / 2;
  return with;
}

struct Expected {
  int pictures;
  int width, height;
  std::string codec = "h264";
};

void expect_movie(const fs::path& file, const Expected& expected) {
  SCOPED_TRACE(file.filename());
  const std::vector<Row> found = streams(file);
  ASSERT_GE(found.size(), 1U);
  const Row& video = found[0];
  EXPECT_EQ(video.at("codec_name"), expected.codec);
  EXPECT_EQ(video.at("width"), std::to_string(expected.width));
  EXPECT_EQ(video.at("height"), std::to_string(expected.height));
  EXPECT_EQ(video.at("nb_read_frames"), std::to_string(expected.pictures));
  EXPECT_EQ(decode_faults(file), "");
}

std::vector<double> picture_times(const fs::path& file) {
  std::vector<double> times;
  for (const Row& frame : probe(file,
                                "-select_streams v -show_frames "
                                "-show_entries frame=best_effort_timestamp_time")) {
    if (frame.count("best_effort_timestamp_time") != 0) {
      times.push_back(number(frame, "best_effort_timestamp_time"));
    }
  }
  return times;
}

// The mean difference of their pictures, 16x9 of them, out of 255.
double difference(const fs::path& a, const fs::path& b) {
  const std::string small = "-an -vsync passthrough -vf scale=16:9:flags=area -pix_fmt rgb24 -f rawvideo";
  const std::string of_a = decode(a, small), of_b = decode(b, small);
  EXPECT_EQ(of_a.size(), of_b.size());
  double sum = 0;
  for (size_t i = 0; i < std::min(of_a.size(), of_b.size()); ++i) {
    sum += std::abs(static_cast<uint8_t>(of_a[i]) - static_cast<uint8_t>(of_b[i]));
  }
  return sum / static_cast<double>(std::max<size_t>(of_a.size(), 1));
}

constexpr int kPictures = 100;

TEST(StreamEncoder, HasSizeRateAndCodecOfItsOwn) {
  const struct {
    const char* name;
    const char* file;
    bool server_is_main;
    bool variable_rate;
    const char* video_codec;  // of the files
    const char* encoder_options;
    const char* codec_in_file;
  } cases[] = {
      {"plain", "movie.mp4", false, false, nullptr, nullptr, "h264"},
      {"main server", "movie.mp4", true, false, nullptr, nullptr, "h264"},
      {"other codec", "movie.ts", false, false, nullptr, nullptr, "mpeg2video"},
      {"named codec", "movie.mkv", true, false, "mpeg4", "qmin=2:mbd=2", "mpeg4"},
      {"own times", "movie.mkv", false, true, "libx264", "crf=15:bf=2", "h264"},
      {"counted times", "movie.mkv", false, true, "mpeg4", nullptr, "mpeg4"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const fs::path file = work_file(c.file);
    RtmpServer server(work_file("stream.flv"));
    const std::string file_url = utf8(file);
    MovieInfo info = settings(c.server_is_main ? server.url : file_url);
    const std::string& other = c.server_is_main ? file_url : server.url;
    info.other_urls[0] = other.c_str();
    ZevaOptions with = half_size();
    with.variable_rate = c.variable_rate ? 1 : 0;
    with.video_codec = c.video_codec;
    with.audio_codec = "aac";
    with.encoder_options = c.encoder_options;
    const auto recording = record(info, with);
    ASSERT_NE(recording, nullptr);
    EXPECT_EQ(recording->effective.width, kWidth);
    for (int n = 0; n < kPictures; ++n) {
      const int64_t jitter_us = c.variable_rate ? n * 7 % 5 * 5000 : 0;
      EXPECT_TRUE(recording->picture(gradients(n), time_us(n) + jitter_us));
      EXPECT_TRUE(recording->sound(tone(n), time_us(n)) || n == 0);
    }
    ZevaStatistics told;
    ZevaStatistics_init(&told);
    EXPECT_TRUE(ZEVA_statistics(recording->handle, &told));
    EXPECT_EQ(told.stream_bit_rate, 150000);
    recording->stop();
    for (const Status& failure : recording->failures()) ADD_FAILURE() << failure.text;
    server.finish();
    expect_movie(file, {kPictures, kWidth, kHeight, c.codec_in_file});
    expect_movie(server.file, {kPictures, kWidth / 2, kHeight / 2});
    EXPECT_LT(difference(file, server.file), 3);
    const std::vector<double> times = picture_times(file), streamed = picture_times(server.file);
    ASSERT_EQ(times.size(), streamed.size());
    double worst = 0;
    for (size_t n = 0; n < times.size(); ++n) {
      worst = std::max(worst, std::abs(times[n] - times[0] - (streamed[n] - streamed[0])));
    }
    EXPECT_LE(worst, 2.1e-3) << "in units of 1 ms";
  }
}

}  // namespace
