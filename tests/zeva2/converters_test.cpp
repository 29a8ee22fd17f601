// What turns a host's streams into those that demuxers and outputs take.
#include <gtest/gtest.h>

#include <cmath>

#include "aac_encoder.h"
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

struct Heard {
  CodecContextPtr decoder{avcodec_alloc_context3(avcodec_find_decoder_by_name("libopus"))};
  FramePtr frame{av_frame_alloc()};
  double energy = 0;
  int64_t samples = 0, packets = 0;
};

// Refuses the 40th packet.
bool hear(AVPacket* opus, AVRational time_base, void* user) {
  auto& h = *static_cast<Heard*>(user);
  constexpr int kPreSkip = 312;
  // From the beginning of the AAC, which is its encoder's delay.
  EXPECT_EQ(av_rescale_q(opus->pts, time_base, {1, 48000}) + kPreSkip, h.packets++ * 960 - 1024);
  avcodec_send_packet(h.decoder.get(), opus);
  while (avcodec_receive_frame(h.decoder.get(), h.frame.get()) == 0) {
    const auto* data = reinterpret_cast<const int16_t*>(h.frame->data[0]);
    for (int i = 0; i < 2 * h.frame->nb_samples; ++i) h.energy += 1.0 * data[i] * data[i];
    h.samples += 2 * h.frame->nb_samples;
  }
  return h.packets < 40;
}

// A tone comes back as loud as it was, whatever the format, through the encoder and the transcoder.
TEST(Sound, SurvivesEncodingAndTranscoding) {
  for (const std::string format : {"s16", "flt32", "flt32p"}) {
    const auto encoder = AACEncoder::create({48000, 2, format, 128}, AACEncoder::kGlobalHeader);
    ASSERT_TRUE(encoder);
    AVCodecParameters par{};
    par.codec_type = AVMEDIA_TYPE_AUDIO;
    par.codec_id = AV_CODEC_ID_AAC;
    par.sample_rate = 48000;
    par.channels = 2;
    AacToOpus transcoder;
    ASSERT_TRUE(transcoder.init(&par).ok);
    Heard heard;
    ASSERT_EQ(avcodec_open2(heard.decoder.get(), nullptr, nullptr), 0);
    int64_t packets = 0;
    const auto sink = [&](const uint8_t* data, int nbytes, int64_t pts, int64_t duration) {
      EXPECT_EQ(pts, av_rescale((packets++ - 1) * 1024, 1000000, 48000));
      EXPECT_NEAR(duration, 21333, 1);
      AVPacket packet{};
      packet.pts = pts;
      packet.data = const_cast<uint8_t*>(data);
      packet.size = nbytes;
      const bool went_on = transcoder.transcode(&packet, {1, 1000000}, hear, &heard);
      EXPECT_EQ(went_on, heard.packets < 40);
    };
    for (int begin = 0; heard.packets < 40; begin += 500) {
      std::vector<int16_t> whole;
      std::vector<float> pairs, planar(1000);
      for (int i = 0; i < 500; ++i) {
        const auto value = static_cast<float>(0.5 * std::sin((begin + i) * 0.06));
        planar[static_cast<size_t>(i)] = planar[static_cast<size_t>(500 + i)] = value;
        whole.insert(whole.end(), 2, static_cast<int16_t>(value * 32767));
        pairs.insert(pairs.end(), 2, value);
      }
      const void* first = format == "s16" ? static_cast<const void*>(whole.data())
                                          : (format == "flt32" ? pairs : planar).data();
      const uint8_t* planes[4] = {static_cast<const uint8_t*>(first),
                                  reinterpret_cast<const uint8_t*>(&planar[500])};
      EXPECT_TRUE(encoder->encode(planes, 500, begin == 0 ? 0 : -1, sink));
      EXPECT_LE(packets, (begin + 500) / 1024);
    }
    const uint8_t* none[4] = {};
    EXPECT_FALSE(encoder->encode(none, 500, 0, sink));
    EXPECT_NEAR(std::sqrt(heard.energy / static_cast<double>(heard.samples)), 11585, 600) << format;
  }
}

