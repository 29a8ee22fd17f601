// Pauses, silence, filters and the settings really used: what a host steers while recording.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
}

#include "judge.h"
#include "recording.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix
namespace fs = std::filesystem;

// ---- pauses

// Bounds of the time between a pause and its resume, by the clock that both calls read.
struct Cut {
  int64_t least_us;
  int64_t most_us;
};

// Offers pictures, as a host does that captures on while paused, until the clock has gone on by
// `length_us`.
void offer_while_paused(Recording& recording, int64_t length_us) {
  const int64_t end = ZEVA_current_sys_usec() + length_us;
  const std::vector<uint8_t> picture = one_colour(0, 0, 255);
  for (int64_t now = ZEVA_current_sys_usec(); now < end; now = ZEVA_current_sys_usec()) {
    ASSERT_FALSE(recording.picture(picture, now));
    ASSERT_FALSE(recording.sound(constant_sound(1), now));
  }
}

// Pauses `times` times in a row before resuming; only the last pause counts.
Cut pause_and_resume(Recording& recording, int times) {
  int64_t before_pause = 0;
  int64_t after_pause = 0;
  for (int i = 0; i < times; ++i) {
    before_pause = ZEVA_current_sys_usec();
    EXPECT_TRUE(ZEVA_pause(recording.handle));
    after_pause = ZEVA_current_sys_usec();
    EXPECT_TRUE(ZEVA_is_paused(recording.handle));
    offer_while_paused(recording, 60000);
  }
  const int64_t before_resume = ZEVA_current_sys_usec();
  EXPECT_TRUE(ZEVA_resume(recording.handle));
  const int64_t after_resume = ZEVA_current_sys_usec();
  EXPECT_FALSE(ZEVA_is_paused(recording.handle));
  EXPECT_FALSE(ZEVA_resume(recording.handle)) << "resumed twice";
  return {before_resume - after_pause, after_resume - before_pause};
}

TEST(Pauses, AreCutOutOfTheMovieExactly) {
  const fs::path file = work_file("paused.mp4");
  MovieInfo info = settings(file);
  info.disable_audio = true;
  info.fps = 1000;  // every millisecond of movie time shows in the time stamps
  Recording recording(info);
  EXPECT_FALSE(ZEVA_resume(recording.handle));
  const int64_t start = ZEVA_current_sys_usec();
  int64_t frame = 0;
  const auto record = [&](int count, int64_t paused_us) {
    for (; count > 0; --count, ++frame) {
      EXPECT_TRUE(
          recording.picture(gradients(static_cast<int>(frame)), start + frame * 40000 + paused_us));
    }
  };
  record(5, 0);
  EXPECT_EQ(ZEVA_movie_time(recording.handle), 4 * 40000);
  const Cut once = pause_and_resume(recording, 1);
  EXPECT_EQ(ZEVA_movie_time(recording.handle), 4 * 40000) << "a refused picture moved the time";
  record(5, once.most_us);
  int64_t slack = once.most_us - once.least_us;
  EXPECT_GE(ZEVA_movie_time(recording.handle), 9 * 40000);
  EXPECT_LE(ZEVA_movie_time(recording.handle), 9 * 40000 + slack);
  const Cut twice = pause_and_resume(recording, 2);
  record(5, once.most_us + twice.most_us);
  slack += twice.most_us - twice.least_us;
  EXPECT_GE(ZEVA_movie_time(recording.handle), 14 * 40000);
  EXPECT_LE(ZEVA_movie_time(recording.handle), 14 * 40000 + slack);
  const int64_t last = ZEVA_last_usec_pts(recording.handle);
  EXPECT_NEAR(static_cast<double>(last), static_cast<double>(ZEVA_movie_time(recording.handle)),
              1000);
  recording.stop();

  const std::vector<Row> found = packets(file);
  ASSERT_EQ(found.size(), 15U);
  EXPECT_NEAR(number(found.back(), "pts_time"), static_cast<double>(last) / 1e6, 0.0011);
  EXPECT_EQ(decode_faults(file), "");
}

