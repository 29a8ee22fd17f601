// Finds the hardware H.264 encoders that work on this machine.
#pragma once

namespace zeva {

struct HwEncoder {
  int id;
  const char* name;
};

// In the order in which they are tried.
inline constexpr HwEncoder kHwEncoders[] = {
    {0, "h264_nvenc"}, {1, "h264_amf"}, {2, "h264_qsv"}, {3, "h264_mf"}};

// True when the encoder opens for pictures of this size and AVPixelFormat. Opening one is slow, so
// an answer is kept for the life of the process. Any thread; blocks while another thread probes.
bool probe_hw_encoder(const HwEncoder* entry, int width, int height, int pix_fmt);

}  // namespace zeva
