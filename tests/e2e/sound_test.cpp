// Sound of a classic recording: its end, channels, times and silence, and its pictures beside it.
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

MovieInfo sound_only(const fs::path& file) {
  MovieInfo info = settings(file);
  info.disable_video = true;
  return info;
}

// `frames` samples of `channels` channels, each channel's value given.
std::vector<int16_t> level(int frames, const std::vector<int16_t>& values) {
  std::vector<int16_t> pcm;
  for (int n = 0; n < frames; ++n) pcm.insert(pcm.end(), values.begin(), values.end());
  return pcm;
}

int64_t sample_us(int64_t samples) { return kStartUs + samples * 1000000 / kSampleRate; }

std::vector<int16_t> decode_sound(const fs::path& file, const std::string& options) {
  const std::string bytes = decode(file, "-map 0:a " + options + " -f s16le");
  std::vector<int16_t> pcm(bytes.size() / 2);
  memcpy(pcm.data(), bytes.data(), pcm.size() * 2);
  return pcm;
}

// The last part of a frame, and what the resampler holds.
TEST(Sound, EndsWhereItsLastSampleIs) {
  const struct {
    const char* file;
    int source_rate, rate;
    int samples, step;  // of the source
    double tolerance_sec;
    const char* duration;  // where ffprobe tells it
  } cases[] = {
      {"end.mp4", 48000, 48000, 144000, 1024, 1.01 / 48000, "stream=duration"},
      {"end.mp4", 48000, 48000, 144000, 1024, 1e-6, "format=duration"},
      {"end.mp4", 44100, 48000, 132300, 1000, 1e-3, "format=duration"},
      {"end.mp4", 48000, 48000, 144001, 441, 1.01 / 48000, "stream=duration"},
      {"end.mp4", 44100, 48000, 132300, 1000, 1.01 / 48000, "stream=duration"},
      {"end.mp4", 8000, 44100, 24000, 160, 1.01 / 44100, "stream=duration"},
      {"end.mp4", 48000, 48000, 300, 300, 1e-3, "stream=duration"},
      {"end.wav", 48000, 48000, 144003, 1024, 1e-6, "stream=duration"},
      {"end.wav", 44100, 48000, 132300, 777, 1.01 / 48000, "stream=duration"},
      {"end.flac", 48000, 48000, 144003, 1024, 1e-6, "stream=duration"},
      {"end.opus", 48000, 48000, 144000, 960, 0.0071, "stream=duration"},
      {"end.mka", 48000, 48000, 144000, 999, 0.033, "format=duration"},  // AC-3: whole frames
      {"end.flv", 44100, 44100, 132300, 999, 0.04, "format=duration"},   // MP3: its delay, too
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.file) + " of " + std::to_string(c.samples) + " samples");
    const fs::path file = work_file(c.file);
    MovieInfo info = sound_only(file);
    info.src_sample_rate = c.source_rate;
    info.sample_rate = c.rate;
    Recording recording(info);
    for (int n = 0; n < c.samples; n += c.step) {
      recording.sound(level(std::min(c.step, c.samples - n), {1000, 1000}),
                      kStartUs + int64_t{1000000} * n / c.source_rate);
    }
    recording.stop();
    EXPECT_TRUE(recording.failures().empty());
    const Row row = probe(file, std::string("-show_entries ") + c.duration).at(0);
    EXPECT_NEAR(number(row, "duration"), static_cast<double>(c.samples) / c.source_rate,
                c.tolerance_sec);
    EXPECT_EQ(decode_faults(file), "");
  }
}

