#include "movie_capture2.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "ZV_AVWriter.h"
#include "av_error.h"
#include "log_capture.h"
#include "media.h"
#include "temp_dir.h"

namespace {

using zeva::kMicroseconds;

class CaptureTest : public testing::Test {
 protected:
  CaptureTest() : info(small_movie(dir.path("a.mp4"))) {
    capture =
        std::make_unique<MovieCapture2>(std::make_unique<ZV::ZV_AVWriter>(60, 1000, info.url));
  }
  void start() {
    capture->start(
        &info,
        [](int code, const char*, void* self) {
          static_cast<CaptureTest*>(self)->codes.push_back(code);
        },
        this, false);
  }
  bool picture(int64_t pts_us) { return capture->write_bgra(bytes.data(), 0, pts_us, 256); }
  bool sound(int64_t pts_us) { return capture->write_pcm(bytes.data(), 4096, pts_us); }
  // Ends a pause and returns what it printed: when the pause began, when it ended, its length.
  std::vector<long long> resume() {
    std::vector<long long> printed(3);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(capture->resume());
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(sscanf(text.c_str(), "*** pause_time=%lld,  resume_time=%lld,  drift=%lld\n",
                     &printed[0], &printed[1], &printed[2]),
              3)
        << text;
    return printed;
  }

  const TempDir dir;
  MovieInfo info;
  std::vector<int> codes;
  std::unique_ptr<MovieCapture2> capture;
  std::vector<uint8_t> bytes = std::vector<uint8_t>(64 * 48 * 4, 1);
};

TEST_F(CaptureTest, FirstTimeStampOfferedIsTheStart) {
  const LogCapture log;
  EXPECT_EQ(capture->movie_time(), 0);
  EXPECT_FALSE(picture(5000000));
  EXPECT_FALSE(sound(5010000));
  EXPECT_EQ(log.count("--start_ok == false"), 2);
  EXPECT_EQ(capture->movie_time(), 0);
  start();
  EXPECT_EQ(codes, std::vector<int>{0});
  EXPECT_EQ(log.count("### statu cb [id=0]: start OK"), 1);
  EXPECT_EQ(log.count("m_start_pts=5000000"), 1);
  EXPECT_TRUE(sound(5030000));
  EXPECT_EQ(capture->movie_time(), 30000);  // no picture yet
  EXPECT_TRUE(picture(5040000));
  EXPECT_EQ(capture->movie_time(), 40000);
  EXPECT_TRUE(sound(5051000));
  EXPECT_EQ(capture->movie_time(), 40000);  // pictures are what the host sees
  EXPECT_EQ(log.count("nb=4096, pts=5051000"), 1);
  capture->stop();
  EXPECT_FALSE(picture(5080000));
  EXPECT_EQ(capture->movie_time(), 40000);
  const Movie movie = read_movie(info.url);
  ASSERT_EQ(movie.count(0), 1);
}

TEST_F(CaptureTest, SoundBeforeTheStartIsTimeZero) {
  start();
  EXPECT_TRUE(picture(5000000));
  sound(4900000);
  EXPECT_EQ(capture->movie_time(), 0);
}

TEST_F(CaptureTest, PausesAreCutOut) {
  start();
  EXPECT_FALSE(capture->resume());
  EXPECT_TRUE(picture(5000000));
  EXPECT_TRUE(picture(7500000));
  int64_t cut = 0;
  for (int round = 0; round < 2; ++round) {
    EXPECT_TRUE(capture->pause());
    EXPECT_TRUE(capture->is_paused());
    EXPECT_FALSE(picture(9000000 + round));
    EXPECT_FALSE(sound(9000000 + round));
    const int64_t again = MovieCapture2::sys_usec();
    EXPECT_TRUE(capture->pause());  // starts the pause anew
    const int64_t ending = MovieCapture2::sys_usec();
    const auto printed = resume();
    EXPECT_GE(printed[0], again);
    EXPECT_LE(printed[0], ending);
    EXPECT_GE(printed[1], ending);
    EXPECT_EQ(printed[2], printed[1] - printed[0]);
    EXPECT_FALSE(capture->is_paused());
    EXPECT_FALSE(capture->resume());
    cut += printed[2];
    const int64_t later = (20 + round) * 1000000;
    EXPECT_TRUE(picture(later));
    EXPECT_EQ(capture->movie_time(), later - 5000000 - cut);
  }
}

TEST_F(CaptureTest, RefusesPausesWhileNotRunning) {
  testing::internal::CaptureStderr();
  EXPECT_FALSE(capture->pause());
  EXPECT_FALSE(capture->resume());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_FALSE(capture->is_paused());
}

TEST_F(CaptureTest, SilenceFillsTheGap) {
  start();
  sound(0);
  sound(1500000);
  const LogCapture log;
  EXPECT_TRUE(capture->write_pcm(nullptr, 0, 2000000));
  EXPECT_EQ(log.count("[fill silence] ----> pts=1.500000(sec), dur=0.500000(sec)"), 1);
  EXPECT_TRUE(capture->write_pcm(nullptr, 0, 2100000));
  EXPECT_EQ(log.count("[fill silence] ----> pts=2.000000(sec), dur=0.100000(sec)"), 1);
}

TEST_F(CaptureTest, FramesAreStampedInMicroseconds) {
  start();
  const AVRational ms{1, 1000};
  const auto picture = make_picture(AV_PIX_FMT_BGRA, 64, 48, 3000, 0);
  EXPECT_TRUE(capture->write_video_frame(picture.get(), &ms));
  EXPECT_EQ(picture->pts, 0);
  picture->pts = 3040;
  EXPECT_TRUE(capture->write_video_frame(picture.get(), &ms));
  EXPECT_EQ(picture->pts, 40000);
  EXPECT_EQ(capture->movie_time(), 40000);
  const auto sound = make_sound(AV_SAMPLE_FMT_S16, 48000, 1024, 3010, 0);
  EXPECT_TRUE(capture->write_audio_frame(sound.get(), &ms));
  EXPECT_EQ(sound->pts, 10000);
  EXPECT_TRUE(capture->pause());
  sound->pts = 3050;
  EXPECT_FALSE(capture->write_audio_frame(sound.get(), &ms));
  EXPECT_EQ(sound->pts, 3050);
}

TEST_F(CaptureTest, FailedStartIsToldAndFramesAreRefused) {
  snprintf(info.url, sizeof info.url, "%s", dir.path("no/such/folder/a.mp4").c_str());
  const LogCapture log;
  start();
  EXPECT_EQ(codes, std::vector<int>{11});
  EXPECT_EQ(log.count("### statu cb [id=11]: Could not open url"), 1);
  bool started = true;
  EXPECT_STREQ(capture->get_mInfo(&started).url, info.url);
  EXPECT_FALSE(started);
  EXPECT_FALSE(picture(0));
}

TEST_F(CaptureTest, WorkingSettingsAreTheEffectiveOnes) {
  info.sample_rate = 12345;
  info.pix_fmt = AV_PIX_FMT_BGRA;
  start();
  bool started = false;
  const MovieInfo used = capture->get_mInfo(&started);
  EXPECT_TRUE(started);
  EXPECT_EQ(used.sample_rate, 96000);
  EXPECT_EQ(used.pix_fmt, AV_PIX_FMT_YUV420P);
}

}  // namespace
