#include "traced_recordings.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

#include "elementary.h"
#include "media.h"
#include "recording.h"
#include "write_tracer.h"

namespace zeva_test {
namespace {
using Clock = std::chrono::steady_clock;

constexpr int kOlderFrames = 20;

bool g_failed = false;

void on_status(int code, const char* message, void* /*user*/) {
  if (code == 0) return;
  g_failed = true;
  fprintf(stderr, "%d %s\n", code, message);
}

void mark(const char* text) { access((std::string(kMarkFolder) + text).c_str(), F_OK); }

// Frames come at their time, which gives the syncs theirs.
class Pace {
 public:
  void wait(int64_t time_us) const {
    std::this_thread::sleep_until(begin + std::chrono::microseconds(time_us - kStartUs));
  }

 private:
  Clock::time_point begin = Clock::now();
};

std::vector<uint8_t> noise(int frame) {
  std::minstd_rand random(static_cast<unsigned>(frame) + 1);
  std::vector<uint8_t> bgra(size_t{4} * kWidth * kHeight);
  std::generate(bgra.begin(), bgra.end(), [&] { return static_cast<uint8_t>(random() >> 8); });
  return bgra;
}

void record_frames(const TracedSetup& setup, const std::string& path, double seconds) {
  const std::string first = path + ".mkv";
  MovieInfo info = settings(setup.behind ? first : path);
  if (setup.behind) info.other_urls[0] = path.c_str();
  set_text(info.moov_url, path + ".index");
  info.disable_video = !setup.pictures;
  info.disable_audio = !setup.sound;
  info.video_bitrate = setup.bitrate_kbit;
  info.gop_size = setup.gop;
  const bool rich = setup.bitrate_kbit > 5000;
  void* recording = ZEVA_start(info, on_status, nullptr, nullptr, false);
  const int frames = static_cast<int>(seconds * kFps);
  const Pace pace;
  for (int frame = 0; frame < frames; ++frame) {
    const int64_t time = time_us(frame);
    pace.wait(time);
    if (setup.pause && frame == frames / 2) ZEVA_pause(recording);
    if (setup.pause && frame == frames / 2 + 10) ZEVA_resume(recording);
    if (setup.pictures) {
      std::vector<uint8_t> bgra = rich ? noise(frame) : gradients(frame);
      ZEVA_write_video_bgra(recording, bgra.data(), 0, time, 4 * kWidth);
    }
    std::vector<int16_t> pcm = tone(frame);
    if (setup.sound) {
      ZEVA_write_audio_pcm(recording, pcm.data(), static_cast<int>(2 * pcm.size()), time);
    }
  }
  mark("stop");
  ZEVA_stop(&recording);
  mark("stopped");
}

void write_picture(void* recording, TimedPacket packet, bool reordered, int64_t time, int rate) {
  const int bytes = static_cast<int>(packet.bytes.size());
  if (reordered) {
    const int64_t shown = time + (packet.pts - packet.dts) * 1000000 / rate;
    ZEVA2_write_video_packet2(recording, packet.bytes.data(), bytes, shown, time);
  } else {
    ZEVA2_write_video_packet(recording, packet.bytes.data(), bytes, time);
  }
}

void record_packets(const TracedSetup& setup, const std::string& path, double seconds) {
  MovieInfo2 info{};
  set_text(info.url, setup.behind ? path + ".flv" : path);
  if (setup.behind) info.others[0] = path.c_str();
  set_text(info.moov, path + ".index");
  info.vcodec = setup.pictures ? kPacketVideoH264 : kPacketVideoNone;
  info.acodec = setup.sound ? kPacketAudioAac : kPacketAudioNone;
  const int rate = setup.bitrate_kbit > 5000 ? 250 : kFps;  // pictures of some kilobytes a second
  const auto count = static_cast<size_t>(seconds * rate);
  const std::vector<TimedPacket> pictures =
      timed_h264_packets(static_cast<int>(count), setup.reordered ? kBFrames : "");
  std::vector<std::string> sounds = aac_packets(static_cast<int>(seconds * 48000 / 1024));
  void* recording = ZEVA2_start(info, on_status, nullptr);
  const Pace pace;
  for (size_t i = 0, s = 0; i < count; ++i) {
    const int64_t time = kStartUs + static_cast<int64_t>(i) * 1000000 / rate;
    pace.wait(time);
    if (setup.pause && i == count / 2) ZEVA2_pause(recording);
    if (setup.pause && i == count / 2 + 10) ZEVA2_resume(recording);
    const bool left_out = setup.pause && i >= count / 2 && i < count / 2 + 10;
    if (setup.pictures && !left_out)
      write_picture(recording, pictures[i], setup.reordered, time, rate);
    for (; s < sounds.size(); ++s) {
      const int64_t sound_time = kStartUs + static_cast<int64_t>(s) * 1024 * 1000000 / 48000;
      if (sound_time > time) break;
      if (!setup.sound || left_out) continue;
      const int bytes = static_cast<int>(sounds[s].size());
      ZEVA2_write_audio_packet(recording, sounds[s].data(), bytes, sound_time);
    }
  }
  mark("stop");
  ZEVA2_stop(&recording);
  mark("stopped");
}

// Another size, so that its index can be told from the newer one's.
void record_older(const std::string& path) {
  MovieInfo info = small_movie(path);
  set_text(info.moov_url, path + ".index");
  void* recording = ZEVA_start(info, on_status, nullptr, nullptr, false);
  for (int frame = 0; frame < kOlderFrames; ++frame) {
    std::vector<uint8_t> bgra(size_t{4} * 64 * 48);
    for (size_t i = 0; i < bgra.size(); ++i) bgra[i] = static_cast<uint8_t>(i * (i + 3) + frame);
    std::vector<int16_t> pcm = tone(frame + 7);
    ZEVA_write_video_bgra(recording, bgra.data(), 0, time_us(frame), 4 * 64);
    ZEVA_write_audio_pcm(recording, pcm.data(), static_cast<int>(2 * pcm.size()), time_us(frame));
  }
  ZEVA_stop(&recording);
}

std::vector<TracedSetup> make_setups() {
  std::vector<TracedSetup> all;
  const auto add = [&all](const char* name) -> TracedSetup& {
    all.emplace_back();
    all.back().name = name;
    return all.back();
  };
  add("frames");
  add("frames-pictures").sound = false;
  all.back().gop = 5;
  add("frames-sound").pictures = false;
  add("frames-rich").bitrate_kbit = 20000;
  add("frames-pause").pause = true;
  add("frames-behind").behind = true;
  add("frames-over-older").over_older = true;
  add("packets").packets = true;
  add("packets-pictures").packets = true;
  all.back().sound = false;
  add("packets-reordered").packets = true;
  all.back().reordered = true;
  add("packets-sound").packets = true;
  all.back().pictures = false;
  add("packets-rich").packets = true;
  all.back().bitrate_kbit = 20000;
  add("packets-pause").packets = true;
  all.back().pause = true;
  add("packets-behind").packets = true;
  all.back().behind = true;
  add("packets-over-older").packets = true;
  all.back().over_older = true;
  return all;
}

}  // namespace

const std::vector<TracedSetup>& traced_setups() {
  static const std::vector<TracedSetup> all = make_setups();
  return all;
}

int record_traced(const std::string& name, const std::filesystem::path& folder, double seconds) {
  const std::string path = folder / "movie.mp4";
  ZEVA_Log_Level(1);
  if (name == kOlderSetup) record_older(path);
  for (const TracedSetup& setup : traced_setups()) {
    if (setup.name == name) (setup.packets ? record_packets : record_frames)(setup, path, seconds);
  }
  return g_failed ? 1 : 0;
}

}  // namespace zeva_test
