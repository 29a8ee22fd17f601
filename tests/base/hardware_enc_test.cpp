// Which hardware encoders are there.
#include <gtest/gtest.h>

#include "ffmpeg.h"
#include "hardware_enc.h"
#include "log_capture.h"

namespace {

TEST(HardwareProbe, AsksOncePerEncoderSizeAndFormat) {
  const zeva::HwEncoder missing{101, "no_such_encoder"};
  const zeva::HwEncoder working{102, "libx264"};
  const struct {
    const zeva::HwEncoder* entry;
    int width, height, pix_fmt;
    bool expected;
    std::vector<std::string> log;
  } probes[] = {
      {&missing,
       64,
       48,
       AV_PIX_FMT_NV12,
       false,
       {"--- 没有找到 'no_such_encoder' 编码器", "=== 硬件编码器 'no_such_encoder' enable = 0"}},
      {&missing, 64, 48, AV_PIX_FMT_NV12, false, {}},
      {&working, 64, 48, AV_PIX_FMT_NV12, true, {"=== 硬件编码器 'libx264' enable = 1"}},
      {&working, 64, 48, AV_PIX_FMT_NV12, true, {}},
      {&working, 48, 64, AV_PIX_FMT_NV12, true, {"=== 硬件编码器 'libx264' enable = 1"}},
      // A format it does not have is replaced by one it has.
      {&working, 64, 48, AV_PIX_FMT_BGRA, true, {"=== 硬件编码器 'libx264' enable = 1"}},
      {&working, 2, 2, AV_PIX_FMT_NV12, false, {}},
      {&working, 64, 3, AV_PIX_FMT_NV12, false, {}},
      {nullptr, 64, 48, AV_PIX_FMT_NV12, false, {}},
  };
  for (const auto& p : probes) {
    const LogCapture log;
    EXPECT_EQ(zeva::probe_hw_encoder(p.entry, p.width, p.height, p.pix_fmt), p.expected);
    EXPECT_EQ(log.messages(), p.log);
  }
  const LogCapture log;
  const zeva::HwEncoder refusing{103, "mpeg1video"};
  EXPECT_FALSE(zeva::probe_hw_encoder(&refusing, 8192, 48, AV_PIX_FMT_YUV420P));
  EXPECT_EQ(log.count("--- 打开编码器 'mpeg1video' 出错: Invalid argument"), 1);
  EXPECT_EQ(log.count("=== 硬件编码器 'mpeg1video' enable = 0"), 1);
}

}  // namespace
