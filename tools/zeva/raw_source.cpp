#include "raw_source.h"

namespace zeva_tool {

RawSource::RawSource(int width, int height, AVRational rate, const ColourLimits& limits,
                     Terminal& the_terminal)
    : terminal(the_terminal) {
  source_format.has_pictures = true;
  source_format.width = source_format.display_width = width;
  source_format.height = height;
  source_format.rate = rate;
  source_format.pix_fmt = AV_PIX_FMT_BGRA;
  FramePtr picture(av_frame_alloc());
  picture->width = width;
  picture->height = height;
  picture->format = source_format.pix_fmt;
  source_format.movie = plan_colours(*picture, limits).movie;
}

Status RawSource::open() {
  if (Terminal::stdin_is_terminal()) {
    return Status("--raw reads pictures from standard input, which is a terminal");
  }
  picture.resize(static_cast<size_t>(source_format.width) * source_format.height * 4);
  return {};
}

Piece RawSource::next() {
  size_t got = terminal.read_stdin(picture.data(), picture.size());
  if (got < picture.size()) {
    rest_bytes = got;
    return {};
  }
  return {Piece::Kind::kPicture,
          av_rescale_q(picture_count++, av_inv_q(source_format.rate), kMicroseconds)};
}

bool RawSource::write(void* recording, int64_t stamp_us) {
  return ZEVA_write_video_bgra(recording, picture.data(), static_cast<int>(picture.size()),
                               stamp_us, source_format.width * 4);
}

std::vector<std::string> RawSource::warnings() const {
  if (rest_bytes == 0 || Terminal::stop_requested()) return {};
  return {"standard input ended within a picture: its last " + std::to_string(rest_bytes) +
          " bytes were left out"};
}

}  // namespace zeva_tool
