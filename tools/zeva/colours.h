// The meaning of a picture's numbers (ITU-T H.273), and the meaning that a movie's shall have.
#pragma once

#include "av.h"

namespace zeva_tool {

struct Colours {
  AVColorSpace matrix = AVCOL_SPC_UNSPECIFIED;
  AVColorRange range = AVCOL_RANGE_UNSPECIFIED;
  AVColorPrimaries primaries = AVCOL_PRI_UNSPECIFIED;
  AVColorTransferCharacteristic transfer = AVCOL_TRC_UNSPECIFIED;

  // Perceptual quantiser or hybrid log-gamma (ITU-R BT.2100).
  bool is_hdr() const;
};

// The colours of a movie that an encoder can be told.
struct ColourLimits {
  enum class Tags { kNone, kTelevision, kAll };
  Tags tags = Tags::kAll;  // none: players guess by the size; television: no matrix of BT.2020
  bool ten_bits = false;   // the movie's pictures may have ten bits
  int width = 0;           // of the movie; 0: the source's
  int height = 0;
};

struct ColourPlan {
  Colours source;              // nothing of it unspecified but primaries and transfer
  Colours movie;               // the same; limited range
  bool not_by_matrix = false;  // more than a matrix and a range lies between the two
};

// The colours that a frame says it has.
Colours colours_of(const AVFrame& frame);

// The colours of a later picture of a movie whose first has those of `first`.
Colours later_colours(const AVFrame& picture, const Colours& first);

// More than a matrix and a range lies between the two. Of the primaries of cameras for BT.709 and
// BT.601, which hardly differ, players make none either.
bool differ_in_light(const Colours& from, const Colours& to);

// A movie keeps its colours, in limited range: that is what all encoders and players take, while
// many players show the full range with a shift, tagged or not. RGB becomes BT.709. A source that
// says nothing is taken for what players would take it for. High dynamic range is kept where ten
// bits are possible; else it becomes BT.709, since players would show eight bits of it with steps
// or, without tags, grey.
ColourPlan plan_colours(const AVFrame& picture, const ColourLimits& limits);

}  // namespace zeva_tool
