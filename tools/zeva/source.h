// Where pictures and sound come from.
//
// A source hands out pieces in the order of their times, which count from the start of the
// recording (0 or more). The recorder decides when a piece is due and with which host time it is
// stamped; the source then hands its data to the library.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "status.h"

namespace zeva_tool {

struct Piece {
  enum class Kind { kPicture, kSound, kEnd };
  Kind kind = Kind::kEnd;
  int64_t time_us = 0;
  bool at_once = false;  // not to be waited for until it is due
};

// All calls come from one thread.
class Source {
 public:
  virtual ~Source() = default;

  virtual Status open() = 0;

  // Moves on to the next piece. May block while a live source has none yet.
  virtual Piece next() = 0;

  // Writes the piece that next() told about; false when the library refused it.
  virtual bool write(void* recording, int64_t stamp_us) = 0;

  // A sentence for each thing that went wrong without ending the recording.
  virtual std::vector<std::string> warnings() const { return {}; }
};

}  // namespace zeva_tool
