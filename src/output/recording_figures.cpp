#include "recording_figures.h"

#include <utility>

namespace zeva {

void RecordingFigures::end_picture(bool taken, int64_t call_us) {
  if (!taken) ++pictures_refused;
  const Cost spent = std::exchange(cost, {});
  if (!spent.encoded) return;
  convert.add(spent.convert_us);
  encode.add(spent.encode_us);
  call.add(call_us);
}

void RecordingFigures::fill(ZevaStatistics& statistics) const {
  // In this order no picture is refused that was not given.
  statistics.pictures_refused = pictures_refused;
  statistics.pictures_given = pictures_given;
  statistics.sound_us_given = sound_us_given;
  const CallTimes::Summary converted = convert.summary();
  statistics.convert_mean_us = converted.mean_us;
  statistics.convert_p99_us = converted.p99_us;
  const CallTimes::Summary encoded = encode.summary();
  statistics.encode_mean_us = encoded.mean_us;
  statistics.encode_p99_us = encoded.p99_us;
  const CallTimes::Summary called = call.summary();
  statistics.call_mean_us = called.mean_us;
  statistics.call_p99_us = called.p99_us;
}

}  // namespace zeva
