#include "stream_tally.h"

#include <algorithm>

namespace zeva_tool {
namespace {

// No recording gets there, and differences of such times do not overflow.
constexpr int64_t kMaxUs = INT64_MAX / 4;

// Damaged numbers may be anything: differences wrap around instead of overflowing.
int64_t minus(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

int64_t plus(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

}  // namespace

using Fate = zeva::PacketRecovery::Fate;

void StreamTally::add(const zeva::IndexedPacket& packet, Fate fate) {
  if (packets == 0) {
    first_pts = last_pts = packet.pts;
    last_duration = packet.duration;
  } else {
    int64_t step = minus(packet.dts, last_dts);
    unordered += step <= 0;
    steps.push_back(step);
  }
  last_dts = packet.dts;
  ++packets;
  bytes = plus(bytes, packet.size);
  first_pts = std::min(first_pts, packet.pts);
  if (packet.pts >= last_pts) {
    last_pts = packet.pts;
    last_duration = packet.duration;
  }
  lost_packets += fate == Fate::kLost;
  dependent_packets += fate == Fate::kDependent;
  if (fate == Fate::kRecovered) {
    ++held_packets;
    held_pts = last_pts;
    held_duration = last_duration;
  }
  if (!packet.key) return;
  if (key_packets > 0) key_distance = std::max(key_distance, minus(packet.dts, last_key_dts));
  last_key_dts = packet.dts;
  ++key_packets;
}

void StreamTally::finish(StreamFacts& facts) {
  facts.packets = packets;
  facts.held_packets = held_packets;
  facts.lost_packets = lost_packets;
  facts.dependent_packets = dependent_packets;
  facts.bytes = bytes;
  facts.unordered = unordered;
  facts.key_packets = key_packets;
  // The index does not keep every duration: a packet without one lasts as long as is usual.
  int64_t usual = usual_step();
  facts.start_us = us(first_pts);
  facts.end_us = us(plus(last_pts, last_duration > 0 ? last_duration : usual));
  facts.held_end_us = us(plus(held_pts, held_duration > 0 ? held_duration : usual));
  facts.longest_key_distance_us = us(std::max(key_distance, minus(last_dts, last_key_dts)));
  if (facts.duration_us() > 0) {
    facts.packets_per_second =
        static_cast<double>(packets) * 1e6 / static_cast<double>(facts.duration_us());
  }
  find_gaps(facts);
}

int64_t StreamTally::end_us() const { return us(plus(last_pts, last_duration)); }

int64_t StreamTally::usual_step() const {
  if (steps.empty()) return 0;
  std::vector<int64_t> sorted = steps;
  auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
  std::nth_element(sorted.begin(), middle, sorted.end());
  return std::max<int64_t>(0, *middle);
}

void StreamTally::find_gaps(StreamFacts& facts) const {
  const int64_t usual = usual_step();
  int64_t longest = 0;
  int64_t longest_at = 0;
  int64_t at = last_dts;
  for (auto step = steps.rbegin(); step != steps.rend(); ++step) {
    at = minus(at, *step);
    if (*step <= usual || *step - usual <= usual / 2) continue;
    ++facts.gaps;
    if (*step >= longest) {
      longest = *step;
      longest_at = at;
    }
  }
  facts.longest_gap_us = us(longest);
  facts.longest_gap_at_us = us(longest_at);
}

int64_t StreamTally::us(int64_t ticks) const {
  if (time_base.num <= 0 || time_base.den <= 0) return 0;
  return std::clamp(av_rescale_q(ticks, time_base, kMicroseconds), -kMaxUs, kMaxUs);
}

}  // namespace zeva_tool
