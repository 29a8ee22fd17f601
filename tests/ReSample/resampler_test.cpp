#include "resampler.h"

#include <gtest/gtest.h>

#include "av_error.h"
#include "log_capture.h"
#include "media.h"

namespace {

using zeva::kMicroseconds;

constexpr int kRate = 48000;
constexpr AVRational kSamples{1, kRate};

// A resampler between 16-bit host sound and float frames of 1024 samples for an encoder.
class ResamplerTest : public testing::Test {
 protected:
  explicit ResamplerTest(int rate = kRate) { EXPECT_GE(configure(resampler, rate), 0); }

  int configure(ZV::NxResample& r, int rate) {
    const zeva::FramePtr source = make_sound(AV_SAMPLE_FMT_S16, rate, 1, 0, 0);
    return r.config(encoder_frame.get(), source.get(), kSamples);
  }
  AVFrame* feed(int nb_samples, int64_t pts, int value = 0) {
    const zeva::FramePtr in = make_sound(AV_SAMPLE_FMT_S16, kRate, nb_samples, pts, value);
    return resampler.resample(in.get(), &kSamples);
  }

  zeva::FramePtr encoder_frame = make_sound(AV_SAMPLE_FMT_FLTP, kRate, 1024, 0, 0);
  ZV::NxResample resampler;
};

TEST_F(ResamplerTest, GathersFullFramesWithARunningCount) {
  int64_t pts = 0;
  std::vector<int64_t> out;
  for (int i = 0; i < 7; ++i, pts += 441) {
    const AVFrame* frame = feed(441, pts, 16384);
    out.push_back(frame != nullptr ? frame->pts : -1);
    if (frame == nullptr) continue;
    EXPECT_EQ(frame->nb_samples, 1024);
    EXPECT_FLOAT_EQ(reinterpret_cast<float*>(frame->data[1])[1023], 0.5F);
  }
  EXPECT_EQ(out, (std::vector<int64_t>{-1, -1, 0, -1, 1024, -1, 2048}));
}

TEST_F(ResamplerTest, DrainsFullFramesOnly) {
  EXPECT_NE(feed(2524, 0), nullptr);
  const AVFrame* second = resampler.resample(nullptr, &kSamples);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->pts, 1024);
  EXPECT_EQ(resampler.resample(nullptr, &kSamples), nullptr);
  EXPECT_EQ(feed(547, 2524), nullptr);  // 476 were left
  EXPECT_NE(feed(1, 3071), nullptr);
}

TEST_F(ResamplerTest, HalfASecondOfDriftMovesTheCount) {
  const struct {
    int64_t pts;       // of the input, in samples
    int64_t expected;  // of the output, which would be 1024
  } cases[] = {
      {1024 + 23999, 1024},        {1024 + 24000, 25024},
      {1024 - 23999, 1024},        {1024 - 24000, -22976},
      {1024 + 10 * kRate, 481024}, {1024 + (int64_t{1} << 32), 1024},  // equal in 32 bits
  };
  for (const auto& c : cases) {
    ZV::NxResample fresh;
    configure(fresh, kRate);
    const LogCapture log;
    zeva::FramePtr in = make_sound(AV_SAMPLE_FMT_S16, kRate, 1024, 0, 0);
    ASSERT_NE(fresh.resample(in.get(), &kSamples), nullptr);
    in->pts = c.pts;
    const AVFrame* out = fresh.resample(in.get(), &kSamples);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(out->pts, c.expected) << c.pts;
    EXPECT_EQ(log.count("@@@ [check] correct au pts"), c.expected == 1024 ? 0 : 1);
  }
}

TEST_F(ResamplerTest, FirstTimeBaseSetsTheThresholdOfAll) {
  ASSERT_NE(feed(1024, 0), nullptr);  // 1/48000: 24000
  ZV::NxResample second;
  const zeva::FramePtr encoder = make_sound(AV_SAMPLE_FMT_FLTP, 44100, 1024, 0, 0);
  const zeva::FramePtr in = make_sound(AV_SAMPLE_FMT_S16, 44100, 1024, 22050, 0);
  const AVRational samples{1, 44100};
  ASSERT_GE(second.config(encoder.get(), in.get(), samples), 0);
  EXPECT_EQ(second.resample(in.get(), &samples)->pts, 0);  // half a second of 44100 is not enough
  in->pts = 1024 + 24000;
  EXPECT_EQ(second.resample(in.get(), &samples)->pts, 25024);
}

TEST_F(ResamplerTest, LeavesSoundAloneThatAnEncoderStillHolds) {
  const zeva::FramePtr held(av_frame_clone(feed(1024, 0, 16384)));
  ASSERT_NE(feed(1024, 1024, -16384), nullptr);
  EXPECT_FLOAT_EQ(reinterpret_cast<float*>(held->data[0])[0], 0.5F);
}

}  // namespace