// ---- silence

TEST(Silence, FillsTheGapWithZeroSamples) {
  const fs::path file = work_file("silence.wav");  // samples as they are
  MovieInfo info = settings(file);
  info.disable_video = true;
  Recording recording(info);
  ASSERT_TRUE(recording.open());
  for (int frame = 0; frame < 10; ++frame) recording.sound(constant_sound(1000), time_us(frame));
  // From the start of the last sound, at picture 9, to picture 34: one second.
  EXPECT_TRUE(ZEVA_write_audio_pcm(recording.handle, nullptr, 0, time_us(34)));
  for (int frame = 34; frame < 60; ++frame) recording.sound(constant_sound(500), time_us(frame));
  recording.stop();

  const std::string raw = decode(file, "-f s16le");
  std::vector<int16_t> samples(raw.size() / 2);
  memcpy(samples.data(), raw.data(), samples.size() * 2);
  const auto silent = std::find(samples.begin(), samples.end(), int16_t{0});
  const auto loud = std::find_if(silent, samples.end(), [](int16_t s) { return s != 0; });
  EXPECT_EQ(silent - samples.begin(), 10 * 2 * kSampleRate / kFps);
  EXPECT_EQ(loud - silent, 2 * kSampleRate);
  ASSERT_NE(loud, samples.end());
  EXPECT_TRUE(std::all_of(samples.begin(), silent, [](int16_t s) { return s == 1000; }));
  EXPECT_TRUE(std::all_of(loud, samples.end(), [](int16_t s) { return s == 500; }));
}

// ---- filters

// Replaces every picture by a blue one of its own.
class BlueFilter : public FilterBase {
 public:
  explicit BlueFilter(int* deleted) : deleted_(deleted), blue_(av_frame_alloc()) {
    blue_->format = AV_PIX_FMT_YUV420P;
    blue_->width = kWidth;
    blue_->height = kHeight;
    EXPECT_EQ(av_frame_get_buffer(blue_, 0), 0);
    memset(blue_->data[0], 41, blue_->linesize[0] * size_t{kHeight});
    memset(blue_->data[1], 240, blue_->linesize[1] * size_t{kHeight} / 2);
    memset(blue_->data[2], 110, blue_->linesize[2] * size_t{kHeight} / 2);
  }
  ~BlueFilter() override {
    av_frame_free(&blue_);
    ++*deleted_;
  }
  AVFrame* filter(AVFrame* frame) override {
    blue_->pts = frame->pts;
    return blue_;
  }

 private:
  int* deleted_;
  AVFrame* blue_;
};

// Writes a value of its own into every sample.
class SampleFilter : public FilterBase {
 public:
  explicit SampleFilter(int* deleted) : deleted_(deleted) {}
  ~SampleFilter() override { ++*deleted_; }
  void filter(AVPacket* packet) override {
    memset(packet->data, 0x11, static_cast<size_t>(packet->size));
    bytes += packet->size;
  }
  int64_t bytes = 0;

 private:
  int* deleted_;
};

TEST(Filters, ReplacePicturesAndAreDeletedWithTheRecording) {
  const fs::path file = work_file("blue.mp4");
  int deleted = 0;
  int replaced_deleted = 0;
  BlueFilter replaced(&replaced_deleted);
  Recording recording(settings(file));
  EXPECT_TRUE(ZEVA_add_video_filter(recording.handle, &replaced));
  EXPECT_TRUE(ZEVA_add_video_filter(recording.handle, new BlueFilter(&deleted)));
  recording.feed(0, 5);
  EXPECT_EQ(deleted, 0);
  recording.stop();
  EXPECT_EQ(deleted, 1);
  EXPECT_EQ(replaced_deleted, 0);

  const std::string decoded = decode(file, "-f rawvideo -pix_fmt bgra");
  ASSERT_EQ(decoded.size(), size_t{5} * 4 * kWidth * kHeight);
  for (size_t pixel = 0; pixel < decoded.size(); pixel += 4 * 997) {
    ASSERT_GT(static_cast<uint8_t>(decoded[pixel]), 200);
    ASSERT_LT(static_cast<uint8_t>(decoded[pixel + 1]), 50);
    ASSERT_LT(static_cast<uint8_t>(decoded[pixel + 2]), 50);
  }
}

