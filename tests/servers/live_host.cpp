// Recordings to files and live streams, as a host sees them, at real speed but for the last:
//   live_host frames KBITS OUTPUT...        noise and a tone, as pictures and sound
//   live_host packets MOVIE.ts OUTPUT...    the packets of a movie, again and again
//   live_host fast MOVIE.ts OUTPUT...       the same, as fast as they are taken
// An OUTPUT is a URL, or POLICY=URL with a policy of these words, joined by commas: drop, wait,
// fail, required, optional, keep:MS, reconnect:FIRST_MS:LONGEST_MS:TOTAL_MS (-1: for ever),
// free:BYTES.
//
// Lines on standard input start and stop: "start", "stop" and so on; the process ends with the
// input. Each answer on standard output is a line of JSON with the seconds since the process began:
//   {"at": 0.1, "code": 101, "text": "..."}            a status
//   {"at": 0.2, "outputs": [{"phase": 2, ...}, ...]}    ten times a second
//   {"at": 9.9, "started_ms": 12.3}                    the start has returned
//   {"at": 9.9, "stop_ms": 12.3, "p50_ms": ...}         the stop has returned
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <mutex>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

extern "C" {
#include <libavformat/avformat.h>
}

#include "zeva/zeva.h"

namespace {
using Clock = std::chrono::steady_clock;

constexpr int kWidth = 320;
constexpr int kHeight = 180;
constexpr int kFps = 25;
constexpr int kSampleRate = 48000;
constexpr auto kStateEvery = std::chrono::milliseconds(100);
const Clock::time_point g_begin = Clock::now();
std::mutex g_print_mutex;

double since_ms(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void print(const std::string& facts) {
  const std::lock_guard<std::mutex> lock(g_print_mutex);
  printf("{\"at\": %.3f, %s}\n", since_ms(g_begin) / 1000, facts.c_str());
  fflush(stdout);
}

std::string quoted(const char* text) {
  std::string made = "\"";
  for (; *text != '\0'; ++text) {
    const bool plain = static_cast<unsigned char>(*text) >= ' ' && *text != '"' && *text != '\\';
    made += plain ? *text : '?';
  }
  return made + "\"";
}

void on_status(int code, const char* message, void*) {
  print("\"code\": " + std::to_string(code) + ", \"text\": " + quoted(message));
}

// ---- outputs and their policies

struct Output {
  std::string url;
  bool has_policy = false;
  ZevaOutputPolicy policy{};
};

std::vector<std::string> split(const std::string& text, char mark) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, mark);) parts.push_back(part);
  return parts;
}

void set_word(const std::vector<std::string>& word, ZevaOutputPolicy& policy) {
  const auto number = [&](size_t i) { return std::stoll(word.at(i)); };
  if (word[0] == "wait") policy.when_full = kZevaFullWait;
  if (word[0] == "drop") policy.when_full = kZevaFullDrop;
  if (word[0] == "fail") policy.when_full = kZevaFullFail;
  if (word[0] == "required") policy.required = kZevaYes;
  if (word[0] == "optional") policy.required = kZevaNo;
  if (word[0] == "keep") policy.keep_us = 1000 * number(1);
  if (word[0] == "free") policy.keep_free_bytes = number(1);
  if (word[0] != "reconnect") return;
  policy.reconnect_first_us = 1000 * number(1);
  policy.reconnect_longest_us = 1000 * number(2);
  policy.reconnect_total_us = number(3) < 0 ? -1 : 1000 * number(3);
}

Output read_output(const std::string& text) {
  Output output{text};
  const size_t mark = text.find('=');
  if (mark == std::string::npos) return output;
  output.url = text.substr(mark + 1);
  output.has_policy = true;
  ZevaOutputPolicy_init(&output.policy);
  for (const std::string& word : split(text.substr(0, mark), ',')) {
    set_word(split(word, ':'), output.policy);
  }
  return output;
}

// ---- the recording

struct Media {
  bool packets;
  bool paced;            // each at its time
  std::string argument;  // kbit/s, or a movie
};

class Host {
 public:
  Host(Media media, std::vector<Output> outputs)
      : media(std::move(media)), outputs(std::move(outputs)) {}

