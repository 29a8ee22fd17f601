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

// B-frames: written when they are decoded, and shown up to two pictures later.
void use_reordered(void* recording, Stream& pictures) {
  const auto packets =
      std::make_shared<std::vector<TimedPacket>>(timed_h264_packets(300, kBFrames));
  const double interval_us = 1e6 * pictures.interval;
  pictures.write = [=](int n, int64_t /*time_us*/) {
    const TimedPacket& packet = packets->at(static_cast<size_t>(n));
    const auto us = [=](int64_t time) {
      return kStartUs + static_cast<int64_t>(interval_us * static_cast<double>(time));
    };
    return ZEVA2_write_video_packet2(recording, packet.bytes.data(),
                                     static_cast<int32_t>(packet.bytes.size()), us(packet.pts),
                                     us(packet.dts));
  };
}

void use_packets(const std::string& path, const std::string& interface, Stream& pictures,
                 Stream& sound) {
  const bool from_pcm = interface == "pcm";
  MovieInfo2 info{};
  set_text(info.url, path);
  set_text(info.moov, path + ".index");
  info.vcodec = kPacketVideoH264;
  info.acodec = from_pcm ? kPacketAudioPcm : kPacketAudioAac;
  info.sample_rate = kSampleRate;
  info.channels = 2;
  info.sample_format = "s16";
  info.bitrate = 64;
  void* recording = ZEVA2_start(info, on_status, nullptr);
  using Packets = std::vector<std::string>;
  const auto write_from = [recording](const Packets& packets, auto write) {
    return [recording, write, all = std::make_shared<Packets>(packets)](int n, int64_t us) {
      std::string& packet = (*all)[static_cast<size_t>(n) % all->size()];
      return write(recording, packet.data(), static_cast<int>(packet.size()), us);
    };
  };
  pictures.write = write_from(h264_packets(120), ZEVA2_write_video_packet);  // whole groups
  if (interface == "reordered") use_reordered(recording, pictures);
  sound.interval = (from_pcm ? kPcmSamples : 1024.0) / kSampleRate;
  sound.write = write_from(aac_packets(500), ZEVA2_write_audio_packet);
  if (!from_pcm) return;
  sound.write = [recording](int n, int64_t time_us) {
    std::vector<int16_t> samples = pcm(n);
    auto* plane = reinterpret_cast<uint8_t*>(samples.data());
    return ZEVA2_write_audio_pcm(recording, &plane, kPcmSamples, time_us);
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
