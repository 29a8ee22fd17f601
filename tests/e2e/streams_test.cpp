// Pictures of live streams that differ from those of the files beside them. The server is the build
// machine's own ffmpeg.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <thread>

extern "C" {
#include <libavutil/error.h>
#include <libavutil/frame.h>
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
  explicit RtmpServer(fs::path file, const std::string& how = "") : file(std::move(file)) {
    fs::remove(end_mark());
    Listener free;
    url = "rtmp://127.0.0.1:" + std::to_string(free.port()) + "/live/test";
    free.close();
    const std::string script = "timeout 60 ffmpeg -loglevel error -y " + how + " -listen 1 -i " +
                               url + " -c copy -f flv " + shell_path(this->file) +
                               " & server=$!; while kill -0 $server && [ ! -e " +
                               shell_path(end_mark()) +
                               " ]; do sleep 0.1; done 2>/dev/null; kill $server";
    server = std::thread([script] { run_shell(script); });
  }
  ~RtmpServer() {
    std::ofstream(end_mark()).put('.');
    finish();
  }
  // Waits until the stream has ended and the file is whole.
  void finish() {
    if (server.joinable()) server.join();
  }
  std::string url;
  const fs::path file;

 private:
  fs::path end_mark() const { return fs::path(file).concat(".end"); }

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

// A stop has two seconds for a stream, which a busy machine's server may need longer for.
void wait_until_sent(const Recording& recording) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  const auto all_sent = [&] {
    ZevaOutputState state;
    ZevaOutputState_init(&state);
    for (int32_t i = 0; ZEVA_output_state(recording.handle, i, &state); ++i) {
      if (state.queued_packets > 0) return false;
    }
    return true;
  };
  while (!all_sent() && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
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
  const std::string small =
      "-an -vsync passthrough -vf scale=16:9:flags=area -pix_fmt rgb24 -f rawvideo";
  const std::string of_a = decode(a, small), of_b = decode(b, small);
  EXPECT_EQ(of_a.size(), of_b.size());
  double sum = 0;
  for (size_t i = 0; i < std::min(of_a.size(), of_b.size()); ++i) {
    sum += std::abs(static_cast<uint8_t>(of_a[i]) - static_cast<uint8_t>(of_b[i]));
  }
  return sum / static_cast<double>(std::max<size_t>(of_a.size(), 1));
}

constexpr int kPictures = 60;

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
    EXPECT_EQ(statistics(*recording).stream_bit_rate, 150000);
    wait_until_sent(*recording);
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

TEST(StreamEncoder, IsTheOnlyOneWithoutFiles) {
  RtmpServer server(work_file("stream.flv"));
  MovieInfo info = settings(server.url);
  info.rc_mode = 3;
  ZevaOptions with = half_size();
  with.stream_height = 120;
  const auto recording = record(info, with);
  ASSERT_NE(recording, nullptr);
  EXPECT_EQ(recording->effective.width, kWidth / 2);
  EXPECT_EQ(recording->effective.height, 120);
  EXPECT_EQ(recording->effective.video_bitrate, 150);
  recording->feed(0, kPictures);
  const ZevaStatistics told = statistics(*recording);
  EXPECT_EQ(told.bit_rate, 150000);
  EXPECT_EQ(told.stream_bit_rate, 0);
  wait_until_sent(*recording);
  recording->stop();
  server.finish();
  expect_movie(server.file, {kPictures, kWidth / 2, 120});
}

// Leaves out every third picture.
class Thinning : public FilterBase {
 public:
  AVFrame* filter(AVFrame* frame) override { return ++calls % 3 == 0 ? nullptr : frame; }
  int calls = 0;
};

TEST(StreamEncoder, GetsFilteredPictures) {
  const fs::path file = work_file("movie.mp4");
  RtmpServer server(work_file("stream.flv"));
  MovieInfo info = settings(file);
  info.other_urls[0] = server.url.c_str();
  const auto recording = record(info, half_size());
  ASSERT_NE(recording, nullptr);
  auto* filter = new Thinning;  // the encoder deletes it
  EXPECT_TRUE(ZEVA_add_video_filter(recording->handle, filter));
  for (int n = 0; n < kPictures; ++n) {
    EXPECT_EQ(recording->picture(gradients(n), time_us(n)), n % 3 != 2);
    recording->sound(tone(n), time_us(n));
  }
  EXPECT_EQ(filter->calls, kPictures) << "once a picture";
  const ZevaStatistics told = statistics(*recording);
  EXPECT_EQ(told.pictures_given, kPictures);
  EXPECT_EQ(told.pictures_refused, kPictures / 3);
  wait_until_sent(*recording);
  recording->stop();
  server.finish();
  expect_movie(file, {kPictures * 2 / 3, kWidth, kHeight});
  expect_movie(server.file, {kPictures * 2 / 3, kWidth / 2, kHeight / 2});
}

TEST(StreamOptions, ThatCannotBeAreRefusedByName) {
  const fs::path file = work_file("movie.mp4");
  const std::string server = "rtmp://127.0.0.1:9/live/test";
  const struct {
    const char* name;
    bool with_file;
    std::function<void(MovieInfo&, ZevaOptions&)> change;
    const char* fault;
  } cases[] = {
      {"shared", true, [](auto&, auto& o) { o.stream_bitrate_floor = 100000; },
       "stream_bitrate_floor 100000 would lower"},
      {"above", false, [](auto&, auto& o) { o.stream_bitrate_floor = 1000001; },
       "stream_bitrate_floor 1000001 is above the streams' bit rate of 1000000"},
      {"above own", true,
       [](auto&, auto& o) {
         o.stream_bitrate = 90000;
         o.stream_bitrate_floor = 100000;
       },
       "stream_bitrate_floor 100000 is above the streams' bit rate of 90000"},
      {"fixed", false,
       [](auto& i, auto& o) {
         i.rc_mode = 3;
         o.stream_bitrate_floor = 1;
       },
       "stream_bitrate_floor: libx264 cannot change its bit rate"},
      {"flv1", false,
       [](auto&, auto& o) {
         o.video_codec = "flv";
         o.stream_bitrate_floor = 1;
       },
       "stream_bitrate_floor: flv cannot change its bit rate"},
      {"width alone", true, [](auto&, auto& o) { o.stream_width = 160; },
       "stream_width 160 needs stream_bitrate"},
      {"height alone", false, [](auto&, auto& o) { o.stream_height = 90; },
       "stream_height 90 needs stream_bitrate"},
      {"wide", true,
       [](auto&, auto& o) {
         o.stream_bitrate = 100000;
         o.stream_width = 40000;
       },
       "stream_width 40000 is out of range"},
      {"odd", true,
       [](auto&, auto& o) {
         o.stream_bitrate = 100000;
         o.stream_width = 161;
         o.stream_height = 91;
       },
       "stream_width 161, stream_height 91"},
      {"negative", true, [](auto&, auto& o) { o.stream_bitrate = -1; }, "stream_bitrate -1"},
      {"codec", false,
       [](auto&, auto& o) {
         o.stream_bitrate = 100000;
         o.video_codec = "mpeg2video";
       },
       "video_codec 'mpeg2video'"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    MovieInfo info = c.with_file ? settings(file) : settings(server);
    info.video_bitrate = 1000;
    if (c.with_file) info.other_urls[0] = server.c_str();
    ZevaOptions with = options();
    c.change(info, with);
    Recording recording(info, with);
    EXPECT_FALSE(recording.open());
    ASSERT_EQ(recording.failures().size(), 1U);
    EXPECT_EQ(recording.failures()[0].code, AVERROR(EINVAL));
    EXPECT_THAT(recording.failures()[0].text, HasSubstr(c.fault));
    recording.stop();
    EXPECT_FALSE(fs::exists(file));
  }
}

// They are about streams and pictures; a recording without either takes them.
TEST(StreamOptions, AreForStreamsOfPictures) {
  for (const bool pictures : {true, false}) {
    const fs::path file = work_file("movie.mp4");
    MovieInfo info = settings(file);
    info.disable_video = !pictures;
    ZevaOptions with = half_size();
    with.stream_bitrate_floor = 10;
    Recording recording(info, with);
    ASSERT_TRUE(recording.open());
    EXPECT_EQ(recording.effective.width, kWidth);
    recording.feed(0, 10);
    recording.stop();
    EXPECT_EQ(decode_faults(file), "");
  }
}

std::vector<uint8_t> noise(std::mt19937& random) {
  std::vector<uint8_t> bgra(size_t{4} * kWidth * kHeight);
  std::generate(bgra.begin(), bgra.end(), [&] { return static_cast<uint8_t>(random()); });
  return bgra;
}

// A server that takes a twentieth of the stream.
TEST(StreamRate, GoesDownToItsFloorWhileTheFileStaysWhole) {
  const fs::path file = work_file("movie.mp4");
  RtmpServer server(work_file("stream.flv"), "-readrate 0.05");
  MovieInfo info = settings(file);
  info.disable_audio = true;
  info.other_urls[0] = server.url.c_str();
  ZevaOutputPolicy live;
  ZevaOutputPolicy_init(&live);
  live.when_full = kZevaFullDrop;
  live.keep_us = 3000000;
  const ZevaOutputPolicy* policies[] = {nullptr, &live};
  ZevaOptions with = options();
  with.stream_bitrate = 4000000;
  with.stream_bitrate_floor = 2000000;
  with.policies = policies;
  with.policy_count = 2;
  const auto recording = record(info, with);
  ASSERT_NE(recording, nullptr);
  std::mt19937 random;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  int32_t rate = with.stream_bitrate;
  int pictures = 0;
  while (rate > with.stream_bitrate_floor && std::chrono::steady_clock::now() < deadline) {
    EXPECT_TRUE(recording->picture(noise(random), time_us(pictures++)));
    rate = statistics(*recording).stream_bit_rate;
    EXPECT_GE(rate, with.stream_bitrate_floor);
  }
  EXPECT_EQ(rate, with.stream_bitrate_floor);
  EXPECT_EQ(statistics(*recording).bit_rate, info.video_bitrate * 1000);
  recording->stop();
  expect_movie(file, {pictures, kWidth, kHeight});
}

}  // namespace
