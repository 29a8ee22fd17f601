// Where the parts of an MP4 file lie, read from its top-level boxes (ISO/IEC 14496-12, 4.2).
#pragma once

#include <cstdint>
#include <string>

#include "status.h"

namespace zeva_tool {

struct Mp4Layout {
  int64_t file_bytes = 0;
  int64_t written_bytes = 0;  // without zeros at the end that nobody wrote
  bool has_trailer = false;   // a whole moov box is there: players can open the movie
  // The bytes of the packets. The end is that of what was written while the box has no size yet.
  int64_t media_begin = 0;
  int64_t media_end = 0;
};

// Reads box headers only. A file that is no MP4, or is empty, has no trailer and no media.
Status read_mp4_layout(const std::string& path, Mp4Layout& layout);

}  // namespace zeva_tool
