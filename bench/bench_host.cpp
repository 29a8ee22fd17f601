// One recording as its host sees it: how long the calls take, and what memory stays.
//   bench_host <out.mp4> <width> <height> <seconds> [real]
// Prints one JSON object. With `real` the frames come at their time, else as fast as they are
// taken.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

extern "C" {
#include <libavutil/log.h>
#include <libavutil/pixfmt.h>
#include <libavutil/samplefmt.h>
}

#include "zeva/zeva.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kFps = 30;
constexpr int kSampleRate = 48000;

double milliseconds(Clock::duration d) {
  return std::chrono::duration<double, std::milli>(d).count();
}

long resident_kib() {
  FILE* file = fopen("/proc/self/status", "r");
  char line[256];
  long kib = 0;
  while (file != nullptr && fgets(line, sizeof line, file) != nullptr) {
    if (strncmp(line, "VmRSS:", 6) == 0) kib = atol(line + 6);
  }
  if (file != nullptr) fclose(file);
  return kib;
}

MovieInfo settings(const char* url, int width, int height) {
  MovieInfo info{};
  snprintf(info.url, sizeof info.url, "%s", url);
  snprintf(info.moov_url, sizeof info.moov_url, "%s.index", url);
  info.width = info.src_width = width;
  info.height = info.src_height = height;
  info.fps = kFps;
  info.gop_size = 2 * kFps;
  info.video_bitrate = 4000;
  info.src_pix_fmt = AV_PIX_FMT_BGRA;
  info.pix_fmt = AV_PIX_FMT_YUV420P;
  info.colorspace = AVCOL_SPC_UNSPECIFIED;
  info.preset = preset_from_str("veryfast");
  info.profile = profile_from_str("high");
  info.tune = kTuneNone;
  info.src_sample_rate = info.sample_rate = kSampleRate;
  info.channels = 2;
  info.sample_fmt = AV_SAMPLE_FMT_S16;
  info.audio_bitrate = 128;
  return info;
}

// A few pictures in turn, noisy enough to give the encoder work.
std::vector<std::vector<uint8_t>> pictures(int width, int height) {
  std::vector<std::vector<uint8_t>> all(8);
  uint32_t random = 1;
  for (size_t n = 0; n < all.size(); ++n) {
    all[n].resize(static_cast<size_t>(width) * static_cast<size_t>(height) * 4);
    for (size_t i = 0; i < all[n].size(); ++i) {
      random = random * 1664525 + 1013904223;
      all[n][i] = static_cast<uint8_t>(i / 64 + n * 3 + (random >> 29));
    }
  }
  return all;
}

double percentile(std::vector<double>& sorted, double p) {
  return sorted[static_cast<size_t>(p * static_cast<double>(sorted.size() - 1))];
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    fprintf(stderr, "usage: bench_host <out.mp4> <width> <height> <seconds> [real]\n");
    return 2;
  }
  const int width = atoi(argv[2]);
  const int height = atoi(argv[3]);
  const int frames = atoi(argv[4]) * kFps;
  const bool real = argc > 5;
  av_log_set_level(AV_LOG_QUIET);
  ZEVA_Log_Level(-1);

  const auto source = pictures(width, height);
  std::vector<int16_t> pcm(2 * kSampleRate / kFps);
  const auto before_start = Clock::now();
  MovieInfo info = settings(argv[1], width, height);
  void* recording = ZEVA_start(info, nullptr, nullptr, nullptr, false);
  const double start_ms = milliseconds(Clock::now() - before_start);
  if (!ZEVA_get_mInfo(recording, &info)) {
    fprintf(stderr, "the recording did not start\n");
    return 1;
  }
  std::vector<double> calls;
  calls.reserve(static_cast<size_t>(frames));
  const auto begin = Clock::now();
  long early_kib = 0;
  for (int n = 0; n < frames; ++n) {
    const int64_t pts_us = int64_t{1000000} * n / kFps;
    if (real) std::this_thread::sleep_until(begin + std::chrono::microseconds(pts_us));
    auto* picture = const_cast<uint8_t*>(source[static_cast<size_t>(n) % source.size()].data());
    const auto before = Clock::now();
    ZEVA_write_video_bgra(recording, picture, 4 * width * height, pts_us, 4 * width);
    calls.push_back(milliseconds(Clock::now() - before));
    ZEVA_write_audio_pcm(recording, pcm.data(), static_cast<int>(pcm.size() * sizeof pcm[0]),
                         pts_us);
    if (n == 10 * kFps) early_kib = resident_kib();
  }
  const double wall_ms = milliseconds(Clock::now() - begin);
  const long late_kib = resident_kib();
  ZevaStatistics statistics;
  ZevaStatistics_init(&statistics);
  ZEVA_statistics(recording, &statistics);
  const auto before_stop = Clock::now();
  ZEVA_stop(&recording);
  const double stop_ms = milliseconds(Clock::now() - before_stop);
  std::sort(calls.begin(), calls.end());
  printf(
      "{\"frames\": %d, \"wall_ms\": %.1f, \"start_ms\": %.2f, \"stop_ms\": %.2f, "
      "\"call_p50_ms\": %.3f, \"call_p99_ms\": %.3f, \"call_max_ms\": %.3f, "
      "\"convert_mean_ms\": %.3f, \"encode_mean_ms\": %.3f, "
      "\"rss_10s_kib\": %ld, \"rss_end_kib\": %ld, \"rss_after_stop_kib\": %ld}\n",
      frames, wall_ms, start_ms, stop_ms, percentile(calls, 0.5), percentile(calls, 0.99),
      calls.back(), static_cast<double>(statistics.convert_mean_us) / 1000,
      static_cast<double>(statistics.encode_mean_us) / 1000, early_kib, late_kib, resident_kib());
  return 0;
}
