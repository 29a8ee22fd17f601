// The end of an encoder: it hands every packet to a writer.
#pragma once

#include "ffmpeg.h"

namespace zeva {

class BaseWriter {
 public:
  BaseWriter() = default;
  virtual ~BaseWriter() = default;
  BaseWriter(const BaseWriter&) = delete;
  BaseWriter& operator=(const BaseWriter&) = delete;

  // Takes a reference to `packet`, whose times are in `time_base`. Packets of one stream come from
  // one thread at a time, those of different streams from any. 0, or negative when nobody takes
  // packets any more.
  virtual int write_packet(AVRational time_base, AVPacket* packet, bool interleave) = 0;
};

}  // namespace zeva
