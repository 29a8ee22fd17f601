// Patches of colour through every pair of formats: the colour stays, whichever code does the work.
#include <gtest/gtest.h>

#include <string>

#include "exact_picture.h"
#include "picture_converter.h"

namespace {

using zeva::PictureFormat;

const std::array<double, 3> kColours[] = {{1, 1, 1}, {0, 0, 0},        {0.5, 0.5, 0.5}, {1, 0, 0},
                                          {0, 1, 0}, {0, 0, 1},        {0, 1, 1},       {1, 0, 1},
                                          {1, 1, 0}, {0.75, 0.25, 0.5}};

const AVPixelFormat kSources[] = {AV_PIX_FMT_BGRA,     AV_PIX_FMT_RGB24,     AV_PIX_FMT_GBRP,
                                  AV_PIX_FMT_YUV420P,  AV_PIX_FMT_NV12,      AV_PIX_FMT_YUYV422,
                                  AV_PIX_FMT_UYVY422,  AV_PIX_FMT_P010,      AV_PIX_FMT_YUV422P,
                                  AV_PIX_FMT_YUV444P,  AV_PIX_FMT_YUV420P10, AV_PIX_FMT_YUV422P10,
                                  AV_PIX_FMT_YUV444P10};
const AVPixelFormat kTargets[] = {AV_PIX_FMT_YUV420P,   AV_PIX_FMT_NV12,      AV_PIX_FMT_YUV422P,
                                  AV_PIX_FMT_YUV444P,   AV_PIX_FMT_YUV420P10, AV_PIX_FMT_YUV422P10,
                                  AV_PIX_FMT_YUV444P10, AV_PIX_FMT_P010};
const AVColorSpace kMatrices[] = {AVCOL_SPC_BT709, AVCOL_SPC_SMPTE170M, AVCOL_SPC_BT2020_NCL};
const AVColorRange kRanges[] = {AVCOL_RANGE_MPEG, AVCOL_RANGE_JPEG};

// In steps of eight bits, the largest over all samples of all patches.
double colour_error(const PictureFormat& from, const PictureFormat& to) {
  zeva::PictureConverter converter;
  if (!converter.configure(from, to)) return 255;
  double largest = 0;
  // swscale reads and writes beyond rows; frames of FFmpeg's have room for that.
  GuardedPicture in(from, {64, false, 0});
  GuardedPicture out(to, {64, false, 0});
  const int depth = av_pix_fmt_desc_get(to.pixels)->comp[0].depth;
  for (const auto& rgb : kColours) {
    in.fill_flat(code_values(rgb, from));
    converter.convert(in.frame(), out.frame());
    const std::array<int, 3> wanted = code_values(rgb, to);
    std::array<std::vector<double>, 3> exact;
    for (int c = 0; c < 3; ++c) exact[c].assign(out.width_of(c) * out.height_of(c), wanted[c]);
    largest = std::max(largest, largest_error(out, exact) / (1 << (depth - 8)));
  }
  return largest;
}

TEST(Colours, stay_in_every_conversion) {
  int cases = 0;
  for (const AVPixelFormat source : kSources) {
    for (const AVPixelFormat target : kTargets) {
      for (const AVColorSpace in_matrix : kMatrices) {
        for (const AVColorRange in_range : kRanges) {
          for (const AVColorSpace out_matrix : kMatrices) {
            for (const AVColorRange out_range : kRanges) {
              // Some of every kind; the numbers of cases have no divisor in common.
              const int height = ++cases % 5 < 2 ? 24 : 32;
              const PictureFormat from = zeva::settle({64, 32, source, in_matrix, in_range});
              const PictureFormat to = zeva::settle({64, height, target, out_matrix, out_range});
              if (from == to) continue;
              EXPECT_LE(colour_error(from, to), 2)
                  << av_get_pix_fmt_name(source) << " " << av_color_space_name(from.matrix) << " "
                  << av_color_range_name(from.range) << " -> " << av_get_pix_fmt_name(target) << " "
                  << av_color_space_name(to.matrix) << " " << av_color_range_name(to.range)
                  << (height == 32 ? "" : ", scaled");
            }
          }
        }
      }
    }
  }
}

}  // namespace
