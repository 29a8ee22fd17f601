// FFmpeg's bindings of libx264 and of NVIDIA's encoder compare rate, bound and buffer with those of
// the picture before. libx264 takes a change only where it was opened with a bound, and changes the
// average itself only where the bound is no higher; where it is, the lowered bound does the work.
#include "variable_bit_rate.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace zeva {
namespace {

constexpr const char* kFlexible[] = {"libx264", "h264_nvenc"};
// Parameters of libx264 behind FFmpeg's back that FFmpeg would overwrite, or that fix the rate.
constexpr const char* kFixingParams[] = {
    "bitrate", "crf", "qp", "vbv-maxrate", "pass", "vbv-bufsize", "avcintra-class", "nal-hrd"};
constexpr int64_t kUnit = 1000;

std::string cannot(const AVCodecContext& enc, const std::string& why) {
  return std::string(enc.codec->name) + " cannot change its bit rate" + why;
}

int64_t number_of(const AVCodecContext& enc, const char* option) {
  int64_t value = -1;
  return av_opt_get_int(enc.priv_data, option, 0, &value) >= 0 ? value : -1;
}

const char* fixing_param(const AVCodecContext& enc) {
  AVDictionary* params = nullptr;
  const char* found = nullptr;
  if (av_opt_get_dict_val(enc.priv_data, "x264-params", 0, &params) >= 0) {
    for (const char* name : kFixingParams) {
      if (av_dict_get(params, name, nullptr, 0) != nullptr) found = name;
    }
  }
  av_dict_free(&params);
  return found;
}

}  // namespace

void bound_bit_rate(AVCodecContext& enc, int64_t bit_rate) {
  enc.bit_rate = enc.rc_max_rate = bit_rate;
  enc.rc_buffer_size = static_cast<int>(std::min<int64_t>(bit_rate, INT32_MAX));
}

std::string fixed_rate_fault(const AVCodecContext& enc) {
  const char* const name = enc.codec->name;
  if (std::none_of(std::begin(kFlexible), std::end(kFlexible),
                   [name](const char* known) { return strcmp(known, name) == 0; })) {
    return cannot(enc, " while it works");
  }
  if (enc.bit_rate <= 0) return cannot(enc, ": it has none");
  if (enc.rc_max_rate <= 0 || enc.rc_buffer_size <= 0) {
    return cannot(enc, " without maxrate and bufsize");
  }
  if (number_of(enc, "qp") >= 0) return cannot(enc, " with a constant quantiser");
  for (const char* option : {"nal-hrd", "avcintra-class"}) {
    if (number_of(enc, option) > 0) return cannot(enc, std::string(" with ") + option);
  }
  const char* const param = fixing_param(enc);
  return param != nullptr ? cannot(enc, std::string(" with ") + param) : "";
}

VariableBitRate::VariableBitRate(const AVCodecContext& enc)
    : full_rate(enc.bit_rate), full_bound(enc.rc_max_rate), full_buffer(enc.rc_buffer_size) {}

void VariableBitRate::set(AVCodecContext& enc, int64_t bit_rate) const {
  const int64_t rate = std::min((bit_rate + kUnit - 1) / kUnit * kUnit, full_rate);
  enc.bit_rate = rate;
  enc.rc_max_rate = rate < full_rate ? rate : full_bound;
  enc.rc_buffer_size = static_cast<int>(av_rescale(full_buffer, rate, full_rate));
}

}  // namespace zeva
