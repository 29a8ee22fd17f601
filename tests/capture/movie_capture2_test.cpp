#include "movie_capture2.h"

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <memory>
#include <utility>
#include <vector>

#include "ZV_AVWriter.h"
#include "log_capture.h"
#include "media.h"
#include "temp_dir.h"

namespace {

class CaptureTest : public testing::Test {
 protected:
  CaptureTest() : info(small_movie(dir.path("a.mp4"))) {
    capture =
        std::make_unique<MovieCapture2>(std::make_unique<ZV::ZV_AVWriter>(60, 1000, info.url));
  }
  void start(bool async) {
    capture->start(
        &info, {},
        [](int, const char*, void* user) {
          auto& self = *static_cast<CaptureTest*>(user);
          if (self.on_status) self.on_status();
        },
        this, async);
  }
  bool picture(int64_t pts_us) { return capture->write_bgra(bytes.data(), 0, pts_us, 256); }
  bool sound(int64_t pts_us) { return capture->write_pcm(bytes.data(), 4096, pts_us); }

  const TempDir dir;
  MovieInfo info;
  std::function<void()> on_status;
  std::unique_ptr<MovieCapture2> capture;
  std::vector<uint8_t> bytes = std::vector<uint8_t>(64 * 48 * 4, 1);
};

TEST_F(CaptureTest, FirstTimeStampOfferedIsTheStart) {
  const LogCapture log;
  EXPECT_FALSE(picture(5000000));
  EXPECT_FALSE(sound(5010000));
  EXPECT_EQ(capture->movie_time(), 0);
  start(false);
  EXPECT_EQ(log.count("### statu cb [id=0]: start OK"), 1);
  EXPECT_TRUE(sound(5030000));
  EXPECT_EQ(capture->movie_time(), 30000);  // no picture yet
  EXPECT_TRUE(picture(5040000));
  EXPECT_TRUE(sound(5051000));
  EXPECT_EQ(capture->movie_time(), 40000);  // pictures are what the host sees
  capture->stop();
  EXPECT_FALSE(picture(5080000));
  EXPECT_EQ(capture->movie_time(), 40000);
}

// Holds the opening at the log line `held` until stop has begun.
struct OpeningHeldForStop {
  explicit OpeningHeldForStop(std::string held)
      : log([this, held](const std::string& message) {
          if (message == held) {
            reached.set_value();
            stopping.get_future().wait();
          } else if (message == "begin ..." && !std::exchange(begun, true)) {
            stopping.set_value();
            if (on_stop) on_stop();
          }
        }) {}
  std::promise<void> reached, stopping;
  std::function<void()> on_stop;  // on the stopping thread
  bool begun = false;             // stopping thread only
  LogCapture log;
};

TEST_F(CaptureTest, StopOutlastsAStartThatIsConfirmedMeanwhile) {
  OpeningHeldForStop opening("### statu cb [id=0]: start OK");
  std::promise<void> confirmed;
  on_status = [&] { confirmed.set_value(); };
  opening.on_stop = [&] { confirmed.get_future().wait(); };
  start(true);
  opening.reached.get_future().wait();
  capture->stop();
  bool started = true;
  capture->get_mInfo(&started);
  EXPECT_FALSE(started);
}

}  // namespace
