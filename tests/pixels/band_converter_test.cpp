// Large pictures are the same by any number of threads.
#include "band_converter.h"

#include <gtest/gtest.h>

#include "exact_picture.h"

namespace {

using zeva::PictureFormat;

struct Case {
  PictureFormat from;
  PictureFormat to;
  int bands;  // of four
};

PictureFormat large(AVPixelFormat pixels, AVColorSpace matrix = AVCOL_SPC_BT709) {
  return zeva::settle({1922, 1093, pixels, matrix});
}

// With room beyond rows, where swscale writes.
std::vector<uint16_t> converted(zeva::BandConverter& converter, const GuardedPicture& in,
                                const PictureFormat& to) {
  GuardedPicture out(to, {64, false, 0});
  converter.convert(in.frame(), out.frame());
  std::vector<uint16_t> all;
  for (int c = 0; c < 3; ++c) {
    const std::vector<uint16_t> samples = out.samples(c);
    all.insert(all.end(), samples.begin(), samples.end());
  }
  return all;
}

TEST(BandConverter, gives_the_same_pictures_by_any_number_of_threads) {
  const Case cases[] = {
      {large(AV_PIX_FMT_BGRA), large(AV_PIX_FMT_YUV420P), 4},
      {large(AV_PIX_FMT_P010), large(AV_PIX_FMT_YUV420P), 4},
      {large(AV_PIX_FMT_NV12, AVCOL_SPC_SMPTE170M), large(AV_PIX_FMT_NV12), 4},
      {large(AV_PIX_FMT_YUV444P), large(AV_PIX_FMT_YUV420P), 1},  // swscale's
      {large(AV_PIX_FMT_BGRA), zeva::settle({960, 540, AV_PIX_FMT_YUV420P}), 1},
      {zeva::settle({1920, 1080, AV_PIX_FMT_BGRA}), zeva::settle({1920, 1080, AV_PIX_FMT_YUV420P}),
       1},
  };
  std::minstd_rand random(1);
  zeva::BandConverter many;  // all of them: its threads stay
  for (const Case& c : cases) {
    SCOPED_TRACE(av_get_pix_fmt_name(c.from.pixels));
    GuardedPicture in(c.from, {64, false, 0});
    in.fill_random(random);
    zeva::BandConverter one;
    ASSERT_TRUE(one.configure(c.from, c.to, 1));
    const std::vector<uint16_t> wanted = converted(one, in, c.to);
    ASSERT_TRUE(many.configure(c.from, c.to, 4));
    EXPECT_EQ(many.bands(), c.bands);
    for (int n = 0; n < 2; ++n) EXPECT_TRUE(converted(many, in, c.to) == wanted);
  }
}

TEST(BandConverter, ends_its_threads_whenever_it_ends) {
  for (int n = 0; n < 50; ++n) {
    zeva::BandConverter converter;
    ASSERT_TRUE(converter.configure(large(AV_PIX_FMT_BGRA), large(AV_PIX_FMT_YUV420P), n % 4 + 1));
  }
}

}  // namespace
