#include "index_facts.h"

#include <algorithm>

namespace zeva_tool {

const StreamFacts* IndexFacts::first(bool audio) const {
  for (const StreamFacts& stream : streams) {
    if (stream.audio == audio) return &stream;
  }
  return nullptr;
}

int64_t IndexFacts::packets() const { return sum(&StreamFacts::packets); }

int64_t IndexFacts::held_packets() const { return sum(&StreamFacts::held_packets); }

int64_t IndexFacts::lost_packets() const { return sum(&StreamFacts::lost_packets); }

int64_t IndexFacts::dependent_packets() const { return sum(&StreamFacts::dependent_packets); }

bool IndexFacts::is_damaged() const {
  return damage_count > 0 || hole_count > 0 || lost_packets() > 0 || dependent_packets() > 0;
}

int64_t IndexFacts::sum(int64_t StreamFacts::*number) const {
  int64_t all = 0;
  for (const StreamFacts& stream : streams) all += stream.*number;
  return all;
}

void IndexFacts::add_hole(const IndexHole& hole) {
  constexpr size_t kHolesKept = 5;
  // A damaged index may tell of more than there can be.
  constexpr int64_t kMost = INT64_MAX / 2;
  ++hole_count;
  hole_bytes = std::min(kMost, hole_bytes + std::min(kMost, hole.bytes));
  hole_us = std::min(kMost, hole_us + std::min(kMost, hole.us));
  if (holes.size() < kHolesKept) holes.push_back(hole);
}

int64_t IndexFacts::start_us() const {
  int64_t start = INT64_MAX;
  for (const StreamFacts& stream : streams) {
    if (stream.packets > 0) start = std::min(start, stream.start_us);
  }
  return start == INT64_MAX ? 0 : start;
}

int64_t IndexFacts::end_us() const {
  int64_t end = start_us();
  for (const StreamFacts& stream : streams) {
    if (stream.packets > 0) end = std::max(end, stream.end_us);
  }
  return end;
}

int64_t IndexFacts::held_end_us() const {
  int64_t end = start_us();
  for (const StreamFacts& stream : streams) {
    if (stream.held_packets > 0) end = std::max(end, stream.held_end_us);
  }
  return end;
}

double IndexFacts::bits_per_second() const {
  const int64_t bytes = sum(&StreamFacts::bytes);
  auto duration = static_cast<double>(duration_us());
  return duration > 0 ? static_cast<double>(bytes) * 8e6 / duration : 0;
}

int64_t IndexFacts::unrecorded_bytes() const {
  return movie ? std::max<int64_t>(0, movie->media_end - std::max(media_end, movie->media_begin))
               : 0;
}

int64_t IndexFacts::unrecorded_us() const {
  double rate = bits_per_second();
  return rate > 0 ? static_cast<int64_t>(static_cast<double>(unrecorded_bytes()) * 8e6 / rate) : 0;
}

}  // namespace zeva_tool
