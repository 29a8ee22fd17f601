// Handles from start to stop: none at all, one after the other, several at once.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <future>
#include <thread>
#include <utility>

extern "C" {
#include <libavutil/mem.h>
#include <libavutil/rational.h>
}

#include "judge.h"
#include "recording.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix
namespace fs = std::filesystem;

TEST(NullHandles, GetNeutralValues) {
  const AVRational tb{1, 25};
  FilterBase filter;
  MovieInfo info{};
  info.fps = 7;
  void* none = nullptr;
  ZEVA_stop(nullptr);
  ZEVA_stop(&none);
  EXPECT_FALSE(ZEVA_pause(nullptr));
  EXPECT_FALSE(ZEVA_resume(nullptr));
  EXPECT_FALSE(ZEVA_is_paused(nullptr));
  EXPECT_EQ(ZEVA_movie_time(nullptr), 0);
  EXPECT_EQ(ZEVA_last_usec_pts(nullptr), 0);
  EXPECT_FALSE(ZEVA_write_video_bgra(nullptr, nullptr, 0, 0, 0));
  EXPECT_FALSE(ZEVA_write_audio_pcm(nullptr, nullptr, 0, 0));
  EXPECT_FALSE(ZEVA_write_video_frame(nullptr, nullptr, tb));
  EXPECT_FALSE(ZEVA_write_audio_frame(nullptr, nullptr, tb));
  EXPECT_EQ(ZEVA_video_dst_frame(nullptr), nullptr);
  EXPECT_EQ(ZEVA_audio_dst_frame(nullptr), nullptr);
  EXPECT_FALSE(ZEVA_add_video_filter(nullptr, &filter));
  EXPECT_FALSE(ZEVA_add_audio_filter(nullptr, &filter));
  EXPECT_EQ(ZEVA_generate_testing_vFrame(nullptr, tb), nullptr);
  EXPECT_EQ(ZEVA_generate_testing_aFrame(nullptr, tb), nullptr);
  EXPECT_FALSE(ZEVA_get_mInfo(nullptr, &info));
  EXPECT_EQ(info.fps, 7);
  ZEVA2_stop(nullptr);
  ZEVA2_stop(&none);
  EXPECT_FALSE(ZEVA2_pause(nullptr) || ZEVA2_resume(nullptr) || ZEVA2_is_paused(nullptr));
  EXPECT_FALSE(ZEVA2_write_audio_pcm(nullptr, nullptr, 0, 0));
  EXPECT_FALSE(ZEVA2_backlog(nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ(ZEVA2_movie_time(nullptr), -1);
  ZEVA_StopRepair(nullptr);
  ZEVA_StopRepair(&none);
  EXPECT_FALSE(ZEVA_Repair_IsRunning(nullptr));
  EXPECT_FALSE(ZEVA_StartRepair_sync(nullptr, nullptr, nullptr, nullptr, nullptr));
}

TEST(Handles, NeedNoCallbackAndStopTwice) {
  MovieInfo info = settings(work_file("movie.mp4"));
  void* handle = ZEVA_start(info, nullptr, nullptr, nullptr, false);
  ASSERT_TRUE(ZEVA_get_mInfo(handle, &info));
  EXPECT_EQ(ZEVA_movie_time(handle), 0);
  EXPECT_EQ(ZEVA_last_usec_pts(handle), -1);
  ZEVA_stop(&handle);
  EXPECT_EQ(handle, nullptr);
  ZEVA_stop(&handle);
  // And a failed start without anybody to tell.
  info = settings(work_file("missing") / "movie.mp4");
  handle = ZEVA_start(info, nullptr, nullptr, nullptr, false);
  EXPECT_FALSE(ZEVA_get_mInfo(handle, &info));
  ZEVA_stop(&handle);
}

void record_short_movie(const fs::path& file) {
  MovieInfo info = settings(file);
  set_text(info.moov_url, utf8(file) + ".index");
  Recording recording(info);
  ASSERT_TRUE(recording.open());
  recording.feed(0, 5);
  recording.stop();
  EXPECT_TRUE(recording.failures().empty());
}

TEST(Recordings, FiftyInTurnLeaveNothingOpen) {
  const fs::path file = work_file("movie.mp4");
  LogCapture log;
  record_short_movie(file);
  const std::vector<LogLine> lines = log.take();
  EXPECT_GT(lines.size(), 10U);
  for (const LogLine& line : lines) {  // names sources relative to the tree
    EXPECT_TRUE(line.file.rfind("src/", 0) == 0 || line.file.rfind("plugins/", 0) == 0)
        << line.file;
  }
  const int before = open_handles();
  for (int i = 0; i < 50; ++i) record_short_movie(file);
  EXPECT_EQ(open_handles(), before);
  EXPECT_EQ(decode_faults(file), "");
}

TEST(Recordings, FourAtOnceDoNotMix) {
  std::vector<std::thread> hosts;
  std::vector<fs::path> files;
  for (int i = 0; i < 4; ++i) files.push_back(work_file("movie" + std::to_string(i) + ".mp4"));
  for (int i = 0; i < 4; ++i) {
    hosts.emplace_back([&, i] {
      MovieInfo info = settings(files[i]);
      set_text(info.moov_url, utf8(files[i]) + ".index");
      Recording recording(info);
      for (int frame = 0; frame < 20 + i; ++frame) {
        recording.picture(one_colour(static_cast<uint8_t>(60 * i), 60, 60), time_us(frame));
        recording.sound(tone(frame), time_us(frame));
      }
    });
  }
  for (std::thread& host : hosts) host.join();
  for (int i = 0; i < 4; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(decode_faults(files[i]), "");
    const std::string decoded = decode(files[i], "-f rawvideo -pix_fmt bgra");
    ASSERT_EQ(decoded.size(), static_cast<size_t>(4 * kWidth * kHeight * (20 + i)));
    EXPECT_NEAR(static_cast<uint8_t>(decoded[0]), 60 * i, 12);
  }
}

// ---- threads

// The two threads meet at the first picture and the first sound: many short recordings.
TEST(Threads, PicturesSoundAndPausesOfOneRecording) {
  for (int round = 0; round < 40; ++round) {
    const fs::path file = work_file("movie.mp4");
    Recording recording(settings(file));
    ASSERT_TRUE(recording.open());
    std::atomic<int> pictures{0};
    std::atomic<int> writers{2};
    std::atomic<bool> go{false};
    std::thread picture_host([&] {
      for (int frame = 0; frame < 8; ++frame) {
        std::vector<uint8_t> picture = gradients(frame);
        while (!go) std::this_thread::yield();
        if (recording.picture(std::move(picture), time_us(frame))) ++pictures;
      }
      --writers;
    });
    std::thread sound_host([&] {
      for (int frame = 0; frame < 24; ++frame) {
        std::vector<int16_t> sound = tone(frame);
        while (!go) std::this_thread::yield();
        recording.sound(std::move(sound), time_us(frame));
      }
      --writers;
    });
    go = true;
    while (writers > 0 && ZEVA_movie_time(recording.handle) == 0) std::this_thread::yield();
    for (; writers > 0; std::this_thread::yield()) {
      MovieInfo info{};
      EXPECT_TRUE(ZEVA_get_mInfo(recording.handle, &info));
      EXPECT_TRUE(ZEVA_pause(recording.handle));
      EXPECT_TRUE(ZEVA_is_paused(recording.handle));
      EXPECT_TRUE(ZEVA_resume(recording.handle));
      EXPECT_GE(ZEVA_last_usec_pts(recording.handle), -1);
    }
    picture_host.join();
    sound_host.join();
    recording.stop();
    EXPECT_TRUE(recording.failures().empty());
    if (round % 10 != 9) continue;
    EXPECT_EQ(decode_faults(file), "");
    EXPECT_EQ(number(streams(file).at(0), "nb_read_frames"), pictures);
  }
}

// ---- stop from inside

// Stops the recording whenever it reports something.
struct Stopper {
  std::atomic<void*> recording{nullptr};
  std::atomic<int> reports{0};
  std::atomic<int> refusals{0};
  static void on_status(int /*code*/, const char* /*message*/, void* user) {
    auto& self = *static_cast<Stopper*>(user);
    void* handle = self.recording;
    ZEVA_stop(&handle);
    if (handle != nullptr) ++self.refusals;
    ++self.reports;
  }
};

// On the thread that opens, on those that encode, and on those that write.
TEST(Stop, IsRefusedInsideTheStatusCallback) {
  for (const bool disk_full : {false, true}) {
    if (disk_full && !fs::exists("/dev/full")) continue;
    SCOPED_TRACE(disk_full);
    // A container whose writing needs next to no memory.
    const fs::path file = work_file(disk_full ? "full.h264" : "movie.h264");
    if (disk_full) fs::create_symlink("/dev/full", file);
    MovieInfo info = settings(file);
    info.disable_audio = true;
    info.gop_size = 1;
    std::promise<void> handle_known;
    const LogCapture log([&, known = handle_known.get_future().share()](const std::string& text) {
      if (text == "### statu cb [id=0]: start OK") known.wait();
    });
    Stopper stopper;
    void* handle = ZEVA_start(info, Stopper::on_status, &stopper, nullptr, true);
    stopper.recording = handle;
    handle_known.set_value();
    while (stopper.reports < 1) std::this_thread::yield();
    std::vector<uint8_t> picture = gradients(0);
    EXPECT_TRUE(ZEVA_write_video_bgra(handle, picture.data(), 0, 1, 4 * kWidth));
    av_max_alloc(1000);  // less than a key frame
    EXPECT_FALSE(ZEVA_write_video_bgra(handle, picture.data(), 0, 100000, 4 * kWidth));
    av_max_alloc(INT32_MAX);
    ZEVA_stop(&handle);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(stopper.reports, disk_full ? 3 : 2);
    EXPECT_EQ(stopper.refusals, stopper.reports);
    EXPECT_EQ(log.count("stop refused: called by the status callback"), stopper.refusals);
    if (!disk_full) {
      EXPECT_EQ(decode_faults(file), "");
    }
  }
}

}  // namespace
