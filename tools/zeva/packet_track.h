// One stream of packets on its way to the library.
//
// Times count in microseconds on a time line that all tracks of a source share. One thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "zeva/packet.h"

namespace zeva_tool {

class PacketTrack {
 public:
  virtual ~PacketTrack() = default;

  // The stream's part of the settings; they refer to the track's memory.
  virtual void describe(MovieInfo2& info) const = 0;

  // When the packet at hand is due: pictures when they are decoded. Nothing when there is none, at
  // the end or for now.
  virtual std::optional<int64_t> time_us() = 0;

  // When the packet at hand is seen or heard.
  virtual std::optional<int64_t> shown_us() { return time_us(); }

  // Hands the packet at hand to the library, its times moved on by `shift_us`; false when that
  // refused it.
  virtual bool write(void* recording, int64_t shift_us) = 0;

  // Moves on to the next packet.
  virtual void pop() = 0;

  // A sentence on what went wrong on the way.
  virtual std::string warning() const { return {}; }
};

}  // namespace zeva_tool