  void start() {
    call_ms.assign(1, 0);
    given = refused = 0;
    ending = false;
    const auto began = Clock::now();
    handle = media.packets ? start_packets() : start_frames();
    print("\"started_ms\": " + std::to_string(since_ms(began)));
    threads.emplace_back([this] { media.packets ? feed_packets() : feed_frames(); });
    threads.emplace_back([this] { watch(); });
  }

  void stop() {
    ending = true;
    for (std::thread& thread : threads) thread.join();
    threads.clear();
    const auto began = Clock::now();
    (media.packets ? ZEVA2_stop : ZEVA_stop)(&handle);
    const double stop_ms = since_ms(began);
    std::sort(call_ms.begin(), call_ms.end());
    const auto part = [&](double p) {
      return std::to_string(call_ms[static_cast<size_t>(p * (call_ms.size() - 1.0))]);
    };
    print("\"stop_ms\": " + std::to_string(stop_ms) + ", \"p50_ms\": " + part(0.5) +
          ", \"p99_ms\": " + part(0.99) + ", \"max_ms\": " + part(1) +
          ", \"pictures\": " + std::to_string(given) + ", \"refused\": " + std::to_string(refused));
  }

 private:
  // Without a policy of any output, as without options.
  const ZevaOptions* options() {
    ZevaOptions_init(&made);
    policies.clear();
    for (const Output& output : outputs) {
      policies.push_back(output.has_policy ? &output.policy : nullptr);
    }
    made.policies = policies.data();
    made.policy_count = static_cast<int32_t>(policies.size());
    const bool any = std::any_of(policies.begin(), policies.end(), [](auto* p) { return p; });
    return any ? &made : nullptr;
  }

  void* start_frames() {
    MovieInfo info{};
    outputs[0].url.copy(info.url, sizeof info.url - 1);
    for (size_t i = 1; i < outputs.size(); ++i) info.other_urls[i - 1] = outputs[i].url.c_str();
    info.audio_bitrate = 128;
    info.src_sample_rate = info.sample_rate = kSampleRate;
    info.channels = 2;
    info.sample_fmt = AV_SAMPLE_FMT_S16;
    info.video_bitrate = atoi(media.argument.c_str());
    info.width = info.src_width = kWidth;
    info.height = info.src_height = kHeight;
    info.fps = info.gop_size = kFps;
    info.src_pix_fmt = AV_PIX_FMT_BGRA;
    info.pix_fmt = AV_PIX_FMT_YUV420P;
    info.colorspace = AVCOL_SPC_UNSPECIFIED;
    info.preset = kQualityUltrafast;
    info.profile = kProfileHigh;
    info.tune = kTuneZerolatency;
    return ZEVA_start_with(&info, options(), on_status, nullptr, nullptr, false);
  }

  void* start_packets() {
    MovieInfo2 info{};
    outputs[0].url.copy(info.url, sizeof info.url - 1);
    for (size_t i = 1; i < outputs.size(); ++i) info.others[i - 1] = outputs[i].url.c_str();
    info.vcodec = kPacketVideoH264;
    info.acodec = kPacketAudioAac;
    return ZEVA2_start_with(&info, options(), on_status, nullptr);
  }

  void timed(bool picture, const std::function<bool()>& call) {
    const auto began = Clock::now();
    const bool taken = call();
    if (media.paced) call_ms.push_back(since_ms(began));
    if (!picture) return;
    ++given;
    refused += taken ? 0 : 1;
  }

  void feed_frames() {
    std::minstd_rand random;
    std::vector<std::vector<uint8_t>> noise(kFps,
                                            std::vector<uint8_t>(size_t{4} * kWidth * kHeight));
    for (auto& picture : noise) {
      std::generate(picture.begin(), picture.end(), [&] { return random() >> 8; });
    }
    std::vector<int16_t> pcm(size_t{2} * kSampleRate / kFps);  // as long as a picture: 440 Hz
    for (size_t i = 0; i < pcm.size(); ++i) {
      pcm[i] = static_cast<int16_t>(8000 * std::sin(2 * M_PI * 440 * (i / 2) / kSampleRate));
    }
    const auto begin = Clock::now();
    for (int frame = 0; !ending; ++frame) {
      std::vector<uint8_t>& bgra = noise[static_cast<size_t>(frame % kFps)];
      const int64_t time = int64_t{1000000} * frame / kFps;
      std::this_thread::sleep_until(begin + std::chrono::microseconds(time));
      timed(true, [&] { return ZEVA_write_video_bgra(handle, bgra.data(), 0, time, 4 * kWidth); });
      const int bytes = static_cast<int>(2 * pcm.size());
      timed(false, [&] { return ZEVA_write_audio_pcm(handle, pcm.data(), bytes, time); });
    }
  }

