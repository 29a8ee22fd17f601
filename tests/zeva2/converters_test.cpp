// What turns a host's streams into those that demuxers and outputs take.
#include <gtest/gtest.h>

#include <cmath>

#include "aac_encoder.h"
#include "adts.h"
#include "annexb_filter.h"
#include "elementary.h"
#include "log_capture.h"
#include "zv2_aac_to_opus.h"

namespace {
using namespace zeva;  // NOLINT: a test reads better without the prefix

TEST(AacSettings, AreRefusedWithTheirCode) {
  const struct {
    AudioSettings settings;
    const char* told;  // null: fine
  } cases[] = {
      {{48000, 2, "s16", 128}, nullptr},    {{44100, 1, "flt32", 64}, nullptr},
      {{22050, 2, "flt32p", 0}, nullptr},   {{48000, 6, "s16", 384}, nullptr},
      {{48000, 2, "flt", 128}, "(-23)"},    {{48000, 2, "", 128}, "(-23)"},
      {{0, 2, "s16", 128}, "(-24)"},        {{-48000, 2, "s16", 128}, "(-24)"},
      {{48000, 0, "s16", 128}, "(-24)"},    {{48000, 9, "s16", 128}, "(-24)"},
      {{48000, 5, "flt32p", 128}, "(-24)"}, {{50000, 2, "s16", 128}, "(-25)"},
      {{48000, 2, "s16", -128}, "(-25)"},   {{48000, 2, "s16", INT32_MAX}, nullptr},
  };
  for (const auto& c : cases) {
    const LogCapture log;
    const bool made = AACEncoder::create(c.settings, AACEncoder::kGlobalHeader) != nullptr;
    EXPECT_EQ(made, c.told == nullptr) << c.settings.sample_format << c.settings.bitrate;
    EXPECT_EQ(log.count(std::string("AACEncoder error ") + (made ? "" : c.told)), made ? 0 : 1);
  }
}

TEST(Adts, NamesRateAndLength) {
  const auto header = adts_header(1, 22050, 2, 1000);
  EXPECT_EQ(header, (decltype(header){0xFF, 0xF1, 0x5C, 0x80, 0x7D, 0xFF, 0xFC}));
  EXPECT_EQ(adts_sampling_index(50000), 4);
}

// A tone comes back as loud as it was, whatever the format: through the encoder, and the transcoder
// behind it.
TEST(Sound, SurvivesEncodingAndTranscoding) {
  const auto sample = [](int i) { return static_cast<float>(0.5 * std::sin(i * 0.06)); };
  for (const std::string format : {"s16", "flt32", "flt32p"}) {
    const auto encoder = AACEncoder::create({48000, 2, format, 128}, AACEncoder::kGlobalHeader);
    ASSERT_TRUE(encoder);
    std::vector<std::string> packets;
    std::vector<int64_t> times;
    const auto sink = [&](const uint8_t* data, int nbytes, int64_t pts) {
      packets.emplace_back(data, data + nbytes);
      times.push_back(pts);
    };
    for (int begin = 0; begin < 48000; begin += 500) {
      std::vector<int16_t> whole;
      std::vector<float> pairs, planar(1000);
      for (int i = 0; i < 500; ++i) {
        const float value = planar[i] = planar[500 + i] = sample(begin + i);
        whole.insert(whole.end(), 2, static_cast<int16_t>(value * 32767));
        pairs.insert(pairs.end(), 2, value);
      }
      const auto bytes = [](auto* data) { return reinterpret_cast<const uint8_t*>(data); };
      const uint8_t* planes[4] = {format == "s16"     ? bytes(whole.data())
                                  : format == "flt32" ? bytes(pairs.data())
                                                      : bytes(planar.data()),
                                  bytes(&planar[500])};
      EXPECT_TRUE(encoder->encode(planes, 500, -1, sink));
      EXPECT_LE(packets.size(), static_cast<size_t>(begin + 500) / 1024);
    }
    const uint8_t* none[4] = {};
    EXPECT_FALSE(encoder->encode(none, 500, 0, sink));
    ASSERT_GE(packets.size(), 44U);
    for (size_t i = 0; i < times.size(); ++i) {
      EXPECT_EQ(times[i], static_cast<int64_t>(i) * 1024 * 1000000 / 48000);
    }

    struct Heard {
      CodecContextPtr decoder{avcodec_alloc_context3(avcodec_find_decoder_by_name("libopus"))};
      FramePtr frame{av_frame_alloc()};
      double energy = 0;
      int64_t samples = 0, packets = 0;
    } heard;
    ASSERT_EQ(avcodec_open2(heard.decoder.get(), nullptr, nullptr), 0);
    const auto hear = [](AVPacket* opus, AVRational time_base, void* user) {
      auto& h = *static_cast<Heard*>(user);
      EXPECT_EQ(av_rescale_q(opus->pts, time_base, {1, 48000}) + 312, h.packets++ * 960);
      avcodec_send_packet(h.decoder.get(), opus);
      while (avcodec_receive_frame(h.decoder.get(), h.frame.get()) == 0) {
        const auto* data = reinterpret_cast<const int16_t*>(h.frame->data[0]);
        for (int i = 0; i < 2 * h.frame->nb_samples; ++i) h.energy += double{1} * data[i] * data[i];
        h.samples += 2 * h.frame->nb_samples;
      }
      return h.packets < 40;
    };
    AacToOpus transcoder;
    AVCodecParameters par{};
    par.codec_type = AVMEDIA_TYPE_AUDIO;
    par.codec_id = AV_CODEC_ID_AAC;
    par.sample_rate = 48000;
    par.channels = 2;
    ASSERT_TRUE(transcoder.init(&par).ok);
    bool went_on = true;
    for (std::string& bytes : packets) {
      AVPacket packet{};
      packet.data = reinterpret_cast<uint8_t*>(bytes.data());
      packet.size = static_cast<int>(bytes.size());
      went_on = went_on && transcoder.transcode(&packet, {1, 1000000}, hear, &heard);
    }
    EXPECT_FALSE(went_on);
    EXPECT_EQ(heard.packets, 40);
    EXPECT_NEAR(std::sqrt(heard.energy / static_cast<double>(heard.samples)), 11585, 600) << format;
  }
}

TEST(ParameterSets, BecomeAConfigurationRecord) {
  std::vector<uint8_t> sps(25, 7), pps(4, 8);
  const h264::ParameterSets sets{pps.data(), sps.data(), 4, 25, nullptr, 0};
  const std::vector<uint8_t> record = h264::make_configuration_record(sets);
  EXPECT_EQ(record.size(), 40U);
  EXPECT_EQ(h264::make_configuration_record({nullptr, sps.data(), 4, 25, nullptr, 0}).size(), 34U);
}

}  // namespace
