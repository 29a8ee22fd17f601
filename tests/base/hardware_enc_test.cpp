// The probe of hardware encoders.
#include "hardware_enc.h"

#include <gtest/gtest.h>

#include "ffmpeg.h"
#include "log_capture.h"

namespace {

TEST(HardwareProbe, AsksOncePerEncoderSizeAndFormat) {
  const zeva::HwEncoder missing{101, "no_such_encoder"};
  const zeva::HwEncoder working{102, "libx264"};
  const zeva::HwEncoder refusing{103, "mpeg1video"};
  const std::vector<std::string> none;
  const std::vector<std::string> not_found{"--- 没有找到 'no_such_encoder' 编码器",
                                           "=== 硬件编码器 'no_such_encoder' enable = 0"};
  const std::vector<std::string> enabled{"=== 硬件编码器 'libx264' enable = 1"};
  const std::vector<std::string> refused{"--- 打开编码器 'mpeg1video' 出错: Invalid argument",
                                         "=== 硬件编码器 'mpeg1video' enable = 0"};
  const struct {
    const zeva::HwEncoder* entry;
    int width, height, pix_fmt;
    bool expected;
    const std::vector<std::string>& log;
  } probes[] = {
      {&missing, 64, 48, AV_PIX_FMT_NV12, false, not_found},
      {&missing, 64, 48, AV_PIX_FMT_NV12, false, none},
      {&working, 64, 48, AV_PIX_FMT_NV12, true, enabled},
      {&working, 64, 48, AV_PIX_FMT_NV12, true, none},
      {&working, 48, 64, AV_PIX_FMT_NV12, true, enabled},
      {&working, 64, 48, AV_PIX_FMT_BGRA, true, enabled},  // replaced by a format it has
      {&working, 2, 2, AV_PIX_FMT_NV12, false, none},
      {&working, 64, 3, AV_PIX_FMT_NV12, false, none},
      {&refusing, 8192, 48, AV_PIX_FMT_YUV420P, false, refused},
      {nullptr, 64, 48, AV_PIX_FMT_NV12, false, none},
  };
  for (const auto& p : probes) {
    const LogCapture log;
    EXPECT_EQ(zeva::probe_hw_encoder(p.entry, p.width, p.height, p.pix_fmt), p.expected);
    EXPECT_EQ(log.messages(), p.log);
  }
}

}  // namespace