// Each channel has a level of its own, which must come out in its place.
TEST(Sound, HasTheChannelsTheHostAsksFor) {
  const struct {
    const char* file;
    const char* codec;
    int source_channels, channels;
    const char* layout;
  } cases[] = {
      {"mono.mp4", nullptr, 1, 1, "mono"},  {"mono.mp3", nullptr, 1, 1, "mono"},
      {"mono.wav", nullptr, 1, 1, ""},      {"both.mp4", nullptr, 1, 0, "stereo"},
      {"six.mp4", nullptr, 6, 6, "5.1"},    {"six.mka", "ac3", 6, 6, "5.1"},
      {"six.flac", nullptr, 6, 6, "5.1"},   {"six.wav", nullptr, 6, 6, "5.1"},
      {"six.opus", "libopus", 6, 6, "5.1"}, {"down.mp4", nullptr, 2, 1, "mono"},
      {"three.flac", nullptr, 3, 3, "2.1"}, {"eight.wav", nullptr, 8, 8, "7.1"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const fs::path file = work_file(c.file);
    MovieInfo info = sound_only(file);
    info.channels = c.source_channels;
    info.audio_bitrate = 640;
    ZevaOptions with = options();
    with.channels = c.channels;
    with.audio_codec = c.codec;
    Recording recording(info, with);
    ASSERT_TRUE(recording.open());
    // 300 Hz, the louder the further the channel is down the list; the subwoofer takes 100 Hz.
    for (int n = 0; n < 50; ++n) {
      std::vector<int16_t> pcm;
      for (int i = 0; i < 960; ++i) {
        const double t = (n * 960 + i) / static_cast<double>(kSampleRate);
        for (int channel = 0; channel < c.source_channels; ++channel) {
          const double hertz = channel == 3 ? 100 : 300;
          pcm.push_back(
              static_cast<int16_t>(2000 * (channel + 1) * std::sin(2 * M_PI * hertz * t)));
        }
      }
      recording.sound(pcm, sample_us(int64_t{960} * n));
    }
    recording.stop();
    const Row stream = streams(file).at(0);
    const int channels = c.channels != 0 ? c.channels : 2;
    EXPECT_EQ(number(stream, "channels"), channels);
    EXPECT_EQ(stream.at("channel_layout").substr(0, strlen(c.layout)), c.layout);
    const std::vector<int16_t> pcm = decode_sound(file, "");
    for (int channel = 0; channel < channels && c.source_channels == channels; ++channel) {
      int loudest = 0;
      for (size_t n = 10000; n < 40000; ++n) {
        loudest = std::max<int>(
            loudest, pcm[n * static_cast<size_t>(channels) + static_cast<size_t>(channel)]);
      }
      EXPECT_NEAR(loudest, 2000 * (channel + 1), 200) << channel;
    }
  }
}

// Frames that the host made for the encoder, beside PCM and after silence.
TEST(Sound, MayComeAsTheEncoderTakesIt) {
  const fs::path file = work_file("ready.flac");
  MovieInfo info = sound_only(file);
  info.src_sample_rate = 44100;
  info.channels = 1;
  Recording recording(info);
  const AVFrame* like = ZEVA_audio_dst_frame(recording.handle);
  ASSERT_NE(like, nullptr);
  ASSERT_EQ(like->format, AV_SAMPLE_FMT_S16);
  AVFrame* frame = av_frame_alloc();
  frame->format = like->format;
  frame->sample_rate = like->sample_rate;
  frame->channel_layout = like->channel_layout;
  frame->nb_samples = 1000;
  ASSERT_EQ(av_frame_get_buffer(frame, 0), 0);
  std::fill_n(reinterpret_cast<int16_t*>(frame->data[0]), 2000, int16_t{700});
  int taken = 0;
  for (int n = 0; n < 48; ++n) {
    frame->pts = sample_us(1000 * n);
    taken += ZEVA_write_audio_frame(recording.handle, frame, {1, 1000000}) ? 1 : 0;
  }
  EXPECT_GT(taken, 5);
  recording.sound(level(4410, {-300}), kStartUs + 1000000);
  frame->pts = kStartUs + 1100000;
  ZEVA_write_audio_frame(recording.handle, frame, {1, 1000000});
  frame->sample_rate = 22050;
  frame->pts = kStartUs + 1120833;
  EXPECT_FALSE(ZEVA_write_audio_frame(recording.handle, frame, {1, 1000000}));
  av_frame_free(&frame);
  recording.stop();

  const std::vector<int16_t> found = decode_sound(file, "");
  ASSERT_NEAR(static_cast<double>(found.size()) / 2, 53800, 1);
  EXPECT_EQ(found[0], 700);
  EXPECT_EQ(found[2 * 47900], 700);
  EXPECT_NEAR(found[2 * 48200], -212, 3);  // one channel shared out to two
  EXPECT_NEAR(found[2 * 52500], -212, 3);
  EXPECT_EQ(found[2 * 53500], 700);
}

// Sound from `begin` samples on that is lost, or stamped, in some way; where it is in the movie.
struct Stamps {
  const char* scenario;
  int64_t first_us;
  int64_t (*stamp)(int n);  // microseconds behind the first one, of block n of 20 ms
  double begin_sec, end_sec;
};

// Blocks of 20 ms whose stamps tell what the count alone does not.
TEST(Sound, IsWhereItsStampsSay) {
  const Stamps cases[] = {
      {"begins late", 300000, [](int n) { return int64_t{20000} * n; }, 0.3, 4.3},
      {"begins before the pictures", -30000, [](int n) { return int64_t{20000} * n; }, -0.03, 3.97},
      {"a gap of 0.3 s", 0, [](int n) { return int64_t{20000} * n + (n < 50 ? 0 : 300000); }, 0,
       4.3},
      {"a step of 0.7 s", 0, [](int n) { return int64_t{20000} * n + (n < 50 ? 0 : 700000); }, 0,
       4.7},
      {"a quicker clock", 0, [](int n) { return int64_t{20000} * n * 99 / 100; }, 0, 3.98},
      {"a slower clock", 0, [](int n) { return int64_t{20000} * n * 101 / 100; }, 0, 4.02},
      {"jitter", 0, [](int n) { return int64_t{20000} * n + (n * 7919 % 13) * 4000; }, 0, 4},
  };
  for (const Stamps& c : cases) {
    SCOPED_TRACE(c.scenario);
    const fs::path file = work_file("stamps.mp4");
    Recording recording(settings(file));
    recording.picture(gradients(0), kStartUs);
    for (int n = 0; n < 200; ++n) {
      recording.sound(level(960, {3000, 3000}), kStartUs + c.first_us + c.stamp(n));
    }
    recording.picture(gradients(1), kStartUs + 4000000);
    recording.stop();
    const std::vector<Row> found = probe(file, "-select_streams a -show_packets");
    double begin = 1e9;
    double end = 0;
    for (const Row& packet : found) {
      begin = std::min(begin, number(packet, "pts_time"));
      end = std::max(end, number(packet, "pts_time") + number(packet, "duration_time"));
    }
    // The packets begin by AAC's priming of 1024 samples before the sound.
    EXPECT_NEAR(begin + 1024.0 / kSampleRate, c.begin_sec, 1e-3);
    // Up to 20 ms of a drift, and what there was of it in the last second, are not made up.
    EXPECT_NEAR(end, c.end_sec, 0.031);
    EXPECT_EQ(decode_faults(file), "");
  }
}

// ---- silence

TEST(Silence, FillsTheGapWithZeroSamples) {
  const struct {
    const char* scenario;
    int source_rate;
    int begin, end;  // pictures between which there is silence
  } cases[] = {
      {"as encoded", 48000, 10, 34}, {"resampled", 44100, 10, 34}, {"at first", 48000, 0, 34}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.scenario);
    const fs::path file = work_file("silence.wav");  // samples as they are
    MovieInfo info = sound_only(file);
    info.src_sample_rate = c.source_rate;
    Recording recording(info);
    ASSERT_TRUE(recording.open());
    const int samples = c.source_rate / kFps;
    for (int n = 0; n < c.begin; ++n) recording.sound(level(samples, {1000, 1000}), time_us(n));
    if (c.begin == 0) {
      EXPECT_FALSE(ZEVA_write_audio_pcm(recording.handle, nullptr, 0, time_us(0)));
    }
    EXPECT_TRUE(ZEVA_write_audio_pcm(recording.handle, nullptr, 0, time_us(c.end)));
    EXPECT_FALSE(ZEVA_write_audio_pcm(recording.handle, nullptr, 0, time_us(c.end)));
    for (int n = c.end; n < 60; ++n) recording.sound(level(samples, {500, 500}), time_us(n));
    recording.stop();
    const std::vector<int16_t> found = decode_sound(file, "");
    constexpr size_t kPicture = kSampleRate / kFps;
    ASSERT_NEAR(static_cast<double>(found.size()), 2.0 * 60 * kPicture, 2);
    const auto value_at = [&](int picture, int offset) {
      return found[2 * (static_cast<size_t>(picture) * kPicture + static_cast<size_t>(offset))];
    };
    const int edge = c.source_rate == 48000 ? 0 : 40;  // a resampler rings at a step
    if (c.begin > 0) {
      EXPECT_EQ(value_at(c.begin, -1 - edge), 1000);
    }
    EXPECT_EQ(value_at(c.begin, edge), 0);
    EXPECT_EQ(value_at(c.end, -1 - edge), 0);
    EXPECT_EQ(value_at(c.end, edge), 500);
    EXPECT_EQ(value_at(60, -1 - edge), 500);
  }
}

