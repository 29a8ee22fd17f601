// The pictures of H.264 packets.
#pragma once

#include <cstdint>
#include <vector>

#include "av_handles.h"
#include "avc.h"

namespace zeva {

// A picture in a packet of the byte stream format; points into the packet.
struct Picture {
  const uint8_t* data = nullptr;
  size_t size_bytes = 0;
  bool key = false;  // decoding can begin here
  int structure = AV_PICTURE_STRUCTURE_UNKNOWN;
};

// Divides packets into pictures. Owns a parser, which learns the stream's parameter sets from the
// packets. Used by one thread.
class PictureParser {
 public:
  PictureParser();
  bool is_valid() const { return parser != nullptr && context != nullptr; }

  // One entry a picture: two fields that make one are together. Behind the packet's end there must
  // be FFmpeg's padding.
  std::vector<Picture> split(const AVPacket& packet);

 private:
  Picture inspect(const AccessUnitPart& part);

  ParserPtr parser;
  CodecContextPtr context;
};

}  // namespace zeva
