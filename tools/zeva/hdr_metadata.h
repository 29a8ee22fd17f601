// The light of a source of high dynamic range, as its metadata describes it (SMPTE ST 2086,
// CTA-861.3).
#pragma once

#include <string>

#include "av.h"

namespace zeva_tool {

class HdrMetadata {
 public:
  HdrMetadata() = default;
  // From the container, or else from the first picture, which may be null.
  HdrMetadata(const AVStream& stream, const AVFrame* picture);

  // In cd/m2; the usual one of masters when nothing is told.
  double peak_nits() const;

  // As settings of libx264, which puts it into the movie's pictures; empty when nothing is told.
  std::string encoder_options() const;

 private:
  AVMasteringDisplayMetadata display{};
  AVContentLightMetadata light{};
};

}  // namespace zeva_tool
