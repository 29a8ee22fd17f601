// BGRA pictures of one size on standard input, without anything between them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame_source.h"
#include "terminal.h"

namespace zeva_tool {

class RawSource : public FrameSource {
 public:
  // `terminal` must outlive the source.
  RawSource(int width, int height, AVRational rate, const ColourLimits& limits, Terminal& terminal);

  Status open() override;
  const SourceFormat& format() const override { return source_format; }
  Piece next() override;
  bool write(void* recording, int64_t stamp_us) override;
  std::vector<std::string> warnings() const override;

 private:
  SourceFormat source_format;
  Terminal& terminal;
  std::vector<uint8_t> picture;
  int64_t picture_count = 0;
  size_t rest_bytes = 0;
};

}  // namespace zeva_tool
