// A source of raw pictures and raw sound.
#pragma once

#include "source.h"
#include "zeva/record.h"

namespace zeva_tool {

// What a source delivers, in the terms of MovieInfo.
struct SourceFormat {
  bool has_pictures = false;
  int width = 0;
  int height = 0;
  int display_width = 0;  // width in square pixels
  int fps = 0;
  int pix_fmt = -1;
  int color_primaries = 0;
  int color_trc = 0;
  int colorspace = 2;

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
