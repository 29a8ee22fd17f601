// FFmpeg's scaler, for what is too rare for code of ours.
#pragma once

#include <memory>

#include "av_handles.h"
#include "picture_format.h"
#include "picture_step.h"

namespace zeva {

class SwsStep : public PictureStep {
 public:
  // Null when there is no such conversion.
  static std::unique_ptr<SwsStep> make(const PictureFormat& from, const PictureFormat& to);

  void run(const AVFrame& in, AVFrame& out) override;
  bool goes_row_by_row() const override { return false; }

 private:
  explicit SwsStep(SwsPtr scaler) : scaler(std::move(scaler)) {}

  SwsPtr scaler;
};

}  // namespace zeva
