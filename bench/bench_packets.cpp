// Packets at real speed as their host sees it: from a write call to the bytes in the file.
//   bench_packets <in.mp4> <out.mp4> <seconds>
// The input is H.264 without B-frames. Prints one JSON object.
//
// The output's size is looked at ten times a millisecond; when the movie is finished, its packets
// tell where each of them lies, and so when the file was long enough to hold it.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

extern "C" {
#include <libavformat/avformat.h>
}

#include <sys/stat.h>

#include "zeva/zeva.h"

namespace {

using Clock = std::chrono::steady_clock;

double milliseconds(Clock::duration d) {
  return std::chrono::duration<double, std::milli>(d).count();
}

struct Packet {
  std::vector<uint8_t> data;
  int64_t pts_us;
  Clock::time_point written;
  double call_ms;
};

struct Growth {
  Clock::time_point when;
  int64_t size;
};

AVFormatContext* open_movie(const char* path) {
  AVFormatContext* movie = nullptr;
  if (avformat_open_input(&movie, path, nullptr, nullptr) < 0) return nullptr;
  avformat_find_stream_info(movie, nullptr);
  return movie;
}

// The movie's pictures of the first `seconds`, and its extradata.
std::vector<Packet> read_pictures(const char* path, int seconds, std::vector<uint8_t>& extradata) {
  std::vector<Packet> packets;
  AVFormatContext* movie = open_movie(path);
  if (movie == nullptr) return packets;
  const int index = av_find_best_stream(movie, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  const AVStream* stream = movie->streams[index];
  extradata.assign(stream->codecpar->extradata,
                   stream->codecpar->extradata + stream->codecpar->extradata_size);
  AVPacket packet{};
  while (av_read_frame(movie, &packet) >= 0) {
    const int64_t us = av_rescale_q(packet.pts, stream->time_base, {1, 1000000});
    if (packet.stream_index == index && us < int64_t{1000000} * seconds) {
      packets.push_back({{packet.data, packet.data + packet.size}, us, {}, 0});
    }
    av_packet_unref(&packet);
  }
  avformat_close_input(&movie);
  return packets;
}

void watch(const std::string& path, const std::atomic<bool>& done, std::vector<Growth>& growths) {
  int64_t last = 0;
  while (!done) {
    struct stat now {};
    if (stat(path.c_str(), &now) == 0 && now.st_size > last) {
      last = now.st_size;
      growths.push_back({Clock::now(), last});
    }
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
}

void write_at_real_speed(void* recording, std::vector<Packet>& packets) {
  const auto begin = Clock::now();
  for (Packet& packet : packets) {
    std::this_thread::sleep_until(begin + std::chrono::microseconds(packet.pts_us));
    packet.written = Clock::now();
    ZEVA2_write_video_packet(recording, packet.data.data(), static_cast<int>(packet.data.size()),
                             packet.pts_us);
    packet.call_ms = milliseconds(Clock::now() - packet.written);
  }
}

// Where each packet of the finished movie ends.
std::vector<int64_t> packet_ends(const char* path) {
  std::vector<int64_t> ends;
  AVFormatContext* movie = open_movie(path);
  AVPacket packet{};
  while (movie != nullptr && av_read_frame(movie, &packet) >= 0) {
    ends.push_back(packet.pos + packet.size);
    av_packet_unref(&packet);
  }
  avformat_close_input(&movie);
  return ends;
}

std::vector<double> latencies(const std::vector<Packet>& packets, const std::vector<int64_t>& ends,
                              const std::vector<Growth>& growths) {
  std::vector<double> result;
  size_t growth = 0;
  for (size_t i = 0; i < std::min(packets.size(), ends.size()); ++i) {
    if (growths.empty() || packets[i].written < growths.front().when) continue;  // still opening
    while (growth < growths.size() && growths[growth].size < ends[i]) ++growth;
    if (growth == growths.size()) break;  // written when the recording was stopped
    result.push_back(milliseconds(growths[growth].when - packets[i].written));
  }
  return result;
}

double percentile(std::vector<double> values, double p) {
  if (values.empty()) return -1;
  std::sort(values.begin(), values.end());
  return values[static_cast<size_t>(p * static_cast<double>(values.size() - 1))];
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: bench_packets <in.mp4> <out.mp4> <seconds>\n");
    return 2;
  }
  av_log_set_level(AV_LOG_QUIET);
  ZEVA_Log_Level(-1);
  std::vector<uint8_t> extradata;
  std::vector<Packet> packets = read_pictures(argv[1], atoi(argv[3]), extradata);
  if (packets.empty()) {
    fprintf(stderr, "%s has no pictures\n", argv[1]);
    return 1;
  }
  remove(argv[2]);
  MovieInfo2 info{};
  snprintf(info.url, sizeof info.url, "%s", argv[2]);
  snprintf(info.moov, sizeof info.moov, "%s.index", argv[2]);
  info.vcodec = kPacketVideoH264;
  info.extradata = extradata.data();
  info.extradata_len = static_cast<int32_t>(extradata.size());

  std::vector<Growth> growths;
  std::atomic<bool> done{false};
  std::thread watcher([&] { watch(argv[2], done, growths); });
  void* recording = ZEVA2_start(info, nullptr, nullptr);
  write_at_real_speed(recording, packets);
  done = true;
  watcher.join();
  const auto before_stop = Clock::now();
  ZEVA2_stop(&recording);
  const double stop_ms = milliseconds(Clock::now() - before_stop);

  const auto ends = packet_ends(argv[2]);
  const auto waits = latencies(packets, ends, growths);
  std::vector<double> calls;
  for (const Packet& packet : packets) calls.push_back(packet.call_ms);
  const double first_ms =
      growths.empty() ? -1 : milliseconds(growths.front().when - packets.front().written);
  printf(
      "{\"packets\": %zu, \"in_file\": %zu, \"first_byte_ms\": %.1f, \"latency_p50_ms\": %.1f, "
      "\"latency_p99_ms\": %.1f, \"call_p50_ms\": %.4f, \"call_p99_ms\": %.4f, \"stop_ms\": "
      "%.1f}\n",
      packets.size(), ends.size(), first_ms, percentile(waits, 0.5), percentile(waits, 0.99),
      percentile(calls, 0.5), percentile(calls, 0.99), stop_ms);
  return 0;
}
