#include "exact_picture.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr uint8_t kGuard = 0xa5;

struct Codes {
  double black, luma, chroma, neutral, kr, kb;
};

Codes codes_of(const zeva::PictureFormat& format) {
  const int depth = av_pix_fmt_desc_get(format.pixels)->comp[0].depth;
  const double step = 1 << (depth - 8);
  const double top = (1 << depth) - 1;
  const bool full = format.range == AVCOL_RANGE_JPEG;
  Codes c{full ? 0 : 16 * step, full ? top : 219 * step, full ? top : 224 * step, 128 * step, 0, 0};
  switch (format.matrix) {
    case AVCOL_SPC_BT709:
      c.kr = 0.2126, c.kb = 0.0722;
      break;
    case AVCOL_SPC_FCC:
      c.kr = 0.30, c.kb = 0.11;
      break;
    case AVCOL_SPC_SMPTE240M:
      c.kr = 0.212, c.kb = 0.087;
      break;
    case AVCOL_SPC_BT2020_NCL:
      c.kr = 0.2627, c.kb = 0.0593;
      break;
    default:
      c.kr = 0.299, c.kb = 0.114;
  }
  return c;
}

std::array<double, 3> to_codes(const std::array<double, 3>& rgb, const Codes& c) {
  const double y = c.kr * rgb[0] + (1 - c.kr - c.kb) * rgb[1] + c.kb * rgb[2];
  return {c.black + c.luma * y, c.neutral + c.chroma * (rgb[2] - y) / (2 * (1 - c.kb)),
          c.neutral + c.chroma * (rgb[0] - y) / (2 * (1 - c.kr))};
}

std::array<double, 3> to_rgb(const std::array<double, 3>& yuv, const Codes& c) {
  const double y = (yuv[0] - c.black) / c.luma;
  const double b = y + (yuv[1] - c.neutral) / c.chroma * 2 * (1 - c.kb);
  const double r = y + (yuv[2] - c.neutral) / c.chroma * 2 * (1 - c.kr);
  return {r, (y - c.kr * r - c.kb * b) / (1 - c.kr - c.kb), b};
}

int shift_of(const AVPixFmtDescriptor& description, int component, bool vertical) {
  if (component == 0 || (description.flags & AV_PIX_FMT_FLAG_RGB) != 0) return 0;
  return vertical ? description.log2_chroma_h : description.log2_chroma_w;
}

}  // namespace

GuardedPicture::GuardedPicture(const zeva::PictureFormat& format, const Layout& layout)
    : form(format), description(av_pix_fmt_desc_get(format.pixels)), picture(av_frame_alloc()) {
  picture->width = format.width;
  picture->height = format.height;
  picture->format = format.pixels;
  picture->colorspace = format.matrix;
  picture->color_range = format.range;
  for (int plane = 0; plane < av_pix_fmt_count_planes(format.pixels); ++plane) {
    const int bytes = av_image_get_linesize(format.pixels, format.width, plane);
    const int rows = plane == 0 ? format.height : height_of(plane);
    const int stride = bytes + layout.padding;
    planes.emplace_back(layout.offset + stride * (rows - 1) + bytes, kGuard);
    uint8_t* top = planes.back().data() + layout.offset;
    picture->data[plane] = layout.upside_down ? top + stride * (rows - 1) : top;
    picture->linesize[plane] = layout.upside_down ? -stride : stride;
  }
}

int GuardedPicture::width_of(int component) const {
  return AV_CEIL_RSHIFT(form.width, shift_of(*description, component, false));
}

int GuardedPicture::height_of(int component) const {
  return AV_CEIL_RSHIFT(form.height, shift_of(*description, component, true));
}

void GuardedPicture::fill_flat(const std::array<int, 3>& values) {
  for (int c = 0; c < 3; ++c) {
    set_samples(c, std::vector<uint16_t>(width_of(c) * height_of(c), values[c]));
  }
}

void GuardedPicture::fill_random(std::minstd_rand& random) {
  std::uniform_int_distribution<int> value(0, (1 << description->comp[0].depth) - 1);
  for (int c = 0; c < 3; ++c) {
    std::vector<uint16_t> values(width_of(c) * height_of(c));
    for (uint16_t& v : values) v = value(random);
    set_samples(c, values);
  }
}

std::vector<uint16_t> GuardedPicture::samples(int component) const {
  const int width = width_of(component);
  std::vector<uint16_t> values(width * height_of(component));
  for (int y = 0; y < height_of(component); ++y) {
    av_read_image_line(values.data() + y * width, const_cast<const uint8_t**>(picture->data),
                       picture->linesize, description, 0, y, component, width, 0);
  }
  return values;
}

