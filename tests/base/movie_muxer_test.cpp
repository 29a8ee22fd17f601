#include "movie_muxer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <future>

#include "ZV_AVWriter.h"
#include "av_error.h"
#include "log_capture.h"
#include "media.h"
#include "temp_dir.h"

namespace {

struct Status {
  static void on_status(int code, const char* message, void* self) {
    static_cast<Status*>(self)->reports.emplace_back(code, message);
  }
  std::vector<std::pair<int, std::string>> reports;  // read once the opening has ended
};

std::unique_ptr<zeva::MovieMuxer> make_muxer(const MovieInfo& info) {
  return std::make_unique<zeva::MovieMuxer>(std::make_unique<ZV::ZV_AVWriter>(60, 1000, info.url));
}

class MuxerTest : public testing::Test {
 protected:
  MovieInfo movie(const std::string& name) const { return small_movie(dir.path(name)); }

  const TempDir dir;
  Status status;
  bool stopping_once = true;
};

TEST_F(MuxerTest, RecordsAndReleasesInOrder) {
  MovieInfo info = movie("a.flv");  // FLV1 and MP3
  info.sample_rate = 48000;
  const LogCapture log;
  auto muxer = make_muxer(info);
  EXPECT_EQ(muxer->video_dst_frame(), nullptr);
  EXPECT_EQ(muxer->start(info, Status::on_status, &status, false), 0);
  ASSERT_EQ(status.reports, (std::vector<std::pair<int, std::string>>{{0, "start OK"}}));
  EXPECT_EQ(muxer->settings().sample_rate, 44100);
  ASSERT_NE(muxer->audio_dst_frame(), nullptr);
  EXPECT_EQ(muxer->audio_dst_frame()->sample_rate, 44100);
  const int samples = muxer->audio_dst_frame()->nb_samples;
  EXPECT_EQ(muxer->last_usec_pts(), -1);

  const AVRational ms{1, 1000};
  for (const int64_t pts_ms : {0, 40, 40, 79, 120}) {  // 79 ms is frame 2
    const auto picture = make_picture(AV_PIX_FMT_YUV420P, 64, 48, pts_ms, 100);
    muxer->write_video(picture.get(), &ms);
  }
  EXPECT_EQ(muxer->last_usec_pts(), 120000);
  EXPECT_EQ(log.count("@@@ V pts: 1  (frame->pts <= g_last_v_pts 1)"), 1);
  for (int64_t n = 0; n < 10; ++n) {
    const auto sound = make_sound(AVSampleFormat(muxer->audio_dst_frame()->format), 44100, samples,
                                  n * samples, 0);
    muxer->write_audio(sound.get(), nullptr);
  }
  EXPECT_EQ(muxer->last_usec_pts(), av_rescale(9 * samples, 1000000, 44100));
  EXPECT_TRUE(muxer->stop());
  EXPECT_EQ(muxer->write_video(make_picture(AV_PIX_FMT_YUV420P, 64, 48, 9, 0).get(), nullptr), 0);
  muxer.reset();

  const Movie written = read_movie(dir.path("a.flv"));
  // This demuxer numbers streams as they come.
  EXPECT_EQ(std::min(written.count(0), written.count(1)), 4);
  EXPECT_GE(std::max(written.count(0), written.count(1)), 10);
  std::vector<std::string> order;
  for (const std::string& m : log.messages()) {
    if (m != "begin ..." && (order.empty() ? m == "before write stop ..." : m[0] != '[')) {
      order.push_back(m);
    }
  }
  EXPECT_EQ(order,
            (std::vector<std::string>{"before write stop ...", "write stop ok",
                                      "--- close video OK.", "--- close audio OK.",
                                      "--- close io OK.", "--- free ctx OK.", "~movie muxer ...",
                                      "delete audio OK", "delete video OK", "~movie muxer OK"}));
}

TEST_F(MuxerTest, OneStreamAlone) {
  MovieInfo info = movie("v.mp4");
  info.disable_audio = true;
  auto muxer = make_muxer(info);
  muxer->start(info, nullptr, nullptr, true);
  muxer->stop();  // overtakes the opening, or does not: either way everything is closed
  EXPECT_FALSE(muxer->running());

  muxer = make_muxer(info);
  muxer->start(info, Status::on_status, &status, false);
  EXPECT_EQ(muxer->audio_dst_frame(), nullptr);
  EXPECT_EQ(muxer->write_audio(make_sound(AV_SAMPLE_FMT_FLTP, 48000, 1024, 0, 0).get(), nullptr),
            0);
  EXPECT_EQ(muxer->write_video(make_picture(AV_PIX_FMT_YUV420P, 64, 48, 0, 0).get(), nullptr), 1);
  muxer->stop();
  EXPECT_EQ(read_movie(dir.path("v.mp4")).packets.size(), 1U);
}

TEST_F(MuxerTest, FailedOpeningIsReported) {
  const std::string missing = dir.path("no/such/folder/b.mkv");
  const struct {
    std::function<void(MovieInfo&)> change;
    int code;
    std::string text;  // how it begins
  } cases[] = {
      {[](MovieInfo& i) { i.fps = 0; }, AVERROR(EINVAL), "Invalid argument: fps 0"},
      {[&](MovieInfo& i) { snprintf(i.url, sizeof i.url, "%s", missing.c_str()); }, 11,
       "Could not open url"},
      {[&](MovieInfo& i) { i.other_urls[0] = missing.c_str(); }, 21, "io open failed: "},
      {[](MovieInfo& i) { i.width = 65; }, 21, "Could not open video codec: "},
      {[](MovieInfo& i) { i.sample_rate = 0; }, 0, "start OK"},  // replaced
  };
  for (const auto& c : cases) {
    MovieInfo info = movie("a.mp4");
    info.hardware = false;
    c.change(info);
    status.reports.clear();
    const LogCapture log;
    auto muxer = make_muxer(info);
    muxer->start(info, Status::on_status, &status, false);
    ASSERT_EQ(status.reports.size(), 1U) << c.text;
    EXPECT_EQ(status.reports[0].first, c.code);
    EXPECT_EQ(status.reports[0].second.rfind(c.text, 0), 0U) << status.reports[0].second;
    EXPECT_EQ(muxer->running(), c.code == 0);
    EXPECT_EQ(log.count(" ---- catch error --- : " + status.reports[0].second),
              c.code == 0 ? 0 : 1);
    EXPECT_TRUE(muxer->stop());
    EXPECT_EQ(log.count("maybe start rtmp thread blocking"), c.code > 0 ? 1 : 0) << c.text;
  }
}

// The chain of outputs grows on the opening's thread while stop runs through it.
TEST_F(MuxerTest, StopOvertakesTheOpening) {
  const std::string others[] = {dir.path("b.mp4"), dir.path("c.mkv")};
  MovieInfo info = movie("a.mp4");
  info.other_urls[0] = others[0].c_str();
  info.other_urls[1] = others[1].c_str();
  std::promise<void> opening;
  std::promise<void> stopping;
  const LogCapture log([&](const std::string& message) {
    if (message == "other_url: " + others[0]) {
      opening.set_value();
      stopping.get_future().wait();
    } else if (message == "begin ..." && stopping_once) {
      stopping_once = false;
      stopping.set_value();
    }
  });
  auto muxer = make_muxer(info);
  muxer->start(info, Status::on_status, &status, true);
  opening.get_future().wait();
  EXPECT_TRUE(muxer->stop());
  EXPECT_FALSE(muxer->running());
  muxer.reset();
}

TEST_F(MuxerTest, PlainWriterCannotStart) {
  const MovieInfo info = movie("a.mp4");
  zeva::MovieMuxer muxer(nullptr);
  muxer.start(info, Status::on_status, &status, false);
  EXPECT_EQ(status.reports, (std::vector<std::pair<int, std::string>>{{21, "start failed ..."}}));
}

}  // namespace
