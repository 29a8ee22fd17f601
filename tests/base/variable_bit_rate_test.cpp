// An encoder's bit rate, changed while it works, on pictures of noise, which take all they get.
#include "variable_bit_rate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

#include "media.h"
#include "stream_setup.h"
#include "video_enc.h"

namespace {

class WeighingWriter : public zeva::BaseWriter {
 public:
  int write_packet(AVRational /*time_base*/, AVPacket* packet, bool /*interleave*/) override {
    bits += int64_t{8} * packet->size;
    return 0;
  }
  int64_t bits = 0;
};

struct Settings {
  int rc_mode;
  int kbit;
  const char* encoder_options;
  AVCodecID codec = AV_CODEC_ID_H264;
};

class Encoding {
 public:
  explicit Encoding(const Settings& settings) {
    info = small_movie("a.flv");
    info.width = 160;
    info.height = 96;
    info.rc_mode = settings.rc_mode;
    info.video_bitrate = settings.kbit;
    zeva::Options options;
    options.encoder_options = settings.encoder_options;
    AVFormatContext* made = nullptr;
    avformat_alloc_output_context2(&made, nullptr, nullptr, info.url);
    oc.reset(made);
    stream = zeva::add_stream(oc.get(), settings.codec, info, options, true);
  }
  void open() {
    EXPECT_EQ(stream.fault, "");
    encoder = std::make_unique<zeva::VideoEnc>(std::move(stream), &writer, nullptr);
    ASSERT_TRUE(encoder->open(info).ok);
  }
  // Bits per second of so many seconds of noise, without the first, in which the rate settles.
  int64_t rate_of(int seconds) {
    int64_t settled = 0;
    for (int n = 0; n < seconds * info.fps; ++n) {
      if (n == info.fps) settled = writer.bits;
      AVFrame* frame = encoder->dst_frame();
      for (int plane = 0; plane < 3; ++plane) {
        const int rows = plane == 0 ? frame->height : frame->height / 2;
        std::generate_n(frame->data[plane], frame->linesize[plane] * rows,
                        [this] { return static_cast<uint8_t>(random() & 0x7F); });
      }
      frame->pts = pts++;
      EXPECT_GE(encoder->encode(frame), 0);
    }
    return (writer.bits - settled) / (seconds - 1);
  }

  MovieInfo info{};
  zeva::FormatContextPtr oc;
  WeighingWriter writer;
  zeva::NewStream stream;
  std::unique_ptr<zeva::VideoEnc> encoder;
  std::mt19937 random;
  int64_t pts = 0;
};

TEST(VariableBitRate, IsKeptByTheEncoder) {
  constexpr int64_t full = 1600000;
  const struct {
    Settings settings;
    int64_t bound = full;
  } cases[] = {
      {{0, 1600, ""}},
      {{0, 1600, "tune=film:bf=2:rc-lookahead=10"}},  // with pictures under way
      {{0, 1600, "maxrate=3000000:bufsize=1600000"}, 3000000},
      {{1, 1600, ""}},  // constant quality beneath a bound
      {{2, 1600, ""}},
  };
  for (const auto& [settings, bound] : cases) {
    SCOPED_TRACE(std::to_string(settings.rc_mode) + " " + settings.encoder_options);
    Encoding e(settings);
    EXPECT_EQ(zeva::fixed_rate_fault(*e.stream.encoder), "");
    e.open();
    for (const int64_t wanted : {int64_t{full}, full / 2, full / 4, full * 3 / 4, full}) {
      e.encoder->set_bit_rate(wanted);
      EXPECT_EQ(e.encoder->bit_rate(), wanted);
      const int64_t found = e.rate_of(5);
      // Going up, an encoder is slower: it does not fill its buffer at once.
      EXPECT_GE(found, wanted * 3 / 4);
      EXPECT_LE(found, (wanted == full ? bound : wanted) * 11 / 10);
    }
    e.encoder->set_bit_rate(399001);
    EXPECT_EQ(e.encoder->bit_rate(), 400000) << "whole kbit, not below what is wanted";
    e.encoder->set_bit_rate(INT32_MAX);
    EXPECT_EQ(e.encoder->bit_rate(), full);
  }
}

TEST(VariableBitRate, IsRefusedWhereItCannotBe) {
  const struct {
    Settings settings;
    const char* fault;
  } cases[] = {
      {{0, 800, "", AV_CODEC_ID_MPEG4}, "mpeg4 cannot change its bit rate while it works"},
      {{0, 800, "", AV_CODEC_ID_FLV1}, "flv cannot change its bit rate while it works"},
      {{0, 0, ""}, "libx264 cannot change its bit rate: it has none"},
      {{3, 800, ""}, "libx264 cannot change its bit rate: it has none"},
      {{0, 800, "qp=20"}, "libx264 cannot change its bit rate with a constant quantiser"},
      {{0, 800, "maxrate=0"}, "libx264 cannot change its bit rate without maxrate and bufsize"},
      {{0, 800, "nal-hrd=vbr"}, "libx264 cannot change its bit rate with nal-hrd"},
      {{0, 800, "x264-params=vbv-maxrate=900"},
       "libx264 cannot change its bit rate with vbv-maxrate"},
      {{0, 800, "vbv-bufsize=900"}, "libx264 cannot change its bit rate with vbv-bufsize"},
  };
  for (const auto& c : cases) {
    Encoding e(c.settings);
    ASSERT_TRUE(e.stream.encoder);
    EXPECT_EQ(zeva::fixed_rate_fault(*e.stream.encoder), c.fault);
  }
}

}  // namespace