void GuardedPicture::set_samples(int component, const std::vector<uint16_t>& values) {
  const AVComponentDescriptor& where = description->comp[component];
  const int width = width_of(component);
  for (int y = 0; y < height_of(component); ++y) {
    uint8_t* row = picture->data[where.plane] + picture->linesize[where.plane] * y + where.offset;
    for (int x = 0; x < width; ++x, row += where.step) {
      const int value = values[y * width + x] << where.shift;
      *row = static_cast<uint8_t>(value);
      if (where.depth > 8) row[1] = static_cast<uint8_t>(value >> 8);
    }
  }
}

bool GuardedPicture::guards_are_intact() const {
  for (size_t plane = 0; plane < planes.size(); ++plane) {
    const std::vector<uint8_t>& bytes = planes[plane];
    const int row = av_image_get_linesize(form.pixels, form.width, static_cast<int>(plane));
    const int stride = std::abs(picture->linesize[plane]);
    const int rows = plane == 0 ? form.height : height_of(static_cast<int>(plane));
    const int offset = static_cast<int>(bytes.size()) - stride * (rows - 1) - row;
    for (int i = 0; i < static_cast<int>(bytes.size()); ++i) {
      const bool inside = i >= offset && (i - offset) % stride < row;
      if (!inside && bytes[i] != kGuard) return false;
    }
  }
  return true;
}

std::array<std::vector<double>, 3> exact_conversion(const GuardedPicture& in,
                                                    const zeva::PictureFormat& to) {
  const Codes source = codes_of(in.format());
  const Codes target = codes_of(to);
  const AVPixFmtDescriptor& from_pixels = *av_pix_fmt_desc_get(in.format().pixels);
  const AVPixFmtDescriptor& to_pixels = *av_pix_fmt_desc_get(to.pixels);
  std::array<std::vector<uint16_t>, 3> values;
  std::array<std::vector<double>, 3> sums;
  std::array<std::vector<double>, 3> counts;
  const GuardedPicture shape(to);
  for (int c = 0; c < 3; ++c) {
    values[c] = in.samples(c);
    sums[c].assign(shape.width_of(c) * shape.height_of(c), 0);
    counts[c] = sums[c];
  }
  for (int y = 0; y < to.height; ++y) {
    for (int x = 0; x < to.width; ++x) {
      std::array<double, 3> value{};
      for (int c = 0; c < 3; ++c) {
        value[c] = values[c][(y >> shift_of(from_pixels, c, true)) * in.width_of(c) +
                             (x >> shift_of(from_pixels, c, false))];
      }
      const bool rgb = in.format().is_rgb();
      for (double& v : value) v /= rgb ? 255 : 1;
      value = to_codes(rgb ? value : to_rgb(value, source), target);
      for (int c = 0; c < 3; ++c) {
        const size_t at = (y >> shift_of(to_pixels, c, true)) * shape.width_of(c) +
                          (x >> shift_of(to_pixels, c, false));
        sums[c][at] += value[c];
        counts[c][at] += 1;
      }
    }
  }
  const double top = (1 << to_pixels.comp[0].depth) - 1;
  for (int c = 0; c < 3; ++c) {
    for (size_t i = 0; i < sums[c].size(); ++i) {
      sums[c][i] = std::clamp(sums[c][i] / counts[c][i], 0.0, top);
    }
  }
  return sums;
}

std::array<int, 3> code_values(const std::array<double, 3>& rgb,
                               const zeva::PictureFormat& format) {
  std::array<int, 3> values{};
  const std::array<double, 3> yuv = to_codes(rgb, codes_of(format));
  const int top = (1 << av_pix_fmt_desc_get(format.pixels)->comp[0].depth) - 1;
  for (int c = 0; c < 3; ++c) {
    const double value = format.is_rgb() ? rgb[c] * top : yuv[c];
    values[c] = std::clamp(static_cast<int>(std::lround(value)), 0, top);
  }
  return values;
}

double largest_error(const GuardedPicture& picture,
                     const std::array<std::vector<double>, 3>& exact) {
  double largest = 0;
  for (int c = 0; c < 3; ++c) {
    const std::vector<uint16_t> values = picture.samples(c);
    for (size_t i = 0; i < values.size(); ++i) {
      largest = std::max(largest, std::abs(values[i] - exact[c][i]));
    }
  }
  return largest;
}