  // In this container H.264 is a byte stream and AAC has its headers.
  void feed_packets() {
    const auto begin = Clock::now();
    for (int64_t offset = 0; !ending;) {
      AVFormatContext* input = nullptr;
      if (avformat_open_input(&input, media.argument.c_str(), nullptr, nullptr) < 0) abort();
      if (avformat_find_stream_info(input, nullptr) < 0) abort();  // else some have no time
      AVPacket packet;
      int64_t end = offset;
      for (; !ending && av_read_frame(input, &packet) >= 0; av_packet_unref(&packet)) {
        const AVStream& stream = *input->streams[packet.stream_index];
        const auto in_us = [&](int64_t t) {
          return av_rescale_q(t, stream.time_base, {1, 1000000});
        };
        const int64_t time = offset + in_us(packet.pts) - input->start_time;
        end = std::max(end, time + in_us(packet.duration));
        if (media.paced) std::this_thread::sleep_until(begin + std::chrono::microseconds(time));
        if (!media.paced) wait_for_room();
        const bool video = stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
        const auto write = video ? ZEVA2_write_video_packet : ZEVA2_write_audio_packet;
        timed(video, [&] { return write(handle, packet.data, packet.size, time); });
      }
      avformat_close_input(&input);
      offset = end;
    }
  }

  // A full input would drop.
  void wait_for_room() const {
    int32_t video = 0;
    int32_t audio = 0;
    while (!ending && ZEVA2_backlog(handle, &video, &audio, nullptr) && video + audio > 500) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  void watch() {
    for (auto next = Clock::now(); !ending; next += kStateEvery) {
      std::this_thread::sleep_until(next);
      std::string states;
      for (size_t i = 0; i < outputs.size(); ++i) states += (i > 0 ? ", " : "") + state_of(i);
      print("\"outputs\": [" + states + "]");
    }
  }

  std::string state_of(size_t number) const {
    ZevaOutputState s;
    ZevaOutputState_init(&s);
    const auto ask = media.packets ? ZEVA2_output_state : ZEVA_output_state;
    if (!ask(handle, static_cast<int32_t>(number), &s)) return "{}";
    const std::pair<const char*, int64_t> facts[] = {
        {"phase", s.phase},
        {"last_error", s.last_error},
        {"reconnects", s.reconnects},
        {"packets_written", s.packets_written},
        {"bytes_written", s.bytes_written},
        {"packets_dropped", s.packets_dropped},
        {"pictures_dropped", s.pictures_dropped},
        {"written_us", s.written_us},
        {"queued_packets", s.queued_packets},
        {"queued_us", s.queued_us},
        {"queued_bytes", s.queued_bytes},
        {"bits_per_second", s.bits_per_second},
        {"disk_free_bytes", s.disk_free_bytes},
    };
    std::string text;
    for (const auto& [name, value] : facts) {
      text += (text.empty() ? "{\"" : ", \"") + std::string(name) + "\": " + std::to_string(value);
    }
    return text + "}";
  }

  const Media media;
  const std::vector<Output> outputs;
  ZevaOptions made{};
  std::vector<const ZevaOutputPolicy*> policies;
  void* handle = nullptr;
  std::atomic<bool> ending{false};
  std::vector<std::thread> threads;
  std::vector<double> call_ms;  // feeding thread, then the stop
  int given = 0;                // pictures
  int refused = 0;
};

}  // namespace

int main(int count, char** arguments) {
  if (count < 4) return 2;
  const std::string kind = arguments[1];
  const Media media{kind != "frames", kind != "fast", arguments[2]};
  std::vector<Output> outputs;
  for (int i = 3; i < count; ++i) outputs.push_back(read_output(arguments[i]));
  Host host(media, outputs);
  for (std::string line; std::getline(std::cin, line);) {
    if (line.find("start") == 0) host.start();
    if (line.find("stop") == 0) host.stop();
  }
}