// Longer than 31 bits of microseconds or bytes can say.
TEST(Silence, MayLastForHours) {
  for (const char* name : {"hours.mp4", "hours.mka"}) {
    SCOPED_TRACE(name);
    const fs::path file = work_file(name);
    MovieInfo info = sound_only(file);
    Recording recording(info);
    constexpr int64_t kHoursUs = int64_t{3} * 3600 * 1000000;
    recording.sound(level(4801, {8000, 8000}), kStartUs);
    EXPECT_TRUE(ZEVA_write_audio_pcm(recording.handle, nullptr, 0, kStartUs + kHoursUs));
    for (int n = 0; n < 25; ++n) {
      recording.sound(level(960, {8000, 8000}), kStartUs + kHoursUs + int64_t{20000} * n);
    }
    recording.stop();
    EXPECT_TRUE(recording.failures().empty());
    const fs::path tail = work_file("tail.wav");
    run_shell("ffmpeg -v error -y -ss 10799 -i " + shell_path(file) + " " + shell_path(tail));
    const std::vector<int16_t> found = decode_sound(tail, "");
    const auto loud = std::find_if(found.begin(), found.end(), [](int16_t v) { return v > 2000; });
    EXPECT_NEAR(static_cast<double>(loud - found.begin()) / 2, kSampleRate, 300);
    EXPECT_NEAR(static_cast<double>(found.size()) / 2, 1.5 * kSampleRate, 1600);
  }
}

