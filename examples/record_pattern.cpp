// A whole host in one file: records three seconds of moving gradients and a tone into the MP4 named
// on the command line, with its crash-safe index beside it.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

extern "C" {
#include <libavutil/pixfmt.h>
#include <libavutil/samplefmt.h>
}

#include "zeva/zeva.h"

namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 360;
constexpr int kFps = 30;
constexpr int kSampleRate = 48000;
constexpr int kSeconds = 3;

void on_status(int code, const char* message, void* /*user*/) {
  printf("status %d: %s\n", code, message);
}

MovieInfo settings(const char* url) {
  MovieInfo info{};
  snprintf(info.url, sizeof info.url, "%s", url);
  snprintf(info.moov_url, sizeof info.moov_url, "%s.index", url);
  info.width = info.src_width = kWidth;
  info.height = info.src_height = kHeight;
  info.fps = kFps;
  info.gop_size = 2 * kFps;
  info.video_bitrate = 1000;
  info.src_pix_fmt = AV_PIX_FMT_BGRA;
  info.pix_fmt = AV_PIX_FMT_YUV420P;
  info.colorspace = AVCOL_SPC_UNSPECIFIED;
  info.preset = preset_from_str("veryfast");
  info.profile = profile_from_str("high");
  info.tune = tune_from_str("zerolatency");
  info.src_sample_rate = info.sample_rate = kSampleRate;
  info.channels = 2;
  info.sample_fmt = AV_SAMPLE_FMT_S16;
  info.audio_bitrate = 128;
  return info;
}

void draw(std::vector<uint8_t>& bgra, int frame) {
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      uint8_t* pixel = &bgra[4 * (static_cast<size_t>(y) * kWidth + static_cast<size_t>(x))];
      pixel[0] = static_cast<uint8_t>(x + frame);
      pixel[1] = static_cast<uint8_t>(y);
      pixel[2] = static_cast<uint8_t>(128 + frame);
    }
  }
}

void play(std::vector<int16_t>& pcm, int frame) {
  const size_t samples = pcm.size() / 2;
  for (size_t i = 0; i < samples; ++i) {
    const double t = static_cast<double>(static_cast<size_t>(frame) * samples + i) / kSampleRate;
    pcm[2 * i] = pcm[2 * i + 1] = static_cast<int16_t>(8000 * std::sin(2 * M_PI * 440 * t));
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: record_pattern <file.mp4>\n");
    return 2;
  }
  MovieInfo info = settings(argv[1]);
  void* recording = ZEVA_start(info, on_status, nullptr, nullptr, false);
  if (!ZEVA_get_mInfo(recording, &info)) {
    ZEVA_stop(&recording);
    return 1;
  }
  std::vector<uint8_t> bgra(4 * kWidth * kHeight);
  std::vector<int16_t> pcm(2 * kSampleRate / kFps);
  // A live host stamps with ZEVA_current_sys_usec(); here the movie is made faster than it plays.
  const int64_t start_us = ZEVA_current_sys_usec();
  for (int frame = 0; frame < kSeconds * kFps; ++frame) {
    const int64_t pts_us = start_us + int64_t{1000000} * frame / kFps;
    draw(bgra, frame);
    play(pcm, frame);
    ZEVA_write_video_bgra(recording, bgra.data(), static_cast<int>(bgra.size()), pts_us,
                          4 * kWidth);
    ZEVA_write_audio_pcm(recording, pcm.data(), static_cast<int>(pcm.size() * sizeof pcm[0]),
                         pts_us);
  }
  printf("recorded %.3f s\n", static_cast<double>(ZEVA_movie_time(recording)) / 1000000.0);
  ZEVA_stop(&recording);
  return 0;
}
