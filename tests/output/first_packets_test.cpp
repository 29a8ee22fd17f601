// The first packets of FLV, which takes none that lies before what it was given first.
#include <gtest/gtest.h>

#include <string>

#include "log_capture.h"
#include "media.h"
#include "movie_output.h"
#include "temp_dir.h"

namespace {

constexpr int kPicture = 40, kSound = 20;  // ms

class FirstPacketsTest : public testing::Test {
 protected:
  FirstPacketsTest() {
    EXPECT_GE(output.create(av_guess_format(nullptr, path.c_str(), nullptr)), 0);
    add_picture_stream(output.context())->codecpar->codec_id = AV_CODEC_ID_FLV1;
    add_sound_stream(output.context())->codecpar->initial_padding = 960;
    EXPECT_GE(output.open(), 0);
  }

  void give(int stream, int begin_ms, int end_ms) {
    const int step_ms = stream == 0 ? kPicture : kSound;
    for (int ms = begin_ms; ms < end_ms; ms += step_ms) {
      const AVRational base = output.context()->streams[stream]->time_base;
      const int64_t time = av_rescale(ms, base.den, 1000 * base.num);
      const int64_t duration = av_rescale(step_ms, base.den, 1000 * base.num);
      ASSERT_GE(output.write(make_packet(stream, time, time, duration, 1000, true).get()), 0);
      ++given;
    }
  }

  int in_the_file() {
    EXPECT_GE(output.write_trailer(), 0);
    EXPECT_EQ(output.close(), 0);
    AVFormatContext* movie = nullptr;
    if (avformat_open_input(&movie, path.c_str(), nullptr, nullptr) < 0) return -1;
    int count = 0;
    for (const zeva::PacketPtr p(av_packet_alloc()); av_read_frame(movie, p.get()) >= 0; ++count) {
      av_packet_unref(p.get());
    }
    avformat_close_input(&movie);
    return count;
  }

  const LogCapture quiet;
  const TempDir dir;
  const std::string path = dir.path("a.flv");
  int given = 0;
  std::string told;
  zeva::MovieOutput output{path, [this](int32_t, const std::string& text) { told += text; }};
};

TEST_F(FirstPacketsTest, MayBeLateAndLieBeforeTheOthers) {
  give(0, 0, 400);
  EXPECT_GE(output.write_held(), 0);
  give(1, -kSound, 400);
  EXPECT_GE(output.write_held(), 0);
  EXPECT_EQ(in_the_file(), given);
  EXPECT_EQ(told, "");
}

TEST_F(FirstPacketsTest, OfPicturesMayTakeAnEncodersTime) {
  give(1, 300, 3000);
  give(0, 0, 3000);
  EXPECT_EQ(in_the_file(), given);
  EXPECT_EQ(told, "");
}

TEST_F(FirstPacketsTest, AreNotWaitedForForEver) {
  give(0, 0, 6000);
  EXPECT_GE(output.write_held(), 0);
  EXPECT_GT(avio_tell(output.context()->pb), given * 1000);
  give(1, 6000, 7000);
  EXPECT_EQ(in_the_file(), given);
}

}  // namespace
