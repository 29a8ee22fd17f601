// Files that end in time, and the rest of their recordings.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "judge.h"
#include "packet_host.h"
#include "recording.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix
namespace fs = std::filesystem;

constexpr int64_t kMiB = 1 << 20;
constexpr int kPeriods = 200;  // of two seconds, at most

// One recording through either interface into some files, each with its share of the disk to keep.
class Take {
 public:
  Take(bool packets, const std::vector<fs::path>& files, const std::vector<int64_t>& keeps)
      : with_packets(packets), policies(files.size()) {
    std::vector<const ZevaOutputPolicy*> given;
    for (size_t i = 0; i < files.size(); ++i) {
      names.push_back(utf8(files[i]));
      ZevaOutputPolicy_init(&policies[i]);
      policies[i].keep_free_bytes = keeps[i];
      given.push_back(&policies[i]);
    }
    ZevaOptions options = zeva_test::options();
    options.policies = given.data();
    options.policy_count = static_cast<uint32_t>(given.size());
    if (with_packets) {
      source = make_source(2);
      MovieInfo2 info = packet_settings(names[0]);
      set_text(info.moov, names[0] + ".index");
      for (size_t i = 1; i < names.size(); ++i) info.others[i - 1] = names[i].c_str();
      packet_recording = std::make_unique<PacketRecording>(info, &options);
    } else {
      MovieInfo info = settings(names[0]);
      set_text(info.moov_url, names[0] + ".index");
      for (size_t i = 1; i < names.size(); ++i) info.other_urls[i - 1] = names[i].c_str();
      recording = std::make_unique<Recording>(info, options);
    }
  }
  // Two seconds; false when a write was refused.
  bool feed(int period) {
    bool taken = true;
    if (recording) {
      for (int i = period * 2 * kFps; i < (period + 1) * 2 * kFps; ++i) {
        taken = recording->picture(gradients(i), time_us(i)) && taken;
        taken = recording->sound(tone(i), time_us(i)) && taken;
      }
      return taken;
    }
    for (HostPacket packet : source.packets) {
      packet.usec += period * 2000000;
      taken = packet_recording->write(packet) && taken;
    }
    return taken;
  }
  ZevaOutputState state(int output) const {
    ZevaOutputState filled;
    ZevaOutputState_init(&filled);
    EXPECT_TRUE(recording ? ZEVA_output_state(recording->handle, output, &filled)
                          : ZEVA2_output_state(packet_recording->handle, output, &filled));
    return filled;
  }
  bool has_finished(int output) const { return state(output).phase == kZevaOutputFinished; }
  bool wait_until_finished(int output) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    while (!has_finished(output) && std::chrono::steady_clock::now() < end) {
      std::this_thread::yield();
    }
    return has_finished(output);
  }
  int64_t crash_cost_us() const {
    ZevaStatistics statistics;
    ZevaStatistics_init(&statistics);
    EXPECT_TRUE(recording ? ZEVA_statistics(recording->handle, &statistics)
                          : ZEVA2_statistics(packet_recording->handle, &statistics));
    return statistics.crash_cost_us;
  }
  // Codes but 0.
  std::vector<int> stop() {
    std::vector<int> codes;
    if (recording) {
      recording->stop();
      for (const Status& status : recording->failures()) codes.push_back(status.code);
      return codes;
    }
    for (const int code : packet_recording->stop()) {
      if (code != 0) codes.push_back(code);
    }
    return codes;
  }

 private:
  const bool with_packets;
  std::vector<ZevaOutputPolicy> policies;
  std::vector<std::string> names;
  SourceMovie source;
  std::unique_ptr<Recording> recording;
  std::unique_ptr<PacketRecording> packet_recording;
};

