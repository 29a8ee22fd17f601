// The results of the encoders, and their reports to the host.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>

#include "audio_enc.h"
#include "media.h"
#include "stream_setup.h"
#include "temp_dir.h"
#include "video_enc.h"
#include "zeva/status.h"

namespace {

class CountingWriter : public zeva::BaseWriter {
 public:
  int write_packet(AVRational /*time_base*/, AVPacket* packet, bool /*interleave*/) override {
    ++packets;
    if ((packet->flags & AV_PKT_FLAG_KEY) != 0) {
      keys.push_back(packet->pts);
      last_key.assign(packet->data, packet->data + packet->size);
    }
    return takes && packets != lost_packet ? 0 : -1;
  }
  std::vector<int64_t> keys;
  std::vector<uint8_t> last_key;
  int packets = 0;
  int lost_packet = 0;
  bool takes = true;
};

// An encoder of MPEG-1 pictures, which holds one back, or of MP2 sound.
template <typename Encoder>
class EncoderOf {
 public:
  explicit EncoderOf(AVCodecID codec, const zeva::Options& options = {}) {
    MovieInfo info = small_movie("a.mpg");
    info.gop_size = 100;
    info.preset = kQualityNone;
    info.profile = kProfileNone;
    info.tune = kTuneNone;
    AVFormatContext* made = nullptr;
    avformat_alloc_output_context2(&made, nullptr, nullptr, info.url);
    oc.reset(made);
    encoder = std::make_unique<Encoder>(
        zeva::add_stream(oc.get(), codec, info, options), &writer,
        [this](int code, const std::string& text) { told.emplace_back(code, text); });
    EXPECT_TRUE(encoder->open(info).ok);
    const AVFrame* frame = encoder->dst_frame();
    if (frame->nb_samples > 0) {
      av_samples_set_silence(frame->extended_data, 0, frame->nb_samples, frame->channels,
                             static_cast<AVSampleFormat>(frame->format));
    }
  }
  int encode() {
    AVFrame* frame = encoder->dst_frame();
    frame->pts = pts;
    pts += frame->nb_samples > 0 ? frame->nb_samples : 1;
    return encoder->encode(frame);
  }
  int encode_short_of_memory(AVFrame* frame) {
    av_max_alloc(64);
    if (frame != nullptr) frame->pts = pts++;
    const int result = encoder->encode(frame);
    av_max_alloc(INT32_MAX);
    return result;
  }

  zeva::FormatContextPtr oc;
  CountingWriter writer;
  std::vector<std::pair<int, std::string>> told;
  std::unique_ptr<Encoder> encoder;
  int64_t pts = 0;
};

template <typename Encoder>
void expect_refusals_told_once_a_run(AVCodecID codec, int code, const std::string& frame) {
  EncoderOf<Encoder> e(codec);
  EXPECT_GE(e.encode(), 0);
  for (int run = 1; run <= 2; ++run) {
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(e.encode_short_of_memory(e.encoder->dst_frame()), zeva::kRefusedByCodec);
    }
    ASSERT_EQ(e.told.size(), static_cast<size_t>(run));
    EXPECT_EQ(e.told.back().first, code);
    EXPECT_NE(e.told.back().second.find(" encoder refused " + frame + ": "), std::string::npos);
    EXPECT_GE(e.encode(), 0);
  }
}

TEST(Encoders, TellOfRefusalsOnceARun) {
  expect_refusals_told_once_a_run<zeva::VideoEnc>(AV_CODEC_ID_MPEG1VIDEO, kZevaStatusPictureRefused,
                                                  "a picture");
  expect_refusals_told_once_a_run<zeva::AudioEnc>(AV_CODEC_ID_MP2, kZevaStatusSoundRefused,
                                                  "sound");
}

TEST(Encoders, TellOfWhatIsLostAtTheEnd) {
  EncoderOf<zeva::VideoEnc> e(AV_CODEC_ID_MPEG1VIDEO);
  EXPECT_EQ(e.encode(), 0) << "held back";
  EXPECT_EQ(e.encode(), 1);
  EXPECT_EQ(e.encode_short_of_memory(nullptr), zeva::kRefusedByCodec);
  ASSERT_EQ(e.told.size(), 1U);
  EXPECT_EQ(e.told[0].first, kZevaStatusPictureRefused);
  EXPECT_NE(e.told[0].second.find("lost what it held back: Cannot allocate memory"),
            std::string::npos);
  e.encoder->close();
  EXPECT_EQ(e.encode_short_of_memory(nullptr), zeva::kNotOpen);
}

TEST(Encoders, AnswerForTheWriter) {
  EncoderOf<zeva::VideoEnc> e(AV_CODEC_ID_MPEG1VIDEO);
  EXPECT_EQ(e.encode(), 0);
  e.writer.takes = false;
  EXPECT_EQ(e.encode(), zeva::kRefusedByWriter);
  e.writer.takes = true;
  EXPECT_EQ(e.encode(), 1);
  e.writer.takes = false;
  EXPECT_EQ(e.encoder->encode(nullptr), zeva::kRefusedByWriter);
  EXPECT_EQ(e.writer.packets, 3);
  EXPECT_TRUE(e.told.empty()) << "the writer tells itself";

  EncoderOf<zeva::AudioEnc> two_at_the_end(AV_CODEC_ID_AAC);
  EXPECT_EQ(two_at_the_end.encode(), 0);
  two_at_the_end.writer.lost_packet = 1;
  EXPECT_EQ(two_at_the_end.encoder->encode(nullptr), zeva::kRefusedByWriter);
  EXPECT_EQ(two_at_the_end.writer.packets, 2);
}

bool has_idr(const std::vector<uint8_t>& packet) {
  const uint8_t start[] = {0, 0, 1, 0x65};
  return std::search(packet.begin(), packet.end(), std::begin(start), std::end(start)) !=
         packet.end();
}

TEST(Encoders, MakeAKeyPictureOnRequest) {
  const struct {
    AVCodecID codec;
    const char* encoder_options;
  } cases[] = {
      {AV_CODEC_ID_H264, "tune=zerolatency"},
      {AV_CODEC_ID_H264, "bf=3:open-gop=1:rc-lookahead=20"},
      {AV_CODEC_ID_MPEG4, ""},
      {AV_CODEC_ID_MPEG2VIDEO, ""},  // with pictures of both directions
      {AV_CODEC_ID_MPEG1VIDEO, ""},
      {AV_CODEC_ID_FLV1, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(avcodec_get_name(c.codec)) + " " + c.encoder_options);
    zeva::Options options;
    options.encoder_options = c.encoder_options;
    EncoderOf<zeva::VideoEnc> e(c.codec, options);
    for (int n = 0; n < 60; ++n) {
      if (n == 17 || n == 40) {
        e.encoder->request_key_picture();
        e.encoder->request_key_picture();
      }
      if (n == 40) {
        EXPECT_EQ(e.encode_short_of_memory(e.encoder->dst_frame()), zeva::kRefusedByCodec);
      }
      EXPECT_GE(e.encode(), 0);
    }
    e.encoder->encode(nullptr);
    // Picture 40 is refused; an encoder that holds pictures back may mean an earlier one by it.
    std::vector<int64_t>& keys = e.writer.keys;
    keys.erase(std::remove(keys.begin(), keys.end(), 40), keys.end());
    EXPECT_EQ(keys, (std::vector<int64_t>{0, 17, 41}));
    if (c.codec == AV_CODEC_ID_H264) {
      EXPECT_TRUE(has_idr(e.writer.last_key));
    }
  }
}

}  // namespace
