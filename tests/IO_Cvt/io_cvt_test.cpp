#include "io_cvt.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <vector>

#include "ZV_AVWriter.h"
#include "av_error.h"
#include "log_capture.h"
#include "media.h"
#include "temp_dir.h"

namespace {

// Shows what goes into and comes out of the converters.
class OpenIOCvt : public IOCvt {
 public:
  using IOCvt::IOCvt;
  struct Input {
    int nb_samples;
    int64_t pts;
    AVRational tb;
    std::vector<uint8_t*> data;
    std::vector<int> linesize;
    int first_byte, last_byte;  // of sound
  };
  std::vector<Input> inputs;
  std::vector<int64_t> emitted;

 protected:
  bool convert(bool is_video, AVFrame* frame, const AVRational* tb) override {
    Input input{frame->nb_samples, frame->pts, *tb, {}, {}, 0, 0};
    for (int p = 0; p < 4; ++p) {
      input.data.push_back(frame->data[p]);
      input.linesize.push_back(frame->linesize[p]);
    }
    if (!is_video && frame->nb_samples > 0) {
      input.first_byte = frame->data[0][0];
      input.last_byte = frame->data[0][frame->nb_samples * 4 - 1];
    }
    inputs.push_back(input);
    return IOCvt::convert(is_video, frame, tb);
  }
  bool emit(bool is_video, AVFrame* frame, const AVRational* tb) override {
    emitted.push_back(frame->pts);
    EXPECT_EQ(tb->den, is_video ? 25 : 48000);
    return IOCvt::emit(is_video, frame, tb);
  }
};

class IOCvtTest : public testing::Test {
 protected:
  IOCvtTest() { info = small_movie(dir.path("a.mp4")); }

  void start() {
    muxer =
        std::make_unique<zeva::MovieMuxer>(std::make_unique<ZV::ZV_AVWriter>(60, 1000, info.url));
    muxer->start(info, nullptr, nullptr, false);
    ASSERT_TRUE(muxer->running());
    cvt = std::make_unique<OpenIOCvt>(muxer.get());
  }

  const TempDir dir;
  MovieInfo info;
  std::unique_ptr<zeva::MovieMuxer> muxer;
  std::unique_ptr<OpenIOCvt> cvt;
  std::vector<uint8_t> bytes = std::vector<uint8_t>(100000, 9);
};

TEST_F(IOCvtTest, SoundIsCountedInWholeSamplesAndGathered) {
  start();
  EXPECT_TRUE(cvt->write_pcm(bytes.data(), 4096, 0));   // 1024 samples: a frame
  EXPECT_FALSE(cvt->write_pcm(bytes.data(), 4095, 0));  // one less is kept
  EXPECT_TRUE(cvt->write_pcm(bytes.data(), 4097, 0));
  EXPECT_TRUE(cvt->write_pcm(bytes.data(), 40960, 64000));
  ASSERT_EQ(cvt->inputs.size(), 4U);
  const int expected[] = {1024, 1023, 1024, 10240};
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(cvt->inputs[i].nb_samples, expected[i]);
  EXPECT_EQ(cvt->inputs[3].pts, 64000);
  EXPECT_EQ(av_cmp_q(cvt->inputs[3].tb, zeva::kMicroseconds), 0);
  EXPECT_EQ(cvt->inputs[3].data[0], bytes.data());  // wrapped, not copied
  ASSERT_EQ(cvt->emitted.size(), 12U);              // several from one buffer
  for (int64_t i = 0; i < 12; ++i) EXPECT_EQ(cvt->emitted[static_cast<size_t>(i)], i * 1024);
  EXPECT_FALSE(cvt->write_pcm(bytes.data(), 3, 0));
  EXPECT_FALSE(cvt->write_pcm(bytes.data(), -4096, 0));
}

TEST_F(IOCvtTest, SilenceLastsAsAsked) {
  start();
  EXPECT_FALSE(cvt->write_silence(10000, 1500000));
  EXPECT_TRUE(cvt->write_silence(50000, 1510000));
  EXPECT_FALSE(cvt->write_silence(1000, 1560000));
  const struct {
    int samples;
    int64_t pts;
  } expected[] = {{480, 1500000}, {2400, 1510000}, {48, 1560000}};
  ASSERT_EQ(cvt->inputs.size(), 3U);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(cvt->inputs[i].nb_samples, expected[i].samples);
    EXPECT_EQ(cvt->inputs[i].pts, expected[i].pts);
    EXPECT_EQ(cvt->inputs[i].first_byte, 0);
    EXPECT_EQ(cvt->inputs[i].last_byte, 0);
  }
  EXPECT_EQ(cvt->inputs[2].data[0], cvt->inputs[1].data[0]);  // the buffer is kept
  EXPECT_FALSE(cvt->write_silence(0, 0));
  EXPECT_THROW(cvt->write_silence(-1000000, 0), std::length_error);
  // The length is taken in 32 bits: this is 1000 us.
  EXPECT_FALSE(cvt->write_silence((int64_t{1} << 32) + 1000, 0));
  EXPECT_EQ(cvt->inputs.back().nb_samples, 48);
}

