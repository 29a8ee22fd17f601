// The library's own test picture and test tone.
#pragma once

#include <cstdint>

#include "frame_source.h"

struct AVFrame;

namespace zeva_tool {

class PatternSource : public FrameSource {
 public:
  PatternSource(int width, int height, AVRational rate, bool pictures, bool sound);

  Status open() override { return {}; }
  const SourceFormat& format() const override { return source_format; }
  void begin(void* recording, const MovieInfo& effective) override;
  Piece next() override;
  bool write(void* recording, int64_t stamp_us) override;

 private:
  SourceFormat source_format;
  void* generator = nullptr;
  int64_t picture_count = 0;
  int64_t sample_count = 0;
  AVFrame* frame = nullptr;  // the recording's
  bool frame_is_picture = false;
};

}  // namespace zeva_tool
