// Questions about pixel formats, and the formats of planes.
#pragma once

#include "av.h"

namespace zeva_tool {

// Palettes count as RGB.
bool is_rgb(AVPixelFormat format);

// RGB of few colours, which swscale makes luma and chroma of by BT.601 whatever it is asked for.
bool is_palette_like(AVPixelFormat format);

// True for the formats that mean the full range whatever else is said.
bool implies_full_range(AVPixelFormat format);

// Bits of the first component; 8 for a format that is unknown.
int depth_of(AVPixelFormat format);

// Each component in a plane of its own, of whole samples in one or two bytes of this machine's
// order. With alpha or without.
bool has_sample_planes(AVPixelFormat format);

// Every plane is made of whole bytes or of whole 16-bit numbers of this machine's order, of one or
// of several components.
bool has_whole_samples(AVPixelFormat format);

// Luma and chroma (or G, B and R) in three planes without alpha; none for a depth that FFmpeg does
// not have.
AVPixelFormat planar_format(bool rgb, int log2_chroma_w, int log2_chroma_h, int depth);

}  // namespace zeva_tool
