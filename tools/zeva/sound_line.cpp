#include "sound_line.h"

#include <cstdlib>

#include "av.h"

namespace zeva_tool {
namespace {

constexpr int64_t kAtOnceUs = 40000;
constexpr int64_t kTolerableUs = 4000;
constexpr int64_t kWatchUs = 200000;

}  // namespace

int64_t SoundLine::end_us() const { return av_rescale(given, 1000000, rate); }

int64_t SoundLine::correction(int64_t time_us) {
  const int64_t off_us = time_us - end_us();
  const bool other_side = (off_us > 0) != (nearest_us > 0);
  int64_t correction_us = 0;
  if (std::abs(off_us) >= kAtOnceUs) {
    correction_us = off_us;
  } else if (std::abs(off_us) <= kTolerableUs) {
    watched_from_us = -1;
  } else if (watched_from_us < 0 || other_side) {
    watched_from_us = time_us;
    nearest_us = off_us;
  } else {
    if (std::abs(off_us) < std::abs(nearest_us)) nearest_us = off_us;
    if (time_us - watched_from_us >= kWatchUs) correction_us = nearest_us;
  }
  if (correction_us != 0) watched_from_us = -1;
  return av_rescale(correction_us, rate, 1000000);
}

}  // namespace zeva_tool
