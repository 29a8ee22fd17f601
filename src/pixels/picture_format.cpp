#include "picture_format.h"

namespace zeva {
namespace {

bool implies_full_range(AVPixelFormat pixels) {
  switch (pixels) {
    case AV_PIX_FMT_YUVJ411P:
    case AV_PIX_FMT_YUVJ420P:
    case AV_PIX_FMT_YUVJ422P:
    case AV_PIX_FMT_YUVJ440P:
    case AV_PIX_FMT_YUVJ444P:
      return true;
    default:
      return false;
  }
}

}  // namespace

bool PictureFormat::is_rgb() const {
  const AVPixFmtDescriptor* description = av_pix_fmt_desc_get(pixels);
  return description != nullptr &&
         (description->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)) != 0;
}

bool PictureFormat::operator==(const PictureFormat& other) const {
  return width == other.width && height == other.height && pixels == other.pixels &&
         matrix == other.matrix && range == other.range;
}

PictureFormat format_of(const AVFrame& frame) {
  return {frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), frame.colorspace,
          frame.color_range};
}

AVColorSpace usual_matrix(int width, int height) {
  const bool hd = width >= 1280 || height > 576;
  return hd ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
}

PictureFormat settle(PictureFormat format) {
  if (format.is_rgb()) {
    format.matrix = AVCOL_SPC_RGB;
    format.range = AVCOL_RANGE_JPEG;
    return format;
  }
  if (format.matrix == AVCOL_SPC_UNSPECIFIED || format.matrix == AVCOL_SPC_RGB) {
    format.matrix = usual_matrix(format.width, format.height);
  }
  if (implies_full_range(format.pixels)) format.range = AVCOL_RANGE_JPEG;
  if (format.range == AVCOL_RANGE_UNSPECIFIED) format.range = AVCOL_RANGE_MPEG;
  return format;
}

PictureFormat described(const AVFrame& frame, const PictureFormat& otherwise) {
  PictureFormat format = format_of(frame);
  const bool told = format.matrix != AVCOL_SPC_UNSPECIFIED && format.matrix != AVCOL_SPC_RGB;
  if (!told) format.matrix = otherwise.matrix;
  if (format.range == AVCOL_RANGE_UNSPECIFIED) format.range = otherwise.range;
  return settle(format);
}

bool is_linear(AVColorSpace matrix) {
  switch (matrix) {
    case AVCOL_SPC_BT709:
    case AVCOL_SPC_FCC:
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
    case AVCOL_SPC_SMPTE240M:
    case AVCOL_SPC_BT2020_NCL:
      return true;
    default:
      return false;
  }
}

bool can_convert(const PictureFormat& from, const PictureFormat& to) {
  if (!from.has_area() || !to.has_area()) return false;
  if (from == to) return true;
  if (sws_isSupportedInput(from.pixels) == 0 || sws_isSupportedOutput(to.pixels) == 0) return false;
  if (from.matrix == to.matrix) return true;
  return (from.is_rgb() || is_linear(from.matrix)) && (to.is_rgb() || is_linear(to.matrix));
}

}  // namespace zeva
