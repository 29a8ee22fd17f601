#include "ZV_AVWriter.h"

#include <gtest/gtest.h>

#include "log_capture.h"
#include "media.h"
#include "movie_output.h"
#include "temp_dir.h"

namespace {

// The output begins to take packets only once its queue is full.
TEST(Writer, FullQueueBlocksUntilTheOutputTakesMore) {
  for (const bool interleave : {false, true}) {
    const TempDir dir;
    const std::string path = dir.path("a.mp4");
    ZV::ZV_AVWriter writer(3, 2, path.c_str());
    zeva::MovieOutput& output = writer.main_output();
    ASSERT_EQ(output.create(nullptr), 0);
    add_picture_stream(output.context());
    add_sound_stream(output.context());
    ASSERT_EQ(output.open_io(), 0);
    bool started = false;
    const LogCapture log([&](const std::string& message) {
      if (started || message.rfind("write full", 0) != 0) return;
      started = true;
      EXPECT_TRUE(writer.start().ok);
    });
    ASSERT_TRUE(writer.open("", "").ok);
    for (int64_t n = 0; n < 2000; ++n) {
      const auto packet = make_packet(0, n, n, 1, 100, true);
      ASSERT_EQ(writer.write_packet({1, 25}, packet.get(), interleave), 0);
    }
    writer.stop();
    EXPECT_GE(
        log.count(interleave ? "write full: maxNpkt=5, have=5" : "write full: maxNpkt=3, have=3"),
        1);
    EXPECT_EQ(log.count("[writer](main): n=2000 (---tailer-pkt---)"), 1);
    EXPECT_EQ(log.count("[writer](main): n=2001 (---write-tailer---)"), 1);
  }
}

// Two pictures of one time are one too many; each output judges in its own units.
TEST(Writer, LeavesOutPacketsWhoseTimeDoesNotGrow) {
  const TempDir dir;
  const std::string path = dir.path("a.mp4"),
                    other = dir.path("b.mkv");  // which counts in 1/1000 s
  ZV::ZV_AVWriter writer(60, 1000, path.c_str());
  const char* const others[] = {other.c_str(), nullptr};
  writer.create_other_writers(others);
  zeva::MovieOutput& output = writer.main_output();
  ASSERT_EQ(output.create(nullptr), 0);
  add_picture_stream(output.context());
  ASSERT_EQ(output.open_io(), 0);
  ASSERT_TRUE(writer.open("", "").ok);
  ASSERT_TRUE(writer.start().ok);
  const LogCapture log;
  for (const int64_t pts : {0, 512, 512, 511, 518, 1024}) {  // in 1/12800 s: 518 is 512 in 1/1000 s
    const auto packet = make_packet(0, pts, pts, 512, 100, true);
    EXPECT_EQ(writer.write_packet({1, 12800}, packet.get(), true), 0);
  }
  writer.stop();
  EXPECT_EQ(log.count("[writer](main): n=4 (---tailer-pkt---)"), 1);
  EXPECT_EQ(log.count("[writer](-): n=3 (---tailer-pkt---)"), 1);
}

}  // namespace
