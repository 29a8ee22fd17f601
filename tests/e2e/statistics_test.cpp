// Figures of a classic recording.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "recording.h"
#include "sockets.h"

namespace {
using namespace zeva_test;  // NOLINT: a test reads better without the prefix
namespace fs = std::filesystem;

constexpr int kPictures = 60;

TEST(Statistics, CountWhatTheHostGives) {
  const fs::path file = work_file("movie.mp4");
  Recording recording(settings(file), options());
  const ZevaStatistics fresh = statistics(recording);
  EXPECT_EQ(fresh.outputs, 1);
  EXPECT_EQ(fresh.pictures_given + fresh.sound_us_given + fresh.encode_p99_us, 0);
  EXPECT_GT(fresh.bit_rate, 0);
  recording.feed(0, kPictures);
  EXPECT_FALSE(recording.picture(gradients(0), time_us(0))) << "its time does not grow";
  ZEVA_pause(recording.handle);
  EXPECT_FALSE(recording.picture(gradients(0), time_us(kPictures)));
  const ZevaStatistics told = statistics(recording);
  EXPECT_EQ(told.pictures_given, kPictures + 2);
  EXPECT_EQ(told.pictures_refused, 2);
  EXPECT_EQ(told.pictures_encoded, kPictures);
  const int64_t fed_us = time_us(kPictures) - time_us(0);
  EXPECT_EQ(told.sound_us_given, fed_us);
  EXPECT_NEAR(told.sound_us_encoded, fed_us, 60000) << "whole frames, and those under way";
  EXPECT_NEAR(told.sound_minus_picture_us, 0, 60000);
  EXPECT_GT(told.convert_mean_us, 0);
  EXPECT_GT(told.encode_mean_us, 0);
  EXPECT_LE(told.encode_mean_us, told.encode_p99_us);
  EXPECT_GE(told.call_mean_us, told.convert_mean_us + told.encode_mean_us);
  EXPECT_EQ(told.stream_bit_rate, 0);
}

TEST(Statistics, TellSoundThatRunsAhead) {
  const fs::path file = work_file("movie.mp4");
  Recording recording(settings(file), options());
  recording.feed(0, 5);
  EXPECT_TRUE(ZEVA_write_audio_pcm(recording.handle, nullptr, 0, time_us(5 + kFps)));
  const ZevaStatistics told = statistics(recording);
  EXPECT_NEAR(told.sound_minus_picture_us, 1000000, 60000);
  EXPECT_NEAR(told.sound_us_given, 1200000, 30000) << "silence that is asked for counts";
}

TEST(Statistics, AreThereWhileAStartIsUnderWay) {
  const Listener silent;
  Recording recording(settings("rtmp://127.0.0.1:" + std::to_string(silent.port()) + "/live/test"),
                      true);
  EXPECT_FALSE(recording.picture(gradients(0), time_us(0)));
  const ZevaStatistics told = statistics(recording);
  EXPECT_EQ(told.pictures_given, 1);
  EXPECT_EQ(told.pictures_refused, 1);
  EXPECT_EQ(told.pictures_encoded + told.bit_rate, 0);
  EXPECT_FALSE(ZEVA_statistics(nullptr, nullptr));
  EXPECT_FALSE(ZEVA_statistics(recording.handle, nullptr));
  ZevaStatistics sizeless{};
  EXPECT_FALSE(ZEVA_statistics(recording.handle, &sizeless));
}

// From an asynchronous start's return on, beside both threads that write; the thread sanitizer
// would tell.
TEST(Statistics, MayBeReadBesideEverything) {
  const fs::path file = work_file("movie.mp4");
  Recording recording(settings(file), true);
  std::atomic<bool> done{false};
  std::thread reader([&] {
    for (ZevaStatistics before{}; !done; std::this_thread::yield()) {
      const ZevaStatistics now = statistics(recording);
      EXPECT_GE(now.pictures_given, before.pictures_given);
      EXPECT_LE(now.pictures_refused, now.pictures_given);
      EXPECT_LE(now.pictures_encoded, now.pictures_given);
      before = now;
    }
  });
  std::thread sound([&] {
    for (int n = 0; n < 2 * kPictures; ++n) recording.sound(tone(n), time_us(n));
  });
  for (int n = 0; n < 2 * kPictures; ++n) recording.picture(gradients(n), time_us(n));
  sound.join();
  done = true;
  reader.join();
}

}  // namespace
