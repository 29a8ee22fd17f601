#include "movie_times.h"

#include <algorithm>

#include "av_error.h"

namespace zeva {
namespace {

constexpr int64_t kLongestStartUs = 5000000;

}  // namespace

void MovieTimes::begin(AVFormatContext& oc) {
  last_times.assign(oc.nb_streams, INT64_MIN);
  starting = av_match_name(oc.oformat->name, "flv") != 0;
  floor_is_zero = (oc.oformat->flags & (AVFMT_TS_NEGATIVE | AVFMT_NOTIMESTAMPS)) == 0;
  if (!floor_is_zero) return;
  oc.avoid_negative_ts = 0;
  for (unsigned i = 0; i < oc.nb_streams; ++i) {
    const AVCodecParameters& par = *oc.streams[i]->codecpar;
    if (par.sample_rate <= 0) continue;
    const int64_t lead_us = av_rescale(par.initial_padding, AV_TIME_BASE, par.sample_rate);
    oc.output_ts_offset = std::max(oc.output_ts_offset, lead_us);
  }
}

bool MovieTimes::fit(const AVFormatContext& oc, AVPacket& packet) {
  if (!floor_is_zero || packet.dts == AV_NOPTS_VALUE) return true;
  const AVRational time_base = oc.streams[packet.stream_index]->time_base;
  const int64_t zero = -av_rescale_q(oc.output_ts_offset, kMicroseconds, time_base);
  int64_t& last = last_times[static_cast<size_t>(packet.stream_index)];
  const int64_t lowest = last == INT64_MIN ? zero : std::max(zero, last + 1);
  if (packet.pts != AV_NOPTS_VALUE && packet.pts < lowest) return false;
  packet.dts = last = std::max(packet.dts, lowest);
  starting = starting && still_starts(av_rescale_q(packet.dts, time_base, kMicroseconds));
  return true;
}

bool MovieTimes::still_starts(int64_t dts_us) {
  if (first_us == INT64_MIN) first_us = dts_us;
  const bool all_began = std::count(last_times.begin(), last_times.end(), INT64_MIN) == 0;
  return !all_began && dts_us - first_us < kLongestStartUs;
}

void MovieTimes::note(const AVFormatContext& oc, const AVPacket& packet) {
  constexpr int64_t kLimit = int64_t{1} << 56;
  const auto index = static_cast<unsigned>(packet.stream_index);
  const auto possible = [](int64_t time) { return time > -kLimit && time < kLimit; };
  if (index >= oc.nb_streams || !possible(packet.pts) || !possible(packet.duration)) return;
  const AVRational time_base = oc.streams[index]->time_base;
  const int64_t end = av_rescale_q(packet.pts + packet.duration, time_base, kMicroseconds);
  latest_us = std::max(latest_us, end);
}

}  // namespace zeva
