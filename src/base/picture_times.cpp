// Encoders that know H.264 take the pictures' own times: in fine units, beside the mean rate for
// their rate control. The others (FFmpeg's MPEG family) take the length of a picture from their
// time base, some only know a few rates, and MPEG-4 counts in 16 bits: fine units would starve or
// stop them. They get the pictures' numbers, in units of the mean interval, and the pictures' own
// times are put onto the packets that come out: a packet's numbers are looked up in the pictures
// that went in. A decoding time is the time of an earlier picture, so that it grows and never lies
// behind the presentation; before the first picture it is counted back at the mean rate.
#include "picture_times.h"

#include <algorithm>

namespace zeva {
namespace {

// Longer than that, a picture is only if the host says so: a guess that is too long would stretch
// a movie that ends with quicker pictures.
constexpr AVRational kLongestGuess{1, 1};

int64_t in_units(AVRational duration, AVRational units) {
  return units.num > 0 ? std::max<int64_t>(av_rescale_q(1, duration, units), 1) : 1;
}

}  // namespace

PictureTimes::PictureTimes(const PictureTiming& timing)
    : timing(timing),
      mean_interval(in_units(timing.interval, timing.units)),
      longest_guess(in_units(kLongestGuess, timing.units)) {}

int64_t PictureTimes::enter(int64_t pts, int64_t duration) {
  int64_t interval = mean_interval;
  if (!pictures.empty()) {
    interval = std::max<int64_t>(pts - pictures.back().pts, 1);
    pictures.back().duration = interval;
  }
  if (duration <= 0) duration = std::min(interval, longest_guess);
  pictures.push_back({timing.counted ? next_number++ : pts, pts, duration});
  return pictures.back().key;
}

void PictureTimes::stamp(AVPacket& packet) {
  const auto picture = std::find_if(pictures.begin(), pictures.end(),
                                    [&](const Picture& p) { return p.key == packet.pts; });
  if (picture == pictures.end()) return;
  const int64_t dts = packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
  packet.duration = picture->duration;
  if (timing.counted) {
    packet.pts = picture->pts;
    packet.dts = std::min(time_of(dts), packet.pts);
  }
  // Later packets have later decoding times. The newest picture stays for the interval to the next.
  while (pictures.size() > 1 && pictures.front().key < dts) pictures.pop_front();
}

int64_t PictureTimes::time_of(int64_t key) const {
  for (const Picture& picture : pictures) {
    if (picture.key >= key) return picture.pts - (picture.key - key) * mean_interval;
  }
  return pictures.back().pts;
}

}  // namespace zeva
