// Adds up the packets of one stream of an index.
#pragma once

#include <cstdint>
#include <vector>

#include "index_facts.h"
#include "packet_recovery.h"

namespace zeva_tool {

class StreamTally {
 public:
  explicit StreamTally(AVRational the_time_base) : time_base(the_time_base) {}

  void add(const zeva::IndexedPacket& packet, zeva::PacketRecovery::Fate fate);

  // Call once, behind the last packet; fills the numbers of `facts`.
  void finish(StreamFacts& facts);

  int64_t end_us() const;  // of the packets so far
  int64_t us(int64_t ticks) const;

 private:
  void find_gaps(StreamFacts& facts) const;
  int64_t usual_step() const;

  AVRational time_base;
  int64_t packets = 0, bytes = 0, key_packets = 0, unordered = 0;
  int64_t held_packets = 0, lost_packets = 0, dependent_packets = 0;
  int64_t first_pts = 0, last_pts = 0, held_pts = 0;  // the largest so far
  int64_t last_duration = 0, held_duration = 0;       // of the packets with those times
  int64_t last_dts = 0, last_key_dts = 0, key_distance = 0;
  // Ticks from each packet to the next; a recording of ten hours has two million of them.
  std::vector<int64_t> steps;
};

}  // namespace zeva_tool
