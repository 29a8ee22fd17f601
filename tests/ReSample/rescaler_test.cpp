#include "rescaler.h"

#include <gtest/gtest.h>

#include "av_error.h"
#include "media.h"

namespace {

using zeva::kMicroseconds;

constexpr AVRational kFrames{1, 25};

TEST(Rescaler, PassesThroughWhatFits) {
  const zeva::FramePtr encoder = make_picture(AV_PIX_FMT_YUV420P, 64, 48, 0, 0);
  const zeva::FramePtr in = make_picture(AV_PIX_FMT_YUV420P, 64, 48, 120000, 7);
  ZV::NxRescale rescaler;
  ASSERT_EQ(rescaler.config(encoder.get(), in.get(), kFrames), 0);
  EXPECT_EQ(rescaler.rescale(in.get(), &kMicroseconds), in.get());
  EXPECT_EQ(in->pts, 3);
  EXPECT_EQ(rescaler.rescale(nullptr, &kMicroseconds), nullptr);
}

TEST(Rescaler, ConvertsWhateverDiffers) {
  const struct {
    AVPixelFormat format;
    int width, height;
  } sources[] = {
      {AV_PIX_FMT_GRAY8, 64, 48}, {AV_PIX_FMT_YUV420P, 32, 48}, {AV_PIX_FMT_YUV420P, 64, 24}};
  for (const auto& s : sources) {
    const zeva::FramePtr encoder = make_picture(AV_PIX_FMT_YUV420P, 64, 48, 0, 0);
    const zeva::FramePtr in = make_picture(s.format, s.width, s.height, 80000, 100);
    ZV::NxRescale rescaler;
    ASSERT_EQ(rescaler.config(encoder.get(), in.get(), kFrames), 0);
    const AVFrame* out = rescaler.rescale(in.get(), &kMicroseconds);
    ASSERT_NE(out, nullptr);
    EXPECT_NE(out, in.get());
    EXPECT_EQ(out->format, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(out->width, 64);
    EXPECT_EQ(out->height, 48);
    EXPECT_EQ(out->pts, 2);
    EXPECT_EQ(in->pts, 80000);
    EXPECT_NEAR(out->data[0][47 * out->linesize[0] + 63], s.format == AV_PIX_FMT_GRAY8 ? 102 : 100,
                2);
  }
}

TEST(Rescaler, RefusesAFormatItCannotRead) {
  const zeva::FramePtr encoder = make_picture(AV_PIX_FMT_YUV420P, 64, 48, 0, 0);
  const zeva::FramePtr source(av_frame_alloc());
  source->width = 64;
  source->height = 48;
  source->format = AV_PIX_FMT_CUDA;
  ZV::NxRescale rescaler;
  testing::internal::CaptureStderr();
  EXPECT_EQ(rescaler.config(encoder.get(), source.get(), kFrames), -1);
  EXPECT_NE(
      testing::internal::GetCapturedStderr().find("Could not initialize the conversion context\n"),
      std::string::npos);
}

TEST(Rescaler, LeavesPicturesAloneThatAnEncoderStillHolds) {
  const zeva::FramePtr encoder = make_picture(AV_PIX_FMT_YUV420P, 64, 48, 0, 0);
  const zeva::FramePtr dark = make_picture(AV_PIX_FMT_GRAY8, 64, 48, 0, 0);
  const zeva::FramePtr light = make_picture(AV_PIX_FMT_GRAY8, 64, 48, 40000, 255);
  ZV::NxRescale rescaler;
  ASSERT_EQ(rescaler.config(encoder.get(), dark.get(), kFrames), 0);
  for (int round = 0; round < 3; ++round) {
    const zeva::FramePtr held(av_frame_clone(rescaler.rescale(dark.get(), &kMicroseconds)));
    ASSERT_NE(rescaler.rescale(light.get(), &kMicroseconds), nullptr);
    EXPECT_LT(held->data[0][0], 32) << round;
  }
}

}  // namespace
