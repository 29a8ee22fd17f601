#include "resampler.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "log_capture.h"
#include "media.h"

namespace {

constexpr int kRate = 48000;

// A resampler from 16-bit host sound to float frames of 1024 samples for an encoder.
class Resampler {
 public:
  explicit Resampler(int sample_rate = kRate) : rate(sample_rate) {
    const zeva::FramePtr source = make_sound(AV_SAMPLE_FMT_S16, rate, 1, 0, 0);
    EXPECT_GE(resampler.config(encoder.get(), source.get(), samples), 0);
  }
  AVFrame* feed(int nb_samples, int64_t pts, int value = 0) {
    const zeva::FramePtr in = make_sound(AV_SAMPLE_FMT_S16, rate, nb_samples, pts, value);
    return resampler.resample(in.get(), &samples);
  }
  AVFrame* drain() { return resampler.resample(nullptr, &samples); }
  // Where the second frame begins when the sound for it is stamped `pts`.
  int64_t second_begins(int64_t pts) {
    EXPECT_NE(feed(1024, 0), nullptr);
    const AVFrame* second = feed(1024, pts);
    return second != nullptr ? second->pts : AV_NOPTS_VALUE;
  }

 private:
  int rate;
  AVRational samples{1, rate};
  zeva::FramePtr encoder = make_sound(AV_SAMPLE_FMT_FLTP, rate, 1024, 0, 0);
  ZV::NxResample resampler;
};

TEST(Resampling, GivesFullFramesWithARunningCount) {
  Resampler resampler;
  std::vector<int64_t> out;
  for (int i = 0; i < 5; ++i) {
    const AVFrame* frame = resampler.feed(441, i * 441, 16384);
    out.push_back(frame != nullptr ? frame->pts : -1);
    if (frame == nullptr) continue;
    EXPECT_EQ(frame->nb_samples, 1024);
    EXPECT_FLOAT_EQ(reinterpret_cast<float*>(frame->data[1])[1023], 0.5F);
  }
  EXPECT_EQ(out, (std::vector<int64_t>{-1, -1, 0, -1, 1024}));  // 157 are left
  EXPECT_EQ(resampler.feed(2048, 2205)->pts, 2048);
  EXPECT_EQ(resampler.drain()->pts, 3072);
  EXPECT_EQ(resampler.drain(), nullptr);
  EXPECT_EQ(resampler.feed(866, 4253), nullptr);
  EXPECT_NE(resampler.feed(1, 5119), nullptr);
}

TEST(Resampling, HalfASecondOfDriftMovesTheCount) {
  const struct {
    int64_t pts;       // of the input, in samples
    int64_t expected;  // of the output, which would be 1024
  } cases[] = {
      {1024 + 23999, 1024},        {1024 + 24000, 25024},
      {1024 - 23999, 1024},        {1024 - 24000, -22976},
      {1024 + 10 * kRate, 481024}, {1024 + (int64_t{1} << 32), 1024},  // equal in 32 bits
  };
  for (const auto& c : cases) {
    const LogCapture log;
    EXPECT_EQ(Resampler().second_begins(c.pts), c.expected) << c.pts;
    EXPECT_EQ(log.count("@@@ [check] correct au pts"), c.expected == 1024 ? 0 : 1);
  }
  // The first resampler's half second holds for all rates.
  EXPECT_EQ(Resampler(44100).second_begins(1024 + 22050), 1024);
  EXPECT_EQ(Resampler(44100).second_begins(1024 + 24000), 25024);
}

TEST(Resampling, LeavesSoundAloneThatAnEncoderStillHolds) {
  Resampler resampler;
  const zeva::FramePtr held(av_frame_clone(resampler.feed(1024, 0, 16384)));
  ASSERT_NE(resampler.feed(1024, 1024, -16384), nullptr);
  EXPECT_FLOAT_EQ(reinterpret_cast<float*>(held->data[0])[0], 0.5F);
}

}  // namespace
