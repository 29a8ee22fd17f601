// Several recordings in one process, at real speed:
//   stream_host COUNT SECONDS URL...     noise and a tone, as pictures and sound
//   stream_host COUNT MOVIE.ts URL...    the packets of a movie
// "{}" in a URL becomes the recording's number. On standard output: failures as "CODE TEXT", at the
// end what the stop and the write calls took. Fails when anything failed.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <thread>

#include "recording.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace {
using namespace zeva_test;  // NOLINT: as in the tests
using Clock = std::chrono::steady_clock;
using Urls = std::vector<std::string>;

std::atomic<int> failures{0};
std::vector<double> call_ms{0};

void on_status(int code, const char* message, void*) {
  if (code == 0) return;
  ++failures;
  printf("%d %s\n", code, message);
}

double time_ms(const std::function<void()>& call) {
  const auto start = Clock::now();
  call();
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void timed(const std::function<void()>& call) { call_ms.push_back(time_ms(call)); }

void* start_frames(const Urls& urls) {
  MovieInfo info = settings(urls[0]);
  for (size_t i = 1; i < urls.size(); ++i) info.other_urls[i - 1] = urls[i].c_str();
  info.video_bitrate = 20000;
  return ZEVA_start(info, on_status, nullptr, nullptr, false);
}

void feed_frames(const std::vector<void*>& recordings, int seconds) {
  std::minstd_rand random;
  std::vector<uint8_t> bgra(size_t{4} * kWidth * kHeight);
  const auto begin = Clock::now() - std::chrono::microseconds(kStartUs);
  for (int frame = 0; frame < seconds * kFps; ++frame) {
    for (uint8_t& byte : bgra) byte = static_cast<uint8_t>(random() >> 8);
    std::vector<int16_t> pcm = tone(frame);
    const int64_t time = time_us(frame);
    std::this_thread::sleep_until(begin + std::chrono::microseconds(time));
    for (void* recording : recordings) {
      timed([&] { ZEVA_write_video_bgra(recording, bgra.data(), 0, time, 4 * kWidth); });
      const int bytes = static_cast<int>(2 * pcm.size());
      timed([&] { ZEVA_write_audio_pcm(recording, pcm.data(), bytes, time); });
    }
  }
}

void* start_packets(const Urls& urls) {
  MovieInfo2 info{};
  set_text(info.url, urls[0]);
  for (size_t i = 1; i < urls.size(); ++i) info.others[i - 1] = urls[i].c_str();
  info.vcodec = kPacketVideoH264;
  info.acodec = kPacketAudioAac;
  return ZEVA2_start(info, on_status, nullptr);
}

// In this container H.264 is a byte stream and AAC has its headers.
void feed_packets(const std::vector<void*>& recordings, const char* movie) {
  AVFormatContext* input = nullptr;
  if (avformat_open_input(&input, movie, nullptr, nullptr) < 0) abort();
  if (avformat_find_stream_info(input, nullptr) < 0) abort();  // else some packets have no time
  const auto begin = Clock::now();
  AVPacket packet;
  int64_t first = AV_NOPTS_VALUE;
  for (; av_read_frame(input, &packet) >= 0; av_packet_unref(&packet)) {
    const AVStream& stream = *input->streams[packet.stream_index];
    const int64_t time = av_rescale_q(packet.pts, stream.time_base, {1, 1000000});
    if (first == AV_NOPTS_VALUE) first = time;
    std::this_thread::sleep_until(begin + std::chrono::microseconds(time - first));
    const bool video = stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
    const auto write = video ? ZEVA2_write_video_packet : ZEVA2_write_audio_packet;
    for (void* r : recordings) timed([&] { write(r, packet.data, packet.size, time); });
  }
  avformat_close_input(&input);
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 4) return 2;
  const int seconds = atoi(arguments[2]);  // 0 for a movie
  std::vector<Urls> urls(static_cast<size_t>(atoi(arguments[1])),
                         {arguments + 3, arguments + count});
  std::vector<void*> recordings;
  for (size_t i = 0; i < urls.size(); ++i) {
    for (std::string& url : urls[i]) {
      const size_t mark = url.find("{}");
      if (mark != std::string::npos) url.replace(mark, 2, std::to_string(i));
    }
    recordings.push_back(seconds > 0 ? start_frames(urls[i]) : start_packets(urls[i]));
  }
  seconds > 0 ? feed_frames(recordings, seconds) : feed_packets(recordings, arguments[2]);
  const double stop_ms = time_ms([&] {
    for (void*& recording : recordings) (seconds > 0 ? ZEVA_stop : ZEVA2_stop)(&recording);
  });
  std::sort(call_ms.begin(), call_ms.end());
  const auto part = [](double p) {
    return call_ms[static_cast<size_t>(p * (call_ms.size() - 1.0))];
  };
  printf("stop %.1f ms; calls p50 %.2f, p99 %.2f, max %.2f ms\n", stop_ms, part(0.5), part(0.99),
         part(1));
  return failures == 0 ? 0 : 1;
}
