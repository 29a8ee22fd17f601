// A recording whose packets are known, and what a repair may make of its remains.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace zeva_test {

struct MoviePacket {
  int64_t pts = 0, dts = 0;
  bool key = false;
  std::string bytes;
};

struct MovieTrack {
  std::string description;  // codec, its setup, sizes and time base
  std::vector<MoviePacket> packets;
};

// An MP4 as libavformat reads it: pictures and sound; without tracks when it cannot be opened.
struct Movie {
  MovieTrack tracks[2];
  size_t packets() const { return tracks[0].packets.size() + tracks[1].packets.size(); }
};
Movie read_movie(const std::filesystem::path& path);
bool operator==(const Movie& a, const Movie& b);

// The packets of a movie that another one holds. `fault` is not empty when it holds anything else.
struct Match {
  std::string fault;
  size_t hole_bytes = 0;  // not 0: the fault is so many zeros where the packet has its bytes
  std::vector<bool> found[2];
};
Match match(const Movie& movie, const Movie& known);

// The finished movie and its index. Throws when they contradict each other, or have no packets.
class KnownMovie {
 public:
  KnownMovie(const std::filesystem::path& movie_file, const std::string& index);

  // All but the last packet, in the order of the index.
  struct Record {
    size_t track, number;   // the packet
    size_t position, size;  // its bytes in the movie
    size_t end;             // its record's in the index
  };
  const std::vector<Record>& records() const { return all; }

  // Sets what stands in `index` and, unless it is null, has its bytes in `movie`.
  void add_records_in(const std::string& index, const std::string* movie,
                      std::vector<bool>& found) const;

  const Movie& movie() const { return known; }

 private:
  void read_records();

  Movie known;
  std::string movie_bytes, index_text;
  std::vector<Record> all;
};

}  // namespace zeva_test
