// Pictures in another size: nothing that is flat or rises may change in kind, and the quality is
// that of swscale's bicubic filter or better.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <utility>

#include "exact_picture.h"
#include "picture_converter.h"

namespace {

using zeva::CpuLevel;
using zeva::PictureFormat;

struct Size {
  int width;
  int height;
};
const Size kSizes[] = {{1, 1},   {2, 3},   {7, 5},   {19, 4},   {33, 17},  {38, 8},
                       {64, 36}, {66, 21}, {96, 54}, {131, 70}, {192, 40}, {300, 18}};

PictureFormat yuv420(const Size& size) {
  return zeva::settle({size.width, size.height, AV_PIX_FMT_YUV420P, AVCOL_SPC_BT709});
}

std::vector<uint16_t> scaled_luma(const GuardedPicture& in, const Size& size, CpuLevel level) {
  zeva::PictureConverter converter;
  GuardedPicture out(yuv420(size), {5, true, 1});
  EXPECT_TRUE(converter.configure(in.format(), out.format(), level));
  converter.convert(in.frame(), out.frame());
  EXPECT_TRUE(out.guards_are_intact());
  return out.samples(0);
}

TEST(Scaling, keeps_flat_pictures_flat_and_gives_one_result_at_every_level) {
  std::minstd_rand random(1);
  for (const Size& from : kSizes) {
    for (const Size& to : kSizes) {
      if (from.width > 4 * to.width || from.height > 4 * to.height) continue;  // swscale's
      SCOPED_TRACE(std::to_string(from.width) + "x" + std::to_string(from.height) + " -> " +
                   std::to_string(to.width) + "x" + std::to_string(to.height));
      GuardedPicture in(yuv420(from), {3, false, 1});
      for (const int value : {0, 1, 77, 254, 255}) {
        in.fill_flat({value, 128, 128});
        EXPECT_EQ(scaled_luma(in, to, zeva::best_cpu_level()),
                  std::vector<uint16_t>(to.width * to.height, value));
      }
      in.fill_random(random);
      const auto plain = scaled_luma(in, to, CpuLevel::Plain);
      EXPECT_EQ(scaled_luma(in, to, std::min(zeva::best_cpu_level(), CpuLevel::Sse41)), plain);
      EXPECT_EQ(scaled_luma(in, to, zeva::best_cpu_level()), plain);
    }
  }
}

TEST(Scaling, keeps_a_ramp_rising_in_both_directions) {
  for (const Size& from : {Size{64, 36}, Size{131, 70}}) {
    for (const Size& to : {Size{40, 20}, Size{96, 54}, Size{180, 101}}) {
      for (const bool across : {true, false}) {
        GuardedPicture in(yuv420(from));
        std::vector<uint16_t> ramp;
        for (int i = 0; i < from.width * from.height; ++i) {
          ramp.push_back(across ? i % from.width : i / from.width * 2);
        }
        in.set_samples(0, ramp);
        const auto out = scaled_luma(in, to, zeva::best_cpu_level());
        const int step = across ? 1 : to.width;
        for (int i = step; i < to.width * to.height; ++i) {
          if (across && i % to.width == 0) continue;
          ASSERT_GE(out[i], out[i - step]) << to.width << "x" << to.height << " at " << i;
        }
      }
    }
  }
}

// Buffers end where the picture ends.
TEST(Scaling, takes_every_format_and_gives_one_result_at_every_level) {
  std::minstd_rand random(2);
  for (const AVPixelFormat pixels :
       {AV_PIX_FMT_BGRA, AV_PIX_FMT_RGB24, AV_PIX_FMT_NV12, AV_PIX_FMT_YUYV422, AV_PIX_FMT_UYVY422,
        AV_PIX_FMT_P010, AV_PIX_FMT_YUV420P10, AV_PIX_FMT_YUV422P}) {
    for (const Size& from : {Size{1, 1}, Size{135, 71}, Size{300, 18}}) {
      for (const Size& to : {Size{64, 37}, Size{211, 5}, Size{150, 9}}) {
        if (from.width > 4 * to.width) continue;  // swscale's
        for (const AVPixelFormat target : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12}) {
          SCOPED_TRACE(std::string(av_get_pix_fmt_name(pixels)) + " " + std::to_string(from.width) +
                       " -> " + std::to_string(to.width));
          GuardedPicture in(zeva::settle({from.width, from.height, pixels}), {5, true, 3});
          in.fill_random(random);
          std::vector<std::vector<uint16_t>> first;
          for (const CpuLevel level : {CpuLevel::Plain, CpuLevel::Sse41, CpuLevel::Avx2}) {
            if (level > zeva::best_cpu_level()) continue;
            GuardedPicture out(zeva::settle({to.width, to.height, target}), {7, false, 1});
            zeva::PictureConverter converter;
            ASSERT_TRUE(converter.configure(in.format(), out.format(), level));
            converter.convert(in.frame(), out.frame());
            EXPECT_TRUE(out.guards_are_intact());
            const std::vector<std::vector<uint16_t>> all = {out.samples(0), out.samples(1),
                                                            out.samples(2)};
            if (first.empty()) first = all;
            EXPECT_EQ(all, first) << static_cast<int>(level);
          }
        }
      }
    }
  }
}

