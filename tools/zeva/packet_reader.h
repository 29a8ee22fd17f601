// Reads one file's packets, one queue for each stream that is wanted, without decoding.
//
// Owns the open file. One thread.
#pragma once

#include <cstddef>
#include <deque>
#include <string>

#include "av.h"
#include "status.h"

namespace zeva_tool {

class PacketReader {
 public:
  // Opens the file (UTF-8 path) in the named format, or in the one it seems to have if null.
  Status open(const std::string& argument, const std::string& path, const char* format);

  // Selects the best stream of the kind; null if there is none. Before the first front().
  const AVStream* select(AVMediaType type);

  // The stream's next packet, which stays until pop(); null when there is none, or none within
  // reach because the file is badly interleaved.
  const AVPacket* front(const AVStream& stream);
  void pop(const AVStream& stream);
  bool ended(const AVStream& stream) { return !front(stream) && file_ended; }

  const std::string& read_error() const { return read_error_text; }

 private:
  struct Lane {
    const AVStream* stream = nullptr;
    std::deque<PacketPtr> waiting;
  };
  Lane& lane_of(const AVStream& stream);
  bool read_packet();

  InputPtr input;
  Lane lanes[2];
  size_t lane_count = 0;
  size_t waiting_bytes = 0;
  bool file_ended = false;
  std::string read_error_text;
};

}  // namespace zeva_tool