TEST(Filters, EditEverySoundPacketAndStayTheHosts) {
  const fs::path file = work_file("edited.wav");
  int deleted = 0;
  SampleFilter filter(&deleted);
  MovieInfo info = settings(file);
  info.disable_video = true;
  Recording recording(info);
  EXPECT_TRUE(ZEVA_add_audio_filter(recording.handle, &filter));
  EXPECT_TRUE(ZEVA_add_video_filter(recording.handle, nullptr)) << "true without an encoder, too";
  recording.feed(0, kFps);
  recording.stop();
  EXPECT_EQ(deleted, 0);
  const std::string samples = decode(file, "-f s16le");
  EXPECT_GT(filter.bytes, 0);
  EXPECT_EQ(samples, std::string(static_cast<size_t>(filter.bytes), 0x11));
}

// ---- settings

TEST(EffectiveSettings, AreThoseOfTheFile) {
  struct Case {
    const char* file;
    int fps, effective_fps;
    int sample_rate, effective_sample_rate;
    int pix_fmt, effective_pix_fmt;
    const char* found_pix_fmt;
  };
  const Case cases[] = {
      {"as_asked.mp4", 25, 25, 48000, 48000, AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, "yuv420p"},
      {"pixels.mp4", 33, 33, 44100, 44100, AV_PIX_FMT_BGRA, AV_PIX_FMT_YUV420P, "yuv420p"},
      {"rate.flv", 25, 25, 48000, 44100, AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, "yuv420p"},
      {"frames.mpg", 33, 30, 32000, 32000, AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, "yuv420p"},
      {"sound.mp3", 25, 25, 12345, 44100, AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    const fs::path file = work_file(c.file);
    MovieInfo info = settings(file);
    info.disable_video = c.found_pix_fmt == nullptr;
    info.preset = kQualityNone;
    info.profile = kProfileNone;
    info.tune = kTuneNone;
    info.fps = c.fps;
    info.sample_rate = c.sample_rate;
    info.pix_fmt = c.pix_fmt;
    Recording recording(info);
    MovieInfo used{};
    ASSERT_TRUE(ZEVA_get_mInfo(recording.handle, &used));
    EXPECT_EQ(memcmp(&used, &recording.effective, sizeof used), 0);
    EXPECT_EQ(used.fps, c.effective_fps);
    EXPECT_EQ(used.sample_rate, c.effective_sample_rate);
    EXPECT_EQ(used.pix_fmt, c.effective_pix_fmt);
    recording.feed(0, 10);
    recording.stop();
    for (const Row& stream : streams(file)) {
      if (stream.at("codec_type") == "audio") {
        EXPECT_EQ(number(stream, "sample_rate"), c.effective_sample_rate);
      } else {
        EXPECT_EQ(stream.at("pix_fmt"), c.found_pix_fmt);
      }
    }
  }
}

TEST(EffectiveSettings, SayWhetherHardwareEncodes) {
  const fs::path file = work_file("hardware.mp4");
  MovieInfo info = settings(file);
  info.hardware = true;
  info.video_bitrate = 0;
  info.rc_mode = 2;
  info.disable_audio = true;
  Recording recording(info);
  ASSERT_TRUE(recording.open());
  recording.feed(0, 5);
  recording.stop();
  // The software encoder leaves its name in the first picture.
  const bool software = read_file(file).find("x264") != std::string::npos;
  EXPECT_EQ(recording.effective.hardware, !software);
  EXPECT_EQ(recording.effective.rc_mode, software ? 2 : 3);
  EXPECT_EQ(recording.effective.pix_fmt, software ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_NV12);
  EXPECT_EQ(decode_faults(file), "");
}

}  // namespace
