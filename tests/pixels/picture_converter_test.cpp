#include "picture_converter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "exact_picture.h"

namespace {

using zeva::CpuLevel;
using zeva::PictureFormat;

// Half a step is the rounding; the coefficients may add this to it.
constexpr double kRounded = 0.52;

const AVColorSpace kMatrices[] = {AVCOL_SPC_BT709,     AVCOL_SPC_FCC,       AVCOL_SPC_BT470BG,
                                  AVCOL_SPC_SMPTE170M, AVCOL_SPC_SMPTE240M, AVCOL_SPC_BT2020_NCL};
const AVColorRange kRanges[] = {AVCOL_RANGE_MPEG, AVCOL_RANGE_JPEG};
const AVPixelFormat kPackedRgb[] = {
    AV_PIX_FMT_BGRA, AV_PIX_FMT_BGR0, AV_PIX_FMT_RGBA, AV_PIX_FMT_RGB0,  AV_PIX_FMT_ARGB,
    AV_PIX_FMT_ABGR, AV_PIX_FMT_0RGB, AV_PIX_FMT_0BGR, AV_PIX_FMT_BGR24, AV_PIX_FMT_RGB24};

// Every level up to the best one that this processor has.
std::vector<CpuLevel> levels() {
  std::vector<CpuLevel> all;
  for (const CpuLevel level : {CpuLevel::Plain, CpuLevel::Sse41, CpuLevel::Avx2}) {
    if (level <= zeva::best_cpu_level()) all.push_back(level);
  }
  return all;
}

std::string text_of(const PictureFormat& from, const PictureFormat& to) {
  const auto text = [](const PictureFormat& f) {
    return std::string(av_get_pix_fmt_name(f.pixels)) + " " + av_color_space_name(f.matrix) + " " +
           av_color_range_name(f.range) + " " + std::to_string(f.width) + "x" +
           std::to_string(f.height);
  };
  return text(from) + " -> " + text(to);
}

// Converts a random picture at every level: each is as close to the exact result as told, and all
// are the same.
void expect_exact(PictureFormat from, PictureFormat to, double tolerance,
                  const Layout& in_layout = {}, const Layout& out_layout = {}) {
  from = zeva::settle(from);
  to = zeva::settle(to);
  SCOPED_TRACE(text_of(from, to));
  std::minstd_rand random(from.width * 131 + from.height);
  GuardedPicture in(from, in_layout);
  in.fill_random(random);
  const auto exact = exact_conversion(in, to);
  std::vector<std::vector<uint16_t>> first;
  for (const CpuLevel level : levels()) {
    zeva::PictureConverter converter;
    ASSERT_TRUE(converter.configure(from, to, level));
    GuardedPicture out(to, out_layout);
    converter.convert(in.frame(), out.frame());
    EXPECT_LE(largest_error(out, exact), tolerance) << "level " << static_cast<int>(level);
    EXPECT_TRUE(out.guards_are_intact()) << "level " << static_cast<int>(level);
    std::vector<std::vector<uint16_t>> all = {out.samples(0), out.samples(1), out.samples(2)};
    if (first.empty()) first = all;
    EXPECT_EQ(all, first) << "level " << static_cast<int>(level);
  }
}

TEST(PictureConverter, converts_rgb_exactly_in_every_matrix_and_range) {
  for (const AVPixelFormat pixels : kPackedRgb) {
    for (const AVColorSpace matrix : kMatrices) {
      for (const AVColorRange range : kRanges) {
        for (const AVPixelFormat target :
             {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV444P}) {
          expect_exact({70, 6, pixels}, {70, 6, target, matrix, range}, kRounded);
        }
      }
    }
    expect_exact({70, 6, pixels}, {70, 6, AV_PIX_FMT_YUVJ420P, AVCOL_SPC_BT709}, kRounded);
  }
}

struct Pair {
  AVPixelFormat from;
  AVPixelFormat to;
};

// Those that samples only move between, or lose two bits.
const Pair kRepacked[] = {
    {AV_PIX_FMT_NV12, AV_PIX_FMT_YUV420P},     {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12},
    {AV_PIX_FMT_YUYV422, AV_PIX_FMT_YUV420P},  {AV_PIX_FMT_UYVY422, AV_PIX_FMT_YUV420P},
    {AV_PIX_FMT_YUYV422, AV_PIX_FMT_YUV422P},  {AV_PIX_FMT_UYVY422, AV_PIX_FMT_YUV422P},
    {AV_PIX_FMT_P010, AV_PIX_FMT_YUV420P},     {AV_PIX_FMT_P010, AV_PIX_FMT_YUV420P10},
    {AV_PIX_FMT_YUV420P10, AV_PIX_FMT_YUV420P}};
// Those that take more than one step.
const Pair kMoved[] = {{AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P},
                       {AV_PIX_FMT_NV12, AV_PIX_FMT_NV12},
                       {AV_PIX_FMT_UYVY422, AV_PIX_FMT_YUV422P},
                       {AV_PIX_FMT_P010, AV_PIX_FMT_NV12},
                       {AV_PIX_FMT_YUV420P10, AV_PIX_FMT_YUV420P}};

TEST(PictureConverter, repacks_exactly_in_both_ranges) {
  for (const Pair& pair : kRepacked) {
    for (const AVColorRange range : kRanges) {
      expect_exact({70, 6, pair.from, AVCOL_SPC_BT709, range},
                   {70, 6, pair.to, AVCOL_SPC_BT709, range}, kRounded);
    }
  }
}

// Two roundings, of which the first counts with the weights of the second.
TEST(PictureConverter, changes_matrix_and_range_of_yuv) {
  for (const Pair& pair : kMoved) {
    const bool deep = av_pix_fmt_desc_get(pair.from)->comp[0].depth > 8;
    for (const AVColorSpace in_matrix : kMatrices) {
      for (const AVColorSpace out_matrix : kMatrices) {
        for (const AVColorRange in_range : kRanges) {
          for (const AVColorRange out_range : kRanges) {
            expect_exact({70, 6, pair.from, in_matrix, in_range},
                         {70, 6, pair.to, out_matrix, out_range}, deep ? 1.5 : kRounded + 0.02);
          }
        }
      }
    }
  }
}

std::vector<Pair> all_pairs() {
  std::vector<Pair> pairs(std::begin(kRepacked), std::end(kRepacked));
  for (const AVPixelFormat rgb : {AV_PIX_FMT_BGRA, AV_PIX_FMT_RGB24}) {
    pairs.push_back({rgb, AV_PIX_FMT_YUV420P});
    pairs.push_back({rgb, AV_PIX_FMT_NV12});
    pairs.push_back({rgb, AV_PIX_FMT_YUV422P});
    pairs.push_back({rgb, AV_PIX_FMT_YUV444P});
  }
  return pairs;
}

TEST(PictureConverter, takes_any_size) {
  for (const Pair& pair : all_pairs()) {
    for (int width = 1; width <= 67; width += width < 36 ? 1 : 5) {
      for (const int height : {1, 2, 3}) {
        expect_exact({width, height, pair.from}, {width, height, pair.to}, kRounded);
      }
    }
  }
}

TEST(PictureConverter, takes_any_stride_and_alignment) {
  for (const Pair& pair : all_pairs()) {
    for (const Layout& layout : {Layout{13, false, 3}, Layout{7, true, 1}}) {
      expect_exact({71, 5, pair.from}, {71, 5, pair.to}, kRounded, layout, layout);
    }
  }
}

}  // namespace
