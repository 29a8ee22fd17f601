// Where pictures and sound come from.
//
// A source hands out pieces in the order of their times, which count from the start of the
// recording (0 or more). The recorder decides when a piece is due and with which host time it is
// stamped; the source then hands its data to the library.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "status.h"
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

struct Piece {
  enum class Kind { kPicture, kSound, kEnd };
  Kind kind = Kind::kEnd;
  int64_t time_us = 0;
};

// All calls come from one thread.
class Source {
 public:
  virtual ~Source() = default;

  virtual Status open() = 0;
  virtual const SourceFormat& format() const = 0;

  // The recording is open, with these settings in effect. Called once, before next().
  virtual void begin(void* /*recording*/, const MovieInfo& /*effective*/) {}

  // Moves on to the next piece. May block while a live source has none yet.
  virtual Piece next() = 0;

  // Writes the piece that next() told about; false when the library refused a picture.
  virtual bool write(void* recording, int64_t stamp_us) = 0;

  // What went wrong on the way without ending the recording, a sentence each.
  virtual std::vector<std::string> warnings() const { return {}; }
};

}  // namespace zeva_tool