TEST(KeepFree, EndsOneFileAndNotTheOthers) {
  for (const bool with_packets : {false, true}) {
    SCOPED_TRACE(with_packets ? "packets" : "frames");
    const fs::path whole = work_file("a.mp4"), early = whole.parent_path() / "b.mkv";
    Take take(with_packets, {whole, early}, {0, INT64_MAX});
    EXPECT_TRUE(take.feed(0));
    EXPECT_TRUE(take.wait_until_finished(1));
    EXPECT_TRUE(take.feed(1));
    EXPECT_EQ(take.state(0).phase, kZevaOutputLive);
    EXPECT_GT(take.state(0).disk_free_bytes, 0);
    EXPECT_EQ(take.stop(), std::vector<int>{kZevaStatusFileFinishedEarly});
    EXPECT_FALSE(fs::exists(early));
    EXPECT_EQ(decode_faults(whole), "");
    EXPECT_NEAR(number(streams(whole).at(0), "nb_read_frames"), 4 * kFps, with_packets ? 2 : 0);
  }
}

TEST(KeepFree, EndsTheRecordingWithItsLastFile) {
  for (const bool with_packets : {false, true}) {
    SCOPED_TRACE(with_packets ? "packets" : "frames");
    const fs::path first = work_file("a.mp4"), second = first.parent_path() / "b.mkv";
    Take take(with_packets, {first, second}, {INT64_MAX, INT64_MAX});
    int periods = 0;
    while (take.feed(periods) && periods < kPeriods) ++periods;
    EXPECT_LT(periods, kPeriods) << "writes are refused";
    EXPECT_EQ(take.stop(), std::vector<int>(2, kZevaStatusFileFinishedEarly));
    for (const fs::path& left : {first, fs::path(utf8(first) + ".index"), second}) {
      EXPECT_FALSE(fs::exists(left)) << left;
    }
  }
}

// A disk of a few MiB; it takes the right to mount one.
struct SmallDisk {
  explicit SmallDisk(fs::path folder) : folder(std::move(folder)) {
    fs::create_directories(this->folder);
    is_there =
        run_shell("mount -t tmpfs -o size=8m tmpfs " + shell_path(this->folder)).exit_code == 0;
  }
  ~SmallDisk() {
    if (is_there) run_shell("umount -l " + shell_path(folder));
  }
  const fs::path folder;
  bool is_there;
};

// More than is kept where no space can be set aside.
constexpr int64_t kKept = 6 * kMiB;

TEST(KeepFree, LeavesAMovieOfAllThatFitted) {
  for (const bool with_packets : {false, true}) {
    SCOPED_TRACE(with_packets ? "packets" : "frames");
    const fs::path whole = work_file("b.mkv");
    const SmallDisk disk(whole.parent_path() / "disk");
    if (!disk.is_there) GTEST_SKIP() << "no right to mount a disk";
    const fs::path early = disk.folder / "a.mp4";
    Take take(with_packets, {early, whole}, {kKept, 0});
    int periods = 0;
    while (!take.has_finished(0) && periods < kPeriods) EXPECT_TRUE(take.feed(periods++));
    // Playable while the others go on.
    EXPECT_EQ(decode_faults(early), "");
    const ZevaOutputState ended = take.state(0);
    EXPECT_GE(ended.disk_free_bytes, kKept);
    EXPECT_GE(fs::space(disk.folder).available, kKept);
    EXPECT_GT(fs::file_size(early), 3 * kMiB / 2);
    EXPECT_TRUE(take.feed(periods));
    EXPECT_EQ(take.stop(), std::vector<int>{kZevaStatusFileFinishedEarly});
    EXPECT_EQ(decode_faults(whole), "");
    EXPECT_EQ(static_cast<int64_t>(packets(early).size()), ended.packets_written);
    EXPECT_GT(packets(whole).size(), packets(early).size());
  }
}

TEST(Statistics, TellWhatACrashWouldCost) {
  for (const bool with_packets : {false, true}) {
    SCOPED_TRACE(with_packets ? "packets" : "frames");
    const fs::path movie = work_file("a.mp4");
    Take take(with_packets, {movie}, {0});
    EXPECT_TRUE(take.feed(0));
    // All but the last packet of each stream: nothing waits longer than half a second.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    while (std::chrono::steady_clock::now() < end) {
      if (take.crash_cost_us() <= 100000 && take.state(0).synced_us >= 1800000) break;
      std::this_thread::yield();
    }
    EXPECT_LE(take.crash_cost_us(), 100000);
    EXPECT_GE(take.crash_cost_us(), 0);
    EXPECT_GE(take.state(0).synced_us, 1800000);
    EXPECT_EQ(take.stop(), std::vector<int>{});
  }
}

}  // namespace