// Every sample that went in comes out, at any rate: the end of a recording is not cut off.
TEST(Transcoder, GivesOutAllSoundWhenItEnds) {
  for (const int rate : {48000, 44100}) {
    const auto encoder = AACEncoder::create({rate, 2, "s16", 128}, AACEncoder::kGlobalHeader);
    AVCodecParameters par{};
    par.codec_type = AVMEDIA_TYPE_AUDIO;
    par.codec_id = AV_CODEC_ID_AAC;
    par.sample_rate = rate;
    par.channels = 2;
    AacToOpus transcoder;
    ASSERT_TRUE(transcoder.init(&par).ok);
    int64_t opus_samples = 0, aac_samples = 0;
    const auto count = [](AVPacket* opus, AVRational, void* samples) {
      *static_cast<int64_t*>(samples) += opus->duration;
      return true;
    };
    const std::vector<int16_t> silence(size_t{2} * 1024);
    const auto* plane = reinterpret_cast<const uint8_t*>(silence.data());
    for (int i = 0; i < 33; ++i) {
      const auto sink = [&](const uint8_t* data, int nbytes, int64_t pts, int64_t) {
        AVPacket packet{};
        packet.pts = pts;
        packet.data = const_cast<uint8_t*>(data);
        packet.size = nbytes;
        aac_samples += 1024;
        EXPECT_TRUE(transcoder.transcode(&packet, {1, 1000000}, count, &opus_samples));
      };
      EXPECT_TRUE(encoder->encode(&plane, 1024, 0, sink));
    }
    EXPECT_TRUE(transcoder.transcode(nullptr, {1, 1000000}, count, &opus_samples));
    EXPECT_TRUE(transcoder.transcode(nullptr, {1, 1000000}, count, &opus_samples));
    EXPECT_GE(opus_samples, av_rescale_rnd(aac_samples, 48000, rate, AV_ROUND_UP)) << rate;
  }
}

// A flush gives out the last sample, also in the middle; sound that follows is in its place again.
TEST(AacEncoder, GivesOutAllSoundWhenItIsFlushed) {
  for (const int rate : {48000, 44100}) {
    const auto encoder = AACEncoder::create({rate, 2, "s16", 128}, AACEncoder::kGlobalHeader);
    const std::vector<int16_t> silence(size_t{2} * 5000);
    const auto* plane = reinterpret_cast<const uint8_t*>(silence.data());
    int64_t written = 0, until = 0;
    bool flushed = false;
    const auto sink = [&](const uint8_t* data, int, int64_t pts, int64_t duration) {
      flushed = data == nullptr;
      if (flushed) return;
      if (until != 0) {
        EXPECT_NEAR(pts, until, 1);
      }
      until = pts + duration;
    };
    EXPECT_TRUE(encoder->encode(nullptr, 0, 0, sink));
    EXPECT_EQ(until, 0);
    for (const int samples : {1, 5000, 1023, 1024, 700, 4096}) {
      EXPECT_TRUE(encoder->encode(&plane, samples, 0, sink));
      for (int times = 0; times < 2; ++times) EXPECT_TRUE(encoder->encode(nullptr, 0, 0, sink));
      written += samples;
      EXPECT_TRUE(flushed);
      EXPECT_NEAR(until, av_rescale(written, 1000000, rate), 1) << rate << ' ' << written;
    }
  }
}

// A packet that the decoder refuses, and a gap, move nothing else; time never goes back.
TEST(Transcoder, FollowsTheTimesOfItsPackets) {
  const std::vector<std::string> sound = aac_packets(200);
  AVCodecParameters par{};
  par.codec_type = AVMEDIA_TYPE_AUDIO;
  par.codec_id = AV_CODEC_ID_AAC;
  par.sample_rate = 48000;
  par.channels = 2;
  const struct {
    const char* what;
    int64_t begin_us, gap_us;
    bool refused;
  } cases[] = {{"late", 5000000, 0, false},
               {"a gap", 0, 3000000, false},
               {"back", 0, -50000, false},
               {"before 0", -21333, 0, false},
               {"one refused", 0, 0, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    AacToOpus transcoder;
    ASSERT_TRUE(transcoder.init(&par).ok);
    std::vector<int64_t> times;
    const auto collect = [](AVPacket* opus, AVRational time_base, void* user) {
      static_cast<std::vector<int64_t>*>(user)->push_back(
          av_rescale_q(opus->pts, time_base, {1, 1000000}));
      return true;
    };
    for (int64_t i = 0; i < 200; ++i) {
      std::string bytes = sound[static_cast<size_t>(i)];
      if (c.refused && i == 100) std::fill(bytes.begin() + 7, bytes.end(), '\x55');
      AVPacket packet{};
      packet.data = reinterpret_cast<uint8_t*>(bytes.data());
      packet.size = static_cast<int>(bytes.size());
      packet.pts = c.begin_us + (i < 100 ? 0 : c.gap_us) + i * 1024 * 1000000 / 48000;
      EXPECT_TRUE(transcoder.transcode(&packet, {1, 1000000}, collect, &times));
    }
    EXPECT_TRUE(transcoder.transcode(nullptr, {1, 1000000}, collect, &times));
    constexpr int64_t kPreSkipUs = 6500;
    EXPECT_EQ(times.front(), c.begin_us - kPreSkipUs);
    EXPECT_NEAR(times.back(), c.begin_us + c.gap_us + int64_t{200} * 1024 * 1000000 / 48000, 45000);
    for (size_t i = 1; i < times.size(); ++i) EXPECT_GT(times[i], times[i - 1]);
  }
}

}  // namespace
