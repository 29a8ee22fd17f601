#include "picture_rate.h"

#include <algorithm>
#include <cmath>

extern "C" {
#include <libavutil/parseutils.h>
}

namespace zeva_tool {
namespace {

constexpr AVRational kLowest{1, 1000};
// Rates that television slowed down by 1000/1001 when it became coloured.
constexpr int kTelevisionRates[] = {15, 24, 30, 48, 60, 120, 240};

size_t places_of(const std::string& text) {
  size_t point = text.find('.');
  return point == std::string::npos ? 0 : text.size() - point - 1;
}

// A decimal number stands for a television rate if it is that rate rounded to as many places. One
// place is too few: 29.9 would be one.
AVRational meant_by(AVRational rate, const std::string& text) {
  size_t places = places_of(text);
  if (places < 2) return rate;
  double error = 0.5 * std::pow(10.0, -static_cast<double>(places)) + 1e-9;
  for (int whole : kTelevisionRates) {
    AVRational slowed{whole * 1000, 1001};
    if (std::abs(av_q2d(rate) - av_q2d(slowed)) <= error) return slowed;
  }
  return rate;
}

}  // namespace

std::optional<AVRational> parse_rate(const std::string& text, int max) {
  AVRational rate{0, 1};
  if (av_parse_video_rate(&rate, text.c_str()) < 0 || rate.num <= 0 || rate.den <= 0) {
    return std::nullopt;
  }
  rate = meant_by(rate, text);
  bool in_range = av_cmp_q(rate, kLowest) >= 0 && av_cmp_q(rate, {max, 1}) <= 0;
  return in_range ? std::optional(rate) : std::nullopt;
}

int whole_rate(AVRational rate) { return std::max(1, static_cast<int>(std::lround(av_q2d(rate)))); }

}  // namespace zeva_tool
