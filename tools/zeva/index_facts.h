// What an index says about a recording, and how much of that the movie file really holds.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "av.h"
#include "mp4_layout.h"

namespace zeva_tool {

// Times are microseconds of movie time, but for `step`.
struct StreamFacts {
  bool audio = false;
  std::string codec;
  int width = 0, height = 0;          // pictures
  int sample_rate = 0, channels = 0;  // sound

  int64_t packets = 0;
  int64_t bytes = 0;
  int64_t start_us = 0;
  int64_t end_us = 0;  // of the last packet, its duration included
  double packets_per_second = 0;
  int64_t unordered = 0;  // packets whose decoding time does not grow; no output takes them

  int64_t key_packets = 0;
  int64_t longest_key_distance_us = 0;

  // A gap: more than one and a half times the usual distance of two packets.
  int64_t gaps = 0;
  int64_t longest_gap_us = 0;
  int64_t longest_gap_at_us = 0;

  // Of the packets, those that a repair will hand out, because the movie file has their bytes.
  int64_t held_packets = 0;
  int64_t held_end_us = 0;
  int64_t lost_packets = 0;       // zeros stand in the place of their bytes
  int64_t dependent_packets = 0;  // pictures that build on ones that are missing

  int64_t duration_us() const { return end_us - start_us; }
  int64_t held_duration_us() const { return held_packets > 0 ? held_end_us - start_us : 0; }
};

// Packets in the middle of the movie that have no record.
struct IndexHole {
  int64_t line = 0;   // of the first record behind it
  int64_t bytes = 0;  // in the movie file
  int64_t at_us = 0;  // movie time
  int64_t us = 0;     // about how long they play
};

struct IndexDamage {
  int64_t line = 0;
  std::string what;
};

struct IndexFacts {
  std::string path;
  int64_t file_bytes = 0;
  int version = 0;
  std::vector<StreamFacts> streams;  // in the order of the recording's streams

  int64_t record_lines = 0;
  bool cut_off = false;  // the text ends in the middle of a record
  int64_t damage_count = 0;
  std::vector<IndexDamage> damages;  // the first ones

  int64_t hole_count = 0;
  int64_t hole_bytes = 0;        // of all
  int64_t hole_us = 0;           // of all
  std::vector<IndexHole> holes;  // the first ones
  void add_hole(const IndexHole& hole);

  int64_t media_begin = 0;  // where the recorded packets lie in the movie file
  int64_t media_end = 0;

  std::optional<Mp4Layout> movie;  // when there is one to compare with
  std::string movie_path;

  const StreamFacts* first(bool audio) const;
  int64_t packets() const;
  int64_t held_packets() const;
  int64_t lost_packets() const;
  int64_t dependent_packets() const;
  // True when something in the middle of the recording cannot be brought back.
  bool is_damaged() const;
  int64_t start_us() const;
  int64_t end_us() const;
  int64_t duration_us() const { return end_us() - start_us(); }
  int64_t held_end_us() const;
  int64_t held_duration_us() const { return held_packets() > 0 ? held_end_us() - start_us() : 0; }
  double bits_per_second() const;  // of what the records describe

  // Bytes of packets in the movie file that no record describes, and about how long they play.
  int64_t unrecorded_bytes() const;
  int64_t unrecorded_us() const;

 private:
  int64_t sum(int64_t StreamFacts::*number) const;
};

}  // namespace zeva_tool
