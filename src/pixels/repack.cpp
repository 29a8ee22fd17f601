#include "repack.h"

#include <algorithm>

namespace zeva {
namespace {

int load_word(const uint8_t* p) { return p[0] | p[1] << 8; }

void store_word(uint8_t* p, int value) {
  p[0] = static_cast<uint8_t>(value);
  p[1] = static_cast<uint8_t>(value >> 8);
}

void copy_rows(const AVFrame& in, AVFrame& out, int plane, int bytes, int rows) {
  for (int y = 0; y < rows; ++y) memcpy(row_of(out, plane, y), row_of(in, plane, y), bytes);
}

void copy_luma(const AVFrame& in, AVFrame& out) { copy_rows(in, out, 0, out.width, out.height); }

void plain_split(const uint8_t* pairs, uint8_t* first, uint8_t* second, int i, int count) {
  for (; i < count; ++i) {
    first[i] = pairs[2 * i];
    second[i] = pairs[2 * i + 1];
  }
}

void split_planes(const RowKernels* kernels, const AVFrame& in, AVFrame& out) {
  const int count = half_of(out.width);
  for (int y = 0; y < half_of(out.height); ++y) {
    const uint8_t* pairs = row_of(in, 1, y);
    uint8_t* u = row_of(out, 1, y);
    uint8_t* v = row_of(out, 2, y);
    const int done = kernels != nullptr ? kernels->split(pairs, u, v, count) : 0;
    plain_split(pairs, u, v, done, count);
  }
}

void plain_unpack(const PackedRows& rows, int x) {
  const int luma = rows.luma_first ? 0 : 1;
  const int chroma = 1 - luma;
  for (; x < rows.width; ++x) {
    for (int row = 0; row < 2; ++row) rows.y[row][x] = rows.in[row][2 * x + luma];
    if (x % 2 != 0) continue;
    const uint8_t* in0 = rows.in[0] + 2 * x + chroma;
    const uint8_t* in1 = rows.in[1] + 2 * x + chroma;
    rows.u[x / 2] = static_cast<uint8_t>((in0[0] + in1[0] + 1) >> 1);
    rows.v[x / 2] = static_cast<uint8_t>((in0[2] + in1[2] + 1) >> 1);
  }
}

void plain_narrow(const uint8_t* words, uint8_t* bytes, int i, int count,
                  const NarrowScale& scale) {
  for (; i < count; ++i) {
    const int ten_bits = ((load_word(words + 2 * i) << scale.left) & 0xffff) >> 1;
    const int scaled = ten_bits - ((ten_bits * scale.less + 0x4000) >> 15);
    bytes[i] = static_cast<uint8_t>(std::min((scaled + scale.offset) >> 7, 255));
  }
}

// 1023 becomes 255 in the full range: 1020/1023 of a quarter. Neutral chroma is 512 and 128 in both
// ranges, so there it is 1020/1023 of the distance from it. In the limited range a quarter is
// exact.
NarrowScale narrow_scale(const PictureFormat& from, bool is_chroma) {
  const bool full = from.range == AVCOL_RANGE_JPEG;
  const int left = from.pixels == AV_PIX_FMT_P010 ? 0 : 6;
  const int16_t less = full ? 96 : 0;                       // 3/1023 of 2^15
  const int16_t neutral = full && is_chroma ? 48 : 0;       // 3/1023 of 128 * 128
  return {left, less, static_cast<int16_t>(64 + neutral)};  // and half a step
}

}  // namespace

Repack::Way Repack::find_way(AVPixelFormat from, AVPixelFormat to) {
  const bool to_420 = is_planar_420(to);
  const bool to_422 = is_planar_422(to);
  switch (from) {
    case AV_PIX_FMT_NV12:
      return to_420 ? &Repack::split_chroma : nullptr;
    case AV_PIX_FMT_YUV420P:
    case AV_PIX_FMT_YUVJ420P:
      return to_420 ? &Repack::copy : to == AV_PIX_FMT_NV12 ? &Repack::merge_chroma : nullptr;
    case AV_PIX_FMT_YUV422P:
    case AV_PIX_FMT_YUVJ422P:
      return to_422 ? &Repack::copy : nullptr;
    case AV_PIX_FMT_YUYV422:
    case AV_PIX_FMT_UYVY422:
      return to_420 || to_422 ? &Repack::unpack : nullptr;
    case AV_PIX_FMT_YUV420P10:
      return to_420 ? &Repack::narrow_planar : nullptr;
    case AV_PIX_FMT_P010:
      if (to == AV_PIX_FMT_YUV420P10) return &Repack::lower_p010;
      return to_420 ? &Repack::narrow_p010 : nullptr;
    default:
      return nullptr;
  }
}

bool Repack::supports(AVPixelFormat from, AVPixelFormat to) {
  return find_way(from, to) != nullptr;
}

Repack::Repack(const PictureFormat& from, const PictureFormat& to, CpuLevel level)
    : kernels(row_kernels(level)),
      way(find_way(from.pixels, to.pixels)),
      luma_scale(narrow_scale(from, false)),
      chroma_scale(narrow_scale(from, true)),
      chroma_row(2 * half_of(from.width)) {}

void Repack::run(const AVFrame& in, AVFrame& out) { (this->*way)(in, out); }

void Repack::copy(const AVFrame& in, AVFrame& out) {
  copy_luma(in, out);
  const int rows =
      is_planar_420(static_cast<AVPixelFormat>(out.format)) ? half_of(out.height) : out.height;
  for (int plane = 1; plane < 3; ++plane) copy_rows(in, out, plane, half_of(out.width), rows);
}

void Repack::split_chroma(const AVFrame& in, AVFrame& out) {
  copy_luma(in, out);
  split_planes(kernels, in, out);
}

void Repack::merge_chroma(const AVFrame& in, AVFrame& out) {
  copy_luma(in, out);
  const int count = half_of(out.width);
  for (int y = 0; y < half_of(out.height); ++y) {
    const uint8_t* u = row_of(in, 1, y);
    const uint8_t* v = row_of(in, 2, y);
    uint8_t* pairs = row_of(out, 1, y);
    int i = kernels != nullptr ? kernels->merge(u, v, pairs, count) : 0;
    for (; i < count; ++i) {
      pairs[2 * i] = u[i];
      pairs[2 * i + 1] = v[i];
    }
  }
}

void Repack::unpack(const AVFrame& in, AVFrame& out) {
  const int step = is_planar_420(static_cast<AVPixelFormat>(out.format)) ? 2 : 1;
  for (int y = 0; y < out.height; y += step) {
    const int next = std::min(y + step - 1, out.height - 1);
    const PackedRows rows = {{row_of(in, 0, y), row_of(in, 0, next)},
                             {row_of(out, 0, y), row_of(out, 0, next)},
                             row_of(out, 1, y / step),
                             row_of(out, 2, y / step),
                             out.width,
                             in.format == AV_PIX_FMT_YUYV422};
    const int done = kernels != nullptr ? kernels->unpack(rows) : 0;
    plain_unpack(rows, done);
  }
}

void Repack::narrow_row(const uint8_t* words, uint8_t* bytes, int count,
                        const NarrowScale& scale) const {
  const int done = kernels != nullptr ? kernels->narrow(words, bytes, count, scale) : 0;
  plain_narrow(words, bytes, done, count, scale);
}

void Repack::narrow_planar(const AVFrame& in, AVFrame& out) {
  for (int y = 0; y < out.height; ++y) {
    narrow_row(row_of(in, 0, y), row_of(out, 0, y), out.width, luma_scale);
  }
  for (int plane = 1; plane < 3; ++plane) {
    for (int y = 0; y < half_of(out.height); ++y) {
      narrow_row(row_of(in, plane, y), row_of(out, plane, y), half_of(out.width), chroma_scale);
    }
  }
}

void Repack::narrow_p010(const AVFrame& in, AVFrame& out) {
  for (int y = 0; y < out.height; ++y) {
    narrow_row(row_of(in, 0, y), row_of(out, 0, y), out.width, luma_scale);
  }
  const int count = half_of(out.width);
  for (int y = 0; y < half_of(out.height); ++y) {
    narrow_row(row_of(in, 1, y), chroma_row.data(), 2 * count, chroma_scale);
    uint8_t* u = row_of(out, 1, y);
    uint8_t* v = row_of(out, 2, y);
    const int done = kernels != nullptr ? kernels->split(chroma_row.data(), u, v, count) : 0;
    plain_split(chroma_row.data(), u, v, done, count);
  }
}

// P010 has its ten bits at the top of a word, the planar format at the bottom.
void Repack::lower_p010(const AVFrame& in, AVFrame& out) {
  for (int y = 0; y < out.height; ++y) {
    const uint8_t* from = row_of(in, 0, y);
    uint8_t* to = row_of(out, 0, y);
    int x = kernels != nullptr ? kernels->lower(from, to, out.width) : 0;
    for (; x < out.width; ++x) store_word(to + 2 * x, load_word(from + 2 * x) >> 6);
  }
  const int count = half_of(out.width);
  for (int y = 0; y < half_of(out.height); ++y) {
    const uint8_t* pairs = row_of(in, 1, y);
    uint8_t* u = row_of(out, 1, y);
    uint8_t* v = row_of(out, 2, y);
    int i = kernels != nullptr ? kernels->split_lower(pairs, u, v, count) : 0;
    for (; i < count; ++i) {
      store_word(u + 2 * i, load_word(pairs + 4 * i) >> 6);
      store_word(v + 2 * i, load_word(pairs + 4 * i + 2) >> 6);
    }
  }
}

BorrowedLuma::BorrowedLuma(const PictureFormat&, const PictureFormat&, CpuLevel level)
    : kernels(row_kernels(level)) {}

void BorrowedLuma::run(const AVFrame& in, AVFrame& between) {
  between.data[0] = in.data[0];
  between.linesize[0] = in.linesize[0];
  split_planes(kernels, in, between);
}

}  // namespace zeva