// Rings that get finer, edges, and a texture: a picture at any size.
const std::vector<uint16_t>& scene(const Size& size) {
  static std::map<std::pair<int, int>, std::vector<uint16_t>> known;
  std::vector<uint16_t>& luma = known[{size.width, size.height}];
  if (!luma.empty()) return luma;
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      double sum = 0;
      for (int i = 0; i < 16; ++i) {
        const double u = (x + (i % 4 + 0.5) / 4) / size.width;
        const double v = (y + (i / 4 + 0.5) / 4) / size.height;
        const double rings = std::cos(900 * ((u - 0.5) * (u - 0.5) + (v - 0.5) * (v - 0.5)));
        const double edge = std::fmod(u * 9 + v * 5, 1) < 0.5 ? 40 : -40;
        sum += 128 + 50 * rings + edge + 12 * std::sin(310 * u) * std::cos(170 * v);
      }
      luma.push_back(static_cast<uint16_t>(std::lround(sum / 16)));
    }
  }
  return luma;
}

// The mean of windows of 8x8 (Wang, Bovik, Sheikh, Simoncelli 2004).
double ssim(const std::vector<uint16_t>& a, const std::vector<uint16_t>& b, const Size& size) {
  double total = 0;
  int windows = 0;
  for (int top = 0; top + 8 <= size.height; top += 4) {
    for (int left = 0; left + 8 <= size.width; left += 4, ++windows) {
      double sa = 0, sb = 0, saa = 0, sbb = 0, sab = 0;
      for (int i = 0; i < 64; ++i) {
        const int at = (top + i / 8) * size.width + left + i % 8;
        sa += a[at], sb += b[at];
        saa += a[at] * a[at], sbb += b[at] * b[at], sab += a[at] * b[at];
      }
      const double ma = sa / 64, mb = sb / 64;
      total += (2 * ma * mb + 6.5025) * (2 * (sab / 64 - ma * mb) + 58.5225) /
               ((ma * ma + mb * mb + 6.5025) * (saa / 64 - ma * ma + sbb / 64 - mb * mb + 58.5225));
    }
  }
  return total / windows;
}

GuardedPicture picture_of_scene(const PictureFormat& format) {
  GuardedPicture picture(format, {64, false, 0});
  const int shift = av_pix_fmt_desc_get(format.pixels)->comp[0].depth - 8;
  for (int c = 0; c < 3; ++c) {
    std::vector<uint16_t> values = scene({picture.width_of(c), picture.height_of(c)});
    for (uint16_t& value : values) value <<= shift;
    if (format.is_rgb() && c != 1) std::reverse(values.begin(), values.end());  // some colour
    picture.set_samples(c, values);
  }
  return picture;
}

// That a picture scaled without any loss would have.
std::vector<uint16_t> wanted_plane(const PictureFormat& from, const GuardedPicture& to, int plane) {
  if (!from.is_rgb()) return scene({to.width_of(plane), to.height_of(plane)});
  const PictureFormat format = to.format();
  const auto exact = exact_conversion(
      picture_of_scene(zeva::settle({format.width, format.height, from.pixels})), format);
  std::vector<uint16_t> values;
  for (const double value : exact[plane]) values.push_back(std::lround(value));
  return values;
}

void scale_by_swscale(const AVFrame& in, AVFrame& out) {
  const zeva::SwsPtr scaler(sws_getContext(
      in.width, in.height, static_cast<AVPixelFormat>(in.format), out.width, out.height,
      static_cast<AVPixelFormat>(out.format), SWS_BICUBIC, nullptr, nullptr, nullptr));
  sws_scale(scaler.get(), in.data, in.linesize, 0, in.height, out.data, out.linesize);
}

TEST(Scaling, is_at_least_as_close_to_the_scene_as_swscale) {
  const Size sizes[][2] = {{{480, 270}, {320, 180}},
                           {{320, 180}, {480, 270}},
                           {{640, 360}, {480, 270}},
                           {{640, 360}, {320, 180}},
                           {{640, 360}, {160, 90}}};
  for (const auto& [from, to] : sizes) {
    for (const AVPixelFormat pixels : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_BGRA, AV_PIX_FMT_BGR24,
                                       AV_PIX_FMT_NV12, AV_PIX_FMT_YUYV422, AV_PIX_FMT_P010}) {
      PictureFormat format{from.width, from.height, pixels, AVCOL_SPC_SMPTE170M};
      const GuardedPicture in = picture_of_scene(zeva::settle(format));
      const PictureFormat target =
          zeva::settle({to.width, to.height, AV_PIX_FMT_YUV420P, AVCOL_SPC_SMPTE170M});
      GuardedPicture ours(target, {64, false, 0});
      GuardedPicture theirs(target, {64, false, 0});
      zeva::PictureConverter converter;
      ASSERT_TRUE(converter.configure(in.format(), target));
      converter.convert(in.frame(), ours.frame());
      scale_by_swscale(in.frame(), theirs.frame());
      for (int plane = 0; plane < 3; ++plane) {
        const Size size{ours.width_of(plane), ours.height_of(plane)};
        const std::vector<uint16_t> wanted = wanted_plane(in.format(), ours, plane);
        const double our_ssim = ssim(ours.samples(plane), wanted, size);
        const double their_ssim = ssim(theirs.samples(plane), wanted, size);
        const std::string name = std::string(av_get_pix_fmt_name(pixels)) + "_" +
                                 std::to_string(from.width) + "_" + std::to_string(to.width) +
                                 "_plane_" + std::to_string(plane);
        EXPECT_GE(our_ssim, their_ssim - 0.0003) << name;
        RecordProperty(name, std::to_string(our_ssim) + " swscale " + std::to_string(their_ssim));
      }
    }
  }
}

}  // namespace