// ---- pictures and sound together

// A white picture and a click each second, of a host whose pictures come when they like, whose
// sound begins late and is not there for a while.
TEST(Together, EveryFlashIsAtItsClick) {
  const struct {
    const char* file;
    const char* encoder_options;
  } cases[] = {{"flash.mp4", nullptr}, {"flash.mp4", "bf=2"}, {"flash.mkv", nullptr}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const fs::path file = work_file(c.file);
    ZevaOptions with = options();
    with.variable_rate = 1;
    with.video_codec = "libx264";
    with.audio_codec = "aac";
    with.encoder_options = c.encoder_options;
    Recording recording(settings(file), with);
    constexpr int kSeconds = 12;
    for (int ms = 0; ms < kSeconds * 1000; ++ms) {
      const int64_t now = kStartUs + int64_t{1000} * ms;
      const int since_flash = ms % 1000;
      const bool quick = ms / 1000 % 3 == 1;
      if (since_flash == 371) recording.picture(one_colour(255, 255, 255), now);
      if (since_flash == 391 || (quick && since_flash > 391 && since_flash % 17 == 0)) {
        recording.picture(one_colour(0, 0, 0), now);
      }
      if (ms >= 300 && ms % 20 == 0 && (ms < 5000 || ms >= 5240)) {
        std::vector<int16_t> pcm = level(960, {0, 0});
        if (since_flash == 360) {
          std::fill(pcm.begin() + 2 * 11 * 48, pcm.begin() + 2 * 13 * 48, int16_t{20000});
        }
        recording.sound(pcm, now);
      }
    }
    recording.stop();

    std::vector<double> flashes;
    double before = 0;
    for (const Row& row :
         probe(file,
               "-f lavfi -show_frames -show_entries "
               "frame=best_effort_timestamp_time:frame_tags=lavfi.signalstats.YAVG "
               "-i movie=" +
                   shell_path(file) + ",signalstats #")) {
      const double luma = number(row, "tag:lavfi.signalstats.YAVG");
      if (luma > 128 && before <= 128) flashes.push_back(number(row, "best_effort_timestamp_time"));
      before = luma;
    }
    const std::vector<int16_t> sound = decode_sound(file, "-af aresample=async=1:first_pts=0");
    ASSERT_EQ(flashes.size(), size_t{kSeconds});
    for (const double flash : flashes) {
      const auto from = static_cast<size_t>(std::max(flash - 0.2, 0.0) * kSampleRate) * 2;
      const auto to = std::min(sound.size(), static_cast<size_t>((flash + 0.4) * kSampleRate) * 2);
      size_t click = from;
      while (click < to && std::abs(sound[click]) < 8000) ++click;
      // The movie begins with the sound, at 0.3 s. Its gap is made up for within a second.
      const bool in_gap = flash > 4.7 && flash < 5.95;
      if (!in_gap) {
        EXPECT_NEAR(static_cast<double>(click) / 2 / kSampleRate, flash, 0.005) << flash;
      }
    }
  }
}

}  // namespace
