// Pauses, pictures, filters and the settings really used: what a host steers.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
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

TEST(Pauses, AreCutOutOfTheMovieExactly) {
  constexpr int kPictureUs = 40000;
  const fs::path file = work_file("paused.mp4");
  MovieInfo info = settings(file);
  info.disable_audio = true;
  info.fps = 1000;  // every millisecond of movie time shows in the time stamps
  Recording recording(info);
  EXPECT_FALSE(ZEVA_resume(recording.handle));
  const int64_t start = ZEVA_current_sys_usec();
  // Bounds of the time cut out, by the clock that pausing and resuming read.
  int64_t least_us = 0;
  int64_t most_us = 0;
  for (int round = 0; round < 3; ++round) {
    int64_t before = 0;
    int64_t after = 0;
    // Paused several times before it is resumed, only the last pause counts.
    for (int pause = 0; pause < round; ++pause) {
      before = ZEVA_current_sys_usec();
      EXPECT_TRUE(ZEVA_pause(recording.handle));
      after = ZEVA_current_sys_usec();
      for (int64_t now = after; now < after + 60000; now = ZEVA_current_sys_usec()) {
        ASSERT_FALSE(recording.picture(one_colour(0, 0, 255), now));
      }
    }
    EXPECT_EQ(ZEVA_is_paused(recording.handle), round > 0);
    if (round > 0) least_us += ZEVA_current_sys_usec() - after;
    EXPECT_EQ(ZEVA_resume(recording.handle), round > 0);
    if (round > 0) most_us += ZEVA_current_sys_usec() - before;
    EXPECT_FALSE(ZEVA_resume(recording.handle)) << "resumed twice";
    for (int frame = 5 * round; frame < 5 * round + 5; ++frame) {
      EXPECT_TRUE(recording.picture(gradients(frame), start + frame * kPictureUs + most_us));
    }
    const int64_t time = ZEVA_movie_time(recording.handle);
    EXPECT_GE(time, (5 * round + 4) * kPictureUs);
    EXPECT_LE(time, (5 * round + 4) * kPictureUs + most_us - least_us);
    EXPECT_LE(std::abs(ZEVA_last_usec_pts(recording.handle) - time), 1000);
  }
  const auto last = static_cast<double>(ZEVA_last_usec_pts(recording.handle));
  recording.stop();
  const std::vector<Row> found = packets(file);
  ASSERT_EQ(found.size(), 15U);
  EXPECT_NEAR(number(found.back(), "pts_time"), last / 1e6, 0.0011);
  EXPECT_EQ(decode_faults(file), "");
}

// ---- pictures

// Capture devices deliver rows with padding behind them.
TEST(Pictures, AreTheSameWithPaddedRows) {
  std::string decoded[2];
  for (const int padding : {0, 64}) {
    const fs::path file = work_file("movie.mp4");
    MovieInfo info = settings(file);
    info.disable_audio = true;
    Recording recording(info);
    for (int frame = 0; frame < 5; ++frame) {
      EXPECT_TRUE(recording.picture(gradients(frame, 4 * kWidth + padding), time_us(frame)));
    }
    recording.stop();
    decoded[padding == 0 ? 0 : 1] = decode(file, "-f rawvideo -pix_fmt bgra");
  }
  EXPECT_EQ(decoded[0].size(), size_t{5} * 4 * kWidth * kHeight);
  EXPECT_TRUE(decoded[0] == decoded[1]);
}

