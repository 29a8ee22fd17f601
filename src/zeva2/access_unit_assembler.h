// Access units from what hosts call packets.
#pragma once

#include <cstdint>
#include <vector>

#include "avc.h"

namespace zeva {

// Many encoders hand over parameter sets and SEI as packets of their own, and some a packet a
// slice. Only a picture has a place in time, so everything that comes without one is kept and put
// in front of the next picture. Owns what it keeps. Used by the one thread that writes video.
class AccessUnitAssembler {
 public:
  struct Bytes {
    const uint8_t* data = nullptr;
    size_t size_bytes = 0;
  };
  // Of one packet; either may be empty. Both live until the next call, or as long as the packet.
  struct Parts {
    Bytes slices;    // further slices of the picture before
    Bytes pictures;  // one or more access units, with what was kept before
  };

  // False, with a log line, for bytes that are no H.264 in the byte stream format.
  bool take(const uint8_t* packet, size_t size_bytes, Parts* parts);

 private:
  void keep(const AccessUnitPart& part);

  std::vector<uint8_t> kept;
  std::vector<uint8_t> joined;
};

}  // namespace zeva
