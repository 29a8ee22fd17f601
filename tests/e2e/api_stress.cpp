// The packet interface under a random order of calls from several threads, for the sanitizers:
//   e2e_api_stress SEED [SECONDS]     without SECONDS a few recordings, one movie at least
// Fails when a report comes too late, or when a recording without a failure left no movie.
#include <atomic>
#include <random>
#include <shared_mutex>
#include <thread>

#include "elementary.h"
#include "recording.h"
#include "sockets.h"
#include "temp_dir.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace {
using Random = std::minstd_rand;
constexpr std::chrono::milliseconds kPoll{10};
const char* const kKinds[] = {".mp4", ".mkv", ".flv", ".ts"};

// What the header allows: each write function on one thread, and nothing beside the stop.
struct Slot {
  std::shared_mutex mutex;  // exclusive for the stop
  std::atomic<bool> stopping{false}, reports_allowed{false}, failed{false};
  std::atomic<int> writes_left{0};
  void* handle = nullptr;
  std::string name, file;
};

std::atomic<bool> done{false};
std::atomic<int> faults{0}, started{0}, finished{0}, taken{0};
std::vector<std::string> pictures, sounds;
zeva_test::Listener silent;

void on_status(int code, const char*, void* user) {
  auto& slot = *static_cast<Slot*>(user);
  if (!slot.reports_allowed) ++faults;
  if (code != 0 && code < 100) slot.failed = true;
}

void stop(Slot& slot) {
  const bool to_be_whole = slot.handle != nullptr;
  ZEVA2_stop(&slot.handle);
  slot.reports_allowed = false;
  if (!to_be_whole || slot.failed) return;
  AVFormatContext* movie = nullptr;
  if (avformat_open_input(&movie, slot.file.c_str(), nullptr, nullptr) < 0) ++faults;
  avformat_close_input(&movie);
  ++finished;
}

void start(Slot& slot, Random& random) {
  const auto one_in = [&](unsigned n) { return random() % n == 0; };
  const std::string other = slot.name + ".other" + kKinds[random() % 4];
  const std::string peer = std::string(one_in(2) ? "rtmp" : "rtsp") +
                           "://127.0.0.1:" + std::to_string(one_in(2) ? silent.port() : 1) +
                           "/live/test";
  MovieInfo2 info{};
  zeva_test::set_text(info.url, slot.file = slot.name + kKinds[random() % 4]);
  zeva_test::set_text(info.moov, one_in(2) ? slot.name + ".index" : "");
  if (one_in(2)) info.others[1] = other.c_str();
  if (one_in(10)) info.others[3] = peer.c_str();
  info.vcodec = one_in(6) ? kPacketVideoNone : kPacketVideoH264;
  info.acodec = static_cast<int32_t>(random() % 3);
  info.sample_rate = 48000, info.channels = 2, info.bitrate = 64;
  info.sample_format = one_in(10) ? "u8" : "s16";
  info.sps_len = one_in(10) ? 9 : 0;
  slot.writes_left = static_cast<int>(random() % (one_in(3) ? 20 : 3000));
  slot.failed = false;
  slot.reports_allowed = true;
  ZevaOutputPolicy live;
  ZevaOutputPolicy_init(&live);
  live.required = kZevaNo;
  live.reconnect_first_us = live.reconnect_longest_us = 1000;
  live.reconnect_total_us = one_in(2) ? -1 : 10000;
  const ZevaOutputPolicy* policies[] = {nullptr, nullptr, nullptr, nullptr, &live};
  ZevaOptions options;
  ZevaOptions_init(&options);
  options.policies = policies;
  options.policy_count = one_in(2) ? 5 : 0;
  slot.handle = ZEVA2_start_with(&info, &options, on_status, &slot);
  ++started;
}

void feed(Slot& slot, bool video, Random random) {
  const std::vector<std::string>& packets = video ? pictures : sounds;
  const auto write_packet = video ? ZEVA2_write_video_packet : ZEVA2_write_audio_packet;
  int64_t usec = 0;
  for (size_t n = 0; !done; std::this_thread::yield()) {
    if (slot.stopping) continue;
    const std::shared_lock<std::shared_mutex> lock(slot.mutex);
    int32_t waiting = 0;
    if (ZEVA2_backlog(slot.handle, nullptr, nullptr, &waiting) && waiting > 300) continue;
    std::string packet = packets[n++ % packets.size()];
    const auto size = static_cast<int>(packet.size());
    const unsigned kind = random() % 300;
    usec = kind == 0   ? INT64_MAX >> random() % 63
           : kind == 1 ? ~usec
                       : std::min<int64_t>(usec, INT64_MAX - 20000) + 20000;
    for (char& byte : packet) byte = static_cast<char>(kind == 2 ? random() >> 8 : byte);
    auto* data = reinterpret_cast<uint8_t*>(packet.data());
    const bool pcm = !video && kind % 2 == 0;
    taken += pcm ? ZEVA2_write_audio_pcm(slot.handle, &data, size / 4, usec)
                 : write_packet(slot.handle, data, kind == 4 ? size / 2 : size, usec);
    --slot.writes_left;
  }
}

void control(std::vector<Slot>& slots, Random random) {
  for (; !done; std::this_thread::yield()) {
    Slot& slot = slots[random() % slots.size()];
    if (slot.writes_left < 0 && !slot.stopping.exchange(true)) {
      const std::unique_lock<std::shared_mutex> lock(slot.mutex);
      stop(slot);
      start(slot, random);
      slot.stopping = false;
    }
    if (slot.stopping) continue;
    const std::shared_lock<std::shared_mutex> lock(slot.mutex);
    if (random() % 5 == 0) ZEVA2_pause(slot.handle);
    if (random() % 2 == 0 && ZEVA2_is_paused(slot.handle)) ZEVA2_resume(slot.handle);
    ZEVA2_movie_time(slot.handle);
    ZevaOutputState state;
    ZevaOutputState_init(&state);
    ZEVA2_output_state(slot.handle, static_cast<int32_t>(random() % 6) - 1, &state);
    ZevaStatistics statistics;
    ZevaStatistics_init(&statistics);
    ZEVA2_statistics(slot.handle, &statistics);
  }
}

}  // namespace

int main(int count, char** arguments) {
  const unsigned seed = count > 1 ? static_cast<unsigned>(atoi(arguments[1])) : 1;
  const int64_t end = ZEVA_current_sys_usec() + (count > 2 ? atoi(arguments[2]) : 0) * 1000000LL;
  const TempDir folder;
  ZEVA_Log_Level(-1);
  pictures = h264_packets(100), sounds = aac_packets(150);
  std::vector<Slot> slots(3);
  std::vector<std::thread> threads;
  for (Slot& slot : slots) {
    slot.name = folder.path(std::to_string(&slot - slots.data()));
    for (const bool video : {false, true})
      threads.emplace_back(feed, std::ref(slot), video, Random(seed + threads.size()));
  }
  for (unsigned i : {100, 101}) threads.emplace_back(control, std::ref(slots), Random(seed + i));
  // Which calls end a recording before it is a movie differs from run to run.
  while (started < 15 || finished == 0 || ZEVA_current_sys_usec() < end)
    std::this_thread::sleep_for(kPoll);
  done = true;
  for (std::thread& thread : threads) thread.join();
  for (Slot& slot : slots) stop(slot);
  printf("seed %u: %d recordings, %d of them movies, %d packets taken, %d faults\n", seed,
         started.load(), finished.load(), taken.load(), faults.load());
  return faults == 0 ? 0 : 1;
}
