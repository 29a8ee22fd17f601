// One stream of packets on its way to the library.
//
// Times count in microseconds on a time line that all tracks of a source share. One thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "status.h"
#include "zeva/packet.h"

namespace zeva_tool {

class PacketTrack {
 public:
  virtual ~PacketTrack() = default;

  // The stream's part of the settings; they refer to the track's memory.
  virtual void describe(MovieInfo2& info) const = 0;

  // The time of the packet at hand; nothing when there is none, at the end or for now.
  virtual std::optional<int64_t> time_us() = 0;

  // The recording begins at this time of the time line.
  virtual void start_at(int64_t /*zero_us*/) {}

  // Hands the packet at hand to the library; false when that refused it.
  virtual bool write(void* recording, int64_t stamp_us) = 0;

  // Moves on to the next packet.
  virtual void pop() = 0;

  // What makes it impossible to go on, a sentence; nothing more is at hand then.
  virtual Status fault() const { return {}; }
  virtual std::string warning() const { return {}; }
};

}  // namespace zeva_tool
