// Decoded pictures as the library takes them: of one size and format, upright, of whole pictures
// instead of fields, and of colours that a matrix can turn into the movie's. As good as all
// pictures are so already and pass through untouched.
//
// All pictures become like the first one: a later one of another size, format, matrix or light (of
// high dynamic range, where the first was not) is converted. Owns the frames that it converts into.
// One thread.
#pragma once

#include <memory>
#include <vector>

#include "av.h"
#include "colour_change.h"
#include "colours.h"
#include "deinterlacer.h"
#include "grey_pictures.h"

namespace zeva_tool {

class PictureConverter {
 public:
  struct Wanted {
    int turns = 0;            // quarters, clockwise
    bool all_fields = false;  // all pictures are interlaced, also those that do not say so
    double peak_nits = 0;     // of a source of high dynamic range
    ColourLimits limits;
  };
  // The pictures that come out, and the movie's colours.
  struct Pictures {
    int width = 0;
    int height = 0;
    AVPixelFormat pixels = AV_PIX_FMT_NONE;
    Colours colours;
    Colours movie;
  };

  // `first` need not have a picture, but all else.
  Pictures configure(const AVFrame& first, const Wanted& wanted);

  // The converter's, valid until the next call or as long as `frame`; null when it cannot be
  // converted. `next` is the picture after it, or null.
  AVFrame* convert(const AVFrame& frame, const AVFrame* next);

 private:
  // Size, format and meaning as they come out of the decoder.
  struct Kind {
    int width = 0;
    int height = 0;
    AVPixelFormat pixels = AV_PIX_FMT_NONE;
    AVColorSpace matrix = AVCOL_SPC_UNSPECIFIED;
    AVColorRange range = AVCOL_RANGE_UNSPECIFIED;
    bool operator==(const Kind& other) const;
  };

  // Into planes or samples of another kind, of the same light.
  struct Scaler {
    const AVFrame* convert(const AVFrame& frame, const Kind& kind, const Kind& wanted);
    bool prepare(const Kind& kind, const Kind& wanted);

    Kind from;
    Kind to;
    SwsPtr sws;
    FramePtr result;
  };

  // From pictures of one light to those that come out.
  struct Way {
    Colours colours;
    Kind common;  // of all its pictures before they are turned
    Kind turned;
    Kind changed;  // after the change, if there is one
    std::unique_ptr<ColourChange> change;
    Scaler conform;
    Scaler finish;
    FramePtr upright;
    FramePtr recoloured;
  };

  void add_way(const AVFrame& frame, const Colours& colours, const Colours& target);
  Way& way_for(const AVFrame& frame);
  Kind kind_of(const AVFrame& frame, const Way& way) const;
  const AVFrame* whole(const AVFrame& frame, const AVFrame* next);
  const AVFrame* make_upright(const AVFrame& frame, Way& way);
  static const AVFrame* recolour(const AVFrame& frame, Way& way);
  AVFrame* show(const AVFrame& frame);

  Wanted wanted;
  Pictures output;
  Deinterlacer deinterlacer;
  GreyPictures greys;
  std::vector<Way> ways;             // that of the first picture, then others as they come
  FramePtr shown{av_frame_alloc()};  // has no buffers of its own
};

}  // namespace zeva_tool