// A decoder leaves its picture type in the frame, and the host writes every picture with one frame.
// MPEG-1 holds a picture back: what the host writes next must not show in it.
TEST(Pictures, OfOneFrameThatTheHostWritesAgainAndAgain) {
  const struct {
    const char* file;
    int key_frames;
  } cases[] = {{"decoded.mp4", 1}, {"decoded.mpg", -1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const fs::path file = work_file(c.file);
    MovieInfo info = settings(file);
    info.disable_audio = true;
    info.width = info.src_width = 320;
    info.height = info.src_height = 176;  // whole macroblocks, which encoders like to keep
    info.src_pix_fmt = AV_PIX_FMT_YUV420P;
    info.gop_size = 250;
    info.video_bitrate = 4000;
    Recording recording(info);
    AVFrame* frame = av_frame_alloc();
    frame->format = AV_PIX_FMT_YUV420P;
    frame->width = info.width + 64;  // rows as far apart as in the encoder's own pictures
    frame->height = info.height;
    ASSERT_EQ(av_frame_get_buffer(frame, 0), 0);
    frame->width = info.width;
    memset(frame->data[1], 128, frame->linesize[1] * size_t{88});
    memset(frame->data[2], 128, frame->linesize[2] * size_t{88});
    for (int n = 0; n < 10; ++n) {
      memset(frame->data[0], 40 + 15 * n, frame->linesize[0] * size_t{176});
      frame->pict_type = AV_PICTURE_TYPE_I;
      frame->pts = time_us(n);
      EXPECT_TRUE(ZEVA_write_video_frame(recording.handle, frame, {1, 1000000}));
      EXPECT_EQ(frame->pict_type, AV_PICTURE_TYPE_I);
      EXPECT_TRUE(av_frame_is_writable(frame)) << "somebody keeps the host's picture";
    }
    av_frame_free(&frame);
    recording.stop();

    int key_frames = 0;
    for (const Row& packet : packets(file)) key_frames += packet.at("flags")[0] == 'K' ? 1 : 0;
    if (c.key_frames >= 0) {
      EXPECT_EQ(key_frames, c.key_frames);
    }
    const std::string luma = decode(file, "-vsync passthrough -f rawvideo -pix_fmt yuv420p");
    const size_t picture_bytes = size_t{320} * 176 * 3 / 2;
    ASSERT_EQ(luma.size(), 10 * picture_bytes);
    for (size_t n = 0; n < 10; ++n) {
      EXPECT_NEAR(static_cast<uint8_t>(luma[n * picture_bytes + 160 * 88]), 40 + 15 * n, 4) << n;
    }
  }
}

// ---- filters

// Replaces every picture by a blue one of its own, and writes 0x11 over every sound packet.
class TestFilter : public FilterBase {
 public:
  explicit TestFilter(int* deleted) : deleted_(deleted), blue_(av_frame_alloc()) {
    blue_->format = AV_PIX_FMT_YUV420P;
    blue_->width = kWidth;
    blue_->height = kHeight;
    EXPECT_EQ(av_frame_get_buffer(blue_, 0), 0);
    memset(blue_->data[0], 41, blue_->linesize[0] * size_t{kHeight});
    memset(blue_->data[1], 240, blue_->linesize[1] * size_t{kHeight} / 2);
    memset(blue_->data[2], 110, blue_->linesize[2] * size_t{kHeight} / 2);
  }
  ~TestFilter() override {
    av_frame_free(&blue_);
    ++*deleted_;
  }
  AVFrame* filter(AVFrame* frame) override {
    blue_->pts = frame->pts;
    return blue_;
  }
  void filter(AVPacket* packet) override {
    memset(packet->data, 0x11, static_cast<size_t>(packet->size));
    bytes += static_cast<size_t>(packet->size);
  }
  size_t bytes = 0;

 private:
  int* deleted_;
  AVFrame* blue_;
};

// The last picture filter is deleted with the recording; all others stay the host's.
TEST(Filters, ReplacePicturesAndEditSoundPackets) {
  const fs::path file = work_file("filtered.avi");
  int deleted = 0;
  int kept = 0;
  TestFilter replaced(&kept);
  TestFilter sound(&kept);
  Recording recording(settings(file));
  EXPECT_TRUE(ZEVA_add_audio_filter(recording.handle, &sound));
  EXPECT_TRUE(ZEVA_add_video_filter(recording.handle, &replaced));
  EXPECT_TRUE(ZEVA_add_video_filter(recording.handle, new TestFilter(&deleted)));
  recording.feed(0, kFps);
  EXPECT_EQ(deleted, 0);
  recording.stop();
  EXPECT_EQ(deleted, 1);
  EXPECT_EQ(kept, 0);

  const std::string pixels = decode(file, "-map 0:v -vsync passthrough -f rawvideo -pix_fmt bgra");
  ASSERT_EQ(pixels.size(), size_t{kFps} * 4 * kWidth * kHeight);
  for (size_t pixel = 0; pixel < pixels.size(); pixel += 4 * 997) {
    ASSERT_GT(static_cast<uint8_t>(pixels[pixel]), 200);
    ASSERT_LT(static_cast<uint8_t>(pixels[pixel + 1]), 50);
    ASSERT_LT(static_cast<uint8_t>(pixels[pixel + 2]), 50);
  }
  EXPECT_GT(sound.bytes, 0U);
  EXPECT_EQ(decode(file, "-map 0:a -c copy -f data"), std::string(sound.bytes, 0x11));
}

// Lets every other picture through.
class Thinning : public FilterBase {
 public:
  AVFrame* filter(AVFrame* frame) override { return n_++ % 2 == 0 ? frame : nullptr; }

 private:
  int n_ = 0;
};

TEST(Filters, LeaveOutPicturesThatTheHostIsToldOf) {
  const fs::path file = work_file("thinned.mp4");
  Recording recording(settings(file));
  EXPECT_TRUE(ZEVA_add_video_filter(recording.handle, new Thinning));
  for (int frame = 0; frame < 10; ++frame) {
    EXPECT_EQ(recording.picture(gradients(frame), time_us(frame)), frame % 2 == 0);
  }
  recording.stop();
  EXPECT_EQ(number(streams(file).at(0), "nb_read_frames"), 5);
}

// ---- settings

TEST(EffectiveSettings, AreThoseOfTheFile) {
  const struct {
    const char* file;
    int fps, effective_fps;
    int sample_rate, effective_sample_rate;
    int pix_fmt;  // always replaced by 4:2:0
    bool video = true;
  } cases[] = {
      {"as_asked.mp4", 25, 25, 48000, 48000, AV_PIX_FMT_YUV420P},
      {"no extension", 25, 25, 48000, 48000, AV_PIX_FMT_YUV420P},
      {"pixels.mp4", 33, 33, 44100, 44100, AV_PIX_FMT_BGRA},
      {"rate.flv", 25, 25, 48000, 44100, AV_PIX_FMT_YUV420P},
      {"frames.mpg", 33, 30, 32000, 32000, AV_PIX_FMT_YUV420P},
      {"no_format.mp4", 25, 25, 48000, 48000, AV_PIX_FMT_NONE},
      {"sound.mp3", 25, 25, 12345, 44100, AV_PIX_FMT_YUV420P, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const fs::path file = work_file(c.file);
    MovieInfo info = settings(file);
    info.disable_video = !c.video;
    info.preset = kQualityNone;
    info.profile = kProfileNone;
    info.tune = kTuneNone;
    info.fps = c.fps;
    info.sample_rate = c.sample_rate;
    info.pix_fmt = c.pix_fmt;
    // No hardware encoder makes MPEG-1 video, and without pictures there is none to take.
    info.hardware = std::string(c.file) == "frames.mpg" || !c.video;
    Recording recording(info);
    MovieInfo used{};
    ASSERT_TRUE(ZEVA_get_mInfo(recording.handle, &used));
    EXPECT_EQ(memcmp(&used, &recording.effective, sizeof used), 0);
    EXPECT_FALSE(used.hardware);
    EXPECT_EQ(used.fps, c.effective_fps);
    EXPECT_EQ(used.sample_rate, c.effective_sample_rate);
    if (c.video) {
      EXPECT_EQ(used.pix_fmt, AV_PIX_FMT_YUV420P);
    }
    recording.feed(0, 10);
    recording.stop();
    for (const Row& stream : streams(file)) {
      if (stream.at("codec_type") == "audio") {
        EXPECT_EQ(number(stream, "sample_rate"), c.effective_sample_rate);
      } else {
        EXPECT_EQ(stream.at("pix_fmt"), "yuv420p");
      }
    }
  }
}

}  // namespace
