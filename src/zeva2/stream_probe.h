// An elementary stream's parameters, as FFmpeg reads them from its beginning.
#pragma once

#include <cstdint>
#include <vector>

#include "av_handles.h"
#include "status.h"

namespace zeva {

// Demuxes the first packet of a stream from memory. Owns the bytes and the demuxer, which is kept
// for the stream's description. Used by one thread.
class StreamProbe {
 public:
  StreamProbe() = default;
  StreamProbe(const StreamProbe&) = delete;
  StreamProbe& operator=(const StreamProbe&) = delete;

  // Fails when the bytes do not tell everything that an output needs; may be called again then.
  // `format` is "aac" or "h264".
  Status open(const char* format, const uint8_t* data, size_t size_bytes);

  // Null until it is known.
  AVStream* stream() const;
  void close() { ic.reset(); }

 private:
  static int read(void* self, uint8_t* buffer, int size);

  std::vector<uint8_t> bytes;
  size_t position = 0;
  CustomInputPtr ic;  // last: it reads the others
};

}  // namespace zeva
