// Encoder presets, refused settings, and which hardware encoders are there.
#include <gtest/gtest.h>

#include <functional>

#include "encoder_presets.h"
#include "hardware_enc.h"
#include "log_capture.h"
#include "media.h"
#include "settings_check.h"

namespace {

TEST(EncoderPresets, NamesAndValues) {
  const char* const presets[] = {"ultrafast", "superfast", "veryfast", "faster",   "fast",
                                 "medium",    "slow",      "slower",   "veryslow", "placebo"};
  const char* const profiles[] = {"baseline", "main", "high", "high10", "high422", "high444"};
  const char* const tunes[] = {"film", "animation", "grain",      "stillimage",
                               "psnr", "ssim",      "fastdecode", "zerolatency"};
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(preset_from_str(presets[i]), i);
    EXPECT_STREQ(preset_to_str(static_cast<Quality_Level>(i)), presets[i]);
  }
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(profile_from_str(profiles[i]), i);
    EXPECT_STREQ(profile_to_str(static_cast<Profile_Level>(i)), profiles[i]);
  }
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(tune_from_str(tunes[i]), i);
    EXPECT_STREQ(tune_to_str(static_cast<Tune_Level>(i)), tunes[i]);
  }
  EXPECT_STREQ(preset_to_str(kQualityNone), "");
  EXPECT_STREQ(profile_to_str(kProfileNone), "");
  EXPECT_STREQ(tune_to_str(kTuneNone), "");
  for (const char* unknown : {"", "Medium", "medium ", "fas", "nothing"}) {
    EXPECT_EQ(preset_from_str(unknown), 2);
    EXPECT_EQ(profile_from_str(unknown), 0);
    EXPECT_EQ(tune_from_str(unknown), 7);
  }
}

TEST(EncoderPresets, ReachTheEncoder) {
  const zeva::CodecContextPtr ctx(avcodec_alloc_context3(avcodec_find_encoder_by_name("libx264")));
  zeva::apply_preset_options(ctx.get(), kQualitySlow, kProfileMain, kTuneGrain);
  for (const auto& [name, expected] :
       {std::pair{"preset", "slow"}, {"profile", "main"}, {"tune", "grain"}}) {
    uint8_t* value = nullptr;
    ASSERT_GE(av_opt_get(ctx->priv_data, name, 0, &value), 0);
    EXPECT_STREQ(reinterpret_cast<char*>(value), expected);
    av_free(value);
  }
}

TEST(Settings, DefaultsOfTheRecord) {
  const MovieInfo info{};
  EXPECT_EQ(info.crf, 23);
  EXPECT_EQ(info.qp, 20);
  EXPECT_EQ(info.fps, 0);
  EXPECT_EQ(info.other_urls[0], nullptr);
}

TEST(Settings, FaultIsNamed) {
  const struct {
    const char* fault;  // part of the sentence; empty for none
    std::function<void(MovieInfo&)> change;
  } cases[] = {
      {"", [](MovieInfo&) {}},
      {"", [](MovieInfo& i) { i.other_urls[0] = i.other_urls[1] = i.other_urls[2] = "x"; }},
      {"other_urls", [](MovieInfo& i) { i.other_urls[3] = "x"; }},
      {"moov_url", [](MovieInfo& i) { memset(i.moov_url, 'x', sizeof i.moov_url); }},
      {"url", [](MovieInfo& i) { memset(i.url, 'x', sizeof i.url); }},
      {"meta_info", [](MovieInfo& i) { memset(i.meta_info, 'x', sizeof i.meta_info); }},
      {"fps 0", [](MovieInfo& i) { i.fps = 0; }},
      {"width -1", [](MovieInfo& i) { i.width = -1; }},
      {"height 0", [](MovieInfo& i) { i.height = 0; }},
      {"video_bitrate -5", [](MovieInfo& i) { i.video_bitrate = -5; }},
      {"pixel format -1", [](MovieInfo& i) { i.src_pix_fmt = AV_PIX_FMT_NONE; }},
      {"", [](MovieInfo& i) { i.disable_video = true, i.fps = i.width = i.pix_fmt = -1; }},
      {"channels 9", [](MovieInfo& i) { i.channels = 9; }},
      {"sample_rate -1", [](MovieInfo& i) { i.sample_rate = -1; }},
      {"sample format -1", [](MovieInfo& i) { i.sample_fmt = AV_SAMPLE_FMT_NONE; }},
      {"", [](MovieInfo& i) { i.disable_audio = true, i.channels = i.sample_fmt = -1; }},
      {"preset 11", [](MovieInfo& i) { i.preset = static_cast<Quality_Level>(11); }},
      {"profile -1", [](MovieInfo& i) { i.profile = static_cast<Profile_Level>(-1); }},
      {"tune 9", [](MovieInfo& i) { i.tune = static_cast<Tune_Level>(9); }},
      {"", [](MovieInfo& i) { i.preset = kQualityNone, i.tune = kTuneNone; }},
  };
  for (const auto& c : cases) {
    MovieInfo info = small_movie("a.mp4");
    c.change(info);
    const std::string fault = zeva::settings_fault(info);
    EXPECT_EQ(fault.empty(), c.fault[0] == '\0') << fault;
    EXPECT_EQ(fault.rfind(c.fault, 0), 0U) << fault;
  }
}

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