TEST_F(IOCvtTest, PictureLiesAsItsStrideSays) {
  const struct {
    AVPixelFormat format;
    int stride;
    bool taken;
    std::vector<int> linesize;
    std::vector<int> offsets;
  } cases[] = {
      {AV_PIX_FMT_BGRA, 256, true, {256, 0, 0}, {0}},
      {AV_PIX_FMT_BGRA, 320, true, {320, 0, 0}, {0}},
      {AV_PIX_FMT_BGRA, 255, false, {}, {}},
      {AV_PIX_FMT_YUV420P, 64, true, {64, 32, 32}, {0, 64 * 48, 64 * 48 + 32 * 24}},
      {AV_PIX_FMT_YUV420P, 80, true, {80, 40, 40}, {0, 80 * 48, 80 * 48 + 40 * 24}},
      {AV_PIX_FMT_NV12, 96, true, {96, 96, 0}, {0, 96 * 48}},
  };
  for (const auto& c : cases) {
    info.src_pix_fmt = c.format;
    start();
    for (const int64_t frame : {0, 1}) {
      EXPECT_EQ(cvt->write_image(bytes.data(), 0, frame * 40000, c.stride), c.taken);
    }
    ASSERT_EQ(cvt->inputs.size(), c.taken ? 2U : 0U);
    for (const auto& input : cvt->inputs) {
      for (size_t p = 0; p < c.linesize.size(); ++p) EXPECT_EQ(input.linesize[p], c.linesize[p]);
      for (size_t p = 0; p < c.offsets.size(); ++p) {
        EXPECT_EQ(input.data[p] - bytes.data(), c.offsets[p]) << p;
      }
    }
    EXPECT_EQ(cvt->emitted, c.taken ? (std::vector<int64_t>{0, 1}) : std::vector<int64_t>{});
    EXPECT_FALSE(cvt->write_image(nullptr, 0, 80000, c.stride));
  }
}

TEST_F(IOCvtTest, StrideMayChangeFromPictureToPicture) {
  start();
  int64_t frame = 0;
  for (const int stride : {256, 256, 512, 256}) {
    EXPECT_TRUE(cvt->write_image(bytes.data(), 0, frame++ * 40000, stride));
    EXPECT_EQ(cvt->inputs.back().linesize[0], stride);
  }
}

TEST_F(IOCvtTest, MissingStreamIsLoggedEachTime) {
  info.disable_video = true;
  start();
  {
    const LogCapture log;
    for (int i = 0; i < 2; ++i) EXPECT_FALSE(cvt->write_image(bytes.data(), 0, i, 256));
    const auto picture = make_picture(AV_PIX_FMT_BGRA, 64, 48, 0, 0);
    EXPECT_FALSE(cvt->write_video_frame(picture.get(), &zeva::kMicroseconds));
    EXPECT_EQ(log.count("=== No video dst_frame .."), 3);
    EXPECT_TRUE(cvt->write_pcm(bytes.data(), 4096, 0));
  }
  info.disable_video = false;
  info.disable_audio = true;
  start();
  const LogCapture log;
  EXPECT_FALSE(cvt->write_pcm(bytes.data(), 4096, 0));
  EXPECT_FALSE(cvt->write_silence(1000, 0));
  EXPECT_EQ(log.count("=== No audio dst_frame .."), 2);
}

TEST_F(IOCvtTest, FramesAndWhatIsLoggedAtTheEnd) {
  start();
  const AVRational ms{1, 1000};
  const auto picture = make_picture(AV_PIX_FMT_BGRA, 64, 48, 80, 0);
  EXPECT_TRUE(cvt->write_video_frame(picture.get(), &ms));
  const auto sound = make_sound(AV_SAMPLE_FMT_S16, 48000, 1024, 0, 0);
  EXPECT_TRUE(cvt->write_audio_frame(sound.get(), &ms));
  EXPECT_EQ(cvt->emitted, (std::vector<int64_t>{2, 0}));
  const LogCapture log;
  cvt.reset();
  EXPECT_EQ(log.messages(), (std::vector<std::string>{"Begin ...", "delete nxr ok!",
                                                      "delete nxs ok!", "free pcm", "OK"}));
}

}  // namespace
