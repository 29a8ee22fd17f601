// A source of raw pictures and raw sound.
#pragma once

#include <string>

#include "av.h"
#include "colours.h"
#include "source.h"
#include "zeva/record.h"

namespace zeva_tool {

// What a source delivers, in the terms of MovieInfo.
struct SourceFormat {
  bool has_pictures = false;
  int width = 0;
  int height = 0;
  int display_width = 0;  // width in square pixels
  AVRational rate{0, 1};  // pictures a second, on the average
  // The pictures have times of their own; otherwise they come exactly at the rate.
  bool own_times = false;
  AVRational grid_rate{0, 1};  // at which as good as every picture finds a place of its own
  int pix_fmt = -1;
  int component_bits = 8;  // of its pictures
  Colours colours;         // of its pictures
  Colours movie;           // that they shall have in the movie
  std::string light;       // settings of libx264 that tell what light they are made for

  bool has_sound = false;
  int sample_rate = 0;
  int channels = 0;
};

class FrameSource : public Source {
 public:
  // Known once the source is open.
  virtual const SourceFormat& format() const = 0;

  // The recording is open, with these settings in effect. Called once, before next().
  virtual void begin(void* /*recording*/, const MovieInfo& /*effective*/) {}
};

}  // namespace zeva_tool
