#include "picture_colours.h"

namespace zeva {
namespace {

std::string unknown(const char* field, int value) {
  return std::string(field) + " " + std::to_string(value) + " is unknown";
}

bool is_range(int value) { return value >= 0 && value < AVCOL_RANGE_NB; }

bool is_matrix(int value) { return value >= 0 && value < AVCOL_SPC_NB; }

// In the options 0 means that nothing is said, and so does the identity, which YUV cannot have.
AVColorSpace told_matrix(int value) {
  return value == AVCOL_SPC_RGB ? AVCOL_SPC_UNSPECIFIED : static_cast<AVColorSpace>(value);
}

PictureFormat host_format(const MovieInfo& info, const Options& options) {
  return {info.src_width, info.src_height, static_cast<AVPixelFormat>(info.src_pix_fmt),
          told_matrix(options.source_matrix), static_cast<AVColorRange>(options.source_range)};
}

std::string conversion_fault(const PictureFormat& host, const PictureFormat& movie) {
  if (can_convert(host, movie)) return {};
  if (sws_isSupportedInput(host.pixels) == 0) {
    return "src_pix_fmt " + std::to_string(host.pixels) + ": pictures cannot be converted from it";
  }
  const bool of_movie = host.is_rgb() || is_linear(host.matrix);
  return (of_movie ? "colorspace " + std::to_string(movie.matrix)
                   : "source_matrix " + std::to_string(host.matrix)) +
         ": pictures cannot be converted " + (of_movie ? "to it" : "from it");
}

}  // namespace

std::string colours_fault(const MovieInfo& info, const Options& options) {
  if (!is_matrix(info.colorspace)) return unknown("colorspace", info.colorspace);
  if (!is_range(info.color_range)) return unknown("color_range", info.color_range);
  if (!is_matrix(options.source_matrix)) return unknown("source_matrix", options.source_matrix);
  if (!is_range(options.source_range)) return unknown("source_range", options.source_range);
  return {};
}

void request_colours(AVCodecContext& enc, const MovieInfo& info) {
  if (info.color_primaries != 0) {
    enc.color_primaries = static_cast<AVColorPrimaries>(info.color_primaries);
  }
  if (info.color_trc != 0) {
    enc.color_trc = static_cast<AVColorTransferCharacteristic>(info.color_trc);
  }
  if (info.color_range != 0) enc.color_range = static_cast<AVColorRange>(info.color_range);
  if (info.colorspace != AVCOL_SPC_UNSPECIFIED) {
    enc.colorspace = static_cast<AVColorSpace>(info.colorspace);
  }
}

std::string settle_colours(AVCodecContext& enc, MovieInfo& info, const Options& options) {
  const PictureFormat host = settle(host_format(info, options));
  PictureFormat movie{enc.width, enc.height, enc.pix_fmt, told_matrix(enc.colorspace),
                      enc.color_range};
  if (movie.matrix == AVCOL_SPC_UNSPECIFIED) {
    movie.matrix = host.is_rgb() ? usual_matrix(host.width, host.height) : host.matrix;
  }
  movie = settle(movie);
  enc.colorspace = movie.matrix;
  enc.color_range = movie.range;
  info.colorspace = movie.matrix;
  info.color_range = movie.range;
  return conversion_fault(host_pictures(info, options), movie);
}

PictureFormat host_pictures(const MovieInfo& info, const Options& options) {
  PictureFormat host = host_format(info, options);
  if (host.matrix == AVCOL_SPC_UNSPECIFIED) {
    host.matrix = static_cast<AVColorSpace>(info.colorspace);
  }
  if (host.range == AVCOL_RANGE_UNSPECIFIED) {
    host.range = static_cast<AVColorRange>(info.color_range);
  }
  return settle(host);
}

}  // namespace zeva
