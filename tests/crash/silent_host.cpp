// A host that records at real speed until it is killed, and whose streams may be silent:
//   silent_host frames|packets|reordered|pcm MOVIE PICTURES_A_SECOND FROM TO SOUND_FROM TO
// FROM and TO are seconds. MOVIE.fed gets one line for each picture and each sound, as soon as the
// library has it: "v SECOND TAKEN" or "a SECOND TAKEN", with 0 for what was refused.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "elementary.h"
#include "media.h"
#include "recording.h"
#include "zeva/zeva.h"

namespace {
using namespace zeva_test;  // NOLINT: as in the tests
using Clock = std::chrono::steady_clock;

constexpr double kLongest = 60;  // seconds, in case that nobody kills
constexpr int kPcmSamples = 960;

// Pictures or sound: number `n` is written at second n * interval, from `from` to `to`.
struct Stream {
  char name;
  double interval, from, to;
  std::function<bool(int n, int64_t time_us)> write;
  int next = 0;
};

std::vector<int16_t> pcm(int n) {
  std::vector<int16_t> samples(size_t{2} * kPcmSamples);
  for (size_t i = 0; i < samples.size(); ++i) {
    samples[i] = static_cast<int16_t>((i / 2 * 440 + static_cast<size_t>(n) * 37) % 4000);
  }
  return samples;
}

void on_status(int code, const char* message, void* /*user*/) {
  fprintf(stderr, "%d %s\n", code, message);
}

void use_frames(const std::string& path, Stream& pictures, Stream& sound) {
  MovieInfo info = small_movie(path);
  set_text(info.moov_url, path + ".index");
  void* recording = ZEVA_start(info, on_status, nullptr, nullptr, false);
  pictures.write = [recording](int n, int64_t time_us) {
    std::vector<uint8_t> bgra(size_t{4} * 64 * 48);
    for (size_t i = 0; i < bgra.size(); ++i) {
      bgra[i] = static_cast<uint8_t>(i * (i + 3) + 5 * static_cast<size_t>(n));
    }
    return ZEVA_write_video_bgra(recording, bgra.data(), 0, time_us, 4 * 64);
  };
  sound.interval = static_cast<double>(kPcmSamples) / kSampleRate;
  sound.write = [recording](int n, int64_t time_us) {
    std::vector<int16_t> samples = pcm(n);
    ZEVA_write_audio_pcm(recording, samples.data(), static_cast<int>(2 * samples.size()), time_us);
    return true;  // whether an encoder frame came out says nothing
  };
}

MovieInfo2 packet_settings(const std::string& path, bool from_pcm) {
  MovieInfo2 info{};
  set_text(info.url, path);
  set_text(info.moov, path + ".index");
  info.vcodec = kPacketVideoH264;
  info.acodec = from_pcm ? kPacketAudioPcm : kPacketAudioAac;
  info.sample_rate = kSampleRate;
  info.channels = 2;
  info.sample_format = "s16";
  info.bitrate = 64;
  return info;
}

// B-frames are written when they are decoded. All packets are made before the start, which waits
// for the first of them only so long.
void use_packets(const std::string& path, const std::string& interface, Stream& pictures,
                 Stream& sound) {
  const bool reordered = interface == "reordered", from_pcm = interface == "pcm";
  using Pictures = std::vector<TimedPacket>;
  using Sounds = std::vector<std::string>;
  const auto shown = std::make_shared<Pictures>(timed_h264_packets(120, reordered ? kBFrames : ""));
  const auto heard = std::make_shared<Sounds>(aac_packets(500));
  void* recording = ZEVA2_start(packet_settings(path, from_pcm), on_status, nullptr);
  const double interval_us = 1e6 * pictures.interval;
  pictures.write = [=](int n, int64_t us) {
    TimedPacket& packet = (*shown)[static_cast<size_t>(n) % shown->size()];
    const int bytes = static_cast<int>(packet.bytes.size());
    const auto delay = static_cast<double>(packet.pts - packet.dts);
    const int64_t pts_us = us + static_cast<int64_t>(delay * interval_us);
    if (!reordered) return ZEVA2_write_video_packet(recording, packet.bytes.data(), bytes, us);
    return ZEVA2_write_video_packet2(recording, packet.bytes.data(), bytes, pts_us, us);
  };
  sound.interval = (from_pcm ? kPcmSamples : 1024.0) / kSampleRate;
  sound.write = [=](int n, int64_t us) {
    std::vector<int16_t> samples = pcm(n);
    auto* plane = reinterpret_cast<uint8_t*>(samples.data());
    if (from_pcm) return ZEVA2_write_audio_pcm(recording, &plane, kPcmSamples, us);
    std::string& packet = (*heard)[static_cast<size_t>(n) % heard->size()];
    return ZEVA2_write_audio_packet(recording, packet.data(), static_cast<int>(packet.size()), us);
  };
}

void feed(Stream& stream, double now, FILE* fed) {
  for (double at; (at = stream.next * stream.interval) <= now; ++stream.next) {
    if (at < stream.from || at >= stream.to) continue;
    const bool taken = stream.write(stream.next, kStartUs + static_cast<int64_t>(at * 1e6));
    fprintf(fed, "%c %.6f %d\n", stream.name, at, taken ? 1 : 0);
    fflush(fed);
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 8) return 2;
  const std::string interface = arguments[1], path = arguments[2];
  const auto number = [arguments](int n) { return atof(arguments[n]); };
  Stream pictures{'v', 1 / number(3), number(4), number(5), {}};
  Stream sound{'a', 0, number(6), number(7), {}};
  if (interface == "frames") {
    use_frames(path, pictures, sound);
  } else {
    use_packets(path, interface, pictures, sound);
  }
  FILE* fed = fopen((path + ".fed").c_str(), "w");
  if (fed == nullptr) return 1;
  const auto begin = Clock::now();
  for (double now = 0; now < kLongest;) {
    now = std::chrono::duration<double>(Clock::now() - begin).count();
    feed(pictures, now, fed);
    feed(sound, now, fed);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return 1;
}
