#include "picture_converter.h"

#include "logger.h"
#include "rgb_to_yuv.h"
#include "sws_step.h"

namespace zeva {

bool PictureConverter::configure(const PictureFormat& source, const PictureFormat& target,
                                 CpuLevel level) {
  from = source;
  to = target;
  stages.clear();
  std::unique_ptr<PictureStep> step;
  if (RgbToYuv::supports(from, to) && from.width == to.width && from.height == to.height) {
    step = std::make_unique<RgbToYuv>(from, to, level);
  } else {
    step = SwsStep::make(from, to);
  }
  if (!step) return false;
  stages.push_back({std::move(step), nullptr});
  return true;
}

void PictureConverter::convert(const AVFrame& in, AVFrame& out) {
  const AVFrame* picture = &in;
  for (const Stage& stage : stages) {
    AVFrame& result = stage.result ? *stage.result : out;
    stage.step->run(*picture, result);
    picture = &result;
  }
}

}  // namespace zeva
