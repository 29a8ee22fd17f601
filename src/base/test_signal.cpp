#include "test_signal.h"

#include <cmath>

namespace zeva {
namespace {

constexpr double kToneStep = 691.1503837897545;  // 2 pi 110

}  // namespace

void draw_colour_pattern(AVFrame* frame, int i) {
  for (int y = 0; y < frame->height; ++y) {
    for (int x = 0; x < frame->width; ++x) {
      frame->data[0][y * frame->linesize[0] + x] = static_cast<uint8_t>(x + y + i * 3);
    }
  }
  for (int y = 0; y < AV_CEIL_RSHIFT(frame->height, 1); ++y) {
    for (int x = 0; x < AV_CEIL_RSHIFT(frame->width, 1); ++x) {
      frame->data[1][y * frame->linesize[1] + x] = static_cast<uint8_t>(128 + y + i * 2);
      frame->data[2][y * frame->linesize[2] + x] = static_cast<uint8_t>(64 + x + i * 5);
    }
  }
}

void RisingTone::restart(int sample_rate) {
  t = 0;
  tincr = static_cast<float>(kToneStep / sample_rate);
  tincr2 = static_cast<float>(kToneStep / sample_rate / sample_rate);
}

void RisingTone::fill(AVFrame* frame, int channels) {
  auto* out = reinterpret_cast<int16_t*>(frame->data[0]);
  for (int i = 0; i < frame->nb_samples; ++i) {
    const auto value = static_cast<int16_t>(std::sin(double{t}) * 10000);
    for (int c = 0; c < channels; ++c) *out++ = value;
    t += tincr;
    tincr += tincr2;
  }
}

}  // namespace zeva
